#include "Progress.h"

#include "OleDate.h"

namespace kestrel::engine {

ProgressMeter::ProgressMeter(ProgressView* view, Clock clock)
    : m_view(view), m_clock(clock ? std::move(clock) : Clock(secondsSinceMidnight)) {}

void ProgressMeter::initialise(int32_t maximum, const QString& caption, bool cancellable) {
    if (maximum > 0) {
        m_maximum = maximum;
        m_caption = caption;
        m_cancelled = false;
    }
    m_cancellable = cancellable;
    m_startTime = m_clock();
    if (m_view)
        m_view->meterStarted(m_maximum, m_caption, m_cancellable);
}

void ProgressMeter::update(int32_t value) {
    if (m_startTime > 0) {
        // Compared in single precision, as the timer always was.
        const float elapsed = float(m_clock() - m_startTime);
        if (elapsed > 1.0f) {
            m_startTime = 0;
            m_shown = true;
            if (m_view)
                m_view->meterShown();
        }
    }
    if (value <= m_maximum) {
        m_value = value;
        if (m_view)
            m_view->meterValue(value);
    }
    if (m_view)
        m_view->processEvents();
}

void ProgressMeter::note(const QString& text) {
    if (m_view)
        m_view->meterNote(text);
}

void ProgressMeter::cancel() {
    if (m_cancellable)
        m_cancelled = true;
}

void ProgressMeter::close() {
    m_shown = false;
    if (m_view)
        m_view->meterClosed();
}

} // namespace kestrel::engine
