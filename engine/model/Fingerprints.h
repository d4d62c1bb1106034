#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrel::engine {

// What a file held: the 128-bit XXH3 hash of its bytes. Two files with the
// same fingerprint are taken to hold the same bytes.
struct Fingerprint {
    uint64_t high = 0;
    uint64_t low = 0;

    bool operator==(const Fingerprint&) const = default;
};

// 32 lower-case hex digits, high half first, as xxhsum -H128 prints it.
std::string fingerprintHex(const Fingerprint& fingerprint);

// The fingerprints of a snapshot's files, by entry index. A snapshot made
// without asking for them has none; one made with them has one for every
// regular file that could be read.
class FingerprintTable {
public:
    // Whether the snapshot was made with fingerprints (a repeat scan then
    // takes them too), whether or not any file had one.
    bool taken() const { return m_taken; }
    void setTaken(bool taken) { m_taken = taken; }
    bool empty() const { return m_count == 0; }
    size_t count() const { return m_count; }

    bool has(int32_t index) const {
        return index >= 0 && size_t(index) < m_has.size() && m_has[size_t(index)];
    }
    // The fingerprint of an entry that has one.
    const Fingerprint& at(int32_t index) const { return m_values[size_t(index)]; }
    void set(int32_t index, const Fingerprint& fingerprint);

    // Regular files the scan could not read for their fingerprint.
    int32_t unreadable = 0;

    void clear();
    size_t memoryUsed() const {
        return m_values.capacity() * sizeof(Fingerprint) + m_has.capacity() / 8;
    }

private:
    std::vector<Fingerprint> m_values;
    std::vector<bool> m_has;
    size_t m_count = 0;
    bool m_taken = false;
};

} // namespace kestrel::engine
