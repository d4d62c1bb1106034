#pragma once

#include "engine/model/Fingerprints.h"

#include <optional>

#include <sys/stat.h>

namespace kestrel::engine {

// Reads the regular file name in the open folder dirFd and gives the
// fingerprint of its bytes. The file is opened from the folder's descriptor,
// never through a link and only when it is the regular file lstat showed
// (expected); anything else, or a read that fails, gives none.
std::optional<Fingerprint> fingerprintFileAt(int dirFd, const char* name,
                                             const struct stat& expected);

} // namespace kestrel::engine
