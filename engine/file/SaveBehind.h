#pragma once

#include "engine/scan/Scan.h"
#include "engine/support/Errors.h"

#include <cstddef>
#include <cstdint>

namespace kestrel::engine {

class ProgressMeter;
class Snapshot;

struct ScanAndSaveOutcome {
    Outcome scan; // as CreateSnapshot gives it
    Outcome save; // as SaveSnapshot gives it; only after a scan that succeeded
    // The file was written while the scan went on; false when it was left
    // to SaveSnapshot after the scan.
    bool savedBehind = false;
};

// How the save behind a scan hands its lines to the disk: in blocks of
// about this many bytes (tests make them small, so that small trees are
// written in many pieces).
struct SaveBehindOptions {
    size_t blockBytes = size_t(1) << 20;
};

// ScanAndSaveSnapshot: CreateSnapshot of header.rootFolder followed by
// SaveSnapshot to header.fileName (the title set beforehand), with the file
// written while the tree is walked. The snapshot left in memory, the file and
// every message are those of the two operations one after the other; only
// the time differs.
//
// Entries become final in file order as the walk leaves the folders of the
// root, and their lines are made on the walking thread as they do and
// written by a thread of their own, the disk starting on them at once. The
// header is the first line of the file but is known last (its capacity item
// counts the entries, its date is the scan's end), so the entry lines are
// written after room for the header as expected: the capacity of the
// snapshot being replaced, or of the one before it in the numbered series,
// when it is of the same folder, else the least the entries found so far
// need. When the count outgrows the room, or the header turns out shorter,
// what was written is moved; the header goes in last, then the file is made
// durable and renamed as SaveSnapshot does.
//
// A file that cannot be created, a failed write or any trouble of the save
// behind the scan leaves no file behind and falls back to SaveSnapshot after
// the scan, which then fails or succeeds as it always did. A scan that fails
// or is cancelled leaves the old file as it was and no new one. A save that
// throws fails with "Error Writing Snapshot".
ScanAndSaveOutcome ScanAndSaveSnapshot(Snapshot& snapshot, const ScanSettings& settings,
                                       ProgressMeter& meter, const SaveBehindOptions& options = {});

} // namespace kestrel::engine
