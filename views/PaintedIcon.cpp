#include "PaintedIcon.h"

#include <QIconEngine>
#include <QPainter>
#include <QPixmap>

namespace kestrel::views {

namespace {

class PaintedIconEngine : public QIconEngine {
public:
    explicit PaintedIconEngine(IconPainter paint) : m_paint(std::move(paint)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        painter->save();
        if (mode == QIcon::Disabled)
            painter->setOpacity(painter->opacity() * 0.5);
        const qreal side = std::min(rect.width(), rect.height());
        const QRectF square(rect.x() + (rect.width() - side) / 2,
                            rect.y() + (rect.height() - side) / 2, side, side);
        m_paint(*painter, square, mode);
        painter->restore();
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

    QIconEngine* clone() const override { return new PaintedIconEngine(m_paint); }

private:
    IconPainter m_paint;
};

} // namespace

QIcon paintedIcon(IconPainter paint) {
    return QIcon(new PaintedIconEngine(std::move(paint)));
}

} // namespace kestrel::views
