#include "SnapshotPair.h"

#include "FileGridModel.h"
#include "SnapshotWindow.h"

#include "engine/model/Snapshot.h"

namespace kestrel::views {

using engine::Separator;

QString translateKey(const QString& key, const QString& fromRoot, const QString& toRoot,
                     engine::NameMatching matching) {
    const QString belowTop = key.mid(1);
    if (!belowTop.startsWith(fromRoot, engine::caseSensitivity(matching)))
        return key;
    // Root keys end in a separator (or are empty), so they join the rest
    // without another one.
    return Separator + toRoot + belowTop.mid(fromRoot.size());
}

void followSelection(const SnapshotWindow& from, SnapshotWindow& to) {
    const engine::NameMatching matching = engine::nameMatchingFor(from.snapshot(), to.snapshot());
    const QString key = translateKey(from.selectedKey(), from.rootKey(), to.rootKey(), matching);
    if (to.selectFolder(key))
        return;
    to.showNoMatchingFolder(
        from.rootKey().compare(to.rootKey(), engine::caseSensitivity(matching)) != 0);
}

void followScrolling(const SnapshotWindow& from, SnapshotWindow& to) {
    const int top = from.topRow();
    if (top < 0)
        return;
    const engine::FileList& rows = from.gridModel().rows();
    const QString name = rows.cellText(top, engine::NameColumn);
    if (from.showsSubFolders() == to.showsSubFolders())
        to.ScrollPosition(name, rows.inFolder(top));
    else
        to.ScrollPosition(name);
}

} // namespace kestrel::views
