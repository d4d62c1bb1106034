#include "FrameCommands.h"

#include "MainWindow.h"

#include <QAction>
#include <QIcon>
#include <QKeySequence>
#include <QMenu>
#include <QPainter>
#include <QStyle>
#include <QToolBar>

namespace kestrel::shell {

using views::Enabling;
using views::FrameCommand;
using views::SnapshotCommand;

namespace {

struct FrameCommandRow {
    FrameCommand command;
    const char* name;
    const char* caption;
    QKeySequence shortcut;
    Enabling rule;
    void (*handler)(MainWindow& frame);
};

const std::vector<FrameCommandRow>& frameCommandTable() {
    using F = FrameCommand;
    static const std::vector<FrameCommandRow> table = {
        {F::New, "mnuFileNew", "&New Snapshot...", QKeySequence::New, Enabling::FewerThanTwo,
         [](MainWindow& frame) { frame.mnuFileNew_Click(); }},
        {F::Open, "mnuFileOpen", "&Open Snapshot...", QKeySequence::Open, Enabling::FewerThanTwo,
         [](MainWindow& frame) { frame.mnuFileOpen_Click(); }},
        {F::OpenHistory,
         "mnuFileOpenHistory",
         "Open &History...",
         {},
         Enabling::Always,
         [](MainWindow& frame) { frame.mnuFileOpenHistory_Click(); }},
        {F::Configuration,
         "mnuFileConfig",
         "Kestrel &Configuration...",
         {},
         Enabling::Always,
         [](MainWindow& frame) { frame.mnuFileConfig_Click(); }},
        {F::Exit, "mnuFileExit", "E&xit Kestrel", QKeySequence(Qt::CTRL | Qt::Key_Q),
         Enabling::Always, [](MainWindow& frame) { frame.mnuFileExit_Click(); }},
        {F::Tile,
         "mnuWindowTile",
         "&Tile",
         {},
         Enabling::Always,
         [](MainWindow& frame) { frame.tileWindows(views::TileLayout::OneAboveTheOther); }},
        {F::TileSideBySide,
         "mnuWindowTileSideBySide",
         "Tile &Side by Side",
         {},
         Enabling::Always,
         [](MainWindow& frame) { frame.tileWindows(views::TileLayout::SideBySide); }},
        {F::About,
         "mnuHelpAbout",
         "&About Kestrel...",
         {},
         Enabling::Always,
         [](MainWindow& frame) { frame.mnuHelpAbout_Click(); }},
        {F::HelpTips, "mnuHelpTips", "&Help and Tips...", QKeySequence::HelpContents,
         Enabling::Always, [](MainWindow& frame) { frame.mnuHelpTips_Click(); }},
    };
    return table;
}

const std::vector<views::MenuLayout>& frameMenuLayouts() {
    using F = FrameCommand;
    const views::MenuLine line;
    static const std::vector<views::MenuLayout> layouts = {
        {"&File", {F::New, F::Open, F::OpenHistory, line, F::Configuration, line, F::Exit}},
        {"&Help", {F::About, F::HelpTips}},
    };
    return layouts;
}

// A printer for the Print button: the style has none of its own.
QIcon printerIcon(const QWidget* widget) {
    const QIcon themed = QIcon::fromTheme(QStringLiteral("document-print"));
    if (!themed.isNull())
        return themed;
    const int size = widget->style()->pixelMetric(QStyle::PM_ToolBarIconSize);
    const qreal ratio = widget->devicePixelRatioF();
    QPixmap pixmap(QSize(size, size) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 24.0, size / 24.0);
    const QColor ink = widget->palette().color(QPalette::WindowText);
    p.setPen(QPen(ink, 1.3));
    p.setBrush(Qt::white);
    p.drawRect(QRectF(7, 3, 10, 7)); // paper going in
    p.setBrush(QColor(0xb8, 0xbc, 0xc2));
    p.drawRoundedRect(QRectF(3, 9, 18, 8), 1.5, 1.5); // body
    p.setBrush(Qt::white);
    p.drawRect(QRectF(7, 14, 10, 7)); // paper coming out
    p.setPen(QPen(ink, 0.9));
    p.drawLine(QPointF(9, 17), QPointF(15, 17));
    p.drawLine(QPointF(9, 19), QPointF(14, 19));
    return QIcon(pixmap);
}

} // namespace

FrameCommands::FrameCommands(MainWindow& frame) : m_frame(frame) {
    for (const FrameCommandRow& row : frameCommandTable()) {
        auto* action = new QAction(QString::fromLatin1(row.caption), &frame);
        action->setObjectName(QString::fromLatin1(row.name));
        action->setShortcut(row.shortcut);
        const auto handler = row.handler;
        QObject::connect(action, &QAction::triggered, &frame,
                         [&frame, handler] { handler(frame); });
        m_actions[size_t(row.command)] = action;
    }
    for (const views::MenuLayout& layout : frameMenuLayouts())
        m_menus.append(views::makeMenu(layout, m_actions, nullptr, &frame));
}

void FrameCommands::fillToolbar(QToolBar* toolbar) {
    struct Button {
        QStyle::StandardPixmap icon; // the printer is drawn when the style has none
        const char* caption;
        const char* toolTip;
        ButtonCommand command;
        bool separatorBefore = false;
    };
    const QStyle* style = m_frame.style();
    const Button buttons[] = {
        {QStyle::SP_FileIcon, "New", "Take a new snapshot of a folder", FrameCommand::New},
        {QStyle::SP_DialogOpenButton, "Open", "Open a saved snapshot", FrameCommand::Open},
        {QStyle::SP_DialogSaveButton, "Save As", "Save the active snapshot",
         SnapshotCommand::SaveAs},
        {QStyle::SP_BrowserReload, "Repeat", "Take the snapshot of the same folder again",
         SnapshotCommand::Repeat, true},
        {QStyle::SP_FileDialogContentsView, "Compare", "Compare the two snapshots",
         SnapshotCommand::CompareNow},
        {QStyle::SP_CustomBase, "Print", "Print the list of the active snapshot",
         SnapshotCommand::Print},
    };
    for (const Button& spec : buttons) {
        if (spec.separatorBefore)
            toolbar->addSeparator();
        const QIcon icon = spec.icon == QStyle::SP_CustomBase ? printerIcon(&m_frame)
                                                              : style->standardIcon(spec.icon);
        QAction* button = toolbar->addAction(icon, QString::fromLatin1(spec.caption));
        button->setToolTip(QString::fromLatin1(spec.toolTip));
        m_buttons.emplace_back(button, spec.command);
    }
}

QAction* FrameCommands::button(const QString& caption) const {
    for (const auto& [button, command] : m_buttons)
        if (button->text() == caption)
            return button;
    return nullptr;
}

QAction* FrameCommands::commandOf(const ButtonCommand& command,
                                  const views::SnapshotWindow* active) const {
    if (const auto* own = std::get_if<FrameCommand>(&command))
        return action(*own);
    if (!active)
        return nullptr;
    return active->commands().action(std::get<SnapshotCommand>(command));
}

void FrameCommands::runButton(const QAction* button) const {
    for (const auto& [shown, command] : m_buttons)
        if (shown == button)
            if (QAction* target = commandOf(command, m_frame.activeSnapshotWindow()))
                target->trigger();
}

void FrameCommands::enableFor(int windows, const views::SnapshotWindow* active) {
    for (const FrameCommandRow& row : frameCommandTable())
        action(row.command)->setEnabled(views::enabledFor(row.rule, windows));
    for (const auto& [button, command] : m_buttons) {
        const QAction* target = commandOf(command, active);
        button->setEnabled(target && target->isEnabled());
    }
}

} // namespace kestrel::shell
