// Moved and renamed entries, paired after a comparison of two scans.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Moves.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

void rename(const TempTree& t, const char* from, const char* to) {
    QDir().mkpath(QFileInfo(t.root() + QString::fromLatin1(to)).path());
    ASSERT_TRUE(
        QDir().rename(t.root() + QString::fromLatin1(from), t.root() + QString::fromLatin1(to)));
}

// "from -> to" for every move, folders with their trailing "/".
QStringList movesOf(const Snapshot& older, const Snapshot& newer, const MoveList& list) {
    QStringList lines;
    for (const Move& m : list.moves)
        lines << older.relativePath(m.from) + u" -> "_s + newer.relativePath(m.to);
    return lines;
}

// The comparison's own fields of every entry, to show moves leave them be.
std::vector<std::pair<int32_t, int16_t>> matchesAndStatus(const Snapshot& s) {
    std::vector<std::pair<int32_t, int16_t>> fields;
    for (int32_t i = 1; i <= s.entryCount; ++i)
        fields.emplace_back(s.entry(i).match, s.entry(i).status);
    return fields;
}

class MovesTest : public testing::Test {
protected:
    TempTree t;
    Snapshot older, newer;

    MoveList compare(bool fingerprints) {
        EXPECT_TRUE(scanTree(newer, t, fingerprints).ok);
        ProgressMeter meter;
        EXPECT_TRUE(CompareSnapshot(newer, 1, older, 1, true, {}, meter).ok);
        const auto before = matchesAndStatus(older), after = matchesAndStatus(newer);
        MoveList list = detectMoves(older, 1, newer, 1);
        noteMoves(older, newer, list);
        EXPECT_EQ(matchesAndStatus(older), before);
        EXPECT_EQ(matchesAndStatus(newer), after);
        return list;
    }
};

// A renamed file, a file moved between folders and a renamed folder whose
// files were written in one second at one size (told apart only by their
// names); two equal files renamed stay unpaired.
TEST_F(MovesTest, RenamedFilesAndFoldersPairAndTwinsDoNot) {
    for (const char* f : {"old/a", "old/b", "old/c"})
        t.file(QString::fromLatin1(f), "same size");
    t.file(u"notes.txt"_s, "a note of its own");
    t.file(u"x/report.pdf"_s, "a report");
    for (const QString& f : {u"twin1"_s, u"twin2"_s})
        t.file(f, "twin", 1600000000);
    ASSERT_TRUE(scanTree(older, t).ok);
    rename(t, "old", "new");
    rename(t, "notes.txt", "renamed.txt");
    rename(t, "x/report.pdf", "y/report.pdf");
    rename(t, "twin1", "twin3");
    rename(t, "twin2", "twin4");

    const MoveList list = compare(false);
    QStringList moves = movesOf(older, newer, list);
    moves.sort();
    EXPECT_EQ(moves,
              (QStringList{"notes.txt -> renamed.txt", "old/ -> new/", "old/a -> new/a",
                           "old/b -> new/b", "old/c -> new/c", "x/report.pdf -> y/report.pdf"}));
    EXPECT_EQ(movesText(list), u"5 moved files, 1 moved folder"_s);
    EXPECT_EQ(older.movedTo.count(indexOf(older, "twin1")), 0u);
    EXPECT_EQ(newer.movedFrom.at(indexOf(newer, "renamed.txt")), indexOf(older, "notes.txt"));
}

// A file moved and rewritten to another date: without fingerprints nothing
// says it is the same file; with them its content does. A moved empty file
// pairs only by its fingerprint.
TEST_F(MovesTest, FingerprintsPairWhatDatesCannot) {
    for (const bool fingerprints : {false, true}) {
        t.file(u"data.bin"_s, "payload", 1600000000);
        t.file(u"empty"_s);
        ASSERT_TRUE(scanTree(older, t, fingerprints).ok);
        rename(t, "data.bin", "moved/data.bin");
        rename(t, "empty", "moved/empty");
        t.touch(u"moved/data.bin"_s, 1700000000);
        QStringList moves = movesOf(older, newer, compare(fingerprints));
        moves.sort();
        const QStringList expected =
            fingerprints ? QStringList{"data.bin -> moved/data.bin", "empty -> moved/empty"}
                         : QStringList();
        EXPECT_EQ(moves, expected) << fingerprints;
        ASSERT_TRUE(QDir(t.root() + u"moved"_s).removeRecursively());
        older = Snapshot();
        newer = Snapshot();
    }
}

} // namespace
