#include "ChangeList.h"

#include "PathOrder.h"

#include "engine/compare/Differences.h"
#include "engine/model/EntryAccess.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/TextFormats.h"

#include <QStringList>

#include <cstdlib>
#include <iterator>

namespace kestrel::output {

using namespace engine;

namespace {

QString plainNumber(double value) {
    return QString::number(value, 'f', 0);
}

QString textOf(std::string_view utf8) {
    return QString::fromUtf8(utf8.data(), qsizetype(utf8.size()));
}

// Whether a difference is told by a move's change: a moved entry only on
// one side.
bool partOfMove(const Difference& d, const Snapshot& newer, const Snapshot& older) {
    if (d.kind == Difference::OnlyInOld)
        return older.movedTo.count(d.index) > 0;
    return d.kind == Difference::OnlyInNew && newer.movedFrom.count(d.index) > 0;
}

// A file that moved along with its folder: the folder's move tells it.
bool movedWithFolder(const Move& m, const Snapshot& newer, const Snapshot& older) {
    if (m.folder)
        return false;
    const auto folder = older.movedTo.find(older.entry(m.from).parent);
    return folder != older.movedTo.end() && newer.entry(m.to).parent == folder->second;
}

} // namespace

namespace {

// Each kind's name in the documents and its sign in the text report, in the
// order of Change::Kind.
struct KindText {
    const char* name;
    char sign;
};
constexpr KindText KindTexts[] = {{"added", '+'},   {"removed", '-'}, {"changed", '~'},
                                  {"content", '~'}, {"moved", '>'},   {"unreadable", '?'}};
static_assert(std::size(KindTexts) == Change::Unreadable + 1);

} // namespace

const char* kindName(Change::Kind kind) {
    return KindTexts[kind].name;
}

char kindSign(Change::Kind kind) {
    return KindTexts[kind].sign;
}

ChangeList::ChangeList(const Snapshot& newer, const Snapshot& older, const CompareOptions& options,
                       const MoveList& moves)
    : m_new(newer), m_old(older), m_options(options) {
    m_counts.movedFiles = moves.files;
    m_counts.movedFolders = moves.folders;
    for (const Move& m : moves.moves)
        if (!movedWithFolder(m, newer, older))
            m_changes.push_back({Change::Moved, m.folder, false, m.to, m.from});

    std::vector<Difference> differences = listDifferences(newer, older);
    sortByPath(differences, [&](const Difference& d) {
        const Snapshot& s = d.kind == Difference::OnlyInOld ? older : newer;
        return pathSortKey(s.relativePath(d.index)) + '\0' + char(d.kind);
    });
    m_changes.reserve(m_changes.size() + differences.size());
    for (const Difference& d : differences) {
        if (partOfMove(d, newer, older))
            continue;
        Change c;
        c.inOld = d.kind == Difference::OnlyInOld;
        c.index = d.index;
        const SnapshotEntry& e = sideOf(c).entry(d.index);
        c.folder = e.isFolder();
        if (e.isUnreadableMarker()) {
            // What the folder holds on that side is not known: no addition
            // or deletion is claimed.
            c.kind = Change::Unreadable;
            ++m_counts.unreadable;
        } else if (d.kind == Difference::OnlyInNew) {
            c.kind = Change::Added;
            ++m_counts.added;
        } else if (d.kind == Difference::OnlyInOld) {
            c.kind = Change::Removed;
            ++m_counts.removed;
        } else {
            c.oldIndex = std::abs(e.match);
            const bool bytes = (ownChanges(newer, d.index) & engine::Change::Content) != 0;
            c.kind = bytes ? Change::Content : Change::Changed;
            ++m_counts.changed;
            if (bytes)
                ++m_counts.content;
        }
        if (!c.inOld && c.kind != Change::Unreadable)
            m_counts.access.add(newer, d.index);
        m_changes.push_back(c);
    }
}

QString ChangeList::path(const Change& c) const {
    const Snapshot& s = sideOf(c);
    if (c.kind == Change::Unreadable) {
        const int32_t folder = s.entry(c.index).parent;
        return folder == 0 ? QStringLiteral("./") : s.relativePath(folder);
    }
    return s.relativePath(c.index);
}

std::vector<FieldChange> ChangeList::fieldChanges(const Change& c) const {
    std::vector<FieldChange> changes;
    if (c.kind != Change::Changed && c.kind != Change::Content)
        return changes;
    const int32_t i = c.index;
    const SnapshotEntry& now = m_new.entry(i);
    const SnapshotEntry& before = m_old.entry(c.oldIndex);
    // A folder's own changes, never the sum of what lies beneath it.
    const int16_t status = ownChanges(m_new, i);
    if (status & engine::Change::Size)
        changes.push_back({"size", plainNumber(before.size), plainNumber(now.size), true});
    if (status & engine::Change::Date)
        changes.push_back(
            {"modified", isoDateTime(before.modified), isoDateTime(now.modified), false});
    if (status & engine::Change::Attributes)
        changes.push_back(
            {"attributes", AttributeText(before.attributes), AttributeText(now.attributes), false});
    if (status & engine::Change::Version)
        changes.push_back(
            {"version", textOf(m_old.versionOf(before)), textOf(m_new.versionOf(now)), false});
    if (status & engine::Change::Content)
        changes.push_back(
            {"content", QString::fromStdString(fingerprintHex(m_old.fingerprints.at(c.oldIndex))),
             QString::fromStdString(fingerprintHex(m_new.fingerprints.at(i))), false});
    if (status &
        (engine::Change::Permissions | engine::Change::Owner | engine::Change::LinkTarget)) {
        const AccessValues was = accessValuesOf(m_old, c.oldIndex);
        const AccessValues is = accessValuesOf(m_new, i);
        if (status & engine::Change::Permissions)
            changes.push_back({"permissions",
                               permissionsText(was.access.mode, kindLetter(before.attributes)),
                               permissionsText(is.access.mode, kindLetter(now.attributes)), false});
        if (status & engine::Change::Owner)
            changes.push_back({"owner", ownerText(was.access.owner, was.access.group),
                               ownerText(is.access.owner, is.access.group), false});
        if (status & engine::Change::LinkTarget)
            changes.push_back(
                {"target", linkTargetText(was.linkTarget), linkTargetText(is.linkTarget), false});
    }
    return changes;
}

QString ChangeList::summaryText() const {
    // What calls for attention comes first.
    const QString alerts = alertsText(m_counts.access);
    QString summary = (alerts.isEmpty() ? QString() : alerts + QStringLiteral("; ")) +
                      QStringLiteral("%1 only in NEW, %2 only in OLD, %3 changed")
                          .arg(m_counts.added)
                          .arg(m_counts.removed)
                          .arg(m_counts.changed);
    MoveList moves;
    moves.files = m_counts.movedFiles;
    moves.folders = m_counts.movedFolders;
    if (const QString moved = movesText(moves); !moved.isEmpty())
        summary += QStringLiteral(", ") + moved;
    const QString access = accessChangesText(m_counts.access);
    if (!access.isEmpty())
        summary += QStringLiteral(" (") + access + QLatin1Char(')');
    if (m_counts.unreadable > 0)
        summary += QStringLiteral(", ") + unreadableFoldersText(m_counts.unreadable) +
                   QStringLiteral(" on one side");
    if (m_new.ignoredCount > 0 || m_old.ignoredCount > 0)
        summary += QStringLiteral(", %1 ignored in NEW, %2 in OLD")
                       .arg(formatCount(m_new.ignoredCount), formatCount(m_old.ignoredCount));
    return summary;
}

} // namespace kestrel::output
