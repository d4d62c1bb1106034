#pragma once

#include <QIcon>

namespace kestrel::views {

// The folder tree's images, painted in code at whatever size and scale they
// are asked for, so they stay sharp on any screen.
//
// folderIcon() is "Closed" in its normal mode and "Open" in its selected
// mode: the tree shows a folder open while it is the selected node. The
// comparison root's image, "Root", is the same selected or not.
enum class FolderImage { Closed, Open, Root };

QIcon folderIcon();
QIcon rootIcon();

// One image as a picture, for tests and for anything that draws it alone.
QPixmap folderImage(FolderImage image, int size, qreal devicePixelRatio = 1.0);

} // namespace kestrel::views
