#pragma once

#include "engine/model/NameMatching.h"

#include <QString>

namespace kestrel::views {

class SnapshotWindow;

// Two snapshot windows open are a pair: they are compared with each other
// from their comparison roots down, selecting a folder in one selects the
// same folder in the other, and scrolling one grid scrolls the other to the
// same entry, so that both sides of a difference can be seen at once.

// Pairs a window that became the active one with the window active before
// it, each the other's pair; that one's change summary then says what the
// pair has to do. Alone (last is null), the window has no pair and returns
// to the uncompared state.
void pairWithLastActive(SnapshotWindow& window, SnapshotWindow* last);

// CompareSnapshot: compares the window's snapshot with its pair's from the
// comparison roots down, then shows the comparison; with bothWays the pair
// is marked from its own side and shows it too. False when there is no
// pair or the comparison failed (the failure is shown).
bool CompareSnapshot(SnapshotWindow& window, bool bothWays);

// Returns the window to the uncompared state (show mode None, the show
// selector disabled); with automatic comparison on it compares again.
void resetComparison(SnapshotWindow& window);

// Makes the window's selected folder the comparison root of the pair: the
// other window's root becomes the matching folder, and both compare again
// (at once with automatic comparison on). When the other snapshot has no
// such folder, that is shown and the pair is left uncompared. Alone, the
// window only marks its root.
void moveComparisonRoot(SnapshotWindow& window);

// The key in the other window of the folder with this key: the part below
// this window's comparison root (its names matched under the rule) is taken
// below the other's, so windows compared from different folders still meet
// at matching folders. A key outside this window's root stays as it is.
QString translateKey(const QString& key, const QString& fromRoot, const QString& toRoot,
                     engine::NameMatching matching);

// Selects in to the folder selected in from, or tells in to's status bar
// why there is none.
void followSelection(const SnapshotWindow& from, SnapshotWindow& to);

// Scrolls to's grid so that from's top row is its top row too, matching the
// In Folder texts when both list sub-folder files or both do not.
void followScrolling(const SnapshotWindow& from, SnapshotWindow& to);

} // namespace kestrel::views
