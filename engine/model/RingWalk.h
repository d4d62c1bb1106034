#pragma once

#include "Snapshot.h"
#include "engine/support/Errors.h"

#include <vector>

namespace kestrel::engine {

// True when folder entry index has contents: the entry after it is its first
// child. An index past the table has none.
inline bool hasContents(const Snapshot& snapshot, int32_t index) {
    return snapshot.entries.contains(index + 1) && snapshot.entries.get(index + 1).parent == index;
}

// Visits the entries of the ring that starts at first and everything beneath
// them, depth first through the folder rings: visit(index, depth) for each
// entry (depth 0 for the ring of first), a folder before its contents. For a sound snapshot this is
// table order. A ring or a chain of folders that would make the walk longer than the table raises
// "Subscript out of range", so a damaged file can never make it hang.
//
// enter(index), when given, says whether to go into a folder's contents: a
// walk that knows where nothing it looks for lies passes those folders over.
template <typename Visit, typename Enter>
void walkFrom(const Snapshot& snapshot, int32_t first, Visit visit, Enter enter) {
    // A ring is left as soon as its last entry is visited, before that
    // entry's contents are entered, so the stack is not the depth.
    struct Ring {
        int32_t first;
        int32_t current;
        int depth;
    };
    std::vector<Ring> stack{{first, first, 0}};
    int64_t budget = int64_t(snapshot.capacity()) + 1;
    while (!stack.empty()) {
        Ring& ring = stack.back();
        const int32_t index = ring.current;
        if (--budget < 0)
            raise(ErrorCode::SubscriptOutOfRange);
        const SnapshotEntry& e = snapshot.entries.at(index);
        const int depth = ring.depth;
        visit(index, depth);
        const int32_t next = e.nextSibling;
        if (next == ring.first || next == index)
            stack.pop_back();
        else
            ring.current = next;
        if (e.isFolder() && hasContents(snapshot, index) && enter(index))
            stack.push_back({index + 1, index + 1, depth + 1});
    }
}

template <typename Visit> void walkFrom(const Snapshot& snapshot, int32_t first, Visit visit) {
    walkFrom(snapshot, first, visit, [](int32_t) { return true; });
}

// Every entry of a snapshot from the top ring (entry 1), as walkFrom.
template <typename Visit> void walkEntries(const Snapshot& snapshot, Visit visit) {
    if (snapshot.entryCount >= 1 && snapshot.entries.contains(1))
        walkFrom(snapshot, 1, visit);
}

} // namespace kestrel::engine
