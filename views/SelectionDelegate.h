#pragma once

#include <QStyledItemDelegate>

namespace kestrel::views {

// Paints the selection of the folder tree and the file grid so that the
// comparison's colours stay visible on it: a selected cell keeps its own
// background and text colours, its background tinted towards the selection
// colour, and the selected row is framed in the selection colour. The row
// the keyboard stands on is always selected, so without this the first
// row's "No Match" or "Changed" colour would never show. Cells that are not
// selected paint as usual.
class SelectionDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

private:
    // Whether a cell is the first (direction -1) or last (direction 1) one
    // of its row that the view shows.
    bool rowEnd(const QStyleOptionViewItem& option, const QModelIndex& index, int step) const;
};

} // namespace kestrel::views
