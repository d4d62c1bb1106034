#include "FileWriting.h"

#include <QFile>
#include <QIODevice>
#include <QRandomGenerator>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

// Once this much more has been written, the disk is asked to start on it.
constexpr int64_t WriteBackStep = int64_t(8) << 20;

// The target's folder is opened only to name files in it, which needs no
// right to read it.
#ifdef O_PATH
constexpr int FolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int FolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

// The most writes handed to the system at once (some refuse more than 2 GiB).
constexpr size_t LargestWrite = size_t(1) << 30;

QString systemText(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// A name for the new file of target that nothing else in the folder has:
// hidden, the target's name in it for whoever finds one left by a crash,
// and never ending like a numbered snapshot file.
QByteArray temporaryName(const QByteArray& target) {
    static constexpr char Letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    // Room for the dot and the suffix within the longest name allowed.
    constexpr qsizetype LongestKept = 200;
    QByteArray name = '.' + target.left(LongestKept) + ".kestrel-";
    QRandomGenerator* random = QRandomGenerator::system();
    for (int i = 0; i < 8; ++i)
        name += Letters[random->bounded(int(sizeof Letters) - 1)];
    return name;
}

} // namespace

bool writeWhole(QIODevice& device, const char* data, qint64 size) {
    while (size > 0) {
        const qint64 written = device.write(data, size);
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

AtomicFile::AtomicFile(QString path) : m_path(std::move(path)) {}

AtomicFile::~AtomicFile() {
    abandon();
}

bool AtomicFile::fail(int error) {
    return refuse(QStringLiteral(": ") + systemText(error));
}

bool AtomicFile::refuse(const QString& why) {
    m_error = m_path + why;
    abandon();
    return false;
}

bool AtomicFile::inspectTarget(struct stat& st, bool& exists) {
    exists = ::fstatat(m_folder, m_name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists) {
        if (errno == ENOENT)
            return true;
        return fail(errno);
    }
    if (S_ISLNK(st.st_mode))
        return refuse(QStringLiteral(" is a symbolic link; Kestrel does not write over links"));
    if (S_ISDIR(st.st_mode))
        return refuse(QStringLiteral(" is a folder"));
    if (!S_ISREG(st.st_mode))
        return refuse(QStringLiteral(" is a device, pipe or socket, not a regular file"));
    return true;
}

bool AtomicFile::open() {
    return openNew(false);
}

bool AtomicFile::openUnnamed() {
    return openNew(true);
}

bool AtomicFile::openNew(bool unnamed) {
    abandon();
    m_unnamed = unnamed;
    m_error.clear();
    m_written = m_runStart = m_runEnd = 0;
    const QByteArray whole = QFile::encodeName(m_path);
    const qsizetype cut = whole.lastIndexOf('/');
    m_name = whole.mid(cut + 1);
    const QByteArray folder = cut < 0    ? QByteArray(".")
                              : cut == 0 ? QByteArray("/")
                                         : whole.left(cut);
    if (m_name.isEmpty())
        return fail(EISDIR);
    // The folder is the one the user named, links in its path included; the
    // file in it is reached from its descriptor only.
    m_folder = ::open(folder.constData(), FolderFlags);
    if (m_folder < 0)
        return fail(errno);

    struct stat old;
    bool replacing = false;
    if (!inspectTarget(old, replacing))
        return false;
    // A replaced file's contents stay private until its permissions are
    // copied; a new file takes the usual ones.
    const mode_t mode = replacing ? S_IRUSR | S_IWUSR : 0666;
    // Read and write: moveBytes() reads back what was written.
    if (unnamed) {
#ifdef O_TMPFILE
        m_fd = ::openat(m_folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
#else
        errno = EOPNOTSUPP;
#endif
        if (m_fd < 0)
            return fail(errno);
    }
    for (int attempt = 0; attempt < 100 && m_fd < 0; ++attempt) {
        m_temporary = temporaryName(m_name);
        m_fd = ::openat(m_folder, m_temporary.constData(),
                        O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (m_fd < 0 && errno != EEXIST)
            break;
    }
    if (m_fd < 0) {
        const int error = errno;
        m_temporary.clear();
        return fail(error);
    }
    if (replacing)
        keepPermissionsOf(old);
    return true;
}

void AtomicFile::keepPermissionsOf(const struct stat& old) {
    mode_t mode = old.st_mode & 0777;
    // Root gives the file back to its owner; others keep at least its group
    // when they belong to it. Where the group cannot be kept, the group the
    // new file has gets none of the rights meant for another one.
    const uid_t owner = ::geteuid() == 0 ? old.st_uid : uid_t(-1);
    struct stat now;
    if (::fchown(m_fd, owner, old.st_gid) != 0 &&
        (::fstat(m_fd, &now) != 0 || now.st_gid != old.st_gid))
        mode &= ~mode_t(S_IRWXG);
    ::fchmod(m_fd, mode);
}

bool AtomicFile::append(const char* data, size_t size) {
    return writeAt(m_written, data, size);
}

bool AtomicFile::writeAt(int64_t offset, const char* data, size_t size) {
    if (m_fd < 0)
        return m_error.isEmpty() ? fail(EBADF) : false;
    while (size > 0) {
        const ssize_t written = ::pwrite(m_fd, data, std::min(size, LargestWrite), offset);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return fail(errno);
        }
        // A regular file takes no bytes only when it has no room for them.
        if (written == 0)
            return fail(ENOSPC);
        noteWritten(offset, written);
        m_durable = false;
        data += written;
        size -= size_t(written);
        offset += written;
    }
    return true;
}

bool AtomicFile::moveBytes(int64_t from, int64_t to, int64_t length) {
    if (m_fd < 0)
        return m_error.isEmpty() ? fail(EBADF) : false;
    if (from == to || length <= 0)
        return true;
    // Piece by piece, starting at the end that no later piece reads from:
    // moved towards the end of the file, the last piece goes first.
    constexpr int64_t Piece = int64_t(1) << 20;
    const auto buffer = std::make_unique_for_overwrite<char[]>(size_t(Piece));
    const bool backwards = to > from;
    for (int64_t done = 0; done < length;) {
        const int64_t size = std::min(Piece, length - done);
        const int64_t at = backwards ? length - done - size : done;
        for (int64_t got = 0; got < size;) {
            const ssize_t n =
                ::pread(m_fd, buffer.get() + got, size_t(size - got), from + at + got);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return fail(n < 0 ? errno : EIO);
            got += n;
        }
        if (!writeAt(to + at, buffer.get(), size_t(size)))
            return false;
        done += size;
    }
    return true;
}

bool AtomicFile::truncate(int64_t length) {
    if (m_fd < 0)
        return m_error.isEmpty() ? fail(EBADF) : false;
    // The new file holds exactly what was written to it; asking a file
    // system to cut it where it ends already may still cost it a journal
    // transaction.
    if (length == m_written)
        return true;
    if (::ftruncate(m_fd, length) != 0)
        return fail(errno);
    m_durable = false;
    m_written = length;
    m_runStart = std::min(m_runStart, length);
    m_runEnd = std::min(m_runEnd, length);
    return true;
}

void AtomicFile::noteWritten(int64_t offset, int64_t size) {
    m_written = std::max(m_written, offset + size);
    if (offset != m_runEnd) {
        startWriteBack();
        m_runStart = offset;
    }
    m_runEnd = offset + size;
    if (m_runEnd - m_runStart >= WriteBackStep)
        startWriteBack();
}

void AtomicFile::startWriteBack() {
    // The disk works on what is written while the rest is made, so the wait
    // for it all at commit() is short.
#ifdef __linux__
    if (m_runEnd > m_runStart)
        ::sync_file_range(m_fd, m_runStart, m_runEnd - m_runStart, SYNC_FILE_RANGE_WRITE);
#endif
    m_runStart = m_runEnd;
}

bool AtomicFile::makeDurable() {
    if (m_fd < 0)
        return m_error.isEmpty() ? fail(EBADF) : false;
    if (!m_durable && ::fdatasync(m_fd) != 0)
        return fail(errno);
    m_durable = true;
    return true;
}

bool AtomicFile::commit() {
    // The data reaches the disk before the name does: after a crash the
    // name holds the old file or the whole new one.
    if (!makeDurable())
        return false;
    if (m_unnamed && !giveTemporaryName())
        return false;
    const int fd = m_fd;
    m_fd = -1;
    if (::close(fd) != 0)
        return fail(errno);
    // Whatever took the name while the file was written is looked at again:
    // a link put there is refused, not followed.
    struct stat st;
    bool exists = false;
    if (!inspectTarget(st, exists))
        return false;
    if (::renameat(m_folder, m_temporary.constData(), m_folder, m_name.constData()) != 0)
        return fail(errno);
    m_temporary.clear();
    closeFiles();
    return true;
}

bool AtomicFile::giveTemporaryName() {
    // The way to name an unnamed file without privileges goes through
    // /proc; where that is missing, privileged callers may name it from its
    // descriptor.
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(m_fd);
    int error = EEXIST;
    for (int attempt = 0; attempt < 100 && error == EEXIST; ++attempt) {
        m_temporary = temporaryName(m_name);
        if (::linkat(AT_FDCWD, self.constData(), m_folder, m_temporary.constData(),
                     AT_SYMLINK_FOLLOW) == 0 ||
            (errno == ENOENT &&
             ::linkat(m_fd, "", m_folder, m_temporary.constData(), AT_EMPTY_PATH) == 0))
            return true;
        error = errno;
    }
    m_temporary.clear();
    return fail(error);
}

void AtomicFile::abandon() {
    if (!m_temporary.isEmpty() && m_folder >= 0)
        ::unlinkat(m_folder, m_temporary.constData(), 0);
    m_temporary.clear();
    closeFiles();
}

void AtomicFile::closeFiles() {
    if (m_fd >= 0)
        ::close(m_fd);
    if (m_folder >= 0)
        ::close(m_folder);
    m_fd = m_folder = -1;
}

bool replaceFile(const QString& path, std::string_view bytes, QString* error) {
    AtomicFile file(path);
    const bool written = file.open() && file.append(bytes) && file.commit();
    if (!written && error)
        *error = file.errorText();
    return written;
}

bool nameTaken(const QString& path) {
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

bool SideFileWriter::prepare(std::string_view first, std::string_view rest) {
    if (first.empty() && rest.empty())
        return true;
    m_file = std::make_unique<AtomicFile>(m_path);
    if (m_file->open() && m_file->append(first) && m_file->append(rest) && m_file->makeDurable())
        return true;
    m_error = m_file->errorText();
    m_file.reset();
    return false;
}

bool SideFileWriter::commit() {
    if (m_file) {
        if (m_file->commit())
            return true;
        m_error = m_file->errorText();
        return false;
    }
    const QByteArray name = QFile::encodeName(m_path);
    struct stat st;
    if (::lstat(name.constData(), &st) != 0 || S_ISDIR(st.st_mode) ||
        ::unlink(name.constData()) == 0)
        return true;
    m_error = m_path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
    return false;
}

} // namespace kestrel::engine
