#include "Commands.h"

#include "CommandSupport.h"
#include "EntryText.h"
#include "TerminalProgress.h"

#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "output/PathOrder.h"

#include <QTextStream>

namespace kestrel::cli {

using output::entriesInPathOrder;

using namespace engine;

int listCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Lists every entry of a snapshot file, or of a folder scanned without saving, one per\n"
        "line: path below the root (folders end with /), size, modified (local yyyy-MM-dd\n"
        "hh:mm:ss), attributes and version, separated by tabs. Tabs, line breaks and\n"
        "backslashes in names are written as \\t, \\n, \\r and \\\\, other control characters\n"
        "as \\x and two hexadecimal digits for each byte. Values that could not be read\n"
        "are \"unknown\"; a folder that could not be listed is followed by a line with its\n"
        "path and \" (unreadable)\".\n"
        "Entries come in path order, whatever order the file system listed them in: name by\n"
        "name from the top, names compared byte by byte (UTF-8, as LC_ALL=C sort does), each\n"
        "folder followed by its contents."));
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
        for (const int32_t i : entriesInPathOrder(snapshot)) {
            const SnapshotEntry& e = snapshot.entry(i);
            if (e.isUnreadableMarker()) {
                out << unreadableText(snapshot, i) << '\n';
                continue;
            }
            out << escapedPath(snapshot.relativePath(i)) << '\t' << sizeText(e) << '\t'
                << modifiedIsoText(e) << '\t' << attributesText(e) << '\t'
                << textOf(snapshot.versionOf(e)) << '\n';
        }
    } catch (const RuntimeError& e) {
        out.flush();
        printError(QStringLiteral("Invalid Snapshot"), e.text());
        return ExitTrouble;
    }
    return ExitOk;
}

} // namespace kestrel::cli
