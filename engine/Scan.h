#pragma once

#include "Errors.h"

#include <QString>

#include <cstdint>

namespace kestrel::engine {

class ProgressMeter;
class Snapshot;

// What a scan needs besides the snapshot's header (root folder and the
// recurse, hidden and versions flags).
struct ScanSettings {
    // The options' meter level: 0 "Faster Processing", 1 "Standard Setting",
    // 2 "Maximum Feedback". Folders down to level + 1 tick the meter.
    int meterLevel = 1;
    // Versions are read for files in this folder and beneath it, when the
    // header asks for versions. A path as typed or chosen (native text; see
    // FileSystemNames.h), where the header's root folder is stored text.
    QString versionFolder;
    // Threads that list folders ahead of the walk, which lists folders too
    // while it waits; -1 gives one per core besides the caller's and more
    // while listings wait for the device, 0 lists everything on the
    // caller's thread. The result is the same entry for entry whatever the
    // number.
    int listingThreads = -1;
    // With -1: every listing counts as having waited for the device, so
    // that threads are added as on a cold disk (for tests, with a tree in
    // memory).
    bool assumeDeviceWaits = false;
};

// CreateSnapshot: scans the tree (TakeSnapshot) and on success sets the
// creation time and the "found" summary line.
Outcome CreateSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter);

// TakeSnapshot: walks header.rootFolder depth first, in the order the file
// system lists each folder, recording every item as an entry: dot names are
// never recorded, hidden and system items only with header.hidden, the
// contents of sub-folders only with header.recurse. The meter counts folders
// near the top and is cancellable; the cancel flag is read after every item.
// Fails with "Empty Snapshot" when nothing was recorded, silently when
// cancelled, and with "Overflow" when a counter, an attribute or a size
// overflows. Progress and cancel reach the meter on the caller's thread.
Outcome TakeSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter);

// CountFolders: the folders (names not starting with ".") in path and, while
// depth < limit, beneath them: the meter's maximum. It looks at neither the
// hidden nor the recurse flag, so it can exceed the ticks a scan gives.
int32_t CountFolders(const QString& path, int16_t depth, int16_t limit);

// The program's size rule: the high half of the size counts 65,536 and the
// halves are added in 32-bit signed arithmetic (a low half of 2^31 or more
// counts as negative); a sum outside 32 bits raises "Overflow".
double sizeFromHalves(uint32_t high, uint32_t low);

} // namespace kestrel::engine
