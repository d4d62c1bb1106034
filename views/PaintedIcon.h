#pragma once

#include <QIcon>

#include <functional>

class QPainter;
class QRectF;

namespace kestrel::views {

// Paints an icon's picture into a square of the painter's coordinates, for
// the icon's mode (normal, selected, disabled, active).
using IconPainter = std::function<void(QPainter& painter, const QRectF& square, QIcon::Mode mode)>;

// An icon painted afresh at every size and scale it is asked for, so it
// stays sharp on any screen; disabled, it is painted at half opacity.
QIcon paintedIcon(IconPainter paint);

} // namespace kestrel::views
