#include "DirectoryReader.h"

#include "ContentFingerprint.h"
#include "FileVersion.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/model/CaseFold.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/TextDecode.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string_view>
#include <utility>

namespace kestrel::engine {

namespace {

// Listings the walk has not consumed yet are capped, so workers running ahead
// never hold much more of the tree in memory than the walk needs next.
constexpr size_t MaxBufferedItems = 1 << 18;

// A listing that had to wait for the device this many times asks for
// another worker. Waiting for the device puts a thread to sleep of its own
// accord; a busy processor only takes it off, which does not count. A
// listing that slept once waited for the device when the thread read from
// a disk meanwhile (a cold local folder sleeps about once a listing: the
// system reads ahead the records of its items); a sleep on a busy lock
// reads nothing.
constexpr long DeviceWaits = 2;
// Listings judged together before workers are added.
constexpr int GrowthWindow = 8;
// Asking for a thread's sleeps is a system call of its own, as dear as a
// tenth of a small folder's listing: where listings do not wait, only one in
// this many at most is looked at, every window that waited none doubling the
// gap until then; a window that waited looks at every listing again.
constexpr int WidestLookingGap = 16;

// The times this thread went to sleep of its own accord so far.
long voluntarySleeps() {
#ifdef RUSAGE_THREAD
    rusage usage{};
    if (::getrusage(RUSAGE_THREAD, &usage) == 0)
        return usage.ru_nvcsw;
#endif
    return 0;
}

// Whether this thread had bytes read from a storage device since it last
// asked (or since it started), by the system's count of them; false where
// the system keeps none. Network and user-space file systems read no
// device: their waits are counted as sleeps alone.
bool readFromDevice() {
    struct Counter {
        int fd = ::open("/proc/thread-self/io", O_RDONLY | O_CLOEXEC);
        long long last = 0;
        ~Counter() {
            if (fd >= 0)
                ::close(fd);
        }
    };
    thread_local Counter counter;
    if (counter.fd < 0)
        return false;
    constexpr std::string_view Field = "\nread_bytes: ";
    char text[512];
    const ssize_t n = ::pread(counter.fd, text, sizeof text - 1, 0);
    if (n <= 0)
        return false;
    text[n] = 0;
    const char* field = std::strstr(text, Field.data());
    if (!field)
        return false;
    const long long now = std::strtoll(field + Field.size(), nullptr, 10);
    const bool read = now > counter.last;
    counter.last = now;
    return read;
}

// The attribute bits of an item from its lstat mode, with the Windows values
// snapshots store: folders 16, symbolic links 1024 (never followed), anything
// that is neither a file, a folder nor a link (device, FIFO, socket) the
// system bit 4, read-only 1 when the owner may not write, hidden 2 for a name
// beginning with a dot, and 128 for a regular file with no other bit. The
// archive bit (32) is never set.
int32_t attributesFromMode(mode_t mode, bool hidden) {
    int32_t attributes = 0;
    if (S_ISDIR(mode))
        attributes = Attribute::Folder;
    else if (S_ISLNK(mode))
        attributes = Attribute::ReparsePoint;
    else if (!S_ISREG(mode))
        attributes = Attribute::System;
    if (!(mode & S_IWUSR))
        attributes |= Attribute::ReadOnly;
    if (hidden)
        attributes |= Attribute::Hidden;
    if (attributes == 0)
        attributes = Attribute::Normal;
    return attributes;
}

// What the directory entry's type tells of an item that cannot be examined:
// its kind, marked unknown.
int32_t unknownAttributes(unsigned char type, bool hidden) {
    int32_t attributes = Attribute::Unknown;
    if (hidden)
        attributes |= Attribute::Hidden;
    switch (type) {
    case DT_DIR:
        return attributes | Attribute::Folder;
    case DT_LNK:
        return attributes | Attribute::ReparsePoint;
    case DT_REG:
    case DT_UNKNOWN:
        return attributes;
    default:
        return attributes | Attribute::System;
    }
}

uint32_t appendText(std::basic_string<char, ShortCopyTraits>& text, std::string_view part) {
    const auto offset = uint32_t(text.size());
    text.append(part.data(), part.size());
    return offset;
}

// Where the link named rawName in the open folder fd points, read without
// following it, as its bytes, straight into the listing's text; nothing when
// it cannot be read. lstat's size is the target's length, but a link may
// change meanwhile: a target that fills the room is read again with more.
void appendLinkTarget(FolderListing& listing, ListedItem& item, int fd, const char* rawName,
                      off_t expected) {
    const size_t start = listing.text.size();
    for (size_t room = size_t(std::max<off_t>(expected, 0)) + 1; room <= (size_t(1) << 20);
         room *= 2) {
        listing.text.resize(start + room);
        const ssize_t n = ::readlinkat(fd, rawName, listing.text.data() + start, room);
        if (n >= 0 && size_t(n) < room) {
            listing.text.resize(start + size_t(n));
            item.extraOffset = uint32_t(start);
            item.extraLength = uint32_t(n);
            return;
        }
        if (n < 0)
            break;
    }
    listing.text.resize(start);
}

thread_local LocalTimeConverter t_localTime;

// The root, which may be reached through a link the user named.
constexpr int RootOpenFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// How many descriptors may be kept open for folders whose sub-folders wait:
// half the limit on open files, less one for each thread that may be
// listing a folder meanwhile, so the rest of the process keeps the other
// half.
int keptDescriptorBudget() {
    rlimit limit{};
    rlim_t open = 1024;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0)
        open = limit.rlim_cur;
    const rlim_t half = std::min<rlim_t>(open, INT_MAX) / 2;
    const rlim_t listing = DirectoryReader::MaxWorkers + 1;
    return int(std::max<rlim_t>(half > listing ? half - listing : 0, 4));
}

struct DirectoryItem {
    const char* name;
    unsigned char type;
};

#ifdef __linux__
// The items of an open folder, read with getdents64 into a large buffer: no
// stream object to set up per folder and few system calls per folder. The
// descriptor stays the caller's.
class DirectoryStream {
public:
    explicit DirectoryStream(int fd) : m_fd(fd) {}
    const DirectoryItem* next() {
        for (;;) {
            if (m_at < m_size) {
                const auto* d = reinterpret_cast<const Dirent64*>(t_buffer + m_at);
                m_at += d->reclen;
                m_item = {d->name, d->type};
                return &m_item;
            }
            if (m_done)
                return nullptr;
            const long n = ::syscall(SYS_getdents64, m_fd, t_buffer, sizeof t_buffer);
            if (n <= 0) {
                m_failed = n < 0;
                m_done = true;
                return nullptr;
            }
            m_size = size_t(n);
            m_at = 0;
        }
    }
    bool failed() const { return m_failed; }
    // An estimate of the items to come, from the first block read: enough to
    // make room for a folder's listing once instead of growing it item by item.
    size_t expectedItems() {
        if (m_size == 0 && !m_failed) {
            const long n = ::syscall(SYS_getdents64, m_fd, t_buffer, sizeof t_buffer);
            m_failed = n < 0;
            m_size = n > 0 ? size_t(n) : 0;
            m_at = 0;
            m_done = n <= 0;
        }
        return m_size / 32;
    }

private:
    struct Dirent64 {
        uint64_t ino;
        int64_t off;
        unsigned short reclen;
        unsigned char type;
        char name[1];
    };
    alignas(8) static thread_local char t_buffer[1 << 16];
    int m_fd;
    size_t m_at = 0;
    size_t m_size = 0;
    bool m_failed = false;
    bool m_done = false;
    DirectoryItem m_item{};
};
alignas(8) thread_local char DirectoryStream::t_buffer[1 << 16];
#else
// The items of an open folder through the portable directory stream, on a
// duplicate of the caller's descriptor.
class DirectoryStream {
public:
    explicit DirectoryStream(int fd) : m_dir(nullptr) {
        const int own = ::dup(fd);
        if (own >= 0 && !(m_dir = ::fdopendir(own)))
            ::close(own);
    }
    ~DirectoryStream() {
        if (m_dir)
            ::closedir(m_dir);
    }
    const DirectoryItem* next() {
        if (!m_dir)
            return nullptr;
        errno = 0;
        const dirent* d = ::readdir(m_dir);
        if (!d) {
            m_failed = errno != 0;
            return nullptr;
        }
        m_item = {d->d_name, d->d_type};
        return &m_item;
    }
    bool failed() const { return !m_dir || m_failed; }
    size_t expectedItems() { return 16; }

private:
    DIR* m_dir;
    bool m_failed = false;
    DirectoryItem m_item{};
};
#endif

// The task of listing a sub-folder of task later: raw is its name on disk
// and name its stored text; examined, when it could be examined, tells
// which folder it is. childText keeps its text below the root. A spare task
// (one the walk is done with) is used again, every value set afresh.
std::unique_ptr<FolderTask> subFolderTask(FolderTask& task, std::string_view raw,
                                          std::string_view name, const struct stat* examined,
                                          bool childText, std::unique_ptr<FolderTask> spare) {
    auto child = spare ? std::move(spare) : std::make_unique<FolderTask>();
    child->parent = &task;
    child->name.assign(raw);
    child->device = examined ? examined->st_dev : 0;
    child->inode = examined ? examined->st_ino : 0;
    child->itemNames = task.itemNames + 1;
    child->relativeText.clear();
    if (childText)
        child->relativeText.append(task.relativeText).append(name).push_back('/');
    child->versionsOn = task.versionsOn;
    child->state.store(FolderTask::Pending, std::memory_order_relaxed);
    child->failure = nullptr;
    return child;
}

} // namespace

FolderTask::~FolderTask() {
    if (m_fd >= 0)
        ::close(m_fd);
}

DirectoryReader::DirectoryReader(ListingRules rules, int workers,
                                 std::function<bool()> assumedWaits, ThreadStarter startThread)
    : m_rules(std::move(rules)), m_startThread(std::move(startThread)),
      m_assumedWaits(std::move(assumedWaits)), m_keptBudget(keptDescriptorBudget()) {
    if (!m_startThread)
        m_startThread = [](std::function<void()> run) { return std::thread(std::move(run)); };
    // The walk lists folders too while it waits, so one thread per core
    // besides it keeps every core busy; more come while listings wait.
    if (workers < 0) {
        workers = int(std::max(2u, std::thread::hardware_concurrency()) - 1);
        m_growing = true;
    }
    m_threaded = workers > 0;
    // Room for every worker there may be: adding one never moves the others.
    m_threads.reserve(size_t(std::max(workers, MaxWorkers)));
    m_baseWorkers = m_activeWorkers = workers;
    try {
        for (int i = 0; i < workers; ++i)
            startWorker();
    } catch (...) {
        // Threads left running when their objects go would end the program.
        stopWorkers();
        throw;
    }
}

DirectoryReader::~DirectoryReader() {
    stopWorkers();
}

void DirectoryReader::startWorker() {
    const int n = int(m_threads.size());
    m_threads.push_back(m_startThread([this, n] { work(n); }));
}

void DirectoryReader::stopWorkers() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_work.notify_all();
    for (auto& t : m_threads)
        if (t.joinable())
            t.join();
}

FolderTask& DirectoryReader::root(std::string path) {
    m_root = std::make_unique<FolderTask>();
    m_root->name = std::move(path);
    return *m_root;
}

void DirectoryReader::list(FolderTask& task) {
    SpareTasks none;
    list(task, none);
}

void DirectoryReader::list(FolderTask& task, SpareTasks& spares) {
    FolderListing& listing = task.listing;
    int fd = -1;
    try {
        if (m_rules.versions && !task.versionsOn)
            task.versionsOn = startsWithIgnoringCase(m_rules.rootText + task.relativeText,
                                                     m_rules.versionFolderText);
        fd = openFolder(task);
        if (fd < 0) {
            // A folder that cannot be listed, whether it is locked, missing
            // or gone since its parent was listed, gives one entry with an
            // empty name, no attributes and no size: what the listing has
            // always recorded when it could not start.
            listing.state = FolderListing::Unreadable;
            listing.items.emplace_back();
            return;
        }
        if (!task.parent && m_rules.oneFileSystem) {
            struct stat st;
            if (::fstat(fd, &st) == 0)
                m_rootDevice = st.st_dev;
        }
        const int32_t subFolders = listItems(task, fd, spares);
        keepOrClose(task, std::exchange(fd, -1), subFolders);
    } catch (...) {
        if (fd >= 0)
            ::close(fd);
        task.failure = std::current_exception();
    }
}

int32_t DirectoryReader::listItems(FolderTask& task, int fd, SpareTasks& spares) {
    FolderListing& listing = task.listing;
    DirectoryStream stream(fd);
    const size_t expected = stream.expectedItems();
    listing.items.reserve(expected);
    listing.text.reserve(expected * 24);
    // Exclusions are asked only about items no deeper than a pattern can
    // match, and sub-folders need their text below the root only while the
    // exclusions may ask about their items' paths or they may still lead to
    // the version folder.
    const IgnorePatterns* exclude =
        m_rules.exclude && task.itemNames <= m_rules.exclude->deepestMatch() ? m_rules.exclude
                                                                             : nullptr;
    // How files of this folder may be read for their fingerprints.
    const ReadingFolder reading =
        m_rules.fingerprints ? readingFolder(fd, m_identity) : ReadingFolder{};
    const bool childTexts =
        (exclude && exclude->needsPaths() && task.itemNames < exclude->deepestMatch()) ||
        (m_rules.versions && !task.versionsOn &&
         startsWithIgnoringCase(m_rules.versionFolderText, m_rules.rootText + task.relativeText));
    std::string converted;
    while (const DirectoryItem* de = stream.next()) {
        const char* rawName = de->name;
        if (isDotOrDotDot(rawName))
            continue;
        // A name beginning with a dot is the hidden item of POSIX: without
        // hidden items it is left out, and everything beneath it, unexamined.
        const bool dotName = rawName[0] == '.';
        if (dotName && !m_rules.hidden) {
            ++listing.hiddenLeftOut;
            continue;
        }
        const std::string_view raw(rawName);
        const std::string_view name = storedName(raw, converted);
        // When the listing tells what an item is, an excluded one is left out
        // before it is examined; one that might be a hidden system item is
        // examined first, so that it is counted as such.
        const bool typeKnown = de->type == DT_DIR || de->type == DT_REG || de->type == DT_LNK ||
                               (de->type != DT_UNKNOWN && m_rules.hidden);
        if (exclude && typeKnown && excluded(task, name, de->type == DT_DIR))
            continue;
        // Filled in place: an item left out after all is taken off again.
        ListedItem& item = listing.items.emplace_back();
        struct stat st;
        bool examined = ::fstatat(fd, rawName, &st, AT_SYMLINK_NOFOLLOW) == 0;
        if (examined) {
            item.examined = true;
            item.mode = uint16_t(st.st_mode & 07777);
            item.owner = uint32_t(st.st_uid);
            item.group = uint32_t(st.st_gid);
            item.attributes = attributesFromMode(st.st_mode, dotName);
            if (!S_ISDIR(st.st_mode))
                item.size = st.st_size;
            if (!t_localTime.convert(st.st_mtime, item.modified))
                item.modified = 0;
        } else if (errno == ENOENT) {
            listing.items.pop_back();
            continue; // gone since it was listed
        } else {
            // Listed but not examined (a folder that may be read but not
            // searched): size and date stay 0 and the entry says so.
            item.attributes = unknownAttributes(de->type, dotName);
            listing.state = FolderListing::Unsearchable;
        }
        if (!m_rules.hidden && (item.attributes & (Attribute::Hidden | Attribute::System))) {
            ++listing.hiddenLeftOut;
            listing.items.pop_back();
            continue;
        }

        const bool folder = item.attributes & Attribute::Folder;
        if (exclude && !typeKnown && excluded(task, name, folder)) {
            listing.items.pop_back();
            continue;
        }
        item.nameOffset = appendText(listing.text, name);
        item.nameLength = uint32_t(name.size());

        // Only what lstat showed as a regular file is opened for its
        // version: opening a FIFO would release a writer waiting on it, and
        // opening a device can act on the device.
        if (examined && S_ISREG(st.st_mode) && task.versionsOn) {
            const std::string version = fileVersionTextAt(fd, rawName, &st);
            item.extraOffset = appendText(listing.text, version);
            item.extraLength = uint32_t(version.size());
        }
        if (examined && S_ISLNK(st.st_mode)) {
            item.link = true;
            appendLinkTarget(listing, item, fd, rawName, st.st_size);
        }
        if (examined && S_ISREG(st.st_mode) && m_rules.fingerprints) {
            if (const std::optional<Fingerprint> taken =
                    fingerprintFileAt(fd, rawName, st, reading)) {
                listing.fingerprints.push_back(*taken);
                item.fingerprinted = true;
            } else {
                item.unreadable = true;
            }
        }
        const bool elsewhere =
            m_rules.oneFileSystem && examined && folder && st.st_dev != m_rootDevice;
        if (folder && m_rules.recurse && !elsewhere) {
            std::unique_ptr<FolderTask> child =
                subFolderTask(task, raw, name, examined ? &st : nullptr, childTexts,
                              spares.count > 0 ? std::move(spares.tasks[--spares.count]) : nullptr);
            item.folder = child.get();
            listing.children.push_back(std::move(child));
        }
    }
    if (stream.failed() && listing.items.empty()) {
        // The folder opened but could not be listed: as unreadable.
        listing.state = FolderListing::Unreadable;
        listing.items.emplace_back();
    }
    return int32_t(listing.children.size());
}

bool DirectoryReader::excluded(const FolderTask& task, std::string_view name, bool folder) const {
    if (!m_rules.exclude->needsPaths())
        return m_rules.exclude->ignores(name, folder);
    // One path buffer per listing thread: no allocation per item.
    thread_local std::string path;
    path.assign(task.relativeText).append(name);
    return m_rules.exclude->ignores(path, folder);
}

int DirectoryReader::openFolder(FolderTask& task) {
    if (!task.parent)
        return ::open(task.name.c_str(), RootOpenFlags);
    const int parentFd = borrow(*task.parent);
    const int fd = parentFd < 0 ? -1 : openSubFolder(parentFd, task.name, false);
    giveBack(*task.parent);
    return fd;
}

int DirectoryReader::openSubFolder(int parentFd, const std::string& name, bool lockHeld) {
    const int fd = ::openat(parentFd, name.c_str(), SubFolderOpenFlags);
    if (fd >= 0 || (errno != EMFILE && errno != ENFILE))
        return fd;
    // The process ran out of descriptors elsewhere: give back the kept ones
    // not in use, which can be opened again, and try once more.
    Closing closing;
    {
        std::unique_lock lock(m_descriptorMutex, std::defer_lock);
        if (!lockHeld)
            lock.lock();
        trimKept(0, closing);
        // Rare, and the descriptors are needed now: closed at once.
        closeAll(closing);
    }
    return ::openat(parentFd, name.c_str(), SubFolderOpenFlags);
}

void DirectoryReader::closeAll(Closing& closing) {
    for (const int fd : closing)
        ::close(fd);
    closing.clear();
}

int DirectoryReader::borrow(FolderTask& folder) {
    Closing closing;
    int fd;
    {
        std::lock_guard lock(m_descriptorMutex);
        fd = folder.m_fd >= 0 ? folder.m_fd : reopen(folder, closing);
        ++folder.m_borrowers;
        trimKept(m_keptBudget, closing);
    }
    closeAll(closing);
    return fd;
}

void DirectoryReader::giveBack(FolderTask& folder) {
    Closing closing;
    {
        std::lock_guard lock(m_descriptorMutex);
        --folder.m_borrowers;
        --folder.m_waiting;
        // The root's stays open for the whole walk: every other folder can
        // be opened again from it.
        if (folder.m_waiting > 0 || folder.m_borrowers > 0 || !folder.parent || folder.m_fd < 0)
            return;
        climbToParent(folder, closing);
        closeKept(folder, closing);
    }
    closeAll(closing);
}

void DirectoryReader::climbToParent(FolderTask& folder, Closing& closing) {
    // A parent whose descriptor was given up and whose sub-folders still
    // wait is opened again from this one's "..", one step, where opening it
    // from the nearest folder still open would take one step a level: so a
    // long chain is climbed back as cheaply as it was gone down.
    FolderTask* parent = folder.parent;
    if (!parent->parent || parent->m_fd >= 0 || parent->m_waiting <= 0 || parent->inode == 0)
        return;
    const int fd = ::openat(folder.m_fd, "..", SubFolderOpenFlags);
    struct stat st;
    if (fd >= 0 && ::fstat(fd, &st) == 0 && st.st_dev == parent->device &&
        st.st_ino == parent->inode) {
        keep(*parent, fd);
        trimKept(m_keptBudget, closing);
    } else if (fd >= 0) {
        closing.push_back(fd);
    }
}

void DirectoryReader::keepOrClose(FolderTask& task, int fd, int32_t subFolders) {
    if (subFolders == 0 && task.parent) {
        ::close(fd);
        return;
    }
    Closing closing;
    {
        std::lock_guard lock(m_descriptorMutex);
        task.m_waiting = subFolders;
        if (!task.parent) {
            task.m_fd = fd;
            return;
        }
        keep(task, fd);
        trimKept(m_keptBudget, closing);
    }
    closeAll(closing);
}

int DirectoryReader::reopen(FolderTask& folder, Closing& closing) {
    // Up to the nearest folder still open (the root always is), then down
    // again name by name, each checked to be the folder its parent's listing
    // saw. Folders on the way whose sub-folders wait are kept open again,
    // within the budget: the walk meets the deepest of them first.
    std::vector<FolderTask*> way;
    FolderTask* at = &folder;
    while (at->m_fd < 0 && at->parent) {
        way.push_back(at);
        at = at->parent;
    }
    if (at->m_fd < 0)
        return -1;
    FolderTask* holder = at; // the kept folder whose descriptor leads on
    int passing = -1;        // or a descriptor open only for the way down
    ++holder->m_borrowers;
    int dirFd = at->m_fd;
    for (auto step = way.rbegin(); step != way.rend(); ++step) {
        FolderTask& next = **step;
        int fd = openSubFolder(dirFd, next.name, true);
        struct stat st;
        if (fd >= 0 && next.inode != 0 &&
            (::fstat(fd, &st) != 0 || st.st_dev != next.device || st.st_ino != next.inode)) {
            ::close(fd);
            fd = -1;
        }
        if (holder)
            --holder->m_borrowers;
        if (passing >= 0)
            ::close(passing);
        holder = nullptr;
        passing = -1;
        dirFd = fd;
        if (fd < 0)
            break;
        if (next.m_waiting > 0) {
            trimKept(m_keptBudget - 1, closing);
            keep(next, fd);
            holder = &next;
            ++holder->m_borrowers;
        } else {
            passing = fd;
        }
    }
    if (holder)
        --holder->m_borrowers;
    // The folder asked for has sub-folders waiting, so it is kept, not passing.
    return dirFd;
}

void DirectoryReader::keep(FolderTask& folder, int fd) {
    folder.m_fd = fd;
    folder.m_kept = true;
    folder.m_olderKept = m_newestKept;
    folder.m_newerKept = nullptr;
    (m_newestKept ? m_newestKept->m_newerKept : m_oldestKept) = &folder;
    m_newestKept = &folder;
    ++m_keptCount;
}

void DirectoryReader::closeKept(FolderTask& folder, Closing& closing) {
    if (folder.m_fd >= 0)
        closing.push_back(folder.m_fd);
    folder.m_fd = -1;
    if (!folder.m_kept)
        return;
    (folder.m_olderKept ? folder.m_olderKept->m_newerKept : m_oldestKept) = folder.m_newerKept;
    (folder.m_newerKept ? folder.m_newerKept->m_olderKept : m_newestKept) = folder.m_olderKept;
    folder.m_olderKept = folder.m_newerKept = nullptr;
    folder.m_kept = false;
    --m_keptCount;
}

void DirectoryReader::trimKept(int budget, Closing& closing) {
    // The walk meets sub-folders of the folders kept last first: those kept
    // longest wait longest, and go first.
    FolderTask* at = m_oldestKept;
    while (m_keptCount > budget && at) {
        FolderTask* newer = at->m_newerKept;
        if (at->m_borrowers == 0)
            closeKept(*at, closing);
        at = newer;
    }
}

FolderTask* DirectoryReader::firstPending() const {
    // Folders being listed keep their places at the front.
    for (FolderTask* at = m_queueFirst; at; at = at->m_after)
        if (at->state == FolderTask::Pending)
            return at;
    return nullptr;
}

void DirectoryReader::queueAfter(FolderTask* before, FolderTask& task) {
    FolderTask* after = before ? before->m_after : m_queueFirst;
    task.m_before = before;
    task.m_after = after;
    (before ? before->m_after : m_queueFirst) = &task;
    (after ? after->m_before : m_queueLast) = &task;
    task.m_queued = true;
}

void DirectoryReader::unqueue(FolderTask& task) {
    (task.m_before ? task.m_before->m_after : m_queueFirst) = task.m_after;
    (task.m_after ? task.m_after->m_before : m_queueLast) = task.m_before;
    task.m_before = task.m_after = nullptr;
    task.m_queued = false;
}

void DirectoryReader::finish(FolderTask& task) {
    m_buffered += task.listing.items.size() + 1;
    if (m_threaded) {
        // The sub-folders take the folder's place in the queue: in the
        // walk's order they come right after it, before anything queued
        // after it.
        FolderTask* before = task.m_queued ? task.m_before : nullptr;
        if (task.m_queued)
            unqueue(task);
        for (auto& child : task.listing.children) {
            queueAfter(before, *child);
            before = child.get();
        }
        m_pendingCount += task.listing.children.size();
        if (m_idleWorkers > 0 && !task.listing.children.empty())
            m_work.notify_all();
    }
    // Done comes last: the walk takes a task it sees done without the lock,
    // and may give its listing back at once (release), which must not
    // happen while it is still read here.
    task.state.store(FolderTask::Done, std::memory_order_release);
    if (&task == m_awaited)
        m_done.notify_one();
}

void DirectoryReader::release(FolderTask& task) {
    // A few hundred keep the threads out of each other's allocator; more
    // would only hold memory a scan of millions of entries needs for the
    // snapshot. The listing of a very large folder is not kept, so that one
    // such folder does not hold its memory for the rest of the walk.
    constexpr size_t MostSpareTasks = 512;
    constexpr size_t MostSpareListings = 64;
    constexpr size_t LargestSpareListing = 4096;

    // The walk has left every sub-folder: each one's listing was given back
    // and its descriptor closed, and no worker looks at it any more, so
    // they may be used again (subFolderTask sets them afresh).
    FolderListing& listing = task.listing;
    const size_t items = listing.items.size();
    listing.items.clear();
    listing.text.clear();
    listing.fingerprints.clear();
    listing.state = FolderListing::Listed;
    listing.hiddenLeftOut = 0;

    bool wake = false;
    {
        std::unique_lock lock(m_mutex, std::defer_lock);
        lockBriefly(lock);
        // Workers held back by the cap on listed items may go on.
        wake = m_buffered >= MaxBufferedItems && m_idleWorkers > 0;
        m_buffered -= items + 1;
        auto& children = listing.children;
        while (!children.empty() && m_spareTasks.size() < MostSpareTasks) {
            FolderTask& c = *children.back();
            // One that still has a descriptor (never so after a walk that
            // went through it) is not used again.
            if (c.m_fd >= 0 || c.m_kept || c.m_queued || c.listing.items.capacity() > 0)
                break;
            m_spareTasks.push_back(std::move(children.back()));
            children.pop_back();
        }
        if (children.empty() && m_spareListings.size() < MostSpareListings &&
            listing.items.capacity() <= LargestSpareListing)
            m_spareListings.push_back(std::move(listing));
    }
    if (wake)
        m_work.notify_all();
    // Whatever was not kept is freed outside the lock.
    listing = FolderListing();
}

void DirectoryReader::takeSpares(FolderTask& task, SpareTasks& spares) {
    if (!m_spareListings.empty() && task.listing.items.capacity() == 0) {
        task.listing = std::move(m_spareListings.back());
        m_spareListings.pop_back();
    }
    while (spares.count < SpareTasksTaken && !m_spareTasks.empty()) {
        spares.tasks[spares.count++] = std::move(m_spareTasks.back());
        m_spareTasks.pop_back();
    }
}

void DirectoryReader::keepSpares(SpareTasks& spares) {
    while (spares.count > 0)
        m_spareTasks.push_back(std::move(spares.tasks[--spares.count]));
}

void DirectoryReader::work(int n) {
    std::unique_lock lock(m_mutex);
    for (;;) {
        // A resting worker is not idle: it waits to be made active again.
        const bool active = n < m_activeWorkers;
        if (active)
            ++m_idleWorkers;
        m_work.wait(lock, [&] {
            return m_stopping || (n < m_activeWorkers) != active ||
                   (active && m_pendingCount > 0 && m_buffered < MaxBufferedItems);
        });
        if (active)
            --m_idleWorkers;
        if (m_stopping)
            return;
        if (n < m_activeWorkers && m_pendingCount > 0 && m_buffered < MaxBufferedItems)
            listPending(*firstPending(), lock);
    }
}

void DirectoryReader::listPending(FolderTask& task, std::unique_lock<std::mutex>& lock) {
    if (task.m_queued)
        --m_pendingCount;
    task.state = FolderTask::Claimed;
    const bool looked = m_growing && ++m_unlookedListings >= m_lookingGap;
    if (looked)
        m_unlookedListings = 0;
    SpareTasks spares;
    takeSpares(task, spares);
    lock.unlock();
    const long sleepsBefore = looked && !m_assumedWaits ? voluntarySleeps() : 0;
    list(task, spares);
    long sleeps = 0;
    if (m_assumedWaits) {
        sleeps = m_assumedWaits() ? DeviceWaits : 0;
    } else if (looked) {
        sleeps = voluntarySleeps() - sleepsBefore;
        if (sleeps > 0 && sleeps < DeviceWaits && readFromDevice())
            sleeps = DeviceWaits;
    }
    lockBriefly(lock);
    keepSpares(spares);
    finish(task);
    if (looked && m_growing)
        considerAnotherWorker(sleeps);
}

void DirectoryReader::considerAnotherWorker(long deviceWaits) {
    // Judged over windows of listings: a tree in memory has a listing wait
    // now and then (a page fault, a busy lock), a tree on a cold device has
    // most of them wait.
    ++m_windowListings;
    if (deviceWaits >= DeviceWaits)
        ++m_windowWaiting;
    if (m_windowListings < GrowthWindow)
        return;
    const bool waiting = m_windowWaiting * 2 >= m_windowListings;
    const bool quiet = m_windowWaiting == 0;
    m_lookingGap = quiet ? std::min(2 * m_lookingGap, WidestLookingGap) : 1;
    m_windowListings = m_windowWaiting = 0;
    if (quiet && m_activeWorkers > m_baseWorkers) {
        // The part of the tree the device had to read is behind: workers
        // beyond one a core would only take turns on the processors.
        m_activeWorkers = m_baseWorkers;
        return;
    }
    if (!waiting || m_stopping || m_idleWorkers > 0 || m_pendingCount == 0)
        return;
    // Four times as many each time: enough workers for a cold device within
    // a few windows. Those resting are woken before any is started.
    const int wanted = std::min(4 * std::max(m_activeWorkers, 1), MaxWorkers);
    try {
        while (int(m_threads.size()) < wanted)
            startWorker();
    } catch (const std::exception&) {
        // The system starts no more threads: the workers there are carry on.
        m_growing = false;
    }
    m_activeWorkers = std::min(wanted, int(m_threads.size()));
    m_work.notify_all();
}

} // namespace kestrel::engine
