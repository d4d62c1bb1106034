#include "CellWriter.h"

#include "engine/OleDate.h"
#include "engine/Snapshot.h"
#include "engine/TextFormats.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace kestrel::output {

using engine::SnapshotEntry;

namespace {

constexpr int SecondsPerDay = 86400;
constexpr size_t AttributeValues = 65536;
// How many rows ahead prefetch asks for an entry, and for its name.
constexpr int32_t EntryLead = 16;
constexpr int32_t NameLead = 8;
// Days since 1970 whose date texts are kept in a table: 1900 to 2100.
constexpr int64_t FirstCachedDay = -25567;
constexpr int64_t CachedDays = 73414;
// Sizes below this are whole numbers a double holds exactly.
constexpr double LargestExactSize = 9007199254740992.0; // 2^53

bool isAscii(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    return true;
}

// The digits of n, the separator between groups of three when it is not
// empty.
void appendGrouped(uint64_t n, const QByteArray& separator, LineBuffer& out) {
    char digits[20];
    int count = 0;
    do {
        digits[count++] = char('0' + n % 10);
        n /= 10;
    } while (n > 0);
    for (int i = count - 1; i >= 0; --i) {
        out.append(digits[i]);
        if (i > 0 && i % 3 == 0 && !separator.isEmpty())
            out.append(separator);
    }
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

} // namespace

void LineBuffer::grow(size_t needed) {
    m_bytes.resize(std::max({m_bytes.size() * 2, m_used + needed, size_t(4096)}));
}

void LineBuffer::erase(size_t index, size_t count) {
    std::memmove(m_bytes.data() + index, m_bytes.data() + index + count, m_used - index - count);
    m_used -= count;
}

void TextTable::put(size_t key, const QByteArray& text) {
    m_places[key] = uint64_t(m_bytes.size()) << 32 | uint64_t(text.size());
    m_bytes.insert(m_bytes.end(), text.constData(), text.constData() + text.size());
}

CellWriter::CellWriter(const engine::Snapshot& snapshot, const engine::FileList& rows)
    : m_snapshot(snapshot), m_rows(rows), m_timeFormat(engine::longTimeFormat()),
      m_days(CachedDays), m_regularDays(CachedDays), m_times(SecondsPerDay),
      m_attributes(AttributeValues), m_folders(rows.folderCount()) {
    const QLocale& locale = m_locale;
    // Locales with other digits, other group sizes or no grouping at all
    // are caught by the samples.
    for (const QByteArray& separator : {locale.groupSeparator().toUtf8(), QByteArray()}) {
        if (groupingMatchesLocale(separator)) {
            m_fastSizes = true;
            m_groupSeparator = separator;
            break;
        }
    }
}

CellWriter::~CellWriter() = default;

void CellWriter::append(int32_t row, int column, LineBuffer& out) {
    const SnapshotEntry& e = m_snapshot.entries.get(m_rows.entryAt(row));
    // Values the scan could not read take the file list's "unknown".
    if (e.valuesUnknown()) [[unlikely]] {
        appendSlow(row, column, out);
        return;
    }
    switch (column) {
    case engine::NameColumn:
        appendName(e, row, out);
        return;
    case engine::InFolderColumn: {
        const uint32_t folder = m_rows.folderOf(row);
        if (!m_folders.has(folder))
            m_folders.put(folder, m_rows.inFolder(row).toUtf8());
        out.append(m_folders.at(folder));
        return;
    }
    case engine::SizeColumn:
        appendSize(e, out);
        return;
    case engine::TypeColumn:
        appendType(e, row, out);
        return;
    case engine::ModifiedColumn:
        appendModified(e.modified, out);
        return;
    case engine::AttributesColumn: {
        const auto bits = uint16_t(e.attributes);
        if (!m_attributes.has(bits))
            m_attributes.put(bits, engine::AttributeText(e.attributes).toUtf8());
        out.append(m_attributes.at(bits));
        return;
    }
    case engine::VersionColumn: {
        const std::string_view version = m_snapshot.versionOf(e);
        if (!isAscii(version))
            break;
        out.append(' ');
        out.append(version);
        return;
    }
    case engine::AttributesKeyColumn:
        if (m_rows.options().keys) {
            char digits[8];
            const int length = std::snprintf(digits, sizeof digits, "%d", int(e.attributes));
            out.append(digits, size_t(length));
        }
        return;
    default:
        break;
    }
    appendSlow(row, column, out);
}

void CellWriter::appendSlow(int32_t row, int column, LineBuffer& out) {
    out.append(m_rows.cellText(row, column).toUtf8());
}

void CellWriter::appendName(const SnapshotEntry& e, int32_t row, LineBuffer& out) {
    const std::string_view name = m_snapshot.nameOf(e);
    // Other names go through QString, which replaces bytes that are not
    // UTF-8 as the grid shows them.
    if (isAscii(name))
        out.append(name);
    else
        appendSlow(row, engine::NameColumn, out);
}

void CellWriter::appendType(const SnapshotEntry& e, int32_t row, LineBuffer& out) {
    if (e.isFolder())
        return;
    const std::string_view name = m_snapshot.nameOf(e);
    if (!isAscii(name)) {
        appendSlow(row, engine::TypeColumn, out);
        return;
    }
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return;
    for (const char c : name.substr(dot + 1))
        out.append(c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c);
}

void CellWriter::appendSize(const SnapshotEntry& e, LineBuffer& out) {
    if (e.isFolder()) {
        out.append(std::string_view("<dir>"));
        return;
    }
    const double size = e.size;
    if (m_fastSizes && size >= 0 && size < LargestExactSize && size == std::floor(size)) {
        appendGrouped(uint64_t(size), m_groupSeparator, out);
        return;
    }
    out.append(engine::sizeCellText(e).toUtf8());
}

void CellWriter::appendModified(double d, LineBuffer& out) {
    // The text is the day's date text and the second's time text, each made
    // once. A day on which the clocks change may show its local times
    // otherwise, and a day outside the years kept is rare: they take the
    // whole text from modifiedText.
    const engine::DateParts p = engine::datePartsFromOle(d);
    const int64_t day =
        engine::daysFromCivil(p.year, unsigned(p.month), unsigned(p.day)) - FirstCachedDay;
    if (day < 0 || day >= CachedDays) {
        out.append(engine::modifiedText(d).toUtf8());
        return;
    }
    if (!m_days.has(size_t(day))) {
        const QDate date(p.year, p.month, p.day);
        m_regularDays[size_t(day)] =
            date.isValid() && QDateTime(date, QTime(0, 0)).offsetFromUtc() ==
                                  QDateTime(date.addDays(1), QTime(0, 0)).offsetFromUtc();
        m_days.put(size_t(day), engine::shortDateText(date).toUtf8());
    }
    if (!m_regularDays[size_t(day)]) {
        out.append(engine::modifiedText(d).toUtf8());
        return;
    }
    out.append(m_days.at(size_t(day)));
    out.append(' ');
    const auto second = size_t(p.hour * 3600 + p.minute * 60 + p.second);
    if (!m_times.has(second)) {
        // longTimeText, with the locale and its format looked up once.
        m_times.put(second,
                    m_locale.toString(QTime(p.hour, p.minute, p.second), m_timeFormat).toUtf8());
    }
    out.append(m_times.at(second));
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
