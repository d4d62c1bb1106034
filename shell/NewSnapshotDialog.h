#pragma once

#include "engine/support/Errors.h"
#include "shell/Drives.h"

#include <QDialog>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

class QCheckBox;
class QComboBox;
class QKeyEvent;
class QFileSystemModel;
class QModelIndex;
class QTreeView;

namespace kestrel::settings {
class IniFile;
class Options;
enum class Key;
} // namespace kestrel::settings

namespace kestrel::shell {

// "Create New Snapshot": the folder to scan, the scan flags and the version
// folder. It only collects choices; the main window reads them after exec()
// and takes the snapshot. The dialog is hidden, not destroyed, after each
// use, so its choices stay as the user left them for the rest of the run.
// On construction it reads the last folder, drive and version folder from
// Kestrel.ini; saveChoices() writes them back (the main window calls it when
// the program closes).
//
// Besides the folder list, a path can be typed or pasted into the folder
// line (with completion), or a folder dropped on the dialog; the line and
// the list always show the same folder.
class NewSnapshotDialog : public QDialog {
    Q_OBJECT
public:
    NewSnapshotDialog(settings::IniFile& ini, settings::Options& options,
                      QWidget* parent = nullptr);
    ~NewSnapshotDialog() override;

    // The chosen folder after OK; empty after Cancel.
    QString folder() const { return m_result; }
    bool recurse() const;  // chkRecurse
    bool hidden() const;   // chkHidden
    bool versions() const; // chkVersion
    // Kestrel's own addition: every file read for its content fingerprint
    // (chkFingerprints).
    bool fingerprints() const;
    // The path of the version folder list (dirVersion).
    QString versionFolder() const;
    // Kestrel's own addition: the exclude line (txtExclude), patterns as
    // .gitignore writes them separated by blanks ("\ " for a blank inside
    // one), as one pattern a line; what they match is never read.
    QString excludePatterns() const;

    // Writes the folder, drive and version folder to Kestrel.ini.
    void saveChoices();

    // Shows an error message (exclamation icon) over the dialog: by default a
    // QMessageBox; tests put a recorder in its place.
    std::function<void(const QString& title, const QString& text)> reportError;

    // A drive of the Drive list.
    using Drive = shell::Drive;
    // The drives of this system, asked each time the dialog opens so that a
    // disk plugged in meanwhile is offered; tests put others in its place.
    std::function<QList<Drive>()> listDrives;

Q_SIGNALS:
    // cmdHelp: the main window opens the help page.
    void helpRequested();

private:
    void drvDrive_Change(int index);
    void dirFolder_Change();
    void dirFolder_Click(const QModelIndex& index);
    // Makes the entry the folder list's path and shows what is inside it.
    void openFolderEntry(const QModelIndex& index);
    bool eventFilter(QObject* watched, QEvent* event) override;
    void dirVersion_CurrentChanged(const QModelIndex& current);
    void folders_DirectoryLoaded();
    void scrollToChoices();
    void showEvent(QShowEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    // Enter in the folder line: opens the folder typed when it is another.
    bool txtFolder_KeyPress(QKeyEvent* key);
    // Makes a typed, completed or dropped path the folder, on whichever drive
    // holds it; relative to the folder shown, "~" the home folder. False
    // when it names no folder.
    bool openTypedFolder(const QString& text);
    // The folder a typed path names, made absolute and clean.
    QString typedFolderPath(const QString& text) const;
    // Why a typed path names no folder ("Folder Not Found", "Not a
    // Folder"); nothing when it names one.
    std::optional<engine::UserMessage> typedFolderProblem(const QString& text) const;
    // Fills the Drive list afresh, keeping the folder shown (or, when it has
    // gone with its drive, falling back to the current folder).
    void fillDrives();
    void chkVersion_Click(bool ticked);
    void chkCompare_Click(bool ticked);
    void cmdOK_Click();
    void cmdCancel_Click();
    void optionChanged(settings::Key key);

    // The constructor's steps: the controls, where they sit, and what each
    // of them runs.
    void createControls();
    void layOutControls();
    void connectControls();
    void load();
    // The drive list entry whose root holds path: the longest matching root.
    int driveIndexOf(const QString& path) const;
    // Roots the folder list at the drive of the given list entry.
    void showDrive(int index);
    // Makes path the present path of dirFolder (running the folder-change
    // rule when it differs) or of dirVersion.
    void setFolderPath(const QString& path);
    void setVersionPath(const QString& path);

    struct Controls;
    Controls* m_controls = nullptr;
    settings::IniFile& m_ini;
    settings::Options& m_options;
    QString m_result;
};

} // namespace kestrel::shell
