#pragma once

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::output {

// The order the command line prints entries in: by path, name by name from
// the top, comparing the bytes of the names (UTF-8, as LC_ALL=C sort does),
// a folder right before its contents. It depends only on the names, never on
// the order in which the file system listed a folder, so two runs over the
// same tree print the same text.

// A relative path ("Top/Sub/", "Top/a.txt") as a key whose byte order is the
// path order: each separator becomes the lowest byte.
QByteArray pathSortKey(const QString& relativePath);

// Sorts items by the keys, which are made once for each. Items with equal
// keys keep their order.
template <typename Item, typename KeyOf> void sortByPath(std::vector<Item>& items, KeyOf keyOf) {
    std::vector<QByteArray> keys;
    keys.reserve(items.size());
    for (const Item& item : items)
        keys.push_back(keyOf(item));
    std::vector<size_t> order(items.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return keys[a] < keys[b]; });
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const size_t i : order)
        sorted.push_back(std::move(items[i]));
    items = std::move(sorted);
}

// Every entry of a snapshot, in path order. Raises "Subscript out of range"
// for a damaged snapshot, as the walk of its rings does.
std::vector<int32_t> entriesInPathOrder(const engine::Snapshot& snapshot);

} // namespace kestrel::output
