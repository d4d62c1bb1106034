#include "shell/NewSnapshotDialog.h"

#include "shell/DroppedPath.h"

#include "settings/IniFile.h"
#include "settings/Settings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCompleter>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QFileSystemModel>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSortFilterProxyModel>
#include <QTimer>
#include <QTreeView>
#include <QVBoxLayout>

#include <utility>

namespace kestrel::shell {

using namespace Qt::StringLiterals;

namespace {

// The folder list shows one drive: the drive's root, its ancestors (the
// list's root lies above them) and everything below the root.
class DriveFilter : public QSortFilterProxyModel {
public:
    using QSortFilterProxyModel::QSortFilterProxyModel;

    void setDrive(const QString& root) {
        m_root = root;
        invalidateFilter();
    }

    // The open folder, the one a snapshot would be taken of, shows in bold:
    // the highlight may be elsewhere while the keyboard moves through the list.
    void setOpened(const QString& path) {
        const QString previous = std::exchange(m_opened, path);
        const auto* files = static_cast<const QFileSystemModel*>(sourceModel());
        for (const QString& changed : {previous, path}) {
            const QModelIndex shown = mapFromSource(files->index(changed));
            if (shown.isValid())
                Q_EMIT dataChanged(shown, shown, {Qt::FontRole});
        }
    }

    QVariant data(const QModelIndex& index, int role) const override {
        if (role == Qt::FontRole && !m_opened.isEmpty()) {
            const auto* files = static_cast<const QFileSystemModel*>(sourceModel());
            if (files->filePath(mapToSource(index)) == m_opened) {
                QFont bold;
                bold.setBold(true);
                return bold;
            }
        }
        return QSortFilterProxyModel::data(index, role);
    }

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override {
        const auto* files = static_cast<const QFileSystemModel*>(sourceModel());
        const QString path = files->filePath(files->index(row, 0, parent));
        return isWithin(path, m_root) || isWithin(m_root, path);
    }

private:
    QString m_root = u"/"_s;
    QString m_opened;
};

// The hourglass while a drive is tried; put back before a message shows.
class BusyCursor {
public:
    BusyCursor() { QGuiApplication::setOverrideCursor(Qt::WaitCursor); }
    ~BusyCursor() { release(); }
    BusyCursor(const BusyCursor&) = delete;
    BusyCursor& operator=(const BusyCursor&) = delete;
    void release() {
        if (m_held)
            QGuiApplication::restoreOverrideCursor();
        m_held = false;
    }

private:
    bool m_held = true;
};

QTreeView* makeFolderView(QAbstractItemModel* model, const QString& name, QWidget* parent) {
    auto* view = new QTreeView(parent);
    view->setObjectName(name);
    view->setModel(model);
    view->setHeaderHidden(true);
    for (int column = 1; column < model->columnCount(); ++column)
        view->hideColumn(column);
    view->setUniformRowHeights(true);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    return view;
}

} // namespace

struct NewSnapshotDialog::Controls {
    QComboBox* drvDrive = nullptr;
    QFileSystemModel* folders = nullptr; // shared by both folder lists
    DriveFilter* driveFolders = nullptr;
    QLineEdit* txtFolder = nullptr;
    QCompleter* completer = nullptr;
    QTreeView* dirFolder = nullptr;
    QLineEdit* txtExclude = nullptr;
    QGroupBox* Frame1 = nullptr;
    QCheckBox* chkRecurse = nullptr;
    QCheckBox* chkHidden = nullptr;
    QCheckBox* chkVersion = nullptr;
    QCheckBox* chkFingerprints = nullptr;
    QTreeView* dirVersion = nullptr;
    QCheckBox* chkCompare = nullptr;
    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;
    QPushButton* cmdHelp = nullptr;

    // The lists' present paths. They change only through setFolderPath and
    // setVersionPath, so the folder-change rule runs once per change.
    QString folderPath;
    QString versionPath;
    bool syncing = false; // the dialog itself is moving the version list's selection
};

NewSnapshotDialog::NewSnapshotDialog(settings::IniFile& ini, settings::Options& options,
                                     QWidget* parent)
    : QDialog(parent), m_controls(new Controls), m_ini(ini), m_options(options) {
    setObjectName(u"frmBuild"_s);
    setWindowTitle(u"Create New Snapshot"_s);

    reportError = [this](const QString& title, const QString& text) {
        QMessageBox::warning(this, title, text);
    };
    listDrives = systemDrives;

    createControls();
    layOutControls();

    // Chosen once per run; the dialog keeps whatever the user ticks.
    Controls& c = *m_controls;
    c.chkRecurse->setChecked(true);
    c.chkHidden->setChecked(true);
    c.chkVersion->setChecked(false);
    c.dirVersion->setEnabled(false);
    c.chkCompare->setChecked(m_options.isOn(settings::Key::Compare));

    load();
    connectControls();
}

void NewSnapshotDialog::createControls() {
    Controls& c = *m_controls;
    c.drvDrive = new QComboBox(this);
    c.drvDrive->setObjectName(u"drvDrive"_s);
    fillDrives();

    c.folders = new QFileSystemModel(this);
    // Folders only; hidden ones too, since a snapshot may include them.
    c.folders->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot | QDir::Hidden);
    c.folders->setReadOnly(true);
    c.driveFolders = new DriveFilter(this);
    c.driveFolders->setSourceModel(c.folders);
    c.dirFolder = makeFolderView(c.driveFolders, u"dirFolder"_s, this);

    // The folder as a path to type or paste, completed from the folders
    // there are. Drops land on the dialog, not in the line as text.
    c.txtFolder = new QLineEdit(this);
    c.txtFolder->setObjectName(u"txtFolder"_s);
    c.txtFolder->setAcceptDrops(false);
    c.txtFolder->setClearButtonEnabled(true);
    c.completer = new QCompleter(c.folders, this);
    c.completer->setObjectName(u"txtFolderCompleter"_s);
    c.txtFolder->setCompleter(c.completer);

    c.txtExclude = new QLineEdit(this);
    c.txtExclude->setObjectName(u"txtExclude"_s);
    c.txtExclude->setPlaceholderText(u"Left out, never read: /proc/ *.tmp cache/"_s);
    c.txtExclude->setClearButtonEnabled(true);

    c.Frame1 = new QGroupBox(u"Files and Flags:"_s, this);
    c.Frame1->setObjectName(u"Frame1"_s);
    c.chkRecurse = new QCheckBox(u"Files in &Sub-Folders"_s, c.Frame1);
    c.chkRecurse->setObjectName(u"chkRecurse"_s);
    c.chkHidden = new QCheckBox(u"&Hidden and System files"_s, c.Frame1);
    c.chkHidden->setObjectName(u"chkHidden"_s);
    c.chkVersion = new QCheckBox(u"&32-bit file version information"_s, c.Frame1);
    c.chkVersion->setObjectName(u"chkVersion"_s);
    c.chkFingerprints = new QCheckBox(u"Content &fingerprints"_s, c.Frame1);
    c.chkFingerprints->setObjectName(u"chkFingerprints"_s);
    c.chkFingerprints->setToolTip(
        u"Read every file for a fingerprint of its bytes, to tell a rewrite from a touch"_s);
    // The version folder may lie anywhere, so its list shows the whole tree.
    c.dirVersion = makeFolderView(c.folders, u"dirVersion"_s, c.Frame1);
    c.dirVersion->setMinimumHeight(110);

    c.chkCompare = new QCheckBox(u"Enable Auto-Compare"_s, this);
    c.chkCompare->setObjectName(u"chkCompare"_s);

    c.cmdOK = new QPushButton(u"OK"_s, this);
    c.cmdOK->setObjectName(u"cmdOK"_s);
    c.cmdOK->setDefault(true);
    c.cmdCancel = new QPushButton(u"Cancel"_s, this);
    c.cmdCancel->setObjectName(u"cmdCancel"_s);
    c.cmdHelp = new QPushButton(u"&Help..."_s, this);
    c.cmdHelp->setObjectName(u"cmdHelp"_s);
}

void NewSnapshotDialog::layOutControls() {
    Controls& c = *m_controls;
    auto* driveLabel = new QLabel(u"&Drive:"_s, this);
    driveLabel->setBuddy(c.drvDrive);
    auto* folderLabel = new QLabel(u"&Folder:"_s, this);
    folderLabel->setBuddy(c.dirFolder);

    auto* frameLayout = new QVBoxLayout(c.Frame1);
    frameLayout->addWidget(c.chkRecurse);
    frameLayout->addWidget(c.chkHidden);
    frameLayout->addWidget(c.chkVersion);
    auto* versionRow = new QHBoxLayout;
    versionRow->addSpacing(20); // under the box's caption, as its subordinate
    versionRow->addWidget(c.dirVersion);
    frameLayout->addLayout(versionRow, 1);
    frameLayout->addWidget(c.chkFingerprints);

    auto* left = new QVBoxLayout;
    left->addWidget(driveLabel);
    left->addWidget(c.drvDrive);
    left->addSpacing(6);
    left->addWidget(folderLabel);
    left->addWidget(c.txtFolder);
    left->addWidget(c.dirFolder, 1);
    auto* excludeLabel = new QLabel(u"E&xclude:"_s, this);
    excludeLabel->setBuddy(c.txtExclude);
    left->addWidget(excludeLabel);
    left->addWidget(c.txtExclude);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(c.chkCompare);
    buttons->addStretch(1);
    buttons->addWidget(c.cmdOK);
    buttons->addWidget(c.cmdCancel);
    buttons->addWidget(c.cmdHelp);

    auto* grid = new QGridLayout(this);
    grid->addLayout(left, 0, 0);
    grid->addWidget(c.Frame1, 0, 1);
    grid->addLayout(buttons, 1, 0, 1, 2);
    grid->setColumnStretch(0, 3);
    grid->setColumnStretch(1, 2);
    grid->setRowStretch(0, 1);
    grid->setHorizontalSpacing(14);
    grid->setVerticalSpacing(12);
    resize(620, 420);
    setTabOrder(c.drvDrive, c.txtFolder);
    setTabOrder(c.txtFolder, c.dirFolder);
}

void NewSnapshotDialog::connectControls() {
    Controls& c = *m_controls;
    // toggled rather than clicked: a box cleared by the folder-change rule
    // has to switch the ignore-version option as a click would.
    connect(c.chkVersion, &QCheckBox::toggled, this, &NewSnapshotDialog::chkVersion_Click);
    connect(c.chkCompare, &QCheckBox::toggled, this, &NewSnapshotDialog::chkCompare_Click);
    connect(&m_options, &settings::Options::valueChanged, this, &NewSnapshotDialog::optionChanged);
    connect(c.drvDrive, &QComboBox::currentIndexChanged, this, &NewSnapshotDialog::drvDrive_Change);
    // Only a click or Enter opens an entry of the folder list; moving through
    // it with the keyboard highlights entries and changes nothing else.
    connect(c.dirFolder, &QTreeView::clicked, this, &NewSnapshotDialog::dirFolder_Click);
    c.dirFolder->installEventFilter(this);
    c.txtFolder->installEventFilter(this);
    connect(c.txtFolder, &QLineEdit::editingFinished, this,
            [this] { openTypedFolder(m_controls->txtFolder->text()); });
    connect(c.completer, qOverload<const QString&>(&QCompleter::activated), this,
            &NewSnapshotDialog::openTypedFolder);
    setAcceptDrops(true);
    connect(c.dirVersion->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &NewSnapshotDialog::dirVersion_CurrentChanged);
    // Folders are read in the background: keep the chosen ones in view as
    // the lists above them fill.
    connect(c.folders, &QFileSystemModel::directoryLoaded, this,
            &NewSnapshotDialog::folders_DirectoryLoaded);
    connect(c.cmdOK, &QPushButton::clicked, this, &NewSnapshotDialog::cmdOK_Click);
    connect(c.cmdCancel, &QPushButton::clicked, this, &NewSnapshotDialog::cmdCancel_Click);
    connect(c.cmdHelp, &QPushButton::clicked, this, &NewSnapshotDialog::helpRequested);
    // Escape and the frame's close button cancel too.
    connect(this, &QDialog::rejected, this, &NewSnapshotDialog::cmdCancel_Click);
}

NewSnapshotDialog::~NewSnapshotDialog() {
    // The lists and their models die with the dialog's children, after this
    // body: whatever they report on the way must not reach the handlers.
    for (QObject* child : findChildren<QObject*>())
        child->disconnect(this);
    delete m_controls;
}

bool NewSnapshotDialog::recurse() const {
    return m_controls->chkRecurse->isChecked();
}

bool NewSnapshotDialog::hidden() const {
    return m_controls->chkHidden->isChecked();
}

bool NewSnapshotDialog::versions() const {
    return m_controls->chkVersion->isChecked();
}

bool NewSnapshotDialog::fingerprints() const {
    return m_controls->chkFingerprints->isChecked();
}

QString NewSnapshotDialog::versionFolder() const {
    return QDir::toNativeSeparators(m_controls->versionPath);
}

void NewSnapshotDialog::load() {
    Controls& c = *m_controls;
    const settings::ScanFolders last = m_ini.readScanFolders();
    const auto shown = [](const QString& path) {
        return QDir::cleanPath(QDir::fromNativeSeparators(path));
    };
    // A folder that has gone since (an unplugged disk), or none stored,
    // falls back to the current folder, which is where a fresh list starts.
    QString folder = shown(last.folder);
    if (!QFileInfo(folder).isDir())
        folder = QDir::currentPath();

    // The stored drive counts only while the folder lies on it; otherwise
    // the list shows the folder's own drive.
    int drive = driveIndexOf(folder);
    const QString storedDrive = shown(last.drive);
    const int stored = c.drvDrive->findData(storedDrive);
    if (stored >= 0 && isWithin(folder, storedDrive))
        drive = stored;
    {
        const QSignalBlocker quiet(c.drvDrive);
        c.drvDrive->setCurrentIndex(drive);
    }
    showDrive(drive);
    setFolderPath(folder);

    QString version = shown(last.versionFolder);
    if (!QFileInfo(version).isDir())
        version = folder;
    setVersionPath(version);
    c.txtExclude->setText(last.exclude);
    c.chkFingerprints->setChecked(last.fingerprints);
}

void NewSnapshotDialog::saveChoices() {
    const Controls& c = *m_controls;
    // Stored the platform's way, as the folder is shown to the user.
    m_ini.writeScanFolders({QDir::toNativeSeparators(c.folderPath),
                            QDir::toNativeSeparators(c.drvDrive->currentData().toString()),
                            QDir::toNativeSeparators(c.versionPath), c.txtExclude->text(),
                            c.chkFingerprints->isChecked()});
}

QString NewSnapshotDialog::excludePatterns() const {
    QStringList lines;
    QString pattern;
    const QString text = m_controls->txtExclude->text();
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'\\' && i + 1 < text.size()) {
            pattern += c;
            pattern += text.at(++i);
        } else if (c.isSpace()) {
            if (!pattern.isEmpty())
                lines << std::exchange(pattern, QString());
        } else {
            pattern += c;
        }
    }
    if (!pattern.isEmpty())
        lines << pattern;
    return lines.join(u'\n');
}

int NewSnapshotDialog::driveIndexOf(const QString& path) const {
    const QComboBox* drives = m_controls->drvDrive;
    int best = 0;
    qsizetype bestLength = -1;
    for (int i = 0; i < drives->count(); ++i) {
        const QString root = drives->itemData(i).toString();
        if (isWithin(path, root) && root.size() > bestLength) {
            best = i;
            bestLength = root.size();
        }
    }
    return best;
}

void NewSnapshotDialog::showDrive(int index) {
    Controls& c = *m_controls;
    const QString root = c.drvDrive->itemData(index).toString();
    c.folders->setRootPath(root);
    c.driveFolders->setDrive(root);
    // The list's top entry is the drive's root itself, so it can be chosen.
    const QModelIndex top = c.driveFolders->mapFromSource(c.folders->index(root));
    c.dirFolder->setRootIndex(top.parent());
    c.dirFolder->expand(top);
}

void NewSnapshotDialog::setFolderPath(const QString& path) {
    Controls& c = *m_controls;
    const QModelIndex source = c.folders->index(path);
    const QModelIndex shown = c.driveFolders->mapFromSource(source);
    if (shown.isValid()) {
        c.dirFolder->setCurrentIndex(shown);
        c.dirFolder->scrollTo(shown);
    }
    c.txtFolder->setText(QDir::toNativeSeparators(path));
    if (path != c.folderPath) {
        c.folderPath = path;
        c.driveFolders->setOpened(path);
        dirFolder_Change();
    }
}

void NewSnapshotDialog::setVersionPath(const QString& path) {
    Controls& c = *m_controls;
    const QModelIndex index = c.folders->index(path);
    if (index.isValid()) {
        c.syncing = true;
        c.dirVersion->setCurrentIndex(index);
        c.dirVersion->scrollTo(index);
        c.syncing = false;
    }
    c.versionPath = path;
}

void NewSnapshotDialog::drvDrive_Change(int index) {
    Controls& c = *m_controls;
    const QString previous = c.folderPath;
    const QString root = c.drvDrive->itemData(index).toString();
    BusyCursor busy;
    const QString reason = unreadableReason(root);
    if (reason.isEmpty()) {
        showDrive(index);
        setFolderPath(root);
        return;
    }
    // An empty card reader, say: report it and put drive and folder back.
    busy.release();
    reportError(u"Error Reading Drive"_s, reason);
    const int back = driveIndexOf(previous);
    {
        const QSignalBlocker quiet(c.drvDrive);
        c.drvDrive->setCurrentIndex(back);
    }
    showDrive(back);
    setFolderPath(previous);
}

void NewSnapshotDialog::dirFolder_Click(const QModelIndex& index) {
    // A click opens the entry at once, so single clicks walk down the tree.
    openFolderEntry(index);
}

void NewSnapshotDialog::openFolderEntry(const QModelIndex& index) {
    Controls& c = *m_controls;
    if (!index.isValid())
        return;
    setFolderPath(c.folders->filePath(c.driveFolders->mapToSource(index)));
    c.dirFolder->expand(index);
}

bool NewSnapshotDialog::eventFilter(QObject* watched, QEvent* event) {
    Controls& c = *m_controls;
    if (watched == c.txtFolder && event->type() == QEvent::KeyPress &&
        txtFolder_KeyPress(static_cast<QKeyEvent*>(event)))
        return true;
    if (watched == c.dirFolder && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        const QModelIndex highlighted = c.dirFolder->currentIndex();
        // Enter opens the highlighted entry. On the entry already open it
        // goes on to the dialog, whose default button is OK.
        if (enter && (key->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier &&
            highlighted.isValid() &&
            c.folders->filePath(c.driveFolders->mapToSource(highlighted)) != c.folderPath) {
            openFolderEntry(highlighted);
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

bool NewSnapshotDialog::txtFolder_KeyPress(QKeyEvent* key) {
    Controls& c = *m_controls;
    const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    if (!enter || (key->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier)
        return false;
    // As in the folder list: Enter opens the folder typed, and on the one
    // already open goes on to OK, which also names a path that is no folder.
    const QString text = c.txtFolder->text();
    if (typedFolderProblem(text) || typedFolderPath(text) == c.folderPath)
        return false;
    openTypedFolder(text);
    return true;
}

QString NewSnapshotDialog::typedFolderPath(const QString& text) const {
    QString path = QDir::fromNativeSeparators(text);
    if (path == u"~" || path.startsWith(u"~/"))
        path = QDir::homePath() + path.mid(1);
    const QString shown = m_controls->folderPath;
    return QDir::cleanPath(
        QDir(shown.isEmpty() ? QDir::currentPath() : shown).absoluteFilePath(path));
}

std::optional<engine::UserMessage>
NewSnapshotDialog::typedFolderProblem(const QString& text) const {
    const QString path = typedFolderPath(text);
    const QFileInfo info(path);
    const QString shown = QDir::toNativeSeparators(path);
    if (!info.exists())
        return engine::UserMessage{u"Folder Not Found"_s, shown + u" does not exist"_s};
    if (!info.isDir())
        return engine::UserMessage{u"Not a Folder"_s, shown + u" is not a folder"_s};
    return std::nullopt;
}

bool NewSnapshotDialog::openTypedFolder(const QString& text) {
    Controls& c = *m_controls;
    if (typedFolderProblem(text))
        return false;
    const QString path = typedFolderPath(text);
    const int drive = driveIndexOf(path);
    if (drive != c.drvDrive->currentIndex()) {
        const QSignalBlocker quiet(c.drvDrive);
        c.drvDrive->setCurrentIndex(drive);
        showDrive(drive);
    }
    setFolderPath(path);
    return true;
}

void NewSnapshotDialog::dragEnterEvent(QDragEnterEvent* event) {
    if (QFileInfo(droppedPath(event->mimeData())).isDir())
        event->acceptProposedAction();
}

void NewSnapshotDialog::dropEvent(QDropEvent* event) {
    if (openTypedFolder(droppedPath(event->mimeData())))
        event->acceptProposedAction();
}

void NewSnapshotDialog::fillDrives() {
    Controls& c = *m_controls;
    const QString shownDrive = c.drvDrive->currentData().toString();
    {
        const QSignalBlocker quiet(c.drvDrive);
        c.drvDrive->clear();
        for (const Drive& drive : listDrives())
            c.drvDrive->addItem(drive.caption, drive.root);
    }
    if (c.folderPath.isEmpty())
        return; // the first fill: load() chooses drive and folder
    // A folder that went with its drive (a disk unplugged) gives way to the
    // current folder, where a fresh list starts.
    const QString folder = QFileInfo(c.folderPath).isDir() ? c.folderPath : QDir::currentPath();
    int drive = c.drvDrive->findData(shownDrive);
    if (drive < 0 || !isWithin(folder, shownDrive))
        drive = driveIndexOf(folder);
    {
        const QSignalBlocker quiet(c.drvDrive);
        c.drvDrive->setCurrentIndex(drive);
    }
    if (c.drvDrive->itemData(drive).toString() != shownDrive)
        showDrive(drive);
    setFolderPath(folder);
}

void NewSnapshotDialog::dirVersion_CurrentChanged(const QModelIndex& current) {
    Controls& c = *m_controls;
    if (c.syncing || !current.isValid())
        return;
    c.versionPath = c.folders->filePath(current);
}

void NewSnapshotDialog::folders_DirectoryLoaded() {
    // The views lay out their new rows later, so scroll once they have.
    QTimer::singleShot(0, this, &NewSnapshotDialog::scrollToChoices);
}

void NewSnapshotDialog::scrollToChoices() {
    const Controls& c = *m_controls;
    for (QTreeView* view : {c.dirFolder, c.dirVersion}) {
        if (view->currentIndex().isValid())
            view->scrollTo(view->currentIndex(), QAbstractItemView::PositionAtCenter);
    }
}

void NewSnapshotDialog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    fillDrives();
    folders_DirectoryLoaded();
    m_controls->dirFolder->setFocus();
}

void NewSnapshotDialog::dirFolder_Change() {
    Controls& c = *m_controls;
    // Versions stay wanted only while the version folder lies inside the
    // folder to scan. The test is a plain, case-sensitive comparison of the
    // leading characters, so /data/binaries counts as inside /data/bin; the
    // box is never ticked again by this rule.
    if (!c.versionPath.startsWith(c.folderPath, Qt::CaseSensitive))
        c.chkVersion->setChecked(false);
}

void NewSnapshotDialog::chkVersion_Click(bool ticked) {
    // Comparisons ignore version differences whenever versions are not
    // collected.
    m_options.setValue(settings::Key::Version, ticked ? 0 : 1);
    m_controls->dirVersion->setEnabled(ticked);
}

void NewSnapshotDialog::chkCompare_Click(bool ticked) {
    m_options.setValue(settings::Key::Compare, ticked ? 1 : 0);
}

void NewSnapshotDialog::optionChanged(settings::Key key) {
    // The options dialog may switch auto-compare while this dialog is hidden.
    if (key == settings::Key::Compare)
        m_controls->chkCompare->setChecked(m_options.isOn(settings::Key::Compare));
}

void NewSnapshotDialog::cmdOK_Click() {
    Controls& c = *m_controls;
    // A path typed but not yet opened is the one meant, if it is a folder.
    const QString typed = c.txtFolder->text();
    if (typed != QDir::toNativeSeparators(c.folderPath) && !openTypedFolder(typed)) {
        if (const auto problem = typedFolderProblem(typed))
            reportError(problem->title, problem->text);
        c.txtFolder->setFocus();
        return;
    }
    m_result = QDir::toNativeSeparators(c.folderPath);
    accept();
}

void NewSnapshotDialog::cmdCancel_Click() {
    // The folder shown stays as it is for the next time. Also runs after
    // Escape or the frame's close button have hidden the dialog.
    m_result.clear();
    if (isVisible())
        reject();
}

} // namespace kestrel::shell
