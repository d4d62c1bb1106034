#pragma once

#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <memory>
#include <string_view>

class QIODevice;
struct stat;

namespace kestrel::engine {

// Writes all size bytes of data to device, going on after short writes, so
// that a device out of room fails with its own reason (errorString()).
// False when the device took less.
bool writeWhole(QIODevice& device, const char* data, qint64 size);

// A file that replaces the one at its path only once it is whole: every file
// Kestrel writes (snapshots, exports, reports, Kestrel.ini) goes through it.
//
// open() makes a new file of a name nobody else uses in the target's folder,
// opened from that folder's descriptor and never through a link. Bytes are
// written as they are appended, without a buffer in between, so a write the
// system cuts short (a full disk, a file size limit) is either completed or
// reported with the system's reason; nothing can be lost at the end. commit()
// makes the file durable and renames it over the name: the name then holds
// either the whole old file or the whole new one, whatever happens meanwhile.
// Any failure, and an object that goes without commit(), removes the new file
// and leaves the old one untouched.
//
// The name itself is never written through: if it is a symbolic link (even a
// dangling one) or anything but a regular file, open() and commit() refuse.
// A replaced file keeps its permissions (and, where the system allows, its
// owner and group); a new one gets 0666 less the umask.
//
// Each failing call returns false and leaves errorText() naming the path with
// the reason ("/home/ann/Data.#01: No space left on device"). Not thread-safe.
class AtomicFile {
public:
    explicit AtomicFile(QString path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    const QString& path() const { return m_path; }

    bool open();
    // As open(), but the new file has no name at all until commit() (an
    // O_TMPFILE): while it is written, a scan of its folder does not meet it
    // and the folder's time does not change. False where the file system
    // cannot make such files.
    bool openUnnamed();
    // Writes at the end of what was written so far.
    bool append(const char* data, size_t size);
    bool append(std::string_view bytes) { return append(bytes.data(), bytes.size()); }
    // Writes at offset, over what is there or past the end (a gap reads as
    // zeros): a file whose first bytes are known last is written around them.
    bool writeAt(int64_t offset, const char* data, size_t size);
    // Moves length bytes written at from to to (the two may overlap), for
    // a part written before the length of what goes ahead of it was known.
    bool moveBytes(int64_t from, int64_t to, int64_t length);
    // Cuts the file to length bytes.
    bool truncate(int64_t length);
    // Waits until what is written is on the disk, so that commit() has only
    // the name left to give: a caller with other files to write makes this
    // one durable while it works on them.
    bool makeDurable();
    bool commit();
    // Removes the new file; the old one stays as it was. Does nothing once
    // committed or before open().
    void abandon();

    // The reason of the last failure, with the path.
    const QString& errorText() const { return m_error; }
    // The length of the file so far: the end of the furthest write.
    int64_t size() const { return m_written; }

private:
    // Abandons the file with errorText() the path and the system's text of
    // error, or the path and why.
    bool openNew(bool unnamed);
    // Gives an unnamed file its temporary name, before the rename.
    bool giveTemporaryName();
    bool fail(int error);
    bool refuse(const QString& why);
    // Looks at what has the target's name now, without following a link:
    // false (failed) when it is anything but a regular file. exists tells
    // whether there is one, st is what it is.
    bool inspectTarget(struct stat& st, bool& exists);
    void keepPermissionsOf(const struct stat& old);
    // Counts size bytes written at offset; the disk is asked to start on a
    // run of them once it is long enough.
    void noteWritten(int64_t offset, int64_t size);
    void startWriteBack();
    void closeFiles();

    QString m_path;
    QByteArray m_name;      // the last component, as the system names it
    QByteArray m_temporary; // empty while the file has no name
    bool m_unnamed = false;
    int m_folder = -1;
    int m_fd = -1;
    bool m_durable = false;
    int64_t m_written = 0;
    // The run of bytes written one after the other that the disk has not
    // been asked to start on yet.
    int64_t m_runStart = 0;
    int64_t m_runEnd = 0;
    QString m_error;
};

// A file kept beside a snapshot's file and written together with it:
// prepare() writes the new one under a temporary name before the snapshot
// file is committed, commit() gives it its name right after. When nothing was
// prepared, commit() takes away the side file of the snapshot replaced
// (whatever has the name, a link too, but never a folder). Each failing call
// leaves errorText().
class SideFileWriter {
public:
    explicit SideFileWriter(QString path) : m_path(std::move(path)) {}
    // Writes the parts one after the other, and waits until they are on the
    // disk; nothing at all when they are empty.
    bool prepare(std::string_view first, std::string_view rest = {});
    bool commit();
    const QString& errorText() const { return m_error; }

private:
    QString m_path;
    std::unique_ptr<AtomicFile> m_file;
    QString m_error;
};

// Writes bytes to path as one AtomicFile. False with the reason in error.
bool replaceFile(const QString& path, std::string_view bytes, QString* error = nullptr);

// Whether anything has the name path, a link of any kind (dangling or not)
// included: the name is taken, whatever it leads to.
bool nameTaken(const QString& path);

} // namespace kestrel::engine
