// kestrel-bench-views: measures the snapshot windows on two compared
// snapshots of a million entries each, offscreen: the folder tree rebuilt
// after a comparison, a folder of about 30,000 entries listed, the show mode
// switched, the grid sorted by every column, and the memory a listing takes
// beyond the snapshots. Prints the figures and the targets they meet.

#include "../TreeGenerator.h"
#include "../Variants.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/FolderIndex.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "listing/FileList.h"
#include "output/ExportLines.h"
#include "output/Report.h"
#include "settings/Settings.h"
#include "shell/MainWindow.h"
#include "views/FileGridModel.h"
#include "views/FindBar.h"
#include "views/FolderTreeModel.h"
#include "views/ShownListOf.h"
#include "views/SnapshotWindow.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLineEdit>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace kestrel;

namespace {

// The median time of runs calls, in seconds.
double medianSeconds(int runs, const std::function<void()>& operation) {
    std::vector<double> times;
    for (int r = 0; r < runs; ++r) {
        QElapsedTimer timer;
        timer.start();
        operation();
        times.push_back(double(timer.nsecsElapsed()) / 1e9);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

bool makeFile(const QString& path, const std::function<void(engine::Snapshot&)>& fill) {
    if (QFileInfo::exists(path))
        return true;
    std::fprintf(stderr, "Making %s ...\n", qPrintable(path));
    engine::Snapshot snapshot;
    fill(snapshot);
    snapshot.header.fileName = path;
    engine::ProgressMeter meter;
    return engine::SaveSnapshot(snapshot, meter).ok;
}

// The key of the folder with the most entries beneath it, at most limit and
// no fewer than a tenth of it, or of the one with the most direct entries.
QString folderKey(const engine::Snapshot& s, const engine::FolderIndex& index, bool beneath,
                  int32_t limit, int32_t& entries) {
    int32_t best = -1;
    int32_t bestCount = 0;
    for (int32_t f = 1; f < index.folderCount(); ++f) {
        const int32_t entry = index.entryOf(f);
        int32_t count = s.entries.get(entry).count;
        if (!beneath) {
            // The folder's own ring.
            count = 0;
            if (s.entries.contains(entry + 1) && s.entries.get(entry + 1).parent == entry) {
                int32_t i = entry + 1;
                do {
                    ++count;
                    i = s.entries.get(i).nextSibling;
                } while (i != entry + 1 && count <= s.entryCount);
            }
        }
        if (count <= limit && count > bestCount) {
            best = f;
            bestCount = count;
        }
    }
    entries = bestCount;
    if (best < 0)
        return QStringLiteral("/");
    QStringList names;
    for (int32_t f = best; f > 0; f = index.parentOf(f))
        names.prepend(s.nameText(index.entryOf(f)));
    return QStringLiteral("/") + names.join(QLatin1Char('/')) + QStringLiteral("/");
}

struct Target {
    const char* what;
    double value;
    double limit;
    const char* unit;
};

} // namespace

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toLocal8Bit());
    QApplication app(argc, argv);
    for (auto format : {QSettings::NativeFormat, QSettings::IniFormat})
        QSettings::setPath(format, QSettings::UserScope, home.path() + QStringLiteral("/config"));

    QCommandLineParser p;
    p.setApplicationDescription(QStringLiteral(
        "Measures the snapshot windows on two compared snapshots (a generated one and a copy\n"
        "with 1000 files touched, 500 removed and 500 added), offscreen."));
    p.addHelpOption();
    const QCommandLineOption dir(QStringLiteral("dir"),
                                 QStringLiteral("Folder for the snapshot files."),
                                 QStringLiteral("DIR"), QStringLiteral("bench-data"));
    const QCommandLineOption entries(QStringLiteral("entries"),
                                     QStringLiteral("Entries of each snapshot."),
                                     QStringLiteral("N"), QStringLiteral("1000000"));
    const QCommandLineOption runs(QStringLiteral("runs"),
                                  QStringLiteral("Runs of each measurement."), QStringLiteral("R"),
                                  QStringLiteral("5"));
    const QCommandLineOption quick(
        QStringLiteral("quick"),
        QStringLiteral("Small snapshots, one run: checks that the bench works."));
    p.addOptions({dir, entries, runs, quick});
    p.process(app);
    const QString folder = QFileInfo(p.value(dir)).absoluteFilePath();
    const int64_t n =
        p.isSet(quick) ? 20000 : std::max<qlonglong>(1000, p.value(entries).toLongLong());
    const int rounds = p.isSet(quick) ? 1 : std::max(1, p.value(runs).toInt());
    // One folder of 30,000 files among the entries, or half of them in a small run.
    const int64_t large = std::min<int64_t>(30000, n / 2);
    QDir().mkpath(folder);

    const QString original = QStringLiteral("%1/views-%2-large.#01").arg(folder).arg(n);
    const QString changed = QStringLiteral("%1/views-%2-large.#02").arg(folder).arg(n);
    if (!makeFile(original, [&](engine::Snapshot& s) {
            bench::generateSnapshot(s, QStringLiteral("/generated/"),
                                    bench::TreeShape{n - large - 1, 1, large});
        }))
        return 2;
    if (!makeFile(changed, [&](engine::Snapshot& s) {
            engine::Snapshot base;
            base.header.fileName = original;
            engine::ProgressMeter meter;
            engine::LoadSnapshot(base, meter);
            bench::Variation v;
            v.touched = 1000;
            v.removed = 500;
            v.added = 500;
            bench::makeVariant(base, s, v);
        }))
        return 2;

    shell::MainWindow frame(home.filePath(QStringLiteral("Kestrel.ini")));
    frame.questions().message = [](const engine::UserMessage& m) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(m.title), qPrintable(m.text));
    };
    frame.resize(1400, 900);
    frame.show();
    QElapsedTimer opening;
    opening.start();
    if (!frame.OpenSnapshot(original))
        return 2;
    const double openFirst = double(opening.nsecsElapsed()) / 1e9;
    opening.restart();
    // The second window pairs with the first and compares at once.
    if (!frame.OpenSnapshot(changed))
        return 2;
    const double openSecond = double(opening.nsecsElapsed()) / 1e9;
    views::SnapshotWindow* window = frame.activeSnapshotWindow();
    if (!window || !window->compared())
        return 2;

    std::printf(
        "Kestrel views bench: two snapshots of %lld entries, compared, offscreen; median of %d\n\n",
        static_cast<long long>(window->snapshot().entryCount), rounds);
    std::printf("  open the first snapshot (load, index, tree)      %8.3f s\n", openFirst);
    std::printf("  open the second (load, index, compare, trees)    %8.3f s\n", openSecond);

    const double buildTree = medianSeconds(rounds, [&] { window->BuildTree(); });
    std::printf("  build the tree after a comparison (and list)     %8.3f s\n", buildTree);

    const engine::FolderIndex index = engine::FolderIndex::build(window->snapshot());
    int32_t beneath = 0;
    const QString bigTree = folderKey(window->snapshot(), index, true,
                                      views::SnapshotWindow::SubFolderEntryLimit, beneath);
    int32_t direct = 0;
    const QString bigFolder = folderKey(window->snapshot(), index, false, INT32_MAX, direct);

    // A folder of about 30,000 entries with the files of all its sub-folders.
    QAction* subs = window->action(QStringLiteral("mnuViewSubs"));
    const double selectTree = medianSeconds(rounds, [&] {
        subs->setChecked(false);
        window->selectFolder(QStringLiteral("/"));
        subs->setChecked(true);
        window->selectFolder(bigTree);
    });
    const int treeRows = window->gridModel().rowCount();
    const size_t listingBytes = window->gridModel().rows().memoryUsed();
    subs->setChecked(true);
    window->selectFolder(bigTree);
    // Selection alone, timed without the way back to the top.
    const double selectOnly = medianSeconds(rounds, [&] {
        subs->setChecked(true);
        const QModelIndex node = window->treeModel().indexOfKey(bigTree, window->nameMatching());
        window->RefreshScreen(window->treeModel().tagOf(node), bigTree);
    });
    std::printf("  select a folder, files of sub-folders: %6d rows %8.3f s (both windows)\n",
                treeRows, selectOnly);
    std::printf("    (with the way back to the top first: %.3f s)\n", selectTree);

    std::vector<Target> targets;
    targets.push_back({"build the tree after a comparison", buildTree, 0.5, "s"});
    targets.push_back({"select and list ~30,000 entries", selectOnly, 0.1, "s"});

    // The export dialog's OK over that grid, every column, and its report.
    const QString exportFile = home.filePath(QStringLiteral("grid.txt"));
    const double exported = medianSeconds(rounds, [&] {
        const output::ShownList list = views::shownListOf(*window);
        output::ExportLines lines(list, output::exportFields(list.inFolderOffered),
                                  output::ExportChoices{});
        output::writeExportFile(exportFile, lines);
    });
    std::printf("  export the grid of %6d rows to a file  %18.3f s\n", treeRows, exported);
    targets.push_back({"export the ~30,000-row grid", exported, 0.3, "s"});
    const double printed = medianSeconds(std::min(rounds, 3), [&] {
        const output::ShownList list = views::shownListOf(*window);
        engine::ProgressMeter meter;
        output::writeReportPdf(home.filePath(QStringLiteral("grid.pdf")), list, {},
                               output::defaultPdfLayout(QPageLayout::Portrait),
                               output::PdfResolution, meter);
    });
    std::printf("  print the grid of %6d rows to a PDF file %16.3f s\n", treeRows, printed);
    targets.push_back({"print the ~30,000-row grid to PDF", printed, 5, "s"});

    double sortWorst = 0;
    for (int column = 1; column <= 7; ++column) {
        const double sorted = medianSeconds(rounds, [&] { window->SortSequence(column); });
        std::printf("  sort %6d rows by %-12s %24.3f s\n", window->gridModel().rowCount(),
                    qPrintable(engine::gridHeaderText(column - 1).trimmed()), sorted);
        sortWorst = std::max(sortWorst, sorted);
    }
    targets.push_back({"sort ~30,000 rows, slowest column", sortWorst, 0.2, "s"});

    // Find as you type: each keystroke filters the ~30,000-row grid again;
    // Find Next with a text no name holds walks every entry of the snapshot.
    views::FindBar& find = *window->findBar();
    find.open();
    int keystroke = 0;
    const double typed = medianSeconds(
        rounds, [&] { find.textBox()->setText(QStringLiteral("fi%1").arg(keystroke++ % 10)); });
    std::printf("  find as you type, 3 letters, %6d rows %17.3f s\n", treeRows, typed);
    targets.push_back({"find as you type over ~30,000 rows, a keystroke", typed, 0.05, "s"});
    find.textBox()->setText(QStringLiteral("qzx"));
    const double nextNone = medianSeconds(rounds, [&] { find.findNext(); });
    std::printf("  find next through the whole snapshot (no match) %8.3f s\n", nextNone);
    targets.push_back({"find next through the whole snapshot", nextNone, 0.05, "s"});
    find.close();

    const double perRow = treeRows > 0 ? double(listingBytes) / treeRows : 0;
    std::printf("  memory of the listing: %zu bytes, %.1f bytes per row\n", listingBytes, perRow);
    targets.push_back({"memory beyond the snapshots per grid row", perRow, 32, "B/row"});

    subs->setChecked(false);
    window->selectFolder(bigFolder);
    std::printf("  the largest folder: %d entries of its own, %d rows listed\n", direct,
                window->gridModel().rowCount());

    double switchWorst = 0;
    for (int position : {1, 2, 3, 4, 0}) {
        const double switched = medianSeconds(rounds, [&] { window->setShowPosition(position); });
        std::printf("  show \"%s\" %*s %8.3f s\n", qPrintable(engine::showModeTexts().at(position)),
                    int(40 - engine::showModeTexts().at(position).size()), "", switched);
        switchWorst = std::max(switchWorst, switched);
    }
    targets.push_back({"switch show mode (tree and grid)", switchWorst, 0.5, "s"});
    std::printf("  tree model: %zu bytes; folder index: %zu bytes\n",
                window->treeModel().memoryUsed(), index.memoryUsed());

    std::printf("\n  Targets:\n");
    for (const Target& t : targets)
        std::printf("    %-45s %8.3f %-6s (at most %g) %s\n", t.what, t.value, t.unit, t.limit,
                    t.value <= t.limit ? "met" : "MISSED");
    // Nothing to save on the way out.
    for (views::SnapshotWindow* w : frame.snapshotWindows())
        w->setChanged(false);
    frame.setFarewellTime(0);
    return 0;
}
