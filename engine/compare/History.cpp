#include "History.h"

#include "Compare.h"
#include "Differences.h"
#include "Moves.h"

#include "engine/file/OpenSnapshot.h"
#include "engine/model/ReadWatermark.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Errors.h"
#include "engine/support/Memory.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <chrono>
#include <future>
#include <limits>
#include <memory>
#include <optional>

namespace kestrel::engine {

namespace {

const QRegularExpression& numberedName() {
    static const QRegularExpression numbered(QStringLiteral("^(.*)\\.#(\\d\\d)$"),
                                             QRegularExpression::DotMatchesEverythingOption);
    return numbered;
}

// Builds a history one comparison of two generations at a time.
class HistoryBuilder {
public:
    explicit HistoryBuilder(History& history) : m_history(history) {}

    // The changes from older to newer, compared both ways already with
    // pairOptions: the moves, counts and records of the newer generation.
    // changed is what the comparison marked (self is newer).
    void addChanges(Snapshot& older, uint8_t olderGeneration, Snapshot& newer,
                    uint8_t newerGeneration, const CompareOptions& options,
                    const ChangedFolders& changed);

private:
    int32_t pathOf(const Snapshot& s, int32_t index);
    int32_t versionOf(const Snapshot& s, const SnapshotEntry& e);
    void noteAccess(const Snapshot& s, int32_t index, HistoryRecord& r, int32_t recordIndex);
    void record(const Snapshot& s, int32_t index, int32_t path, uint8_t generation,
                HistoryRecord::Kind kind);

    History& m_history;
    std::unordered_map<std::string, int32_t> m_pathIds;
    std::unordered_map<std::string, int32_t> m_versionIds;
    std::unordered_map<EntryAccess, uint16_t, EntryAccessHash> m_accessIds;
    std::vector<uint8_t> m_recorded; // by path: whether it has a record yet
};

int32_t HistoryBuilder::pathOf(const Snapshot& s, int32_t index) {
    std::string path = s.relativePath(index).toStdString();
    const auto [it, added] = m_pathIds.try_emplace(path, int32_t(m_history.paths.size()));
    if (added) {
        m_history.paths.push_back(std::move(path));
        m_recorded.push_back(0);
    }
    return it->second;
}

int32_t HistoryBuilder::versionOf(const Snapshot& s, const SnapshotEntry& e) {
    const std::string_view text = s.versionOf(e);
    if (text.empty())
        return 0;
    const auto [it, added] =
        m_versionIds.try_emplace(std::string(text), int32_t(m_history.versions.size()));
    if (added)
        m_history.versions.emplace_back(text);
    return it->second;
}

void HistoryBuilder::noteAccess(const Snapshot& s, int32_t index, HistoryRecord& r,
                                int32_t recordIndex) {
    if (!s.access.has(index))
        return;
    const EntryAccess access = s.access.at(index);
    if (const auto known = m_accessIds.find(access); known != m_accessIds.end()) {
        r.access = known->second;
    } else if (m_history.accessKinds.size() <= std::numeric_limits<uint16_t>::max()) {
        r.access = uint16_t(m_history.accessKinds.size());
        m_history.accessKinds.push_back(access);
        m_accessIds.emplace(access, r.access);
    } else {
        m_history.unnumberedAccess.emplace(recordIndex, access);
    }
    if (s.entries.get(index).attributes & Attribute::ReparsePoint) {
        const std::string_view target = s.access.linkTarget(index);
        if (!target.empty())
            m_history.linkTargets.emplace(recordIndex, target);
    }
}

void HistoryBuilder::record(const Snapshot& s, int32_t index, int32_t path, uint8_t generation,
                            HistoryRecord::Kind kind) {
    HistoryRecord r;
    r.path = path;
    r.generation = generation;
    r.kind = kind;
    if (r.present()) {
        const SnapshotEntry& e = s.entry(index);
        r.size = e.size;
        r.modified = e.modified;
        r.attributes = e.attributes;
        r.version = versionOf(s, e);
        if (kind == HistoryRecord::Changed)
            r.status = ownChanges(s, index);
        noteAccess(s, index, r, int32_t(m_history.records.size()));
        if (kind != HistoryRecord::Before)
            if (const AccessAlert alert = alertOf(s, index); alert != AccessAlert::None)
                m_history.alerts.emplace(int32_t(m_history.records.size()), alert);
        if (s.fingerprints.has(index))
            m_history.fingerprints.emplace(int32_t(m_history.records.size()),
                                           s.fingerprints.at(index));
    }
    m_history.records.push_back(r);
    m_recorded[size_t(path)] = 1;
}

void HistoryBuilder::addChanges(Snapshot& older, uint8_t olderGeneration, Snapshot& newer,
                                uint8_t newerGeneration, const CompareOptions& options,
                                const ChangedFolders& changed) {
    const std::vector<Difference> differences =
        listDifferences(newer, older, &changed.self, &changed.other);
    MoveList moves;
    if (options.detectMoves) {
        moves = detectMoves(older, 1, newer, 1, &changed.other, &changed.self);
        noteMoves(older, newer, moves);
    }
    Generation& g = m_history.generations[newerGeneration];
    g.movedFiles = moves.files;
    g.movedFolders = moves.folders;
    for (const Difference& d : differences) {
        const bool gone = d.kind == Difference::OnlyInOld;
        const Snapshot& side = gone ? older : newer;
        if (side.entry(d.index).isUnreadableMarker())
            continue;
        if (!gone)
            g.access.add(newer, d.index);
        HistoryRecord::Kind kind = HistoryRecord::Changed;
        int32_t movedTo = -1;
        if (gone) {
            const auto to = older.movedTo.find(d.index);
            kind = to != older.movedTo.end() ? HistoryRecord::MovedOut : HistoryRecord::Removed;
            if (to != older.movedTo.end())
                movedTo = to->second;
        } else if (d.kind == Difference::OnlyInNew) {
            const auto from = newer.movedFrom.find(d.index);
            kind = from != newer.movedFrom.end() ? HistoryRecord::MovedIn : HistoryRecord::Added;
            if (from != newer.movedFrom.end())
                movedTo = from->second;
        }
        switch (kind) {
        case HistoryRecord::Added:
            ++g.added;
            break;
        case HistoryRecord::Removed:
            ++g.removed;
            break;
        case HistoryRecord::Changed:
            ++g.changed;
            break;
        default:
            break;
        }
        const int32_t path = pathOf(side, d.index);
        // What a path was until its first change, where it was there at all.
        if (!m_recorded[size_t(path)] && kind != HistoryRecord::Added &&
            kind != HistoryRecord::MovedIn)
            record(older, gone ? d.index : side.entry(d.index).match, path, olderGeneration,
                   HistoryRecord::Before);
        if (movedTo >= 0) {
            const int32_t other = pathOf(gone ? newer : older, movedTo);
            m_history.movedWith.emplace(int32_t(m_history.records.size()), other);
        }
        record(newer, d.index, path, newerGeneration, kind);
    }
}

// The options two generations are compared with.
CompareOptions pairOptions(const Snapshot& older, const Snapshot& newer,
                           const CompareOptions& options) {
    CompareOptions pair = options;
    // A snapshot taken without versions has none to compare.
    if (!older.header.versions || !newer.header.versions)
        pair.ignoreVersion = true;
    pair.detectMoves = false; // looked for by the builder, in generation order
    return pair;
}

// Whether the comparison with older can follow the reading of the next
// generation: nothing to ignore that is known before the reading ends.
bool followable(const Snapshot& older, const CompareOptions& options) {
    return (!options.ignorePatterns || options.ignorePatterns->empty()) &&
           older.header.ownIgnorePatterns.empty();
}

// A snapshot file being read on a thread of its own, which another thread
// may follow (its watermark); not followed, it is let go at once.
struct Reading {
    std::unique_ptr<Snapshot> snapshot = std::make_unique<Snapshot>();
    ReadWatermark watermark;
    std::future<OpenOutcome> opened;

    explicit Reading(const QString& file) {
        opened = std::async(std::launch::async, [s = snapshot.get(), w = &watermark, file] {
            ProgressMeter quiet;
            return OpenSnapshotFile(*s, file, quiet, w);
        });
    }
    // The reading waits at its end until it is let go; the future waits for
    // the reading before the snapshot goes.
    ~Reading() { watermark.release(); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
};

} // namespace

int snapshotNumberOf(const QString& path) {
    const QRegularExpressionMatch m = numberedName().match(QFileInfo(path).fileName());
    return m.hasMatch() ? m.captured(2).toInt() : 0;
}

QStringList historySeries(const QString& path) {
    const QFileInfo info(path);
    const QRegularExpressionMatch m = numberedName().match(info.fileName());
    if (!m.hasMatch())
        return {path};
    const QString base = m.captured(1);
    const QDir folder = info.dir();
    // Members are named as path is: beside it, in its own words.
    const QString prefix = path.left(path.size() - info.fileName().size());
    std::vector<std::pair<int, QString>> found;
    // Only regular files: a link, a FIFO or a device by a snapshot's name is
    // no member of the series.
    for (const QString& name : folder.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks)) {
        const QRegularExpressionMatch n = numberedName().match(name);
        if (n.hasMatch() && n.captured(1) == base)
            found.emplace_back(n.captured(2).toInt(), prefix + name);
    }
    std::sort(found.begin(), found.end());
    QStringList series;
    for (const auto& member : found)
        series << member.second;
    if (series.isEmpty())
        series << path; // gone since it was named: its error is told by the reading
    return series;
}

QString generationChangesText(const Generation& g) {
    QString text = alertsText(g.access);
    if (!text.isEmpty())
        text += QStringLiteral("; ");
    text += QStringLiteral("+%1 \u2212%2 ~%3")
                .arg(formatCount(g.added), formatCount(g.removed), formatCount(g.changed));
    const int32_t moved = g.movedFiles + g.movedFolders;
    if (moved > 0)
        text += QStringLiteral(", %1 moved").arg(formatCount(moved));
    return text;
}

QString generationName(const Generation& g) {
    return g.number > 0 ? QStringLiteral("#%1").arg(g.number, 2, 10, QLatin1Char('0'))
                        : QFileInfo(g.path).fileName();
}

QString changeText(HistoryRecord::Kind kind) {
    switch (kind) {
    case HistoryRecord::Added:
        return QStringLiteral("added");
    case HistoryRecord::Removed:
        return QStringLiteral("removed");
    case HistoryRecord::Changed:
        return QStringLiteral("changed");
    case HistoryRecord::MovedIn:
        return QStringLiteral("moved in");
    case HistoryRecord::MovedOut:
        return QStringLiteral("moved out");
    case HistoryRecord::Before:
        break;
    }
    return QString();
}

bool History::anyChanges() const {
    return std::any_of(generations.begin(), generations.end(),
                       [](const Generation& g) { return g.changes() > 0; });
}

bool History::hasAccess() const {
    return accessKinds.size() > 1 || !unnumberedAccess.empty() ||
           (latest && !latest->access.empty());
}

std::optional<EntryAccess> History::accessOf(int32_t record) const {
    if (const uint16_t number = records[size_t(record)].access; number != 0)
        return accessKinds[number];
    const auto found = unnumberedAccess.find(record);
    return found != unnumberedAccess.end() ? std::optional(found->second) : std::nullopt;
}

std::vector<std::vector<int32_t>> History::recordsByPath() const {
    std::vector<std::vector<int32_t>> byPath(paths.size());
    for (size_t i = 0; i < records.size(); ++i)
        byPath[size_t(records[i].path)].push_back(int32_t(i));
    return byPath;
}

int32_t History::changeAt(const History& h, const std::vector<int32_t>& pathRecords, int g) {
    for (const int32_t i : pathRecords) {
        const HistoryRecord& r = h.records[size_t(i)];
        if (r.generation == g && r.kind != HistoryRecord::Before)
            return i;
    }
    return -1;
}

int32_t History::stateAt(const History& h, const std::vector<int32_t>& pathRecords, int g) {
    if (pathRecords.empty())
        return -1;
    int32_t inForce = -1;
    for (const int32_t i : pathRecords) {
        if (h.records[size_t(i)].generation > g)
            break;
        inForce = i;
    }
    // Before its first record a path was as that record found it: there
    // when the record is its state before a change, absent when it came.
    if (inForce < 0)
        inForce = h.records[size_t(pathRecords.front())].kind == HistoryRecord::Before
                      ? pathRecords.front()
                      : -1;
    return inForce >= 0 && h.records[size_t(inForce)].present() ? inForce : -1;
}

History buildHistory(const QStringList& files, const CompareOptions& options,
                     ProgressMeter& meter) {
    if (files.size() > std::numeric_limits<uint8_t>::max())
        throw RuntimeError(ErrorCode::Overflow,
                           QStringLiteral("A history holds at most %1 snapshots.")
                               .arg(std::numeric_limits<uint8_t>::max()));
    History history;
    HistoryBuilder builder(history);
    // Two snapshots are held at a time. The comparison of each generation
    // with the one before walks the newer snapshot while it is read, so it
    // is mostly done when the reading is; its changes are listed through
    // the folders it marked, passing over the rest, so the next reading
    // waits little for the older snapshot to go.
    std::unique_ptr<Reading> next;
    if (!files.isEmpty())
        next = std::make_unique<Reading>(files.front());
    std::unique_ptr<Snapshot> older;
    int olderGeneration = -1;
    meter.initialise(int32_t(files.size()), QStringLiteral("Comparing Snapshots"), false);
    for (qsizetype k = 0; k < files.size(); ++k) {
        const QString& file = files[k];
        Generation g;
        g.path = file;
        g.number = snapshotNumberOf(file);
        const std::unique_ptr<Reading> reading = std::move(next);
        std::optional<FollowingComparison> comparison;
        // The newer header is read with the file: the walk takes it to have
        // versions as the older one does, and is made again where it does not.
        std::optional<CompareOptions> assumed;
        if (older && followable(*older, options)) {
            assumed = pairOptions(*older, *older, options);
            comparison.emplace(*reading->snapshot, *older, *assumed);
            // Events go on while the file is read and compared (the meter
            // lets them), a few times a second.
            auto lastEvents = std::chrono::steady_clock::now();
            comparison->followReading(reading->watermark, [&] {
                const auto now = std::chrono::steady_clock::now();
                if (now - lastEvents >= std::chrono::milliseconds(50)) {
                    lastEvents = now;
                    meter.update(int32_t(k));
                }
            });
        } else {
            reading->watermark.release();
        }
        // Events go on while the reading ends (the meter lets them).
        while (reading->opened.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready)
            meter.update(int32_t(k));
        const OpenOutcome opened = reading->opened.get();
        const bool more = k + 1 < files.size();
        if (!opened.ok) {
            g.error = opened.message ? opened.message->text
                                     : QStringLiteral("The snapshot could not be read.");
            history.generations.push_back(g);
            if (more)
                next = std::make_unique<Reading>(files[k + 1]);
            continue;
        }
        std::unique_ptr<Snapshot> newer = std::move(reading->snapshot);
        g.title = newer->header.title;
        g.created = newer->header.created;
        g.files = newer->fileCount;
        g.folders = newer->folderCount;
        const auto generation = uint8_t(history.generations.size());
        history.generations.push_back(g);
        if (older) {
            const CompareOptions pair = pairOptions(*older, *newer, options);
            ChangedFolders changed;
            Outcome compared;
            if (comparison) {
                if (pair.ignoreVersion != assumed->ignoreVersion)
                    comparison->forget();
                compared = comparison->finish(&changed);
            } else {
                ProgressMeter quiet;
                compared = CompareSnapshot(*newer, 1, *older, 1, true, pair, quiet, &changed);
            }
            comparison.reset();
            if (!compared.ok)
                throw RuntimeError(compared.error,
                                   compared.message ? compared.message->text : QString());
            builder.addChanges(*older, uint8_t(olderGeneration), *newer, generation, options,
                               changed);
            // The older snapshot goes before the next is read, which takes
            // over its memory.
            older.reset();
        }
        if (more)
            next = std::make_unique<Reading>(files[k + 1]);
        meter.update(int32_t(k + 1));
        older = std::move(newer);
        olderGeneration = generation;
    }
    // What the readings and comparisons left goes back to the system: the
    // History window holds only the history and the latest snapshot. Not
    // after each generation: the next reading would fault in fresh pages
    // for what the allocator could have handed it.
    releaseFreedMemory();
    meter.close();
    if (olderGeneration >= 0)
        history.latest = std::move(older);
    return history;
}

} // namespace kestrel::engine
