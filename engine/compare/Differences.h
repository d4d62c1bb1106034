#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrel::engine {

class Snapshot;

// One line of a comparison's report.
struct Difference {
    enum Kind : char { OnlyInNew = '+', OnlyInOld = '-', Changed = '~' };
    Kind kind;
    int32_t index; // in the new snapshot, or in the old one for OnlyInOld
};

// The folders of a snapshot with a difference somewhere beneath them, as a
// comparison of the whole snapshots found them: an entry without
// counterpart, a changed file, or a folder whose own permissions or owner
// changed. A folder is marked with every folder above it. Apart from that,
// the folders with an entry without counterpart beneath them are marked
// again: the search for moves looks for nothing else.
class FolderMarks {
public:
    // Marks folder and the folders above it; unmatched: for an entry without
    // counterpart directly inside it.
    void markUp(const Snapshot& s, int32_t folder, bool unmatched);
    bool has(int32_t folder) const {
        return size_t(folder) < m_changed.size() && m_changed[size_t(folder)];
    }
    bool hasUnmatched(int32_t folder) const {
        return size_t(folder) < m_unmatched.size() && m_unmatched[size_t(folder)];
    }

private:
    std::vector<bool> m_changed;   // by entry index
    std::vector<bool> m_unmatched; // by entry index
};

// A comparison's FolderMarks, for each of its two snapshots.
struct ChangedFolders {
    FolderMarks self;
    FolderMarks other;
};

// The differences of two compared snapshots, folder by folder from the top:
// the new snapshot's entries of a folder in its table order (entries only in
// it, with everything beneath them, and changed files), each matched
// sub-folder's differences right after the sub-folder, then what only the old
// snapshot has in that folder. Entries the comparison ignored are never
// differences. Raises "Subscript out of range" on rings that
// do not close.
//
// Given the marks the comparison left (both or neither), a pair of matching
// folders neither of which is marked is passed over: nothing beneath them
// differs, so a comparison that changed little walks only the folders that
// hold its changes.
std::vector<Difference> listDifferences(const Snapshot& newer, const Snapshot& older,
                                        const FolderMarks* newerMarks = nullptr,
                                        const FolderMarks* olderMarks = nullptr);

} // namespace kestrel::engine
