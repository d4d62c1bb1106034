#pragma once

#include <QString>
#include <QStringList>

namespace kestrel::settings {

// How the external compare program ("Program", "Params") is started for a
// pair of files: a program and its argument list, never a shell command.
struct CustomLaunch {
    QString folder;        // the program's folder, also its working folder; may be empty
    QString fileName;      // the program's file name
    QString program;       // what is started: folder, separator, file name
    QStringList arguments; // the template's arguments with both paths put in
};

// The template split into arguments the way a shell splits quoted words,
// then every "%1" inside an argument replaced by the first path and every
// "%2" by the second. Only the template's own text is searched, never a path
// already put in, so each path lands whole in the argument that named it:
// whatever a file name holds (blanks, quotes, "%1", "%2", a leading "-"), it
// cannot add, split or change arguments.
QStringList substituteArguments(const QString& params, const QString& first, const QString& second);

// The launch for a program path and template. The path is split at its last
// separator after a trailing one is dropped. A name without any separator is
// a program on PATH, as a shell would take it: where one is found there, the
// launch starts that file; where none is, the program stays the bare name,
// which the launcher reports as not found.
// first and second are paths as a snapshot keeps them (stored text); they are
// put in as native text, so that the program receives their exact bytes
// (engine/model/FileSystemNames.h).
CustomLaunch buildCustomLaunch(const QString& programPath, const QString& params,
                               const QString& first, const QString& second);

} // namespace kestrel::settings
