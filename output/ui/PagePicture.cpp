#include "PagePicture.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>

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

    // The kestrel, wings spread as it hovers: a russet back and dark tips.
    QPainterPath bird;
    bird.moveTo(22, 14);             // head
    bird.cubicTo(16, 10, 10, 9, 6, 12);  // left wing, leading edge
    bird.lineTo(10, 14);
    bird.cubicTo(14, 14, 18, 16, 20, 18);
    bird.lineTo(20, 24);             // tail
    bird.lineTo(24, 24);
    bird.lineTo(24, 18);
    bird.cubicTo(26, 16, 30, 14, 34, 14); // right wing, trailing edge
    bird.lineTo(38, 12);
    bird.cubicTo(34, 9, 28, 10, 22, 14);
    bird.closeSubpath();
    p.setPen(QPen(QColor(0x3a, 0x28, 0x1e), 0.6));
    p.setBrush(QColor(0xb8, 0x5a, 0x2c));
    p.drawPath(bird);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x2a, 0x1e, 0x18));
    p.drawEllipse(QPointF(7.5, 12.3), 1.6, 1.0);
    p.drawEllipse(QPointF(36.5, 12.3), 1.6, 1.0);
    p.setBrush(QColor(0x86, 0x93, 0xa4));
    p.drawEllipse(QPointF(22, 14), 1.8, 1.8);

    // The lines of the report below it.
    p.setPen(QPen(QColor(0x8a, 0x8a, 0x94), 1.2));
    for (int line = 0; line < 9; ++line) {
        const qreal y = 30 + line * 3.0;
        const qreal end = line % 3 == 2 ? 30 : 39;
        p.drawLine(QPointF(7, y), QPointF(end, y));
    }
    return pixmap;
}

} // namespace kestrel::output
