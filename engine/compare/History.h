#pragma once

#include "engine/compare/Compare.h"
#include "engine/model/EntryAccess.h"
#include "engine/model/Fingerprints.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel::engine {

class ProgressMeter;
class Snapshot;

// The numbered snapshot files of one folder's series that path belongs to:
// every NAME.#NN beside it whose NAME is path's own, by number. Just path
// when its name carries no number.
QStringList historySeries(const QString& path);

// The number NAME.#NN carries; 0 for a name without one.
int snapshotNumberOf(const QString& path);

// One snapshot of a history, and what changed since the generation before
// it (none for the first that could be read).
struct Generation {
    QString path;
    int number = 0;
    QString title;
    double created = 0;
    int32_t files = 0;
    int32_t folders = 0;
    // Why the file could not be read; empty when it was. A generation that
    // could not be read takes no part: the ones on either side of it are
    // compared with each other.
    QString error;
    int32_t added = 0;
    int32_t removed = 0;
    int32_t changed = 0;
    int32_t movedFiles = 0;
    int32_t movedFolders = 0;
    // What the comparison found of access among the changes; its alerts
    // (entries that became, or came as, set-user-ID, set-group-ID or
    // writable by everyone) call for attention first.
    AccessCounts access;

    bool readable() const { return error.isEmpty(); }
    int32_t changes() const { return added + removed + changed + movedFiles + movedFolders; }
};

// "+12 −3 ~40, 2 moved": what changed since the generation before, after
// what calls for attention ("1 new set-user-ID file; +0 −0 ~1").
QString generationChangesText(const Generation& g);
// "#03" of a generation, or its file's name when it has none.
QString generationName(const Generation& g);

// An entry's state in one generation, kept only where it changed there (and,
// before its first change, the state it had until then).
struct HistoryRecord {
    enum Kind : uint8_t {
        Before,   // the state before the path's first change
        Added,    // came into being here
        Removed,  // gone here
        Changed,  // here with other values
        MovedIn,  // here, moved from elsewhere (History::movedWith)
        MovedOut, // gone here, moved elsewhere (History::movedWith)
    };
    double size = 0;
    double modified = 0;
    int32_t path = 0;    // into History::paths
    int32_t version = 0; // into History::versions; 0 is none
    int16_t attributes = 0;
    int16_t status = 0;     // the comparison's change bits, for Changed
    uint16_t access = 0;    // into History::accessKinds; 0 where none is numbered
    uint8_t generation = 0; // into History::generations
    Kind kind = Before;

    bool present() const { return kind != Removed && kind != MovedOut; }
};
// "added", "removed", "changed", "moved in", "moved out"; empty for Before.
QString changeText(HistoryRecord::Kind kind);
static_assert(sizeof(HistoryRecord) <= 32, "a record for every change: keep it small");

// What a folder's numbered snapshots tell of it, generation by generation:
// each generation compared with the one before, as an ordinary comparison
// with the same options would, and of every entry that ever changed, its
// state where it changed. Entries that never changed are not kept.
struct History {
    std::vector<Generation> generations;
    // Paths below the root, as the command line prints them ("Top/Sub/" for
    // a folder), each once.
    std::vector<std::string> paths;
    std::vector<std::string> versions{std::string()};
    // By generation, and within one by the order the comparison listed them.
    std::vector<HistoryRecord> records;
    // The fingerprints of records whose snapshot has them, by record index.
    std::unordered_map<int32_t, Fingerprint> fingerprints;
    // The permissions, owners and groups of records whose snapshot has them,
    // each distinct one numbered once (a tree has few); number 0 is none.
    // Past the numbers a record can hold, the rest are kept by record index.
    std::vector<EntryAccess> accessKinds{EntryAccess{}};
    std::unordered_map<int32_t, EntryAccess> unnumberedAccess;
    // Where the links among the records pointed, as the system's bytes, by
    // record index.
    std::unordered_map<int32_t, std::string> linkTargets;
    // The changes that call for attention (an entry become set-user-ID, say),
    // by record index.
    std::unordered_map<int32_t, AccessAlert> alerts;
    // The other end of each move, by record index: the path it came from or
    // went to.
    std::unordered_map<int32_t, int32_t> movedWith;
    // The last snapshot that could be read, marked by its comparison with the
    // one before: what every entry that never changed was throughout.
    std::shared_ptr<const Snapshot> latest;

    // Whether any generation changed anything.
    bool anyChanges() const;
    // Whether any record, or the latest snapshot, has permissions and owners.
    bool hasAccess() const;
    // The permissions, owner and group of a record; none where its snapshot
    // had no values for it.
    std::optional<EntryAccess> accessOf(int32_t record) const;
    // The records of each path, in generation order: for every path, the
    // indices into records.
    std::vector<std::vector<int32_t>> recordsByPath() const;
    // The path's state in generation g: the record in force there (its last
    // change at or before g, or its state before its first change), or -1
    // where it was absent.
    static int32_t stateAt(const History& h, const std::vector<int32_t>& pathRecords, int g);
    // The record that changed the path in generation g, or -1 where g left
    // it as it was.
    static int32_t changeAt(const History& h, const std::vector<int32_t>& pathRecords, int g);
};

// Whether a path of the history names a folder (folders end with "/").
inline bool isFolderPath(std::string_view path) {
    return !path.empty() && path.back() == '/';
}

// Reads the snapshot files in the order given and compares each readable one
// with the readable one before it; the meter counts the files. Each file is
// read on a thread of its own while the two before it are compared, so three
// snapshots are held at the most, the newest of them being read. A file that
// cannot be read is kept with its error. Raises the engine's errors only for
// a comparison that fails (a damaged table).
History buildHistory(const QStringList& files, const CompareOptions& options, ProgressMeter& meter);

} // namespace kestrel::engine
