#include "AboutBox.h"

#include "KestrelFrames.h"

#include "views/PaintedIcon.h"

#include <QApplication>
#include <QEventLoop>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace kestrel::shell {

namespace {

const QString WebSite = QStringLiteral("https://kestrel.example.org/");
const QString WebHelp = QStringLiteral("https://kestrel.example.org/help/");

} // namespace

// The hovering kestrel of the save prompt, wings level.
constexpr int EmblemFrame = 4;

QPixmap KestrelEmblem(int size, qreal devicePixelRatio) {
    return kestrelFrame(EmblemFrame, size, devicePixelRatio);
}

QIcon KestrelIcon() {
    return views::paintedIcon([](QPainter& painter, const QRectF& square, QIcon::Mode) {
        paintKestrelFrame(painter, EmblemFrame, square);
    });
}

QString VersionText() {
    return QStringLiteral("Kestrel v") + QStringLiteral(KESTREL_VERSION);
}

AboutBox::AboutBox(QWidget* parent) : QDialog(parent) {
    setWindowTitle(QStringLiteral("About Kestrel"));

    auto* emblem = new QLabel(this);
    emblem->setPixmap(KestrelEmblem(96, devicePixelRatioF()));
    emblem->setAlignment(Qt::AlignTop | Qt::AlignHCenter);

    auto* name = new QLabel(VersionText(), this);
    QFont big = name->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    name->setFont(big);

    auto* purpose = new QLabel(
        QStringLiteral("Records the state of folder trees as snapshots and shows what changed "
                       "between two of them: files and folders added or removed, and files "
                       "whose size, date, attributes or version differ."),
        this);
    purpose->setWordWrap(true);

    auto* disclaimer = new QLabel(
        QStringLiteral("This program is provided as is, without warranty of any kind. Kestrel "
                       "reads the folders it scans but never changes them; it writes only its "
                       "own snapshot and export files, where you tell it to."),
        this);
    disclaimer->setWordWrap(true);
    QPalette quiet = disclaimer->palette();
    quiet.setColor(QPalette::WindowText, quiet.color(QPalette::PlaceholderText));
    disclaimer->setPalette(quiet);

    auto* links = new QLabel(this);
    links->setTextFormat(Qt::RichText);
    links->setText(QStringLiteral("<a href=\"%1\">%1</a><br><a href=\"%2\">Help and tips on the "
                                  "web</a>")
                       .arg(WebSite, WebHelp));
    // Clicks go to the user's browser through QDesktopServices.
    links->setOpenExternalLinks(true);
    links->setTextInteractionFlags(Qt::TextBrowserInteraction);

    m_ok = new QPushButton(QStringLiteral("OK"), this);
    m_ok->setDefault(true);
    connect(m_ok, &QPushButton::clicked, this, &QDialog::accept);

    auto* text = new QVBoxLayout;
    text->setSpacing(10);
    text->addWidget(name);
    text->addWidget(purpose);
    text->addWidget(disclaimer);
    text->addWidget(links);
    text->addStretch();

    auto* top = new QHBoxLayout;
    top->setSpacing(18);
    top->addWidget(emblem, 0, Qt::AlignTop);
    top->addLayout(text, 1);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_ok);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 18, 18, 14);
    layout->addLayout(top);
    layout->addLayout(buttons);

    setFixedWidth(470);
    setFixedHeight(heightForWidth(470) > 0 ? heightForWidth(470) : sizeHint().height());
}

void AboutBox::DisplayBriefly(int milliseconds) {
    const bool wasModal = isModal();
    setModal(false);
    show();
    raise();
    if (milliseconds > 0) {
        QEventLoop wait;
        QTimer::singleShot(milliseconds, &wait, &QEventLoop::quit);
        wait.exec();
    }
    hide();
    setModal(wasModal);
}

} // namespace kestrel::shell
