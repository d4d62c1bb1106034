#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>

#include <functional>

class QListWidgetItem;

namespace kestrel::settings {
class SettingsStore;
}

namespace kestrel::shell {

// The recently opened snapshot files, most recent first, kept in the
// per-user store (no upper limit).
class RecentList {
public:
    void load(const settings::SettingsStore& store);
    // Blanks what a longer list stored before, so nothing stale is left.
    void save(settings::SettingsStore& store) const;

    // AddRecent: removes entries equal to path (ignoring case only where the
    // file system does, on Windows) and puts path at the top. Of two
    // adjacent duplicates the second survives, as the walk advances after a
    // removal.
    void add(const QString& path);

    const QStringList& entries() const { return m_entries; }
    bool isEmpty() const { return m_entries.isEmpty(); }

private:
    QStringList m_entries;
};

// "Recent Snapshots": offers to open one of the recent files, to take a new
// snapshot or to browse for a file. Hidden, not destroyed, after use.
class RecentSnapshotsDialog : public QDialog {
    Q_OBJECT
public:
    // The store is read for the list, the file dialog's folder and the
    // window size on construction.
    explicit RecentSnapshotsDialog(settings::SettingsStore& store, QWidget* parent = nullptr);
    ~RecentSnapshotsDialog() override;

    // Shows the dialog modally. When an Open fails the dialog comes back,
    // still modal, and exec() returns only once it is finally left.
    int exec() override;

    RecentList& list() { return m_list; }
    // Refills the list box after the list changed.
    void refresh();

    // What the buttons ask of the main window. open returns whether the
    // snapshot opened (when it did not, the dialog shows itself again).
    std::function<bool(const QString& path)> open;
    std::function<void()> newSnapshot;
    std::function<void()> help;

    // cmdBrowse_Click: hides the dialog, shows the open-file dialog with the
    // snapshot filters starting in the last folder, and opens the chosen file.
    void browse();

    // The open-file dialog: given the folder to start in, returns the chosen
    // file or an empty string when cancelled. Tests put a stub in its place.
    std::function<QString(const QString& folder)> chooseFile;

    // The folder the file dialogs start in, kept in the store.
    QString lastFolder() const;
    void setLastFolder(const QString& folder);

    // On program exit: stores the list (with stale entries blanked), the file
    // dialog's folder and the window size.
    void saveState();

private:
    void showEvent(QShowEvent* event) override;
    void Form_Activate();
    void cmdOpen_Click();
    void cmdNew_Click();
    void cmdHelp_Click();
    void lstRecent_DblClick(QListWidgetItem* item);
    QString showFileDialog(const QString& folder);

    struct Controls;
    Controls* m_controls = nullptr;
    settings::SettingsStore& m_store;
    RecentList m_list;
    QString m_lastFolder;
    bool m_inExec = false;    // exec() is showing the dialog
    bool m_showAgain = false; // an Open failed: exec() shows the dialog again
};

} // namespace kestrel::shell
