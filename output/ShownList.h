#pragma once

#include "engine/compare/CompareOptions.h"
#include "engine/compare/ShowMode.h"
#include "listing/FileList.h"

#include <QFont>
#include <QString>

#include <array>
#include <cstdint>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::output {

// The columns a list's widths are kept for, by number: every grid column,
// the hidden keys always 0 wide. The report prints them in ShownColumnOrder
// and puts the difference texts where the filler starts.
inline constexpr int ShownColumnCount = engine::GridColumnCount;

// The file list of a snapshot window as the window shows it at one moment:
// what the export dialog writes and the report prints. The snapshot window
// fills it from its grid, status bar and show selector; the command line
// fills it from a listing of its own, so that both write the same lines and
// print the same pages for the same view. Export and report read nothing
// else.
//
// The pointers are borrowed: the snapshots and the file list must outlive
// every use of the description (a modal dialog, one command).
struct ShownList {
    // The snapshot the rows list, and the rows in display order.
    const engine::Snapshot* snapshot = nullptr;
    const engine::FileList* rows = nullptr;
    // The snapshot compared with, and the options the comparison ran with,
    // for the difference texts; null before there is a comparison.
    const engine::Snapshot* other = nullptr;
    engine::CompareOptions compareOptions;
    engine::ShowMode showMode = engine::ShowMode::None;

    // Whether the In Folder column is in use (files of sub-folders listed):
    // only then does the export offer it.
    bool inFolderOffered = false;
    // Whether the snapshot holds permissions and owners: only then does the
    // export offer their columns.
    bool accessOffered = false;
    // Whether the snapshot holds content fingerprints: only then does the
    // export offer their column.
    bool fingerprintsOffered = false;
    // The width of every column in twips, as the grid shows it; 0 for a
    // hidden column.
    std::array<int, ShownColumnCount> columnTwips{};
    // The grid's font; the report prints with it at GridPointSize.
    QFont font;

    // Status bar panel 1 (the folder's path) and 2 (the change summary),
    // and the show selector's text.
    QString folderPanel;
    QString changesPanel;
    QString showText;

    QString title;
    double created = 0;
    QString otherTitle;
    double otherCreated = 0;
    // The snapshot's file, empty when it was never saved.
    QString fileName;

    int32_t rowCount() const { return rows ? rows->rowCount() : 0; }
};

// The grid's font size, in points, on screen and in the report.
inline constexpr double GridPointSize = 8.25;

// Whether a window in this show mode holds differences to print: any
// comparison but the one listing only this snapshot's own entries.
bool holdsDifferences(engine::ShowMode mode);

// The export file proposed for a snapshot file: its name without folder,
// cut before the last ".", with ".txt" (Work.#02 gives Work.txt). A
// snapshot never saved has no name, which leaves ".txt" alone.
QString proposedExportName(const QString& snapshotFile);

// The width in pixels that grid column takes with the grid's font at dpi:
// its designed width, widened for Size and Modified where the locale's
// longest usual texts would not fit (a late date with two-digit parts, a
// size in the gigabytes), so that a locale with long dates does not see
// every date cut short, and for Permissions where the font is wide.
int shownColumnPixels(int column, const engine::GridLayout& layout, const QFont& font, double dpi);

// The widths of a grid laid out by shownColumnPixels at dpi, in twips, for
// a list that has no window of its own.
std::array<int, ShownColumnCount> shownColumnTwips(const engine::GridLayout& layout,
                                                   const QFont& font, double dpi);

} // namespace kestrel::output
