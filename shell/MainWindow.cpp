#include "MainWindow.h"

#include "AboutBox.h"
#include "BusyInputFilter.h"
#include "DroppedPath.h"
#include "MeterWindow.h"
#include "NewSnapshotDialog.h"
#include "RecentSnapshots.h"
#include "SavePrompt.h"
#include "ScreenPlacement.h"
#include "SnapshotFileCommands.h"

#include "engine/compare/History.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Memory.h"
#include "engine/support/Paths.h"
#include "listing/Twips.h"
#include "views/HistoryWindow.h"
#include "views/SnapshotPair.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>

#include <cerrno>
#include <cmath>
#include <cstring>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace kestrel::shell {

using engine::MessageIcon;
using engine::pixelsCoveringTwips;
using engine::pixelsFromTwips;
using engine::twipsFromPixels;
using engine::UserMessage;
using settings::Key;
using views::SnapshotWindow;

MainWindow::MainWindow(const QString& iniPath, QWidget* parent)
    : QMainWindow(parent), m_ini(iniPath),
      m_launcher([this](const UserMessage& message) { showMessage(message); }),
      m_meterWindow(new MeterWindow(this)), m_meter(m_meterWindow),
      m_busyFilter(new BusyInputFilter(this, this)) {
    setWindowTitle(QStringLiteral("Kestrel"));
    setWindowIcon(KestrelIcon());
    m_meterWindow->attach(&m_meter);

    // The options come first: the windows made below read them. The options
    // dialog loads them as it is made.
    m_config = std::make_unique<settings::ConfigDialog>(m_options, m_store, this);
    m_config->showModal = [this](QDialog& dialog) { return execDialog(dialog); };
    m_config->launchProgram = [this](const settings::CustomLaunch& launch) {
        return m_launcher.StartProgram(launch.program, launch.arguments, launch.folder);
    };
    connect(m_config.get(), &settings::ConfigDialog::helpRequested, this,
            &MainWindow::mnuHelpTips_Click);
    // Its Compare buttons compare the active snapshot window again.
    connect(m_config.get(), &settings::ConfigDialog::compareRequested, this, [this](bool bothWays) {
        if (SnapshotWindow* window = activeSnapshotWindow())
            views::CompareSnapshot(*window, bothWays);
    });

    createQuestions();

    m_mdi = new QMdiArea(this);
    m_mdi->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_mdi->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setCentralWidget(m_mdi);
    connect(m_mdi, &QMdiArea::subWindowActivated, this, &MainWindow::subWindowActivated);

    m_commands = std::make_unique<FrameCommands>(*this);
    showMenusOf(nullptr);
    createToolbar();

    m_summary = new QLabel(this);
    m_summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    statusBar()->addWidget(m_summary, 1);
    statusBar()->setSizeGripEnabled(true);

    m_newDialog = new NewSnapshotDialog(m_ini, m_options, this);
    connect(m_newDialog, &NewSnapshotDialog::helpRequested, this, &MainWindow::mnuHelpTips_Click);

    m_recent = new RecentSnapshotsDialog(m_store, this);
    m_recent->open = [this](const QString& path) { return OpenSnapshot(path); };
    m_recent->newSnapshot = [this] { mnuFileNew_Click(); };
    m_recent->help = [this] { mnuHelpTips_Click(); };
    chooseHistoryFiles = [this] {
        QFileDialog dialog(this, QStringLiteral("Open History"), lastFolder());
        dialog.setAcceptMode(QFileDialog::AcceptOpen);
        dialog.setFileMode(QFileDialog::ExistingFiles);
        dialog.setNameFilters(engine::snapshotFileFilters());
        return dialog.exec() == QDialog::Accepted ? dialog.selectedFiles() : QStringList();
    };
    chooseReportFile = [this](const QString& suggested) {
        QFileDialog dialog(this, QStringLiteral("Export Change Report"), lastFolder());
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setNameFilters({QStringLiteral("Web page (*.html)"),
                               QStringLiteral("JSON document (*.json)"),
                               QStringLiteral("JSON lines (*.jsonl)")});
        dialog.setDefaultSuffix(QStringLiteral("html"));
        dialog.selectFile(suggested);
        // The type chosen gives the suffix when the name has none of the three.
        connect(&dialog, &QFileDialog::filterSelected, &dialog, [&dialog](const QString& filter) {
            const qsizetype dot = filter.indexOf(QLatin1String("*."));
            dialog.setDefaultSuffix(filter.mid(dot + 2).chopped(1));
        });
        return dialog.exec() == QDialog::Accepted ? dialog.selectedFiles().value(0) : QString();
    };

    // Main window load: the recent list has read the file dialog's folder;
    // then the placement.
    loadPlacement();

    m_tileLayout = m_store.readTileSideBySide() ? views::TileLayout::SideBySide
                                                : views::TileLayout::OneAboveTheOther;
    setAcceptDrops(true);
    setToolbarVisible(m_options.isOn(Key::Toolbar));
    connect(&m_options, &settings::Options::toolbarChanged, this, &MainWindow::setToolbarVisible);
    updateActions();
}

MainWindow::~MainWindow() {
    // Closing the frame in QWidget's destructor hides the snapshot windows,
    // and the area then reports an activation: by that time this is no
    // longer a MainWindow, so the area must not call it.
    disconnect(m_mdi, nullptr, this, nullptr);
}

void MainWindow::createQuestions() {
    m_questions.exec = [](QDialog& dialog) { return dialog.exec(); };
    m_questions.message = [this](const UserMessage& message) {
        QMessageBox box(message.icon == MessageIcon::Information ? QMessageBox::Information
                                                                 : QMessageBox::Warning,
                        message.title, message.text, QMessageBox::Ok, this);
        box.exec();
    };
    m_questions.saveFileName = [this](const QString& proposedPath) {
        return QFileDialog::getSaveFileName(this, QStringLiteral("Save Snapshot As"), proposedPath,
                                            engine::snapshotFileFilters().join(u";;"));
    };
    m_questions.exportFileName = [this](const QString& proposedPath, const QString& filter) {
        return QFileDialog::getSaveFileName(this, QStringLiteral("Export Current List"),
                                            proposedPath, filter);
    };
    m_questions.text = [this](const QString& prompt, const QString& caption,
                              const QString& text) -> std::optional<QString> {
        bool ok = false;
        const QString answer =
            QInputDialog::getText(this, caption, prompt, QLineEdit::Normal, text, &ok);
        if (!ok)
            return std::nullopt;
        return answer;
    };
    m_questions.saveQuestion = [this](const QString& prompt) {
        if (!m_savePrompt)
            m_savePrompt = new SavePrompt(this);
        return m_savePrompt->PromptToSave(prompt);
    };
}

void MainWindow::showMenusOf(SnapshotWindow* window) {
    // The bar only lists the menus: they stay with their owners.
    menuBar()->clear();
    for (QMenu* menu : window ? window->menus() : m_commands->menus())
        menuBar()->addMenu(menu);
}

void MainWindow::createToolbar() {
    m_toolbar = new QToolBar(QStringLiteral("Toolbar"), this);
    m_toolbar->setObjectName(QStringLiteral("Toolbar1"));
    m_toolbar->setMovable(false);
    m_toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    addToolBar(Qt::TopToolBarArea, m_toolbar);
    m_commands->fillToolbar(m_toolbar);
    connect(m_toolbar, &QToolBar::actionTriggered, this, [this](const QAction* button) {
        if (!busy())
            m_commands->runButton(button);
    });
}

QAction* MainWindow::toolbarButton(const QString& caption) const {
    return m_commands->button(caption);
}

void MainWindow::setToolbarVisible(bool visible) {
    m_toolbar->setVisible(visible);
}

void MainWindow::Toolbar1_ButtonClick(const QString& caption) {
    if (busy())
        return;
    m_commands->runButton(m_commands->button(caption));
}

// Commands ------------------------------------------------------------------

void MainWindow::mnuFileNew_Click() {
    if (busy())
        return;
    execDialog(*m_newDialog);
    const QString folder = m_newDialog->folder();
    if (folder.isEmpty())
        return;
    NewSnapshot(engine::storedPath(folder), m_newDialog->recurse(), m_newDialog->hidden(),
                m_newDialog->versions(), 1, m_newDialog->fingerprints());
}

void MainWindow::mnuFileOpen_Click() {
    if (busy())
        return;
    if (m_recent->list().isEmpty()) {
        m_recent->browse();
        return;
    }
    m_recent->refresh();
    execDialog(*m_recent);
}

void MainWindow::mnuFileOpenHistory_Click() {
    if (busy())
        return;
    const QStringList files = chooseHistoryFiles ? chooseHistoryFiles() : QStringList();
    if (!files.isEmpty())
        OpenHistory(files);
}

bool MainWindow::OpenHistory(const QStringList& files) {
    if (busy() || files.isEmpty())
        return false;
    QStringList series;
    if (files.size() == 1) {
        series = engine::historySeries(engine::absolutePath(files.constFirst()));
    } else {
        for (const QString& file : files)
            series << engine::absolutePath(file);
        std::stable_sort(series.begin(), series.end(), [](const QString& a, const QString& b) {
            return engine::snapshotNumberOf(a) < engine::snapshotNumberOf(b);
        });
    }
    auto history = std::make_unique<engine::History>();
    try {
        views::OperationScope operation(*this);
        *history = engine::buildHistory(series, m_options.compareOptions(), m_meter);
    } catch (...) {
        const engine::CaughtError error = engine::caughtError();
        showMessage(UserMessage{QStringLiteral("Comparing Snapshots"), error.text,
                                MessageIcon::Exclamation});
        return false;
    }
    const auto readable = std::find_if(history->generations.begin(), history->generations.end(),
                                       [](const engine::Generation& g) { return g.readable(); });
    if (readable == history->generations.end()) {
        showMessage(UserMessage{QStringLiteral("Invalid Snapshot"),
                                history->generations.front().error, MessageIcon::Exclamation});
        return false;
    }
    auto* window = new views::HistoryWindow(
        std::move(history),
        views::HighlightColours::from(m_options, palette().color(QPalette::Base),
                                      palette().color(QPalette::Text)));
    connect(window, &views::HistoryWindow::compareRequested, this,
            [this](const QString& older, const QString& newer) {
                // Two snapshot windows at a time: the pair takes both.
                if (!snapshotWindows().isEmpty()) {
                    showMessage(UserMessage{
                        QStringLiteral("Compare Snapshots"),
                        QStringLiteral("Close the open snapshot windows first: two snapshots "
                                       "are compared at a time."),
                        MessageIcon::Exclamation});
                    return;
                }
                openAndCompare(older, newer);
            });
    QMdiSubWindow* sub = m_mdi->addSubWindow(window);
    sub->setWindowIcon(windowIcon());
    // Its history and latest snapshot go with it.
    connect(
        sub, &QObject::destroyed, this, [] { engine::releaseFreedMemory(); }, Qt::QueuedConnection);
    sub->show();
    m_mdi->setActiveSubWindow(sub);
    if (m_options.isOn(Key::Tiling))
        tileSnapshotWindows();
    else
        sub->resize(m_mdi->viewport()->size() * 9 / 10);
    return true;
}

bool MainWindow::openAndCompare(const QString& older, const QString& newer) {
    if (!openPath(older, 1) || snapshotWindows().size() != 1)
        return false;
    const int16_t next = int16_t(snapshotWindows().constFirst()->number() + 1);
    if (!openPath(newer, next))
        return false;
    // Compared even with automatic comparison off: comparing them is what
    // was asked for.
    SnapshotWindow* window = snapshotWindows().constLast();
    if (window->pairedWindow() && !window->compared())
        views::CompareSnapshot(*window, true);
    return true;
}

void MainWindow::mnuFileConfig_Click() {
    if (busy())
        return;
    m_config->disableCompareButtons();
    execDialog(*m_config);
    optionsClosed();
}

void MainWindow::showCompareOptions(const QString& current, const QString& other) {
    if (busy())
        return;
    m_config->showForComparison(current, other);
    optionsClosed();
}

void MainWindow::optionsClosed() {
    if (!m_config->displayChanged())
        return;
    for (SnapshotWindow* window : snapshotWindows())
        window->refreshFolder();
}

output::ExportDialog& MainWindow::exportDialog() {
    if (!m_export) {
        m_export = new output::ExportDialog(this);
        m_export->chooseFile = [this](const QString& proposed, const QString& filter) {
            // A snapshot never saved proposes a bare name: it starts in the
            // folder the file dialogs last used.
            const QString path =
                QFileInfo(proposed).isRelative() ? QDir(lastFolder()).filePath(proposed) : proposed;
            return m_questions.exportFileName(path, filter);
        };
        m_export->askText = [this](const QString& prompt, const QString& caption,
                                   const QString& text) { return askText(prompt, caption, text); };
        m_export->message = [this](const UserMessage& message) { showMessage(message); };
    }
    return *m_export;
}

output::PrintDialog& MainWindow::printDialog() {
    if (!m_print)
        m_print = new output::PrintDialog(m_meter, this);
    return *m_print;
}

void MainWindow::showExport(const output::ShownList& list) {
    if (busy())
        return;
    output::ExportDialog& dialog = exportDialog();
    dialog.setList(list);
    execDialog(dialog);
    dialog.clearList();
}

QString MainWindow::chooseChangeReportFile(const QString& suggested) {
    return chooseReportFile ? chooseReportFile(suggested) : QString();
}

void MainWindow::showPrint(const output::ShownList& list) {
    if (busy())
        return;
    output::PrintDialog& dialog = printDialog();
    dialog.setList(list);
    {
        // The report runs under the meter, which lets events through.
        views::OperationScope operation(*this);
        execDialog(dialog);
    }
    dialog.clearList();
}

void MainWindow::showPrintPreview(const output::ShownList& list) {
    if (busy())
        return;
    views::OperationScope operation(*this);
    printDialog().PrintPreview(list);
}

bool MainWindow::ExecuteCustom(const QString& first, const QString& second) {
    return m_config->ExecuteCustom(first, second);
}

void MainWindow::mnuFileExit_Click() {
    close();
}

void MainWindow::mnuHelpAbout_Click() {
    if (busy())
        return;
    loadAboutBox();
    execDialog(*m_about);
}

void MainWindow::mnuHelpTips_Click() {
    m_launcher.ShowHelp(QStringLiteral("#Top"));
}

void MainWindow::loadAboutBox() {
    if (!m_about)
        m_about = new AboutBox(this);
}

int MainWindow::execDialog(QDialog& dialog) {
    return m_questions.exec(dialog);
}

// Snapshots -----------------------------------------------------------------

bool MainWindow::NewSnapshot(const QString& folder, bool recurse, bool hidden, bool versions,
                             int16_t number, bool fingerprints) {
    if (busy())
        return false;
    // The window stays off screen until its snapshot is complete; when the
    // scan fails it is simply destroyed.
    std::unique_ptr<SnapshotWindow> window = makeSnapshotWindow();
    engine::SnapshotHeader& header = window->snapshot().header;
    header.rootFolder = folder;
    if (!header.rootFolder.endsWith(engine::Separator))
        header.rootFolder += engine::Separator;
    header.recurse = recurse;
    header.hidden = hidden;
    header.versions = versions;

    engine::ScanSettings settings;
    settings.meterLevel = m_options.value(Key::Meter);
    settings.versionFolder = m_newDialog->versionFolder();
    settings.exclude = excludePatterns();
    settings.fingerprints = fingerprints;
    engine::Outcome outcome;
    {
        views::OperationScope operation(*this);
        outcome = engine::CreateSnapshot(window->snapshot(), settings, m_meter);
    }
    if (!outcome.ok) {
        if (outcome.message)
            showMessage(*outcome.message);
        return false;
    }
    ShowSummary(outcome.summary);
    if (!window->snapshot().ignoreFileProblem.isEmpty())
        showMessage(UserMessage{QStringLiteral("Ignore Patterns"),
                                header.rootFolder + window->snapshot().ignoreFileProblem,
                                MessageIcon::Exclamation});

    window->setChanged(true);
    window->setNumber(number);
    header.title = engine::NewSnapshotTitle(folder, number, m_options.isOn(Key::Naming));
    if (m_options.isOn(Key::Title))
        mnuFileProps_Click(*this, *window);
    window->setCaption(header.title);
    return showSnapshotWindow(std::move(window), QStringLiteral("Kestrel"));
}

std::shared_ptr<const engine::IgnorePatterns> MainWindow::excludePatterns() {
    const QByteArray text = m_newDialog->excludePatterns().toUtf8();
    auto patterns = std::make_shared<engine::IgnorePatterns>(
        std::string_view(text.constData(), size_t(text.size())), QStringLiteral("Exclude"));
    // A pattern that cannot be read is said; the others still apply.
    if (!patterns->problems().isEmpty())
        showMessage(UserMessage{QStringLiteral("Exclude Patterns"),
                                patterns->problems().join(QLatin1Char('\n')),
                                MessageIcon::Exclamation});
    if (patterns->empty())
        return nullptr;
    return patterns;
}

bool MainWindow::OpenSnapshot(const QString& path) {
    if (busy())
        return false;
    std::unique_ptr<SnapshotWindow> window = makeSnapshotWindow();
    engine::OpenOutcome outcome;
    {
        views::OperationScope operation(*this);
        outcome = engine::OpenSnapshotFile(window->snapshot(), path, m_meter);
    }
    // Versions that were not collected cannot be compared: the comparison
    // ignores them whenever the file says so, even if it then failed to load.
    if (outcome.versions)
        m_options.setValue(Key::Version, *outcome.versions ? 0 : 1);
    if (!outcome.ok) {
        if (outcome.message)
            showMessage(*outcome.message);
        return false;
    }
    ShowSummary(outcome.summary);
    // The snapshot exists in the current format only in memory.
    if (outcome.imported)
        window->setChanged(true);
    // The import's notice, or the load's about a damaged or cut file.
    if (outcome.message)
        showMessage(*outcome.message);
    window->setNumber(outcome.number);
    window->setCaption(m_options.isOn(Key::Filename) ? path : window->snapshot().header.title);
    if (!showSnapshotWindow(std::move(window), QStringLiteral("Invalid Snapshot")))
        return false;
    AddRecent(path);
    return true;
}

bool MainWindow::checkPathExists(const QString& path) {
    const QString full = engine::absolutePath(path);
    QString problem = QStringLiteral(" does not exist");
#ifdef Q_OS_UNIX
    // The link itself counts, as ls shows it; a folder on the way that may
    // not be searched is told as such, not as a missing path.
    struct stat status;
    if (::lstat(engine::nativeBytes(full).constData(), &status) == 0)
        return true;
    if (errno != ENOENT && errno != ENOTDIR)
        problem = QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
#else
    if (QFileInfo::exists(full))
        return true;
#endif
    showMessage(UserMessage{QStringLiteral("Path Not Found"), engine::storedPath(full) + problem,
                            MessageIcon::Exclamation});
    return false;
}

bool MainWindow::openPath(const QString& path, int16_t number) {
    const QString full = engine::absolutePath(path);
    if (!checkPathExists(full))
        return false;
    // A folder as the command line takes one: with its sub-folders and
    // hidden items, without versions.
    if (engine::pathInfo(engine::nativeBytes(full)).folder)
        return NewSnapshot(engine::storedPath(full), true, true, false, number);
    return OpenSnapshot(full);
}

std::unique_ptr<SnapshotWindow> MainWindow::makeSnapshotWindow() {
    auto window = std::make_unique<SnapshotWindow>(*this, m_commands->actions());
    connectFileCommands(*this, *window);
    return window;
}

bool MainWindow::showSnapshotWindow(std::unique_ptr<SnapshotWindow> window,
                                    const QString& failureTitle) {
    // A snapshot whose links are damaged is refused before anything shows it.
    const engine::Outcome shown = window->showSnapshot(failureTitle);
    if (!shown.ok) {
        if (shown.message)
            showMessage(*shown.message);
        return false;
    }
    QMdiSubWindow* sub = m_mdi->addSubWindow(window.release());
    sub->setWindowIcon(windowIcon());
    // The window's own File menu closes it with the same key; the frame's
    // copy of it would make the key ambiguous.
    if (QMenu* system = sub->systemMenu())
        for (QAction* action : system->actions())
            action->setShortcut(QKeySequence());
    // Queued: the window is gone from the area's list only after destroyed.
    connect(sub, &QObject::destroyed, this, &MainWindow::snapshotWindowGone, Qt::QueuedConnection);
    sub->show();
    m_mdi->setActiveSubWindow(sub);
    if (m_options.isOn(Key::Tiling))
        tileSnapshotWindows();
    updateActions();
    return true;
}

void MainWindow::subWindowActivated(QMdiSubWindow* sub) {
    // The area reports no window while the frame itself is inactive (a
    // dialog is up); the window that was active stays so.
    if (!sub)
        return;
    auto* window = qobject_cast<SnapshotWindow*>(sub->widget());
    if (!window)
        return;
    showMenusOf(window);
    if (window != m_lastActivated)
        window->Form_Activate();
    updateActions();
}

void MainWindow::snapshotWindowGone() {
    // Its snapshot is gone with it.
    engine::releaseFreedMemory();
    const QList<SnapshotWindow*> windows = snapshotWindows();
    if (windows.isEmpty()) {
        showMenusOf(nullptr);
    } else if (!m_lastActivated) {
        // The window left active did not change, so the area reports no
        // activation: it loses its pair all the same.
        if (QMdiSubWindow* current = m_mdi->currentSubWindow())
            if (auto* window = qobject_cast<SnapshotWindow*>(current->widget()))
                window->Form_Activate();
    }
    if (!windows.isEmpty() && m_options.isOn(Key::Tiling))
        tileSnapshotWindows();
    updateActions();
}

void MainWindow::ShowSummary(const QString& summary) {
    m_summary->setText(summary);
}

QString MainWindow::summaryText() const {
    return m_summary->text();
}

SnapshotWindow* MainWindow::activeSnapshotWindow() const {
    return m_lastActivated;
}

void MainWindow::setActiveSnapshotWindow(SnapshotWindow* window) {
    m_lastActivated = window;
}

QList<SnapshotWindow*> MainWindow::snapshotWindows() const {
    QList<SnapshotWindow*> windows;
    const QList<QMdiSubWindow*> subs = m_mdi->subWindowList(QMdiArea::CreationOrder);
    for (QMdiSubWindow* sub : subs) {
        // A closed window is hidden until it is deleted.
        if (sub->isHidden())
            continue;
        if (auto* window = qobject_cast<SnapshotWindow*>(sub->widget()))
            windows.append(window);
    }
    return windows;
}

void MainWindow::tileWindows(views::TileLayout layout) {
    m_tileLayout = layout;
    m_store.writeTileSideBySide(layout == views::TileLayout::SideBySide);
    tileSnapshotWindows();
}

void MainWindow::tileSnapshotWindows() {
    QList<QMdiSubWindow*> tiled;
    const QList<QMdiSubWindow*> subs = m_mdi->subWindowList(QMdiArea::CreationOrder);
    for (QMdiSubWindow* sub : subs)
        if (!sub->isHidden() && !sub->isMinimized())
            tiled.append(sub);
    if (tiled.isEmpty())
        return;
    const QRect area = m_mdi->viewport()->rect();
    const bool sideBySide = m_tileLayout == views::TileLayout::SideBySide;
    const int count = int(tiled.size());
    const int span = sideBySide ? area.width() : area.height();
    const int step = span / count;
    for (int i = 0; i < count; ++i) {
        QMdiSubWindow* sub = tiled[i];
        if (sub->isMaximized())
            sub->showNormal();
        // The last window takes what the division leaves over.
        const int start = i * step;
        const int length = i + 1 == count ? span - start : step;
        sub->setGeometry(sideBySide ? QRect(area.left() + start, area.top(), length, area.height())
                                    : QRect(area.left(), area.top() + start, area.width(), length));
    }
}

void MainWindow::updateActions() {
    m_commands->enableFor(int(snapshotWindows().size()), activeSnapshotWindow());
}

// SnapshotHost ---------------------------------------------------------------

void MainWindow::operationStarted() {
    if (m_operations++ == 0)
        qApp->installEventFilter(m_busyFilter);
}

void MainWindow::operationEnded() {
    if (--m_operations == 0)
        qApp->removeEventFilter(m_busyFilter);
}

bool MainWindow::queryUnload(SnapshotWindow& window) {
    return shell::queryUnload(*this, window);
}

void MainWindow::AddRecent(const QString& path) {
    m_recent->list().add(path);
    m_recent->refresh();
}

QString MainWindow::lastFolder() const {
    return m_recent->lastFolder();
}

void MainWindow::setLastFolder(const QString& folder) {
    m_recent->setLastFolder(folder);
}

void MainWindow::showMessage(const UserMessage& message) {
    m_questions.message(message);
}

QString MainWindow::askSaveFileName(const QString& proposedPath) {
    return m_questions.saveFileName(proposedPath);
}

std::optional<QString> MainWindow::askText(const QString& prompt, const QString& caption,
                                           const QString& text) {
    return m_questions.text(prompt, caption, text);
}

views::SaveAnswer MainWindow::PromptToSave(const QString& prompt) {
    return m_questions.saveQuestion(prompt);
}

void MainWindow::LaunchDocument(const QString& folder, const QString& name) {
    m_launcher.LaunchDocument(folder, QString(), name, QString());
}

// Placement -----------------------------------------------------------------

void MainWindow::loadPlacement() {
    const double dpiX = logicalDpiX();
    const double dpiY = logicalDpiY();
    // The designed size, centred where the frame will appear; what the INI
    // file holds replaces it key by key.
    resize(pixelsFromTwips(DesignedWidth, dpiX), pixelsFromTwips(DesignedHeight, dpiY));
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());

    const settings::FramePlacement placement = m_ini.readFramePlacement(placementInTwips());
    move(pixelsFromTwips(placement.left, dpiX), pixelsFromTwips(placement.top, dpiY));
    resize(pixelsFromTwips(placement.width, dpiX), pixelsFromTwips(placement.height, dpiY));

    // A place on a monitor that is gone would keep the frame out of sight.
    QList<QRect> screens;
    for (const QScreen* screen : QGuiApplication::screens())
        screens.append(screen->availableGeometry());
    move(placedOnScreens(QRect(pos(), size()), screens).topLeft());

    switch (m_ini.readFrameState()) {
    case settings::FrameState::Minimised:
        setWindowState(Qt::WindowMinimized);
        break;
    case settings::FrameState::Maximised:
        setWindowState(Qt::WindowMaximized);
        break;
    case settings::FrameState::Normal:
        break;
    }
}

settings::FramePlacement MainWindow::placementInTwips() const {
    const double dpiX = logicalDpiX();
    const double dpiY = logicalDpiY();
    return {twipsFromPixels(y(), dpiY), twipsFromPixels(x(), dpiX), twipsFromPixels(height(), dpiY),
            twipsFromPixels(width(), dpiX)};
}

void MainWindow::savePlacement() {
    // Written whatever the state, so a maximised or minimised frame comes
    // back with whatever its last values were.
    m_ini.writeFramePlacement(placementInTwips());
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    if (windowState() & Qt::WindowMinimized)
        return;
    // Enforced here rather than with a minimum size, so a stored size below
    // it is raised as soon as the frame is resized.
    const int minimumWidth = pixelsCoveringTwips(MinimumWidth, logicalDpiX());
    const int minimumHeight = pixelsCoveringTwips(MinimumHeight, logicalDpiY());
    if (width() < minimumWidth || height() < minimumHeight)
        resize(std::max(width(), minimumWidth), std::max(height(), minimumHeight));
}

// Drag and drop ---------------------------------------------------------------

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    const bool takesAnother = !busy() && snapshotWindows().size() < 2;
    if (!busy() && droppedSnapshotFiles(event->mimeData()).size() >= 2)
        event->acceptProposedAction();
    else if (takesAnother && !droppedPath(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    const QStringList files = droppedSnapshotFiles(event->mimeData());
    if (files.size() >= 2) {
        event->acceptProposedAction();
        QTimer::singleShot(0, this, [this, files] { openDroppedHistory(files); });
        return;
    }
    const QString path = droppedPath(event->mimeData());
    if (path.isEmpty())
        return;
    event->acceptProposedAction();
    // After the drop has finished: a scan runs its own event loop under the
    // meter, which does not belong inside the drag's.
    QTimer::singleShot(0, this, [this, path] { openDropped(path); });
}

void MainWindow::openDroppedHistory(const QStringList& files) {
    if (!busy())
        OpenHistory(files);
}

void MainWindow::openDropped(const QString& path) {
    if (busy() || snapshotWindows().size() >= 2)
        return;
    openPath(path, 1);
}

// Closing -------------------------------------------------------------------

bool MainWindow::unloadSnapshotWindows() {
    const QList<QMdiSubWindow*> subs = m_mdi->subWindowList(QMdiArea::CreationOrder);
    for (QMdiSubWindow* sub : subs) {
        if (sub->isHidden())
            continue;
        // Each snapshot window asks about its own unsaved changes; a Cancel
        // there keeps it, and the program, open.
        if (!sub->close())
            return false;
    }
    return true;
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (m_closed) {
        event->accept();
        return;
    }
    // The meter lets events through while an operation runs; the frame
    // cannot close under it.
    if (busy()) {
        event->ignore();
        return;
    }
    savePlacement();
    // The save prompts come before the frame disappears, so that a Cancel
    // leaves everything on screen as it was.
    if (!unloadSnapshotWindows()) {
        event->ignore();
        updateActions();
        return;
    }
    m_closed = true;

    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    const bool minimised = windowState() & Qt::WindowMinimized;
    const bool maximised = windowState() & Qt::WindowMaximized;
    hide();
    if (m_about)
        m_about->DisplayBriefly(m_farewellTime);
    // A minimised frame keeps the state saved before.
    if (!minimised)
        m_ini.writeFrameState(maximised ? settings::FrameState::Maximised
                                        : settings::FrameState::Normal);
    // The recent list, with the file dialog's folder.
    m_recent->saveState();
    m_newDialog->saveChoices();
    QGuiApplication::restoreOverrideCursor();
    event->accept();
}

} // namespace kestrel::shell
