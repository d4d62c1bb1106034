#pragma once

#include "FileGridView.h"
#include "FolderTreeView.h"
#include "GridSort.h"
#include "Highlight.h"
#include "SnapshotCommands.h"
#include "SnapshotHost.h"

#include "engine/compare/ShowMode.h"
#include "engine/model/FolderIndex.h"
#include "engine/model/Snapshot.h"
#include "listing/RowSelection.h"

#include <QAction>
#include <QList>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <cstdint>
#include <memory>

class QComboBox;
class QMenu;
class QModelIndex;

namespace kestrel::views {

class FileGridModel;
class FindBar;
class FolderTreeModel;
class SnapshotStatusBar;
class SplitterBar;

// frmSnap: the window of one snapshot inside the main window, with the
// folder tree (tvwPaths) left of the splitter (picSplit) under the show
// selector (cboShow), the file grid (grdFiles) right of it, the status bar
// (sbrStatus) along the bottom, and a menu of its own that takes the place
// of the main window's while the window is active.
//
// It owns its snapshot for its whole life, with the snapshot's number, its
// changed mark (set while the snapshot differs from its file, so closing
// asks to save) and its caption. With a second snapshot window open the two
// are paired (SnapshotPair.h): they are compared with each other, and
// selecting a folder or scrolling the grid in one follows in the other.
class SnapshotWindow : public QWidget {
    Q_OBJECT
public:
    // The sort columns, numbered from 1 as SortSequence takes them.
    static constexpr int SortByName = GridSort::NameColumn;
    static constexpr int SortBySize = 3;
    static constexpr int SortByModified = 5;
    static constexpr int SortByAttributes = 6;
    // Sub-folder files are never listed when they would give more rows.
    static constexpr int32_t SubFolderEntryLimit = engine::SubFolderRowLimit;
    // The splitter keeps this far from either edge of the window, in twips.
    static constexpr int SplitMargin = 2300;

    // The window's menus hold the frame's commands too; the frame keeps them
    // for as long as the window lives.
    SnapshotWindow(SnapshotHost& host, const FrameActions& frameActions, QWidget* parent = nullptr);
    ~SnapshotWindow() override;

    SnapshotHost& host() const { return m_host; }
    engine::Snapshot& snapshot() { return m_snapshot; }
    const engine::Snapshot& snapshot() const { return m_snapshot; }

    int16_t number() const { return m_number; }
    void setNumber(int16_t number) { m_number = number; }

    bool changed() const { return m_changed; }
    void setChanged(bool changed) { m_changed = changed; }

    // Where a snapshot not saved yet is proposed to be saved: beside the
    // snapshot it repeats or branches from, so a series stays in one folder.
    // Empty when it was made from nothing saved.
    QString seriesFolder() const { return m_seriesFolder; }
    void setSeriesFolder(const QString& folder) { m_seriesFolder = folder; }

    QString caption() const { return windowTitle(); }
    void setCaption(const QString& caption) { setWindowTitle(caption); }

    // The scan or load is complete: indexes the snapshot's folders and
    // builds the tree. A snapshot whose links are damaged fails with
    // "Subscript out of range" under the given title and shows nothing.
    engine::Outcome showSnapshot(const QString& failureTitle);

    // The window's commands, and the menus it puts in the main window's
    // menu bar while active. Save As, Repeat, Branch and Title are carried
    // out by the frame, which connects them.
    const SnapshotCommands& commands() const { return *m_commands; }
    const QList<QMenu*>& menus() const { return m_commands->menus(); }
    // The command of the window's menus with this name (mnuViewSubs ...).
    QAction* action(const QString& name) const { return m_commands->action(name); }

    // Form_Activate: run by the main window when this window becomes the
    // active snapshot window. Pairs it with the window active before (or
    // returns it to the uncompared state when it is alone) and enables the
    // commands for the number of windows.
    void Form_Activate();

    // Commands of the window's menu.
    // Export, print and preview the file list as the window shows it now.
    void mnuFileExport_Click();
    // Writes the changes between this snapshot and the one it is compared
    // with to a file the user names: an HTML page, JSON or JSON lines.
    void mnuFileExportReport_Click();
    void mnuFilePrint_Click();
    void mnuFilePrintPreview_Click();
    void mnuFileClose_Click();
    void mnuCompareNow_Click();
    // The Compare menu opens: Comparison Root is checked on the root.
    void mnuCompare_Open();
    // The selected folder becomes the comparison root (moveComparisonRoot).
    void mnuCompareRoot_Click();
    void mnuViewBytes_Click();
    void mnuViewSubs_Click();
    void mnuViewScroll_Click();
    void mnuViewSynch_Click();
    // Find opens the find bar over the grid; Find Next goes to the next
    // entry whose name passes it (FindBar.h).
    void mnuEditFind_Click();
    void mnuEditFindNext_Click();
    FindBar* findBar() const { return m_findBar; }
    // View > Show Ignored Entries: the entries a comparison's ignore
    // patterns left out are listed, greyed.
    bool showsIgnored() const { return checked(SnapshotCommand::ShowIgnored); }
    // The find bar opened, closed or took another text: the grid lists the
    // folder again through it.
    void findBarChanged();

    // The pair's side of the window (SnapshotPair.h). The paired window is
    // null when there is none.
    SnapshotWindow* pairedWindow() const { return m_pair; }
    // Pairs the window with another, or with none; the grid forgets a
    // snapshot it was compared with as the pair changes.
    void setPair(SnapshotWindow* window);
    // Whether the last comparison found moves to or from this snapshot.
    bool hasMoves() const;
    // Enables the show selector and shows the comparison just made.
    void showComparison();
    // While held, a rebuilt tree does not compare on its own.
    bool comparisonHeld() const { return m_comparisonHeld; }
    void setComparisonHeld(bool held) { m_comparisonHeld = held; }
    // The entry a comparison starts from: the first beneath the comparison
    // root; 0 when there is nothing to compare.
    int32_t comparisonTop() const;
    // Makes a node this window's comparison root, with the image "Root".
    void markComparisonRoot(const QModelIndex& node);
    // The comparison root's key without its leading separator ("" for the
    // top) and the index of its first entry.
    QString rootKey() const { return m_rootKey; }
    int32_t rootIndex() const { return m_rootIndex; }

    // The folder tree.
    const FolderTreeModel& treeModel() const { return *m_treeModel; }
    FolderTreeView* tree() const { return m_tvwPaths; }
    // Build tree: fills the tree for the show mode, marks the comparison
    // root, reopens the folder selected last anywhere, compares when paired
    // and never compared, and lists the selected folder.
    void BuildTree();
    // Selects the node with this key (its names matched under nameMatching)
    // and lists it; false when the tree has no such node.
    bool selectFolder(const QString& key);
    // Lists the entry's folder and makes the entry's row the current one;
    // false when the show mode hides the folder or the row.
    bool selectEntry(int32_t entry);
    // How this window tells names and keys apart: the rule of its pair when
    // it has one, else its snapshot's own (exact for a snapshot made on
    // POSIX, without regard to case for one made on Windows).
    engine::NameMatching nameMatching() const;
    QModelIndex selectedNode() const;
    QString selectedKey() const;

    // The file grid.
    const FileGridModel& gridModel() const { return *m_gridModel; }
    FileGridView* grid() const { return m_grdFiles; }
    // RefreshScreen: lists the folder whose first entry is tag (its node's
    // key is key), with sub-folder files when asked and allowed.
    void RefreshScreen(int32_t tag, const QString& key);
    // SortSequence: sorts the grid by a column numbered from 1; the same
    // column again reverses the order.
    void SortSequence(int column);
    int sortColumn() const { return m_sort.column(); }
    bool sortDescending() const { return m_sort.descending(); }
    // Double-clicking a row: a folder row opens that folder in the tree (in
    // the desktop's file manager with "Explore" on); a file row opens the
    // file in its application, or with "Shell" set to the external program,
    // hands it and its counterpart to that program.
    void grdFiles_DblClick(int row, int column = engine::NameColumn);
    // Shows the options' effects at once: paints the tree in the highlight
    // colours and lists the selected folder again, as a click on its node
    // does.
    void refreshFolder();
    // ScrollPosition: makes the first row of the given name (and In Folder
    // text, when given) the top row of the grid, names matched under
    // nameMatching.
    void ScrollPosition(const QString& name, const QString& folder = QString());
    // Grid scroll handling: the paired window scrolls to this grid's top
    // row, when the user scrolled this grid or this window is the active one.
    void grdFiles_Scroll();
    int topRow() const;
    bool showsSubFolders() const { return m_subFolders; }

    // The show selector.
    QComboBox* showSelector() const { return m_cboShow; }
    engine::ShowMode showMode() const { return m_showMode; }
    bool compared() const;
    // Selects a position of the show selector (-1: none) and runs its handler.
    void setShowPosition(int position);

    SnapshotStatusBar* statusBar() const { return m_sbrStatus; }
    // ShowChanges: the change summary for the changes panel.
    QString ShowChanges() const;
    // Puts the change summary into the changes panel.
    void showChangeSummary();
    // No folder of the other window matched the one selected there: the
    // grid lists nothing and the status bar says why.
    void showNoMatchingFolder(bool rootsDiffer);

    // GetParameter: the full path of an entry, the root folder joined with
    // the names up its parent chain.
    QString GetParameter(int32_t index) const;

protected:
    // Form_QueryUnload: a changed snapshot asks to be saved first.
    void closeEvent(QCloseEvent* event) override;
    // Form_Resize
    void resizeEvent(QResizeEvent* event) override;

private:
    void createControls();
    // Opens an entry's file or folder through the desktop.
    void launchEntry(int32_t entry);

    void cboShow_Click();
    void tvwPaths_NodeClick(const QModelIndex& node);
    void picSplit_MouseUp(int x);
    void layOutControls();

    void RefreshList(engine::ProgressMeter* meter);
    // How the grid lists the current folder: the show mode, the files of
    // sub-folders, the options that leave rows or keys out, the sort.
    engine::RowSelection rowSelection() const;
    // The header's sort mark and the first row current once rows are
    // sorted; Scroll Together goes off unless they are in name order.
    void showSortOrder();
    void updateStatusBar();
    engine::GridLayout gridLayout() const;
    void applyColumnWidths();
    bool isActiveSnapshotWindow() const;
    HighlightColours colours() const;
    void optionsSynchChanged(bool on);
    bool checked(SnapshotCommand command) const { return m_commands->action(command)->isChecked(); }
    void setChecked(SnapshotCommand command, bool on) {
        m_commands->action(command)->setChecked(on);
    }

    SnapshotHost& m_host;
    engine::Snapshot m_snapshot;
    engine::FolderIndex m_folders;
    int16_t m_number = 0;
    bool m_changed = false;
    QString m_seriesFolder;

    FolderTreeModel* m_treeModel = nullptr;
    FileGridModel* m_gridModel = nullptr;
    QComboBox* m_cboShow = nullptr;
    FolderTreeView* m_tvwPaths = nullptr;
    FileGridView* m_grdFiles = nullptr;
    SnapshotStatusBar* m_sbrStatus = nullptr;
    SplitterBar* m_picSplit = nullptr;
    FindBar* m_findBar = nullptr;
    std::unique_ptr<SnapshotCommands> m_commands;

    QPointer<SnapshotWindow> m_pair;
    engine::ShowMode m_showMode = engine::ShowMode::None;
    QString m_rootKey;
    int32_t m_rootIndex = 0;
    // Beneath the comparison root; the listings and the tree point at it.
    engine::ComparedPart m_comparedPart;
    // Set while the pair's roots move: the trees rebuild without comparing.
    bool m_comparisonHeld = false;
    // The folder listed in the grid: its node's key and tag.
    QString m_currentKey;
    int32_t m_currentTag = 0;
    bool m_subFolders = false;
    // Copied from the "Faster" option when the window is made; fixed after.
    bool m_faster = false;
    GridSort m_sort;
    int m_splitTwips = 3600;
    // Set while the grid follows the other window's.
    bool m_followingScroll = false;
};

} // namespace kestrel::views
