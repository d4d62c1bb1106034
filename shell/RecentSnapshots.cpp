#include "shell/RecentSnapshots.h"

#include "engine/file/SnapshotFile.h"
#include "listing/Twips.h"
#include "settings/SettingsStore.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>

namespace kestrel::shell {

using namespace Qt::StringLiterals;

namespace {

// Paths are the same file when the file system says so: letter case counts
// on POSIX (Case.#01 and case.#01 are two files), not on Windows.
#ifdef Q_OS_WIN
constexpr Qt::CaseSensitivity PathCase = Qt::CaseInsensitive;
#else
constexpr Qt::CaseSensitivity PathCase = Qt::CaseSensitive;
#endif

constexpr int DesignedWidth = 7200; // twips
constexpr int DesignedHeight = 4200;
constexpr int LeastWidth = 4000;
constexpr int LeastHeight = 3000;

} // namespace

void RecentList::load(const settings::SettingsStore& store) {
    m_entries = store.readRecentFiles();
}

void RecentList::save(settings::SettingsStore& store) const {
    store.writeRecentFiles(m_entries);
}

void RecentList::add(const QString& path) {
    // The walk runs one past the end and re-reads the count on every step;
    // after a removal it still advances, so it skips the entry that moved
    // into the gap. Duplicates never arise in normal use, and the walk is
    // kept as it always was.
    for (qsizetype i = 0; i <= m_entries.size(); ++i) {
        if (i < m_entries.size() && m_entries[i].compare(path, PathCase) == 0)
            m_entries.removeAt(i);
    }
    m_entries.insert(0, path);
}

struct RecentSnapshotsDialog::Controls {
    QListWidget* lstRecent = nullptr;
    QPushButton* cmdOpen = nullptr;
    QPushButton* cmdNew = nullptr;
    QPushButton* cmdBrowse = nullptr;
    QPushButton* cmdHelp = nullptr;
    QPushButton* cmdCancel = nullptr;
};

RecentSnapshotsDialog::RecentSnapshotsDialog(settings::SettingsStore& store, QWidget* parent)
    : QDialog(parent), m_controls(new Controls), m_store(store) {
    Controls& c = *m_controls;
    setObjectName(u"frmRecent"_s);
    setWindowTitle(u"Recent Snapshots"_s);
    chooseFile = [this](const QString& folder) { return showFileDialog(folder); };

    c.lstRecent = new QListWidget(this);
    c.lstRecent->setObjectName(u"lstRecent"_s);
    c.lstRecent->setSelectionMode(QAbstractItemView::SingleSelection);
    // Full paths can be long: keep both ends in view, the whole path in the
    // tool tip.
    c.lstRecent->setTextElideMode(Qt::ElideMiddle);
    c.lstRecent->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    const auto button = [this](const QString& caption, const QString& name) {
        auto* b = new QPushButton(caption, this);
        b->setObjectName(name);
        return b;
    };
    c.cmdOpen = button(u"&Open"_s, u"cmdOpen"_s);
    c.cmdNew = button(u"&New..."_s, u"cmdNew"_s);
    c.cmdBrowse = button(u"&Browse..."_s, u"cmdBrowse"_s);
    c.cmdHelp = button(u"&Help..."_s, u"cmdHelp"_s);
    c.cmdCancel = button(u"Cancel"_s, u"cmdCancel"_s);

    // The buttons keep their place at the right edge; the list takes what
    // is left, 240 twips from the buttons.
    auto* buttons = new QVBoxLayout;
    for (QPushButton* b : {c.cmdOpen, c.cmdNew, c.cmdBrowse, c.cmdHelp, c.cmdCancel})
        buttons->addWidget(b);
    buttons->addStretch(1);
    auto* layout = new QHBoxLayout(this);
    layout->addWidget(c.lstRecent, 1);
    layout->addSpacing(engine::pixelsFromTwips(240, logicalDpiX()) - layout->spacing());
    layout->addLayout(buttons);

    setMinimumSize(engine::pixelsFromTwips(LeastWidth, logicalDpiX()),
                   engine::pixelsFromTwips(LeastHeight, logicalDpiY()));
    m_list.load(m_store);
    m_lastFolder = m_store.readLastFolder(QDir::currentPath());
    const auto size = m_store.readRecentWindowSize({DesignedWidth, DesignedHeight});
    resize(engine::pixelsFromTwips(size.width, logicalDpiX()),
           engine::pixelsFromTwips(size.height, logicalDpiY()));
    refresh();

    connect(c.cmdOpen, &QPushButton::clicked, this, &RecentSnapshotsDialog::cmdOpen_Click);
    connect(c.cmdNew, &QPushButton::clicked, this, &RecentSnapshotsDialog::cmdNew_Click);
    connect(c.cmdBrowse, &QPushButton::clicked, this, &RecentSnapshotsDialog::browse);
    connect(c.cmdHelp, &QPushButton::clicked, this, &RecentSnapshotsDialog::cmdHelp_Click);
    connect(c.cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(c.lstRecent, &QListWidget::itemDoubleClicked, this,
            &RecentSnapshotsDialog::lstRecent_DblClick);
}

RecentSnapshotsDialog::~RecentSnapshotsDialog() {
    delete m_controls;
}

int RecentSnapshotsDialog::exec() {
    const QPointer<RecentSnapshotsDialog> alive(this);
    int result = Rejected;
    do {
        m_showAgain = false;
        m_inExec = true;
        result = QDialog::exec();
        if (!alive)
            return Rejected;
        m_inExec = false;
    } while (m_showAgain);
    return result;
}

void RecentSnapshotsDialog::refresh() {
    QListWidget* list = m_controls->lstRecent;
    list->clear();
    for (const QString& path : m_list.entries()) {
        auto* item = new QListWidgetItem(path, list);
        item->setToolTip(path);
    }
    list->setEnabled(!m_list.isEmpty());
}

void RecentSnapshotsDialog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    refresh();
    Form_Activate();
}

void RecentSnapshotsDialog::Form_Activate() {
    Controls& c = *m_controls;
    if (!m_list.isEmpty()) {
        c.cmdOpen->setEnabled(true);
        c.cmdOpen->setDefault(true);
        c.lstRecent->setCurrentRow(0);
        c.lstRecent->setFocus();
    } else {
        c.cmdOpen->setEnabled(false);
        c.cmdNew->setDefault(true);
        c.cmdNew->setFocus();
    }
}

void RecentSnapshotsDialog::cmdOpen_Click() {
    const QListWidgetItem* item = m_controls->lstRecent->currentItem();
    if (!item)
        return;
    const QString path = item->text();
    hide();
    if (open && open(path))
        return;
    // The file has gone or is not a snapshot: the open reported why, and the
    // list comes back for another choice.
    if (m_inExec)
        m_showAgain = true;
    else
        show();
}

void RecentSnapshotsDialog::lstRecent_DblClick(QListWidgetItem* item) {
    if (item)
        cmdOpen_Click();
}

void RecentSnapshotsDialog::cmdNew_Click() {
    hide();
    if (newSnapshot)
        newSnapshot();
}

void RecentSnapshotsDialog::cmdHelp_Click() {
    if (help)
        help();
}

void RecentSnapshotsDialog::browse() {
    hide();
    const QString path = chooseFile ? chooseFile(m_lastFolder) : QString();
    if (path.isEmpty())
        return;
    setLastFolder(QDir::toNativeSeparators(QFileInfo(path).absolutePath()));
    if (open)
        open(path);
}

QString RecentSnapshotsDialog::showFileDialog(const QString& folder) {
    // Over the main window: this dialog is hidden by now.
    QFileDialog dialog(parentWidget(), u"Open Snapshot"_s, folder);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setNameFilters(engine::snapshotFileFilters());
    dialog.selectFile(u"*.#?\?"_s);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return QDir::toNativeSeparators(dialog.selectedFiles().constFirst());
}

QString RecentSnapshotsDialog::lastFolder() const {
    return m_lastFolder;
}

void RecentSnapshotsDialog::setLastFolder(const QString& folder) {
    m_lastFolder = folder;
}

void RecentSnapshotsDialog::saveState() {
    m_list.save(m_store);
    m_store.writeLastFolder(m_lastFolder);
    m_store.writeRecentWindowSize({engine::twipsFromPixels(width(), logicalDpiX()),
                                   engine::twipsFromPixels(height(), logicalDpiY())});
}

} // namespace kestrel::shell
