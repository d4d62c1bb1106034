#pragma once

#include <QTreeView>

namespace kestrel::views {

// The view of a snapshot window's folder tree (tvwPaths). A node is clicked
// when the mouse presses it, even when it was selected already (that brings
// the other window of a pair back to it), and when the keyboard selects it
// as it makes it current. Nodes the window selects itself are no clicks.
class FolderTreeView : public QTreeView {
    Q_OBJECT
public:
    explicit FolderTreeView(QWidget* parent = nullptr);

    // The node both current and selected; invalid when there is none.
    QModelIndex selectedNode() const;
    // Makes a node current and selected, its parents expanded and the node
    // scrolled into sight.
    void selectNode(const QModelIndex& node);
    void clearSelectedNode();

Q_SIGNALS:
    // tvwPaths_NodeClick's event: the user chose the node.
    void nodeClicked(const QModelIndex& node);

protected:
    void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;

private:
    void nodePressed(const QModelIndex& node);

    // Set while the window selects a node itself.
    bool m_selecting = false;
};

} // namespace kestrel::views
