#pragma once

#include <QString>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel::engine {

// Who may do what with an entry, as lstat shows it: the permission bits
// (set-user-ID, set-group-ID and sticky among them), the owner and group
// ids, and for a symbolic link where it points. A snapshot file has no room
// for them, so they travel beside it (engine/file/AccessSideFile.h); a
// snapshot made on Windows, or loaded without its side file, has none.
struct EntryAccess {
    uint32_t mode = 0; // the permission bits, 07777 at most
    uint32_t owner = 0;
    uint32_t group = 0;

    bool operator==(const EntryAccess&) const = default;
};

// The access of every entry of a snapshot, by entry index: 6 bytes an entry,
// owners and groups kept once per pair, link targets only for links.
class AccessTable {
public:
    static constexpr uint32_t PermissionBits = 07777;

    // Whether the snapshot has access values at all.
    bool empty() const { return m_modes.empty(); }
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
    // The entries with a link target, in no particular order.
    const std::unordered_map<int32_t, std::string>& linkTargets() const { return m_links; }

    // Records the values of entry index; the mode's bits beyond the
    // permission bits are dropped.
    void set(int32_t index, const EntryAccess& access);
    void setLinkTarget(int32_t index, std::string_view target);
    // Reserves room for entries 0..last.
    void reserve(int32_t last);

    // The table as it is kept, for the side file: a mode by entry (None for
    // none), a pair number by entry, and the owner << 32 | group pairs.
    static constexpr uint16_t None = 0xFFFF;
    const std::vector<uint16_t>& modes() const { return m_modes; }
    const std::vector<uint32_t>& pairNumbers() const { return m_owners; }
    const std::vector<uint64_t>& pairs() const { return m_pairs; }
    // Takes a table read back, modes as they were kept (unknown bits too).
    // The caller has checked that every pair number of an entry with a mode
    // names a pair.
    void assign(std::vector<uint16_t> modes, std::vector<uint32_t> pairNumbers,
                std::vector<uint64_t> pairs);
    void clear();
    size_t memoryUsed() const;

private:
    std::vector<uint16_t> m_modes;  // by entry; None for an entry without values
    std::vector<uint32_t> m_owners; // by entry: index into m_pairs
    std::vector<uint64_t> m_pairs;  // owner << 32 | group
    std::unordered_map<uint64_t, uint32_t> m_pairIds;
    uint32_t m_lastPair = 0; // the pair set last
    std::unordered_map<int32_t, std::string> m_links;
};

// What makes a change of access worth calling out first: an entry of the
// newer snapshot that became set-user-ID or set-group-ID (a file), or
// writable by everyone (anything but a link), or a new entry that is.
enum class AccessAlert : uint8_t { None, SetUserId, SetGroupId, WorldWritable };
// The alert of an entry with mode that had wasMode before (0 for a new
// entry).
AccessAlert accessAlert(uint32_t mode, uint32_t wasMode, bool folder, bool link);
// "setuid", "setgid", "world-writable": the alert as the command line's
// JSON lines name it.
const char* alertKeyword(AccessAlert alert);

// "-rwsr-xr-x" as ls shows it, the first character from the entry's kind:
// "d" for a folder, "l" for a link, "-" for anything else.
QString permissionsText(uint32_t mode, char kind);
// "root:root": the names of the owner and the group, looked up once per id
// and process, or the numbers where the system knows no name.
QString ownerText(uint32_t owner, uint32_t group);
// A link target for reading: bytes that are not text written \xHH, as
// names are.
QString linkTargetText(std::string_view target);

} // namespace kestrel::engine
