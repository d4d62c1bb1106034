#include "HistoryIndex.h"

#include "engine/model/CaseFold.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextDecode.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace kestrel::engine {

namespace {

// "a/b/" of "a/b/c.txt" or of "a/b/c/"; "" of a top entry.
std::string_view parentPath(std::string_view path) {
    if (isFolderPath(path))
        path.remove_suffix(1);
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash + 1);
}

std::string_view lastName(std::string_view path) {
    if (isFolderPath(path))
        path.remove_suffix(1);
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Folders first, then by name without regard to case, then exactly.
template <typename Item, typename NameOf, typename IsFolder>
void sortForListing(std::vector<Item>& items, NameOf nameOf, IsFolder isFolder) {
    std::vector<std::pair<std::string, size_t>> keys;
    keys.reserve(items.size());
    for (size_t i = 0; i < items.size(); ++i)
        keys.emplace_back((isFolder(items[i]) ? "0" : "1") + foldCase(nameOf(items[i])), i);
    std::sort(keys.begin(), keys.end(), [&](const auto& a, const auto& b) {
        if (a.first != b.first)
            return a.first < b.first;
        return nameOf(items[a.second]) < nameOf(items[b.second]);
    });
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const auto& key : keys)
        sorted.push_back(std::move(items[key.second]));
    items = std::move(sorted);
}

// An entry's name as Snapshot::relativePath spells it: its UTF-8 through
// text and back, which leaves valid UTF-8 as it is.
std::string nameOf(const Snapshot& s, int32_t index) {
    const std::string_view name = s.name(index);
    if (isValidUtf8(name))
        return std::string(name);
    return s.nameText(index).toStdString();
}

} // namespace

HistoryIndex::HistoryIndex(const History& history)
    : m_history(history), m_recordsByPath(history.recordsByPath()) {
    std::unordered_map<std::string, int32_t> ids;
    m_folders.emplace_back();
    ids.emplace(std::string(), 0);
    // Finds or makes the folder with this path, and the ones above it.
    const auto folderOf = [&](std::string_view path) {
        std::vector<std::string_view> missing;
        std::string_view at = path;
        int32_t found = 0;
        while (!at.empty()) {
            const auto it = ids.find(std::string(at));
            if (it != ids.end()) {
                found = it->second;
                break;
            }
            missing.push_back(at);
            at = parentPath(at);
        }
        for (auto m = missing.rbegin(); m != missing.rend(); ++m) {
            Folder f;
            f.name = std::string(lastName(*m));
            f.path = std::string(*m);
            f.parent = found;
            const auto id = int32_t(m_folders.size());
            m_folders[size_t(found)].children.push_back(id);
            m_folders.push_back(std::move(f));
            ids.emplace(std::string(*m), id);
            found = id;
        }
        return found;
    };

    if (const Snapshot* latest = history.latest.get()) {
        m_folders[0].latestEntry = 0;
        m_folders.reserve(size_t(latest->folderCount) + 1);
        ids.reserve(size_t(latest->folderCount) + history.paths.size() + 1);
        // The walk goes down the tree, a folder before its contents: the
        // folder last met one level up holds each entry, and a folder's path
        // is its holder's and its name (as Snapshot::relativePath makes it).
        std::vector<int32_t> folderAtDepth; // -1: ignored
        walkEntries(*latest, [&](int32_t i, int depth) {
            const SnapshotEntry& e = latest->entries.get(i);
            if (!e.isFolder())
                return;
            if (folderAtDepth.size() <= size_t(depth))
                folderAtDepth.resize(size_t(depth) + 1);
            int32_t& id = folderAtDepth[size_t(depth)];
            id = -1;
            if (e.isIgnored())
                return;
            const int32_t holder = depth == 0 ? 0 : folderAtDepth[size_t(depth) - 1];
            if (holder < 0) {
                id = folderOf(latest->relativePath(i).toStdString());
            } else {
                Folder f;
                f.name = nameOf(*latest, i);
                f.path = m_folders[size_t(holder)].path + f.name + '/';
                f.parent = holder;
                const auto [known, added] = ids.try_emplace(f.path, int32_t(m_folders.size()));
                id = known->second;
                if (added) {
                    m_folders[size_t(holder)].children.push_back(id);
                    m_folders.push_back(std::move(f));
                }
            }
            m_folders[size_t(id)].latestEntry = i;
        });
    }
    std::vector<int32_t> parentOfPath(history.paths.size());
    for (size_t k = 0; k < history.paths.size(); ++k) {
        const std::string& path = history.paths[k];
        if (isFolderPath(path))
            folderOf(path);
        parentOfPath[k] = folderOf(parentPath(path));
    }
    m_pathsIn.resize(m_folders.size());
    for (size_t k = 0; k < history.paths.size(); ++k)
        m_pathsIn[size_t(parentOfPath[k])].push_back(int32_t(k));

    for (const HistoryRecord& r : history.records) {
        if (r.kind == HistoryRecord::Before)
            continue;
        const std::string& path = history.paths[size_t(r.path)];
        int32_t folder = isFolderPath(path) ? ids.at(path) : parentOfPath[size_t(r.path)];
        for (; folder >= 0; folder = m_folders[size_t(folder)].parent)
            m_folders[size_t(folder)].changedIn[r.generation / 64] |= uint64_t(1)
                                                                      << (r.generation % 64);
    }
    for (Folder& f : m_folders) {
        sortForListing(
            f.children, [&](int32_t c) -> const std::string& { return m_folders[size_t(c)].name; },
            [](int32_t) { return true; });
        for (size_t row = 0; row < f.children.size(); ++row)
            m_folders[size_t(f.children[row])].row = int32_t(row);
    }
}

bool HistoryIndex::changedIn(int32_t folder, int first, int last) const {
    const Folder& f = m_folders[size_t(folder)];
    for (int g = std::max(0, first); g <= last && g < MostGenerations; ++g)
        if (f.changedIn[size_t(g / 64)] & (uint64_t(1) << (g % 64)))
            return true;
    return false;
}

std::vector<HistoryIndex::Row> HistoryIndex::rowsOf(int32_t folder) const {
    // By name and kind: a file and a folder of one name are two rows.
    std::map<std::string, Row> rows;
    const Folder& f = m_folders[size_t(folder)];
    const Snapshot* latest = m_history.latest.get();
    if (latest && f.latestEntry >= 0 && hasContents(*latest, f.latestEntry)) {
        const int32_t first = f.latestEntry + 1;
        int64_t budget = int64_t(latest->capacity()) + 1;
        int32_t i = first;
        do {
            const SnapshotEntry& e = latest->entries.at(i);
            if (!e.isUnreadableMarker() && !e.isIgnored()) {
                Row row;
                row.name = std::string(latest->nameOf(e));
                row.latestEntry = i;
                row.folder = e.isFolder();
                const std::string key = row.name + (row.folder ? "/" : "");
                rows.emplace(key, std::move(row));
            }
            i = e.nextSibling;
        } while (i != first && --budget > 0);
    }
    for (const int32_t k : m_pathsIn[size_t(folder)]) {
        const std::string& path = m_history.paths[size_t(k)];
        const std::string name(lastName(path));
        const bool isFolder = isFolderPath(path);
        Row& row = rows[name + (isFolder ? "/" : "")];
        row.name = name;
        row.folder = isFolder;
        row.path = k;
    }
    std::vector<Row> listed;
    listed.reserve(rows.size());
    for (auto& entry : rows)
        listed.push_back(std::move(entry.second));
    sortForListing(
        listed, [](const Row& r) -> const std::string& { return r.name; },
        [](const Row& r) { return r.folder; });
    return listed;
}

HistoryIndex::State HistoryIndex::stateOf(const Row& row, int generation) const {
    State state;
    if (!m_history.generations[size_t(generation)].readable()) {
        state.readable = false;
        return state;
    }
    if (row.path < 0) {
        // Never changed: as the latest snapshot has it, in every generation.
        const Snapshot* latest = m_history.latest.get();
        if (!latest || row.latestEntry < 0)
            return state;
        const SnapshotEntry& e = latest->entries.at(row.latestEntry);
        state.present = true;
        state.size = e.size;
        state.modified = e.modified;
        state.attributes = e.attributes;
        state.version = latest->versionOf(e);
        if (latest->fingerprints.has(row.latestEntry))
            state.fingerprint = latest->fingerprints.at(row.latestEntry);
        if (latest->access.has(row.latestEntry)) {
            state.access = latest->access.at(row.latestEntry);
            state.linkTarget = latest->access.linkTarget(row.latestEntry);
        }
        return state;
    }
    const std::vector<int32_t>& records = m_recordsByPath[size_t(row.path)];
    if (const int32_t change = History::changeAt(m_history, records, generation); change >= 0) {
        state.change = m_history.records[size_t(change)].kind;
        if (state.change == HistoryRecord::Changed)
            state.changedBits = m_history.records[size_t(change)].status;
        if (const auto alert = m_history.alerts.find(change); alert != m_history.alerts.end())
            state.alert = alert->second;
    }
    const int32_t inForce = History::stateAt(m_history, records, generation);
    if (inForce < 0)
        return state;
    const HistoryRecord& r = m_history.records[size_t(inForce)];
    state.present = true;
    state.size = r.size;
    state.modified = r.modified;
    state.attributes = r.attributes;
    state.version = m_history.versions[size_t(r.version)];
    if (const auto print = m_history.fingerprints.find(inForce);
        print != m_history.fingerprints.end())
        state.fingerprint = print->second;
    state.access = m_history.accessOf(inForce);
    if (const auto target = m_history.linkTargets.find(inForce);
        target != m_history.linkTargets.end())
        state.linkTarget = target->second;
    return state;
}

bool HistoryIndex::callsForAttention(const Row& row) const {
    if (row.path < 0 || m_history.alerts.empty())
        return false;
    const std::vector<int32_t>& records = m_recordsByPath[size_t(row.path)];
    return std::any_of(records.begin(), records.end(),
                       [&](int32_t r) { return m_history.alerts.count(r) > 0; });
}

} // namespace kestrel::engine
