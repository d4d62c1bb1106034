#pragma once

#include "output/ShownList.h"

namespace kestrel::views {

class SnapshotWindow;

// The file list as a snapshot window shows it now, for the export, the
// print and the preview: its rows, columns as wide as the grid has them,
// the show mode and the status bar's texts, and what both snapshots are.
output::ShownList shownListOf(const SnapshotWindow& window);

} // namespace kestrel::views
