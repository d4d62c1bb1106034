#include "EntryListModel.h"

#include "engine/Snapshot.h"
#include "engine/TextFormats.h"

namespace kestrel::views {

using engine::Snapshot;

EntryListModel::EntryListModel(const Snapshot& snapshot, QObject* parent)
    : QAbstractTableModel(parent), m_snapshot(snapshot) {}

void EntryListModel::reset() {
    beginResetModel();
    m_rows = std::max(0, m_snapshot.entryCount);
    endResetModel();
}

int EntryListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : m_rows;
}

int EntryListModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant EntryListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::TextAlignmentRole)
        return section == Size ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                               : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    // The blanks are part of the headings: they keep the text off the
    // column borders on the side the cells are aligned to.
    switch (section) {
    case Name:
        return QStringLiteral(" Name");
    case InFolder:
        return QStringLiteral(" In Folder");
    case Size:
        return QStringLiteral("Size ");
    case Modified:
        return QStringLiteral(" Modified");
    case Attributes:
        return QStringLiteral(" Attributes");
    case Version:
        return QStringLiteral(" Version");
    }
    return {};
}

QVariant EntryListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_rows || index.column() >= ColumnCount)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return cellText(entryOfRow(index.row()), index.column());
    case Qt::TextAlignmentRole:
        return index.column() == Size ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                      : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    default:
        return {};
    }
}

QString EntryListModel::cellText(int32_t entry, int column) const {
    const engine::SnapshotEntry& e = m_snapshot.entry(entry);
    switch (column) {
    case Name:
        return m_snapshot.nameText(entry);
    case InFolder:
        // The folder holding the entry, relative to the root ("" at the top).
        return e.parent > 0 ? m_snapshot.relativePath(e.parent) : QString();
    case Size:
        return e.isFolder() ? QStringLiteral("<dir>") : engine::formatGrouped(e.size);
    case Modified:
        return engine::modifiedText(e.modified);
    case Attributes:
        return engine::AttributeText(e.attributes);
    case Version: {
        const std::string_view version = m_snapshot.versionOf(e);
        if (version.empty())
            return {};
        return QLatin1Char(' ') + QString::fromUtf8(version.data(), qsizetype(version.size()));
    }
    }
    return {};
}

} // namespace kestrel::views
