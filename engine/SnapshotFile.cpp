#include "SnapshotFile.h"

#include "Checked.h"
#include "OleDate.h"
#include "Progress.h"
#include "Snapshot.h"
#include "SnapshotItems.h"
#include "TextDecode.h"
#include "TextFormats.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace kestrel::engine {

namespace {

constexpr size_t FlushThreshold = 1 << 20;

// Writes one title line: the title whole, with any line break made a blank
// so that the file reads back as it was written.
void writeTitle(ItemWriter& w, const QString& title) {
    QByteArray bytes = title.toUtf8();
    bytes.replace('\r', ' ');
    bytes.replace('\n', ' ');
    w.raw(std::string_view(bytes.constData(), size_t(bytes.size())));
    w.endLine();
}

// Capacity item of the header: the entry count rounded up to the next
// multiple of 16 above it.
int32_t capacityItem(int32_t n) { return checkedAdd(n, 16 - n % 16); }


} // namespace

Outcome SaveSnapshot(Snapshot& snapshot, ProgressMeter& meter) {
    QSaveFile file(snapshot.header.fileName);
    // Unbuffered: the text is gathered in large blocks here anyway, and Qt's
    // own buffer, flushed at commit, can lose the end of a short write (on a
    // full disk) without reporting it.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return Outcome::failure(UserMessage{QStringLiteral("Error Writing Snapshot"),
                                            file.errorString(), MessageIcon::Exclamation},
                                ErrorCode::SystemError);
    }
    MeterCloser closer{meter};
    auto writeFailed = [&](const QString& text) {
        file.cancelWriting();
        return Outcome::failure(UserMessage{QStringLiteral("Invalid Snapshot File"), text,
                                            MessageIcon::Exclamation},
                                ErrorCode::SystemError);
    };
    try {
        const int32_t n = snapshot.entries.at(0).count;
        snapshot.entryCount = n;
        meter.initialise(n, QStringLiteral("Saving Snapshot"), false);

        ItemWriter w;
        // A short write carries no error text; writing the rest either
        // succeeds or fails with the system's reason (disk full, file too large).
        auto flush = [&]() {
            const char* data = w.data();
            qint64 left = qint64(w.size());
            while (left > 0) {
                const qint64 written = file.write(data, left);
                if (written <= 0)
                    return false;
                data += written;
                left -= written;
            }
            w.clear();
            return true;
        };

        writeTitle(w, snapshot.header.title);
        const QByteArray root = snapshot.header.rootFolder.toUtf8();
        w.string(std::string_view(root.constData(), size_t(root.size())));
        w.comma();
        w.date(snapshot.header.created);
        w.comma();
        w.boolean(snapshot.header.recurse);
        w.comma();
        w.boolean(snapshot.header.hidden);
        w.comma();
        w.boolean(snapshot.header.versions);
        w.comma();
        w.integer(capacityItem(n));
        w.endLine();

        for (int32_t i = 1; i <= n; ++i) {
            const SnapshotEntry& e = snapshot.entries.at(i);
            w.integer(e.attributes);
            w.comma();
            w.number(e.modified);
            w.comma();
            w.integer(e.nextSibling);
            w.comma();
            w.integer(e.count);
            w.comma();
            w.string(snapshot.nameOf(e));
            w.comma();
            w.integer(e.parent);
            w.comma();
            w.number(e.size);
            w.comma();
            w.string(snapshot.versionOf(e));
            w.endLine();
            if (w.size() >= FlushThreshold && !flush())
                return writeFailed(file.errorString());
            if (i % 1000 == 0)
                meter.update(i);
        }
        if (!flush())
            return writeFailed(file.errorString());
        if (!file.commit())
            return Outcome::failure(UserMessage{QStringLiteral("Invalid Snapshot File"),
                                                file.errorString(), MessageIcon::Exclamation},
                                    ErrorCode::SystemError);
    } catch (const RuntimeError& e) {
        return writeFailed(e.text());
    }
    return Outcome::success();
}

LoadOutcome LoadSnapshot(Snapshot& snapshot, ProgressMeter& meter) {
    LoadOutcome outcome;
    QFile file(snapshot.header.fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        outcome.error = ErrorCode::FileNotFound;
        return outcome;
    }
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

        // The table holds indices 0..capacity + 1; its chunks are allocated as
        // entries arrive, so a damaged capacity item costs no memory.
        snapshot.entries.setCapacity(checkedAdd(capacity, 1));
        snapshot.entries.mutableAt(0).count = capacity;

        int32_t i = 0;
        while (!reader.atEnd()) {
            if (meter.cancelled())
                break;
            i = checkedAdd(i, 1);
            SnapshotEntry& e = snapshot.entries.mutableAt(i);
            e.attributes = ItemReader::toInt16(reader.next());
            e.modified = ItemReader::toDouble(reader.next());
            e.nextSibling = ItemReader::toInt32(reader.next());
            e.count = ItemReader::toInt32(reader.next());
            snapshot.setName(e, ItemReader::toText(reader.next(), scratch));
            e.parent = ItemReader::toInt32(reader.next());
            e.size = ItemReader::toDouble(reader.next());
            snapshot.setVersion(e, ItemReader::toText(reader.next(), scratch));
            snapshot.entryCount = i;
            if (!e.isFolder()) {
                snapshot.fileCount = checkedAdd(snapshot.fileCount, 1);
                snapshot.totalSize += e.size;
            } else {
                snapshot.folderCount = checkedAdd(snapshot.folderCount, 1);
                if (i % 10 == 0)
                    meter.update(i);
            }
        }
    } catch (const RuntimeError& e) {
        outcome.error = e.code();
        // An overflow is passed over silently, as it always was.
        if (e.code() != ErrorCode::Overflow)
            outcome.message = UserMessage{QStringLiteral("Invalid Snapshot"), e.text(),
                                          MessageIcon::Exclamation};
        return outcome;
    }
    if (meter.cancelled()) {
        outcome.cancelled = true;
        return outcome;
    }
    outcome.ok = true;
    outcome.summary = SummaryLine(QStringLiteral("read"), startTime, secondsSinceMidnight(),
                                  snapshot.fileCount, snapshot.folderCount);
    return outcome;
}

QString NextSnapshotName(const QString& base, const QString& folder) {
    QString stem = base;
    if (stem.endsWith(QLatin1Char(':')))
        stem = stem.left(1).toUpper() + QStringLiteral("_DRIVE");
    QString name;
    for (int n = 1; n <= 99; ++n) {
        name = stem + QStringLiteral(".#") + QStringLiteral("%1").arg(n, 2, 10, QLatin1Char('0'));
        if (!QFileInfo::exists(folder + name))
            return name;
    }
    return name;
}

QString SnapshotBaseName(const QString& rootFolder) {
    QString path = rootFolder;
    while (path.size() > 1 && (path.endsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\'))))
        path.chop(1);
    if (path == QLatin1String("/") || path.isEmpty())
        return QStringLiteral("ROOT");
    const qsizetype cut = std::max(path.lastIndexOf(QLatin1Char('/')), path.lastIndexOf(QLatin1Char('\\')));
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

} // namespace kestrel::engine
