#include "CommandSupport.h"

#include "engine/compare/IgnorePatterns.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::cli {

using namespace engine;

void printError(const QString& title, const QString& text) {
    std::fprintf(stderr, "%s: %s\n", title.toLocal8Bit().constData(),
                 text.toLocal8Bit().constData());
}

bool usageError(const QString& text) {
    printError(QStringLiteral("Usage"), text);
    return false;
}

// A message box as one line: its paragraphs joined by a blank.
void printMessage(const UserMessage& message) {
    QString text = message.text;
    text.replace(QStringLiteral("\n\n"), QStringLiteral(" "));
    printError(message.title, text);
}

void printLine(FILE* stream, const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fputc('\n', stream);
}

bool succeeded(const Outcome& outcome) {
    if (!outcome.ok && outcome.message)
        printMessage(*outcome.message);
    return outcome.ok;
}

QString absoluteFolder(const QString& path) {
    return absolutePath(path);
}

CommandLine::CommandLine(const QString& description) {
    parser.setApplicationDescription(description);
    parser.addHelpOption();
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
}

bool CommandLine::parse(const QStringList& arguments, int positionals, const QString& usage) {
    if (!parser.parse(arguments)) {
        printError(QStringLiteral("Usage"), parser.errorText());
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        // Qt's usage line names the program alone: put the command's name,
        // the first argument, in its place.
        QString help = parser.helpText();
        const QString programUsage =
            QStringLiteral("Usage: ") + QCoreApplication::arguments().value(0);
        if (help.startsWith(programUsage))
            help.replace(0, programUsage.size(), QStringLiteral("Usage: ") + arguments.value(0));
        std::fputs(help.toLocal8Bit().constData(), stdout);
        std::exit(ExitOk);
    }
    if (positionals >= 0 ? parser.positionalArguments().size() != positionals
                         : parser.positionalArguments().isEmpty()) {
        printError(QStringLiteral("Usage"), usage);
        return false;
    }
    return true;
}

QString scannedRoot(const QString& folder) {
    return withSeparator(storedPath(absoluteFolder(folder)));
}

bool scanSucceeded(const Outcome& outcome) {
    if (outcome.ok)
        return true;
    if (outcome.message)
        printMessage(*outcome.message);
    else if (outcome.cancelled)
        printError(QStringLiteral("Kestrel"), QStringLiteral("Cancelled"));
    return false;
}

bool scanFolder(const QString& folder, Snapshot& snapshot, ProgressMeter& meter, QString* summary,
                const ScanSettings& settings) {
    snapshot.header.rootFolder = scannedRoot(folder);
    const Outcome outcome = CreateSnapshot(snapshot, settings, meter);
    if (!scanSucceeded(outcome))
        return false;
    if (summary)
        *summary = outcome.summary;
    return true;
}

namespace {

const QString InvalidSnapshot = QStringLiteral("Invalid Snapshot");

// What keeps a path from being read as a snapshot file before any reader
// looks at it: it is missing, a folder, not a plain file (a pipe would keep
// the reader waiting) or empty. Prints that and returns false.
bool checkSnapshotPath(const QString& path) {
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) {
        printError(QStringLiteral("Error"),
                   QStringLiteral("Unable to open Snapshot (%1: %2)")
                       .arg(path, QString::fromLocal8Bit(std::strerror(errno))));
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        printError(InvalidSnapshot,
                   QStringLiteral("%1 is a folder, not a snapshot file").arg(path));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        printError(InvalidSnapshot,
                   QStringLiteral("%1 is a device, pipe or socket, not a snapshot file").arg(path));
        return false;
    }
    if (st.st_size == 0) {
        printError(InvalidSnapshot, QStringLiteral("%1 is empty, not a snapshot file").arg(path));
        return false;
    }
    return true;
}

// The message of a failed open, with what the user needs to find the fault:
// where the reading stopped, or that the file is no snapshot at all.
void printOpenFailure(const QString& path, const OpenOutcome& outcome) {
    if (outcome.cancelled && !outcome.message) {
        printError(QStringLiteral("Kestrel"), QStringLiteral("Cancelled"));
        return;
    }
    UserMessage message = outcome.message.value_or(
        UserMessage{InvalidSnapshot, errorText(outcome.error), MessageIcon::Exclamation});
    if (message.title == QLatin1String("Error")) {
        // The reader could not open the file: say why.
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            message.text += QStringLiteral(" (%1: %2)").arg(path, file.errorString());
    } else if (message.title == InvalidSnapshot) {
        if (!outcome.versions) // neither format's header could be read
            message.text =
                QStringLiteral("%1 is not a Kestrel snapshot file (%2 in its first lines)")
                    .arg(path, message.text);
        else if (outcome.failedEntry > 0)
            message.text += QStringLiteral(" in entry %1 of %2").arg(outcome.failedEntry).arg(path);
        else
            message.text += QStringLiteral(" in the first lines of %1").arg(path);
    }
    printMessage(message);
}

} // namespace

namespace {

// The snapshot on standard input is read whole into a file of a temporary
// folder and opened from there as any snapshot file is: a stream with side
// data or a file of either format, the same snapshot byte for byte.
bool loadStandardInput(Snapshot& snapshot, ProgressMeter& meter, QString* summary) {
    static bool taken = false;
    if (std::exchange(taken, true)) {
        printError(QStringLiteral("Usage"),
                   QStringLiteral("Standard input (-) holds one snapshot: it can be read once"));
        return false;
    }
    QTemporaryDir dir;
    const QString copy = dir.filePath(QStringLiteral("standard input"));
    QFile in, out(copy);
    if (!dir.isValid() || !in.open(STDIN_FILENO, QIODevice::ReadOnly) ||
        !out.open(QIODevice::WriteOnly)) {
        printError(QStringLiteral("Error"),
                   QStringLiteral("Unable to read Snapshot from standard input (%1)")
                       .arg(dir.isValid() ? out.errorString() : dir.errorString()));
        return false;
    }
    std::vector<char> block(size_t(1) << 20);
    qint64 n = 0;
    while ((n = in.read(block.data(), qint64(block.size()))) > 0)
        if (out.write(block.data(), n) != n)
            break;
    if (n < 0 || out.error() != QFileDevice::NoError || !out.flush()) {
        printError(QStringLiteral("Error"),
                   QStringLiteral("Unable to read Snapshot from standard input (%1)")
                       .arg(n < 0 ? in.errorString() : out.errorString()));
        return false;
    }
    out.close();
    if (!loadSnapshotFile(copy, snapshot, meter, summary))
        return false;
    snapshot.header.fileName = QStringLiteral("-");
    return true;
}

} // namespace

bool loadSnapshotFile(const QString& path, Snapshot& snapshot, ProgressMeter& meter,
                      QString* summary) {
    if (path == QLatin1String("-"))
        return loadStandardInput(snapshot, meter, summary);
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (!checkSnapshotPath(absolute))
        return false;
    const OpenOutcome outcome = OpenSnapshotFile(snapshot, absolute, meter);
    if (outcome.ok) {
        // A notice that comes with success (an imported or a cut file).
        if (outcome.message)
            printMessage(*outcome.message);
        if (summary)
            *summary = outcome.summary;
        return true;
    }
    printOpenFailure(absolute, outcome);
    return false;
}

bool namesFolder(const QString& path) {
    return path != QLatin1String("-") && pathInfo(nativeBytes(path)).folder;
}

bool obtainSnapshot(const QString& path, Snapshot& snapshot, ProgressMeter& meter,
                    bool fingerprints) {
    if (namesFolder(path)) {
        snapshot.header.recurse = true;
        snapshot.header.hidden = true;
        ScanSettings settings;
        settings.fingerprints = fingerprints;
        if (!scanFolder(path, snapshot, meter, nullptr, settings))
            return false;
        snapshot.header.title = NewSnapshotTitle(storedPath(absoluteFolder(path)), 1, false);
        return true;
    }
    return loadSnapshotFile(path, snapshot, meter, nullptr);
}

std::optional<ShowMode> namedShowMode(const QString& word) {
    const std::optional<ShowMode> mode = showModeNamed(word);
    if (!mode || *mode == ShowMode::None) {
        usageError(QStringLiteral("--show takes all, only, both, changed or diffs"));
        return std::nullopt;
    }
    return mode;
}

namespace {

const QString PatternsTitle = QStringLiteral("Ignore Patterns");

void printProblems(const IgnorePatterns& patterns) {
    for (const QString& problem : patterns.problems())
        printLine(stderr, problem);
}

// The bytes of a pattern file the user named: a regular file, through a
// link too. Nothing, with the reason printed, when it cannot be read.
std::optional<QByteArray> readPatternFile(const QString& path) {
    QFile file(path);
    if (!openForReading(file, QIODevice::ReadOnly)) {
        const int error = errno;
        printError(PatternsTitle,
                   path + QStringLiteral(": ") + engine::regularFileErrorText(error));
        return std::nullopt;
    }
    QByteArray text = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        printError(PatternsTitle, path + QStringLiteral(": ") + file.errorString());
        return std::nullopt;
    }
    return text;
}

} // namespace

std::optional<std::shared_ptr<const IgnorePatterns>>
patternsFromCommandLine(const QCommandLineParser& parser, const QCommandLineOption& patternOption,
                        const QCommandLineOption& filesOption,
                        const std::shared_ptr<const IgnorePatterns>& start) {
    auto patterns = std::make_shared<IgnorePatterns>();
    if (start)
        *patterns = *start;
    for (const QString& path : parser.values(filesOption)) {
        const std::optional<QByteArray> text = readPatternFile(path);
        if (!text)
            return std::nullopt;
        const IgnorePatterns more(std::string_view(text->constData(), size_t(text->size())), path);
        printProblems(more);
        patterns->append(more);
    }
    // Each value is one pattern: "line 2" is the second.
    QStringList values = parser.values(patternOption);
    for (QString& value : values)
        value.replace(QLatin1Char('\n'), QLatin1Char(' '));
    const QByteArray lines = values.join(QLatin1Char('\n')).toUtf8();
    const IgnorePatterns given(std::string_view(lines.constData(), size_t(lines.size())),
                               QStringLiteral("--") + patternOption.names().constFirst());
    printProblems(given);
    patterns->append(given);
    if (patterns->empty())
        return std::shared_ptr<const IgnorePatterns>();
    return std::shared_ptr<const IgnorePatterns>(std::move(patterns));
}

bool checkOwnPatterns(const Snapshot& snapshot) {
    if (!snapshot.ignoreFileProblem.isEmpty()) {
        printError(PatternsTitle, snapshot.header.rootFolder + snapshot.ignoreFileProblem);
        return false;
    }
    const std::string& own = snapshot.header.ownIgnorePatterns;
    if (!own.empty())
        printProblems(IgnorePatterns(own, snapshot.header.rootFolder +
                                              QString::fromLatin1(OwnIgnoreFileName)));
    return true;
}

CompareOptions commandLineCompareOptions() {
    CompareOptions options;
    options.attributeCompareMask = uint16_t(~Attribute::Normal);
    // A file only touched, its content the same, is no change unless asked.
    options.ignoreTouched = true;
    // Moved files are paired unless asked not to.
    options.detectMoves = true;
    return options;
}

} // namespace kestrel::cli
