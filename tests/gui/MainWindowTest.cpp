// The main window and start-up: what the program does with its command line,
// how snapshot windows are made, numbered, captioned, saved and closed, and
// the frame's placement. Dialogs and message boxes are answered through the
// frame's UserQuestions, so nothing waits for a user.

#include "shell/MainWindow.h"
#include "shell/Launcher.h"
#include "shell/NewSnapshotDialog.h"
#include "shell/RecentSnapshots.h"
#include "shell/StartUp.h"

#include "engine/Progress.h"
#include "engine/Scan.h"
#include "engine/Snapshot.h"
#include "engine/SnapshotFile.h"
#include "settings/IniFile.h"
#include "settings/SettingsStore.h"
#include "views/EntryListModel.h"
#include "views/SnapshotWindow.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMdiSubWindow>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QToolBar>
#include <QUrl>
#include <QtTest>

#include <memory>

using namespace kestrel;
using settings::Key;
using shell::MainWindow;
using views::SnapshotWindow;

namespace {

void writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(contents);
}

// A frame on a temporary Kestrel.ini whose questions are answered by the
// test and recorded.
struct Frame {
    std::unique_ptr<MainWindow> window;
    QStringList dialogs;                 // class names of the dialogs shown
    QList<engine::UserMessage> messages; // message boxes shown
    QString saveAnswer;                  // what the save dialog returns
    QString proposedSave;                // what it proposed
    std::optional<QString> textAnswer;   // what the input box returns
    QStringList textQuestions;           // prompt|caption|default of each
    int saveQuestionAnswer = 2;          // the save prompt's answer
    QStringList saveQuestions;

    explicit Frame(const QString& iniPath) : window(std::make_unique<MainWindow>(iniPath)) {
        window->setFarewellTime(0);
        shell::UserQuestions& q = window->questions();
        q.exec = [this](QDialog& dialog) {
            dialogs << QString::fromLatin1(dialog.metaObject()->className());
            return int(QDialog::Rejected);
        };
        q.message = [this](const engine::UserMessage& message) { messages << message; };
        q.saveFileName = [this](const QString& proposed) {
            proposedSave = proposed;
            return saveAnswer;
        };
        q.text = [this](const QString& prompt, const QString& caption, const QString& text) {
            textQuestions << prompt + QLatin1Char('|') + caption + QLatin1Char('|') + text;
            return textAnswer;
        };
        q.saveQuestion = [this](const QString& prompt) {
            saveQuestions << prompt;
            return saveQuestionAnswer;
        };
    }
    MainWindow* operator->() const { return window.get(); }
    QStringList messageTitles() const {
        QStringList titles;
        for (const engine::UserMessage& m : messages)
            titles << m.title;
        return titles;
    }
};

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree; // a small folder tree, without a trailing separator

    QString iniPath() const { return m_dir->filePath(QStringLiteral("Kestrel.ini")); }

    // Saves a snapshot of the tree as path, titled title.
    void saveSnapshotOfTree(const QString& path, const QString& title) {
        engine::Snapshot snapshot;
        snapshot.header.rootFolder = m_tree + QLatin1Char('/');
        snapshot.header.recurse = true;
        snapshot.header.hidden = true;
        engine::ProgressMeter meter;
        engine::ScanSettings settings;
        settings.listingThreads = 0;
        QVERIFY(engine::CreateSnapshot(snapshot, settings, meter).ok);
        snapshot.header.title = title;
        snapshot.header.fileName = path;
        QVERIFY(engine::SaveSnapshot(snapshot, meter).ok);
    }

private Q_SLOTS:
    void init() {
        // Each test starts from an empty store, an empty INI file and a new tree.
        QSettings(QStringLiteral("Kestrel"), QStringLiteral("Kestrel")).clear();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_tree = m_dir->filePath(QStringLiteral("Tree"));
        QVERIFY(QDir().mkpath(m_tree + QStringLiteral("/sub")));
        writeFile(m_tree + QStringLiteral("/a.txt"), "alpha");
        writeFile(m_tree + QStringLiteral("/sub/b.txt"), "bravo bravo");
        writeFile(m_tree + QStringLiteral("/sub/c.bin"), QByteArray(1000, 'c'));
    }

    // Start-up ---------------------------------------------------------------

    void startUpWithEmptyRecentListAsksForNewSnapshot() {
        Frame frame(iniPath());
        shell::StartUp(*frame.window, QString());
        QVERIFY(frame->isVisible());
        QVERIFY(frame->aboutBox() != nullptr);
        QCOMPARE(frame.dialogs, QStringList{QStringLiteral("kestrel::shell::NewSnapshotDialog")});
        QVERIFY(frame->snapshotWindows().isEmpty());
    }

    void startUpWithRecentEntriesShowsRecentList() {
        {
            settings::SettingsStore store;
            store.writeString(QStringLiteral("Recent"), QStringLiteral("File0"),
                              m_dir->filePath(QStringLiteral("Old.#01")));
        }
        Frame frame(iniPath());
        shell::StartUp(*frame.window, QString());
        QCOMPARE(frame.dialogs,
                 QStringList{QStringLiteral("kestrel::shell::RecentSnapshotsDialog")});
    }

    void startUpWithFolderScansItWithSubFoldersAndHiddenFiles_data() {
        QTest::addColumn<bool>("naming");
        QTest::addColumn<QString>("title");
        QTest::newRow("plain") << false << QStringLiteral("Snapshot #1 of ");
        QTest::newRow("naming") << true << QStringLiteral("Original Snapshot of ");
    }
    void startUpWithFolderScansItWithSubFoldersAndHiddenFiles() {
        QFETCH(bool, naming);
        QFETCH(QString, title);
        Frame frame(iniPath());
        frame->options().setValue(Key::Naming, naming ? 1 : 0);
        shell::StartUp(*frame.window, m_tree);

        QCOMPARE(frame->snapshotWindows().size(), 1);
        SnapshotWindow* window = frame->snapshotWindows().first();
        QCOMPARE(window->caption(), title + m_tree);
        QCOMPARE(window->number(), int16_t(1));
        QVERIFY(window->changed());
        const engine::SnapshotHeader& header = window->snapshot().header;
        QCOMPARE(header.rootFolder, m_tree + QLatin1Char('/'));
        QVERIFY(header.recurse);
        QVERIFY(header.hidden);
        QVERIFY(!header.versions);
        QCOMPARE(window->snapshot().fileCount, 3); // sub/ was entered
        QCOMPARE(window->snapshot().folderCount, 1);
        QVERIFY(!frame.messageTitles().contains(QStringLiteral("Empty Snapshot")));
    }

    void startUpWithQuotedPathFailsAsFileAndFolder() {
        Frame frame(iniPath());
        const QString quoted = QLatin1Char('"') + m_tree + QLatin1Char('"');
        shell::StartUp(*frame.window, quoted);
        QVERIFY(frame->snapshotWindows().isEmpty());
        QVERIFY(frame.dialogs.isEmpty());
        // Tried as a snapshot file, then scanned as a folder: both complain.
        QCOMPARE(frame.messageTitles(),
                 (QStringList{QStringLiteral("Error"), QStringLiteral("Empty Snapshot")}));
        QVERIFY(frame->isVisible());
    }

    void commandLineIsTakenWhole() {
        QCOMPARE(shell::CommandLineText({QStringLiteral("kestrel")}), QString());
        QCOMPARE(shell::CommandLineText(
                     {QStringLiteral("kestrel"), QStringLiteral("/a b"), QStringLiteral("\"c\"")}),
                 QStringLiteral("/a b \"c\""));
    }

    // New snapshots ------------------------------------------------------------

    void newSnapshotTitles_data() {
        QTest::addColumn<int>("number");
        QTest::addColumn<bool>("naming");
        QTest::addColumn<QString>("prefix");
        QTest::newRow("1") << 1 << false << QStringLiteral("Snapshot #1 of ");
        QTest::newRow("2") << 2 << false << QStringLiteral("Snapshot #2 of ");
        QTest::newRow("3") << 3 << false << QStringLiteral("Snapshot #3 of ");
        QTest::newRow("1 named") << 1 << true << QStringLiteral("Original Snapshot of ");
        QTest::newRow("2 named") << 2 << true << QStringLiteral("Final Snapshot of ");
        QTest::newRow("3 named") << 3 << true << QStringLiteral("Snapshot #3 of ");
    }
    void newSnapshotTitles() {
        QFETCH(int, number);
        QFETCH(bool, naming);
        QFETCH(QString, prefix);
        Frame frame(iniPath());
        frame->options().setValue(Key::Naming, naming ? 1 : 0);
        QVERIFY(frame->NewSnapshot(m_tree, true, false, false, int16_t(number)));
        SnapshotWindow* window = frame->activeSnapshotWindow();
        QVERIFY(window);
        QCOMPARE(window->snapshot().header.title, prefix + m_tree);
        QCOMPARE(window->caption(), prefix + m_tree);
        QCOMPARE(window->number(), int16_t(number));
        QVERIFY(frame.textQuestions.isEmpty()); // "Title" is off
    }

    void summaryLineGoesToTheStatusBar() {
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        static const QRegularExpression line(QStringLiteral(
            "^Kestrel found 3 files and 1 folders in \\d+\\.\\d\\d seconds \\([\\d,]+/sec\\)$"));
        QVERIFY2(line.match(frame->summaryText()).hasMatch(), qPrintable(frame->summaryText()));
    }

    void listingShowsEntriesInTableOrder() {
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        const views::EntryListModel& model = frame->activeSnapshotWindow()->model();
        QAbstractItemModelTester tester(const_cast<views::EntryListModel*>(&model),
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(model.rowCount(), 4);
        QCOMPARE(model.headerData(2, Qt::Horizontal).toString(), QStringLiteral("Size "));
        QStringList rows;
        for (int r = 0; r < model.rowCount(); ++r)
            rows << model.index(r, 1).data().toString() + model.index(r, 0).data().toString() +
                        QLatin1Char('=') + model.index(r, 2).data().toString();
        // Folders' contents follow them; the order within a folder is the
        // file system's.
        QVERIFY2(rows.contains(QStringLiteral("sub=<dir>")), qPrintable(rows.join(',')));
        QVERIFY(rows.contains(QStringLiteral("sub/c.bin=1,000")));
        QVERIFY(rows.contains(QStringLiteral("a.txt=5")));
        const qsizetype folderRow = rows.indexOf(QStringLiteral("sub=<dir>"));
        QVERIFY(rows.at(folderRow + 1).startsWith(QStringLiteral("sub/")));
    }

    void titleOptionAsksForTheTitle() {
        Frame frame(iniPath());
        frame->options().setValue(Key::Title, 1);
        frame.textAnswer = QStringLiteral("   Before the upgrade ");
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QCOMPARE(frame.textQuestions.size(), 1);
        const QStringList parts = frame.textQuestions.first().split(QLatin1Char('|'));
        QCOMPARE(parts.at(0), QStringLiteral("Title of Snapshot:"));
        QVERIFY(parts.at(1).startsWith(QStringLiteral("Created ")));
        QCOMPARE(parts.at(2), QStringLiteral("Snapshot #1 of ") + m_tree);
        // Leading blanks go, trailing ones stay.
        SnapshotWindow* window = frame->activeSnapshotWindow();
        QCOMPARE(window->caption(), QStringLiteral("Before the upgrade "));

        // The same title in other letters, or nothing, changes nothing.
        window->setChanged(false);
        frame.textAnswer = QStringLiteral("BEFORE THE UPGRADE ");
        window->mnuFileProps_Click();
        frame.textAnswer = QStringLiteral("   ");
        window->mnuFileProps_Click();
        QVERIFY(!window->changed());
        QCOMPARE(window->snapshot().header.title, QStringLiteral("Before the upgrade "));
    }

    void failedScanLeavesNoWindow() {
        Frame frame(iniPath());
        QVERIFY(
            !frame->NewSnapshot(m_dir->filePath(QStringLiteral("missing")), true, true, false, 1));
        QVERIFY(frame->snapshotWindows().isEmpty());
        QCOMPARE(frame.messageTitles(), QStringList{QStringLiteral("Empty Snapshot")});
    }

    // Opening ----------------------------------------------------------------

    void openSnapshotTakesNumberFromNameAndRepeatsFromThere_data() {
        QTest::addColumn<bool>("filename");
        QTest::newRow("caption is the path") << true;
        QTest::newRow("caption is the title") << false;
    }
    void openSnapshotTakesNumberFromNameAndRepeatsFromThere() {
        QFETCH(bool, filename);
        const QString path = m_dir->filePath(QStringLiteral("Tree.#02"));
        saveSnapshotOfTree(path, QStringLiteral("Tree before"));

        Frame frame(iniPath());
        frame->options().setValue(Key::Filename, filename ? 1 : 0);
        QVERIFY(frame->OpenSnapshot(path));
        QCOMPARE(frame->snapshotWindows().size(), 1);
        SnapshotWindow* opened = frame->activeSnapshotWindow();
        QCOMPARE(opened->number(), int16_t(2));
        QCOMPARE(opened->caption(), filename ? path : QStringLiteral("Tree before"));
        QVERIFY(!opened->changed());
        QVERIFY(frame.messages.isEmpty());
        QCOMPARE(frame->recentDialog().list().entries().value(0), path);
        QVERIFY(frame->summaryText().startsWith(QStringLiteral("Kestrel read 3 files")));

        opened->mnuFileRepeat_Click();
        QCOMPARE(frame->snapshotWindows().size(), 2);
        SnapshotWindow* repeated = frame->snapshotWindows().last();
        QCOMPARE(repeated->number(), int16_t(3));
        QCOMPARE(repeated->caption(),
                 QStringLiteral("Snapshot #3 of ") + m_tree + QLatin1Char('/'));
        QVERIFY(repeated->snapshot().header.recurse);
        QVERIFY(repeated->snapshot().header.hidden);
    }

    void failedLoadLeavesNoWindow() {
        const QString path = m_dir->filePath(QStringLiteral("Broken.#01"));
        writeFile(path, "this is not a snapshot\n");
        Frame frame(iniPath());
        QVERIFY(!frame->OpenSnapshot(path));
        QVERIFY(frame->snapshotWindows().isEmpty());
        QCOMPARE(frame.messages.size(), 1);
        QVERIFY(frame->recentDialog().list().isEmpty());
    }

    void repeatPastTheLastNumberIsAnOverflow() {
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 32767));
        frame->activeSnapshotWindow()->mnuFileRepeat_Click();
        QCOMPARE(frame->snapshotWindows().size(), 1);
        QCOMPARE(frame.messages.size(), 1);
        QCOMPARE(frame.messages.first().text, QStringLiteral("Overflow"));
    }

    // Saving and closing -------------------------------------------------------

    void saveAsProposesNextNumberAndClearsTheMark() {
        Frame frame(iniPath());
        frame->setLastFolder(m_dir->path());
        writeFile(m_dir->filePath(QStringLiteral("Tree.#01")), "taken");
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* window = frame->activeSnapshotWindow();

        frame.saveAnswer.clear(); // cancelled
        window->mnuFileSaveAs_Click();
        QCOMPARE(frame.proposedSave, m_dir->path() + QStringLiteral("/Tree.#02"));
        QVERIFY(window->changed());

        const QString target = m_dir->filePath(QStringLiteral("Tree.#02"));
        frame.saveAnswer = target;
        frame->Toolbar1_ButtonClick(QStringLiteral("Save As"));
        QVERIFY(!window->changed());
        QVERIFY(QFile::exists(target));
        QCOMPARE(window->snapshot().header.fileName, target);
        QCOMPARE(frame->recentDialog().list().entries().value(0), target);

        // A failed save keeps the mark and the old file name.
        window->setChanged(true);
        frame.saveAnswer = m_dir->filePath(QStringLiteral("no/such/folder/Tree.#03"));
        window->mnuFileSaveAs_Click();
        QVERIFY(window->changed());
        QCOMPARE(window->snapshot().header.fileName, target);
        QCOMPARE(frame.messages.size(), 1);
    }

    void closingAChangedSnapshotAsksFirst() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QMdiSubWindow* sub = nullptr;
        for (QMdiSubWindow* s : frame->findChildren<QMdiSubWindow*>())
            sub = s;
        QVERIFY(sub);

        frame.saveQuestionAnswer = 2; // Cancel
        QVERIFY(!sub->close());
        QCOMPARE(frame.saveQuestions,
                 QStringList{QStringLiteral("Save changes to Snapshot #1 of ") + m_tree +
                             QLatin1Char('?')});
        frame.saveQuestionAnswer = 0; // the prompt closed through its frame
        QVERIFY(!sub->close());

        frame.saveQuestionAnswer = 6; // Yes, but the save dialog is cancelled
        frame.saveAnswer.clear();
        QVERIFY(!sub->close());

        frame.saveQuestionAnswer = 7; // No
        QVERIFY(sub->close());
        QTRY_VERIFY(frame->snapshotWindows().isEmpty());
    }

    void cancelInASavePromptKeepsTheProgramOpen() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        frame.saveQuestionAnswer = 2;
        QVERIFY(!frame->close());
        QVERIFY(frame->isVisible());
        QCOMPARE(frame->snapshotWindows().size(), 1);

        // Yes with a file name saves, and then everything closes.
        frame.saveQuestionAnswer = 6;
        frame.saveAnswer = m_dir->filePath(QStringLiteral("Closing.#01"));
        QVERIFY(frame->close());
        QVERIFY(QFile::exists(frame.saveAnswer));
        QCOMPARE(settings::SettingsStore().readString(QStringLiteral("Recent"),
                                                      QStringLiteral("File0"), QString()),
                 frame.saveAnswer);
    }

    // Commands -----------------------------------------------------------------

    void commandsFollowTheNumberOfWindows() {
        Frame frame(iniPath());
        frame->show();
        const auto enabled = [&](const char* caption) {
            return frame->toolbarButton(QLatin1String(caption))->isEnabled();
        };
        QVERIFY(enabled("New") && enabled("Open"));
        QVERIFY(!enabled("Save As") && !enabled("Repeat"));
        QVERIFY(!enabled("Compare") && !enabled("Print"));

        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QVERIFY(enabled("New") && enabled("Open") && enabled("Save As") && enabled("Repeat"));

        frame->Toolbar1_ButtonClick(QStringLiteral("Repeat"));
        QCOMPARE(frame->snapshotWindows().size(), 2);
        QCOMPARE(frame->activeSnapshotWindow()->number(), int16_t(2));
        QVERIFY(!enabled("New") && !enabled("Open") && !enabled("Repeat"));
        QVERIFY(enabled("Save As"));
        QVERIFY(!enabled("Compare") && !enabled("Print"));

        frame.saveQuestionAnswer = 7;
        frame->activeSnapshotWindow()->parentWidget()->close();
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QTRY_VERIFY(enabled("New") && enabled("Repeat"));
    }

    void toolbarFollowsItsOption() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->toolbar()->isVisible());
        frame->options().setValue(Key::Toolbar, 0);
        QVERIFY(!frame->toolbar()->isVisible());
        frame->options().setValue(Key::Toolbar, 1);
        QVERIFY(frame->toolbar()->isVisible());
    }

    // While an operation runs under the meter, events get through; commands
    // arriving then are ignored.
    void commandsAreIgnoredWhileAnOperationRuns() {
        Frame frame(iniPath());
        frame->show();
        frame->operationStarted();
        frame->mnuFileNew_Click();
        frame->Toolbar1_ButtonClick(QStringLiteral("New"));
        QVERIFY(!frame->NewSnapshot(m_tree, true, true, false, 1));
        QVERIFY(!frame->close());
        frame->operationEnded();
        QVERIFY(frame.dialogs.isEmpty());
        QVERIFY(frame->snapshotWindows().isEmpty());
        QVERIFY(frame->isVisible());
    }

    // Placement ---------------------------------------------------------------

    void placementRoundTripsInTwips() {
        QPoint place;
        QSize size;
        double dpiX = 96;
        {
            Frame frame(iniPath());
            frame->show();
            frame->move(40, 30);
            frame->resize(700, 520);
            QTRY_COMPARE(frame->size(), QSize(700, 520));
            place = frame->pos();
            size = frame->size();
            dpiX = frame->logicalDpiX();
            QVERIFY(frame->close());
        }
        const settings::IniFile ini(iniPath());
        const auto key = [&](const char* name) {
            return ini.readString(QStringLiteral("Main"), QLatin1String(name), QString());
        };
        QCOMPARE(key("Width"), QString::number(shell::twipsFromPixels(700, dpiX)));
        QCOMPARE(key("Left"), QString::number(shell::twipsFromPixels(place.x(), dpiX)));
        QCOMPARE(key("Window"), QStringLiteral("0"));

        Frame again(iniPath());
        QCOMPARE(again->pos(), place);
        QCOMPARE(again->size(), size);
    }

    void storedStateIsRestored() {
        settings::IniFile(iniPath()).writeString(QStringLiteral("Main"), QStringLiteral("Window"),
                                                 QStringLiteral("2"));
        Frame frame(iniPath());
        QVERIFY(frame->windowState() & Qt::WindowMaximized);
    }

    void minimumSizeIsEnforcedOnResize() {
        Frame frame(iniPath());
        frame->show();
        const double dpiX = frame->logicalDpiX();
        const double dpiY = frame->logicalDpiY();
        frame->resize(shell::pixelsFromTwips(5000, dpiX), shell::pixelsFromTwips(4000, dpiY));
        QTRY_VERIFY(shell::twipsFromPixels(frame->width(), dpiX) >= 8000);
        QTRY_VERIFY(shell::twipsFromPixels(frame->height(), dpiY) >= 6000);
        // Snapped to the minimum, not beyond it.
        QVERIFY(shell::twipsFromPixels(frame->width() - 1, dpiX) < 8000);
        QVERIFY(shell::twipsFromPixels(frame->height() - 1, dpiY) < 6000);
    }
};

// The launcher, on a desktop that starts nothing.
class LauncherTest : public QObject {
    Q_OBJECT

private:
    struct Rig {
        QList<engine::UserMessage> messages;
        QList<QUrl> opened;
        QStringList started; // program|arguments joined by '|'|folder
        bool openWorks = true;
        int startResult = shell::LaunchResult::Started;
        shell::Launcher launcher;
        Rig()
            : launcher([this](const engine::UserMessage& m) { messages << m; },
                       shell::Launcher::Desktop{
                           [this](const QUrl& url) {
                               opened << url;
                               return openWorks;
                           },
                           [this](const QString& program, const QStringList& arguments,
                                  const QString& folder) {
                               started << program + QLatin1Char('|') +
                                              arguments.join(QLatin1Char('|')) + QLatin1Char('|') +
                                              folder;
                               return startResult;
                           }}) {}
    };

private Q_SLOTS:
    void documentsOpenByAssociation() {
        QTemporaryDir dir;
        writeFile(dir.filePath(QStringLiteral("notes.txt")), "x");
        Rig rig;
        // The result is false even when the launch worked.
        QVERIFY(!rig.launcher.LaunchDocument(dir.path(), QStringLiteral("/"),
                                             QStringLiteral("notes.txt"), QString()));
        QCOMPARE(rig.opened, QList<QUrl>{QUrl::fromLocalFile(dir.filePath("notes.txt"))});
        QVERIFY(rig.messages.isEmpty());

        rig.openWorks = false;
        rig.launcher.LaunchDocument(dir.path(), QStringLiteral("/"), QStringLiteral("notes.txt"),
                                    QString());
        QCOMPARE(rig.messages.size(), 1);
        QCOMPARE(rig.messages[0].title, QStringLiteral("Application Launch Error"));
        QCOMPARE(rig.messages[0].text,
                 QStringLiteral("No application is associated with this file type"));
        QCOMPARE(rig.messages[0].icon, engine::MessageIcon::Exclamation);
    }

    void programsStartWithSplitArgumentsAndNoShell() {
        QTemporaryDir dir;
        const QString program = dir.filePath(QStringLiteral("cmp"));
        writeFile(program, "#!/bin/sh\n");
        QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        Rig rig;
        rig.launcher.LaunchDocument(QString(), dir.path() + QLatin1Char('/'), QStringLiteral("cmp"),
                                    QStringLiteral("\"/a b/x.txt\" \"/c/x.txt\""));
        QCOMPARE(rig.started, QStringList{program + QStringLiteral("|/a b/x.txt|/c/x.txt|") +
                                          dir.path() + QLatin1Char('/')});
        QVERIFY(rig.opened.isEmpty());
        QVERIFY(rig.messages.isEmpty());

        rig.startResult = 11;
        rig.launcher.LaunchDocument(QString(), dir.path() + QLatin1Char('/'), QStringLiteral("cmp"),
                                    QString());
        QCOMPARE(rig.messages.size(), 1);
        QCOMPARE(rig.messages[0].text, QStringLiteral("Error 11 launching application"));
    }

    void missingFileIsReported() {
        Rig rig;
        rig.launcher.LaunchDocument(QStringLiteral("/no/such/"), QStringLiteral("place/"),
                                    QStringLiteral("file.txt"), QString());
        QVERIFY(rig.opened.isEmpty() && rig.started.isEmpty());
        QCOMPARE(rig.messages.size(), 1);
        QCOMPARE(rig.messages[0].text, QStringLiteral("File not found"));
        QCOMPARE(shell::LaunchErrorText(3), QStringLiteral("File not found"));
        QCOMPARE(shell::LaunchErrorText(8), QStringLiteral("Out of memory"));
    }

    void helpOpensThePageBesideTheProgram() {
        QTemporaryDir dir;
        Rig rig;
        rig.launcher.setProgramFolder(dir.path());
        const QString page = dir.filePath(QStringLiteral("KestHelp.htm"));

        QVERIFY(!rig.launcher.ShowHelp(QStringLiteral("#Top")));
        QCOMPARE(rig.messages.size(), 1);
        QCOMPARE(rig.messages[0].title, QStringLiteral("No Help Available"));
        QCOMPARE(rig.messages[0].text, page + QStringLiteral(" not found"));

        writeFile(page, "<html></html>");
        QVERIFY(rig.launcher.ShowHelp(QStringLiteral("#Top")));
        // Always at the top: the anchor is not passed on.
        QCOMPARE(rig.opened.last(), QUrl::fromLocalFile(page));
        QVERIFY(!rig.opened.last().hasFragment());

        rig.openWorks = false;
        QVERIFY(!rig.launcher.ShowHelp(QStringLiteral("#Top")));
        QCOMPARE(rig.messages.size(), 2);
    }

    void helpPageIsInstalledBesideTheProgram() {
        QFile page(QCoreApplication::applicationDirPath() + QStringLiteral("/KestHelp.htm"));
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QByteArray html = page.readAll();
        QVERIFY(html.contains("id=\"Top\""));
        // No external resources: the page must work offline.
        QVERIFY(!html.contains("src=\"http"));
        QVERIFY(!html.contains("<link"));
    }
};

int main(int argc, char** argv) {
    // Nothing of the user's may be read or written: the store, Kestrel.ini
    // and anything Qt keeps go into a temporary home.
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", home.path().toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       home.path() + QStringLiteral("/config"));
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                       home.path() + QStringLiteral("/config"));
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));

    int failures = 0;
    {
        MainWindowTest test;
        failures += QTest::qExec(&test, argc, argv);
    }
    {
        LauncherTest test;
        failures += QTest::qExec(&test, argc, argv);
    }
    return failures;
}

#include "MainWindowTest.moc"
