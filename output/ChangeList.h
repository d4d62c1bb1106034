#pragma once

#include "engine/compare/Compare.h"
#include "engine/compare/CompareOptions.h"
#include "engine/compare/Moves.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::output {

// One change of a comparison, as every report of it lists it.
struct Change {
    enum Kind : uint8_t { Added, Removed, Changed, Content, Moved, Unreadable };
    Kind kind = Added;
    bool folder = false;
    // The entry is OLD's: an entry only in OLD, or the stand-in for the
    // contents of a folder OLD could not list.
    bool inOld = false;
    int32_t index = 0;    // the entry: NEW's, or OLD's when inOld
    int32_t oldIndex = 0; // OLD's counterpart of a changed entry; where a moved one was
};

// "added", "removed", "changed", "content", "moved", "unreadable".
const char* kindName(Change::Kind kind);
// The sign the text report starts a change's line with: + - ~ > ?.
char kindSign(Change::Kind kind);

// What one value of a changed entry was and is, as text ("size", "18", "9").
struct FieldChange {
    const char* field;
    QString before;
    QString after;
    bool number; // a whole number, written without quotes in JSON
};

// The changes by kind. A folder one side could not list counts apart; moved
// entries count as moves, not as additions and removals; "content" is the
// share of the changed files whose bytes differ.
struct ChangeCounts {
    int32_t added = 0;
    int32_t removed = 0;
    int32_t changed = 0;
    int32_t content = 0;
    int32_t unreadable = 0;
    int32_t movedFiles = 0;
    int32_t movedFolders = 0;
    engine::AccessCounts access;

    int32_t total() const {
        return added + removed + changed + unreadable + movedFiles + movedFolders;
    }
};

// The changes of two snapshots compared both ways, made once from the
// comparison and read by every report (text, comma-separated values, JSON,
// JSON lines, HTML): the moves first, in OLD's table order, a file that
// moved with its folder told by the folder's change; then every other
// difference by path, an entry only in OLD among NEW's, the kinds breaking
// the tie of a name that is on both sides. The snapshots, options and moves
// are borrowed for the list's life.
class ChangeList {
public:
    // The comparison has marked both snapshots and noted the moves.
    ChangeList(const engine::Snapshot& newer, const engine::Snapshot& older,
               const engine::CompareOptions& options, const engine::MoveList& moves);

    const std::vector<Change>& changes() const { return m_changes; }
    const ChangeCounts& counts() const { return m_counts; }
    const engine::Snapshot& newer() const { return m_new; }
    const engine::Snapshot& older() const { return m_old; }
    const engine::CompareOptions& options() const { return m_options; }

    // The snapshot that holds a change's entry.
    const engine::Snapshot& sideOf(const Change& c) const { return c.inOld ? m_old : m_new; }
    // Its path below the root: NEW's, OLD's for an entry only there; for a
    // folder that could not be listed, the folder's.
    QString path(const Change& c) const;
    // The values of a changed entry that differ, a folder's own only.
    std::vector<FieldChange> fieldChanges(const Change& c) const;
    // "3 only in NEW, 1 only in OLD, 7 changed, 1 moved file", with what
    // calls for attention first and what each side ignored last.
    QString summaryText() const;

private:
    const engine::Snapshot& m_new;
    const engine::Snapshot& m_old;
    const engine::CompareOptions& m_options;
    std::vector<Change> m_changes;
    ChangeCounts m_counts;
};

} // namespace kestrel::output
