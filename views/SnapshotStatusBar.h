#pragma once

#include <QStatusBar>

#include <array>

class QLabel;

namespace kestrel::views {

// The status bar of a snapshot window (sbrStatus), four panels: 1 the
// selected folder's path (or why no folder could be matched), 2 the change
// summary, 3 the bytes and files listed, 4 the folders listed, shown only
// when the listing holds folders.
class SnapshotStatusBar : public QStatusBar {
    Q_OBJECT
public:
    explicit SnapshotStatusBar(QWidget* parent = nullptr);

    // Panel 1 shows the folder's full path, shortened at the front to what
    // the panel's width holds (and shortened again when it changes).
    void setFolderPath(const QString& root, const QString& key);
    // Any panel's text as given (panel 1 then no longer follows a folder).
    void setPanelText(int panel, const QString& text);
    QString panelText(int panel) const;
    void setFoldersPanelVisible(bool visible);
    bool foldersPanelVisible() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showFolderPath();

    std::array<QLabel*, 4> m_panels{};
    QString m_root;
    QString m_key;
    bool m_followsFolder = false;
};

} // namespace kestrel::views
