#include "TerminalProgress.h"

#include <cstdio>
#include <unistd.h>

namespace kestrel::cli {

TerminalProgress::TerminalProgress() : m_terminal(::isatty(STDERR_FILENO)) {}

void TerminalProgress::meterStarted(int32_t maximum, const QString& caption, bool) {
    m_maximum = maximum;
    m_caption = caption;
    m_note.clear();
    m_value = 0;
    if (m_visible)
        draw();
}

void TerminalProgress::meterShown() {
    m_visible = m_terminal;
    draw();
}

void TerminalProgress::meterValue(int32_t value) {
    m_value = value;
    const auto now = std::chrono::steady_clock::now();
    // A terminal redrawn more than ten times a second only slows the work.
    if (m_visible && now - m_lastDraw > std::chrono::milliseconds(100))
        draw();
}

void TerminalProgress::meterNote(const QString& note) {
    m_note = note;
    draw();
}

void TerminalProgress::meterClosed() {
    if (m_visible)
        std::fputs("\r\033[K", stderr);
    m_visible = false;
}

void TerminalProgress::draw() {
    if (!m_visible)
        return;
    m_lastDraw = std::chrono::steady_clock::now();
    constexpr int Width = 30;
    const double share = m_maximum > 0 ? std::clamp(double(m_value) / m_maximum, 0.0, 1.0) : 0.0;
    const int filled = int(share * Width);
    const QByteArray note = m_note.isEmpty() ? QByteArray() : ("  " + m_note.toLocal8Bit());
    std::fprintf(stderr, "\r\033[K%s [%s%s] %3d%%%s", m_caption.toLocal8Bit().constData(),
                 std::string(size_t(filled), '#').c_str(),
                 std::string(size_t(Width - filled), ' ').c_str(), int(share * 100),
                 note.constData());
    std::fflush(stderr);
}

} // namespace kestrel::cli
