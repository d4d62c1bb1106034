#pragma once

#include "engine/support/Errors.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kestrel::engine {

class Snapshot;

// The folders of a complete snapshot and, for each, its sub-folders in name
// order. It is built once when a scan or a load completes; the folder tree is
// rebuilt from it after every comparison and change of show mode without
// walking the entry table again.
//
// Folders are numbered by the index in the order the walk meets them; folder
// 0 stands for the root folder (entry 0). A snapshot whose entry 1 is missing
// has folder 0 alone.
class FolderIndex {
public:
    // The index of an empty snapshot: folder 0 alone.
    FolderIndex() = default;

    // Indexes snapshot, checking on the way the links of every entry a view
    // can reach from the top: a ring that does not come back to its start
    // within the table, an entry whose parent is not the folder whose ring
    // holds it, or a ring reaching outside the table raises "Subscript out of
    // range". Past this check the views can walk the rings and parent chains
    // of the snapshot without meeting a damaged link.
    static FolderIndex build(const Snapshot& snapshot);
    // As build, with a damaged snapshot reported as "Subscript out of range"
    // under the given title instead of raised.
    static Outcome buildChecked(const Snapshot& snapshot, const QString& failureTitle,
                                FolderIndex& index);

    int32_t folderCount() const { return int32_t(m_entry.size()); }
    // The entry of a folder (0 for folder 0).
    int32_t entryOf(int32_t folder) const { return m_entry[size_t(folder)]; }
    // The folder holding a folder; -1 for folder 0.
    int32_t parentOf(int32_t folder) const { return m_parent[size_t(folder)]; }
    // The sub-folders of a folder, sorted by name without regard to case
    // (names that differ only in case keep their table order).
    std::span<const int32_t> subFolders(int32_t folder) const {
        const size_t f = size_t(folder);
        return {m_children.data() + m_firstChild[f], size_t(m_firstChild[f + 1] - m_firstChild[f])};
    }

    size_t memoryUsed() const;

private:
    std::vector<int32_t> m_entry{0};
    std::vector<int32_t> m_parent{-1};
    std::vector<uint32_t> m_firstChild{0, 0}; // folderCount + 1 offsets into m_children
    std::vector<int32_t> m_children;
};

} // namespace kestrel::engine
