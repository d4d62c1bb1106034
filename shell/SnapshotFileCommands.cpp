#include "SnapshotFileCommands.h"

#include "MainWindow.h"

#include "engine/file/SnapshotFile.h"
#include "engine/support/Paths.h"
#include "engine/support/TextFormats.h"
#include "views/FolderTreeModel.h"
#include "views/SnapshotPair.h"

#include <QAction>
#include <QFileInfo>

#include <limits>
#include <optional>

namespace kestrel::shell {

using engine::MessageIcon;
using engine::UserMessage;
using views::SnapshotCommand;
using views::SnapshotWindow;

namespace {

// The number of the next snapshot of the window's; nothing, with the
// overflow shown, past the last 16-bit number.
std::optional<int16_t> nextNumber(MainWindow& frame, const SnapshotWindow& window) {
    if (window.number() == std::numeric_limits<int16_t>::max()) {
        frame.showMessage(UserMessage{QStringLiteral("Kestrel"),
                                      engine::errorText(engine::ErrorCode::Overflow),
                                      MessageIcon::Exclamation});
        return std::nullopt;
    }
    return int16_t(window.number() + 1);
}

// The folder of the window's series: that of its own file, else that of the
// saved snapshot it repeats or branches from; empty for a snapshot made from
// nothing saved.
QString seriesFolderOf(const SnapshotWindow& window) {
    const engine::SnapshotHeader& header = window.snapshot().header;
    if (!header.fileName.isEmpty())
        return QFileInfo(header.fileName).absolutePath();
    return window.seriesFolder();
}

// The name Save As proposes: the next numbered name of the root folder's base
// name in the window's series folder, else in the folder the file dialogs
// used last; without either, the bare name.
QString proposedSaveName(const MainWindow& frame, const SnapshotWindow& window) {
    QString series = seriesFolderOf(window);
    if (series.isEmpty())
        series = frame.lastFolder();
    const QString folder = series.isEmpty() ? QString() : engine::withSeparator(series);
    const QString base = engine::SnapshotBaseName(window.snapshot().header.rootFolder);
    return folder + engine::NextSnapshotName(base, folder);
}

// Scans the next snapshot of window's series, of folder, and keeps the new
// window in the same series folder.
void scanNextOfSeries(MainWindow& frame, const SnapshotWindow& window, const QString& folder,
                      int16_t number) {
    const engine::SnapshotHeader& header = window.snapshot().header;
    const QString series = seriesFolderOf(window);
    // A snapshot with content fingerprints is repeated with them.
    if (!frame.NewSnapshot(folder, header.recurse, header.hidden, header.versions, number,
                           window.snapshot().fingerprints.taken()))
        return;
    if (SnapshotWindow* made = frame.activeSnapshotWindow(); made && made != &window)
        made->setSeriesFolder(series);
}

} // namespace

void connectFileCommands(MainWindow& frame, SnapshotWindow& window) {
    const auto connectCommand = [&](SnapshotCommand command,
                                    void (*handler)(MainWindow&, SnapshotWindow&)) {
        QObject::connect(window.commands().action(command), &QAction::triggered, &window,
                         [&frame, &window, handler] { handler(frame, window); });
    };
    connectCommand(SnapshotCommand::SaveAs, mnuFileSaveAs_Click);
    connectCommand(SnapshotCommand::Repeat, mnuFileRepeat_Click);
    connectCommand(SnapshotCommand::Branch, mnuFileBranch_Click);
    connectCommand(SnapshotCommand::Title, mnuFileProps_Click);
}

void mnuFileSaveAs_Click(MainWindow& frame, SnapshotWindow& window) {
    if (frame.busy())
        return;
    engine::SnapshotHeader& header = window.snapshot().header;
    const QString path = frame.askSaveFileName(proposedSaveName(frame, window));
    if (path.isEmpty())
        return;

    const QString previous = header.fileName;
    header.fileName = path;
    engine::Outcome outcome;
    {
        const views::OperationScope operation(frame);
        outcome = engine::guardedOperation(QStringLiteral("Error Writing Snapshot"), [&] {
            return engine::SaveSnapshot(window.snapshot(), frame.progressMeter());
        });
    }
    if (!outcome.ok) {
        // Nothing was stored under the new name: keep the old one and the mark.
        header.fileName = previous;
        if (outcome.message)
            frame.showMessage(*outcome.message);
        return;
    }
    window.setChanged(false);
    // A window captioned by its file name follows the file.
    if (!previous.isEmpty() && window.caption() == previous)
        window.setCaption(path);
    frame.setLastFolder(QFileInfo(path).absolutePath());
    frame.AddRecent(path);
}

void mnuFileRepeat_Click(MainWindow& frame, SnapshotWindow& window) {
    if (frame.busy())
        return;
    const std::optional<int16_t> next = nextNumber(frame, window);
    if (!next)
        return;
    scanNextOfSeries(frame, window, window.snapshot().header.rootFolder, *next);
}

void mnuFileBranch_Click(MainWindow& frame, SnapshotWindow& window) {
    if (frame.busy())
        return;
    const QModelIndex node = window.selectedNode();
    if (!node.isValid())
        return;
    if (node != window.treeModel().rootNode())
        views::moveComparisonRoot(window);
    const std::optional<int16_t> next = nextNumber(frame, window);
    if (!next)
        return;
    scanNextOfSeries(frame, window, window.snapshot().header.rootFolder + window.rootKey(), *next);
}

void mnuFileProps_Click(MainWindow& frame, SnapshotWindow& window) {
    if (frame.busy())
        return;
    engine::SnapshotHeader& header = window.snapshot().header;
    const std::optional<QString> answer = frame.askText(
        QStringLiteral("Title of Snapshot:"),
        QStringLiteral("Created ") + engine::generalDateText(header.created), header.title);
    if (!answer)
        return;
    QString title = *answer;
    qsizetype blanks = 0;
    while (blanks < title.size() && title.at(blanks) == QLatin1Char(' '))
        ++blanks;
    title.remove(0, blanks);
    if (title.isEmpty() || title.compare(header.title, Qt::CaseInsensitive) == 0)
        return;
    // A window captioned by its title shows the new one; one captioned by
    // its file name keeps that.
    if (window.caption() == header.title)
        window.setCaption(title);
    header.title = title;
    window.setChanged(true);
}

bool queryUnload(MainWindow& frame, SnapshotWindow& window) {
    // The snapshot of a running operation must not go away under it.
    if (frame.busy())
        return false;
    if (!window.changed())
        return true;
    frame.setWindowClosing(true);
    const views::SaveAnswer answer = frame.PromptToSave(QStringLiteral("Save changes to ") +
                                                        window.caption() + QStringLiteral("?"));
    bool close = false;
    switch (answer) {
    case views::SaveAnswer::Yes:
        // Closes only when the save went through.
        mnuFileSaveAs_Click(frame, window);
        close = !window.changed();
        break;
    case views::SaveAnswer::No:
        close = true;
        break;
    case views::SaveAnswer::Cancel:
    case views::SaveAnswer::Closed:
        break;
    }
    frame.setWindowClosing(false);
    return close;
}

} // namespace kestrel::shell
