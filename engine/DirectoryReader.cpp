#include "DirectoryReader.h"

#include "CaseFold.h"
#include "FileVersion.h"
#include "OleDate.h"
#include "Snapshot.h"
#include "TextDecode.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

// Listings the walk has not consumed yet are capped, so workers running ahead
// never hold much more of the tree in memory than the walk needs next.
constexpr size_t MaxBufferedItems = 1 << 18;

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

} // namespace

DirectoryReader::DirectoryReader(ListingRules rules, int workers) : m_rules(std::move(rules)) {
    if (workers < 0)
        workers = int(std::max(1u, std::thread::hardware_concurrency()));
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
        const int fd = ::open(task.path.c_str(), flags);
        if (fd < 0) {
            if (errno == ENOENT || errno == ENOTDIR) {
                listing.state = FolderListing::Missing;
            } else {
                // A folder that exists but cannot be listed gives one entry
                // with an empty name and nothing else, the way the listing
                // has always ended for such a folder.
                listing.state = FolderListing::Unreadable;
                listing.items.emplace_back();
            }
            return;
        }
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            ::close(fd);
            listing.state = FolderListing::Unreadable;
            listing.items.emplace_back();
            return;
        }
        std::string converted;
        while (const dirent* de = ::readdir(dir)) {
            const char* rawName = de->d_name;
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
                item.attributes = attributesFromType(de->d_type);
            }
            if (!m_rules.hidden && (item.attributes & (Attribute::Hidden | Attribute::System)))
                continue;

            const std::string_view raw(rawName);
            const std::string_view name = toStoredText(raw, converted) ? std::string_view(converted) : raw;
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
        ::closedir(dir);
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
        m_work.notify_all();
    }
    m_done.notify_all();
}

void DirectoryReader::release(FolderTask& task) {
    {
        std::lock_guard lock(m_mutex);
        m_buffered -= task.listing.items.size() + 1;
    }
    if (m_threaded)
        m_work.notify_all();
    task.listing = FolderListing();
}

void DirectoryReader::work() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_work.wait(lock, [this] {
            return m_stopping || (!m_pending.empty() && m_buffered < MaxBufferedItems);
        });
        if (m_stopping)
            return;
        FolderTask* task = *m_pending.begin();
        m_pending.erase(m_pending.begin());
        task->state = FolderTask::Claimed;
        lock.unlock();
        list(*task);
        lock.lock();
        finish(*task);
    }
}

} // namespace kestrel::engine
