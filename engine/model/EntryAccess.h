#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel::engine {

// Who may do what with an entry, as lstat shows it: the permission bits
// (set-user-ID, set-group-ID and sticky among them), the owner and group
// ids, and for a symbolic link where it points. A snapshot file has no room
// for them: a scan on POSIX records them, and a snapshot made on Windows or
// loaded from its file has none.
struct EntryAccess {
    uint32_t mode = 0; // the permission bits, 07777 at most
    uint32_t owner = 0;
    uint32_t group = 0;
};

// The access of every entry of a snapshot, by entry index: 6 bytes an entry,
// owners and groups kept once per pair, link targets only for links.
class AccessTable {
public:
    static constexpr uint32_t PermissionBits = 07777;

    // Whether entry index has them (an entry the scan could not examine has
    // none).
    bool has(int32_t index) const {
        return index >= 0 && size_t(index) < m_modes.size() && m_modes[size_t(index)] != None;
    }
    // The entry's values; all 0 when it has none.
    EntryAccess at(int32_t index) const;
    // Where the link at index points, as the system's bytes; empty for an
    // entry that is not a link or whose target could not be read.
    std::string_view linkTarget(int32_t index) const;

    // Records the values of entry index; the mode's bits beyond the
    // permission bits are dropped.
    void set(int32_t index, const EntryAccess& access);
    void setLinkTarget(int32_t index, std::string_view target);
    void clear();
    size_t memoryUsed() const;

private:
    static constexpr uint16_t None = 0xFFFF;

    std::vector<uint16_t> m_modes;  // by entry; None for an entry without values
    std::vector<uint32_t> m_owners; // by entry: index into m_pairs
    std::vector<uint64_t> m_pairs;  // owner << 32 | group
    std::unordered_map<uint64_t, uint32_t> m_pairIds;
    uint32_t m_lastPair = 0; // the pair set last
    std::unordered_map<int32_t, std::string> m_links;
};

} // namespace kestrel::engine
