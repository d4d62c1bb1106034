#include "Snapshot.h"

#include "engine/support/Checked.h"
#include "engine/support/ShortText.h"
#include "engine/support/TextDecode.h"

#include <cstring>

namespace kestrel::engine {

const SnapshotEntry EntryTable::s_empty{};

void EntryTable::setCapacity(int32_t capacity) {
    if (capacity < 0)
        raise(ErrorCode::SubscriptOutOfRange);
    m_capacity = capacity;
    // The list of chunks is sized with the capacity, so that writing an
    // entry never moves it while entries already written are read.
    m_chunks.resize((size_t(capacity) >> ChunkBits) + 1);
}

void EntryTable::grow() {
    setCapacity(checkedAdd(m_capacity, GrowthStep));
}

void EntryTable::clear() {
    m_chunks.clear();
    m_capacity = 0;
}

void EntryTable::outOfRange() {
    raise(ErrorCode::SubscriptOutOfRange);
}

void EntryTable::allocateChunk(size_t chunk) {
    if (chunk >= m_chunks.size())
        m_chunks.resize(chunk + 1);
    // Entries are plain data: zeroed memory is a chunk of empty entries.
    static_assert(std::is_trivially_copyable_v<SnapshotEntry> &&
                  std::is_trivially_destructible_v<SnapshotEntry>);
    auto* memory = static_cast<SnapshotEntry*>(std::calloc(GrowthStep, sizeof(SnapshotEntry)));
    if (!memory)
        throw std::bad_alloc();
    m_chunks[chunk].reset(memory);
}

size_t EntryTable::memoryUsed() const {
    size_t used = m_chunks.capacity() * sizeof(m_chunks[0]);
    for (const auto& c : m_chunks)
        if (c)
            used += GrowthStep * sizeof(SnapshotEntry);
    return used;
}

uint32_t NameArena::add(std::string_view text) {
    if (text.empty())
        return 0;
    if (text.size() > BlockSize)
        raise(ErrorCode::OutOfStringSpace);
    if (m_blocks.empty() || m_used + text.size() > BlockSize) {
        if (m_blocks.size() >= MostBlocks)
            raise(ErrorCode::Overflow);
        if (m_blocks.empty())
            m_blocks.reserve(MostBlocks);
        m_blocks.push_back(std::make_unique_for_overwrite<char[]>(BlockSize));
        m_used = 0;
    }
    const uint32_t offset = uint32_t((m_blocks.size() - 1) << BlockBits) + m_used;
    copyShort(m_blocks.back().get() + m_used, text.data(), text.size());
    m_used += uint32_t(text.size());
    return offset;
}

void NameArena::clear() {
    m_blocks.clear();
    m_used = 0;
}

uint32_t VersionPool::add(std::string_view text) {
    if (text.empty())
        return 0;
    auto [it, inserted] = m_ids.try_emplace(std::string(text), m_count);
    if (!inserted)
        return it->second;
    try {
        if (m_count == UINT32_MAX)
            raise(ErrorCode::Overflow);
        if (m_count % BlockTexts == 0 || m_blocks.empty()) {
            if (m_blocks.empty())
                m_blocks.reserve((size_t(UINT32_MAX) >> BlockBits) + 1);
            m_blocks.push_back(std::make_unique<std::string[]>(BlockTexts));
        }
        m_blocks[m_count >> BlockBits][m_count & (BlockTexts - 1)] = text;
    } catch (...) {
        m_ids.erase(it);
        throw;
    }
    return m_count++;
}

void VersionPool::clear() {
    m_blocks.clear();
    m_count = 1;
    m_ids.clear();
}

QString Snapshot::nameText(int32_t index) const {
    return utf8Text(name(index));
}

void Snapshot::setName(SnapshotEntry& e, std::string_view utf8) {
    e.nameOffset = m_names.add(utf8);
    e.nameLength = uint32_t(utf8.size());
}

void Snapshot::createEntry(int16_t attributes, double modified, int32_t nextSibling,
                           std::string_view name, int32_t parent, double size,
                           std::string_view version) {
    entryCount = checkedAdd(entryCount, 1);
    if (entryCount > entries.capacity())
        entries.grow();
    SnapshotEntry& e = entries.mutableAt(entryCount);
    e.attributes = attributes;
    e.modified = modified;
    e.nextSibling = nextSibling;
    setName(e, name);
    e.parent = parent;
    e.size = size;
    setVersion(e, version);
}

int32_t Snapshot::locateEntry(int32_t& index, std::string_view wanted,
                              NameMatching matching) const {
    const int32_t start = entries.at(index).nextSibling;
    int32_t current = start;
    // A sound ring visits each entry at most once; a walk longer than the
    // table can only come from a damaged file.
    int64_t steps = int64_t(entries.capacity()) + 1;
    for (;;) {
        const SnapshotEntry& e = entries.at(current);
        if (namesMatch(nameOf(e), wanted, matching)) {
            index = current;
            return current;
        }
        if (e.nextSibling == current)
            break;
        current = e.nextSibling;
        if (current == start)
            break;
        if (--steps < 0)
            raise(ErrorCode::SubscriptOutOfRange);
    }
    index = start;
    return 0;
}

QString Snapshot::entryPath(int32_t index) const {
    if (index == 0)
        return QString(Separator);
    return Separator + relativePath(index) +
           (entries.at(index).isFolder() ? QString() : QString(Separator));
}

QString Snapshot::relativePath(int32_t index) const {
    // Collect the names up the parent chain, then join them root first.
    std::vector<int32_t> chain;
    int64_t steps = int64_t(entries.capacity()) + 1;
    for (int32_t i = index; i != 0; i = entries.at(i).parent) {
        if (--steps < 0)
            raise(ErrorCode::SubscriptOutOfRange);
        chain.push_back(i);
    }
    QString path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        path += nameText(*it);
        if (*it != index || entries.get(index).isFolder())
            path += Separator;
    }
    return path;
}

void Snapshot::clearEntries() {
    entries.clear();
    m_names.clear();
    m_versions.clear();
    access.clear();
    fingerprints.clear();
    alerts.clear();
    folderChanges.clear();
    entryCount = fileCount = folderCount = 0;
    totalSize = 0;
    progress = 0;
    meterDepth = 0;
    hiddenLeftOut = unreadableFolders = 0;
}

size_t Snapshot::memoryUsed() const {
    return entries.memoryUsed() + m_names.memoryUsed() + access.memoryUsed();
}

} // namespace kestrel::engine
