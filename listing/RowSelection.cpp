#include "RowSelection.h"

#include "engine/model/NameFilter.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"

#include <algorithm>

namespace kestrel::engine {

int32_t folderTag(const Snapshot& snapshot, int32_t folder) {
    if (folder == 0)
        return snapshot.entryCount >= 1 ? 1 : 0;
    return hasContents(snapshot, folder) ? folder + 1 : 0;
}

bool folderReachable(const Snapshot& snapshot, int32_t folder, ShowMode mode) {
    // Bounded by the table: a parent chain that loops is not reachable.
    int64_t budget = int64_t(snapshot.capacity()) + 1;
    for (int32_t i = folder; i != 0; i = snapshot.entries.get(i).parent) {
        if (--budget < 0 || !snapshot.entries.contains(i) ||
            !folderVisible(snapshot.entries.get(i), mode))
            return false;
    }
    return true;
}

SubFolderChoice chooseSubFolders(const Snapshot& snapshot, int32_t tag, ListingOptions options,
                                 bool asked, int32_t alwaysBelow) {
    SubFolderChoice choice;
    if (!asked && alwaysBelow <= 0)
        return choice;
    options.subFolders = true;
    // Counted only as far as either bound needs: past both, the number does
    // not matter.
    const int32_t rows =
        FileList::countRows(snapshot, tag, options, std::max(SubFolderRowLimit, alwaysBelow));
    const bool wanted = asked || alwaysBelow > rows;
    if (!wanted)
        return choice;
    if (rows > SubFolderRowLimit) {
        choice.refused = true;
        return choice;
    }
    choice.subFolders = true;
    choice.rows = rows;
    return choice;
}

void selectRows(FileList& rows, int32_t tag, const RowSelection& selection, ProgressMeter* meter) {
    rows.list(tag, selection.listing, meter);
    if (selection.nameFilter)
        rows.keepNamesMatching(*selection.nameFilter);
    if (selection.sortColumn != RowSelection::Unsorted)
        rows.sortByText(sortKeyColumn(selection.sortColumn), selection.descending);
}

} // namespace kestrel::engine
