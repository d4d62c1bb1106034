#pragma once

#include <QList>
#include <QRect>

namespace kestrel::shell {

// Where a window remembered at `window` shows now that the screens offer
// the given areas. It stays where it was while a piece of it one can take
// hold of (64 by 32 pixels, or all of a smaller window) lies on a screen.
// Otherwise (a monitor unplugged, a smaller desktop) it moves onto the
// screen nearest to it, only as far as it takes to lie inside that screen,
// its size kept; one larger than the screen starts at its top left. No
// screens at all leave the window where it was.
QRect placedOnScreens(const QRect& window, const QList<QRect>& screens);

} // namespace kestrel::shell
