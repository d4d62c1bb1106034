// The file list as a window shows it (rows, cells, highlights, sorting,
// counts) and the folder index the tree is built from, over snapshots laid
// out as a scan lays them out.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FolderIndex.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "listing/FileList.h"
#include "listing/RowSelection.h"

#include <gtest/gtest.h>

#include <QLocale>
#include <QTemporaryDir>

#include <numeric>

using namespace kestrel::engine;
using kestrel::test::buildSnapshot;
using kestrel::test::indexOf;
using kestrel::test::Node;

namespace {

class FileListTest : public testing::Test {
protected:
    void SetUp() override { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    // "In Folder" + name of every row.
    static QStringList rowsOf(const FileList& list) {
        QStringList rows;
        for (int32_t r = 0; r < list.rowCount(); ++r)
            rows << list.inFolder(r) + list.cellText(r, NameColumn);
        return rows;
    }
    static QStringList column(const FileList& list, int c) {
        QStringList cells;
        for (int32_t r = 0; r < list.rowCount(); ++r)
            cells << list.cellText(r, c);
        return cells;
    }
    static std::tuple<int32_t, int32_t, double> counts(const FileList& list) {
        return {list.counters().files, list.counters().folders, list.counters().bytes};
    }
    // The texts of one row's cells.
    static QStringList cells(const FileList& list, int32_t row,
                             std::initializer_list<int> columns) {
        QStringList texts;
        for (const int c : columns)
            texts << list.cellText(row, c);
        return texts;
    }
    static QStringList subFolderNames(const Snapshot& s, const FolderIndex& index, int32_t folder) {
        QStringList names;
        for (const int32_t f : index.subFolders(folder))
            names << s.nameText(index.entryOf(f));
        return names;
    }
};

TEST_F(FileListTest, ListsTheRingAndOnRequestEverySubFolderBeneathIt) {
    Snapshot s;
    buildSnapshot(s, {Node::file("b", 10),
                      Node::dir("sub", {Node::file("x", 5), Node::dir("deep", {Node::file("y", 1)}),
                                        Node::dir("empty")}),
                      Node::file("a", 100)});
    FileList list(s);
    list.list(1, {});
    EXPECT_EQ(rowsOf(list), (QStringList{"b", "sub", "a"}));
    EXPECT_EQ(counts(list), std::tuple(2, 1, 110));

    ListingOptions subFolders;
    subFolders.subFolders = true;
    list.list(1, subFolders);
    // Depth first: a folder's contents right after it, with its path.
    EXPECT_EQ(rowsOf(list),
              (QStringList{"b", "sub", "sub/x", "sub/deep", "sub/deep/y", "sub/empty", "a"}));
    EXPECT_EQ(counts(list), std::tuple(4, 3, 116));

    subFolders.emptyFolders = false;
    list.list(1, subFolders);
    EXPECT_FALSE(rowsOf(list).contains("sub/empty"));

    // A folder without contents has no first entry: nothing is listed.
    list.list(0, {});
    EXPECT_EQ(list.rowCount(), 0);
}

TEST_F(FileListTest, CellTextsAndKeys) {
    Snapshot s;
    buildSnapshot(s, {Node::file("Setup.EXE", 5368709120.0, 45000.5, 33, "1.02.03.04"),
                      Node::dir("folder.d", {Node::file("x")}),
                      Node::file("unread", 0, 0, Attribute::Unknown),
                      Node::file("offline", 10, 45000, Attribute::Unknown)});
    FileList list(s);
    list.list(1, {});
    // What a scan could not read is unknown; a file offline on Windows shows
    // its values.
    const auto row = [&](int32_t r) {
        return cells(list, r,
                     {SizeColumn, TypeColumn, ModifiedColumn, AttributesColumn, VersionColumn,
                      SizeKeyColumn, ModifiedKeyColumn, AttributesKeyColumn});
    };
    EXPECT_EQ(row(0), (QStringList{"5,368,709,120", "exe", modifiedText(45000.5), "R/O,Arc",
                                   " 1.02.03.04", "000005368709120", "45000.5", "33"}));
    // A folder has no type, dot or not.
    EXPECT_EQ(row(1).mid(0, 2), (QStringList{"<dir>", ""}));
    EXPECT_EQ(row(1)[5], "000000000000000");
    EXPECT_EQ(row(2).mid(0, 4), (QStringList{"unknown", "", "unknown", "unknown"}));
    EXPECT_EQ(row(3).mid(0, 3), (QStringList{"10", "", modifiedText(45000)}));

    // The faster option leaves the keys empty.
    list.list(1, {ShowMode::None, false, false});
    EXPECT_EQ(row(0).mid(5), (QStringList{"", "", ""}));
}

// Permissions and Owner show each entry's own values, and after a
// comparison paint exactly what changed: a file's mode or owner, a folder's
// own, and a link's new target on its name; nothing is painted without
// values.
TEST_F(FileListTest, PermissionsAndOwnerCellsAndWhatTheyPaint) {
    const std::vector<Node> top = {Node::file("tool", 5), Node::file("owned", 5),
                                   Node::file("link", 11, 0, Attribute::ReparsePoint),
                                   Node::dir("shared", {Node::file("x")}), Node::file("bare", 5)};
    Snapshot older, newer;
    buildSnapshot(older, top);
    buildSnapshot(newer, top);
    // Path, then the mode before and after.
    for (const auto& [path, before, after] : {std::tuple{"owned", 0644, 0644},
                                              {"link", 0777, 0777},
                                              {"shared/x", 0644, 0644},
                                              {"tool", 0755, 04755},
                                              {"shared", 0755, 0775}}) {
        older.access.set(indexOf(older, path), {uint32_t(before), 0, 0});
        newer.access.set(indexOf(newer, path), {uint32_t(after), 0, 0});
    }
    newer.access.set(indexOf(newer, "owned"), {0644, 0, 4000000000u});
    older.access.setLinkTarget(indexOf(older, "link"), "/etc/passwd");
    newer.access.setLinkTarget(indexOf(newer, "link"), "/etc/shadow");

    ProgressMeter meter;
    ASSERT_TRUE(CompareSnapshot(newer, 1, older, 1, true, {}, meter).ok);
    markAccessAlerts(newer, 1, older, {});
    FileList list(newer);
    ListingOptions options;
    options.mode = ShowMode::All;
    list.list(1, options);
    ASSERT_EQ(column(list, NameColumn), (QStringList{"tool", "owned", "link", "shared", "bare"}));
    EXPECT_EQ(column(list, PermissionsColumn),
              (QStringList{"-rwsr-xr-x", "-rw-r--r--", "lrwxrwxrwx", "drwxrwxr-x", ""}));
    // An id the system has no name for shows as its number.
    EXPECT_TRUE(list.cellText(1, OwnerColumn).endsWith(":4000000000"));
    EXPECT_EQ(list.cellText(4, OwnerColumn), QString());

    const auto painted = [&](int column) {
        QStringList names;
        for (int32_t r = 0; r < list.rowCount(); ++r)
            if (list.highlight(r, column) == Highlight::Changed)
                names << list.cellText(r, NameColumn);
        return names;
    };
    EXPECT_EQ(painted(PermissionsColumn), (QStringList{"tool", "shared"}));
    EXPECT_EQ(painted(OwnerColumn), QStringList{"owned"});
    EXPECT_EQ(painted(NameColumn), (QStringList{"link", "shared"}));
    // The new set-user-ID program is called out on its name.
    EXPECT_EQ(list.highlight(0, NameColumn), Highlight::Alert);
    for (const int c : {SizeColumn, ModifiedColumn, AttributesColumn})
        EXPECT_EQ(painted(c), QStringList()) << c;
}

// A comparison from a folder below the top covers only what lies beneath
// it: outside, the fields left from before colour and count nothing, and
// the modes that filter keep only the way down to the root.
TEST_F(FileListTest, OutsideTheComparedPartNothingIsCompared) {
    Snapshot s;
    buildSnapshot(s, {Node::file("a"), Node::dir("keep", {Node::file("k")}),
                      Node::dir("root", {Node::file("r", 5)})});
    const int32_t root = indexOf(s, "root");
    const int32_t r = indexOf(s, "root/r");
    // As a comparison from root leaves them: r changed in size, the rest
    // as never compared (no counterpart).
    s.mutableEntry(r).match = 1;
    s.mutableEntry(r).status = Change::Size;
    s.mutableEntry(root).status = 2;
    const ComparedPart part(s, root);
    EXPECT_TRUE(part.covers(r));
    EXPECT_FALSE(part.covers(root) || part.covers(indexOf(s, "a")) ||
                 part.covers(indexOf(s, "keep/k")));
    EXPECT_TRUE(ComparedPart().covers(indexOf(s, "a")));

    FileList list(s);
    ListingOptions options;
    options.subFolders = true;
    options.compared = &part;
    options.mode = ShowMode::All;
    list.list(1, options);
    EXPECT_EQ(rowsOf(list), (QStringList{"a", "keep", "keep/k", "root", "root/r"}));
    for (int32_t row = 0; row < 4; ++row)
        EXPECT_EQ(list.highlight(row, NameColumn), Highlight::None) << row;
    EXPECT_EQ(list.highlight(4, SizeColumn), Highlight::Changed);
    const ListingCounters& c = list.counters();
    EXPECT_EQ(std::tuple(c.extraFiles, c.extraFolders, c.changedFiles, c.changedFolders),
              std::tuple(0, 0, 1, 0));

    for (const ShowMode mode : {ShowMode::OnlyHere, ShowMode::Changed, ShowMode::Differences}) {
        options.mode = mode;
        list.list(1, options);
        EXPECT_EQ(rowsOf(list), mode == ShowMode::OnlyHere ? QStringList{"root"}
                                                           : (QStringList{"root", "root/r"}))
            << int(mode);
    }
}

// The sort against the plain one it stands for: a stable sort of the rows by
// their case-folded cell texts, in either direction, the hidden keys' texts
// for size, date and attributes (so sizes sort by value, and the attribute
// numbers in text order). Names share long beginnings, differ only in case,
// repeat in other folders, and leave ASCII (accents, a character beyond the
// 16-bit range, one that folds to two); with a character beyond eight bits
// among the names, and without one (each unit fits a byte), with beginnings
// longer than eight characters.
TEST_F(FileListTest, SortEqualsAStableSortOfTheCaseFoldedTexts) {
    const int16_t attributes[] = {128, 32, 1, 33, 2048, 34};
    ListingOptions withSubFolders;
    withSubFolders.subFolders = true;
    for (const char* text :
         {"Report|report|REPORT.txt|re|r|Réport|rÉport|Ärger|arger|Straße|STRASSE|strasse|"
          "\xF0\x9F\x90\xA6 bird|\xEF\xBC\xA1 wide|a b|a|ab|AB|repo|reportage|Report 2|"
          "report 10|Zeta|zeta|",
          "Report|report|REPORT.txt|Réport|rÉport|Ärger|ärger|arger|Straße|strasse|ÿ|Ÿ|y|"
          "report_number_0001|Report_Number_0001|report_number_0002|report_number_00|"
          "report_number_|report_numbe|REPORT_NUMBER_0001.TXT|Zeta|zeta|"}) {
        const QStringList names = QString::fromUtf8(text).split(QLatin1Char('|'));
        std::vector<Node> top, inner;
        for (qsizetype i = 0; i < names.size(); ++i) {
            top.push_back(Node::file(names[i].toStdString(), double(i % 5 * 700),
                                     45000 + double(i % 3),
                                     attributes[size_t(i) % std::size(attributes)]));
            if (i % 2 == 0)
                inner.push_back(Node::file(names[i].toStdString(), 1));
        }
        top.push_back(Node::dir("sub", inner));
        Snapshot s;
        buildSnapshot(s, top);
        for (const int column : {int(NameColumn), int(TypeColumn), sortKeyColumn(SizeColumn),
                                 sortKeyColumn(ModifiedColumn), sortKeyColumn(AttributesColumn)}) {
            for (const bool descending : {false, true}) {
                FileList list(s);
                list.list(1, withSubFolders);
                std::vector<int32_t> expected(size_t(list.rowCount()));
                std::iota(expected.begin(), expected.end(), 0);
                std::stable_sort(expected.begin(), expected.end(), [&](int32_t a, int32_t b) {
                    const QString x = list.cellText(a, column).toCaseFolded(),
                                  y = list.cellText(b, column).toCaseFolded();
                    return descending ? y < x : x < y;
                });
                QStringList wanted;
                for (const int32_t r : expected)
                    wanted << list.inFolder(r) + list.cellText(r, NameColumn);
                list.sortByText(column, descending);
                EXPECT_EQ(rowsOf(list), wanted)
                    << "column " << column << (descending ? " descending" : "");
            }
        }
    }
}

// The files of sub-folders are limited by the rows the show mode lists:
// counted as the listing would give them, a big folder's few differences
// fit, all of its entries do not; "Always" gives them to short lists only.
TEST_F(FileListTest, SubFolderLimitCountsTheRowsTheModeLists) {
    std::vector<Node> many, changed;
    for (int i = 0; i < SubFolderRowLimit; ++i) {
        many.push_back(Node::file("f" + std::to_string(i), 1));
        changed.push_back(Node::file("f" + std::to_string(i), i == 7 ? 2 : 1));
    }
    Snapshot s, other;
    buildSnapshot(s, {Node::file("top.txt"), Node::dir("big", many), Node::dir("gone")});
    buildSnapshot(other, {Node::file("top.txt"), Node::dir("big", changed)});
    ProgressMeter meter;
    ASSERT_TRUE(CompareSnapshot(s, 1, other, 1, true, CompareOptions{}, meter).ok);
    const int32_t big = indexOf(s, "big");

    // The count is the listing's, in every mode, with and without empty
    // folders, and stops one past where it was asked to.
    FileList list(s);
    for (int mode = 0; mode <= 5; ++mode) {
        for (const bool empty : {true, false}) {
            const ListingOptions options{ShowMode(mode), true, true, empty};
            list.list(1, options);
            EXPECT_EQ(FileList::countRows(s, 1, options, INT32_MAX), list.rowCount());
            EXPECT_EQ(FileList::countRows(s, 1, options, 2), std::min(list.rowCount(), 3));
        }
    }

    const auto choose = [&](ShowMode mode, int32_t tag, bool asked, int32_t alwaysBelow) {
        const SubFolderChoice c = chooseSubFolders(s, tag, {mode}, asked, alwaysBelow);
        return std::tuple(c.subFolders, c.refused, c.rows);
    };
    // Everything beneath the top: the stored count of its first entry does
    // not decide, the rows do.
    EXPECT_EQ(choose(ShowMode::All, 1, true, 0), std::tuple(false, true, 0));
    EXPECT_EQ(choose(ShowMode::Differences, 1, true, 0), std::tuple(true, false, 3));
    EXPECT_EQ(choose(ShowMode::All, big + 1, true, 0), std::tuple(true, false, SubFolderRowLimit));
    EXPECT_EQ(choose(ShowMode::Changed, big + 1, false, 0), std::tuple(false, false, 0));
    // "Always" with a limit of 1,000: below it on, at it off, never refused.
    EXPECT_EQ(choose(ShowMode::Changed, 1, false, 1000), std::tuple(true, false, 2));
    EXPECT_EQ(choose(ShowMode::All, 1, false, 1000), std::tuple(false, false, 0));
    EXPECT_EQ(choose(ShowMode::Differences, 1, false, 3), std::tuple(false, false, 0));
}

// The window's own summaries, beyond the ones its tests see: counts of
// extra folders are not grouped, the folder panel's are.
TEST_F(FileListTest, ChangeSummaryTexts) {
    ListingCounters some;
    EXPECT_EQ(ShowChanges(true, false, ShowMode::None, some),
              "Click Compare to compare this Snapshot against the other");
    EXPECT_EQ(ShowChanges(true, true, ShowMode::OnlyHere, some), "No changes in visible entries");
    some.extraFiles = 1;
    some.changedFiles = 2;
    some.extraFolders = 12345;
    EXPECT_EQ(ShowChanges(true, true, ShowMode::All, some),
              "1 extra file, 12345 extra folders, 2 changed files");
    EXPECT_EQ(foldersText(1) + foldersText(2500), "1 folder 2,500 folders ");
}

TEST_F(FileListTest, FolderIndexSortsSubFoldersByNameKeepingCaseTwinsInTableOrder) {
    Snapshot s;
    buildSnapshot(s, {Node::dir("beta"), Node::file("a"), Node::dir("Alpha"), Node::dir("alpha"),
                      Node::dir("gamma", {Node::dir("z"), Node::dir("Y")})});
    const FolderIndex index = FolderIndex::build(s);
    EXPECT_EQ(index.folderCount(), 7);
    EXPECT_EQ(subFolderNames(s, index, 0), (QStringList{"Alpha", "alpha", "beta", "gamma"}));
    const int32_t gamma = index.subFolders(0)[3];
    EXPECT_EQ(index.entryOf(gamma), indexOf(s, "gamma"));
    EXPECT_EQ(subFolderNames(s, index, gamma), (QStringList{"Y", "z"}));
    EXPECT_EQ(index.parentOf(index.subFolders(gamma)[0]), gamma);
    EXPECT_TRUE(index.subFolders(index.subFolders(0)[0]).empty());
}

// Damaged links are found once, when the index is built, so the views can
// walk the snapshot without meeting them.
TEST_F(FileListTest, FolderIndexRefusesDamagedLinks) {
    const auto damaged = [](const std::function<void(Snapshot&)>& damage) {
        Snapshot s;
        buildSnapshot(s, {Node::file("a"), Node::dir("d", {Node::file("x"), Node::file("y")}),
                          Node::file("b")});
        damage(s);
        FolderIndex index;
        const Outcome outcome = FolderIndex::buildChecked(s, "Invalid Snapshot", index);
        return !outcome.ok && outcome.message &&
               outcome.message->text == "Subscript out of range" &&
               outcome.message->title == "Invalid Snapshot" && index.folderCount() == 1;
    };
    // a=1, d=2, x=3, y=4, b=5
    EXPECT_TRUE(damaged([](Snapshot& s) { s.mutableEntry(4).nextSibling = 4 + 1000; }));
    EXPECT_TRUE(damaged([](Snapshot& s) { s.mutableEntry(5).nextSibling = 2; })); // never back to 1
    EXPECT_TRUE(damaged([](Snapshot& s) { s.mutableEntry(4).parent = 1; }));
    EXPECT_TRUE(damaged([](Snapshot& s) { s.mutableEntry(4).parent = -7; }));
    // A folder inside itself.
    EXPECT_TRUE(damaged([](Snapshot& s) {
        s.mutableEntry(2).parent = 2;
        s.mutableEntry(1).parent = 2;
        s.mutableEntry(5).parent = 2;
    }));
    EXPECT_FALSE(damaged([](Snapshot&) {}));
}

// What Kestrel writes opens again, the empty records that fill a loaded
// snapshot's capacity included, however often it is saved.
TEST_F(FileListTest, EverySavedSnapshotIndexesAgain) {
    QTemporaryDir dir;
    Snapshot built;
    buildSnapshot(built, {Node::file("a"), Node::dir("d", {Node::file("x"), Node::dir("e")})});
    built.header.fileName = dir.filePath("s.#01");
    ProgressMeter meter;
    ASSERT_TRUE(SaveSnapshot(built, meter).ok);
    for (int round = 1; round <= 3; ++round) {
        Snapshot loaded;
        loaded.header.fileName = dir.filePath(QStringLiteral("s.#0%1").arg(round));
        ASSERT_TRUE(LoadSnapshot(loaded, meter).ok);
        FolderIndex index;
        ASSERT_TRUE(FolderIndex::buildChecked(loaded, "Invalid Snapshot", index).ok) << round;
        EXPECT_EQ(index.folderCount(), 3);
        FileList list(loaded);
        list.list(1, ListingOptions{ShowMode::None, true, true, true});
        EXPECT_EQ(rowsOf(list), (QStringList{"a", "d", "d/x", "d/e"}));
        loaded.header.fileName = dir.filePath(QStringLiteral("s.#0%1").arg(round + 1));
        ASSERT_TRUE(SaveSnapshot(loaded, meter).ok);
    }
}

} // namespace
