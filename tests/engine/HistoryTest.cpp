// A folder's history: its numbered snapshots, each compared with the one
// before.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/compare/History.h"
#include "engine/compare/HistoryIndex.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <map>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

using namespace kestrel::engine;
using kestrel::test::TempTree;

namespace {

constexpr time_t Day = 86400;
constexpr time_t Start = 1700000000;

class HistoryTest : public testing::Test {
protected:
    // Scans the tree and saves it as the series' next file, NAME.#NN.
    QString saveGeneration(int number) {
        Snapshot s;
        EXPECT_TRUE(kestrel::test::scanTree(s, m_tree).ok);
        s.header.fileName = fileOf(number);
        EXPECT_TRUE(SaveSnapshot(s, m_meter).ok);
        return s.header.fileName;
    }
    QString fileOf(int number) const {
        return m_files.filePath(QStringLiteral("Data.#%1").arg(number, 2, 10, QLatin1Char('0')));
    }
    void file(const char* path, const QByteArray& bytes, time_t when) {
        m_tree.file(QString::fromLatin1(path), bytes);
        m_tree.touch(QString::fromLatin1(path), when);
    }
    void remove(const char* path) {
        const QString full = m_tree.root() + QString::fromLatin1(path);
        ASSERT_TRUE(QFileInfo(full).isDir() ? QDir(full).removeRecursively() : QFile::remove(full));
    }
    void rename(const char* from, const char* to) {
        ASSERT_TRUE(QDir().rename(m_tree.root() + QString::fromLatin1(from),
                                  m_tree.root() + QString::fromLatin1(to)));
    }
    History historyOf(const QString& file) {
        return buildHistory(historySeries(file), m_options, m_meter);
    }

    TempTree m_tree;
    QTemporaryDir m_files;
    ProgressMeter m_meter;
    CompareOptions m_options = [] {
        CompareOptions o;
        o.detectMoves = true;
        return o;
    }();
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
        if (!h.generations[size_t(g)].readable()) {
            line += g ? " ?" : "?";
            continue;
        }
        const int32_t state = History::stateAt(h, records, g);
        char mark = '=';
        if (const int32_t change = History::changeAt(h, records, g); change >= 0) {
            const HistoryRecord::Kind kind = h.records[size_t(change)].kind;
            mark = kind == HistoryRecord::Added     ? '+'
                   : kind == HistoryRecord::Changed ? '~'
                   : kind == HistoryRecord::MovedIn ? '>'
                                                    : '=';
        }
        line += (g ? " " : "") +
                (state < 0 ? std::string("-")
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

    file("a.txt", "aaa", Start);                              // resized
    m_tree.touch(QStringLiteral("touched.txt"), Start + Day); // touched
    rename("keep.txt", "kept.txt");                           // renamed
    rename("dir", "dir2");                                    // folder renamed
    remove("gone.txt");
    remove("back.txt");
    file("new.txt", "n", Start + 9);
    saveGeneration(2);

    file("back.txt", "back!!", Start + 4); // comes back
    saveGeneration(3);

    const History h = historyOf(fileOf(2));
    ASSERT_EQ(h.generations.size(), 3u);
    for (int g = 0; g < 3; ++g) {
        EXPECT_TRUE(h.generations[size_t(g)].readable());
        EXPECT_EQ(h.generations[size_t(g)].number, g + 1);
    }
    const Generation& second = h.generations[1];
    EXPECT_EQ(second.added, 1);   // new.txt
    EXPECT_EQ(second.removed, 2); // gone.txt, back.txt
    EXPECT_EQ(second.changed, 2); // a.txt, touched.txt
    EXPECT_EQ(second.movedFolders, 1);
    EXPECT_GE(second.movedFiles, 1);
    EXPECT_EQ(generationChangesText(second).left(10), QStringLiteral("+1 \u22122 ~2, "));
    const Generation& third = h.generations[2];
    EXPECT_EQ(third.changes(), 1);
    EXPECT_EQ(third.added, 1);

    EXPECT_EQ(lineOfLife(h, "a.txt"), "=1 ~3 =3");
    EXPECT_EQ(lineOfLife(h, "touched.txt"), "=2 ~2 =2");
    EXPECT_EQ(lineOfLife(h, "keep.txt"), "=5 - -");
    EXPECT_EQ(lineOfLife(h, "kept.txt"), "- >5 =5");
    EXPECT_EQ(lineOfLife(h, "gone.txt"), "=4 - -");
    EXPECT_EQ(lineOfLife(h, "back.txt"), "=6 - +6");
    EXPECT_EQ(lineOfLife(h, "new.txt"), "- +1 =1");
    EXPECT_EQ(lineOfLife(h, "dir/x.txt"), "=7 - -");
    EXPECT_EQ(lineOfLife(h, "dir2/"), "- >0 =0");
    EXPECT_EQ(lineOfLife(h, "same.txt"), "never changed");
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

    // The window's view of it: every folder any generation had, each
    // folder's entries of every generation, and the state of each.
    const HistoryIndex index(h);
    std::vector<std::string> folders;
    for (const HistoryIndex::Folder& f : index.folders())
        folders.push_back(f.path);
    EXPECT_EQ(folders, (std::vector<std::string>{"", "dir2/", "dir/"}));
    EXPECT_EQ(index.folders()[0].children, (std::vector<int32_t>{2, 1})); // dir, dir2
    EXPECT_TRUE(index.changedIn(0, 1, 1));
    EXPECT_FALSE(index.changedIn(1, 2, 2)); // nothing in dir2 changed in the third
    std::vector<std::string> names;
    std::vector<HistoryIndex::Row> rows = index.rowsOf(0);
    for (const HistoryIndex::Row& r : rows)
        names.push_back(r.name);
    EXPECT_EQ(names,
              (std::vector<std::string>{"dir", "dir2", "a.txt", "back.txt", "gone.txt", "keep.txt",
                                        "kept.txt", "new.txt", "same.txt", "touched.txt"}));
    const HistoryIndex::Row& same = rows[8];
    EXPECT_EQ(same.path, -1);
    for (int g = 0; g < 3; ++g) {
        EXPECT_TRUE(index.stateOf(same, g).present);
        EXPECT_EQ(index.stateOf(same, g).size, 4);
    }
    const HistoryIndex::Row& back = rows[3];
    EXPECT_TRUE(index.stateOf(back, 0).present);
    EXPECT_FALSE(index.stateOf(back, 1).present);
    EXPECT_EQ(index.stateOf(back, 1).change, HistoryRecord::Removed);
    EXPECT_EQ(index.stateOf(back, 2).change, HistoryRecord::Added);
    EXPECT_EQ(index.stateOf(rows[9], 1).modified, index.stateOf(rows[9], 2).modified);
    EXPECT_NE(index.stateOf(rows[9], 0).modified, index.stateOf(rows[9], 1).modified);
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

// A gap in the numbers is no matter, a damaged member is reported and left
// out (its neighbours compared with each other), and a series of one has
// nothing to tell.
TEST_F(HistoryTest, SkipsWhatCannotBeReadAndMindsNoGaps) {
    file("a.txt", "a", Start);
    saveGeneration(1);
    file("a.txt", "aa", Start);
    saveGeneration(3);
    ASSERT_TRUE(kestrel::test::writeBytes(fileOf(4), "not a snapshot\n"));
    file("a.txt", "aaa", Start);
    saveGeneration(7);
    ASSERT_TRUE(kestrel::test::writeBytes(m_files.filePath(QStringLiteral("Other.#02")), "x"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fileOf(8)).constData(), 0600), 0);
    ASSERT_EQ(::symlink("Data.#01", QFile::encodeName(fileOf(9)).constData()), 0);

    const QStringList series = historySeries(fileOf(4));
    ASSERT_EQ(series, (QStringList{fileOf(1), fileOf(3), fileOf(4), fileOf(7)}));
    const History h = buildHistory(series, m_options, m_meter);
    ASSERT_EQ(h.generations.size(), 4u);
    EXPECT_FALSE(h.generations[2].readable());
    EXPECT_FALSE(h.generations[2].error.isEmpty());
    EXPECT_EQ(h.generations[3].changed, 1);
    EXPECT_EQ(lineOfLife(h, "a.txt"), "=1 ~2 ? ~3");

    const History alone = buildHistory({fileOf(1)}, m_options, m_meter);
    ASSERT_EQ(alone.generations.size(), 1u);
    EXPECT_FALSE(alone.anyChanges());
    EXPECT_TRUE(alone.records.empty());
}
