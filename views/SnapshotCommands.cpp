#include "SnapshotCommands.h"

#include "SnapshotWindow.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>

namespace kestrel::views {

namespace {

// What a command's action does besides running its handler.
enum class Kind {
    Plain,
    // A check mark the handler and the menu's opening set.
    Mark,
    // A check mark the handler flips itself, as it does when called
    // directly: the menu's own flip is taken back first.
    Toggle,
    // A check mark the menu flips; the handler reads it.
    Check,
};

using Handler = void (SnapshotWindow::*)();

struct CommandRow {
    SnapshotCommand command;
    const char* name;
    const char* caption;
    QList<QKeySequence> shortcuts;
    Enabling rule;
    Handler handler; // null for the commands the frame connects
    Kind kind;
};

const std::vector<CommandRow>& commandTable() {
    using C = SnapshotCommand;
    using W = SnapshotWindow;
    // One command a row, as the menus list them.
    // clang-format off
    static const std::vector<CommandRow> table = {
        {C::Repeat, "mnuFileRepeat", "&Repeat Snapshot",
         {QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence(Qt::Key_F5)},
         Enabling::Alone, nullptr, Kind::Plain},
        {C::Branch, "mnuFileBranch", "&Branch Snapshot", {}, Enabling::Alone, nullptr, Kind::Plain},
        {C::SaveAs, "mnuFileSaveAs", "Save &As...", {QKeySequence(Qt::CTRL | Qt::Key_S)},
         Enabling::Always, nullptr, Kind::Plain},
        {C::Title, "mnuFileProps", "Snapshot &Title...", {}, Enabling::Always, nullptr, Kind::Plain},
        {C::Export, "mnuFileExport", "&Export Current List...", {}, Enabling::Always,
         &W::mnuFileExport_Click, Kind::Plain},
        // What changed between the pair, as one page for a browser or a
        // document for programs.
        {C::ExportReport, "mnuFileExportReport", "Export Chan&ge Report...", {}, Enabling::Paired,
         &W::mnuFileExportReport_Click, Kind::Plain},
        {C::Print, "mnuFilePrint", "&Print...", {QKeySequence(QKeySequence::Print)},
         Enabling::Always, &W::mnuFilePrint_Click, Kind::Plain},
        {C::PrintPreview, "mnuFilePrintPreview", "Print Pre&view...", {}, Enabling::Always,
         &W::mnuFilePrintPreview_Click, Kind::Plain},
        // "C" belongs to the configuration: Close takes "l".
        {C::Close, "mnuFileClose", "C&lose", {QKeySequence(Qt::CTRL | Qt::Key_W)},
         Enabling::Always, &W::mnuFileClose_Click, Kind::Plain},
        {C::CompareNow, "mnuCompareNow", "Compare &Now...", {}, Enabling::Paired,
         &W::mnuCompareNow_Click, Kind::Plain},
        {C::CompareRoot, "mnuCompareRoot", "Comparison &Root", {}, Enabling::Always,
         &W::mnuCompareRoot_Click, Kind::Mark},
        {C::Bytes, "mnuViewBytes", "Sizes in &Bytes", {}, Enabling::Always,
         &W::mnuViewBytes_Click, Kind::Toggle},
        {C::SubFolders, "mnuViewSubs", "Files in &Sub-Folders", {}, Enabling::Always,
         &W::mnuViewSubs_Click, Kind::Toggle},
        {C::ScrollTogether, "mnuViewScroll", "S&croll Together", {}, Enabling::Always,
         &W::mnuViewScroll_Click, Kind::Toggle},
        {C::Synchronise, "mnuViewSynch", "S&ynchronise Folders", {}, Enabling::Always,
         &W::mnuViewSynch_Click, Kind::Toggle},
        // The entries the ignore patterns left out, greyed, or none of them:
        // the tree is built again, and the list with it.
        {C::ShowIgnored, "mnuViewIgnored", "Show &Ignored Entries", {}, Enabling::Always,
         &W::BuildTree, Kind::Check},
        {C::Find, "mnuEditFind", "&Find...", {QKeySequence(QKeySequence::Find)}, Enabling::Always,
         &W::mnuEditFind_Click, Kind::Plain},
        {C::FindNext, "mnuEditFindNext", "Find &Next", {QKeySequence(Qt::Key_F3)},
         Enabling::Always, &W::mnuEditFindNext_Click, Kind::Plain},
    };
    // clang-format on
    return table;
}

struct WindowMenu {
    MenuLayout layout;
    Handler opened; // run as the menu opens; may be null
};

const std::vector<WindowMenu>& windowMenus() {
    using C = SnapshotCommand;
    using F = FrameCommand;
    const MenuLine line;
    static const std::vector<WindowMenu> menus = {
        {{"&File",
          {F::New, F::Open, F::OpenHistory, line, C::Repeat, C::Branch, line, C::SaveAs, C::Title,
           line, C::Export, C::ExportReport, C::Print, C::PrintPreview, line, F::Configuration,
           line, C::Close, F::Exit}},
         nullptr},
        {{"&Edit", {C::Find, C::FindNext}}, nullptr},
        {{"&Compare", {C::CompareNow, C::CompareRoot}}, &SnapshotWindow::mnuCompare_Open},
        {{"&View",
          {C::Bytes, C::SubFolders, C::ScrollTogether, C::Synchronise, line, C::ShowIgnored}},
         nullptr},
        {{"&Window", {F::Tile, F::TileSideBySide}}, nullptr},
        {{"&Help", {F::About, F::HelpTips}}, nullptr},
    };
    return menus;
}

QAction* makeAction(const CommandRow& row, SnapshotWindow& window) {
    auto* action = new QAction(QString::fromLatin1(row.caption), &window);
    action->setObjectName(QString::fromLatin1(row.name));
    action->setShortcuts(row.shortcuts);
    action->setCheckable(row.kind != Kind::Plain);
    if (!row.handler)
        return action;
    const Handler handler = row.handler;
    if (row.kind == Kind::Toggle) {
        QObject::connect(action, &QAction::triggered, &window, [&window, action, handler] {
            action->setChecked(!action->isChecked());
            (window.*handler)();
        });
    } else {
        QObject::connect(action, &QAction::triggered, &window, handler);
    }
    return action;
}

} // namespace

bool enabledFor(Enabling rule, int windows) {
    switch (rule) {
    case Enabling::Always:
        return true;
    case Enabling::FewerThanTwo:
        return windows < 2;
    case Enabling::Alone:
        return windows == 1;
    case Enabling::Paired:
        return windows == 2;
    }
    return true;
}

QMenu* makeMenu(const MenuLayout& layout, const FrameActions& frame, const SnapshotCommands* window,
                QWidget* parent) {
    auto* menu = new QMenu(QString::fromLatin1(layout.title), parent);
    for (const MenuItem& item : layout.items) {
        if (const auto* command = std::get_if<FrameCommand>(&item))
            menu->addAction(frame[size_t(*command)]);
        else if (const auto* own = std::get_if<SnapshotCommand>(&item))
            menu->addAction(window->action(*own));
        else
            menu->addSeparator();
    }
    return menu;
}

SnapshotCommands::SnapshotCommands(SnapshotWindow& window, const FrameActions& frame) {
    for (const CommandRow& row : commandTable())
        m_actions[size_t(row.command)] = makeAction(row, window);
    for (const WindowMenu& spec : windowMenus()) {
        QMenu* menu = makeMenu(spec.layout, frame, this, &window);
        if (spec.opened)
            QObject::connect(menu, &QMenu::aboutToShow, &window, spec.opened);
        m_menus.append(menu);
    }
    enableFor(1);
}

QAction* SnapshotCommands::action(const QString& name) const {
    for (const QMenu* menu : m_menus)
        for (QAction* action : menu->actions())
            if (action->objectName() == name)
                return action;
    return nullptr;
}

void SnapshotCommands::enableFor(int windows) {
    for (const CommandRow& row : commandTable())
        action(row.command)->setEnabled(enabledFor(row.rule, windows));
}

} // namespace kestrel::views
