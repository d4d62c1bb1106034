#pragma once

#include <cstdint>
#include <string>

namespace kestrel::bench {

// A small deterministic generator (SplitMix64): the same seed gives the same
// tree and the same snapshots on every machine.
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    uint64_t next() {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // A number in [low, high].
    int64_t between(int64_t low, int64_t high) {
        return low + int64_t(next() % uint64_t(high - low + 1));
    }
    bool chance(double p) { return double(next() >> 11) / double(1ull << 53) < p; }

    // A name of 5 to 30 characters that does not start with a dot.
    std::string name(int index) {
        static const char letters[] =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
        const int length = int(between(5, 30));
        std::string n;
        n.reserve(size_t(length) + 8);
        n.push_back(letters[next() % 52]);
        for (int i = 1; i < length; ++i)
            n.push_back(letters[next() % (sizeof letters - 1)]);
        // Unique within the folder whatever the letters drawn.
        n.push_back('_');
        n.append(std::to_string(index));
        return n;
    }

private:
    uint64_t m_state;
};

} // namespace kestrel::bench
