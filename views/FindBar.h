#pragma once

#include "engine/model/NameFilter.h"

#include <QWidget>

class QLabel;
class QLineEdit;
class QToolButton;

namespace kestrel::views {

class SnapshotWindow;

// The find bar over a snapshot window's file grid. Typing filters the
// listed rows to the names that contain the text (or fit it, with "*" or
// "?"), as it is typed; Enter and Find Next go to the next entry of the
// whole snapshot with such a name, selecting its folder in the tree (the
// paired window follows as for a click); Esc closes the bar and lists the
// folder whole again.
class FindBar : public QWidget {
public:
    explicit FindBar(SnapshotWindow& window);

    // Shows the bar with its text selected for typing over.
    void open();
    // Hides the bar; the list shows every row again.
    void close();
    // The filter the grid applies: null while the bar is closed or empty.
    const engine::NameFilter* activeFilter() const;
    // Goes to the next entry whose name passes the filter; false when there
    // is none (or no text to find).
    bool findNext();

    QLineEdit* textBox() const { return m_txtFind; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void txtFind_Change(const QString& text);
    // The entry to look after: the current row's, else the listed folder's.
    int32_t searchStart() const;

    SnapshotWindow& m_window;
    QLabel* m_lblFind = nullptr;
    QLineEdit* m_txtFind = nullptr;
    QToolButton* m_cmdClose = nullptr;
    engine::NameFilter m_filter;
};

} // namespace kestrel::views
