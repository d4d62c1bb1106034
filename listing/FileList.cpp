#include "FileList.h"

#include "engine/compare/Compare.h"
#include "engine/model/NameFilter.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kestrel::engine {

namespace {

// Designed widths in twips, by column.
constexpr int NameTwips = 2700;
constexpr int NameTwipsWithVersions = 2200;
constexpr int NameTwipsWithSubFolders = 1700;
constexpr int InFolderTwips = 2000;
constexpr int SizeTwips = 1200;
constexpr int TypeTwips = 600;
constexpr int ModifiedTwips = 1800;
constexpr int AttributesTwips = 1000;
constexpr int PermissionsTwips = 1100;
constexpr int OwnerTwips = 1400;
constexpr int FingerprintTwips = 3600;
constexpr int MovedTwips = 2500;
constexpr int VersionTwips = 2000;
constexpr int FillerTwips = 20000;

// The number of the size bit that paints the first cell: bit 1 (value 2)
// paints Name, bit 2 In Folder and so on up to bit 7 (value 128), Version.
constexpr int FirstPaintedBit = 1;

} // namespace

QString gridHeaderText(int column) {
    static const std::array<QString, GridColumnCount> headers = {QStringLiteral(" Name"),
                                                                 QStringLiteral(" In Folder"),
                                                                 QStringLiteral("Size "),
                                                                 QStringLiteral(" Type"),
                                                                 QStringLiteral(" Modified"),
                                                                 QStringLiteral(" Attributes"),
                                                                 QStringLiteral(" Version"),
                                                                 QString(),
                                                                 QString(),
                                                                 QString(),
                                                                 QString(),
                                                                 QString(),
                                                                 QStringLiteral(" Permissions"),
                                                                 QStringLiteral(" Owner"),
                                                                 QStringLiteral(" Fingerprint"),
                                                                 QStringLiteral(" Moved")};
    return column >= 0 && column < GridColumnCount ? headers[size_t(column)] : QString();
}

int gridColumnTwips(int column, const GridLayout& layout) {
    switch (column) {
    case NameColumn:
        if (layout.subFolders)
            return NameTwipsWithSubFolders;
        return layout.versions ? NameTwipsWithVersions : NameTwips;
    case InFolderColumn:
        return layout.subFolders ? InFolderTwips : 0;
    case SizeColumn:
        return SizeTwips;
    case TypeColumn:
        return TypeTwips;
    case ModifiedColumn:
        return ModifiedTwips;
    case AttributesColumn:
        return AttributesTwips;
    case PermissionsColumn:
        return layout.access ? PermissionsTwips : 0;
    case OwnerColumn:
        return layout.access ? OwnerTwips : 0;
    case FingerprintColumn:
        return layout.fingerprints ? FingerprintTwips : 0;
    case MovedColumn:
        return layout.moves ? MovedTwips : 0;
    case VersionColumn:
        return layout.versions ? VersionTwips : 0;
    case FillerColumn:
        return FillerTwips;
    default:
        return 0;
    }
}

int sortKeyColumn(int column) {
    switch (column) {
    case SizeColumn:
        return SizeKeyColumn;
    case ModifiedColumn:
        return ModifiedKeyColumn;
    case AttributesColumn:
        return AttributesKeyColumn;
    default:
        return column;
    }
}

bool sortNeedsKeys(int column) {
    return sortKeyColumn(column) != column;
}

QString sizeCellText(const SnapshotEntry& e) {
    if (e.isFolder())
        return QStringLiteral("<dir>");
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : formatGrouped(e.size);
}

QString sizeKeyText(double size) {
    const double whole = std::round(std::fabs(size));
    QString digits = QString::number(whole, 'f', 0).rightJustified(15, QLatin1Char('0'));
    if (size < 0 && whole != 0)
        digits.prepend(QLatin1Char('-'));
    return digits;
}

QString modifiedKeyText(double modified) {
    // The day number as plain text, to 15 significant digits.
    return QString::number(modified, 'g', 15);
}

void FileList::clear() {
    m_rows.clear();
    m_folders.clear();
    m_counters = ListingCounters();
    m_listedRows = 0;
}

void FileList::keepNamesMatching(const NameFilter& filter) {
    m_listedRows = int32_t(m_rows.size());
    if (filter.empty())
        return;
    std::erase_if(m_rows, [&](const Row& row) {
        return !filter.matches(m_snapshot.nameOf(m_snapshot.entries.get(row.entry)));
    });
}

namespace {

// Walks the rows a listing of the ring that starts at first gives, in ring
// order, folder by folder when sub-folders are listed. row(index, folder)
// is called for each entry that gets a row and returns false to stop;
// enter(index, folder) for each sub-folder listed returns the number of its
// In Folder text. Each entry is met once in a sound snapshot, and the walk
// is bounded by the table, so a damaged ring ends it instead of hanging it.
template <typename Row, typename Enter>
void walkRows(const Snapshot& s, int32_t first, const ListingOptions& options, Row row,
              Enter enter) {
    if (first <= 0 || !s.entries.contains(first))
        return;
    struct Ring {
        int32_t first;
        int32_t current;
        uint32_t folder;
    };
    std::vector<Ring> stack{{first, first, 0}};
    int64_t budget = int64_t(s.capacity()) + 1;
    while (!stack.empty() && --budget >= 0) {
        Ring& ring = stack.back();
        const int32_t i = ring.current;
        const uint32_t folder = ring.folder;
        const SnapshotEntry& e = s.entries.get(i);
        const int32_t next = e.nextSibling;
        if (next == ring.first || next == i || !s.entries.contains(next))
            stack.pop_back();
        else
            ring.current = next;

        const bool contents = e.isFolder() && hasContents(s, i);
        // Outside the comparison's part of the tree an entry takes no part
        // in it: shown only as the way down to that part.
        const bool covered = !options.compared || options.compared->covers(i);
        const bool shown = covered ? rowListed(e, options.mode, options.showIgnored)
                                   : options.compared->shownOutside(i, options.mode);
        if (shown && (options.emptyFolders || !e.isFolder() || contents) && !row(i, folder))
            return;
        if (options.subFolders && contents)
            stack.push_back({i + 1, i + 1, enter(i, folder)});
    }
}

} // namespace

int32_t FileList::countRows(const Snapshot& snapshot, int32_t first, const ListingOptions& options,
                            int32_t stopAfter) {
    int32_t rows = 0;
    walkRows(
        snapshot, first, options, [&](int32_t, uint32_t) { return ++rows <= stopAfter; },
        [](int32_t, uint32_t) { return 0u; });
    return rows;
}

void FileList::list(int32_t first, const ListingOptions& options, ProgressMeter* meter) {
    clear();
    m_options = options;
    const Snapshot& s = m_snapshot;
    if (first <= 0 || !s.entries.contains(first))
        return;
    m_folders.emplace_back();
    const bool compared = options.mode != ShowMode::None;
    const auto row = [&](int32_t i, uint32_t folder) {
        const SnapshotEntry& e = s.entries.get(i);
        m_rows.push_back({i, folder});
        if (e.isFolder()) {
            ++m_counters.folders;
        } else {
            ++m_counters.files;
            m_counters.bytes += e.size;
        }
        if (compared && !e.isIgnored() && (!options.compared || options.compared->covers(i))) {
            if (e.match == 0)
                ++(e.isFolder() ? m_counters.extraFolders : m_counters.extraFiles);
            else if (e.status > 0)
                ++(e.isFolder() ? m_counters.changedFolders : m_counters.changedFiles);
            m_counters.access.add(s, i);
        }
        return true;
    };
    const auto enter = [&](int32_t i, uint32_t folder) {
        if (meter)
            meter->update(rowCount());
        QString path = m_folders[folder] + s.nameText(i) + Separator;
        m_folders.push_back(std::move(path));
        return uint32_t(m_folders.size() - 1);
    };
    walkRows(s, first, options, row, enter);
}

QString FileList::cellText(int32_t row, int column) const {
    const int32_t i = m_rows[size_t(row)].entry;
    const SnapshotEntry& e = m_snapshot.entries.get(i);
    switch (column) {
    case NameColumn:
        return m_snapshot.nameText(i);
    case InFolderColumn:
        return inFolder(row);
    case SizeColumn:
        return sizeCellText(e);
    case TypeColumn:
        // A dot in a folder's name ("v1.2") does not make a type.
        return e.isFolder() ? QString() : FileTypeText(m_snapshot.nameText(i)).toLower();
    case ModifiedColumn:
        return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : modifiedText(e.modified);
    case AttributesColumn:
        return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText)
                                 : AttributeText(e.attributes);
    case VersionColumn: {
        const std::string_view version = m_snapshot.versionOf(e);
        return QLatin1Char(' ') + QString::fromUtf8(version.data(), qsizetype(version.size()));
    }
    case SizeKeyColumn:
        return m_options.keys ? sizeKeyText(e.size) : QString();
    case ModifiedKeyColumn:
        return m_options.keys ? modifiedKeyText(e.modified) : QString();
    case AttributesKeyColumn:
        return m_options.keys ? QString::number(e.attributes) : QString();
    case PermissionsColumn:
        if (!m_snapshot.access.has(i))
            return QString();
        return permissionsText(m_snapshot.access.at(i).mode, kindLetter(e.attributes));
    case OwnerColumn: {
        if (!m_snapshot.access.has(i))
            return QString();
        const EntryAccess access = m_snapshot.access.at(i);
        return ownerText(access.owner, access.group);
    }
    case FingerprintColumn:
        return m_snapshot.fingerprints.has(i)
                   ? QString::fromLatin1(fingerprintHex(m_snapshot.fingerprints.at(i)))
                   : QString();
    default:
        return QString();
    }
}

Highlight FileList::highlight(int32_t row, int column) const {
    const bool access =
        column == PermissionsColumn || column == OwnerColumn || column == FingerprintColumn;
    if (m_options.mode == ShowMode::None || column < NameColumn ||
        (column > VersionColumn && !access))
        return Highlight::None;
    const int32_t entry = m_rows[size_t(row)].entry;
    if (m_options.compared && !m_options.compared->covers(entry))
        return Highlight::None;
    const SnapshotEntry& e = m_snapshot.entries.get(entry);
    if (e.isIgnored())
        return Highlight::Ignored;
    if (column == NameColumn && alertOf(m_snapshot, entry) != AccessAlert::None)
        return Highlight::Alert;
    // A folder whose own permissions or owner changed: its name.
    if (column == NameColumn && e.isFolder() && e.match != 0 && ownChanges(m_snapshot, entry))
        return Highlight::Changed;
    if (e.match == 0)
        return Highlight::Deleted;
    // Permissions, Owner and Fingerprint: the entry's own change, a
    // folder's included.
    if (access) {
        const int16_t bit = column == PermissionsColumn ? Change::Permissions
                            : column == OwnerColumn     ? Change::Owner
                                                        : Change::Content;
        return ownChanges(m_snapshot, entry) & bit ? Highlight::Changed : Highlight::None;
    }
    // A link that points elsewhere, a file whose content changed: its name.
    if (column == NameColumn && !e.isFolder() && e.status > 0 &&
        (e.status & (Change::LinkTarget | Change::Content)))
        return Highlight::Changed;
    // The status bits paint the cells one by one, whatever the entry: a
    // file's change bits name its changed values, and a folder's status,
    // a sum, paints whichever cells its bits happen to select.
    if (e.status > 0 && (e.status & (1 << (column + FirstPaintedBit))))
        return Highlight::Changed;
    return Highlight::None;
}

// The first units of a row's text packed into a number whose order is
// theirs, the row, and where the row's whole text was put when it was made.
struct FileList::SortKey {
    uint64_t prefix;
    uint32_t row;
    uint32_t text;
};

namespace {

// Sorts keys by prefix, keeping the order of equal prefixes: eight passes
// of a byte each (none for a byte all keys share), so that a million rows
// cost a few reads and writes of the keys rather than twenty comparisons
// each.
template <typename Key> void radixSort(std::vector<Key>& keys) {
    const size_t n = keys.size();
    std::array<std::array<size_t, 256>, 8> counts{};
    for (const Key& k : keys)
        for (size_t digit = 0; digit < 8; ++digit)
            ++counts[digit][(k.prefix >> (8 * digit)) & 0xFF];
    std::vector<Key> other(n);
    for (size_t digit = 0; digit < 8; ++digit) {
        std::array<size_t, 256>& count = counts[digit];
        if (std::find(count.begin(), count.end(), n) != count.end())
            continue;
        size_t start = 0;
        for (size_t& c : count)
            start += std::exchange(c, start);
        for (const Key& k : keys)
            other[count[(k.prefix >> (8 * digit)) & 0xFF]++] = k;
        keys.swap(other);
    }
}

} // namespace

void FileList::sortByText(int column, bool descending) {
    const size_t n = m_rows.size();
    // Each row's key: the first units of its case-folded text packed into a
    // number whose order is theirs, eight of them when each fits a byte
    // (ASCII names, digits, most Latin names), four otherwise. Most rows are
    // told apart by their keys alone; only rows whose keys are equal have
    // their whole texts made and compared.
    std::vector<SortKey> keys(n);
    if (!makeSortKeys<uint8_t>(column, descending, keys))
        makeSortKeys<char16_t>(column, descending, keys);
    radixSort(keys);

    // Rows with equal texts keep their order, in either direction.
    std::vector<char16_t> units;
    std::vector<size_t> starts;
    for (size_t first = 0; first < n;) {
        size_t end = first + 1;
        while (end < n && keys[end].prefix == keys[first].prefix)
            ++end;
        if (end - first > 1) {
            units.clear();
            starts.clear();
            for (size_t k = first; k < end; ++k) {
                starts.push_back(units.size());
                appendSortText(int32_t(keys[k].row), column, units);
                // Where the row's text is among the run's.
                keys[k].text = uint32_t(k - first);
            }
            starts.push_back(units.size());
            const auto text = [&](uint32_t at) {
                return QStringView(units.data() + starts[at],
                                   qsizetype(starts[at + 1] - starts[at]));
            };
            std::sort(keys.begin() + ptrdiff_t(first), keys.begin() + ptrdiff_t(end),
                      [&](const SortKey& a, const SortKey& b) {
                          const int order = QtPrivate::compareStrings(text(a.text), text(b.text));
                          if (order != 0)
                              return descending ? order > 0 : order < 0;
                          return a.row < b.row;
                      });
        }
        first = end;
    }

    std::vector<Row> sorted(n);
    for (size_t r = 0; r < n; ++r)
        sorted[r] = m_rows[keys[r].row];
    m_rows = std::move(sorted);
}

template <typename Unit>
bool FileList::makeSortKeys(int column, bool descending, std::vector<SortKey>& keys) const {
    constexpr size_t PrefixUnits = sizeof(uint64_t) / sizeof(Unit);
    constexpr char16_t Largest = char16_t(std::numeric_limits<Unit>::max());
    std::vector<char16_t> units;
    for (size_t r = 0; r < keys.size(); ++r) {
        units.clear();
        appendSortText(int32_t(r), column, units, PrefixUnits);
        uint64_t prefix = 0;
        for (size_t i = 0; i < PrefixUnits; ++i) {
            const char16_t unit = i < units.size() ? units[i] : 0;
            if (unit > Largest)
                return false;
            prefix = (prefix << (8 * sizeof(Unit))) | unit;
        }
        // Descending is ascending on the complement; equal prefixes keep
        // their rows' order either way.
        keys[r] = {descending ? ~prefix : prefix, uint32_t(r), 0};
    }
    return true;
}

void FileList::appendSortText(int32_t row, int column, std::vector<char16_t>& out,
                              size_t atMost) const {
    if (column == NameColumn) {
        // An ASCII name folds to its lower case, without a detour through
        // two strings; any other is taken back and folded as text. Each
        // ASCII character folds to one, so the beginning of a name that is
        // ASCII so far folds so too.
        const std::string_view whole = m_snapshot.nameOf(m_snapshot.entries.get(entryAt(row)));
        const std::string_view name = whole.substr(0, std::min(atMost, whole.size()));
        const size_t start = out.size();
        out.resize(start + name.size());
        char16_t* folded = out.data() + start;
        unsigned char bits = 0;
        for (const char c : name) {
            bits |= (unsigned char)c;
            *folded++ = char16_t(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        }
        if (bits < 0x80)
            return;
        out.resize(start);
    }
    const QString folded = cellText(row, column).toCaseFolded();
    const size_t size = std::min(atMost, size_t(folded.size()));
    out.insert(out.end(), folded.utf16(), folded.utf16() + size);
}

size_t FileList::memoryUsed() const {
    size_t used = m_rows.capacity() * sizeof(Row) + m_folders.capacity() * sizeof(QString);
    for (const QString& f : m_folders)
        used += size_t(f.capacity()) * sizeof(QChar);
    return used;
}

QString filesText(int32_t files) {
    if (files == 1)
        return QStringLiteral("1 file ");
    return formatCount(files) + QStringLiteral(" files ");
}

QString foldersText(int32_t folders) {
    if (folders == 1)
        return QStringLiteral("1 folder ");
    return formatCount(folders) + QStringLiteral(" folders ");
}

QString listingText(const ListingCounters& counters, bool exactBytes) {
    return FormatByteSize(counters.bytes, !exactBytes) + QStringLiteral(" in ") +
           filesText(counters.files);
}

QString ShowChanges(bool paired, bool compared, ShowMode mode, const ListingCounters& c,
                    int32_t ignored, const QString& moves) {
    if (!paired)
        return QStringLiteral("Click New, Open or Repeat to provide the second Snapshot");
    if (!compared)
        return QStringLiteral("Click Compare to compare this Snapshot against the other");
    // What calls for attention comes first.
    QString text = alertsText(c.access);
    if (!text.isEmpty())
        text += QStringLiteral(", ");
    const auto part = [&text](int32_t count, const char* one, const char* many) {
        if (count == 1)
            text += QLatin1String(one);
        else if (count > 1)
            text += QString::number(count) + QLatin1String(many); // plain digits, no grouping
    };
    part(c.extraFiles, "1 extra file, ", " extra files, ");
    part(c.extraFolders, "1 extra folder, ", " extra folders, ");
    part(c.changedFiles, "1 file changed, ", " changed files, ");
    part(c.changedFolders, "1 folder with changes, ", " folders with changes, ");
    const QString access = accessChangesText(c.access);
    if (!access.isEmpty())
        text += access + QStringLiteral(", ");
    if (!moves.isEmpty())
        text += moves + QStringLiteral(", ");
    if (!text.isEmpty())
        text.chop(2);
    else
        text = filtersByComparison(mode) ? QStringLiteral("No changes in visible entries")
                                         : QStringLiteral("No changes in selected folder");
    return text + ignoredNote(ignored);
}

QString findText(const FileList& rows) {
    return QStringLiteral("Find: %1 of %2 rows")
        .arg(formatCount(rows.rowCount()), formatCount(rows.listedRows()));
}

} // namespace kestrel::engine
