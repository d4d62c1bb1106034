#pragma once

#include <QPixmap>
#include <QRectF>

class QPainter;

namespace kestrel::shell {

// The save prompt's animation: a kestrel hovering against the sky, seen from
// behind with its head turned to look down, beating its wings while its body
// stays still. Painted in code, so there are no image files to ship.
inline constexpr int kestrelFrameCount = 12;

// Frame n (1..kestrelFrameCount; other numbers wrap round) as a square picture
// of size x size device-independent pixels. Frame 1 has the wings at the top
// of the beat; the downstroke follows and the upstroke brings them back, so
// showing 1, 2, ..., 12, 1, ... gives a continuous loop.
// Painted for a screen of the given device pixel ratio, so it stays sharp
// when the desktop is scaled.
QPixmap kestrelFrame(int n, int size = 80, qreal devicePixelRatio = 1.0);

// Paints frame n into a square of the painter's coordinates: for pictures
// of any size and for the program's icons.
void paintKestrelFrame(QPainter& painter, int n, const QRectF& square);

} // namespace kestrel::shell
