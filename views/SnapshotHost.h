#pragma once

#include "engine/support/Errors.h"

#include <QList>
#include <QString>

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
    // Form_QueryUnload: whether a window may close; a changed snapshot asks
    // to be saved first, and stays open when the user cancels or the save
    // fails.
    virtual bool queryUnload(SnapshotWindow& window) = 0;

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

    // Compare Now: the options dialog over the main window at its first
    // tab, with the two snapshots' captions; its Compare buttons make the
    // active snapshot window compare again.
    virtual void showCompareOptions(const QString& current, const QString& other) = 0;
    // The export dialog, the print dialog and the print preview, modal over
    // the main window, for the list a snapshot window shows; the list is
    // read only while they are up.
    virtual void showExport(const output::ShownList& list) = 0;
    virtual void showPrint(const output::ShownList& list) = 0;
    virtual void showPrintPreview(const output::ShownList& list) = 0;
    // The file a change report goes to, asked with a save dialog over the
    // main window (its type says the format: .html, .json or .jsonl);
    // empty when the user cancels.
    virtual QString chooseChangeReportFile(const QString& suggested) = 0;
    // ExecuteCustom: the external compare program on two files; false, with
    // no message, when either path is empty.
    virtual bool ExecuteCustom(const QString& first, const QString& second) = 0;
    // Opens folder + name with the application the desktop associates with
    // it (a folder in the file manager); a failure is shown as "Application
    // Launch Error".
    virtual void LaunchDocument(const QString& folder, const QString& name) = 0;
    virtual void showMessage(const engine::UserMessage& message) = 0;
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

} // namespace kestrel::views
