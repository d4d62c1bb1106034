#include "Commands.h"

#include "CommandSupport.h"
#include "engine/support/Errors.h"

#include <cstdio>

namespace kestrel::cli {

namespace {

const char* const kUsage =
    "Usage: kestrel-cli COMMAND [options]\n"
    "\n"
    "Records the state of folder trees as snapshot files and compares them.\n"
    "\n"
    "Commands:\n"
    "  snapshot FOLDER       take a snapshot of FOLDER and save it as FOLDER.#NN\n"
    "  list SNAPSHOT|FOLDER  list the entries of a snapshot file or a folder\n"
    "  info SNAPSHOT         describe a snapshot file\n"
    "  convert SNAPSHOT OUT  save a snapshot file again in the current format\n"
    "  compare OLD NEW       list what changed between two snapshots or folders\n"
    "  history SNAPSHOT...   every numbered snapshot of a folder, each against the one before\n"
    "  export SNAPSHOT       write the file list of a folder as the Export dialog does\n"
    "  report SNAPSHOT       print the file list of a folder to a PDF file\n"
    "\n"
    "kestrel-cli COMMAND --help describes a command. Exit status: 0 success, 2 trouble\n"
    "(compare, history: 0 no differences, 1 differences, 2 trouble; snapshot: 3 saved with\n"
    "folders that could not be read).\n";

} // namespace

int run(const QStringList& arguments) {
    if (arguments.size() < 2) {
        std::fputs(kUsage, stderr);
        return ExitTrouble;
    }
    const QString command = arguments.at(1);
    QStringList rest = arguments.mid(1);
    // The name a command's usage line gives it.
    rest[0] = QStringLiteral("kestrel-cli ") + command;
    if (command == QLatin1String("--help") || command == QLatin1String("-h") ||
        command == QLatin1String("help")) {
        std::fputs(kUsage, stdout);
        return ExitOk;
    }
    if (command == QLatin1String("--version")) {
        std::printf("kestrel-cli %s\n", KESTREL_VERSION);
        return ExitOk;
    }
    // Each command with the title its unexpected failures are told under.
    struct Command {
        const char* name;
        int (*run)(const QStringList&);
        const char* failureTitle;
    };
    static const Command commands[] = {
        {"snapshot", snapshotCommand, "Error"},
        {"list", listCommand, "Error"},
        {"info", infoCommand, "Invalid Snapshot"},
        {"convert", convertCommand, "Error Writing Snapshot"},
        {"compare", compareCommand, "Error"},
        {"history", historyCommand, "Error"},
        {"export", exportCommand, "Error Writing Snapshot"},
        {"report", reportCommand, "Printing Error"},
    };
    for (const Command& c : commands) {
        if (command != QLatin1String(c.name))
            continue;
        // Running out of memory, or a thread that cannot start, ends the
        // command with a message and exit status 2, never with an abort.
        try {
            return c.run(rest);
        } catch (...) {
            printError(QLatin1String(c.failureTitle), engine::caughtError().text);
            return ExitTrouble;
        }
    }
    printError(QStringLiteral("Usage"), QStringLiteral("unknown command \"%1\"").arg(command));
    std::fputs(kUsage, stderr);
    return ExitTrouble;
}

} // namespace kestrel::cli
