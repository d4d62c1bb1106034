#include "OpenSnapshot.h"

#include "IgnoreSideFile.h"
#include "Import.h"
#include "MetaSideFile.h"
#include "SnapshotFile.h"
#include "engine/model/Snapshot.h"

namespace kestrel::engine {

OpenOutcome OpenSnapshotFile(Snapshot& snapshot, const QString& path, ProgressMeter& meter,
                             ReadWatermark* followed) {
    OpenOutcome outcome;
    outcome.number = SnapshotNumberFromName(path);
    snapshot.header.fileName = path;

    const LoadOutcome load = LoadSnapshot(snapshot, meter, followed);
    if (load.headerRead)
        outcome.versions = snapshot.header.versions;
    if (load.ok) {
        LoadIgnoreSideFile(snapshot);
        outcome.ok = true;
        outcome.summary = load.summary;
        outcome.message = load.message;
        const std::optional<QString> notice =
            load.sideData ? UseSideData(snapshot, *load.sideData) : LoadMetaSideFile(snapshot);
        if (notice) {
            if (outcome.message)
                outcome.message->text += QStringLiteral("\n\n") + *notice;
            else
                outcome.message = UserMessage{QStringLiteral("Snapshot Side Data"), *notice,
                                              MessageIcon::Information};
        }
        return outcome;
    }
    if (load.cancelled) {
        outcome.cancelled = true;
        return outcome;
    }

    // The load may have read part of the file as the current format: start
    // the import from an empty snapshot.
    snapshot.clearEntries();
    snapshot.header = SnapshotHeader{};
    snapshot.header.fileName = path;
    snapshot.importedNumber = 0;

    const ImportOutcome import = ImportSnapshot(snapshot, meter);
    if (import.headerRead)
        outcome.versions = snapshot.header.versions;
    if (!import.ok) {
        outcome.cancelled = import.cancelled;
        outcome.oldFormat = import.headerRead;
        if (import.cancelled)
            return outcome;
        if (import.headerRead) {
            // A v2 file: the load's complaint is only that its entry lines
            // are not current ones, so the import tells what is wrong.
            outcome.message = import.message
                                  ? *import.message
                                  : UserMessage{QStringLiteral("Invalid Snapshot"),
                                                errorText(import.error), MessageIcon::Exclamation};
            outcome.error = import.error;
            outcome.failedEntry = import.failedEntry;
        } else if (load.message) {
            // Not a v2 file: the load's complaint describes it best; the
            // import only speaks up when the file cannot be opened at all.
            outcome.message = load.message;
            outcome.error = load.error;
            outcome.failedEntry = load.failedEntry;
        } else {
            outcome.message = import.message;
            outcome.error = load.error != ErrorCode::None && load.error != ErrorCode::FileNotFound
                                ? load.error
                                : import.error;
            outcome.failedEntry = load.failedEntry;
        }
        return outcome;
    }

    // The load's failure on a v2 file comes with "Invalid Snapshot" (its entry
    // lines do not read as current ones); that message is dropped here, or the
    // user would see an error box for a file that opened fine.
    LoadIgnoreSideFile(snapshot);
    outcome.ok = true;
    outcome.imported = true;
    outcome.summary = import.summary;
    outcome.message =
        UserMessage{QStringLiteral("Snapshot Imported"),
                    QStringLiteral("File was created with Kestrel v2 and has been converted to v3"),
                    MessageIcon::Information};
    // A cut v2 file: one box tells both.
    if (import.message)
        outcome.message->text += QStringLiteral("\n\n") + import.message->text;
    return outcome;
}

} // namespace kestrel::engine
