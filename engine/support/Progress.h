#pragma once

#include <QString>

#include <cstdint>
#include <functional>

namespace kestrel::engine {

// What shows a progress meter: the meter window of the desktop program, a
// line on a terminal, or nothing. All calls come on the thread that runs the
// operation.
class ProgressView {
public:
    virtual ~ProgressView() = default;
    // The operation started: busy pointer on, range and caption as given.
    virtual void meterStarted(int32_t maximum, const QString& caption, bool cancellable) = 0;
    // The operation has run for more than a second: show the meter.
    virtual void meterShown() = 0;
    virtual void meterValue(int32_t value) = 0;
    // A line about the operation so far, shown under the caption until the
    // next start ("2 folders could not be read"). Views without room for it
    // ignore it.
    virtual void meterNote(const QString& note) { (void)note; }
    // Let the user interface handle what is pending; this is where a click
    // on Cancel reaches ProgressMeter::cancel.
    virtual void processEvents() = 0;
    // The caller closed the meter: hide it and restore the pointer.
    virtual void meterClosed() = 0;
};

// The progress meter of long operations (scan, load, import, compare, export,
// print). It appears only when an operation has lasted more than a second,
// so quick operations never flash a window, and it carries the program-wide
// cancelled flag that the operation polls.
class ProgressMeter {
public:
    using Clock = std::function<double()>; // seconds since midnight

    explicit ProgressMeter(ProgressView* view = nullptr, Clock clock = {});

    // InitialiseMeter: a maximum above 0 sets the range and caption and
    // clears the cancelled flag; 0 or less keeps all three as they were.
    // Restarts the one-second timing even while the meter is shown.
    void initialise(int32_t maximum, const QString& caption, bool cancellable);

    // UpdateMeter: shows the meter once more than one second has passed since
    // initialise (an operation that crosses midnight never shows it, the
    // elapsed time being negative), moves the bar unless value is above the
    // maximum, and lets pending events run.
    void update(int32_t value);

    // Shows a line about the operation so far under the caption.
    void note(const QString& text);

    // The meter's Cancel button: sets the flag only when cancellable.
    void cancel();
    bool cancelled() const { return m_cancelled; }

    // Callers close the meter when they finish: hides it and restores the
    // pointer.
    void close();

    int32_t maximum() const { return m_maximum; }
    int32_t value() const { return m_value; }
    const QString& caption() const { return m_caption; }
    bool cancellable() const { return m_cancellable; }
    bool shown() const { return m_shown; }

private:
    ProgressView* m_view;
    Clock m_clock;
    int32_t m_maximum = 100;
    int32_t m_value = 0;
    QString m_caption = QStringLiteral("Kestrel");
    bool m_cancellable = false;
    bool m_cancelled = false;
    bool m_shown = false;
    double m_startTime = 0;
};

// Starts a cancellable operation afresh. A maximum of 0 (a folder without
// sub-folders, a file without entries) would keep the cancelled flag of the
// operation before, which would end this one at once; it counts as 1.
inline void startCancellable(ProgressMeter& meter, int32_t maximum, const QString& caption) {
    meter.initialise(maximum > 0 ? maximum : 1, caption, true);
}

// Closes the meter when an operation ends, however it ends: every long
// operation leaves the meter closed and the pointer restored.
class MeterCloser {
public:
    explicit MeterCloser(ProgressMeter& meter) : m_meter(meter) {}
    ~MeterCloser() { m_meter.close(); }
    MeterCloser(const MeterCloser&) = delete;
    MeterCloser& operator=(const MeterCloser&) = delete;

private:
    ProgressMeter& m_meter;
};

} // namespace kestrel::engine
