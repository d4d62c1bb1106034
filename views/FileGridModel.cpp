#include "FileGridModel.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Moves.h"
#include "engine/support/TextFormats.h"

#include <algorithm>

namespace kestrel::views {

using namespace engine;

FileGridModel::FileGridModel(const Snapshot& snapshot, QObject* parent)
    : QAbstractTableModel(parent), m_snapshot(snapshot), m_list(snapshot) {}

void FileGridModel::select(int32_t tag, const RowSelection& selection,
                           const HighlightColours& colours, ProgressMeter* meter) {
    beginResetModel();
    m_colours = colours;
    selectRows(m_list, tag, selection, meter);
    endResetModel();
}

void FileGridModel::setComparedWith(const Snapshot* other, const CompareOptions& options) {
    m_other = other;
    m_compareOptions = options;
}

void FileGridModel::clear() {
    beginResetModel();
    m_list.clear();
    endResetModel();
}

void FileGridModel::sortByText(int column, bool descending) {
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    m_list.sortByText(column, descending);
    // Rows are not tracked across a sort: the window makes the first row
    // current afterwards.
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

int FileGridModel::rowToScrollTo(const QString& name, const QString& folder, int from,
                                 NameMatching matching) const {
    const int last = m_list.rowCount() - 1;
    if (last < 0)
        return -1;
    const auto nameAt = [&](int row) {
        return m_list.cellText(row, NameColumn).compare(name, Qt::CaseInsensitive);
    };
    // Step up past greater names, then down past lesser ones.
    int row = std::clamp(from, 0, last);
    while (nameAt(row) > 0 && row > 0)
        --row;
    while (nameAt(row) < 0 && row < last)
        ++row;
    const Qt::CaseSensitivity names = caseSensitivity(matching);
    const auto matches = [&](int at) {
        return m_list.cellText(at, NameColumn).compare(name, names) == 0 &&
               (folder.isEmpty() || m_list.inFolder(at).compare(folder, names) == 0);
    };
    while (row < last && !matches(row) && nameAt(row + 1) == 0)
        ++row;
    return row;
}

int FileGridModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : m_list.rowCount();
}

int FileGridModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : GridColumnCount;
}

QVariant FileGridModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_list.rowCount() || index.column() >= GridColumnCount)
        return {};
    const int row = index.row();
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        if (column == MovedColumn)
            return m_other ? visibleText(movedText(m_snapshot, *m_other, m_list.entryAt(row)))
                           : QString();
        return visibleText(m_list.cellText(row, column));
    case Qt::TextAlignmentRole:
        return column == SizeColumn ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                    : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    case Qt::ForegroundRole:
        return highlightForeground(m_list.highlight(row, column), m_colours);
    case Qt::BackgroundRole:
        return highlightBackground(m_list.highlight(row, column), m_colours);
    case Qt::FontRole:
        return highlightFont(m_list.highlight(row, column));
    case Qt::ToolTipRole: {
        if (!m_other || m_list.options().mode == ShowMode::None)
            return {};
        if (column == MovedColumn) {
            const QString moved = movedText(m_snapshot, *m_other, m_list.entryAt(row));
            return moved.isEmpty() ? QVariant()
                                   : QVariant(QStringLiteral("Moved ") + visibleText(moved));
        }
        if (column != NameColumn)
            return {};
        const QString text =
            WhatChanged(m_snapshot, *m_other, m_list.entryAt(row), m_compareOptions);
        return text.isEmpty() ? QVariant() : QVariant(text);
    }
    case EntryRole:
        return m_list.entryAt(row);
    default:
        return {};
    }
}

QVariant FileGridModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::DisplayRole)
        return gridHeaderText(section);
    if (role == Qt::TextAlignmentRole)
        return section == SizeColumn ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                     : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    return {};
}

} // namespace kestrel::views
