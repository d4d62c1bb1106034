#include "Commands.h"

#include "CommandSupport.h"
#include "CompareReport.h"
#include "ComparisonOptions.h"
#include "TerminalProgress.h"

#include "engine/compare/Compare.h"
#include "engine/compare/ShowMode.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "output/ChangeDocument.h"
#include "output/ChangeList.h"
#include "output/PathOrder.h"

#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <QFileInfo>

#include <cstdio>
#include <optional>

namespace kestrel::cli {

using output::entriesInPathOrder;

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
    QCommandLineOption format{
        QStringLiteral("format"),
        QStringLiteral("Output format: text, csv, json (one document), jsonl (a header line, "
                       "then one\nchange a line) or html (one page to open in a browser). See "
                       "the manual page\nfor the JSON schema."),
        QStringLiteral("FORMAT"), QStringLiteral("text")};
    QCommandLineOption output{
        QStringLiteral("output"),
        QStringLiteral("Write the report to FILE (replaced whole, or not at all) instead of "
                       "standard\noutput."),
        QStringLiteral("FILE")};
    QCommandLineOption summary{
        QStringLiteral("summary"),
        QStringLiteral("Print only the summary line, the changes counted by kind, on standard "
                       "output.")};

    void addTo(QCommandLineParser& parser) const {
        parser.addPositionalArgument(QStringLiteral("OLD"),
                                     QStringLiteral("The earlier snapshot file or folder."));
        parser.addPositionalArgument(QStringLiteral("NEW"),
                                     QStringLiteral("The later snapshot file or folder."));
        comparison.addTo(parser);
        parser.addOptions({show, format, output, summary});
    }
};

enum class Format { Text, Csv, Json, Jsonl, Html };

// --show: ShowMode::None when not given; nothing, with the reason printed,
// when it names no show mode.
std::optional<ShowMode> chosenShowMode(const QCommandLineParser& p,
                                       const CompareCommandOptions& o) {
    if (!p.isSet(o.show))
        return ShowMode::None;
    return namedShowMode(p.value(o.show));
}

std::optional<Format> chosenFormat(const QCommandLineParser& p, const CompareCommandOptions& o,
                                   ShowMode showMode) {
    const QString name = p.value(o.format).toLower();
    const std::pair<const char*, Format> names[] = {{"text", Format::Text},
                                                    {"csv", Format::Csv},
                                                    {"json", Format::Json},
                                                    {"jsonl", Format::Jsonl},
                                                    {"html", Format::Html}};
    for (const auto& [text, format] : names) {
        if (name != QLatin1String(text))
            continue;
        // The rows of a show mode are entries, not changes: they have
        // no document of their own.
        if (showMode != ShowMode::None && (format == Format::Json || format == Format::Html)) {
            printError(QStringLiteral("Usage"),
                       QStringLiteral("--show takes --format text, csv or jsonl"));
            return std::nullopt;
        }
        return format;
    }
    printError(QStringLiteral("Usage"),
               QStringLiteral("--format takes text, csv, json, jsonl or html"));
    return std::nullopt;
}

// NEW's entries the show mode lists, in path order.
void writeShownEntries(CompareReport& report, const Snapshot& newer, ShowMode showMode) {
    for (const int32_t i : entriesInPathOrder(newer))
        if (rowShown(newer.entries.get(i), showMode))
            report.listed(i);
}

// The report of the changes in a format of its own, to standard output or
// (atomically) to a file.
bool writeDocument(Format format, const output::ChangeList& list,
                   const output::ReportContext& context, const QString& file) {
    const output::ChangeReportFormat kind =
        format == Format::Html   ? output::ChangeReportFormat::Html
        : format == Format::Json ? output::ChangeReportFormat::Json
                                 : output::ChangeReportFormat::JsonLines;
    if (!file.isEmpty())
        return succeeded(output::writeChangeReportFile(file, kind, list, context));
    const output::ByteSink write = [](std::string_view bytes) {
        return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
    };
    if (!output::writeChangeReport(kind, list, context, write) || std::fflush(stdout) != 0) {
        printError(QStringLiteral("Error Writing File"), QStringLiteral("standard output"));
        return false;
    }
    return true;
}

// The colours of the stored options with --use-settings, else the defaults.
output::ReportContext reportContext(const QCommandLineParser& p, const CompareCommandOptions& o,
                                    const QString& oldPath, const QString& newPath) {
    output::ReportContext context;
    context.oldFile = namesFolder(oldPath) ? QString() : QFileInfo(oldPath).absoluteFilePath();
    context.newFile = namesFolder(newPath) ? QString() : QFileInfo(newPath).absoluteFilePath();
    // Without the stored options the page keeps the program's default colours.
    if (p.isSet(o.comparison.useSettings)) {
        settings::Options options;
        settings::SettingsStore().getSettings(options);
        context.setColours(options.changedColour(), options.deletedColour());
    }
    return context;
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
    const std::optional<Format> format = chosenFormat(p, o, *showMode);
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
    int32_t total = 0;
    try {
        MoveList moves;
        if (options->detectMoves) {
            moves = detectMoves(older, 1, newer, 1);
            noteMoves(older, newer, moves);
        }
        const output::ChangeList list(newer, older, *options, moves);
        total = list.counts().total();
        if (p.isSet(o.summary)) {
            printLine(stdout, list.summaryText());
            return total > 0 ? ExitDifferences : ExitOk;
        }
        if (*format == Format::Text || *format == Format::Csv ||
            (*format == Format::Jsonl && *showMode != ShowMode::None)) {
            CompareReport report(*format == Format::Text  ? CompareReport::Text
                                 : *format == Format::Csv ? CompareReport::Csv
                                                          : CompareReport::Jsonl,
                                 newer, older, *options);
            if (*showMode == ShowMode::None)
                report.changes(list);
            else
                writeShownEntries(report, newer, *showMode);
        } else if (!writeDocument(*format, list, reportContext(p, o, oldPath, newPath),
                                  p.value(o.output))) {
            return ExitTrouble;
        }
        printLine(stderr, list.summaryText());
    } catch (const RuntimeError& e) {
        printError(QStringLiteral("Comparing Snapshots"), e.text());
        return ExitTrouble;
    }
    return total > 0 ? ExitDifferences : ExitOk;
}

} // namespace kestrel::cli
