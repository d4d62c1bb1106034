#include "CaseFold.h"

#include "CaseFoldTable.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace kestrel::engine {

namespace {

// A name is read as a stream of units: folded code points, and bytes that are not part of
// valid UTF-8, which stand for themselves. A raw byte b is the unit kRawByte + b, above every
// code point, so it never equals a code point.
constexpr uint32_t kRawByte = 0x110000;

constexpr uint64_t kOnes = 0x0101010101010101;
constexpr uint64_t kHighBits = 0x8080808080808080;

inline unsigned char lowerAscii(unsigned char c) {
    return static_cast<unsigned char>(c + ((static_cast<unsigned>(c - 'A') < 26u) << 5));
}

inline bool isContinuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// Eight bytes as a word whose lowest byte is the first one, whatever the machine, so the
// hash does not depend on byte order.
inline uint64_t loadWord(const unsigned char* p) {
    uint64_t w;
    std::memcpy(&w, p, sizeof w);
    if constexpr (std::endian::native == std::endian::big)
        w = __builtin_bswap64(w);
    return w;
}

// The n < 8 bytes at p as the low bytes of a word, the rest zero.
inline uint64_t loadPartialWord(const unsigned char* p, std::size_t n) {
    uint64_t w = 0;
    for (std::size_t i = 0; i < n; ++i)
        w |= static_cast<uint64_t>(p[i]) << (8 * i);
    return w;
}

// Lower-cases eight ASCII bytes at once. Each byte is below 0x80, so adding at most 0x3F
// cannot carry into the next byte; a byte's top bit then says whether it reached 'A' or
// passed 'Z'.
inline uint64_t lowerAsciiWord(uint64_t w) {
    const uint64_t atLeastA = w + kOnes * (0x80 - 'A');
    const uint64_t pastZ = w + kOnes * (0x80 - 'Z' - 1);
    const uint64_t upper = atLeastA & ~pastZ & kHighBits;
    return w | (upper >> 2);
}

// Reads the unit at p (p < end) as it stands in the name, advancing p. Overlong forms,
// surrogates, code points past U+10FFFF, stray continuation bytes and cut-off sequences give
// one raw byte each. Looking ahead stops at the first byte that is not a continuation byte.
// Always inlined: out of line, the call costs about as much as decoding a character, and p
// would have to live in memory.
[[gnu::always_inline]] inline uint32_t readUnit(const unsigned char*& p, const unsigned char* end) {
    const unsigned b0 = p[0];
    if (b0 < 0x80) {
        ++p;
        return b0;
    }
    const std::ptrdiff_t avail = end - p;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        if (avail >= 2 && isContinuation(p[1])) {
            const uint32_t cp = ((b0 & 0x1F) << 6) | (p[1] & 0x3Fu);
            p += 2;
            return cp;
        }
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        if (avail >= 3 && isContinuation(p[1]) && isContinuation(p[2])) {
            const uint32_t cp = ((b0 & 0x0F) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
            if (cp >= 0x800 && (cp < 0xD800 || cp > 0xDFFF)) {
                p += 3;
                return cp;
            }
        }
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        if (avail >= 4 && isContinuation(p[1]) && isContinuation(p[2]) && isContinuation(p[3])) {
            const uint32_t cp = ((b0 & 0x07) << 18) | ((p[1] & 0x3Fu) << 12) |
                                ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
            if (cp >= 0x10000 && cp <= 0x10FFFF) {
                p += 4;
                return cp;
            }
        }
    }
    ++p;
    return kRawByte + b0;
}

// Folds one unit into out (room for three) and returns how many units it became.
inline int foldUnit(uint32_t unit, uint32_t* out) {
    if (unit >= kFoldLimit) {
        out[0] = unit;
        return 1;
    }
    const unsigned block = kFoldBlockIndex[unit >> kFoldBlockShift];
    const unsigned value = kFoldBlocks[block * kFoldBlockSize + (unit & (kFoldBlockSize - 1))];
    if (value < kFoldFirstMulti) {
        out[0] = unit + static_cast<uint32_t>(kFoldDelta[value]);
        return 1;
    }
    const char32_t* folded = kFoldMulti[value - kFoldFirstMulti];
    out[0] = folded[0];
    out[1] = folded[1];
    out[2] = folded[2];
    return folded[2] == 0 ? 2 : 3;
}

// Folds any unit into out (room for three), ASCII without the table.
inline int foldAny(uint32_t unit, uint32_t* out) {
    if (unit < 0x80) {
        out[0] = lowerAscii(static_cast<unsigned char>(unit));
        return 1;
    }
    return foldUnit(unit, out);
}

// A unit as its bytes, the first in the lowest eight bits: a code point as UTF-8, a raw byte
// as itself.
struct Encoded {
    uint32_t bytes;
    unsigned length;
};

inline Encoded encodeUnit(uint32_t unit) {
    if (unit < 0x80)
        return {unit, 1};
    if (unit >= kRawByte)
        return {unit - kRawByte, 1};
    if (unit < 0x800)
        return {(0xC0 | (unit >> 6)) | (0x80 | (unit & 0x3F)) << 8, 2};
    if (unit < 0x10000)
        return {(0xE0 | (unit >> 12)) | (0x80 | ((unit >> 6) & 0x3F)) << 8 |
                    (0x80 | (unit & 0x3F)) << 16,
                3};
    return {(0xF0 | (unit >> 18)) | (0x80 | ((unit >> 12) & 0x3F)) << 8 |
                (0x80 | ((unit >> 6) & 0x3F)) << 16 | (0x80 | (unit & 0x3F)) << 24,
            4};
}

inline const unsigned char* bytes(std::string_view s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}

enum class WordMatch { Same, Differs, NotAscii };

inline WordMatch matchWords(uint64_t wa, uint64_t wb) {
    if (wa == wb)
        return WordMatch::Same;
    if (((wa | wb) & kHighBits) != 0)
        return WordMatch::NotAscii;
    return lowerAsciiWord(wa) == lowerAsciiWord(wb) ? WordMatch::Same : WordMatch::Differs;
}

// How far a and b (at most limit bytes) agree ignoring ASCII case, stepped back so that it
// ends where a unit starts in both. Identical bytes are taken whole, ASCII or not, and the
// rest is left to folding; but when the first difference is between two ASCII bytes that do
// not match, the folded names part there, and differs is set instead.
std::size_t matchingStart(const unsigned char* a, std::size_t aSize, const unsigned char* b,
                          std::size_t bSize, std::size_t limit, bool& differs) {
    differs = false;
    std::size_t i = 0;
    while (i + 8 <= limit) {
        const WordMatch m = matchWords(loadWord(a + i), loadWord(b + i));
        if (m == WordMatch::Differs) {
            differs = true;
            return 0;
        }
        if (m == WordMatch::NotAscii)
            break;
        i += 8;
    }
    // A last word overlapping the one before finishes short tails without a byte loop.
    if (i < limit && i + 8 > limit && limit >= 8) {
        const WordMatch m = matchWords(loadWord(a + limit - 8), loadWord(b + limit - 8));
        if (m == WordMatch::Differs) {
            differs = true;
            return 0;
        }
        if (m == WordMatch::Same)
            i = limit;
    }
    for (; i < limit; ++i) {
        const unsigned char ca = a[i];
        const unsigned char cb = b[i];
        if (ca == cb)
            continue;
        if (((ca | cb) & 0x80) != 0)
            break;
        if (lowerAscii(ca) != lowerAscii(cb)) {
            differs = true;
            return 0;
        }
    }
    // Every byte that is not a continuation byte starts a unit, and no unit reaches past
    // one; continuation bytes at i may belong to a sequence begun earlier.
    while (i > 0 && ((i < aSize && isContinuation(a[i])) || (i < bSize && isContinuation(b[i]))))
        --i;
    return i;
}

enum class Ended { Neither, Both, First, Second };

// Compares the folded units of [a, aEnd) and [b, bEnd) until they differ or one runs out.
// Returns Neither when they differ, otherwise which of them ran out first. The names are
// read in step; units that are equal as they stand fold alike and need no table, which
// spares most of the work when names differ in a few letters only.
Ended compareFolded(const unsigned char* a, const unsigned char* aEnd, const unsigned char* b,
                    const unsigned char* bEnd) {
    // The last folds on each side, and how many of their units have been compared.
    uint32_t foldedA[3];
    uint32_t foldedB[3];
    int countA = 0;
    int countB = 0;
    int doneA = 0;
    int doneB = 0;
    for (;;) {
        if (doneA < countA || doneB < countB) {
            // Part-way through a fold of several units: go on unit by unit.
            if (doneA == countA) {
                if (a == aEnd)
                    return Ended::First;
                countA = foldAny(readUnit(a, aEnd), foldedA);
                doneA = 0;
            }
            if (doneB == countB) {
                if (b == bEnd)
                    return Ended::Second;
                countB = foldAny(readUnit(b, bEnd), foldedB);
                doneB = 0;
            }
            if (foldedA[doneA++] != foldedB[doneB++])
                return Ended::Neither;
            continue;
        }
        if (a == aEnd || b == bEnd)
            return a != aEnd ? Ended::Second : b != bEnd ? Ended::First : Ended::Both;
        const uint32_t rawA = readUnit(a, aEnd);
        const uint32_t rawB = readUnit(b, bEnd);
        if (rawA == rawB) {
            // Likely the start of a run that agrees as it stands: take it a word at a time.
            const std::size_t leftA = static_cast<std::size_t>(aEnd - a);
            const std::size_t leftB = static_cast<std::size_t>(bEnd - b);
            bool differs;
            const std::size_t run =
                matchingStart(a, leftA, b, leftB, leftA < leftB ? leftA : leftB, differs);
            if (differs)
                return Ended::Neither;
            a += run;
            b += run;
            continue;
        }
        countA = foldAny(rawA, foldedA);
        countB = foldAny(rawB, foldedB);
        if (foldedA[0] != foldedB[0])
            return Ended::Neither;
        doneA = 1;
        doneB = 1;
    }
}

// FNV-style word hash over the bytes of the folded name. Bytes are gathered into 64-bit
// words so that runs of ASCII can be lower-cased and mixed eight at a time; the words are
// the same whichever way a byte arrived, so the hash depends only on the folded bytes.
class FoldedHasher {
public:
    bool aligned() const { return m_fill == 0; }

    void addWord(uint64_t w) {
        mix(w);
        m_length += 8;
    }

    // Adds the last bytes of the name, fewer than eight, gathered in w. Needs aligned().
    void addTail(uint64_t w, unsigned length) {
        m_word = w;
        m_fill = length;
    }

    // Adds the bytes of one unit.
    void addUnit(uint32_t unit) {
        const Encoded e = encodeUnit(unit);
        m_word |= static_cast<uint64_t>(e.bytes) << (8 * m_fill);
        m_fill += e.length;
        if (m_fill >= 8) {
            addWord(m_word);
            m_fill -= 8;
            // The bytes that did not fit; none when the word filled up exactly.
            m_word = static_cast<uint64_t>(e.bytes) >> (8 * (e.length - m_fill));
        }
    }

    uint64_t finish() {
        mix(m_word);
        uint64_t h = m_state ^ (m_length + m_fill);
        // Final avalanche so that the low bits, which hash tables use, depend on every byte.
        h ^= h >> 33;
        h *= 0xFF51AFD7ED558CCDull;
        h ^= h >> 33;
        h *= 0xC4CEB9FE1A85EC53ull;
        h ^= h >> 33;
        return h;
    }

private:
    void mix(uint64_t w) {
        m_state = (m_state ^ w) * 0x9E3779B97F4A7C15ull;
        m_state ^= m_state >> 29;
    }

    uint64_t m_state = 0xCBF29CE484222325ull;
    uint64_t m_word = 0;
    unsigned m_fill = 0;
    uint64_t m_length = 0;
};

} // namespace

std::string foldCase(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    appendFolded(out, utf8);
    return out;
}

void appendFolded(std::string& out, std::string_view utf8) {
    const unsigned char* p = bytes(utf8);
    const unsigned char* const end = p + utf8.size();
    while (p != end) {
        if (*p < 0x80) {
            out.push_back(static_cast<char>(lowerAscii(*p++)));
            continue;
        }
        uint32_t folded[3];
        const int count = foldAny(readUnit(p, end), folded);
        for (int i = 0; i < count; ++i) {
            const Encoded e = encodeUnit(folded[i]);
            char encoded[4];
            for (unsigned k = 0; k < e.length; ++k)
                encoded[k] = static_cast<char>(e.bytes >> (8 * k));
            out.append(encoded, e.length);
        }
    }
}

bool namesEqual(std::string_view a, std::string_view b) {
    const std::size_t shorter = a.size() < b.size() ? a.size() : b.size();
    bool differs;
    const std::size_t start =
        matchingStart(bytes(a), a.size(), bytes(b), b.size(), shorter, differs);
    if (differs)
        return false;
    // No unit folds to nothing, so whatever is left on one side cannot be matched.
    if (start == a.size() || start == b.size())
        return a.size() == b.size();
    return compareFolded(bytes(a) + start, bytes(a) + a.size(), bytes(b) + start,
                         bytes(b) + b.size()) == Ended::Both;
}

uint64_t nameHash(std::string_view utf8) {
    FoldedHasher hasher;
    const unsigned char* p = bytes(utf8);
    const unsigned char* const end = p + utf8.size();
    // Nearly every name of eight bytes or more is ASCII throughout: its words
    // are taken as they come and checked once at the end, which is the same
    // hash as the loop below gives, without a decision per word.
    if (utf8.size() >= 8) {
        const std::size_t whole = utf8.size() & ~std::size_t(7);
        uint64_t seen = 0;
        for (std::size_t i = 0; i < whole; i += 8) {
            const uint64_t w = loadWord(p + i);
            seen |= w;
            hasher.addWord(lowerAsciiWord(w));
        }
        const std::size_t left = utf8.size() - whole;
        const uint64_t tail = left ? loadWord(end - 8) >> (8 * (8 - left)) : 0;
        if (((seen | tail) & kHighBits) == 0) {
            hasher.addTail(lowerAsciiWord(tail), static_cast<unsigned>(left));
            return hasher.finish();
        }
        hasher = FoldedHasher();
    }
    while (p != end) {
        if (hasher.aligned()) {
            const std::size_t left = static_cast<std::size_t>(end - p);
            // The last bytes of a name of eight or more come from a word
            // ending at its end, shifted down, rather than byte by byte.
            const uint64_t w = left >= 8          ? loadWord(p)
                               : utf8.size() >= 8 ? loadWord(end - 8) >> (8 * (8 - left))
                                                  : loadPartialWord(p, left);
            if ((w & kHighBits) == 0) {
                if (left >= 8) {
                    hasher.addWord(lowerAsciiWord(w));
                    p += 8;
                    continue;
                }
                hasher.addTail(lowerAsciiWord(w), static_cast<unsigned>(left));
                break;
            }
        }
        uint32_t folded[3];
        const int count = foldAny(readUnit(p, end), folded);
        for (int i = 0; i < count; ++i)
            hasher.addUnit(folded[i]);
    }
    return hasher.finish();
}

uint64_t exactNameHash(std::string_view name) {
    FoldedHasher hasher;
    const unsigned char* p = bytes(name);
    const std::size_t size = name.size();
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8)
        hasher.addWord(loadWord(p + i));
    const std::size_t left = size - i;
    const uint64_t tail = left == 0   ? 0
                          : size >= 8 ? loadWord(p + size - 8) >> (8 * (8 - left))
                                      : loadPartialWord(p, left);
    hasher.addTail(tail, static_cast<unsigned>(left));
    return hasher.finish();
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    const std::size_t shorter = text.size() < prefix.size() ? text.size() : prefix.size();
    bool differs;
    const std::size_t start =
        matchingStart(bytes(text), text.size(), bytes(prefix), prefix.size(), shorter, differs);
    if (differs)
        return false;
    if (start == prefix.size())
        return true;
    // What is left of the prefix has at least one unit, and text has none to match it.
    if (start == text.size())
        return false;
    const Ended ended = compareFolded(bytes(text) + start, bytes(text) + text.size(),
                                      bytes(prefix) + start, bytes(prefix) + prefix.size());
    return ended == Ended::Both || ended == Ended::Second;
}

} // namespace kestrel::engine
