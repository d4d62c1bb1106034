#pragma once

#include "engine/model/Fingerprints.h"

#include <optional>
#include <vector>

#include <sys/stat.h>

namespace kestrel::engine {

// Reads the regular file name in the open folder dirFd and gives the
// fingerprint of its bytes. The file is opened from the folder's descriptor,
// never through a link and only when it is the regular file lstat showed
// (expected); anything else, or a read that fails, gives none.
//
// In a folder others may change, what the name holds is taken and checked
// before it is opened (openRegularFileAt), so that a FIFO or a device put
// there after lstat is never opened. That costs two more openings per file;
// in a trusted folder (see ReadingFolder) nobody else can put anything
// there, and the name is opened directly, without waiting, and checked after.
//
// An empty file that this user may read is not opened at all where the file
// system's sizes are true: its bytes are known, and in a tree of many empty
// files opening them would cost more than the rest of the scan.
// Who the scanning process is, taken when a scan starts, for telling from a
// file's mode whether it may read the file.
struct ProcessIdentity {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;

    static ProcessIdentity current();
    // Root reads every file; others as the mode's class for them says
    // (access control lists are not looked at: such a file is opened).
    bool mayRead(const struct stat& st) const;
};

struct ReadingFolder {
    // Only this process's user and root can change the folder: owned by one
    // of them, writable by neither its group nor others.
    bool trusted = false;
    // The folder's file system gives files their true sizes (a disk's or
    // memory's file system; not /proc, /sys or a user-space one).
    bool sizesTrue = false;
    const ProcessIdentity* identity = nullptr;
};
ReadingFolder readingFolder(int dirFd, const ProcessIdentity& identity);

std::optional<Fingerprint> fingerprintFileAt(int dirFd, const char* name,
                                             const struct stat& expected,
                                             const ReadingFolder& folder);

} // namespace kestrel::engine
