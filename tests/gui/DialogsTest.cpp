#include "settings/IniFile.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"
#include "shell/KestrelFrames.h"
#include "shell/NewSnapshotDialog.h"
#include "shell/RecentSnapshots.h"
#include "shell/SavePrompt.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileSystemModel>
#include <QLabel>
#include <QLayout>
#include <QListWidget>
#include <QPushButton>
#include <QSettings>
#include <QSortFilterProxyModel>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTreeView>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>

#include <unistd.h>

using namespace kestrel;
using namespace Qt::StringLiterals;

namespace {

// Runs action once the modal loop that follows has started.
void whenShown(std::function<void()> action) {
    QTimer::singleShot(0, qApp, std::move(action));
}

template <typename T> T* control(QWidget& dialog, const char* name) {
    auto* widget = dialog.findChild<T*>(QLatin1String(name));
    if (!widget)
        qFatal("no control %s", name);
    return widget;
}

// Chooses a folder in one of the new-snapshot dialog's folder lists, as a
// click would.
void chooseFolder(QWidget& dialog, const char* list, const QString& path) {
    QTreeView* view = control<QTreeView>(dialog, list);
    QAbstractItemModel* model = view->model();
    if (auto* proxy = qobject_cast<QSortFilterProxyModel*>(model)) {
        auto* files = static_cast<QFileSystemModel*>(proxy->sourceModel());
        view->setCurrentIndex(proxy->mapFromSource(files->index(path)));
    } else {
        view->setCurrentIndex(static_cast<QFileSystemModel*>(model)->index(path));
    }
}

// The folder the dialog would return: OK, read, and the dialog is hidden.
QString folderAfterOK(shell::NewSnapshotDialog& dialog) {
    control<QPushButton>(dialog, "cmdOK")->click();
    return dialog.folder();
}

} // namespace

class DialogsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void recentAddKeepsLastSpelling();
    void recentAddAdjacentDuplicates();
    void recentLoadStopsAtFirstEmpty();
    void recentSaveBlanksSurplus();
    void recentDialogActivation();
    void recentOpenFailureShowsAgain();
    void recentOpenFailureStaysModal();
    void recentBrowse();
    void recentWindowSize();

    void promptAnswers_data();
    void promptAnswers();
    void promptClosedByFrame();
    void promptAnimation();

    void newFolderChangeRule();
    void newOptionBoxes();
    void newCancelKeepsFolder();
    void newIniRoundTrip();
    void newDriveChange_data();
    void newDriveChange();

private:
    QString root() const { return m_dir->path(); }
    QString path(const QString& relative) const { return m_dir->filePath(relative); }
    void makeFolders(const QStringList& relatives) const {
        for (const QString& r : relatives)
            QVERIFY(QDir().mkpath(path(r)));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<settings::SettingsStore> m_store;
    std::unique_ptr<settings::IniFile> m_ini;
};

void DialogsTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_settings = std::make_unique<QSettings>(path(u"Kestrel.conf"_s), QSettings::IniFormat);
    m_store = std::make_unique<settings::SettingsStore>(m_settings.get());
    m_ini = std::make_unique<settings::IniFile>(path(u"Kestrel.ini"_s));
}

void DialogsTest::cleanup() {
    m_ini.reset();
    m_store.reset();
    m_settings.reset();
    m_dir.reset();
}

// --- The recent list ------------------------------------------------------

void DialogsTest::recentAddKeepsLastSpelling() {
    shell::RecentList list;
    list.add(u"C:\\A\\x.#01"_s);
    list.add(u"D:\\b.#01"_s);
    list.add(u"c:\\a\\X.#01"_s);
    QCOMPARE(list.entries(), QStringList({u"c:\\a\\X.#01"_s, u"D:\\b.#01"_s}));

    // A file opened again moves to the top.
    list.add(u"/x.#02"_s);
    list.add(u"/y.#01"_s);
    list.add(u"/X.#02"_s);
    QCOMPARE(list.entries(),
             QStringList({u"/X.#02"_s, u"/y.#01"_s, u"c:\\a\\X.#01"_s, u"D:\\b.#01"_s}));
}

void DialogsTest::recentAddAdjacentDuplicates() {
    // The walk advances after a removal, so it steps over the entry that
    // moved into the gap: of two adjacent duplicates the second survives.
    m_store->writeString(u"Recent"_s, u"File0"_s, u"/a.#01"_s);
    m_store->writeString(u"Recent"_s, u"File1"_s, u"/A.#01"_s);
    m_store->writeString(u"Recent"_s, u"File2"_s, u"/b.#01"_s);
    shell::RecentList list;
    list.load(*m_store);
    list.add(u"/a.#01"_s);
    QCOMPARE(list.entries(), QStringList({u"/a.#01"_s, u"/A.#01"_s, u"/b.#01"_s}));
}

void DialogsTest::recentLoadStopsAtFirstEmpty() {
    m_store->writeString(u"Recent"_s, u"File0"_s, u"/a.#01"_s);
    m_store->writeString(u"Recent"_s, u"File1"_s, u"/b.#01"_s);
    m_store->writeString(u"Recent"_s, u"File2"_s, QString());
    m_store->writeString(u"Recent"_s, u"File3"_s, u"/d.#01"_s);
    shell::RecentList list;
    list.load(*m_store);
    QCOMPARE(list.entries(), QStringList({u"/a.#01"_s, u"/b.#01"_s}));

    m_settings->remove(u"Recent/File1"_s);
    list.load(*m_store);
    QCOMPARE(list.entries(), QStringList({u"/a.#01"_s}));
}

void DialogsTest::recentSaveBlanksSurplus() {
    // Last run saved five entries, with a stray key after a gap.
    const QStringList old = {u"/1"_s, u"/2"_s, u"/3"_s, u"/4"_s, u"/5"_s};
    for (int i = 0; i < old.size(); ++i)
        m_store->writeString(u"Recent"_s, u"File"_s + QString::number(i), old[i]);
    m_store->writeString(u"Recent"_s, u"File7"_s, u"/stray"_s);

    shell::RecentList list;
    list.add(u"/b"_s);
    list.add(u"/a"_s);
    list.save(*m_store);

    QCOMPARE(m_settings->value(u"Recent/File0"_s).toString(), u"/a"_s);
    QCOMPARE(m_settings->value(u"Recent/File1"_s).toString(), u"/b"_s);
    for (const char* key : {"Recent/File2", "Recent/File3", "Recent/File4"})
        QCOMPARE(m_settings->value(QLatin1String(key)).toString(), QString());
    // Blanking stops at the first value that is not there.
    QVERIFY(!m_settings->contains(u"Recent/File5"_s));
    QCOMPARE(m_settings->value(u"Recent/File7"_s).toString(), u"/stray"_s);

    list.load(*m_store);
    QCOMPARE(list.entries(), QStringList({u"/a"_s, u"/b"_s}));
}

// --- The recent-snapshots dialog -------------------------------------------

void DialogsTest::recentDialogActivation() {
    shell::RecentSnapshotsDialog dialog(*m_store);
    auto* open = control<QPushButton>(dialog, "cmdOpen");
    auto* create = control<QPushButton>(dialog, "cmdNew");
    auto* list = control<QListWidget>(dialog, "lstRecent");

    dialog.show();
    QVERIFY(!open->isEnabled());
    QVERIFY(create->isDefault());
    QCOMPARE(list->count(), 0);
    dialog.hide();

    dialog.list().add(u"/b.#01"_s);
    dialog.list().add(u"/a.#01"_s);
    dialog.show();
    QVERIFY(open->isEnabled());
    QVERIFY(open->isDefault());
    QVERIFY(!create->isDefault());
    QCOMPARE(list->count(), 2);
    QCOMPARE(list->currentRow(), 0);
    QCOMPARE(list->currentItem()->text(), u"/a.#01"_s);
}

void DialogsTest::recentOpenFailureShowsAgain() {
    shell::RecentSnapshotsDialog dialog(*m_store);
    dialog.list().add(u"/gone.#01"_s);
    dialog.list().add(u"/here.#01"_s);
    QStringList asked;
    bool succeed = false;
    bool hiddenWhileOpening = true;
    dialog.open = [&](const QString& file) {
        // The dialog is out of the way while the snapshot opens.
        hiddenWhileOpening = hiddenWhileOpening && !dialog.isVisible();
        asked << file;
        return succeed;
    };
    dialog.show();
    auto* list = control<QListWidget>(dialog, "lstRecent");
    list->setCurrentRow(1);
    control<QPushButton>(dialog, "cmdOpen")->click();
    QCOMPARE(asked, QStringList({u"/gone.#01"_s}));
    QVERIFY(dialog.isVisible());

    // A double click on an entry opens it.
    succeed = true;
    QListWidgetItem* item = list->item(0);
    list->setCurrentItem(item);
    Q_EMIT list->itemDoubleClicked(item);
    QCOMPARE(asked.last(), u"/here.#01"_s);
    QVERIFY(!dialog.isVisible());
    QVERIFY(hiddenWhileOpening);
}

void DialogsTest::recentOpenFailureStaysModal() {
    shell::RecentSnapshotsDialog dialog(*m_store);
    dialog.list().add(u"/gone.#01"_s);
    int attempts = 0;
    dialog.open = [&](const QString&) { return ++attempts == 2; };

    // Each step waits for the dialog to be on screen again: the first Open
    // fails, the second finds the dialog modal once more and succeeds.
    bool modalAgain = false;
    QTimer steps;
    steps.setInterval(5);
    connect(&steps, &QTimer::timeout, &dialog, [&] {
        if (!dialog.isVisible())
            return;
        if (attempts == 1)
            modalAgain = QApplication::activeModalWidget() == &dialog;
        control<QPushButton>(dialog, "cmdOpen")->click();
    });
    QTimer guard;
    guard.setSingleShot(true);
    connect(&guard, &QTimer::timeout, &dialog, &QDialog::reject);
    steps.start();
    guard.start(10000);
    dialog.exec();
    steps.stop();
    QVERIFY(guard.isActive());
    QCOMPARE(attempts, 2);
    QVERIFY(modalAgain);
    QVERIFY(!dialog.isVisible());
}

void DialogsTest::recentBrowse() {
    makeFolders({u"snaps"_s});
    const QString chosen = path(u"snaps/HOME.#02"_s);
    QStringList opened;
    QString startedIn;
    QString answer = chosen;
    {
        m_store->writeString(u"Recent"_s, u"Folder"_s, root());
        shell::RecentSnapshotsDialog dialog(*m_store);
        dialog.open = [&](const QString& file) {
            opened << file;
            return true;
        };
        dialog.chooseFile = [&](const QString& folder) {
            startedIn = folder;
            return answer;
        };
        dialog.show();
        control<QPushButton>(dialog, "cmdBrowse")->click();
        QVERIFY(!dialog.isVisible());
        QCOMPARE(startedIn, root());
        QCOMPARE(opened, QStringList({chosen}));
        QCOMPARE(dialog.lastFolder(), path(u"snaps"_s));

        // Cancelling the file dialog opens nothing and keeps the folder.
        answer.clear();
        dialog.browse();
        QCOMPARE(opened.size(), 1);
        QCOMPARE(startedIn, path(u"snaps"_s));
        dialog.saveState();
    }
    shell::RecentSnapshotsDialog next(*m_store);
    QCOMPARE(next.lastFolder(), path(u"snaps"_s));
}

void DialogsTest::recentWindowSize() {
    const auto twips = [](int pixels, int dpi) { return qRound(pixels * 1440.0 / dpi); };
    m_store->writeString(u"Recent"_s, u"Width"_s, u"2000"_s);
    m_store->writeString(u"Recent"_s, u"Height"_s, u"9000"_s);
    shell::RecentSnapshotsDialog dialog(*m_store);
    dialog.list().add(u"/a.#01"_s);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    // Too narrow a stored width is raised to 4000 twips; the height stays.
    QVERIFY(std::abs(twips(dialog.width(), dialog.logicalDpiX()) - 4000) <= 15);
    QVERIFY(std::abs(twips(dialog.height(), dialog.logicalDpiY()) - 9000) <= 15);

    // The buttons keep their distance from the right edge, the list its
    // distance from the buttons.
    auto* open = control<QPushButton>(dialog, "cmdOpen");
    auto* list = control<QListWidget>(dialog, "lstRecent");
    const auto margins = [&] {
        return std::pair(dialog.width() - open->geometry().right(),
                         open->geometry().left() - list->geometry().right());
    };
    const auto before = margins();
    dialog.resize(dialog.width() + 200, 100);
    QVERIFY(twips(dialog.height(), dialog.logicalDpiY()) >= 3000 - 15);
    dialog.layout()->activate();
    QCOMPARE(margins(), before);

    dialog.saveState();
    QCOMPARE(m_settings->value(u"Recent/Width"_s).toString(),
             QString::number(twips(dialog.width(), dialog.logicalDpiX())));
    QCOMPARE(m_settings->value(u"Recent/Height"_s).toString(),
             QString::number(twips(dialog.height(), dialog.logicalDpiY())));
    QCOMPARE(m_settings->value(u"Recent/File0"_s).toString(), u"/a.#01"_s);
}

// --- The save prompt -------------------------------------------------------

void DialogsTest::promptAnswers_data() {
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("expected");
    QTest::newRow("Yes button") << u"cmdYes"_s << 6;
    QTest::newRow("No button") << u"cmdNo"_s << 7;
    QTest::newRow("Cancel button") << u"cmdCancel"_s << 2;
    QTest::newRow("y") << u"y"_s << 6;
    QTest::newRow("Y") << u"Y"_s << 6;
    QTest::newRow("n") << u"n"_s << 7;
    QTest::newRow("N") << u"N"_s << 7;
    QTest::newRow("Escape") << u"Escape"_s << 2;
    QTest::newRow("Enter") << u"Enter"_s << 6;
}

void DialogsTest::promptAnswers() {
    QFETCH(QString, action);
    QFETCH(int, expected);
    shell::SavePrompt prompt;
    QString shownText;
    whenShown([&] {
        shownText = control<QLabel>(prompt, "lblPrompt")->text();
        // Keys go to a button that would answer otherwise: the window sees
        // them first.
        auto* cancel = control<QPushButton>(prompt, "cmdCancel");
        if (action.startsWith(u"cmd"))
            control<QPushButton>(prompt, action.toLatin1().constData())->click();
        else if (action == u"Escape")
            QTest::keyClick(control<QPushButton>(prompt, "cmdNo"), Qt::Key_Escape);
        else if (action == u"Enter")
            QTest::keyClick(&prompt, Qt::Key_Return);
        else
            QTest::keyClick(cancel, action.at(0).toLatin1());
    });
    QCOMPARE(prompt.PromptToSave(u"Save changes to Snapshot #1?"_s), expected);
    QCOMPARE(shownText, u"Save changes to Snapshot #1?"_s);
    QVERIFY(!prompt.isVisible());

    // Other keys pass on to the controls and answer nothing.
    whenShown([&] {
        QTest::keyClick(control<QPushButton>(prompt, "cmdNo"), Qt::Key_X);
        QVERIFY(prompt.isVisible());
        control<QPushButton>(prompt, "cmdNo")->click();
    });
    QCOMPARE(prompt.PromptToSave(u"Again?"_s), 7);
}

void DialogsTest::promptClosedByFrame() {
    shell::SavePrompt prompt;
    whenShown([&] { control<QPushButton>(prompt, "cmdNo")->click(); });
    QCOMPARE(prompt.PromptToSave(u"First?"_s), 7);

    auto* timer = control<QTimer>(prompt, "tmrCheeky");
    whenShown([&] {
        QMetaObject::invokeMethod(timer, "timeout");
        QCOMPARE(prompt.frame(), 1);
        prompt.close();
    });
    QCOMPARE(prompt.PromptToSave(u"Second?"_s), 0);
    QCOMPARE(prompt.answer(), 0);
    QCOMPARE(prompt.frame(), 0);
    QVERIFY(!timer->isActive());
}

void DialogsTest::promptAnimation() {
    shell::SavePrompt prompt;
    auto* timer = control<QTimer>(prompt, "tmrCheeky");
    auto* picture = control<QLabel>(prompt, "picCheeky");
    const auto tick = [&](int times) {
        for (int i = 0; i < times; ++i)
            QMetaObject::invokeMethod(timer, "timeout");
    };
    QCOMPARE(timer->interval(), 150);
    QVERIFY(!timer->isActive());

    prompt.show();
    QVERIFY(QTest::qWaitForWindowActive(&prompt));
    QVERIFY(timer->isActive());
    tick(3);
    QCOMPARE(prompt.frame(), 3);
    QCOMPARE(picture->pixmap().toImage(), shell::kestrelFrame(3).toImage());

    // Another window takes the focus: the bird stops.
    QWidget other;
    other.show();
    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QVERIFY(!timer->isActive());

    prompt.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&prompt));
    QVERIFY(timer->isActive());
    other.hide();

    // Hidden between prompts, it goes on where it stopped and wraps after 12.
    prompt.hide();
    QVERIFY(!timer->isActive());
    prompt.show();
    QVERIFY(QTest::qWaitForWindowActive(&prompt));
    tick(1);
    QCOMPARE(prompt.frame(), 4);
    tick(9);
    QCOMPARE(prompt.frame(), 1);
    QCOMPARE(picture->pixmap().toImage(), shell::kestrelFrame(1).toImage());
}

// --- The new-snapshot dialog -----------------------------------------------

void DialogsTest::newFolderChangeRule() {
    makeFolders({u"data/bin"_s, u"data/b"_s, u"data/other"_s});
    m_ini->writeString(u"Main"_s, u"Folder"_s, path(u"data"_s));
    m_ini->writeString(u"Main"_s, u"Version"_s, path(u"data/bin"_s));
    settings::Options options;
    shell::NewSnapshotDialog dialog(*m_ini, options);
    auto* versions = control<QCheckBox>(dialog, "chkVersion");
    QVERIFY(!versions->isChecked());
    versions->click();
    QVERIFY(dialog.versions());
    QCOMPARE(dialog.versionFolder(), path(u"data/bin"_s));

    // Up the tree and into the version folder: it still lies inside.
    chooseFolder(dialog, "dirFolder", root());
    QVERIFY(versions->isChecked());
    chooseFolder(dialog, "dirFolder", path(u"data/bin"_s));
    QVERIFY(versions->isChecked());
    // The comparison is of leading characters, not folder names.
    chooseFolder(dialog, "dirFolder", path(u"data/b"_s));
    QVERIFY(versions->isChecked());
    QCOMPARE(options.value(settings::Key::Version), 0);

    chooseFolder(dialog, "dirFolder", path(u"data/other"_s));
    QVERIFY(!versions->isChecked());
    // Clearing it by the rule switches comparisons to ignore versions.
    QCOMPARE(options.value(settings::Key::Version), 1);
    chooseFolder(dialog, "dirFolder", path(u"data"_s));
    QVERIFY(!versions->isChecked());
    QCOMPARE(folderAfterOK(dialog), path(u"data"_s));
}

void DialogsTest::newOptionBoxes() {
    settings::Options options;
    options.setValue(settings::Key::Compare, 1);
    shell::NewSnapshotDialog dialog(*m_ini, options);
    auto* versions = control<QCheckBox>(dialog, "chkVersion");
    auto* compare = control<QCheckBox>(dialog, "chkCompare");
    auto* versionList = control<QTreeView>(dialog, "dirVersion");

    versions->click();
    QCOMPARE(options.value(settings::Key::Version), 0);
    QVERIFY(versionList->isEnabled());
    versions->click();
    QCOMPARE(options.value(settings::Key::Version), 1);
    QVERIFY(!versionList->isEnabled());

    QVERIFY(compare->isChecked());
    compare->click();
    QCOMPARE(options.value(settings::Key::Compare), 0);
    // The options dialog turns it back on while this one waits.
    options.setValue(settings::Key::Compare, 1);
    QVERIFY(compare->isChecked());
}

void DialogsTest::newCancelKeepsFolder() {
    makeFolders({u"one"_s, u"two"_s});
    m_ini->writeString(u"Main"_s, u"Folder"_s, path(u"one"_s));
    settings::Options options;
    shell::NewSnapshotDialog dialog(*m_ini, options);
    QCOMPARE(folderAfterOK(dialog), path(u"one"_s));

    whenShown([&] {
        chooseFolder(dialog, "dirFolder", path(u"two"_s));
        control<QPushButton>(dialog, "cmdCancel")->click();
    });
    QCOMPARE(dialog.exec(), int(QDialog::Rejected));
    QCOMPARE(dialog.folder(), QString());

    // Escape cancels as well; the folder chosen before stays shown.
    whenShown([&] { QTest::keyClick(&dialog, Qt::Key_Escape); });
    dialog.exec();
    QCOMPARE(dialog.folder(), QString());
    whenShown([&] { control<QPushButton>(dialog, "cmdOK")->click(); });
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QCOMPARE(dialog.folder(), path(u"two"_s));
}

void DialogsTest::newIniRoundTrip() {
    makeFolders({u"scan/versions"_s});
    m_ini->writeString(u"Main"_s, u"Folder"_s, root());
    settings::Options options;
    QString drive;
    {
        shell::NewSnapshotDialog dialog(*m_ini, options);
        chooseFolder(dialog, "dirFolder", path(u"scan"_s));
        chooseFolder(dialog, "dirVersion", path(u"scan/versions"_s));
        drive = control<QComboBox>(dialog, "drvDrive")->currentData().toString();
        dialog.saveChoices();
    }
    QCOMPARE(m_ini->readString(u"Main"_s, u"Folder"_s, {}), path(u"scan"_s));
    QCOMPARE(m_ini->readString(u"Main"_s, u"Version"_s, {}), path(u"scan/versions"_s));
    QCOMPARE(m_ini->readString(u"Main"_s, u"Drive"_s, {}), drive);
    QVERIFY(path(u"scan"_s).startsWith(drive));

    shell::NewSnapshotDialog next(*m_ini, options);
    QCOMPARE(control<QComboBox>(next, "drvDrive")->currentData().toString(), drive);
    QCOMPARE(next.versionFolder(), path(u"scan/versions"_s));
    QCOMPARE(folderAfterOK(next), path(u"scan"_s));

    // A stored folder that has gone since falls back to the current folder.
    m_ini->writeString(u"Main"_s, u"Folder"_s, path(u"gone"_s));
    m_ini->writeString(u"Main"_s, u"Version"_s, QString());
    shell::NewSnapshotDialog fallback(*m_ini, options);
    QCOMPARE(fallback.versionFolder(), QDir::currentPath());
    QCOMPARE(folderAfterOK(fallback), QDir::currentPath());
}

void DialogsTest::newDriveChange_data() {
    QTest::addColumn<QString>("drive"); // how the new drive is: "readable", "missing", "locked"
    QTest::addColumn<int>("error");
    QTest::newRow("readable") << u"readable"_s << 0;
    QTest::newRow("no medium") << u"missing"_s << ENOENT;
    QTest::newRow("no permission") << u"locked"_s << EACCES;
}

void DialogsTest::newDriveChange() {
    QFETCH(QString, drive);
    QFETCH(int, error);
    if (drive == u"locked" && ::geteuid() == 0)
        QSKIP("running as root: permissions do not stop root from reading a folder");

    makeFolders({u"home/work"_s});
    const QString drivePath = path(u"card"_s);
    if (drive != u"missing")
        makeFolders({u"card/photos"_s});
    if (drive == u"locked")
        QVERIFY(QFile::setPermissions(drivePath, QFileDevice::Permissions()));
    m_ini->writeString(u"Main"_s, u"Folder"_s, path(u"home/work"_s));
    settings::Options options;
    shell::NewSnapshotDialog dialog(*m_ini, options);
    control<QCheckBox>(dialog, "chkVersion")->click();
    QStringList reported;
    bool busyDuringMessage = true;
    dialog.reportError = [&](const QString& title, const QString& text) {
        reported << title << text;
        busyDuringMessage = QGuiApplication::overrideCursor() != nullptr;
    };

    auto* drives = control<QComboBox>(dialog, "drvDrive");
    const int before = drives->currentIndex();
    drives->addItem(u"card"_s, drivePath);
    drives->setCurrentIndex(drives->count() - 1);
    if (drive == u"locked")
        QFile::setPermissions(drivePath, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                             QFileDevice::ExeOwner);
    QVERIFY(!QGuiApplication::overrideCursor());

    if (error == 0) {
        // The drive's root becomes the folder; versions of a folder outside
        // it are dropped.
        QVERIFY(reported.isEmpty());
        QVERIFY(!dialog.versions());
        QCOMPARE(folderAfterOK(dialog), drivePath);
        return;
    }
    QCOMPARE(reported,
             QStringList({u"Error Reading Drive"_s, QString::fromLocal8Bit(std::strerror(error))}));
    QVERIFY(!busyDuringMessage);
    QCOMPARE(drives->currentIndex(), before);
    QVERIFY(dialog.versions());
    QCOMPARE(folderAfterOK(dialog), path(u"home/work"_s));
}

// The whole run lives in a temporary home: settings, configuration and
// runtime folders never touch the user's own.
int main(int argc, char** argv) {
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    const QString config = home.filePath(u"config"_s);
    const QString runtime = home.filePath(u"runtime"_s);
    QDir().mkpath(config);
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", config.toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    for (auto scope : {QSettings::UserScope, QSettings::SystemScope})
        for (auto format : {QSettings::NativeFormat, QSettings::IniFormat})
            QSettings::setPath(format, scope, config);

    QApplication app(argc, argv);
    DialogsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "DialogsTest.moc"
