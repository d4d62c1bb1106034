#pragma once

#include "engine/model/NameMatching.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::engine {

// The file in a snapshot's root folder whose patterns a comparison of the
// snapshot applies (SnapshotHeader::ownIgnorePatterns).
inline constexpr char OwnIgnoreFileName[] = ".kestrelignore";
// The largest such file that is read.
inline constexpr int64_t OwnIgnoreFileLimit = 1 << 20;

// Names of entries that take no part in a comparison (or a scan), written as
// gitignore patterns, one a line:
// - "*" matches anything but "/", "?" one character, "[a-z]", "[!0-9]" and
//   "[^...]" one character of a set ("[[:digit:]]" and the other classes
//   too); a backslash takes the next character as it is;
// - a pattern without "/" (a trailing one aside) matches the name at any
//   depth; one with a "/" at the start or in the middle matches the path
//   below the snapshot's root ("/var/log", "doc/*.txt");
// - "**/" at the start matches in every folder, "/**" at the end everything
//   inside, "/**/" in the middle zero or more folders;
// - a trailing "/" matches folders only; a leading "!" takes back what an
//   earlier pattern ignored; the last pattern that matches decides;
// - "#" starts a comment line; blank lines do nothing; trailing blanks are
//   dropped unless escaped with a backslash.
// Nothing beneath an ignored folder is ever taken back: callers that walk a
// tree ask only about entries whose folders are not ignored (IgnoreWalk).
//
// The patterns are compiled once, for one way of telling names apart: exact
// (POSIX snapshots, as git on Linux) or without regard to case (snapshots made
// on Windows), when the paths asked about are folded as IgnoreWalk folds them.
// A line that cannot be compiled (an unclosed "[") is left out and reported;
// the others apply. Matching allocates nothing and costs, per entry, at most
// a glob match per pattern; plain names and "*.ext" take a comparison.
// Immutable once built: one set may be shared between threads.
class IgnorePatterns {
public:
    // Matches nothing.
    IgnorePatterns();
    // The lines of text; problems are told as "source: line 3: unclosed [".
    IgnorePatterns(std::string_view text, const QString& source);
    ~IgnorePatterns();
    IgnorePatterns(const IgnorePatterns&);
    IgnorePatterns& operator=(const IgnorePatterns&);

    // The patterns of more, after these: theirs win where both match.
    void append(const IgnorePatterns& more);
    // The same patterns for names told apart by matching.
    IgnorePatterns forMatching(NameMatching matching) const;
    NameMatching matching() const { return m_matching; }

    bool empty() const { return m_patterns.empty(); }
    // Whether some pattern looks at the folders above a name.
    bool needsPaths() const { return m_needsPaths; }
    // The most names a path may hold and still match a pattern: an entry
    // deeper than that is never ignored, so a walk need not ask. Unbounded
    // (INT_MAX) when a pattern matches at any depth.
    int deepestMatch() const { return m_deepestMatch; }
    // The lines as they were given, comments and blank lines included.
    const std::vector<std::string>& lines() const { return m_lines; }
    // The lines that could not be compiled, one message each.
    const QStringList& problems() const { return m_problems; }

    // Whether the last pattern that matches the entry at path ignores it:
    // path is below the root, "/"-separated, without a leading "/" ("a/b.o"),
    // folded when the patterns are for IgnoreCase. The folders above it must
    // not be ignored themselves.
    bool ignores(std::string_view path, bool folder) const;
    // The same, told where the entry's own name starts in path and how many
    // names path holds (a walk knows both; counting them costs a pass over
    // the path).
    bool ignores(std::string_view path, size_t nameStart, int names, bool folder) const;
    // The same for a walk that keeps the path of the entry's folder apart:
    // folderPath is the names above the entry, each followed by "/" ("a/b/"),
    // and names counts them and the entry. The whole path is put together in
    // scratch only when an anchored pattern gets as far as matching it.
    bool ignoresIn(std::string_view folderPath, int names, std::string_view name, bool folder,
                   std::string& scratch) const;
    // Whether some pattern may match a non-empty name with these first and
    // last bytes, in a folder whose path starts with pathFirst when inFolder:
    // false turns the entry away before anything else is done with its name.
    bool mayMatch(bool inFolder, unsigned char pathFirst, unsigned char first, unsigned char last,
                  bool folder) const {
        if (m_patterns.empty())
            return false;
        return passes(m_filters[(folder ? 256 : 0) + size_t(last)], first,
                      inFolder ? pathFirst : first);
    }

    struct Pattern; // compiled; defined where they are matched

private:
    // What is checked of a pattern before it is matched: most names are
    // turned away by their first byte or, for an anchored pattern, by the
    // number of names in the path.
    struct Quick {
        uint64_t firstBytes[4] = {}; // the bytes a matching name may start with
        bool emptyName = false;      // whether an empty name may match
        bool anchored = false;
        bool anyDepth = false;
        bool negated = false;
        int pathFirstByte = -1; // the byte a matching path starts with; -1 for any
        int fixedSegments = 0;
    };

    // Bit 256 stands for an empty name or path: most entries are turned
    // away by two tests of their first bytes.
    struct Filter {
        uint64_t names[5] = {};
        uint64_t paths[5] = {};
    };

    // Sorts the patterns by the last byte of the names they can match.
    void index();
    static void noteInFilter(Filter& filter, const Quick& q);
    // Whether a name with the first byte nameBit in a path with the first
    // byte pathBit gets past the filter (bit 256 for empty).
    static bool passes(const Filter& filter, size_t nameBit, size_t pathBit) {
        return ((filter.names[nameBit >> 6] >> (nameBit & 63)) & 1) ||
               ((filter.paths[pathBit >> 6] >> (pathBit & 63)) & 1);
    }
    // The last pattern that matches decides; fullPath() gives the entry's
    // whole path for anchored patterns.
    template <typename FullPath>
    bool decide(std::string_view folderPath, int names, std::string_view name, bool folder,
                FullPath fullPath) const;

    std::vector<Pattern> m_patterns;
    std::vector<Quick> m_quick; // by pattern
    // By folder or file and the name's last byte (folder * 256 + byte): the
    // patterns that may match such a name, the last one first, in
    // m_candidates from m_candidateStarts[key] to m_candidateStarts[key + 1].
    // Most patterns end in a literal ("*.pyc", "*_7"), so an entry is tried
    // against a few of them, not all.
    std::vector<uint32_t> m_candidates;
    std::vector<uint32_t> m_candidateStarts;
    // By the same key, the first bytes of the names the unanchored
    // candidates may match and of the paths the anchored ones may match.
    std::vector<Filter> m_filters;
    // The lines compiled, as written: compiled again for another matching.
    std::vector<std::string> m_lines;
    QStringList m_problems;
    NameMatching m_matching = NameMatching::Exact;
    bool m_needsPaths = false;
    int m_deepestMatch = 0;
};

// Follows a depth-first walk of a snapshot's entries (a folder before its
// contents) and tells which of them the patterns ignore, everything beneath
// an ignored folder included. It keeps the path of the folders above the
// entries, put together once per folder: a file's name is never copied
// (unless folded), and an entry costs no allocation once the deepest path
// has been seen.
class IgnoreWalk {
public:
    explicit IgnoreWalk(const IgnorePatterns& patterns)
        : m_patterns(patterns), m_fold(patterns.matching() == NameMatching::IgnoreCase),
          m_paths(patterns.needsPaths()) {}

    // The entry named name at depth (0 for the root's own items), met after
    // its folder.
    bool ignored(int depth, std::string_view name, bool folder);

private:
    // The names of the folders above an entry at depth, each followed by "/".
    std::string_view folderPath(int depth) const;
    void enterFolder(int depth, std::string_view name);

    const IgnorePatterns& m_patterns;
    const bool m_fold;
    const bool m_paths;
    std::string m_folders;            // the folders met last at each depth, "a/b/"
    std::vector<size_t> m_folderEnds; // by depth: where that depth's folder ends in m_folders
    std::string m_folded;             // the entry's name folded
    std::string m_scratch;            // the entry's whole path, when a pattern needs it
    int m_ignoredFolderDepth = -1;    // the depth of the ignored folder being walked through
};

} // namespace kestrel::engine
