#pragma once

#include <cstdint>
#include <vector>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::cli {

// One line of a comparison's report.
struct Difference {
    enum Kind : char { OnlyInNew = '+', OnlyInOld = '-', Changed = '~' };
    Kind kind;
    int32_t index; // in the new snapshot, or in the old one for OnlyInOld
};

// The differences of two compared snapshots, folder by folder from the top:
// the new snapshot's entries of a folder in its table order (entries only in
// it, with everything beneath them, and changed files), each matched
// sub-folder's differences right after the sub-folder, then what only the old
// snapshot has in that folder. Raises "Subscript out of range" on rings that
// do not close.
std::vector<Difference> listDifferences(const engine::Snapshot& newer,
                                        const engine::Snapshot& older);

// The file rule and folder rule of the show modes 1 to 5: whether the file
// list shows entry index when listing all sub-folder files.
bool shownInMode(const engine::Snapshot& snapshot, int32_t index, int mode);

} // namespace kestrel::cli
