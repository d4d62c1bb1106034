#include "ScreenPlacement.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrel::shell {

namespace {

constexpr int GripWidth = 64;
constexpr int GripHeight = 32;

bool canBeTakenHoldOf(const QRect& window, const QRect& screen) {
    const QRect shown = window.intersected(screen);
    return shown.width() >= std::min(GripWidth, window.width()) &&
           shown.height() >= std::min(GripHeight, window.height()) && !shown.isEmpty();
}

// How far the window's centre lies from the screen: 0 inside it.
double distance(const QRect& window, const QRect& screen) {
    const QPoint centre = window.center();
    const int dx = std::max({screen.left() - centre.x(), 0, centre.x() - screen.right()});
    const int dy = std::max({screen.top() - centre.y(), 0, centre.y() - screen.bottom()});
    return std::hypot(double(dx), double(dy));
}

// The window moved along one axis into [low, high], or to low when it is longer.
int pulledInto(int start, int length, int low, int high) {
    return std::max(low, std::min(start, high - length + 1));
}

} // namespace

QRect placedOnScreens(const QRect& window, const QList<QRect>& screens) {
    if (screens.isEmpty() ||
        std::any_of(screens.cbegin(), screens.cend(),
                    [&](const QRect& screen) { return canBeTakenHoldOf(window, screen); }))
        return window;
    const QRect* nearest = &screens.constFirst();
    double nearestDistance = std::numeric_limits<double>::infinity();
    for (const QRect& screen : screens) {
        const double d = distance(window, screen);
        if (d < nearestDistance) {
            nearest = &screen;
            nearestDistance = d;
        }
    }
    QRect placed = window;
    placed.moveTo(pulledInto(window.left(), window.width(), nearest->left(), nearest->right()),
                  pulledInto(window.top(), window.height(), nearest->top(), nearest->bottom()));
    return placed;
}

} // namespace kestrel::shell
