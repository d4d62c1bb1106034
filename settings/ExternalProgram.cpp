#include "ExternalProgram.h"

#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"

#include <QDir>
#include <QProcess>
#include <QStandardPaths>

namespace kestrel::settings {

namespace {

// One argument of the template with the paths put in, read left to right
// so that the text of a path is never read again.
QString substituteInArgument(const QString& argument, const QString& first, const QString& second) {
    QString result;
    result.reserve(argument.size() + first.size() + second.size());
    for (qsizetype i = 0; i < argument.size(); ++i) {
        const QChar next = i + 1 < argument.size() ? argument[i + 1] : QChar();
        if (argument[i] == QLatin1Char('%') && next == QLatin1Char('1')) {
            result += first;
            ++i;
        } else if (argument[i] == QLatin1Char('%') && next == QLatin1Char('2')) {
            result += second;
            ++i;
        } else {
            result += argument[i];
        }
    }
    return result;
}

} // namespace

QStringList substituteArguments(const QString& params, const QString& first,
                                const QString& second) {
    QStringList arguments = QProcess::splitCommand(params);
    for (QString& argument : arguments)
        argument = substituteInArgument(argument, first, second);
    return arguments;
}

CustomLaunch buildCustomLaunch(const QString& programPath, const QString& params,
                               const QString& first, const QString& second) {
    CustomLaunch launch;
    launch.arguments = substituteArguments(params, engine::nativeFromStored(first),
                                           engine::nativeFromStored(second));
    QString path = programPath;
    if (path.endsWith(engine::Separator))
        path.chop(1);
    if (!path.contains(engine::Separator)) {
        // A bare name is a program on PATH, as a shell takes it. One found
        // nowhere stays bare: it is reported as not found, never taken for
        // a file of that name in some folder.
        const QString found = path.isEmpty() ? QString() : QStandardPaths::findExecutable(path);
        if (found.isEmpty()) {
            launch.fileName = path;
            launch.program = path;
            return launch;
        }
        path = QDir::toNativeSeparators(found);
    }
    const qsizetype last = path.lastIndexOf(engine::Separator);
    launch.folder = path.left(last);
    launch.fileName = path.mid(last + 1);
    launch.program = launch.folder + engine::Separator + launch.fileName;
    return launch;
}

} // namespace kestrel::settings
