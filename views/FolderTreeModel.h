#pragma once

#include "Highlight.h"

#include "engine/compare/ShowMode.h"
#include "engine/model/NameMatching.h"

#include <QAbstractItemModel>
#include <QString>

#include <cstdint>
#include <vector>

namespace kestrel::engine {
class FolderIndex;
class Snapshot;
} // namespace kestrel::engine

namespace kestrel::views {

// The folder tree of a snapshot window (tvwPaths): the top node for the
// root folder and, beneath it, the folders the show mode keeps, each
// folder's children in name order. It is rebuilt whole, never patched.
//
// Every node has a key: "/" for the top, then the parent's key, the folder's
// name and "/". Keys are compared under the window's rule for names: exactly,
// so that two folders whose names differ only in case are both reached, or
// without regard to case, when only the first of them in the snapshot is. A
// node's tag is the index of the first entry inside its folder (0 for a
// folder without contents; the top's is 1 whenever the snapshot has any
// entry, so that the files of a root without folders are listed).
//
// It reads the snapshot and the folder index, which the window owns and
// keeps alive; it never walks the entry table itself.
class FolderTreeModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Role {
        KeyRole = Qt::UserRole + 1, // QString
        TagRole,                    // int
        EntryRole,                  // int: the folder's own entry, 0 for the top
    };

    FolderTreeModel(const engine::Snapshot& snapshot, const engine::FolderIndex& index,
                    QObject* parent = nullptr);

    // Fills the tree anew for a show mode; after a comparison (any mode but
    // None) folders without counterpart take the "No Match" colour and
    // folders with changes beneath them the "Changed" colour. Folders the
    // comparison did not cover are not coloured, and shown only as far as
    // the part allows. Folders the ignore patterns left out are shown, greyed,
    // only with showIgnored. The comparison root's mark is cleared.
    void rebuild(engine::ShowMode mode, const HighlightColours& colours,
                 const engine::ComparedPart& compared = {}, bool showIgnored = false);
    // Paints the nodes' highlights in other colours.
    void setColours(const HighlightColours& colours);

    // Whether any folder was added beneath the top.
    bool hasFolders() const { return m_nodes.size() > 1; }
    QModelIndex topIndex() const;
    // The node with this key, its names matched under the rule; invalid when
    // there is none.
    QModelIndex indexOfKey(const QString& key, engine::NameMatching matching) const;
    QString keyOf(const QModelIndex& index) const;
    int32_t tagOf(const QModelIndex& index) const;
    int32_t entryOf(const QModelIndex& index) const;

    // The node showing the image "Root": none after a rebuild.
    QModelIndex rootNode() const;
    void setRootNode(const QModelIndex& index);

    // QAbstractItemModel
    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    size_t memoryUsed() const;

private:
    struct Node {
        int32_t folder;     // in the folder index
        int32_t parent;     // node; -1 for the top
        int32_t row;        // among its parent's children
        int32_t firstChild; // node
        int32_t childCount;
        int32_t tag;
        engine::Highlight highlight;
    };

    int32_t nodeOf(const QModelIndex& index) const;
    QModelIndex indexOfNode(int32_t node) const;
    QString nameOf(int32_t node) const;

    const engine::Snapshot& m_snapshot;
    const engine::FolderIndex& m_index;
    std::vector<Node> m_nodes;
    HighlightColours m_colours;
    int32_t m_root = -1;
};

} // namespace kestrel::views
