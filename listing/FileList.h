// listing: the file list as a window shows it: rows, cells, column widths, status-bar texts.

#pragma once

#include "engine/compare/Compare.h"
#include "engine/compare/ShowMode.h"

#include <QString>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrel::engine {

class NameFilter;
class ProgressMeter;
class Snapshot;

// The file list of a snapshot window as it is shown: which entries have a
// row, the text of every cell, which cells carry a highlight colour, and the
// counts the status bar reports. The window's grid, the export file, the
// printed report and the command line all read this one description.

// The columns, by number. Name to the filler are the file list's own and
// the four after them hidden keys: the file list sorts Size, Modified and
// Attributes on them. Permissions and Owner come last so that no other
// column's number moves; they are shown beside Attributes (ShownColumnOrder).
enum GridColumn : int {
    NameColumn,
    InFolderColumn,
    SizeColumn,
    TypeColumn,
    ModifiedColumn,
    AttributesColumn,
    VersionColumn,
    FillerColumn,
    SizeKeyColumn,
    UnusedColumn,
    ModifiedKeyColumn,
    AttributesKeyColumn,
    PermissionsColumn, // "-rwsr-xr-x", when the snapshot has them
    OwnerColumn,       // "root:root"
    FingerprintColumn, // 32 hex digits, when the snapshot has fingerprints
    MovedColumn,       // "to sub/new.txt" after a comparison that found moves; the grid only
    GridColumnCount
};

// The columns a grid and a report show, left to right.
inline constexpr std::array<int, 12> ShownColumnOrder = {
    NameColumn,     InFolderColumn,    SizeColumn,        TypeColumn,
    ModifiedColumn, AttributesColumn,  PermissionsColumn, OwnerColumn,
    VersionColumn,  FingerprintColumn, MovedColumn,       FillerColumn};

// What decides which columns a list shows and how wide Name is.
struct GridLayout {
    bool versions = false;     // the snapshot holds versions
    bool subFolders = false;   // files of sub-folders are listed
    bool access = false;       // the snapshot holds permissions and owners
    bool fingerprints = false; // the snapshot holds content fingerprints
    bool moves = false;        // the last comparison found moves
};

// The heading of a column, blanks included (" Name", "Size ").
QString gridHeaderText(int column);
// A column's designed width in twips: Name narrows when the snapshot has
// versions and more while sub-folder files are shown; In Folder, Version,
// Permissions, Owner and Fingerprint are 0 when there is nothing to put in
// them; the keys are always 0.
int gridColumnTwips(int column, const GridLayout& layout);
// The key column a sort by the given column uses: Size, Modified and
// Attributes sort on their hidden keys, every other column on itself.
int sortKeyColumn(int column);
// Whether a column's sort needs the hidden keys, which the faster option
// leaves empty.
bool sortNeedsKeys(int column);

// How a cell is coloured after a comparison.
enum class Highlight : uint8_t {
    None,
    Deleted, // the entry has no counterpart in the other snapshot
    Changed, // the value differs from the counterpart's
    Ignored, // the comparison's ignore patterns left the entry out
    Alert,   // the name of an entry whose access calls for attention
};

// What a listing counted: every row, and after a comparison the entries
// without counterpart and those with changes.
struct ListingCounters {
    int32_t files = 0;
    int32_t folders = 0;
    double bytes = 0;
    int32_t extraFiles = 0;
    int32_t extraFolders = 0;
    int32_t changedFiles = 0;
    int32_t changedFolders = 0; // folders with changes beneath them
    // Changed permissions, owners and link targets, and the alerts.
    AccessCounts access;
};

struct ListingOptions {
    ShowMode mode = ShowMode::None;
    // List the entries of every sub-folder too, each with the path of its
    // folder below the listed one in the In Folder column.
    bool subFolders = false;
    // Fill the hidden key columns; the faster option leaves them empty.
    bool keys = true;
    // Show folders without contents.
    bool emptyFolders = true;
    // After a comparison, list the entries its ignore patterns left out
    // (View > Show Ignored Entries); otherwise they have no row.
    bool showIgnored = false;
    // What the comparison covers, when not the whole snapshot; it must
    // outlive the listing.
    const ComparedPart* compared = nullptr;
};

// The rows of one listed folder. It only reads the snapshot, which must
// outlive it. A row costs 8 bytes; the In Folder texts are kept once per
// listed folder.
class FileList {
public:
    explicit FileList(const Snapshot& snapshot) : m_snapshot(snapshot) {}

    // Lists the folder whose first entry is first (0 lists nothing), in ring
    // order, folder by folder when sub-folders are listed. A meter, when
    // given, is advanced at each sub-folder. The walk is bounded by the
    // table, so a damaged ring ends the listing instead of hanging it.
    void list(int32_t first, const ListingOptions& options, ProgressMeter* meter = nullptr);
    void clear();
    // The rows list would give, counted without listing them; the count
    // stops at stopAfter + 1, which stands for "more than stopAfter".
    static int32_t countRows(const Snapshot& snapshot, int32_t first, const ListingOptions& options,
                             int32_t stopAfter);

    // Keeps the rows whose names pass the filter, in their order. The
    // counters stay those of the whole listing.
    void keepNamesMatching(const NameFilter& filter);
    // The rows the listing gave before any were left out by a name filter.
    int32_t listedRows() const { return std::max(m_listedRows, rowCount()); }

    const ListingOptions& options() const { return m_options; }
    int32_t rowCount() const { return int32_t(m_rows.size()); }
    int32_t entryAt(int32_t row) const { return m_rows[size_t(row)].entry; }
    const QString& inFolder(int32_t row) const { return m_folders[m_rows[size_t(row)].folder]; }
    // The In Folder texts are kept once per listed folder: the number of
    // the one a row has, below folderCount().
    uint32_t folderOf(int32_t row) const { return m_rows[size_t(row)].folder; }
    uint32_t folderCount() const { return uint32_t(m_folders.size()); }
    const ListingCounters& counters() const { return m_counters; }

    QString cellText(int32_t row, int column) const;
    Highlight highlight(int32_t row, int column) const;

    // Sorts the rows by the text of a column (0-based, a key column for the
    // sorted ones), without regard to case; rows with equal texts keep their
    // order. Numbers sort as text: an attribute key of 128 comes before 16.
    void sortByText(int column, bool descending);

    size_t memoryUsed() const;

private:
    // A row to sort: the first units of its text packed into a number.
    struct SortKey;
    // The case-folded text a sort compares, or its first atMost units,
    // appended as UTF-16.
    void appendSortText(int32_t row, int column, std::vector<char16_t>& out,
                        size_t atMost = SIZE_MAX) const;
    // Every row's key, with units of Unit's size; false when a unit does not
    // fit it.
    template <typename Unit>
    bool makeSortKeys(int column, bool descending, std::vector<SortKey>& keys) const;

    struct Row {
        int32_t entry;
        uint32_t folder; // index of its In Folder text
    };

    const Snapshot& m_snapshot;
    ListingOptions m_options;
    std::vector<Row> m_rows;
    std::vector<QString> m_folders;
    ListingCounters m_counters;
    int32_t m_listedRows = 0;
};

// Cell texts of one entry, as the file list shows them. Values the scan
// could not read show as "unknown".
QString sizeCellText(const SnapshotEntry& entry);
QString sizeKeyText(double size);         // 15 digits, zero-padded
QString modifiedKeyText(double modified); // the plain day number

// The status bar's texts for a listing.
// "1 file " for one, else the count with digit grouping and " files ".
QString filesText(int32_t files);
// "1 folder " for one, else the count and " folders ".
QString foldersText(int32_t folders);
// Bytes listed (exact with exactBytes, else abbreviated), " in " and the
// files text.
QString listingText(const ListingCounters& counters, bool exactBytes);

// While the find bar filters the list: "Find: 12 of 30,000 rows", the rows
// shown of those listed.
QString findText(const FileList& rows);

// ShowChanges: the change summary. Without a paired window, and before the
// first comparison, a hint what to do; after it the counts that are not 0
// ("1 extra file, 2 changed files"), or a sentence saying there are none.
// After a comparison whose ignore patterns left ignored entries out,
// ", 1,234 ignored" follows; the moves it found ("3 moved files") come
// before that.
QString ShowChanges(bool paired, bool compared, ShowMode mode, const ListingCounters& counters,
                    int32_t ignored = 0, const QString& moves = {});

} // namespace kestrel::engine
