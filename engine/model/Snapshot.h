// engine/model: the snapshot table, walks of its folder rings, names and their case folding.

#pragma once

#include "EntryAccess.h"
#include "Fingerprints.h"
#include "NameMatching.h"

#include <QString>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel::engine {

// Attribute bits, with their Windows values (16-bit, as stored in snapshots).
namespace Attribute {
inline constexpr int16_t ReadOnly = 1;
inline constexpr int16_t Hidden = 2;
inline constexpr int16_t System = 4;
inline constexpr int16_t Folder = 16;
inline constexpr int16_t Archive = 32;
inline constexpr int16_t Normal = 128;
inline constexpr int16_t Temporary = 256;
inline constexpr int16_t ReparsePoint = 1024;
inline constexpr int16_t Compressed = 2048;
// The Windows "offline" bit, which nothing on POSIX sets: the scan marks
// with it an item it could list but not examine (its folder may be read but
// not searched), recorded with size 0 and date 0.
inline constexpr int16_t Unknown = 4096;
} // namespace Attribute

// The values of an item the scan could not read: the unknown bit with size
// and date 0. A file from the Windows program that was offline keeps its
// date, so it is not taken for one.
inline bool valuesUnknown(int16_t attributes, double size, double modified) {
    return (attributes & Attribute::Unknown) && size == 0 && modified == 0;
}

// The status of an entry that a comparison's ignore patterns leave out: the
// sign bit, which no sum of change bits reaches.
inline constexpr int16_t IgnoredStatus = INT16_MIN;

// One file or folder of a snapshot: a fixed 48-byte record. The name and the
// version text live in the snapshot's pools and are reached through it.
struct SnapshotEntry {
    double modified = 0;     // local last-write time, days since 1899-12-30
    double size = 0;         // bytes (st_size on POSIX); 0 for a folder
    int32_t nextSibling = 0; // next entry of the same folder; the last links to the first
    int32_t parent = 0;      // folder holding this entry; 0 for the root's own items
    // A folder: the entries beneath it at all depths. Entry 0: the entries
    // of the whole snapshot (for a loaded one, the capacity its file gave).
    // Entry 1: overwritten by the scan with its meter's maximum, which the
    // comparison's meter reuses.
    int32_t count = 0;
    // Set by the comparison, not saved. 0: no counterpart in the other
    // snapshot. k > 0: the counterpart's index there (a file always; a
    // folder whose contents matched at least in part). -k < 0: a folder
    // whose counterpart is k but whose contents matched nothing, or which
    // is empty.
    int32_t match = 0;
    uint32_t nameOffset = 0;
    uint32_t nameLength = 0;
    uint32_t versionId = 0; // 0 is the empty version
    int16_t attributes = 0;
    // Set by the comparison, not saved; 0 after a scan or a load. A file:
    // the change bits (Change::Size, Date, Attributes, Version), 0 when
    // unchanged or without counterpart. A folder: 0 when nothing beneath it
    // changed, above 0 when something did: Change::InsideFolder for an entry
    // without counterpart or a changed file directly inside it, plus the
    // status of every changed sub-folder. Only "above 0" means anything for
    // a folder. IgnoredStatus, the one value below 0: the comparison's
    // ignore patterns leave the entry out (match is then 0, and it counts
    // neither as changed nor as without counterpart).
    int16_t status = 0;

    bool isFolder() const { return attributes & Attribute::Folder; }
    // Left out of the last comparison by its ignore patterns: the entry
    // itself or a folder above it matched.
    bool isIgnored() const { return status < 0; }
    // The scan could not read the item's size, date and attributes: they
    // are shown as unknown and never compared.
    bool valuesUnknown() const { return engine::valuesUnknown(attributes, size, modified); }
    // The nameless file entry that stands in for the contents of a folder
    // that could not be listed.
    bool isUnreadableMarker() const { return nameLength == 0 && !isFolder(); }
};
static_assert(sizeof(SnapshotEntry) == 48, "entries must stay compact");

// The entry table: indices 0..capacity() are valid. It grows in steps of
// 4,096 entries, one chunk at a time, so growing never copies what is already
// there and millions of entries cost no more than their records. Chunks are
// allocated when first written; an index inside the capacity that was never
// written reads as an empty record.
class EntryTable {
public:
    static constexpr int ChunkBits = 12;
    static constexpr int32_t GrowthStep = 1 << ChunkBits; // 4,096

    int32_t capacity() const { return m_capacity; }
    // Sets the highest valid index. Existing entries are kept.
    void setCapacity(int32_t capacity);
    // Grows the capacity by one step of 4,096 (Overflow past 2^31 - 1).
    void grow();
    void clear();

    bool contains(int32_t index) const { return uint32_t(index) <= uint32_t(m_capacity); }

    // Checked access: an index outside 0..capacity() raises "Subscript out of range".
    const SnapshotEntry& at(int32_t index) const {
        checkIndex(index);
        return get(index);
    }
    SnapshotEntry& mutableAt(int32_t index) {
        checkIndex(index);
        return getMutable(index);
    }

    // Unchecked access for loops that have already checked their indices.
    const SnapshotEntry& get(int32_t index) const {
        const size_t chunk = size_t(index) >> ChunkBits;
        if (chunk >= m_chunks.size() || !m_chunks[chunk])
            return s_empty;
        return m_chunks[chunk][size_t(index) & (GrowthStep - 1)];
    }
    SnapshotEntry& getMutable(int32_t index) {
        const size_t chunk = size_t(index) >> ChunkBits;
        if (chunk >= m_chunks.size() || !m_chunks[chunk]) [[unlikely]]
            allocateChunk(chunk);
        return m_chunks[chunk][size_t(index) & (GrowthStep - 1)];
    }

    size_t memoryUsed() const;

private:
    // Inline, as every checked access of a walk makes it; the raise is not.
    void checkIndex(int32_t index) const {
        if (!contains(index)) [[unlikely]]
            outOfRange();
    }
    [[noreturn]] static void outOfRange();
    void allocateChunk(size_t chunk);

    // Chunks come zeroed from calloc: large blocks arrive as fresh pages the
    // system has zeroed already, with no second pass over them.
    struct ChunkFree {
        void operator()(SnapshotEntry* chunk) const { std::free(chunk); }
    };
    std::vector<std::unique_ptr<SnapshotEntry[], ChunkFree>> m_chunks;
    int32_t m_capacity = 0;
    static const SnapshotEntry s_empty;
};

// All names of a snapshot, back to back in blocks of 1 MiB. A name is found by
// its offset and length; names never straddle a block. Blocks never move and
// the list of them is reserved whole with the first, so names can be read
// while others are added.
class alignas(64) NameArena {
public:
    static constexpr int BlockBits = 20;
    static constexpr uint32_t BlockSize = 1u << BlockBits;
    static constexpr size_t MostBlocks = size_t(1) << (32 - BlockBits); // 4 GiB

    // Stores text and returns its offset. Raises "Out of string space" for a
    // name longer than a block, "Overflow" when the arena passes 4 GiB.
    uint32_t add(std::string_view text);
    std::string_view view(uint32_t offset, uint32_t length) const {
        if (length == 0)
            return {};
        return {m_blocks[offset >> BlockBits].get() + (offset & (BlockSize - 1)), length};
    }
    void clear();
    size_t memoryUsed() const { return m_blocks.size() * size_t(BlockSize); }

private:
    std::vector<std::unique_ptr<char[]>> m_blocks;
    // Bytes used in the last block. On a cache line of its own: a reading
    // adds a name at a time while a comparison that follows it reads
    // m_blocks.
    alignas(64) uint32_t m_used = 0;
};

// Version texts, each stored once: most files have none and the rest share a
// few dozen. Id 0 is the empty text. Texts live in blocks of 4,096 that never
// move, and the list of blocks is reserved whole when the first text comes,
// so a text can be read while others are added (a snapshot is compared while
// it is still being read).
class VersionPool {
public:
    uint32_t add(std::string_view text);
    std::string_view view(uint32_t id) const {
        if (id == 0)
            return {};
        return m_blocks[id >> BlockBits][id & (BlockTexts - 1)];
    }
    void clear();

private:
    static constexpr int BlockBits = 12;
    static constexpr uint32_t BlockTexts = 1u << BlockBits;

    std::vector<std::unique_ptr<std::string[]>> m_blocks;
    uint32_t m_count = 1; // texts held, the empty one included
    std::unordered_map<std::string, uint32_t> m_ids;
};

// The header of a snapshot: what was scanned and when.
struct SnapshotHeader {
    QString title;
    QString fileName; // the snapshot file it was loaded from or will be saved to
    // The scanned folder, ending in the separator. Made on POSIX, it is
    // stored text as names are (FileSystemNames.h), and a rescan turns it
    // back into the folder's exact bytes.
    QString rootFolder;
    double created = 0; // days since 1899-12-30, local time
    bool recurse = false;
    bool hidden = false;
    bool versions = false;
    // The patterns of the .kestrelignore file found in the root folder when
    // the snapshot was taken, as its bytes; empty when there was none. Kept
    // beside the snapshot file (engine/file/IgnoreSideFile.h), never in it.
    std::string ownIgnorePatterns;
};

// One snapshot: the header and a flat, index-addressed table of entries.
// Entry 0 stands for the root folder; a folder F has contents exactly when
// entry F+1 has parent F; the entries of a folder form a ring through
// nextSibling; the entries beneath a folder follow it directly.
class Snapshot {
public:
    SnapshotHeader header;
    EntryTable entries;
    // Permissions, owners and link targets, by entry index: recorded by a
    // scan on POSIX and kept beside the snapshot file; empty otherwise.
    AccessTable access;
    // Content fingerprints of the files, by entry index: taken by a scan
    // asked for them and kept beside the snapshot file; empty otherwise.
    FingerprintTable fingerprints;
    // Set by a comparison, not saved: the entries of the newer snapshot
    // whose access calls for attention; empty in the older one.
    std::unordered_map<int32_t, AccessAlert> alerts;
    // Set by a comparison, not saved: the folders whose own permissions,
    // owner or link target differ from their counterpart's, with the change
    // bits (a folder's status tells only of what lies beneath it).
    std::unordered_map<int32_t, int16_t> folderChanges;
    // Set by a comparison that looks for moves, not saved: the entries
    // without counterpart that moved, with the entry they became in the
    // newer snapshot (movedTo, in the older one) or came from in the older
    // snapshot (movedFrom, in the newer one).
    std::unordered_map<int32_t, int32_t> movedTo;
    std::unordered_map<int32_t, int32_t> movedFrom;

    int32_t entryCount = 0; // index of the last entry in use
    int32_t fileCount = 0;
    int32_t folderCount = 0;
    double totalSize = 0; // sum of the files' sizes
    // Running counter handed to the meter. On a cache line apart from the
    // counts above: a comparison that follows a reading counts here with
    // every entry while the reading counts there.
    alignas(64) int32_t progress = 0;
    int16_t meterDepth = 0; // folder depth down to which a scan ticks the meter
    // What the last scan could not record (not saved): items it left out
    // because hidden and system items were not asked for, and folders it
    // could not list or whose items it could not examine.
    int32_t hiddenLeftOut = 0;
    int32_t unreadableFolders = 0;
    // Why the root folder's .kestrelignore could not be read by the last
    // scan (not saved); empty when it was read or was not there.
    QString ignoreFileProblem;
    // The entries the last comparison left out by its ignore patterns,
    // everything beneath an ignored folder included (not saved).
    int32_t ignoredCount = 0;
    int16_t importedNumber = 0; // the 16-bit number an old-format file carried

    int32_t capacity() const { return entries.capacity(); }
    const SnapshotEntry& entry(int32_t index) const { return entries.at(index); }
    SnapshotEntry& mutableEntry(int32_t index) { return entries.mutableAt(index); }

    std::string_view name(int32_t index) const { return nameOf(entries.at(index)); }
    std::string_view nameOf(const SnapshotEntry& e) const {
        return m_names.view(e.nameOffset, e.nameLength);
    }
    QString nameText(int32_t index) const;
    std::string_view version(int32_t index) const {
        return m_versions.view(entries.at(index).versionId);
    }
    std::string_view versionOf(const SnapshotEntry& e) const {
        return m_versions.view(e.versionId);
    }

    void setName(SnapshotEntry& e, std::string_view utf8);
    void setVersion(SnapshotEntry& e, std::string_view text) {
        e.versionId = text.empty() ? 0 : m_versions.add(text);
    }

    // CreateEntry: appends one entry at index entryCount + 1, growing the
    // table by 4,096 when it is full. status, count and match keep what the
    // slot held (zero in a fresh slot).
    void createEntry(int16_t attributes, double modified, int32_t nextSibling,
                     std::string_view name, int32_t parent, double size, std::string_view version);

    // How this snapshot's names are told apart: exactly when its root is a
    // POSIX path, without regard to case when it was made on Windows.
    NameMatching nameMatching() const { return nameMatchingOfRoot(header.rootFolder); }

    // LocateEntry: finds name among the entries of the folder ring that holds
    // index. The walk starts at the entry after index and ends with index
    // itself, so every member is visited once; index is moved to the entry
    // found, or set to where the walk started (the entry after the given one)
    // when nothing matches, and 0 is returned. Names are compared whole,
    // under the given rule. A ring that does not come back to its start
    // within the table raises "Subscript out of range".
    int32_t locateEntry(int32_t& index, std::string_view name, NameMatching matching) const;

    // EntryPath: the path of an entry relative to the root folder, built from
    // the parent chain, each name followed by the separator and the whole
    // preceded by it ("/Top/Sub/" for Sub inside Top; "/" for index 0).
    QString entryPath(int32_t index) const;

    // The path below the root without the leading separator: "Top/Sub/" for a
    // folder, "Top/a.txt" for a file (the form the command line prints).
    QString relativePath(int32_t index) const;

    // Empties the snapshot (header kept).
    void clearEntries();

    // Bytes of memory held by the table and the names.
    size_t memoryUsed() const;

private:
    NameArena m_names;
    VersionPool m_versions;
};

// How two snapshots matched with each other tell names apart: exactly only
// when both were made on POSIX.
inline NameMatching nameMatchingFor(const Snapshot& a, const Snapshot& b) {
    return combinedMatching(a.nameMatching(), b.nameMatching());
}

// The platform's folder separator, which Kestrel writes into root folders,
// relative paths and tree keys.
inline constexpr QChar Separator = QLatin1Char('/');

} // namespace kestrel::engine
