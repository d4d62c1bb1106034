#include "Import.h"

#include "SnapshotFile.h"
#include "SnapshotItems.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Checked.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"

#include <QFile>

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kestrel::engine {

namespace {

// v2 files were written only on Windows: their folder paths are relative to
// the root, begin and end with a backslash, and "\" alone is the root. The
// paths are never converted to the platform's separator: they only serve as
// keys of the folder index below, so the backslash is the one separator the
// import recognises and the one it appends when it forms a folder's path.
constexpr char OldSeparator = '\\';

// The marker v2 put after the root folder in the first item.
constexpr QLatin1String VersionMarker(";3");

// A file without the marker fails silently; the error only tells what happened.
constexpr ErrorCode MissingMarker = ErrorCode::BadRecordLength;

// Every entry holds nine items and each takes at least one byte.
constexpr int64_t MinimumEntryBytes = 9;

// The ring building keeps each folder's last child in its 16-bit status, so
// no entry beyond this index can be imported.
constexpr int32_t MaximumEntries = INT16_MAX;

UserMessage entryLimitMessage() {
    return UserMessage{
        QStringLiteral("Entry Limit"),
        QStringLiteral("Too many entries to import a Kestrel v2 snapshot (maximum is %1)")
            .arg(formatCount(MaximumEntries)),
        MessageIcon::Exclamation};
}

QString textOf(const Item& item) {
    std::string scratch;
    const std::string_view text = ItemReader::toText(item, scratch);
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

// Reads the header items into the snapshot: root folder, number and flags.
// The entry count the file gives, or nothing when the first item lacks the
// version marker.
std::optional<int32_t> readOldHeader(ItemReader& reader, Snapshot& snapshot) {
    SnapshotHeader& header = snapshot.header;
    // Any letters before the marker are the root folder's and keep their
    // case; the marker itself is matched regardless of case.
    QString root = textOf(reader.next());
    if (!root.endsWith(VersionMarker, Qt::CaseInsensitive))
        return std::nullopt;
    root.chop(VersionMarker.size());
    header.rootFolder = root;

    snapshot.importedNumber = ItemReader::toInt16(reader.next());
    ItemReader::toDouble(reader.next()); // v2's creation time, not carried over
    header.created = 0;
    header.recurse = ItemReader::toBoolean(reader.next());
    header.hidden = ItemReader::toBoolean(reader.next());
    header.versions = ItemReader::toBoolean(reader.next());
    return ItemReader::toInt32(reader.next());
}

// Rebuilds the links of the entries as they are read: v2 names each entry's
// folder by its path, the current format links entries by index.
class FolderLinks {
public:
    explicit FolderLinks(Snapshot& snapshot) : m_snapshot(snapshot) {
        m_folders.emplace(std::string(1, OldSeparator), 0);
    }

    // Takes the path item of entry i. An empty path means inside the entry
    // before (which must then be a folder), a single blank the same folder
    // as the entry before.
    void takePath(std::string_view pathText, int32_t i) {
        if (pathText.empty()) {
            m_path = m_previousPath;
            m_path += m_snapshot.name(i - 1);
            m_path += OldSeparator;
        } else if (pathText != " ") {
            m_path.assign(pathText);
        } else {
            m_path = m_previousPath;
        }
    }

    // Entry i, named already, is a folder: the entries whose path names it
    // go inside it.
    void addFolder(int32_t i) {
        std::string key = m_path;
        key += m_snapshot.name(i);
        key += OldSeparator;
        // A path names one folder; a file listing it twice is damaged.
        if (!m_folders.emplace(std::move(key), i).second)
            raise(ErrorCode::SubscriptOutOfRange);
    }

    // Entry i goes into the ring of the folder its path names.
    void link(int32_t i) {
        const auto found = m_folders.find(m_path);
        if (found == m_folders.end())
            raise(ErrorCode::SubscriptOutOfRange);
        const int32_t parent = found->second;
        SnapshotEntry& e = m_snapshot.entries.mutableAt(i);
        e.parent = parent;

        // Contents follow their folder, so the folder's first child is
        // parent + 1: each new child points back at it, closing the ring,
        // and the last child so far (kept in the parent's status; 0 before
        // the first, whose link then lands harmlessly on entry 0) points
        // forward to the new one. Status is 16 bits, so entry 32,768
        // overflows: the import's limit.
        SnapshotEntry& folder = m_snapshot.entries.mutableAt(parent);
        m_snapshot.entries.mutableAt(folder.status).nextSibling = i;
        e.nextSibling = parent + 1;
        folder.status = toInt16(i);

        m_previousPath = m_path;
    }

private:
    Snapshot& m_snapshot;
    // Folder path as the file writes it -> the folder's entry index.
    std::unordered_map<std::string, int32_t> m_folders;
    std::string m_path;         // of the entry being read
    std::string m_previousPath; // of the entry before
};

// Reads the line of entry i: its path, its values and the counts it adds to.
// scratch holds an item's text while it is converted.
void readOldEntry(ItemReader& reader, Snapshot& snapshot, int32_t i, FolderLinks& links,
                  ProgressMeter& meter, std::string& scratch) {
    SnapshotEntry& e = snapshot.entries.mutableAt(i);
    links.takePath(ItemReader::toText(reader.next(), scratch), i);

    snapshot.setName(e, ItemReader::toText(reader.next(), scratch));
    // Stored as read: -1 is how v2 marks a folder, and the rest of the
    // program tells folders by their attributes and never compares or
    // shows a folder's size, so the value needs no translation.
    e.size = ItemReader::toDouble(reader.next());
    e.modified = ItemReader::toDouble(reader.next());
    e.attributes = ItemReader::toInt16(reader.next());
    snapshot.setVersion(e, ItemReader::toText(reader.next(), scratch));
    ItemReader::toInt32(reader.next()); // not used
    e.count = ItemReader::toInt32(reader.next());
    ItemReader::toDouble(reader.next()); // not used
    snapshot.entryCount = i;

    if (e.size != -1) {
        snapshot.fileCount = checkedAdd(snapshot.fileCount, 1);
        snapshot.totalSize += e.size;
    } else {
        if (i % 10 == 0)
            meter.update(i);
        links.addFolder(i);
        snapshot.folderCount = checkedAdd(snapshot.folderCount, 1);
    }
    links.link(i);
}

// Reads the entry lines up to the end of the file or a cancel. The number
// of lines read, or nothing when the file holds more entries than the
// import can link (outcome then says so).
std::optional<int32_t> readOldEntries(ItemReader& reader, Snapshot& snapshot, ProgressMeter& meter,
                                      ImportOutcome& outcome) {
    FolderLinks links(snapshot);
    std::string scratch;
    int32_t i = 0;
    while (!reader.atEnd()) {
        if (meter.cancelled())
            break;
        i = checkedAdd(i, 1);
        outcome.failedEntry = i;
        // Entry 32,768 would overflow its folder's status: the import's
        // limit, told to the user rather than left to the overflow.
        if (i > MaximumEntries) {
            outcome.error = ErrorCode::Overflow;
            outcome.message = entryLimitMessage();
            return std::nullopt;
        }
        readOldEntry(reader, snapshot, i, links, meter, scratch);
    }
    outcome.failedEntry = 0;
    return i;
}

} // namespace

ImportOutcome ImportSnapshot(Snapshot& snapshot, ProgressMeter& meter) {
    ImportOutcome outcome;
    QFile file(snapshot.header.fileName);
    if (!openForReading(file, QIODevice::ReadOnly)) {
        return {Outcome::failure(UserMessage{QStringLiteral("Error"),
                                             QStringLiteral("Unable to open Snapshot"),
                                             MessageIcon::Exclamation},
                                 ErrorCode::FileNotFound)};
    }
    const double startTime = secondsSinceMidnight();
    MeterCloser closer{meter};
    try {
        ItemReader reader(file);
        const std::optional<int32_t> count = readOldHeader(reader, snapshot);
        if (!count)
            return {Outcome::failure(MissingMarker)};
        outcome.headerRead = true;

        startCancellable(meter, *count, QStringLiteral("Importing Snapshot"));

        // A fresh table: the ring building reads the parents' status fields,
        // which must start at 0. The count is fitted to the lines at the end.
        snapshot.entries.clear();
        sizeTableToFile(snapshot, *count, file, MinimumEntryBytes);
        const std::optional<int32_t> lines = readOldEntries(reader, snapshot, meter, outcome);
        if (!lines)
            return outcome;
        if (!meter.cancelled())
            fitTableToLines(snapshot, *count, *lines, outcome.message);
        snapshot.header.title = snapshot.header.fileName;
    } catch (const RuntimeError& e) {
        outcome.error = e.code();
        return outcome;
    } catch (...) {
        // Memory or the system failed, not the file: say so.
        const CaughtError e = caughtError();
        outcome.error = e.code;
        outcome.message =
            UserMessage{QStringLiteral("Invalid Snapshot"), e.text, MessageIcon::Exclamation};
        return outcome;
    }
    finishRead(outcome, meter, QStringLiteral("imported"), startTime, snapshot);
    return outcome;
}

} // namespace kestrel::engine
