#pragma once

#include <cstdint>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::bench {

// How a copy of a snapshot differs from its original.
struct Variation {
    uint64_t seed = 2;
    bool shuffle = false; // every folder lists its entries in another order
    int touched = 0;      // files whose last-write time moves a day on
    int removed = 0;      // files left out
    int added = 0;        // new files in random folders
    int renamed = 0;      // files that take another name in their folder (moves)
};

// Writes into an empty snapshot a copy of original with the variation
// applied, laid out as a scan of such a tree would lay it out.
void makeVariant(const engine::Snapshot& original, engine::Snapshot& copy, const Variation& v);

} // namespace kestrel::bench
