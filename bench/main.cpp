// kestrel-bench: measures Kestrel's scan, snapshot file and comparison on a
// generated tree against the tools users could pick instead, and prints the
// figures. Every measured operation runs in a child process of its own, so
// that its time and its peak memory are its own.

#include "ColdCache.h"
#include "Measure.h"
#include "Random.h"
#include "TreeGenerator.h"
#include "Variants.h"

#include "engine/compare/Compare.h"
#include "engine/compare/History.h"
#include "engine/compare/HistoryIndex.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/compare/Moves.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SaveBehind.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"
#include "output/ChangeDocument.h"
#include "output/ChangeList.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kestrel;
using namespace kestrel::bench;

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// As the window and the command line open a file: with its side data.
bool load(engine::Snapshot& s, const QString& path) {
    engine::ProgressMeter meter;
    return engine::OpenSnapshotFile(s, path, meter).ok;
}

// ---------------------------------------------------------------- children

// Ignore patterns as a user writes them: names, extensions, anchored paths,
// "**", sets and one negation. The generated names match few of them, so
// nearly every entry is tried against all twenty.
constexpr char TypicalPatterns[] = "*.pyc\n*.o\n__pycache__/\n*~\n.cache/\n*.log\n*.tmp\n"
                                   "node_modules/\n/build/\n/var/log/**\n**/target/\n*.swp\n"
                                   "Thumbs.db\n.DS_Store\na*_1?\n[A-F]*_7\n**/gen/**/*.c\n"
                                   "docs/**/*.bak\n*_999\n!keep_999\n";
// Every entry of the generated tree at the second level and below whose
// folder at the second level ends in an odd digit: about half of them.
constexpr char HalfTheTree[] = "/*/*[13579]\n";

// The resident memory of this process, in KB.
double residentKb() {
    long pages = 0, resident = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    const bool read = statm && std::fscanf(statm, "%ld %ld", &pages, &resident) == 2;
    if (statm)
        std::fclose(statm);
    return read ? double(resident) * double(::sysconf(_SC_PAGESIZE)) / 1024 : 0;
}

// The measured operations, each run in a child process. Prints
// "<seconds> <entries>" on success; the history adds the resident KB it holds
// once built.
int child(const QStringList& args) {
    const QString op = args.value(0);
    engine::ProgressMeter meter;
    // residentKb, where given: what the operation still holds when done.
    auto report = [](double seconds, int64_t entries, double residentKb = -1) {
        std::printf("%.6f %lld", seconds, static_cast<long long>(entries));
        if (residentKb >= 0)
            std::printf(" %.0f", residentKb);
        std::printf("\n");
        return 0;
    };
    if (op == QLatin1String("noop"))
        return report(0, 0);
    if (op == QLatin1String("scan") || op == QLatin1String("scan-fingerprints")) {
        engine::Snapshot s;
        s.header.rootFolder = args.value(1) + QLatin1Char('/');
        s.header.recurse = s.header.hidden = true;
        engine::ScanSettings settings;
        settings.listingThreads = args.value(2, QStringLiteral("-1")).toInt();
        settings.fingerprints = op == QLatin1String("scan-fingerprints");
        const double start = now();
        if (!engine::CreateSnapshot(s, settings, meter).ok)
            return 2;
        return report(now() - start, s.entryCount);
    }
    if (op == QLatin1String("scan-excluding")) { // TREE: half the tree left out
        engine::Snapshot s;
        s.header.rootFolder = args.value(1) + QLatin1Char('/');
        s.header.recurse = s.header.hidden = true;
        engine::ScanSettings settings;
        settings.exclude =
            std::make_shared<const engine::IgnorePatterns>(HalfTheTree, QStringLiteral("bench"));
        const double start = now();
        if (!engine::CreateSnapshot(s, settings, meter).ok)
            return 2;
        return report(now() - start, s.entryCount);
    }
    if (op == QLatin1String("snapshot-new")) { // TREE FILE: scan and save where no snapshot was
        engine::Snapshot s;
        s.header.rootFolder = args.value(1) + QLatin1Char('/');
        s.header.recurse = s.header.hidden = true;
        s.header.title = QStringLiteral("Snapshot #1 of ") + args.value(1);
        s.header.fileName = args.value(2);
        QFile::remove(s.header.fileName);
        const double start = now();
        const engine::ScanAndSaveOutcome done = engine::ScanAndSaveSnapshot(s, {}, meter);
        if (!done.scan.ok || !done.save.ok)
            return 2;
        return report(now() - start, s.entryCount);
    }
    if (op == QLatin1String("load")) {
        engine::Snapshot s;
        const double start = now();
        if (!load(s, args.value(1)))
            return 2;
        return report(now() - start, s.entryCount);
    }
    if (op == QLatin1String("save")) {
        engine::Snapshot s;
        if (!load(s, args.value(1)))
            return 2;
        // A new file, as a new snapshot is saved: replacing an old one adds
        // the system's time to free it.
        s.header.fileName = args.value(2);
        QFile::remove(s.header.fileName);
        const double start = now();
        if (!engine::SaveSnapshot(s, meter).ok)
            return 2;
        return report(now() - start, s.entryCount);
    }
    if (op == QLatin1String("compare")) { // A B [ignoring|bare]
        engine::Snapshot a, b;
        if (!load(a, args.value(1)) || !load(b, args.value(2)))
            return 2;
        engine::CompareOptions options;
        if (args.value(3) == QLatin1String("ignoring"))
            options.ignorePatterns = std::make_shared<const engine::IgnorePatterns>(
                TypicalPatterns, QStringLiteral("bench"));
        // As snapshots without side files compare: no permissions or owners.
        if (args.value(3) == QLatin1String("bare")) {
            a.access.clear();
            b.access.clear();
        }
        const double start = now();
        if (!engine::CompareSnapshot(a, 1, b, 1, true, options, meter).ok)
            return 2;
        return report(now() - start, int64_t(a.entryCount) + b.entryCount);
    }
    if (op == QLatin1String("patterns-cost")) { // A B ROUNDS: with patterns / without, by turns
        // Both comparisons of each round run in this one process, one after
        // the other, so that what a process meets by chance (where its
        // memory lies, which core its threads get) weighs on both alike.
        // Each has a pair of its own: the plain one never meets marks of
        // ignored entries to clear, as a first comparison does not. Prints
        // the median of the rounds' ratios.
        engine::Snapshot a, b, ignoringA, ignoringB;
        if (!load(a, args.value(1)) || !load(b, args.value(2)) || !load(ignoringA, args.value(1)) ||
            !load(ignoringB, args.value(2)))
            return 2;
        engine::CompareOptions plain;
        engine::CompareOptions ignoring;
        ignoring.ignorePatterns = std::make_shared<const engine::IgnorePatterns>(
            TypicalPatterns, QStringLiteral("bench"));
        auto timed = [&](const engine::CompareOptions& options) {
            const bool plainPair = !options.ignorePatterns;
            const double start = now();
            if (!engine::CompareSnapshot(plainPair ? a : ignoringA, 1, plainPair ? b : ignoringB, 1,
                                         true, options, meter)
                     .ok)
                return -1.0;
            return now() - start;
        };
        std::vector<double> ratios;
        for (int round = 0; round < std::max(1, args.value(3).toInt()); ++round) {
            // Which goes first alternates, so neither always meets the
            // caches the other left.
            const bool plainFirst = round % 2 == 0;
            const double first = timed(plainFirst ? plain : ignoring);
            const double second = timed(plainFirst ? ignoring : plain);
            if (first <= 0 || second <= 0)
                return 2;
            ratios.push_back(plainFirst ? second / first : first / second);
        }
        std::sort(ratios.begin(), ratios.end());
        return report(ratios[ratios.size() / 2], int64_t(a.entryCount) + b.entryCount);
    }
    if (op == QLatin1String("generate")) { // FILE ENTRIES SEED [LARGE]: a snapshot made in memory
        engine::Snapshot s;
        TreeShape shape{args.value(2).toLongLong(), args.value(3).toULongLong(),
                        args.value(4).toLongLong()};
        generateSnapshot(s, QStringLiteral("/generated/"), shape);
        s.header.fileName = args.value(1);
        if (!engine::SaveSnapshot(s, meter).ok)
            return 2;
        return report(0, s.entryCount);
    }
    if (op == QLatin1String("moves")) { // A B: move detection after a comparison both ways
        engine::Snapshot a, b;
        if (!load(a, args.value(1)) || !load(b, args.value(2)))
            return 2;
        if (!engine::CompareSnapshot(b, 1, a, 1, true, {}, meter).ok)
            return 2;
        const double start = now();
        const engine::MoveList moves = engine::detectMoves(a, 1, b, 1);
        engine::noteMoves(a, b, moves);
        return report(now() - start, moves.files);
    }
    if (op == QLatin1String("history")) { // FILES...: what the History window waits for
        const double start = now();
        engine::CompareOptions options;
        options.detectMoves = true;
        const engine::History h = engine::buildHistory(args.mid(1), options, meter);
        const engine::HistoryIndex index(h);
        int64_t changes = 0;
        for (const engine::Generation& g : h.generations)
            changes += g.changes();
        // With what the History window holds for as long as it is open.
        return report(now() - start, changes, residentKb());
    }
    if (op == QLatin1String("load-each")) { // FILES...: each loaded alone, the times summed
        double total = 0;
        int64_t entries = 0;
        for (const QString& file : args.mid(1)) {
            engine::Snapshot s;
            const double start = now();
            if (!load(s, file))
                return 2;
            total += now() - start;
            entries += s.entryCount;
        }
        return report(total, entries);
    }
    if (op == QLatin1String("hold-two")) { // A B: both loaded at once, for their memory
        engine::Snapshot a, b;
        const double start = now();
        if (!load(a, args.value(1)) || !load(b, args.value(2)))
            return 2;
        return report(now() - start, int64_t(a.entryCount) + b.entryCount);
    }
    if (op == QLatin1String("change-report")) { // A B html|json OUT: the report of a comparison
        engine::Snapshot older, newer;
        if (!load(older, args.value(1)) || !load(newer, args.value(2)))
            return 2;
        engine::CompareOptions options;
        if (!engine::CompareSnapshot(newer, 1, older, 1, true, options, meter).ok)
            return 2;
        const engine::MoveList moves = engine::detectMoves(older, 1, newer, 1);
        engine::noteMoves(older, newer, moves);
        // What the report adds to the comparison: the change list made and
        // the file written.
        const double start = now();
        const output::ChangeList list(newer, older, options, moves);
        output::ReportContext context;
        context.oldFile = args.value(1);
        context.newFile = args.value(2);
        const auto format = args.value(3) == QLatin1String("json")
                                ? output::ChangeReportFormat::Json
                                : output::ChangeReportFormat::Html;
        if (!output::writeChangeReportFile(args.value(4), format, list, context).ok)
            return 2;
        return report(now() - start, list.counts().total());
    }
    if (op == QLatin1String("variant")) { // FILE OUT shuffle|changes|moves|generationN
        engine::Snapshot original, copy;
        if (!load(original, args.value(1)))
            return 2;
        Variation v;
        if (args.value(3) == QLatin1String("shuffle"))
            v.shuffle = true;
        else if (args.value(3).startsWith(QLatin1String("generation"))) {
            // 0.1 % of the files: changed, added or removed; each generation
            // its own.
            v.seed = args.value(3).mid(10).toULongLong() + 100;
            v.touched = 500;
            v.removed = 250;
            v.added = 250;
        } else if (args.value(3) == QLatin1String("moves")) {
            v.renamed = 10000;
        } else if (args.value(3).startsWith(QLatin1String("differences"))) {
            // differencesN: N differences, half of them touched files, a
            // quarter removed, a quarter added.
            const int n = args.value(3).mid(11).toInt();
            v.touched = n / 2;
            v.removed = n / 4;
            v.added = n - v.touched - v.removed;
        } else {
            v.touched = 1000;
            v.removed = 500;
            v.added = 500;
        }
        makeVariant(original, copy, v);
        copy.header.fileName = args.value(2);
        if (!engine::SaveSnapshot(copy, meter).ok)
            return 2;
        return report(0, copy.entryCount);
    }
    std::fprintf(stderr, "unknown child operation\n");
    return 2;
}

// ---------------------------------------------------------------- driver

// The rows of the measured report: a folder the window could list whole.
constexpr int64_t ReportRows = 30000;

struct Config {
    bool cold = false;
    int slowMicroseconds = 0; // --slow: the delay of the file system with latency
    QString dir;
    int64_t entries = 1000000;
    uint64_t seed = 1;
    int runs = 5;
    bool tenMillion = true;
    bool scaleScan = true;
    QString json;
};

QString self() {
    return QCoreApplication::applicationFilePath();
}
QString sibling(const QString& name) {
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
}

// A tree made once and reused: DIR/tree-ENTRIES-SEED, with a marker file
// written when it is complete.
QString ensureTree(const Config& c, int64_t entries) {
    const QString root = QStringLiteral("%1/tree-%2-%3").arg(c.dir).arg(entries).arg(c.seed);
    const QString done = root + QStringLiteral(".done");
    if (QFileInfo::exists(done))
        return root;
    if (QFileInfo::exists(root))
        QDir(root).removeRecursively();
    std::fprintf(stderr, "Generating a tree of %lld entries in %s ...\n",
                 static_cast<long long>(entries), qPrintable(root));
    const double start = now();
    const int64_t made = generateTreeOnDisk(root, TreeShape{entries, c.seed});
    QFile marker(done);
    marker.open(QIODevice::WriteOnly);
    marker.write(QByteArray::number(qlonglong(made)));
    std::fprintf(stderr, "  %lld entries in %.1f s\n", static_cast<long long>(made), now() - start);
    return root;
}

// A chain of folders DEPTH deep, each holding the next (c0/c1/...), with one
// file at the bottom: DIR/chain-DEPTH, made once. Its paths outgrow what the
// system takes whole, so each folder is made from the one above.
QString ensureChain(const Config& c, int depth) {
    const QString root = QStringLiteral("%1/chain-%2").arg(c.dir).arg(depth);
    const QString done = root + QStringLiteral(".done");
    if (QFileInfo::exists(done))
        return root;
    if (QFileInfo::exists(root))
        runOnce({QStringLiteral("rm"), QStringLiteral("-rf"), root});
    QDir().mkpath(root);
    int dir = ::open(QFile::encodeName(root).constData(),
                     O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    for (int k = 0; dir >= 0 && k < depth; ++k) {
        const std::string level = "c" + std::to_string(k);
        const int next =
            ::mkdirat(dir, level.c_str(), 0755) == 0
                ? ::openat(dir, level.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                : -1;
        ::close(dir);
        dir = next;
    }
    const int bottom =
        dir >= 0 ? ::openat(dir, "bottom", O_CREAT | O_WRONLY | O_CLOEXEC, 0644) : -1;
    if (dir < 0 || bottom < 0)
        throw std::runtime_error("cannot make the chain of folders in " + root.toStdString());
    ::close(bottom);
    ::close(dir);
    QFile marker(done);
    marker.open(QIODevice::WriteOnly);
    return root;
}

struct Row {
    QString name;
    Sample sample;
    double entries = 0;    // entries the operation handled
    double baselineKb = 0; // subtract for bytes per entry; 0 = not a memory figure
};

void printRow(const Row& r) {
    if (!r.sample.ok) {
        std::printf("  %-38s %10s\n", qPrintable(r.name), "n/a");
        return;
    }
    std::printf("  %-38s %9.3f s", qPrintable(r.name), r.sample.seconds);
    if (r.entries > 0 && r.sample.seconds > 0)
        std::printf(" %12.0f/s", r.entries / r.sample.seconds);
    else
        std::printf(" %14s", "");
    std::printf(" %8.1f MB", r.sample.peakKb / 1024.0);
    if (r.baselineKb > 0 && r.entries > 0)
        std::printf(" %7.1f B/entry", (r.sample.peakKb - r.baselineKb) * 1024.0 / r.entries);
    std::printf("\n");
}

QJsonObject toJson(const Row& r) {
    QJsonObject o{{QStringLiteral("name"), r.name}, {QStringLiteral("ok"), r.sample.ok}};
    if (r.sample.ok) {
        o.insert(QStringLiteral("seconds"), r.sample.seconds);
        o.insert(QStringLiteral("peak_kb"), r.sample.peakKb);
        if (r.entries > 0)
            o.insert(QStringLiteral("entries"), r.entries);
        if (r.baselineKb > 0 && r.entries > 0)
            o.insert(QStringLiteral("bytes_per_entry"),
                     (r.sample.peakKb - r.baselineKb) * 1024.0 / r.entries);
    }
    return o;
}

struct Target {
    QString what;
    double value;
    double limit;
    QString unit;
};

int drive(const Config& c) {
    QDir().mkpath(c.dir + QStringLiteral("/work"));
    const QString work = c.dir + QStringLiteral("/work");
    const QString tree = ensureTree(c, c.entries);
    const QString chain8 = ensureChain(c, 8000);
    const QString chain16 = ensureChain(c, 16000);
    const QString cli = sibling(QStringLiteral("kestrel-cli"));
    const QString barewalk = sibling(QStringLiteral("kestrel-barewalk"));
    const QString find = QStandardPaths::findExecutable(QStringLiteral("find"));
    const QString mtree = QStandardPaths::findExecutable(QStringLiteral("mtree"));
    const QString snapshot = work + QStringLiteral("/tree.#01");
    const QString saved = work + QStringLiteral("/saved.#01");
    const QString shuffled = work + QStringLiteral("/shuffled.#01");
    const QString changed = work + QStringLiteral("/changed.#01");
    const QString moved = work + QStringLiteral("/moved.#01");
    // A folder of 30,000 files among a few others: the report's rows.
    const QString reportRows = work + QStringLiteral("/report-30000.#01");
    const QString exported = work + QStringLiteral("/export.txt");
    const QString report = work + QStringLiteral("/report.pdf");

    // Warm the cache and make the snapshot the file measurements read.
    runOnce({cli, QStringLiteral("snapshot"), tree, QStringLiteral("--output"), snapshot});
    runOnce({cli, QStringLiteral("snapshot"), tree, QStringLiteral("--output"), snapshot});
    const Sample base =
        measureMedian({self(), QStringLiteral("--child"), QStringLiteral("noop")}, 1, true);
    const double baseline = base.peakKb;
    const Sample scanned =
        measureMedian({self(), QStringLiteral("--child"), QStringLiteral("scan"), tree}, 1, true);
    const double n = double(scanned.entries);
    runOnce({self(), QStringLiteral("--child"), QStringLiteral("variant"), snapshot, shuffled,
             QStringLiteral("shuffle")});
    runOnce({self(), QStringLiteral("--child"), QStringLiteral("variant"), snapshot, changed,
             QStringLiteral("changes")});
    runOnce({self(), QStringLiteral("--child"), QStringLiteral("variant"), snapshot, moved,
             QStringLiteral("moves")});
    runOnce({self(), QStringLiteral("--child"), QStringLiteral("generate"), reportRows,
             QStringLiteral("100"), QString::number(c.seed), QString::number(ReportRows)});

    // Every operation, measured in turns.
    struct Operation {
        QString name;
        Command command;
        double entries;
        double baseline; // for bytes per entry; 0 where memory is not the point
    };
    auto child = [&](std::initializer_list<QString> words) {
        QStringList argv{self(), QStringLiteral("--child")};
        argv.append(QStringList(words));
        return Command{argv, true, {}};
    };
    auto tool = [](QStringList argv) {
        return Command{std::move(argv), false, QStringLiteral("/dev/null")};
    };
    std::vector<Operation> operations = {
        {QStringLiteral("scan"), child({QStringLiteral("scan"), tree}), n, baseline},
        {QStringLiteral("scan with content fingerprints"),
         child({QStringLiteral("scan-fingerprints"), tree}), n, baseline},
        {QStringLiteral("scan, one listing thread"),
         child({QStringLiteral("scan"), tree, QStringLiteral("0")}), n, baseline},
        {QStringLiteral("scan and save (kestrel-cli snapshot)"),
         tool({cli, QStringLiteral("snapshot"), tree, QStringLiteral("--output"),
               work + QStringLiteral("/cli.#01")}),
         n, 0},
        // Each folder of a chain is opened from the one above: twice the
        // depth must cost about twice the time, not four times.
        {QStringLiteral("scan, chain of 8,000 folders"), child({QStringLiteral("scan"), chain8}),
         8001, 0},
        {QStringLiteral("scan, chain of 16,000 folders"), child({QStringLiteral("scan"), chain16}),
         16001, 0},
        // No snapshot of the tree to replace: the room for the header is
        // not known ahead.
        {QStringLiteral("scan and save, first of its folder"),
         child({QStringLiteral("snapshot-new"), tree, work + QStringLiteral("/first.#01")}), n, 0},
        {QStringLiteral("load"), child({QStringLiteral("load"), snapshot}), n, baseline},
        {QStringLiteral("save"), child({QStringLiteral("save"), snapshot, saved}), n, 0},
        {QStringLiteral("compare with itself, both ways"),
         child({QStringLiteral("compare"), snapshot, snapshot}), 2 * n, baseline},
        {QStringLiteral("compare, no permissions or owners"),
         child({QStringLiteral("compare"), snapshot, snapshot, QStringLiteral("bare")}), 2 * n,
         baseline},
        {QStringLiteral("compare, other listing order"),
         child({QStringLiteral("compare"), snapshot, shuffled}), 2 * n, baseline},
        {QStringLiteral("compare with itself, 20 ignore patterns"),
         child({QStringLiteral("compare"), snapshot, snapshot, QStringLiteral("ignoring")}), 2 * n,
         baseline},
        {QStringLiteral("scan, half the tree excluded"),
         child({QStringLiteral("scan-excluding"), tree}), n, baseline},
        {QStringLiteral("compare after 1000/500/500 changes"),
         child({QStringLiteral("compare"), snapshot, changed}), 2 * n, baseline},
        {QStringLiteral("move detection, 10,000 renamed files"),
         child({QStringLiteral("moves"), snapshot, moved}), 10000, 0},
        {QStringLiteral("kestrel-cli export, all sub-folders"),
         tool({cli, QStringLiteral("export"), snapshot, QStringLiteral("--subfolders"),
               QStringLiteral("--output"), exported}),
         n, 0},
        {QStringLiteral("kestrel-cli report, 30,000 rows"),
         tool({cli, QStringLiteral("report"), reportRows, QStringLiteral("--folder"),
               QStringLiteral("large-folder"), QStringLiteral("--pdf"), report}),
         double(ReportRows), 0},
        {QStringLiteral("bare walk, 1 thread"),
         tool({barewalk, QStringLiteral("-t"), QStringLiteral("1"), tree}), n, 0},
        {QStringLiteral("bare walk, 2 threads"),
         tool({barewalk, QStringLiteral("-t"), QStringLiteral("2"), tree}), n, 0},
        // The floor under fingerprints: the same walk opening, reading and
        // closing every file that is not empty.
        {QStringLiteral("bare walk reading the files, 2 threads"),
         tool({barewalk, QStringLiteral("-t"), QStringLiteral("2"), QStringLiteral("-r"), tree}), n,
         0},
    };
    if (!find.isEmpty())
        operations.push_back(
            {QStringLiteral("GNU find -printf"),
             tool({find, tree, QStringLiteral("-printf"), QStringLiteral("%y %s %T@ %m %p\\n")}), n,
             0});
    if (!mtree.isEmpty())
        operations.push_back({QStringLiteral("mtree -c"),
                              tool({mtree, QStringLiteral("-c"), QStringLiteral("-p"), tree,
                                    QStringLiteral("-k"), QStringLiteral("type,size,time,mode")}),
                              n, 0});
    std::vector<Command> commands;
    for (const Operation& o : operations)
        commands.push_back(o.command);
    const std::vector<Sample> samples = measureInterleaved(commands, c.runs);

    std::printf("Kestrel bench: %s, %.0f entries, median of %d runs taken in turns, warm cache\n\n",
                qPrintable(tree), n, c.runs);
    std::printf("  %-38s %11s %14s %11s %15s\n", "operation", "time", "rate", "peak", "memory");
    std::vector<Row> rows;
    for (size_t k = 0; k < operations.size(); ++k) {
        rows.push_back(
            Row{operations[k].name, samples[k], operations[k].entries, operations[k].baseline});
        printRow(rows.back());
    }
    auto row = [&](const char* name) -> std::optional<Row> {
        for (const Row& r : rows)
            if (r.name == QLatin1String(name))
                return r;
        return std::nullopt;
    };
    const Row scan = *row("scan");
    const Row scanSave = *row("scan and save (kestrel-cli snapshot)");
    const Row loadRow = *row("load");
    const Row saveRow = *row("save");
    const Row compareSelf = *row("compare with itself, both ways");
    const Row compareBare = *row("compare, no permissions or owners");
    const Row compareShuffled = *row("compare, other listing order");
    const Row compareIgnoring = *row("compare with itself, 20 ignore patterns");
    const Row scanExcluding = *row("scan, half the tree excluded");
    const Row scanFingerprints = *row("scan with content fingerprints");
    const Row moveRow = *row("move detection, 10,000 renamed files");
    const Row exportRow = *row("kestrel-cli export, all sub-folders");
    const Row reportRow = *row("kestrel-cli report, 30,000 rows");
    const Row bare1 = *row("bare walk, 1 thread");
    const Row bare2 = *row("bare walk, 2 threads");
    const Row bareReading = *row("bare walk reading the files, 2 threads");
    const std::optional<Row> findRow = row("GNU find -printf");
    const std::optional<Row> mtreeRow = row("mtree -c");

    std::printf("\n  Kestrel's scan and save against the others (lower is better):\n");
    auto ratio = [&](const char* what, const std::optional<Row>& other) {
        if (other && other->sample.ok && scanSave.sample.ok)
            std::printf("    %-30s %6.2f x\n", what,
                        scanSave.sample.seconds / other->sample.seconds);
        else
            std::printf("    %-30s %8s\n", what, "n/a");
    };
    ratio("vs find -printf", findRow);
    ratio("vs mtree -c", mtreeRow);
    ratio("vs bare walk, 1 thread", bare1);
    ratio("vs bare walk, 2 threads", bare2);
    const std::optional<Row> first = row("scan and save, first of its folder");
    if (first && first->sample.ok && bare2.sample.ok)
        std::printf("    %-30s %6.2f x\n", "first of its folder vs 2 threads",
                    first->sample.seconds / bare2.sample.seconds);
    if (bareReading.sample.ok && bare2.sample.ok)
        std::printf("\n  The floor under fingerprints: reading the files costs the bare walk "
                    "%.2f x its time.\n",
                    bareReading.sample.seconds / bare2.sample.seconds);

    std::vector<Target> targets;
    auto bytesPerEntry = [&](const Row& r) {
        return (r.sample.peakKb - r.baselineKb) * 1024.0 / r.entries;
    };
    if (scanSave.sample.ok && bare2.sample.ok)
        targets.push_back({QStringLiteral("scan and save / bare walk, 2 threads"),
                           scanSave.sample.seconds / bare2.sample.seconds, 1.15,
                           QStringLiteral("x")});
    targets.push_back({QStringLiteral("load"), loadRow.sample.seconds, 0.4, QStringLiteral("s")});
    targets.push_back({QStringLiteral("save"), saveRow.sample.seconds, 0.4, QStringLiteral("s")});
    targets.push_back({QStringLiteral("compare both ways"), compareSelf.sample.seconds, 0.3,
                       QStringLiteral("s")});
    // "No more than 1.5 x that when the listing order differs" reads two
    // ways: against the 0.3 s target, and against the time measured in the
    // same order. Both are shown.
    targets.push_back({QStringLiteral("compare, other listing order"),
                       compareShuffled.sample.seconds, 0.45, QStringLiteral("s")});
    targets.push_back({QStringLiteral("compare, other order / same order"),
                       compareShuffled.sample.seconds / compareSelf.sample.seconds, 1.5,
                       QStringLiteral("x")});
    targets.push_back({QStringLiteral("compare, permissions and owners / none"),
                       compareSelf.sample.seconds / compareBare.sample.seconds, 1.15,
                       QStringLiteral("x")});
    targets.push_back({QStringLiteral("scan with fingerprints / without"),
                       scanFingerprints.sample.seconds / scan.sample.seconds, 1.5,
                       QStringLiteral("x")});
    targets.push_back({QStringLiteral("move detection, 10,000 moves"), moveRow.sample.seconds, 0.2,
                       QStringLiteral("s")});
    const Row chain8Row = *row("scan, chain of 8,000 folders");
    const Row chain16Row = *row("scan, chain of 16,000 folders");
    targets.push_back({QStringLiteral("scan, chain of 8,000 folders"), chain8Row.sample.seconds, 1,
                       QStringLiteral("s")});
    targets.push_back({QStringLiteral("chain of 16,000 folders / of 8,000"),
                       chain16Row.sample.seconds / chain8Row.sample.seconds, 2.5,
                       QStringLiteral("x")});
    // The cost of the patterns is what they add to one comparison: measured
    // by turns in one process, as the separate rows above vary between
    // processes by more than the patterns cost. The rows' ratio is shown too.
    const Sample patternsCost =
        measureMedian({self(), QStringLiteral("--child"), QStringLiteral("patterns-cost"), snapshot,
                       snapshot, QStringLiteral("5")},
                      c.runs, true);
    std::printf("\n  Compare with 20 ignore patterns / none: %.3f x in one process by turns "
                "(median of %d processes of 5 rounds), %.3f x from the rows above.\n",
                patternsCost.seconds, c.runs,
                compareIgnoring.sample.seconds / compareSelf.sample.seconds);
    targets.push_back({QStringLiteral("compare, 20 ignore patterns / none"), patternsCost.seconds,
                       1.3, QStringLiteral("x")});
    // The patterns leave out about half the entries; the share kept is shown.
    std::printf("\n  The scan with half the tree excluded kept %.0f%% of the entries.\n",
                100.0 * double(scanExcluding.sample.entries) / n);
    targets.push_back({QStringLiteral("scan, half the tree excluded / all"),
                       scanExcluding.sample.seconds / scan.sample.seconds, 0.55,
                       QStringLiteral("x")});
    // Wall time, as the user waits; the processor time beside it is what a
    // machine busy with other work cannot inflate (the lines of a long list
    // are made by a few threads, so it may exceed the wall time).
    targets.push_back({QStringLiteral("kestrel-cli export, all sub-folders"),
                       exportRow.sample.seconds, 1.0, QStringLiteral("s")});
    targets.push_back({QStringLiteral("  the same, processor time"), exportRow.sample.cpuSeconds,
                       1.5, QStringLiteral("s")});
    targets.push_back({QStringLiteral("kestrel-cli report, 30,000 rows"), reportRow.sample.seconds,
                       5, QStringLiteral("s")});
    targets.push_back({QStringLiteral("  the same, processor time"), reportRow.sample.cpuSeconds, 5,
                       QStringLiteral("s")});
    targets.push_back({QStringLiteral("memory of a scanned snapshot"), bytesPerEntry(scan), 80,
                       QStringLiteral("B/entry")});
    targets.push_back({QStringLiteral("memory of a loaded snapshot"), bytesPerEntry(loadRow), 80,
                       QStringLiteral("B/entry")});

    QJsonArray scaling;
    if (c.scaleScan) {
        Config small = c;
        const QString smallTree = ensureTree(small, c.entries / 10);
        std::printf("\n  Scaling of the scan (tree of a tenth the size):\n");
        const Sample s = measureMedian(
            {self(), QStringLiteral("--child"), QStringLiteral("scan"), smallTree}, c.runs, true);
        if (s.ok && scan.sample.ok) {
            const double perSmall = s.seconds / double(s.entries),
                         perLarge = scan.sample.seconds / n;
            std::printf("    %.0f entries in %.3f s; per entry %.0f ns against %.0f ns at full "
                        "size (%.2f x)\n",
                        double(s.entries), s.seconds, perSmall * 1e9, perLarge * 1e9,
                        perLarge / perSmall);
            targets.push_back({QStringLiteral("scan time per entry, full size / a tenth"),
                               perLarge / perSmall, 1.1, QStringLiteral("x")});
        }
    }
    if (c.tenMillion) {
        const int64_t big = c.entries * 10;
        const QString bigFile =
            QStringLiteral("%1/generated-%2-%3.#01").arg(c.dir).arg(big).arg(c.seed);
        if (!QFileInfo::exists(bigFile)) {
            std::fprintf(stderr, "Generating a snapshot of %lld entries ...\n",
                         static_cast<long long>(big));
            runOnce({self(), QStringLiteral("--child"), QStringLiteral("generate"), bigFile,
                     QString::number(big), QString::number(c.seed)});
        }
        const int bigRuns = std::max(1, std::min(c.runs, 3));
        std::printf("\n  Scaling to ten times the entries (a generated snapshot, median of %d):\n",
                    bigRuns);
        const Sample l = measureMedian(
            {self(), QStringLiteral("--child"), QStringLiteral("load"), bigFile}, bigRuns, true);
        const Sample sv = measureMedian({self(), QStringLiteral("--child"), QStringLiteral("save"),
                                         bigFile, work + QStringLiteral("/big-saved.#01")},
                                        bigRuns, true);
        const Sample cp = measureMedian(
            {self(), QStringLiteral("--child"), QStringLiteral("compare"), bigFile, bigFile},
            bigRuns, true);
        auto line = [&](const char* what, const Sample& large, const Row& small) {
            if (!large.ok || !small.sample.ok)
                return;
            // Per entry, so that a generated file of another size still compares fairly.
            const double factor = (large.seconds / double(large.entries)) /
                                  (small.sample.seconds / small.entries) * 10;
            std::printf("    %-10s %9.3f s for %.0f entries: %.1f x the figure at a tenth\n", what,
                        large.seconds,
                        double(large.entries) /
                            (QLatin1String(what) == QLatin1String("compare") ? 2 : 1),
                        factor);
            targets.push_back(
                {QStringLiteral("%1 at ten times the entries").arg(QLatin1String(what)), factor, 11,
                 QStringLiteral("x")});
            scaling.append(QJsonObject{{QStringLiteral("operation"), QLatin1String(what)},
                                       {QStringLiteral("seconds"), large.seconds},
                                       {QStringLiteral("peak_kb"), large.peakKb},
                                       {QStringLiteral("factor"), factor}});
        };
        line("load", l, loadRow);
        line("save", sv, saveRow);
        line("compare", cp, compareSelf);
        if (cp.ok)
            std::printf("    memory of two compared snapshots: %.1f B/entry\n",
                        (cp.peakKb - baseline) * 1024.0 / double(cp.entries));
    }

    std::printf("\n  Targets:\n");
    QJsonArray targetJson;
    for (const Target& t : targets) {
        const bool met = t.value <= t.limit;
        std::printf("    %-45s %8.3f %-8s (at most %g) %s\n", qPrintable(t.what), t.value,
                    qPrintable(t.unit), t.limit, met ? "met" : "MISSED");
        targetJson.append(QJsonObject{{QStringLiteral("target"), t.what},
                                      {QStringLiteral("value"), t.value},
                                      {QStringLiteral("limit"), t.limit},
                                      {QStringLiteral("met"), met}});
    }
    if (!c.json.isEmpty()) {
        QJsonArray rowJson;
        for (const Row& r : rows)
            rowJson.append(toJson(r));
        QJsonObject doc{
            {QStringLiteral("tree"), tree},       {QStringLiteral("entries"), n},
            {QStringLiteral("runs"), c.runs},     {QStringLiteral("operations"), rowJson},
            {QStringLiteral("scaling"), scaling}, {QStringLiteral("targets"), targetJson}};
        QFile f(c.json);
        if (f.open(QIODevice::WriteOnly))
            f.write(QJsonDocument(doc).toJson());
    }
    return 0;
}

// The scan a user meets most: the first one of a disk nothing has read
// lately. Every run starts with the system's caches emptied.
// A tree of real files for the content fingerprints: DIR/content-FILES-SEED,
// FILES files of mixed sizes in folders of 100 (most a few kilobytes, some
// up to a megabyte, a few up to 8 MB: about 300 KB each on average). Made
// once; returns the tree and the bytes it holds.
std::pair<QString, double> ensureContentTree(const Config& c, int files) {
    const QString root = QStringLiteral("%1/content-%2-%3").arg(c.dir).arg(files).arg(c.seed);
    const QString done = root + QStringLiteral(".done");
    Random random(c.seed);
    std::vector<int64_t> sizes;
    double total = 0;
    for (int k = 0; k < files; ++k) {
        const double draw = double(random.next() >> 11) / double(1ull << 53);
        const int64_t high = draw < 0.78 ? 64 << 10 : draw < 0.96 ? 1 << 20 : 8 << 20;
        const int64_t low = high == (64 << 10) ? 1 : high >> 4;
        sizes.push_back(random.between(low, high));
        total += double(sizes.back());
    }
    if (QFileInfo::exists(done))
        return {root, total};
    std::fprintf(stderr, "Writing %d files, %.1f GB, to %s\n", files, total / 1e9,
                 qPrintable(root));
    std::vector<uint64_t> block(size_t(1) << 17);
    for (int k = 0; k < files; ++k) {
        const QString folder = root + QStringLiteral("/d%1").arg(k / 100);
        if (k % 100 == 0 && !QDir().mkpath(folder))
            throw std::runtime_error("cannot make " + folder.toStdString());
        QFile file(folder + QStringLiteral("/f%1.bin").arg(k));
        if (!file.open(QIODevice::WriteOnly))
            throw std::runtime_error("cannot write " + file.fileName().toStdString());
        for (int64_t left = sizes[size_t(k)]; left > 0;) {
            for (uint64_t& word : block)
                word = random.next();
            const int64_t step = std::min<int64_t>(left, int64_t(block.size() * 8));
            if (file.write(reinterpret_cast<const char*>(block.data()), step) != step)
                throw std::runtime_error("cannot write " + file.fileName().toStdString());
            left -= step;
        }
    }
    QFile(done).open(QIODevice::WriteOnly);
    return {root, total};
}

// Content fingerprints of real files against the tools a user would run
// over the same files, as many processes as cores: xxhsum -H128, sha256sum
// and cat (the read bandwidth).
// A folder's history: GENERATIONS snapshots of the tree, each with 0.1 % of
// its files changed, added or removed from the one before (made once, in
// DIR/history-ENTRIES-SEED), read and compared as the History window does,
// against loading the files alone and holding the largest two.
int driveHistory(const Config& c, int generations) {
    const QString tree = ensureTree(c, c.entries);
    const QString series = QStringLiteral("%1/history-%2-%3").arg(c.dir).arg(c.entries).arg(c.seed);
    QDir().mkpath(series);
    QStringList files;
    for (int g = 1; g <= generations; ++g) {
        const QString file =
            QStringLiteral("%1/Data.#%2").arg(series).arg(g, 2, 10, QLatin1Char('0'));
        if (!QFileInfo::exists(file)) {
            std::fprintf(stderr, "Making %s ...\n", qPrintable(file));
            if (g == 1)
                runOnce({sibling(QStringLiteral("kestrel-cli")), QStringLiteral("snapshot"), tree,
                         QStringLiteral("--output"), file});
            else
                runOnce({self(), QStringLiteral("--child"), QStringLiteral("variant"),
                         files.constLast(), file, QStringLiteral("generation%1").arg(g)});
        }
        files << file;
    }
    // The largest two files, for the memory two snapshots take.
    QStringList bySize = files;
    std::sort(bySize.begin(), bySize.end(), [](const QString& a, const QString& b) {
        return QFileInfo(a).size() > QFileInfo(b).size();
    });
    const auto child = [&](const QString& op, const QStringList& arguments) {
        return Command{QStringList{self(), QStringLiteral("--child"), op} + arguments, true, {}};
    };
    const std::vector<Command> commands = {
        child(QStringLiteral("history"), files),
        child(QStringLiteral("load-each"), files),
        child(QStringLiteral("hold-two"), bySize.mid(0, 2)),
        // Exit status 1 says that something changed: a success here.
        Command{{QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                 QStringLiteral("\"$0\" \"$@\"; test $? -le 1"),
                 sibling(QStringLiteral("kestrel-cli")), QStringLiteral("history"),
                 QStringLiteral("--summary"), files.constFirst()},
                false,
                QStringLiteral("/dev/null")},
    };
    const std::vector<Sample> s = measureInterleaved(commands, c.runs);
    const Sample& history = s[0];
    const Sample& loads = s[1];
    const Sample& two = s[2];
    const Sample& summary = s[3];
    std::printf("Kestrel history bench: %d generations of %s, median of %d runs in turns\n\n",
                generations, qPrintable(tree), c.runs);
    std::printf("  %-44s %8.3f s %9.1f MB peak, %lld changes\n",
                "history (loads, comparisons, index)", history.seconds, history.peakKb / 1024,
                static_cast<long long>(history.entries));
    std::printf("  %-44s %10s %9.1f MB\n", "  held once ready", "", history.residentKb / 1024);
    std::printf("  %-44s %8.3f s\n", "the files loaded one by one, summed", loads.seconds);
    std::printf("  %-44s %8.3f s %9.1f MB peak\n", "the largest two held at once", two.seconds,
                two.peakKb / 1024);
    std::printf("  %-44s %8.3f s\n", "kestrel-cli history --summary", summary.seconds);
    const double memoryLimit = 1.2 * two.peakKb + 24.0 * double(history.entries) / 1024;
    const struct {
        const char* what;
        double value;
        double limit;
        const char* unit;
    } targets[] = {
        {"history ready", history.seconds, 4, "s"},
        {"history / loads alone", history.seconds / loads.seconds, 1.3, "x"},
        {"history memory / limit", history.peakKb / memoryLimit, 1, "x"},
        {"kestrel-cli history --summary", summary.seconds, 4, "s"},
    };
    std::printf("\n  Targets (memory limit: 1.2 x the largest two + 24 B a change = %.1f MB):\n",
                memoryLimit / 1024);
    for (const auto& t : targets)
        std::printf("    %-45s %8.3f %-3s (at most %g) %s\n", t.what, t.value, t.unit, t.limit,
                    t.value <= t.limit ? "met" : "MISSED");
    return 0;
}

// How long a change report's page takes to open in headless Chromium and to
// answer typing in its filter box, as the tests' driver times them: the
// median of runs. Nothing when Chromium is missing or fails.
struct PageTimes {
    double readyMs = 0;
    double filterMs = 0;
};
std::optional<PageTimes> timePage(const QString& page, const QString& work, int runs) {
    const QString chromium = QStandardPaths::findExecutable(QStringLiteral("chromium"));
    QFile source(page), driver(QStringLiteral(KESTREL_REPORT_DRIVER));
    if (chromium.isEmpty() || !source.open(QIODevice::ReadOnly) ||
        !driver.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray copy = source.readAll();
    copy.insert(copy.lastIndexOf("</body>"),
                "<script>window.kestrelDriveSteps = [{\"do\":\"type\",\"text\":\"file0123\"},"
                "{\"do\":\"type\",\"text\":\"FILE01234\"},{\"do\":\"type\",\"text\":\"\"}];"
                "</script>\n<script>\n" +
                    driver.readAll() + "</script>\n");
    const QString driven = work + QStringLiteral("/report-driven.html");
    QFile out(driven);
    if (!out.open(QIODevice::WriteOnly) || out.write(copy) != copy.size())
        return std::nullopt;
    out.close();
    std::vector<double> ready, filter;
    for (int run = 0; run < runs; ++run) {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), work + QStringLiteral("/chromium-home"));
        process.setProcessEnvironment(environment);
        process.start(
            chromium,
            {QStringLiteral("--headless=new"), QStringLiteral("--no-sandbox"),
             QStringLiteral("--disable-gpu"), QStringLiteral("--no-first-run"),
             QStringLiteral("--user-data-dir=") + work + QStringLiteral("/chromium-profile"),
             QStringLiteral("--dump-dom"), QStringLiteral("--virtual-time-budget=10000"),
             QUrl::fromLocalFile(driven).toString()});
        if (!process.waitForFinished(120000))
            return std::nullopt;
        const QByteArray dom = process.readAllStandardOutput();
        const QByteArray start = "<pre id=\"kestrel-test-result\">";
        const qsizetype from = dom.lastIndexOf(start), to = dom.indexOf("</pre>", from);
        if (from < 0 || to < 0)
            return std::nullopt;
        const QJsonObject result =
            QJsonDocument::fromJson(dom.mid(from + start.size(), to - from - start.size()))
                .object();
        ready.push_back(result.value(QStringLiteral("ready")).toDouble());
        double slowest = 0;
        for (const QJsonValue& step : result.value(QStringLiteral("steps")).toArray())
            slowest = std::max(slowest, step.toObject().value(QStringLiteral("ms")).toDouble());
        filter.push_back(slowest);
    }
    const auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    return PageTimes{median(ready), median(filter)};
}

// Change reports of the tree's snapshot against copies with 10,000 and
// 100,000 differences: the time the report adds to a comparison, the size
// of the page, and the page of 100,000 in a browser.
int driveReport(const Config& c) {
    const QString tree = ensureTree(c, c.entries);
    const QString work = c.dir + QStringLiteral("/work");
    QDir().mkpath(work);
    const QString snapshot = work + QStringLiteral("/tree.#01");
    if (!QFileInfo::exists(snapshot))
        runOnce({sibling(QStringLiteral("kestrel-cli")), QStringLiteral("snapshot"), tree,
                 QStringLiteral("--output"), snapshot});
    QStringList variants;
    for (const int n : {10000, 100000}) {
        const QString file = work + QStringLiteral("/differences-%1.#01").arg(n);
        if (!QFileInfo::exists(file))
            runOnce({self(), QStringLiteral("--child"), QStringLiteral("variant"), snapshot, file,
                     QStringLiteral("differences%1").arg(n)});
        variants << file;
    }
    const QString json = work + QStringLiteral("/report-10000.json");
    const QString html = work + QStringLiteral("/report-10000.html");
    const QString large = work + QStringLiteral("/report-100000.html");
    const auto child = [&](const QStringList& arguments) {
        return Command{
            QStringList{self(), QStringLiteral("--child"), QStringLiteral("change-report")} +
                arguments,
            true,
            {}};
    };
    const std::vector<Sample> s = measureInterleaved(
        {child({snapshot, variants[0], QStringLiteral("json"), json}),
         child({snapshot, variants[0], QStringLiteral("html"), html}),
         child({snapshot, variants[1], QStringLiteral("html"), large}),
         // The whole command, loads and comparison included; exit status 1
         // says that something changed: a success here.
         Command{{QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                  QStringLiteral("\"$0\" \"$@\"; test $? -le 1"),
                  sibling(QStringLiteral("kestrel-cli")), QStringLiteral("compare"), snapshot,
                  variants[0], QStringLiteral("--format"), QStringLiteral("html"),
                  QStringLiteral("--output"), html},
                 false,
                 QStringLiteral("/dev/null")}},
        c.runs);
    const double largeMb = double(QFileInfo(large).size()) / (1024 * 1024);
    std::printf("Kestrel change report bench: %s against copies with 10,000 and 100,000 "
                "differences, median of %d runs in turns\n\n",
                qPrintable(snapshot), c.runs);
    std::printf("  %-44s %8.3f s, %lld changes\n", "JSON report, 10,000 differences", s[0].seconds,
                static_cast<long long>(s[0].entries));
    std::printf("  %-44s %8.3f s\n", "HTML report, 10,000 differences", s[1].seconds);
    std::printf("  %-44s %8.3f s, %.1f MB, %lld changes\n", "HTML report, 100,000 differences",
                s[2].seconds, largeMb, static_cast<long long>(s[2].entries));
    std::printf("  %-44s %8.3f s\n", "kestrel-cli compare --format html, 10,000", s[3].seconds);
    std::printf("    (the whole command: both files loaded, compared both ways, the page "
                "written)\n");
    const std::optional<PageTimes> page = timePage(large, work, c.runs);
    if (page)
        std::printf("  %-44s %8.0f ms to open, %.0f ms for the slowest filter\n",
                    "the page of 100,000 in headless Chromium", page->readyMs, page->filterMs);
    else
        std::printf(
            "  the page of 100,000 in headless Chromium: n/a (no chromium, or it failed)\n");
    struct {
        const char* what;
        double value;
        double limit;
        const char* unit;
    } targets[] = {
        {"JSON report, 10,000 differences", s[0].seconds, 1, "s"},
        {"HTML report, 10,000 differences", s[1].seconds, 1, "s"},
        {"HTML file, 100,000 differences", largeMb, 40, "MB"},
        {"page of 100,000 open in Chromium", page ? page->readyMs : -1, 3000, "ms"},
        {"page of 100,000, filter answers", page ? page->filterMs : -1, 300, "ms"},
    };
    std::printf("\n  Targets:\n");
    for (const auto& t : targets)
        std::printf("    %-45s %8.3f %-3s (at most %g) %s\n", t.what, t.value, t.unit, t.limit,
                    t.value < 0          ? "n/a"
                    : t.value <= t.limit ? "met"
                                         : "MISSED");
    return 0;
}

int driveContent(const Config& c, int files) {
    // Named apart, not as a structured binding: the lambda below takes tree.
    const std::pair<QString, double> content = ensureContentTree(c, files);
    const QString tree = content.first;
    const double bytes = content.second;
    const QString work = c.dir + QStringLiteral("/work");
    QDir().mkpath(work);
    const QString cores = QString::number(std::max(1u, std::thread::hardware_concurrency()));
    const auto each = [&](const QString& tool) {
        return Command{{QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                        QStringLiteral("find \"$0\" -type f -print0 | xargs -0 -n 64 -P %1 %2 "
                                       ">/dev/null")
                            .arg(cores, tool),
                        tree},
                       false,
                       {}};
    };
    const std::vector<Command> commands = {
        Command{{sibling(QStringLiteral("kestrel-cli")), QStringLiteral("snapshot"), tree,
                 QStringLiteral("--fingerprints"), QStringLiteral("--output"),
                 work + QStringLiteral("/content.#01")},
                false,
                QStringLiteral("/dev/null")},
        each(QStringLiteral("xxhsum -H2")), each(QStringLiteral("sha256sum")),
        each(QStringLiteral("cat"))};
    std::vector<Sample> samples;
    if (c.cold) {
        // Every run reads the files from the disk: the caches are emptied
        // before each.
        QString why;
        std::unique_ptr<ColdCache> cold = ColdCache::systemCaches(tree, why);
        if (!cold) {
            std::printf("Kestrel content bench, cold cache: cannot empty the system's caches "
                        "here (%s); skipped.\n",
                        qPrintable(why));
            return 0;
        }
        samples = measureInterleaved(commands, std::max(3, c.runs), [&] { return cold->empty(); });
    } else {
        // Warm the cache: every file read once.
        runOnce(commands.back().argv);
        samples = measureInterleaved(commands, c.runs);
    }
    const char* names[] = {"kestrel-cli snapshot --fingerprints", "xxhsum -H128", "sha256sum",
                           "cat > /dev/null"};
    std::printf("Kestrel content bench: %d files, %.2f GB, median of %d runs in turns, %s, %s "
                "processes for each tool\n\n",
                files, bytes / 1e9, c.cold ? std::max(3, c.runs) : c.runs,
                c.cold ? "caches emptied before every run" : "warm cache", qPrintable(cores));
    for (size_t k = 0; k < samples.size(); ++k)
        std::printf("  %-38s %8.3f s %9.0f MB/s\n", names[k], samples[k].seconds,
                    bytes / 1e6 / samples[k].seconds);
    const double kestrel = samples[0].seconds;
    if (c.cold) {
        double best = samples[1].seconds;
        for (size_t k = 2; k < samples.size(); ++k)
            best = std::min(best, samples[k].seconds);
        const double ratio = kestrel / best;
        std::printf("\n  Kestrel / fastest peer %6.2f x   (goal at most 1.2) %s\n", ratio,
                    ratio <= 1.2 ? "met" : "MISSED");
        return 0;
    }
    std::printf("\n  Kestrel / xxhsum      %6.2f x   (goal at most 1.15)\n",
                kestrel / samples[1].seconds);
    std::printf("  sha256sum / Kestrel   %6.2f x   (goal at least 3)\n",
                samples[2].seconds / kestrel);
    std::printf("  Kestrel / cat         %6.2f x\n", kestrel / samples[3].seconds);
    return 0;
}

int driveCold(const Config& c) {
    const QString tree = ensureTree(c, c.entries);
    QString why;
    std::unique_ptr<ColdCache> cold = ColdCache::prepare(
        c.dir, tree, c.entries,
        [&](const QString& path) {
            generateTreeOnDisk(path, TreeShape{c.entries, c.seed});
        },
        why);
    if (!cold) {
        std::printf(
            "Kestrel bench, cold cache: cannot empty the system's caches here (%s); skipped.\n",
            qPrintable(why));
        return 0;
    }
    const QString coldTree = cold->treePath();
    const QString work = c.dir + QStringLiteral("/work");
    QDir().mkpath(work);
    const QString cli = sibling(QStringLiteral("kestrel-cli"));
    const QString barewalk = sibling(QStringLiteral("kestrel-barewalk"));
    const QString find = QStandardPaths::findExecutable(QStringLiteral("find"));
    auto tool = [](QStringList argv) {
        return Command{std::move(argv), false, QStringLiteral("/dev/null")};
    };
    struct Operation {
        QString name;
        Command command;
    };
    std::vector<Operation> operations = {
        {QStringLiteral("scan and save (kestrel-cli snapshot)"),
         tool({cli, QStringLiteral("snapshot"), coldTree, QStringLiteral("--output"),
               work + QStringLiteral("/cold.#01")})},
    };
    for (const char* threads : {"2", "8", "32"})
        operations.push_back(
            {QStringLiteral("bare walk, %1 threads").arg(QLatin1String(threads)),
             tool({barewalk, QStringLiteral("-t"), QLatin1String(threads), coldTree})});
    if (!find.isEmpty())
        operations.push_back(
            {QStringLiteral("GNU find -printf"), tool({find, coldTree, QStringLiteral("-printf"),
                                                       QStringLiteral("%y %s %T@ %m %p\\n")})});
    std::vector<Command> commands;
    for (const Operation& o : operations)
        commands.push_back(o.command);
    const int runs = std::max(3, c.runs);
    const std::vector<Sample> samples =
        measureInterleaved(commands, runs, [&] { return cold->empty(); });

    std::printf(
        "Kestrel bench, cold cache: %s, %lld entries, caches emptied before every run (%s),\n"
        "median of %d runs taken in turns\n\n",
        qPrintable(coldTree), static_cast<long long>(c.entries), qPrintable(cold->method()), runs);
    double fastestWalk = 0;
    for (size_t k = 0; k < operations.size(); ++k) {
        const Sample& s = samples[k];
        if (!s.ok) {
            std::printf("  %-38s %10s\n", qPrintable(operations[k].name), "n/a");
            continue;
        }
        std::printf("  %-38s %9.3f s %9.3f s processor\n", qPrintable(operations[k].name),
                    s.seconds, s.cpuSeconds);
        if (operations[k].name.startsWith(QLatin1String("bare walk")) &&
            (fastestWalk == 0 || s.seconds < fastestWalk))
            fastestWalk = s.seconds;
    }
    if (samples[0].ok && fastestWalk > 0) {
        const double ratio = samples[0].seconds / fastestWalk;
        std::printf("\n  Targets:\n    %-45s %8.3f x        (at most 1.1) %s\n",
                    "cold scan and save / fastest bare walk", ratio,
                    ratio <= 1.1 ? "met" : "MISSED");
    }
    return 0;
}

// A tree on a file system with a delay on every request (a network share's
// round trips): Kestrel's scan as it chooses its workers, with one listing
// worker (what it did before it added workers for waiting listings), and
// the bare walk at 2, 8 and 32 threads.
int driveSlow(const Config& c) {
    const QString tree = ensureTree(c, c.entries);
    const QString slowfs = sibling(QStringLiteral("kestrel-slowfs"));
    const QString fusermount = QStandardPaths::findExecutable(QStringLiteral("fusermount3"));
    if (!QFileInfo::exists(slowfs) || fusermount.isEmpty()) {
        std::printf("Kestrel bench, slow file system: kestrel-slowfs (libfuse3) or fusermount3 is "
                    "missing; skipped.\n");
        return 0;
    }
    const QString mountPoint = c.dir + QStringLiteral("/slow.mnt");
    QDir().mkpath(mountPoint);
    QProcess::execute(fusermount, {QStringLiteral("-u"), QStringLiteral("-q"), mountPoint});
    if (QProcess::execute(slowfs, {tree, mountPoint, QString::number(c.slowMicroseconds),
                                   QStringLiteral("-o"), QStringLiteral("max_threads=64")}) != 0) {
        std::printf("Kestrel bench, slow file system: cannot mount one here; skipped.\n");
        return 0;
    }
    const QString barewalk = sibling(QStringLiteral("kestrel-barewalk"));
    auto child = [&](std::initializer_list<QString> words) {
        QStringList argv{self(), QStringLiteral("--child")};
        argv.append(QStringList(words));
        return Command{argv, true, {}};
    };
    auto tool = [](QStringList argv) {
        return Command{std::move(argv), false, QStringLiteral("/dev/null")};
    };
    const std::vector<std::pair<QString, Command>> operations = {
        {QStringLiteral("scan, workers as needed"), child({QStringLiteral("scan"), mountPoint})},
        {QStringLiteral("scan, one listing worker"),
         child({QStringLiteral("scan"), mountPoint, QStringLiteral("1")})},
        {QStringLiteral("bare walk, 2 threads"),
         tool({barewalk, QStringLiteral("-t"), QStringLiteral("2"), mountPoint})},
        {QStringLiteral("bare walk, 8 threads"),
         tool({barewalk, QStringLiteral("-t"), QStringLiteral("8"), mountPoint})},
        {QStringLiteral("bare walk, 32 threads"),
         tool({barewalk, QStringLiteral("-t"), QStringLiteral("32"), mountPoint})},
    };
    std::vector<Command> commands;
    for (const auto& o : operations)
        commands.push_back(o.second);
    const std::vector<Sample> samples = measureInterleaved(commands, c.runs);
    QProcess::execute(fusermount, {QStringLiteral("-u"), mountPoint});

    std::printf("Kestrel bench, slow file system: %lld entries behind %d microseconds a request, "
                "median of %d runs taken in turns\n\n",
                static_cast<long long>(c.entries), c.slowMicroseconds, c.runs);
    for (size_t k = 0; k < operations.size(); ++k) {
        if (samples[k].ok)
            std::printf("  %-38s %9.3f s\n", qPrintable(operations[k].first), samples[k].seconds);
        else
            std::printf("  %-38s %10s\n", qPrintable(operations[k].first), "n/a");
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QStringList args = QCoreApplication::arguments();
    if (args.size() > 1 && args.at(1) == QLatin1String("--child"))
        return child(args.mid(2));

    QCommandLineParser p;
    p.setApplicationDescription(QStringLiteral(
        "Measures Kestrel's scan, snapshot file and comparison on a generated tree against GNU "
        "find,\n"
        "mtree and a bare directory walk. The tree is made once in DIR and reused."));
    p.addHelpOption();
    const QCommandLineOption dir(QStringLiteral("dir"),
                                 QStringLiteral("Folder for the trees and files."),
                                 QStringLiteral("DIR"), QStringLiteral("bench-data"));
    const QCommandLineOption entries(QStringLiteral("entries"),
                                     QStringLiteral("Entries of the tree."), QStringLiteral("N"),
                                     QStringLiteral("1000000"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed of the generator."),
                                  QStringLiteral("S"), QStringLiteral("1"));
    const QCommandLineOption runs(QStringLiteral("runs"),
                                  QStringLiteral("Runs of each measurement."), QStringLiteral("R"),
                                  QStringLiteral("5"));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Also write the figures to FILE."),
                                  QStringLiteral("FILE"));
    const QCommandLineOption noBig(QStringLiteral("no-scaling"),
                                   QStringLiteral("Skip the scaling measurements."));
    const QCommandLineOption quick(
        QStringLiteral("quick"),
        QStringLiteral("A small tree, one run, no scaling: checks that the bench works."));
    const QCommandLineOption cold(
        QStringLiteral("cold"),
        QStringLiteral(
            "Measure the first scan of a tree nothing has read lately: scan and save, bare "
            "walks of 2, 8 and 32 threads and find, each after the system's caches are "
            "emptied (needs root; says so and skips otherwise)."));
    const QCommandLineOption slow(
        QStringLiteral("slow"),
        QStringLiteral(
            "Measure scans of the tree behind a file system that delays every request by "
            "MICROSECONDS (kestrel-slowfs, FUSE), as a network share does."),
        QStringLiteral("MICROSECONDS"));
    const QCommandLineOption content(
        QStringLiteral("content"),
        QStringLiteral(
            "Measure content fingerprints over FILES real files of mixed sizes up "
            "to 8 MB (20000 make about 6 GB) against xxhsum -H128, sha256sum and "
            "cat, run over the same files by one process per core; with --cold, each run "
            "after the system's caches are emptied."),
        QStringLiteral("FILES"));
    const QCommandLineOption history(
        QStringLiteral("history"),
        QStringLiteral("Measure a folder's history: GENERATIONS snapshots of the tree, each with "
                       "0.1 % of its files changed, added or removed, read and compared as the "
                       "History window does."),
        QStringLiteral("GENERATIONS"));
    const QCommandLineOption report(
        QStringLiteral("report"),
        QStringLiteral("Measure change reports (HTML and JSON) of the tree's snapshot against "
                       "copies with 10,000 and 100,000 differences, and the page of 100,000 in "
                       "headless Chromium."));
    p.addOptions(
        {dir, entries, seed, runs, json, noBig, quick, cold, slow, content, history, report});
    p.process(app);

    Config c;
    c.dir = QFileInfo(p.value(dir)).absoluteFilePath();
    c.entries = p.value(entries).toLongLong();
    c.seed = p.value(seed).toULongLong();
    c.runs = std::max(1, p.value(runs).toInt());
    c.json = p.value(json);
    c.tenMillion = c.scaleScan = !p.isSet(noBig);
    if (p.isSet(quick)) {
        c.entries = std::min<int64_t>(c.entries, 3000);
        c.runs = 1;
        c.tenMillion = c.scaleScan = false;
    }
    c.cold = p.isSet(cold);
    c.slowMicroseconds = p.isSet(slow) ? std::max(1, p.value(slow).toInt()) : 0;
    try {
        if (c.slowMicroseconds > 0)
            return driveSlow(c);
        if (p.isSet(history))
            return driveHistory(c, std::clamp(p.value(history).toInt(), 2, 99));
        if (p.isSet(content))
            return driveContent(c, std::max(1, p.value(content).toInt()));
        if (p.isSet(report))
            return driveReport(c);
        return c.cold ? driveCold(c) : drive(c);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kestrel-bench: %s\n", e.what());
        return 2;
    }
}
