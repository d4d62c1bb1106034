#include "Commands.h"

#include "CommandSupport.h"
#include "CompareReport.h"
#include "ComparisonOptions.h"
#include "PathOrder.h"
#include "TerminalProgress.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/compare/ShowMode.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"

#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <optional>

namespace kestrel::cli {

using namespace engine;

namespace {

const QString Description = QStringLiteral(
    "Compares two snapshots, each a snapshot file (current or version-2 format) or a folder\n"
    "scanned without saving, both ways. Lists every difference: + and the path of an entry\n"
    "only in NEW, - and the path of an entry only in OLD, ~ and the path of a changed\n"
    "file, what it was in OLD (\"[was ...]\") and the fields that changed, old and new\n"
    "(\"size 18 -> 9, modified 2025-02-16 05:23:41 -> 2026-11-24 18:28:51\"). Everything\n"
    "inside a folder that is only on one side is listed too. Paths are relative to the\n"
    "root; folders end with /. Lines come in path order, whatever order the file systems\n"
    "listed the folders in: name by name from the top, names compared byte by byte\n"
    "(UTF-8, as LC_ALL=C sort does), each folder followed by its contents; the summary\n"
    "line goes to standard error. A folder that one side could not list is shown as ?,\n"
    "its path and \" (unreadable)\", never as an addition or deletion; values that could\n"
    "not be read are \"unknown\" and never compared.\n"
    "Nothing is ignored unless asked; versions are compared only when both snapshots\n"
    "recorded them, and so are permissions, owners and groups, and where links point. Entries "
    "whose names match an ignore pattern (gitignore rules: *, ?,\n"
    "[...], **, a trailing / for folders only, a leading or middle / anchored at the\n"
    "snapshot's root, ! to take back, # comments), and everything beneath a matching\n"
    "folder, take no part: they are neither listed nor counted; the summary says how\n"
    "many were ignored. Each snapshot's own patterns, from the .kestrelignore its root\n"
    "folder held when it was taken, apply after those given here.\n"
    "Exit status: 0 no differences, 1 differences, 2 trouble.");

struct CompareCommandOptions {
    ComparisonOptions comparison;
    QCommandLineOption show{
        QStringLiteral("show"),
        QStringLiteral("List NEW's entries as the file list shows them instead: all, only (only "
                       "in NEW),\nboth, changed or diffs (all differences)."),
        QStringLiteral("MODE")};
    QCommandLineOption format{QStringLiteral("format"),
                              QStringLiteral("Output format: text, csv or jsonl."),
                              QStringLiteral("FORMAT"), QStringLiteral("text")};

    void addTo(QCommandLineParser& parser) const {
        parser.addPositionalArgument(QStringLiteral("OLD"),
                                     QStringLiteral("The earlier snapshot file or folder."));
        parser.addPositionalArgument(QStringLiteral("NEW"),
                                     QStringLiteral("The later snapshot file or folder."));
        comparison.addTo(parser);
        parser.addOptions({show, format});
    }
};

// --show: ShowMode::None when not given; nothing, with the reason printed,
// when it names no show mode.
std::optional<ShowMode> chosenShowMode(const QCommandLineParser& p,
                                       const CompareCommandOptions& o) {
    if (!p.isSet(o.show))
        return ShowMode::None;
    return namedShowMode(p.value(o.show));
}

std::optional<CompareReport::Format> chosenFormat(const QCommandLineParser& p,
                                                  const CompareCommandOptions& o) {
    const QString formatName = p.value(o.format).toLower();
    if (formatName == QLatin1String("text"))
        return CompareReport::Text;
    if (formatName == QLatin1String("csv"))
        return CompareReport::Csv;
    if (formatName == QLatin1String("jsonl"))
        return CompareReport::Jsonl;
    printError(QStringLiteral("Usage"), QStringLiteral("--format takes text, csv or jsonl"));
    return std::nullopt;
}

// The differences by kind; a folder one side could not list counts apart.
struct DifferenceCounts {
    int added = 0;
    int removed = 0;
    int changed = 0;
    int unreadable = 0;
    AccessCounts access;
    MoveList moves; // their entries are not counted as added or removed

    int total() const {
        return added + removed + changed + unreadable + moves.files + moves.folders;
    }
};

// Whether a difference is told by a move's line: a moved entry only on one
// side.
bool partOfMove(const Difference& d, const Snapshot& newer, const Snapshot& older) {
    if (d.kind == Difference::OnlyInOld)
        return older.movedTo.count(d.index) > 0;
    return d.kind == Difference::OnlyInNew && newer.movedFrom.count(d.index) > 0;
}

const Snapshot& sideOf(const Difference& d, const Snapshot& newer, const Snapshot& older) {
    return d.kind == Difference::OnlyInOld ? older : newer;
}

DifferenceCounts countDifferences(const std::vector<Difference>& differences, const Snapshot& newer,
                                  const Snapshot& older, MoveList moves) {
    DifferenceCounts counts;
    counts.moves = std::move(moves);
    for (const Difference& d : differences) {
        if (partOfMove(d, newer, older))
            continue;
        if (sideOf(d, newer, older).entry(d.index).isUnreadableMarker()) {
            ++counts.unreadable;
            continue;
        }
        (d.kind == Difference::OnlyInNew   ? counts.added
         : d.kind == Difference::OnlyInOld ? counts.removed
                                           : counts.changed)++;
        if (d.kind != Difference::OnlyInOld)
            counts.access.add(newer, d.index);
    }
    return counts;
}

// The moves first, then every other difference, by path: an entry only in
// OLD among NEW's, the kinds breaking the tie of a name that is on both
// sides. A file that moved with its folder is told by the folder's line.
void writeDifferences(CompareReport& report, std::vector<Difference>& differences,
                      const Snapshot& newer, const Snapshot& older, const MoveList& moves) {
    for (const Move& m : moves.moves) {
        const int32_t parent = older.entry(m.from).parent;
        const auto folder = older.movedTo.find(parent);
        if (!m.folder && folder != older.movedTo.end() &&
            newer.entry(m.to).parent == folder->second)
            continue;
        report.moved(m);
    }
    sortByPath(differences, [&](const Difference& d) {
        return pathSortKey(sideOf(d, newer, older).relativePath(d.index)) + '\0' + char(d.kind);
    });
    for (const Difference& d : differences)
        if (!partOfMove(d, newer, older))
            report.difference(d);
}

// NEW's entries the show mode lists, in path order.
void writeShownEntries(CompareReport& report, const Snapshot& newer, ShowMode showMode) {
    for (const int32_t i : entriesInPathOrder(newer))
        if (rowShown(newer.entries.get(i), showMode))
            report.listed(i);
}

// The summary line: the differences by kind, and what each side ignored.
QString summaryText(const DifferenceCounts& counts, const Snapshot& newer, const Snapshot& older) {
    // What calls for attention comes first.
    const QString alerts = alertsText(counts.access);
    QString summary = (alerts.isEmpty() ? QString() : alerts + QStringLiteral("; ")) +
                      QStringLiteral("%1 only in NEW, %2 only in OLD, %3 changed")
                          .arg(counts.added)
                          .arg(counts.removed)
                          .arg(counts.changed);
    if (const QString moved = movesText(counts.moves); !moved.isEmpty())
        summary += QStringLiteral(", ") + moved;
    const QString access = accessChangesText(counts.access);
    if (!access.isEmpty())
        summary += QStringLiteral(" (") + access + QLatin1Char(')');
    if (counts.unreadable > 0)
        summary += QStringLiteral(", ") + unreadableFoldersText(counts.unreadable) +
                   QStringLiteral(" on one side");
    if (newer.ignoredCount > 0 || older.ignoredCount > 0)
        summary += QStringLiteral(", %1 ignored in NEW, %2 in OLD")
                       .arg(formatCount(newer.ignoredCount), formatCount(older.ignoredCount));
    return summary;
}

} // namespace

int compareCommand(const QStringList& arguments) {
    CommandLine cl(Description);
    QCommandLineParser& p = cl.parser;
    const CompareCommandOptions o;
    o.addTo(p);
    if (!cl.parse(arguments, 2, QStringLiteral("kestrel-cli compare OLD NEW [options]")))
        return ExitTrouble;
    std::optional<CompareOptions> options = o.comparison.chosen(p);
    if (!options)
        return ExitTrouble;
    const std::optional<ShowMode> showMode = chosenShowMode(p, o);
    if (!showMode)
        return ExitTrouble;
    const std::optional<CompareReport::Format> format = chosenFormat(p, o);
    if (!format)
        return ExitTrouble;

    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot older, newer;
    // Snapshot files first: a folder compared with one that has content
    // fingerprints is scanned with them.
    const QString oldPath = p.positionalArguments().at(0), newPath = p.positionalArguments().at(1);
    const bool oldScanned = namesFolder(oldPath);
    if (!oldScanned && !obtainSnapshot(oldPath, older, meter))
        return ExitTrouble;
    if (!obtainSnapshot(newPath, newer, meter, older.fingerprints.taken()))
        return ExitTrouble;
    if (oldScanned && !obtainSnapshot(oldPath, older, meter, newer.fingerprints.taken()))
        return ExitTrouble;
    if (!checkOwnPatterns(older) || !checkOwnPatterns(newer))
        return ExitTrouble;
    // A snapshot taken without versions has none to compare.
    if (!older.header.versions || !newer.header.versions)
        options->ignoreVersion = true;

    // Moves are looked for below, NEW taken as the later snapshot.
    CompareOptions marking = *options;
    marking.detectMoves = false;
    const Outcome compared = CompareSnapshot(newer, 1, older, 1, true, marking, meter);
    if (!succeeded(compared))
        return ExitTrouble;
    // NEW is the later snapshot here, whatever the dates they carry say.
    newer.alerts.clear();
    older.alerts.clear();
    markAccessAlerts(newer, 1, older, *options);
    DifferenceCounts counts;
    try {
        MoveList moves;
        if (options->detectMoves) {
            moves = detectMoves(older, 1, newer, 1);
            noteMoves(older, newer, moves);
        }
        std::vector<Difference> differences = listDifferences(newer, older);
        CompareReport report(*format, newer, older, *options);
        counts = countDifferences(differences, newer, older, moves);
        if (*showMode == ShowMode::None)
            writeDifferences(report, differences, newer, older, counts.moves);
        else
            writeShownEntries(report, newer, *showMode);
    } catch (const RuntimeError& e) {
        printError(QStringLiteral("Comparing Snapshots"), e.text());
        return ExitTrouble;
    }
    printLine(stderr, summaryText(counts, newer, older));
    return counts.total() > 0 ? ExitDifferences : ExitOk;
}

} // namespace kestrel::cli
