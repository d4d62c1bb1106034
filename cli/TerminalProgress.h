#pragma once

#include "engine/support/Progress.h"

#include <chrono>

namespace kestrel::cli {

// The progress meter of the command line: one line on standard error,
// redrawn in place, shown only when standard error is a terminal and the
// operation has run for more than a second.
class TerminalProgress : public engine::ProgressView {
public:
    TerminalProgress();

    void meterStarted(int32_t maximum, const QString& caption, bool cancellable) override;
    void meterShown() override;
    void meterValue(int32_t value) override;
    void meterNote(const QString& note) override;
    void processEvents() override {}
    void meterClosed() override;

private:
    void draw();

    bool m_terminal;
    bool m_visible = false;
    int32_t m_maximum = 0;
    int32_t m_value = 0;
    QString m_caption;
    QString m_note;
    std::chrono::steady_clock::time_point m_lastDraw;
};

} // namespace kestrel::cli
