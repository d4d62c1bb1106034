#include "Memory.h"

#include <new>
#include <sys/mman.h>
#include <utility>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace kestrel::engine {

void releaseFreedMemory() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

ZeroPages::ZeroPages(size_t bytes) : m_bytes(bytes) {
    if (bytes == 0)
        return;
    void* pages =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        throw std::bad_alloc();
    m_data = pages;
    m_written.assign((bytes + PageBytes - 1) / PageBytes, false);
}

ZeroPages::~ZeroPages() {
    if (m_data)
        ::munmap(m_data, m_bytes);
}

ZeroPages::ZeroPages(ZeroPages&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_bytes(std::exchange(other.m_bytes, 0)),
      m_written(std::move(other.m_written)) {}

ZeroPages& ZeroPages::operator=(ZeroPages&& other) noexcept {
    if (this != &other) {
        if (m_data)
            ::munmap(m_data, m_bytes);
        m_data = std::exchange(other.m_data, nullptr);
        m_bytes = std::exchange(other.m_bytes, 0);
        m_written = std::move(other.m_written);
    }
    return *this;
}

} // namespace kestrel::engine
