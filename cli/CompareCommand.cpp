#include "Commands.h"

#include "CommandSupport.h"
#include "CompareReport.h"
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
    QCommandLineOption ignoreSize{QStringLiteral("ignore-size"),
                                  QStringLiteral("Ignore file sizes.")};
    QCommandLineOption ignoreVersion{QStringLiteral("ignore-version"),
                                     QStringLiteral("Ignore file versions.")};
    QCommandLineOption ignoreDst{
        QStringLiteral("ignore-dst"),
        QStringLiteral("Ignore dates that differ by one hour (clock changes), give or take the "
                       "tolerance.")};
    QCommandLineOption ignoreAttributes{
        QStringLiteral("ignore-attributes"),
        QStringLiteral(
            "Leave these attributes out of the comparison: R read-only, H hidden, S system,\n"
            "A archive. Without it every attribute counts but the normal bit, which only says\n"
            "that no other bit is set."),
        QStringLiteral("R,H,S,A")};
    QCommandLineOption ignorePermissions{
        QStringLiteral("ignore-permissions"),
        QStringLiteral(
            "Ignore permission bits (set-user-ID, set-group-ID and sticky among them).")};
    QCommandLineOption ignoreOwner{QStringLiteral("ignore-owner"),
                                   QStringLiteral("Ignore owners and groups.")};
    QCommandLineOption noMoves{
        QStringLiteral("no-moves"),
        QStringLiteral("Do not pair files only in OLD with files only in NEW as moves (a move "
                       "is printed as \">\tOLD PATH -> NEW PATH\" in place of its - and + "
                       "lines).")};
    QCommandLineOption touched{
        QStringLiteral("touched"),
        QStringLiteral("Report a file whose date changed though its content fingerprint did "
                       "not (by default such a file is unchanged).")};
    QCommandLineOption tolerance{
        QStringLiteral("tolerance"),
        QStringLiteral("Dates that differ by this much or less are the same: seconds, or e.g. "
                       "2s, 90m, 1h, 3d."),
        QStringLiteral("DURATION")};
    QCommandLineOption ignore{
        QStringLiteral("ignore"),
        QStringLiteral("Ignore entries matching PATTERN (repeatable; the last that matches "
                       "decides)."),
        QStringLiteral("PATTERN")};
    QCommandLineOption ignoreFrom{
        QStringLiteral("ignore-from"),
        QStringLiteral("Ignore entries matching the patterns of FILE, one a line (before "
                       "--ignore's)."),
        QStringLiteral("FILE")};
    QCommandLineOption useSettings{
        QStringLiteral("use-settings"),
        QStringLiteral(
            "Start from the ignore options stored by Kestrel's options dialog, its ignore\n"
            "patterns first. There the attributes ticked under \"Ignore attributes\" are the\n"
            "only ones compared, and none are while that box is off.")};
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
        parser.addOptions({ignoreSize, ignoreVersion, ignoreDst, ignoreAttributes,
                           ignorePermissions, ignoreOwner, touched, noMoves, tolerance, ignore,
                           ignoreFrom, useSettings, show, format});
    }
};

// A tolerance: seconds, or numbers with units s, m, h, d, w, y ("90", "2s",
// "1h30m", "3d"). Returns days, or -1 when the text is not a duration.
double parseDuration(const QString& text) {
    const QString t = text.trimmed().toLower();
    if (t.isEmpty())
        return -1;
    bool plain = false;
    const double seconds = t.toDouble(&plain);
    if (plain)
        return seconds >= 0 ? seconds / 86400 : -1;
    double total = 0;
    qsizetype i = 0;
    while (i < t.size()) {
        const qsizetype start = i;
        while (i < t.size() && (t.at(i).isDigit() || t.at(i) == QLatin1Char('.')))
            ++i;
        bool ok = false;
        const double n = t.mid(start, i - start).toDouble(&ok);
        if (!ok || i >= t.size())
            return -1;
        switch (t.at(i).unicode()) {
        case 's':
            total += n;
            break;
        case 'm':
            total += n * 60;
            break;
        case 'h':
            total += n * 3600;
            break;
        case 'd':
            total += n * 86400;
            break;
        case 'w':
            total += n * 7 * 86400;
            break;
        case 'y':
            total += n * 365 * 86400;
            break;
        default:
            return -1;
        }
        ++i;
    }
    return total / 86400;
}

// "R,H,S,A" as the attribute bits whose differences are ignored.
bool parseAttributes(const QString& text, int16_t& mask) {
    mask = 0;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString p = part.trimmed().toUpper();
        if (p == QLatin1String("R"))
            mask |= Attribute::ReadOnly;
        else if (p == QLatin1String("H"))
            mask |= Attribute::Hidden;
        else if (p == QLatin1String("S"))
            mask |= Attribute::System;
        else if (p == QLatin1String("A"))
            mask |= Attribute::Archive;
        else
            return false;
    }
    return true;
}

// What the comparison ignores: nothing, or what the options dialog stored,
// and then what the options ask. Nothing, with the reason printed, when an
// option's value is not understood.
std::optional<CompareOptions> chosenCompareOptions(const QCommandLineParser& p,
                                                   const CompareCommandOptions& o) {
    // The normal bit changes whenever any other bit does, so comparing it
    // would report what --ignore-attributes asked to leave out.
    CompareOptions options = commandLineCompareOptions();
    if (p.isSet(o.useSettings)) {
        settings::Options stored;
        settings::SettingsStore().getSettings(stored);
        options = stored.compareOptions();
        for (const QString& problem : stored.patternProblems())
            printLine(stderr, problem);
    }
    options.ignoreSize |= p.isSet(o.ignoreSize);
    options.ignoreVersion |= p.isSet(o.ignoreVersion);
    options.ignoreDst |= p.isSet(o.ignoreDst);
    options.ignorePermissions |= p.isSet(o.ignorePermissions);
    options.ignoreOwner |= p.isSet(o.ignoreOwner);
    if (p.isSet(o.touched))
        options.ignoreTouched = false;
    if (p.isSet(o.ignoreAttributes)) {
        int16_t mask = 0;
        if (!parseAttributes(p.value(o.ignoreAttributes), mask)) {
            printError(QStringLiteral("Usage"),
                       QStringLiteral("--ignore-attributes takes letters among R,H,S,A"));
            return std::nullopt;
        }
        options.attributeCompareMask &= uint16_t(~mask);
    }
    if (p.isSet(o.tolerance)) {
        const double days = parseDuration(p.value(o.tolerance));
        if (days < 0) {
            printError(
                QStringLiteral("Usage"),
                QStringLiteral("--tolerance takes seconds or a duration such as 2s, 1h, 3d"));
            return std::nullopt;
        }
        options.dateTolerance = days;
    }
    const auto patterns =
        patternsFromCommandLine(p, o.ignore, o.ignoreFrom, options.ignorePatterns);
    if (!patterns)
        return std::nullopt;
    options.ignorePatterns = *patterns;
    return options;
}

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
    std::optional<CompareOptions> options = chosenCompareOptions(p, o);
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
    options->detectMoves = false;
    const Outcome compared = CompareSnapshot(newer, 1, older, 1, true, *options, meter);
    if (!succeeded(compared))
        return ExitTrouble;
    // NEW is the later snapshot here, whatever the dates they carry say.
    newer.alerts.clear();
    older.alerts.clear();
    markAccessAlerts(newer, 1, older, *options);
    DifferenceCounts counts;
    try {
        MoveList moves;
        if (!p.isSet(o.noMoves)) {
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
