#pragma once

#include "views/SnapshotHost.h"

#include <QDialog>
#include <QList>
#include <QPixmap>

class QLabel;
class QPushButton;
class QTimer;

namespace kestrel::shell {

// "Unsaved Snapshot": the Yes/No/Cancel question a snapshot window asks
// before it closes with unsaved changes, with a small hovering kestrel that
// flaps its wings while the question is on screen (twelve frames, 150 ms
// each, only while the window is active, resuming where it stopped).
class SavePrompt : public QDialog {
    Q_OBJECT
public:
    explicit SavePrompt(QWidget* parent = nullptr);

    // PromptToSave: shows the question modally and returns the button
    // pressed; Closed when the window was closed through its frame, which
    // unloads it: the remembered answer and the animation start afresh, as
    // in a newly loaded window. A remembered answer of NoWithoutAsking
    // returns No at once without showing anything; no button stores it, the
    // short cut is kept as it always was.
    views::SaveAnswer PromptToSave(const QString& prompt);

    // The code of the last button pressed (the SaveAnswer values), kept
    // between prompts.
    int answer() const { return m_answer; }
    int frame() const { return m_frame; } // the frame shown last, 1..12; 0 before the first

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

    void cmdYes_Click();
    void cmdNo_Click();
    void cmdCancel_Click();
    void tmrCheeky_Timer();
    // What a newly loaded window holds: no answer, the counter at 0.
    void unload();

    QLabel* m_lblPrompt = nullptr;
    QLabel* m_label2 = nullptr;
    QLabel* m_picCheeky = nullptr;
    QPushButton* m_cmdYes = nullptr;
    QPushButton* m_cmdNo = nullptr;
    QPushButton* m_cmdCancel = nullptr;
    QTimer* m_tmrCheeky = nullptr;
    QList<QPixmap> m_frames; // imlCheeky: frames 1..12 at 0..11

    // The one answer code that is no SaveAnswer, and that PromptToSave
    // takes for No.
    static constexpr int NoWithoutAsking = 3;
    int m_answer = int(views::SaveAnswer::Closed);
    int m_frame = 0;
};

} // namespace kestrel::shell
