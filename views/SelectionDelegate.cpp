#include "SelectionDelegate.h"

#include "Highlight.h"

#include <QApplication>
#include <QPainter>
#include <QTableView>

namespace kestrel::views {

namespace {

// How far a selected cell's background moves towards the selection colour:
// enough to mark the row, little enough that cyan stays cyan and red text
// stays readable on white.
constexpr double SelectionTint = 0.25;
// The frame around a selected row, in pixels.
constexpr int FrameWidth = 2;

QPalette::ColorGroup colourGroup(const QStyleOptionViewItem& option) {
    if (!(option.state & QStyle::State_Enabled))
        return QPalette::Disabled;
    return option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
}

} // namespace

void SelectionDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const {
    if (!(option.state & QStyle::State_Selected)) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionViewItem cell(option);
    initStyleOption(&cell, index);
    const QPalette::ColorGroup group = colourGroup(cell);
    const QColor selection = cell.palette.color(group, QPalette::Highlight);
    // The cell's own colours (the model's, or the view's plain ones) under a
    // tint of the selection colour.
    const QColor own = cell.backgroundBrush.style() != Qt::NoBrush
                           ? cell.backgroundBrush.color()
                           : cell.palette.color(group, QPalette::Base);
    const QColor background = mixed(own, selection, SelectionTint);
    const QColor text =
        readableOn(cell.palette.color(group, QPalette::Text), background, ReadableContrast);
    cell.state &= ~QStyle::State_Selected;
    // The icon keeps its selected look: a folder shows open.
    const QWidget* widget = cell.widget;
    if (!cell.icon.isNull())
        cell.icon = QIcon(cell.icon.pixmap(
            cell.decorationSize, widget ? widget->devicePixelRatioF() : 1.0, QIcon::Selected));
    cell.backgroundBrush = background;
    cell.palette.setColor(QPalette::Text, text);
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &cell, painter, widget);

    const QRect r = cell.rect;
    painter->save();
    painter->fillRect(QRect(r.left(), r.top(), r.width(), FrameWidth), selection);
    painter->fillRect(QRect(r.left(), r.bottom() - FrameWidth + 1, r.width(), FrameWidth),
                      selection);
    if (rowEnd(cell, index, -1))
        painter->fillRect(QRect(r.left(), r.top(), FrameWidth, r.height()), selection);
    if (rowEnd(cell, index, 1))
        painter->fillRect(QRect(r.right() - FrameWidth + 1, r.top(), FrameWidth, r.height()),
                          selection);
    painter->restore();
}

bool SelectionDelegate::rowEnd(const QStyleOptionViewItem& option, const QModelIndex& index,
                               int step) const {
    // The tree has one column; the grid hides the columns it has no use for.
    const auto* table = qobject_cast<const QTableView*>(option.widget);
    if (!table)
        return true;
    const int columns = index.model()->columnCount(index.parent());
    for (int column = index.column() + step; column >= 0 && column < columns; column += step)
        if (!table->isColumnHidden(column))
            return false;
    return true;
}

} // namespace kestrel::views
