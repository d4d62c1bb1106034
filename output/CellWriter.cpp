#include "CellWriter.h"

#include "engine/compare/Compare.h"
#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/TextFormats.h"

#include <QTime>

#include <cmath>
#include <cstdio>
#include <string_view>

namespace kestrel::output {

using engine::SnapshotEntry;

namespace {

constexpr int SecondsPerDay = 86400;
// How many rows ahead prefetch asks for an entry, and for its name.
constexpr int32_t EntryLead = 16;
constexpr int32_t NameLead = 8;
// The days whose date texts are kept in a table, by their day number: from
// 1900-01-01 to 2100-12-31.
constexpr int64_t FirstCachedOleDay = 2;
constexpr int64_t CachedDays = 73414;
// Sizes below this are whole numbers a double holds exactly.
constexpr double LargestExactSize = 9007199254740992.0; // 2^53

// What a kept day's flags say.
enum DayFlag : uint8_t {
    RegularDay = 1,     // its local times are not moved by a clock change
    DateTextWatched = 2 // its date text holds a watched byte
};

// The digits of n, the separator between groups of three when it is not
// empty.
void appendGrouped(uint64_t n, const QByteArray& separator, LineBuffer& out) {
    char digits[20];
    int count = 0;
    do {
        digits[count++] = char('0' + n % 10);
        n /= 10;
    } while (n > 0);
    // Written from the right into a text that is then appended whole.
    char text[96];
    size_t at = sizeof text;
    for (int i = 0; i < count; ++i) {
        if (i > 0 && i % 3 == 0) {
            at -= size_t(separator.size());
            std::memcpy(text + at, separator.constData(), size_t(separator.size()));
        }
        text[--at] = digits[i];
    }
    out.append(text + at, sizeof text - at);
}

// Whether grouping by hand with separator gives the locale's own text for
// every sample, from one digit to sixteen.
bool groupingMatchesLocale(const QByteArray& separator) {
    uint64_t sample = 0;
    for (int digits = 1; digits <= 16; ++digits) {
        sample = sample * 10 + uint64_t(digits % 10);
        for (const uint64_t n : {sample, sample / 2, uint64_t(0)}) {
            LineBuffer fast;
            appendGrouped(n, separator, fast);
            if (fast.toByteArray() != engine::formatGrouped(double(n)).toUtf8())
                return false;
        }
    }
    return true;
}

void appendTwoDigits(int n, LineBuffer& out) {
    char* at = out.extend(2);
    at[0] = char('0' + n / 10);
    at[1] = char('0' + n % 10);
}

} // namespace

// A time format written by hand: the format split into literal texts and
// the fields of a time of day (hours on a 12- or 24-hour clock, minutes,
// seconds, each with one or two digits, and the AM/PM text), as QLocale
// reads a format. Made only when it writes what QLocale writes for a day's
// worth of samples; any other format is left to QLocale.
class CellWriter::TimeFormat {
public:
    static std::unique_ptr<TimeFormat> make(const QString& format, const QLocale& locale,
                                            const std::array<uint8_t, 256>& classes) {
        auto made = std::unique_ptr<TimeFormat>(new TimeFormat);
        if (!made->parse(format, locale))
            return nullptr;
        for (int hour = 0; hour < 24; ++hour) {
            for (const auto& [minute, second] : {std::pair{0, 0}, {5, 9}, {30, 45}, {59, 59}}) {
                LineBuffer fast;
                made->write(hour, minute, second, fast);
                if (fast.toByteArray() !=
                    locale.toString(QTime(hour, minute, second), format).toUtf8())
                    return nullptr;
            }
        }
        // Digits are never watched; the texts may be.
        const auto watchedIn = [&](const Short& text) {
            bool found = false;
            for (const char c : text.view())
                found |= (classes[uint8_t(c)] & Watched) != 0;
            return found;
        };
        for (const Piece& piece : made->m_pieces)
            made->m_textsWatched |= watchedIn(piece.text);
        made->m_amWatched = watchedIn(made->m_am) || watchedIn(made->m_amLower);
        made->m_pmWatched = watchedIn(made->m_pm) || watchedIn(made->m_pmLower);
        return made;
    }

    // True when the text holds a watched byte.
    bool write(int hour, int minute, int second, LineBuffer& out) const {
        for (const Piece& piece : m_pieces) {
            switch (piece.field) {
            case Field::Text:
                out.appendPadded(piece.text.view());
                break;
            case Field::Hour:
            case Field::Minute:
            case Field::Second: {
                int value = piece.field == Field::Hour     ? hour
                            : piece.field == Field::Minute ? minute
                                                           : second;
                if (piece.field == Field::Hour && m_twelveHours)
                    value = value % 12 == 0 ? 12 : value % 12;
                if (piece.digits == 2 || value >= 10)
                    appendTwoDigits(value, out);
                else
                    out.append(char('0' + value));
                break;
            }
            case Field::AmPm:
                out.appendPadded((hour < 12 ? (piece.digits == 1 ? m_am : m_amLower)
                                            : (piece.digits == 1 ? m_pm : m_pmLower))
                                     .view());
                break;
            }
        }
        return m_textsWatched || (m_hasAmPm && (hour < 12 ? m_amWatched : m_pmWatched));
    }

private:
    // A short text, kept with room to be appended padded.
    struct Short {
        char bytes[LineBuffer::PaddedSize] = {};
        size_t size = 0;

        // False when text is too long to keep.
        bool set(const QString& text) {
            const QByteArray utf8 = text.toUtf8();
            if (size_t(utf8.size()) > sizeof bytes)
                return false;
            std::memcpy(bytes, utf8.constData(), size_t(utf8.size()));
            size = size_t(utf8.size());
            return true;
        }
        std::string_view view() const { return {bytes, size}; }
    };
    enum class Field : uint8_t { Text, Hour, Minute, Second, AmPm };
    struct Piece {
        Field field;
        int digits; // for AmPm: 1 upper case, 2 lower case
        Short text;
    };

    TimeFormat() = default;

    bool parse(const QString& format, const QLocale& locale) {
        if (!m_am.set(locale.amText().toUpper()) || !m_pm.set(locale.pmText().toUpper()) ||
            !m_amLower.set(locale.amText().toLower()) || !m_pmLower.set(locale.pmText().toLower()))
            return false;
        QString literal;
        bool kept = true;
        const auto flush = [&] {
            if (!literal.isEmpty()) {
                Piece piece{Field::Text, 0, {}};
                kept = kept && piece.text.set(literal);
                m_pieces.push_back(piece);
            }
            literal.clear();
        };
        for (qsizetype i = 0; i < format.size();) {
            const QChar c = format.at(i);
            if (c == QLatin1Char('\'')) {
                // Quoted text; two quotes stand for one.
                if (i + 1 < format.size() && format.at(i + 1) == QLatin1Char('\'')) {
                    literal += c;
                    i += 2;
                    continue;
                }
                const qsizetype end = format.indexOf(QLatin1Char('\''), i + 1);
                literal += format.mid(i + 1, end < 0 ? -1 : end - i - 1);
                i = end < 0 ? format.size() : end + 1;
                continue;
            }
            qsizetype repeat = 1;
            while (i + repeat < format.size() && format.at(i + repeat) == c)
                ++repeat;
            const int digits = int(std::min<qsizetype>(repeat, 2));
            switch (c.unicode()) {
            case 'h':
            case 'H':
                flush();
                m_pieces.push_back({Field::Hour, digits, {}});
                m_twelveHours |= c == QLatin1Char('h');
                i += digits;
                continue;
            case 'm':
                flush();
                m_pieces.push_back({Field::Minute, digits, {}});
                i += digits;
                continue;
            case 's':
                flush();
                m_pieces.push_back({Field::Second, digits, {}});
                i += digits;
                continue;
            case 'a':
            case 'A': {
                flush();
                const bool withP =
                    i + 1 < format.size() && format.at(i + 1).toLower() == QLatin1Char('p');
                m_pieces.push_back({Field::AmPm, c == QLatin1Char('A') ? 1 : 2, {}});
                m_hasAmPm = true;
                i += withP ? 2 : 1;
                continue;
            }
            case 'z':
            case 't':
            case 'd':
            case 'M':
            case 'y':
                return false; // fields a time of a snapshot does not write
            default:
                literal += c;
                ++i;
            }
        }
        flush();
        // A 12-hour clock needs the AM/PM text; without it "h" is the 24-hour one.
        m_twelveHours = m_twelveHours && m_hasAmPm;
        return kept;
    }

    std::vector<Piece> m_pieces;
    Short m_am, m_pm, m_amLower, m_pmLower;
    bool m_twelveHours = false;
    bool m_hasAmPm = false;
    bool m_textsWatched = false;
    bool m_amWatched = false;
    bool m_pmWatched = false;
};

void LineBuffer::grow(size_t needed) {
    m_bytes.resize(std::max({m_bytes.size() * 2, m_used + needed, size_t(4096)}));
}

void LineBuffer::erase(size_t index, size_t count) {
    if (index + count == m_used) {
        m_used = index;
        return;
    }
    std::memmove(m_bytes.data() + index, m_bytes.data() + index + count, m_used - index - count);
    m_used -= count;
}

void TextTable::put(size_t key, const QByteArray& text, uint8_t flags) {
    if (key >= m_places.size())
        m_places.resize(std::max(key + 1, m_places.size() * 2), Unknown);
    const auto length = std::min<uint64_t>(uint64_t(text.size()), 0xFFFFFF);
    // Before the spare bytes at the end.
    const auto start = uint64_t(m_bytes.size() - LineBuffer::PaddedSize);
    m_places[key] = start << 32 | length << 8 | flags;
    m_bytes.insert(m_bytes.end() - LineBuffer::PaddedSize, text.constData(),
                   text.constData() + length);
}

CellWriter::CellWriter(const engine::Snapshot& snapshot, const engine::FileList& rows,
                       std::string_view watchedBytes)
    : m_snapshot(snapshot), m_rows(rows), m_timeFormat(engine::longTimeFormat()) {
    for (size_t c = 0x80; c < m_classes.size(); ++c)
        m_classes[c] = NotAscii;
    for (const char c : watchedBytes)
        m_classes[uint8_t(c)] |= Watched;
    const QLocale& locale = m_locale;
    // Locales with other digits, other group sizes or no grouping at all
    // are caught by the samples.
    for (const QByteArray& separator : {locale.groupSeparator().toUtf8(), QByteArray()}) {
        if (separator.size() <= 4 && groupingMatchesLocale(separator)) {
            m_fastSizes = true;
            m_groupSeparator = separator;
            m_groupSeparatorWatched = watched(separator);
            break;
        }
    }
    m_fastTimes = TimeFormat::make(m_timeFormat, m_locale, m_classes);
}

CellWriter::~CellWriter() = default;

bool CellWriter::append(int32_t row, int column, LineBuffer& out) {
    const SnapshotEntry& e = m_snapshot.entries.get(m_rows.entryAt(row));
    // Values the scan could not read take the file list's "unknown".
    if (e.valuesUnknown()) [[unlikely]]
        return appendSlow(row, column, out);
    switch (column) {
    case engine::NameColumn:
        return appendName(e, row, out);
    case engine::InFolderColumn: {
        const uint32_t folder = m_rows.folderOf(row);
        if (!m_folders.has(folder)) {
            const QByteArray text = m_rows.inFolder(row).toUtf8();
            m_folders.put(folder, text, watched(text));
        }
        out.append(m_folders.at(folder));
        return m_folders.flags(folder);
    }
    case engine::SizeColumn:
        return appendSize(e, out);
    case engine::TypeColumn:
        return appendType(e, row, out);
    case engine::ModifiedColumn:
        return appendModified(e.modified, out);
    case engine::AttributesColumn: {
        const auto bits = uint16_t(e.attributes);
        if (!m_attributes.has(bits)) {
            const QByteArray text = engine::AttributeText(e.attributes).toUtf8();
            m_attributes.put(bits, text, watched(text));
        }
        out.appendPadded(m_attributes.at(bits));
        return m_attributes.flags(bits);
    }
    case engine::VersionColumn: {
        const std::string_view version = m_snapshot.versionOf(e);
        const uint8_t classes = classesOf(version) | m_classes[uint8_t(' ')];
        if (classes & NotAscii)
            break;
        out.append(' ');
        out.append(version);
        return classes & Watched;
    }
    case engine::PermissionsColumn:
    case engine::OwnerColumn:
        return appendAccess(row, column, out);
    case engine::FingerprintColumn: {
        // Hex digits hold none of the bytes watched for.
        const int32_t entry = m_rows.entryAt(row);
        if (m_snapshot.fingerprints.has(entry))
            out.append(engine::fingerprintHex(m_snapshot.fingerprints.at(entry)));
        return false;
    }
    case engine::AttributesKeyColumn:
        if (m_rows.options().keys) {
            char digits[8];
            const int length = std::snprintf(digits, sizeof digits, "%d", int(e.attributes));
            out.append(digits, size_t(length));
        }
        return false;
    default:
        break;
    }
    return appendSlow(row, column, out);
}

bool CellWriter::appendText(const QString& text, LineBuffer& out) {
    const QByteArray bytes = text.toUtf8();
    out.append(bytes);
    return watched(bytes);
}

bool CellWriter::appendAccess(int32_t row, int column, LineBuffer& out) {
    const int32_t entry = m_rows.entryAt(row);
    const uint32_t kind = m_snapshot.access.kindOf(entry);
    if (kind == engine::AccessTable::NoKind)
        return false;
    size_t key = kind;
    TextTable* texts = &m_owners;
    if (column == engine::PermissionsColumn) {
        const char letter = engine::kindLetter(m_snapshot.entries.get(entry).attributes);
        key = size_t(kind) * 3 + (letter == 'd' ? 1 : letter == 'l' ? 2 : 0);
        texts = &m_permissions;
    }
    if (!texts->has(key)) {
        const QByteArray text = m_rows.cellText(row, column).toUtf8();
        texts->put(key, text, watched(text));
    }
    out.append(texts->at(key));
    return texts->flags(key);
}

bool CellWriter::appendSlow(int32_t row, int column, LineBuffer& out) {
    return appendText(m_rows.cellText(row, column), out);
}

bool CellWriter::appendName(const SnapshotEntry& e, int32_t row, LineBuffer& out) {
    const std::string_view name = m_snapshot.nameOf(e);
    const uint8_t classes = nameClasses(e, name);
    // Other names go through QString, which replaces bytes that are not
    // UTF-8 as the grid shows them.
    if (classes & NotAscii)
        return appendSlow(row, engine::NameColumn, out);
    out.append(name);
    return classes & Watched;
}

bool CellWriter::appendType(const SnapshotEntry& e, int32_t row, LineBuffer& out) {
    if (e.isFolder())
        return false;
    const std::string_view name = m_snapshot.nameOf(e);
    const uint8_t classes = nameClasses(e, name);
    if (classes & NotAscii)
        return appendSlow(row, engine::TypeColumn, out);
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return false;
    const std::string_view type = name.substr(dot + 1);
    char* at = out.extend(type.size());
    for (const char c : type)
        *at++ = c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
    // Only a name holding a watched byte can have one in its type.
    return (classes & Watched) && watched(type);
}

bool CellWriter::appendSize(const SnapshotEntry& e, LineBuffer& out) {
    if (e.isFolder()) {
        out.append(std::string_view("<dir>"));
        return watched(std::string_view("<dir>"));
    }
    const double size = e.size;
    if (m_fastSizes && size >= 0 && size < LargestExactSize && size == std::floor(size)) {
        appendGrouped(uint64_t(size), m_groupSeparator, out);
        return m_groupSeparatorWatched && size >= 1000;
    }
    return appendText(engine::sizeCellText(e), out);
}

bool CellWriter::appendModified(double d, LineBuffer& out) {
    // The text is the day's date text, made once, and the time of day. A
    // day on which the clocks change may show its local times otherwise,
    // and a day outside the years kept is rare: they take the whole text
    // from modifiedText. The day and second are worked out as the date's
    // parts are, without the calendar.
    if (!(d >= double(FirstCachedOleDay) && d < double(FirstCachedOleDay + CachedDays)))
        return appendText(engine::modifiedText(d), out);
    double whole = std::trunc(d);
    int64_t second = std::llround((d - whole) * 86400.0);
    if (second >= SecondsPerDay) {
        second -= SecondsPerDay;
        whole += 1;
    }
    const int64_t day = int64_t(whole) - FirstCachedOleDay;
    if (day >= CachedDays)
        return appendText(engine::modifiedText(d), out);
    if (!m_days.has(size_t(day))) {
        const engine::DateParts p = engine::datePartsFromOle(whole);
        const QDate date(p.year, p.month, p.day);
        // Asking Qt for a local midnight costs a look at the time-zone
        // rules each time; most days are told apart by three cheap offsets.
        const bool regular =
            date.isValid() &&
            (engine::localOffsetSteadyOn(int64_t(whole) - engine::UnixEpochOleDay) ||
             QDateTime(date, QTime(0, 0)).offsetFromUtc() ==
                 QDateTime(date.addDays(1), QTime(0, 0)).offsetFromUtc());
        const QByteArray text = engine::shortDateText(date).toUtf8();
        m_days.put(size_t(day), text,
                   uint8_t((regular ? RegularDay : 0) | (watched(text) ? DateTextWatched : 0)));
    }
    const uint8_t flags = m_days.flags(size_t(day));
    if (!(flags & RegularDay))
        return appendText(engine::modifiedText(d), out);
    out.appendPadded(m_days.at(size_t(day)));
    out.append(' ');
    const bool timeWatched = appendTime(int(second), out);
    return timeWatched || (flags & DateTextWatched) || (m_classes[uint8_t(' ')] & Watched);
}

bool CellWriter::appendTime(int second, LineBuffer& out) {
    if (m_fastTimes)
        return m_fastTimes->write(second / 3600, second / 60 % 60, second % 60, out);
    if (!m_times.has(size_t(second))) {
        // longTimeText, with the locale and its format looked up once.
        const QByteArray text =
            m_locale.toString(QTime(second / 3600, second / 60 % 60, second % 60), m_timeFormat)
                .toUtf8();
        m_times.put(size_t(second), text, watched(text));
    }
    out.appendPadded(m_times.at(size_t(second)));
    return m_times.flags(size_t(second));
}

void CellWriter::prefetch(int32_t row) const {
    // The entry a while ahead, and the name of one nearer, whose entry has
    // arrived by now.
    if (row + EntryLead < m_rows.rowCount())
        __builtin_prefetch(&m_snapshot.entries.get(m_rows.entryAt(row + EntryLead)));
    if (row + NameLead < m_rows.rowCount())
        __builtin_prefetch(
            m_snapshot.nameOf(m_snapshot.entries.get(m_rows.entryAt(row + NameLead))).data());
}

} // namespace kestrel::output
