#pragma once

// A list as a snapshot window would describe it, over snapshots built in
// memory: the rows of a folder, the designed column widths, a title.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"
#include "listing/FileList.h"
#include "output/ShownList.h"

#include <QGuiApplication>

#include <memory>
#include <vector>

namespace kestrel::test {

struct ShownListFixture {
    engine::Snapshot snapshot;
    engine::Snapshot other;
    std::unique_ptr<engine::FileList> rows;
    output::ShownList list;

    // Lists the top folder of a snapshot of top.
    void show(const std::vector<Node>& top, engine::ListingOptions options = {}) {
        build(top);
        list_(options);
    }

    // Lists the top folder of a snapshot of top compared both ways with one
    // of before, in the given show mode.
    void showCompared(const std::vector<Node>& top, const std::vector<Node>& before,
                      engine::ShowMode mode, engine::ListingOptions options = {}) {
        build(top);
        buildSnapshot(other, before);
        other.header.title = QStringLiteral("Before");
        other.header.created = engine::oleDateFromParts(2024, 3, 1, 0, 0, 0);
        engine::ProgressMeter meter;
        engine::CompareSnapshot(snapshot, 1, other, 1, true, {}, meter);
        options.mode = mode;
        list_(options);
        list.other = &other;
        list.otherTitle = other.header.title;
        list.otherCreated = other.header.created;
        list.showText = engine::showModeText(mode);
        list.folderPanel = QStringLiteral("/built/");
        list.changesPanel = engine::ShowChanges(true, true, mode, rows->counters());
    }

private:
    void build(const std::vector<Node>& top) {
        buildSnapshot(snapshot, top);
        snapshot.header.title = QStringLiteral("Work");
        snapshot.header.created = engine::oleDateFromParts(2024, 3, 5, 9, 30, 0);
        snapshot.header.fileName = QStringLiteral("/data/Work.#02");
    }
    void list_(const engine::ListingOptions& options) {
        rows = std::make_unique<engine::FileList>(snapshot);
        rows->list(snapshot.entryCount >= 1 ? 1 : 0, options);
        list.snapshot = &snapshot;
        list.rows = rows.get();
        list.showMode = options.mode;
        list.inFolderOffered = options.subFolders;
        list.accessOffered = !snapshot.access.empty();
        for (int column = 0; column < output::ShownColumnCount; ++column)
            list.columnTwips[size_t(column)] = engine::gridColumnTwips(
                column, {snapshot.header.versions, options.subFolders, list.accessOffered,
                         snapshot.fingerprints.taken()});
        list.font = QGuiApplication::font();
        list.title = snapshot.header.title;
        list.created = snapshot.header.created;
        list.fileName = snapshot.header.fileName;
    }
};

} // namespace kestrel::test
