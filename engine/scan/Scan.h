// engine/scan: a folder tree read from the disk into a snapshot, with the files' versions.

#pragma once

#include "engine/support/Errors.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace kestrel::engine {

class IgnorePatterns;
class ProgressMeter;
class Snapshot;

// Follows a scan as it goes: told which entries are final, so that they can
// be saved while the rest of the tree is walked. Entries are recorded depth
// first, and an entry is final once the walk has left its folder or moved
// past it: the entries before the root's item being walked. Calls come on
// the scanning thread, which changes nothing up to last afterwards; entry 1
// holds the meter maximum as its count by then. The last call gives every
// entry, after a scan that succeeded. Nothing is called after a cancel or a
// failure.
class ScanFollower {
public:
    virtual ~ScanFollower() = default;
    virtual void entriesFinal(const Snapshot& snapshot, int32_t last) = 0;
};

// What a scan needs besides the snapshot's header (root folder and the
// recurse, hidden and versions flags).
struct ScanSettings {
    // The options' meter level: 0 "Faster Processing", 1 "Standard Setting",
    // 2 "Maximum Feedback". Folders down to level + 1 tick the meter.
    int meterLevel = 1;
    // Versions are read for files in this folder and beneath it, when the
    // header asks for versions. A path as typed or chosen (native text; see
    // engine/model/FileSystemNames.h), where the header's root folder is
    // stored text.
    QString versionFolder;
    // Threads that list folders ahead of the walk, which lists folders too
    // while it waits; -1 gives one per core besides the caller's and more
    // while listings wait for the device, 0 lists everything on the
    // caller's thread. The result is the same entry for entry whatever the
    // number.
    int listingThreads = -1;
    // With -1, for tests with a tree in memory: when set, says whether each
    // listing waited for the device in place of the system's counts, so
    // that threads are added (and rest again) as on a cold disk. Called
    // from every listing thread.
    std::function<bool()> assumedDeviceWaits;
    // Starts the listing threads; std::thread when empty (a test makes it
    // fail as the system does when it can start no more).
    std::function<std::thread(std::function<void()>)> startThread;
    // Told of the entries as they become final; none when empty.
    ScanFollower* follower = nullptr;
    // Items whose paths below the root these patterns match are not
    // recorded, and folders among them are never opened (nor counted for
    // the meter): trees that must not be read at all. None when empty.
    std::shared_ptr<const IgnorePatterns> exclude;
    // Folders on another file system than the root's are recorded, their
    // contents not.
    bool oneFileSystem = false;
    // Every regular file is read for its content fingerprint.
    bool fingerprints = false;
};

// CreateSnapshot: scans the tree (TakeSnapshot) and on success sets the
// creation time and the "found" summary line.
Outcome CreateSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter);

// TakeSnapshot: walks header.rootFolder depth first, in the order the file
// system lists each folder, recording every item as an entry with its size
// (st_size) and attributes: hidden items (names beginning with a dot) and
// system items only with header.hidden, and nothing beneath one left out;
// the contents of sub-folders only with header.recurse. The meter counts
// folders near the top and is cancellable; the cancel flag is read after
// every item. The snapshot's hiddenLeftOut and unreadableFolders count what
// could not be recorded; the meter notes unreadable folders as they come.
// What settings.exclude matches is left out. The root's .kestrelignore, a
// regular file never reached through a link, becomes the header's
// ownIgnorePatterns; when it is there but cannot be read, the scan goes on
// and ignoreFileProblem says why.
// Fails with "Empty Snapshot" when nothing was recorded, silently when
// cancelled, with "Overflow" when a counter or an attribute overflows, and
// with the system's text when memory or threads run out.
Outcome TakeSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter);

// CountFolders: the folders in path and, while depth < limit, beneath them:
// the meter's maximum. It looks at neither the hidden nor the recurse flag,
// so it can exceed the ticks a scan gives; it leaves out what the settings
// exclude, and with oneFileSystem does not count inside other file systems.
int32_t CountFolders(const QString& path, int16_t depth, int16_t limit,
                     const ScanSettings& settings = {});

// What a scan could not record, as its summary and the meter say it: ", 37
// hidden entries left out, 2 folders could not be read, 12 files could not
// be read" (the last for their fingerprints), empty when it recorded
// everything.
QString scanNotes(int32_t hiddenLeftOut, int32_t unreadableFolders, int32_t unreadableFiles = 0);
// "1 folder could not be read", "2 folders could not be read".
QString unreadableFoldersText(int32_t folders);

// The folders of a snapshot, scanned or loaded, whose contents could not be
// read, in table order (0 for the root folder): those that hold the
// nameless entry of a folder that could not be listed, and those whose
// entries could not be examined.
std::vector<int32_t> UnreadableFolders(const Snapshot& snapshot);

} // namespace kestrel::engine
