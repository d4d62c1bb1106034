#pragma once

#include "Errors.h"

#include <QString>
#include <QStringList>

#include <cstdint>

namespace kestrel::engine {

class ProgressMeter;
class Snapshot;

// SaveSnapshot: writes the snapshot to header.fileName. Entries 1..N are
// written where N is the count held by entry 0 (for a loaded snapshot, the
// capacity its file gave, so the empty records beyond the real entries are
// written too), and entryCount becomes N. The file is replaced atomically:
// a failed save leaves the previous file as it was.
// Failures: "Error Writing Snapshot" when the file cannot be created, "Invalid
// Snapshot File" when writing fails after that; both with the system's text.
Outcome SaveSnapshot(Snapshot& snapshot, ProgressMeter& meter);

// LoadSnapshot: reads header.fileName into an empty snapshot. A file that
// cannot be opened gives false with no message; bad data gives "Invalid
// Snapshot" with the error's text, except an overflow, which fails silently;
// a cancel gives false with cancelled set. On success the summary holds the
// "read" line. headerRead tells the caller that the header was read, so
// header.versions is known even when the load failed later (the caller sets
// its ignore-version choice from it).
struct LoadOutcome : Outcome {
    bool headerRead = false;
};
LoadOutcome LoadSnapshot(Snapshot& snapshot, ProgressMeter& meter);

// How a read of a snapshot file that met no error ends: cancelled, or a
// success with its summary line ("Kestrel read ..." for verb "read").
void finishRead(Outcome& outcome, const ProgressMeter& meter, const QString& verb,
                double startTime, const Snapshot& snapshot);

// NextSnapshotName: the name for a new snapshot file of a folder whose last
// component is base, kept in folder (which ends in the separator): base and
// ".#01", ".#02", ... the first that does not exist there, or ".#99" when all
// do (the hundredth snapshot of a folder replaces the 99th). A base ending in
// ":" is a drive: "c:" gives C_DRIVE.
QString NextSnapshotName(const QString& base, const QString& folder);

// The base name of a snapshot file for a root folder: its last component,
// "ROOT" for the file system root "/", the drive ("C:") for a drive root.
QString SnapshotBaseName(const QString& rootFolder);

// The title a new snapshot gets: "Snapshot #n of folder"; with the naming
// convention on, the first of a folder is its "Original Snapshot of folder"
// and the second its "Final Snapshot of folder".
QString NewSnapshotTitle(const QString& folder, int16_t number, bool naming);

// The file dialogs' filters for snapshot files: every numbered snapshot,
// original snapshots only, all files.
QStringList snapshotFileFilters();

// The snapshot number a file name carries: the value of its last two
// characters (a file ending in .#03 gives 3; characters that are not digits
// give 0).
int16_t SnapshotNumberFromName(const QString& path);

} // namespace kestrel::engine
