#pragma once

#include <QStringList>

namespace kestrel::cli {

// Runs kestrel-cli with its arguments (the program name first) and returns
// the exit status: 0 success, 2 trouble (and, for compare, 1 differences).
int run(const QStringList& arguments);

// The commands, each given its arguments with the command's name first as
// its usage line shows it ("kestrel-cli compare"), returning the exit status.

// kestrel-cli snapshot: scans a folder and saves the next numbered snapshot.
int snapshotCommand(const QStringList& arguments);
// kestrel-cli list: every entry of a snapshot file or a folder, in path order.
int listCommand(const QStringList& arguments);
// kestrel-cli info: the header and counts of a snapshot file.
int infoCommand(const QStringList& arguments);
// kestrel-cli convert: a snapshot file saved again in the current format.
int convertCommand(const QStringList& arguments);
// kestrel-cli compare: the differences between two snapshots or folders.
int compareCommand(const QStringList& arguments);

// kestrel-cli history: every numbered snapshot of a folder, each compared
// with the one before.
int historyCommand(const QStringList& arguments);

// kestrel-cli export: the lines the Export dialog writes for a view of a
// snapshot, on standard output or into a file.
int exportCommand(const QStringList& arguments);

// kestrel-cli report: the printed report of a view of a snapshot, as a PDF
// file. Needs a QGuiApplication (on the offscreen platform: no display).
int reportCommand(const QStringList& arguments);

} // namespace kestrel::cli
