#pragma once

#include "engine/support/Errors.h"

#include <cstdint>

namespace kestrel::engine {

class ProgressMeter;
class Snapshot;

// ImportSnapshot: reads header.fileName, a snapshot file of Kestrel v2, into an
// empty snapshot. Those files carry each entry's folder path instead of index
// links; the import rebuilds parents and folder rings from the paths, so the
// result can be viewed, compared and saved in the current format.
//
// The header takes RootFolder (the first item without its ";3" marker, kept
// as the file has it, "C:\DATA\"), Recurse, Hidden and Versions; Created stays
// 0 and Title becomes the file's path. importedNumber keeps the 16-bit number
// of the file's second line. Imported folders keep the size -1 that marks
// them in the old format, and a folder's status holds the index of its last
// child (a comparison overwrites it).
//
// ok is true when the whole file was read; the summary then holds the
// "imported" line. A file that cannot be opened gives "Unable to open
// Snapshot" (title "Error"); a file of more than 32,767 entries, which the
// import cannot link, gives "Entry Limit" saying so; anything else that goes
// wrong (no ";3" marker, a malformed item, a folder path the file never
// introduced, a cancel) gives false with no message. headerRead tells the
// caller that header.versions was read, so it can set its ignore-version
// choice from it even when the import failed later.
//
// The entry count of the file is treated as LoadSnapshot treats a capacity
// item: one more than 16 above the entries present is fitted to them, with
// the "Incomplete Snapshot" notice in message.
struct ImportOutcome : Outcome {
    bool headerRead = false;
    int32_t failedEntry = 0; // the entry being read when the import failed; 0: the header
};
ImportOutcome ImportSnapshot(Snapshot& snapshot, ProgressMeter& meter);

} // namespace kestrel::engine
