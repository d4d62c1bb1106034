#include "MeterWindow.h"

#include "AboutBox.h"

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

namespace kestrel::shell {

MeterWindow::MeterWindow(QWidget* frame)
    : QWidget(frame, Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint), m_frame(frame) {
    setWindowTitle(QStringLiteral("Kestrel"));

    m_picture = new QLabel(this);
    m_picture->setPixmap(KestrelEmblem(56, devicePixelRatioF()));
    m_picture->setFixedSize(56, 56);

    // The caption again inside the window, where it is seen whatever the
    // window manager does with title bars of small tool windows.
    m_caption = new QLabel(QStringLiteral("Kestrel"), this);

    m_bar = new QProgressBar(this);
    m_bar->setTextVisible(false);
    m_bar->setMinimumWidth(260);

    // What the operation could not do so far ("2 folders could not be
    // read"), shown only once there is something to say.
    m_note = new QLabel(this);
    m_note->hide();

    m_cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cancel->setEnabled(false);
    connect(m_cancel, &QPushButton::clicked, this, &MeterWindow::cmdCancel_Click);

    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setHorizontalSpacing(12);
    layout->addWidget(m_picture, 0, 0, 4, 1, Qt::AlignTop);
    layout->addWidget(m_caption, 0, 1);
    layout->addWidget(m_bar, 1, 1);
    layout->addWidget(m_note, 2, 1);
    layout->addWidget(m_cancel, 3, 1, Qt::AlignRight);
    setFixedSize(sizeHint());
}

void MeterWindow::meterStarted(int32_t maximum, const QString& caption, bool cancellable) {
    m_bar->setRange(0, maximum);
    setWindowTitle(caption);
    m_caption->setText(caption + QStringLiteral("..."));
    m_cancel->setEnabled(cancellable);
    if (!m_note->isHidden()) {
        m_note->clear();
        m_note->hide();
        setFixedSize(sizeHint());
    }
    if (m_frame)
        m_frame->setCursor(Qt::WaitCursor);
}

void MeterWindow::meterNote(const QString& note) {
    m_note->setText(note);
    if (m_note->isHidden()) {
        m_note->show();
        setFixedSize(sizeHint());
    }
}

QString MeterWindow::noteText() const {
    return m_note->isHidden() ? QString() : m_note->text();
}

QString MeterWindow::captionText() const {
    return m_caption->text();
}

void MeterWindow::meterShown() {
    // An operation started from a modal dialog (printing) would leave the
    // meter blocked behind that dialog, Cancel unclickable: the meter is
    // modal itself then, above it.
    setWindowModality(QApplication::activeModalWidget() ? Qt::ApplicationModal : Qt::NonModal);
    if (m_frame) {
        const QRect area = m_frame->frameGeometry();
        move(area.center() - rect().center());
    }
    show();
    takeFocusBack();
}

void MeterWindow::meterValue(int32_t value) {
    m_bar->setValue(value);
}

void MeterWindow::processEvents() {
    // The operation runs on this thread: this is where the bar repaints and
    // a click on Cancel arrives.
    QCoreApplication::processEvents();
}

void MeterWindow::meterClosed() {
    hide();
    if (m_frame)
        m_frame->unsetCursor();
}

void MeterWindow::cmdCancel_Click() {
    // ProgressMeter honours it only when the operation can be cancelled.
    if (m_meter)
        m_meter->cancel();
}

void MeterWindow::takeFocusBack() {
    if (!isVisible())
        return;
    raise();
    activateWindow();
}

void MeterWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isVisible() && !isActiveWindow()) {
        // Taken back once the activation change is over, not inside it,
        // so the window system is not asked to switch twice at once.
        QTimer::singleShot(0, this, &MeterWindow::takeFocusBack);
    }
}

void MeterWindow::closeEvent(QCloseEvent* event) {
    // The operation closes the meter when it ends; the window frame cannot.
    event->ignore();
}

} // namespace kestrel::shell
