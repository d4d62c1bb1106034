#pragma once

#include "views/SnapshotCommands.h"

#include <QList>
#include <QString>

#include <variant>
#include <vector>

class QAction;
class QMenu;
class QToolBar;

namespace kestrel::views {
class SnapshotWindow;
}

namespace kestrel::shell {

class MainWindow;

// The frame's commands (New, Open, Configuration, Exit, the Tile commands,
// About, Help), made once from one table and shared by the frame's own
// menus and every snapshot window's; and the toolbar, whose buttons each
// run a command of the frame or of the active snapshot window and take its
// enabling.
class FrameCommands {
public:
    explicit FrameCommands(MainWindow& frame);

    const views::FrameActions& actions() const { return m_actions; }
    QAction* action(views::FrameCommand command) const { return m_actions[size_t(command)]; }
    // File and Help, as the menu bar shows them while no snapshot window is
    // open.
    const QList<QMenu*>& menus() const { return m_menus; }

    // Fills the toolbar with its buttons.
    void fillToolbar(QToolBar* toolbar);
    // The toolbar button with this caption; null when there is none.
    QAction* button(const QString& caption) const;
    // Runs the command a toolbar button stands for.
    void runButton(const QAction* button) const;

    // Enables the frame's commands for the number of snapshot windows open,
    // and each button as its command is enabled now: a window's command
    // only while a window is active.
    void enableFor(int windows, const views::SnapshotWindow* active);

private:
    using ButtonCommand = std::variant<views::FrameCommand, views::SnapshotCommand>;
    QAction* commandOf(const ButtonCommand& command, const views::SnapshotWindow* active) const;

    MainWindow& m_frame;
    views::FrameActions m_actions{};
    QList<QMenu*> m_menus;
    std::vector<std::pair<QAction*, ButtonCommand>> m_buttons;
};

} // namespace kestrel::shell
