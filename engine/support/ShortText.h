#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace kestrel::engine {

// Copying and searching the short texts a scan handles by the million (names
// of about 20 bytes, each copied four times on its way to the file) with
// plain moves the compiler lays out inline, rather than through the C
// library. The library picks its routines for the processor when the program
// starts. Where it picks its 512-bit vector code, a scan and save of a
// million entries spent 0.1 to 0.3 s more processor time than with its
// 256-bit code, the amount varying widely from run to run; with these
// routines it spends what the 256-bit code does.
//
// Only fixed-size std::memcpy is used below: the compiler turns it into
// register moves, never a call.

// Copies n bytes from from to to, which do not overlap.
inline void copyShort(char* to, const char* from, size_t n) {
    const auto copy8 = [](char* t, const char* f) {
        uint64_t word;
        std::memcpy(&word, f, 8);
        std::memcpy(t, &word, 8);
    };
    const auto copy16 = [&](char* t, const char* f) {
        copy8(t, f);
        copy8(t + 8, f + 8);
    };
    // Each range is covered by moves from its start and from its end, which
    // may overlap in the middle.
    if (n >= 16) {
        if (n > 64) {
            std::memcpy(to, from, n); // long texts are rare: the library's pace is fine
        } else if (n > 32) {
            copy16(to, from);
            copy16(to + 16, from + 16);
            copy16(to + n - 32, from + n - 32);
            copy16(to + n - 16, from + n - 16);
        } else {
            copy16(to, from);
            copy16(to + n - 16, from + n - 16);
        }
    } else if (n >= 8) {
        copy8(to, from);
        copy8(to + n - 8, from + n - 8);
    } else if (n >= 4) {
        uint32_t first, last;
        std::memcpy(&first, from, 4);
        std::memcpy(&last, from + n - 4, 4);
        std::memcpy(to, &first, 4);
        std::memcpy(to + n - 4, &last, 4);
    } else if (n > 0) {
        to[0] = from[0];
        to[n / 2] = from[n / 2];
        to[n - 1] = from[n - 1];
    }
}

// Whether any of the eight bytes of word is c: word ^ c-in-every-byte then
// has a zero byte, which borrowing from it shows in its high bit.
constexpr bool wordHasByte(uint64_t word, uint8_t c) {
    constexpr uint64_t Ones = 0x0101010101010101u;
    constexpr uint64_t Highs = 0x8080808080808080u;
    const uint64_t x = word ^ (Ones * c);
    return ((x - Ones) & ~x & Highs) != 0;
}

// Whether text holds the byte c, looked at eight bytes at a time.
inline bool containsByte(const char* text, size_t n, char c) {
    const auto hasIt = [&](const char* at) {
        uint64_t word;
        std::memcpy(&word, at, 8);
        return wordHasByte(word, uint8_t(c));
    };
    if (n < 8) {
        for (size_t i = 0; i < n; ++i)
            if (text[i] == c)
                return true;
        return false;
    }
    for (size_t at = 0; at + 8 <= n; at += 8)
        if (hasIt(text + at))
            return true;
    return n % 8 != 0 && hasIt(text + n - 8);
}

// Character traits for strings that are appended short texts by the million:
// their copies go through copyShort.
struct ShortCopyTraits : std::char_traits<char> {
    static char* copy(char* to, const char* from, size_t n) {
        copyShort(to, from, n);
        return to;
    }
};

} // namespace kestrel::engine
