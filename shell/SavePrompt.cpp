#include "shell/SavePrompt.h"

#include "shell/KestrelFrames.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace kestrel::shell {

using namespace Qt::StringLiterals;

namespace {
constexpr int FrameSize = 80;
constexpr int FrameInterval = 150; // ms
} // namespace

SavePrompt::SavePrompt(QWidget* parent) : QDialog(parent) {
    setObjectName(u"frmQuery"_s);
    setWindowTitle(u"Unsaved Snapshot"_s);

    for (int n = 1; n <= kestrelFrameCount; ++n)
        m_frames << kestrelFrame(n, FrameSize, devicePixelRatioF());

    m_picCheeky = new QLabel(this);
    m_picCheeky->setObjectName(u"picCheeky"_s);
    m_picCheeky->setFixedSize(FrameSize, FrameSize);

    m_lblPrompt = new QLabel(this);
    m_lblPrompt->setObjectName(u"lblPrompt"_s);
    m_lblPrompt->setWordWrap(true);
    m_lblPrompt->setTextFormat(Qt::PlainText);
    m_lblPrompt->setMinimumWidth(300);

    m_label2 =
        new QLabel(u"Unless you save it, this snapshot is gone once its window closes."_s, this);
    m_label2->setObjectName(u"Label2"_s);
    m_label2->setWordWrap(true);

    m_cmdYes = new QPushButton(u"&Yes"_s, this);
    m_cmdYes->setObjectName(u"cmdYes"_s);
    m_cmdNo = new QPushButton(u"&No"_s, this);
    m_cmdNo->setObjectName(u"cmdNo"_s);
    m_cmdCancel = new QPushButton(u"Cancel"_s, this);
    m_cmdCancel->setObjectName(u"cmdCancel"_s);
    // Enter answers Yes; Escape is caught below and answers Cancel.
    m_cmdYes->setDefault(true);

    m_tmrCheeky = new QTimer(this);
    m_tmrCheeky->setObjectName(u"tmrCheeky"_s);
    m_tmrCheeky->setInterval(FrameInterval);

    auto* texts = new QVBoxLayout;
    texts->addWidget(m_lblPrompt);
    texts->addSpacing(6);
    texts->addWidget(m_label2);
    texts->addStretch(1);
    auto* top = new QHBoxLayout;
    top->addWidget(m_picCheeky, 0, Qt::AlignTop);
    top->addSpacing(10);
    top->addLayout(texts, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_cmdYes);
    buttons->addWidget(m_cmdNo);
    buttons->addWidget(m_cmdCancel);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top, 1);
    layout->addSpacing(6);
    layout->addLayout(buttons);
    layout->setSizeConstraint(QLayout::SetMinimumSize);

    unload();

    connect(m_cmdYes, &QPushButton::clicked, this, &SavePrompt::cmdYes_Click);
    connect(m_cmdNo, &QPushButton::clicked, this, &SavePrompt::cmdNo_Click);
    connect(m_cmdCancel, &QPushButton::clicked, this, &SavePrompt::cmdCancel_Click);
    connect(m_tmrCheeky, &QTimer::timeout, this, &SavePrompt::tmrCheeky_Timer);

    // The window sees key presses before its controls.
    installEventFilter(this);
    for (QWidget* child : findChildren<QWidget*>())
        child->installEventFilter(this);
}

views::SaveAnswer SavePrompt::PromptToSave(const QString& prompt) {
    // No button stores this code; the short cut has always been there and
    // stays.
    if (m_answer == NoWithoutAsking)
        return views::SaveAnswer::No;
    m_lblPrompt->setText(prompt);
    exec();
    return views::SaveAnswer(m_answer);
}

void SavePrompt::unload() {
    m_answer = int(views::SaveAnswer::Closed);
    m_frame = 0;
    m_tmrCheeky->stop();
    // Until the first tick the picture holds frame 1, the first one shown.
    m_picCheeky->setPixmap(m_frames.constFirst());
}

void SavePrompt::cmdYes_Click() {
    m_answer = int(views::SaveAnswer::Yes);
    hide();
    QCoreApplication::processEvents();
}

void SavePrompt::cmdNo_Click() {
    m_answer = int(views::SaveAnswer::No);
    hide();
    QCoreApplication::processEvents();
}

void SavePrompt::cmdCancel_Click() {
    m_answer = int(views::SaveAnswer::Cancel);
    hide();
}

void SavePrompt::tmrCheeky_Timer() {
    m_frame = m_frame % kestrelFrameCount + 1;
    m_picCheeky->setPixmap(m_frames.at(m_frame - 1));
}

bool SavePrompt::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const QString typed = key->text().toUpper();
        if (typed == u"Y") {
            m_cmdYes->click();
            return true;
        }
        if (typed == u"N") {
            m_cmdNo->click();
            return true;
        }
        // Escape would otherwise reject the dialog without an answer.
        if (key->key() == Qt::Key_Escape && key->modifiers() == Qt::NoModifier) {
            m_cmdCancel->click();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void SavePrompt::changeEvent(QEvent* event) {
    QDialog::changeEvent(event);
    if (event->type() != QEvent::ActivationChange)
        return;
    // The bird flaps only while the question has the user's attention.
    if (isActiveWindow() && isVisible())
        m_tmrCheeky->start();
    else
        m_tmrCheeky->stop();
}

void SavePrompt::hideEvent(QHideEvent* event) {
    m_tmrCheeky->stop();
    QDialog::hideEvent(event);
}

void SavePrompt::closeEvent(QCloseEvent* event) {
    // Closed through the frame: the window is unloaded, so the next prompt
    // starts as in a fresh window and this one answers Closed.
    unload();
    QDialog::closeEvent(event);
}

} // namespace kestrel::shell
