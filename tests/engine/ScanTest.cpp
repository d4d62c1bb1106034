#include "TestSupport.h"

#include "engine/compare/IgnorePatterns.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/DirectoryReader.h"
#include "engine/scan/Scan.h"
#include "engine/support/OleDate.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using namespace kestrel::engine;
using kestrel::test::EntryFields;
using kestrel::test::expectSoundSnapshot;
using kestrel::test::fieldsOf;
using kestrel::test::indexOf;
using kestrel::test::RecordingView;
using kestrel::test::ringOf;
using kestrel::test::TempTree;
using namespace Qt::StringLiterals;

namespace {

// A meter's view that keeps the notes it is given.
struct RecordingNotes : RecordingView {
    std::vector<QString> notes;
    void meterNote(const QString& note) override { notes.push_back(note); }
};

struct Scan {
    Snapshot snapshot;
    Outcome outcome;
};

Scan scan(const TempTree& tree, bool recurse = true, bool hidden = true, int threads = -1,
          ProgressMeter* meter = nullptr, ScanSettings settings = {}) {
    Scan s;
    s.snapshot.header.rootFolder = tree.root();
    s.snapshot.header.recurse = recurse;
    s.snapshot.header.hidden = hidden;
    settings.listingThreads = threads;
    ProgressMeter quiet;
    s.outcome = CreateSnapshot(s.snapshot, settings, meter ? *meter : quiet);
    return s;
}

// The names of a folder in the order the file system lists them, without dot names.
std::vector<std::string> listed(const QString& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    while (const dirent* de = ::readdir(dir))
        if (de->d_name[0] != '.')
            names.emplace_back(de->d_name);
    ::closedir(dir);
    return names;
}

TEST(Scan, RecordsTheTreeDepthFirstInListingOrder) {
    TempTree t;
    t.file(QStringLiteral("a/x.txt"));
    t.file(QStringLiteral("a/y.dat"), QByteArray(70000, 'y'));
    t.file(QStringLiteral("a/deep/only.txt"), "1");
    t.folder(QStringLiteral("empty"));
    t.file(QStringLiteral("b.txt"), "bb");
    t.folder(QStringLiteral("c"));
    t.folder(QStringLiteral("c/c1"));
    t.folder(QStringLiteral("c/c2"));

    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    const Snapshot& snap = s.snapshot;
    EXPECT_EQ(kestrel::test::countsOf(snap), std::tuple(10, 4, 6, 70003.0));
    expectSoundSnapshot(snap);

    // Each folder's ring holds its items in the order the system lists them.
    for (const QString& folder : {QString(), QStringLiteral("a"), QStringLiteral("c")}) {
        const int32_t index = folder.isEmpty() ? 0 : indexOf(snap, folder);
        std::vector<std::string> names;
        for (int32_t i : ringOf(snap, index + 1))
            names.emplace_back(snap.name(i));
        EXPECT_EQ(names, listed(t.root() + folder)) << folder.toStdString();
    }
    // A folder with one entry links it to itself; an empty folder has no ring.
    const int32_t only = indexOf(snap, QStringLiteral("a/deep/only.txt"));
    EXPECT_EQ(snap.entry(only).nextSibling, only);
    const int32_t empty = indexOf(snap, QStringLiteral("empty"));
    EXPECT_FALSE(hasContents(snap, empty));
    EXPECT_EQ(snap.entry(empty).count, 0);

    EXPECT_EQ(snap.entry(indexOf(snap, QStringLiteral("a/y.dat"))).size, 70000);
    EXPECT_EQ(snap.entry(indexOf(snap, QStringLiteral("a/x.txt"))).attributes, 128);
    EXPECT_EQ(snap.entry(indexOf(snap, QStringLiteral("c/c1"))).attributes, 16);
    EXPECT_TRUE(
        s.outcome.summary.startsWith(QStringLiteral("Kestrel found 4 files and 6 folders in ")));
    EXPECT_GT(snap.header.created, 40000);
}

TEST(Scan, ModifiedIsLocalTimeToTheSecondInFileForm) {
    TempTree t;
    t.file(QStringLiteral("f"));
    const time_t when = 1700000000; // 2023-11-14 22:13:20 UTC
    t.touch(QStringLiteral("f"), when);
    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    struct tm local;
    localtime_r(&when, &local);
    const double expected =
        roundTo15Digits(oleDateFromParts(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                         local.tm_hour, local.tm_min, local.tm_sec));
    EXPECT_EQ(s.snapshot.entry(1).modified, expected);
}

// A name beginning with a dot is a hidden item: recorded with the hidden bit
// when hidden items are asked for, otherwise left out with everything beneath
// it, like system items, and counted.
TEST(Scan, DotNamesAreHiddenItems) {
    TempTree t;
    t.file(QStringLiteral(".profile"));
    t.chmod(QStringLiteral(".profile"), 0444);
    t.file(QStringLiteral(".git/config"));
    t.file(QStringLiteral("..odd"));
    t.file(QStringLiteral("kept/.inner"));
    t.file(QStringLiteral("kept/visible"));
    t.symlink(QStringLiteral(".link"), QStringLiteral("kept"));
    t.fifo(QStringLiteral("pipe"));

    const Scan withHidden = scan(t, true, true);
    ASSERT_TRUE(withHidden.outcome.ok);
    const Snapshot& all = withHidden.snapshot;
    EXPECT_EQ(all.entryCount, 9);
    const std::vector<std::pair<const char*, int>> expected = {
        {".profile", 3},    {".git", 18},    {".git/config", 128}, {"..odd", 2},
        {"kept/.inner", 2}, {".link", 1026}, {"pipe", 4},          {"kept/visible", 128}};
    for (const auto& [path, attributes] : expected)
        EXPECT_EQ(all.entry(indexOf(all, QString::fromLatin1(path))).attributes, attributes)
            << path;
    EXPECT_EQ(all.hiddenLeftOut, 0);
    EXPECT_FALSE(withHidden.outcome.summary.contains(QStringLiteral("left out")));
    // Folder counting for the meter counts dot folders whatever the flag.
    EXPECT_EQ(CountFolders(t.root(), 1, 3), 2);

    const Scan withoutHidden = scan(t, true, false);
    ASSERT_TRUE(withoutHidden.outcome.ok);
    const Snapshot& shown = withoutHidden.snapshot;
    EXPECT_EQ(shown.entryCount, 2);
    EXPECT_NE(indexOf(shown, QStringLiteral("kept/visible")), 0);
    EXPECT_EQ(shown.hiddenLeftOut, 6);
    EXPECT_TRUE(
        withoutHidden.outcome.summary.endsWith(QStringLiteral(" 6 hidden entries left out")))
        << withoutHidden.outcome.summary.toStdString();
}

TEST(Scan, WithoutRecurseRecordsSubFoldersButNotTheirContents) {
    TempTree t;
    t.file(QStringLiteral("sub/inner.txt"));
    t.file(QStringLiteral("top.txt"));
    const Scan s = scan(t, false);
    ASSERT_TRUE(s.outcome.ok);
    EXPECT_EQ(s.snapshot.entryCount, 2);
    const int32_t sub = indexOf(s.snapshot, QStringLiteral("sub"));
    EXPECT_TRUE(s.snapshot.entry(sub).isFolder());
    EXPECT_FALSE(hasContents(s.snapshot, sub));
}

TEST(Scan, RecordsLinksAsFilesWithoutFollowingThem) {
    TempTree t;
    t.file(QStringLiteral("target/inside.txt"), "abc");
    t.symlink(QStringLiteral("to-file"), QStringLiteral("target/inside.txt"));
    t.symlink(QStringLiteral("to-folder"), QStringLiteral("target"));
    t.symlink(QStringLiteral("dangling"), QStringLiteral("nowhere"));
    auto expectLinks = [&](const Snapshot& snap, int32_t entries,
                           std::initializer_list<const char*> links) {
        EXPECT_EQ(snap.entryCount, entries);
        for (const char* link : links) {
            const SnapshotEntry& e = snap.entry(indexOf(snap, QString::fromLatin1(link)));
            EXPECT_EQ(e.attributes, Attribute::ReparsePoint) << link;
            EXPECT_FALSE(e.isFolder());
        }
        expectSoundSnapshot(snap);
    };
    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    expectLinks(s.snapshot, 5, {"to-file", "to-folder", "dangling"});
    EXPECT_EQ(s.snapshot.entry(indexOf(s.snapshot, QStringLiteral("to-folder"))).size, 6);

    // Links that loop, and one back up the tree, are recorded and never entered.
    t.symlink(QStringLiteral("loop-a"), QStringLiteral("loop-b"));
    t.symlink(QStringLiteral("loop-b"), QStringLiteral("loop-a"));
    t.symlink(QStringLiteral("target/up"), QStringLiteral(".."));
    const Scan loops = scan(t);
    ASSERT_TRUE(loops.outcome.ok);
    expectLinks(loops.snapshot, 8, {"loop-a", "loop-b", "target/up", "dangling"});
}

// Sizes are the files' own, however large: a sparse file of 200 TiB is an
// entry like any other.
TEST(Scan, RecordsTrueSizesOfLargeAndSparseFiles) {
    TempTree t;
    const int64_t threeGb = 3000000000, fourGib = int64_t(1) << 32;
    t.sparseFile(QStringLiteral("three-gb"), threeGb);
    t.sparseFile(QStringLiteral("four-gib"), fourGib);
    t.file(QStringLiteral("small"), QByteArray(70000, 's'));
    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    const Snapshot& snap = s.snapshot;
    EXPECT_EQ(snap.entry(indexOf(snap, QStringLiteral("three-gb"))).size, double(threeGb));
    EXPECT_EQ(snap.entry(indexOf(snap, QStringLiteral("four-gib"))).size, double(fourGib));
    EXPECT_EQ(snap.totalSize, double(threeGb) + double(fourGib) + 70000);

    // ext4 stops at 16 TiB; a memory-backed file system takes 200 TiB.
    const int64_t huge = int64_t(200) << 40;
    QTemporaryDir shm(QStringLiteral("/dev/shm/kestrel-XXXXXX"));
    for (const QString& folder :
         {t.root() + QStringLiteral("huge/"), shm.path() + QLatin1Char('/')}) {
        const QByteArray file = QFile::encodeName(folder + QStringLiteral("sparse"));
        QDir().mkpath(folder);
        ::close(::open(file.constData(), O_CREAT | O_WRONLY, 0644));
        if (::truncate(file.constData(), huge) != 0)
            continue;
        Snapshot big;
        big.header.rootFolder = folder;
        ProgressMeter meter;
        ASSERT_TRUE(CreateSnapshot(big, {}, meter).ok);
        EXPECT_EQ(big.entry(1).size, double(huge));
        EXPECT_EQ(big.totalSize, double(huge));
        return;
    }
    GTEST_SKIP() << "no file system here takes a file of 200 TiB";
}

// Names at the system's limits: 255 bytes (in one-byte and in multi-byte
// characters), and bytes that are not UTF-8 on a folder the scan must enter
// and on a root folder. (The hostile trees' tests take paths far past the
// 4,096 bytes the system takes whole.)
TEST(Scan, NamesAndPathsAtTheSystemsLimits) {
    TempTree t;
    const std::string longAscii(255, 'n');
    std::string longWide;
    while (longWide.size() + 2 <= 255)
        longWide += "\xC3\xA4"; // ä
    t.file(QString::fromStdString(longAscii), "1");
    t.file(QString::fromStdString(longWide), "22");
    const QByteArray root = QFile::encodeName(t.root());
    ASSERT_EQ(::mkdir((root + "bad\xFF\xFEname").constData(), 0755), 0);
    ASSERT_EQ(::close(::open((root + "bad\xFF\xFEname/inside.txt").constData(), O_CREAT | O_WRONLY,
                             0644)),
              0);

    for (int threads : {0, 2}) {
        const Scan s = scan(t, true, true, threads);
        ASSERT_TRUE(s.outcome.ok);
        const Snapshot& snap = s.snapshot;
        expectSoundSnapshot(snap);
        EXPECT_EQ(snap.entryCount, 2 + 2);
        EXPECT_EQ(snap.name(indexOf(snap, QString::fromStdString(longAscii))).size(), 255u);
        EXPECT_NE(indexOf(snap, QString::fromStdString(longWide)), 0);
        // Kept with its bad bytes marked, the folder's name still leads to its contents.
        EXPECT_NE(indexOf(snap, QStringLiteral("bad\\xFF\\xFEname/inside.txt")), 0);
    }
    // The folder whose name is not UTF-8 as the root: kept marked as its
    // names are, and scanned again from that, as Repeat does.
    Scan bad;
    bad.snapshot.header.rootFolder =
        storedPath(nativeText((root + "bad\xFF\xFEname/").toStdString()));
    EXPECT_EQ(bad.snapshot.header.rootFolder, t.root() + QStringLiteral("bad\\xFF\\xFEname/"));
    ProgressMeter meter;
    ASSERT_TRUE(CreateSnapshot(bad.snapshot, {}, meter).ok);
    EXPECT_EQ(bad.snapshot.entryCount, 1);
    EXPECT_EQ(bad.snapshot.name(1), "inside.txt");
}

// While the scans run, another thread changes the tree: files created and
// deleted, a folder with contents made and removed, a file replaced by a
// folder and back.
TEST(Scan, TreeChangingDuringTheScanGivesASoundSnapshot) {
    TempTree t;
    for (int i = 0; i < 30; ++i)
        t.file(QStringLiteral("stable/s%1/f").arg(i), "abc");
    t.folder(QStringLiteral("churn"));
    const std::string churn = QFile::encodeName(t.root()).toStdString() + "churn/";
    const auto touch = [](const std::string& file) {
        ::close(::open(file.c_str(), O_CREAT | O_WRONLY, 0644));
    };
    // Stopped and joined when the test ends, however it ends.
    std::atomic<int> rounds{0};
    std::jthread changer([&](std::stop_token stop) {
        for (int k = 0; !stop.stop_requested(); ++k, ++rounds) {
            const std::string file = churn + "f" + std::to_string(k % 40);
            k % 2 == 0 ? touch(file) : void(::unlink(file.c_str()));
            const std::string folder = churn + "d" + std::to_string(k % 4);
            const bool made = ::mkdir(folder.c_str(), 0755) == 0;
            for (int i = 0; i < 5; ++i)
                made ? touch(folder + "/x" + std::to_string(i))
                     : void(::unlink((folder + "/x" + std::to_string(i)).c_str()));
            if (!made)
                ::rmdir(folder.c_str());
            const std::string swap = churn + "swap";
            if (::unlink(swap.c_str()) == 0) {
                ::mkdir(swap.c_str(), 0755);
                touch(swap + "/in");
            } else {
                ::unlink((swap + "/in").c_str());
                ::rmdir(swap.c_str());
                touch(swap);
            }
        }
    });
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const Scan s = scan(t, true, true, round % 3);
        // Nothing beyond what any scan may say: the tree is never empty.
        ASSERT_TRUE(s.outcome.ok) << (s.outcome.message ? s.outcome.message->text.toStdString()
                                                        : "");
        EXPECT_FALSE(s.outcome.message);
        expectSoundSnapshot(s.snapshot);
        EXPECT_NE(indexOf(s.snapshot, QStringLiteral("stable/s29/f")), 0);
    }
    EXPECT_GT(rounds, 0);
}

// The system starts no more threads: the workers already started are joined
// and the scan fails with the system's text; past the start, workers that
// cannot be added are done without.
TEST(Scan, ThreadsThatCannotStartEndTheScanCleanly) {
    TempTree t;
    for (int i = 0; i < 40; ++i)
        t.file(QStringLiteral("d%1/e/f").arg(i));
    std::atomic<int> started{0}, finished{0};
    int allowed = 2;
    ScanSettings settings;
    settings.startThread = [&](std::function<void()> run) {
        if (started == allowed)
            throw std::system_error(
                std::make_error_code(std::errc::resource_unavailable_try_again));
        ++started;
        return std::thread([run = std::move(run), &finished] {
            run();
            ++finished;
        });
    };
    const Scan failed = scan(t, true, true, 4, nullptr, settings);
    EXPECT_FALSE(failed.outcome.ok);
    EXPECT_EQ(finished, 2);
    kestrel::test::expectMessage(failed.outcome.message, QStringLiteral("Kestrel"),
                                 QString::fromLocal8Bit(std::strerror(EAGAIN)),
                                 MessageIcon::Exclamation);

    started = finished = 0;
    allowed = 1;
    settings.assumeDeviceWaits = true;
    const Scan grown = scan(t, true, true, -1, nullptr, settings);
    EXPECT_TRUE(grown.outcome.ok);
    EXPECT_EQ(grown.snapshot.entryCount, 120);
}

// Exceptions at the boundary of a long operation become its message: the
// system's own text for memory and threads.
TEST(Scan, ExceptionsBecomeMessagesWithTheOperationsTitle) {
    const QString title = QStringLiteral("Comparing Snapshots");
    const std::vector<std::pair<std::function<Outcome()>, QString>> cases = {
        {[]() -> Outcome { throw std::bad_alloc(); },
         QString::fromLocal8Bit(std::strerror(ENOMEM))},
        {[]() -> Outcome {
             throw std::system_error(
                 std::make_error_code(std::errc::resource_unavailable_try_again));
         },
         QString::fromLocal8Bit(std::strerror(EAGAIN))},
        {[]() -> Outcome { throw RuntimeError(ErrorCode::Overflow); }, QStringLiteral("Overflow")},
        {[]() -> Outcome { throw std::runtime_error("odd"); }, QStringLiteral("odd")}};
    for (const auto& [operation, text] : cases) {
        const Outcome o = guardedOperation(title, operation);
        EXPECT_FALSE(o.ok);
        kestrel::test::expectMessage(o.message, title, text, MessageIcon::Exclamation);
    }
}

TEST(Scan, GrowsTheTableInStepsAndKeepsEveryEntry) {
    TempTree t;
    for (int i = 0; i < 4200; ++i)
        t.file(QStringLiteral("many/f%1").arg(i));
    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    EXPECT_EQ(s.snapshot.entryCount, 4201);
    EXPECT_EQ(s.snapshot.capacity(), 8192);
    EXPECT_EQ(ringOf(s.snapshot, 2).size(), 4200u);
    std::set<std::string> names;
    for (int32_t i = 2; i <= 4201; ++i)
        names.emplace(s.snapshot.name(i));
    EXPECT_EQ(names.size(), 4200u);
}

TEST(Scan, ThreadsGiveTheSameSnapshotAsOneThread) {
    TempTree t;
    // Folders of very different sizes at several depths, so that workers
    // finish out of order.
    for (int a = 0; a < 6; ++a)
        for (int b = 0; b < a * 3; ++b) {
            t.folder(QStringLiteral("d%1/e%2").arg(a).arg(b));
            for (int c = 0; c < (b % 4) * 20; ++c)
                t.file(QStringLiteral("d%1/e%2/f%3").arg(a).arg(b).arg(c), QByteArray(c, 'x'));
        }
    const Scan single = scan(t, true, true, 0);
    ASSERT_TRUE(single.outcome.ok);
    for (int threads : {1, 2, 4, 8, 32}) {
        SCOPED_TRACE(threads);
        const Scan parallel = scan(t, true, true, threads);
        ASSERT_TRUE(parallel.outcome.ok);
        kestrel::test::expectSameSnapshot(single.snapshot, parallel.snapshot);
    }
    // Workers added during the scan, as on a disk whose listings wait.
    ScanSettings growing;
    growing.assumeDeviceWaits = true;
    const Scan grown = scan(t, true, true, -1, nullptr, growing);
    ASSERT_TRUE(grown.outcome.ok);
    kestrel::test::expectSameSnapshot(single.snapshot, grown.snapshot);
    expectSoundSnapshot(single.snapshot);
}

// A folder that cannot be listed holds one file entry with an empty name, no
// attributes, no size and no date, linked to itself; the items of a folder
// that can be listed but not searched are recorded with their values
// unknown. Both are counted and said.
TEST(Scan, UnreadableFoldersAreRecordedAndSaid) {
    TempTree t;
    t.file(QStringLiteral("locked/secret.txt"));
    t.file(QStringLiteral("unsearchable/listed.txt"), "abc");
    t.folder(QStringLiteral("unsearchable/inner"));
    t.file(QStringLiteral("open.txt"));
    t.chmod(QString(), 0755);
    t.chmod(QStringLiteral("locked"), 0);
    t.chmod(QStringLiteral("unsearchable"), 0644);
    RecordingNotes notes;
    const auto check = [&] {
        ProgressMeter meter(&notes);
        const Scan s = scan(t, true, true, -1, &meter);
        const Snapshot& snap = s.snapshot;
        const int32_t locked = indexOf(snap, QStringLiteral("locked"));
        const int32_t unsearchable = indexOf(snap, QStringLiteral("unsearchable"));
        const int32_t listed = indexOf(snap, QStringLiteral("unsearchable/listed.txt"));
        const int32_t inner = indexOf(snap, QStringLiteral("unsearchable/inner"));
        const bool marker =
            hasContents(snap, locked) &&
            fieldsOf(snap, locked + 1) == EntryFields(0, 0, locked + 1, 0, "", locked, 0, "");
        const bool unknown =
            listed != 0 && snap.entry(listed).attributes == Attribute::Unknown &&
            snap.entry(listed).valuesUnknown() && snap.entry(listed).size == 0 &&
            snap.entry(inner).attributes == (Attribute::Unknown | Attribute::Folder);
        // The folder beneath the unsearchable one cannot be listed either.
        std::vector<int32_t> folders = {locked, unsearchable, inner};
        std::sort(folders.begin(), folders.end());
        return s.outcome.ok && marker && unknown && snap.unreadableFolders == 3 &&
               UnreadableFolders(snap) == folders &&
               s.outcome.summary.endsWith(QStringLiteral(", 3 folders could not be read")) &&
               !notes.notes.empty() &&
               notes.notes.back() == QStringLiteral("3 folders could not be read");
    };
    // Root lists anything: scan as nobody, in a tree nobody may read apart
    // from the two folders.
    const std::optional<bool> passed = kestrel::test::passesWherePermissionsHold(check);
    t.chmod(QStringLiteral("locked"), 0700);
    t.chmod(QStringLiteral("unsearchable"), 0700);
    if (!passed)
        GTEST_SKIP() << "cannot give up root here";
    EXPECT_TRUE(*passed);
}

// Excluded folders are never opened: one nobody may read gives no error,
// and the counts, rings and the meter's maximum leave them out.
TEST(Scan, ExcludedItemsAreNeitherRecordedNorOpened) {
    TempTree t;
    t.file(QStringLiteral("src/a.c"));
    t.file(QStringLiteral("src/a.pyc"));
    t.file(QStringLiteral("src/secret/key"));
    t.file(QStringLiteral("build/out/x.o"));
    t.file(QStringLiteral("docs/build/kept.txt"));
    t.file(QStringLiteral("b.pyc"));
    t.chmod(QString(), 0755);
    t.chmod(QStringLiteral("src/secret"), 0);
    ScanSettings settings;
    settings.exclude =
        std::make_shared<const IgnorePatterns>("*.pyc\nsecret/\n/build\n", u"--exclude"_s);
    const auto check = [&] {
        bool sound = true;
        for (const int threads : {0, 2}) {
            const Scan s = scan(t, true, true, threads, nullptr, settings);
            const Snapshot& snap = s.snapshot;
            sound = sound && s.outcome.ok && snap.unreadableFolders == 0 && snap.entryCount == 5 &&
                    indexOf(snap, u"src/a.c"_s) != 0 &&
                    indexOf(snap, u"docs/build/kept.txt"_s) != 0 &&
                    indexOf(snap, u"src/secret"_s) == 0 && indexOf(snap, u"b.pyc"_s) == 0 &&
                    indexOf(snap, u"build"_s) == 0 && CountFolders(t.root(), 1, 3, settings) == 3;
        }
        // Without the patterns the locked folder is there to be found.
        return sound && scan(t).snapshot.unreadableFolders == 1;
    };
    const std::optional<bool> passed = kestrel::test::passesWherePermissionsHold(check);
    t.chmod(QStringLiteral("src/secret"), 0700);

    // The meter's count asks anchored patterns about each folder's own path,
    // whichever excluded siblings were listed before it.
    TempTree siblings;
    for (int i = 0; i < 10; ++i)
        siblings.file(QStringLiteral("e%1/f").arg(i));
    siblings.file(QStringLiteral("k/inner/f"));
    ScanSettings anchored;
    anchored.exclude = std::make_shared<const IgnorePatterns>("e*/\n/k/inner/\n", u"--exclude"_s);
    EXPECT_EQ(CountFolders(siblings.root(), 1, 3, anchored), 1);
    // Patterns anchored at a depth are asked only that deep: the same names
    // deeper down, or under another folder, stay.
    TempTree deep;
    for (const char* path : {"a/b/x", "a/c/b/x", "c/a/b", "a/b2"})
        deep.file(QString::fromLatin1(path));
    ScanSettings twoDeep;
    twoDeep.exclude = std::make_shared<const IgnorePatterns>("/a/b\n/?/?2\n", u"--exclude"_s);
    for (const int threads : {0, 2}) {
        const Snapshot& snap = scan(deep, true, true, threads, nullptr, twoDeep).snapshot;
        EXPECT_EQ(indexOf(snap, u"a/b"_s), 0);
        EXPECT_EQ(indexOf(snap, u"a/b2"_s), 0);
        EXPECT_NE(indexOf(snap, u"a/c/b/x"_s), 0);
        EXPECT_NE(indexOf(snap, u"c/a/b"_s), 0);
        EXPECT_EQ(snap.entryCount, 7);
    }
    if (!passed)
        GTEST_SKIP() << "cannot give up root here";
    EXPECT_TRUE(*passed);
    const Scan s = scan(t, true, true, -1, nullptr, settings);
    expectSoundSnapshot(s.snapshot);
}

TEST(Scan, OneFileSystemRecordsMountPointsButNotTheirContents) {
    struct stat dev, pts;
    if (::stat("/dev", &dev) != 0 || ::stat("/dev/pts/ptmx", &pts) != 0 || dev.st_dev == pts.st_dev)
        GTEST_SKIP() << "no /dev/pts mounted apart from /dev here";
    Snapshot snap;
    snap.header.rootFolder = QStringLiteral("/dev/");
    snap.header.recurse = snap.header.hidden = true;
    ScanSettings settings;
    settings.oneFileSystem = true;
    ProgressMeter meter;
    ASSERT_TRUE(CreateSnapshot(snap, settings, meter).ok);
    const int32_t folder = indexOf(snap, QStringLiteral("pts"));
    ASSERT_NE(folder, 0);
    EXPECT_FALSE(hasContents(snap, folder));
    expectSoundSnapshot(snap);
}

// The root's .kestrelignore travels with the snapshot; one that is there but
// cannot be read is said, and the scan goes on.
TEST(Scan, OwnIgnoreFileIsRecordedFromARegularFileOnly) {
    TempTree t;
    t.file(QStringLiteral("a.txt"));
    t.file(QStringLiteral(".kestrelignore"), "*.tmp\n");
    const Scan s = scan(t);
    EXPECT_EQ(s.snapshot.header.ownIgnorePatterns, "*.tmp\n");
    EXPECT_TRUE(s.snapshot.ignoreFileProblem.isEmpty());
    EXPECT_TRUE(scan(t, true, false).snapshot.header.ownIgnorePatterns == "*.tmp\n");

    TempTree linked;
    linked.file(QStringLiteral("a.txt"));
    linked.symlink(QStringLiteral(".kestrelignore"), t.root() + QStringLiteral(".kestrelignore"));
    const Scan l = scan(linked);
    EXPECT_TRUE(l.outcome.ok);
    EXPECT_TRUE(l.snapshot.header.ownIgnorePatterns.empty());
    EXPECT_EQ(l.snapshot.ignoreFileProblem, u".kestrelignore: not a regular file"_s);

    t.chmod(QString(), 0755);
    t.chmod(QStringLiteral(".kestrelignore"), 0);
    const auto check = [&] {
        const Scan u = scan(t);
        return u.outcome.ok && u.snapshot.header.ownIgnorePatterns.empty() &&
               u.snapshot.ignoreFileProblem == u".kestrelignore: Permission denied"_s;
    };
    const std::optional<bool> passed = kestrel::test::passesWherePermissionsHold(check);
    if (!passed)
        GTEST_SKIP() << "cannot give up root here";
    EXPECT_TRUE(*passed);
}

TEST(Scan, NothingRecordedGivesTheEmptySnapshotMessage) {
    TempTree t;
    t.file(QStringLiteral(".only-a-hidden-item"));
    EXPECT_TRUE(scan(t, true, true).outcome.ok);
    Scan s = scan(t, true, false);
    EXPECT_FALSE(s.outcome.ok);
    kestrel::test::expectMessage(s.outcome.message, QStringLiteral("Empty Snapshot"),
                                 QStringLiteral("No files or folders match the specifications"),
                                 MessageIcon::Information);
}

TEST(Scan, MissingOrVanishedFolderGivesOneNamelessEntry) {
    TempTree t;
    Snapshot missing;
    missing.header.rootFolder = t.root() + QStringLiteral("\"quoted\"/");
    ProgressMeter meter;
    ASSERT_TRUE(CreateSnapshot(missing, {}, meter).ok);
    EXPECT_EQ(missing.entryCount, 1);
    EXPECT_EQ(fieldsOf(missing, 1), EntryFields(0, 0, 1, 0, "", 0, 0, ""));

    // A sub-folder that goes between its parent's listing and its own.
    t.file(QStringLiteral("going/inside.txt"));
    ListingRules rules;
    rules.recurse = true;
    DirectoryReader reader(rules, 0);
    FolderTask& top = reader.root(QFile::encodeName(t.root()).toStdString());
    reader.list(top);
    ASSERT_EQ(top.listing.children.size(), 1u);
    FolderTask& going = *top.listing.children.front();
    ASSERT_TRUE(QDir(t.root() + QStringLiteral("going")).removeRecursively());
    reader.list(going);
    ASSERT_EQ(going.listing.items.size(), 1u);
    const ListedItem& item = going.listing.items.front();
    EXPECT_EQ(going.listing.name(item), "");
    EXPECT_TRUE(item.attributes == 0 && item.size == 0 && !item.folder);
}

TEST(Scan, MeterCountsFoldersNearTheTopAndCancelEndsTheWalk) {
    TempTree t;
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            for (int c = 0; c < 3; ++c)
                t.file(QStringLiteral("%1/%2/%3/f").arg(a).arg(b).arg(c));

    for (int level = 0; level <= 2; ++level) {
        SCOPED_TRACE(level);
        RecordingView view;
        ProgressMeter meter(&view);
        ScanSettings settings;
        settings.meterLevel = level;
        const Scan s = scan(t, true, true, -1, &meter, settings);
        ASSERT_TRUE(s.outcome.ok);
        const int expectedMaximum = level == 0 ? 3 : level == 1 ? 12 : 39;
        EXPECT_EQ(view.maximum, expectedMaximum);
        EXPECT_EQ(int(view.values.size()),
                  expectedMaximum); // every folder down to the level ticks once
        EXPECT_EQ(view.caption, QStringLiteral("Scanning Directory"));
        EXPECT_EQ(s.snapshot.meterDepth, level + 1);
        EXPECT_EQ(s.snapshot.entry(1).count, expectedMaximum);
        EXPECT_EQ(view.closed, 1);
    }

    RecordingView view;
    ProgressMeter meter(&view);
    view.onValue = [&](int32_t value) {
        if (value == 2)
            meter.cancel();
    };
    const Scan cancelled = scan(t, true, true, -1, &meter);
    EXPECT_FALSE(cancelled.outcome.ok);
    EXPECT_TRUE(cancelled.outcome.cancelled);
    EXPECT_FALSE(cancelled.outcome.message);
    // The walk stopped early, and every folder it recorded still closed its ring.
    EXPECT_LT(cancelled.snapshot.entryCount, 3 + 9 + 27 + 27);
    expectSoundSnapshot(cancelled.snapshot);

    // The next scan starts afresh even when it has no folder to count.
    TempTree flat;
    flat.file(QStringLiteral("only.txt"));
    view.onValue = nullptr;
    const Scan after = scan(flat, true, true, -1, &meter);
    EXPECT_TRUE(after.outcome.ok);
    EXPECT_EQ(after.snapshot.entryCount, 1);
}

TEST(Scan, ReadsVersionsOnlyInsideTheVersionFolder) {
    TempTree t;
    const auto image = kestrel::test::makeImage(false, (5u << 16) | 1, 2600u << 16);
    const QByteArray bytes(reinterpret_cast<const char*>(image.bytes.data()),
                           qsizetype(image.bytes.size()));
    t.file(QStringLiteral("bin/tool.exe"), bytes);
    t.file(QStringLiteral("bin/sub/lib.dll"), bytes);
    t.file(QStringLiteral("other/tool.exe"), bytes);
    t.symlink(QStringLiteral("bin/link.exe"), QStringLiteral("tool.exe"));

    Scan s;
    s.snapshot.header.rootFolder = t.root();
    s.snapshot.header.recurse = true;
    s.snapshot.header.hidden = true;
    s.snapshot.header.versions = true;
    ScanSettings settings;
    settings.versionFolder = t.root() + QStringLiteral("BIN"); // compared without regard to case
    ProgressMeter meter;
    ASSERT_TRUE(CreateSnapshot(s.snapshot, settings, meter).ok);
    const Snapshot& snap = s.snapshot;
    EXPECT_EQ(snap.version(indexOf(snap, QStringLiteral("bin/tool.exe"))), "5.01.2600.00");
    EXPECT_EQ(snap.version(indexOf(snap, QStringLiteral("bin/sub/lib.dll"))), "5.01.2600.00");
    EXPECT_EQ(snap.version(indexOf(snap, QStringLiteral("other/tool.exe"))), "");
    EXPECT_EQ(snap.version(indexOf(snap, QStringLiteral("bin/link.exe"))), "");
}

} // namespace
