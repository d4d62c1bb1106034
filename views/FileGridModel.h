#pragma once

#include "Highlight.h"

#include "listing/FileList.h"
#include "listing/RowSelection.h"

#include <QAbstractTableModel>

namespace kestrel::engine {
class ProgressMeter;
class Snapshot;
} // namespace kestrel::engine

namespace kestrel::views {

// The file grid of a snapshot window (grdFiles): the rows of the listed
// folder with their cell texts and highlight colours, the twelve columns of
// the file list (the last four hidden keys). Each row carries its entry's
// index under EntryRole. It reads the snapshot, which the window owns.
class FileGridModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Role {
        EntryRole = Qt::UserRole + 1, // int
    };

    explicit FileGridModel(const engine::Snapshot& snapshot, QObject* parent = nullptr);

    // Lists the folder whose first entry is tag (0 empties the grid), sorted
    // as the selection says.
    void select(int32_t tag, const engine::RowSelection& selection, const HighlightColours& colours,
                engine::ProgressMeter* meter = nullptr);
    void clear();
    // The snapshot the listed one was compared with and the options the
    // comparison ran with: the Name cell's tooltip then tells what the entry
    // was there ("[was 1,024  content changed]"). None before a comparison.
    void setComparedWith(const engine::Snapshot* other, const engine::CompareOptions& options);
    // Sorts by a column's text (0-based; a hidden key column for the sorted
    // ones), rows with equal texts keeping their order.
    void sortByText(int column, bool descending);

    const engine::FileList& rows() const { return m_list; }
    int32_t entryAt(int row) const { return m_list.entryAt(row); }
    const engine::ListingCounters& counters() const { return m_list.counters(); }
    // The row to show at the top for an entry of the other window of a
    // pair, the rows being in name order without regard to case: from row
    // from, the first row of that name in any case, found from either side,
    // then among those rows the first whose name and In Folder text (when
    // folder is not empty) match under the rule, else the last of them. -1
    // for an empty grid.
    int rowToScrollTo(const QString& name, const QString& folder, int from,
                      engine::NameMatching matching) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    const engine::Snapshot& m_snapshot;
    const engine::Snapshot* m_other = nullptr;
    engine::CompareOptions m_compareOptions;
    engine::FileList m_list;
    HighlightColours m_colours;
};

} // namespace kestrel::views
