#pragma once

#include "Highlight.h"

#include "engine/compare/HistoryIndex.h"

#include <QAbstractItemModel>
#include <QAbstractTableModel>

namespace kestrel::views {

// The generations of a history, one row each: number, created time, title,
// counts, and what changed since the one before.
class GenerationTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column {
        NumberColumn,
        CreatedColumn,
        TitleColumn,
        FilesColumn,
        FoldersColumn,
        ChangesColumn,
        ColumnCount
    };

    GenerationTableModel(const engine::History& history, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const engine::History& m_history;
    int m_firstReadable = -1;
};

// The folders of every generation as one tree under the root; a folder in
// which anything changed in the chosen range of generations is coloured.
class HistoryFolderModel : public QAbstractItemModel {
    Q_OBJECT
public:
    HistoryFolderModel(const engine::HistoryIndex& index, const HighlightColours& colours,
                       QObject* parent = nullptr);

    // The generations whose changes colour the folders (both included).
    void setRange(int first, int last);
    int32_t folderOf(const QModelIndex& index) const;
    QModelIndex indexOf(int32_t folder) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    const engine::HistoryIndex& m_index;
    HighlightColours m_colours;
    int m_first = 0;
    int m_last = 0;
};

// The entries directly inside one folder, a column for each generation:
// the size (or a mark where the entry was absent), coloured where it changed
// from the generation before.
class HistoryFileModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // What a click on a heading sorts by: the name, or the size in that
    // generation (an absent entry before every size), folders first.
    static constexpr int SortRole = Qt::UserRole;

    HistoryFileModel(const engine::HistoryIndex& index, const HighlightColours& colours,
                     QObject* parent = nullptr);

    void setFolder(int32_t folder);
    const engine::HistoryIndex::Row& rowAt(int row) const { return m_rows[size_t(row)]; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const engine::HistoryIndex& m_index;
    HighlightColours m_colours;
    std::vector<engine::HistoryIndex::Row> m_rows;
};

// One entry's line of life: a row for each generation with what changed,
// its size, modified time, attributes, permissions, owner, link target,
// version and fingerprint.
class LineOfLifeModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column {
        NumberColumn,
        ChangeColumn,
        SizeColumn,
        ModifiedColumn,
        AttributesColumn,
        PermissionsColumn,
        OwnerColumn,
        LinkTargetColumn,
        VersionColumn,
        FingerprintColumn,
        ColumnCount
    };

    LineOfLifeModel(const engine::HistoryIndex& index, const HighlightColours& colours,
                    QObject* parent = nullptr);

    // The entry whose life to show; none for an empty list.
    void setEntry(const engine::HistoryIndex::Row* row);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const engine::HistoryIndex& m_index;
    HighlightColours m_colours;
    std::vector<engine::HistoryIndex::State> m_states;
};

} // namespace kestrel::views
