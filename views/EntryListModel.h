#pragma once

#include <QAbstractTableModel>

#include <cstdint>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::views {

// A plain listing of a snapshot's entries in table order (entry 1 first),
// one row per entry. It only reads the snapshot, which the snapshot window
// owns and which must outlive the model.
//
// The row count is taken when the model is reset, not on every call: a scan
// or a load fills the snapshot while the listing is already on screen for
// another window's sake, and the view must not see rows appear without being
// told. Call reset() once the snapshot is complete.
class EntryListModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Name, InFolder, Size, Modified, Attributes, Version, ColumnCount };

    explicit EntryListModel(const engine::Snapshot& snapshot, QObject* parent = nullptr);

    // Takes the snapshot's present entries.
    void reset();

    // The entry shown in a row: rows are entries 1..entryCount.
    static int32_t entryOfRow(int row) { return row + 1; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    QString cellText(int32_t entry, int column) const;

    const engine::Snapshot& m_snapshot;
    int m_rows = 0;
};

} // namespace kestrel::views
