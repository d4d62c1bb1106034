#include "DirectoryReader.h"

#include "CaseFold.h"
#include "FileSystemNames.h"
#include "FileVersion.h"
#include "OleDate.h"
#include "Snapshot.h"
#include "TextDecode.h"

#include <cerrno>
#include <cstring>
#include <sys/resource.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

// Listings the walk has not consumed yet are capped, so workers running ahead
// never hold much more of the tree in memory than the walk needs next.
constexpr size_t MaxBufferedItems = 1 << 18;

// A listing that had to wait for the device this many times asks for
// another worker. Waiting for the device puts a thread to sleep of its own
// accord; a busy processor only takes it off, which does not count.
constexpr long DeviceWaits = 2;
// Listings judged together before workers are added.
constexpr int GrowthWindow = 8;

// The times this thread went to sleep of its own accord so far.
long voluntarySleeps() {
#ifdef RUSAGE_THREAD
    rusage usage{};
    if (::getrusage(RUSAGE_THREAD, &usage) == 0)
        return usage.ru_nvcsw;
#endif
    return 0;
}

// The attribute bits of an item from its lstat mode, with the Windows values
// snapshots store: folders 16, symbolic links 1024 (never followed), anything
// that is neither a file, a folder nor a link (device, FIFO, socket) the
// system bit 4, read-only 1 when the owner may not write, and 128 for a
// regular file with no other bit. Hidden (2) and archive (32) are never set:
// dot names, the POSIX hidden items, are skipped anyway.
int32_t attributesFromMode(mode_t mode) {
    int32_t attributes = 0;
    if (S_ISDIR(mode))
        attributes = Attribute::Folder;
    else if (S_ISLNK(mode))
        attributes = Attribute::ReparsePoint;
    else if (!S_ISREG(mode))
        attributes = Attribute::System;
    if (!(mode & S_IWUSR))
        attributes |= Attribute::ReadOnly;
    if (attributes == 0)
        attributes = Attribute::Normal;
    return attributes;
}

// The same from the directory entry's type, for an item that cannot be
// examined further.
int32_t attributesFromType(unsigned char type) {
    switch (type) {
    case DT_DIR:
        return Attribute::Folder;
    case DT_LNK:
        return Attribute::ReparsePoint;
    case DT_REG:
    case DT_UNKNOWN:
        return Attribute::Normal;
    default:
        return Attribute::System;
    }
}

uint32_t appendText(std::string& text, std::string_view part) {
    const auto offset = uint32_t(text.size());
    text.append(part);
    return offset;
}

thread_local LocalTimeConverter t_localTime;

// Opens a folder with flags. A path longer than the system takes whole
// (deep trees pass 4,096 bytes) is opened one folder at a time, each
// relative to the one before; only the last gets the flags, as a plain
// open would give them.
int openFolder(const std::string& path, int flags) {
    const int fd = ::open(path.c_str(), flags);
    if (fd >= 0 || errno != ENAMETOOLONG)
        return fd;
    constexpr int Through = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    const bool absolute = !path.empty() && path.front() == '/';
    int dir = ::open(absolute ? "/" : ".", Through);
    size_t start = absolute ? 1 : 0;
    while (dir >= 0) {
        while (start < path.size() && path[start] == '/')
            ++start;
        size_t end = path.find('/', start);
        if (end == std::string::npos)
            end = path.size();
        size_t after = end;
        while (after < path.size() && path[after] == '/')
            ++after;
        const bool last = after >= path.size();
        const std::string part = path.substr(start, end - start);
        const int next = ::openat(dir, part.empty() ? "." : part.c_str(), last ? flags : Through);
        const int error = errno;
        ::close(dir);
        errno = error;
        if (last)
            return next;
        dir = next;
        start = after;
    }
    return -1;
}

struct DirectoryItem {
    const char* name;
    unsigned char type;
};

#ifdef __linux__
// The items of an open folder, read with getdents64 into a large buffer: no
// stream object to set up per folder and few system calls per folder. Closes
// the folder when done.
class DirectoryStream {
public:
    explicit DirectoryStream(int fd) : m_fd(fd) {}
    ~DirectoryStream() { ::close(m_fd); }
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
// The items of an open folder through the portable directory stream.
class DirectoryStream {
public:
    explicit DirectoryStream(int fd) : m_dir(::fdopendir(fd)) {
        if (!m_dir)
            ::close(fd);
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

} // namespace

DirectoryReader::DirectoryReader(ListingRules rules, int workers, bool assumeDeviceWaits)
    : m_rules(std::move(rules)), m_assumeDeviceWaits(assumeDeviceWaits) {
    // The walk lists folders too while it waits, so one thread per core
    // besides it keeps every core busy; more come while listings wait.
    if (workers < 0) {
        workers = int(std::max(2u, std::thread::hardware_concurrency()) - 1);
        m_growing = true;
    }
    m_threaded = workers > 0;
    for (int i = 0; i < workers; ++i)
        m_threads.emplace_back([this] { work(); });
}

DirectoryReader::~DirectoryReader() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_work.notify_all();
    for (auto& t : m_threads)
        t.join();
}

FolderTask& DirectoryReader::root(std::string path) {
    m_root = std::make_unique<FolderTask>();
    m_root->path = std::move(path);
    return *m_root;
}

void DirectoryReader::list(FolderTask& task) const {
    FolderListing& listing = task.listing;
    try {
        if (m_rules.versions && !task.versionsOn)
            task.versionsOn = startsWithIgnoringCase(m_rules.rootText + task.relativeText,
                                                     m_rules.versionFolderText);
        int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
        // The root may be reached through a link the user named; folders
        // beneath it are never links (they were examined with lstat), and
        // one swapped for a link meanwhile is not followed.
        if (&task != m_root.get())
            flags |= O_NOFOLLOW;
        const int fd = openFolder(task.path, flags);
        if (fd < 0) {
            // A folder that cannot be listed, whether it is locked, missing
            // or gone since its parent was listed, gives one entry with an
            // empty name, no attributes and no size: what the listing has
            // always recorded when it could not start.
            listing.state = FolderListing::Unreadable;
            listing.items.emplace_back();
            return;
        }
        DirectoryStream stream(fd);
        const size_t expected = stream.expectedItems();
        listing.items.reserve(expected);
        listing.text.reserve(expected * 24);
        std::string converted;
        while (const DirectoryItem* de = stream.next()) {
            const char* rawName = de->name;
            if (rawName[0] == '.') // every dot name, not only . and ..
                continue;
            ListedItem item;
            struct stat st;
            if (::fstatat(fd, rawName, &st, AT_SYMLINK_NOFOLLOW) == 0) {
                item.attributes = attributesFromMode(st.st_mode);
                if (!S_ISDIR(st.st_mode))
                    item.size = st.st_size;
                if (!t_localTime.convert(st.st_mtime, item.modified))
                    item.modified = 0;
            } else if (errno == ENOENT) {
                continue; // gone since it was listed
            } else {
                item.attributes = attributesFromType(de->type);
            }
            if (!m_rules.hidden && (item.attributes & (Attribute::Hidden | Attribute::System)))
                continue;

            const std::string_view raw(rawName);
            const std::string_view name = storedName(raw, converted);
            item.nameOffset = appendText(listing.text, name);
            item.nameLength = uint32_t(name.size());

            const bool folder = item.attributes & Attribute::Folder;
            // Only regular files are read; links, devices and FIFOs give "".
            if (!folder && task.versionsOn) {
                const std::string version = fileVersionTextAt(fd, rawName);
                item.versionOffset = appendText(listing.text, version);
                item.versionLength = uint32_t(version.size());
            }
            if (folder && m_rules.recurse) {
                auto child = std::make_unique<FolderTask>();
                child->path.reserve(task.path.size() + raw.size() + 1);
                child->path.append(task.path).append(raw).push_back('/');
                if (m_rules.versions)
                    child->relativeText.append(task.relativeText).append(name).push_back('/');
                child->key.reserve(task.key.size() + 1);
                child->key = task.key;
                child->key.push_back(uint32_t(listing.items.size()));
                child->versionsOn = task.versionsOn;
                item.folder = child.get();
                listing.children.push_back(std::move(child));
            }
            listing.items.push_back(item);
        }
        if (stream.failed() && listing.items.empty()) {
            // The folder opened but could not be listed: as unreadable.
            listing.state = FolderListing::Unreadable;
            listing.items.emplace_back();
        }
    } catch (...) {
        task.failure = std::current_exception();
    }
}

void DirectoryReader::finish(FolderTask& task) {
    task.state = FolderTask::Done;
    m_buffered += task.listing.items.size() + 1;
    if (m_threaded && !task.listing.children.empty()) {
        for (auto& child : task.listing.children)
            m_pending.insert(child.get());
        if (m_idleWorkers > 0)
            m_work.notify_all();
    }
    if (&task == m_awaited)
        m_done.notify_one();
}

void DirectoryReader::release(FolderTask& task) {
    bool wake = false;
    {
        std::lock_guard lock(m_mutex);
        // Workers held back by the cap on listed items may go on.
        wake = m_buffered >= MaxBufferedItems && m_idleWorkers > 0;
        m_buffered -= task.listing.items.size() + 1;
    }
    if (wake)
        m_work.notify_all();
    task.listing = FolderListing();
}

void DirectoryReader::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        ++m_idleWorkers;
        m_work.wait(lock, [this] {
            return m_stopping || (!m_pending.empty() && m_buffered < MaxBufferedItems);
        });
        --m_idleWorkers;
        if (m_stopping)
            return;
        listPending(**m_pending.begin(), lock);
    }
}

void DirectoryReader::listPending(FolderTask& task, std::unique_lock<std::mutex>& lock) {
    m_pending.erase(&task);
    task.state = FolderTask::Claimed;
    lock.unlock();
    const long sleepsBefore = m_growing ? voluntarySleeps() : 0;
    list(task);
    const long sleeps = m_assumeDeviceWaits ? DeviceWaits
                        : m_growing         ? voluntarySleeps() - sleepsBefore
                                            : 0;
    lock.lock();
    finish(task);
    if (m_growing)
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
    m_windowListings = m_windowWaiting = 0;
    if (!waiting || m_stopping || m_idleWorkers > 0 || m_pending.empty())
        return;
    // Four times as many each time: enough workers for a cold device within
    // a few windows.
    const int add = std::min(3 * int(m_threads.size()), MaxWorkers - int(m_threads.size()));
    for (int i = 0; i < add; ++i)
        m_threads.emplace_back([this] { work(); });
}

} // namespace kestrel::engine
