// A folder's history: its numbered snapshots, each compared with the one
// before.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/compare/History.h"
#include "engine/compare/HistoryIndex.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/model/ReadWatermark.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include <future>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

constexpr time_t Day = 86400;
constexpr time_t Start = 1700000000;

class HistoryTest : public testing::Test {
protected:
    HistoryTest() { m_options.detectMoves = true; }
    // Scans the tree and saves it as the series' next file, NAME.#NN.
    QString saveGeneration(int number) {
        Snapshot s;
        EXPECT_TRUE(scanTree(s, m_tree).ok);
        EXPECT_TRUE(saveSnapshotAs(s, fileOf(number)).ok);
        return s.header.fileName;
    }
    QString fileOf(int number) const {
        return m_files.filePath(u"Data.#%1"_s.arg(number, 2, 10, QLatin1Char('0')));
    }
    void file(const char* path, const QByteArray& bytes, time_t when) {
        m_tree.file(QString::fromLatin1(path), bytes, when);
    }
    void remove(const char* path) {
        const QString full = m_tree.root() + QString::fromLatin1(path);
        ASSERT_TRUE(QFileInfo(full).isDir() ? QDir(full).removeRecursively() : QFile::remove(full));
    }
    void rename(const char* from, const char* to) {
        ASSERT_TRUE(QDir().rename(m_tree.root() + QString::fromLatin1(from),
                                  m_tree.root() + QString::fromLatin1(to)));
    }

    TempTree m_tree;
    QTemporaryDir m_files;
    ProgressMeter m_meter;
    CompareOptions m_options;
};

// A path's change and state in each generation, as a line: "+3" for added
// with size 3, "~4" changed, ">5" moved in, "=5" unchanged, "-" absent, "?"
// for a generation that could not be read.
std::string lineOfLife(const History& h, const std::string& path) {
    const auto at = std::find(h.paths.begin(), h.paths.end(), path);
    if (at == h.paths.end())
        return "never changed";
    const std::vector<int32_t> records = h.recordsByPath()[size_t(at - h.paths.begin())];
    std::string line;
    for (int g = 0; g < int(h.generations.size()); ++g) {
        const int32_t state = History::stateAt(h, records, g);
        const int32_t change = History::changeAt(h, records, g);
        // Marks by kind: before, added, removed, changed, moved in, moved out.
        const char mark = change < 0 ? '=' : "=+=~>="[h.records[size_t(change)].kind];
        line += (g ? " " : "") +
                (!h.generations[size_t(g)].readable() ? std::string("?")
                 : state < 0                          ? std::string("-")
                             : mark + std::to_string(int64_t(h.records[size_t(state)].size)));
    }
    return line;
}

} // namespace

// Each generation's changes as the generator made them: a file resized, one
// touched, one renamed, a folder renamed, one removed and one added, and a
// file that comes back after it was deleted.
TEST_F(HistoryTest, FollowsEveryChangeGenerationByGeneration) {
    file("a.txt", "a", Start);
    file("touched.txt", "tt", Start + 1);
    file("keep.txt", "keep!", Start + 2);
    file("gone.txt", "gone", Start + 3);
    file("back.txt", "back!!", Start + 4);
    file("dir/x.txt", "xxxxxxx", Start + 5);
    file("dir/y.txt", "yyyyyyyy", Start + 6);
    file("same.txt", "same", Start + 7);
    saveGeneration(1);

    file("a.txt", "aaa", Start);                 // resized
    m_tree.touch(u"touched.txt"_s, Start + Day); // touched
    rename("keep.txt", "kept.txt");              // renamed
    rename("dir", "dir2");                       // folder renamed
    remove("gone.txt");
    remove("back.txt");
    file("new.txt", "n", Start + 9);
    saveGeneration(2);

    file("back.txt", "back!!", Start + 4); // comes back
    saveGeneration(3);

    const History h = buildHistory(historySeries(fileOf(2)), m_options, m_meter);
    ASSERT_EQ(h.generations.size(), 3u);
    // Added new.txt, removed gone.txt and back.txt, changed a.txt and
    // touched.txt, moved dir/ (and kept.txt).
    const Generation& second = h.generations[1];
    EXPECT_EQ(std::tuple(second.added, second.removed, second.changed, second.movedFolders),
              std::tuple(1, 2, 2, 1));
    EXPECT_GE(second.movedFiles, 1);
    EXPECT_EQ(generationChangesText(second).left(10), u"+1 \u22122 ~2, "_s);
    EXPECT_EQ(std::pair(h.generations[2].changes(), h.generations[2].added), std::pair(1, 1));
    const std::pair<const char*, const char*> lines[] = {
        {"a.txt", "=1 ~3 =3"},        {"touched.txt", "=2 ~2 =2"}, {"keep.txt", "=5 - -"},
        {"kept.txt", "- >5 =5"},      {"gone.txt", "=4 - -"},      {"back.txt", "=6 - +6"},
        {"new.txt", "- +1 =1"},       {"dir/x.txt", "=7 - -"},     {"dir2/", "- >0 =0"},
        {"same.txt", "never changed"}};
    for (const auto& [path, line] : lines)
        EXPECT_EQ(lineOfLife(h, path), line) << path;
    // A move knows its other end.
    for (size_t i = 0; i < h.records.size(); ++i) {
        if (h.records[i].kind == HistoryRecord::MovedIn &&
            h.paths[size_t(h.records[i].path)] == "kept.txt") {
            EXPECT_EQ(h.paths[size_t(h.movedWith.at(int32_t(i)))], "keep.txt");
        }
    }
    // Only what changed is kept: one record for each change, and one for
    // the state before a path's first change where it was there before.
    EXPECT_EQ(h.records.size(), 22u);
    EXPECT_TRUE(h.anyChanges());
}

// Two generations tell exactly what the ordinary comparison of the same two
// snapshots tells.
TEST_F(HistoryTest, TwoGenerationsAreTheOrdinaryComparison) {
    file("a.txt", "a", Start);
    file("sub/b.txt", "bb", Start + 1);
    file("sub/deep/c.txt", "ccc", Start + 2);
    file("old/o.txt", "o", Start + 3);
    const QString first = saveGeneration(1);
    file("a.txt", "aa", Start);
    file("sub/deep/c.txt", "ccc", Start + Day);
    file("sub/new/n.txt", "n", Start + 4);
    remove("old");
    const QString second = saveGeneration(2);

    m_options.detectMoves = false;
    const History h = buildHistory({first, second}, m_options, m_meter);
    std::set<std::pair<std::string, int>> told;
    for (const HistoryRecord& r : h.records)
        if (r.kind != HistoryRecord::Before)
            told.emplace(h.paths[size_t(r.path)], r.kind);

    Snapshot older, newer;
    ASSERT_TRUE(OpenSnapshotFile(older, first, m_meter).ok);
    ASSERT_TRUE(OpenSnapshotFile(newer, second, m_meter).ok);
    ASSERT_TRUE(CompareSnapshot(newer, 1, older, 1, true, m_options, m_meter).ok);
    std::set<std::pair<std::string, int>> compared;
    for (const Difference& d : listDifferences(newer, older)) {
        const Snapshot& side = d.kind == Difference::OnlyInOld ? older : newer;
        compared.emplace(side.relativePath(d.index).toStdString(),
                         d.kind == Difference::OnlyInOld   ? HistoryRecord::Removed
                         : d.kind == Difference::OnlyInNew ? HistoryRecord::Added
                                                           : HistoryRecord::Changed);
    }
    EXPECT_EQ(told, compared);
    EXPECT_EQ(compared.size(), 6u); // a, c, new/, n, old/, o
}

// What ls -la shows besides sizes and times is followed too: a program that
// becomes set-user-ID, a file given to another owner (where the test may), a
// link pointed elsewhere with a target of the same length and its time kept.
// Each change names what changed, each state carries its values, and an
// entry that never changed shows those of the latest snapshot.
TEST_F(HistoryTest, FollowsPermissionsOwnersAndLinkTargets) {
    file("tool", "#!", Start);
    file("owned.txt", "o", Start + 1);
    file("plain.txt", "p", Start + 2);
    m_tree.chmod(u"tool"_s, 0755);
    m_tree.chmod(u"plain.txt"_s, 0640);
    m_tree.symlink(u"link"_s, u"/etc/passwd"_s);
    m_tree.touch(u"link"_s, Start + 3);
    saveGeneration(1);
    m_tree.chmod(u"tool"_s, 04755);
    const bool root = runningAsRoot();
    if (root) {
        ASSERT_EQ(
            ::lchown(QFile::encodeName(m_tree.root() + u"owned.txt"_s).constData(), 4321, 8765), 0);
    }
    saveGeneration(2);
    ASSERT_TRUE(QFile::remove(m_tree.root() + u"link"_s));
    m_tree.symlink(u"link"_s, u"/etc/shadow"_s);
    m_tree.touch(u"link"_s, Start + 3);
    saveGeneration(3);

    const History h = buildHistory(historySeries(fileOf(1)), m_options, m_meter);
    ASSERT_TRUE(h.hasAccess());
    EXPECT_EQ(std::tuple(h.generations[1].changed, h.generations[2].changed),
              std::tuple(root ? 2 : 1, 1));
    // The new set-user-ID program is called out first.
    EXPECT_EQ(generationChangesText(h.generations[1]),
              u"1 new set-user-ID file; +0 \u22120 ~%1"_s.arg(root ? 2 : 1));
    EXPECT_EQ(generationChangesText(h.generations[2]), u"+0 \u22120 ~1"_s);
    const HistoryIndex index(h);
    const std::vector<HistoryIndex::Row> rows = index.rowsOf(0);
    const auto rowOf = [&](const std::string& name) {
        const auto row = std::find_if(rows.begin(), rows.end(),
                                      [&](const HistoryIndex::Row& r) { return r.name == name; });
        EXPECT_NE(row, rows.end()) << name;
        return *row;
    };
    const auto stateOf = [&](const std::string& name, int g) {
        return index.stateOf(rowOf(name), g);
    };

    const HistoryIndex::State before = stateOf("tool", 0), after = stateOf("tool", 1);
    ASSERT_TRUE(before.access && after.access);
    EXPECT_EQ(std::pair(before.access->mode, after.access->mode), std::pair(0755u, 04755u));
    EXPECT_EQ(after.change, HistoryRecord::Changed);
    EXPECT_EQ(changedFieldsText(after.changedBits), u"permissions"_s);
    EXPECT_EQ(std::pair(before.alert, after.alert),
              std::pair(AccessAlert::None, AccessAlert::SetUserId));
    EXPECT_TRUE(index.callsForAttention(rowOf("tool")));
    EXPECT_FALSE(index.callsForAttention(rowOf("link")));
    EXPECT_EQ(stateOf("tool", 2).change, HistoryRecord::Before);

    const HistoryIndex::State was = stateOf("link", 1), is = stateOf("link", 2);
    EXPECT_EQ(std::pair(std::string(was.linkTarget), std::string(is.linkTarget)),
              std::pair(std::string("/etc/passwd"), std::string("/etc/shadow")));
    EXPECT_EQ(changedFieldsText(is.changedBits), u"link target"_s);

    if (root) {
        const HistoryIndex::State given = stateOf("owned.txt", 1);
        ASSERT_TRUE(given.access);
        EXPECT_EQ(std::pair(given.access->owner, given.access->group), std::pair(4321u, 8765u));
        EXPECT_EQ(changedFieldsText(given.changedBits), u"owner"_s);
    }
    const HistoryIndex::State unchanged = stateOf("plain.txt", 0);
    EXPECT_EQ(unchanged.change, HistoryRecord::Before);
    ASSERT_TRUE(unchanged.access);
    EXPECT_EQ(unchanged.access->mode, 0640u);
}

// A gap in the numbers is no matter, a damaged member is reported and left
// out (its neighbours compared with each other), and a series of one has
// nothing to tell.
TEST_F(HistoryTest, SkipsWhatCannotBeReadAndMindsNoGaps) {
    file("a.txt", "a", Start);
    saveGeneration(1);
    file("a.txt", "aa", Start);
    saveGeneration(3);
    ASSERT_TRUE(writeBytes(fileOf(4), "not a snapshot\n"));
    file("a.txt", "aaa", Start);
    saveGeneration(7);
    ASSERT_TRUE(writeBytes(m_files.filePath(QStringLiteral("Other.#02")), "x"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fileOf(8)).constData(), 0600), 0);
    ASSERT_EQ(::symlink("Data.#01", QFile::encodeName(fileOf(9)).constData()), 0);

    const QStringList series = historySeries(fileOf(4));
    ASSERT_EQ(series, (QStringList{fileOf(1), fileOf(3), fileOf(4), fileOf(7)}));
    EXPECT_EQ(lineOfLife(buildHistory(series, m_options, m_meter), "a.txt"), "=1 ~2 ? ~3");

    const History alone = buildHistory({fileOf(1)}, m_options, m_meter);
    ASSERT_EQ(alone.generations.size(), 1u);
    EXPECT_FALSE(alone.anyChanges());
    EXPECT_TRUE(alone.records.empty());
}

// The comparison that follows a file while it is read marks both snapshots
// exactly as the comparison of the two files read whole does. Its folders
// hold more entries than the reading publishes at a time, so the walk waits
// for the reading; a copy cut short ends the reading before the walk, which
// then compares the whole snapshots once read.
TEST_F(HistoryTest, ComparingWhileReadingMarksAsComparingAfterwards) {
    for (int i = 0; i < 2500; ++i)
        file(qPrintable(u"big/f%1"_s.arg(i)), QByteArray(i % 7, 'x'), Start + i);
    for (int i = 0; i < 40; ++i)
        file(qPrintable(u"sub/%1/g"_s.arg(i)), "g", Start);
    const QString first = saveGeneration(1);
    file("big/f10", "resized", Start + 10);
    remove("big/f20");
    remove("sub/3");
    file("big/new", "n", Start);
    rename("sub/7", "sub/seven");
    const QString second = saveGeneration(2);
    const QString cut = fileOf(3);
    // Cut at the end of a line: it opens, with a notice that it is cut.
    const QByteArray whole = readBytes(second);
    ASSERT_TRUE(writeBytes(cut, whole.left(whole.lastIndexOf('\n', whole.size() / 2) + 1)));
    // Without side files: what they carry is read after the entries.
    for (const QString& f : {first, second, cut})
        QFile::remove(f + u".meta"_s);

    const auto marks = [](const Snapshot& s) {
        std::vector<std::pair<int32_t, int16_t>> all;
        for (int32_t i = 0; i <= s.entryCount; ++i)
            all.emplace_back(s.entries.get(i).match, s.entries.get(i).status);
        return all;
    };
    for (const QString& newerFile : {second, cut}) {
        Snapshot older, newer;
        ASSERT_TRUE(OpenSnapshotFile(older, first, m_meter).ok);
        ReadWatermark read;
        auto opened = std::async(std::launch::async, [&] {
            ProgressMeter quiet;
            return OpenSnapshotFile(newer, newerFile, quiet, &read);
        });
        FollowingComparison following(newer, older, m_options);
        EXPECT_EQ(following.followReading(read), newerFile == second);
        ASSERT_TRUE(opened.get().ok);
        ChangedFolders changed;
        const Outcome compared = following.finish(&changed);
        if (compared.ok) {
            EXPECT_EQ(listDifferences(newer, older, &changed.self, &changed.other).size(),
                      listDifferences(newer, older).size());
        }

        Snapshot olderAfter, newerAfter;
        ASSERT_TRUE(OpenSnapshotFile(olderAfter, first, m_meter).ok);
        ASSERT_TRUE(OpenSnapshotFile(newerAfter, newerFile, m_meter).ok);
        const Outcome after =
            CompareSnapshot(newerAfter, 1, olderAfter, 1, true, m_options, m_meter);
        // The cut copy's rings run past its end: both fail alike.
        EXPECT_EQ(std::pair(compared.ok, compared.error), std::pair(after.ok, after.error));
        EXPECT_EQ(compared.ok, newerFile == second);
        EXPECT_EQ(marks(newer), marks(newerAfter)) << qPrintable(newerFile);
        EXPECT_EQ(marks(older), marks(olderAfter)) << qPrintable(newerFile);
        EXPECT_EQ(newer.movedFrom, newerAfter.movedFrom);
        EXPECT_EQ(older.movedTo, olderAfter.movedTo);
    }

    // The history of the series without side files tells the same lines.
    const History h = buildHistory({first, second}, m_options, m_meter);
    EXPECT_EQ(lineOfLife(h, "big/f10"), "=3 ~7");
    EXPECT_EQ(lineOfLife(h, "big/f20"), "=6 -");
    EXPECT_EQ(lineOfLife(h, "big/new"), "- +1");
}

TEST(ReadWatermarkTest, AFollowerGetsEveryEntryInTurnAndTheEnd) {
    // Far more entries than a waiting follower sleeps past, so that it is
    // woken both along the way and by the end.
    constexpr int32_t Entries = 200000;
    ReadWatermark read;
    std::thread reader([&] {
        for (int32_t i = 1; i <= Entries; ++i)
            if (i % 1024 == 0)
                read.publish(i);
        read.endReading(Entries);
    });
    int32_t seen = 0;
    for (;;) {
        const ReadWatermark::Progress p = read.waitFor(seen + 1);
        if (p.ended) {
            seen = p.final;
            break;
        }
        ASSERT_GT(p.final, seen);
        seen = p.final;
    }
    EXPECT_EQ(seen, Entries);
    // Entries already final are had at once.
    EXPECT_EQ(read.waitFor(1).final, Entries);
    read.release();
    reader.join();
}
