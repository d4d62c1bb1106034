#include "Launcher.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>

namespace kestrel::shell {

using engine::MessageIcon;
using engine::UserMessage;

namespace {

int startDetached(const QString& program, const QStringList& arguments, const QString& folder) {
    const QFileInfo file(program);
    if (!file.exists())
        return LaunchResult::FileNotFound;
    if (!folder.isEmpty() && !QFileInfo(folder).isDir())
        return LaunchResult::PathNotFound;
    if (!file.isExecutable())
        return LaunchResult::AccessDenied;
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setWorkingDirectory(folder);
    // It exists and may be run, so what is left is a file the system could
    // not load as a program.
    return process.startDetached() ? LaunchResult::Started : LaunchResult::BadFormat;
}

} // namespace

QString LaunchErrorText(int result) {
    switch (result) {
    case LaunchResult::FileNotFound:
    case LaunchResult::PathNotFound:
        return QStringLiteral("File not found");
    case LaunchResult::NoAssociation:
        return QStringLiteral("No application is associated with this file type");
    case LaunchResult::OutOfMemory:
        return QStringLiteral("Out of memory");
    default:
        return QStringLiteral("Error %1 launching application").arg(result);
    }
}

Launcher::Desktop Launcher::systemDesktop() {
    return Desktop{[](const QUrl& url) { return QDesktopServices::openUrl(url); }, startDetached};
}

Launcher::Launcher(MessageFunction message, Desktop desktop)
    : m_message(std::move(message)), m_desktop(std::move(desktop)) {}

QString Launcher::programFolder() const {
    return m_programFolder.isEmpty() ? QCoreApplication::applicationDirPath() : m_programFolder;
}

QString Launcher::helpPath() const {
    return programFolder() + QStringLiteral("/KestHelp.htm");
}

bool Launcher::LaunchDocument(const QString& root, const QString& folder, const QString& name,
                              const QString& parameters) {
    const QString path = root + folder + name;
    const QString workingFolder = root + folder;
    const QFileInfo file(path);

    int result = LaunchResult::Started;
    if (!file.exists()) {
        result = LaunchResult::FileNotFound;
    } else if (file.isFile() && file.isExecutable()) {
        result = m_desktop.startProgram(path, QProcess::splitCommand(parameters), workingFolder);
    } else if (!m_desktop.openUrl(QUrl::fromLocalFile(file.absoluteFilePath()))) {
        // The desktop says only yes or no; no is nearly always a type that
        // nothing is registered for.
        result = LaunchResult::NoAssociation;
    }
    if (result < 32 && m_message)
        m_message(UserMessage{QStringLiteral("Application Launch Error"), LaunchErrorText(result),
                              MessageIcon::Exclamation});
    return false;
}

bool Launcher::ShowHelp(const QString& anchor) {
    Q_UNUSED(anchor) // The page always opens at its top.
    const QString path = helpPath();
    // The desktop reports only success or failure; either failure counts as
    // the page not being there.
    if (QFileInfo::exists(path) && m_desktop.openUrl(QUrl::fromLocalFile(path)))
        return true;
    if (m_message)
        m_message(UserMessage{QStringLiteral("No Help Available"),
                              path + QStringLiteral(" not found"), MessageIcon::Exclamation});
    return false;
}

} // namespace kestrel::shell
