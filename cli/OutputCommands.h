#pragma once

#include <QStringList>

namespace kestrel::cli {

// kestrel-cli export: the lines the Export dialog writes for a view of a
// snapshot, on standard output or into a file.
int exportCommand(const QStringList& arguments);

// kestrel-cli report: the printed report of a view of a snapshot, as a PDF
// file. Needs a QGuiApplication (on the offscreen platform: no display).
int reportCommand(const QStringList& arguments);

} // namespace kestrel::cli
