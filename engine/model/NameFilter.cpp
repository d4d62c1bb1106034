#include "NameFilter.h"

#include "CaseFold.h"
#include "engine/support/TextDecode.h"

#include <algorithm>

namespace kestrel::engine {

namespace {

char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return uint8_t(c) < 0x80; });
}

// One character's bytes at at: bytes that are not UTF-8 count one by one.
size_t sequenceLength(std::string_view text, size_t at) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    return size_t(std::max(1, utf8SequenceLength(bytes + at, bytes + text.size())));
}

} // namespace

NameFilter::NameFilter(const QString& text) : m_text(text) {
    const QByteArray utf8 = text.toUtf8();
    m_folded = foldCase(std::string_view(utf8.constData(), size_t(utf8.size())));
    m_pattern = text.contains(QLatin1Char('*')) || text.contains(QLatin1Char('?'));
    m_ascii = isAscii(m_folded);
}

bool NameFilter::matches(std::string_view name) const {
    if (m_folded.empty())
        return true;
    // Names are mostly ASCII: their letters are folded as they are read.
    // Any other name is folded whole first, since a letter outside ASCII may
    // fold into one inside it (the Kelvin sign into "k").
    std::string_view folded = name;
    if (!isAscii(name)) {
        m_scratch = foldCase(name);
        folded = m_scratch;
    }
    if (m_pattern)
        return fitsPattern(folded, m_folded);
    return containsFolded(folded);
}

bool NameFilter::containsFolded(std::string_view name) const {
    const size_t length = m_folded.size();
    if (name.size() < length)
        return false;
    const char first = m_folded.front();
    for (size_t at = 0; at + length <= name.size(); ++at) {
        if (asciiLower(name[at]) != first)
            continue;
        size_t k = 1;
        while (k < length && asciiLower(name[at + k]) == m_folded[k])
            ++k;
        if (k == length)
            return true;
    }
    return false;
}

bool NameFilter::fitsPattern(std::string_view name, std::string_view pattern) {
    // The classic walk with one step back: on a mismatch after a "*", the
    // star takes one more character and the rest is tried again.
    size_t n = 0, p = 0;
    size_t starAt = std::string_view::npos, starName = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            starAt = p++;
            starName = n;
        } else if (p < pattern.size() && pattern[p] == '?') {
            ++p;
            n += sequenceLength(name, n);
        } else if (p < pattern.size() && pattern[p] == asciiLower(name[n])) {
            ++p;
            ++n;
        } else if (starAt != std::string_view::npos) {
            p = starAt + 1;
            starName += sequenceLength(name, starName);
            n = starName;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

} // namespace kestrel::engine
