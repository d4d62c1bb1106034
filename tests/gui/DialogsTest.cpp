// The dialogs: the recent list and its window, the save prompt with its
// hovering kestrel, and the new-snapshot dialog.

#include "TemporaryHome.h"

#include "settings/IniFile.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"
#include "shell/KestrelFrames.h"
#include "shell/NewSnapshotDialog.h"
#include "shell/RecentSnapshots.h"
#include "shell/SavePrompt.h"

using namespace kestrel;
using namespace Qt::StringLiterals;

namespace {

// Runs action once the modal loop that follows has started.
void whenShown(std::function<void()> action) {
    QTimer::singleShot(0, qApp, std::move(action));
}

// The row of a folder in one of the new-snapshot dialog's folder lists.
QModelIndex folderRow(QTreeView* view, const QString& path) {
    QAbstractItemModel* model = view->model();
    if (auto* proxy = qobject_cast<QSortFilterProxyModel*>(model)) {
        auto* files = static_cast<QFileSystemModel*>(proxy->sourceModel());
        return proxy->mapFromSource(files->index(path));
    }
    return static_cast<QFileSystemModel*>(model)->index(path);
}

// Chooses a folder in one of the new-snapshot dialog's folder lists, as a
// click would: the press highlights the row, the click opens it.
void chooseFolder(QWidget& dialog, const char* list, const QString& path) {
    QTreeView* view = control<QTreeView>(dialog, list);
    const QModelIndex row = folderRow(view, path);
    view->setCurrentIndex(row);
    Q_EMIT view->clicked(row);
}

// The folder the dialog would return: OK, read, and the dialog is hidden.
QString folderAfterOK(shell::NewSnapshotDialog& dialog) {
    control<QPushButton>(dialog, "cmdOK")->click();
    return dialog.folder();
}

} // namespace

// A temporary folder with the per-user store and Kestrel.ini in it.
struct Files {
    QTemporaryDir dir;
    QSettings settings{dir.filePath(u"Kestrel.conf"_s), QSettings::IniFormat};
    settings::SettingsStore store{&settings};
    settings::IniFile ini{dir.filePath(u"Kestrel.ini"_s)};
};

class DialogsTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<Files> m;
    QString root() const { return m->dir.path(); }
    QString path(const QString& relative) const { return m->dir.filePath(relative); }
    void makeFolders(const QStringList& relatives) const {
        for (const QString& r : relatives)
            QVERIFY(QDir().mkpath(path(r)));
    }
    void storeRecent(const QStringList& files) const {
        for (int i = 0; i < files.size(); ++i)
            m->store.writeString(u"Recent"_s, u"File"_s + QString::number(i), files[i]);
    }

private Q_SLOTS:
    void init() {
        m = std::make_unique<Files>();
        QVERIFY(m->dir.isValid());
    }

    void recentList() {
        // Adding moves an entry equal to the new one to the top; on POSIX
        // names that differ in case are two files, and two entries.
        shell::RecentList list;
        list.add(u"/d/Case.#01"_s);
        list.add(u"/d/b.#01"_s);
        list.add(u"/d/case.#01"_s);
        list.add(u"/d/Case.#01"_s);
        QCOMPARE(list.entries(), QStringList({u"/d/Case.#01"_s, u"/d/case.#01"_s, u"/d/b.#01"_s}));

        // The walk advances after a removal, so it steps over the entry that
        // moved into the gap: of two adjacent duplicates the second survives.
        storeRecent({u"/a.#01"_s, u"/a.#01"_s, u"/b.#01"_s});
        list.load(m->store);
        list.add(u"/a.#01"_s);
        QCOMPARE(list.entries(), QStringList({u"/a.#01"_s, u"/a.#01"_s, u"/b.#01"_s}));

        // Loading stops at the first empty value.
        storeRecent({u"/a"_s, QString(), u"/c"_s});
        list.load(m->store);
        QCOMPARE(list.entries(), QStringList({u"/a"_s}));

        // Saving a shorter list blanks the values after it while there are
        // any; a stray key after a gap stays.
        storeRecent({u"/1"_s, u"/2"_s, u"/3"_s, u"/4"_s, u"/5"_s});
        m->store.writeString(u"Recent"_s, u"File7"_s, u"/stray"_s);
        list.add(u"/b"_s);
        list.save(m->store);
        QStringList stored;
        for (int i = 0; i < 8; ++i)
            stored << m->settings.value(u"Recent/File"_s + QString::number(i), u"-"_s).toString();
        QCOMPARE(stored, QStringList({u"/b"_s, u"/a"_s, {}, {}, {}, u"-"_s, u"-"_s, u"/stray"_s}));
    }

    void recentDialogActivation() {
        shell::RecentSnapshotsDialog dialog(m->store);
        auto* open = control<QPushButton>(dialog, "cmdOpen");
        auto* create = control<QPushButton>(dialog, "cmdNew");
        dialog.show();
        QVERIFY(!open->isEnabled() && create->isDefault());
        dialog.hide();
        dialog.list().add(u"/b.#01"_s);
        dialog.list().add(u"/a.#01"_s);
        dialog.show();
        QVERIFY(open->isEnabled() && open->isDefault() && !create->isDefault());
        QCOMPARE(control<QListWidget>(dialog, "lstRecent")->currentItem()->text(), u"/a.#01"_s);
    }

    // A failed Open brings the dialog back, modal again; the dialog is out
    // of the way while a snapshot opens.
    void recentOpenFailureShowsAgain() {
        shell::RecentSnapshotsDialog dialog(m->store);
        dialog.list().add(u"/gone.#01"_s);
        dialog.list().add(u"/here.#01"_s);
        auto* list = control<QListWidget>(dialog, "lstRecent");
        QStringList asked;
        bool hiddenWhileOpening = true;
        dialog.open = [&](const QString& file) {
            hiddenWhileOpening = hiddenWhileOpening && !dialog.isVisible();
            asked << file;
            return asked.size() == 2;
        };
        // Each step waits for the dialog to be on screen: Open on the second
        // entry fails, a double click on the first succeeds.
        bool modalAgain = false;
        QTimer steps;
        steps.setInterval(5);
        connect(&steps, &QTimer::timeout, &dialog, [&] {
            if (!dialog.isVisible() || asked.size() == 2)
                return;
            if (asked.isEmpty()) {
                list->setCurrentRow(1);
                control<QPushButton>(dialog, "cmdOpen")->click();
                return;
            }
            modalAgain = QApplication::activeModalWidget() == &dialog;
            Q_EMIT list->itemDoubleClicked(list->item(0));
        });
        QTimer guard; // should it hang: rejected until exec() gives up
        connect(&guard, &QTimer::timeout, &dialog, &QDialog::reject);
        guard.start(5000);
        steps.start();
        dialog.exec();
        QCOMPARE(asked, QStringList({u"/gone.#01"_s, u"/here.#01"_s}));
        QVERIFY(modalAgain);
        QVERIFY(hiddenWhileOpening);
        QVERIFY(!dialog.isVisible());
    }

    void recentBrowse() {
        makeFolders({u"snaps"_s});
        const QString chosen = path(u"snaps/HOME.#02"_s);
        m->store.writeString(u"Recent"_s, u"Folder"_s, root());
        QStringList opened;
        QString startedIn;
        QString answer = chosen;
        shell::RecentSnapshotsDialog dialog(m->store);
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

        // Cancelling the file dialog opens nothing; the next one starts in
        // the folder of the file chosen before.
        answer.clear();
        dialog.browse();
        QCOMPARE(opened.size(), 1);
        QCOMPARE(startedIn, path(u"snaps"_s));
    }

    void promptAnswers() {
        shell::SavePrompt prompt;
        // Keys go to a button that would answer otherwise: the window sees
        // them first.
        const std::pair<const char*, int> cases[] = {
            {"cmdYes", 6}, {"cmdNo", 7}, {"cmdCancel", 2}, {"y", 6},     {"Y", 6},
            {"n", 7},      {"N", 7},     {"Escape", 2},    {"Enter", 6},
        };
        for (const auto& [actionName, expected] : cases) {
            // A copy: clang 14 cannot capture a structured binding.
            const char* const action = actionName;
            const QString name = QLatin1String(action);
            whenShown([&] {
                if (name.startsWith(u"cmd"))
                    control<QPushButton>(prompt, action)->click();
                else if (name == u"Escape")
                    QTest::keyClick(control<QPushButton>(prompt, "cmdNo"), Qt::Key_Escape);
                else if (name == u"Enter")
                    QTest::keyClick(&prompt, Qt::Key_Return);
                else
                    QTest::keyClick(control<QPushButton>(prompt, "cmdCancel"), action[0]);
                if (prompt.isVisible()) // not answered: closing it answers 0
                    prompt.close();
            });
            QVERIFY2(int(prompt.PromptToSave(name)) == expected, action);
            QCOMPARE(control<QLabel>(prompt, "lblPrompt")->text(), name);
            QVERIFY(!prompt.isVisible());
        }

        // Closed through its frame, it answers 0 and starts afresh.
        auto* timer = control<QTimer>(prompt, "tmrCheeky");
        whenShown([&] {
            QMetaObject::invokeMethod(timer, "timeout");
            QCOMPARE(prompt.frame(), 1);
            prompt.close();
        });
        QCOMPARE(prompt.PromptToSave(u"Closed?"_s), views::SaveAnswer::Closed);
        QCOMPARE(prompt.answer(), 0);
        QCOMPARE(prompt.frame(), 0);
        QVERIFY(!timer->isActive());
    }

    void promptAnimation() {
        shell::SavePrompt prompt;
        auto* timer = control<QTimer>(prompt, "tmrCheeky");
        auto* picture = control<QLabel>(prompt, "picCheeky");
        const auto tick = [&](int times) {
            for (int i = 0; i < times; ++i)
                QMetaObject::invokeMethod(timer, "timeout");
        };
        QVERIFY(!timer->isActive());
        prompt.show();
        QVERIFY(QTest::qWaitForWindowActive(&prompt));
        QVERIFY(timer->isActive());
        tick(3);
        QCOMPARE(prompt.frame(), 3);

        // Another window takes the focus: the bird stops until it is back.
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
        QCOMPARE(picture->pixmap().toImage(), shell::kestrelFrame(4).toImage());
        tick(9);
        QCOMPARE(prompt.frame(), 1);
    }

    void newVersionAndCompareBoxes() {
        makeFolders({u"data/bin"_s, u"data/b"_s, u"data/other"_s});
        m->ini.writeString(u"Main"_s, u"Folder"_s, path(u"data"_s));
        m->ini.writeString(u"Main"_s, u"Version"_s, path(u"data/bin"_s));
        settings::Options options;
        options.setValue(settings::Key::Compare, 1);
        shell::NewSnapshotDialog dialog(m->ini, options);
        auto* versions = control<QCheckBox>(dialog, "chkVersion");
        auto* versionList = control<QTreeView>(dialog, "dirVersion");
        versions->click();
        QCOMPARE(options.value(settings::Key::Version), 0);
        QVERIFY(versionList->isEnabled());
        QCOMPARE(dialog.versionFolder(), path(u"data/bin"_s));

        // Up the tree and into the version folder: it still lies inside. The
        // comparison is of leading characters, not folder names.
        for (const QString& folder : {root(), path(u"data/bin"_s), path(u"data/b"_s)}) {
            chooseFolder(dialog, "dirFolder", folder);
            QVERIFY2(versions->isChecked(), qPrintable(folder));
        }
        // Cleared by the rule, the box switches comparisons to ignore
        // versions, and it stays clear.
        chooseFolder(dialog, "dirFolder", path(u"data/other"_s));
        QVERIFY(!versions->isChecked() && !versionList->isEnabled());
        QCOMPARE(options.value(settings::Key::Version), 1);
        chooseFolder(dialog, "dirFolder", path(u"data"_s));
        QVERIFY(!versions->isChecked());
        QCOMPARE(folderAfterOK(dialog), path(u"data"_s));

        auto* compare = control<QCheckBox>(dialog, "chkCompare");
        QVERIFY(compare->isChecked());
        compare->click();
        QCOMPARE(options.value(settings::Key::Compare), 0);
        // The options dialog turns it back on while this one waits.
        options.setValue(settings::Key::Compare, 1);
        QVERIFY(compare->isChecked());
    }

    // The keyboard moves the highlight through the folder list without
    // opening anything; Enter opens the highlighted folder, and on the open
    // one it accepts the dialog.
    void newFolderListKeyboard() {
        makeFolders({u"data/bin"_s, u"data/other"_s});
        m->ini.writeString(u"Main"_s, u"Folder"_s, path(u"data"_s));
        m->ini.writeString(u"Main"_s, u"Version"_s, path(u"data/bin"_s));
        settings::Options options;
        shell::NewSnapshotDialog dialog(m->ini, options);
        auto* versions = control<QCheckBox>(dialog, "chkVersion");
        auto* folders = control<QTreeView>(dialog, "dirFolder");
        versions->click();
        dialog.show();
        const auto bold = [&](const QString& folder) {
            return folderRow(folders, folder).data(Qt::FontRole).value<QFont>().bold();
        };
        QVERIFY(bold(path(u"data"_s)));

        QTest::keyClick(folders, Qt::Key_Up);
        QVERIFY(folders->currentIndex() != folderRow(folders, path(u"data"_s)));
        folders->setCurrentIndex(folderRow(folders, path(u"data/other"_s)));
        QVERIFY(versions->isChecked());
        QVERIFY(bold(path(u"data"_s)) && !bold(path(u"data/other"_s)));

        QTest::keyClick(folders, Qt::Key_Return);
        QVERIFY(dialog.isVisible());
        QVERIFY(!versions->isChecked()); // data/bin is not inside data/other
        QVERIFY(!bold(path(u"data"_s)) && bold(path(u"data/other"_s)));
        QTest::keyClick(folders, Qt::Key_Enter, Qt::KeypadModifier);
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.folder(), path(u"data/other"_s));
    }

    // The folder line shows the folder the list has open, and a path typed
    // into it opens in the list: Enter opens it, on the open one goes on to
    // OK; a relative path is taken from the folder shown; a path that names
    // no folder says why and the dialog stays. A folder dropped on the
    // dialog opens as well.
    void newFolderLine() {
        makeFolders({u"data/bin"_s, u"data/other"_s, u"dropped"_s});
        writeFile(path(u"data/file.txt"_s), "x");
        m->ini.writeString(u"Main"_s, u"Folder"_s, path(u"data"_s));
        settings::Options options;
        shell::NewSnapshotDialog dialog(m->ini, options);
        QStringList errors;
        dialog.reportError = [&](const QString& title, const QString& text) {
            errors << title + u": "_s + text;
        };
        auto* line = control<QLineEdit>(dialog, "txtFolder");
        auto* folders = control<QTreeView>(dialog, "dirFolder");
        dialog.show();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QCOMPARE(line->text(), path(u"data"_s));
        const auto type = [&](const QString& text) {
            QTest::mouseClick(line, Qt::LeftButton);
            line->selectAll();
            QTest::keyClicks(line, text);
            QTest::keyClick(line, Qt::Key_Return);
        };
        const auto opened = [&] {
            return dialog.findChild<QFileSystemModel*>()->filePath(
                static_cast<QSortFilterProxyModel*>(folders->model())
                    ->mapToSource(folders->currentIndex()));
        };

        type(path(u"data/other"_s));
        QVERIFY(dialog.isVisible());
        QCOMPARE(opened(), path(u"data/other"_s));
        type(u"../bin"_s);
        QCOMPARE(opened(), path(u"data/bin"_s));
        QCOMPARE(line->text(), path(u"data/bin"_s));

        // A click in the list puts its folder into the line.
        const QModelIndex other = folderRow(folders, path(u"data/other"_s));
        folders->scrollTo(other);
        QTest::mouseClick(folders->viewport(), Qt::LeftButton, {},
                          folders->visualRect(other).center());
        QCOMPARE(line->text(), path(u"data/other"_s));

        type(u"/no/such/folder"_s);
        type(path(u"data/file.txt"_s));
        QCOMPARE(errors, (QStringList{u"Folder Not Found: /no/such/folder does not exist"_s,
                                      u"Not a Folder: "_s + path(u"data/file.txt"_s) +
                                          u" is not a folder"_s}));
        QVERIFY(dialog.isVisible());
        QCOMPARE(opened(), path(u"data/other"_s));

        // Completion offers the folders there are.
        QTest::mouseClick(line, Qt::LeftButton);
        line->selectAll();
        QTest::keyClicks(line, path(u"data/bi"_s));
        QCompleter* completer = line->completer();
        QTRY_VERIFY(completer->popup()->isVisible());
        QCOMPARE(completer->currentCompletion(), path(u"data/bin"_s));
        QTest::keyClick(completer->popup(), Qt::Key_Down);
        QTest::keyClick(completer->popup(), Qt::Key_Return);
        QTRY_COMPARE(opened(), path(u"data/bin"_s));
        QVERIFY(dialog.isVisible());

        // A folder dropped from the file manager is taken too; a file is not.
        const QPoint inTheList = folders->mapTo(&dialog, folders->rect().center());
        const auto drop = [&](const QString& local) {
            QMimeData data;
            data.setUrls({QUrl::fromLocalFile(local)});
            QDragEnterEvent enter(inTheList, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(&dialog, &enter);
            if (!enter.isAccepted())
                return false;
            QDropEvent dropped(inTheList, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(&dialog, &dropped);
            return dropped.isAccepted();
        };
        QVERIFY(!drop(path(u"data/file.txt"_s)));
        QVERIFY(drop(path(u"dropped"_s)));
        QCOMPARE(line->text(), path(u"dropped"_s));

        QTest::keyClick(line, Qt::Key_Return);
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.folder(), path(u"dropped"_s));
    }

    // The Drive list is read each time the dialog opens: a disk plugged in
    // meanwhile is offered, and one taken away gives way to the current
    // folder.
    void newDrivesRefreshedOnOpen() {
        makeFolders({u"stick/photos"_s});
        settings::Options options;
        shell::NewSnapshotDialog dialog(m->ini, options);
        QList<shell::NewSnapshotDialog::Drive> drives{{u"/"_s, u"/"_s}};
        dialog.listDrives = [&] { return drives; };
        auto* list = control<QComboBox>(dialog, "drvDrive");
        dialog.show();
        QCOMPARE(list->count(), 1);
        dialog.hide();

        drives.append({path(u"stick"_s), path(u"stick"_s) + u" [STICK]"_s});
        dialog.show();
        QCOMPARE(list->count(), 2);
        QCOMPARE(list->itemText(1), path(u"stick"_s) + u" [STICK]"_s);
        list->setFocus();
        QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(folderAfterOK(dialog), path(u"stick"_s));

        drives.removeLast();
        QVERIFY(QDir(path(u"stick"_s)).removeRecursively());
        dialog.show();
        QCOMPARE(list->count(), 1);
        QCOMPARE(folderAfterOK(dialog), QDir::currentPath());
    }

    // Cancel returns no folder but keeps the one chosen on show; Folder,
    // Drive and Version go through Kestrel.ini.
    void newCancelAndIniRoundTrip() {
        makeFolders({u"one"_s, u"two/versions"_s});
        m->ini.writeString(u"Main"_s, u"Folder"_s, path(u"one"_s));
        settings::Options options;
        QString drive;
        {
            shell::NewSnapshotDialog dialog(m->ini, options);
            QCOMPARE(folderAfterOK(dialog), path(u"one"_s));
            whenShown([&] {
                chooseFolder(dialog, "dirFolder", path(u"two"_s));
                control<QPushButton>(dialog, "cmdCancel")->click();
            });
            QCOMPARE(dialog.exec(), int(QDialog::Rejected));
            QCOMPARE(dialog.folder(), QString());
            QCOMPARE(folderAfterOK(dialog), path(u"two"_s));

            chooseFolder(dialog, "dirVersion", path(u"two/versions"_s));
            drive = control<QComboBox>(dialog, "drvDrive")->currentData().toString();
            dialog.saveChoices();
        }
        QVERIFY(path(u"two"_s).startsWith(drive));
        QCOMPARE(m->ini.readString(u"Main"_s, u"Drive"_s, {}), drive);
        shell::NewSnapshotDialog next(m->ini, options);
        QCOMPARE(control<QComboBox>(next, "drvDrive")->currentData().toString(), drive);
        QCOMPARE(next.versionFolder(), path(u"two/versions"_s));
        QCOMPARE(folderAfterOK(next), path(u"two"_s));

        // A stored folder that has gone since falls back to the current folder.
        m->ini.writeString(u"Main"_s, u"Folder"_s, path(u"gone"_s));
        shell::NewSnapshotDialog fallback(m->ini, options);
        QCOMPARE(folderAfterOK(fallback), QDir::currentPath());
    }
};

int main(int argc, char** argv) {
    return runWindowTest<DialogsTest>(argc, argv);
}

#include "DialogsTest.moc"
