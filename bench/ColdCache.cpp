#include "ColdCache.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <cstdio>
#include <unistd.h>

namespace kestrel::bench {

namespace {

// Runs a system command; false with its words and output in why.
bool system(const QString& program, const QStringList& arguments, QString& why,
            QString* output = nullptr) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(600000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        why = program + QLatin1Char(' ') + arguments.join(QLatin1Char(' ')) + QStringLiteral(": ") +
              QString::fromLocal8Bit(process.readAll()).trimmed();
        return false;
    }
    if (output)
        *output = QString::fromLocal8Bit(process.readAll()).trimmed();
    return true;
}

class DropCaches : public ColdCache {
public:
    explicit DropCaches(QString tree) : m_tree(std::move(tree)) {}
    QString treePath() const override { return m_tree; }
    QString method() const override { return QStringLiteral("drop_caches"); }
    bool empty() override {
        ::sync();
        QFile drop(QStringLiteral("/proc/sys/vm/drop_caches"));
        if (!drop.open(QIODevice::WriteOnly) || drop.write("3\n") != 2) {
            m_why = drop.errorString();
            return false;
        }
        return true;
    }

private:
    QString m_tree;
};

// A copy of the tree in an ext4 image, attached with direct I/O and mounted
// afresh before each run.
class RemountedImage : public ColdCache {
public:
    RemountedImage(QString image, QString mountPoint)
        : m_image(std::move(image)), m_mountPoint(std::move(mountPoint)) {}
    ~RemountedImage() override { detach(); }

    QString treePath() const override { return m_mountPoint + QStringLiteral("/tree"); }
    QString method() const override { return QStringLiteral("image remounted, direct I/O"); }

    bool empty() override {
        detach();
        if (!system(QStringLiteral("losetup"),
                    {QStringLiteral("--direct-io=on"), QStringLiteral("--find"),
                     QStringLiteral("--show"), m_image},
                    m_why, &m_device))
            return false;
        return system(QStringLiteral("mount"), {m_device, m_mountPoint}, m_why);
    }

    void detach() {
        QString ignored;
        if (!m_device.isEmpty()) {
            system(QStringLiteral("umount"), {m_mountPoint}, ignored);
            system(QStringLiteral("losetup"), {QStringLiteral("-d"), m_device}, ignored);
            m_device.clear();
        }
    }

private:
    QString m_image;
    QString m_mountPoint;
    QString m_device;
};

} // namespace

std::unique_ptr<ColdCache> ColdCache::systemCaches(const QString& tree, QString& why) {
    if (::geteuid() != 0) {
        why = QStringLiteral("emptying the system's caches needs root");
        return nullptr;
    }
    auto drop = std::make_unique<DropCaches>(tree);
    if (!drop->empty()) {
        why = QStringLiteral("/proc/sys/vm/drop_caches cannot be written (%1)").arg(drop->why());
        return nullptr;
    }
    return drop;
}

std::unique_ptr<ColdCache> ColdCache::prepare(const QString& dir, const QString& tree,
                                              int64_t entries,
                                              const std::function<void(const QString&)>& makeTree,
                                              QString& why) {
    if (::geteuid() != 0) {
        why = QStringLiteral("emptying the system's caches needs root");
        return nullptr;
    }
    auto drop = std::make_unique<DropCaches>(tree);
    if (drop->empty())
        return drop;
    for (const char* tool : {"losetup", "mount", "umount", "mkfs.ext4"}) {
        if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty() &&
            !QFileInfo::exists(QStringLiteral("/usr/sbin/") + QLatin1String(tool)) &&
            !QFileInfo::exists(QStringLiteral("/sbin/") + QLatin1String(tool))) {
            why =
                QStringLiteral("/proc/sys/vm/drop_caches cannot be written (%1) and %2 is missing")
                    .arg(drop->why(), QLatin1String(tool));
            return nullptr;
        }
    }
    // The image, made once beside the tree: room for the entries' inodes and
    // folders, sparse on the disk that holds it.
    const QString base = QStringLiteral("%1/cold-%2").arg(dir).arg(entries);
    const QString image = base + QStringLiteral(".img");
    const QString mountPoint = base + QStringLiteral(".mnt");
    QDir().mkpath(mountPoint);
    auto remounted = std::make_unique<RemountedImage>(image, mountPoint);
    if (!QFileInfo::exists(base + QStringLiteral(".done"))) {
        QFile::remove(image);
        const QString inodes = QString::number(entries + entries / 4 + 10000);
        const QString size = QStringLiteral("%1M").arg(512 + entries / 400);
        if (!system(QStringLiteral("truncate"), {QStringLiteral("-s"), size, image}, why) ||
            !system(
                QStringLiteral("mkfs.ext4"),
                {QStringLiteral("-q"), QStringLiteral("-F"), QStringLiteral("-N"), inodes, image},
                why))
            return nullptr;
        if (!remounted->empty()) {
            why = QStringLiteral("/proc/sys/vm/drop_caches cannot be written (%1), and mounting an "
                                 "image failed: %2")
                      .arg(drop->why(), remounted->why());
            return nullptr;
        }
        std::fprintf(stderr, "Copying the tree into %s ...\n", qPrintable(image));
        makeTree(remounted->treePath());
        remounted->detach();
        QFile marker(base + QStringLiteral(".done"));
        marker.open(QIODevice::WriteOnly);
    }
    if (!remounted->empty()) {
        why =
            QStringLiteral(
                "/proc/sys/vm/drop_caches cannot be written (%1), and mounting an image failed: %2")
                .arg(drop->why(), remounted->why());
        return nullptr;
    }
    return remounted;
}

} // namespace kestrel::bench
