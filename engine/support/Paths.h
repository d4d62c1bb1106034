#pragma once

#include <QDir>
#include <QString>

namespace kestrel::engine {

// A path as a user typed it, made absolute against the current folder and
// cleaned of "." and ".." the way a shell's cd reads them. Links are not
// resolved: the path stays the one the user sees. A root folder, a title, a
// snapshot's base name or a recent entry made from it names the same place
// whatever folder the program runs in later.
inline QString absolutePath(const QString& path) {
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

// A folder's path as the start of the paths inside it: with the separator
// "/" appended unless it ends in one already. The empty path gives "/", the
// root; a caller for which an empty path names no folder tests for it first.
inline QString withSeparator(QString path) {
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

} // namespace kestrel::engine
