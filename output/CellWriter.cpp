#include "CellWriter.h"

#include "engine/OleDate.h"
#include "engine/Snapshot.h"
#include "engine/TextFormats.h"

#include <cmath>
#include <string_view>

namespace kestrel::output {

using engine::SnapshotEntry;

namespace {

constexpr int SecondsPerDay = 86400;
// Sizes below this are whole numbers a double holds exactly.
constexpr double LargestExactSize = 9007199254740992.0; // 2^53

bool isAscii(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    return true;
}

void appendBytes(QByteArray& out, std::string_view text) {
    out.append(text.data(), qsizetype(text.size()));
}

// The digits of n, the separator between groups of three when it is not
// empty.
void appendGrouped(uint64_t n, const QByteArray& separator, QByteArray& out) {
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
            QByteArray fast;
            appendGrouped(n, separator, fast);
            if (fast != engine::formatGrouped(double(n)).toUtf8())
                return false;
        }
    }
    return true;
}

} // namespace

CellWriter::CellWriter(const engine::Snapshot& snapshot, const engine::FileList& rows)
    : m_snapshot(snapshot), m_rows(rows) {
    const QLocale locale;
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

void CellWriter::append(int32_t row, int column, QByteArray& out) {
    const SnapshotEntry& e = m_snapshot.entries.get(m_rows.entryAt(row));
    switch (column) {
    case engine::NameColumn:
        appendName(e, row, out);
        return;
    case engine::InFolderColumn: {
        const QString& folder = m_rows.inFolder(row);
        if (&folder != m_folder) {
            m_folder = &folder;
            m_folderText = folder.toUtf8();
        }
        out.append(m_folderText);
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
        auto found = m_attributes.find(e.attributes);
        if (found == m_attributes.end())
            found = m_attributes.emplace(e.attributes, engine::AttributeText(e.attributes).toUtf8())
                        .first;
        out.append(found->second);
        return;
    }
    case engine::VersionColumn: {
        const std::string_view version = m_snapshot.versionOf(e);
        if (!isAscii(version))
            break;
        out.append(' ');
        appendBytes(out, version);
        return;
    }
    case engine::AttributesKeyColumn:
        if (m_rows.options().keys)
            out.append(QByteArray::number(e.attributes));
        return;
    default:
        break;
    }
    appendSlow(row, column, out);
}

void CellWriter::appendSlow(int32_t row, int column, QByteArray& out) {
    out.append(m_rows.cellText(row, column).toUtf8());
}

void CellWriter::appendName(const SnapshotEntry& e, int32_t row, QByteArray& out) {
    const std::string_view name = m_snapshot.nameOf(e);
    // Other names go through QString, which replaces bytes that are not
    // UTF-8 as the grid shows them.
    if (isAscii(name))
        appendBytes(out, name);
    else
        appendSlow(row, engine::NameColumn, out);
}

void CellWriter::appendType(const SnapshotEntry& e, int32_t row, QByteArray& out) {
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

void CellWriter::appendSize(const SnapshotEntry& e, QByteArray& out) {
    if (e.isFolder()) {
        out.append("<dir>");
        return;
    }
    const double size = e.size;
    if (m_fastSizes && size >= 0 && size < LargestExactSize && size == std::floor(size)) {
        appendGrouped(uint64_t(size), m_groupSeparator, out);
        return;
    }
    out.append(engine::sizeCellText(e).toUtf8());
}

void CellWriter::appendModified(double d, QByteArray& out) {
    // The text depends on nothing but the day and the second of the day the
    // date rounds to (as engine::datePartsFromOle rounds it).
    if (!std::isfinite(d) || std::fabs(d) > 3.0e6) {
        out.append(engine::modifiedText(d).toUtf8());
        return;
    }
    double whole = std::trunc(d);
    int64_t seconds = std::llround(std::fabs(d - whole) * SecondsPerDay);
    if (seconds >= SecondsPerDay) {
        seconds -= SecondsPerDay;
        whole += 1;
    }
    const auto day = int64_t(whole);
    auto found = m_days.find(day);
    if (found == m_days.end())
        found = m_days.emplace(day, engine::shortDateText(d).toUtf8()).first;
    out.append(found->second);
    out.append(' ');
    if (m_times.empty()) {
        m_times.resize(SecondsPerDay);
        m_timeKnown.resize(SecondsPerDay);
    }
    const auto second = size_t(seconds);
    if (!m_timeKnown[second]) {
        m_times[second] = engine::longTimeText(d).toUtf8();
        m_timeKnown[second] = true;
    }
    out.append(m_times[second]);
}

} // namespace kestrel::output
