#include "RingLookup.h"

#include "engine/model/Snapshot.h"
#include "engine/support/Errors.h"

namespace kestrel::engine {

void RingLookup::reset() {
    m_built = false;
    m_misses = 0;
    m_members = 0;
}

uint32_t NameHashes::ofName(std::string_view name, NameMatching matching) {
    const uint64_t h = matchingHash(name, matching);
    const auto folded = uint32_t(h ^ (h >> 32));
    return folded ? folded : 1;
}

uint32_t NameHashes::workOut(int32_t index) {
    const std::string_view name = m_snapshot.nameOf(m_snapshot.entries.at(index));
    if (m_count == 0) {
        m_count = size_t(m_snapshot.capacity()) + 1;
        m_pages = ZeroPages(m_count * sizeof(uint32_t));
        m_hashes = static_cast<uint32_t*>(m_pages.data());
    }
    const size_t i = size_t(index);
    if (!m_pages.written(i * sizeof(uint32_t))) {
        m_pages.markWritten(i * sizeof(uint32_t));
        return m_hashes[i] = ofName(name, m_matching);
    }
    uint32_t& h = m_hashes[i];
    if (h == 0)
        h = ofName(name, m_matching);
    return h;
}

bool RingLookup::matches(const SnapshotEntry& e, std::string_view name) const {
    return namesMatch(m_snapshot.nameOf(e), name, m_matching);
}

int32_t RingLookup::locate(int32_t& index, std::string_view name, NameHashes& wantedHashes,
                           int32_t wantedIndex) {
    const EntryTable& entries = m_snapshot.entries;
    const int32_t start = entries.at(index).nextSibling;
    // An indexed ring is one listed in another order, where the first entry
    // looked at is rarely the one: go straight to the index.
    if (!m_built && matches(entries.at(start), name)) {
        index = start;
        return start;
    }
    if (!m_built) {
        // The first miss of a ring is expected even when both snapshots list
        // it in the same order: the comparison starts at the first entry and
        // the walk looks at it last, so the entry before start is the likely
        // match, and only the walk tells whether another member matches too.
        // When that entry does not match either, or at a second miss, the
        // ring is in another order and worth an index.
        const bool sameOrder = m_misses++ == 0 && matches(entries.at(index), name);
        // A damaged ring is walked as always.
        if (sameOrder || !build(start))
            return m_snapshot.locateEntry(index, name, m_matching);
    }

    const uint32_t h = wantedHashes.of(wantedIndex);
    const int32_t found = m_sharedHashes ? firstMatch(h, name, start) : onlyMatch(h, name);
    index = found != 0 ? found : start;
    return found;
}

// In a ring where every member has a hash of its own, the one slot with the
// hash is the only member that can have the name.
int32_t RingLookup::onlyMatch(uint32_t h, std::string_view name) const {
    for (uint32_t p = h & m_mask; m_slots[p].hash != 0; p = (p + 1) & m_mask) {
        const Slot& slot = m_slots[p];
        if (slot.hash == h)
            return matches(m_snapshot.entries.get(slot.entry), name) ? slot.entry : 0;
    }
    return 0;
}

// Of the members with this name, the first in ring order from start. Names
// are nearly always unique in a folder; only when two members match (README
// and readme ignoring case) does their position relative to start decide.
int32_t RingLookup::firstMatch(uint32_t h, std::string_view name, int32_t start) const {
    int32_t best = 0;
    uint32_t bestOrdinal = 0;
    uint32_t startOrdinal = 0;
    int candidates = 0;
    auto distance = [&](uint32_t ordinal) {
        return (ordinal + m_members - startOrdinal) % m_members;
    };
    for (uint32_t p = h & m_mask; m_slots[p].hash != 0; p = (p + 1) & m_mask) {
        const Slot& slot = m_slots[p];
        if (slot.hash != h || !matches(m_snapshot.entries.get(slot.entry), name))
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

    uint32_t size = 16;
    while (size < uint64_t(members) * 2)
        size <<= 1;
    m_slots.assign(size, Slot{});
    m_mask = size - 1;
    m_members = members;
    m_sharedHashes = false;
    current = start;
    for (uint32_t ordinal = 0; ordinal < members; ++ordinal) {
        const uint32_t h = m_hashes.of(current);
        uint32_t p = h & m_mask;
        for (; m_slots[p].hash != 0; p = (p + 1) & m_mask)
            m_sharedHashes |= m_slots[p].hash == h;
        m_slots[p] = Slot{h, current, ordinal};
        current = entries.get(current).nextSibling;
    }
    m_built = true;
    return true;
}

int32_t RingLookup::ordinalOf(int32_t entry) const {
    const uint32_t h = m_hashes.of(entry);
    for (uint32_t p = h & m_mask; m_slots[p].hash != 0; p = (p + 1) & m_mask)
        if (m_slots[p].entry == entry)
            return int32_t(m_slots[p].ordinal);
    return 0;
}

} // namespace kestrel::engine
