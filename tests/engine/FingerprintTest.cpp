// Content fingerprints: taken by the scan as xxhsum -H128 gives them, kept
// beside the snapshot file, and compared.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/file/MetaSideFile.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/ContentFingerprint.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <functional>
#include <map>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

using namespace kestrel::engine;
using kestrel::test::indexOf;
using kestrel::test::TempTree;

namespace {

Snapshot scanned(const TempTree& tree, Outcome* outcome = nullptr) {
    Snapshot s;
    const Outcome done = kestrel::test::scanTree(s, tree, true);
    EXPECT_TRUE(done.ok);
    if (outcome)
        *outcome = done;
    return s;
}

// What xxhsum -H128 prints for a file: its 32 hex digits.
std::string xxhsum(const QString& path) {
    QProcess run;
    run.start(QStringLiteral("xxhsum"), {QStringLiteral("-H2"), path});
    if (!run.waitForFinished(120000) || run.exitCode() != 0)
        return {};
    return run.readAllStandardOutput().left(32).toStdString();
}

std::string hexOf(const Snapshot& s, const char* path) {
    const int32_t i = indexOf(s, QString::fromLatin1(path));
    return s.fingerprints.has(i) ? fingerprintHex(s.fingerprints.at(i)) : std::string("none");
}

// Files of the sizes a reader gets wrong (empty, one byte, a whole read
// block and one past it, several blocks), and one past 4 GiB, sparse, each
// as xxhsum fingerprints it; folders, links and FIFOs get none.
TEST(Fingerprints, AreWhatXxhsumGivesAndOnlyForRegularFiles) {
    if (QStandardPaths::findExecutable(QStringLiteral("xxhsum")).isEmpty())
        GTEST_SKIP() << "xxhsum (Debian's xxhash) is not installed";
    TempTree t;
    const size_t block = size_t(1) << 18;
    const std::vector<std::pair<const char*, size_t>> sizes = {{"empty", 0},
                                                               {"one", 1},
                                                               {"block", block},
                                                               {"block+1", block + 1},
                                                               {"three", 3 * block + 17}};
    for (const auto& [name, size] : sizes) {
        QByteArray bytes(qsizetype(size), '\0');
        for (size_t k = 0; k < size; ++k)
            bytes[qsizetype(k)] = char(k * 131 + size);
        t.file(QString::fromLatin1(name), bytes);
    }
    t.sparseFile(QStringLiteral("sparse"), (int64_t(1) << 32) + 5);
    t.folder(QStringLiteral("dir"));
    t.symlink(QStringLiteral("link"), QStringLiteral("one"));
    t.fifo(QStringLiteral("fifo"));

    // A file read last a year ago keeps that access time after the scan.
    const QByteArray onePath = QFile::encodeName(t.root() + QStringLiteral("one"));
    const struct timespec yearAgo[2] = {{::time(nullptr) - 365 * 86400, 0}, {0, UTIME_OMIT}};
    ASSERT_EQ(::utimensat(AT_FDCWD, onePath.constData(), yearAgo, 0), 0);

    Outcome outcome;
    const Snapshot s = scanned(t, &outcome);
    struct stat one;
    ASSERT_EQ(::stat(onePath.constData(), &one), 0);
    EXPECT_EQ(one.st_atim.tv_sec, yearAgo[0].tv_sec);
    for (const auto& [name, size] : sizes)
        EXPECT_EQ(hexOf(s, name), xxhsum(t.root() + QString::fromLatin1(name))) << name;
    EXPECT_EQ(hexOf(s, "sparse"), xxhsum(t.root() + QStringLiteral("sparse")));
    for (const char* none : {"dir", "link", "fifo"})
        EXPECT_EQ(hexOf(s, none), "none") << none;
    EXPECT_EQ(s.fingerprints.count(), sizes.size() + 1);
    EXPECT_EQ(s.fingerprints.unreadable, 0);
    EXPECT_FALSE(outcome.summary.contains(QStringLiteral("could not be read")));

    // In a folder anyone may change, files are taken and checked before
    // they are opened: the same fingerprints, the FIFO still never opened.
    t.chmod(QString(), 0777);
    const Snapshot shared = scanned(t);
    t.chmod(QString(), 0700);
    for (const auto& [name, size] : sizes)
        EXPECT_EQ(hexOf(shared, name), hexOf(s, name)) << name;
    EXPECT_EQ(hexOf(shared, "fifo"), "none");
}

// What lstat showed is not always what is opened a moment later. In a
// folder only this user may change, a file is opened without asking first:
// whatever took its place since, a FIFO, a folder, a longer or a shorter
// file, gets no fingerprint, and only a file of the very size is read as it.
TEST(Fingerprints, AnItemExchangedSinceItWasExaminedIsNotTakenForIt) {
    TempTree t;
    t.chmod(QString(), 0700);
    const QByteArray contents("twelve bytes");
    const QString root = t.root();
    const QByteArray rootPath = QFile::encodeName(root);
    const int dirFd = ::open(rootPath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(dirFd, 0);
    const ProcessIdentity who = ProcessIdentity::current();
    const ReadingFolder folder = readingFolder(dirFd, who);
    ASSERT_TRUE(folder.trusted);
    const auto examined = [&](const QString& name) {
        struct stat st {};
        EXPECT_EQ(::fstatat(dirFd, QFile::encodeName(name).constData(), &st, AT_SYMLINK_NOFOLLOW),
                  0);
        return st;
    };
    const auto exchange = [&](const QString& name, const std::function<void()>& make) {
        t.file(name, contents);
        const struct stat before = examined(name);
        // Kept under another name, the old file keeps its inode from the new one.
        EXPECT_TRUE(QFile::rename(root + name, root + name + QStringLiteral(".old")));
        make();
        return fingerprintFileAt(dirFd, QFile::encodeName(name).constData(), before, folder);
    };
    const std::optional<Fingerprint> itself =
        exchange(QStringLiteral("same"), [&] { t.file(QStringLiteral("same"), contents); });
    ASSERT_TRUE(itself.has_value());
    EXPECT_FALSE(exchange(QStringLiteral("fifo"), [&] { t.fifo(QStringLiteral("fifo")); }));
    EXPECT_FALSE(exchange(QStringLiteral("dir"), [&] { t.folder(QStringLiteral("dir")); }));
    EXPECT_FALSE(exchange(QStringLiteral("longer"),
                          [&] { t.file(QStringLiteral("longer"), contents + contents); }));
    EXPECT_FALSE(exchange(QStringLiteral("shorter"),
                          [&] { t.file(QStringLiteral("shorter"), contents.left(3)); }));
    ::close(dirFd);
}

// A file nobody may read is counted and has no fingerprint; the scan goes on.
TEST(Fingerprints, AnUnreadableFileIsCountedAndTheScanGoesOn) {
    TempTree t;
    t.file(QStringLiteral("secret"), "x");
    t.file(QStringLiteral("secret-empty"));
    t.file(QStringLiteral("plain"), "y");
    t.file(QStringLiteral("plain-empty"));
    t.chmod(QString(), 0755);
    for (const char* name : {"plain", "plain-empty"})
        t.chmod(QString::fromLatin1(name), 0644);
    for (const char* name : {"secret", "secret-empty"})
        t.chmod(QString::fromLatin1(name), 0);
    const auto check = [&] {
        Outcome outcome;
        const Snapshot s = scanned(t, &outcome);
        return s.fingerprints.unreadable == 2 && hexOf(s, "secret") == "none" &&
               hexOf(s, "secret-empty") == "none" && hexOf(s, "plain") != "none" &&
               hexOf(s, "plain-empty") != "none" &&
               outcome.summary.endsWith(QStringLiteral(", 2 files could not be read"));
    };
    const std::optional<bool> passed = kestrel::test::passesWherePermissionsHold(check);
    for (const char* name : {"secret", "secret-empty"})
        t.chmod(QString::fromLatin1(name), 0600);
    if (!passed)
        GTEST_SKIP() << "cannot give up root here";
    EXPECT_TRUE(*passed);
}

// Saved and loaded again, a snapshot has the same fingerprints; side data
// whose fingerprints are damaged is not used at all, and a snapshot made
// without them has none after a load either.
TEST(Fingerprints, TravelInTheSideFile) {
    TempTree t;
    t.file(QStringLiteral("a"), "alpha");
    t.file(QStringLiteral("sub/b"), "beta");
    t.file(QStringLiteral("sub/empty"));
    Snapshot s = scanned(t);
    ASSERT_EQ(s.fingerprints.count(), 3u);
    const std::string side = metaSideData(s);

    ASSERT_TRUE(readMetaSideData(s, side));
    for (const char* path : {"a", "sub/b", "sub/empty"})
        EXPECT_EQ(hexOf(s, path), fingerprintHex(s.fingerprints.at(indexOf(s, path))));
    Snapshot copy = scanned(t);
    copy.fingerprints.clear();
    ASSERT_TRUE(readMetaSideData(copy, side));
    EXPECT_TRUE(copy.fingerprints.taken());
    for (const char* path : {"a", "sub/b", "sub/empty"})
        EXPECT_EQ(hexOf(copy, path), hexOf(s, path)) << path;

    // One byte of a fingerprint changed: the side file's own checksum fails.
    std::string damaged = side;
    damaged[damaged.size() - 12] ^= 1;
    EXPECT_FALSE(readMetaSideData(copy, damaged));
    EXPECT_FALSE(copy.fingerprints.taken() || copy.access.has(1));

    s.fingerprints.clear();
    const std::string without = metaSideData(s);
    ASSERT_TRUE(readMetaSideData(copy, without));
    EXPECT_FALSE(copy.fingerprints.taken());
    EXPECT_TRUE(copy.access.has(1));
}

// Between two scans: a rewrite of the same size and a back-dated rewrite
// are content changes, a touch is none unless asked, and files without a
// fingerprint on one side compare as without fingerprints.
TEST(Fingerprints, TellTouchedFromChanged) {
    TempTree t;
    for (const char* name : {"touched", "rewritten", "backdated", "same"})
        t.file(QString::fromLatin1(name), "original");
    t.touch(QStringLiteral("backdated"), 1000000000);
    Snapshot before = scanned(t);
    t.touch(QStringLiteral("touched"), 1500000000);
    t.file(QStringLiteral("rewritten"), "Original");
    t.file(QStringLiteral("backdated"), "ORIGINAL");
    t.touch(QStringLiteral("backdated"), 1000000000);

    const auto statusOf = [&](const CompareOptions& options) {
        Snapshot newer = scanned(t);
        ProgressMeter meter;
        EXPECT_TRUE(CompareSnapshot(newer, 1, before, 1, true, options, meter).ok);
        std::map<std::string, int16_t> status;
        for (const char* name : {"touched", "rewritten", "backdated", "same"})
            status[name] = newer.entry(indexOf(newer, QString::fromLatin1(name))).status;
        return std::pair(status, WhatChanged(newer, before, indexOf(newer, "touched"), options));
    };
    CompareOptions ignoring;
    ignoring.ignoreTouched = true;
    auto [status, text] = statusOf(ignoring);
    EXPECT_EQ(status["touched"], 0);
    EXPECT_EQ(status["rewritten"] & Change::Content, Change::Content);
    EXPECT_EQ(status["backdated"], Change::Content);
    EXPECT_EQ(status["same"], 0);
    EXPECT_EQ(text, QString());

    std::tie(status, text) = statusOf({});
    EXPECT_EQ(status["touched"], Change::Date);
    EXPECT_TRUE(text.endsWith(QStringLiteral("touched, content unchanged]"))) << text.toStdString();

    // Without fingerprints on the old side: as before fingerprints.
    before.fingerprints.clear();
    std::tie(status, text) = statusOf(ignoring);
    EXPECT_EQ(status["touched"], Change::Date);
    EXPECT_EQ(status["backdated"], 0);
}

} // namespace
