#include "EntryAccess.h"

#include "FileSystemNames.h"

#include <grp.h>
#include <mutex>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

EntryAccess AccessTable::at(int32_t index) const {
    if (!has(index))
        return {};
    const uint64_t pair = m_pairs[m_owners[size_t(index)]];
    return {m_modes[size_t(index)], uint32_t(pair >> 32), uint32_t(pair)};
}

std::string_view AccessTable::linkTarget(int32_t index) const {
    const auto found = m_links.find(index);
    return found == m_links.end() ? std::string_view() : std::string_view(found->second);
}

void AccessTable::set(int32_t index, const EntryAccess& access) {
    if (index < 0)
        return;
    if (size_t(index) >= m_modes.size()) {
        m_modes.resize(size_t(index) + 1, None);
        m_owners.resize(size_t(index) + 1, 0);
    }
    // Entries side by side mostly share their owner: the last pair is
    // looked up without the map.
    const uint64_t pair = uint64_t(access.owner) << 32 | access.group;
    if (m_pairs.empty() || m_pairs[m_lastPair] != pair) {
        const auto [found, added] = m_pairIds.try_emplace(pair, uint32_t(m_pairs.size()));
        if (added)
            m_pairs.push_back(pair);
        m_lastPair = found->second;
    }
    m_modes[size_t(index)] = uint16_t(access.mode & PermissionBits);
    m_owners[size_t(index)] = m_lastPair;
}

void AccessTable::setLinkTarget(int32_t index, std::string_view target) {
    if (target.empty())
        m_links.erase(index);
    else
        m_links[index] = std::string(target);
}

void AccessTable::reserve(int32_t last) {
    m_modes.reserve(size_t(last) + 1);
    m_owners.reserve(size_t(last) + 1);
}

void AccessTable::assign(std::vector<uint16_t> modes, std::vector<uint32_t> pairNumbers,
                         std::vector<uint64_t> pairs) {
    m_modes = std::move(modes);
    m_owners = std::move(pairNumbers);
    m_pairs = std::move(pairs);
    m_pairIds.clear();
    for (uint32_t k = 0; k < m_pairs.size(); ++k)
        m_pairIds.try_emplace(m_pairs[k], k);
    m_lastPair = 0;
}

void AccessTable::clear() {
    m_modes = {};
    m_owners = {};
    m_pairs.clear();
    m_pairIds.clear();
    m_lastPair = 0;
    m_links.clear();
}

size_t AccessTable::memoryUsed() const {
    size_t bytes = m_modes.capacity() * sizeof(uint16_t) + m_owners.capacity() * sizeof(uint32_t) +
                   m_pairs.capacity() * (sizeof(uint64_t) + 32); // with the map's node
    for (const auto& [index, target] : m_links)
        bytes += sizeof(index) + sizeof(target) + target.capacity() + 16;
    return bytes;
}

AccessAlert accessAlert(uint32_t mode, uint32_t wasMode, bool folder, bool link) {
    const auto gained = [&](uint32_t bit) { return (mode & bit) && !(wasMode & bit); };
    if (link)
        return AccessAlert::None; // a link's own bits mean nothing
    if (!folder && gained(S_ISUID))
        return AccessAlert::SetUserId;
    if (!folder && gained(S_ISGID))
        return AccessAlert::SetGroupId;
    if (gained(S_IWOTH))
        return AccessAlert::WorldWritable;
    return AccessAlert::None;
}

const char* alertKeyword(AccessAlert alert) {
    switch (alert) {
    case AccessAlert::SetUserId:
        return "setuid";
    case AccessAlert::SetGroupId:
        return "setgid";
    case AccessAlert::WorldWritable:
        return "world-writable";
    case AccessAlert::None:
        break;
    }
    return "";
}

QString permissionsText(uint32_t mode, char kind) {
    QString text(10, QLatin1Char('-'));
    text[0] = QLatin1Char(kind);
    const char letters[] = "rwxrwxrwx";
    for (int bit = 0; bit < 9; ++bit)
        if (mode & (0400u >> bit))
            text[bit + 1] = QLatin1Char(letters[bit]);
    // The special bits take the place of an execute bit, in capitals where
    // that bit is not set.
    const auto special = [&](uint32_t flag, int at, char set, char unset) {
        if (mode & flag)
            text[at] = QLatin1Char(text[at] == QLatin1Char('x') ? set : unset);
    };
    special(S_ISUID, 3, 's', 'S');
    special(S_ISGID, 6, 's', 'S');
    special(S_ISVTX, 9, 't', 'T');
    return text;
}

namespace {

// Names of ids, looked up once: the system's lookups may read files or ask
// a directory service, too slow for a million rows.
class IdNames {
public:
    QString user(uint32_t id) { return lookUp(m_users, id, true); }
    QString group(uint32_t id) { return lookUp(m_groups, id, false); }

private:
    QString lookUp(std::unordered_map<uint32_t, QString>& known, uint32_t id, bool user) {
        std::lock_guard lock(m_mutex);
        const auto found = known.find(id);
        if (found != known.end())
            return found->second;
        QString name = QString::number(id);
        std::vector<char> buffer(16384);
        if (user) {
            struct passwd entry {
            }, *result = nullptr;
            if (::getpwuid_r(uid_t(id), &entry, buffer.data(), buffer.size(), &result) == 0 &&
                result && result->pw_name)
                name = QString::fromLocal8Bit(result->pw_name);
        } else {
            struct group entry {
            }, *result = nullptr;
            if (::getgrgid_r(gid_t(id), &entry, buffer.data(), buffer.size(), &result) == 0 &&
                result && result->gr_name)
                name = QString::fromLocal8Bit(result->gr_name);
        }
        known.emplace(id, name);
        return name;
    }

    std::mutex m_mutex;
    std::unordered_map<uint32_t, QString> m_users;
    std::unordered_map<uint32_t, QString> m_groups;
};

IdNames& idNames() {
    static IdNames names;
    return names;
}

} // namespace

QString linkTargetText(std::string_view target) {
    std::string scratch;
    const std::string_view stored = storedName(target, scratch);
    return QString::fromUtf8(stored.data(), qsizetype(stored.size()));
}

QString ownerText(uint32_t owner, uint32_t group) {
    return idNames().user(owner) + QLatin1Char(':') + idNames().group(group);
}

} // namespace kestrel::engine
