#pragma once

#include <QByteArray>
#include <QString>

#include <string>
#include <string_view>

namespace kestrel::engine {

// Names and paths between the file system and a snapshot.
//
// A POSIX name is any sequence of bytes but "/" and NUL; a snapshot keeps
// text. A name from the disk is kept as "stored text": its UTF-8 as it
// stands, except that each byte that is not part of valid UTF-8 is written
// \xHH (two upper-case hexadecimal digits) and a backslash is written \\. So
// two different names on disk are never one name in a snapshot, every stored
// name gives back its exact bytes, and the window, the outputs and the
// snapshot file show a readable form with the bad bytes marked. A root folder
// is kept the same way. Names in snapshot files the Windows program wrote
// hold no backslash (it is that system's separator) and are stored text as
// they read.
//
// Qt's own conversions replace bytes that are not UTF-8, so a path that must
// reach the system exactly (a command-line argument, a file handed to another
// program) travels as "native text": a QString with the valid UTF-8 decoded
// and each other byte b as the lone surrogate U+DC00 + b, which no valid text
// holds. Native text of a valid UTF-8 path is the path as Qt reads it.

// The stored text of a name as the file system gives it: the bytes
// themselves when nothing needs writing out (nearly always), otherwise the
// escaped form, built in scratch.
std::string_view storedName(std::string_view bytes, std::string& scratch);

// The file-system bytes of a stored name or path. A backslash that starts
// neither \\ nor \x with two hexadecimal digits stands for itself, as in
// snapshots taken before names were escaped.
std::string fileSystemBytes(std::string_view stored);
QByteArray fileSystemPath(const QString& stored);

// Bytes as native text and back.
QString nativeText(std::string_view bytes);
QByteArray nativeBytes(const QString& native);

// A path typed, chosen or given on a command line (native text) as stored
// text, and a stored path as native text.
QString storedPath(const QString& native);
QString nativeFromStored(const QString& stored);

// What is at a path, asked with its exact bytes; links are followed.
struct PathInfo {
    bool exists = false;
    bool folder = false;
    bool file = false;       // a regular file
    bool executable = false; // the user may run (or, for a folder, enter) it
};
PathInfo pathInfo(const QByteArray& bytes);

} // namespace kestrel::engine
