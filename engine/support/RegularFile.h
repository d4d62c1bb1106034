#pragma once

#include <QString>

#include <sys/stat.h>

namespace kestrel::engine {

// Whether a link as the last part of a name is followed when a file is opened
// for reading. Files the user named may be links; files Kestrel finds for
// itself in a tree others can write to never are.
enum class LinkRule { Follow, Refuse };

// Opens name (relative to dirFd, or AT_FDCWD) for reading when it is a
// regular file, and gives the descriptor, or -1 with errno set. Anything
// else stays closed: opening a FIFO releases a writer waiting on it, opening
// a device can act on the device. So what the name holds is first taken
// without opening it (O_PATH), checked, and then opened through its
// descriptor, whatever the name holds by then. When expected is given the
// file must also be that file (device and inode). Without O_PATH, or without
// /proc to open through, the name itself is opened without waiting for a
// FIFO's writer and checked after.
int openRegularFileAt(int dirFd, const char* name, LinkRule links,
                      const struct stat* expected = nullptr);

// Whether the open descriptor fd is a regular file, and when expected is
// given that very file (device and inode); false with errno set otherwise.
bool isExpectedRegularFile(int fd, const struct stat* expected);

// Why openRegularFileAt (or a read after it) failed, as the user is told:
// "not a regular file" for a link refused or a device, FIFO or socket,
// otherwise the system's text ("Is a directory" for a folder).
QString regularFileErrorText(int error);

} // namespace kestrel::engine
