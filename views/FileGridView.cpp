#include "FileGridView.h"

#include "SelectionDelegate.h"

#include "listing/Twips.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QScrollBar>

#include <utility>

namespace kestrel::views {

FileGridView::FileGridView(QAbstractItemModel* model, QWidget* parent) : QTableView(parent) {
    setModel(model);
    QFont gridFont = font();
    // Small enough that the designed column widths hold their texts.
    gridFont.setPointSizeF(output::GridPointSize);
    setFont(gridFont);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setItemDelegate(new SelectionDelegate(this));
    setWordWrap(false);
    setTextElideMode(Qt::ElideRight);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
    QHeaderView* header = horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionsClickable(true);
    header->setSectionsMovable(false);
    header->setMinimumSectionSize(1);
    header->setSectionResizeMode(engine::FillerColumn, QHeaderView::Stretch);
    // Columns keep their numbers; the header shows them in the list's order.
    for (int place = 0; place < int(engine::ShownColumnOrder.size()); ++place)
        header->moveSection(header->visualIndex(engine::ShownColumnOrder[size_t(place)]), place);
    connect(this, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex& index) { Q_EMIT rowActivated(index.row(), index.column()); });
    QScrollBar* bar = verticalScrollBar();
    connect(bar, &QAbstractSlider::actionTriggered, this,
            [this, bar](int) { m_scrolledByUser = bar->sliderPosition() != bar->value(); });
}

void FileGridView::setColumnWidths(const engine::GridLayout& layout) {
    for (int column = 0; column < engine::GridColumnCount; ++column)
        applyColumnWidth(column, layout);
}

void FileGridView::applyColumnWidth(int column, const engine::GridLayout& layout) {
    if (column == engine::FillerColumn)
        return;
    const int width = output::shownColumnPixels(column, layout, font(), logicalDpiX());
    setColumnHidden(column, width == 0);
    if (width > 0)
        setColumnWidth(column, width);
}

std::array<int, output::ShownColumnCount> FileGridView::columnTwips() const {
    std::array<int, output::ShownColumnCount> twips{};
    const double dpi = logicalDpiX();
    for (int column = 0; column < output::ShownColumnCount; ++column)
        twips[size_t(column)] =
            isColumnHidden(column) ? 0 : engine::twipsFromPixels(columnWidth(column), dpi);
    return twips;
}

void FileGridView::showSortMark(int column, bool descending) {
    QHeaderView* header = horizontalHeader();
    if (column < 0) {
        header->setSortIndicatorShown(false);
        return;
    }
    header->setSortIndicator(column, descending ? Qt::DescendingOrder : Qt::AscendingOrder);
    header->setSortIndicatorShown(true);
}

bool FileGridView::takeScrolledByUser() {
    return std::exchange(m_scrolledByUser, false);
}

void FileGridView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        Q_EMIT rowActivated(currentIndex().row(), currentIndex().column());
        return;
    }
    QTableView::keyPressEvent(event);
}

} // namespace kestrel::views
