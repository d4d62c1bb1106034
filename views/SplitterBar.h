#pragma once

#include <QWidget>

namespace kestrel::views {

// The bar between a snapshot window's tree and its grid (picSplit). Pressing
// on it starts a drag; the bar follows the pointer while the button is down,
// and on release it reports where the pointer was, in its parent's
// coordinates, for the window to place it and lay itself out again.
class SplitterBar : public QWidget {
    Q_OBJECT
public:
    explicit SplitterBar(QWidget* parent);

    bool dragging() const { return m_dragging; }

Q_SIGNALS:
    // picSplit_MouseUp: the pointer's x in the parent when the button came up.
    void released(int x);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    // picSplit_MouseMove
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_dragging = false;
};

// Where the bar goes when released at x in a window width wide: at least
// margin from the left edge and from the right edge; when the window is too
// narrow for both, the left edge wins.
int splitPosition(int x, int width, int margin);

} // namespace kestrel::views
