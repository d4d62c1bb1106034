#include "ContentFingerprint.h"

#include "engine/support/HashState.h"
#include "engine/support/RegularFile.h"

#include <xxhash.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

// Read in blocks this large: big enough that a system call costs little
// beside the hashing, small enough to stay in the processor's cache.
constexpr size_t BlockSize = size_t(1) << 18;

// Each thread hashes with a state and a block of its own, made once.
struct Hasher {
    HashState state{XXH3_createState()};
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

namespace {

// File systems whose files' sizes are their bytes. Pseudo file systems
// (/proc, /sys, debugfs) give 0 or a page for files that read as text, and
// a user-space file system may do the same.
bool sizesAreTrue(long type) {
    constexpr long ZfsMagic = 0x2FC12FC1;
    switch (type) {
    case EXT4_SUPER_MAGIC: // ext2, ext3 and ext4 share it
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case F2FS_SUPER_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
    case ZfsMagic:
        return true;
    default:
        return false;
    }
}

Fingerprint emptyFingerprint() {
    const XXH128_hash_t hash = XXH3_128bits(nullptr, 0);
    return Fingerprint{hash.high64, hash.low64};
}

} // namespace

ProcessIdentity ProcessIdentity::current() {
    ProcessIdentity who;
    who.user = ::geteuid();
    who.group = ::getegid();
    const int n = ::getgroups(0, nullptr);
    if (n > 0) {
        who.groups.resize(size_t(n));
        who.groups.resize(size_t(std::max(0, ::getgroups(n, who.groups.data()))));
    }
    return who;
}

bool ProcessIdentity::mayRead(const struct stat& st) const {
    if (user == 0)
        return true;
    if (st.st_uid == user)
        return st.st_mode & S_IRUSR;
    if (st.st_gid == group || std::find(groups.begin(), groups.end(), st.st_gid) != groups.end())
        return st.st_mode & S_IRGRP;
    return st.st_mode & S_IROTH;
}

ReadingFolder readingFolder(int dirFd, const ProcessIdentity& identity) {
    ReadingFolder result;
    result.identity = &identity;
    struct stat folder;
    if (::fstat(dirFd, &folder) == 0)
        result.trusted = (folder.st_uid == 0 || folder.st_uid == identity.user) &&
                         !(folder.st_mode & (S_IWGRP | S_IWOTH));
    struct statfs fs;
    result.sizesTrue = ::fstatfs(dirFd, &fs) == 0 && sizesAreTrue(long(fs.f_type));
    return result;
}

namespace {

// Opens the file lstat showed in a folder nobody else may change: without
// waiting (a FIFO could only be there if a trusted user put it there). It is
// not asked what it is: the reading checks that, when the bytes read are not
// the size lstat gave.
int openInTrustedFolder(int dirFd, const char* name, const struct stat& expected,
                        const ProcessIdentity& who) {
    // Reading a file for its fingerprint leaves its access time alone where
    // the system lets this user ask so (its owner, or root).
    const int noAccessTime = who.user == 0 || expected.st_uid == who.user ? O_NOATIME : 0;
    constexpr int flags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
    int fd = ::openat(dirFd, name, flags | noAccessTime);
    // Root of a user namespace may not ask it for files of users outside.
    if (fd < 0 && errno == EPERM && noAccessTime)
        fd = ::openat(dirFd, name, flags);
    return fd;
}

} // namespace

std::optional<Fingerprint> fingerprintFileAt(int dirFd, const char* name,
                                             const struct stat& expected,
                                             const ReadingFolder& folder) {
    if (!S_ISREG(expected.st_mode))
        return std::nullopt;
    if (expected.st_size == 0 && folder.sizesTrue && folder.identity->mayRead(expected)) {
        static const Fingerprint empty = emptyFingerprint();
        return empty;
    }
    const Descriptor file(folder.trusted
                              ? openInTrustedFolder(dirFd, name, expected, *folder.identity)
                              : openRegularFileAt(dirFd, name, LinkRule::Refuse, &expected));
    if (file.get() < 0)
        return std::nullopt;
    // Most files of a tree are small: each system call saved counts.
    if (expected.st_size > off_t(BlockSize))
        ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    Hasher& h = t_hasher;
    if (!h.state || XXH3_128bits_reset(h.state.get()) != XXH_OK)
        return std::nullopt;
    // Most files of a tree are small: one whose first read in a trusted
    // folder is short and gives exactly the size lstat gave, some bytes at
    // least, is taken as the file lstat saw: an open, a read and a close in
    // all. Any other is asked what it is before its first block is hashed,
    // and nothing more is read from a device or FIFO put there since.
    bool checked = !folder.trusted;
    int64_t total = 0;
    for (;;) {
        const ssize_t got = ::read(file.get(), h.block.data(), h.block.size());
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        if (!checked) {
            const bool wholeAtOnce =
                got > 0 && size_t(got) < h.block.size() && got == ssize_t(expected.st_size);
            if (!wholeAtOnce && !isExpectedRegularFile(file.get(), &expected))
                return std::nullopt;
            checked = true;
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
