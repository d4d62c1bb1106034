#include "ShowMode.h"

namespace kestrel::engine {

QStringList showModeTexts() {
    return {QStringLiteral("All Files/Dirs in this Snapshot"),
            QStringLiteral("Files/Dirs Only in this Snapshot"),
            QStringLiteral("Files/Dirs in Both Snapshots"),
            QStringLiteral("Files Changed in this Snapshot"),
            QStringLiteral("All Differences in this Snapshot")};
}

QString showModeText(ShowMode mode) {
    return showModeTexts().value(int(mode) - 1);
}

std::optional<ShowMode> showModeAt(int position) {
    if (position < 0 || position > 4)
        return std::nullopt;
    return ShowMode(position + 1);
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

} // namespace kestrel::engine
