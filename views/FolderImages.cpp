#include "FolderImages.h"

#include <QIconEngine>
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

// Paints its image fresh for every size and scale it is asked for.
class FolderIconEngine : public QIconEngine {
public:
    // normal: the image of the normal mode; selected: that of the selected mode.
    FolderIconEngine(FolderImage normal, FolderImage selected)
        : m_normal(normal), m_selected(selected) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        if (mode == QIcon::Disabled)
            painter->setOpacity(painter->opacity() * 0.5);
        paintImage(*painter, rect, mode == QIcon::Selected ? m_selected : m_normal);
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        QPixmap pixmap(size * scale);
        pixmap.setDevicePixelRatio(scale);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        paint(&p, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

    QIconEngine* clone() const override { return new FolderIconEngine(m_normal, m_selected); }

private:
    FolderImage m_normal;
    FolderImage m_selected;
};

} // namespace

QIcon folderIcon() {
    static const QIcon icon(new FolderIconEngine(FolderImage::Closed, FolderImage::Open));
    return icon;
}

QIcon rootIcon() {
    static const QIcon icon(new FolderIconEngine(FolderImage::Root, FolderImage::Root));
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
