#include "ExternalProgram.h"

#include "engine/FileSystemNames.h"
#include "engine/Snapshot.h"

#include <QProcess>

namespace kestrel::settings {

namespace {

QString quoted(QString path) {
    path.replace(QLatin1Char('"'), QStringLiteral("\"\"\""));
    return QLatin1Char('"') + path + QLatin1Char('"');
}

} // namespace

QString substituteParameters(const QString& params, const QString& first, const QString& second) {
    QString text = params;
    text.replace(QStringLiteral("%1"), quoted(first), Qt::CaseSensitive);
    text.replace(QStringLiteral("%2"), quoted(second), Qt::CaseSensitive);
    return text;
}

CustomLaunch buildCustomLaunch(const QString& programPath, const QString& params,
                               const QString& first, const QString& second) {
    CustomLaunch launch;
    QString path = programPath;
    if (path.endsWith(engine::Separator))
        path.chop(1);
    const qsizetype last = path.lastIndexOf(engine::Separator);
    if (last >= 0) {
        launch.folder = path.left(last);
        launch.fileName = path.mid(last + 1);
    } else {
        launch.fileName = path;
    }
    launch.program = launch.folder + engine::Separator + launch.fileName;
    launch.parameters = substituteParameters(params, engine::nativeFromStored(first),
                                             engine::nativeFromStored(second));
    launch.arguments = QProcess::splitCommand(launch.parameters);
    return launch;
}

} // namespace kestrel::settings
