#include "TextDecode.h"

#include <cstdint>
#include <cstring>

namespace kestrel::engine {

int utf8SequenceLength(const unsigned char* p, const unsigned char* end) {
    const unsigned char c = *p;
    if (c < 0x80)
        return 1;
    int length;
    uint32_t minimum;
    uint32_t cp;
    if ((c & 0xE0) == 0xC0) {
        length = 2, minimum = 0x80, cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        length = 3, minimum = 0x800, cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        length = 4, minimum = 0x10000, cp = c & 0x07;
    } else {
        return 0;
    }
    if (end - p < length)
        return 0;
    for (int i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return 0;
    return length;
}

bool isValidUtf8(std::string_view bytes) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* end = p + bytes.size();
    while (p < end) {
        // Eight ASCII bytes at a time: names are mostly ASCII.
        if (end - p >= 8) {
            uint64_t chunk;
            std::memcpy(&chunk, p, 8);
            if ((chunk & 0x8080808080808080ull) == 0) {
                p += 8;
                continue;
            }
        }
        const int length = utf8SequenceLength(p, end);
        if (length == 0)
            return false;
        p += length;
    }
    return true;
}

// Windows-1252 0x80..0x9F; the undefined five map to themselves.
static const char16_t kHighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

std::string windows1252ToUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        char16_t cp = c;
        if (c >= 0x80 && c < 0xA0)
            cp = kHighControls[c - 0x80];
        if (cp < 0x80) {
            out.push_back(char(cp));
        } else if (cp < 0x800) {
            out.push_back(char(0xC0 | (cp >> 6)));
            out.push_back(char(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(char(0xE0 | (cp >> 12)));
            out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(char(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

bool toStoredText(std::string_view bytes, std::string& converted) {
    if (isValidUtf8(bytes))
        return false;
    converted = windows1252ToUtf8(bytes);
    return true;
}

QString decodeText(std::string_view bytes) {
    std::string converted;
    if (toStoredText(bytes, converted))
        return utf8Text(converted);
    return utf8Text(bytes);
}

QString utf8Text(std::string_view utf8) {
    constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
    if (!utf8.starts_with(ByteOrderMark))
        return QString::fromUtf8(utf8.data(), qsizetype(utf8.size()));
    // Rare: converted behind a blank, which is then taken off again.
    std::string padded;
    padded.reserve(utf8.size() + 1);
    padded.append(1, ' ').append(utf8);
    return QString::fromUtf8(padded.data(), qsizetype(padded.size())).mid(1);
}

} // namespace kestrel::engine
