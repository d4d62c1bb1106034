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
// for them, so they travel beside it (engine/file/MetaSideFile.h); a
// snapshot made on Windows, or loaded without its side file, has none.
struct EntryAccess {
    uint32_t mode = 0; // the permission bits, 07777 at most
    uint32_t owner = 0;
    uint32_t group = 0;

    bool operator==(const EntryAccess&) const = default;
};

// Access values as the key of a hash table.
struct EntryAccessHash {
    size_t operator()(const EntryAccess& a) const {
        return std::hash<uint64_t>()((uint64_t(a.owner) << 32 | a.group) * 31 + a.mode);
    }
};

// The access of every entry of a snapshot, by entry index: 4 bytes an entry,
// the number of its kind, each distinct permissions, owner and group kept
// once (a tree has few of them), link targets only for links.
class AccessTable {
public:
    static constexpr uint32_t PermissionBits = 07777;
    // The mode of an entry without values in the side file's columns.
    static constexpr uint16_t None = 0xFFFF;

    // Whether the snapshot has access values at all.
    bool empty() const { return m_kindOf.empty(); }
    // Whether entry index has them (an entry the scan could not examine has
    // none).
    bool has(int32_t index) const { return kindOf(index) != NoKind; }
    // The entry's values; all 0 when it has none.
    EntryAccess at(int32_t index) const { return m_kinds[kindOf(index)]; }
    // The number of the entry's kind, NoKind for none: two entries of one
    // table have the same values exactly when they have the same number.
    static constexpr uint32_t NoKind = 0;
    uint32_t kindOf(int32_t index) const {
        return index >= 0 && size_t(index) < m_kindOf.size() ? m_kindOf[size_t(index)] : NoKind;
    }
    const EntryAccess& kind(uint32_t number) const { return m_kinds[number]; }
    // Where the link at index points, as the system's bytes; empty for an
    // entry that is not a link or whose target could not be read.
    std::string_view linkTarget(int32_t index) const;
    // The entries with a link target, in no particular order.
    const std::unordered_map<int32_t, std::string>& linkTargets() const { return m_links; }

    // Records the values of entry index; the mode's bits beyond the
    // permission bits are dropped.
    void set(int32_t index, const EntryAccess& access);
    void setLinkTarget(int32_t index, std::string_view target);

    // The owner << 32 | group pairs as the side file keeps them, numbered in
    // the order first met, and the number of each kind's pair. An entry's
    // mode and pair number follow from its kind (None and 0 for none).
    struct Pairs {
        std::vector<uint64_t> pairs;
        std::vector<uint32_t> pairOfKind;
    };
    Pairs pairs() const;
    // Sets entry index to values read back: the mode as it was kept (unknown
    // bits too) with its owner << 32 | group pair.
    void setKept(int32_t index, uint16_t mode, uint64_t pair);
    // Makes room for entries 0..count-1.
    void reserve(size_t count) { m_kindOf.reserve(count); }
    void clear();
    size_t memoryUsed() const;

private:
    uint32_t kindNumber(const EntryAccess& access);
    void setKind(int32_t index, uint32_t kind);

    std::vector<uint32_t> m_kindOf;       // by entry; NoKind for an entry without values
    std::vector<EntryAccess> m_kinds{{}}; // by number; number 0 stands for none
    std::unordered_map<EntryAccess, uint32_t, EntryAccessHash> m_kindNumbers;
    uint32_t m_lastKind = NoKind; // the kind set last
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
// "set-user-ID", "set-group-ID", "world-writable": what the entry became, as
// the windows and summaries say it.
QString alertAdjective(AccessAlert alert);
// "1 new set-user-ID file", "2 new world-writable entries": count entries
// that came with the alert or gained it.
QString alertCountText(AccessAlert alert, int32_t count);

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
