#include "StartUp.h"

#include "MainWindow.h"
#include "RecentSnapshots.h"

#include "engine/FileSystemNames.h"
#include "settings/IniFile.h"
#include "views/Highlight.h"

#include <QApplication>
#include <QStyle>

#include <cstdio>

namespace kestrel::shell {

QString CommandLineText(const QStringList& arguments) {
    return arguments.mid(1).join(QLatin1Char(' '));
}

void StartUp(MainWindow& frame, const QString& commandLine) {
    frame.show();
    frame.loadAboutBox();
    if (commandLine.isEmpty()) {
        if (frame.recentDialog().list().isEmpty())
            frame.mnuFileNew_Click();
        else
            frame.mnuFileOpen_Click();
        return;
    }
    // A folder is no snapshot file: trying to open it first would only put
    // up the import's "Unable to open Snapshot" before the scan.
    const bool folder = engine::pathInfo(engine::nativeBytes(commandLine)).folder;
    if (folder || !frame.OpenSnapshot(commandLine))
        frame.NewSnapshot(engine::storedPath(commandLine), true, true, false, 1);
}

namespace {

const char* const Usage =
    "Usage: kestrel [FOLDER | SNAPSHOT]\n"
    "\n"
    "Records the state of folder trees as snapshots and compares them.\n"
    "With a snapshot file (.#01 to .#99) Kestrel opens it; with a folder it takes a\n"
    "snapshot of the folder, its sub-folders and hidden items; with nothing it offers\n"
    "the recent snapshots, or a new one. The argument is taken whole, as one path.\n"
    "\n"
    "  -h, --help     show this text and exit\n"
    "  -v, --version  show the version and exit\n"
    "\n"
    "Qt's own options (-style, -platform, ...) are accepted too. KESTREL_THEME=dark\n"
    "or light chooses the windows' palette. See kestrel(1) and kestrel-cli(1).\n";

// --help and --version answer on the terminal before any window exists, so
// they work without a display.
bool answeredOnTerminal(int argc, char** argv) {
    if (argc != 2)
        return false;
    const QByteArray argument(argv[1]);
    if (argument == "--help" || argument == "-h") {
        std::fputs(Usage, stdout);
        return true;
    }
    if (argument == "--version" || argument == "-v") {
        std::printf("kestrel %s\n", KESTREL_VERSION);
        return true;
    }
    return false;
}

// KESTREL_THEME=dark or light chooses the palette; without it a desktop
// that asks GTK programs for a dark theme ("Adwaita:dark") gets the dark
// one, and any other keeps the platform's own look.
void applyColourScheme() {
    const QByteArray theme = qgetenv("KESTREL_THEME").trimmed().toLower();
    const bool dark =
        theme == "dark" || (theme.isEmpty() && qgetenv("GTK_THEME").toLower().endsWith(":dark"));
    if (!dark && theme != "light")
        return;
    QApplication::setStyle(QStringLiteral("Fusion"));
    QApplication::setPalette(dark ? views::darkPalette() : QApplication::style()->standardPalette());
}

} // namespace

int RunKestrel(int argc, char** argv) {
    if (answeredOnTerminal(argc, argv))
        return 0;
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestrel"));
    QApplication::setApplicationVersion(QStringLiteral(KESTREL_VERSION));
    applyColourScheme();

    MainWindow frame(settings::IniFile::defaultPath());
    // What QApplication left of the arguments, as native text with their
    // exact bytes: its own list replaces bytes that are not UTF-8, which a
    // folder's name may hold.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << engine::nativeText(argv[i]);
    StartUp(frame, CommandLineText(arguments));
    return application.exec();
}

} // namespace kestrel::shell
