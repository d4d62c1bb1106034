#include "Commands.h"

#include "CommandSupport.h"
#include "EntryText.h"
#include "TerminalProgress.h"

#include "engine/file/FileWriting.h"
#include "engine/file/SaveBehind.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Paths.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <optional>
#include <unistd.h>

namespace kestrel::cli {

using namespace engine;

namespace {

const QString Description = QStringLiteral(
    "Takes a snapshot of FOLDER and saves it in DIR (the current folder by default) as\n"
    "FOLDER.#01 ... .#99, numbered one past the highest number there; when FOLDER.#99\n"
    "exists the series is full and nothing is replaced unless named with --output.\n"
    "Prints the summary on standard error and the path written on standard output.\n"
    "Folders that could not be read are recorded as such and their paths printed on\n"
    "standard error. Entries matching an --exclude pattern (gitignore rules; a leading\n"
    "or middle / anchors at FOLDER) are not recorded, and excluded folders are never\n"
    "opened. A .kestrelignore file in FOLDER is recorded with the snapshot (in\n"
    "FILE.ignore beside it) and its patterns apply whenever the snapshot is compared; one\n"
    "that cannot be read is said after the save, with exit status 2.\n"
    "Permissions, owners and groups, and link targets are saved beside the snapshot\n"
    "file, in FILE.meta. With --output - the snapshot and those go to standard output\n"
    "as one stream that every command reads back, from a file or from standard input\n"
    "given as -: ssh HOST kestrel-cli snapshot /etc --output - > HOST.#01\n"
    "Exit status: 0 saved, 3 saved with folders that could not be read, 2 trouble.");

struct SnapshotOptions {
    QCommandLineOption output{QStringLiteral("output"),
                              QStringLiteral("Save as FILE; - writes to standard output."),
                              QStringLiteral("FILE")};
    QCommandLineOption dir{QStringLiteral("dir"),
                           QStringLiteral("Keep the numbered snapshot file in DIR."),
                           QStringLiteral("DIR")};
    QCommandLineOption noRecurse{QStringLiteral("no-recurse"),
                                 QStringLiteral("Leave out the contents of sub-folders.")};
    QCommandLineOption noHidden{QStringLiteral("no-hidden"),
                                QStringLiteral("Leave out hidden and system items.")};
    QCommandLineOption versions{
        QStringLiteral("versions"),
        QStringLiteral("Record the version of Windows executables in FOLDER and beneath it."),
        QStringLiteral("FOLDER")};
    QCommandLineOption title{QStringLiteral("title"), QStringLiteral("The snapshot's title."),
                             QStringLiteral("TEXT")};
    QCommandLineOption exclude{
        QStringLiteral("exclude"),
        QStringLiteral("Leave out entries matching PATTERN, e.g. /proc/ (repeatable)."),
        QStringLiteral("PATTERN")};
    QCommandLineOption excludeFrom{
        QStringLiteral("exclude-from"),
        QStringLiteral("Leave out entries matching the patterns of FILE, one a line."),
        QStringLiteral("FILE")};
    QCommandLineOption oneFileSystem{
        QStringLiteral("one-file-system"),
        QStringLiteral("Do not go into folders of other mounted file systems (they are "
                       "recorded, empty).")};
    QCommandLineOption fingerprints{
        QStringLiteral("fingerprints"),
        QStringLiteral("Read every regular file for its content fingerprint (128-bit XXH3, as "
                       "xxhsum -H128 gives it), kept beside the snapshot in FILE.meta.")};
    QCommandLineOption meterLevel{
        QStringLiteral("meter"),
        QStringLiteral("Progress feedback: 0 faster processing, 1 standard, 2 maximum."),
        QStringLiteral("0|1|2"), QStringLiteral("1")};

    void addTo(QCommandLineParser& parser) const {
        parser.addPositionalArgument(QStringLiteral("FOLDER"),
                                     QStringLiteral("The folder to scan."));
        parser.addOptions({output, dir, noRecurse, noHidden, versions, title, exclude, excludeFrom,
                           oneFileSystem, fingerprints, meterLevel});
    }
};

// The options that exclude each other, and the meter level; nothing, with
// the reason printed, when they are not usable.
std::optional<int> checkedMeterLevel(const QCommandLineParser& p, const SnapshotOptions& o) {
    if (p.isSet(o.output) && p.isSet(o.dir)) {
        printError(QStringLiteral("Usage"),
                   QStringLiteral("--output and --dir exclude each other"));
        return std::nullopt;
    }
    bool levelOk = false;
    const int level = p.value(o.meterLevel).toInt(&levelOk);
    if (!levelOk || level < 0 || level > 2) {
        printError(QStringLiteral("Usage"), QStringLiteral("--meter takes 0, 1 or 2"));
        return std::nullopt;
    }
    return level;
}

// The scan itself records a folder it cannot list as one nameless entry; a
// folder named here that is not there is a mistake worth saying so.
bool checkFolder(const QString& folder) {
    const PathInfo folderInfo = pathInfo(nativeBytes(folder));
    if (!folderInfo.exists) {
        printError(QStringLiteral("Folder Not Found"),
                   storedPath(folder) + QStringLiteral(" does not exist"));
        return false;
    }
    if (!folderInfo.folder) {
        printError(QStringLiteral("Not a Folder"),
                   storedPath(folder) + QStringLiteral(" is not a folder"));
        return false;
    }
    return true;
}

// The file to save: --output as given, otherwise the next number of the
// folder's series in --dir. Empty, with the reason printed, when the series
// is full.
QString snapshotPath(const QCommandLineParser& p, const SnapshotOptions& o, const QString& folder) {
    if (p.isSet(o.output))
        return p.value(o.output) == QLatin1String("-")
                   ? p.value(o.output)
                   : QFileInfo(p.value(o.output)).absoluteFilePath();
    const QString keepIn =
        withSeparator(absoluteFolder(p.isSet(o.dir) ? p.value(o.dir) : QStringLiteral(".")));
    const QString path = keepIn + NextSnapshotName(SnapshotBaseName(storedPath(folder)), keepIn);
    // The next name is taken only when the 99th exists: nothing is replaced
    // unless named with --output.
    if (nameTaken(path)) {
        printError(QStringLiteral("Error Writing Snapshot"),
                   path + QStringLiteral(" exists: the series is full"));
        return QString();
    }
    return path;
}

// The summary and the folders that could not be read; the exit status.
int printScanned(const Snapshot& snapshot, const QString& summary) {
    printLine(stderr, summary);
    // The scan counted them: the pass over every entry is only made for some.
    const std::vector<int32_t> unreadable =
        snapshot.unreadableFolders > 0 ? UnreadableFolders(snapshot) : std::vector<int32_t>();
    for (const int32_t folder : unreadable)
        printLine(stderr, QStringLiteral("Could not be read: ") + snapshot.header.rootFolder +
                              escapedPath(snapshot.relativePath(folder)));
    return unreadable.empty() ? ExitOk : ExitUnreadable;
}

// The same and the path written.
int printSaved(const Snapshot& snapshot, const QString& summary, const QString& path) {
    const int status = printScanned(snapshot, summary);
    printLine(stdout, path);
    return status;
}

// --output -: the snapshot and its side data as one stream on standard
// output, for a pipe (ssh HOST kestrel-cli snapshot /etc --output - > HOST.#01).
int streamSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter) {
    const Outcome scanned = CreateSnapshot(snapshot, settings, meter);
    if (!scanSucceeded(scanned))
        return ExitTrouble;
    QFile out;
    if (!out.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered) ||
        !succeeded(WriteSnapshotStream(snapshot, out, meter)))
        return ExitTrouble;
    const int status = printScanned(snapshot, scanned.summary);
    return checkOwnPatterns(snapshot) ? status : ExitTrouble;
}

} // namespace

int snapshotCommand(const QStringList& arguments) {
    CommandLine cl(Description);
    QCommandLineParser& p = cl.parser;
    const SnapshotOptions o;
    o.addTo(p);
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli snapshot FOLDER [options]")))
        return ExitTrouble;
    const std::optional<int> level = checkedMeterLevel(p, o);
    if (!level)
        return ExitTrouble;
    const QString folder = absoluteFolder(p.positionalArguments().at(0));
    if (!checkFolder(folder))
        return ExitTrouble;
    const QString path = snapshotPath(p, o, folder);
    if (path.isEmpty())
        return ExitTrouble;

    Snapshot snapshot;
    snapshot.header.recurse = !p.isSet(o.noRecurse);
    snapshot.header.hidden = !p.isSet(o.noHidden);
    const auto excluded = patternsFromCommandLine(p, o.exclude, o.excludeFrom, nullptr);
    if (!excluded)
        return ExitTrouble;
    ScanSettings settings;
    settings.meterLevel = *level;
    settings.exclude = *excluded;
    settings.oneFileSystem = p.isSet(o.oneFileSystem);
    settings.fingerprints = p.isSet(o.fingerprints);
    if (p.isSet(o.versions)) {
        snapshot.header.versions = true;
        settings.versionFolder = absoluteFolder(p.value(o.versions));
    }
    // A file named without a snapshot number is the first of its series.
    const int16_t number = std::max<int16_t>(SnapshotNumberFromName(path), 1);
    snapshot.header.title =
        p.isSet(o.title) ? p.value(o.title) : NewSnapshotTitle(storedPath(folder), number, false);
    snapshot.header.fileName = path;
    snapshot.header.rootFolder = scannedRoot(folder);
    TerminalProgress view;
    ProgressMeter meter(&view);
    if (path == QLatin1String("-"))
        return streamSnapshot(snapshot, settings, meter);
    const ScanAndSaveOutcome done = ScanAndSaveSnapshot(snapshot, settings, meter);
    if (!scanSucceeded(done.scan) || !succeeded(done.save))
        return ExitTrouble;
    const int status = printSaved(snapshot, done.scan.summary, path);
    // Saved whole all the same: a bad pattern file loses nothing.
    return checkOwnPatterns(snapshot) ? status : ExitTrouble;
}

} // namespace kestrel::cli
