#pragma once

#include <QPixmap>

namespace kestrel::output {

// picKestrel: the picture beside the orientation buttons, an upright sheet
// of paper with a small hovering kestrel above a few lines of print.
// Painted in code, width x height device-independent pixels.
QPixmap portraitPagePicture(int width = 46, int height = 60);

} // namespace kestrel::output
