#pragma once

#include <cmath>

namespace kestrel::engine {

// Window sizes, places and column widths are kept in twips, 1,440 to the
// inch. On screen a pixel is 1440 / logical DPI twips; on a printer the
// printer's resolution takes the place of the DPI.
inline constexpr int TwipsPerInch = 1440;

inline int twipsFromPixels(int pixels, double dpi) {
    return int(std::lround(pixels * double(TwipsPerInch) / dpi));
}

inline int pixelsFromTwips(int twips, double dpi) {
    return int(std::lround(twips * dpi / TwipsPerInch));
}

// The fewest pixels that cover at least the given twips.
inline int pixelsCoveringTwips(int twips, double dpi) {
    return int(std::ceil(twips * dpi / TwipsPerInch - 1e-9));
}

} // namespace kestrel::engine
