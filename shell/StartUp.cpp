#include "StartUp.h"

#include "MainWindow.h"
#include "RecentSnapshots.h"

#include "settings/IniFile.h"

#include <QApplication>
#include <QFileInfo>

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
    const bool folder = QFileInfo(commandLine).isDir();
    if (folder || !frame.OpenSnapshot(commandLine))
        frame.NewSnapshot(commandLine, true, true, false, 1);
}

int RunKestrel(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestrel"));
    QApplication::setApplicationVersion(QStringLiteral(KESTREL_VERSION));

    MainWindow frame(settings::IniFile::defaultPath());
    StartUp(frame, CommandLineText(QCoreApplication::arguments()));
    return application.exec();
}

} // namespace kestrel::shell
