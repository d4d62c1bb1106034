#include "TestSupport.h"

#include "engine/compare/IgnorePatterns.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/RingWalk.h"
#include "engine/scan/DirectoryReader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include <QDir>
#include <QFile>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

struct Scan {
    Snapshot snapshot;
    Outcome outcome;
};

Scan scan(const TempTree& tree, const ScanSettings& settings = {}, ProgressMeter* meter = nullptr,
          bool hidden = true) {
    Scan s;
    s.outcome = scanFolder(s.snapshot, tree.root(), settings, meter, hidden);
    return s;
}

// The settings with this number of listing threads.
ScanSettings threads(int n, ScanSettings settings = {}) {
    settings.listingThreads = n;
    return settings;
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

// (expectSoundSnapshot checks the rings, the order and the counts;
// kestrel-cli's tests scan without recursing.)
TEST(Scan, RecordsTheTreeDepthFirstInListingOrder) {
    TempTree t;
    t.file(u"a/x.txt"_s);
    t.file(u"a/y.dat"_s, QByteArray(70000, 'y'));
    t.file(u"a/deep/only.txt"_s, "1");
    t.file(u"b.txt"_s, "bb");
    for (const QString& folder : {u"empty"_s, u"c/c1"_s, u"c/c2"_s})
        t.folder(folder);
    const time_t when = 1700000000; // 2023-11-14 22:13:20 UTC
    t.touch(u"b.txt"_s, when);

    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    const Snapshot& snap = s.snapshot;
    EXPECT_EQ(countsOf(snap), std::tuple(10, 4, 6, 70003.0));
    expectSoundSnapshot(snap);
    EXPECT_TRUE(s.outcome.summary.startsWith(u"Kestrel found 4 files and 6 folders in "_s));
    EXPECT_GT(snap.header.created, 40000);

    // Each folder's ring holds its items in the order the system lists them.
    for (const QString& folder : {QString(), u"a"_s, u"c"_s}) {
        const int32_t index = folder.isEmpty() ? 0 : indexOf(snap, folder);
        std::vector<std::string> names;
        for (int32_t i : ringOf(snap, index + 1))
            names.emplace_back(snap.name(i));
        EXPECT_EQ(names, listed(t.root() + folder)) << folder.toStdString();
    }
    EXPECT_EQ(snap.entry(indexOf(snap, u"a/x.txt"_s)).attributes, 128);
    EXPECT_EQ(snap.entry(indexOf(snap, u"c/c1"_s)).attributes, 16);
    // The modified time is local time to the second, in file form.
    EXPECT_EQ(snap.entry(indexOf(snap, u"b.txt"_s)).modified, localFileDate(when));
}

// A name beginning with a dot is a hidden item: recorded with the hidden bit
// when hidden items are asked for, otherwise left out with everything beneath
// it, like system items, and counted. (kestrel-cli's tests read the count in
// the summary.)
TEST(Scan, DotNamesAreHiddenItems) {
    TempTree t;
    t.file(u".profile"_s);
    t.chmod(u".profile"_s, 0444);
    t.file(u".git/config"_s);
    t.file(u"..odd"_s);
    t.file(u"kept/.inner"_s);
    t.file(u"kept/visible"_s);
    t.symlink(u".link"_s, u"kept"_s);
    t.fifo(u"pipe"_s);

    const Scan withHidden = scan(t);
    ASSERT_TRUE(withHidden.outcome.ok);
    const Snapshot& all = withHidden.snapshot;
    EXPECT_EQ(all.entryCount, 9);
    const std::pair<const char*, int> expected[] = {
        {".profile", 3},    {".git", 18},    {".git/config", 128}, {"..odd", 2},
        {"kept/.inner", 2}, {".link", 1026}, {"pipe", 4},          {"kept/visible", 128}};
    for (const auto& [path, attributes] : expected)
        EXPECT_EQ(all.entry(indexOf(all, QString::fromLatin1(path))).attributes, attributes)
            << path;
    EXPECT_TRUE(all.hiddenLeftOut == 0 && !withHidden.outcome.summary.contains(u"left out"_s));
    // Folder counting for the meter counts dot folders whatever the flag.
    EXPECT_EQ(CountFolders(t.root(), 1, 3), 2);

    const Scan withoutHidden = scan(t, {}, nullptr, false);
    ASSERT_TRUE(withoutHidden.outcome.ok);
    EXPECT_EQ(withoutHidden.snapshot.entryCount, 2);
    EXPECT_NE(indexOf(withoutHidden.snapshot, u"kept/visible"_s), 0);
    EXPECT_EQ(withoutHidden.snapshot.hiddenLeftOut, 6);
}

// Sizes are the items' own: links to a file, to a folder, to nowhere, to
// each other and back up the tree are files the length of their target,
// never entered; files are their true size however large, and a sparse
// file of 200 TiB is an entry like any other.
TEST(Scan, RecordsLinksAndFilesAtTheirOwnSize) {
    TempTree t;
    t.file(u"target/inside.txt"_s, "abc");
    const std::pair<QString, QString> links[] = {{u"to-file"_s, u"target/inside.txt"_s},
                                                 {u"to-folder"_s, u"target"_s},
                                                 {u"dangling"_s, u"nowhere"_s},
                                                 {u"loop-a"_s, u"loop-b"_s},
                                                 {u"loop-b"_s, u"loop-a"_s},
                                                 {u"target/up"_s, u".."_s}};
    for (const auto& [link, target] : links)
        t.symlink(link, target);
    const int64_t threeGb = 3000000000, fourGib = int64_t(1) << 32;
    t.sparseFile(u"three-gb"_s, threeGb);
    t.sparseFile(u"four-gib"_s, fourGib);
    t.file(u"small"_s, QByteArray(70000, 's'));
    const Scan s = scan(t);
    ASSERT_TRUE(s.outcome.ok);
    expectSoundSnapshot(s.snapshot);
    EXPECT_EQ(s.snapshot.entryCount, 11);
    for (const auto& [link, target] : links)
        EXPECT_EQ(s.snapshot.entry(indexOf(s.snapshot, link)).attributes, Attribute::ReparsePoint)
            << link.toStdString();
    EXPECT_EQ(s.snapshot.entry(indexOf(s.snapshot, u"to-folder"_s)).size, 6);
    EXPECT_EQ(s.snapshot.entry(indexOf(s.snapshot, u"three-gb"_s)).size, double(threeGb));
    EXPECT_EQ(s.snapshot.entry(indexOf(s.snapshot, u"four-gib"_s)).size, double(fourGib));
    // With inside.txt's 3 bytes and the links' 17, 6, 7, 6, 6 and 2.
    EXPECT_EQ(s.snapshot.totalSize, double(threeGb) + double(fourGib) + 70000 + 3 + 44);

    // ext4 stops at 16 TiB; a memory-backed file system takes 200 TiB.
    const int64_t huge = int64_t(200) << 40;
    TempTree memory(TempTree::InMemory);
    memory.file(u"sparse"_s);
    if (::truncate(QFile::encodeName(memory.root() + u"sparse"_s).constData(), huge) != 0)
        GTEST_SKIP() << "no file system here takes a file of 200 TiB";
    const Scan big = scan(memory);
    ASSERT_TRUE(big.outcome.ok);
    EXPECT_EQ(big.snapshot.entry(1).size, double(huge));
    EXPECT_EQ(big.snapshot.totalSize, double(huge));
}

// Names at the system's limits: 255 bytes (in one-byte and in multi-byte
// characters), and bytes that are not UTF-8 on a folder the scan must enter
// and on a root folder. (The hostile trees' tests take paths far past the
// 4,096 bytes the system takes whole.)
TEST(Scan, NamesAndPathsAtTheSystemsLimits) {
    TempTree t;
    const QString longAscii(255, u'n');
    const QString longWide(127, u'ä');
    t.file(longAscii, "1");
    t.file(longWide, "22");
    t.file(nativeText("bad\xFF\xFEname/inside.txt"));
    for (int n : {0, 2}) {
        const Scan s = scan(t, threads(n));
        ASSERT_TRUE(s.outcome.ok);
        expectSoundSnapshot(s.snapshot);
        EXPECT_EQ(s.snapshot.entryCount, 4);
        EXPECT_EQ(s.snapshot.name(indexOf(s.snapshot, longAscii)).size(), 255u);
        EXPECT_NE(indexOf(s.snapshot, longWide), 0);
        // Kept with its bad bytes marked, the folder's name still leads to its contents.
        EXPECT_NE(indexOf(s.snapshot, u"bad\\xFF\\xFEname/inside.txt"_s), 0);
    }
    // The folder whose name is not UTF-8 as the root: kept marked as its
    // names are, and scanned again from that, as Repeat does.
    Snapshot bad;
    bad.header.rootFolder = storedPath(t.root() + nativeText("bad\xFF\xFEname/"));
    EXPECT_EQ(bad.header.rootFolder, t.root() + u"bad\\xFF\\xFEname/"_s);
    ASSERT_TRUE(scanFolder(bad, bad.header.rootFolder).ok);
    EXPECT_EQ(bad.entryCount, 1);
    EXPECT_EQ(bad.name(1), "inside.txt");
}

// While the scans run, another thread changes the tree: files created and
// deleted, a folder with contents made and removed, a file replaced by a
// folder and back.
TEST(Scan, TreeChangingDuringTheScanGivesASoundSnapshot) {
    TempTree t;
    for (int i = 0; i < 30; ++i)
        t.file(u"stable/s%1/f"_s.arg(i), "abc");
    t.folder(u"churn"_s);
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
        const Scan s = scan(t, threads(round % 3));
        // Nothing beyond what any scan may say: the tree is never empty.
        ASSERT_TRUE(s.outcome.ok && !s.outcome.message);
        expectSoundSnapshot(s.snapshot);
        EXPECT_NE(indexOf(s.snapshot, u"stable/s29/f"_s), 0);
    }
    EXPECT_GT(rounds, 0);
}

// The system starts no more threads: the workers already started are joined
// and the scan fails with the system's text; past the start, workers that
// cannot be added are done without.
TEST(Scan, ThreadsThatCannotStartEndTheScanCleanly) {
    TempTree t;
    for (int i = 0; i < 40; ++i)
        t.file(u"d%1/e/f"_s.arg(i));
    std::atomic<int> started{0}, finished{0};
    int allowed = 2;
    ScanSettings settings = threads(4);
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
    const Scan failed = scan(t, settings);
    EXPECT_FALSE(failed.outcome.ok);
    EXPECT_EQ(finished, 2);
    expectMessage(failed.outcome.message, u"Kestrel"_s,
                  QString::fromLocal8Bit(std::strerror(EAGAIN)), MessageIcon::Exclamation);

    started = finished = 0;
    allowed = 1;
    settings.listingThreads = -1;
    settings.assumedDeviceWaits = [] { return true; };
    const Scan grown = scan(t, settings);
    EXPECT_TRUE(grown.outcome.ok);
    EXPECT_EQ(grown.snapshot.entryCount, 120);
}

TEST(Scan, ThreadsGiveTheSameSnapshotAsOneThread) {
    TempTree t;
    // Folders of very different sizes at several depths, so that workers
    // finish out of order, and the folders and listings the walk is done
    // with are used again for others: names of other lengths, links whose
    // targets share the listing's text with names, files with fingerprints.
    for (int a = 0; a < 6; ++a)
        for (int b = 0; b < a * 3; ++b) {
            const QString e = u"d%1/e%2"_s.arg(a).arg(b);
            t.folder(e + u"/g"_s + QString(b, u'g'));
            for (int c = 0; c < (b % 4) * 20; ++c)
                t.file(e + u"/f%1"_s.arg(c), QByteArray(c, 'x'));
            if (b % 2)
                t.symlink(e + u"/link"_s, QString(b + 1, u't'));
        }
    const auto sameSideData = [](const Snapshot& a, const Snapshot& b) {
        for (int32_t i = 1; i <= a.entryCount; ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(a.access.at(i).mode, b.access.at(i).mode);
            EXPECT_EQ(a.access.linkTarget(i), b.access.linkTarget(i));
            ASSERT_EQ(a.fingerprints.has(i), b.fingerprints.has(i));
            if (a.fingerprints.has(i)) {
                EXPECT_EQ(a.fingerprints.at(i), b.fingerprints.at(i));
            }
        }
    };
    for (const bool fingerprints : {false, true}) {
        SCOPED_TRACE(fingerprints);
        ScanSettings settings;
        settings.fingerprints = fingerprints;
        const Scan single = scan(t, threads(0, settings));
        ASSERT_TRUE(single.outcome.ok);
        expectSoundSnapshot(single.snapshot);
        // With -1, workers added during the scan as on a disk whose listings
        // wait; with -2, listings wait in bursts, so that the added workers
        // rest between them and are woken again.
        for (int n : {1, 2, 4, 8, 32, -1, -2}) {
            SCOPED_TRACE(n);
            std::atomic<int> listings = 0;
            settings.assumedDeviceWaits = nullptr;
            if (n == -1)
                settings.assumedDeviceWaits = [] { return true; };
            if (n == -2)
                settings.assumedDeviceWaits = [&listings] { return listings++ / 24 % 2 == 0; };
            const Scan parallel = scan(t, threads(std::max(n, -1), settings));
            ASSERT_TRUE(parallel.outcome.ok);
            expectSameSnapshot(single.snapshot, parallel.snapshot);
            sameSideData(single.snapshot, parallel.snapshot);
        }
    }
}

// Excluded items are neither recorded nor counted for the meter, with one
// thread or several (kestrel-cli's tests see an excluded folder nobody may
// read left unopened). The meter's count asks anchored patterns about each
// folder's own path, whichever excluded siblings were listed before it, and
// patterns anchored at a depth are asked only that deep: the same names
// deeper down, or under another folder, stay.
TEST(Scan, ExcludedItemsAreNeitherRecordedNorCounted) {
    const auto excluding = [](const char* patterns, int n = -1) {
        ScanSettings settings = threads(n);
        settings.exclude = std::make_shared<const IgnorePatterns>(patterns, u"--exclude"_s);
        return settings;
    };
    TempTree t;
    for (const QString& file : {u"src/a.c"_s, u"src/a.pyc"_s, u"src/secret/key"_s,
                                u"build/out/x.o"_s, u"docs/build/kept.txt"_s, u"b.pyc"_s})
        t.file(file);
    const char* const patterns = "*.pyc\nsecret/\n/build\n";
    for (const int n : {0, 2}) {
        const Scan s = scan(t, excluding(patterns, n));
        ASSERT_TRUE(s.outcome.ok);
        expectSoundSnapshot(s.snapshot);
        EXPECT_EQ(s.snapshot.entryCount, 5); // src, a.c, docs, build, kept.txt
        EXPECT_NE(indexOf(s.snapshot, u"docs/build/kept.txt"_s), 0);
    }
    EXPECT_EQ(CountFolders(t.root(), 1, 3, excluding(patterns)), 3);
    TempTree siblings;
    for (int i = 0; i < 10; ++i)
        siblings.file(u"e%1/f"_s.arg(i));
    siblings.file(u"k/inner/f"_s);
    EXPECT_EQ(CountFolders(siblings.root(), 1, 3, excluding("e*/\n/k/inner/\n")), 1);
    TempTree deep;
    for (const QString& file : {u"a/b/x"_s, u"a/c/b/x"_s, u"c/a/b"_s, u"a/b2"_s})
        deep.file(file);
    for (const int n : {0, 2}) {
        const Scan s = scan(deep, excluding("/a/b\n/?/?2\n", n));
        EXPECT_EQ(indexOf(s.snapshot, u"a/b"_s), 0);
        EXPECT_EQ(indexOf(s.snapshot, u"a/b2"_s), 0);
        EXPECT_EQ(s.snapshot.entryCount, 7); // a, a/c, a/c/b, a/c/b/x, c, c/a, c/a/b
    }
}

TEST(Scan, OneFileSystemRecordsMountPointsButNotTheirContents) {
    struct stat dev, pts;
    if (::stat("/dev", &dev) != 0 || ::stat("/dev/pts/ptmx", &pts) != 0 || dev.st_dev == pts.st_dev)
        GTEST_SKIP() << "no /dev/pts mounted apart from /dev here";
    Snapshot snap;
    ScanSettings settings;
    settings.oneFileSystem = true;
    ASSERT_TRUE(scanFolder(snap, u"/dev/"_s, settings).ok);
    const int32_t folder = indexOf(snap, u"pts"_s);
    ASSERT_NE(folder, 0);
    EXPECT_FALSE(hasContents(snap, folder));
    expectSoundSnapshot(snap);
}

// The root's .kestrelignore travels with the snapshot, hidden items or not;
// one that is there but cannot be read is said, and the scan goes on.
// (kestrel-cli's tests see one that is a link refused.)
TEST(Scan, OwnIgnoreFileIsRecordedFromARegularFileOnly) {
    TempTree t;
    t.file(u"a.txt"_s);
    t.file(u".kestrelignore"_s, "*.tmp\n");
    const Scan s = scan(t, {}, nullptr, false);
    EXPECT_EQ(s.snapshot.header.ownIgnorePatterns, "*.tmp\n");
    EXPECT_TRUE(s.snapshot.ignoreFileProblem.isEmpty());

    t.chmod(QString(), 0755);
    t.chmod(u".kestrelignore"_s, 0);
    const auto check = [&] {
        const Scan u = scan(t);
        return u.outcome.ok && u.snapshot.header.ownIgnorePatterns.empty() &&
               u.snapshot.ignoreFileProblem == u".kestrelignore: Permission denied"_s;
    };
    const std::optional<bool> passed = passesWherePermissionsHold(check);
    if (!passed)
        GTEST_SKIP() << "cannot give up root here";
    EXPECT_TRUE(*passed);
}

TEST(Scan, MissingOrVanishedFolderGivesOneNamelessEntry) {
    TempTree t;
    Snapshot missing;
    ASSERT_TRUE(scanFolder(missing, t.root() + u"\"quoted\"/"_s).ok);
    EXPECT_EQ(missing.entryCount, 1);
    EXPECT_EQ(fieldsOf(missing, 1), EntryFields(0, 0, 1, 0, "", 0, 0, ""));

    // A sub-folder that goes between its parent's listing and its own.
    t.file(u"going/inside.txt"_s);
    ListingRules rules;
    rules.recurse = true;
    DirectoryReader reader(rules, 0);
    FolderTask& top = reader.root(QFile::encodeName(t.root()).toStdString());
    reader.list(top);
    ASSERT_EQ(top.listing.children.size(), 1u);
    FolderTask& going = *top.listing.children.front();
    ASSERT_TRUE(QDir(t.root() + u"going"_s).removeRecursively());
    reader.list(going);
    ASSERT_EQ(going.listing.items.size(), 1u);
    const ListedItem& item = going.listing.items.front();
    EXPECT_EQ(going.listing.name(item), "");
    EXPECT_TRUE(item.attributes == 0 && item.size == 0 && !item.folder);
}

// Every folder down to the meter's level ticks once, and entry 1 holds their
// count; a cancel stops the walk with every ring it recorded closed.
TEST(Scan, MeterCountsFoldersNearTheTopAndCancelEndsTheWalk) {
    TempTree t;
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            for (int c = 0; c < 3; ++c)
                t.file(u"%1/%2/%3/f"_s.arg(a).arg(b).arg(c));
    for (int level = 0; level <= 2; ++level) {
        SCOPED_TRACE(level);
        RecordingView view;
        ProgressMeter meter(&view);
        ScanSettings settings;
        settings.meterLevel = level;
        const Scan s = scan(t, settings, &meter);
        ASSERT_TRUE(s.outcome.ok);
        // The maximum, the ticks, the depth and entry 1's count; closed once.
        const int folders = level == 0 ? 3 : level == 1 ? 12 : 39;
        EXPECT_EQ(std::tuple(view.maximum, int(view.values.size()), int(s.snapshot.meterDepth),
                             s.snapshot.entry(1).count, view.closed),
                  std::tuple(folders, folders, level + 1, folders, 1));
    }

    RecordingView view;
    ProgressMeter meter(&view);
    view.onValue = [&](int32_t value) {
        if (value == 2)
            meter.cancel();
    };
    const Scan cancelled = scan(t, {}, &meter);
    EXPECT_TRUE(!cancelled.outcome.ok && cancelled.outcome.cancelled && !cancelled.outcome.message);
    EXPECT_LT(cancelled.snapshot.entryCount, 3 + 9 + 27 + 27);
    expectSoundSnapshot(cancelled.snapshot);
}

TEST(Scan, ReadsVersionsOnlyInsideTheVersionFolder) {
    TempTree t;
    for (const QString& file : {u"bin/tool.exe"_s, u"bin/sub/lib.dll"_s, u"other/tool.exe"_s})
        t.file(file, makeImage(false, (5u << 16) | 1, 2600u << 16).contents());
    t.symlink(u"bin/link.exe"_s, u"tool.exe"_s);
    ScanSettings settings;
    settings.versionFolder = t.root() + u"BIN"_s; // compared without regard to case
    const Scan s = scan(t, settings);
    ASSERT_TRUE(s.outcome.ok);
    const std::pair<QString, const char*> versions[] = {{u"bin/tool.exe"_s, "5.01.2600.00"},
                                                        {u"bin/sub/lib.dll"_s, "5.01.2600.00"},
                                                        {u"other/tool.exe"_s, ""},
                                                        {u"bin/link.exe"_s, ""}};
    for (const auto& [path, version] : versions)
        EXPECT_EQ(s.snapshot.version(indexOf(s.snapshot, path)), version) << path.toStdString();
}

} // namespace
