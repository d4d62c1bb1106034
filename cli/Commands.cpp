#include "Commands.h"

#include "TerminalProgress.h"

#include "engine/OleDate.h"
#include "engine/RingWalk.h"
#include "engine/Scan.h"
#include "engine/Snapshot.h"
#include "engine/SnapshotFile.h"
#include "engine/TextFormats.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>

#include <cstdio>

namespace kestrel::cli {

using namespace engine;

namespace {

constexpr int ExitOk = 0;
constexpr int ExitTrouble = 2;

void printError(const QString& title, const QString& text) {
    std::fprintf(stderr, "%s: %s\n", title.toLocal8Bit().constData(),
                 text.toLocal8Bit().constData());
}

void printMessage(const UserMessage& message) { printError(message.title, message.text); }

void printLine(FILE* stream, const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fputc('\n', stream);
}

// A folder as the user named it, made absolute without resolving links.
QString absoluteFolder(const QString& path) {
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

QString withSeparator(QString path) {
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

// A parser with the options every command shares.
struct CommandLine {
    QCommandLineParser parser;
    explicit CommandLine(const QString& description) {
        parser.setApplicationDescription(description);
        parser.addHelpOption();
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    }
    // Parses; on an error prints it and returns false (exit status 2).
    bool parse(const QStringList& arguments, int positionals, const QString& usage) {
        if (!parser.parse(arguments)) {
            printError(QStringLiteral("Usage"), parser.errorText());
            return false;
        }
        if (parser.isSet(QStringLiteral("help"))) {
            std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
            std::exit(ExitOk);
        }
        if (parser.positionalArguments().size() != positionals) {
            printError(QStringLiteral("Usage"), usage);
            return false;
        }
        return true;
    }
};

// Scans a folder as a folder given on Kestrel's command line is scanned:
// sub-folders and hidden items, no versions.
bool scanFolder(const QString& folder, Snapshot& snapshot, ProgressMeter& meter, QString* summary,
                const ScanSettings& settings = {}) {
    snapshot.header.rootFolder = withSeparator(absoluteFolder(folder));
    const Outcome outcome = CreateSnapshot(snapshot, settings, meter);
    if (!outcome.ok) {
        if (outcome.message)
            printMessage(*outcome.message);
        else if (outcome.cancelled)
            printError(QStringLiteral("Kestrel"), QStringLiteral("Cancelled"));
        return false;
    }
    if (summary)
        *summary = outcome.summary;
    return true;
}

bool loadSnapshotFile(const QString& path, Snapshot& snapshot, ProgressMeter& meter,
                      QString* summary) {
    snapshot.header.fileName = QFileInfo(path).absoluteFilePath();
    const LoadOutcome outcome = LoadSnapshot(snapshot, meter);
    if (outcome.ok) {
        if (summary)
            *summary = outcome.summary;
        return true;
    }
    if (outcome.message)
        printMessage(*outcome.message);
    else if (outcome.error == ErrorCode::FileNotFound)
        printError(QStringLiteral("Error"), QStringLiteral("Unable to open Snapshot"));
    else
        printError(QStringLiteral("Invalid Snapshot"), errorText(outcome.error));
    return false;
}

// A snapshot file is loaded, a folder scanned.
bool obtainSnapshot(const QString& path, Snapshot& snapshot, ProgressMeter& meter) {
    if (QFileInfo(path).isDir()) {
        snapshot.header.recurse = true;
        snapshot.header.hidden = true;
        return scanFolder(path, snapshot, meter, nullptr);
    }
    return loadSnapshotFile(path, snapshot, meter, nullptr);
}

// Control characters and the backslash in a path, escaped so that each entry
// stays one tab-separated line.
QString escapedPath(const QString& path) {
    QString out;
    out.reserve(path.size());
    for (QChar c : path) {
        switch (c.unicode()) {
        case '\\':
            out += QStringLiteral("\\\\");
            break;
        case '\t':
            out += QStringLiteral("\\t");
            break;
        case '\n':
            out += QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        default:
            out += c;
        }
    }
    return out;
}

QString isoDateTime(double oleDate) {
    const DateParts p = datePartsFromOle(oleDate);
    return QString::asprintf("%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour,
                             p.minute, p.second);
}

QString plainNumber(double value) { return QString::number(value, 'f', 0); }

int snapshotCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Takes a snapshot of FOLDER and saves it as the next free FOLDER.#01 ... .#99 in DIR\n"
        "(the current folder by default). Prints the summary on standard error and the\n"
        "path written on standard output."));
    QCommandLineParser& p = cl.parser;
    p.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The folder to scan."));
    const QCommandLineOption output(QStringLiteral("output"), QStringLiteral("Save as FILE."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption dir(QStringLiteral("dir"),
                                 QStringLiteral("Keep the numbered snapshot file in DIR."),
                                 QStringLiteral("DIR"));
    const QCommandLineOption noRecurse(QStringLiteral("no-recurse"),
                                       QStringLiteral("Leave out the contents of sub-folders."));
    const QCommandLineOption noHidden(QStringLiteral("no-hidden"),
                                      QStringLiteral("Leave out hidden and system items."));
    const QCommandLineOption versions(
        QStringLiteral("versions"),
        QStringLiteral("Record the version of Windows executables in FOLDER and beneath it."),
        QStringLiteral("FOLDER"));
    const QCommandLineOption title(QStringLiteral("title"), QStringLiteral("The snapshot's title."),
                                   QStringLiteral("TEXT"));
    const QCommandLineOption meterLevel(
        QStringLiteral("meter"),
        QStringLiteral("Progress feedback: 0 faster processing, 1 standard, 2 maximum."),
        QStringLiteral("0|1|2"), QStringLiteral("1"));
    p.addOptions({output, dir, noRecurse, noHidden, versions, title, meterLevel});
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli snapshot FOLDER [options]")))
        return ExitTrouble;
    if (p.isSet(output) && p.isSet(dir)) {
        printError(QStringLiteral("Usage"), QStringLiteral("--output and --dir exclude each other"));
        return ExitTrouble;
    }
    bool levelOk = false;
    const int level = p.value(meterLevel).toInt(&levelOk);
    if (!levelOk || level < 0 || level > 2) {
        printError(QStringLiteral("Usage"), QStringLiteral("--meter takes 0, 1 or 2"));
        return ExitTrouble;
    }

    const QString folder = absoluteFolder(p.positionalArguments().at(0));
    Snapshot snapshot;
    snapshot.header.recurse = !p.isSet(noRecurse);
    snapshot.header.hidden = !p.isSet(noHidden);
    ScanSettings settings;
    settings.meterLevel = level;
    if (p.isSet(versions)) {
        snapshot.header.versions = true;
        settings.versionFolder = absoluteFolder(p.value(versions));
    }
    TerminalProgress view;
    ProgressMeter meter(&view);
    QString summary;
    if (!scanFolder(folder, snapshot, meter, &summary, settings))
        return ExitTrouble;

    QString path;
    if (p.isSet(output)) {
        path = QFileInfo(p.value(output)).absoluteFilePath();
    } else {
        const QString keepIn = withSeparator(absoluteFolder(p.isSet(dir) ? p.value(dir) : QStringLiteral(".")));
        path = keepIn + NextSnapshotName(SnapshotBaseName(snapshot.header.rootFolder), keepIn);
    }
    const int number = SnapshotNumberFromName(path);
    snapshot.header.title = p.isSet(title) ? p.value(title)
                                           : QStringLiteral("Snapshot #%1 of %2").arg(number).arg(folder);
    snapshot.header.fileName = path;
    const Outcome saved = SaveSnapshot(snapshot, meter);
    if (!saved.ok) {
        if (saved.message)
            printMessage(*saved.message);
        return ExitTrouble;
    }
    printLine(stderr, summary);
    printLine(stdout, path);
    return ExitOk;
}

int listCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Lists every entry of a snapshot file, or of a folder scanned without saving, one per\n"
        "line in table order: path below the root (folders end with /), size, modified\n"
        "(local yyyy-MM-dd hh:mm:ss), attributes and version, separated by tabs. Tabs, line\n"
        "breaks and backslashes in names are written as \\t, \\n, \\r and \\\\."));
    cl.parser.addPositionalArgument(QStringLiteral("SNAPSHOT|FOLDER"),
                                    QStringLiteral("A snapshot file or a folder."));
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli list SNAPSHOT|FOLDER")))
        return ExitTrouble;
    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot snapshot;
    if (!obtainSnapshot(cl.parser.positionalArguments().at(0), snapshot, meter))
        return ExitTrouble;
    QTextStream out(stdout);
    out.setEncoding(QStringConverter::Utf8);
    try {
        walkEntries(snapshot, [&](int32_t i, int) {
            const SnapshotEntry& e = snapshot.entry(i);
            const std::string_view version = snapshot.versionOf(e);
            out << escapedPath(snapshot.relativePath(i)) << '\t' << plainNumber(e.size) << '\t'
                << isoDateTime(e.modified) << '\t' << AttributeText(e.attributes) << '\t'
                << QString::fromUtf8(version.data(), qsizetype(version.size())) << '\n';
        });
    } catch (const RuntimeError& e) {
        out.flush();
        printError(QStringLiteral("Invalid Snapshot"), e.text());
        return ExitTrouble;
    }
    return ExitOk;
}

int infoCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral("Describes a snapshot file: title, root folder, creation time,\n"
                                  "scan flags, counts and total size."));
    cl.parser.addPositionalArgument(QStringLiteral("SNAPSHOT"), QStringLiteral("A snapshot file."));
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli info SNAPSHOT")))
        return ExitTrouble;
    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot s;
    if (!loadSnapshotFile(cl.parser.positionalArguments().at(0), s, meter, nullptr))
        return ExitTrouble;
    auto yesNo = [](bool b) { return b ? QStringLiteral("yes") : QStringLiteral("no"); };
    QTextStream out(stdout);
    out.setEncoding(QStringConverter::Utf8);
    out << "Title: " << s.header.title << '\n'
        << "Root folder: " << s.header.rootFolder << '\n'
        << "Created: " << isoDateTime(s.header.created) << '\n'
        << "Files in sub-folders: " << yesNo(s.header.recurse) << '\n'
        << "Hidden and system files: " << yesNo(s.header.hidden) << '\n'
        << "File versions: " << yesNo(s.header.versions) << '\n'
        << "Files: " << s.fileCount << '\n'
        << "Folders: " << s.folderCount << '\n'
        << "Total size: " << plainNumber(s.totalSize) << " bytes ("
        << FormatByteSize(s.totalSize, true) << ")\n";
    return ExitOk;
}

int convertCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Opens a snapshot file and saves it as OUTPUT in the current format, as Save As does."));
    cl.parser.addPositionalArgument(QStringLiteral("SNAPSHOT"), QStringLiteral("A snapshot file."));
    cl.parser.addPositionalArgument(QStringLiteral("OUTPUT"), QStringLiteral("The file to write."));
    if (!cl.parse(arguments, 2, QStringLiteral("kestrel-cli convert SNAPSHOT OUTPUT")))
        return ExitTrouble;
    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot snapshot;
    QString summary;
    if (!loadSnapshotFile(cl.parser.positionalArguments().at(0), snapshot, meter, &summary))
        return ExitTrouble;
    snapshot.header.fileName = QFileInfo(cl.parser.positionalArguments().at(1)).absoluteFilePath();
    const Outcome saved = SaveSnapshot(snapshot, meter);
    if (!saved.ok) {
        if (saved.message)
            printMessage(*saved.message);
        return ExitTrouble;
    }
    printLine(stderr, summary);
    printLine(stdout, snapshot.header.fileName);
    return ExitOk;
}

const char* const kUsage =
    "Usage: kestrel-cli COMMAND [options]\n"
    "\n"
    "Records the state of folder trees as snapshot files and lists them.\n"
    "\n"
    "Commands:\n"
    "  snapshot FOLDER       take a snapshot of FOLDER and save it as FOLDER.#NN\n"
    "  list SNAPSHOT|FOLDER  list the entries of a snapshot file or a folder\n"
    "  info SNAPSHOT         describe a snapshot file\n"
    "  convert SNAPSHOT OUT  save a snapshot file again in the current format\n"
    "\n"
    "kestrel-cli COMMAND --help describes a command. Exit status: 0 success, 2 trouble.\n";

} // namespace

int run(const QStringList& arguments) {
    if (arguments.size() < 2) {
        std::fputs(kUsage, stderr);
        return ExitTrouble;
    }
    const QString command = arguments.at(1);
    QStringList rest = arguments.mid(1);
    rest[0] = arguments.at(0) + QLatin1Char(' ') + command;
    if (command == QLatin1String("--help") || command == QLatin1String("-h") ||
        command == QLatin1String("help")) {
        std::fputs(kUsage, stdout);
        return ExitOk;
    }
    if (command == QLatin1String("--version")) {
        std::printf("kestrel-cli %s\n", KESTREL_VERSION);
        return ExitOk;
    }
    if (command == QLatin1String("snapshot"))
        return snapshotCommand(rest);
    if (command == QLatin1String("list"))
        return listCommand(rest);
    if (command == QLatin1String("info"))
        return infoCommand(rest);
    if (command == QLatin1String("convert"))
        return convertCommand(rest);
    printError(QStringLiteral("Usage"), QStringLiteral("unknown command \"%1\"").arg(command));
    std::fputs(kUsage, stderr);
    return ExitTrouble;
}

} // namespace kestrel::cli
