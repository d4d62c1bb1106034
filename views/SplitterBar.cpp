#include "SplitterBar.h"

#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOption>

namespace kestrel::views {

SplitterBar::SplitterBar(QWidget* parent) : QWidget(parent) {
    setCursor(Qt::SplitHCursor);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
}

void SplitterBar::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    m_dragging = true;
    raise();
    update();
}

void SplitterBar::mouseMoveEvent(QMouseEvent* event) {
    if (!m_dragging || !(event->buttons() & Qt::LeftButton))
        return;
    // The bar follows the pointer; the window is laid out again on release.
    const int x = mapToParent(event->position().toPoint()).x() - width() / 2;
    move(x, y());
}

void SplitterBar::mouseReleaseEvent(QMouseEvent* event) {
    if (!m_dragging || event->button() != Qt::LeftButton)
        return QWidget::mouseReleaseEvent(event);
    m_dragging = false;
    update();
    Q_EMIT released(mapToParent(event->position().toPoint()).x());
}

void SplitterBar::paintEvent(QPaintEvent*) {
    QPainter p(this);
    QStyleOption option;
    option.initFrom(this);
    option.state |= QStyle::State_Horizontal;
    if (m_dragging) {
        p.fillRect(rect(), palette().color(QPalette::Highlight));
        return;
    }
    style()->drawControl(QStyle::CE_Splitter, &option, &p, this);
}

int splitPosition(int x, int width, int margin) {
    if (x > width - margin)
        x = width - margin;
    if (x < margin)
        x = margin;
    return x;
}

} // namespace kestrel::views
