#include "Commands.h"

#include "CommandSupport.h"
#include "EntryText.h"
#include "TerminalProgress.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"

#include <QTextStream>

namespace kestrel::cli {

using namespace engine;

int infoCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral("Describes a snapshot file: title, root folder, creation time,\n"
                                  "scan flags, counts, total size and the folders that could not\n"
                                  "be read. Tabs and line breaks in the title and the root folder\n"
                                  "are written as \\t, \\n and \\r, as list writes them."));
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
    // Escaped as list escapes paths: a line break in either cannot forge a line.
    out << "Title: " << escapedPath(s.header.title) << '\n'
        << "Root folder: " << escapedPath(s.header.rootFolder) << '\n'
        << "Created: " << isoDateTime(s.header.created) << '\n'
        << "Files in sub-folders: " << yesNo(s.header.recurse) << '\n'
        << "Hidden and system files: " << yesNo(s.header.hidden) << '\n'
        << "File versions: " << yesNo(s.header.versions) << '\n'
        << "Files: " << s.fileCount << '\n'
        << "Folders: " << s.folderCount << '\n'
        << "Total size: " << plainNumber(s.totalSize) << " bytes ("
        << FormatByteSize(s.totalSize, true) << ")\n"
        << "Folders that could not be read: " << UnreadableFolders(s).size() << '\n';
    return ExitOk;
}

} // namespace kestrel::cli
