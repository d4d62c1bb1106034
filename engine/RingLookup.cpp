#include "RingLookup.h"

#include "CaseFold.h"
#include "Errors.h"
#include "Snapshot.h"

namespace kestrel::engine {

namespace {
// Rings up to this size are searched by walking them.
constexpr int32_t WalkLimit = 32;
} // namespace

void RingLookup::reset() {
    m_built = false;
    m_small = false;
    m_members = 0;
}

int32_t RingLookup::locate(int32_t& index, std::string_view name) {
    const EntryTable& entries = m_snapshot.entries;
    const int32_t start = entries.at(index).nextSibling;
    const SnapshotEntry& first = entries.at(start);
    if (namesEqual(m_snapshot.nameOf(first), name)) {
        index = start;
        return start;
    }
    if (!m_built && !m_small) {
        // Walk a little; a ring that closes within the limit is small.
        int32_t current = start;
        for (int32_t steps = 0; steps < WalkLimit; ++steps) {
            const int32_t next = entries.at(current).nextSibling;
            if (next == current || next == start) {
                m_small = true;
                break;
            }
            current = next;
        }
        if (!m_small && !build(start))
            return m_snapshot.locateEntry(index, name); // not a closed ring: walk as always
    }
    if (m_small)
        return m_snapshot.locateEntry(index, name);

    // Of the members with this name, the first in ring order from start.
    // Names are nearly always unique in a folder; only when two members match
    // (README and readme) does their position relative to start decide.
    const uint64_t h = nameHash(name);
    const auto tag = uint32_t(h >> 32);
    int32_t best = 0;
    uint32_t bestOrdinal = 0;
    uint32_t startOrdinal = 0;
    int candidates = 0;
    auto distance = [&](uint32_t ordinal) { return (ordinal + m_members - startOrdinal) % m_members; };
    for (uint64_t p = h & m_mask; m_slots[p].entry != 0; p = (p + 1) & m_mask) {
        const Slot& slot = m_slots[p];
        if (slot.hash != tag || !namesEqual(m_snapshot.nameOf(entries.get(slot.entry)), name))
            continue;
        if (++candidates == 1) {
            best = slot.entry;
            bestOrdinal = slot.ordinal;
            continue;
        }
        if (candidates == 2)
            startOrdinal = ordinalOf(start);
        if (distance(slot.ordinal) < distance(bestOrdinal)) {
            best = slot.entry;
            bestOrdinal = slot.ordinal;
        }
    }
    index = best != 0 ? best : start;
    return best;
}

bool RingLookup::build(int32_t start) {
    const EntryTable& entries = m_snapshot.entries;
    // Count the members; a ring that does not come back to its start within
    // the table is damaged and left to the plain walk.
    uint32_t members = 0;
    int32_t current = start;
    const int64_t limit = int64_t(entries.capacity()) + 1;
    do {
        if (current == 0 || ++members > limit)
            return false;
        current = entries.at(current).nextSibling;
    } while (current != start);

    uint64_t size = 16;
    while (size < uint64_t(members) * 2)
        size <<= 1;
    m_slots.assign(size, Slot{});
    m_mask = size - 1;
    m_members = members;
    current = start;
    for (uint32_t ordinal = 0; ordinal < members; ++ordinal) {
        const uint64_t h = nameHash(m_snapshot.nameOf(entries.get(current)));
        uint64_t p = h & m_mask;
        while (m_slots[p].entry != 0)
            p = (p + 1) & m_mask;
        m_slots[p] = Slot{uint32_t(h >> 32), current, ordinal};
        current = entries.get(current).nextSibling;
    }
    m_built = true;
    return true;
}

int32_t RingLookup::ordinalOf(int32_t entry) const {
    const uint64_t h = nameHash(m_snapshot.nameOf(m_snapshot.entries.get(entry)));
    for (uint64_t p = h & m_mask;; p = (p + 1) & m_mask) {
        const Slot& slot = m_slots[p];
        if (slot.entry == entry)
            return int32_t(slot.ordinal);
        if (slot.entry == 0)
            return 0;
    }
}

} // namespace kestrel::engine
