#include "Scan.h"

#include "DirectoryReader.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Checked.h"
#include "engine/support/OleDate.h"
#include "engine/support/Paths.h"
#include "engine/support/Progress.h"
#include "engine/support/RegularFile.h"
#include "engine/support/TextFormats.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

std::string storedText(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    return std::string(bytes.constData(), size_t(bytes.size()));
}

// The depth-first walk of ScanFolder, kept on an explicit stack so that the
// depth of a tree never meets the depth of the machine's stack. Each frame is
// one folder being recorded; a frame's values are those of one ScanFolder
// call.
class TreeWalk {
public:
    TreeWalk(Snapshot& snapshot, DirectoryReader& reader, ProgressMeter& meter,
             ScanFollower* follower, int32_t meterMaximum)
        : m_snapshot(snapshot), m_reader(reader), m_meter(meter), m_follower(follower),
          m_meterMaximum(meterMaximum) {}

    void run(FolderTask& root) {
        enter(root, 0, 0);
        drain();
    }

private:
    struct Frame {
        FolderTask* task;
        size_t next = 0;            // the next item of the listing to record
        size_t nextFingerprint = 0; // the fingerprint of the next fingerprinted item
        int32_t first = 0;          // index of the folder's first entry
        int32_t here = 0;           // entries created at this level and below
        int32_t last = 0;           // index of the entry recorded last
        int32_t parentIndex = 0;
        int16_t depth = 0;
        bool stopped = false;
    };

    // Starts recording a folder: its frame goes on top of the stack. Every
    // folder has a listing, if only the one nameless item of a folder that
    // could not be listed.
    void enter(FolderTask& task, int32_t parentIndex, int16_t depth) {
        m_reader.acquire(task, [this] { m_meter.update(m_snapshot.progress); });
        noteWhatWasLeftOut(task.listing);
        Frame f;
        f.task = &task;
        f.first = checkedAdd(checkedAdd(m_snapshot.fileCount, m_snapshot.folderCount), 1);
        f.parentIndex = parentIndex;
        f.depth = depth;
        m_stack.push_back(f);
    }

    void noteWhatWasLeftOut(const FolderListing& listing) {
        Snapshot& s = m_snapshot;
        s.hiddenLeftOut = checkedAdd(s.hiddenLeftOut, listing.hiddenLeftOut);
        if (listing.state != FolderListing::Listed) {
            s.unreadableFolders = checkedAdd(s.unreadableFolders, 1);
            m_meter.note(unreadableFoldersText(s.unreadableFolders));
        }
    }

    void drain() {
        while (!m_stack.empty()) {
            Frame& f = m_stack.back();
            const FolderListing& listing = f.task->listing;
            if (f.stopped || f.next == listing.items.size()) {
                leave();
                continue;
            }
            const ListedItem& item = listing.items[f.next++];
            // Before a new item of the root, everything recorded is done
            // with: the item before it is not the last of the root's ring.
            if (m_follower && m_stack.size() == 1 && m_snapshot.entryCount > 0)
                entriesFinal(m_snapshot.entryCount);
            record(f, listing, item);
            if (item.folder)
                enter(*item.folder, f.last, int16_t(f.depth + 1)); // its frame is on top now
            else
                afterItem(f, 0);
        }
    }

    // Records one item: counts it, ticks the meter for a folder near the
    // top, and fills its entry.
    void record(Frame& f, const FolderListing& listing, const ListedItem& item) {
        Snapshot& s = m_snapshot;
        f.here = checkedAdd(f.here, 1);
        const bool folder = item.attributes & Attribute::Folder;
        if (folder) {
            s.folderCount = checkedAdd(s.folderCount, 1);
            if (f.depth < s.meterDepth) {
                s.progress = checkedAdd(s.progress, 1);
                m_meter.update(s.progress);
            }
        } else {
            s.fileCount = checkedAdd(s.fileCount, 1);
        }
        s.entryCount = checkedAdd(s.fileCount, s.folderCount);
        if (s.entryCount > s.entries.capacity())
            s.entries.grow();
        f.last = s.entryCount;
        SnapshotEntry& e = s.entries.mutableAt(f.last);
        s.setName(e, listing.name(item));
        e.parent = f.parentIndex;
        e.attributes = toInt16(item.attributes);
        e.modified = item.modified;
        if (item.examined) {
            s.access.set(f.last, {item.mode, item.owner, item.group});
            if (item.link && item.extraLength > 0)
                s.access.setLinkTarget(f.last, listing.linkTarget(item));
        }
        if (item.fingerprinted)
            s.fingerprints.set(f.last, listing.fingerprints[f.nextFingerprint++]);
        else if (item.unreadable)
            ++s.fingerprints.unreadable;
        if (!folder) {
            // Every size up to 2^53 is exact in a double.
            e.size = double(item.size);
            s.totalSize += e.size;
            s.setVersion(e, listing.version(item));
        }
    }

    // After an item (and a folder's whole subtree): counts what was made
    // beneath it, links the item past its subtree, and stops the folder's
    // loop when the user cancelled.
    void afterItem(Frame& f, int32_t createdBelow) {
        f.here = checkedAdd(f.here, createdBelow);
        m_snapshot.entries.mutableAt(f.last).nextSibling = checkedAdd(m_snapshot.entryCount, 1);
        if (m_meter.cancelled())
            f.stopped = true;
    }

    // A folder is done: closes its ring, sets its count and returns to the
    // parent folder's loop.
    void leave() {
        Frame f = m_stack.back();
        m_stack.pop_back();
        // A folder that recorded nothing has last 0: the write lands on
        // entry 0, harmlessly.
        m_snapshot.entries.mutableAt(f.last).nextSibling = f.first;
        m_snapshot.entries.mutableAt(f.parentIndex).count = f.here;
        // A cancelled walk keeps its listings until the reader's workers
        // have stopped; a finished folder gives its memory back at once.
        if (!m_meter.cancelled())
            m_reader.release(*f.task);
        if (!m_stack.empty())
            afterItem(m_stack.back(), f.here);
    }

    // Entries 1..last will change no more. Entry 1 takes the meter maximum
    // as its count now rather than after the walk, so that the follower
    // sees it as it is kept.
    void entriesFinal(int32_t last) {
        m_snapshot.entries.mutableAt(1).count = m_meterMaximum;
        m_follower->entriesFinal(m_snapshot, last);
    }

    Snapshot& m_snapshot;
    DirectoryReader& m_reader;
    ProgressMeter& m_meter;
    ScanFollower* m_follower;
    int32_t m_meterMaximum;
    std::vector<Frame> m_stack;
};

// Counts with the file system's own bytes for names, so that folders whose
// names are not valid text are still reached; each folder is opened from its
// parent, never through a link. What the scan excludes is neither counted
// nor opened.
class FolderCounter {
public:
    FolderCounter(const ScanSettings& settings, int16_t limit)
        : m_exclude(settings.exclude.get()), m_oneFileSystem(settings.oneFileSystem),
          m_limit(limit) {}

    // The folders in the open folder dirFd (closed here) and beneath it.
    int32_t count(int dirFd, int16_t depth) {
        if (depth == 1 && m_oneFileSystem) {
            struct stat st;
            m_device = ::fstat(dirFd, &st) == 0 ? st.st_dev : 0;
        }
        DIR* dir = ::fdopendir(dirFd);
        if (!dir) {
            ::close(dirFd);
            return 0;
        }
        int32_t count = 0;
        const size_t pathLength = m_path.size();
        while (const dirent* de = ::readdir(dir)) {
            // The path ends with this folder's own again, whatever the
            // sibling before it added.
            m_path.resize(pathLength);
            const char* name = de->d_name;
            if (isDotOrDotDot(name) || !isFolder(dir, de) || excluded(name))
                continue;
            count = checkedAdd(count, 1);
            if (depth < m_limit) {
                const int sub = ::openat(::dirfd(dir), name, SubFolderOpenFlags);
                if (sub >= 0 && onRootDevice(sub)) {
                    m_path.push_back('/');
                    count = checkedAdd(count, this->count(sub, int16_t(depth + 1)));
                } else if (sub >= 0) {
                    ::close(sub);
                }
            }
        }
        m_path.resize(pathLength);
        ::closedir(dir);
        return count;
    }

private:
    static bool isFolder(DIR* dir, const dirent* de) {
        if (de->d_type != DT_UNKNOWN)
            return de->d_type == DT_DIR;
        struct stat st;
        return ::fstatat(::dirfd(dir), de->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
               S_ISDIR(st.st_mode);
    }

    // Appends the folder's name to the path below the root and asks the
    // exclusions about it.
    bool excluded(const char* raw) {
        if (!m_exclude)
            return false;
        const std::string_view name = storedName(raw, m_converted);
        const size_t nameStart = m_path.size();
        m_path.append(name);
        return m_exclude->ignores(
            std::string_view(m_path).substr(m_exclude->needsPaths() ? 0 : nameStart), true);
    }

    bool onRootDevice(int fd) const {
        struct stat st;
        return !m_oneFileSystem || (::fstat(fd, &st) == 0 && st.st_dev == m_device);
    }

    const IgnorePatterns* m_exclude;
    const bool m_oneFileSystem;
    const int16_t m_limit;
    dev_t m_device = 0;
    std::string m_path; // below the root, of the folder being counted
    std::string m_converted;
};

// The root's .kestrelignore, opened from the root folder as a regular file
// only, never through a link. Empty when there is none; problem says why
// one that is there could not be read.
std::string readOwnIgnoreFile(const QString& root, QString& problem) {
    const int dirFd =
        ::open(fileSystemPath(withSeparator(root)).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0)
        return {};
    const int fd = openRegularFileAt(dirFd, OwnIgnoreFileName, LinkRule::Refuse);
    const int openError = errno;
    ::close(dirFd);
    const QString name = QString::fromLatin1(OwnIgnoreFileName);
    if (fd < 0) {
        if (openError != ENOENT)
            problem = name + QStringLiteral(": ") + regularFileErrorText(openError);
        return {};
    }
    std::string text;
    char buffer[65536];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0 &&
           int64_t(text.size()) <= OwnIgnoreFileLimit)
        text.append(buffer, size_t(n));
    const int readError = errno;
    ::close(fd);
    if (n < 0) {
        problem = name + QStringLiteral(": ") + regularFileErrorText(readError);
        return {};
    }
    if (int64_t(text.size()) > OwnIgnoreFileLimit) {
        problem = name + QStringLiteral(": larger than 1 MiB");
        return {};
    }
    return text;
}

} // namespace

int32_t CountFolders(const QString& path, int16_t depth, int16_t limit,
                     const ScanSettings& settings) {
    const int fd =
        ::open(fileSystemPath(withSeparator(path)).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return fd < 0 ? 0 : FolderCounter(settings, limit).count(fd, depth);
}

QString unreadableFoldersText(int32_t folders) {
    return folders == 1 ? QStringLiteral("1 folder could not be read")
                        : formatCount(folders) + QStringLiteral(" folders could not be read");
}

QString scanNotes(int32_t hiddenLeftOut, int32_t unreadableFolders, int32_t unreadableFiles) {
    QString notes;
    if (hiddenLeftOut > 0)
        notes += hiddenLeftOut == 1 ? QStringLiteral(", 1 hidden entry left out")
                                    : QStringLiteral(", ") + formatCount(hiddenLeftOut) +
                                          QStringLiteral(" hidden entries left out");
    if (unreadableFolders > 0)
        notes += QStringLiteral(", ") + unreadableFoldersText(unreadableFolders);
    if (unreadableFiles > 0)
        notes += unreadableFiles == 1 ? QStringLiteral(", 1 file could not be read")
                                      : QStringLiteral(", ") + formatCount(unreadableFiles) +
                                            QStringLiteral(" files could not be read");
    return notes;
}

std::vector<int32_t> UnreadableFolders(const Snapshot& snapshot) {
    std::vector<int32_t> folders;
    std::vector<bool> seen(size_t(snapshot.entryCount) + 1);
    for (int32_t i = 1; i <= snapshot.entryCount; ++i) {
        const SnapshotEntry& e = snapshot.entries.get(i);
        if (!(e.isUnreadableMarker() || e.valuesUnknown()) ||
            !snapshot.entries.contains(e.parent) || e.parent >= i)
            continue;
        if (!seen[size_t(e.parent)]) {
            seen[size_t(e.parent)] = true;
            folders.push_back(e.parent);
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

Outcome TakeSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter) {
    MeterCloser closer{meter};
    try {
        snapshot.meterDepth = int16_t(settings.meterLevel + 1);
        const QString root = snapshot.header.rootFolder;
        snapshot.header.ownIgnorePatterns = readOwnIgnoreFile(root, snapshot.ignoreFileProblem);
        const int32_t maximum = CountFolders(root, 1, snapshot.meterDepth, settings);
        startCancellable(meter, maximum, QStringLiteral("Scanning Directory"));

        ListingRules rules;
        rules.recurse = snapshot.header.recurse;
        rules.hidden = snapshot.header.hidden;
        rules.versions = snapshot.header.versions;
        rules.rootText = storedText(withSeparator(root));
        rules.exclude = settings.exclude.get();
        rules.oneFileSystem = settings.oneFileSystem;
        rules.fingerprints = settings.fingerprints;
        snapshot.fingerprints.setTaken(settings.fingerprints);
        if (rules.versions) {
            QString folder = settings.versionFolder;
            while (folder.size() > 1 && folder.endsWith(Separator))
                folder.chop(1);
            rules.versionFolderText = storedText(storedPath(folder + Separator));
        }
        {
            DirectoryReader reader(rules, settings.listingThreads, settings.assumedDeviceWaits,
                                   settings.startThread);
            TreeWalk walk(snapshot, reader, meter, settings.follower, maximum);
            walk.run(reader.root(fileSystemPath(root).toStdString()));
        }
        // Entry 1 keeps the meter maximum for the comparison, in place of
        // its subtree count. An empty snapshot has no entry 1 to write.
        if (snapshot.entryCount >= 1)
            snapshot.entries.mutableAt(1).count = maximum;
        if (settings.follower && snapshot.entryCount >= 1 && !meter.cancelled())
            settings.follower->entriesFinal(snapshot, snapshot.entryCount);
    } catch (...) {
        const CaughtError e = caughtError();
        return Outcome::failure(
            UserMessage{QStringLiteral("Kestrel"), e.text, MessageIcon::Exclamation}, e.code);
    }
    if (meter.cancelled()) {
        Outcome o;
        o.cancelled = true;
        return o;
    }
    if (int64_t(snapshot.fileCount) + snapshot.folderCount < 1)
        return Outcome::failure(
            UserMessage{QStringLiteral("Empty Snapshot"),
                        QStringLiteral("No files or folders match the specifications"),
                        MessageIcon::Information});
    return Outcome::success();
}

Outcome CreateSnapshot(Snapshot& snapshot, const ScanSettings& settings, ProgressMeter& meter) {
    const double start = secondsSinceMidnight();
    Outcome outcome = TakeSnapshot(snapshot, settings, meter);
    if (!outcome.ok)
        return outcome;
    outcome.summary = SummaryLine(QStringLiteral("found"), start, secondsSinceMidnight(),
                                  snapshot.fileCount, snapshot.folderCount) +
                      scanNotes(snapshot.hiddenLeftOut, snapshot.unreadableFolders,
                                snapshot.fingerprints.unreadable);
    snapshot.header.created = oleNow();
    return outcome;
}

} // namespace kestrel::engine
