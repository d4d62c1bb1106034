#pragma once

#include <QString>

#include <cstdint>
#include <vector>

namespace kestrel::engine {

class FolderMarks;
class Snapshot;

// An entry without counterpart in the older snapshot paired with one
// without counterpart in the newer: a file, or a folder whose files all
// moved into one other folder under the same names.
struct Move {
    int32_t from; // in the older snapshot
    int32_t to;   // in the newer snapshot
    bool folder;
};

// The moves after a comparison, in the order of the older snapshot's table.
// A moved folder is listed before the files that moved with it.
struct MoveList {
    std::vector<Move> moves;
    int32_t files = 0;
    int32_t folders = 0;
};

// Pairs the files the last comparison left without counterpart, beneath the
// rings at olderTop and newerTop, when the pairing is beyond doubt: the same
// content fingerprint where both snapshots have fingerprints and both files
// one, otherwise the same size (1 byte or more) and the same date, with
// exactly one candidate on each side. Entries the comparison ignored, and
// values a scan could not read, take no part. The comparison's status and
// match stay as they are: moves only add to them.
// The comparison's marks of each snapshot (both or neither) spare the walk
// the folders with nothing beneath them left without counterpart.
MoveList detectMoves(const Snapshot& older, int32_t olderTop, const Snapshot& newer,
                     int32_t newerTop, const FolderMarks* olderMarks = nullptr,
                     const FolderMarks* newerMarks = nullptr);

// Notes the moves in both snapshots (Snapshot::movedTo of the older,
// Snapshot::movedFrom of the newer), replacing what an earlier comparison
// noted.
void noteMoves(Snapshot& older, Snapshot& newer, const MoveList& moves);

// The moves noteMoves noted in the two snapshots, in the older one's table
// order.
MoveList notedMoves(const Snapshot& older);

// "3 moved files, 1 moved folder" for the change summary; empty for none.
QString movesText(const MoveList& moves);
// The same for the moves a comparison noted in a snapshot.
QString movesText(const Snapshot& snapshot);
// "to sub/new.txt" for an entry of the older snapshot that moved, "from
// old/a.txt" for one of the newer that came from elsewhere; other is the
// snapshot compared with. Empty for an entry that did not move.
QString movedText(const Snapshot& snapshot, const Snapshot& other, int32_t index);
// The entry of the other snapshot that index moved to or came from; 0 when
// it did not move.
int32_t movedCounterpart(const Snapshot& snapshot, int32_t index);

} // namespace kestrel::engine
