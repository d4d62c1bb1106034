#include "BusyInputFilter.h"

#include <QEvent>
#include <QWidget>
#include <QWindow>

namespace kestrel::shell {

BusyInputFilter::BusyInputFilter(QWidget* frame, QObject* parent)
    : QObject(parent), m_frame(frame) {}

bool BusyInputFilter::belongsToFrame(QObject* receiver) const {
    // Input reaches the frame's window before the widget under the pointer
    // or with the focus: refused there, it gives no widget the focus either.
    if (receiver->isWindowType())
        return receiver == m_frame->windowHandle();
    if (!receiver->isWidgetType())
        return false;
    QWidget* window = static_cast<QWidget*>(receiver)->window();
    // A menu or a list that drops down is a window of its own: it belongs
    // to the window it was opened from.
    while (window->windowType() == Qt::Popup && window->parentWidget())
        window = window->parentWidget()->window();
    return window == m_frame;
}

bool BusyInputFilter::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // Taken as the focus widget's own key, no shortcut of the frame
        // fires; the key press itself is refused next.
        if (!belongsToFrame(watched))
            return false;
        event->accept();
        return true;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::ContextMenu:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
        return belongsToFrame(watched);
    default:
        return false;
    }
}

} // namespace kestrel::shell
