#pragma once

#include <QStatusBar>

#include <array>

class QLabel;

namespace kestrel::engine {
struct ListingCounters;
}

namespace kestrel::views {

// The status bar of a snapshot window (sbrStatus), four panels: 1 the
// selected folder's path (or why no folder could be matched), 2 the change
// summary, 3 the bytes and files listed, 4 the folders listed, shown only
// when the listing holds folders.
class SnapshotStatusBar : public QStatusBar {
    Q_OBJECT
public:
    // The panels, numbered from 1 as panelText and setPanelText take them.
    enum Panel { FolderPanel = 1, ChangesPanel, ListingPanel, FoldersPanel };

    explicit SnapshotStatusBar(QWidget* parent = nullptr);

    // A folder listed: its path, the change summary, the bytes (exactly or
    // in units) and files listed, and the folders, when there are any.
    void showListing(const QString& root, const QString& key, const QString& changes,
                     const engine::ListingCounters& counters, bool exactBytes);
    // No folder of the other window matched the one selected there. In a
    // mode that filters by the comparison, the folder may be there, only
    // hidden; when the two windows' comparison roots differ, they may be
    // the wrong ones.
    void showNoMatchingFolder(bool filtered, bool rootsDiffer);

    // Panel 1 shows the folder's full path, shortened at the front to what
    // the panel's width holds (and shortened again when it changes).
    void setFolderPath(const QString& root, const QString& key);
    // Any panel's text as given (the folder panel then no longer follows a folder).
    void setPanelText(int panel, const QString& text);
    QString panelText(int panel) const;
    void setFoldersPanelVisible(bool visible);
    bool foldersPanelVisible() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QLabel* label(int panel) const { return m_panels[size_t(panel - FolderPanel)]; }
    void showFolderPath();

    std::array<QLabel*, 4> m_panels{};
    QString m_root;
    QString m_key;
    bool m_followsFolder = false;
};

} // namespace kestrel::views
