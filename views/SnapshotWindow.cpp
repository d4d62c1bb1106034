#include "SnapshotWindow.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Moves.h"

#include "FileGridModel.h"
#include "FindBar.h"
#include "FolderTreeModel.h"
#include "ShownListOf.h"
#include "SnapshotPair.h"
#include "SnapshotStatusBar.h"
#include "SplitterBar.h"

#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "listing/RowSelection.h"
#include "listing/Twips.h"
#include "output/ChangeDocument.h"
#include "output/ChangeList.h"
#include "settings/Settings.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHeaderView>
#include <QScrollBar>
#include <QSignalBlocker>

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

} // namespace

SnapshotWindow::SnapshotWindow(SnapshotHost& host, const FrameActions& frameActions,
                               QWidget* parent)
    : QWidget(parent), m_host(host) {
    // Fixed for the window's life: changing the option later does not
    // bring back sorting on the key columns until a new window is made.
    m_faster = m_host.options().isOn(Key::Faster);
    createControls();
    m_commands = std::make_unique<SnapshotCommands>(*this, frameActions);
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

void SnapshotWindow::createControls() {
    m_treeModel = new FolderTreeModel(m_snapshot, m_folders, this);
    m_gridModel = new FileGridModel(m_snapshot, this);

    m_cboShow = new QComboBox(this);
    m_cboShow->setObjectName(QStringLiteral("cboShow"));
    m_cboShow->addItems(engine::showModeTexts());
    m_cboShow->setCurrentIndex(-1);
    m_cboShow->setEnabled(false);
    connect(m_cboShow, &QComboBox::activated, this, &SnapshotWindow::cboShow_Click);

    m_tvwPaths = new FolderTreeView(this);
    m_tvwPaths->setObjectName(QStringLiteral("tvwPaths"));
    m_tvwPaths->setModel(m_treeModel);
    connect(m_tvwPaths, &FolderTreeView::nodeClicked, this, &SnapshotWindow::tvwPaths_NodeClick);

    m_grdFiles = new FileGridView(m_gridModel, this);
    m_grdFiles->setObjectName(QStringLiteral("grdFiles"));
    connect(m_grdFiles->horizontalHeader(), &QHeaderView::sectionClicked, this,
            [this](int section) { SortSequence(section + 1); });
    connect(m_grdFiles, &FileGridView::rowActivated, this, &SnapshotWindow::grdFiles_DblClick);
    connect(m_grdFiles->verticalScrollBar(), &QScrollBar::valueChanged, this,
            &SnapshotWindow::grdFiles_Scroll);

    m_picSplit = new SplitterBar(this);
    m_picSplit->setObjectName(QStringLiteral("picSplit"));
    connect(m_picSplit, &SplitterBar::released, this, &SnapshotWindow::picSplit_MouseUp);

    m_sbrStatus = new SnapshotStatusBar(this);
    m_sbrStatus->setObjectName(QStringLiteral("sbrStatus"));
    showChangeSummary();

    m_findBar = new FindBar(*this);

    setTabOrder(m_tvwPaths, m_cboShow);
    setTabOrder(m_cboShow, m_grdFiles);
    setFocusProxy(m_tvwPaths);
}

HighlightColours SnapshotWindow::colours() const {
    const QPalette& p = m_grdFiles->palette();
    return HighlightColours::from(m_host.options(), p.color(QPalette::Base),
                                  p.color(QPalette::Text));
}

bool SnapshotWindow::isActiveSnapshotWindow() const {
    return m_host.activeSnapshotWindow() == this;
}

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
    pairWithLastActive(*this, last);
    if (m_cboShow->currentIndex() < 0)
        setShowPosition(0);
    m_host.setActiveSnapshotWindow(this);
    m_commands->enableFor(m_pair ? 2 : 1);
}

// Show selector ---------------------------------------------------------------

bool SnapshotWindow::hasMoves() const {
    return compared() && (!m_snapshot.movedTo.empty() || !m_snapshot.movedFrom.empty());
}

void SnapshotWindow::setPair(SnapshotWindow* window) {
    if (window != m_pair)
        m_gridModel->setComparedWith(nullptr, {});
    m_pair = window;
}

bool SnapshotWindow::compared() const {
    return m_cboShow->isEnabled();
}

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
    m_showMode = engine::selectorShowMode(position, compared());
    if (!m_host.windowClosing())
        BuildTree();
}

void SnapshotWindow::showComparison() {
    m_cboShow->setEnabled(true);
    cboShow_Click();
}

// Folder tree -----------------------------------------------------------------

QModelIndex SnapshotWindow::selectedNode() const {
    return m_tvwPaths->selectedNode();
}

QString SnapshotWindow::selectedKey() const {
    return m_treeModel->keyOf(selectedNode());
}

engine::NameMatching SnapshotWindow::nameMatching() const {
    return m_pair ? engine::nameMatchingFor(m_snapshot, m_pair->snapshot())
                  : m_snapshot.nameMatching();
}

bool SnapshotWindow::selectFolder(const QString& key) {
    const QModelIndex node = m_treeModel->indexOfKey(key, nameMatching());
    if (!node.isValid())
        return false;
    m_tvwPaths->selectNode(node);
    tvwPaths_NodeClick(node);
    return true;
}

bool SnapshotWindow::selectEntry(int32_t entry) {
    if (!m_snapshot.entries.contains(entry) || entry == 0)
        return false;
    if (!selectFolder(m_snapshot.entryPath(m_snapshot.entries.get(entry).parent)))
        return false;
    const engine::FileList& rows = m_gridModel->rows();
    for (int32_t row = 0; row < rows.rowCount(); ++row) {
        if (rows.entryAt(row) == entry) {
            const QModelIndex index = m_gridModel->index(row, engine::NameColumn);
            m_grdFiles->setCurrentIndex(index);
            m_grdFiles->scrollTo(index);
            return true;
        }
    }
    return false;
}

void SnapshotWindow::BuildTree() {
    const settings::Options& options = m_host.options();
    const bool synch = options.isOn(Key::Synch);
    setChecked(SnapshotCommand::Synchronise, synch);

    m_treeModel->rebuild(m_showMode, colours(), m_comparedPart,
                         checked(SnapshotCommand::ShowIgnored));
    const QModelIndex top = m_treeModel->topIndex();
    if (m_treeModel->hasFolders())
        m_tvwPaths->expand(top);
    if (synch && m_treeModel->tagOf(top) != 0) {
        // Scrolling together needs both grids in name order, ascending
        // whatever order the user's last sort had; a root of files alone is
        // listed too, so it is sorted the same way.
        setChecked(SnapshotCommand::ScrollTogether, true);
        m_sort.set(SortByName, GridSort::Order::Ascending);
    }

    // The comparison root survives the rebuild when its folder is still shown.
    const QModelIndex root = m_treeModel->indexOfKey(Separator + m_rootKey, nameMatching());
    m_tvwPaths->selectNode(root.isValid() ? root : top);
    markComparisonRoot(selectedNode());

    // Reopen at the folder the user was looking at, in whichever window.
    const QModelIndex last = m_treeModel->indexOfKey(m_host.lastSelectedFolder(), nameMatching());
    m_tvwPaths->selectNode(last.isValid() ? last : m_treeModel->topIndex());

    if (m_pair && !compared() && options.isOn(Key::Compare) && !m_comparisonHeld) {
        // The comparison shows itself: the tree is rebuilt and the selected
        // folder listed on its way.
        if (CompareSnapshot(*this, true))
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
    moveComparisonRoot(*this);
}

void SnapshotWindow::mnuCompare_Open() {
    const QModelIndex node = selectedNode();
    setChecked(SnapshotCommand::CompareRoot, node.isValid() && node == m_treeModel->rootNode());
}

int32_t SnapshotWindow::comparisonTop() const {
    if (m_rootKey.isEmpty())
        return m_snapshot.entryCount >= 1 ? 1 : 0;
    return m_rootIndex;
}

void SnapshotWindow::mnuCompareNow_Click() {
    if (m_host.busy() || !m_pair)
        return;
    // The comparison starts from the dialog's Compare buttons.
    m_host.showCompareOptions(caption(), m_pair->caption());
}

// File grid -----------------------------------------------------------------------

engine::GridLayout SnapshotWindow::gridLayout() const {
    return {m_snapshot.header.versions, m_subFolders, !m_snapshot.access.empty(),
            m_snapshot.fingerprints.taken(), hasMoves()};
}

void SnapshotWindow::applyColumnWidths() {
    m_grdFiles->setColumnWidths(gridLayout());
}

void SnapshotWindow::mnuFileExport_Click() {
    if (!m_host.busy())
        m_host.showExport(shownListOf(*this));
}

void SnapshotWindow::mnuFileExportReport_Click() {
    if (m_host.busy())
        return;
    const QString title = QStringLiteral("Export Change Report");
    if (!m_pair || !compared()) {
        m_host.showMessage(UserMessage{
            title,
            QStringLiteral("Compare the two snapshots first: the report lists what changed "
                           "between them."),
            MessageIcon::Information});
        return;
    }
    // The later snapshot is NEW, as the comparison took it for alerts and moves.
    const bool selfLater = engine::isLaterSnapshot(m_snapshot, m_pair->snapshot());
    const engine::Snapshot& newer = selfLater ? m_snapshot : m_pair->snapshot();
    const engine::Snapshot& older = selfLater ? m_pair->snapshot() : m_snapshot;
    // Named after the snapshots' files ("Data changes.html"), the newer's
    // when it has been saved.
    const QString named =
        newer.header.fileName.isEmpty() ? older.header.fileName : newer.header.fileName;
    const QString suggested =
        (named.isEmpty() ? QStringLiteral("Kestrel") : QFileInfo(named).completeBaseName()) +
        QStringLiteral(" changes.html");
    const QString file = m_host.chooseChangeReportFile(suggested);
    if (file.isEmpty())
        return;
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    engine::Outcome written = engine::guardedOperation(title, [&] {
        const engine::CompareOptions options = m_host.options().compareOptions();
        const engine::MoveList moves = engine::notedMoves(older);
        const output::ChangeList list(newer, older, options, moves);
        output::ReportContext context;
        context.oldFile = older.header.fileName;
        context.newFile = newer.header.fileName;
        context.setColours(m_host.options().changedColour(), m_host.options().deletedColour());
        return output::writeChangeReportFile(file, output::changeReportFormatFor(file), list,
                                             context);
    });
    QGuiApplication::restoreOverrideCursor();
    if (!written.ok && written.message)
        m_host.showMessage(*written.message);
}

void SnapshotWindow::mnuFilePrint_Click() {
    if (!m_host.busy())
        m_host.showPrint(shownListOf(*this));
}

void SnapshotWindow::mnuFilePrintPreview_Click() {
    if (!m_host.busy())
        m_host.showPrintPreview(shownListOf(*this));
}

void SnapshotWindow::RefreshScreen(int32_t tag, const QString& key) {
    const settings::Options& options = m_host.options();
    // The limit counts the rows the show mode would list, not the entries
    // beneath the folder: a flat list of a big tree's few differences fits.
    const int32_t alwaysBelow =
        options.isOn(Key::Always) ? settings::limitValue(options.value(Key::Limit)) : 0;
    const engine::SubFolderChoice choice = engine::chooseSubFolders(
        m_snapshot, tag, rowSelection().listing, checked(SnapshotCommand::SubFolders), alwaysBelow);
    if (choice.refused) {
        m_host.showMessage(UserMessage{
            QStringLiteral("Entry Limit"),
            QStringLiteral("Too many entries to show files in sub-folders (maximum is 30,000), "
                           "option will be ignored"),
            MessageIcon::Exclamation});
    }
    setChecked(SnapshotCommand::SubFolders, choice.subFolders);
    m_subFolders = choice.subFolders;
    applyColumnWidths();

    engine::ProgressMeter& meter = m_host.progressMeter();
    if (m_subFolders) {
        // The count shows only while every entry is listed.
        const QString count = engine::filtersByComparison(m_showMode)
                                  ? QString()
                                  : QLatin1Char(' ') + engine::formatCount(choice.rows);
        meter.initialise(choice.rows,
                         QStringLiteral("Displaying") + count + QStringLiteral(" Entries"), false);
        const OperationScope operation(m_host);
        const engine::MeterCloser closer(meter);
        RefreshList(&meter);
    } else {
        RefreshList(nullptr);
    }

    if (options.isOn(Key::Synch) && isActiveSnapshotWindow()) {
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
    selection.listing.emptyFolders = m_host.options().isOn(Key::Empty);
    selection.listing.compared = &m_comparedPart;
    selection.listing.showIgnored = checked(SnapshotCommand::ShowIgnored);
    selection.nameFilter = m_findBar->activeFilter();
    if (m_sort.sorted()) {
        selection.sortColumn = m_sort.column() - 1;
        selection.descending = sortDescending();
    }
    return selection;
}

void SnapshotWindow::RefreshList(engine::ProgressMeter* meter) {
    // Sorted again by the sort column, in the same order.
    const bool sorted = m_sort.sorted();
    if (sorted)
        QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    const SnapshotWindow* pair = pairedWindow();
    m_gridModel->setComparedWith(compared() && pair ? &pair->snapshot() : nullptr,
                                 m_host.options().compareOptions());
    m_gridModel->select(m_currentTag, rowSelection(), colours(), meter);
    // The Moved column comes and goes with the moves a comparison found.
    if (hasMoves() == m_grdFiles->isColumnHidden(engine::MovedColumn))
        m_grdFiles->applyColumnWidth(engine::MovedColumn, gridLayout());
    updateStatusBar();
    showSortOrder();
    if (sorted)
        QGuiApplication::restoreOverrideCursor();
}

void SnapshotWindow::updateStatusBar() {
    m_sbrStatus->showListing(m_snapshot.header.rootFolder, m_currentKey, ShowChanges(),
                             m_gridModel->counters(), checked(SnapshotCommand::Bytes));
    if (m_findBar->activeFilter())
        m_sbrStatus->setPanelText(SnapshotStatusBar::ListingPanel,
                                  engine::findText(m_gridModel->rows()));
}

QString SnapshotWindow::ShowChanges() const {
    return engine::ShowChanges(m_pair != nullptr, compared(), m_showMode, m_gridModel->counters(),
                               m_snapshot.ignoredCount,
                               compared() ? engine::movesText(m_snapshot) : QString());
}

void SnapshotWindow::showChangeSummary() {
    m_sbrStatus->setPanelText(SnapshotStatusBar::ChangesPanel, ShowChanges());
}

void SnapshotWindow::showNoMatchingFolder(bool rootsDiffer) {
    m_tvwPaths->clearSelectedNode();
    m_currentKey.clear();
    m_currentTag = 0;
    RefreshList(nullptr);
    m_sbrStatus->showNoMatchingFolder(engine::filtersByComparison(m_showMode), rootsDiffer);
}

void SnapshotWindow::SortSequence(int column) {
    if (m_faster && engine::sortNeedsKeys(column - 1)) {
        m_host.showMessage(
            UserMessage{QStringLiteral("Sorting Restriction"),
                        QStringLiteral("Cannot sort by Size, Modified or Attributes when '") +
                            fasterCaptionShown() +
                            QStringLiteral("' is enabled (see Options and Preferences). ") +
                            QStringLiteral("All open Snapshots must then be saved and ") +
                            QStringLiteral("re-opened to fully enable column sorting."),
                        MessageIcon::Exclamation});
        return;
    }
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    m_sort.click(column);
    m_gridModel->sortByText(engine::sortKeyColumn(column - 1), sortDescending());
    showSortOrder();
    QGuiApplication::restoreOverrideCursor();
}

void SnapshotWindow::showSortOrder() {
    m_grdFiles->showSortMark(m_sort.column() - 1, sortDescending());
    if (!m_sort.sorted())
        return;
    if (m_gridModel->rowCount() >= 1)
        m_grdFiles->setCurrentIndex(m_gridModel->index(0, 0));
    // Scrolling together needs both grids in name order.
    if (!m_sort.byNameAscending())
        setChecked(SnapshotCommand::ScrollTogether, false);
}

int SnapshotWindow::topRow() const {
    return m_grdFiles->topRow();
}

void SnapshotWindow::grdFiles_Scroll() {
    // The grid the user scrolls leads; any other scrolling (a new listing,
    // the current row moving) only in the active window. A grid following
    // the other leads nothing back.
    const bool byUser = m_grdFiles->takeScrolledByUser();
    if (!checked(SnapshotCommand::ScrollTogether) || m_followingScroll ||
        !(byUser || isActiveSnapshotWindow()))
        return;
    for (SnapshotWindow* other : m_host.snapshotWindows())
        if (other != this)
            followScrolling(*this, *other);
}

void SnapshotWindow::ScrollPosition(const QString& name, const QString& folder) {
    if (!checked(SnapshotCommand::ScrollTogether) || !selectedNode().isValid())
        return;
    const int row = m_gridModel->rowToScrollTo(name, folder, topRow(), nameMatching());
    if (row < 0)
        return;
    const bool was = std::exchange(m_followingScroll, true);
    m_grdFiles->scrollTo(m_gridModel->index(row, 0), QAbstractItemView::PositionAtTop);
    m_followingScroll = was;
}

void SnapshotWindow::grdFiles_DblClick(int row, int column) {
    if (row < 0 || row >= m_gridModel->rowCount())
        return;
    const settings::Options& options = m_host.options();
    const int32_t entry = m_gridModel->entryAt(row);
    // The Moved cell leads to where the entry went, or came from, in the
    // paired window.
    if (column == engine::MovedColumn && m_pair && compared()) {
        if (const int32_t other = engine::movedCounterpart(m_snapshot, entry); other > 0) {
            if (m_pair->selectEntry(other))
                m_pair->grid()->setFocus();
            return;
        }
    }
    const engine::SnapshotEntry& e = m_snapshot.entries.get(entry);
    if (e.isFolder()) {
        if (options.isOn(Key::Explore)) {
            // "Double-clicking folder names opens up Explorer windows": the
            // folder opens in the desktop's file manager instead.
            launchEntry(entry);
            return;
        }
        selectFolder(selectedKey() + m_gridModel->rows().inFolder(row) +
                     m_snapshot.nameText(entry) + Separator);
        return;
    }
    if (!options.isOn(Key::Shell)) {
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
    setChecked(SnapshotCommand::Bytes, !checked(SnapshotCommand::Bytes));
    updateStatusBar();
}

void SnapshotWindow::mnuViewSubs_Click() {
    setChecked(SnapshotCommand::SubFolders, !checked(SnapshotCommand::SubFolders));
    const QModelIndex node = selectedNode();
    RefreshScreen(m_treeModel->tagOf(node), m_treeModel->keyOf(node));
}

void SnapshotWindow::mnuViewScroll_Click() {
    setChecked(SnapshotCommand::ScrollTogether, !checked(SnapshotCommand::ScrollTogether));
    if (!checked(SnapshotCommand::ScrollTogether))
        return;
    m_host.options().setValue(Key::Synch, 1);
    // Name descending, which SortSequence turns into name ascending.
    m_sort.set(SortByName, GridSort::Order::Descending);
    SortSequence(SortByName);
}

void SnapshotWindow::mnuViewSynch_Click() {
    settings::Options& options = m_host.options();
    options.setValue(Key::Synch, options.isOn(Key::Synch) ? 0 : 1);
}

void SnapshotWindow::optionsSynchChanged(bool on) {
    setChecked(SnapshotCommand::Synchronise, on);
    if (!on)
        setChecked(SnapshotCommand::ScrollTogether, false);
}

// Closing and layout ----------------------------------------------------------------------

void SnapshotWindow::mnuFileClose_Click() {
    // The window inside the main window's area is the sub-window holding this.
    if (QWidget* frame = parentWidget())
        frame->close();
    else
        QWidget::close();
}

void SnapshotWindow::closeEvent(QCloseEvent* event) {
    if (!m_host.queryUnload(*this)) {
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
    const int gridWidth = std::max(0, width() - split - bar);
    const int findHeight = m_findBar->isHidden() ? 0 : m_findBar->sizeHint().height();
    m_findBar->setGeometry(split + bar, 0, gridWidth, findHeight);
    m_grdFiles->setGeometry(split + bar, findHeight, gridWidth, std::max(0, height - findHeight));
    m_sbrStatus->setGeometry(0, height, width(), statusHeight);
}

} // namespace kestrel::views
