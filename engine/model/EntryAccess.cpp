#include "EntryAccess.h"

namespace kestrel::engine {

EntryAccess AccessTable::at(int32_t index) const {
    if (!has(index))
        return {};
    const uint64_t pair = m_pairs[m_owners[size_t(index)]];
    return {m_modes[size_t(index)], uint32_t(pair >> 32), uint32_t(pair)};
}

std::string_view AccessTable::linkTarget(int32_t index) const {
    if (m_links.empty()) // most trees have no links: no look-up per entry
        return {};
    const auto found = m_links.find(index);
    return found == m_links.end() ? std::string_view() : std::string_view(found->second);
}

void AccessTable::set(int32_t index, const EntryAccess& access) {
    if (index < 0)
        return;
    if (size_t(index) >= m_modes.size()) {
        m_modes.resize(size_t(index) + 1, None);
        m_owners.resize(size_t(index) + 1, 0);
    }
    // Entries side by side mostly share their owner: the last pair is
    // looked up without the map.
    const uint64_t pair = uint64_t(access.owner) << 32 | access.group;
    if (m_pairs.empty() || m_pairs[m_lastPair] != pair) {
        const auto [found, added] = m_pairIds.try_emplace(pair, uint32_t(m_pairs.size()));
        if (added)
            m_pairs.push_back(pair);
        m_lastPair = found->second;
    }
    m_modes[size_t(index)] = uint16_t(access.mode & PermissionBits);
    m_owners[size_t(index)] = m_lastPair;
}

void AccessTable::setLinkTarget(int32_t index, std::string_view target) {
    if (target.empty())
        m_links.erase(index);
    else
        m_links[index] = std::string(target);
}

void AccessTable::clear() {
    m_modes = {};
    m_owners = {};
    m_pairs.clear();
    m_pairIds.clear();
    m_lastPair = 0;
    m_links.clear();
}

size_t AccessTable::memoryUsed() const {
    size_t bytes = m_modes.capacity() * sizeof(uint16_t) + m_owners.capacity() * sizeof(uint32_t) +
                   m_pairs.capacity() * (sizeof(uint64_t) + 32); // with the map's node
    for (const auto& [index, target] : m_links)
        bytes += sizeof(index) + sizeof(target) + target.capacity() + 16;
    return bytes;
}

} // namespace kestrel::engine
