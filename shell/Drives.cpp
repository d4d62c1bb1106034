#include "shell/Drives.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <cstring>

#ifdef Q_OS_UNIX
#include <dirent.h>
#endif

namespace kestrel::shell {

using namespace Qt::StringLiterals;

bool isWithin(const QString& path, const QString& root) {
    if (path == root)
        return true;
    const QString prefix = root.endsWith(u'/') ? root : root + u'/';
    return path.startsWith(prefix);
}

namespace {

// The file systems a user thinks of as drives: the root and whatever is
// mounted that holds the user's files. Left out are the kernel's pseudo file
// systems (proc, sysfs, cgroup, devpts and their kind), the memory file
// systems of /run, /dev and /sys, container layers (overlay under /var/lib),
// snap packages (squashfs), the boot loader's EFI partition, single files
// bound into place, and anything the user cannot list.
QList<QStorageInfo> reachableDrives() {
    static const QStringList pseudo = {
        u"proc"_s,        u"sysfs"_s,           u"cgroup"_s,     u"cgroup2"_s,
        u"devpts"_s,      u"devtmpfs"_s,        u"mqueue"_s,     u"debugfs"_s,
        u"tracefs"_s,     u"securityfs"_s,      u"pstore"_s,     u"bpf"_s,
        u"configfs"_s,    u"fusectl"_s,         u"hugetlbfs"_s,  u"autofs"_s,
        u"binfmt_misc"_s, u"efivarfs"_s,        u"rpc_pipefs"_s, u"nsfs"_s,
        u"squashfs"_s,    u"fuse.gvfsd-fuse"_s, u"fuse.portal"_s};
    static const QStringList systemFolders = {u"/proc"_s, u"/sys"_s,  u"/dev"_s,
                                              u"/run"_s,  u"/snap"_s, u"/boot/efi"_s};

    QList<QStorageInfo> drives;
    for (const QStorageInfo& volume : QStorageInfo::mountedVolumes()) {
        const QString root = volume.rootPath();
        const QString type = QString::fromLatin1(volume.fileSystemType());
        if (root == u"/" || !volume.isValid() || !volume.isReady())
            continue;
        if (pseudo.contains(type))
            continue;
        // Removable media mounted by udisks under /run/media stay in.
        bool system = false;
        for (const QString& folder : systemFolders)
            system = system || isWithin(root, folder);
        if (system && !isWithin(root, u"/run/media"_s))
            continue;
        if (type == u"overlay" && isWithin(root, u"/var/lib"_s))
            continue;
        const QFileInfo info(root);
        if (!info.isDir() || !info.isReadable() || !info.isExecutable())
            continue;
        if (std::any_of(drives.cbegin(), drives.cend(),
                        [&](const QStorageInfo& d) { return d.rootPath() == root; }))
            continue;
        drives << volume;
    }
    std::sort(drives.begin(), drives.end(), [](const QStorageInfo& a, const QStorageInfo& b) {
        return a.rootPath() < b.rootPath();
    });
    drives.prepend(QStorageInfo::root());
    return drives;
}

} // namespace

QList<Drive> systemDrives() {
    QList<Drive> drives;
    for (const QStorageInfo& drive : reachableDrives()) {
        const QString name = drive.name();
        const QString root = drive.rootPath();
        drives.append(
            {root, name.isEmpty() || name == root ? root : root + u" ["_s + name + u"]"_s});
    }
    return drives;
}

QString unreadableReason(const QString& root) {
#ifdef Q_OS_UNIX
    const QByteArray native = QFile::encodeName(root);
    DIR* dir = ::opendir(native.constData());
    if (!dir)
        return QString::fromLocal8Bit(std::strerror(errno));
    errno = 0;
    const bool listed = ::readdir(dir) != nullptr || errno == 0;
    const int error = errno;
    ::closedir(dir);
    if (!listed)
        return QString::fromLocal8Bit(std::strerror(error));
    return {};
#else
    const QDir dir(root);
    if (!dir.exists())
        return u"The device is not ready."_s;
    if (!dir.isReadable())
        return u"Access is denied."_s;
    return {};
#endif
}

} // namespace kestrel::shell
