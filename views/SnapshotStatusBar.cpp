#include "SnapshotStatusBar.h"

#include "engine/support/TextFormats.h"

#include <QEvent>
#include <QLabel>

#include <climits>

namespace kestrel::views {

SnapshotStatusBar::SnapshotStatusBar(QWidget* parent) : QStatusBar(parent) {
    setSizeGripEnabled(false);
    for (size_t i = 0; i < m_panels.size(); ++i) {
        auto* label = new QLabel(this);
        label->setFrameShape(QFrame::StyledPanel);
        label->setFrameShadow(QFrame::Sunken);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        // The path panel gives way first; the counts keep their text whole.
        if (i == 0) {
            label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
            label->installEventFilter(this);
        }
        m_panels[i] = label;
        addWidget(label, i == 0 ? 3 : i == 1 ? 2 : 0);
    }
    m_panels[3]->hide();
}

void SnapshotStatusBar::setFolderPath(const QString& root, const QString& key) {
    m_root = root;
    m_key = key;
    m_followsFolder = true;
    showFolderPath();
}

void SnapshotStatusBar::showFolderPath() {
    QLabel* panel = m_panels[0];
    // As many characters as the panel holds, on an average character.
    const int average = std::max(1, panel->fontMetrics().averageCharWidth());
    const int room = std::max(10, (panel->contentsRect().width() - 8) / average);
    panel->setText(engine::ShortenPath(m_root, m_key, room));
    panel->setToolTip(engine::ShortenPath(m_root, m_key, INT_MAX));
}

void SnapshotStatusBar::setPanelText(int panel, const QString& text) {
    if (panel < 1 || panel > 4)
        return;
    if (panel == 1) {
        m_followsFolder = false;
        m_panels[0]->setToolTip(QString());
    }
    m_panels[size_t(panel - 1)]->setText(text);
}

QString SnapshotStatusBar::panelText(int panel) const {
    if (panel < 1 || panel > 4)
        return {};
    return m_panels[size_t(panel - 1)]->text();
}

void SnapshotStatusBar::setFoldersPanelVisible(bool visible) { m_panels[3]->setVisible(visible); }

bool SnapshotStatusBar::foldersPanelVisible() const { return !m_panels[3]->isHidden(); }

bool SnapshotStatusBar::eventFilter(QObject* watched, QEvent* event) {
    // The path is shortened to the panel's new width once it has one.
    if (watched == m_panels[0] && event->type() == QEvent::Resize && m_followsFolder)
        showFolderPath();
    return QStatusBar::eventFilter(watched, event);
}

} // namespace kestrel::views
