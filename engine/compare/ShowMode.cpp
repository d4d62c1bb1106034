#include "ShowMode.h"

#include "engine/model/RingWalk.h"

#include <algorithm>

namespace kestrel::engine {

QStringList showModeTexts() {
    return {QStringLiteral("All Files/Dirs in this Snapshot"),
            QStringLiteral("Files/Dirs Only in this Snapshot"),
            QStringLiteral("Files/Dirs in Both Snapshots"),
            QStringLiteral("Files Changed in this Snapshot"),
            QStringLiteral("All Differences in this Snapshot")};
}

QString showModeText(ShowMode mode) {
    return showModeTexts().value(selectorPosition(mode));
}

std::optional<ShowMode> showModeAt(int position) {
    if (position < 0 || position > selectorPosition(ShowMode::Differences))
        return std::nullopt;
    return selectorShowMode(position, true);
}

std::optional<ShowMode> showModeNamed(const QString& word) {
    static const QStringList words = {QStringLiteral("all"), QStringLiteral("only"),
                                      QStringLiteral("both"), QStringLiteral("changed"),
                                      QStringLiteral("diffs")};
    return showModeAt(int(words.indexOf(word.toLower())));
}

bool folderVisible(const SnapshotEntry& e, ShowMode mode) {
    if (!e.isFolder())
        return false;
    if (e.isIgnored())
        return !filtersByComparison(mode);
    switch (mode) {
    case ShowMode::None:
    case ShowMode::All:
        return true;
    case ShowMode::OnlyHere:
        return e.status > 0 || e.match == 0;
    case ShowMode::InBoth:
        return e.match >= 1;
    case ShowMode::Changed:
        return (e.match < 0 && e.count > 0) || e.status > 0;
    case ShowMode::Differences:
        return e.match == 0 || e.status >= 1 || (e.match < 0 && e.count >= 1);
    }
    return true;
}

bool fileRulePasses(const SnapshotEntry& e, ShowMode mode) {
    if (e.isIgnored())
        return !filtersByComparison(mode);
    switch (mode) {
    case ShowMode::None:
    case ShowMode::All:
        return true;
    case ShowMode::OnlyHere:
        return e.match == 0;
    case ShowMode::InBoth:
        return e.match >= 1;
    case ShowMode::Changed:
        return e.status > 0;
    case ShowMode::Differences:
        return e.match == 0 || e.status > 0;
    }
    return true;
}

ComparedPart::ComparedPart(const Snapshot& snapshot, int32_t root) : m_root(root) {
    if (root <= 0 || !snapshot.entries.contains(root)) {
        m_root = 0;
        return;
    }
    m_inside.assign(size_t(snapshot.capacity()) + 1, false);
    if (hasContents(snapshot, root))
        walkFrom(snapshot, root + 1,
                 [this](int32_t entry, int) { m_inside[size_t(entry)] = true; });
    // Bounded by the table, as every walk up a parent chain is.
    int64_t budget = int64_t(snapshot.capacity()) + 1;
    for (int32_t folder = root; folder > 0 && snapshot.entries.contains(folder) && --budget >= 0;
         folder = snapshot.entries.get(folder).parent)
        m_path.push_back(folder);
}

bool ComparedPart::shownOutside(int32_t entry, ShowMode mode) const {
    if (!filtersByComparison(mode))
        return true;
    return std::find(m_path.begin(), m_path.end(), entry) != m_path.end();
}

} // namespace kestrel::engine
