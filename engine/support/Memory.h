#pragma once

#include <cstddef>
#include <vector>

namespace kestrel::engine {

// Hands the pages of memory just let go back to the system. A snapshot's
// entries are freed in blocks the allocator keeps for later rather than
// returns, so a program that has closed its last window still holds the
// largest snapshot it ever had; this gives those pages back. Call it after
// a snapshot is destroyed; it costs a walk of the allocator's free lists.
void releaseFreedMemory();

// Zeros on pages of their own, which the system provides only where they
// are written: a large table that a task may fill only a little of (the
// names' hashes of a comparison, needed only for folders listed in another
// order) costs only what is filled. Throws std::bad_alloc when the pages
// cannot be had.
//
// Reading a page before it is written maps the system's shared zero page,
// which the first write must then replace; in a program with threads on
// other processors that replacement has every processor flush its address
// cache. So a user asks whether a page was written before reading from it
// and marks it when writing: the first touch of every page is a write.
class ZeroPages {
public:
    ZeroPages() = default;
    explicit ZeroPages(size_t bytes);
    ~ZeroPages();
    ZeroPages(ZeroPages&& other) noexcept;
    ZeroPages& operator=(ZeroPages&& other) noexcept;
    ZeroPages(const ZeroPages&) = delete;
    ZeroPages& operator=(const ZeroPages&) = delete;

    void* data() const { return m_data; }

    // Whether the page holding byte offset was marked written: reading it
    // when not gives zero anyway, without touching the page.
    bool written(size_t offset) const { return m_written[offset / PageBytes]; }
    void markWritten(size_t offset) { m_written[offset / PageBytes] = true; }

private:
    static constexpr size_t PageBytes = 4096;

    void* m_data = nullptr;
    size_t m_bytes = 0;
    std::vector<bool> m_written; // by page
};

} // namespace kestrel::engine
