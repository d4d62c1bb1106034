#include "CommandSupport.h"

#include "engine/OpenSnapshot.h"
#include "engine/Scan.h"
#include "engine/Snapshot.h"
#include "engine/SnapshotFile.h"

#include <QDir>
#include <QFileInfo>

#include <cstdlib>

namespace kestrel::cli {

using namespace engine;

void printError(const QString& title, const QString& text) {
    std::fprintf(stderr, "%s: %s\n", title.toLocal8Bit().constData(),
                 text.toLocal8Bit().constData());
}

void printMessage(const UserMessage& message) {
    printError(message.title, message.text);
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
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

QString withSeparator(QString path) {
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
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
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        std::exit(ExitOk);
    }
    if (parser.positionalArguments().size() != positionals) {
        printError(QStringLiteral("Usage"), usage);
        return false;
    }
    return true;
}

bool scanFolder(const QString& folder, Snapshot& snapshot, ProgressMeter& meter, QString* summary,
                const ScanSettings& settings) {
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
    const OpenOutcome outcome =
        OpenSnapshotFile(snapshot, QFileInfo(path).absoluteFilePath(), meter);
    if (outcome.ok) {
        if (summary)
            *summary = outcome.summary;
        return true;
    }
    if (outcome.message)
        printMessage(*outcome.message);
    else if (outcome.cancelled)
        printError(QStringLiteral("Kestrel"), QStringLiteral("Cancelled"));
    else
        printError(QStringLiteral("Invalid Snapshot"), outcome.error == ErrorCode::None
                                                           ? QStringLiteral("Not a snapshot file")
                                                           : errorText(outcome.error));
    return false;
}

bool obtainSnapshot(const QString& path, Snapshot& snapshot, ProgressMeter& meter) {
    if (QFileInfo(path).isDir()) {
        snapshot.header.recurse = true;
        snapshot.header.hidden = true;
        if (!scanFolder(path, snapshot, meter, nullptr, ScanSettings{}))
            return false;
        snapshot.header.title = NewSnapshotTitle(absoluteFolder(path), 1, false);
        return true;
    }
    return loadSnapshotFile(path, snapshot, meter, nullptr);
}

CompareOptions commandLineCompareOptions() {
    CompareOptions options;
    options.attributeCompareMask = uint16_t(~Attribute::Normal);
    return options;
}

} // namespace kestrel::cli
