#include "Differences.h"

#include "Compare.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Errors.h"

#include <cstdlib>

namespace kestrel::engine {

namespace {

class DifferenceWalk {
public:
    DifferenceWalk(const Snapshot& newer, const Snapshot& older, const FolderMarks* newerMarks,
                   const FolderMarks* olderMarks)
        : m_new(newer), m_old(older), m_newMarks(newerMarks), m_oldMarks(olderMarks),
          m_budget(int64_t(newer.capacity()) + int64_t(older.capacity()) + 2) {}

    std::vector<Difference> run() {
        const int32_t newTop = m_new.entryCount >= 1 ? 1 : 0;
        const int32_t oldTop = m_old.entryCount >= 1 ? 1 : 0;
        m_stack.push_back({newTop, newTop, oldTop, false});
        while (!m_stack.empty())
            step();
        return std::move(m_rows);
    }

private:
    // A pair of matching folders' rings: the new one is walked first, then
    // the old one for what only it has.
    struct Pair {
        int32_t newFirst;
        int32_t newCurrent;
        int32_t oldFirst;
        bool newDone;
    };

    void spend() {
        if (--m_budget < 0)
            raise(ErrorCode::SubscriptOutOfRange);
    }

    // Every entry beneath folder index, in table order.
    void emitContents(const Snapshot& s, int32_t index, Difference::Kind kind) {
        if (hasContents(s, index))
            walkFrom(s, index + 1, [&](int32_t i, int) {
                if (!s.entries.get(i).isIgnored())
                    m_rows.push_back({kind, i});
            });
    }

    // Whether the pair of folders may hold a difference: without marks,
    // any pair may, and so may two folders that did not find each other
    // both ways (names twice in another case): the second way walked the
    // old one's contents against another folder.
    bool anythingBeneath(int32_t newFolder, int32_t oldFolder) const {
        return !m_newMarks || m_newMarks->has(newFolder) || m_oldMarks->has(oldFolder) ||
               !m_old.entries.contains(oldFolder) ||
               std::abs(m_old.entries.at(oldFolder).match) != newFolder;
    }

    void step() {
        Pair& pair = m_stack.back();
        if (!pair.newDone) {
            if (pair.newCurrent == 0) {
                pair.newDone = true;
                return;
            }
            spend();
            const int32_t i = pair.newCurrent;
            const SnapshotEntry& e = m_new.entry(i);
            const int32_t next = e.nextSibling;
            pair.newCurrent = (next == pair.newFirst || next == i) ? 0 : next;
            if (e.isIgnored())
                return;
            if (e.match == 0) {
                m_rows.push_back({Difference::OnlyInNew, i});
                if (e.isFolder())
                    emitContents(m_new, i, Difference::OnlyInNew);
            } else if (!e.isFolder()) {
                if (e.status > 0)
                    m_rows.push_back({Difference::Changed, i});
            } else {
                // A folder whose own permissions or owner changed comes
                // before what changed beneath it.
                if (ownChanges(m_new, i) != 0)
                    m_rows.push_back({Difference::Changed, i});
                const int32_t counterpart = std::abs(e.match);
                const int32_t newChild = hasContents(m_new, i) ? i + 1 : 0;
                const int32_t oldChild =
                    m_old.entries.contains(counterpart) && hasContents(m_old, counterpart)
                        ? counterpart + 1
                        : 0;
                if ((newChild || oldChild) && anythingBeneath(i, counterpart))
                    m_stack.push_back({newChild, newChild, oldChild, false});
            }
            return;
        }
        // What only the old snapshot has in this folder.
        const int32_t first = pair.oldFirst;
        m_stack.pop_back();
        if (first == 0)
            return;
        int32_t i = first;
        do {
            spend();
            const SnapshotEntry& e = m_old.entry(i);
            if (e.match == 0 && !e.isIgnored()) {
                m_rows.push_back({Difference::OnlyInOld, i});
                if (e.isFolder())
                    emitContents(m_old, i, Difference::OnlyInOld);
            }
            if (e.nextSibling == i)
                break;
            i = e.nextSibling;
        } while (i != first);
    }

    const Snapshot& m_new;
    const Snapshot& m_old;
    const FolderMarks* m_newMarks;
    const FolderMarks* m_oldMarks;
    int64_t m_budget;
    std::vector<Pair> m_stack;
    std::vector<Difference> m_rows;
};

} // namespace

void FolderMarks::markUp(const Snapshot& s, int32_t folder, bool unmatched) {
    // A bit for every entry the table may hold, had at once: grown step by
    // step, the bits leave the allocator's space in pieces.
    const auto bits = size_t(s.capacity()) + 1;
    if (m_changed.size() < bits) {
        m_changed.resize(bits);
        m_unmatched.resize(bits);
    }
    // Stops at a folder already marked so, so each is walked to at most
    // twice; that also ends a damaged table's loop of parents.
    while (folder > 0 && s.entries.contains(folder) &&
           !(has(folder) && (!unmatched || hasUnmatched(folder)))) {
        m_changed[size_t(folder)] = true;
        if (unmatched)
            m_unmatched[size_t(folder)] = true;
        folder = s.entries.at(folder).parent;
    }
}

std::vector<Difference> listDifferences(const Snapshot& newer, const Snapshot& older,
                                        const FolderMarks* newerMarks,
                                        const FolderMarks* olderMarks) {
    if (!newerMarks || !olderMarks)
        newerMarks = olderMarks = nullptr;
    return DifferenceWalk(newer, older, newerMarks, olderMarks).run();
}

} // namespace kestrel::engine
