#pragma once

#include "engine/compare/CompareOptions.h"
#include "engine/compare/ShowMode.h"
#include "engine/support/Errors.h"

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <memory>
#include <optional>

namespace kestrel::engine {
class IgnorePatterns;
class ProgressMeter;
class Snapshot;
struct ScanSettings;
} // namespace kestrel::engine

// What the commands of kestrel-cli share: exit statuses, error lines, the
// option parser and the ways to come by a snapshot.
namespace kestrel::cli {

inline constexpr int ExitOk = 0;
inline constexpr int ExitDifferences = 1;
inline constexpr int ExitTrouble = 2;
// snapshot: saved, but folders could not be read (their paths on standard error).
inline constexpr int ExitUnreadable = 3;

// "Title: text" on standard error.
void printError(const QString& title, const QString& text);
// "Usage: text" on standard error; returns false, for the caller to pass on.
bool usageError(const QString& text);
void printMessage(const engine::UserMessage& message);
// The text in UTF-8 and a line end.
void printLine(FILE* stream, const QString& text);

// Whether an operation succeeded; when not, its message (if any) is printed.
bool succeeded(const engine::Outcome& outcome);

// A folder as the user named it, made absolute without resolving links.
QString absoluteFolder(const QString& path);

// A parser with the options every command shares.
struct CommandLine {
    QCommandLineParser parser;
    explicit CommandLine(const QString& description);
    // Parses; on an error prints it and returns false (exit status 2). With
    // --help prints the help and ends the program. The first argument is the
    // command's name as its usage line shows it ("kestrel-cli compare").
    // positionals: how many arguments the command takes; -1 for one or more.
    bool parse(const QStringList& arguments, int positionals, const QString& usage);
};

// The root folder a folder named on the command line is scanned as.
QString scannedRoot(const QString& folder);
// Prints why a scan did not succeed (its message, or that it was
// cancelled); true when it succeeded.
bool scanSucceeded(const engine::Outcome& outcome);

// Scans a folder as a folder given on Kestrel's command line is scanned:
// sub-folders and hidden items, no versions. Failures are printed. Paths
// here are the command line's native text (engine/model/FileSystemNames.h).
bool scanFolder(const QString& folder, engine::Snapshot& snapshot, engine::ProgressMeter& meter,
                QString* summary, const engine::ScanSettings& settings);
// Opens a snapshot file of the current or the version-2 format, or with
// path "-" the snapshot on standard input (readable once). Failures are
// printed.
bool loadSnapshotFile(const QString& path, engine::Snapshot& snapshot, engine::ProgressMeter& meter,
                      QString* summary);
// A snapshot file is loaded, a folder scanned (titled as the desktop
// program titles a first snapshot of it), with content fingerprints when
// asked.
bool obtainSnapshot(const QString& path, engine::Snapshot& snapshot, engine::ProgressMeter& meter,
                    bool fingerprints = false);
// Whether the path names a folder, which obtainSnapshot scans.
bool namesFolder(const QString& path);

// The show mode a --show option names; nothing, with the reason printed,
// when it names none.
std::optional<engine::ShowMode> namedShowMode(const QString& word);

// Patterns given on the command line: start (may be null), then the lines
// of each file of filesOption, then each value of patternOption, one
// pattern each; the last that matches decides. Lines that cannot be
// compiled are printed and left out. Nothing, with the reason printed
// (exit status 2), when a file cannot be read; null when there are no
// patterns at all.
std::optional<std::shared_ptr<const engine::IgnorePatterns>>
patternsFromCommandLine(const QCommandLineParser& parser, const QCommandLineOption& patternOption,
                        const QCommandLineOption& filesOption,
                        const std::shared_ptr<const engine::IgnorePatterns>& start);

// Prints the lines of a snapshot's own patterns (.kestrelignore) that cannot
// be compiled; false, with the reason printed, when the scan could not read
// the file at all.
bool checkOwnPatterns(const engine::Snapshot& snapshot);

// How the command line compares unless told otherwise: moves paired, nothing ignored,
// every attribute but the normal bit, which only says that no other bit
// is set.
engine::CompareOptions commandLineCompareOptions();

} // namespace kestrel::cli
