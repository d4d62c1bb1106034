#pragma once

#include "engine/model/Snapshot.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>
#include <vector>

namespace kestrel::engine {

// What a snapshot window shows of its snapshot. None until the window has
// been compared; then one of the five choices of its show selector, whose
// position is the mode less one.
enum class ShowMode : int16_t {
    None = 0,        // no comparison yet: everything, nothing coloured
    All = 1,         // "All Files/Dirs in this Snapshot"
    OnlyHere = 2,    // "Files/Dirs Only in this Snapshot"
    InBoth = 3,      // "Files/Dirs in Both Snapshots"
    Changed = 4,     // "Files Changed in this Snapshot"
    Differences = 5, // "All Differences in this Snapshot"
};

// Whether a mode leaves entries out by what the comparison found: every
// mode past All. None and All list every entry.
inline bool filtersByComparison(ShowMode mode) {
    return int(mode) > int(ShowMode::All);
}

// The show selector's position of a mode; -1 for None, which no position
// stands for.
inline int selectorPosition(ShowMode mode) {
    return int(mode) - 1;
}
// The mode the show selector stands for at a position. Once the window is
// compared, positions 0 to 4 are All to Differences; before, the disabled
// selector's position is taken as the mode itself, so its position 0 is None.
inline ShowMode selectorShowMode(int position, bool compared) {
    return ShowMode(compared ? position + 1 : position);
}

// The show selector's texts, position 0 (ShowMode::All) first.
QStringList showModeTexts();
// The text of a mode; empty for ShowMode::None.
QString showModeText(ShowMode mode);
// The mode of a selector position (0..4), or of a command-line word ("all",
// "only", "both", "changed", "diffs"); nothing when there is none.
std::optional<ShowMode> showModeAt(int position);
std::optional<ShowMode> showModeNamed(const QString& word);

// Whether the folder tree shows a folder. A file is never a tree node.
// After a comparison a folder is shown when it matters to the mode: one
// with something changed beneath it, one without counterpart, one in both
// snapshots, or one whose contents gave no match at all. An ignored entry
// is listed only by the modes that list everything.
bool folderVisible(const SnapshotEntry& entry, ShowMode mode);

// Whether the file list has a row for an entry under the mode's file rule.
// The rule looks only at the comparison fields, not at the folder bit, so it
// applies to folder records too.
bool fileRulePasses(const SnapshotEntry& entry, ShowMode mode);

// Whether the file list shows an entry: by the file rule, or for a folder
// also by the tree's rule.
inline bool rowShown(const SnapshotEntry& entry, ShowMode mode) {
    return fileRulePasses(entry, mode) || (entry.isFolder() && folderVisible(entry, mode));
}

// Whether a window lists an entry: rowShown, and an entry a comparison's
// ignore patterns left out only while ignored entries are shown (View > Show
// Ignored Entries). Before any comparison nothing is left out.
inline bool rowListed(const SnapshotEntry& entry, ShowMode mode, bool showIgnored) {
    return rowShown(entry, mode) && (showIgnored || mode == ShowMode::None || !entry.isIgnored());
}

// The part of a snapshot its comparison covers: everything beneath the
// comparison root, the whole snapshot when the root is the top. The
// comparison writes status and match only there; outside, they are left
// from an earlier comparison or were never written, and mean nothing. So
// outside the part nothing is coloured or counted, and the show modes
// that filter by the comparison leave it out, all but the folders on the
// way down to the root.
class ComparedPart {
public:
    // The whole snapshot.
    ComparedPart() = default;
    // Everything beneath the folder whose entry is root (0: the whole
    // snapshot). The snapshot's rings must be sound, as the folder index
    // has checked them for every folder a window shows.
    ComparedPart(const Snapshot& snapshot, int32_t root);

    // The root folder's entry; 0 for the top.
    int32_t root() const { return m_root; }
    bool covers(int32_t entry) const {
        return m_root == 0 || (size_t(entry) < m_inside.size() && m_inside[size_t(entry)]);
    }
    // Whether a show mode lists an entry the part does not cover: the modes
    // that filter nothing list everything, the others only the root and the
    // folders above it, so that the root can be reached.
    bool shownOutside(int32_t entry, ShowMode mode) const;

private:
    int32_t m_root = 0;
    std::vector<bool> m_inside;  // by entry
    std::vector<int32_t> m_path; // the root, then each folder above it
};

} // namespace kestrel::engine
