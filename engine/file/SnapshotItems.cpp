#include "SnapshotItems.h"

#include "engine/support/Checked.h"
#include "engine/support/Errors.h"
#include "engine/support/OleDate.h"
#include "engine/support/ShortText.h"
#include "engine/support/TextDecode.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

namespace kestrel::engine {

// ---------------------------------------------------------------- writing

ItemWriter::ItemWriter() {
    grow(1 << 16);
}

void ItemWriter::grow(size_t needed) {
    const size_t capacity = std::max(needed, m_capacity * 2);
    auto bigger = std::make_unique_for_overwrite<char[]>(capacity);
    if (m_used)
        std::memcpy(bigger.get(), m_buffer.get(), m_used);
    m_buffer = std::move(bigger);
    m_capacity = capacity;
}

void ItemWriter::raw(std::string_view text) {
    // An empty view may carry no pointer at all, which memcpy must not get.
    if (text.empty())
        return;
    std::memcpy(room(text.size()), text.data(), text.size());
    m_used += text.size();
}

void ItemWriter::string(std::string_view utf8) {
    m_used = size_t(putString(room(stringRoom(utf8)), utf8) - m_buffer.get());
}

char* ItemWriter::putString(char* at, std::string_view utf8) {
    *at++ = '"';
    // Names hardly ever hold a quote: copied in one go unless they do.
    if (!containsByte(utf8.data(), utf8.size(), '"')) {
        copyShort(at, utf8.data(), utf8.size());
        at += utf8.size();
        *at++ = '"';
        return at;
    }
    // An empty name (every padding record has one) is often a view with no
    // pointer, which memchr and memcpy must not get.
    while (!utf8.empty()) {
        const void* quote = std::memchr(utf8.data(), '"', utf8.size());
        const size_t run =
            quote ? size_t(static_cast<const char*>(quote) - utf8.data()) + 1 : utf8.size();
        std::memcpy(at, utf8.data(), run);
        at += run;
        if (!quote)
            break;
        *at++ = '"';
        utf8.remove_prefix(run);
    }
    *at++ = '"';
    return at;
}

namespace {

constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes the digits of v ending just before end; returns where they begin.
// Almost every number of a snapshot fits in 32 bits, whose arithmetic is
// the cheaper.
template <typename Unsigned> char* digitsBefore(char* end, Unsigned v) {
    while (v >= 100) {
        const unsigned pair = unsigned(v % 100) * 2;
        v /= 100;
        *--end = kPairs[pair + 1];
        *--end = kPairs[pair];
    }
    if (v >= 10) {
        *--end = kPairs[v * 2 + 1];
        *--end = kPairs[v * 2];
    } else {
        *--end = char('0' + v);
    }
    return end;
}

// The number of decimal digits of v (1 for 0), from its binary length:
// log10(2) is about 1233 / 4096.
int decimalDigits(uint64_t v) {
    static constexpr auto Thresholds = [] {
        std::array<uint64_t, 20> powers{}; // 0, then 10 to 10^19
        uint64_t power = 1;
        for (size_t k = 1; k < powers.size(); ++k)
            powers[k] = power *= 10;
        return powers;
    }();
    const int estimate = (std::bit_width(v) * 1233) >> 12;
    return estimate + (v >= Thresholds[estimate]);
}

// Writes v (below 100,000) as five digits, leading zeros included.
void fiveDigits(char* out, uint32_t v) {
    const uint32_t first = v / 10000;
    const uint32_t rest = v - first * 10000;
    out[0] = char('0' + first);
    std::memcpy(out + 1, kPairs + 2 * (rest / 100), 2);
    std::memcpy(out + 3, kPairs + 2 * (rest % 100), 2);
}

} // namespace

void ItemWriter::integer(int64_t value) {
    m_used = size_t(putInteger(room(IntegerRoom), value) - m_buffer.get());
}

char* ItemWriter::putInteger(char* at, int64_t value) {
    const uint64_t magnitude = value < 0 ? 0 - uint64_t(value) : uint64_t(value);
    const int length = decimalDigits(magnitude);
    if (value < 0)
        *at++ = '-';
    if (magnitude <= UINT32_MAX)
        digitsBefore(at + length, uint32_t(magnitude));
    else
        digitsBefore(at + length, magnitude);
    return at + length;
}

void ItemWriter::number(double value) {
    m_used = size_t(putNumber(room(NumberRoom), value) - m_buffer.get());
}

char* ItemWriter::putNumber(char* at, double value) {
    // Whole numbers that a double holds exactly are written with every digit,
    // so that whatever was read is written back unchanged.
    if (std::fabs(value) <= 9007199254740992.0) {
        const auto whole = int64_t(value);
        if (double(whole) == value)
            return putInteger(at, whole);
    }
    // Dates, the most common fraction, straight from their 15 digits: five
    // before the point and up to ten after it, trailing zeros dropped.
    uint64_t digits = 0;
    if (fifteenDigitsOfDate(value, digits)) {
        constexpr uint64_t TenDigits = 10000000000;
        const auto fraction = digits % TenDigits;
        fiveDigits(at, uint32_t(digits / TenDigits));
        if (fraction == 0)
            return at + 5;
        at[5] = '.';
        fiveDigits(at + 6, uint32_t(fraction / 100000));
        fiveDigits(at + 11, uint32_t(fraction % 100000));
        char* end = at + 16;
        while (end[-1] == '0')
            --end;
        return end;
    }
    return std::to_chars(at, at + NumberRoom, value, std::chars_format::general, 15).ptr;
}

void ItemWriter::boolean(bool value) {
    raw(value ? "#TRUE#" : "#FALSE#");
}

void ItemWriter::date(double oleDate) {
    const DateParts p = datePartsFromOle(oleDate);
    char buffer[48];
    const int n = std::snprintf(buffer, sizeof buffer, "#%04d-%02d-%02d %02d:%02d:%02d#", p.year,
                                p.month, p.day, p.hour, p.minute, p.second);
    raw(std::string_view(buffer, size_t(n)));
}

// ---------------------------------------------------------------- reading

static constexpr size_t BlockSize = 1 << 20;
static constexpr size_t MaxBufferSize = size_t(64) << 20;

ItemReader::ItemReader(QIODevice& device) : m_device(device) {
    m_buffer.resize(2 * BlockSize);
}

bool ItemReader::fill() {
    if (m_eof)
        return false;
    const size_t kept = m_end - m_begin;
    if (m_begin > 0) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, kept);
        m_begin = 0;
        m_end = kept;
    }
    // An item longer than the buffer (only a damaged file has one) makes
    // room for itself, up to a size no real item comes near: a file of one
    // endless line must not take all the memory there is.
    if (m_buffer.size() - m_end < BlockSize) {
        if (m_buffer.size() >= MaxBufferSize)
            raise(ErrorCode::OutOfStringSpace);
        m_buffer.resize(m_buffer.size() * 2);
    }
    const qint64 n = m_device.read(m_buffer.data() + m_end, qint64(m_buffer.size() - m_end));
    if (n < 0)
        throw RuntimeError(ErrorCode::SystemError, m_device.errorString());
    if (n == 0) {
        m_eof = true;
        return false;
    }
    m_end += size_t(n);
    return true;
}

size_t ItemReader::skipDelimiter(size_t i) {
    // Anything between a closing quote and the delimiter is passed over.
    while (available(i)) {
        const char c = at(i);
        if (c == ',')
            return i + 1;
        if (c == '\n')
            return i + 1;
        if (c == '\r') {
            if (available(i + 1) && at(i + 1) == '\n')
                return i + 2;
            return i + 1;
        }
        ++i;
    }
    return i;
}

std::string_view ItemReader::line() {
    if (!available(0))
        raise(ErrorCode::InputPastEndOfFile);
    size_t i = 0;
    while (available(i) && at(i) != '\r' && at(i) != '\n')
        ++i;
    const size_t length = i;
    size_t next = i;
    if (available(i)) {
        next = i + 1;
        if (at(i) == '\r' && available(i + 1) && at(i + 1) == '\n')
            next = i + 2;
    }
    const std::string_view text(m_buffer.data() + m_begin, length);
    m_begin += next;
    return text;
}

bool ItemReader::nextInBuffer(Item& item) {
    const char* const base = m_buffer.data();
    const char* p = base + m_begin;
    const char* const end = base + m_end;
    while (p < end && (*p == ' ' || *p == '\t'))
        ++p;
    if (p == end || *p == '#')
        return false;
    const char* start;
    const char* stop;
    if (*p == '"') {
        start = p + 1;
        const auto* quote = static_cast<const char*>(std::memchr(start, '"', size_t(end - start)));
        // An escaped quote, or a closing quote at the end of the buffer,
        // takes the careful way.
        if (!quote || quote + 1 >= end || quote[1] == '"')
            return false;
        stop = quote;
        p = quote + 1;
        while (p < end && *p != ',' && *p != '\r' && *p != '\n')
            ++p;
        item.kind = Item::Quoted;
    } else {
        start = p;
        while (p < end && *p != ',' && *p != '\r' && *p != '\n')
            ++p;
        stop = p;
        while (stop > start && (stop[-1] == ' ' || stop[-1] == '\t'))
            --stop;
        item.kind = Item::Unquoted;
    }
    if (p == end)
        return false;
    if (*p == '\r') {
        if (p + 1 >= end)
            return false;
        p += p[1] == '\n' ? 2 : 1;
    } else {
        ++p;
    }
    item.text = std::string_view(start, size_t(stop - start));
    m_begin = size_t(p - base);
    return true;
}

Item ItemReader::next() {
    // Nearly every item lies whole in the buffer, delimiter included.
    Item item;
    if (nextInBuffer(item))
        return item;
    size_t i = 0;
    if (!available(0))
        raise(ErrorCode::InputPastEndOfFile);
    while (available(i) && (at(i) == ' ' || at(i) == '\t'))
        ++i;
    if (available(i) && at(i) == '"') {
        item.kind = Item::Quoted;
        const size_t start = ++i;
        bool escaped = false;
        for (;;) {
            if (!available(i))
                raise(ErrorCode::InputPastEndOfFile); // no closing quote
            if (at(i) == '"') {
                if (available(i + 1) && at(i + 1) == '"') {
                    escaped = true;
                    i += 2;
                    continue;
                }
                break;
            }
            ++i;
        }
        const size_t stop = i;
        const size_t next = skipDelimiter(i + 1);
        std::string_view text(m_buffer.data() + m_begin + start, stop - start);
        if (escaped) {
            m_unescaped.clear();
            for (size_t k = 0; k < text.size(); ++k) {
                m_unescaped.push_back(text[k]);
                if (text[k] == '"')
                    ++k;
            }
            text = m_unescaped;
        }
        item.text = text;
        m_begin += next;
        return item;
    }
    if (available(i) && at(i) == '#') {
        item.kind = Item::Hash;
        const size_t start = ++i;
        while (available(i) && at(i) != '#' && at(i) != '\r' && at(i) != '\n')
            ++i;
        const size_t stop = i;
        const size_t next =
            (available(i) && at(i) == '#') ? skipDelimiter(i + 1) : skipDelimiter(i);
        item.text = std::string_view(m_buffer.data() + m_begin + start, stop - start);
        m_begin += next;
        return item;
    }
    const size_t start = i;
    while (available(i) && at(i) != ',' && at(i) != '\r' && at(i) != '\n')
        ++i;
    size_t stop = i;
    while (stop > start && (at(stop - 1) == ' ' || at(stop - 1) == '\t'))
        --stop;
    const size_t next = skipDelimiter(i);
    item.text = std::string_view(m_buffer.data() + m_begin + start, stop - start);
    m_begin += next;
    return item;
}

bool ItemReader::atEnd() {
    for (;;) {
        if (!available(0))
            return true;
        const char c = at(0);
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
            return false;
        ++m_begin;
    }
}

// ---------------------------------------------------------------- conversions

// Plain decimal text of at most 15 digits ("36954.4270833333", "-12", "1234"),
// as Kestrel writes numbers: digits / 10^decimals is exact in its operands,
// so the one division rounds exactly as reading the text would.
static bool parsePlainDecimal(std::string_view t, double& value) {
    static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const bool negative = !t.empty() && t.front() == '-';
    if (negative)
        t.remove_prefix(1);
    if (t.empty() || t.size() > 16)
        return false;
    uint64_t digits = 0;
    int count = 0;
    int decimals = -1;
    for (const char c : t) {
        if (c >= '0' && c <= '9') {
            digits = digits * 10 + uint64_t(c - '0');
            ++count;
            if (decimals >= 0)
                ++decimals;
        } else if (c == '.' && decimals < 0) {
            decimals = 0;
        } else {
            return false;
        }
    }
    if (count == 0 || count > 15)
        return false;
    value = double(digits) / kPowers[decimals < 0 ? 0 : decimals];
    if (negative)
        value = -value;
    return true;
}

static bool parseNumber(std::string_view text, double& value) {
    if (parsePlainDecimal(text, value))
        return true;
    if (text.empty()) {
        value = 0; // an empty item reads as zero
        return true;
    }
    if (text.front() == '+') {
        text.remove_prefix(1);
        if (text.empty())
            return false;
    }
    const char* first = text.data();
    const char* last = text.data() + text.size();
    // Numbers written by the old program may lack the zero before the point
    // (".5", "-.5"); from_chars wants it.
    char patched[64];
    if (text.size() < sizeof patched - 1) {
        const bool negative = text.front() == '-';
        const size_t digits = negative ? 1 : 0;
        if (text.size() > digits && text[digits] == '.') {
            size_t n = 0;
            if (negative)
                patched[n++] = '-';
            patched[n++] = '0';
            std::memcpy(patched + n, text.data() + digits, text.size() - digits);
            n += text.size() - digits;
            first = patched;
            last = patched + n;
        }
    }
    const auto r = std::from_chars(first, last, value);
    if (r.ec == std::errc::result_out_of_range)
        raise(ErrorCode::Overflow);
    return r.ec == std::errc() && r.ptr == last;
}

static double numericValue(const Item& item) {
    if (item.kind == Item::Hash) {
        if (item.text == "TRUE")
            return -1;
        if (item.text == "FALSE")
            return 0;
        return ItemReader::toDate(item);
    }
    double value = 0;
    if (!parseNumber(item.text, value))
        raise(ErrorCode::TypeMismatch);
    return value;
}

// Plain digits with an optional minus, at most 11 characters in all, as
// Kestrel writes whole numbers.
static bool parsePlainWhole(std::string_view t, int64_t& value) {
    if (t.empty() || t.size() >= 12)
        return false;
    const bool negative = t.front() == '-';
    size_t k = negative ? 1 : 0;
    if (k == t.size())
        return false;
    int64_t v = 0;
    for (; k < t.size(); ++k) {
        if (t[k] < '0' || t[k] > '9')
            return false;
        v = v * 10 + (t[k] - '0');
    }
    value = negative ? -v : v;
    return true;
}

static int64_t wholeNumber(const Item& item, int64_t minimum, int64_t maximum) {
    // Fast path: plain digits, as Kestrel writes them.
    if (int64_t v = 0; item.kind != Item::Hash && parsePlainWhole(item.text, v)) {
        if (v < minimum || v > maximum)
            raise(ErrorCode::Overflow);
        return v;
    }
    const double d = std::nearbyint(numericValue(item)); // halves to even
    if (!(d >= double(minimum) && d <= double(maximum)))
        raise(ErrorCode::Overflow);
    return int64_t(d);
}

namespace {

// The plain reading of one line: each step takes an item and the comma
// after it, or fails and leaves the line to the careful reading.
class PlainLine {
public:
    PlainLine(const char* at, const char* end) : m_at(at), m_end(end) {}
    const char* at() const { return m_at; }

    // Plain digits with an optional minus, as wholeNumber's own quick
    // reading takes them; a number outside the range fails, and the careful
    // reading raises its overflow.
    bool whole(int64_t minimum, int64_t maximum, int64_t& value) {
        std::string_view text;
        int64_t v = 0;
        if (!upToComma(11, text) || !parsePlainWhole(text, v) || v < minimum || v > maximum)
            return false;
        value = v;
        m_at = text.data() + text.size() + 1;
        return true;
    }

    // A number in the plain decimal form a reading takes first.
    bool number(double& value) {
        std::string_view text;
        if (!upToComma(17, text) || !parsePlainDecimal(text, value))
            return false;
        m_at = text.data() + text.size() + 1;
        return true;
    }

    // A quoted item with no doubled quote, followed by a comma or, for the
    // last item, by the line end.
    bool quoted(Item& item, bool last) {
        if (m_at >= m_end || *m_at != '"')
            return false;
        const char* start = m_at + 1;
        const auto* quote =
            static_cast<const char*>(std::memchr(start, '"', size_t(m_end - start)));
        if (!quote || m_end - quote < 2)
            return false;
        const char after = quote[1];
        const char* next = nullptr;
        if (!last && after == ',')
            next = quote + 2;
        else if (last && after == '\n')
            next = quote + 2;
        else if (last && after == '\r' && m_end - quote >= 3 && quote[2] == '\n')
            next = quote + 3;
        if (!next)
            return false;
        item.kind = Item::Quoted;
        item.text = std::string_view(start, size_t(quote - start));
        m_at = next;
        return true;
    }

private:
    // The text before the next comma, when one follows within most bytes.
    bool upToComma(size_t most, std::string_view& text) const {
        const size_t room = std::min(most + 1, size_t(m_end - m_at));
        const auto* comma = static_cast<const char*>(std::memchr(m_at, ',', room));
        if (!comma)
            return false;
        text = std::string_view(m_at, size_t(comma - m_at));
        return true;
    }

    const char* m_at;
    const char* const m_end;
};

} // namespace

bool ItemReader::plainEntryLine(EntryLineItems& line) {
    const char* const base = m_buffer.data();
    PlainLine p(base + m_begin, base + m_end);
    int64_t attributes = 0, nextSibling = 0, count = 0, parent = 0;
    if (!p.whole(INT16_MIN, INT16_MAX, attributes) || !p.number(line.modified) ||
        !p.whole(INT32_MIN, INT32_MAX, nextSibling) || !p.whole(INT32_MIN, INT32_MAX, count) ||
        !p.quoted(line.name, false) || !p.whole(INT32_MIN, INT32_MAX, parent) ||
        !p.number(line.size) || !p.quoted(line.version, true))
        return false;
    line.attributes = int16_t(attributes);
    line.nextSibling = int32_t(nextSibling);
    line.count = int32_t(count);
    line.parent = int32_t(parent);
    m_begin = size_t(p.at() - base);
    return true;
}

int16_t ItemReader::toInt16(const Item& item) {
    return int16_t(wholeNumber(item, INT16_MIN, INT16_MAX));
}

int32_t ItemReader::toInt32(const Item& item) {
    return int32_t(wholeNumber(item, INT32_MIN, INT32_MAX));
}

double ItemReader::toDouble(const Item& item) {
    return numericValue(item);
}

bool ItemReader::toBoolean(const Item& item) {
    if (item.kind == Item::Hash) {
        if (item.text == "TRUE")
            return true;
        if (item.text == "FALSE")
            return false;
        raise(ErrorCode::TypeMismatch);
    }
    const QString text = QString::fromUtf8(item.text.data(), qsizetype(item.text.size()));
    if (text.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0)
        return true;
    if (text.compare(QLatin1String("False"), Qt::CaseInsensitive) == 0)
        return false;
    return numericValue(item) != 0;
}

// Reads "yyyy-mm-dd", "hh:mm:ss", or both separated by a blank.
static bool parseDateText(std::string_view t, double& value) {
    int year = 1899, month = 12, day = 30, hour = 0, minute = 0, second = 0;
    auto number = [&t](int& out, size_t maxDigits) {
        size_t n = 0;
        int v = 0;
        while (n < t.size() && n < maxDigits && t[n] >= '0' && t[n] <= '9')
            v = v * 10 + (t[n++] - '0');
        if (n == 0)
            return false;
        out = v;
        t.remove_prefix(n);
        return true;
    };
    auto expect = [&t](char c) {
        if (t.empty() || t.front() != c)
            return false;
        t.remove_prefix(1);
        return true;
    };
    const bool hasDate = t.find('-') != std::string_view::npos;
    if (hasDate) {
        if (!number(year, 4) || !expect('-') || !number(month, 2) || !expect('-') ||
            !number(day, 2))
            return false;
        while (!t.empty() && t.front() == ' ')
            t.remove_prefix(1);
    }
    if (!t.empty()) {
        if (!number(hour, 2) || !expect(':') || !number(minute, 2))
            return false;
        if (expect(':') && !number(second, 2))
            return false;
    }
    if (!t.empty() || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 ||
        second > 59)
        return false;
    value = oleDateFromParts(year, month, day, hour, minute, second);
    return true;
}

double ItemReader::toDate(const Item& item) {
    double value = 0;
    if (item.kind == Item::Hash) {
        if (!parseDateText(item.text, value))
            raise(ErrorCode::TypeMismatch);
        return value;
    }
    if (parseNumber(item.text, value))
        return value;
    if (parseDateText(item.text, value))
        return value;
    raise(ErrorCode::TypeMismatch);
}

std::string_view ItemReader::toText(const Item& item, std::string& scratch) {
    if (toStoredText(item.text, scratch))
        return scratch;
    return item.text;
}

} // namespace kestrel::engine
