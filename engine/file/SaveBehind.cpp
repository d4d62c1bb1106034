#include "SaveBehind.h"

#include "FileWriting.h"
#include "IgnoreSideFile.h"
#include "MetaSideFile.h"
#include "SnapshotFile.h"
#include "SnapshotItems.h"

#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"

#include <QBuffer>
#include <QFile>
#include <QRegularExpression>

#include <climits>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace kestrel::engine {

namespace {

// Blocks of lines made and not yet written: the walk stops making lines
// when all are in use, and goes on when they come back.
constexpr int BlocksInFlight = 8;

int digitCount(int64_t value) {
    int digits = 1;
    while (value >= 10) {
        value /= 10;
        ++digits;
    }
    return digits;
}

// The entries the snapshot file at path holds, by its capacity item, when it
// is one of rootFolder; 0 when it is none, or of another folder.
int32_t entriesOfSnapshotFile(const QString& path, const QString& rootFolder) {
    // The name may be one another user planted in a shared folder: a link or
    // anything but a regular file is no snapshot to learn from.
    QFile file(path);
    if (!openForReading(file, QIODevice::ReadOnly, LinkRule::Refuse))
        return 0;
    // The title and header lines are at the start; a file whose header does
    // not fit in this much is not worth reading further for a guess.
    QByteArray start = file.read(64 * 1024);
    QBuffer buffer(&start);
    buffer.open(QIODevice::ReadOnly);
    try {
        ItemReader reader(buffer);
        std::string scratch;
        reader.line();
        const std::string_view root = ItemReader::toText(reader.next(), scratch);
        if (QString::fromUtf8(root.data(), qsizetype(root.size())) != rootFolder)
            return 0;
        for (int item = 0; item < 4; ++item) // date, recurse, hidden, versions
            reader.next();
        // The capacity item is the entries rounded up past the next multiple
        // of 16; one below it has as many digits.
        const int32_t capacity = ItemReader::toInt32(reader.next());
        return capacity > 0 && capacity < INT32_MAX - 32 ? capacity - 1 : 0;
    } catch (const RuntimeError&) {
        return 0;
    }
}

// The entries a repeated snapshot of the folder will likely have: those of
// the file it replaces, or of the number before it in its series.
int32_t expectedEntries(const SnapshotHeader& header) {
    if (const int32_t entries = entriesOfSnapshotFile(header.fileName, header.rootFolder))
        return entries;
    static const QRegularExpression numbered(QStringLiteral("\\.#(\\d\\d)$"));
    const QRegularExpressionMatch m = numbered.match(header.fileName);
    const int number = m.hasMatch() ? m.captured(1).toInt() : 0;
    if (number < 2)
        return 0;
    const QString before = header.fileName.left(m.capturedStart(1)) +
                           QStringLiteral("%1").arg(number - 1, 2, 10, QLatin1Char('0'));
    return entriesOfSnapshotFile(before, header.rootFolder);
}

// Makes the lines of entries as the scan finishes them and writes them
// behind it; see ScanAndSaveSnapshot.
//
// Lines are made on the walking thread (nothing else may read the snapshot
// while it grows) into blocks that a thread of its own writes, each at its
// place after the room kept for the header. Offsets of lines are counted
// from the first entry line ("body offsets"); the header's room, the base,
// is added by the writing thread, which alone touches the file until
// finish().
class SaveBehindScan final : public ScanFollower {
public:
    SaveBehindScan(const SnapshotHeader& header, size_t blockBytes)
        : m_file(header.fileName), m_header(header), m_blockBytes(blockBytes) {}

    // A save not finished leaves no file: blocks still queued are dropped.
    ~SaveBehindScan() override { stopWriting(true); }

    // Creates the new file and starts the writing thread, with room for the
    // header of a snapshot of the given entries. False when either cannot
    // be done. The file has no name while the scan goes on, so that a
    // snapshot kept inside the tree it records does not find itself, nor
    // change the time of its folder, which the scan records.
    bool start(int32_t entries) {
        if (!m_file.openUnnamed())
            return false;
        try {
            m_expectedEntries = entries;
            m_writtenBase = headerLength(m_expectedEntries);
            m_spare.resize(BlocksInFlight);
            m_writer = std::thread([this] { writeBlocks(); });
        } catch (...) {
            m_file.abandon();
            return false;
        }
        return true;
    }

    void entriesFinal(const Snapshot& snapshot, int32_t last) override {
        if (m_troubled)
            return;
        try {
            // The header will need at least the room of a capacity for
            // every entry found so far.
            if (digitCount(capacityItem(snapshot.entryCount)) >
                digitCount(capacityItem(m_expectedEntries))) {
                m_expectedEntries = snapshot.entryCount;
                moveBody(headerLength(m_expectedEntries));
            }
            makeLines(snapshot, last);
            m_checksum.addThrough(snapshot, last);
        } catch (...) {
            m_troubled = true;
        }
    }

    // After a scan that succeeded and called entriesFinal for every entry:
    // writes the lines not written yet and the header, makes the file
    // durable and gives it its name. False when anything failed; the new
    // file is then gone.
    bool finish(Snapshot& snapshot, ProgressMeter& meter) {
        MeterCloser closer{meter};
        try {
            const int32_t n = snapshot.entries.at(0).count;
            snapshot.entryCount = n;
            meter.initialise(n, QStringLiteral("Saving Snapshot"), false);
            if (m_block && m_block->size() > 0)
                handOff();
            stopWriting(false);
            if (m_troubled || m_writeFailed) {
                m_file.abandon();
                return false;
            }
            ItemWriter head;
            writeHeaderLines(head, snapshot.header, n);
            const int64_t base = int64_t(head.size());
            if (base != m_writtenBase && !m_file.moveBytes(m_writtenBase, base, m_written))
                return false;
            int64_t at = base + m_written;
            if (m_madeThrough >= 1000)
                meter.update(m_madeThrough / 1000 * 1000);
            // The side data of every entry is made and written while the
            // last lines and the header are; the snapshot is final now.
            IgnoreSideFile side(snapshot.header);
            m_checksum.addThrough(snapshot, n);
            MetaSideFile meta(snapshot, m_checksum.value());
            auto metaPrepared = std::async(std::launch::async, [&meta] { return meta.prepare(); });
            const bool written =
                writeEntryBlocks(snapshot, m_madeThrough + 1, n, meter,
                                 [&](const char* data, size_t size) {
                                     const bool ok = m_file.writeAt(at, data, size);
                                     at += int64_t(size);
                                     return ok;
                                 }) &&
                m_file.writeAt(0, head.data(), head.size()) && m_file.truncate(at) &&
                m_file.makeDurable();
            // A side file that cannot be written leaves the save to
            // SaveSnapshot, which tells why. Each file reached the disk
            // while the other was made; only their names are left to give.
            const bool metaWritten = metaPrepared.get();
            return written && side.prepare() && metaWritten && m_file.commit() && side.commit() &&
                   meta.commit();
        } catch (...) {
            m_file.abandon();
            return false;
        }
    }

private:
    // A block of lines to write at a body offset, or a move of what is
    // written so far to a new base.
    struct Job {
        std::optional<ItemWriter> block;
        int64_t bodyOffset = 0;
        int64_t newBase = 0;
    };

    // The length of the header of a snapshot of the given entries. Its date
    // has one length whatever the time; the capacity item's digits are what
    // is guessed.
    int64_t headerLength(int32_t entries) const {
        ItemWriter w;
        SnapshotHeader header = m_header;
        header.created = oleNow();
        writeHeaderLines(w, header, entries);
        return int64_t(w.size());
    }

    // Makes the lines of the entries up to last that have none yet, while
    // there are blocks to make them in.
    void makeLines(const Snapshot& snapshot, int32_t last) {
        while (m_madeThrough < last) {
            if (!m_block && !takeBlock())
                return;
            writeEntryLine(*m_block, snapshot, ++m_madeThrough);
            if (m_block->size() >= m_blockBytes)
                handOff();
        }
    }

    bool takeBlock() {
        std::lock_guard lock(m_mutex);
        if (m_spare.empty())
            return false;
        m_block.emplace(std::move(m_spare.back()));
        m_spare.pop_back();
        return true;
    }

    void handOff() {
        Job job;
        job.bodyOffset = m_madeBytes;
        m_madeBytes += int64_t(m_block->size());
        job.block = std::move(m_block);
        m_block.reset();
        queue(std::move(job));
    }

    void moveBody(int64_t newBase) {
        Job job;
        job.newBase = newBase;
        queue(std::move(job));
    }

    void queue(Job&& job) {
        {
            std::lock_guard lock(m_mutex);
            m_jobs.push_back(std::move(job));
        }
        m_wake.notify_one();
    }

    // The writing thread: writes blocks and moves what is written, in the
    // order they were queued, until told to stop and the queue is empty.
    void writeBlocks() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
            if (m_jobs.empty())
                return;
            Job job = std::move(m_jobs.front());
            m_jobs.pop_front();
            const bool skip = m_writeFailed || m_discarding;
            lock.unlock();
            bool ok = true;
            if (!skip) {
                try {
                    ok = job.block ? writeBlock(*job.block, job.bodyOffset)
                                   : moveWritten(job.newBase);
                } catch (...) {
                    ok = false;
                }
            }
            lock.lock();
            if (!ok)
                m_writeFailed = true;
            if (job.block) {
                job.block->clear();
                m_spare.push_back(std::move(*job.block));
            }
        }
    }

    bool writeBlock(const ItemWriter& block, int64_t bodyOffset) {
        if (!m_file.writeAt(m_writtenBase + bodyOffset, block.data(), block.size()))
            return false;
        m_written = bodyOffset + int64_t(block.size());
        return true;
    }

    bool moveWritten(int64_t newBase) {
        if (!m_file.moveBytes(m_writtenBase, newBase, m_written))
            return false;
        m_writtenBase = newBase;
        return true;
    }

    // Waits for the writing thread to write what is queued, or to drop it.
    void stopWriting(bool discard) {
        if (!m_writer.joinable())
            return;
        {
            std::lock_guard lock(m_mutex);
            m_stopping = true;
            m_discarding = discard;
        }
        m_wake.notify_one();
        m_writer.join();
    }

    AtomicFile m_file;
    const SnapshotHeader& m_header;
    const size_t m_blockBytes;

    // The walking thread's.
    int32_t m_expectedEntries = 0;     // the entries the header has room for
    std::optional<ItemWriter> m_block; // the block being made
    int32_t m_madeThrough = 0;         // entries whose lines are made
    int64_t m_madeBytes = 0;           // body bytes handed to the writing thread
    SnapshotChecksum m_checksum;       // of the entries final so far, for the side data
    bool m_troubled = false;           // something failed: the file is given up

    // The writing thread's until it stops.
    int64_t m_writtenBase = 0; // where the body is in the file
    int64_t m_written = 0;     // body bytes written

    std::thread m_writer;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    std::vector<ItemWriter> m_spare;
    bool m_stopping = false;
    bool m_discarding = false;
    bool m_writeFailed = false;
};

} // namespace

ScanAndSaveOutcome ScanAndSaveSnapshot(Snapshot& snapshot, const ScanSettings& settings,
                                       ProgressMeter& meter, const SaveBehindOptions& options) {
    ScanAndSaveOutcome outcome;
    SaveBehindScan behind(snapshot.header, options.blockBytes);
    ScanSettings following = settings;
    if (behind.start(expectedEntries(snapshot.header)))
        following.follower = &behind;
    outcome.scan = CreateSnapshot(snapshot, following, meter);
    if (!outcome.scan.ok)
        return outcome;
    if (following.follower && behind.finish(snapshot, meter)) {
        outcome.save = Outcome::success();
        outcome.savedBehind = true;
        return outcome;
    }
    outcome.save = guardedOperation(QStringLiteral("Error Writing Snapshot"),
                                    [&] { return SaveSnapshot(snapshot, meter); });
    return outcome;
}

} // namespace kestrel::engine
