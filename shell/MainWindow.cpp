#include "MainWindow.h"

#include "AboutBox.h"
#include "MeterWindow.h"
#include "NewSnapshotDialog.h"
#include "RecentSnapshots.h"
#include "SavePrompt.h"

#include "engine/OpenSnapshot.h"
#include "engine/Scan.h"
#include "engine/Snapshot.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileDialog>
#include <QInputDialog>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QScreen>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>

#include <cmath>

namespace kestrel::shell {

using engine::MessageIcon;
using engine::UserMessage;
using settings::Key;
using views::SnapshotWindow;

namespace {

const QString Main = QStringLiteral("Main");
const QString Recent = QStringLiteral("Recent");

const QString SnapshotFilters =
    QStringLiteral("All Snapshots (*.#?\?);;Original Snapshots (*.#01);;All Files (*)");

// A printer for the Print button: the style has none of its own.
QIcon printerIcon(const QWidget* widget) {
    const QIcon themed = QIcon::fromTheme(QStringLiteral("document-print"));
    if (!themed.isNull())
        return themed;
    const int size = widget->style()->pixelMetric(QStyle::PM_ToolBarIconSize);
    const qreal ratio = widget->devicePixelRatioF();
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 24.0, size / 24.0);
    const QColor ink = widget->palette().color(QPalette::WindowText);
    p.setPen(QPen(ink, 1.3));
    p.setBrush(Qt::white);
    p.drawRect(QRectF(7, 3, 10, 7)); // paper going in
    p.setBrush(QColor(0xb8, 0xbc, 0xc2));
    p.drawRoundedRect(QRectF(3, 9, 18, 8), 1.5, 1.5); // body
    p.setBrush(Qt::white);
    p.drawRect(QRectF(7, 14, 10, 7)); // paper coming out
    p.setPen(QPen(ink, 0.9));
    p.drawLine(QPointF(9, 17), QPointF(15, 17));
    p.drawLine(QPointF(9, 19), QPointF(14, 19));
    return QIcon(pixmap);
}

} // namespace

QString NewSnapshotTitle(const QString& folder, int16_t number, bool naming) {
    if (naming && number == 1)
        return QStringLiteral("Original Snapshot of ") + folder;
    if (naming && number == 2)
        return QStringLiteral("Final Snapshot of ") + folder;
    return QStringLiteral("Snapshot #%1 of ").arg(number) + folder;
}

int twipsFromPixels(int pixels, double dpi) {
    return int(std::lround(pixels * 1440.0 / dpi));
}

int pixelsFromTwips(int twips, double dpi) {
    return int(std::lround(twips * dpi / 1440.0));
}

int pixelsCoveringTwips(int twips, double dpi) {
    return int(std::ceil(twips * dpi / 1440.0 - 1e-9));
}

MainWindow::MainWindow(const QString& iniPath, QWidget* parent)
    : QMainWindow(parent), m_ini(iniPath),
      m_launcher([this](const UserMessage& message) { showMessage(message); }),
      m_meterWindow(new MeterWindow(this)), m_meter(m_meterWindow) {
    setWindowTitle(QStringLiteral("Kestrel"));
    setWindowIcon(QIcon(KestrelEmblem(64)));
    m_meterWindow->attach(&m_meter);

    // The options come first: the windows made below read them.
    m_store.getSettings(m_options);

    m_questions.exec = [](QDialog& dialog) { return dialog.exec(); };
    m_questions.message = [this](const UserMessage& message) {
        QMessageBox box(message.icon == MessageIcon::Information ? QMessageBox::Information
                                                                 : QMessageBox::Warning,
                        message.title, message.text, QMessageBox::Ok, this);
        box.exec();
    };
    m_questions.saveFileName = [this](const QString& proposedPath) {
        return QFileDialog::getSaveFileName(this, QStringLiteral("Save Snapshot As"), proposedPath,
                                            SnapshotFilters);
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

    m_mdi = new QMdiArea(this);
    m_mdi->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_mdi->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setCentralWidget(m_mdi);
    connect(m_mdi, &QMdiArea::subWindowActivated, this, &MainWindow::updateActions);

    createActions();
    createMenus();
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

    // Main window load: the file dialog's folder, then the placement.
    m_recent->setLastFolder(
        m_store.readString(Recent, QStringLiteral("Folder"), QDir::currentPath()));
    loadPlacement();

    setToolbarVisible(m_options.value(Key::Toolbar) != 0);
    connect(&m_options, &settings::Options::toolbarChanged, this, &MainWindow::setToolbarVisible);
    updateActions();
}

MainWindow::~MainWindow() {
    // Closing the frame in QWidget's destructor hides the snapshot windows,
    // and the area then reports an activation: by that time this is no
    // longer a MainWindow, so the area must not call it.
    disconnect(m_mdi, nullptr, this, nullptr);
}

void MainWindow::createActions() {
    m_mnuFileNew = new QAction(QStringLiteral("&New Snapshot..."), this);
    m_mnuFileNew->setShortcut(QKeySequence::New);
    connect(m_mnuFileNew, &QAction::triggered, this, &MainWindow::mnuFileNew_Click);

    m_mnuFileOpen = new QAction(QStringLiteral("&Open Snapshot..."), this);
    m_mnuFileOpen->setShortcut(QKeySequence::Open);
    connect(m_mnuFileOpen, &QAction::triggered, this, &MainWindow::mnuFileOpen_Click);

    // The options dialog is not part of this build yet: the item is there,
    // disabled, and mnuFileConfig_Click will show the dialog once it exists.
    m_mnuFileConfig = new QAction(QStringLiteral("Kestrel &Configuration..."), this);
    m_mnuFileConfig->setEnabled(false);
    connect(m_mnuFileConfig, &QAction::triggered, this, &MainWindow::mnuFileConfig_Click);

    m_mnuFileExit = new QAction(QStringLiteral("E&xit Kestrel"), this);
    connect(m_mnuFileExit, &QAction::triggered, this, &MainWindow::mnuFileExit_Click);

    m_mnuHelpAbout = new QAction(QStringLiteral("&About Kestrel..."), this);
    connect(m_mnuHelpAbout, &QAction::triggered, this, &MainWindow::mnuHelpAbout_Click);

    m_mnuHelpTips = new QAction(QStringLiteral("&Help and Tips..."), this);
    m_mnuHelpTips->setShortcut(QKeySequence::HelpContents);
    connect(m_mnuHelpTips, &QAction::triggered, this, &MainWindow::mnuHelpTips_Click);
}

void MainWindow::createMenus() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    file->addAction(m_mnuFileNew);
    file->addAction(m_mnuFileOpen);
    file->addSeparator();
    file->addAction(m_mnuFileConfig);
    file->addSeparator();
    file->addAction(m_mnuFileExit);

    QMenu* help = menuBar()->addMenu(QStringLiteral("&Help"));
    help->addAction(m_mnuHelpAbout);
    help->addAction(m_mnuHelpTips);
}

void MainWindow::createToolbar() {
    m_toolbar = new QToolBar(QStringLiteral("Toolbar"), this);
    m_toolbar->setObjectName(QStringLiteral("Toolbar1"));
    m_toolbar->setMovable(false);
    m_toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    addToolBar(Qt::TopToolBarArea, m_toolbar);

    QStyle* s = style();
    m_tbNew = m_toolbar->addAction(s->standardIcon(QStyle::SP_FileIcon), QStringLiteral("New"));
    m_tbOpen =
        m_toolbar->addAction(s->standardIcon(QStyle::SP_DialogOpenButton), QStringLiteral("Open"));
    m_tbSaveAs = m_toolbar->addAction(s->standardIcon(QStyle::SP_DialogSaveButton),
                                      QStringLiteral("Save As"));
    m_toolbar->addSeparator();
    m_tbRepeat =
        m_toolbar->addAction(s->standardIcon(QStyle::SP_BrowserReload), QStringLiteral("Repeat"));
    // Compare and Print belong to the comparison views and the print
    // dialog, which are not part of this build: the buttons are there but
    // stay disabled until those arrive.
    m_tbCompare = m_toolbar->addAction(s->standardIcon(QStyle::SP_FileDialogContentsView),
                                       QStringLiteral("Compare"));
    m_tbPrint = m_toolbar->addAction(printerIcon(this), QStringLiteral("Print"));
    m_tbCompare->setEnabled(false);
    m_tbPrint->setEnabled(false);

    m_tbNew->setToolTip(QStringLiteral("Take a new snapshot of a folder"));
    m_tbOpen->setToolTip(QStringLiteral("Open a saved snapshot"));
    m_tbSaveAs->setToolTip(QStringLiteral("Save the active snapshot"));
    m_tbRepeat->setToolTip(QStringLiteral("Take the snapshot of the same folder again"));
    connect(m_toolbar, &QToolBar::actionTriggered, this, &MainWindow::toolbarActionTriggered);
}

QAction* MainWindow::toolbarButton(const QString& caption) const {
    const QList<QAction*> actions = m_toolbar->actions();
    for (QAction* action : actions)
        if (!action->isSeparator() && action->text() == caption)
            return action;
    return nullptr;
}

void MainWindow::setToolbarVisible(bool visible) {
    m_toolbar->setVisible(visible);
}

void MainWindow::toolbarActionTriggered(QAction* action) {
    Toolbar1_ButtonClick(action->text());
}

void MainWindow::Toolbar1_ButtonClick(const QString& caption) {
    if (busy())
        return;
    if (caption == QLatin1String("New")) {
        mnuFileNew_Click();
    } else if (caption == QLatin1String("Open")) {
        mnuFileOpen_Click();
    } else if (SnapshotWindow* window = activeSnapshotWindow()) {
        if (caption == QLatin1String("Save As"))
            window->mnuFileSaveAs_Click();
        else if (caption == QLatin1String("Repeat"))
            window->mnuFileRepeat_Click();
        // "Compare" and "Print" reach the comparison and the report once
        // they exist; until then their buttons are disabled.
    }
}

// Commands ------------------------------------------------------------------

void MainWindow::mnuFileNew_Click() {
    if (busy())
        return;
    execDialog(*m_newDialog);
    const QString folder = m_newDialog->folder();
    if (folder.isEmpty())
        return;
    NewSnapshot(folder, m_newDialog->recurse(), m_newDialog->hidden(), m_newDialog->versions(), 1);
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

void MainWindow::mnuFileConfig_Click() {
    // The options dialog arrives with the comparison views; its menu item is
    // disabled until then.
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
                             int16_t number) {
    if (busy())
        return false;
    // The window stays off screen until its snapshot is complete; when the
    // scan fails it is simply destroyed.
    auto window = std::make_unique<SnapshotWindow>(*this);
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

    window->setChanged(true);
    window->setNumber(number);
    header.title = NewSnapshotTitle(folder, number, m_options.value(Key::Naming) != 0);
    if (m_options.value(Key::Title) != 0)
        window->mnuFileProps_Click();
    window->setCaption(header.title);
    showSnapshotWindow(std::move(window));
    return true;
}

bool MainWindow::OpenSnapshot(const QString& path) {
    if (busy())
        return false;
    auto window = std::make_unique<SnapshotWindow>(*this);
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
    window->setCaption(m_options.value(Key::Filename) != 0 ? path
                                                           : window->snapshot().header.title);
    showSnapshotWindow(std::move(window));
    AddRecent(path);
    return true;
}

void MainWindow::showSnapshotWindow(std::unique_ptr<SnapshotWindow> window) {
    window->showSnapshot();
    QMdiSubWindow* sub = m_mdi->addSubWindow(window.release());
    sub->setWindowIcon(windowIcon());
    // Queued: the window is gone from the area's list only after destroyed.
    connect(sub, &QObject::destroyed, this, &MainWindow::updateActions, Qt::QueuedConnection);
    sub->show();
    m_mdi->setActiveSubWindow(sub);
    if (m_options.value(Key::Tiling) != 0)
        tileHorizontally();
    updateActions();
}

void MainWindow::ShowSummary(const QString& summary) {
    m_summary->setText(summary);
}

QString MainWindow::summaryText() const {
    return m_summary->text();
}

SnapshotWindow* MainWindow::activeSnapshotWindow() const {
    // currentSubWindow, not activeSubWindow: it still names the last active
    // window while a dialog or the meter has the focus.
    QMdiSubWindow* sub = m_mdi->currentSubWindow();
    if (!sub || sub->isHidden())
        return nullptr;
    return qobject_cast<SnapshotWindow*>(sub->widget());
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

void MainWindow::tileHorizontally() {
    QList<QMdiSubWindow*> tiled;
    const QList<QMdiSubWindow*> subs = m_mdi->subWindowList(QMdiArea::CreationOrder);
    for (QMdiSubWindow* sub : subs)
        if (!sub->isHidden() && !sub->isMinimized())
            tiled.append(sub);
    if (tiled.isEmpty())
        return;
    const QRect area = m_mdi->viewport()->rect();
    const int height = area.height() / int(tiled.size());
    for (int i = 0; i < tiled.size(); ++i) {
        QMdiSubWindow* sub = tiled[i];
        if (sub->isMaximized())
            sub->showNormal();
        const int top = area.top() + i * height;
        const int bottom = i + 1 == tiled.size() ? area.bottom() : top + height - 1;
        sub->setGeometry(QRect(QPoint(area.left(), top), QPoint(area.right(), bottom)));
    }
}

void MainWindow::updateActions() {
    const int windows = int(snapshotWindows().size());
    const auto enabling = views::CommandEnabling::forWindows(windows);
    SnapshotWindow* active = activeSnapshotWindow();
    m_mnuFileNew->setEnabled(enabling.newSnapshot);
    m_mnuFileOpen->setEnabled(enabling.open);
    m_tbNew->setEnabled(enabling.newSnapshot);
    m_tbOpen->setEnabled(enabling.open);
    m_tbSaveAs->setEnabled(active != nullptr);
    m_tbRepeat->setEnabled(active != nullptr && enabling.repeat);
}

// SnapshotHost ---------------------------------------------------------------

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

int MainWindow::PromptToSave(const QString& prompt) {
    return m_questions.saveQuestion(prompt);
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

    const auto read = [this](const char* key, int present) {
        const QString text =
            m_ini.readString(Main, QLatin1String(key), QString::number(present)).trimmed();
        bool ok = false;
        const double value = text.toDouble(&ok);
        // Damaged text leaves the value as it was.
        return ok && std::isfinite(value) && std::abs(value) < 1e9 ? int(std::lround(value))
                                                                   : present;
    };
    const int top = read("Top", twipsFromPixels(y(), dpiY));
    const int left = read("Left", twipsFromPixels(x(), dpiX));
    const int height = read("Height", twipsFromPixels(this->height(), dpiY));
    const int width = read("Width", twipsFromPixels(this->width(), dpiX));
    move(pixelsFromTwips(left, dpiX), pixelsFromTwips(top, dpiY));
    resize(pixelsFromTwips(width, dpiX), pixelsFromTwips(height, dpiY));

    switch (read("Window", 0)) {
    case 1:
        setWindowState(Qt::WindowMinimized);
        break;
    case 2:
        setWindowState(Qt::WindowMaximized);
        break;
    default:
        break;
    }
}

void MainWindow::savePlacement() {
    // Written whatever the state, so a maximised or minimised frame comes
    // back with whatever its last values were.
    const double dpiX = logicalDpiX();
    const double dpiY = logicalDpiY();
    m_ini.writeString(Main, QStringLiteral("Top"), QString::number(twipsFromPixels(y(), dpiY)));
    m_ini.writeString(Main, QStringLiteral("Left"), QString::number(twipsFromPixels(x(), dpiX)));
    m_ini.writeString(Main, QStringLiteral("Height"),
                      QString::number(twipsFromPixels(height(), dpiY)));
    m_ini.writeString(Main, QStringLiteral("Width"),
                      QString::number(twipsFromPixels(width(), dpiX)));
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
    m_store.writeString(Recent, QStringLiteral("Folder"), lastFolder());
    // A minimised frame keeps the state saved before.
    if (!minimised)
        m_ini.writeString(Main, QStringLiteral("Window"),
                          maximised ? QStringLiteral("2") : QStringLiteral("0"));
    m_recent->saveState();
    m_newDialog->saveChoices();
    m_store.saveSynch(m_options);
    QGuiApplication::restoreOverrideCursor();
    event->accept();
}

} // namespace kestrel::shell
