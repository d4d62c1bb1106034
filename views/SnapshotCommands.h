#pragma once

#include <QList>
#include <QString>

#include <array>
#include <variant>
#include <vector>

class QAction;
class QMenu;
class QWidget;

namespace kestrel::views {

class SnapshotWindow;

// When a command can run, by the number of snapshot windows open: a further
// snapshot can be made or opened while fewer than two are open, Repeat and
// Branch (which make the second) only while a window is alone, and a
// comparison needs two.
enum class Enabling { Always, FewerThanTwo, Alone, Paired };
bool enabledFor(Enabling rule, int windows);

// How the Tile commands arrange the snapshot windows: one above the other,
// each the full width, or side by side, each the full height.
enum class TileLayout { OneAboveTheOther, SideBySide };

// The frame's commands. The frame builds them once; its own menus and every
// snapshot window's hold these same actions, so each shortcut has one owner
// whichever menus the menu bar shows.
enum class FrameCommand {
    New,
    Open,
    OpenHistory,
    Configuration,
    Exit,
    Tile,
    TileSideBySide,
    About,
    HelpTips
};
inline constexpr int FrameCommandCount = int(FrameCommand::HelpTips) + 1;
using FrameActions = std::array<QAction*, FrameCommandCount>;

// A snapshot window's own commands.
enum class SnapshotCommand {
    Repeat,
    Branch,
    SaveAs,
    Title,
    Export,
    ExportReport,
    Print,
    PrintPreview,
    Close,
    CompareNow,
    CompareRoot,
    Bytes,
    SubFolders,
    ScrollTogether,
    Synchronise,
    ShowIgnored,
    Find,
    FindNext,
};
inline constexpr int SnapshotCommandCount = int(SnapshotCommand::FindNext) + 1;

// One item of a menu: a command of the frame or of the window, or a line.
struct MenuLine {};
using MenuItem = std::variant<FrameCommand, SnapshotCommand, MenuLine>;
struct MenuLayout {
    const char* title; // with its access key
    std::vector<MenuItem> items;
};

// The commands of one snapshot window, made from one table that gives each
// its name (mnuFileSaveAs ...), caption with access key, shortcuts, handler
// and enabling rule, and the window's menus, which hold the frame's commands
// too. The actions belong to the window. Save As, Repeat, Branch and Title
// have no handler here: the frame, which makes, stores and names snapshots,
// connects them when it makes the window.
class SnapshotCommands {
public:
    SnapshotCommands(SnapshotWindow& window, const FrameActions& frame);

    QAction* action(SnapshotCommand command) const { return m_actions[size_t(command)]; }
    // The action with this name in the window's menus, the frame's included;
    // null when there is none.
    QAction* action(const QString& name) const;
    // File, Edit, Compare, View, Window and Help, as the menu bar shows them while
    // the window is active.
    const QList<QMenu*>& menus() const { return m_menus; }
    // Enables the commands that depend on it for the number of windows.
    void enableFor(int windows);

private:
    std::array<QAction*, SnapshotCommandCount> m_actions{};
    QList<QMenu*> m_menus;
};

// Makes a menu holding the frame's actions and the window's as the layout
// lists them; window may be null when the layout names none of its commands.
QMenu* makeMenu(const MenuLayout& layout, const FrameActions& frame, const SnapshotCommands* window,
                QWidget* parent);

} // namespace kestrel::views
