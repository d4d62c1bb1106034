// The main window and start-up: what the program does with its command line,
// how snapshot windows are made, numbered, captioned, saved and closed, and
// the frame's placement. Dialogs and message boxes are answered through the
// frame's UserQuestions, so nothing waits for a user.

#include "TemporaryHome.h"
#include "TestFrame.h"

#include "shell/Launcher.h"
#include "shell/MainWindow.h"
#include "shell/NewSnapshotDialog.h"
#include "shell/RecentSnapshots.h"
#include "shell/ScreenPlacement.h"
#include "shell/SnapshotFileCommands.h"
#include "shell/StartUp.h"

#include "listing/Twips.h"
#include "settings/IniFile.h"
#include "settings/SettingsStore.h"
#include "views/FileGridModel.h"
#include "views/SnapshotWindow.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace kestrel;
using namespace Qt::StringLiterals;
using settings::Key;
using shell::MainWindow;
using views::SnapshotWindow;

namespace {

// A launcher on a desktop that records what it is asked and starts nothing.
struct Desktop {
    QStringList messages; // title: text
    QList<QUrl> opened;
    bool openWorks = true;
    int startResult = shell::LaunchResult::Started;
    shell::Launcher launcher{
        [this](const engine::UserMessage& m) { messages << m.title + u": "_s + m.text; },
        {[this](const QUrl& url) {
             opened << url;
             return openWorks;
         },
         [this](const QString&, const QStringList&, const QString&) { return startResult; }}};
};

// The access key of a menu item's text ("&Close" takes c); none without one.
QChar accessKey(const QString& text) {
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != u'&')
            continue;
        if (text[i + 1] != u'&')
            return text[i + 1].toLower();
        ++i; // "&&" is an ampersand
    }
    return {};
}

// Items of one menu sharing an access key, and shortcuts on two items
// anywhere in the menus, walked from the menu bar down.
void collectClashes(const QString& menu, const QList<QAction*>& items,
                    QHash<QKeySequence, QString>& shortcuts, QStringList& clashes) {
    QHash<QChar, QString> keys;
    for (QAction* item : items) {
        if (item->isSeparator())
            continue;
        const QString text = item->text();
        const QChar key = accessKey(text);
        if (key.isNull())
            clashes << menu + u": no access key for "_s + text;
        else if (keys.contains(key))
            clashes << menu + u": "_s + keys.value(key) + u" and "_s + text;
        else
            keys.insert(key, text);
        for (const QKeySequence& shortcut : item->shortcuts()) {
            if (shortcuts.contains(shortcut))
                clashes << shortcut.toString() + u": "_s + shortcuts.value(shortcut) + u" and "_s +
                               text;
            else
                shortcuts.insert(shortcut, text);
        }
        if (QMenu* sub = item->menu())
            collectClashes(text, sub->actions(), shortcuts, clashes);
    }
}

QStringList keyClashes(QMenuBar* bar) {
    QHash<QKeySequence, QString> shortcuts;
    QStringList clashes;
    collectClashes(u"menu bar"_s, bar->actions(), shortcuts, clashes);
    return clashes;
}

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree; // a small folder tree, without a trailing separator

    QString m_startFolder;

    QString iniPath() const { return m_dir->filePath(u"Kestrel.ini"_s); }

    // The names of the files a comparison marked as changed.
    static QStringList changedFiles(const engine::Snapshot& snapshot) {
        QStringList names;
        for (int32_t i = 1; i <= snapshot.entryCount; ++i)
            if (!snapshot.entry(i).isFolder() && snapshot.entry(i).status != 0)
                names << snapshot.nameText(i);
        return names;
    }
    static int unmatchedEntries(const engine::Snapshot& snapshot) {
        int count = 0;
        for (int32_t i = 1; i <= snapshot.entryCount; ++i)
            count += snapshot.entry(i).match == 0;
        return count;
    }

private Q_SLOTS:
    void initTestCase() { m_startFolder = QDir::currentPath(); }
    void cleanup() { QDir::setCurrent(m_startFolder); }

    void init() {
        // Each test starts from an empty store, an empty INI file and a new tree.
        QSettings(u"Kestrel"_s, u"Kestrel"_s).clear();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_tree = m_dir->filePath(u"Tree"_s);
        QVERIFY(QDir().mkpath(m_tree + u"/sub"_s));
        writeFile(m_tree + u"/a.txt"_s, "alpha");
        writeFile(m_tree + u"/sub/b.txt"_s, "bravo bravo");
        writeFile(m_tree + u"/sub/c.bin"_s, QByteArray(1000, 'c'));
    }

    void startUpWithoutArguments() {
        // An empty argument names nothing: it is no path, not the current folder.
        QCOMPARE(shell::CommandLinePaths({u"kestrel"_s, QString(), u"a b"_s}),
                 QStringList{u"a b"_s});
        {
            Frame frame(iniPath());
            shell::StartUp(*frame.window, {});
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::shell::NewSnapshotDialog"_s});
        }
        settings::SettingsStore().writeString(u"Recent"_s, u"File0"_s,
                                              m_dir->filePath(u"Old.#01"_s));
        Frame frame(iniPath());
        shell::StartUp(*frame.window, {});
        QCOMPARE(frame.dialogs, QStringList{u"kestrel::shell::RecentSnapshotsDialog"_s});
    }

    void startUpWithArgument() {
        // A folder is scanned with its sub-folders and hidden files.
        {
            Frame frame(iniPath());
            shell::StartUp(*frame.window, {m_tree});
            QCOMPARE(frame->snapshotWindows().size(), 1);
            SnapshotWindow* window = frame->snapshotWindows().first();
            QCOMPARE(window->caption(), u"Snapshot #1 of "_s + m_tree);
            QVERIFY(window->changed());
            const engine::SnapshotHeader& header = window->snapshot().header;
            QVERIFY(header.recurse && header.hidden && !header.versions);
            QCOMPARE(window->snapshot().fileCount, 3);
            QVERIFY(frame.titles.isEmpty());
        }

        // A path that is not there is named, and the program goes on as
        // without one; so it does when either of two paths is missing.
        const QString missing = u"/no/such/path"_s;
        for (const QStringList& paths : {QStringList{missing}, QStringList{m_tree, missing}}) {
            Frame frame(iniPath());
            shell::StartUp(*frame.window, paths);
            QCOMPARE(frame.messages,
                     QStringList{u"Path Not Found: /no/such/path does not exist"_s});
            QVERIFY(frame->snapshotWindows().isEmpty());
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::shell::NewSnapshotDialog"_s});
            QVERIFY(frame->isVisible());
        }

        // A file that fails to load leaves its own error only: it is not
        // scanned as a folder after it.
        const QString broken = m_dir->filePath(u"Broken.#01"_s);
        writeFile(broken, "this is not a snapshot\n");
        Frame frame(iniPath());
        shell::StartUp(*frame.window, {broken});
        QCOMPARE(frame.titles.size(), 1);
        QVERIFY(frame.titles.first() != u"Path Not Found"_s);
        QVERIFY(frame->snapshotWindows().isEmpty());
        QVERIFY(frame.dialogs.isEmpty());
    }

    // OLD NEW: both open, the newer numbered as a repeat of the older, and
    // they are compared even with auto-compare off.
    void startUpComparesTwoPaths() {
        const QString saved = m_dir->filePath(u"Tree.#03"_s);
        {
            Frame maker(iniPath());
            maker.saveAnswer = saved;
            QVERIFY(maker->NewSnapshot(m_tree, true, true, false, 3));
            shell::mnuFileSaveAs_Click(*maker.window, *maker->activeSnapshotWindow());
        }
        writeFile(m_tree + u"/a.txt"_s, "alpha, longer now");

        Frame frame(iniPath());
        frame->options().setValue(Key::Compare, 0);
        frame->options().setValue(Key::Naming, 1);
        shell::StartUp(*frame.window, {saved, m_tree});
        QVERIFY(frame.titles.isEmpty());
        const QList<SnapshotWindow*> windows = frame->snapshotWindows();
        QCOMPARE(windows.size(), 2);
        QCOMPARE(windows[0]->snapshot().header.fileName, saved);
        QCOMPARE(windows[1]->number(), int16_t(4));
        QCOMPARE(windows[1]->caption(), u"Snapshot #4 of "_s + m_tree);
        QCOMPARE(windows[1]->pairedWindow(), windows[0]);
        QVERIFY(windows[0]->compared() && windows[1]->compared());
        for (SnapshotWindow* window : windows)
            QCOMPARE(changedFiles(window->snapshot()), QStringList{u"a.txt"_s});

        // Two folders: the original and the final snapshot.
        Frame folders(iniPath());
        folders->options().setValue(Key::Naming, 1);
        shell::StartUp(*folders.window, {m_tree + u"/sub"_s, m_tree});
        QCOMPARE(folders->snapshotWindows().size(), 2);
        QCOMPARE(folders->snapshotWindows()[0]->caption(),
                 u"Original Snapshot of "_s + m_tree + u"/sub"_s);
        QCOMPARE(folders->snapshotWindows()[1]->caption(), u"Final Snapshot of "_s + m_tree);
        QVERIFY(folders->snapshotWindows()[1]->compared());
    }

    // File, Export Change Report by its keys in a compared pair: the file the
    // user names gets the changes between the two, in the format its type
    // says; alone, a window offers no report.
    void changeReportFromThePair() {
        const QString saved = m_dir->filePath(u"Tree.#01"_s);
        {
            Frame maker(iniPath());
            maker.saveAnswer = saved;
            QVERIFY(maker->NewSnapshot(m_tree, true, true, false, 1));
            shell::mnuFileSaveAs_Click(*maker.window, *maker->activeSnapshotWindow());
        }
        writeFile(m_tree + u"/a.txt"_s, "alpha, longer now");
        QVERIFY(QFile::remove(m_tree + u"/sub/c.bin"_s));
        writeFile(m_tree + u"/new <b>&amp;\"q\".txt"_s, "n");

        {
            Frame alone(iniPath());
            shell::StartUp(*alone.window, {saved});
            QVERIFY(alone->activeSnapshotWindow());
            QVERIFY(!alone->activeSnapshotWindow()
                         ->findChild<QAction*>(u"mnuFileExportReport"_s)
                         ->isEnabled());
        }

        Frame frame(iniPath());
        frame->show();
        QStringList suggested;
        QString answer = m_dir->filePath(u"changes.json"_s);
        frame->chooseReportFile = [&](const QString& name) {
            suggested << name;
            return answer;
        };
        QVERIFY(frame->openAndCompare(saved, m_tree));
        SnapshotWindow* window = frame->activeSnapshotWindow();
        QVERIFY(window && window->compared());
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
        const auto exportByKeys = [&] {
            QTest::keyClick(window, Qt::Key_F, Qt::AltModifier);
            QTRY_VERIFY(QApplication::activePopupWidget());
            QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_G);
        };
        exportByKeys();
        QTRY_VERIFY(QFileInfo::exists(answer));
        QCOMPARE(suggested.value(0), u"Tree changes.html"_s);
        QFile json(answer);
        QVERIFY(json.open(QIODevice::ReadOnly));
        const QJsonObject report = QJsonDocument::fromJson(json.readAll()).object();
        QCOMPARE(report[u"schema"].toInt(), 1);
        QCOMPARE(report[u"old"][u"file"].toString(), saved);
        QStringList changes;
        for (const QJsonValue& c : report[u"changes"].toArray())
            changes << c[u"kind"].toString() + u' ' + c[u"path"].toString();
        QCOMPARE(changes, (QStringList{u"changed a.txt"_s, u"added new <b>&amp;\"q\".txt"_s,
                                       u"removed sub/c.bin"_s}));

        // The page, its type told by the name.
        answer = m_dir->filePath(u"changes.html"_s);
        exportByKeys();
        QTRY_VERIFY(QFileInfo::exists(answer));
        QFile page(answer);
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QByteArray html = page.readAll();
        QVERIFY(html.startsWith("<!DOCTYPE html>"));
        QVERIFY(html.contains("new \\u003cb\\u003e"));
        QVERIFY(!html.contains("<b>&amp;"));
    }

    // Relative paths are made absolute where the program starts: the root
    // folder, title, proposed file name and recent entry hold from any
    // other folder, and a repeat scans the recorded root wherever the
    // program runs then.
    void relativePathsFromAnotherFolder() {
        const QString saved = m_dir->filePath(u"Tree.#01"_s);
        QVERIFY(QDir::setCurrent(m_tree));
        {
            Frame frame(iniPath());
            frame.saveAnswer = saved;
            shell::StartUp(*frame.window, {u"."_s});
            SnapshotWindow* window = frame->activeSnapshotWindow();
            QVERIFY(window);
            QCOMPARE(window->snapshot().header.rootFolder, m_tree + u'/');
            QCOMPARE(window->caption(), u"Snapshot #1 of "_s + m_tree);
            shell::mnuFileSaveAs_Click(*frame.window, *window);
            QVERIFY(frame.proposedSave.endsWith(u"/Tree.#01"_s));
        }

        QVERIFY(QDir::setCurrent(m_dir->path()));
        Frame frame(iniPath());
        shell::StartUp(*frame.window, {u"Tree/../Tree.#01"_s});
        QCOMPARE(frame->recentDialog().list().entries().value(0), saved);
        QCOMPARE(frame->activeSnapshotWindow()->caption(), saved);

        QVERIFY(QDir::setCurrent(m_tree + u"/sub"_s));
        shell::mnuFileRepeat_Click(*frame.window, *frame->activeSnapshotWindow());
        QCOMPARE(frame->snapshotWindows().size(), 2);
        const engine::Snapshot& repeated = frame->snapshotWindows().last()->snapshot();
        QCOMPARE(repeated.header.rootFolder, m_tree + u'/');
        QCOMPARE(repeated.fileCount, 3);
        for (SnapshotWindow* window : frame->snapshotWindows())
            QCOMPARE(unmatchedEntries(window->snapshot()), 0);
    }

    // A repeat, or a branch, of a snapshot opened from anywhere is proposed
    // beside the snapshot it comes from, one past the highest number there,
    // whatever folder the file dialogs were in last.
    void repeatsAreSavedBesideTheirSeries() {
        const QString series = m_dir->filePath(u"series"_s);
        QVERIFY(QDir().mkpath(series));
        {
            Frame frame(iniPath());
            frame.saveAnswer = series + u"/Tree.#05"_s;
            QVERIFY(frame->NewSnapshot(m_tree, true, false, false, 5));
            shell::mnuFileSaveAs_Click(*frame.window, *frame->activeSnapshotWindow());
        }
        QVERIFY(QDir::setCurrent(m_tree + u"/sub"_s));
        Frame frame(iniPath());
        frame->setLastFolder(m_tree + u"/sub"_s);
        shell::StartUp(*frame.window, {series + u"/Tree.#05"_s});
        SnapshotWindow* five = frame->activeSnapshotWindow();
        QVERIFY(five);
        shell::mnuFileRepeat_Click(*frame.window, *five);
        SnapshotWindow* six = frame->activeSnapshotWindow();
        QVERIFY(six && six != five);
        QCOMPARE(six->number(), 6);
        QCOMPARE(six->caption(), u"Snapshot #6 of "_s + m_tree + u'/');
        shell::mnuFileSaveAs_Click(*frame.window, *six);
        QCOMPARE(frame.proposedSave, series + u"/Tree.#06"_s);
        six->setChanged(false);
    }

    // The New dialog's exclude line: what its patterns match is left out of
    // the scan, and the line is kept in Kestrel.ini for the next run.
    void excludedFromTheScan() {
        writeFile(m_tree + u"/sub/note.tmp"_s, "x");
        writeFile(m_tree + u"/my file"_s, "x");
        const QString typed = u"sub/*.bin  *.tmp my\\ file"_s;
        {
            Frame frame(iniPath());
            auto* line = frame->newSnapshotDialog().findChild<QLineEdit*>(u"txtExclude"_s);
            QVERIFY(line);
            QTest::keyClicks(line, typed);
            QCOMPARE(frame->newSnapshotDialog().excludePatterns(),
                     u"sub/*.bin\n*.tmp\nmy\\ file"_s);
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            const engine::Snapshot& s = frame->activeSnapshotWindow()->snapshot();
            QStringList names;
            for (int32_t i = 1; i <= s.entryCount; ++i)
                names << s.relativePath(i);
            names.sort();
            QCOMPARE(names, (QStringList{u"a.txt"_s, u"sub/"_s, u"sub/b.txt"_s}));
            frame->activeSnapshotWindow()->setChanged(false);
            frame->newSnapshotDialog().saveChoices();
        }
        Frame again(iniPath());
        QCOMPARE(again->newSnapshotDialog().findChild<QLineEdit*>(u"txtExclude"_s)->text(), typed);
    }

    // With "Naming" on, numbers 1 and 2 are the original and the final
    // snapshot; any other keeps its number.
    void newSnapshotTitles() {
        Frame frame(iniPath());
        const std::tuple<bool, int16_t, QString> cases[] = {{false, 2, u"Snapshot #2 of "_s},
                                                            {true, 1, u"Original Snapshot of "_s},
                                                            {true, 2, u"Final Snapshot of "_s},
                                                            {true, 3, u"Snapshot #3 of "_s}};
        for (const auto& [naming, number, title] : cases) {
            frame->options().setValue(Key::Naming, naming ? 1 : 0);
            QVERIFY(frame->NewSnapshot(m_tree, true, false, false, number));
            SnapshotWindow* window = frame->snapshotWindows().last();
            QCOMPARE(window->snapshot().header.title, title + m_tree);
            QCOMPARE(window->caption(), title + m_tree);
            QCOMPARE(window->number(), number);
        }
    }

    // The summary line of a new window; a failed scan adds none.
    void newSnapshotWindow() {
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        static const QRegularExpression line(
            u"^Kestrel found 3 files and 1 folders in \\d+\\.\\d\\d seconds \\([\\d,]+/sec\\)$"_s);
        QVERIFY2(line.match(frame->summaryText()).hasMatch(), qPrintable(frame->summaryText()));

        const QString empty = m_dir->filePath(u"empty"_s);
        QVERIFY(QDir().mkpath(empty));
        QVERIFY(!frame->NewSnapshot(empty, true, true, false, 2));
        QCOMPARE(frame->snapshotWindows().size(), 1);
        QCOMPARE(frame.titles, QStringList{u"Empty Snapshot"_s});
    }

    // Without hidden items, dot names are left out and the summary says how
    // many; Repeat, clicked on the toolbar, leaves them out again.
    void hiddenEntriesLeftOutAreSaid() {
        Frame frame(iniPath());
        frame->show();
        writeFile(m_tree + u"/.profile"_s, "p");
        QVERIFY(QDir().mkpath(m_tree + u"/.git"_s));
        writeFile(m_tree + u"/.git/config"_s, "c");
        QVERIFY(frame->NewSnapshot(m_tree, true, false, false, 1));
        QVERIFY2(frame->summaryText().endsWith(u"/sec), 2 hidden entries left out"_s),
                 qPrintable(frame->summaryText()));
        QCOMPARE(frame->snapshotWindows().first()->snapshot().entryCount, 4);

        QToolButton* repeat = nullptr;
        for (QObject* object : frame->toolbarButton(u"Repeat"_s)->associatedObjects())
            if (auto* button = qobject_cast<QToolButton*>(object))
                repeat = button;
        QVERIFY(repeat);
        QTest::mouseClick(repeat, Qt::LeftButton);
        QCOMPARE(frame->snapshotWindows().size(), 2);
        QVERIFY(!frame->snapshotWindows().last()->snapshot().header.hidden);
        QCOMPARE(frame->snapshotWindows().last()->snapshot().entryCount, 4);
        QVERIFY(frame->summaryText().endsWith(u"2 hidden entries left out"_s));
    }

    void openSnapshotNumbersFromTheFileName() {
        const QString path = m_dir->filePath(u"Tree.#02"_s);
        {
            // The Title option asks for a title, the usual one offered;
            // leading blanks go, trailing ones stay.
            Frame maker(iniPath());
            maker->options().setValue(Key::Title, 1);
            maker.textAnswer = u"   Tree before "_s;
            maker.saveAnswer = path;
            QVERIFY(maker->NewSnapshot(m_tree, true, true, false, 1));
            QCOMPARE(maker.textDefaults, QStringList{u"Snapshot #1 of "_s + m_tree});
            shell::mnuFileSaveAs_Click(*maker.window, *maker->activeSnapshotWindow());
        }
        for (const bool filename : {true, false}) {
            Frame frame(iniPath());
            frame->options().setValue(Key::Filename, filename ? 1 : 0);
            QVERIFY(frame->OpenSnapshot(path));
            SnapshotWindow* opened = frame->activeSnapshotWindow();
            QCOMPARE(opened->number(), int16_t(2));
            QCOMPARE(opened->caption(), filename ? path : u"Tree before "_s);
            QVERIFY(!opened->changed());
            QCOMPARE(frame->recentDialog().list().entries().value(0), path);
            QVERIFY(frame->summaryText().startsWith(u"Kestrel read 3 files"_s));

            shell::mnuFileRepeat_Click(*frame.window, *opened);
            QCOMPARE(frame->snapshotWindows().size(), 2);
            SnapshotWindow* repeated = frame->snapshotWindows().last();
            QCOMPARE(repeated->number(), int16_t(3));
            QCOMPARE(repeated->caption(), u"Snapshot #3 of "_s + m_tree + u'/');
            QVERIFY(repeated->snapshot().header.recurse && repeated->snapshot().header.hidden);
        }

        // A file that is no snapshot opens nothing and stays off the recent list.
        const QString broken = m_dir->filePath(u"Broken.#01"_s);
        writeFile(broken, "this is not a snapshot\n");
        Frame frame(iniPath());
        QVERIFY(!frame->OpenSnapshot(broken));
        QVERIFY(frame->snapshotWindows().isEmpty());
        QCOMPARE(frame.titles.size(), 1);
        QVERIFY(frame->recentDialog().list().isEmpty());
    }

    void closingAsksToSave() {
        Frame frame(iniPath());
        frame->show();
        frame->setLastFolder(m_dir->path());
        writeFile(m_dir->filePath(u"Tree.#01"_s), "taken");
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* window = frame->activeSnapshotWindow();
        QWidget* sub = window->parentWidget();

        // Cancel, and the prompt closed through its frame, keep the window.
        for (const auto answer : {views::SaveAnswer::Cancel, views::SaveAnswer::Closed}) {
            frame.saveQuestionAnswer = answer;
            QVERIFY(!sub->close());
        }
        // Yes keeps it while the snapshot is still changed: the save dialog
        // cancelled (it proposed the next free number), or a save that failed.
        frame.saveQuestionAnswer = views::SaveAnswer::Yes;
        QVERIFY(!sub->close());
        QCOMPARE(frame.proposedSave, m_dir->path() + u"/Tree.#02"_s);
        frame.saveAnswer = m_dir->filePath(u"no/such/folder/Tree.#02"_s);
        QVERIFY(!sub->close());
        QVERIFY(window->changed());
        QVERIFY(window->snapshot().header.fileName.isEmpty());
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(sub->close());
        QVERIFY(frame->snapshotWindows().isEmpty());

        // Cancel keeps the program open; Yes saves, and then everything closes.
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        frame.saveQuestionAnswer = views::SaveAnswer::Cancel;
        QVERIFY(!frame->close());
        QCOMPARE(frame->snapshotWindows().size(), 1);
        frame.saveQuestionAnswer = views::SaveAnswer::Yes;
        frame.saveAnswer = m_dir->filePath(u"Tree.#02"_s);
        QVERIFY(frame->close());
        QVERIFY(QFile::exists(frame.saveAnswer));
        QCOMPARE(settings::SettingsStore().readString(u"Recent"_s, u"File0"_s, QString()),
                 frame.saveAnswer);
    }

    // New, Open and Repeat while fewer than two windows are open (the
    // snapshot window's tests see them off with two), Save As with one.
    void commandsFollowTheWindowsAndWaitWhileBusy() {
        Frame frame(iniPath());
        frame->show();
        const auto enabled = [&](const char* caption) {
            return frame->toolbarButton(QLatin1String(caption))->isEnabled();
        };
        QVERIFY(enabled("New") && enabled("Open"));
        QVERIFY(!enabled("Save As") && !enabled("Repeat"));
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QVERIFY(enabled("New") && enabled("Open") && enabled("Save As") && enabled("Repeat"));

        // While an operation runs under the meter, events get through;
        // commands arriving then are ignored.
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(frame->snapshotWindows().first()->parentWidget()->close());
        frame->operationStarted();
        frame->mnuFileNew_Click();
        frame->mnuFileOpen_Click();
        frame->Toolbar1_ButtonClick(u"New"_s);
        QVERIFY(!frame->NewSnapshot(m_tree, true, true, false, 3));
        QVERIFY(!frame->close());
        frame->operationEnded();
        QVERIFY(frame.dialogs.isEmpty());
        QVERIFY(frame->snapshotWindows().isEmpty());
        QVERIFY(frame->isVisible());
    }

    // A folder dropped on the frame is scanned, a snapshot file opened, as
    // long as New and Open could run: fewer than two windows, nothing busy.
    void dropsScanAndOpen() {
        Frame frame(iniPath());
        frame->show();
        const auto drag = [&](const QUrl& url) {
            QMimeData data;
            data.setUrls({url});
            QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &data, Qt::LeftButton,
                                  Qt::NoModifier);
            QApplication::sendEvent(frame.window.get(), &enter);
            if (!enter.isAccepted())
                return false;
            QDropEvent drop(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(frame.window.get(), &drop);
            return drop.isAccepted();
        };
        QVERIFY(!drag(QUrl(u"https://example.org/Tree.#01"_s)));
        QVERIFY(drag(QUrl::fromLocalFile(m_tree)));
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        const engine::SnapshotHeader& header = frame->snapshotWindows().first()->snapshot().header;
        QVERIFY(header.recurse && header.hidden && !header.versions);
        QCOMPARE(frame->snapshotWindows().first()->snapshot().fileCount, 3);

        const QString saved = m_dir->filePath(u"Tree.#01"_s);
        frame.saveAnswer = saved;
        shell::mnuFileSaveAs_Click(*frame.window, *frame->activeSnapshotWindow());
        frame->operationStarted();
        QVERIFY(!drag(QUrl::fromLocalFile(saved))); // busy
        frame->operationEnded();
        QVERIFY(drag(QUrl::fromLocalFile(saved)));
        QTRY_COMPARE(frame->snapshotWindows().size(), 2);
        QCOMPARE(frame->activeSnapshotWindow()->snapshot().header.fileName, saved);
        QVERIFY(!drag(QUrl::fromLocalFile(m_tree))); // two windows are open
    }

    void placementInTwips() {
        QPoint place;
        double dpiX = 96;
        {
            Frame frame(iniPath());
            frame->show();
            dpiX = frame->logicalDpiX();
            const double dpiY = frame->logicalDpiY();
            // Too small a frame snaps to the minimum, not beyond it.
            frame->resize(engine::pixelsFromTwips(5000, dpiX), engine::pixelsFromTwips(4000, dpiY));
            QTRY_VERIFY(engine::twipsFromPixels(frame->width(), dpiX) >= 8000 &&
                        engine::twipsFromPixels(frame->height(), dpiY) >= 6000);
            QVERIFY(engine::twipsFromPixels(frame->width() - 1, dpiX) < 8000 &&
                    engine::twipsFromPixels(frame->height() - 1, dpiY) < 6000);

            frame->move(40, 30);
            frame->resize(700, 520);
            QTRY_COMPARE(frame->size(), QSize(700, 520));
            place = frame->pos();
            QVERIFY(frame->close());
        }
        settings::IniFile ini(iniPath());
        QCOMPARE(ini.readString(u"Main"_s, u"Width"_s, {}).toInt(),
                 engine::twipsFromPixels(700, dpiX));
        QCOMPARE(ini.readString(u"Main"_s, u"Window"_s, {}), u"0"_s);
        {
            Frame again(iniPath());
            QCOMPARE(again->pos(), place);
            QCOMPARE(again->size(), QSize(700, 520));
        }
        ini.writeString(u"Main"_s, u"Window"_s, u"2"_s);
        Frame maximised(iniPath());
        QVERIFY(maximised->windowState() & Qt::WindowMaximized);
    }

    // The Window menu tiles one above the other or side by side; the choice
    // is stored and automatic tiling follows it, also in the next run. When
    // one window of the pair closes, the other fills the frame again.
    void tiling() {
        {
            Frame frame(iniPath());
            frame->show();
            QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 2));
            const QList<SnapshotWindow*> windows = frame->snapshotWindows();
            const auto frameOf = [&](int i) { return windows[i]->parentWidget()->geometry(); };
            QCOMPARE(frameOf(0).width(), frameOf(1).width());
            QVERIFY(frameOf(0).bottom() < frameOf(1).top());

            // Alt+W opens the Window menu, S takes "Tile Side by Side".
            QTest::keyClick(frame.window.get(), Qt::Key_W, Qt::AltModifier);
            QTRY_VERIFY(QApplication::activePopupWidget());
            QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_S);
            QTRY_VERIFY(frameOf(0).right() < frameOf(1).left());
            QCOMPARE(frameOf(0).height(), frameOf(1).height());
            QCOMPARE(frameOf(0).top(), frameOf(1).top());
        }
        QVERIFY(settings::SettingsStore().readTileSideBySide());

        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 2));
        QWidget* left = frame->snapshotWindows()[0]->parentWidget();
        QWidget* right = frame->snapshotWindows()[1]->parentWidget();
        QVERIFY(left->geometry().right() < right->geometry().left());
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(right->close());
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QTRY_COMPARE(left->geometry(), left->parentWidget()->rect());
    }

    // A placement on a screen that has gone is pulled onto the nearest one,
    // only as far as needed; one that can still be taken hold of stays.
    void placementOnNoScreen() {
        const QList<QRect> screens{QRect(0, 0, 1920, 1080), QRect(1920, 0, 1280, 1024)};
        const QRect cases[][2] = {
            {QRect(100, 100, 800, 600), QRect(100, 100, 800, 600)},      // on the first
            {QRect(1880, 500, 800, 600), QRect(1880, 500, 800, 600)},    // across both
            {QRect(1000, -560, 800, 600), QRect(1000, -560, 800, 600)},  // 40 px still shown
            {QRect(1000, -580, 800, 600), QRect(1000, 0, 800, 600)},     // 20 px are too few
            {QRect(3300, 200, 800, 600), QRect(2400, 200, 800, 600)},    // right of the second
            {QRect(-900, 1200, 800, 600), QRect(0, 480, 800, 600)},      // below left of the first
            {QRect(5000, 5000, 1500, 1200), QRect(1920, 0, 1500, 1200)}, // larger than the screen
        };
        for (const auto& [remembered, expected] : cases)
            QCOMPARE(shell::placedOnScreens(remembered, screens), expected);

        // A frame remembered far off the desktop comes back onto it.
        settings::IniFile ini(iniPath());
        ini.writeString(u"Main"_s, u"Left"_s, u"-300000"_s);
        ini.writeString(u"Main"_s, u"Top"_s, u"400000"_s);
        Frame frame(iniPath());
        const QRect desktop = QGuiApplication::primaryScreen()->availableGeometry();
        QVERIFY(desktop.intersects(QRect(frame->pos(), frame->size())));
        QCOMPARE(frame->pos().x(), desktop.left());
    }

    // Ctrl+Q quits from the frame alone as from a snapshot window.
    void ctrlQuits() {
        for (const bool withWindow : {false, true}) {
            Frame frame(iniPath());
            frame->show();
            QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
            if (withWindow)
                QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            frame.saveQuestionAnswer = views::SaveAnswer::No;
            QTest::keyClick(frame.window.get(), Qt::Key_Q, Qt::ControlModifier);
            QVERIFY2(!frame->isVisible(), withWindow ? "with a window" : "alone");
        }
    }

    // Every item of a menu has an access key of its own and no shortcut
    // serves two items, in the frame's menus and in a snapshot window's;
    // Alt+F, C opens the options from either.
    void menuKeysAreDistinct() {
        Frame frame(iniPath());
        frame->show();
        const auto configurationByKeys = [&] {
            frame.dialogs.clear();
            // The offscreen platform leaves the keys with a closed menu.
            QWindow* window = frame->windowHandle();
            window->requestActivate();
            QTRY_COMPARE(QGuiApplication::focusWindow(), window);
            QTest::keyClick(frame.window.get(), Qt::Key_F, Qt::AltModifier);
            // The menu bar opens its menu once the key has been handled.
            QTRY_VERIFY(QApplication::activePopupWidget());
            QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_C);
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::settings::ConfigDialog"_s});
            QVERIFY(!QApplication::activePopupWidget());
        };
        QCOMPARE(keyClashes(frame->menuBar()), QStringList());
        configurationByKeys();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QCOMPARE(frame->menuBar()->actions().size(), 6); // the snapshot window's menus
        QCOMPARE(keyClashes(frame->menuBar()), QStringList());
        configurationByKeys();
    }

    // The frame's commands exist once: the frame's menus and both snapshot
    // windows' hold the same actions, so enabling New for two windows
    // reaches every menu; the toolbar's buttons run the active window's
    // own commands when clicked.
    void frameCommandsAreSharedAndTheToolbarRunsTheActiveWindows() {
        Frame frame(iniPath());
        frame->show();
        const auto menuAction = [&](const QString& name) -> QAction* {
            for (QAction* menu : frame->menuBar()->actions())
                for (QAction* item : menu->menu()->actions())
                    if (item->objectName() == name)
                        return item;
            return nullptr;
        };
        QAction* newSnapshot = menuAction(u"mnuFileNew"_s);
        QAction* exit = menuAction(u"mnuFileExit"_s);
        QVERIFY(newSnapshot && exit && newSnapshot->isEnabled());

        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* older = frame->activeSnapshotWindow();
        const auto clickButton = [&](const char* caption) {
            QTest::mouseClick(
                frame->toolbar()->widgetForAction(frame->toolbarButton(QLatin1String(caption))),
                Qt::LeftButton);
        };
        clickButton("Repeat");
        QCOMPARE(frame->snapshotWindows().size(), 2);
        SnapshotWindow* newer = frame->activeSnapshotWindow();
        QVERIFY(newer != older);
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(w->action(u"mnuFileNew"_s), newSnapshot);
            QCOMPARE(w->action(u"mnuFileExit"_s), exit);
        }
        QVERIFY(!newSnapshot->isEnabled() && !frame->toolbarButton(u"New"_s)->isEnabled());

        frame.saveAnswer = m_dir->filePath(u"Newer.#02"_s);
        clickButton("Save As");
        QCOMPARE(newer->snapshot().header.fileName, frame.saveAnswer);
        QVERIFY(older->snapshot().header.fileName.isEmpty());

        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(newer->parentWidget()->close());
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QVERIFY(newSnapshot->isEnabled() && frame->toolbarButton(u"Repeat"_s)->isEnabled());
    }

    // The options dialog in the frame: the menu disables its Compare buttons
    // for good, its toolbar box acts on the frame at once, ExecuteCustom
    // reports through the frame's launcher, and "Synch" is stored once, when
    // the dialog goes with the frame.
    void configurationDialog() {
        {
            Frame frame(iniPath());
            frame->show();
            settings::ConfigDialog& config = frame->configDialog();
            QVERIFY(!config.isVisible());
            const auto find = [&](const char* name) {
                return config.findChild<QWidget*>(QLatin1String(name));
            };
            QVERIFY(find("cmdCompare0")->isEnabled() && find("cmdCompare1")->isEnabled());
            frame->mnuFileConfig_Click();
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::settings::ConfigDialog"_s});
            config.showForComparison(u"one"_s, u"two"_s);
            QCOMPARE(frame.dialogs.size(), 2);
            QVERIFY(!find("cmdCompare0")->isEnabled() && !find("cmdCompare1")->isEnabled());

            static_cast<QAbstractButton*>(find("chkToolbar"))->click();
            QVERIFY(!frame->toolbar()->isVisible());

            static_cast<QLineEdit*>(find("txtProgram"))->setText(m_dir->filePath(u"none"_s));
            QVERIFY(!config.ExecuteCustom(m_tree + u"/a.txt"_s, m_tree + u"/a.txt"_s));
            QCOMPARE(frame.titles, QStringList{u"Application Launch Error"_s});

            static_cast<QAbstractButton*>(find("chkSynch"))->click();
            QVERIFY(frame->close());
            QCOMPARE(settings::SettingsStore().readString(u"Config"_s, u"Synch"_s, u"-"_s), u"-"_s);
        }
        QCOMPARE(settings::SettingsStore().readString(u"Config"_s, u"Synch"_s, u"-"_s), u"0"_s);
    }

    // The external program named without a folder is the one on PATH, and
    // each path lands whole in the argument that named it. A name found
    // nowhere is "File not found" as typed, even with a file of that name
    // in the current folder.
    void externalProgramOnPath() {
        const QString bin = m_dir->filePath(u"bin"_s);
        QVERIFY(QDir().mkpath(bin));
        for (const QString& tool :
             {bin + u"/kestrel-test-diff"_s, m_dir->filePath(u"kestrel-no-such-tool"_s)}) {
            writeFile(tool, "#!/bin/sh\n");
            QFile::setPermissions(tool, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        QVERIFY(QDir::setCurrent(m_dir->path()));
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin));
        Frame frame(iniPath());
        settings::ConfigDialog& config = frame->configDialog();
        control<QLineEdit>(config, "txtParams")->setText(u"--left %1 --right=%2"_s);
        control<QLineEdit>(config, "txtProgram")->setText(u"kestrel-test-diff"_s);
        const QString first = m_tree + u"/a%2 -o/tmp/pwned"_s;
        const QString second = m_tree + u"/\"%1\" b"_s;
        const bool started = config.ExecuteCustom(first, second);
        control<QLineEdit>(config, "txtProgram")->setText(u"kestrel-no-such-tool"_s);
        const bool startedMissing = config.ExecuteCustom(first, second);
        qputenv("PATH", path);

        QVERIFY(started && !startedMissing);
        QCOMPARE(frame.started, (QList<QStringList>{{bin + u"/kestrel-test-diff"_s, u"--left"_s,
                                                     first, u"--right="_s + second}}));
        QCOMPARE(frame.messages,
                 QStringList{u"Application Launch Error: File not found: kestrel-no-such-tool"_s});
    }

    // The launcher: a document goes to its association, an executable is
    // started directly; help opens the page beside the program (installed,
    // the one in share/kestrel beside bin/), at its top, and complains only
    // when the desktop's launcher cannot start.
    void launcher() {
        const QString folder = m_dir->path() + u'/';
        writeFile(folder + u"notes.txt"_s, "x");
        writeFile(folder + u"cmp"_s, "#!/bin/sh\n");
        QFile::setPermissions(folder + u"cmp"_s,
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        Desktop desktop;
        QVERIFY(desktop.launcher.ShowHelp(u"#Top"_s));
        desktop.openWorks = false;
        desktop.startResult = 11;
        desktop.launcher.LaunchDocument(m_dir->path(), u"/"_s, u"notes.txt"_s, {});
        desktop.launcher.LaunchDocument({}, folder, u"cmp"_s, {});
        desktop.launcher.LaunchDocument(u"/no/such/"_s, u"place/"_s, u"file.txt"_s, {});
        desktop.launcher.setProgramFolder(m_dir->path());
        QVERIFY(desktop.launcher.ShowHelp(u"#Top"_s)); // no page: nothing opens, nothing said
        writeFile(folder + u"KestHelp.htm"_s, "<html></html>");
        QVERIFY(!desktop.launcher.ShowHelp(u"#Top"_s));

        const QString installed = QCoreApplication::applicationDirPath() + u"/KestHelp.htm"_s;
        QCOMPARE(desktop.opened, (QList<QUrl>{QUrl::fromLocalFile(installed),
                                              QUrl::fromLocalFile(folder + u"notes.txt"_s),
                                              QUrl::fromLocalFile(folder + u"KestHelp.htm"_s)}));
        const QString error = u"Application Launch Error: "_s;
        QCOMPARE(
            desktop.messages,
            (QStringList{error + u"No application is associated with this file type"_s,
                         error + u"Error 11 launching application"_s, error + u"File not found"_s,
                         u"No Help Available: No program could open the help file "_s + folder +
                             u"KestHelp.htm"_s}));

        // Odd names reach the desktop as the one file they name.
        const QString odd = u"-odd; $(touch pwned)\n\"name\".txt"_s;
        writeFile(folder + odd, "x");
        desktop.openWorks = true;
        desktop.launcher.LaunchDocument(folder, QString(), odd, {});
        QCOMPARE(desktop.opened.last().toLocalFile(), folder + odd);

        const QString prefix = m_dir->filePath(u"usr"_s);
        QVERIFY(QDir().mkpath(prefix + u"/bin"_s) && QDir().mkpath(prefix + u"/share/kestrel"_s));
        desktop.launcher.setProgramFolder(prefix + u"/bin"_s);
        QCOMPARE(desktop.launcher.helpPath(), prefix + u"/bin/KestHelp.htm"_s); // none anywhere
        writeFile(prefix + u"/share/kestrel/KestHelp.htm"_s, "<html></html>");
        QCOMPARE(desktop.launcher.helpPath(), prefix + u"/share/kestrel/KestHelp.htm"_s);
        writeFile(prefix + u"/bin/KestHelp.htm"_s, "<html></html>");
        QCOMPARE(desktop.launcher.helpPath(),
                 prefix + u"/bin/KestHelp.htm"_s); // beside comes first
    }
};

int main(int argc, char** argv) {
    return runWindowTest<MainWindowTest>(argc, argv);
}

#include "MainWindowTest.moc"
