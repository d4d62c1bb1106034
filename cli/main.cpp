#include "Commands.h"

#include "engine/model/FileSystemNames.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

// The platform's notes (no runtime folder, font substitutions) mean nothing
// to a user of the command line; real failures still get through.
void reportMessages(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if (type == QtCriticalMsg || type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
}

} // namespace

int main(int argc, char* argv[]) {
    // A file size limit (ulimit -f) then fails the write that crosses it with
    // "File too large", which the command reports, instead of ending it.
    std::signal(SIGXFSZ, SIG_IGN);
    // The report paints its pages with Qt Gui, on the offscreen platform: a
    // server without a display prints it all the same. Every other command
    // stays a plain core application.
    std::unique_ptr<QCoreApplication> app;
    if (argc >= 2 && std::strcmp(argv[1], "report") == 0) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qInstallMessageHandler(reportMessages);
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("Kestrel"));
    // The arguments as native text, with their exact bytes: Qt's own list
    // replaces bytes that are not UTF-8, and a folder's name may hold them.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << kestrel::engine::nativeText(argv[i]);
    return kestrel::cli::run(arguments);
}
