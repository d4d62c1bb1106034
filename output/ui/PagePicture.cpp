#include "PagePicture.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

namespace kestrel::output {

QPixmap portraitPagePicture(int width, int height) {
    const qreal ratio = qApp ? qApp->devicePixelRatio() : 1.0;
    QPixmap pixmap(QSize(width, height) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    // Drawn on a 46 x 60 sheet, scaled to the size asked for.
    p.scale(width / 46.0, height / 60.0);

    // The sheet, its top right corner folded down.
    const QColor ink(0x40, 0x40, 0x48);
    QPainterPath sheet;
    sheet.moveTo(2, 2);
    sheet.lineTo(34, 2);
    sheet.lineTo(44, 12);
    sheet.lineTo(44, 58);
    sheet.lineTo(2, 58);
    sheet.closeSubpath();
    p.setPen(QPen(ink, 1.0));
    p.setBrush(Qt::white);
    p.drawPath(sheet);
    QPainterPath fold;
    fold.moveTo(34, 2);
    fold.lineTo(34, 12);
    fold.lineTo(44, 12);
    p.setBrush(QColor(0xdc, 0xdc, 0xe0));
    p.drawPath(fold);

    // The kestrel, hovering: russet wings spread wide with dark tips, a fan
    // of a tail and a blue-grey head.
    const QColor outline(0x3a, 0x28, 0x1e);
    const QColor russet(0xb8, 0x5a, 0x2c);
    p.setPen(QPen(outline, 0.5));
    p.setBrush(russet);
    for (const int side : {-1, 1}) {
        const auto at = [side](qreal dx, qreal y) { return QPointF(23 + side * dx, y); };
        QPainterPath wing;
        wing.moveTo(at(1.5, 14));
        wing.cubicTo(at(6, 11), at(12, 9.5), at(18, 10.5)); // leading edge to the tip
        wing.cubicTo(at(14, 13), at(8, 15), at(1.5, 18.5)); // trailing edge back
        wing.closeSubpath();
        p.drawPath(wing);
        // The dark outer feathers.
        QPainterPath tip;
        tip.moveTo(at(13, 10.2));
        tip.cubicTo(at(15, 10), at(17, 10.2), at(18, 10.5));
        tip.cubicTo(at(16.5, 11.5), at(15, 12.2), at(13.5, 12.8));
        tip.closeSubpath();
        p.setBrush(QColor(0x2a, 0x1e, 0x18));
        p.drawPath(tip);
        p.setBrush(russet);
    }
    QPolygonF tail;
    tail << QPointF(21.6, 19) << QPointF(19.8, 25) << QPointF(26.2, 25) << QPointF(24.4, 19);
    p.drawPolygon(tail);
    p.drawEllipse(QPointF(23, 16.5), 2.3, 4.0);
    p.setBrush(QColor(0x86, 0x93, 0xa4));
    p.drawEllipse(QPointF(23, 12.4), 1.9, 1.9);

    // The lines of the report below it.
    p.setPen(QPen(QColor(0x8a, 0x8a, 0x94), 1.2));
    for (int line = 0; line < 9; ++line) {
        const qreal y = 31 + line * 3.0;
        const qreal end = line % 3 == 2 ? 30 : 39;
        p.drawLine(QPointF(7, y), QPointF(end, y));
    }
    return pixmap;
}

} // namespace kestrel::output
