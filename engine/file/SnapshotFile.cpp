#include "SnapshotFile.h"

#include "FileWriting.h"
#include "IgnoreSideFile.h"
#include "MetaSideFile.h"
#include "SnapshotItems.h"
#include "engine/model/ReadWatermark.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Checked.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"
#include "engine/support/TextDecode.h"
#include "engine/support/TextFormats.h"

#include <QFile>

#include <deque>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kestrel::engine {

namespace {

// Writes one title line: the title whole, with any line break made a blank
// so that the file reads back as it was written.
void writeTitle(ItemWriter& w, const QString& title) {
    QByteArray bytes = title.toUtf8();
    bytes.replace('\r', ' ');
    bytes.replace('\n', ' ');
    w.raw(std::string_view(bytes.constData(), size_t(bytes.size())));
    w.endLine();
}

// Entry lines are made in blocks of this many, several at once.
constexpr int32_t EntriesPerBlock = 1 << 15;
constexpr int BlocksAhead = 4;

// The lines of entries first..last, made in w (emptied first).
ItemWriter entryLines(ItemWriter w, const Snapshot& snapshot, int32_t first, int32_t last) {
    w.clear();
    for (int32_t i = first; i <= last; ++i)
        writeEntryLine(w, snapshot, i);
    return w;
}

// Every entry line holds eight items and each item takes at least one byte
// (its text or the comma or line end after it).
constexpr int64_t MinimumEntryBytes = 8;

} // namespace

void writeHeaderLines(ItemWriter& w, const SnapshotHeader& header, int32_t n) {
    writeTitle(w, header.title);
    const QByteArray root = header.rootFolder.toUtf8();
    w.string(std::string_view(root.constData(), size_t(root.size())));
    w.comma();
    w.date(header.created);
    w.comma();
    w.boolean(header.recurse);
    w.comma();
    w.boolean(header.hidden);
    w.comma();
    w.boolean(header.versions);
    w.comma();
    w.integer(capacityItem(n));
    w.endLine();
}

void writeEntryLine(ItemWriter& w, const Snapshot& snapshot, int32_t index) {
    const SnapshotEntry& e = snapshot.entries.at(index);
    const std::string_view name = snapshot.nameOf(e);
    const std::string_view version = snapshot.versionOf(e);
    // Taken in one go: the line is written a million times in a scan.
    char* at = w.reserve(4 * ItemWriter::IntegerRoom + 2 * ItemWriter::NumberRoom +
                         ItemWriter::stringRoom(name) + ItemWriter::stringRoom(version) + 7 + 2);
    at = ItemWriter::putInteger(at, e.attributes);
    *at++ = ',';
    at = ItemWriter::putNumber(at, e.modified);
    *at++ = ',';
    at = ItemWriter::putInteger(at, e.nextSibling);
    *at++ = ',';
    at = ItemWriter::putInteger(at, e.count);
    *at++ = ',';
    at = ItemWriter::putString(at, name);
    *at++ = ',';
    at = ItemWriter::putInteger(at, e.parent);
    *at++ = ',';
    at = ItemWriter::putNumber(at, e.size);
    *at++ = ',';
    at = ItemWriter::putString(at, version);
    *at++ = '\r';
    *at++ = '\n';
    w.keep(at);
}

bool writeEntryBlocks(const Snapshot& snapshot, int32_t first, int32_t last, ProgressMeter& meter,
                      const std::function<bool(const char*, size_t)>& write) {
    if (last < first)
        return true;
    // Their buffers go round: a block written out lends its buffer to the
    // next block started.
    const int32_t blocks = (last - first) / EntriesPerBlock + 1;
    std::deque<std::future<ItemWriter>> ahead;
    std::vector<ItemWriter> spare(BlocksAhead);
    int32_t next = 0; // the next block to start
    for (int32_t block = 0; block < blocks; ++block) {
        while (next < blocks && !spare.empty()) {
            const int32_t from = first + next * EntriesPerBlock;
            const int32_t to = std::min(last, from + EntriesPerBlock - 1);
            ahead.push_back(std::async(
                std::launch::async, [&snapshot, from, to, w = std::move(spare.back())]() mutable {
                    return entryLines(std::move(w), snapshot, from, to);
                }));
            spare.pop_back();
            ++next;
        }
        ItemWriter lines = ahead.front().get();
        ahead.pop_front();
        if (!write(lines.data(), lines.size()))
            return false;
        spare.push_back(std::move(lines));
        const int32_t from = first + block * EntriesPerBlock;
        const int32_t to = std::min(last, from + EntriesPerBlock - 1);
        for (int32_t k = (from + 999) / 1000 * 1000; k <= to; k += 1000)
            meter.update(k);
    }
    return true;
}

int32_t capacityItem(int32_t n) {
    return checkedAdd(n, 16 - n % 16);
}

int32_t fittedCapacity(int32_t capacity, int32_t entryLines, std::optional<UserMessage>& notice) {
    constexpr int64_t Slack = 16;
    if (int64_t(capacity) - entryLines <= Slack)
        return capacity;
    // The writer wrote a capacity between N + 1 and N + 16 for N entries, so
    // at least capacity - 16 entries were written and that many less the
    // lines read are missing.
    const int64_t missing = int64_t(capacity) - Slack - entryLines;
    notice = UserMessage{QStringLiteral("Incomplete Snapshot"),
                         QStringLiteral("The file ends before its last %1 entries")
                             .arg(formatCount(double(missing))),
                         MessageIcon::Information};
    return capacityItem(entryLines);
}

bool openForReading(QFile& file, QIODevice::OpenMode mode, LinkRule links) {
    const int fd =
        openRegularFileAt(AT_FDCWD, QFile::encodeName(file.fileName()).constData(), links);
    if (fd < 0)
        return false;
    return file.open(fd, mode, QFileDevice::AutoCloseHandle);
}

int64_t entriesThatFit(const QIODevice& file, int64_t minimumBytes) {
    if (file.isSequential())
        return -1;
    return file.size() / minimumBytes + 1;
}

void sizeTableToFile(Snapshot& snapshot, int32_t capacity, const QIODevice& file,
                     int64_t minimumEntryBytes) {
    int32_t room = capacity;
    const int64_t fit = entriesThatFit(file, minimumEntryBytes);
    if (fit >= 0 && fit < room)
        room = int32_t(fit);
    snapshot.entries.setCapacity(checkedAdd(room, 1));
    snapshot.entries.mutableAt(0).count = capacity;
}

void fitTableToLines(Snapshot& snapshot, int32_t capacity, int32_t entryLines,
                     std::optional<UserMessage>& notice) {
    const int32_t fitted = fittedCapacity(capacity, entryLines, notice);
    snapshot.entries.setCapacity(checkedAdd(fitted, 1));
    snapshot.entries.mutableAt(0).count = fitted;
}

namespace {

// The lines of the whole snapshot, the header's first, handed in order to
// write; the meter runs through the entries. False as soon as write fails.
bool writeSnapshotLines(Snapshot& snapshot, ProgressMeter& meter,
                        const std::function<bool(const char*, size_t)>& write) {
    const int32_t n = snapshot.entries.at(0).count;
    snapshot.entryCount = n;
    meter.initialise(n, QStringLiteral("Saving Snapshot"), false);
    ItemWriter head;
    writeHeaderLines(head, snapshot.header, n);
    // The entry lines are made on other threads while the blocks before
    // them are written out, in order, on this one.
    return write(head.data(), head.size()) && writeEntryBlocks(snapshot, 1, n, meter, write);
}

} // namespace

Outcome SaveSnapshot(Snapshot& snapshot, ProgressMeter& meter) {
    AtomicFile file(snapshot.header.fileName);
    if (!file.open())
        return Outcome::failure(UserMessage{QStringLiteral("Error Writing Snapshot"),
                                            file.errorText(), MessageIcon::Exclamation},
                                ErrorCode::SystemError);
    MeterCloser closer{meter};
    auto writeFailed = [&](const QString& text) {
        file.abandon();
        return Outcome::failure(
            UserMessage{QStringLiteral("Invalid Snapshot File"), text, MessageIcon::Exclamation},
            ErrorCode::SystemError);
    };
    try {
        if (!writeSnapshotLines(snapshot, meter, [&](const char* data, size_t size) {
                return file.append(data, size);
            }))
            return writeFailed(file.errorText());
        IgnoreSideFile side(snapshot.header);
        MetaSideFile meta(snapshot);
        if (!side.prepare())
            return writeFailed(side.errorText());
        if (!meta.prepare())
            return writeFailed(meta.errorText());
        if (!file.commit())
            return writeFailed(file.errorText());
        for (const QString& failed : {side.commit() ? QString() : side.errorText(),
                                      meta.commit() ? QString() : meta.errorText()})
            if (!failed.isEmpty())
                return Outcome::failure(UserMessage{QStringLiteral("Error Writing Snapshot"),
                                                    failed, MessageIcon::Exclamation},
                                        ErrorCode::SystemError);
    } catch (const RuntimeError& e) {
        return writeFailed(snapshot.header.fileName + QStringLiteral(": ") + e.text());
    }
    return Outcome::success();
}

namespace {

// The first bytes of a file, as a device of their own: the snapshot part of
// a stream that carries side data after it.
class LeadingBytes : public QIODevice {
public:
    LeadingBytes(QIODevice& inner, int64_t length) : m_inner(inner), m_length(length) {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return false; }
    qint64 size() const override { return m_length; }

protected:
    qint64 readData(char* data, qint64 room) override {
        const qint64 left = m_length - m_read;
        if (left <= 0)
            return 0;
        const qint64 n = m_inner.read(data, std::min(room, left));
        if (n > 0)
            m_read += n;
        return n;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QIODevice& m_inner;
    const int64_t m_length;
    int64_t m_read = 0;
};

// Where a stream's side data lies, when the file carries it; the file is
// left at its start.
std::optional<StreamParts> sideDataIn(QFile& file, std::string& sideData) {
    const int64_t size = file.size();
    if (size < StreamFooterLength || !file.seek(size - StreamFooterLength))
        return std::nullopt;
    const QByteArray footer = file.read(StreamFooterLength);
    std::optional<StreamParts> parts =
        streamParts(size, std::string_view(footer.constData(), size_t(footer.size())));
    if (parts && file.seek(parts->snapshotLength)) {
        const QByteArray side = file.read(parts->sideLength);
        sideData.assign(side.constData(), size_t(side.size()));
    }
    if (!file.seek(0) || (parts && int64_t(sideData.size()) != parts->sideLength))
        return std::nullopt;
    return parts;
}

// Tells a thread that follows the reading how far it got, and that it is
// over however it stops.
class FollowedReading {
public:
    explicit FollowedReading(ReadWatermark* watermark) : m_watermark(watermark) {}
    ~FollowedReading() { end(); }
    FollowedReading(const FollowedReading&) = delete;
    FollowedReading& operator=(const FollowedReading&) = delete;

    // Entries 1..last are read whole.
    void read(int32_t last) {
        m_final = last;
        // Often enough that the follower is never far behind, seldom enough
        // to cost nothing.
        if (m_watermark && last % 1024 == 0)
            m_watermark->publish(last);
    }
    // Returns once the follower has let go: the table may change now.
    void end() {
        if (m_watermark)
            m_watermark->endReading(m_final);
        m_watermark = nullptr;
    }

private:
    ReadWatermark* m_watermark;
    int32_t m_final = 0;
};

LoadOutcome loadFrom(Snapshot& snapshot, QIODevice& file, ProgressMeter& meter,
                     FollowedReading& reading);

} // namespace

LoadOutcome LoadSnapshot(Snapshot& snapshot, ProgressMeter& meter, ReadWatermark* followed) {
    FollowedReading reading(followed);
    QFile file(snapshot.header.fileName);
    // Unbuffered: the reader takes the file in large blocks of its own.
    if (!openForReading(file, QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        LoadOutcome outcome;
        outcome.error = ErrorCode::FileNotFound;
        return outcome;
    }
    std::string sideData;
    if (const std::optional<StreamParts> parts = sideDataIn(file, sideData)) {
        LeadingBytes snapshotPart(file, parts->snapshotLength);
        LoadOutcome outcome = loadFrom(snapshot, snapshotPart, meter, reading);
        outcome.sideData = std::move(sideData);
        return outcome;
    }
    return loadFrom(snapshot, file, meter, reading);
}

namespace {

LoadOutcome loadFrom(Snapshot& snapshot, QIODevice& file, ProgressMeter& meter,
                     FollowedReading& reading) {
    LoadOutcome outcome;
    const double startTime = secondsSinceMidnight();
    MeterCloser closer{meter};
    try {
        ItemReader reader(file);
        std::string scratch;
        snapshot.header.title = decodeText(reader.line());
        {
            const Item root = reader.next();
            const std::string_view text = ItemReader::toText(root, scratch);
            snapshot.header.rootFolder = QString::fromUtf8(text.data(), qsizetype(text.size()));
        }
        snapshot.header.created = ItemReader::toDate(reader.next());
        snapshot.header.recurse = ItemReader::toBoolean(reader.next());
        snapshot.header.hidden = ItemReader::toBoolean(reader.next());
        snapshot.header.versions = ItemReader::toBoolean(reader.next());
        const int32_t capacity = ItemReader::toInt32(reader.next());
        outcome.headerRead = true;

        startCancellable(meter, capacity, QStringLiteral("Loading Snapshot"));

        // The table takes its final capacity once the lines are counted.
        sizeTableToFile(snapshot, capacity, file, MinimumEntryBytes);

        int32_t i = 0;
        // Nearly every line is as Kestrel writes it, read in one go; any
        // other is read item by item.
        EntryLineItems plain;
        while (!reader.atEnd()) {
            if (meter.cancelled())
                break;
            i = checkedAdd(i, 1);
            outcome.failedEntry = i;
            SnapshotEntry& e = snapshot.entries.mutableAt(i);
            if (reader.plainEntryLine(plain)) {
                e.attributes = plain.attributes;
                e.modified = plain.modified;
                e.nextSibling = plain.nextSibling;
                e.count = plain.count;
                snapshot.setName(e, ItemReader::toText(plain.name, scratch));
                e.parent = plain.parent;
                e.size = plain.size;
                snapshot.setVersion(e, ItemReader::toText(plain.version, scratch));
            } else {
                e.attributes = ItemReader::toInt16(reader.next());
                e.modified = ItemReader::toDouble(reader.next());
                e.nextSibling = ItemReader::toInt32(reader.next());
                e.count = ItemReader::toInt32(reader.next());
                snapshot.setName(e, ItemReader::toText(reader.next(), scratch));
                e.parent = ItemReader::toInt32(reader.next());
                e.size = ItemReader::toDouble(reader.next());
                snapshot.setVersion(e, ItemReader::toText(reader.next(), scratch));
            }
            snapshot.entryCount = i;
            reading.read(i);
            if (!e.isFolder()) {
                snapshot.fileCount = checkedAdd(snapshot.fileCount, 1);
                snapshot.totalSize += e.size;
            } else {
                snapshot.folderCount = checkedAdd(snapshot.folderCount, 1);
                if (i % 10 == 0)
                    meter.update(i);
            }
        }
        outcome.failedEntry = 0;
        reading.end();
        if (!meter.cancelled())
            fitTableToLines(snapshot, capacity, i, outcome.message);
    } catch (...) {
        reading.end();
        const CaughtError e = caughtError();
        outcome.error = e.code;
        // An overflow is passed over silently, as it always was.
        if (e.code != ErrorCode::Overflow)
            outcome.message =
                UserMessage{QStringLiteral("Invalid Snapshot"), e.text, MessageIcon::Exclamation};
        return outcome;
    }
    finishRead(outcome, meter, QStringLiteral("read"), startTime, snapshot);
    return outcome;
}

} // namespace

Outcome WriteSnapshotStream(Snapshot& snapshot, QIODevice& out, ProgressMeter& meter) {
    MeterCloser closer{meter};
    const auto failed = [&] {
        return Outcome::failure(UserMessage{QStringLiteral("Error Writing Snapshot"),
                                            out.errorString(), MessageIcon::Exclamation},
                                ErrorCode::SystemError);
    };
    try {
        if (!writeSnapshotLines(snapshot, meter, [&](const char* data, size_t size) {
                return writeWhole(out, data, qint64(size));
            }))
            return failed();
        const std::string trailer = sideDataTrailer(snapshot);
        if (!writeWhole(out, trailer.data(), qint64(trailer.size())))
            return failed();
    } catch (const RuntimeError& e) {
        return Outcome::failure(UserMessage{QStringLiteral("Error Writing Snapshot"), e.text(),
                                            MessageIcon::Exclamation},
                                ErrorCode::SystemError);
    }
    return Outcome::success();
}

void finishRead(Outcome& outcome, const ProgressMeter& meter, const QString& verb, double startTime,
                const Snapshot& snapshot) {
    if (meter.cancelled()) {
        outcome.cancelled = true;
        return;
    }
    outcome.ok = true;
    outcome.summary = SummaryLine(verb, startTime, secondsSinceMidnight(), snapshot.fileCount,
                                  snapshot.folderCount);
}

QString NextSnapshotName(const QString& base, const QString& folder) {
    QString stem = base;
    if (stem.endsWith(QLatin1Char(':')))
        stem = stem.left(1).toUpper() + QStringLiteral("_DRIVE");
    const auto numbered = [&stem](int n) {
        return stem + QStringLiteral(".#") + QStringLiteral("%1").arg(n, 2, 10, QLatin1Char('0'));
    };
    // The highest number is the newest snapshot, so a new one goes after it
    // even where an earlier number is free; anything with the name counts,
    // a dangling link too.
    for (int n = LastSnapshotNumber; n >= 1; --n) {
        if (nameTaken(folder + numbered(n)))
            return numbered(std::min(n + 1, LastSnapshotNumber));
    }
    return numbered(1);
}

QString SnapshotBaseName(const QString& rootFolder) {
    // A POSIX root is stored text in which a backslash belongs to a name
    // (an escaped byte, or a backslash the name holds): only "/" separates.
    const bool posix = nameMatchingOfRoot(rootFolder) == NameMatching::Exact;
    const auto isSeparator = [posix](QChar c) {
        return c == QLatin1Char('/') || (!posix && c == QLatin1Char('\\'));
    };
    QString path = rootFolder;
    while (path.size() > 1 && isSeparator(path.back()))
        path.chop(1);
    if (path == QLatin1String("/") || path.isEmpty())
        return QStringLiteral("ROOT");
    qsizetype cut = path.size() - 1;
    while (cut >= 0 && !isSeparator(path.at(cut)))
        --cut;
    return path.mid(cut + 1);
}

int16_t SnapshotNumberFromName(const QString& path) {
    const QString tail = path.right(2).trimmed();
    int value = 0;
    for (QChar c : tail) {
        if (!c.isDigit() || c.unicode() > '9')
            break;
        value = value * 10 + (c.unicode() - '0');
    }
    return int16_t(value);
}

QString NewSnapshotTitle(const QString& folder, int16_t number, bool naming) {
    if (naming && number == 1)
        return QStringLiteral("Original Snapshot of ") + folder;
    if (naming && number == 2)
        return QStringLiteral("Final Snapshot of ") + folder;
    return QStringLiteral("Snapshot #%1 of ").arg(number) + folder;
}

QStringList snapshotFileFilters() {
    return {QStringLiteral("All Snapshots (*.#?\?)"), QStringLiteral("Original Snapshots (*.#01)"),
            QStringLiteral("All Files (*)")};
}

} // namespace kestrel::engine
