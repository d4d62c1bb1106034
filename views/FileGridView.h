#pragma once

#include "output/ShownList.h"

#include <QTableView>

#include <array>

namespace kestrel::views {

// The view of a snapshot window's file grid (grdFiles). Its rows have one
// fixed height, so that a grid of a million rows is as quick as one of a
// hundred: the view never measures a row. Enter on a row does what a
// double-click does, and a scroll the user makes (the wheel, a drag or a
// click on the bar) is told from one the program makes.
class FileGridView : public QTableView {
    Q_OBJECT
public:
    // The header is laid out for the model's columns: it comes first.
    FileGridView(QAbstractItemModel* model, QWidget* parent);

    // Shows and widens the columns as the layout asks (versions, the files
    // of sub-folders, permissions and owners); the filler stretches over
    // what is left.
    void setColumnWidths(const engine::GridLayout& layout);
    // The same for one column, leaving the others as the user left them.
    void applyColumnWidth(int column, const engine::GridLayout& layout);
    // The width of every column as shown now, dragged by the user or not,
    // in twips; 0 for a hidden column.
    std::array<int, output::ShownColumnCount> columnTwips() const;
    // The header's sort mark on a column (0-based), or none for -1.
    void showSortMark(int column, bool descending);
    int topRow() const { return rowAt(0); }
    // Whether the user moved the scroll bar since the last call.
    bool takeScrolledByUser();

Q_SIGNALS:
    // A cell double-clicked, or Enter on the current cell.
    void rowActivated(int row, int column);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    bool m_scrolledByUser = false;
};

} // namespace kestrel::views
