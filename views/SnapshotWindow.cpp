#include "SnapshotWindow.h"

#include "FileGridModel.h"
#include "FolderTreeModel.h"
#include "SelectionDelegate.h"
#include "SnapshotPair.h"
#include "SnapshotStatusBar.h"
#include "SplitterBar.h"

#include "engine/compare/Compare.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/RingWalk.h"
#include "engine/support/Paths.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "listing/RowSelection.h"
#include "listing/Twips.h"
#include "settings/Settings.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTableView>
#include <QTreeView>

#include <limits>
#include <utility>

namespace kestrel::views {

using engine::MessageIcon;
using engine::Separator;
using engine::ShowMode;
using engine::UserMessage;
using settings::Key;

namespace {

// The window's size when it first appears, in twips.
constexpr int DesignedWidth = 9600;
constexpr int DesignedHeight = 4800;

// The caption of the option that disables sorting by the key columns, as
// the options dialog shows it: without its accelerator marker.
QString fasterCaptionShown() {
    return QString(settings::fasterCaption()).remove(QLatin1Char('&'));
}

// Clears a flag when it goes out of scope.
class FlagScope {
public:
    explicit FlagScope(bool& flag) : m_flag(flag), m_was(flag) { m_flag = true; }
    ~FlagScope() { m_flag = m_was; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;

private:
    bool& m_flag;
    bool m_was;
};

} // namespace

SnapshotWindow::SnapshotWindow(SnapshotHost& host, QWidget* parent)
    : QWidget(parent), m_host(host) {
    // Fixed for the window's life: changing the option later does not
    // bring back sorting on the key columns until a new window is made.
    m_faster = m_host.options().value(Key::Faster) != 0;
    createControls();
    createMenus();
    connect(&m_host.options(), &settings::Options::synchChanged, this,
            &SnapshotWindow::optionsSynchChanged);
    applyColumnWidths();
    resize(engine::pixelsFromTwips(DesignedWidth, logicalDpiX()),
           engine::pixelsFromTwips(DesignedHeight, logicalDpiY()));
}

SnapshotWindow::~SnapshotWindow() {
    // The views read the models and the models read the snapshot: they go
    // first, not with the children after the snapshot member is gone.
    delete m_tvwPaths;
    delete m_grdFiles;
    delete m_treeModel;
    delete m_gridModel;
}

// Controls -------------------------------------------------------------------

void SnapshotWindow::createControls() {
    m_treeModel = new FolderTreeModel(m_snapshot, m_folders, this);
    m_gridModel = new FileGridModel(m_snapshot, this);

    m_cboShow = new QComboBox(this);
    m_cboShow->setObjectName(QStringLiteral("cboShow"));
    m_cboShow->addItems(engine::showModeTexts());
    m_cboShow->setCurrentIndex(-1);
    m_cboShow->setEnabled(false);
    connect(m_cboShow, &QComboBox::activated, this, &SnapshotWindow::cboShow_Click);

    m_tvwPaths = new QTreeView(this);
    m_tvwPaths->setObjectName(QStringLiteral("tvwPaths"));
    m_tvwPaths->setModel(m_treeModel);
    m_tvwPaths->setHeaderHidden(true);
    m_tvwPaths->setUniformRowHeights(true);
    m_tvwPaths->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tvwPaths->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_tvwPaths->setItemDelegate(new SelectionDelegate(m_tvwPaths));
    // A mouse click is handled from the node it pressed, the keyboard from
    // the node it makes current.
    connect(m_tvwPaths, &QAbstractItemView::pressed, this, &SnapshotWindow::tvwPaths_MouseDown);
    connect(m_tvwPaths->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &SnapshotWindow::currentNodeChanged);

    m_grdFiles = new QTableView(this);
    m_grdFiles->setObjectName(QStringLiteral("grdFiles"));
    QFont gridFont = m_grdFiles->font();
    // Small enough that the designed column widths hold their texts.
    gridFont.setPointSizeF(output::GridPointSize);
    m_grdFiles->setFont(gridFont);
    m_grdFiles->setModel(m_gridModel);
    m_grdFiles->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_grdFiles->setSelectionMode(QAbstractItemView::SingleSelection);
    m_grdFiles->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_grdFiles->setItemDelegate(new SelectionDelegate(m_grdFiles));
    m_grdFiles->setWordWrap(false);
    m_grdFiles->setTextElideMode(Qt::ElideRight);
    m_grdFiles->verticalHeader()->hide();
    // Fixed row heights keep a grid of a million rows as quick as one of a
    // hundred: the view never measures a row.
    m_grdFiles->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_grdFiles->verticalHeader()->setDefaultSectionSize(m_grdFiles->fontMetrics().height() + 4);
    QHeaderView* header = m_grdFiles->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionsClickable(true);
    header->setSectionsMovable(false);
    // The filler column takes whatever width is left over.
    header->setMinimumSectionSize(1);
    header->setSectionResizeMode(engine::FillerColumn, QHeaderView::Stretch);
    connect(header, &QHeaderView::sectionClicked, this,
            [this](int section) { SortSequence(section + 1); });
    connect(m_grdFiles, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex& index) { grdFiles_DblClick(index.row()); });
    QScrollBar* scrollBar = m_grdFiles->verticalScrollBar();
    // The wheel, a drag or a click on the bar: the user scrolls this grid,
    // whether or not its window is the active one.
    connect(scrollBar, &QAbstractSlider::actionTriggered, this, [this, scrollBar](int) {
        m_scrolledByUser = scrollBar->sliderPosition() != scrollBar->value();
    });
    connect(scrollBar, &QScrollBar::valueChanged, this, &SnapshotWindow::grdFiles_Scroll);
    m_grdFiles->installEventFilter(this);

    m_picSplit = new SplitterBar(this);
    m_picSplit->setObjectName(QStringLiteral("picSplit"));
    connect(m_picSplit, &SplitterBar::released, this, &SnapshotWindow::picSplit_MouseUp);

    m_sbrStatus = new SnapshotStatusBar(this);
    m_sbrStatus->setObjectName(QStringLiteral("sbrStatus"));
    m_sbrStatus->setPanelText(2, ShowChanges());

    setTabOrder(m_tvwPaths, m_cboShow);
    setTabOrder(m_cboShow, m_grdFiles);
    setFocusProxy(m_tvwPaths);
}

QAction* SnapshotWindow::addCommand(QMenu* menu, const QString& name, const QString& caption,
                                    void (SnapshotWindow::*handler)()) {
    auto* action = new QAction(caption, this);
    action->setObjectName(name);
    menu->addAction(action);
    if (handler)
        connect(action, &QAction::triggered, this, handler);
    return action;
}

void SnapshotWindow::createMenus() {
    auto* file = new QMenu(QStringLiteral("&File"), this);
    auto* compare = new QMenu(QStringLiteral("&Compare"), this);
    auto* view = new QMenu(QStringLiteral("&View"), this);
    auto* window = new QMenu(QStringLiteral("&Window"), this);
    auto* help = new QMenu(QStringLiteral("&Help"), this);
    m_menus = {file, compare, view, window, help};

    m_mnuFileNew = addCommand(file, QStringLiteral("mnuFileNew"),
                              QStringLiteral("&New Snapshot..."), nullptr);
    connect(m_mnuFileNew, &QAction::triggered, this, [this] { m_host.mnuFileNew_Click(); });
    m_mnuFileNew->setShortcut(QKeySequence::New);
    m_mnuFileOpen = addCommand(file, QStringLiteral("mnuFileOpen"),
                               QStringLiteral("&Open Snapshot..."), nullptr);
    connect(m_mnuFileOpen, &QAction::triggered, this, [this] { m_host.mnuFileOpen_Click(); });
    m_mnuFileOpen->setShortcut(QKeySequence::Open);
    file->addSeparator();
    m_mnuFileRepeat = addCommand(file, QStringLiteral("mnuFileRepeat"),
                                 QStringLiteral("&Repeat Snapshot"),
                                 &SnapshotWindow::mnuFileRepeat_Click);
    m_mnuFileRepeat->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence(Qt::Key_F5)});
    m_mnuFileBranch = addCommand(file, QStringLiteral("mnuFileBranch"),
                                 QStringLiteral("&Branch Snapshot"),
                                 &SnapshotWindow::mnuFileBranch_Click);
    file->addSeparator();
    m_mnuFileSaveAs = addCommand(file, QStringLiteral("mnuFileSaveAs"),
                                 QStringLiteral("Save &As..."), &SnapshotWindow::mnuFileSaveAs_Click);
    m_mnuFileSaveAs->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
    addCommand(file, QStringLiteral("mnuFileProps"), QStringLiteral("Snapshot &Title..."),
               &SnapshotWindow::mnuFileProps_Click);
    file->addSeparator();
    addCommand(file, QStringLiteral("mnuFileExport"), QStringLiteral("&Export Current List..."),
               &SnapshotWindow::mnuFileExport_Click);
    addCommand(file, QStringLiteral("mnuFilePrint"), QStringLiteral("&Print..."),
               &SnapshotWindow::mnuFilePrint_Click)
        ->setShortcut(QKeySequence::Print);
    addCommand(file, QStringLiteral("mnuFilePrintPreview"), QStringLiteral("Print Pre&view..."),
               &SnapshotWindow::mnuFilePrintPreview_Click);
    file->addSeparator();
    addCommand(file, QStringLiteral("mnuFileConfig"), QStringLiteral("Kestrel &Configuration..."),
               &SnapshotWindow::mnuFileConfig_Click);
    file->addSeparator();
    // "C" belongs to the configuration above: Close takes "l".
    QAction* close =
        addCommand(file, QStringLiteral("mnuFileClose"), QStringLiteral("C&lose"), nullptr);
    close->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    // The window inside the main window's area is the sub-window holding this.
    connect(close, &QAction::triggered, this, [this] {
        if (QWidget* frame = parentWidget())
            frame->close();
        else
            QWidget::close();
    });
    QAction* exit = addCommand(file, QStringLiteral("mnuFileExit"), QStringLiteral("E&xit Kestrel"),
                               nullptr);
    exit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(exit, &QAction::triggered, this, [this] { m_host.mnuFileExit_Click(); });

    m_mnuCompareNow = addCommand(compare, QStringLiteral("mnuCompareNow"),
                                 QStringLiteral("Compare &Now..."),
                                 &SnapshotWindow::mnuCompareNow_Click);
    m_mnuCompareRoot = addCommand(compare, QStringLiteral("mnuCompareRoot"),
                                  QStringLiteral("Comparison &Root"),
                                  &SnapshotWindow::mnuCompareRoot_Click);
    m_mnuCompareRoot->setCheckable(true);
    connect(compare, &QMenu::aboutToShow, this, &SnapshotWindow::mnuCompare_Open);

    // The view commands flip their own check marks, as they do when called
    // directly: the menu's automatic flip is taken back first.
    const auto addToggle = [&](const QString& name, const QString& caption,
                               void (SnapshotWindow::*handler)()) {
        QAction* action = addCommand(view, name, caption, nullptr);
        action->setCheckable(true);
        connect(action, &QAction::triggered, this, [this, action, handler] {
            action->setChecked(!action->isChecked());
            (this->*handler)();
        });
        return action;
    };
    m_mnuViewBytes = addToggle(QStringLiteral("mnuViewBytes"), QStringLiteral("Sizes in &Bytes"),
                               &SnapshotWindow::mnuViewBytes_Click);
    m_mnuViewSubs = addToggle(QStringLiteral("mnuViewSubs"),
                              QStringLiteral("Files in &Sub-Folders"),
                              &SnapshotWindow::mnuViewSubs_Click);
    m_mnuViewScroll = addToggle(QStringLiteral("mnuViewScroll"),
                                QStringLiteral("S&croll Together"),
                                &SnapshotWindow::mnuViewScroll_Click);
    m_mnuViewSynch = addToggle(QStringLiteral("mnuViewSynch"),
                               QStringLiteral("S&ynchronise Folders"),
                               &SnapshotWindow::mnuViewSynch_Click);

    QAction* tile = addCommand(window, QStringLiteral("mnuWindowTile"), QStringLiteral("&Tile"),
                               nullptr);
    connect(tile, &QAction::triggered, this,
            [this] { m_host.tileWindows(TileLayout::OneAboveTheOther); });
    QAction* sideBySide = addCommand(window, QStringLiteral("mnuWindowTileSideBySide"),
                                     QStringLiteral("Tile &Side by Side"), nullptr);
    connect(sideBySide, &QAction::triggered, this,
            [this] { m_host.tileWindows(TileLayout::SideBySide); });

    QAction* about = addCommand(help, QStringLiteral("mnuHelpAbout"),
                                QStringLiteral("&About Kestrel..."), nullptr);
    connect(about, &QAction::triggered, this, [this] { m_host.mnuHelpAbout_Click(); });
    QAction* tips = addCommand(help, QStringLiteral("mnuHelpTips"),
                               QStringLiteral("&Help and Tips..."), nullptr);
    tips->setShortcut(QKeySequence::HelpContents);
    connect(tips, &QAction::triggered, this, [this] { m_host.mnuHelpTips_Click(); });

    applyCommandEnabling(1);
}

QAction* SnapshotWindow::action(const QString& name) const {
    return findChild<QAction*>(name, Qt::FindDirectChildrenOnly);
}

void SnapshotWindow::applyCommandEnabling(int windows) {
    const CommandEnabling enabling = CommandEnabling::forWindows(windows);
    m_mnuFileNew->setEnabled(enabling.newSnapshot);
    m_mnuFileOpen->setEnabled(enabling.open);
    m_mnuFileRepeat->setEnabled(enabling.repeat);
    m_mnuFileBranch->setEnabled(enabling.branch);
    m_mnuCompareNow->setEnabled(enabling.compare);
    m_host.commandsChanged();
}

HighlightColours SnapshotWindow::colours() const {
    return HighlightColours::from(m_host.options(), m_grdFiles->palette().color(QPalette::Base));
}

bool SnapshotWindow::isActiveSnapshotWindow() const { return m_host.activeSnapshotWindow() == this; }

// Showing the snapshot ------------------------------------------------------------

engine::Outcome SnapshotWindow::showSnapshot(const QString& failureTitle) {
    engine::Outcome outcome =
        engine::FolderIndex::buildChecked(m_snapshot, failureTitle, m_folders);
    if (!outcome.ok)
        return outcome;
    applyColumnWidths();
    BuildTree();
    return outcome;
}

void SnapshotWindow::Form_Activate() {
    SnapshotWindow* last = m_host.activeSnapshotWindow();
    // Coming back to the window that was active already (after a dialog)
    // changes nothing.
    if (last == this)
        return;
    if (!last) {
        // Alone: no pair, nothing to compare with.
        m_mnuCompareNow->setEnabled(false);
        setPair(nullptr);
        m_sbrStatus->setPanelText(2, ShowChanges());
        setShowPosition(-1);
    } else {
        setPair(last);
        last->setPair(this);
        m_mnuCompareNow->setEnabled(true);
        last->m_sbrStatus->setPanelText(2, last->ShowChanges());
    }
    if (m_cboShow->currentIndex() < 0)
        setShowPosition(0);
    m_host.setActiveSnapshotWindow(this);
    applyCommandEnabling(m_mnuCompareNow->isEnabled() ? 2 : 1);
}

void SnapshotWindow::setPair(SnapshotWindow* window) { m_pair = window; }

// Show selector ---------------------------------------------------------------

bool SnapshotWindow::compared() const { return m_cboShow->isEnabled(); }

void SnapshotWindow::setShowPosition(int position) {
    {
        const QSignalBlocker blocker(m_cboShow);
        m_cboShow->setCurrentIndex(position);
    }
    cboShow_Click();
}

void SnapshotWindow::cboShow_Click() {
    const int position = m_cboShow->currentIndex();
    if (position < 0) {
        // No selection is how a window returns to the uncompared state.
        m_cboShow->setEnabled(false);
        setShowPosition(0);
        return;
    }
    m_showMode = ShowMode(m_cboShow->isEnabled() ? position + 1 : position);
    if (!m_host.windowClosing())
        BuildTree();
}

void SnapshotWindow::resetComparison() { setShowPosition(-1); }

// Folder tree -----------------------------------------------------------------

QModelIndex SnapshotWindow::selectedNode() const {
    const QModelIndex current = m_tvwPaths->selectionModel()->currentIndex();
    if (!current.isValid() || !m_tvwPaths->selectionModel()->isSelected(current))
        return {};
    return current;
}

QString SnapshotWindow::selectedKey() const { return m_treeModel->keyOf(selectedNode()); }

void SnapshotWindow::selectNode(const QModelIndex& node) {
    const FlagScope selecting(m_selecting);
    for (QModelIndex up = node.parent(); up.isValid(); up = up.parent())
        m_tvwPaths->expand(up);
    m_tvwPaths->selectionModel()->setCurrentIndex(node, QItemSelectionModel::ClearAndSelect);
    m_tvwPaths->scrollTo(node);
}

void SnapshotWindow::tvwPaths_MouseDown(const QModelIndex& node) {
    if (!node.isValid())
        return;
    // The click makes the node current and selected whatever the view made
    // of it (a Ctrl+click deselects), and lists it even when it was
    // selected already: that brings the other window back to it.
    selectNode(node);
    tvwPaths_NodeClick(node);
}

void SnapshotWindow::currentNodeChanged(const QModelIndex& current) {
    // The keyboard selects a node as it makes it current. A mouse press
    // makes it current first and selects it afterwards: that one is left
    // to tvwPaths_MouseDown, which sees the node selected.
    if (m_selecting || !current.isValid() || !m_tvwPaths->selectionModel()->isSelected(current))
        return;
    tvwPaths_NodeClick(current);
}

engine::NameMatching SnapshotWindow::nameMatching() const {
    return m_pair ? engine::nameMatchingFor(m_snapshot, m_pair->snapshot())
                  : m_snapshot.nameMatching();
}

bool SnapshotWindow::selectFolder(const QString& key) {
    const QModelIndex node = m_treeModel->indexOfKey(key, nameMatching());
    if (!node.isValid())
        return false;
    selectNode(node);
    tvwPaths_NodeClick(node);
    return true;
}

void SnapshotWindow::BuildTree() {
    const settings::Options& options = m_host.options();
    const bool synch = options.value(Key::Synch) != 0;
    m_mnuViewSynch->setChecked(synch);

    m_treeModel->rebuild(m_showMode, colours(), m_comparedPart);
    const QModelIndex top = m_treeModel->topIndex();
    if (m_treeModel->hasFolders()) {
        m_tvwPaths->expand(top);
        if (synch) {
            // Scrolling together needs both grids in name order, ascending
            // whatever order the user's last sort had.
            m_mnuViewScroll->setChecked(true);
            m_sortColumn = SortByName;
            m_sortOrder = 1;
        }
    }

    // The comparison root survives the rebuild when its folder is still shown.
    const QModelIndex root = m_treeModel->indexOfKey(Separator + m_rootKey, nameMatching());
    selectNode(root.isValid() ? root : top);
    markComparisonRoot(selectedNode());

    // Reopen at the folder the user was looking at, in whichever window.
    const QModelIndex last = m_treeModel->indexOfKey(m_host.lastSelectedFolder(), nameMatching());
    selectNode(last.isValid() ? last : m_treeModel->topIndex());

    if (m_pair && !compared() && options.value(Key::Compare) != 0 && !m_comparisonHeld) {
        // The comparison shows itself: the tree is rebuilt and the selected
        // folder listed on its way.
        if (CompareSnapshot(true))
            return;
    }
    tvwPaths_NodeClick(selectedNode());
}

void SnapshotWindow::tvwPaths_NodeClick(const QModelIndex& node) {
    if (!node.isValid())
        return;
    m_currentKey = m_treeModel->keyOf(node);
    m_currentTag = m_treeModel->tagOf(node);
    m_host.setLastSelectedFolder(m_currentKey);
    RefreshScreen(m_currentTag, m_currentKey);
}

void SnapshotWindow::markComparisonRoot(const QModelIndex& node) {
    if (!node.isValid())
        return;
    m_treeModel->setRootNode(node);
    m_rootKey = m_treeModel->keyOf(node).mid(1);
    m_rootIndex = m_treeModel->tagOf(node);
    const int32_t folder = m_treeModel->entryOf(node);
    if (folder != m_comparedPart.root())
        m_comparedPart = engine::ComparedPart(m_snapshot, folder);
}

void SnapshotWindow::mnuCompareRoot_Click() {
    const QModelIndex node = selectedNode();
    if (!node.isValid())
        return;
    SnapshotWindow* other = m_pair;
    if (!other) {
        markComparisonRoot(node);
        return;
    }
    // The root belongs to the pair: the other window takes the matching
    // folder, found as selections follow from one window to the other.
    const QString key = m_treeModel->keyOf(node);
    const QString otherKey = translateKey(key, m_rootKey, other->m_rootKey, nameMatching());
    {
        // Both leave the comparison first, without comparing again on the
        // way: their trees show every folder then.
        const FlagScope holdThis(m_comparisonHeld), holdOther(other->m_comparisonHeld);
        other->resetComparison();
        const QModelIndex match = other->m_treeModel->indexOfKey(otherKey, nameMatching());
        if (match.isValid())
            other->markComparisonRoot(match);
        // This window's tree keeps the root and the selection through its
        // rebuild; the other follows with the roots agreeing.
        m_rootKey = key.mid(1);
        resetComparison();
        if (!match.isValid()) {
            m_host.showMessage(UserMessage{QStringLiteral("Comparison Root"),
                                           QStringLiteral("The other Snapshot has no folder ") +
                                               other->m_snapshot.header.rootFolder +
                                               otherKey.mid(1) +
                                               QStringLiteral(": the Snapshots are not compared."),
                                           MessageIcon::Information});
            return;
        }
    }
    if (m_host.options().value(Key::Compare) != 0)
        CompareSnapshot(true);
}

void SnapshotWindow::mnuCompare_Open() {
    const QModelIndex node = selectedNode();
    m_mnuCompareRoot->setChecked(node.isValid() && node == m_treeModel->rootNode());
}

int32_t SnapshotWindow::topEntry() const {
    if (m_rootKey.isEmpty())
        return m_snapshot.entryCount >= 1 ? 1 : 0;
    return m_rootIndex;
}

// Comparison ---------------------------------------------------------------------

bool SnapshotWindow::CompareSnapshot(bool bothWays) {
    SnapshotWindow* other = m_pair;
    if (!other)
        return false;
    const int32_t selfTop = topEntry();
    const int32_t otherTop = other->topEntry();
    // A root without contents has nothing to compare.
    if (selfTop > 0 && otherTop > 0) {
        engine::Outcome outcome;
        {
            const OperationScope operation(m_host);
            outcome = engine::CompareSnapshot(m_snapshot, selfTop, other->m_snapshot, otherTop,
                                              bothWays, m_host.options().compareOptions(),
                                              m_host.progressMeter());
        }
        if (!outcome.ok) {
            if (outcome.message)
                m_host.showMessage(*outcome.message);
            return false;
        }
    }
    m_cboShow->setEnabled(true);
    cboShow_Click();
    if (bothWays && m_pair == other) {
        other->m_cboShow->setEnabled(true);
        other->cboShow_Click();
    }
    return true;
}

void SnapshotWindow::mnuCompareNow_Click() {
    if (m_host.busy() || !m_pair)
        return;
    // The comparison starts from the dialog's Compare buttons.
    m_host.showCompareOptions(caption(), m_pair->caption());
}

// File grid -----------------------------------------------------------------------

void SnapshotWindow::applyColumnWidths() {
    const double dpi = m_grdFiles->logicalDpiX();
    const bool versions = m_snapshot.header.versions;
    for (int column = 0; column < engine::GridColumnCount; ++column) {
        if (column == engine::FillerColumn)
            continue; // it stretches over what is left
        const int width =
            output::shownColumnPixels(column, versions, m_subFolders, m_grdFiles->font(), dpi);
        m_grdFiles->setColumnHidden(column, width == 0);
        if (width > 0)
            m_grdFiles->setColumnWidth(column, width);
    }
}

output::ShownList SnapshotWindow::shownList() const {
    output::ShownList list;
    list.snapshot = &m_snapshot;
    list.rows = &m_gridModel->rows();
    list.other = m_pair ? &m_pair->snapshot() : nullptr;
    list.compareOptions = m_host.options().compareOptions();
    list.showMode = m_showMode;
    list.inFolderOffered = m_subFolders;
    // The widths as the grid has them now, dragged by the user or not.
    const double dpi = m_grdFiles->logicalDpiX();
    for (int column = 0; column < output::ShownColumnCount; ++column)
        list.columnTwips[size_t(column)] =
            m_grdFiles->isColumnHidden(column)
                ? 0
                : engine::twipsFromPixels(m_grdFiles->columnWidth(column), dpi);
    list.font = m_grdFiles->font();
    list.folderPanel = m_sbrStatus->panelText(1);
    list.changesPanel = m_sbrStatus->panelText(2);
    list.showText = m_cboShow->currentText();
    list.title = m_snapshot.header.title;
    list.created = m_snapshot.header.created;
    if (m_pair) {
        list.otherTitle = m_pair->snapshot().header.title;
        list.otherCreated = m_pair->snapshot().header.created;
    }
    list.fileName = m_snapshot.header.fileName;
    return list;
}

void SnapshotWindow::mnuFileExport_Click() {
    if (m_host.busy())
        return;
    m_host.showExport(shownList());
}

void SnapshotWindow::mnuFilePrint_Click() {
    if (m_host.busy())
        return;
    m_host.showPrint(shownList());
}

void SnapshotWindow::mnuFilePrintPreview_Click() {
    if (m_host.busy())
        return;
    m_host.showPrintPreview(shownList());
}

void SnapshotWindow::RefreshScreen(int32_t tag, const QString& key) {
    const settings::Options& options = m_host.options();
    // The limit counts the rows the show mode would list, not the entries
    // beneath the folder: a flat list of a big tree's few differences fits.
    const int32_t alwaysBelow =
        options.value(Key::Always) != 0 ? settings::limitValue(options.value(Key::Limit)) : 0;
    const engine::SubFolderChoice choice = engine::chooseSubFolders(
        m_snapshot, tag, rowSelection().listing, m_mnuViewSubs->isChecked(), alwaysBelow);
    if (choice.refused) {
        m_host.showMessage(UserMessage{
            QStringLiteral("Entry Limit"),
            QStringLiteral("Too many entries to show files in sub-folders (maximum is 30,000), "
                           "option will be ignored"),
            MessageIcon::Exclamation});
    }
    m_mnuViewSubs->setChecked(choice.subFolders);
    m_subFolders = choice.subFolders;
    applyColumnWidths();

    engine::ProgressMeter& meter = m_host.progressMeter();
    if (m_subFolders) {
        // The count shows only while every entry is listed.
        const QString count = int(m_showMode) <= int(ShowMode::All)
                                  ? QLatin1Char(' ') + engine::formatCount(choice.rows)
                                  : QString();
        meter.initialise(choice.rows,
                         QStringLiteral("Displaying") + count + QStringLiteral(" Entries"), false);
        const OperationScope operation(m_host);
        const engine::MeterCloser closer(meter);
        RefreshList(&meter);
    } else {
        RefreshList(nullptr);
    }

    if (options.value(Key::Synch) != 0 && isActiveSnapshotWindow()) {
        for (SnapshotWindow* other : m_host.snapshotWindows())
            if (other != this)
                followSelection(*this, *other);
    }
    if (m_gridModel->rowCount() > 0)
        grdFiles_Scroll();
    Q_UNUSED(key)
}

engine::RowSelection SnapshotWindow::rowSelection() const {
    engine::RowSelection selection;
    selection.listing.mode = m_showMode;
    selection.listing.subFolders = m_subFolders;
    selection.listing.keys = !m_faster;
    // "Show empty folders in the file list" off leaves out folders without
    // contents.
    selection.listing.emptyFolders = m_host.options().value(Key::Empty) != 0;
    selection.listing.compared = &m_comparedPart;
    if (m_sortColumn > 0) {
        selection.sortColumn = m_sortColumn - 1;
        selection.descending = m_sortOrder == 2;
    }
    return selection;
}

void SnapshotWindow::RefreshList(engine::ProgressMeter* meter) {
    // Sorted again by the sort column, in the same order.
    const bool sorted = m_sortColumn > 0;
    if (sorted)
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    m_gridModel->select(m_currentTag, rowSelection(), colours(), meter);
    updateStatusBar();
    showSortOrder();
    if (sorted)
        QGuiApplication::restoreOverrideCursor();
}

void SnapshotWindow::updateStatusBar() {
    const engine::ListingCounters& counters = m_gridModel->counters();
    m_sbrStatus->setFolderPath(m_snapshot.header.rootFolder, m_currentKey);
    m_sbrStatus->setPanelText(2, ShowChanges());
    m_sbrStatus->setPanelText(3, engine::listingText(counters, m_mnuViewBytes->isChecked()));
    m_sbrStatus->setPanelText(4, engine::foldersText(counters.folders));
    m_sbrStatus->setFoldersPanelVisible(counters.folders >= 1);
}

QString SnapshotWindow::ShowChanges() const {
    return engine::ShowChanges(m_pair != nullptr, compared(), m_showMode,
                               m_gridModel->counters());
}

void SnapshotWindow::showNoMatchingFolder(bool rootsDiffer) {
    {
        const FlagScope selecting(m_selecting);
        m_tvwPaths->selectionModel()->clear();
    }
    m_currentKey.clear();
    m_currentTag = 0;
    RefreshList(nullptr);
    // Every mode past "All" filters folders out: the folder may be there,
    // only hidden.
    m_sbrStatus->setPanelText(1, int(m_showMode) > int(ShowMode::All)
                                     ? QStringLiteral("No matching folder visible")
                                     : QStringLiteral("No matching folder"));
    m_sbrStatus->setPanelText(2, rootsDiffer ? QStringLiteral("Check Snapshot root folders are correct")
                                             : QString());
}

void SnapshotWindow::SortSequence(int column) {
    if (m_faster && engine::sortNeedsKeys(column - 1)) {
        m_host.showMessage(UserMessage{
            QStringLiteral("Sorting Restriction"),
            QStringLiteral("Cannot sort by Size, Modified or Attributes when '") +
                fasterCaptionShown() +
                QStringLiteral("' is enabled (see Options and Preferences). ") +
                QStringLiteral("All open Snapshots must then be saved and ") +
                QStringLiteral("re-opened to fully enable column sorting."),
            MessageIcon::Exclamation});
        return;
    }
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    if (column != m_sortColumn) {
        m_sortColumn = column;
        m_sortOrder = 1;
    } else {
        m_sortOrder = 3 - m_sortOrder;
    }
    m_gridModel->sortByText(engine::sortKeyColumn(column - 1), m_sortOrder == 2);
    showSortOrder();
    QGuiApplication::restoreOverrideCursor();
}

void SnapshotWindow::showSortOrder() {
    QHeaderView* header = m_grdFiles->horizontalHeader();
    if (m_sortColumn <= 0) {
        header->setSortIndicatorShown(false);
        return;
    }
    header->setSortIndicator(m_sortColumn - 1,
                             m_sortOrder == 2 ? Qt::DescendingOrder : Qt::AscendingOrder);
    header->setSortIndicatorShown(true);
    if (m_gridModel->rowCount() >= 1)
        m_grdFiles->setCurrentIndex(m_gridModel->index(0, 0));
    // Scrolling together needs both grids in name order.
    if (!(m_sortColumn == SortByName && m_sortOrder == 1))
        m_mnuViewScroll->setChecked(false);
}

int SnapshotWindow::topRow() const { return m_grdFiles->rowAt(0); }

void SnapshotWindow::grdFiles_Scroll() {
    // The grid the user scrolls leads; any other scrolling (a new listing,
    // the current row moving) only in the active window. A grid following
    // the other leads nothing back.
    const bool byUser = std::exchange(m_scrolledByUser, false);
    if (!m_mnuViewScroll->isChecked() || m_followingScroll || !(byUser || isActiveSnapshotWindow()))
        return;
    for (SnapshotWindow* other : m_host.snapshotWindows())
        if (other != this)
            followScrolling(*this, *other);
}

void SnapshotWindow::ScrollPosition(const QString& name, const QString& folder) {
    if (!m_mnuViewScroll->isChecked() || !selectedNode().isValid())
        return;
    const engine::FileList& rows = m_gridModel->rows();
    const int last = rows.rowCount() - 1;
    if (last < 0)
        return;
    const auto nameAt = [&](int row) {
        return rows.cellText(row, engine::NameColumn).compare(name, Qt::CaseInsensitive);
    };
    // The grid is in name order without regard to case: step up past greater
    // names, then down past lesser ones, to the first row of the name in any
    // case from either side.
    int row = std::max(topRow(), 0);
    while (nameAt(row) > 0 && row > 0)
        --row;
    while (nameAt(row) < 0 && row < last)
        ++row;
    // Among those rows, step on to the one whose name and In Folder text
    // match under the rule, or to the last of them.
    const Qt::CaseSensitivity names = engine::caseSensitivity(nameMatching());
    const auto matches = [&](int at) {
        return rows.cellText(at, engine::NameColumn).compare(name, names) == 0 &&
               (folder.isEmpty() || rows.inFolder(at).compare(folder, names) == 0);
    };
    while (row < last && !matches(row) && nameAt(row + 1) == 0)
        ++row;
    const FlagScope following(m_followingScroll);
    m_grdFiles->scrollTo(m_gridModel->index(row, 0), QAbstractItemView::PositionAtTop);
}

void SnapshotWindow::grdFiles_DblClick(int row) {
    if (row < 0 || row >= m_gridModel->rowCount())
        return;
    const settings::Options& options = m_host.options();
    const int32_t entry = m_gridModel->entryAt(row);
    const engine::SnapshotEntry& e = m_snapshot.entries.get(entry);
    if (e.isFolder()) {
        if (options.value(Key::Explore) != 0) {
            // "Double-clicking folder names opens up Explorer windows": the
            // folder opens in the desktop's file manager instead.
            launchEntry(entry);
            return;
        }
        selectFolder(selectedKey() + m_gridModel->rows().inFolder(row) +
                     m_snapshot.nameText(entry) + Separator);
        return;
    }
    if (options.value(Key::Shell) == 0) {
        launchEntry(entry);
        return;
    }
    // The file and its counterpart in the compared snapshot; an entry
    // without one gives an empty path, and nothing is started.
    QString counterpart;
    if (m_pair && e.match > 0)
        counterpart = m_pair->GetParameter(e.match);
    m_host.ExecuteCustom(GetParameter(entry), counterpart);
}

void SnapshotWindow::launchEntry(int32_t entry) {
    const QString path = GetParameter(entry);
    if (path.isEmpty())
        return;
    const qsizetype cut = path.lastIndexOf(Separator) + 1;
    m_host.LaunchDocument(path.left(cut), path.mid(cut));
}

void SnapshotWindow::refreshFolder() {
    m_treeModel->setColours(colours());
    tvwPaths_NodeClick(selectedNode());
}

void SnapshotWindow::mnuFileConfig_Click() { m_host.mnuFileConfig_Click(); }

QString SnapshotWindow::GetParameter(int32_t index) const {
    QString path;
    // Bounded by the table: a parent chain that loops ends the walk.
    int64_t budget = int64_t(m_snapshot.capacity()) + 1;
    for (int32_t i = index; i != 0; i = m_snapshot.entries.get(i).parent) {
        if (--budget < 0 || !m_snapshot.entries.contains(i))
            return {};
        path.prepend(Separator + m_snapshot.nameText(i));
    }
    return m_snapshot.header.rootFolder + path.mid(1);
}

// View menu -------------------------------------------------------------------------

void SnapshotWindow::mnuViewBytes_Click() {
    m_mnuViewBytes->setChecked(!m_mnuViewBytes->isChecked());
    updateStatusBar();
}

void SnapshotWindow::mnuViewSubs_Click() {
    m_mnuViewSubs->setChecked(!m_mnuViewSubs->isChecked());
    const QModelIndex node = selectedNode();
    RefreshScreen(m_treeModel->tagOf(node), m_treeModel->keyOf(node));
}

void SnapshotWindow::mnuViewScroll_Click() {
    m_mnuViewScroll->setChecked(!m_mnuViewScroll->isChecked());
    if (!m_mnuViewScroll->isChecked())
        return;
    m_host.options().setValue(Key::Synch, 1);
    // Name descending, which SortSequence turns into name ascending.
    m_sortColumn = SortByName;
    m_sortOrder = 2;
    SortSequence(SortByName);
}

void SnapshotWindow::mnuViewSynch_Click() {
    settings::Options& options = m_host.options();
    options.setValue(Key::Synch, options.value(Key::Synch) != 1 ? 1 : 0);
}

void SnapshotWindow::optionsSynchChanged(bool on) {
    m_mnuViewSynch->setChecked(on);
    if (!on)
        m_mnuViewScroll->setChecked(false);
}

// File menu -----------------------------------------------------------------------------

void SnapshotWindow::mnuFileSaveAs_Click() {
    if (m_host.busy())
        return;
    engine::SnapshotHeader& header = m_snapshot.header;
    // Without a last folder the proposal is the bare name.
    const QString lastFolder = m_host.lastFolder();
    const QString folder =
        header.fileName.isEmpty()
            ? (lastFolder.isEmpty() ? QString() : engine::withSeparator(lastFolder))
            : engine::withSeparator(QFileInfo(header.fileName).absolutePath());
    const QString proposed =
        folder + engine::NextSnapshotName(engine::SnapshotBaseName(header.rootFolder), folder);
    const QString path = m_host.askSaveFileName(proposed);
    if (path.isEmpty())
        return;

    const QString previous = header.fileName;
    header.fileName = path;
    engine::Outcome outcome;
    {
        const OperationScope operation(m_host);
        outcome = engine::guardedOperation(QStringLiteral("Error Writing Snapshot"), [this] {
            return engine::SaveSnapshot(m_snapshot, m_host.progressMeter());
        });
    }
    if (!outcome.ok) {
        // Nothing was stored under the new name: keep the old one and the mark.
        header.fileName = previous;
        if (outcome.message)
            m_host.showMessage(*outcome.message);
        return;
    }
    m_changed = false;
    // A window captioned by its file name follows the file.
    if (!previous.isEmpty() && caption() == previous)
        setCaption(path);
    m_host.setLastFolder(QFileInfo(path).absolutePath());
    m_host.AddRecent(path);
}

void SnapshotWindow::mnuFileRepeat_Click() {
    if (m_host.busy())
        return;
    int16_t next = 0;
    if (!nextNumber(next))
        return;
    const engine::SnapshotHeader& header = m_snapshot.header;
    m_host.NewSnapshot(header.rootFolder, header.recurse, header.hidden, header.versions, next);
}

bool SnapshotWindow::nextNumber(int16_t& next) {
    if (m_number == std::numeric_limits<int16_t>::max()) {
        // Snapshot numbers are 16-bit: the next one does not exist.
        m_host.showMessage(UserMessage{QStringLiteral("Kestrel"),
                                       engine::errorText(engine::ErrorCode::Overflow),
                                       MessageIcon::Exclamation});
        return false;
    }
    next = int16_t(m_number + 1);
    return true;
}

void SnapshotWindow::mnuFileBranch_Click() {
    if (m_host.busy())
        return;
    const QModelIndex node = selectedNode();
    if (!node.isValid())
        return;
    if (node != m_treeModel->rootNode())
        mnuCompareRoot_Click();
    // The branch is numbered as a repeat would be: it is the second snapshot
    // of the comparison.
    int16_t next = 0;
    if (!nextNumber(next))
        return;
    const engine::SnapshotHeader& header = m_snapshot.header;
    m_host.NewSnapshot(header.rootFolder + m_rootKey, header.recurse, header.hidden,
                       header.versions, next);
}

void SnapshotWindow::mnuFileProps_Click() {
    if (m_host.busy())
        return;
    engine::SnapshotHeader& header = m_snapshot.header;
    const std::optional<QString> answer = m_host.askText(
        QStringLiteral("Title of Snapshot:"),
        QStringLiteral("Created ") + engine::generalDateText(header.created), header.title);
    if (!answer)
        return;
    QString title = *answer;
    qsizetype blanks = 0;
    while (blanks < title.size() && title.at(blanks) == QLatin1Char(' '))
        ++blanks;
    title.remove(0, blanks);
    if (title.isEmpty() || title.compare(header.title, Qt::CaseInsensitive) == 0)
        return;
    // A window captioned by its title shows the new one; one captioned by
    // its file name keeps that.
    if (caption() == header.title)
        setCaption(title);
    header.title = title;
    m_changed = true;
}

// Closing and layout ----------------------------------------------------------------------

bool SnapshotWindow::queryUnload() {
    // The snapshot of a running operation must not go away under it.
    if (m_host.busy())
        return false;
    if (!m_changed)
        return true;
    m_host.setWindowClosing(true);
    const SaveAnswer answer =
        m_host.PromptToSave(QStringLiteral("Save changes to ") + caption() + QStringLiteral("?"));
    bool close = false;
    switch (answer) {
    case SaveAnswer::Yes:
        // Closes only when the save went through.
        mnuFileSaveAs_Click();
        close = !m_changed;
        break;
    case SaveAnswer::No:
        close = true;
        break;
    case SaveAnswer::Cancel:
    case SaveAnswer::Closed:
        break;
    }
    m_host.setWindowClosing(false);
    return close;
}

void SnapshotWindow::closeEvent(QCloseEvent* event) {
    if (!queryUnload()) {
        event->ignore();
        return;
    }
    event->accept();
    // The window that was active last is forgotten, whichever it was: the
    // one activated next starts afresh.
    m_host.setActiveSnapshotWindow(nullptr);
}

void SnapshotWindow::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    layOutControls();
}

void SnapshotWindow::picSplit_MouseUp(int x) {
    const double dpi = logicalDpiX();
    const int margin = engine::pixelsFromTwips(SplitMargin, dpi);
    m_splitTwips = engine::twipsFromPixels(splitPosition(x, width(), margin), dpi);
    layOutControls();
}

void SnapshotWindow::layOutControls() {
    const double dpi = logicalDpiX();
    const int margin = engine::pixelsFromTwips(SplitMargin, dpi);
    const int split = splitPosition(engine::pixelsFromTwips(m_splitTwips, dpi), width(), margin);
    const int bar = std::max(4, engine::pixelsFromTwips(60, dpi));
    const int statusHeight = m_sbrStatus->sizeHint().height();
    const int comboHeight = m_cboShow->sizeHint().height();
    const int height = std::max(0, this->height() - statusHeight);

    m_cboShow->setGeometry(0, 0, split, comboHeight);
    m_tvwPaths->setGeometry(0, comboHeight, split, std::max(0, height - comboHeight));
    m_picSplit->setGeometry(split, 0, bar, height);
    m_grdFiles->setGeometry(split + bar, 0, std::max(0, width() - split - bar), height);
    m_sbrStatus->setGeometry(0, height, width(), statusHeight);
}

bool SnapshotWindow::eventFilter(QObject* watched, QEvent* event) {
    // Enter on a grid row does what a double-click does.
    if (watched == m_grdFiles && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            grdFiles_DblClick(m_grdFiles->currentIndex().row());
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace kestrel::views
