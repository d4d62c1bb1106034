#pragma once

#include "Snapshot.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

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
// snapshots, or one whose contents gave no match at all.
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

} // namespace kestrel::engine
