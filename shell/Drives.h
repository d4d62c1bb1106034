#pragma once

#include <QList>
#include <QString>

namespace kestrel::shell {

// A drive as the new-snapshot dialog offers it: where it is mounted and how
// it is shown.
struct Drive {
    QString root;
    QString caption;
};

// True when path lies in the folder root or is root itself.
bool isWithin(const QString& path, const QString& root);

// The drives of this system, the root first, then the mounted file systems
// that hold the user's files, by mount point.
QList<Drive> systemDrives();

// Why a drive cannot be read, in the system's own words; empty when it can.
QString unreadableReason(const QString& root);

} // namespace kestrel::shell
