#include "StartUp.h"

#include "MainWindow.h"
#include "RecentSnapshots.h"

#include "engine/model/FileSystemNames.h"
#include "settings/IniFile.h"
#include "views/Highlight.h"
#include "views/SnapshotPair.h"

#include <QApplication>
#include <QStyle>

#include <cstdio>

namespace kestrel::shell {

QStringList CommandLinePaths(const QStringList& arguments) {
    QStringList paths = arguments.mid(1);
    paths.removeAll(QString());
    return paths;
}

namespace {

// Without paths: the recent list when it holds entries, else a new snapshot.
void offerFirstSnapshot(MainWindow& frame) {
    if (frame.recentDialog().list().isEmpty())
        frame.mnuFileNew_Click();
    else
        frame.mnuFileOpen_Click();
}

} // namespace

void StartUp(MainWindow& frame, const QStringList& paths, bool history) {
    frame.show();
    frame.loadAboutBox();
    // Every missing path is named before anything is opened, so that a
    // mistyped NEW does not leave OLD open alone.
    bool missing = false;
    for (const QString& path : paths)
        missing = !frame.checkPathExists(path) || missing;
    if (paths.isEmpty() || missing) {
        offerFirstSnapshot(frame);
        return;
    }
    if (history) {
        frame.OpenHistory(paths);
        return;
    }
    if (paths.size() == 1)
        frame.openPath(paths.constFirst(), 1);
    else
        frame.openAndCompare(paths[0], paths[1]);
}

namespace {

const char* const Usage =
    "Usage: kestrel [FOLDER | SNAPSHOT]\n"
    "       kestrel OLD NEW\n"
    "       kestrel SNAPSHOT... --history\n"
    "\n"
    "Records the state of folder trees as snapshots and compares them.\n"
    "With a snapshot file (.#01 to .#99) Kestrel opens it; with a folder it takes a\n"
    "snapshot of the folder, its sub-folders and hidden items; with nothing it offers\n"
    "the recent snapshots, or a new one. With two paths, OLD and NEW, each a snapshot\n"
    "file or a folder, it opens both and compares them. With --history it shows the\n"
    "history of the snapshot's folder: every numbered snapshot beside it (or the\n"
    "snapshot files given), each compared with the one before. Each argument is one path;\n"
    "a relative path is taken from the current folder.\n"
    "\n"
    "  --history      show the history of the snapshots' folder\n"
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
    QApplication::setPalette(dark ? views::darkPalette()
                                  : QApplication::style()->standardPalette());
}

} // namespace

int RunKestrel(int argc, char** argv) {
    if (answeredOnTerminal(argc, argv))
        return 0;
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestrel"));
    QApplication::setApplicationVersion(QStringLiteral(KESTREL_VERSION));
    applyColourScheme();

    // What QApplication left of the arguments, as native text with their
    // exact bytes: its own list replaces bytes that are not UTF-8, which a
    // folder's name may hold.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << engine::nativeText(argv[i]);
    QStringList paths = CommandLinePaths(arguments);
    const bool history = paths.removeAll(QStringLiteral("--history")) > 0;
    if (!history && paths.size() > MostCommandLinePaths) {
        std::fputs("kestrel: give at most two paths, OLD and NEW\n\n", stderr);
        std::fputs(Usage, stderr);
        return 2;
    }
    MainWindow frame(settings::IniFile::defaultPath());
    StartUp(frame, paths, history);
    return application.exec();
}

} // namespace kestrel::shell
