// The main window and start-up: what the program does with its command line,
// how snapshot windows are made, numbered, captioned, saved and closed, and
// the frame's placement. Dialogs and message boxes are answered through the
// frame's UserQuestions, so nothing waits for a user.

#include "TestFrame.h"

#include "shell/NewSnapshotDialog.h"
#include "shell/ScreenPlacement.h"
#include "shell/StartUp.h"
#include "views/SnapshotStatusBar.h"

#include "listing/Twips.h"
#include "settings/IniFile.h"
#include "settings/SettingsStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace kestrel;
using namespace Qt::StringLiterals;
using settings::Key;
using views::SnapshotWindow;

namespace {

// Items of one menu sharing an access key or lacking one, and shortcuts on
// two items anywhere in the menus, walked from the menu bar down.
void collectClashes(const QString& menu, const QList<QAction*>& items,
                    QHash<QKeySequence, QString>& shortcuts, QStringList& clashes) {
    QHash<QKeySequence, QString> keys;
    for (QAction* item : items) {
        if (item->isSeparator())
            continue;
        const QKeySequence key = QKeySequence::mnemonic(item->text());
        if (key.isEmpty() || keys.contains(key))
            clashes << menu + u": "_s + keys.value(key) + u" and "_s + item->text();
        keys.insert(key, item->text());
        for (const QKeySequence& shortcut : item->shortcuts()) {
            if (shortcuts.contains(shortcut))
                clashes << shortcut.toString() + u": "_s + shortcuts.value(shortcut);
            shortcuts.insert(shortcut, item->text());
        }
        if (QMenu* sub = item->menu())
            collectClashes(item->text(), sub->actions(), shortcuts, clashes);
    }
}

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree; // a small folder tree, without a trailing separator
    QString m_startFolder;

    QString iniPath() const { return m_dir->filePath(u"Kestrel.ini"_s); }
    QString path(const QString& name) const { return m_dir->filePath(name); }

    // A snapshot of the tree saved as file by a frame of its own.
    void saveSnapshot(const QString& file, int16_t number = 1) {
        Frame maker(iniPath());
        QVERIFY(maker->NewSnapshot(m_tree, true, true, false, number));
        maker.saveAs(*maker.active(), file);
    }

private Q_SLOTS:
    void initTestCase() { m_startFolder = QDir::currentPath(); }
    void cleanup() { QDir::setCurrent(m_startFolder); }

    void init() {
        // Each test starts from an empty store, an empty INI file and a new tree.
        QSettings(u"Kestrel"_s, u"Kestrel"_s).clear();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_tree = path(u"Tree"_s);
        writeFiles(m_tree, words(u"a.txt sub/b.txt sub/c.bin"_s), QDateTime::currentDateTime());
    }

    // The paths on the command line: none opens the New dialog, or the
    // recent list when it has entries (an empty argument names nothing); a
    // folder is scanned with its sub-folders and hidden files; a path that
    // is not there is named, and the program goes on as without one, so it
    // does when either of two paths is missing; a file that fails to load
    // leaves its own error only, is not scanned as a folder after it, nor
    // kept on the recent list.
    void startUp_data() {
        QTest::addColumn<QStringList>("paths"); // in the test's folder but for "/..."
        QTest::addColumn<bool>("recent");       // a file on the recent list before
        QTest::addColumn<QStringList>("dialogs");
        QTest::addColumn<QStringList>("messages");
        const QStringList none, opens{u"kestrel::shell::NewSnapshotDialog"_s},
            notFound{u"Path Not Found: /no/such/path does not exist"_s};
        QTest::newRow("none") << none << false << opens << none;
        QTest::newRow("none, recent")
            << none << true << QStringList{u"kestrel::shell::RecentSnapshotsDialog"_s} << none;
        QTest::newRow("folder") << QStringList{u"Tree"_s} << false << none << none;
        QTest::newRow("missing") << QStringList{u"/no/such/path"_s} << false << opens << notFound;
        QTest::newRow("folder, missing")
            << QStringList{u"Tree"_s, u"/no/such/path"_s} << false << opens << notFound;
        QTest::newRow("broken file") << QStringList{u"Broken.#01"_s} << false << none
                                     << QStringList{u"Invalid Snapshot: Input past end of file"_s};
    }
    void startUp() {
        QFETCH(QStringList, paths);
        QFETCH(bool, recent);
        QCOMPARE(shell::CommandLinePaths({u"kestrel"_s, QString(), u"a b"_s}),
                 QStringList{u"a b"_s});
        writeFile(path(u"Broken.#01"_s), "this is not a snapshot\n");
        if (recent)
            settings::SettingsStore().writeString(u"Recent"_s, u"File0"_s, path(u"Old.#01"_s));
        for (QString& p : paths)
            p = p.startsWith(u'/') ? p : path(p);
        Frame frame(iniPath());
        shell::StartUp(*frame.window, paths);
        QTEST(frame.dialogs, "dialogs");
        QTEST(frame.messages, "messages");
        QVERIFY(frame->isVisible());
        QCOMPARE(frame->recentDialog().list().isEmpty(), !recent);
        const bool scanned = paths == QStringList{m_tree};
        QCOMPARE(frame->snapshotWindows().size(), scanned ? 1 : 0);
        if (scanned) {
            QCOMPARE(frame.active()->caption(), u"Snapshot #1 of "_s + m_tree);
            const engine::SnapshotHeader& header = frame.active()->snapshot().header;
            QVERIFY(header.recurse && header.hidden && !header.versions);
        }
    }

    // OLD NEW: both open, the newer numbered as a repeat of the older, and
    // they are compared even with auto-compare off; two folders as well.
    void startUpComparesTwoPaths() {
        const QString saved = path(u"Tree.#03"_s);
        saveSnapshot(saved, 3);
        writeFile(m_tree + u"/a.txt"_s, "alpha, longer now");

        Frame frame(iniPath());
        frame->options().setValue(Key::Compare, 0);
        shell::StartUp(*frame.window, {saved, m_tree});
        QCOMPARE(frame->snapshotWindows().size(), 2);
        QCOMPARE(frame.first()->snapshot().header.fileName, saved);
        QCOMPARE(frame.second()->caption(), u"Snapshot #4 of "_s + m_tree);
        QCOMPARE(frame.second()->pairedWindow(), frame.first());
        for (SnapshotWindow* window : frame->snapshotWindows())
            QCOMPARE(window->statusBar()->panelText(2), u"1 file changed"_s);

        Frame folders(iniPath());
        shell::StartUp(*folders.window, {m_tree + u"/sub"_s, m_tree});
        QCOMPARE(folders->snapshotWindows().size(), 2);
        QVERIFY(folders.second()->compared());
    }

    // File, Export Change Report by its keys in a compared pair: the file the
    // user names gets the changes between the two, in the format its type
    // says; alone, a window offers no report.
    void changeReportFromThePair() {
        const QString saved = path(u"Tree.#01"_s);
        saveSnapshot(saved);
        writeFile(m_tree + u"/a.txt"_s, "alpha, longer now");
        QVERIFY(QFile::remove(m_tree + u"/sub/c.bin"_s));
        writeFile(m_tree + u"/new.txt"_s, "n");

        Frame frame(iniPath());
        QVERIFY(frame.showActive());
        QVERIFY(frame->OpenSnapshot(saved));
        QVERIFY(!frame.active()->action(u"mnuFileExportReport"_s)->isEnabled());
        frame.closeWithoutSaving(*frame.active());
        QStringList suggested;
        QString answer = path(u"changes.json"_s);
        frame->chooseReportFile = [&](const QString& name) {
            suggested << name;
            return answer;
        };
        QVERIFY(frame->openAndCompare(saved, m_tree));
        QVERIFY(frame.active()->compared());
        menuByKeys(frame.active(), Qt::Key_F, Qt::Key_G);
        QTRY_VERIFY(QFileInfo::exists(answer));
        QCOMPARE(suggested.value(0), u"Tree changes.html"_s);
        // Its contents are the change document's tests'; here, that it is
        // this pair's, the saved snapshot the older.
        const QJsonObject report = QJsonDocument::fromJson(readFile(answer)).object();
        QCOMPARE(report[u"old"][u"file"].toString(), saved);
        QCOMPARE(report[u"changes"].toArray().size(), 3);

        answer = path(u"changes.html"_s);
        menuByKeys(frame.active(), Qt::Key_F, Qt::Key_G);
        QTRY_VERIFY(QFileInfo::exists(answer));
        QVERIFY(readFile(answer).startsWith("<!DOCTYPE html>"));
    }

    // Relative paths are made absolute where the program starts: the root
    // folder, title, proposed file name and recent entry hold from any
    // other folder. A repeat scans the recorded root wherever the program
    // runs then, and is proposed beside the snapshot it comes from, one past
    // its number, whatever folder the file dialogs were in last.
    void relativePathsFromAnotherFolder() {
        const QString saved = path(u"series/Tree.#05"_s);
        QVERIFY(QDir().mkpath(path(u"series"_s)) && QDir::setCurrent(m_tree));
        {
            Frame frame(iniPath());
            shell::StartUp(*frame.window, {u"."_s});
            QCOMPARE(frame.active()->snapshot().header.rootFolder, m_tree + u'/');
            QCOMPARE(frame.active()->caption(), u"Snapshot #1 of "_s + m_tree);
            frame.saveAs(*frame.active(), saved);
            QVERIFY(frame.proposedSave.endsWith(u"/Tree.#01"_s));
        }

        QVERIFY(QDir::setCurrent(path(u"series"_s)));
        Frame frame(iniPath());
        shell::StartUp(*frame.window, {u"../Tree/../series/Tree.#05"_s});
        QCOMPARE(frame->recentDialog().list().entries().value(0), saved);
        QCOMPARE(frame.active()->caption(), saved);

        QVERIFY(QDir::setCurrent(m_tree + u"/sub"_s));
        frame->setLastFolder(m_tree + u"/sub"_s);
        frame.repeat();
        QCOMPARE(frame.second()->snapshot().header.rootFolder, m_tree + u'/');
        QCOMPARE(frame.second()->snapshot().fileCount, 3);
        QCOMPARE(frame.second()->number(), 6);
        frame.saveAs(*frame.second(), QString());
        QCOMPARE(frame.proposedSave, path(u"series/Tree.#06"_s));
        frame.second()->setChanged(false);
    }

    // The New dialog's exclude line: what its patterns match is left out of
    // the scan, and the line is kept in Kestrel.ini for the next run.
    void excludedFromTheScan() {
        writeFile(m_tree + u"/sub/note.tmp"_s, "x");
        writeFile(m_tree + u"/my file"_s, "x");
        const QString typed = u"sub/*.bin  *.tmp my\\ file"_s;
        {
            Frame frame(iniPath());
            QTest::keyClicks(control<QLineEdit>(frame->newSnapshotDialog(), "txtExclude"), typed);
            QCOMPARE(frame->newSnapshotDialog().excludePatterns(),
                     u"sub/*.bin\n*.tmp\nmy\\ file"_s);
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            QCOMPARE(frame.active()->snapshot().fileCount, 2); // a.txt and sub/b.txt
            frame.active()->setChanged(false);
            frame->newSnapshotDialog().saveChoices();
        }
        Frame again(iniPath());
        QCOMPARE(control<QLineEdit>(again->newSnapshotDialog(), "txtExclude")->text(), typed);
    }

    // With "Naming" on, numbers 1 and 2 are the original and the final
    // snapshot; any other keeps its number. A failed scan makes no window.
    void newSnapshotTitles() {
        Frame frame(iniPath());
        const std::tuple<bool, int16_t, QString> cases[] = {{false, 2, u"Snapshot #2 of "_s},
                                                            {true, 1, u"Original Snapshot of "_s},
                                                            {true, 2, u"Final Snapshot of "_s},
                                                            {true, 3, u"Snapshot #3 of "_s}};
        for (const auto& [naming, number, title] : cases) {
            frame->options().setValue(Key::Naming, naming ? 1 : 0);
            QVERIFY(frame->NewSnapshot(m_tree, true, false, false, number));
            QCOMPARE(frame.second()->snapshot().header.title, title + m_tree);
            QCOMPARE(frame.second()->caption(), title + m_tree);
            QCOMPARE(frame.second()->number(), number);
        }
        QVERIFY(QDir().mkpath(path(u"empty"_s)));
        QVERIFY(!frame->NewSnapshot(path(u"empty"_s), true, true, false, 2));
        QCOMPARE(frame->snapshotWindows().size(), 4);
        QCOMPARE(frame.titles, QStringList{u"Empty Snapshot"_s});
    }

    // An opened snapshot takes its number from the file name, its caption
    // from the title or, with "Filename", the name; Repeat numbers on and
    // scans as the snapshot was taken: here without hidden items, which the
    // summary says it left out. The Title option asks for a title, the usual
    // one offered; leading blanks go, trailing ones stay.
    void openSnapshotNumbersFromTheFileName() {
        const QString file = path(u"Tree.#02"_s);
        writeFiles(m_tree, {u".profile"_s, u".git/config"_s}, QDateTime::currentDateTime());
        {
            Frame maker(iniPath());
            maker->options().setValue(Key::Title, 1);
            maker.textAnswer = u"   Tree before "_s;
            QVERIFY(maker->NewSnapshot(m_tree, true, false, false, 1));
            QCOMPARE(maker.textDefaults, QStringList{u"Snapshot #1 of "_s + m_tree});
            maker.saveAs(*maker.active(), file);
        }
        for (const bool filename : {true, false}) {
            Frame frame(iniPath());
            frame->options().setValue(Key::Filename, filename ? 1 : 0);
            QVERIFY(frame->OpenSnapshot(file));
            SnapshotWindow* opened = frame.active();
            QCOMPARE(opened->number(), int16_t(2));
            QCOMPARE(opened->caption(), filename ? file : u"Tree before "_s);
            QVERIFY(!opened->changed());
            QCOMPARE(frame->recentDialog().list().entries().value(0), file);
            QVERIFY(frame->summaryText().startsWith(u"Kestrel read 3 files"_s));

            frame.repeat();
            QCOMPARE(frame.second()->number(), int16_t(3));
            QCOMPARE(frame.second()->caption(), u"Snapshot #3 of "_s + m_tree + u'/');
            QVERIFY(frame.second()->snapshot().header.recurse &&
                    !frame.second()->snapshot().header.hidden);
            QVERIFY2(frame->summaryText().endsWith(u"/sec), 2 hidden entries left out"_s),
                     qPrintable(frame->summaryText()));
        }
    }

    void closingAsksToSave() {
        Frame frame(iniPath(), Frame::Shown);
        frame->setLastFolder(m_dir->path());
        writeFile(path(u"Tree.#01"_s), "taken");
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* window = frame.active();
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
        frame.saveAnswer = path(u"no/such/folder/Tree.#02"_s);
        QVERIFY(!sub->close());
        QVERIFY(window->changed() && window->snapshot().header.fileName.isEmpty());
        frame.closeWithoutSaving(*window);

        // Cancel keeps the program open; Yes saves, and then everything closes.
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        frame.saveQuestionAnswer = views::SaveAnswer::Cancel;
        QVERIFY(!frame->close());
        QCOMPARE(frame->snapshotWindows().size(), 1);
        frame.saveQuestionAnswer = views::SaveAnswer::Yes;
        frame.saveAnswer = path(u"Tree.#02"_s);
        QVERIFY(frame->close());
        QVERIFY(QFile::exists(frame.saveAnswer));
        QCOMPARE(settings::SettingsStore().readString(u"Recent"_s, u"File0"_s, QString()),
                 frame.saveAnswer);
    }

    // A folder dropped on the frame is scanned, a snapshot file opened, as
    // long as New and Open could run: fewer than two windows, nothing busy.
    void dropsScanAndOpen() {
        Frame frame(iniPath(), Frame::Shown);
        QWidget* target = frame.window.get();
        QVERIFY(!dropFiles(target, {QUrl(u"https://example.org/Tree.#01"_s)}));
        QVERIFY(dropFiles(target, {QUrl::fromLocalFile(m_tree)}));
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QCOMPARE(frame.active()->snapshot().header.rootFolder, m_tree + u'/');

        const QString saved = path(u"Tree.#01"_s);
        frame.saveAs(*frame.active(), saved);
        frame->operationStarted();
        QVERIFY(!dropFiles(target, {QUrl::fromLocalFile(saved)}));
        frame->operationEnded();
        QVERIFY(dropFiles(target, {QUrl::fromLocalFile(saved)}));
        QTRY_COMPARE(frame->snapshotWindows().size(), 2);
        QCOMPARE(frame.active()->snapshot().header.fileName, saved);
        QVERIFY(!dropFiles(target, {QUrl::fromLocalFile(m_tree)})); // two windows are open
    }

    // The frame's place and size are kept in twips for the next run; too
    // small a frame snaps to the minimum, not beyond it.
    void placementInTwips() {
        QPoint place;
        double dpiX = 96;
        {
            Frame frame(iniPath(), Frame::Shown);
            dpiX = frame->logicalDpiX();
            const double dpiY = frame->logicalDpiY();
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
        QCOMPARE(settings::IniFile(iniPath()).readString(u"Main"_s, u"Width"_s, {}).toInt(),
                 engine::twipsFromPixels(700, dpiX));
        Frame again(iniPath());
        QCOMPARE(again->pos(), place);
        QCOMPARE(again->size(), QSize(700, 520));
    }

    // The Window menu tiles one above the other or side by side; the choice
    // is stored and automatic tiling follows it, also in the next run. When
    // one window of the pair closes, the other fills the frame again.
    void tiling() {
        const auto frameOf = [](Frame& frame, int i) {
            return frame->snapshotWindows()[i]->parentWidget()->geometry();
        };
        {
            Frame frame(iniPath());
            QVERIFY(frame.showActive());
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 2));
            QCOMPARE(frameOf(frame, 0).width(), frameOf(frame, 1).width());
            QVERIFY(frameOf(frame, 0).bottom() < frameOf(frame, 1).top());
            // Alt+W opens the Window menu, S takes "Tile Side by Side".
            menuByKeys(frame.window.get(), Qt::Key_W, Qt::Key_S);
            QTRY_VERIFY(frameOf(frame, 0).right() < frameOf(frame, 1).left());
            QCOMPARE(frameOf(frame, 0).height(), frameOf(frame, 1).height());
            QCOMPARE(frameOf(frame, 0).top(), frameOf(frame, 1).top());
            for (SnapshotWindow* w : frame->snapshotWindows())
                w->setChanged(false);
        }
        QVERIFY(settings::SettingsStore().readTileSideBySide());

        Frame frame(iniPath(), Frame::Shown);
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 2));
        QVERIFY(frameOf(frame, 0).right() < frameOf(frame, 1).left());
        QWidget* left = frame.first()->parentWidget();
        frame.closeWithoutSaving(*frame.second());
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

    // Every item of a menu has an access key of its own and no shortcut
    // serves two items, in the frame's menus and in a snapshot window's;
    // Alt+F, C opens the options from either, and Ctrl+Q quits from either.
    void menuKeysAreDistinct() {
        for (const bool withWindow : {false, true}) {
            Frame frame(iniPath());
            QVERIFY(frame.showActive());
            if (withWindow)
                QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            QCOMPARE(frame->menuBar()->actions().size(), withWindow ? 6 : 2);
            QHash<QKeySequence, QString> shortcuts;
            QStringList clashes;
            collectClashes(u"menu bar"_s, frame->menuBar()->actions(), shortcuts, clashes);
            QCOMPARE(clashes, QStringList());
            frame.focus();
            menuByKeys(frame.window.get(), Qt::Key_F, Qt::Key_C);
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::settings::ConfigDialog"_s});
            QVERIFY(!QApplication::activePopupWidget());
            frame.saveQuestionAnswer = views::SaveAnswer::No;
            QTest::keyClick(frame.window.get(), Qt::Key_Q, Qt::ControlModifier);
            QVERIFY2(!frame->isVisible(), withWindow ? "with a window" : "alone");
        }
    }

    // The toolbar offers New and Open alone, Save As, Repeat and Print with
    // a window (the snapshot window's tests see a pair's, and commands
    // refused while an operation runs). The frame's commands exist once:
    // both snapshot windows' menus hold the frame's actions, so disabling
    // New for two windows reaches every menu; the toolbar's buttons run the
    // active window's own commands.
    void frameCommandsFollowTheWindows() {
        Frame frame(iniPath(), Frame::Shown);
        QAction* newSnapshot = frame->findChild<QAction*>(u"mnuFileNew"_s);
        QCOMPARE(frame.enabledButtons(), (QStringList{u"New"_s, u"Open"_s}));
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QCOMPARE(frame.enabledButtons(),
                 (QStringList{u"New"_s, u"Open"_s, u"Save As"_s, u"Repeat"_s, u"Print"_s}));
        SnapshotWindow* older = frame.active();
        frame.clickToolbar(u"Repeat"_s);
        SnapshotWindow* newer = frame.active();
        QVERIFY(newer != older && !newSnapshot->isEnabled());
        QCOMPARE(older->action(u"mnuFileNew"_s), newSnapshot);
        QCOMPARE(newer->action(u"mnuFileNew"_s), newSnapshot);
        frame.saveAnswer = path(u"Newer.#02"_s);
        frame.clickToolbar(u"Save As"_s);
        QCOMPARE(newer->snapshot().header.fileName, frame.saveAnswer);
        QVERIFY(older->snapshot().header.fileName.isEmpty());
        frame.closeWithoutSaving(*newer);
        QVERIFY(newSnapshot->isEnabled());
    }

    // The options dialog in the frame: the menu disables its Compare
    // buttons for good, its toolbar box acts on the frame at once, and
    // "Synch" is stored once, when the dialog goes with the frame.
    void configurationDialog() {
        const auto synch = [] {
            return settings::SettingsStore().readString(u"Config"_s, u"Synch"_s, u"-"_s);
        };
        {
            Frame frame(iniPath(), Frame::Shown);
            settings::ConfigDialog& config = frame->configDialog();
            QVERIFY(control<QWidget>(config, "cmdCompare0")->isEnabled());
            frame->mnuFileConfig_Click();
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::settings::ConfigDialog"_s});
            config.showForComparison(u"one"_s, u"two"_s);
            QVERIFY(!control<QWidget>(config, "cmdCompare0")->isEnabled() &&
                    !control<QWidget>(config, "cmdCompare1")->isEnabled());
            control<QAbstractButton>(config, "chkToolbar")->click();
            QVERIFY(!frame->toolbar()->isVisible());
            control<QAbstractButton>(config, "chkSynch")->click();
            QVERIFY(frame->close());
            QCOMPARE(synch(), u"-"_s);
        }
        QCOMPARE(synch(), u"0"_s);
    }

    // The external program named without a folder and found nowhere on PATH
    // is "File not found" as typed, even with a file of that name in the
    // current folder. (The settings' tests find one on PATH; a program the
    // options name is started from a window in the snapshot window's tests.)
    void externalProgramNotOnPath() {
        writeProgram(path(u"kestrel-no-such-tool"_s), "#!/bin/sh\n");
        QVERIFY(QDir::setCurrent(m_dir->path()));
        Frame frame(iniPath());
        settings::ConfigDialog& config = frame->configDialog();
        control<QLineEdit>(config, "txtProgram")->setText(u"kestrel-no-such-tool"_s);
        QVERIFY(!config.ExecuteCustom(m_tree + u"/a.txt"_s, m_tree + u"/sub/b.txt"_s));
        QVERIFY(frame.started.isEmpty());
        QCOMPARE(frame.messages,
                 QStringList{u"Application Launch Error: File not found: kestrel-no-such-tool"_s});
    }

    // The launcher: a document goes to its association, an executable is
    // started directly, and each failure is said; odd names reach the
    // desktop as the one file they name. Help opens the page beside the
    // program (installed, the one in share/kestrel beside bin/) at its top,
    // and complains only when the desktop's launcher cannot start.
    void launcher() {
        const QString folder = m_dir->path() + u'/';
        writeFile(folder + u"notes.txt"_s, "x");
        writeProgram(folder + u"cmp"_s, "#!/bin/sh\n");
        QStringList messages;
        QList<QUrl> opened;
        bool openWorks = true;
        shell::Launcher launcher(
            [&](const engine::UserMessage& m) { messages << m.title + u": "_s + m.text; },
            {[&](const QUrl& url) {
                 opened << url;
                 return openWorks;
             },
             [](const QString&, const QStringList&, const QString&) { return 11; }});
        QVERIFY(launcher.ShowHelp(u"#Top"_s));
        openWorks = false;
        launcher.LaunchDocument(m_dir->path(), u"/"_s, u"notes.txt"_s, {});
        launcher.LaunchDocument({}, folder, u"cmp"_s, {});
        launcher.LaunchDocument(u"/no/such/"_s, u"place/"_s, u"file.txt"_s, {});
        launcher.setProgramFolder(m_dir->path());
        QVERIFY(launcher.ShowHelp(u"#Top"_s)); // no page: nothing opens, nothing said
        writeFile(folder + u"KestHelp.htm"_s, "<html></html>");
        QVERIFY(!launcher.ShowHelp(u"#Top"_s));
        openWorks = true;
        const QString odd = u"-odd; $(touch pwned)\n\"name\".txt"_s;
        writeFile(folder + odd, "x");
        launcher.LaunchDocument(folder, QString(), odd, {});

        const QString installed = QCoreApplication::applicationDirPath() + u"/KestHelp.htm"_s;
        QCOMPARE(opened, (QList<QUrl>{QUrl::fromLocalFile(installed),
                                      QUrl::fromLocalFile(folder + u"notes.txt"_s),
                                      QUrl::fromLocalFile(folder + u"KestHelp.htm"_s),
                                      QUrl::fromLocalFile(folder + odd)}));
        const QString error = u"Application Launch Error: "_s;
        QCOMPARE(
            messages,
            (QStringList{error + u"No application is associated with this file type"_s,
                         error + u"Error 11 launching application"_s, error + u"File not found"_s,
                         u"No Help Available: No program could open the help file "_s + folder +
                             u"KestHelp.htm"_s}));

        const QString prefix = path(u"usr"_s);
        QVERIFY(QDir().mkpath(prefix + u"/bin"_s) && QDir().mkpath(prefix + u"/share/kestrel"_s));
        launcher.setProgramFolder(prefix + u"/bin"_s);
        QCOMPARE(launcher.helpPath(), prefix + u"/bin/KestHelp.htm"_s); // none anywhere
        writeFile(prefix + u"/share/kestrel/KestHelp.htm"_s, "<html></html>");
        QCOMPARE(launcher.helpPath(), prefix + u"/share/kestrel/KestHelp.htm"_s);
        writeFile(prefix + u"/bin/KestHelp.htm"_s, "<html></html>");
        QCOMPARE(launcher.helpPath(), prefix + u"/bin/KestHelp.htm"_s); // beside comes first
    }
};

int main(int argc, char** argv) {
    return runWindowTest<MainWindowTest>(argc, argv);
}

#include "MainWindowTest.moc"
