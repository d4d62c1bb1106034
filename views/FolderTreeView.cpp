#include "FolderTreeView.h"

#include "SelectionDelegate.h"

#include <utility>

namespace kestrel::views {

FolderTreeView::FolderTreeView(QWidget* parent) : QTreeView(parent) {
    setHeaderHidden(true);
    setUniformRowHeights(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setItemDelegate(new SelectionDelegate(this));
    connect(this, &QAbstractItemView::pressed, this, &FolderTreeView::nodePressed);
}

QModelIndex FolderTreeView::selectedNode() const {
    const QModelIndex current = selectionModel()->currentIndex();
    if (!current.isValid() || !selectionModel()->isSelected(current))
        return {};
    return current;
}

void FolderTreeView::selectNode(const QModelIndex& node) {
    const bool was = std::exchange(m_selecting, true);
    for (QModelIndex up = node.parent(); up.isValid(); up = up.parent())
        expand(up);
    selectionModel()->setCurrentIndex(node, QItemSelectionModel::ClearAndSelect);
    scrollTo(node);
    m_selecting = was;
}

void FolderTreeView::clearSelectedNode() {
    const bool was = std::exchange(m_selecting, true);
    selectionModel()->clear();
    m_selecting = was;
}

void FolderTreeView::nodePressed(const QModelIndex& node) {
    if (!node.isValid())
        return;
    // The click makes the node current and selected whatever the view made
    // of it (a Ctrl+click deselects), and counts even when it was selected
    // already.
    selectNode(node);
    Q_EMIT nodeClicked(node);
}

void FolderTreeView::currentChanged(const QModelIndex& current, const QModelIndex& previous) {
    QTreeView::currentChanged(current, previous);
    // The keyboard selects a node as it makes it current. A mouse press
    // makes it current first and selects it afterwards: that one is left
    // to nodePressed, which sees the node selected.
    if (m_selecting || !current.isValid() || !selectionModel()->isSelected(current))
        return;
    Q_EMIT nodeClicked(current);
}

} // namespace kestrel::views
