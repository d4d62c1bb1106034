#pragma once

#include "engine/model/NameMatching.h"

#include <QString>

namespace kestrel::views {

class SnapshotWindow;

// How two paired snapshot windows follow each other: selecting a folder in
// one selects the same folder in the other, and scrolling one grid scrolls
// the other to the same entry, so that both sides of a difference can be
// seen at once.

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
