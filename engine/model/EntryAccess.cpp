#include "EntryAccess.h"

#include "FileSystemNames.h"

#include "engine/support/TextFormats.h"

#include <grp.h>
#include <mutex>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

std::string_view AccessTable::linkTarget(int32_t index) const {
    if (m_links.empty()) // most trees have no links: no look-up per entry
        return {};
    const auto found = m_links.find(index);
    return found == m_links.end() ? std::string_view() : std::string_view(found->second);
}

uint32_t AccessTable::kindNumber(const EntryAccess& access) {
    // Entries side by side mostly share their kind: the last one is found
    // without the map.
    if (m_lastKind != NoKind && m_kinds[m_lastKind] == access)
        return m_lastKind;
    const auto [found, added] = m_kindNumbers.try_emplace(access, uint32_t(m_kinds.size()));
    if (added)
        m_kinds.push_back(access);
    m_lastKind = found->second;
    return m_lastKind;
}

void AccessTable::setKind(int32_t index, uint32_t kind) {
    if (index < 0)
        return;
    // A scan and a load set entries in order: each one a step past the end.
    if (size_t(index) == m_kindOf.size()) {
        m_kindOf.push_back(kind);
        return;
    }
    if (size_t(index) > m_kindOf.size())
        m_kindOf.resize(size_t(index) + 1, NoKind);
    m_kindOf[size_t(index)] = kind;
}

void AccessTable::set(int32_t index, const EntryAccess& access) {
    setKind(index, kindNumber({access.mode & PermissionBits, access.owner, access.group}));
}

void AccessTable::setLinkTarget(int32_t index, std::string_view target) {
    if (target.empty())
        m_links.erase(index);
    else
        m_links[index] = std::string(target);
}

AccessTable::Pairs AccessTable::pairs() const {
    Pairs p;
    p.pairOfKind.assign(m_kinds.size(), 0);
    std::unordered_map<uint64_t, uint32_t> numbers;
    for (size_t k = 1; k < m_kinds.size(); ++k) {
        const uint64_t pair = uint64_t(m_kinds[k].owner) << 32 | m_kinds[k].group;
        const auto [found, added] = numbers.try_emplace(pair, uint32_t(p.pairs.size()));
        if (added)
            p.pairs.push_back(pair);
        p.pairOfKind[k] = found->second;
    }
    return p;
}

void AccessTable::setKept(int32_t index, uint16_t mode, uint64_t pair) {
    setKind(index, kindNumber({mode, uint32_t(pair >> 32), uint32_t(pair)}));
}

void AccessTable::clear() {
    m_kindOf = {};
    m_kinds.assign(1, EntryAccess{});
    m_kindNumbers.clear();
    m_lastKind = NoKind;
    m_links.clear();
}

size_t AccessTable::memoryUsed() const {
    size_t bytes = m_kindOf.capacity() * sizeof(uint32_t) +
                   m_kinds.capacity() * (sizeof(EntryAccess) + 32); // with the map's node
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

namespace {

// The words of each alert, by its value.
struct AlertWords {
    const char* keyword;
    const char* adjective;
    const char* one;  // what one entry with it is
    const char* many; // what several are
};
constexpr AlertWords Words[] = {
    {"", "", "", ""},
    {"setuid", "set-user-ID", "file", "files"},
    {"setgid", "set-group-ID", "file", "files"},
    {"world-writable", "world-writable", "entry", "entries"},
};

const AlertWords& wordsOf(AccessAlert alert) {
    const auto at = size_t(alert);
    return Words[at < std::size(Words) ? at : 0];
}

} // namespace

const char* alertKeyword(AccessAlert alert) {
    return wordsOf(alert).keyword;
}

QString alertAdjective(AccessAlert alert) {
    return QString::fromLatin1(wordsOf(alert).adjective);
}

QString alertCountText(AccessAlert alert, int32_t count) {
    const AlertWords& words = wordsOf(alert);
    return QStringLiteral("%1 new %2 %3")
        .arg(formatCount(count), QLatin1String(words.adjective),
             QLatin1String(count == 1 ? words.one : words.many));
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
