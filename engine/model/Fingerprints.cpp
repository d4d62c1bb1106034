#include "Fingerprints.h"

#include <xxhash.h>

#include <algorithm>

namespace kestrel::engine {

std::string fingerprintHex(const Fingerprint& fingerprint) {
    XXH128_canonical_t canonical;
    XXH128_canonicalFromHash(&canonical, XXH128_hash_t{fingerprint.low, fingerprint.high});
    static constexpr char Digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(32);
    for (const unsigned char byte : canonical.digest) {
        hex += Digits[byte >> 4];
        hex += Digits[byte & 15];
    }
    return hex;
}

void FingerprintTable::set(int32_t index, const Fingerprint& fingerprint) {
    if (index < 0)
        return;
    const auto at = size_t(index);
    if (at >= m_values.size()) {
        // Grown by half again, so that a scan's million sets move the
        // table a few dozen times, not a million.
        const size_t size = std::max(at + 1, m_values.size() + m_values.size() / 2);
        m_values.resize(size);
        m_has.resize(size);
    }
    if (!m_has[at])
        ++m_count;
    m_has[at] = true;
    m_values[at] = fingerprint;
    m_taken = true;
}

void FingerprintTable::clear() {
    m_values = {};
    m_has = {};
    m_count = 0;
    m_taken = false;
    unreadable = 0;
}

} // namespace kestrel::engine
