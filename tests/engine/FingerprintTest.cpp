// Content fingerprints: taken by the scan as xxhsum -H128 gives them, kept
// beside the snapshot file, and compared.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/scan/ContentFingerprint.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <fcntl.h>
#include <map>
#include <sys/stat.h>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

Snapshot scanned(const TempTree& tree, Outcome* outcome = nullptr) {
    Snapshot s;
    const Outcome done = scanTree(s, tree, true);
    EXPECT_TRUE(done.ok);
    if (outcome)
        *outcome = done;
    return s;
}

// What xxhsum -H128 prints for a file: its 32 hex digits.
std::string xxhsum(const QString& path) {
    const ProgramRun run =
        runProgram(u"xxhsum"_s, {u"-H2"_s, path}, QDir::tempPath(), {}, {}, 120000);
    return run.status == 0 ? run.out.left(32).toStdString() : std::string();
}

std::string hexOf(const Snapshot& s, const char* path) {
    const int32_t i = indexOf(s, QString::fromLatin1(path));
    return s.fingerprints.has(i) ? fingerprintHex(s.fingerprints.at(i)) : std::string("none");
}

// Files of the sizes a reader gets wrong (empty, one byte, a whole read
// block of 256 KiB and one past it, several blocks: fN holds N bytes), and
// one past 4 GiB, sparse, each as xxhsum fingerprints it; folders, links
// and FIFOs get none.
TEST(Fingerprints, AreWhatXxhsumGivesAndOnlyForRegularFiles) {
    if (QStandardPaths::findExecutable(u"xxhsum"_s).isEmpty())
        GTEST_SKIP() << "xxhsum (Debian's xxhash) is not installed";
    TempTree t;
    const size_t block = size_t(1) << 18;
    for (const size_t size : {size_t(0), size_t(1), block, block + 1, 3 * block + 17}) {
        QByteArray bytes(qsizetype(size), '\0');
        for (size_t k = 0; k < size; ++k)
            bytes[qsizetype(k)] = char(k * 131 + size);
        t.file(u"f%1"_s.arg(size), bytes);
    }
    t.sparseFile(u"sparse"_s, (int64_t(1) << 32) + 5);
    t.folder(u"dir"_s);
    t.symlink(u"link"_s, u"f1"_s);
    t.fifo(u"fifo"_s);

    // A file read last a year ago keeps that access time after the scan.
    const QByteArray onePath = QFile::encodeName(t.root() + u"f1"_s);
    const struct timespec yearAgo[2] = {{::time(nullptr) - 365 * 86400, 0}, {0, UTIME_OMIT}};
    ASSERT_EQ(::utimensat(AT_FDCWD, onePath.constData(), yearAgo, 0), 0);

    Outcome outcome;
    const Snapshot s = scanned(t, &outcome);
    struct stat one {};
    ASSERT_EQ(::stat(onePath.constData(), &one), 0);
    EXPECT_EQ(one.st_atim.tv_sec, yearAgo[0].tv_sec);
    for (const char* name : {"f0", "f1", "f262144", "f262145", "f786449", "sparse"})
        EXPECT_EQ(hexOf(s, name), xxhsum(t.root() + QString::fromLatin1(name))) << name;
    for (const char* none : {"dir", "link", "fifo"})
        EXPECT_EQ(hexOf(s, none), "none") << none;
    EXPECT_EQ(s.fingerprints.count(), 6u);
    EXPECT_EQ(s.fingerprints.unreadable, 0);
    EXPECT_FALSE(outcome.summary.contains(u"could not be read"_s));

    // In a folder anyone may change, files are taken and checked before
    // they are opened: the same fingerprints, the FIFO still never opened.
    t.chmod(QString(), 0777);
    const Snapshot shared = scanned(t);
    t.chmod(QString(), 0700);
    for (const char* name : {"f0", "f1", "f262144", "f262145", "f786449", "sparse", "fifo"})
        EXPECT_EQ(hexOf(shared, name), hexOf(s, name)) << name;
}

// A file nobody may read, empty or not, is counted and has no fingerprint;
// the scan goes on to the others.
TEST(Fingerprints, AnUnreadableFileIsCountedAndTheScanGoesOn) {
    TempTree t;
    t.file(u"secret"_s, "x");
    t.file(u"secret-empty"_s);
    t.file(u"plain"_s, "y");
    t.chmod(QString(), 0755);
    t.chmod(u"plain"_s, 0644);
    for (const QString& name : {u"secret"_s, u"secret-empty"_s})
        t.chmod(name, 0);
    const std::optional<bool> passed = kestrel::test::passesWherePermissionsHold([&] {
        Outcome outcome;
        const Snapshot s = scanned(t, &outcome);
        return s.fingerprints.unreadable == 2 && hexOf(s, "secret") == "none" &&
               hexOf(s, "secret-empty") == "none" && hexOf(s, "plain") != "none" &&
               outcome.summary.endsWith(u", 2 files could not be read"_s);
    });
    if (!passed)
        GTEST_SKIP() << "cannot give up root here";
    EXPECT_TRUE(*passed);
}

// What lstat showed is not always what is opened a moment later. In a
// folder only this user may change, a file is opened without asking first:
// whatever took its place since, a FIFO, a folder, a longer or a shorter
// file, gets no fingerprint, and only a file of the very size is read as it.
TEST(Fingerprints, AnItemExchangedSinceItWasExaminedIsNotTakenForIt) {
    TempTree t;
    t.chmod(QString(), 0700);
    const QByteArray contents("twelve bytes");
    const int dirFd = ::open(QFile::encodeName(t.root()).constData(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(dirFd, 0);
    const ProcessIdentity who = ProcessIdentity::current();
    const ReadingFolder folder = readingFolder(dirFd, who);
    ASSERT_TRUE(folder.trusted);
    const auto exchange = [&](const QString& name, const std::function<void()>& make) {
        t.file(name, contents);
        const QByteArray bytes = QFile::encodeName(name);
        struct stat before {};
        EXPECT_EQ(::fstatat(dirFd, bytes.constData(), &before, AT_SYMLINK_NOFOLLOW), 0);
        // Kept under another name, the old file keeps its inode from the new one.
        EXPECT_TRUE(QFile::rename(t.root() + name, t.root() + name + u".old"_s));
        make();
        return fingerprintFileAt(dirFd, bytes.constData(), before, folder);
    };
    EXPECT_TRUE(exchange(u"same"_s, [&] { t.file(u"same"_s, contents); }).has_value());
    EXPECT_FALSE(exchange(u"fifo"_s, [&] { t.fifo(u"fifo"_s); }));
    EXPECT_FALSE(exchange(u"dir"_s, [&] { t.folder(u"dir"_s); }));
    EXPECT_FALSE(exchange(u"longer"_s, [&] { t.file(u"longer"_s, contents + contents); }));
    EXPECT_FALSE(exchange(u"shorter"_s, [&] { t.file(u"shorter"_s, contents.left(3)); }));
    ::close(dirFd);
}

// Between two scans: a rewrite of the same size and a back-dated rewrite
// are content changes, a touch is none unless asked, and files without a
// fingerprint on one side compare as without fingerprints.
TEST(Fingerprints, TellTouchedFromChanged) {
    TempTree t;
    for (const char* name : {"touched", "rewritten", "backdated", "same"})
        t.file(QString::fromLatin1(name), "original");
    t.touch(u"backdated"_s, 1000000000);
    Snapshot before = scanned(t);
    t.touch(u"touched"_s, 1500000000);
    t.file(u"rewritten"_s, "Original");
    t.file(u"backdated"_s, "ORIGINAL", 1000000000);

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
    EXPECT_TRUE(text.endsWith(u"touched, content unchanged]"_s)) << text.toStdString();

    // Without fingerprints on the old side: as before fingerprints.
    before.fingerprints.clear();
    std::tie(status, text) = statusOf(ignoring);
    EXPECT_EQ(status["touched"], Change::Date);
    EXPECT_EQ(status["backdated"], 0);
}

} // namespace
