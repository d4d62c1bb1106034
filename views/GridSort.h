#pragma once

namespace kestrel::views {

// How a snapshot window's file grid is sorted: by a column, numbered from 1
// as the header's clicks give them (0 for the order the listing made), in
// ascending or descending order.
class GridSort {
public:
    enum class Order { Ascending, Descending };
    // The name column, the one order that lets two grids scroll together.
    static constexpr int NameColumn = 1;

    int column() const { return m_column; }
    bool sorted() const { return m_column > 0; }
    bool descending() const { return m_order == Order::Descending; }
    bool byNameAscending() const { return m_column == NameColumn && m_order == Order::Ascending; }

    void set(int column, Order order) {
        m_column = column;
        m_order = order;
    }
    // A click on a column's header: a new column sorts ascending, the same
    // column again reverses the order.
    void click(int column) {
        if (column != m_column)
            set(column, Order::Ascending);
        else
            m_order = descending() ? Order::Ascending : Order::Descending;
    }

private:
    int m_column = 0;
    Order m_order = Order::Ascending;
};

} // namespace kestrel::views
