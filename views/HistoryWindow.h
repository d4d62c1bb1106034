#pragma once

#include "Highlight.h"

#include "engine/compare/HistoryIndex.h"

#include <QWidget>

#include <memory>

class QSortFilterProxyModel;
class QTableView;
class QTreeView;

namespace kestrel::views {

class GenerationTableModel;
class HistoryFileModel;
class HistoryFolderModel;
class LineOfLifeModel;

// A folder's history in one window: its generations on top; below, the
// folders of every generation, coloured where something changed in the
// generations chosen on top, and the selected folder's entries with a cell
// for each generation; the selected entry's line of life at the bottom.
// Choosing two generations (or one, with the one before it) and pressing
// Enter, or double-clicking, asks for them as a compared pair.
class HistoryWindow : public QWidget {
    Q_OBJECT
public:
    HistoryWindow(std::unique_ptr<engine::History> history, const HighlightColours& colours,
                  QWidget* parent = nullptr);
    ~HistoryWindow() override;

    const engine::History& history() const { return *m_history; }
    QTableView* generations() const { return m_generations; }
    QTreeView* folders() const { return m_folders; }
    QTableView* files() const { return m_files; }
    QTableView* lineOfLife() const { return m_life; }
    const HistoryFileModel& fileModel() const { return *m_fileModel; }
    const LineOfLifeModel& lifeModel() const { return *m_lifeModel; }

    // Selects the folder with this path below the root ("" for the top,
    // "sub/dir/"); false when no generation had it.
    bool selectFolder(const std::string& path);

Q_SIGNALS:
    // The two generations' snapshot files, the earlier first.
    void compareRequested(const QString& older, const QString& newer);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void generationsChosen();
    void folderChosen();
    void entryChosen();
    void compareChosen();

    std::unique_ptr<engine::History> m_history;
    std::unique_ptr<engine::HistoryIndex> m_index;
    GenerationTableModel* m_generationModel = nullptr;
    HistoryFolderModel* m_folderModel = nullptr;
    HistoryFileModel* m_fileModel = nullptr;
    QSortFilterProxyModel* m_sortedFiles = nullptr;
    LineOfLifeModel* m_lifeModel = nullptr;
    QTableView* m_generations = nullptr;
    QTreeView* m_folders = nullptr;
    QTableView* m_files = nullptr;
    QTableView* m_life = nullptr;
};

} // namespace kestrel::views
