#pragma once

#include "engine/Errors.h"
#include "engine/Snapshot.h"

#include <QString>
#include <QWidget>

#include <cstdint>
#include <optional>

class QTableView;

namespace kestrel::engine {
class ProgressMeter;
}

namespace kestrel::settings {
class Options;
}

namespace kestrel::views {

class EntryListModel;

// What a snapshot window needs from the main window that holds it. The main
// window owns the options, the progress meter, the recent list and the
// dialogs; the snapshot windows reach them only through this interface, so
// two windows can work side by side and tests can answer the questions
// without showing anything.
class SnapshotHost {
public:
    virtual ~SnapshotHost() = default;

    virtual engine::ProgressMeter& progressMeter() = 0;
    virtual const settings::Options& options() const = 0;

    // True while a long operation (scan, load, save) runs. Its meter lets
    // events through so that Cancel can be clicked; commands that arrive
    // meanwhile are ignored.
    virtual bool busy() const = 0;
    // Bracket a long operation for busy(); see OperationScope.
    virtual void operationStarted() = 0;
    virtual void operationEnded() = 0;

    // Creates, scans and shows a new snapshot window; false when the scan
    // failed or was cancelled (the failure has been shown).
    virtual bool NewSnapshot(const QString& folder, bool recurse, bool hidden, bool versions,
                             int16_t number) = 0;
    // Puts a snapshot file at the top of the recent list.
    virtual void AddRecent(const QString& path) = 0;
    // The folder the file dialogs start in, shared with the recent list.
    virtual QString lastFolder() const = 0;
    virtual void setLastFolder(const QString& folder) = 0;

    // The user's answers.
    virtual void showMessage(const engine::UserMessage& message) = 0;
    // The save dialog with the snapshot filters, proposing the given path;
    // empty when the user cancelled.
    virtual QString askSaveFileName(const QString& proposedPath) = 0;
    // An input box; nothing when the user cancelled.
    virtual std::optional<QString> askText(const QString& prompt, const QString& caption,
                                           const QString& text) = 0;
    // The save prompt: 6 Yes, 7 No, 2 Cancel, 0 closed through its frame.
    virtual int PromptToSave(const QString& prompt) = 0;
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
// open, and Repeat (which makes the second) only while this one is alone.
struct CommandEnabling {
    bool newSnapshot = false;
    bool open = false;
    bool repeat = false;

    static CommandEnabling forWindows(int windows) {
        return {windows < 2, windows < 2, windows == 1};
    }
};

// frmSnap: the window of one snapshot inside the main window. It owns its
// snapshot for its whole life, with the snapshot's number, its changed mark
// (set while the snapshot differs from its file, so closing asks to save) and
// its caption. Until the folder tree and the file grid arrive it lists the
// entries in table order.
class SnapshotWindow : public QWidget {
    Q_OBJECT
public:
    explicit SnapshotWindow(SnapshotHost& host, QWidget* parent = nullptr);
    ~SnapshotWindow() override;

    engine::Snapshot& snapshot() { return m_snapshot; }
    const engine::Snapshot& snapshot() const { return m_snapshot; }

    int16_t number() const { return m_number; }
    void setNumber(int16_t number) { m_number = number; }

    bool changed() const { return m_changed; }
    void setChanged(bool changed) { m_changed = changed; }

    QString caption() const { return windowTitle(); }
    void setCaption(const QString& caption) { setWindowTitle(caption); }

    // The scan or load is complete: list the snapshot.
    void showSnapshot();

    const EntryListModel& model() const { return *m_model; }

    // Save As: asks for a file name (proposing the next free number in the
    // folder of the snapshot's file, or the last folder used), saves, and on
    // success clears the changed mark and adds the file to the recent list.
    // On failure the message is shown and the snapshot stays marked.
    void mnuFileSaveAs_Click();
    // Repeat: asks the main window for a new snapshot of the same folder with
    // the same flags, numbered one more than this one.
    void mnuFileRepeat_Click();
    // The snapshot's title: an input box; a new title marks the snapshot
    // changed.
    void mnuFileProps_Click();

protected:
    // Form_QueryUnload: a changed snapshot asks to be saved first.
    void closeEvent(QCloseEvent* event) override;

private:
    bool queryUnload();

    SnapshotHost& m_host;
    engine::Snapshot m_snapshot;
    int16_t m_number = 0;
    bool m_changed = false;
    EntryListModel* m_model = nullptr;
    QTableView* m_list = nullptr;
};

} // namespace kestrel::views
