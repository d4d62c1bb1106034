#pragma once

#include "engine/model/Fingerprints.h"

#include <optional>

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
// in a trusted folder (trustedFolder: see folderChangedOnlyByTrusted) nobody
// else can put anything there, and the name is opened directly, without
// waiting, and checked after.
std::optional<Fingerprint> fingerprintFileAt(int dirFd, const char* name,
                                             const struct stat& expected, bool trustedFolder);

// Whether the open folder can be changed only by this process's user and
// root: owned by one of them, writable by neither its group nor others.
bool folderChangedOnlyByTrusted(int dirFd);

} // namespace kestrel::engine
