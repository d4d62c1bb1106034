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
    QString parameters;    // the template with both paths put in, quoted
    QStringList arguments; // the parameters split as a shell splits quoted words
};

// The template with every "%1" replaced by the first path in double quotes,
// then every "%2" by the second. The second replacement runs over the result
// of the first, so a "%2" inside the first path is replaced too; the order is
// deliberate. A double quote inside a path (POSIX names may hold one) is
// written as three, which is how the splitting reads a quote that belongs to
// the text, so each path still arrives as one argument.
QString substituteParameters(const QString& params, const QString& first, const QString& second);

// The launch for a program path and template. The path is split at its last
// separator after a trailing one is dropped; a path without one has an empty
// folder, and the program started is then the separator and the name. first
// and second are paths as a snapshot keeps them (stored text); they are put
// in as native text, so that the program receives their exact bytes
// (engine/FileSystemNames.h).
CustomLaunch buildCustomLaunch(const QString& programPath, const QString& params,
                               const QString& first, const QString& second);

} // namespace kestrel::settings
