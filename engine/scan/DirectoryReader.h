#pragma once

#include "engine/model/Fingerprints.h"
#include "engine/scan/ContentFingerprint.h"
#include "engine/support/ShortText.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/types.h>

namespace kestrel::engine {

class IgnorePatterns;

// How a folder below the root is opened, from its parent's descriptor: a
// link in its place is never followed.
inline constexpr int SubFolderOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// "." and "..", which a listing gives and a scan never records.
inline bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// What the reader needs to know to list folders the way a scan records them.
struct ListingRules {
    bool recurse = false;          // sub-folders are listed too
    bool hidden = false;           // hidden and system items are kept
    bool versions = false;         // version texts are read inside the version folder
    std::string rootText;          // the root folder as stored text, ending in "/"
    std::string versionFolderText; // the version folder as stored text, ending in "/"
    // Items whose paths below the root these patterns match are left out,
    // and folders among them never opened. Not owned; none when null.
    const IgnorePatterns* exclude = nullptr;
    // Folders on another file system than the root's are recorded, but
    // their contents are not.
    bool oneFileSystem = false;
    // Every regular file is read for its content fingerprint.
    bool fingerprints = false;
};

struct FolderTask;

// One item of a folder, with every value a snapshot entry takes from it, in
// one cache line: the walk reads what another thread listed, line by line.
struct ListedItem {
    uint32_t nameOffset = 0; // stored text of the name in FolderListing::text
    uint32_t nameLength = 0;
    // In FolderListing::text: a file's version text, or a link's target.
    uint32_t extraOffset = 0;
    uint32_t extraLength = 0;
    int64_t size = 0;    // st_size
    double modified = 0; // local OLE date, 0 when it could not be converted
    int32_t attributes = 0;
    // From lstat: the permission bits, owner and group; examined is false
    // when the item could not be examined.
    uint32_t owner = 0;
    uint32_t group = 0;
    uint16_t mode = 0;
    bool examined = false;
    bool link = false; // a symbolic link: the extra text is its target
    // With fingerprints asked for, a regular file's: taken (the next of
    // FolderListing::fingerprints), or the file could not be read.
    bool fingerprinted = false;
    bool unreadable = false;
    FolderTask* folder = nullptr; // the folder to descend into, when there is one
};
static_assert(sizeof(ListedItem) <= 64, "a listed item fits in a cache line");

// The listing of one folder, in the order the file system gave its items,
// with "." and ".." and (unless hidden items are kept) hidden and system
// items already left out.
struct FolderListing {
    // Unreadable: the folder could not be listed (locked, missing, gone);
    // its listing is then one item with an empty name and zero values.
    // Unsearchable: it was listed, but some of its items could not be
    // examined (the folder may be read but not searched); those carry
    // Attribute::Unknown.
    enum State { Listed, Unreadable, Unsearchable };
    State state = Listed;
    int32_t hiddenLeftOut = 0; // items left out because hidden items are not kept
    std::vector<ListedItem> items;
    // Names, versions and link targets, back to back.
    std::basic_string<char, ShortCopyTraits> text;
    std::vector<Fingerprint> fingerprints; // of the fingerprinted items, in order
    std::vector<std::unique_ptr<FolderTask>> children;

    std::string_view name(const ListedItem& item) const {
        return std::string_view(text.data() + item.nameOffset, item.nameLength);
    }
    std::string_view version(const ListedItem& item) const {
        return item.link ? std::string_view() : extra(item);
    }
    std::string_view linkTarget(const ListedItem& item) const {
        return item.link ? extra(item) : std::string_view();
    }
    std::string_view extra(const ListedItem& item) const {
        return std::string_view(text.data() + item.extraOffset, item.extraLength);
    }
};

// A folder to list. Every folder but the root is opened from its parent's
// open descriptor by its name, never by a path, so that a folder exchanged
// for a link after its parent was listed is not followed out of the tree.
// The reader keeps a folder's descriptor open while sub-folders of it wait
// to be opened (see DirectoryReader).
struct FolderTask {
    enum State { Pending, Claimed, Done };
    FolderTask() = default;
    FolderTask(const FolderTask&) = delete;
    FolderTask& operator=(const FolderTask&) = delete;
    ~FolderTask();

    FolderTask* parent = nullptr; // none for the root
    std::string name;             // file-system bytes: the name in parent; the root's path
    // Stored text below the root, ending in "/": kept only while the folder
    // may still lead to the version folder or exclusions may ask about the
    // paths of its items.
    std::string relativeText;
    int itemNames = 1; // names in the path below the root of each of its items
    dev_t device = 0;  // as the parent's listing saw the folder; 0 when unknown
    ino_t inode = 0;
    bool versionsOn = false;
    // Changed with the reader's lock held; Done is also read without it, by
    // the walk looking for a listing a worker has finished.
    std::atomic<State> state = Pending;
    FolderListing listing;
    std::exception_ptr failure;

private:
    friend class DirectoryReader;
    // Guarded by the reader's descriptor lock.
    int m_fd = -1;                     // open while sub-folders wait; the root's for the whole walk
    int32_t m_waiting = 0;             // sub-folders not yet opened from it
    int32_t m_borrowers = 0;           // openings from it under way
    FolderTask* m_olderKept = nullptr; // the descriptors kept, oldest first
    FolderTask* m_newerKept = nullptr;
    bool m_kept = false;
    // Guarded by the reader's lock: the queue of folders to list.
    FolderTask* m_before = nullptr;
    FolderTask* m_after = nullptr;
    bool m_queued = false;
};

// Takes a lock that is only ever held for a few steps: it is tried for a
// moment before the thread sleeps on it, as a thread put to sleep and woken
// again costs far more than the wait itself.
inline void lockBriefly(std::unique_lock<std::mutex>& lock) {
    for (int tries = 0; tries < 100; ++tries) {
        if (lock.try_lock())
            return;
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }
    lock.lock();
}

// Starts one listing thread running the given work; a test may make it fail
// as the system does when it can start no more (std::system_error).
using ThreadStarter = std::function<std::thread(std::function<void()>)>;

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
//
// Folders are opened from their parent's descriptor, which stays open while
// sub-folders of it wait to be opened. So that no tree, however deep or
// wide, runs the process out of descriptors, at most half the limit on open
// files is kept that way; past it the oldest kept descriptor, the one the
// walk needs last, is closed, and opened again when its turn comes, name by
// name from the nearest folder still open and checked to be the same folder.
class DirectoryReader {
public:
    static constexpr int MaxWorkers = 32;

    // workers: listing threads besides the caller's; -1 for one per core
    // and more while listings wait on the device, 0 for the caller alone.
    // assumedWaits, when set, says whether each listing waited for the
    // device in place of the system's counts (tests).
    // startThread starts the workers (std::thread when empty). When a
    // worker cannot be started, the constructor stops and joins those it
    // started and rethrows.
    DirectoryReader(ListingRules rules, int workers, std::function<bool()> assumedWaits = {},
                    ThreadStarter startThread = {});
    ~DirectoryReader();

    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    // The task of the root folder (path as the file system takes it; a link
    // named there is followed).
    FolderTask& root(std::string path);

    // Returns once the task is listed: takes it over when no worker has
    // started it, else lists other waiting folders meanwhile, or waits when
    // there are none, calling whileWaiting about every 100 ms so the caller
    // can keep its user interface alive. Rethrows a worker's failure.
    template <typename Idle> void acquire(FolderTask& task, Idle whileWaiting) {
        // Workers listing ahead of the walk have mostly finished the folder
        // it asks for: then the lock is not needed at all.
        if (task.state.load(std::memory_order_acquire) == FolderTask::Done) {
            if (task.failure)
                std::rethrow_exception(task.failure);
            return;
        }
        std::unique_lock lock(m_mutex, std::defer_lock);
        lockBriefly(lock);
        for (;;) {
            if (task.state == FolderTask::Done)
                break;
            if (task.state == FolderTask::Pending) {
                listPending(task, lock);
                break;
            }
            // A worker is listing the folder the walk needs. Rather than sleep,
            // list the next folder waiting: the walk needs it soon anyway.
            if (FolderTask* next = firstPending()) {
                listPending(*next, lock);
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

    // Lists one folder on the calling thread (also used by workers). Its
    // parent must have been listed.
    void list(FolderTask& task);

private:
    // Tasks and listing buffers the walk is done with, kept to be used again:
    // a folder's listing is made on one thread and given back on another,
    // and memory freed across threads makes each wait for the other's
    // allocator. A listing thread takes a few tasks at a time.
    static constexpr size_t SpareTasksTaken = 4;
    struct SpareTasks {
        std::unique_ptr<FolderTask> tasks[SpareTasksTaken];
        size_t count = 0;
    };
    void list(FolderTask& task, SpareTasks& spares);
    // With the reader's lock held.
    void takeSpares(FolderTask& task, SpareTasks& spares);
    void keepSpares(SpareTasks& spares);

    // Takes a pending task off the queue and lists it outside the lock.
    void listPending(FolderTask& task, std::unique_lock<std::mutex>& lock);
    void finish(FolderTask& task);
    // The loop of worker number n: it lists while it is among the active.
    void work(int n);
    void startWorker();
    void stopWorkers();
    // After a listing that waited for the device deviceWaits times: adds
    // workers while listings wait and folders are queued for none free, and
    // lets the added ones rest when listings no longer wait.
    void considerAnotherWorker(long deviceWaits);

    // The queue of folders to list, in the order the walk meets them. A
    // folder being listed keeps its place until its sub-folders take it.
    FolderTask* firstPending() const;
    void queueAfter(FolderTask* before, FolderTask& task);
    void unqueue(FolderTask& task);

    // Reads the items of an open folder into its listing; returns the
    // number of sub-folders queued for listing.
    int32_t listItems(FolderTask& task, int fd, SpareTasks& spares);
    // Opens a folder: the root by its path, any other from its parent.
    int openFolder(FolderTask& task);
    // Opens a sub-folder by its name, never through a link; when the process
    // is out of descriptors, closes the kept ones not in use and tries again.
    int openSubFolder(int parentFd, const std::string& name, bool descriptorLockHeld);
    // The descriptor of a folder whose sub-folders wait, opened again when
    // it was closed; -1 when it cannot be. giveBack ends the borrowing and
    // counts one sub-folder as opened.
    int borrow(FolderTask& folder);
    void giveBack(FolderTask& folder);
    // After listing: keeps the folder's descriptor while sub-folders wait,
    // else closes it.
    void keepOrClose(FolderTask& task, int fd, int32_t subFolders);
    // With the descriptor lock held. Descriptors given up are put in
    // closing, to be closed once the lock is let go: closing is a system
    // call, and the other listing threads wait for the lock meanwhile.
    using Closing = std::vector<int>;
    int reopen(FolderTask& folder, Closing& closing);
    void keep(FolderTask& folder, int fd);
    void closeKept(FolderTask& folder, Closing& closing);
    void climbToParent(FolderTask& folder, Closing& closing);
    void trimKept(int budget, Closing& closing);
    static void closeAll(Closing& closing);

    // Whether the rules exclude an item of task named name (stored text).
    bool excluded(const FolderTask& task, std::string_view name, bool folder) const;

    ListingRules m_rules;
    dev_t m_rootDevice = 0; // set once the root is opened, before any sub-folder is listed
    const ProcessIdentity m_identity = ProcessIdentity::current();
    std::unique_ptr<FolderTask> m_root;
    ThreadStarter m_startThread;
    std::mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_done;
    FolderTask* m_queueFirst = nullptr;
    FolderTask* m_queueLast = nullptr;
    size_t m_pendingCount = 0;
    size_t m_buffered = 0; // items listed but not yet released by the walk
    int m_idleWorkers = 0;
    // The task the walk waits for: only its completion wakes the walk, so
    // that workers finishing other folders cost it nothing.
    const FolderTask* m_awaited = nullptr;
    bool m_stopping = false;
    bool m_threaded = false;
    bool m_growing = false;  // workers are added while listings wait
    int m_baseWorkers = 0;   // the workers started with
    int m_activeWorkers = 0; // the workers that list now; the others rest
    std::function<bool()> m_assumedWaits;
    int m_windowListings = 0;   // listings since workers were last considered
    int m_windowWaiting = 0;    // of those, the ones that waited for the device
    int m_lookingGap = 1;       // listings looked at for device waits: one in this many
    int m_unlookedListings = 0; // listings since one was looked at
    std::vector<std::thread> m_threads;

    std::mutex m_descriptorMutex;
    FolderTask* m_oldestKept = nullptr;
    FolderTask* m_newestKept = nullptr;
    int m_keptCount = 0;
    int m_keptBudget = 0;

    // Guarded by the reader's lock.
    std::vector<std::unique_ptr<FolderTask>> m_spareTasks;
    std::vector<FolderListing> m_spareListings;
};

} // namespace kestrel::engine
