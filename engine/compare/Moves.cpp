#include "Moves.h"

#include "Differences.h"

#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

namespace kestrel::engine {

namespace {

// A file without counterpart, by the key it pairs on: 12 bytes, so that a
// million of them sort in a few megabytes.
#pragma pack(push, 4)
struct Candidate {
    uint64_t key;
    int32_t index;
};
#pragma pack(pop)
static_assert(sizeof(Candidate) == 12);

uint64_t mix(uint64_t a, uint64_t b) {
    // Two 64-bit values into one, spread so that near values differ widely.
    uint64_t h = a * 0x9E3779B97F4A7C15u ^ (b + 0x632BE59BD9B4E019u + (a << 6) + (a >> 2));
    h ^= h >> 31;
    h *= 0xBF58476D1CE4E5B9u;
    return h ^ (h >> 29);
}

// What two files must share to be paired: their fingerprint when both
// snapshots take them and this file has one, else size and date.
class PairingKey {
public:
    PairingKey(const Snapshot& a, const Snapshot& b)
        : m_fingerprints(a.fingerprints.taken() && b.fingerprints.taken()) {}

    bool byFingerprint(const Snapshot& s, int32_t i) const {
        return m_fingerprints && s.fingerprints.has(i);
    }
    // False for a file that pairs on nothing: an empty file without
    // fingerprint, or one whose values could not be read.
    bool usable(const Snapshot& s, int32_t i) const {
        const SnapshotEntry& e = s.entries.get(i);
        if (e.valuesUnknown() || e.isUnreadableMarker())
            return false;
        return byFingerprint(s, i) || e.size >= 1;
    }
    uint64_t hash(const Snapshot& s, int32_t i) const {
        if (byFingerprint(s, i)) {
            const Fingerprint& f = s.fingerprints.at(i);
            return mix(f.high, f.low) | 1; // odd: never equal to a size and date key
        }
        const SnapshotEntry& e = s.entries.get(i);
        uint64_t size = 0, date = 0;
        std::memcpy(&size, &e.size, 8);
        std::memcpy(&date, &e.modified, 8);
        return mix(size, date) & ~uint64_t(1);
    }
    // The whole key, for two files whose hashes are equal.
    bool same(const Snapshot& a, int32_t i, const Snapshot& b, int32_t j) const {
        const bool fa = byFingerprint(a, i), fb = byFingerprint(b, j);
        if (fa != fb)
            return false;
        if (fa)
            return a.fingerprints.at(i) == b.fingerprints.at(j);
        const SnapshotEntry& x = a.entries.get(i);
        const SnapshotEntry& y = b.entries.get(j);
        return x.size == y.size && x.modified == y.modified;
    }

private:
    bool m_fingerprints;
};

void sortByKey(std::vector<Candidate>& candidates) {
    std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
        return a.key < b.key || (a.key == b.key && a.index < b.index);
    });
}

// The entries beneath the ring at top that have no counterpart: the entry
// itself or a folder above it was left without one.
struct Unmatched {
    std::vector<Candidate> files; // that can pair, sorted by key
    std::vector<int32_t> folders; // in table order
};

// marks, when given, are the comparison's for s: a folder with a
// counterpart and no mark for entries without one has none beneath it.
Unmatched unmatchedOf(const Snapshot& s, int32_t top, const PairingKey& key,
                      const FolderMarks* marks) {
    Unmatched found;
    std::vector<Candidate>& out = found.files;
    if (top < 1 || !s.entries.contains(top))
        return found;
    const auto enter = [&](int32_t i) {
        return !marks || marks->hasUnmatched(i) || s.entries.get(i).match == 0;
    };
    // Whether the folder last visited at each depth is without counterpart:
    // a folder's contents are visited right after it.
    std::vector<char> unmatchedAt;
    walkFrom(
        s, top,
        [&](int32_t i, int depth) {
            const SnapshotEntry& e = s.entries.get(i);
            const bool unmatched =
                !e.isIgnored() && (e.match == 0 || (depth > 0 && unmatchedAt[size_t(depth - 1)]));
            if (e.isFolder()) {
                if (unmatchedAt.size() <= size_t(depth))
                    unmatchedAt.resize(size_t(depth) + 1);
                unmatchedAt[size_t(depth)] = unmatched;
                if (unmatched)
                    found.folders.push_back(i);
            } else if (unmatched && key.usable(s, i)) {
                out.push_back({key.hash(s, i), i});
            }
        },
        enter);
    sortByKey(out);
    return found;
}

// The files directly inside a folder, in ring order.
std::vector<int32_t> filesOf(const Snapshot& s, int32_t folder) {
    std::vector<int32_t> files;
    if (!hasContents(s, folder))
        return files;
    int32_t i = folder + 1;
    for (int32_t steps = 0; steps <= s.entryCount; ++steps) {
        if (!s.entries.get(i).isFolder())
            files.push_back(i);
        i = s.entries.get(i).nextSibling;
        if (i == folder + 1 || !s.entries.contains(i))
            break;
    }
    return files;
}

uint64_t nameHash(std::string_view name) {
    return std::hash<std::string_view>()(name);
}

// What a folder's files are, whatever their order: their names with their
// keys, summed; 0 for a folder without files or with a file that cannot
// pair.
uint64_t folderSignature(const Snapshot& s, int32_t folder, const PairingKey& key) {
    uint64_t sum = 0;
    const std::vector<int32_t> files = filesOf(s, folder);
    for (const int32_t f : files) {
        if (s.entries.get(f).valuesUnknown() || s.entries.get(f).isUnreadableMarker())
            return 0;
        sum += mix(nameHash(s.nameOf(s.entries.get(f))), key.hash(s, f));
    }
    return files.empty() ? 0 : mix(sum, files.size());
}

// Whether two folders hold files of the same names, each pairing with its
// namesake; the pairs are added to moves.
bool sameFiles(const Snapshot& older, int32_t a, const Snapshot& newer, int32_t b,
               const PairingKey& key, std::vector<Move>& moves) {
    const std::vector<int32_t> before = filesOf(older, a), after = filesOf(newer, b);
    if (before.size() != after.size())
        return false;
    std::unordered_map<std::string_view, int32_t> byName;
    for (const int32_t f : after)
        byName.emplace(newer.nameOf(newer.entries.get(f)), f);
    std::vector<Move> pairs;
    for (const int32_t f : before) {
        const auto found = byName.find(older.nameOf(older.entries.get(f)));
        if (found == byName.end() || !key.same(older, f, newer, found->second))
            return false;
        pairs.push_back({f, found->second, false});
    }
    moves.insert(moves.end(), pairs.begin(), pairs.end());
    return true;
}

// Calls pair(from, to) for each key that exactly one candidate has on each
// side; both lists sorted by key.
template <typename Pair>
void pairUnique(const std::vector<Candidate>& before, const std::vector<Candidate>& after,
                Pair pair) {
    size_t a = 0, b = 0;
    while (a < before.size() && b < after.size()) {
        if (before[a].key < after[b].key) {
            ++a;
            continue;
        }
        if (after[b].key < before[a].key) {
            ++b;
            continue;
        }
        size_t aEnd = a, bEnd = b;
        while (aEnd < before.size() && before[aEnd].key == before[a].key)
            ++aEnd;
        while (bEnd < after.size() && after[bEnd].key == after[b].key)
            ++bEnd;
        if (aEnd - a == 1 && bEnd - b == 1)
            pair(before[a].index, after[b].index);
        a = aEnd;
        b = bEnd;
    }
}

// Pairs the unmatched of both sides.
MoveList pairMoves(const Snapshot& older, Unmatched olderSide, const Snapshot& newer,
                   Unmatched newerSide, const PairingKey& key) {
    MoveList list;

    // Folders first: a folder renamed or moved whole holds files of the same
    // names and keys, which alone may not be told apart (files written in
    // the same second, of the same size).
    std::vector<Candidate> folderKeys[2];
    for (const int32_t f : olderSide.folders)
        if (const uint64_t sig = folderSignature(older, f, key))
            folderKeys[0].push_back({sig, f});
    for (const int32_t f : newerSide.folders)
        if (const uint64_t sig = folderSignature(newer, f, key))
            folderKeys[1].push_back({sig, f});
    sortByKey(folderKeys[0]);
    sortByKey(folderKeys[1]);
    std::vector<Move> folderMoves;
    std::vector<Move> filesWithFolders;
    pairUnique(folderKeys[0], folderKeys[1], [&](int32_t from, int32_t to) {
        if (sameFiles(older, from, newer, to, key, filesWithFolders))
            folderMoves.push_back({from, to, true});
    });
    // Their files pair no more on their own. (Sorted lists of the few taken,
    // not a flag per entry: the memory goes with what is unmatched.)
    std::vector<int32_t> taken, takenNew;
    for (const Move& m : filesWithFolders) {
        taken.push_back(m.from);
        takenNew.push_back(m.to);
    }
    const auto drop = [](std::vector<Candidate>& files, std::vector<int32_t>& gone) {
        std::sort(gone.begin(), gone.end());
        files.erase(std::remove_if(files.begin(), files.end(),
                                   [&](const Candidate& c) {
                                       return std::binary_search(gone.begin(), gone.end(), c.index);
                                   }),
                    files.end());
    };
    drop(olderSide.files, taken);
    drop(newerSide.files, takenNew);
    const std::vector<Candidate>& before = olderSide.files;
    const std::vector<Candidate>& after = newerSide.files;

    pairUnique(before, after, [&](int32_t from, int32_t to) {
        if (key.same(older, from, newer, to))
            list.moves.push_back({from, to, false});
    });

    // A folder whose files all moved into one folder under their own names
    // moved with them.
    struct Into {
        int32_t folder = 0; // the folder its files went to; -1 for several
        int32_t files = 0;
    };
    std::unordered_map<int32_t, Into> into;
    for (const Move& m : list.moves) {
        const SnapshotEntry& from = older.entries.get(m.from);
        const SnapshotEntry& to = newer.entries.get(m.to);
        Into& target = into[from.parent];
        const bool sameName = older.nameOf(from) == newer.nameOf(to);
        if (target.files == 0)
            target.folder = sameName ? to.parent : -1;
        else if (target.folder != to.parent || !sameName)
            target.folder = -1;
        ++target.files;
    }
    for (const auto& [folder, target] : into) {
        if (folder < 1 || target.folder < 1 || older.entries.get(folder).match != 0 ||
            newer.entries.get(target.folder).match != 0 ||
            filesOf(older, folder).size() != size_t(target.files))
            continue;
        folderMoves.push_back({folder, target.folder, true});
    }
    list.files = int32_t(list.moves.size() + filesWithFolders.size());
    list.folders = int32_t(folderMoves.size());
    list.moves.insert(list.moves.end(), filesWithFolders.begin(), filesWithFolders.end());
    list.moves.insert(list.moves.end(), folderMoves.begin(), folderMoves.end());
    // Table order, a folder before the files beneath it.
    std::sort(list.moves.begin(), list.moves.end(),
              [](const Move& x, const Move& y) { return x.from < y.from; });
    return list;
}

} // namespace

MoveList detectMoves(const Snapshot& older, int32_t olderTop, const Snapshot& newer,
                     int32_t newerTop, const FolderMarks* olderMarks,
                     const FolderMarks* newerMarks) {
    const PairingKey key(older, newer);
    return pairMoves(older, unmatchedOf(older, olderTop, key, olderMarks), newer,
                     unmatchedOf(newer, newerTop, key, newerMarks), key);
}

void noteMoves(Snapshot& older, Snapshot& newer, const MoveList& moves) {
    older.movedTo.clear();
    older.movedFrom.clear();
    newer.movedTo.clear();
    newer.movedFrom.clear();
    for (const Move& m : moves.moves) {
        older.movedTo[m.from] = m.to;
        newer.movedFrom[m.to] = m.from;
    }
}

MoveList notedMoves(const Snapshot& older) {
    MoveList noted;
    for (const auto& [from, to] : older.movedTo) {
        const bool folder = older.entries.get(from).isFolder();
        noted.moves.push_back({from, to, folder});
        (folder ? noted.folders : noted.files)++;
    }
    std::sort(noted.moves.begin(), noted.moves.end(),
              [](const Move& a, const Move& b) { return a.from < b.from; });
    return noted;
}

QString movesText(const Snapshot& snapshot) {
    MoveList counted;
    for (const auto* moves : {&snapshot.movedTo, &snapshot.movedFrom})
        for (const auto& [index, counterpart] : *moves)
            (snapshot.entries.get(index).isFolder() ? counted.folders : counted.files)++;
    return movesText(counted);
}

QString movedText(const Snapshot& snapshot, const Snapshot& other, int32_t index) {
    if (const auto to = snapshot.movedTo.find(index); to != snapshot.movedTo.end())
        return QStringLiteral("to ") + other.relativePath(to->second);
    if (const auto from = snapshot.movedFrom.find(index); from != snapshot.movedFrom.end())
        return QStringLiteral("from ") + other.relativePath(from->second);
    return QString();
}

int32_t movedCounterpart(const Snapshot& snapshot, int32_t index) {
    if (const auto to = snapshot.movedTo.find(index); to != snapshot.movedTo.end())
        return to->second;
    if (const auto from = snapshot.movedFrom.find(index); from != snapshot.movedFrom.end())
        return from->second;
    return 0;
}

QString movesText(const MoveList& moves) {
    QStringList parts;
    if (moves.files > 0)
        parts << (moves.files == 1 ? QStringLiteral("1 moved file")
                                   : formatCount(moves.files) + QStringLiteral(" moved files"));
    if (moves.folders > 0)
        parts << (moves.folders == 1
                      ? QStringLiteral("1 moved folder")
                      : formatCount(moves.folders) + QStringLiteral(" moved folders"));
    return parts.join(QStringLiteral(", "));
}

} // namespace kestrel::engine
