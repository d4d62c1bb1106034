#include "ShownListOf.h"

#include "FileGridModel.h"
#include "SnapshotHost.h"
#include "SnapshotStatusBar.h"
#include "SnapshotWindow.h"

#include "settings/Settings.h"

#include <QComboBox>

namespace kestrel::views {

output::ShownList shownListOf(const SnapshotWindow& window) {
    const engine::SnapshotHeader& header = window.snapshot().header;
    const SnapshotWindow* pair = window.pairedWindow();
    output::ShownList list;
    list.snapshot = &window.snapshot();
    list.rows = &window.gridModel().rows();
    list.other = pair ? &pair->snapshot() : nullptr;
    list.compareOptions = window.host().options().compareOptions();
    list.showMode = window.showMode();
    list.inFolderOffered = window.showsSubFolders();
    list.accessOffered = !window.snapshot().access.empty();
    list.fingerprintsOffered = window.snapshot().fingerprints.taken();
    list.columnTwips = window.grid()->columnTwips();
    list.font = window.grid()->font();
    list.folderPanel = window.statusBar()->panelText(SnapshotStatusBar::FolderPanel);
    list.changesPanel = window.statusBar()->panelText(SnapshotStatusBar::ChangesPanel);
    list.showText = window.showSelector()->currentText();
    list.title = header.title;
    list.created = header.created;
    if (pair) {
        list.otherTitle = pair->snapshot().header.title;
        list.otherCreated = pair->snapshot().header.created;
    }
    list.fileName = header.fileName;
    return list;
}

} // namespace kestrel::views
