#pragma once

#include "engine/support/Errors.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace kestrel::engine {
class ProgressMeter;
}

namespace kestrel::settings {
class Options;
}

namespace kestrel::output {
struct ShownList;
}

namespace kestrel::views {

class SnapshotWindow;

// How the snapshot windows are tiled: one above the other, each the full
// width, or side by side, each the full height.
enum class TileLayout { OneAboveTheOther, SideBySide };

// The answers of the save prompt ("Unsaved Snapshot").
enum class SaveAnswer {
    Closed = 0, // the prompt was closed through its frame
    Cancel = 2,
    Yes = 6,
    No = 7,
};

// What a snapshot window needs from the main window that holds it. The main
// window owns the options, the progress meter, the recent list and the
// dialogs, and keeps the program-wide state the snapshot windows share (the
// active snapshot window, the folder last selected); the snapshot windows
// reach them only through this interface, so two windows can work side by
// side and tests can answer the questions without showing anything.
class SnapshotHost {
public:
    virtual ~SnapshotHost() = default;

    virtual engine::ProgressMeter& progressMeter() = 0;
    virtual settings::Options& options() = 0;
    virtual const settings::Options& options() const = 0;

    // True while a long operation (scan, load, save, comparison) runs. Its
    // meter lets events through so that Cancel can be clicked; commands that
    // arrive meanwhile are ignored.
    virtual bool busy() const = 0;
    // Bracket a long operation for busy(); see OperationScope.
    virtual void operationStarted() = 0;
    virtual void operationEnded() = 0;

    // Set while a snapshot window decides whether it may close: changes of
    // show mode then leave the folder tree alone.
    virtual bool windowClosing() const = 0;
    virtual void setWindowClosing(bool closing) = 0;

    // The snapshot window activated last (the one the toolbar acts on); null
    // when there is none, or when the last one closed.
    virtual SnapshotWindow* activeSnapshotWindow() const = 0;
    virtual void setActiveSnapshotWindow(SnapshotWindow* window) = 0;
    // The open snapshot windows, oldest first.
    virtual QList<SnapshotWindow*> snapshotWindows() const = 0;
    // The key of the folder last selected in any snapshot window: a rebuilt
    // tree reopens there.
    virtual QString lastSelectedFolder() const = 0;
    virtual void setLastSelectedFolder(const QString& key) = 0;
    // The window's commands changed their enabling: the toolbar follows.
    virtual void commandsChanged() = 0;

    // The main window's commands, which the snapshot window's menu offers too.
    virtual void mnuFileNew_Click() = 0;
    virtual void mnuFileOpen_Click() = 0;
    virtual void mnuFileExit_Click() = 0;
    virtual void mnuHelpAbout_Click() = 0;
    virtual void mnuHelpTips_Click() = 0;
    // The options dialog from the menu; the open snapshot windows show again
    // what they list when it closes with a change to what they display.
    virtual void mnuFileConfig_Click() = 0;
    // Compare Now: the options dialog over the main window at its first
    // tab, with the two snapshots' captions; its Compare buttons make the
    // active snapshot window compare again.
    virtual void showCompareOptions(const QString& current, const QString& other) = 0;
    // ExecuteCustom: the external compare program on two files; false, with
    // no message, when either path is empty.
    virtual bool ExecuteCustom(const QString& first, const QString& second) = 0;
    // The Window menu's Tile commands: tiles the snapshot windows in the
    // layout given and keeps it for automatic tiling, this run and the next.
    virtual void tileWindows(TileLayout layout) = 0;
    // The export dialog, the print dialog and the print preview, modal over
    // the main window, for the list a snapshot window shows; the list is
    // read only while they are up.
    virtual void showExport(const output::ShownList& list) = 0;
    virtual void showPrint(const output::ShownList& list) = 0;
    virtual void showPrintPreview(const output::ShownList& list) = 0;

    // Creates, scans and shows a new snapshot window; false when the scan
    // failed or was cancelled (the failure has been shown). folder is stored
    // text, as a snapshot's root folder keeps it (engine/model/FileSystemNames.h).
    virtual bool NewSnapshot(const QString& folder, bool recurse, bool hidden, bool versions,
                             int16_t number) = 0;
    // Puts a snapshot file at the top of the recent list.
    virtual void AddRecent(const QString& path) = 0;
    // The folder the file dialogs start in, shared with the recent list.
    virtual QString lastFolder() const = 0;
    virtual void setLastFolder(const QString& folder) = 0;
    // Opens folder + name with the application the desktop associates with
    // it (a folder in the file manager); a failure is shown as "Application
    // Launch Error".
    virtual void LaunchDocument(const QString& folder, const QString& name) = 0;

    // The user's answers.
    virtual void showMessage(const engine::UserMessage& message) = 0;
    // The save dialog with the snapshot filters, proposing the given path;
    // empty when the user cancelled.
    virtual QString askSaveFileName(const QString& proposedPath) = 0;
    // An input box; nothing when the user cancelled.
    virtual std::optional<QString> askText(const QString& prompt, const QString& caption,
                                           const QString& text) = 0;
    virtual SaveAnswer PromptToSave(const QString& prompt) = 0;
};

// Marks a long operation on the host for as long as it lives.
class OperationScope {
public:
    explicit OperationScope(SnapshotHost& host) : m_host(host) { m_host.operationStarted(); }
    ~OperationScope() { m_host.operationEnded(); }
    OperationScope(const OperationScope&) = delete;
    OperationScope& operator=(const OperationScope&) = delete;

private:
    SnapshotHost& m_host;
};

// Which commands a snapshot window offers, by the number of snapshot windows
// open: a further snapshot can be made or opened while fewer than two are
// open, Repeat and Branch (which make the second) only while this one is
// alone, and a comparison needs two.
struct CommandEnabling {
    bool newSnapshot = false;
    bool open = false;
    bool repeat = false;
    bool branch = false;
    bool compare = false;

    static CommandEnabling forWindows(int windows) {
        return {windows < 2, windows < 2, windows == 1, windows == 1, windows == 2};
    }
};

} // namespace kestrel::views
