#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kestrel::engine {

// What the reader needs to know to list folders the way a scan records them.
struct ListingRules {
    bool recurse = false;  // sub-folders are listed too
    bool hidden = false;   // hidden and system items are kept
    bool versions = false; // version texts are read inside the version folder
    std::string rootText;  // the root folder as stored text, ending in "/"
    std::string versionFolderText; // the version folder as stored text, ending in "/"
};

struct FolderTask;

// One item of a folder, with every value a snapshot entry takes from it.
struct ListedItem {
    uint32_t nameOffset = 0; // stored text of the name in FolderListing::text
    uint32_t nameLength = 0;
    uint32_t versionOffset = 0; // version text in FolderListing::text
    uint32_t versionLength = 0;
    int64_t size = 0;           // st_size; the scan applies the program's size rule
    double modified = 0;        // local OLE date, 0 when it could not be converted
    int32_t attributes = 0;
    FolderTask* folder = nullptr; // the folder to descend into, when there is one
};

// The listing of one folder, in the order the file system gave its items,
// with dot names and (unless hidden items are kept) hidden and system items
// already left out.
struct FolderListing {
    // Unreadable: the folder could not be listed (locked, missing, gone);
    // its listing is then one item with an empty name and zero values.
    enum State { Listed, Unreadable };
    State state = Listed;
    std::vector<ListedItem> items;
    std::string text; // names and versions, back to back
    std::vector<std::unique_ptr<FolderTask>> children;

    std::string_view name(const ListedItem& item) const {
        return std::string_view(text).substr(item.nameOffset, item.nameLength);
    }
    std::string_view version(const ListedItem& item) const {
        return std::string_view(text).substr(item.versionOffset, item.versionLength);
    }
};

// A folder to list. Its key is the path of item positions from the root, so
// that ordering keys orders folders the way a depth-first walk meets them.
struct FolderTask {
    enum State { Pending, Claimed, Done };
    std::string path;         // file-system bytes, ending in "/"
    std::string relativeText; // stored text below the root (only when versions are read)
    std::vector<uint32_t> key;
    bool versionsOn = false;
    State state = Pending;
    FolderListing listing;
    std::exception_ptr failure;
};

// Lists the folders of a tree for a depth-first walk. The walk runs on the
// caller's thread and asks for each folder's listing in turn; worker threads
// list the folders it will need next, nearest first, so the system calls of
// several folders overlap while the walk itself stays in exact depth-first,
// file-system order. With no workers the caller lists each folder itself.
//
// A tree whose folders and inodes are not in memory (a disk nobody read
// lately, a network share) keeps each listing waiting on the device, which
// answers several requests at once as fast as one. When listings wait for the
// device, the reader adds workers, up to MaxWorkers, so that more requests
// are in flight; a tree in memory never waits and keeps one worker per core.
class DirectoryReader {
public:
    static constexpr int MaxWorkers = 32;

    // workers: listing threads besides the caller's; -1 for one per core
    // and more while listings wait on the device, 0 for the caller alone.
    // assumeDeviceWaits counts every listing as one that waited (tests).
    DirectoryReader(ListingRules rules, int workers, bool assumeDeviceWaits = false);
    ~DirectoryReader();

    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    // The task of the root folder (path as the file system takes it).
    FolderTask& root(std::string path);

    // Returns once the task is listed: takes it over when no worker has
    // started it, else lists other waiting folders meanwhile, or waits when
    // there are none, calling whileWaiting about every 100 ms so the caller
    // can keep its user interface alive. Rethrows a worker's failure.
    template <typename Idle> void acquire(FolderTask& task, Idle whileWaiting) {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (task.state == FolderTask::Done)
                break;
            if (task.state == FolderTask::Pending) {
                listPending(task, lock);
                break;
            }
            // A worker is listing the folder the walk needs. Rather than sleep,
            // list the next folder waiting: the walk needs it soon anyway.
            if (!m_pending.empty()) {
                listPending(**m_pending.begin(), lock);
                continue;
            }
            m_awaited = &task;
            const auto waited = m_done.wait_for(lock, std::chrono::milliseconds(100));
            m_awaited = nullptr;
            if (waited == std::cv_status::timeout) {
                lock.unlock();
                whileWaiting();
                lock.lock();
            }
        }
        if (task.failure)
            std::rethrow_exception(task.failure);
    }

    // The walk is done with a task's listing: frees it and its children.
    void release(FolderTask& task);

    // Lists one folder on the calling thread (also used by workers).
    void list(FolderTask& task) const;

private:
    struct KeyOrder {
        bool operator()(const FolderTask* a, const FolderTask* b) const { return a->key < b->key; }
    };

    // Takes a pending task off the queue and lists it outside the lock.
    void listPending(FolderTask& task, std::unique_lock<std::mutex>& lock);
    void finish(FolderTask& task);
    void work();
    // After a listing that waited for the device deviceWaits times: adds a
    // worker while listings wait and folders are queued for none free.
    void considerAnotherWorker(long deviceWaits);

    ListingRules m_rules;
    std::unique_ptr<FolderTask> m_root;
    std::mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_done;
    std::set<FolderTask*, KeyOrder> m_pending;
    size_t m_buffered = 0; // items listed but not yet released by the walk
    int m_idleWorkers = 0;
    // The task the walk waits for: only its completion wakes the walk, so
    // that workers finishing other folders cost it nothing.
    const FolderTask* m_awaited = nullptr;
    bool m_stopping = false;
    bool m_threaded = false;
    bool m_growing = false; // workers are added while listings wait
    bool m_assumeDeviceWaits = false;
    int m_windowListings = 0; // listings since workers were last considered
    int m_windowWaiting = 0;  // of those, the ones that waited for the device
    std::vector<std::thread> m_threads;
};

} // namespace kestrel::engine
