#include "PathOrder.h"

#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"

namespace kestrel::output {

QByteArray pathSortKey(const QString& relativePath) {
    QByteArray key = relativePath.toUtf8();
    // Below every byte a name can hold: "a/" and its contents come before
    // "a b", whose blank would otherwise sort below the separator.
    key.replace('/', '\0');
    return key;
}

std::vector<int32_t> entriesInPathOrder(const engine::Snapshot& snapshot) {
    std::vector<int32_t> entries;
    engine::walkEntries(snapshot, [&](int32_t i, int) { entries.push_back(i); });
    sortByPath(entries, [&](int32_t i) { return pathSortKey(snapshot.relativePath(i)); });
    return entries;
}

} // namespace kestrel::output
