#pragma once

#include "FileWriting.h"
#include "engine/support/HashState.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kestrel::engine {

class Snapshot;

// What a snapshot knows of its entries beyond the snapshot file's columns
// (the permission bits, owner and group, and link target of each entry, and
// the content fingerprints of its files when they were taken) lives beside
// its file, in NAME.#NN.meta, since the snapshot file's format stays as it
// is.
//
// The side file starts with a line naming its format version and columns,
// then a line with the number of entries and the checksum of the snapshot it
// belongs to (its entries' names, places, sizes, dates and attributes), then
// the values in binary, little-endian: the owner and group pairs, a mode and
// a pair number for each entry, the link targets, with fingerprints the
// files that have one (index, then the fingerprint's high and low halves)
// after a count of those that could not be read, and last a checksum of
// everything before it. A side file that is cut short, damaged or made for
// another snapshot is not used.
QString metaSideFilePath(const QString& snapshotFile);

// The checksum that ties side data to the entries of a snapshot: the same for
// a snapshot and for what a load of its file gives.
uint64_t snapshotChecksum(const Snapshot& snapshot);

// The same checksum taken a run of entries at a time, in index order from the
// first: a save behind a scan takes it as the entries become final, so that
// the side data does not wait for a pass over the whole snapshot.
class SnapshotChecksum {
public:
    SnapshotChecksum();
    // Adds the entries from the one after the last added through last.
    void addThrough(const Snapshot& snapshot, int32_t last);
    uint64_t value();

private:
    void flush();

    HashState m_state;
    // The fields of many entries go to the hash at once: a call per entry
    // would cost more than the hashing.
    std::unique_ptr<char[]> m_block;
    size_t m_used = 0;
    int32_t m_through = 0;
};

// The side data of a snapshot as bytes; empty when it has none to keep. The
// checksum of its entries, when given, is taken as theirs.
std::string metaSideData(const Snapshot& snapshot, std::optional<uint64_t> checksum = {});

// Reads side data into the snapshot's access table. False, with the table
// left empty, when the bytes are not side data of this snapshot.
bool readMetaSideData(Snapshot& snapshot, std::string_view bytes);

// A snapshot written as one stream (to standard output, for a pipe) carries
// its side data after its own bytes, then a footer of 16 bytes: the side
// data's length (8 bytes, little-endian) and "KSIDEDAT". The side data and
// footer of a snapshot; empty when it has no side data.
std::string sideDataTrailer(const Snapshot& snapshot);
// Where the parts of such a stream of size bytes lie, told by its last 16
// bytes (footer): the snapshot's own bytes from 0 to snapshotLength, the side
// data from there to the footer. None when the stream carries no side data.
struct StreamParts {
    int64_t snapshotLength = 0;
    int64_t sideLength = 0;
};
std::optional<StreamParts> streamParts(int64_t size, std::string_view footer);
inline constexpr int64_t StreamFooterLength = 16;

// Writes the side file of a snapshot together with its file, as
// IgnoreSideFile does: prepare() before the snapshot file is committed,
// commit() right after. A snapshot without side data removes the side file of
// the one it replaces.
class MetaSideFile {
public:
    // checksum: that of the snapshot's entries, when already taken.
    explicit MetaSideFile(const Snapshot& snapshot, std::optional<uint64_t> checksum = {});

    bool prepare();
    bool commit();
    const QString& errorText() const { return m_writer.errorText(); }

private:
    const Snapshot& m_snapshot;
    std::optional<uint64_t> m_checksum;
    SideFileWriter m_writer;
};

// Reads the side file of a snapshot just loaded, when there is one (a regular
// file, never reached through a link). One that cannot be used leaves the
// snapshot without side data and gives the notice to show once
// ("Permissions and owners of Data.#03 are unreadable and were not used").
std::optional<QString> LoadMetaSideFile(Snapshot& snapshot);
// The same for side data that came with the snapshot's own bytes.
std::optional<QString> UseSideData(Snapshot& snapshot, std::string_view sideData);

} // namespace kestrel::engine
