// The main window and start-up: what the program does with its command line,
// how snapshot windows are made, numbered, captioned, saved and closed, and
// the frame's placement. Dialogs and message boxes are answered through the
// frame's UserQuestions, so nothing waits for a user.

#include "TemporaryHome.h"
#include "TestFrame.h"

#include "shell/Launcher.h"
#include "shell/MainWindow.h"
#include "shell/RecentSnapshots.h"
#include "shell/StartUp.h"

#include "engine/Twips.h"
#include "settings/IniFile.h"
#include "settings/SettingsStore.h"
#include "views/FileGridModel.h"
#include "views/SnapshotWindow.h"

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

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree; // a small folder tree, without a trailing separator

    QString iniPath() const { return m_dir->filePath(u"Kestrel.ini"_s); }

private Q_SLOTS:
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
        {
            Frame frame(iniPath());
            shell::StartUp(*frame.window, QString());
            QCOMPARE(frame.dialogs, QStringList{u"kestrel::shell::NewSnapshotDialog"_s});
        }
        settings::SettingsStore().writeString(u"Recent"_s, u"File0"_s,
                                              m_dir->filePath(u"Old.#01"_s));
        Frame frame(iniPath());
        shell::StartUp(*frame.window, QString());
        QCOMPARE(frame.dialogs, QStringList{u"kestrel::shell::RecentSnapshotsDialog"_s});
    }

    void startUpWithArgument() {
        // A folder is scanned with its sub-folders and hidden files.
        {
            Frame frame(iniPath());
            shell::StartUp(*frame.window, m_tree);
            QCOMPARE(frame->snapshotWindows().size(), 1);
            SnapshotWindow* window = frame->snapshotWindows().first();
            QCOMPARE(window->caption(), u"Snapshot #1 of "_s + m_tree);
            QVERIFY(window->changed());
            const engine::SnapshotHeader& header = window->snapshot().header;
            QVERIFY(header.recurse && header.hidden && !header.versions);
            QCOMPARE(window->snapshot().fileCount, 3);
            QVERIFY(frame.titles.isEmpty());
        }

        // A quoted path is no snapshot file; scanned as a folder that is not
        // there, it lists as one nameless entry, as an unreadable folder does.
        Frame frame(iniPath());
        shell::StartUp(*frame.window, u'"' + m_tree + u'"');
        QVERIFY(frame.dialogs.isEmpty());
        QCOMPARE(frame.titles, QStringList{u"Error"_s});
        QCOMPARE(frame->snapshotWindows().size(), 1);
        QCOMPARE(frame->snapshotWindows().first()->snapshot().fileCount, 1);
        QVERIFY(frame->isVisible());
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
            maker->activeSnapshotWindow()->mnuFileSaveAs_Click();
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

            opened->mnuFileRepeat_Click();
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
        frame->activeSnapshotWindow()->mnuFileSaveAs_Click();
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
                         u"No Help Available: "_s + folder + u"KestHelp.htm not found"_s}));

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
