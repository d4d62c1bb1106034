#include "FindBar.h"

#include "FileGridModel.h"
#include "FileGridView.h"
#include "FolderTreeModel.h"
#include "SnapshotWindow.h"

#include "listing/RowSelection.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>

namespace kestrel::views {

FindBar::FindBar(SnapshotWindow& window) : QWidget(&window), m_window(window) {
    setObjectName(QStringLiteral("fraFind"));
    m_lblFind = new QLabel(QStringLiteral("&Find:"), this);
    m_txtFind = new QLineEdit(this);
    m_txtFind->setObjectName(QStringLiteral("txtFind"));
    m_txtFind->setPlaceholderText(QStringLiteral("Part of a name, or a pattern with * and ?"));
    m_txtFind->setClearButtonEnabled(true);
    m_txtFind->installEventFilter(this);
    m_lblFind->setBuddy(m_txtFind);
    m_cmdClose = new QToolButton(this);
    m_cmdClose->setObjectName(QStringLiteral("cmdFindClose"));
    m_cmdClose->setText(QStringLiteral("Close"));
    m_cmdClose->setToolTip(QStringLiteral("Close the find bar (Esc)"));
    m_cmdClose->setAutoRaise(true);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->addWidget(m_lblFind);
    layout->addWidget(m_txtFind, 1);
    layout->addWidget(m_cmdClose);

    connect(m_txtFind, &QLineEdit::textChanged, this, &FindBar::txtFind_Change);
    connect(m_txtFind, &QLineEdit::returnPressed, this, &FindBar::findNext);
    connect(m_cmdClose, &QToolButton::clicked, this, &FindBar::close);
    hide();
}

void FindBar::open() {
    const bool wasHidden = isHidden();
    show();
    if (wasHidden)
        m_window.findBarChanged();
    m_txtFind->setFocus(Qt::ShortcutFocusReason);
    m_txtFind->selectAll();
}

void FindBar::close() {
    if (isHidden())
        return;
    hide();
    m_window.findBarChanged();
    m_window.grid()->setFocus(Qt::OtherFocusReason);
}

const engine::NameFilter* FindBar::activeFilter() const {
    return isHidden() || m_filter.empty() ? nullptr : &m_filter;
}

void FindBar::txtFind_Change(const QString& text) {
    m_filter = engine::NameFilter(text);
    m_window.findBarChanged();
}

bool FindBar::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_txtFind && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        close();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

int32_t FindBar::searchStart() const {
    const QModelIndex current = m_window.grid()->currentIndex();
    const engine::FileList& rows = m_window.gridModel().rows();
    if (current.isValid() && current.row() < rows.rowCount())
        return rows.entryAt(current.row());
    return m_window.treeModel().entryOf(m_window.selectedNode());
}

bool FindBar::findNext() {
    if (m_filter.empty() || m_window.host().busy())
        return false;
    const engine::Snapshot& snapshot = m_window.snapshot();
    const engine::ShowMode mode = m_window.showMode();
    // Only an entry the window can show: in a folder the tree reaches, with
    // a row in its list.
    const bool showIgnored = m_window.showsIgnored();
    const int32_t found =
        engine::findNextEntry(snapshot, searchStart(), m_filter, [&](int32_t index) {
            const engine::SnapshotEntry& e = snapshot.entries.get(index);
            return engine::rowListed(e, mode, showIgnored) &&
                   engine::folderReachable(snapshot, e.parent, mode);
        });
    if (found == 0)
        return false;
    return m_window.selectEntry(found);
}

// The window's find commands ------------------------------------------------

void SnapshotWindow::mnuEditFind_Click() {
    m_findBar->open();
}

void SnapshotWindow::mnuEditFindNext_Click() {
    if (!m_findBar->activeFilter())
        m_findBar->open();
    else
        m_findBar->findNext();
}

void SnapshotWindow::findBarChanged() {
    layOutControls();
    if (!m_host.busy())
        RefreshList(nullptr);
}

} // namespace kestrel::views
