#include "RegularFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

int closeKeepingErrno(int fd) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return -1;
}

} // namespace

bool isExpectedRegularFile(int fd, const struct stat* expected) {
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return false;
    if (!S_ISREG(st.st_mode)) {
        errno = S_ISDIR(st.st_mode) ? EISDIR : (S_ISLNK(st.st_mode) ? ELOOP : EINVAL);
        return false;
    }
    if (expected && (st.st_dev != expected->st_dev || st.st_ino != expected->st_ino)) {
        errno = ENOENT;
        return false;
    }
    return true;
}

QString regularFileErrorText(int error) {
    if (error == ELOOP || error == EINVAL)
        return QStringLiteral("not a regular file");
    return QString::fromLocal8Bit(std::strerror(error));
}

int openRegularFileAt(int dirFd, const char* name, LinkRule links, const struct stat* expected) {
    constexpr int ReadFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
    const int noFollow = links == LinkRule::Refuse ? O_NOFOLLOW : 0;
#ifdef O_PATH
    const int held = ::openat(dirFd, name, O_PATH | O_CLOEXEC | noFollow);
    if (held < 0)
        return -1;
    if (!isExpectedRegularFile(held, expected))
        return closeKeepingErrno(held);
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", held);
    const int opened = ::open(path, ReadFlags);
    const int openError = errno;
    ::close(held);
    if (opened >= 0)
        return opened;
    if (openError != ENOENT) {
        errno = openError;
        return -1;
    }
#endif
    const int fd = ::openat(dirFd, name, ReadFlags | O_NONBLOCK | noFollow);
    if (fd < 0)
        return -1;
    if (!isExpectedRegularFile(fd, expected) ||
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0)
        return closeKeepingErrno(fd);
    return fd;
}

} // namespace kestrel::engine
