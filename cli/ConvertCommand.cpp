#include "Commands.h"

#include "CommandSupport.h"
#include "TerminalProgress.h"

#include "engine/file/FileWriting.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"

#include <QFileInfo>

namespace kestrel::cli {

using namespace engine;

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
    const Outcome saved = guardedOperation(QStringLiteral("Error Writing Snapshot"),
                                           [&] { return SaveSnapshot(snapshot, meter); });
    if (!succeeded(saved))
        return ExitTrouble;
    printLine(stderr, summary);
    printLine(stdout, snapshot.header.fileName);
    return ExitOk;
}

} // namespace kestrel::cli
