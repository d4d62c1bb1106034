#pragma once

#include "engine/model/NameMatching.h"
#include "engine/support/Memory.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace kestrel::engine {

class Snapshot;
struct SnapshotEntry;

// The hashes of a snapshot's names for the look-ups of one comparison, each
// worked out once however often it is asked for (a comparison both ways
// asks for every name up to four times). Both snapshots of a comparison hash
// under the rule of the pair, so that names that match hash alike.
class NameHashes {
public:
    NameHashes(const Snapshot& snapshot, NameMatching matching)
        : m_snapshot(snapshot), m_matching(matching) {}
    NameMatching matching() const { return m_matching; }
    // A 32-bit hash of the name of entry index under the rule; never 0.
    uint32_t of(int32_t index) {
        const size_t i = size_t(index);
        if (i < m_count && m_pages.written(i * sizeof(uint32_t)) && m_hashes[i] != 0)
            return m_hashes[i];
        return workOut(index);
    }
    static uint32_t ofName(std::string_view name, NameMatching matching);

private:
    uint32_t workOut(int32_t index);

    const Snapshot& m_snapshot;
    NameMatching m_matching;
    // By entry index, 0: not worked out yet. Two snapshots of a folder listed
    // in the same order need few hashes, so only pages written are held.
    ZeroPages m_pages;
    uint32_t* m_hashes = nullptr;
    size_t m_count = 0;
};

// Finds names in one folder ring of a snapshot with exactly the result of
// Snapshot::locateEntry (the first match in ring order under the rule of the
// hashes, starting after the given entry), but without walking large rings again and
// again. When two snapshots list a folder in the same order the match is the
// first entry looked at. Otherwise the ring is walked once into a hash index
// of its names, and every later look-up is a hash probe: comparing a folder
// of 100,000 files listed in another order stays linear.
class RingLookup {
public:
    // hashes are those of snapshot's names; their rule is the look-up's.
    RingLookup(const Snapshot& snapshot, NameHashes& hashes)
        : m_snapshot(snapshot), m_hashes(hashes), m_matching(hashes.matching()) {}

    // Forgets the ring: the next look-up may be in another one.
    void reset();

    // The ring was indexed and no two of its members share a hash, so no two
    // have the same name under the rule: every name has at most one match.
    bool namesToldApart() const { return m_built && !m_sharedHashes; }

    // As Snapshot::locateEntry(index, name, rule), for the name of entry
    // wantedIndex whose hashes (under the same rule) are wantedHashes.
    int32_t locate(int32_t& index, std::string_view name, NameHashes& wantedHashes,
                   int32_t wantedIndex);

private:
    struct Slot {
        uint32_t hash = 0; // 0 marks an empty slot
        int32_t entry = 0;
        uint32_t ordinal = 0;
    };

    bool build(int32_t start);
    int32_t onlyMatch(uint32_t h, std::string_view name) const;
    int32_t firstMatch(uint32_t h, std::string_view name, int32_t start) const;
    int32_t ordinalOf(int32_t entry) const;

    bool matches(const SnapshotEntry& e, std::string_view name) const;

    const Snapshot& m_snapshot;
    NameHashes& m_hashes;
    NameMatching m_matching;
    bool m_built = false;
    int m_misses = 0; // look-ups the first entry looked at did not answer
    uint32_t m_members = 0;
    // Two members of the ring share a hash: a look-up must then see every
    // slot of its cluster, not only the first with its hash.
    bool m_sharedHashes = false;
    std::vector<Slot> m_slots;
    uint32_t m_mask = 0;
};

} // namespace kestrel::engine
