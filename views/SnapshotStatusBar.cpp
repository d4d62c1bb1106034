#include "SnapshotStatusBar.h"

#include "engine/support/TextFormats.h"
#include "listing/FileList.h"

#include <QEvent>
#include <QLabel>

#include <climits>

namespace kestrel::views {

SnapshotStatusBar::SnapshotStatusBar(QWidget* parent) : QStatusBar(parent) {
    setSizeGripEnabled(false);
    for (int panel = FolderPanel; panel <= FoldersPanel; ++panel) {
        auto* label = new QLabel(this);
        label->setFrameShape(QFrame::StyledPanel);
        label->setFrameShadow(QFrame::Sunken);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        // The path panel gives way first; the counts keep their text whole.
        if (panel == FolderPanel) {
            label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
            label->installEventFilter(this);
        }
        m_panels[size_t(panel - FolderPanel)] = label;
        addWidget(label, panel == FolderPanel ? 3 : panel == ChangesPanel ? 2 : 0);
    }
    label(FoldersPanel)->hide();
}

void SnapshotStatusBar::showListing(const QString& root, const QString& key, const QString& changes,
                                    const engine::ListingCounters& counters, bool exactBytes) {
    setFolderPath(root, key);
    setPanelText(ChangesPanel, changes);
    setPanelText(ListingPanel, engine::listingText(counters, exactBytes));
    setPanelText(FoldersPanel, engine::foldersText(counters.folders));
    setFoldersPanelVisible(counters.folders >= 1);
}

void SnapshotStatusBar::showNoMatchingFolder(bool filtered, bool rootsDiffer) {
    setPanelText(FolderPanel, filtered ? QStringLiteral("No matching folder visible")
                                       : QStringLiteral("No matching folder"));
    setPanelText(ChangesPanel, rootsDiffer
                                   ? QStringLiteral("Check Snapshot root folders are correct")
                                   : QString());
}

void SnapshotStatusBar::setFolderPath(const QString& root, const QString& key) {
    m_root = root;
    m_key = key;
    m_followsFolder = true;
    showFolderPath();
}

void SnapshotStatusBar::showFolderPath() {
    QLabel* panel = label(FolderPanel);
    // As many characters as the panel holds, on an average character.
    const int average = std::max(1, panel->fontMetrics().averageCharWidth());
    const int room = std::max(10, (panel->contentsRect().width() - 8) / average);
    panel->setText(engine::ShortenPath(m_root, m_key, room));
    panel->setToolTip(engine::ShortenPath(m_root, m_key, INT_MAX));
}

void SnapshotStatusBar::setPanelText(int panel, const QString& text) {
    if (panel < FolderPanel || panel > FoldersPanel)
        return;
    if (panel == FolderPanel) {
        m_followsFolder = false;
        label(FolderPanel)->setToolTip(QString());
    }
    label(panel)->setText(text);
}

QString SnapshotStatusBar::panelText(int panel) const {
    if (panel < FolderPanel || panel > FoldersPanel)
        return {};
    return label(panel)->text();
}

void SnapshotStatusBar::setFoldersPanelVisible(bool visible) {
    label(FoldersPanel)->setVisible(visible);
}

bool SnapshotStatusBar::foldersPanelVisible() const {
    return !label(FoldersPanel)->isHidden();
}

bool SnapshotStatusBar::eventFilter(QObject* watched, QEvent* event) {
    // The path is shortened to the panel's new width once it has one.
    if (watched == label(FolderPanel) && event->type() == QEvent::Resize && m_followsFolder)
        showFolderPath();
    return QStatusBar::eventFilter(watched, event);
}

} // namespace kestrel::views
