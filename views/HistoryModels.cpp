#include "HistoryModels.h"

#include "engine/compare/Compare.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QPalette>

#include <iterator>

namespace kestrel::views {

using engine::HistoryIndex;
using engine::HistoryRecord;

namespace {

// How an entry changed in a generation; a change of values says which:
// "changed: permissions, owner".
QString changeWithFields(const engine::HistoryIndex::State& state) {
    const QString fields = engine::changedFieldsText(state.changedBits);
    QString text = fields.isEmpty()
                       ? engine::changeText(state.change)
                       : engine::changeText(state.change) + QStringLiteral(": ") + fields;
    if (state.alert != engine::AccessAlert::None)
        text += QStringLiteral(" (now %1)").arg(engine::alertAdjective(state.alert));
    return text;
}

QColor greyed() {
    return QGuiApplication::palette().color(QPalette::Disabled, QPalette::Text);
}

// A cell's text for an entry's state: its size, "dir" for a folder, a dash
// where it was absent, "?" where its generation could not be read.
QString stateText(const HistoryIndex::State& state, bool folder) {
    if (!state.readable)
        return QStringLiteral("?");
    if (!state.present)
        return QStringLiteral("\u2014");
    return folder ? QStringLiteral("dir") : engine::formatCount(state.size);
}

} // namespace

// Generations -------------------------------------------------------------------------

GenerationTableModel::GenerationTableModel(const engine::History& history, QObject* parent)
    : QAbstractTableModel(parent), m_history(history) {
    for (size_t g = 0; g < history.generations.size(); ++g)
        if (history.generations[g].readable()) {
            m_firstReadable = int(g);
            break;
        }
}

int GenerationTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_history.generations.size());
}

int GenerationTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant GenerationTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const engine::Generation& g = m_history.generations[size_t(index.row())];
    if (role == Qt::ToolTipRole)
        return g.path;
    if (role == Qt::ForegroundRole && !g.readable())
        return greyed();
    if (role == Qt::TextAlignmentRole &&
        (index.column() == FilesColumn || index.column() == FoldersColumn))
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
    case NumberColumn:
        return engine::generationName(g);
    case CreatedColumn:
        return g.readable() ? engine::generalDateText(g.created) : QString();
    case TitleColumn:
        return engine::visibleText(g.title);
    case FilesColumn:
        return g.readable() ? engine::formatCount(g.files) : QString();
    case FoldersColumn:
        return g.readable() ? engine::formatCount(g.folders) : QString();
    case ChangesColumn:
        if (!g.readable())
            return g.error;
        return index.row() == m_firstReadable ? QString() : engine::generationChangesText(g);
    default:
        return {};
    }
}

QVariant GenerationTableModel::headerData(int section, Qt::Orientation orientation,
                                          int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const headings[] = {"Snapshot", "Created", "Title",
                                           "Files",    "Folders", "Changes"};
    return section >= 0 && section < ColumnCount ? QString::fromLatin1(headings[section])
                                                 : QVariant();
}

// Folders -----------------------------------------------------------------------------

HistoryFolderModel::HistoryFolderModel(const HistoryIndex& index, const HighlightColours& colours,
                                       QObject* parent)
    : QAbstractItemModel(parent), m_index(index), m_colours(colours),
      m_last(int(index.history().generations.size()) - 1) {}

void HistoryFolderModel::setRange(int first, int last) {
    m_first = first;
    m_last = last;
    // Every node may change colour: the views repaint without losing what
    // is expanded or selected.
    Q_EMIT layoutAboutToBeChanged();
    Q_EMIT layoutChanged();
}

int32_t HistoryFolderModel::folderOf(const QModelIndex& index) const {
    return index.isValid() ? int32_t(index.internalId()) : -1;
}

QModelIndex HistoryFolderModel::indexOf(int32_t folder) const {
    if (folder < 0 || size_t(folder) >= m_index.folders().size())
        return {};
    return createIndex(m_index.folders()[size_t(folder)].row, 0, quintptr(folder));
}

QModelIndex HistoryFolderModel::index(int row, int column, const QModelIndex& parent) const {
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row == 0 ? createIndex(0, 0, quintptr(0)) : QModelIndex();
    const auto& children = m_index.folders()[size_t(parent.internalId())].children;
    if (size_t(row) >= children.size())
        return {};
    return createIndex(row, 0, quintptr(children[size_t(row)]));
}

QModelIndex HistoryFolderModel::parent(const QModelIndex& child) const {
    if (!child.isValid())
        return {};
    return indexOf(m_index.folders()[size_t(child.internalId())].parent);
}

int HistoryFolderModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid())
        return 1;
    if (parent.column() != 0)
        return 0;
    return int(m_index.folders()[size_t(parent.internalId())].children.size());
}

int HistoryFolderModel::columnCount(const QModelIndex&) const {
    return 1;
}

QVariant HistoryFolderModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const int32_t folder = int32_t(index.internalId());
    const HistoryIndex::Folder& f = m_index.folders()[size_t(folder)];
    switch (role) {
    case Qt::DisplayRole:
        if (folder == 0) {
            const engine::Snapshot* latest = m_index.history().latest.get();
            return latest ? engine::visibleText(latest->header.rootFolder) : QStringLiteral("/");
        }
        return engine::visibleText(QString::fromStdString(f.name));
    case Qt::BackgroundRole:
        return m_index.changedIn(folder, m_first, m_last) ? QVariant(m_colours.changed)
                                                          : QVariant();
    case Qt::ToolTipRole:
        return engine::visibleText(QString::fromStdString(f.path));
    default:
        return {};
    }
}

// Files -------------------------------------------------------------------------------

HistoryFileModel::HistoryFileModel(const HistoryIndex& index, const HighlightColours& colours,
                                   QObject* parent)
    : QAbstractTableModel(parent), m_index(index), m_colours(colours) {}

void HistoryFileModel::setFolder(int32_t folder) {
    beginResetModel();
    m_rows = folder >= 0 ? m_index.rowsOf(folder) : std::vector<HistoryIndex::Row>();
    endResetModel();
}

int HistoryFileModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_rows.size());
}

int HistoryFileModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : 1 + int(m_index.history().generations.size());
}

QVariant HistoryFileModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const HistoryIndex::Row& row = m_rows[size_t(index.row())];
    if (index.column() == 0) {
        if (role == Qt::DisplayRole)
            return engine::visibleText(QString::fromStdString(row.name)) +
                   (row.folder ? QStringLiteral("/") : QString());
        if (role == SortRole) // the rows' own order: folders first, then by name
            return index.row();
        // A name is called out, as in a snapshot window, where a change of
        // the entry calls for attention.
        if ((role == Qt::ForegroundRole || role == Qt::FontRole) && m_index.callsForAttention(row))
            return role == Qt::FontRole ? highlightFont(engine::Highlight::Alert)
                                        : highlightForeground(engine::Highlight::Alert, m_colours);
        return {};
    }
    const HistoryIndex::State state = m_index.stateOf(row, index.column() - 1);
    switch (role) {
    case SortRole:
        return row.folder ? -2.0 : state.present ? state.size : -1.0;
    case Qt::DisplayRole:
        return stateText(state, row.folder);
    case Qt::TextAlignmentRole:
        return int(Qt::AlignRight | Qt::AlignVCenter);
    case Qt::BackgroundRole:
        return state.change != HistoryRecord::Before ? QVariant(m_colours.changed) : QVariant();
    case Qt::ForegroundRole:
        // A dash on the Changed colour says the entry went: left black.
        return (state.readable && state.present) || state.change != HistoryRecord::Before
                   ? QVariant()
                   : QVariant(greyed());
    case Qt::ToolTipRole: {
        QString tip = changeWithFields(state);
        if (state.present)
            tip += (tip.isEmpty() ? QString() : QStringLiteral("\n")) +
                   engine::modifiedText(state.modified);
        return tip;
    }
    default:
        return {};
    }
}

QVariant HistoryFileModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    if (section == 0)
        return QStringLiteral("Name");
    const auto& generations = m_index.history().generations;
    return section <= int(generations.size())
               ? QVariant(engine::generationName(generations[size_t(section - 1)]))
               : QVariant();
}

// Line of life ------------------------------------------------------------------------

LineOfLifeModel::LineOfLifeModel(const HistoryIndex& index, const HighlightColours& colours,
                                 QObject* parent)
    : QAbstractTableModel(parent), m_index(index), m_colours(colours) {}

void LineOfLifeModel::setEntry(const HistoryIndex::Row* row) {
    beginResetModel();
    m_states.clear();
    if (row)
        for (int g = 0; g < int(m_index.history().generations.size()); ++g)
            m_states.push_back(m_index.stateOf(*row, g));
    endResetModel();
}

int LineOfLifeModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_states.size());
}

int LineOfLifeModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LineOfLifeModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const HistoryIndex::State& s = m_states[size_t(index.row())];
    if (role == Qt::BackgroundRole)
        return s.change != HistoryRecord::Before ? QVariant(m_colours.changed) : QVariant();
    const bool alert = s.alert != engine::AccessAlert::None && index.column() == ChangeColumn;
    if (role == Qt::FontRole)
        return alert ? highlightFont(engine::Highlight::Alert) : QVariant();
    if (role == Qt::ForegroundRole) {
        if (alert)
            return highlightForeground(engine::Highlight::Alert, m_colours);
        return (s.readable && s.present) || s.change != HistoryRecord::Before ? QVariant()
                                                                              : QVariant(greyed());
    }
    if (role != Qt::DisplayRole)
        return {};
    const engine::Generation& g = m_index.history().generations[size_t(index.row())];
    if (index.column() == NumberColumn)
        return engine::generationName(g);
    if (index.column() == ChangeColumn)
        return changeWithFields(s);
    if (!s.readable)
        return index.column() == SizeColumn ? QStringLiteral("could not be read") : QString();
    if (!s.present)
        return index.column() == SizeColumn ? QStringLiteral("absent") : QString();
    switch (index.column()) {
    case SizeColumn:
        return engine::formatCount(s.size);
    case ModifiedColumn:
        return engine::modifiedText(s.modified);
    case AttributesColumn:
        return engine::AttributeText(s.attributes);
    case PermissionsColumn:
        return s.access ? engine::permissionsText(s.access->mode, engine::kindLetter(s.attributes))
                        : QString();
    case OwnerColumn:
        return s.access ? engine::ownerText(s.access->owner, s.access->group) : QString();
    case LinkTargetColumn:
        return s.linkTarget.empty() ? QString() : engine::linkTargetText(s.linkTarget);
    case VersionColumn:
        return QString::fromUtf8(s.version.data(), qsizetype(s.version.size()));
    case FingerprintColumn:
        return s.fingerprint ? QString::fromStdString(engine::fingerprintHex(*s.fingerprint))
                             : QString();
    default:
        return {};
    }
}

QVariant LineOfLifeModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const headings[] = {"Snapshot",   "Change",      "Size",  "Modified",
                                           "Attributes", "Permissions", "Owner", "Link target",
                                           "Version",    "Fingerprint"};
    static_assert(std::size(headings) == ColumnCount);
    return section >= 0 && section < ColumnCount ? QString::fromLatin1(headings[section])
                                                 : QVariant();
}

} // namespace kestrel::views
