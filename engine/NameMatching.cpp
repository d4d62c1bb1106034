#include "NameMatching.h"

#include "CaseFold.h"

#include <cstring>

namespace kestrel::engine {

namespace {

inline uint64_t load(const unsigned char* p) {
    uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// The bytes of a name, eight at a time, mixed as the folded hash mixes its
// words; only the hash tables of one run see it, so the machine's byte order
// does not matter.
uint64_t exactHash(std::string_view name) {
    const auto* p = reinterpret_cast<const unsigned char*>(name.data());
    const size_t size = name.size();
    uint64_t h = 0xCBF29CE484222325ull ^ size;
    const auto mix = [&h](uint64_t w) {
        h = (h ^ w) * 0x9E3779B97F4A7C15ull;
        h ^= h >> 29;
    };
    size_t i = 0;
    for (; i + 8 <= size; i += 8)
        mix(load(p + i));
    if (i < size) {
        const size_t left = size - i;
        uint64_t w = 0;
        if (size >= 8) {
            // The word ending at the name's end, shifted to its last bytes.
            w = load(p + size - 8) >> (8 * (8 - left));
        } else {
            for (size_t k = 0; k < left; ++k)
                w |= uint64_t(p[i + k]) << (8 * k);
        }
        mix(w);
    }
    // Final avalanche, so that the low bits the tables use depend on every byte.
    h ^= h >> 33;
    h *= 0xFF51AFD7ED558CCDull;
    h ^= h >> 33;
    h *= 0xC4CEB9FE1A85EC53ull;
    h ^= h >> 33;
    return h;
}

} // namespace

bool namesMatch(std::string_view a, std::string_view b, NameMatching matching) {
    return matching == NameMatching::Exact ? a == b : namesEqual(a, b);
}

uint64_t matchingHash(std::string_view name, NameMatching matching) {
    return matching == NameMatching::Exact ? exactHash(name) : nameHash(name);
}

} // namespace kestrel::engine
