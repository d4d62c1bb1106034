#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace kestrel::engine {

class Snapshot;

// Finds names in one folder ring of a snapshot with exactly the result of
// Snapshot::locateEntry (the first case-insensitive match in ring order,
// starting after the given entry), but without walking large rings again and
// again. When two snapshots list a folder in the same order the match is the
// first entry looked at. Otherwise a ring longer than a few dozen entries is
// walked once into a hash index of its names, and every later look-up is a
// hash probe: comparing a folder of 100,000 files listed in another order
// stays linear.
class RingLookup {
public:
    explicit RingLookup(const Snapshot& snapshot) : m_snapshot(snapshot) {}

    // Forgets the ring: the next look-up may be in another one.
    void reset();

    // As Snapshot::locateEntry(index, name).
    int32_t locate(int32_t& index, std::string_view name);

private:
    struct Slot {
        uint32_t hash = 0;
        int32_t entry = 0; // 0 marks an empty slot (entry 0 is never a member)
        uint32_t ordinal = 0;
    };

    bool build(int32_t start);
    int32_t ordinalOf(int32_t entry) const;

    const Snapshot& m_snapshot;
    bool m_built = false;
    bool m_small = false; // the ring was walked and is short: plain walks are cheap
    uint32_t m_members = 0;
    std::vector<Slot> m_slots;
    uint64_t m_mask = 0;
};

} // namespace kestrel::engine
