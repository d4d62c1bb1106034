#pragma once

#include <QString>
#include <QStringList>

namespace kestrel::shell {

class MainWindow;

// The command line as the program reads it: one text, the arguments after
// the program's name joined with single blanks. Nothing is trimmed and no
// quotes are stripped; Qt's own options (-platform, -style, ...) have already
// been taken out by QApplication. The arguments are native text
// (engine/FileSystemNames.h), and so is the command line.
QString CommandLineText(const QStringList& arguments);

// What the program does at start once the frame exists (the frame's
// construction has fixed the INI path, loaded the options and read the
// placement): shows the frame, loads the about box, then acts on the command
// line. An empty one offers the new-snapshot dialog when the recent list is
// empty and the recent list otherwise; any other text is opened as a
// snapshot file and, when that fails, scanned as a folder with sub-folders
// and hidden files but without versions. If that fails too the frame stays
// empty.
void StartUp(MainWindow& frame, const QString& commandLine);

// The program: the application object, the frame with Kestrel.ini in its
// usual place, start-up and the event loop. Returns the exit code.
int RunKestrel(int argc, char** argv);

} // namespace kestrel::shell
