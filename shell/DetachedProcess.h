#pragma once

#include <QString>
#include <QStringList>

namespace kestrel::shell {

// Starts a program that lives on by itself, never through a shell, with the
// program, its arguments and its working folder (none when empty) given as
// native text (engine/model/FileSystemNames.h) and handed to the system as their
// exact bytes; QProcess would hand over Qt's conversion, which replaces
// bytes that are not UTF-8. Returns 0 when the program was started, else the
// system's error number.
int startDetachedProcess(const QString& program, const QStringList& arguments,
                         const QString& folder);

} // namespace kestrel::shell
