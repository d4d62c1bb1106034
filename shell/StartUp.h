#pragma once

#include <QString>
#include <QStringList>

namespace kestrel::shell {

class MainWindow;

// The paths on the command line: the arguments after the program's name,
// each taken whole (nothing trimmed, no quotes stripped). An empty argument
// names nothing and is left out (it is not the current folder); Qt's own
// options (-platform, -style, ...) have already been taken out by
// QApplication. The arguments are native text (engine/model/FileSystemNames.h).
QStringList CommandLinePaths(const QStringList& arguments);

// The most paths the command line takes: OLD and NEW.
inline constexpr int MostCommandLinePaths = 2;

// What the program does at start once the frame exists (the frame's
// construction has fixed the INI path, loaded the options and read the
// placement): shows the frame, loads the about box, then acts on the paths.
// - None: the new-snapshot dialog when the recent list is empty, the recent
//   list otherwise.
// - One: a folder is scanned with sub-folders and hidden files but without
//   versions, anything else opened as a snapshot file; a file that fails to
//   load leaves its error and an empty frame.
// - Two, OLD and NEW: both are opened (or scanned) in that order, the second
//   numbered as a repeat of the first would be, and compared.
// - With history, any number: the history of their folder (one file stands
//   for its whole series).
// Every path is made absolute first. A path that does not exist is named in
// a message and nothing is opened: the program goes on as without paths.
void StartUp(MainWindow& frame, const QStringList& paths, bool history = false);

// The program: the application object, the frame with Kestrel.ini in its
// usual place, start-up and the event loop. Returns the exit code.
int RunKestrel(int argc, char** argv);

} // namespace kestrel::shell
