#include "FolderImages.h"

#include "PaintedIcon.h"

#include <QPainter>
#include <QPainterPath>

namespace kestrel::views {

namespace {

const QColor Outline(0x8a, 0x63, 0x10);
const QColor Back(0xe8, 0xb3, 0x3c);
const QColor Front(0xf7, 0xd0, 0x6a);
const QColor Paper(0xfb, 0xfb, 0xf6);
const QColor Target(0xc0, 0x1c, 0x28);

// Each image is drawn on a 16 x 16 grid scaled to the rectangle asked for.
void paintImage(QPainter& p, const QRectF& rect, FolderImage image) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const qreal side = std::min(rect.width(), rect.height());
    p.translate(rect.center() - QPointF(side / 2, side / 2));
    p.scale(side / 16.0, side / 16.0);
    const QPen outline(Outline, 0.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);

    // The back of the folder with its tab.
    QPainterPath back;
    back.moveTo(1.5, 3.5);
    back.lineTo(6.0, 3.5);
    back.lineTo(7.5, 5.0);
    back.lineTo(14.5, 5.0);
    back.lineTo(14.5, 13.5);
    back.lineTo(1.5, 13.5);
    back.closeSubpath();
    p.setPen(outline);
    p.setBrush(Back);
    p.drawPath(back);

    if (image == FolderImage::Open) {
        // A sheet inside, and the front swung down towards the viewer.
        p.setBrush(Paper);
        p.drawRect(QRectF(3.5, 4.5, 9.0, 6.5));
        QPainterPath front;
        front.moveTo(1.5, 13.5);
        front.lineTo(3.8, 7.5);
        front.lineTo(15.5, 7.5);
        front.lineTo(13.2, 13.5);
        front.closeSubpath();
        p.setBrush(Front);
        p.drawPath(front);
    } else {
        p.setBrush(Front);
        p.drawRoundedRect(QRectF(1.5, 6.5, 13.0, 7.0), 0.6, 0.6);
    }

    if (image == FolderImage::Root) {
        // A target on the front: the folder the comparison starts from.
        p.setPen(QPen(Qt::white, 0.7));
        p.setBrush(Target);
        p.drawEllipse(QPointF(8.0, 10.0), 3.2, 3.2);
        p.setBrush(Qt::white);
        p.setPen(Qt::NoPen);
        p.drawEllipse(QPointF(8.0, 10.0), 1.9, 1.9);
        p.setBrush(Target);
        p.drawEllipse(QPointF(8.0, 10.0), 0.9, 0.9);
    }
    p.restore();
}

} // namespace

QIcon folderIcon() {
    static const QIcon icon =
        paintedIcon([](QPainter& painter, const QRectF& square, QIcon::Mode mode) {
            paintImage(painter, square,
                       mode == QIcon::Selected ? FolderImage::Open : FolderImage::Closed);
        });
    return icon;
}

QIcon rootIcon() {
    static const QIcon icon = paintedIcon([](QPainter& painter, const QRectF& square, QIcon::Mode) {
        paintImage(painter, square, FolderImage::Root);
    });
    return icon;
}

QPixmap folderImage(FolderImage image, int size, qreal devicePixelRatio) {
    QPixmap pixmap(QSize(size, size) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    paintImage(p, QRectF(0, 0, size, size), image);
    return pixmap;
}

} // namespace kestrel::views
