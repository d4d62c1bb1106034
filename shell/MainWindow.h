#pragma once

#include "FrameCommands.h"
#include "Launcher.h"

#include "engine/support/Progress.h"
#include "output/ui/ExportDialog.h"
#include "output/ui/PrintDialog.h"
#include "settings/IniFile.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"
#include "settings/ui/ConfigDialog.h"
#include "views/SnapshotWindow.h"

#include <QList>
#include <QMainWindow>
#include <QPointer>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

class QAction;
class QDialog;
class QLabel;
class QMdiArea;
class QMdiSubWindow;
class QMenu;
class QToolBar;

namespace kestrel::engine {
class IgnorePatterns;
} // namespace kestrel::engine

namespace kestrel::shell {

class AboutBox;
class BusyInputFilter;
class MeterWindow;
class NewSnapshotDialog;
class RecentSnapshotsDialog;
class SavePrompt;

// The modal questions of the frame and its snapshot windows. Each member
// starts out showing the real dialog; a test replaces it to see what would
// have been asked and to answer without a window.
struct UserQuestions {
    // Every modal dialog the frame shows: the new-snapshot dialog, the
    // recent list, the about box. Returns the dialog's result code.
    std::function<int(QDialog& dialog)> exec;
    std::function<void(const engine::UserMessage& message)> message;
    // The save dialog with the snapshot filters; empty when cancelled.
    std::function<QString(const QString& proposedPath)> saveFileName;
    // The export's save dialog with its filters, proposing a file; empty
    // when cancelled.
    std::function<QString(const QString& proposedPath, const QString& filter)> exportFileName;
    // An input box; nothing when cancelled.
    std::function<std::optional<QString>(const QString& prompt, const QString& caption,
                                         const QString& text)>
        text;
    // The save prompt ("Unsaved Snapshot").
    std::function<views::SaveAnswer(const QString& prompt)> saveQuestion;
};

// frmMain: the frame holding the snapshot windows, with the File and Help
// menus, the toolbar and the status bar. It owns everything that lives for
// the whole run (the options and their store, Kestrel.ini, the progress
// meter, the dialogs, the about box) and hands it to the snapshot windows
// through views::SnapshotHost.
//
// Long operations run on this thread under the progress meter, which lets
// events through so that its Cancel button works. Meanwhile the frame
// takes no input (BusyInputFilter), and every command that could start a
// second operation or take a window away (the menus, the toolbar, closing
// a snapshot window or the frame) checks busy() first as well; the actions
// stay enabled, so quick operations do not make the toolbar flicker.
class MainWindow : public QMainWindow, public views::SnapshotHost {
    Q_OBJECT
public:
    // The smallest frame, in twips, enforced on every resize.
    static constexpr int MinimumWidth = 8000;
    static constexpr int MinimumHeight = 6000;
    // The frame's size when Kestrel.ini has none.
    static constexpr int DesignedWidth = 12600;
    static constexpr int DesignedHeight = 9000;

    // Makes the options dialog, whose construction loads the options from
    // the per-user store, then the other dialogs, and reads the frame's
    // placement from the INI file at iniPath. Shows nothing.
    explicit MainWindow(const QString& iniPath, QWidget* parent = nullptr);
    ~MainWindow() override;

    UserQuestions& questions() { return m_questions; }

    // Loads the about box, hidden; start-up does this once the frame shows.
    void loadAboutBox();
    AboutBox* aboutBox() const { return m_about; }
    // How long the about box shows while the program closes (2000 ms).
    void setFarewellTime(int milliseconds) { m_farewellTime = milliseconds; }

    // Commands.
    void mnuFileNew_Click();
    void mnuFileOpen_Click();
    // Asks for snapshot files (chooseHistoryFiles) and opens their history.
    void mnuFileOpenHistory_Click();
    // The files the Open History command asks for: one names its whole
    // series. A file dialog unless replaced (tests).
    std::function<QStringList()> chooseHistoryFiles;
    // The file Export Change Report writes, from the name it suggests: a
    // save dialog unless replaced (tests).
    std::function<QString(const QString& suggested)> chooseReportFile;
    // Opens a History window over the numbered snapshots of a folder: one
    // file stands for every NAME.#NN beside it, several are taken by number.
    // False, with the reason shown, when none could be read.
    bool OpenHistory(const QStringList& files);
    // Opens two snapshot files, or folders, in a compared pair of windows:
    // the newer numbered as a repeat of the older. False when the pair could
    // not be made.
    bool openAndCompare(const QString& older, const QString& newer);
    // Disables the options dialog's Compare buttons for good, then shows it
    // modally over the frame.
    void mnuFileConfig_Click();
    void mnuFileExit_Click();
    void mnuHelpAbout_Click();
    void mnuHelpTips_Click();
    // The toolbar button with this caption runs its command: the frame's,
    // or the active snapshot window's.
    void Toolbar1_ButtonClick(const QString& caption);

    // Creates a snapshot window, scans folder into it under the meter and
    // shows it captioned by its title; false when the scan failed or was
    // cancelled, in which case no window remains. folder is stored text; a
    // folder the user chose or named is turned into it by engine::storedPath.
    // With fingerprints every file is read for its content fingerprint.
    bool NewSnapshot(const QString& folder, bool recurse, bool hidden, bool versions,
                     int16_t number, bool fingerprints = false);
    // The new-snapshot dialog's exclude line compiled, its problems said;
    // null when it holds no pattern.
    std::shared_ptr<const engine::IgnorePatterns> excludePatterns();
    // Opens a snapshot file (current or v2 format) in a new window; false
    // when it could not be opened, in which case no window remains.
    bool OpenSnapshot(const QString& path);

    // Paths from the command line and from drops are made absolute against
    // the current folder first, so that the root folder, title, base name
    // and recent entry made from them stay valid from any other folder.
    // checkPathExists: true when the path names something (a link counts,
    // whether or not it leads anywhere); otherwise "PATH does not exist",
    // or the system's reason when the path cannot be reached, is shown.
    bool checkPathExists(const QString& path);
    // A folder is scanned with its sub-folders and hidden items but without
    // versions and numbered number; anything else is opened as a snapshot
    // file, which carries its own number. False, with the reason shown,
    // when no window was made.
    bool openPath(const QString& path, int16_t number);
    // Puts the summary line of a scan, load or import into the status bar.
    void ShowSummary(const QString& summary);
    QString summaryText() const;

    // The snapshot window last activated; null when there is none, and from
    // the closing of a snapshot window until the next one is activated.
    views::SnapshotWindow* activeSnapshotWindow() const override;
    void setActiveSnapshotWindow(views::SnapshotWindow* window) override;
    // The open snapshot windows, oldest first.
    QList<views::SnapshotWindow*> snapshotWindows() const override;
    // Tiles the snapshot windows one above the other or side by side, and
    // stores the choice: automatic tiling follows it from now on.
    void tileWindows(views::TileLayout layout);
    views::TileLayout tileLayout() const { return m_tileLayout; }

    // What the frame owns.
    settings::Options& options() override { return m_options; }
    const settings::Options& options() const override { return m_options; }
    settings::SettingsStore& store() { return m_store; }
    const settings::IniFile& ini() const { return m_ini; }
    // frmConfig, for the snapshot windows: Compare Now
    // (showForComparison, then compareRequested), the display-changed flag
    // after it closes, and ExecuteCustom for a double-clicked file.
    settings::ConfigDialog& configDialog() { return *m_config; }
    NewSnapshotDialog& newSnapshotDialog() { return *m_newDialog; }
    RecentSnapshotsDialog& recentDialog() { return *m_recent; }
    MeterWindow& meterWindow() { return *m_meterWindow; }
    // frmExport and frmPrint, made the first time they are wanted and kept
    // for the run; their questions go through questions().
    output::ExportDialog& exportDialog();
    output::PrintDialog& printDialog();
    Launcher& launcher() { return m_launcher; }
    QToolBar* toolbar() const { return m_toolbar; }
    // The toolbar button with the given caption, or null.
    QAction* toolbarButton(const QString& caption) const;

    // views::SnapshotHost
    engine::ProgressMeter& progressMeter() override { return m_meter; }
    bool busy() const override { return m_operations > 0; }
    // The first operation started shuts the frame's input off, the last one
    // ended opens it again.
    void operationStarted() override;
    void operationEnded() override;
    bool windowClosing() const override { return m_windowClosing; }
    void setWindowClosing(bool closing) { m_windowClosing = closing; }
    bool queryUnload(views::SnapshotWindow& window) override;
    QString lastSelectedFolder() const override { return m_lastSelectedFolder; }
    void setLastSelectedFolder(const QString& key) override { m_lastSelectedFolder = key; }
    void LaunchDocument(const QString& folder, const QString& name) override;
    void showCompareOptions(const QString& current, const QString& other) override;
    void showExport(const output::ShownList& list) override;
    QString chooseChangeReportFile(const QString& suggested) override;
    void showPrint(const output::ShownList& list) override;
    void showPrintPreview(const output::ShownList& list) override;
    bool ExecuteCustom(const QString& first, const QString& second) override;
    void showMessage(const engine::UserMessage& message) override;

    // Puts a snapshot file at the top of the recent list.
    void AddRecent(const QString& path);
    // The folder the file dialogs start in, shared with the recent list.
    QString lastFolder() const;
    void setLastFolder(const QString& folder);
    // The questions asked through questions().
    QString askSaveFileName(const QString& proposedPath);
    std::optional<QString> askText(const QString& prompt, const QString& caption,
                                   const QString& text);
    views::SaveAnswer PromptToSave(const QString& prompt);

    // Enables the toolbar and the frame's commands for the snapshot windows
    // open now, the toolbar following the active window's commands.
    void updateActions();

    // A folder or a snapshot file dropped on the frame is scanned or opened
    // as the command line's path is, and only while New and Open could run:
    // fewer than two snapshot windows open and no operation running.
    void openDropped(const QString& path);
    // Several snapshot files of one folder dropped together open their
    // history.
    void openDroppedHistory(const QStringList& files);

protected:
    void resizeEvent(QResizeEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    // MDIForm_QueryUnload and the unload that follows it.
    void closeEvent(QCloseEvent* event) override;

private:
    // The real dialogs behind questions().
    void createQuestions();
    void createToolbar();
    void loadPlacement();
    void savePlacement();
    // The frame's position and size as Kestrel.ini keeps them.
    settings::FramePlacement placementInTwips() const;
    bool unloadSnapshotWindows();
    // A snapshot window for a snapshot about to be made or loaded, with its
    // file commands connected to the frame.
    std::unique_ptr<views::SnapshotWindow> makeSnapshotWindow();
    // Shows a window whose snapshot is complete; false, with the failure
    // shown and no window left, when its snapshot cannot be shown.
    bool showSnapshotWindow(std::unique_ptr<views::SnapshotWindow> window,
                            const QString& failureTitle);
    // A snapshot sub-window became the active one.
    void subWindowActivated(QMdiSubWindow* sub);
    // A snapshot window has gone: the one left active starts afresh and,
    // with automatic tiling, fills the frame again.
    void snapshotWindowGone();
    // Tiles the open snapshot windows in the layout chosen last.
    void tileSnapshotWindows();
    // The menu bar holds the active snapshot window's menus, or the frame's
    // own when there is none.
    void showMenusOf(views::SnapshotWindow* window);
    // The options dialog closed: with a change to what the snapshot windows
    // display (empty folders, synchronisation), each lists its folder again.
    void optionsClosed();
    void setToolbarVisible(bool visible);
    int execDialog(QDialog& dialog);

    // Declared first: the windows made below use them.
    settings::IniFile m_ini;
    settings::SettingsStore m_store;
    settings::Options m_options;
    UserQuestions m_questions;
    Launcher m_launcher;
    // Destroyed before the options and the store it stores "Synch" into.
    std::unique_ptr<settings::ConfigDialog> m_config;

    QMdiArea* m_mdi = nullptr;
    QToolBar* m_toolbar = nullptr;
    QLabel* m_summary = nullptr;
    MeterWindow* m_meterWindow = nullptr;
    engine::ProgressMeter m_meter;
    BusyInputFilter* m_busyFilter = nullptr;
    NewSnapshotDialog* m_newDialog = nullptr;
    RecentSnapshotsDialog* m_recent = nullptr;
    QPointer<SavePrompt> m_savePrompt;
    AboutBox* m_about = nullptr;
    output::ExportDialog* m_export = nullptr;
    output::PrintDialog* m_print = nullptr;

    std::unique_ptr<FrameCommands> m_commands;

    QPointer<views::SnapshotWindow> m_lastActivated;
    QString m_lastSelectedFolder;
    bool m_windowClosing = false;
    int m_operations = 0;
    int m_farewellTime = 2000;
    views::TileLayout m_tileLayout = views::TileLayout::OneAboveTheOther;
    bool m_closed = false;
};

} // namespace kestrel::shell
