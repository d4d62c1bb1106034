#include "SnapshotPair.h"

#include "FileGridModel.h"
#include "FolderTreeModel.h"
#include "SnapshotHost.h"
#include "SnapshotStatusBar.h"
#include "SnapshotWindow.h"

#include "engine/compare/Compare.h"
#include "engine/model/Snapshot.h"
#include "settings/Settings.h"

namespace kestrel::views {

using engine::Separator;

namespace {

// Keeps a window from comparing on its own while the pair's roots move: its
// tree rebuilds without comparing.
class HeldComparison {
public:
    explicit HeldComparison(SnapshotWindow& window)
        : m_window(window), m_was(window.comparisonHeld()) {
        m_window.setComparisonHeld(true);
    }
    ~HeldComparison() { m_window.setComparisonHeld(m_was); }
    HeldComparison(const HeldComparison&) = delete;
    HeldComparison& operator=(const HeldComparison&) = delete;

private:
    SnapshotWindow& m_window;
    bool m_was;
};

} // namespace

void pairWithLastActive(SnapshotWindow& window, SnapshotWindow* last) {
    if (!last) {
        window.setPair(nullptr);
        window.showChangeSummary();
        resetComparison(window);
        return;
    }
    window.setPair(last);
    last->setPair(&window);
    last->showChangeSummary();
}

bool CompareSnapshot(SnapshotWindow& window, bool bothWays) {
    SnapshotWindow* other = window.pairedWindow();
    if (!other)
        return false;
    const int32_t selfTop = window.comparisonTop();
    const int32_t otherTop = other->comparisonTop();
    // A root without contents has nothing to compare.
    if (selfTop > 0 && otherTop > 0) {
        SnapshotHost& host = window.host();
        engine::Outcome outcome;
        {
            const OperationScope operation(host);
            outcome = engine::CompareSnapshot(window.snapshot(), selfTop, other->snapshot(),
                                              otherTop, bothWays, host.options().compareOptions(),
                                              host.progressMeter());
        }
        if (!outcome.ok) {
            if (outcome.message)
                host.showMessage(*outcome.message);
            return false;
        }
    }
    window.showComparison();
    if (bothWays && window.pairedWindow() == other)
        other->showComparison();
    return true;
}

void resetComparison(SnapshotWindow& window) {
    window.setShowPosition(-1);
}

void moveComparisonRoot(SnapshotWindow& window) {
    const QModelIndex node = window.selectedNode();
    if (!node.isValid())
        return;
    SnapshotWindow* other = window.pairedWindow();
    if (!other) {
        window.markComparisonRoot(node);
        return;
    }
    // The root belongs to the pair: the other window takes the matching
    // folder, found as selections follow from one window to the other.
    const engine::NameMatching matching = window.nameMatching();
    const QString otherKey =
        translateKey(window.treeModel().keyOf(node), window.rootKey(), other->rootKey(), matching);
    SnapshotHost& host = window.host();
    {
        // Both leave the comparison first, without comparing again on the
        // way: their trees show every folder then.
        const HeldComparison holdThis(window), holdOther(*other);
        resetComparison(*other);
        const QModelIndex match = other->treeModel().indexOfKey(otherKey, matching);
        if (match.isValid())
            other->markComparisonRoot(match);
        // This window's tree keeps the root and the selection through its
        // rebuild; the other follows with the roots agreeing.
        window.markComparisonRoot(node);
        resetComparison(window);
        if (!match.isValid()) {
            host.showMessage(
                engine::UserMessage{QStringLiteral("Comparison Root"),
                                    QStringLiteral("The other Snapshot has no folder ") +
                                        other->snapshot().header.rootFolder + otherKey.mid(1) +
                                        QStringLiteral(": the Snapshots are not compared."),
                                    engine::MessageIcon::Information});
            return;
        }
    }
    if (host.options().isOn(settings::Key::Compare))
        CompareSnapshot(window, true);
}

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
