// engine/file: snapshot files saved, loaded and imported, and every file written whole.

#pragma once

#include "engine/support/Errors.h"
#include "engine/support/RegularFile.h"

#include <QFile>
#include <QIODevice>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <optional>

namespace kestrel::engine {

class ItemWriter;
class ProgressMeter;
class ReadWatermark;
class Snapshot;
struct SnapshotHeader;

// SaveSnapshot: writes the snapshot to header.fileName. Entries 1..N are
// written where N is the count held by entry 0 (for a loaded snapshot, the
// capacity its file gave, so the empty records beyond the real entries are
// written too), and entryCount becomes N. The file is replaced atomically:
// a failed save leaves the previous file as it was. The snapshot's own
// ignore patterns go to its side file (IgnoreSideFile.h) along with it.
// Failures: "Error Writing Snapshot" when the file cannot be created, "Invalid
// Snapshot File" when writing fails after that; both with the system's text.
Outcome SaveSnapshot(Snapshot& snapshot, ProgressMeter& meter);

// LoadSnapshot: reads header.fileName into an empty snapshot. A file that
// cannot be opened (anything but a regular file counts as such, see
// openForReading) gives false with no message; bad data gives "Invalid
// Snapshot" with the error's text, except an overflow, which fails silently;
// a cancel gives false with cancelled set. On success the summary holds the
// "read" line; the side file's ignore patterns are not read here
// (OpenSnapshotFile reads them). headerRead tells the caller that the header was read, so
// header.versions is known even when the load failed later (the caller sets
// its ignore-version choice from it); failedEntry is the entry whose line
// was being read when the load failed (0 for the title and header lines).
//
// The table holds indices 0..C+1 and entry 0 counts C, C being the file's
// capacity item, as long as C is at most 16 above the entry lines the file
// holds (Kestrel never writes it further above). A larger C marks a damaged
// or cut file: it is loaded with the capacity a save of the lines read would
// write (see fittedCapacity), so saving it again writes at most 16 empty
// records, and ok comes with the notice "Incomplete Snapshot". The table is
// never sized beyond what the file's length can hold.
//
// A file written as a stream (WriteSnapshotStream) is read up to its side
// data, which comes back in sideData for OpenSnapshotFile to read.
//
// With followed, the entries are published there as they are read, for
// another thread to read meanwhile, and the reading ends there however it
// stops; the table is fitted only once that thread lets go (ReadWatermark).
struct LoadOutcome : Outcome {
    bool headerRead = false;
    int32_t failedEntry = 0;
    std::optional<std::string> sideData;
};
LoadOutcome LoadSnapshot(Snapshot& snapshot, ProgressMeter& meter,
                         ReadWatermark* followed = nullptr);

// Writes the snapshot as SaveSnapshot writes its file, then its side data
// (MetaSideFile.h), all to out: one stream that LoadSnapshot reads back as
// the same snapshot. Fails with "Error Writing Snapshot" and the device's
// reason.
Outcome WriteSnapshotStream(Snapshot& snapshot, QIODevice& out, ProgressMeter& meter);

// The pieces of a snapshot file, for SaveSnapshot and for the save behind a
// scan (SaveBehind.h), which must write the same bytes.
// The title line and the header line of a file of n entries.
void writeHeaderLines(ItemWriter& w, const SnapshotHeader& header, int32_t n);
// The line of one entry.
void writeEntryLine(ItemWriter& w, const Snapshot& snapshot, int32_t index);
// The lines of entries first..last, made in blocks on other threads and
// handed, in order, to write on the calling thread, which moves the meter at
// every 1,000th entry. False as soon as write returns false. The snapshot
// must not change meanwhile.
bool writeEntryBlocks(const Snapshot& snapshot, int32_t first, int32_t last, ProgressMeter& meter,
                      const std::function<bool(const char*, size_t)>& write);

// The capacity item a save of n entries writes: n rounded up to the next
// multiple of 16 above it (0 gives 16, 15 gives 16, 16 gives 32).
int32_t capacityItem(int32_t n);

// The capacity a read of entryLines lines is left with when the file said
// capacity: capacity itself when it is at most 16 above the lines, otherwise
// capacityItem(entryLines), with notice set to the message that tells the
// user how many entries the file lacks.
int32_t fittedCapacity(int32_t capacity, int32_t entryLines, std::optional<UserMessage>& notice);

// Opens file (its name set) for reading with mode. Only a regular file opens,
// through a link when links is Follow: a pipe would keep the reader waiting
// for ever (or release a writer waiting on it) and a device may never end or
// act on being opened; neither is opened at all. False when it does not open.
bool openForReading(QFile& file, QIODevice::OpenMode mode, LinkRule links = LinkRule::Follow);

// The most entries a file of the given length can hold when each takes at
// least minimumBytes (-1 when the length is unknown, as for a pipe).
int64_t entriesThatFit(const QIODevice& file, int64_t minimumBytes);

// Sizes the table of a snapshot about to be read from file, whose capacity
// item (or entry count) says capacity: entry 0 counts capacity, but the
// table reaches no further than entries of at least minimumEntryBytes each
// can in the file's length, so that a damaged item sizes nothing.
void sizeTableToFile(Snapshot& snapshot, int32_t capacity, const QIODevice& file,
                     int64_t minimumEntryBytes);

// Once entryLines lines of that file are read: the table and the count of
// entry 0 take fittedCapacity(capacity, entryLines, notice).
void fitTableToLines(Snapshot& snapshot, int32_t capacity, int32_t entryLines,
                     std::optional<UserMessage>& notice);

// How a read of a snapshot file that met no error ends: cancelled, or a
// success with its summary line ("Kestrel read ..." for verb "read").
void finishRead(Outcome& outcome, const ProgressMeter& meter, const QString& verb, double startTime,
                const Snapshot& snapshot);

// NextSnapshotName: the name for a new snapshot file of a folder whose last
// component is base, kept in folder (which ends in the separator): base and
// ".#" with the number one past the highest that exists there (".#01" when
// none does; a gap below the highest stays free). Anything with the name
// counts, a link of any kind too. When ".#99" exists the series is full and
// the name returned is ".#99" itself: the caller finds it taken (nameTaken)
// and asks before replacing it, or refuses. A base ending in ":" is a drive:
// "c:" gives C_DRIVE.
inline constexpr int LastSnapshotNumber = 99;
QString NextSnapshotName(const QString& base, const QString& folder);

// The base name of a snapshot file for a root folder: its last component,
// "ROOT" for the file system root "/", the drive ("C:") for a drive root.
QString SnapshotBaseName(const QString& rootFolder);

// The title a new snapshot gets: "Snapshot #n of folder"; with the naming
// convention on, the first of a folder is its "Original Snapshot of folder"
// and the second its "Final Snapshot of folder".
QString NewSnapshotTitle(const QString& folder, int16_t number, bool naming);

// The file dialogs' filters for snapshot files: every numbered snapshot,
// original snapshots only, all files.
QStringList snapshotFileFilters();

// The snapshot number a file name carries: the value of its last two
// characters (a file ending in .#03 gives 3; characters that are not digits
// give 0).
int16_t SnapshotNumberFromName(const QString& path);

} // namespace kestrel::engine
