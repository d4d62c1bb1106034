#include "ContentFingerprint.h"

#include "engine/support/RegularFile.h"

#include <xxhash.h>

#include <cerrno>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

// Read in blocks this large: big enough that a system call costs little
// beside the hashing, small enough to stay in the processor's cache.
constexpr size_t BlockSize = size_t(1) << 18;

struct FreeState {
    void operator()(XXH3_state_t* s) const { XXH3_freeState(s); }
};

// Each thread hashes with a state and a block of its own, made once.
struct Hasher {
    std::unique_ptr<XXH3_state_t, FreeState> state{XXH3_createState()};
    std::vector<char> block = std::vector<char>(BlockSize);
};

thread_local Hasher t_hasher;

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

} // namespace

bool folderChangedOnlyByTrusted(int dirFd) {
    struct stat folder;
    if (::fstat(dirFd, &folder) != 0)
        return false;
    return (folder.st_uid == 0 || folder.st_uid == ::geteuid()) &&
           !(folder.st_mode & (S_IWGRP | S_IWOTH));
}

namespace {

// Opens the file lstat showed in a folder nobody else may change: without
// waiting (a FIFO could only be there if a trusted user put it there), then
// checked to be that regular file.
int openInTrustedFolder(int dirFd, const char* name, const struct stat& expected) {
    const int fd = ::openat(dirFd, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    struct stat opened;
    if (::fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode) || opened.st_dev != expected.st_dev ||
        opened.st_ino != expected.st_ino) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

std::optional<Fingerprint> fingerprintFileAt(int dirFd, const char* name,
                                             const struct stat& expected, bool trustedFolder) {
    if (!S_ISREG(expected.st_mode))
        return std::nullopt;
    const Descriptor file(trustedFolder
                              ? openInTrustedFolder(dirFd, name, expected)
                              : openRegularFileAt(dirFd, name, LinkRule::Refuse, &expected));
    if (file.get() < 0)
        return std::nullopt;
    // Most files of a tree are small: each system call saved counts.
    if (expected.st_size > off_t(BlockSize))
        ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    Hasher& h = t_hasher;
    if (!h.state || XXH3_128bits_reset(h.state.get()) != XXH_OK)
        return std::nullopt;
    int64_t total = 0;
    for (;;) {
        const ssize_t got = ::read(file.get(), h.block.data(), h.block.size());
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        if (got == 0)
            break;
        XXH3_128bits_update(h.state.get(), h.block.data(), size_t(got));
        total += got;
        // A short read that reached the size lstat gave is the end: the
        // read that would return nothing is spared.
        if (size_t(got) < h.block.size() && total >= int64_t(expected.st_size))
            break;
    }
    const XXH128_hash_t hash = XXH3_128bits_digest(h.state.get());
    return Fingerprint{hash.high64, hash.low64};
}

} // namespace kestrel::engine
