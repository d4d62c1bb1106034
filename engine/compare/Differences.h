#pragma once

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

// The differences of two compared snapshots, folder by folder from the top:
// the new snapshot's entries of a folder in its table order (entries only in
// it, with everything beneath them, and changed files), each matched
// sub-folder's differences right after the sub-folder, then what only the old
// snapshot has in that folder. Entries the comparison ignored are never
// differences. Raises "Subscript out of range" on rings that
// do not close.
std::vector<Difference> listDifferences(const Snapshot& newer, const Snapshot& older);

} // namespace kestrel::engine
