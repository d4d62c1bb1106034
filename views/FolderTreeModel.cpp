#include "FolderTreeModel.h"

#include "FolderImages.h"

#include "engine/model/CaseFold.h"
#include "engine/model/FolderIndex.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"
#include "listing/RowSelection.h"

#include <algorithm>

namespace kestrel::views {

using engine::Highlight;
using engine::Separator;
using engine::ShowMode;

FolderTreeModel::FolderTreeModel(const engine::Snapshot& snapshot, const engine::FolderIndex& index,
                                 QObject* parent)
    : QAbstractItemModel(parent), m_snapshot(snapshot), m_index(index) {
    rebuild(ShowMode::None, {});
}

void FolderTreeModel::rebuild(ShowMode mode, const HighlightColours& colours,
                              const engine::ComparedPart& compared, bool showIgnored) {
    beginResetModel();
    m_colours = colours;
    m_root = -1;
    m_nodes.clear();
    m_nodes.push_back({0, -1, 0, 1, 0, 0, Highlight::None});
    // Level by level, so that the children of a node lie side by side.
    for (size_t n = 0; n < m_nodes.size(); ++n) {
        const auto first = int32_t(m_nodes.size());
        int32_t count = 0;
        for (const int32_t folder : m_index.subFolders(m_nodes[n].folder)) {
            const int32_t entry = m_index.entryOf(folder);
            const engine::SnapshotEntry& e = m_snapshot.entries.get(entry);
            const bool covered = compared.covers(entry);
            // A hidden folder hides everything beneath it too.
            if (covered ? !engine::folderVisible(e, mode) : !compared.shownOutside(entry, mode))
                continue;
            const bool ignored = mode != ShowMode::None && covered && e.isIgnored();
            if (ignored && !showIgnored)
                continue;
            const bool contents = engine::hasContents(m_snapshot, entry);
            Highlight highlight = Highlight::None;
            if (ignored) {
                highlight = Highlight::Ignored;
            } else if (mode != ShowMode::None && covered) {
                if (e.match == 0)
                    highlight = Highlight::Deleted;
                else if (contents && e.status >= 1)
                    highlight = Highlight::Changed;
            }
            m_nodes.push_back(
                {folder, int32_t(n), count, 0, 0, engine::folderTag(m_snapshot, entry), highlight});
            ++count;
        }
        m_nodes[n].firstChild = first;
        m_nodes[n].childCount = count;
    }
    m_nodes[0].tag = engine::folderTag(m_snapshot, 0);
    endResetModel();
}

void FolderTreeModel::setColours(const HighlightColours& colours) {
    m_colours = colours;
    const QList<int> roles{Qt::ForegroundRole, Qt::BackgroundRole};
    const QModelIndex top = topIndex();
    Q_EMIT dataChanged(top, top, roles);
    // One notice for each node's children, which lie side by side.
    for (const Node& node : m_nodes)
        if (node.childCount > 0)
            Q_EMIT dataChanged(indexOfNode(node.firstChild),
                               indexOfNode(node.firstChild + node.childCount - 1), roles);
}

int32_t FolderTreeModel::nodeOf(const QModelIndex& index) const {
    if (!index.isValid() || index.model() != this)
        return -1;
    return int32_t(index.internalId());
}

QModelIndex FolderTreeModel::indexOfNode(int32_t node) const {
    if (node < 0 || size_t(node) >= m_nodes.size())
        return {};
    return createIndex(m_nodes[size_t(node)].row, 0, quintptr(node));
}

QModelIndex FolderTreeModel::topIndex() const {
    return indexOfNode(0);
}

QString FolderTreeModel::nameOf(int32_t node) const {
    return m_snapshot.nameText(m_index.entryOf(m_nodes[size_t(node)].folder));
}

QModelIndex FolderTreeModel::indexOfKey(const QString& key, engine::NameMatching matching) const {
    if (!key.startsWith(Separator) || !key.endsWith(Separator))
        return {};
    int32_t node = 0;
    const QStringList names = key.mid(1).split(Separator);
    // The key ends with a separator, so the last part is empty.
    for (qsizetype part = 0; part + 1 < names.size(); ++part) {
        const std::string wanted = names[part].toUtf8().toStdString();
        const std::string wantedFolded = engine::foldCase(wanted);
        const Node& parent = m_nodes[size_t(node)];
        const auto begin = size_t(parent.firstChild);
        const auto end = begin + size_t(parent.childCount);
        const auto name = [this](size_t child) {
            return m_snapshot.nameOf(
                m_snapshot.entries.get(m_index.entryOf(m_nodes[child].folder)));
        };
        // Children are in folded-name order, names equal but for case in
        // snapshot order: find the first of the wanted name in any case, then
        // among those the one the rule accepts.
        size_t low = begin, high = end;
        while (low < high) {
            const size_t middle = low + (high - low) / 2;
            if (engine::foldCase(name(middle)) < wantedFolded)
                low = middle + 1;
            else
                high = middle;
        }
        while (low < end && engine::foldCase(name(low)) == wantedFolded &&
               !engine::namesMatch(name(low), wanted, matching))
            ++low;
        if (low == end || engine::foldCase(name(low)) != wantedFolded)
            return {};
        node = int32_t(low);
    }
    return indexOfNode(node);
}

QString FolderTreeModel::keyOf(const QModelIndex& index) const {
    int32_t node = nodeOf(index);
    if (node < 0)
        return {};
    QString key(Separator);
    QStringList names;
    for (; node > 0; node = m_nodes[size_t(node)].parent)
        names.prepend(nameOf(node));
    for (const QString& name : names)
        key += name + Separator;
    return key;
}

int32_t FolderTreeModel::tagOf(const QModelIndex& index) const {
    const int32_t node = nodeOf(index);
    return node < 0 ? 0 : m_nodes[size_t(node)].tag;
}

int32_t FolderTreeModel::entryOf(const QModelIndex& index) const {
    const int32_t node = nodeOf(index);
    return node < 0 ? 0 : m_index.entryOf(m_nodes[size_t(node)].folder);
}

QModelIndex FolderTreeModel::rootNode() const {
    return indexOfNode(m_root);
}

void FolderTreeModel::setRootNode(const QModelIndex& index) {
    const QModelIndex previous = rootNode();
    m_root = nodeOf(index);
    if (previous.isValid())
        Q_EMIT dataChanged(previous, previous, {Qt::DecorationRole});
    if (index.isValid())
        Q_EMIT dataChanged(index, index, {Qt::DecorationRole});
}

QModelIndex FolderTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row == 0 ? indexOfNode(0) : QModelIndex();
    const int32_t node = nodeOf(parent);
    if (node < 0)
        return {};
    const Node& p = m_nodes[size_t(node)];
    if (row >= p.childCount)
        return {};
    return createIndex(row, 0, quintptr(p.firstChild + row));
}

QModelIndex FolderTreeModel::parent(const QModelIndex& child) const {
    const int32_t node = nodeOf(child);
    if (node <= 0)
        return {};
    return indexOfNode(m_nodes[size_t(node)].parent);
}

int FolderTreeModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid())
        return 1;
    if (parent.column() != 0)
        return 0;
    const int32_t node = nodeOf(parent);
    return node < 0 ? 0 : m_nodes[size_t(node)].childCount;
}

int FolderTreeModel::columnCount(const QModelIndex&) const {
    return 1;
}

QVariant FolderTreeModel::data(const QModelIndex& index, int role) const {
    const int32_t node = nodeOf(index);
    if (node < 0)
        return {};
    const Node& n = m_nodes[size_t(node)];
    switch (role) {
    case Qt::DisplayRole:
        return engine::visibleText(node == 0 ? m_snapshot.header.rootFolder : nameOf(node));
    case Qt::DecorationRole:
        return node == m_root ? rootIcon() : folderIcon();
    case Qt::ForegroundRole:
        return highlightForeground(n.highlight, m_colours);
    case Qt::BackgroundRole:
        return highlightBackground(n.highlight, m_colours);
    case KeyRole:
        return keyOf(index);
    case TagRole:
        return n.tag;
    case EntryRole:
        return m_index.entryOf(n.folder);
    default:
        return {};
    }
}

size_t FolderTreeModel::memoryUsed() const {
    return m_nodes.capacity() * sizeof(Node);
}

} // namespace kestrel::views
