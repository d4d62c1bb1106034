#include "Launcher.h"

#include "DetachedProcess.h"

#include "engine/model/FileSystemNames.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>

namespace kestrel::shell {

using engine::MessageIcon;
using engine::UserMessage;

namespace {

// Paths here are native text, asked about and handed over as their exact bytes.
int startDetached(const QString& program, const QStringList& arguments, const QString& folder) {
    const engine::PathInfo file = engine::pathInfo(engine::nativeBytes(program));
    // A folder is no program (an empty program path ends up as "/").
    if (!file.exists || file.folder)
        return LaunchResult::FileNotFound;
    if (!folder.isEmpty() && !engine::pathInfo(engine::nativeBytes(folder)).folder)
        return LaunchResult::PathNotFound;
    if (!file.executable)
        return LaunchResult::AccessDenied;
    // It exists and may be run, so what is left is a file the system could
    // not load as a program.
    return startDetachedProcess(program, arguments, folder) == 0 ? LaunchResult::Started
                                                                 : LaunchResult::BadFormat;
}

// A file URL naming a path (native text) by its exact bytes: a byte that is
// not UTF-8 stays percent-encoded, and the desktop's launcher decodes it back.
// The characters a URL path may hold stay as they are, as fromLocalFile
// leaves them.
QUrl fileUrl(const QString& path) {
    return QUrl::fromEncoded("file://" +
                             engine::nativeBytes(path).toPercentEncoding("/!$&'()*+,;=:@[]"));
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
    const QString beside = programFolder() + QStringLiteral("/KestHelp.htm");
    if (QFileInfo::exists(beside))
        return beside;
    // Installed, the page is in the program's data folder, share/kestrel.
    const QString installed = QDir::cleanPath(programFolder() + QLatin1Char('/') +
                                              QStringLiteral(KESTREL_RELATIVE_DATA_DIR) +
                                              QStringLiteral("/KestHelp.htm"));
    return QFileInfo::exists(installed) ? installed : beside;
}

bool Launcher::LaunchDocument(const QString& root, const QString& folder, const QString& name,
                              const QString& parameters) {
    // The parts come from a snapshot as stored text: the file is reached by
    // its exact bytes.
    const QString path = engine::nativeFromStored(root + folder + name);
    const QString workingFolder = engine::nativeFromStored(root + folder);
    const engine::PathInfo file = engine::pathInfo(engine::nativeBytes(path));

    int result = LaunchResult::Started;
    if (!file.exists) {
        result = LaunchResult::FileNotFound;
    } else if (file.file && file.executable) {
        result = m_desktop.startProgram(path, QProcess::splitCommand(parameters), workingFolder);
    } else if (!m_desktop.openUrl(fileUrl(path))) {
        // The desktop's launcher did not start, so nothing can open the
        // document: of the program's messages, the one that fits is that no
        // application takes its type.
        result = LaunchResult::NoAssociation;
    }
    reportFailure(result);
    return false;
}

bool Launcher::StartProgram(const QString& program, const QStringList& arguments,
                            const QString& workingFolder) {
    const bool bareName =
        !program.contains(QLatin1Char('/')) && !program.contains(QDir::separator());
    const int result = bareName ? LaunchResult::FileNotFound
                                : m_desktop.startProgram(program, arguments, workingFolder);
    reportFailure(result, program);
    return result >= 32;
}

void Launcher::reportFailure(int result, const QString& program) const {
    if (result >= 32 || !m_message)
        return;
    QString text = LaunchErrorText(result);
    if (!program.isEmpty())
        text += QStringLiteral(": ") + program;
    m_message(
        UserMessage{QStringLiteral("Application Launch Error"), text, MessageIcon::Exclamation});
}

bool Launcher::ShowHelp(const QString& anchor) {
    Q_UNUSED(anchor) // The page always opens at its top.
    const QString path = helpPath();
    // A missing page is the shell's "file not found", which passes without a
    // word. The message is kept for a launch that fails for want of
    // resources, which here means the desktop's launcher did not start: then
    // no page can be shown whatever its path.
    int result = LaunchResult::Started;
    if (!QFileInfo::exists(path))
        result = LaunchResult::FileNotFound;
    else if (!m_desktop.openUrl(QUrl::fromLocalFile(path)))
        result = LaunchResult::OutOfResources;
    if (result != LaunchResult::OutOfResources)
        return true;
    // The page is there: what is missing is a program to show it.
    if (m_message)
        m_message(UserMessage{QStringLiteral("No Help Available"),
                              QStringLiteral("No program could open the help file ") + path,
                              MessageIcon::Exclamation});
    return false;
}

} // namespace kestrel::shell
