#pragma once

#include "engine/support/Errors.h"

#include <QString>

#include <cstdint>
#include <optional>

namespace kestrel::engine {

class ProgressMeter;
class ReadWatermark;
class Snapshot;

// The result of opening a snapshot file. ok means the snapshot holds the
// file and the window that shows it stays open. When imported is set the file
// was in the v2 format: the caller marks the snapshot changed (it exists only
// in memory in the current format) and shows message, the "Snapshot Imported"
// notice. On failure message, when present, is the error to show. summary is
// the status-bar line ("read" or "imported") and number the snapshot number
// the file's name carries. versions is set whenever a reader got as far as
// the file's versions flag, even when the open then failed: the caller sets
// its ignore-version choice to the opposite. A file loaded in the current
// format may come with ok and a notice in message ("Incomplete Snapshot": a
// damaged or cut file, see LoadSnapshot), which the caller shows too.
//
// On failure: oldFormat tells that the file began as a v2 file does, and
// failedEntry which entry was being read when the reader that describes the
// failure stopped (0: the title or header lines). A v2 file whose import
// failed is described by the import ("Entry Limit" for one of more than
// 32,767 entries, otherwise "Invalid Snapshot" with the import's error), any
// other file by the load.
struct OpenOutcome : Outcome {
    bool imported = false;
    bool oldFormat = false;
    int16_t number = 0;
    int32_t failedEntry = 0;
    std::optional<bool> versions;
};

// OpenSnapshotFile: loads path into an empty snapshot, and when the file is
// not in the current format (and the load was not cancelled) imports it as a
// v2 file instead. header.fileName becomes path. The snapshot's own ignore
// patterns come from its side file, when it has one (IgnoreSideFile.h).
// With followed, another thread reads the entries as they are loaded
// (LoadSnapshot); side files and any import come after it lets go.
OpenOutcome OpenSnapshotFile(Snapshot& snapshot, const QString& path, ProgressMeter& meter,
                             ReadWatermark* followed = nullptr);

} // namespace kestrel::engine
