#pragma once

#include "engine/support/Progress.h"

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace kestrel::shell {

// frmMeter: the small window of a long operation's progress, with a Cancel
// button. The rules (when it appears, which values the bar takes, when
// Cancel counts) live in engine::ProgressMeter; this window only does what
// the meter tells it.
//
// While shown it stays in front: when it loses the focus it takes it back
// and raises itself. From meterStarted until meterClosed the frame it
// belongs to shows the busy pointer; the meter window itself keeps the
// normal one, so Cancel looks clickable.
class MeterWindow : public QWidget, public engine::ProgressView {
    Q_OBJECT
public:
    // frame: the main window, whose pointer turns busy and over which the
    // meter is centred. Not owned; it owns this window.
    explicit MeterWindow(QWidget* frame);

    // The meter whose cancel() the Cancel button calls. Not owned.
    void attach(engine::ProgressMeter* meter) { m_meter = meter; }

    void meterStarted(int32_t maximum, const QString& caption, bool cancellable) override;
    void meterShown() override;
    void meterValue(int32_t value) override;
    void meterNote(const QString& note) override;
    void processEvents() override;
    void meterClosed() override;

    QProgressBar* bar() const { return m_bar; }
    QString captionText() const;
    // The note under the bar; empty while none is shown.
    QString noteText() const;
    QPushButton* cancelButton() const { return m_cancel; }

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void cmdCancel_Click();
    void takeFocusBack();

    QWidget* m_frame;
    engine::ProgressMeter* m_meter = nullptr;
    QLabel* m_picture = nullptr;
    QLabel* m_caption = nullptr;
    QLabel* m_note = nullptr;
    QProgressBar* m_bar = nullptr;
    QPushButton* m_cancel = nullptr;
};

} // namespace kestrel::shell
