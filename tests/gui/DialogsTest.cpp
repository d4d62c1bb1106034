// The dialogs: the recent list and its window, the save prompt's answers,
// and the new-snapshot dialog.

#include "TemporaryHome.h"

#include "settings/IniFile.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"
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
    auto* proxy = qobject_cast<QSortFilterProxyModel*>(view->model());
    if (!proxy)
        return static_cast<QFileSystemModel*>(view->model())->index(path);
    return proxy->mapFromSource(static_cast<QFileSystemModel*>(proxy->sourceModel())->index(path));
}

// Chooses a folder in one of the new-snapshot dialog's folder lists, as a
// click would: the press highlights the row, the click opens it.
void chooseFolder(QWidget& dialog, const char* list, const QString& path) {
    QTreeView* view = control<QTreeView>(dialog, list);
    view->setCurrentIndex(folderRow(view, path));
    Q_EMIT view->clicked(folderRow(view, path));
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
    settings::Options options;
};

class DialogsTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<Files> m;
    QString path(const QString& relative) const { return m->dir.filePath(relative); }
    void storeRecent(const QStringList& files) const {
        for (int i = 0; i < files.size(); ++i)
            m->store.writeString(u"Recent"_s, u"File"_s + QString::number(i), files[i]);
    }
    // The folders made under the temporary folder, the first of them the
    // stored folder of the New dialog and the second its version folder.
    void newDialogOver(const QStringList& folders) {
        for (const QString& folder : folders)
            QVERIFY(QDir().mkpath(path(folder)));
        m->ini.writeString(u"Main"_s, u"Folder"_s, path(folders.value(0)));
        m->ini.writeString(u"Main"_s, u"Version"_s, path(folders.value(1)));
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
        for (const QString& file : {u"/d/Case.#01"_s, u"/d/b.#01"_s, u"/d/case.#01"_s})
            list.add(file);
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

    // Open is the default button once there are entries, the newest
    // chosen. Browse starts in the stored folder and opens the file
    // chosen; a cancelled file dialog opens nothing, and the next one
    // starts in the folder of the file chosen before.
    void recentDialogDefaultsAndBrowse() {
        QVERIFY(QDir().mkpath(path(u"snaps"_s)));
        m->store.writeString(u"Recent"_s, u"Folder"_s, m->dir.path());
        shell::RecentSnapshotsDialog dialog(m->store);
        auto* open = control<QPushButton>(dialog, "cmdOpen");
        dialog.show();
        QVERIFY(!open->isEnabled() && control<QPushButton>(dialog, "cmdNew")->isDefault());
        dialog.hide();
        dialog.list().add(u"/b.#01"_s);
        dialog.list().add(u"/a.#01"_s);
        dialog.show();
        QVERIFY(open->isEnabled() && open->isDefault());
        QCOMPARE(control<QListWidget>(dialog, "lstRecent")->currentItem()->text(), u"/a.#01"_s);

        QStringList opened, startedIn;
        QString answer = path(u"snaps/HOME.#02"_s);
        dialog.open = [&](const QString& file) {
            opened << file;
            return true;
        };
        dialog.chooseFile = [&](const QString& folder) {
            startedIn << folder;
            return std::exchange(answer, QString());
        };
        control<QPushButton>(dialog, "cmdBrowse")->click();
        QVERIFY(!dialog.isVisible());
        dialog.browse();
        QCOMPARE(opened, QStringList({path(u"snaps/HOME.#02"_s)}));
        QCOMPARE(startedIn, (QStringList{m->dir.path(), path(u"snaps"_s)}));
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

    // The version box stays checked while the version folder lies inside
    // the folder opened (by leading characters, not folder names); cleared
    // by that rule it switches comparisons to ignore versions and stays
    // clear. The keyboard moves the highlight through the folder list
    // without opening anything; Enter opens the highlighted folder, and on
    // the open one it accepts the dialog. The Compare box and the option
    // follow each other.
    void newFolderListVersionAndCompareBoxes() {
        newDialogOver({u"data"_s, u"data/bin"_s, u"data/b"_s, u"data/other"_s});
        m->options.setValue(settings::Key::Compare, 1);
        shell::NewSnapshotDialog dialog(m->ini, m->options);
        auto* versions = control<QCheckBox>(dialog, "chkVersion");
        auto* folders = control<QTreeView>(dialog, "dirFolder");
        versions->click();
        QCOMPARE(m->options.value(settings::Key::Version), 0);
        QVERIFY(control<QTreeView>(dialog, "dirVersion")->isEnabled());
        QCOMPARE(dialog.versionFolder(), path(u"data/bin"_s));
        for (const QString& folder : {m->dir.path(), path(u"data/bin"_s), path(u"data/b"_s)}) {
            chooseFolder(dialog, "dirFolder", folder);
            QVERIFY2(versions->isChecked(), qPrintable(folder));
        }
        chooseFolder(dialog, "dirFolder", path(u"data"_s));
        dialog.show();
        const auto bold = [&](const QString& folder) {
            return folderRow(folders, path(folder)).data(Qt::FontRole).value<QFont>().bold();
        };
        QVERIFY(bold(u"data"_s));
        QTest::keyClick(folders, Qt::Key_Up);
        QVERIFY(folders->currentIndex() != folderRow(folders, path(u"data"_s)));
        folders->setCurrentIndex(folderRow(folders, path(u"data/other"_s)));
        QVERIFY(versions->isChecked() && bold(u"data"_s) && !bold(u"data/other"_s));

        QTest::keyClick(folders, Qt::Key_Return);
        QVERIFY(dialog.isVisible() && bold(u"data/other"_s) && !bold(u"data"_s));
        QVERIFY(!versions->isChecked() && !control<QTreeView>(dialog, "dirVersion")->isEnabled());
        QCOMPARE(m->options.value(settings::Key::Version), 1);
        chooseFolder(dialog, "dirFolder", path(u"data"_s));
        QVERIFY(!versions->isChecked());
        QTest::keyClick(folders, Qt::Key_Enter, Qt::KeypadModifier);
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.folder(), path(u"data"_s));

        auto* compare = control<QCheckBox>(dialog, "chkCompare");
        QVERIFY(compare->isChecked());
        compare->click();
        QCOMPARE(m->options.value(settings::Key::Compare), 0);
        m->options.setValue(settings::Key::Compare, 1); // from the options dialog
        QVERIFY(compare->isChecked());
    }

    // The folder line shows the folder the list has open, and a path typed
    // into it opens in the list: Enter opens it, on the open one goes on to
    // OK; a relative path is taken from the folder shown; a path that names
    // no folder says why and the dialog stays. A folder dropped on the
    // dialog opens as well.
    void newFolderLine() {
        newDialogOver({u"data"_s, u"data/bin"_s, u"data/other"_s, u"dropped"_s});
        writeFile(path(u"data/file.txt"_s), "x");
        shell::NewSnapshotDialog dialog(m->ini, m->options);
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
        clickIndex(folders, folderRow(folders, path(u"data/other"_s)));
        QCOMPARE(line->text(), path(u"data/other"_s));

        type(u"/no/such/folder"_s);
        type(path(u"data/file.txt"_s));
        QCOMPARE(errors, (QStringList{u"Folder Not Found: /no/such/folder does not exist"_s,
                                      u"Not a Folder: "_s + path(u"data/file.txt"_s) +
                                          u" is not a folder"_s}));
        QVERIFY(dialog.isVisible());
        QCOMPARE(opened(), path(u"data/other"_s));

        // From the file manager a folder is taken, a file is not.
        const QPoint inTheList = folders->mapTo(&dialog, folders->rect().center());
        QVERIFY(!dropFiles(&dialog, {QUrl::fromLocalFile(path(u"data/file.txt"_s))}, inTheList));
        QVERIFY(dropFiles(&dialog, {QUrl::fromLocalFile(path(u"dropped"_s))}, inTheList));
        QCOMPARE(line->text(), path(u"dropped"_s));
        QTest::keyClick(line, Qt::Key_Return);
        QVERIFY(!dialog.isVisible());
        QCOMPARE(dialog.folder(), path(u"dropped"_s));
    }

    // The Drive list is read each time the dialog opens: a disk plugged in
    // meanwhile is offered, and one taken away gives way to the current
    // folder.
    void newDrivesRefreshedOnOpen() {
        QVERIFY(QDir().mkpath(path(u"stick/photos"_s)));
        shell::NewSnapshotDialog dialog(m->ini, m->options);
        QList<shell::NewSnapshotDialog::Drive> drives{{u"/"_s, u"/"_s}};
        dialog.listDrives = [&] { return drives; };
        auto* list = control<QComboBox>(dialog, "drvDrive");
        dialog.show();
        QCOMPARE(list->count(), 1);
        dialog.hide();

        drives.append({path(u"stick"_s), path(u"stick"_s) + u" [STICK]"_s});
        dialog.show();
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
};

int main(int argc, char** argv) {
    return runWindowTest<DialogsTest>(argc, argv);
}

#include "DialogsTest.moc"
