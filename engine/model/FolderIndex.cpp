#include "FolderIndex.h"

#include "CaseFold.h"
#include "RingWalk.h"
#include "Snapshot.h"

#include <algorithm>
#include <string>

namespace kestrel::engine {

namespace {

// One folder's ring of entries being walked.
struct Ring {
    int32_t first;
    int32_t current;
    int32_t owner;      // the folder holding the ring
    int32_t ownerEntry; // its entry, which every member names as parent
};

} // namespace

FolderIndex FolderIndex::build(const Snapshot& snapshot) {
    FolderIndex index;

    std::vector<Ring> stack;
    if (snapshot.entryCount >= 1 && snapshot.entries.contains(1))
        stack.push_back({1, 1, 0, 0});
    // A sound snapshot visits each entry once.
    int64_t budget = int64_t(snapshot.capacity()) + 1;
    while (!stack.empty()) {
        Ring& ring = stack.back();
        const int32_t i = ring.current;
        if (--budget < 0)
            raise(ErrorCode::SubscriptOutOfRange);
        const SnapshotEntry& e = snapshot.entries.at(i);
        if (e.parent != ring.ownerEntry)
            raise(ErrorCode::SubscriptOutOfRange);
        int32_t folder = -1;
        if (e.isFolder()) {
            folder = int32_t(index.m_entry.size());
            index.m_entry.push_back(i);
            index.m_parent.push_back(ring.owner);
        }
        const int32_t next = e.nextSibling;
        if (next == ring.first || next == i)
            stack.pop_back();
        else
            ring.current = next;
        if (folder >= 0 && hasContents(snapshot, i))
            stack.push_back({i + 1, i + 1, folder, i});
    }

    // Children grouped by parent, each group in name order.
    const size_t folders = index.m_entry.size();
    index.m_firstChild.assign(folders + 1, 0);
    for (size_t f = 1; f < folders; ++f)
        ++index.m_firstChild[size_t(index.m_parent[f]) + 1];
    for (size_t f = 0; f < folders; ++f)
        index.m_firstChild[f + 1] += index.m_firstChild[f];
    index.m_children.resize(folders > 0 ? folders - 1 : 0);
    std::vector<uint32_t> fill(index.m_firstChild.begin(), index.m_firstChild.end() - 1);
    for (size_t f = 1; f < folders; ++f)
        index.m_children[fill[size_t(index.m_parent[f])]++] = int32_t(f);

    std::vector<std::string> folded(folders);
    for (size_t f = 1; f < folders; ++f)
        folded[f] = foldCase(snapshot.nameOf(snapshot.entries.get(index.m_entry[f])));
    for (size_t f = 0; f < folders; ++f) {
        auto begin = index.m_children.begin() + index.m_firstChild[f];
        auto end = index.m_children.begin() + index.m_firstChild[f + 1];
        // Ordinals follow table order, so ties keep it.
        std::stable_sort(begin, end, [&](int32_t a, int32_t b) {
            return folded[size_t(a)] < folded[size_t(b)];
        });
    }
    return index;
}

Outcome FolderIndex::buildChecked(const Snapshot& snapshot, const QString& failureTitle,
                                  FolderIndex& index) {
    try {
        index = build(snapshot);
    } catch (...) {
        index = FolderIndex();
        const CaughtError e = caughtError();
        return Outcome::failure(UserMessage{failureTitle, e.text, MessageIcon::Exclamation},
                                e.code);
    }
    return Outcome::success();
}

size_t FolderIndex::memoryUsed() const {
    return (m_entry.capacity() + m_parent.capacity() + m_children.capacity()) * sizeof(int32_t) +
           m_firstChild.capacity() * sizeof(uint32_t);
}

} // namespace kestrel::engine
