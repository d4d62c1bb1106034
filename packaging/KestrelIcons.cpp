// kestrel-icons: writes the program's icon, the hovering kestrel of its
// about box, as a scalable SVG and as PNG pictures of the sizes asked for:
// kestrel.svg and kestrel-SIZE.png in the given folder. Run at build time.

#include "shell/KestrelFrames.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgGenerator>

#include <cstdio>

namespace {

// The emblem's frame: wings level.
constexpr int EmblemFrame = 4;
constexpr int SvgSide = 256;

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    const QStringList arguments = QGuiApplication::arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: kestrel-icons FOLDER [SIZE...]\n");
        return 2;
    }
    const QDir folder(arguments.at(1));
    if (!QDir().mkpath(folder.path()))
        return 2;

    QSvgGenerator svg;
    svg.setFileName(folder.filePath(QStringLiteral("kestrel.svg")));
    svg.setSize(QSize(SvgSide, SvgSide));
    svg.setViewBox(QRect(0, 0, SvgSide, SvgSide));
    svg.setTitle(QStringLiteral("Kestrel"));
    svg.setDescription(QStringLiteral("A kestrel hovering against the sky"));
    {
        QPainter painter(&svg);
        kestrel::shell::paintKestrelFrame(painter, EmblemFrame, QRectF(0, 0, SvgSide, SvgSide));
    }

    for (const QString& size : arguments.mid(2)) {
        const int side = size.toInt();
        if (side <= 0)
            return 2;
        QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            kestrel::shell::paintKestrelFrame(painter, EmblemFrame, QRectF(0, 0, side, side));
        }
        if (!image.save(folder.filePath(QStringLiteral("kestrel-%1.png").arg(side))))
            return 2;
    }
    return 0;
}
