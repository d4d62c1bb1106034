#pragma once

#include "FileList.h"
#include "engine/compare/ShowMode.h"

#include <cstdint>

namespace kestrel::engine {

class NameFilter;
class ProgressMeter;
class Snapshot;

// How the rows of a file list are chosen, in one place for every list that
// shows them: the snapshot window's grid, and the command line's export and
// report, which must list exactly the rows the window lists.

// The files of sub-folders are never listed when that would give more rows.
inline constexpr int32_t SubFolderRowLimit = 30000;

// The tag of a folder's node in the folder tree: the index of the first
// entry inside the folder, 0 for a folder without contents. The top
// (folder 0) is tagged 1 whenever the snapshot has any entry, so that a
// root holding only files lists them too.
int32_t folderTag(const Snapshot& snapshot, int32_t folder);

// Whether the folder tree has a node for folder under the mode: the top
// always; any other folder when it and every folder above it are visible,
// since the tree does not descend into a folder it hides.
bool folderReachable(const Snapshot& snapshot, int32_t folder, ShowMode mode);

// Whether a folder is listed with the files of its sub-folders. Asked for
// (View > Files in Sub-Folders), or given by the "Always" option for lists
// shorter than alwaysBelow (0 when the option is off), it is refused when
// the current show mode would list more than SubFolderRowLimit rows.
struct SubFolderChoice {
    bool subFolders = false;
    bool refused = false; // asked for, or given by "Always", and over the limit
    int32_t rows = 0;     // the rows it lists, when subFolders
};
SubFolderChoice chooseSubFolders(const Snapshot& snapshot, int32_t tag, ListingOptions options,
                                 bool asked, int32_t alwaysBelow);

// The rows of a list: the listing, and the column it is sorted on.
struct RowSelection {
    static constexpr int Unsorted = -1;

    ListingOptions listing;
    // A grid column, Name 0 to Version 6, or Unsorted for ring order. Size,
    // Modified and Attributes sort on their hidden keys.
    int sortColumn = Unsorted;
    bool descending = false;
    // Rows whose names do not pass it are left out (the window's find bar);
    // it must outlive the selection's use.
    const NameFilter* nameFilter = nullptr;
};

// Lists the folder whose first entry is tag into rows and sorts them.
void selectRows(FileList& rows, int32_t tag, const RowSelection& selection,
                ProgressMeter* meter = nullptr);

} // namespace kestrel::engine
