#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/compare/Moves.h"
#include "engine/compare/RingLookup.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/CaseFold.h"
#include "engine/model/FileSystemNames.h"
#include "engine/support/OleDate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

#include <QHash>
#include <QLocale>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

// A snapshot of the nodes with the given root folder.
Snapshot built(const std::vector<Node>& nodes, const QString& root = u"/built/"_s) {
    Snapshot s;
    buildSnapshot(s, nodes);
    s.header.rootFolder = root;
    return s;
}

class CompareTest : public testing::Test {
protected:
    void SetUp() override { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    static void scanInto(Snapshot& s, const TempTree& tree) { ASSERT_TRUE(scanTree(s, tree).ok); }

    Outcome compare(const CompareOptions& options = {}) {
        ProgressMeter meter;
        return CompareSnapshot(newer, 1, older, 1, true, options, meter);
    }

    const SnapshotEntry& inNew(const char* path) { return newer.entry(at(newer, path)); }
    const SnapshotEntry& inOld(const char* path) { return older.entry(at(older, path)); }
    static int32_t at(const Snapshot& s, const char* path) {
        const int32_t i = indexOf(s, QString::fromUtf8(path));
        EXPECT_NE(i, 0) << path;
        return i;
    }
    // What changed, told from the newer side.
    QString told(const char* path, const CompareOptions& options = {}) {
        return WhatChanged(newer, older, at(newer, path), options);
    }

    Snapshot older, newer;
};

// Both sides are marked, each entry pointing at its counterpart, and each
// tells what it was on the other side. (kestrel-cli's tests see the lists
// of differences, the empty folder's negative match and the options.)
TEST_F(CompareTest, MarksAddedRemovedAndChangedFilesOnBothSides) {
    TempTree before, after;
    before.file(u"docs/grown.txt"_s, QByteArray(1000, 'g'), 1700000000);
    before.file(u"docs/gone.txt"_s);
    before.file(u"was-file"_s, "f");
    after.file(u"docs/grown.txt"_s, QByteArray(1234, 'g'), 1700000000);
    for (const QString& f :
         {u"docs/new.txt"_s, u"added/inner/deep.txt"_s, u"was-file/now-inside.txt"_s})
        after.file(f);
    scanInto(older, before);
    scanInto(newer, after);
    ASSERT_TRUE(compare().ok);

    EXPECT_EQ(inNew("docs/grown.txt").status, Change::Size);
    EXPECT_EQ(inOld("docs/grown.txt").status, Change::Size);
    EXPECT_EQ(inNew("docs/grown.txt").match, at(older, "docs/grown.txt"));
    EXPECT_EQ(inOld("docs/grown.txt").match, at(newer, "docs/grown.txt"));
    EXPECT_EQ(told("docs/grown.txt"), u"[was 1,000]"_s);
    EXPECT_EQ(WhatChanged(older, newer, at(older, "docs/grown.txt"), {}), u"[was 1,234]"_s);
    EXPECT_EQ(inNew("docs/new.txt").match, 0);
    EXPECT_EQ(inOld("docs/gone.txt").match, 0);
    EXPECT_EQ(told("docs/new.txt"), u"[was not in other Snapshot]"_s);
    EXPECT_EQ(inNew("docs").status, 2);
    EXPECT_EQ(inOld("docs").status, 2);
    EXPECT_EQ(told("docs"), u"[contains changes]"_s);
    // A folder with contents that is only in one snapshot: unmatched, and the
    // walk leaves its contents as the scan left them.
    EXPECT_EQ(inNew("added").match, 0);
    EXPECT_EQ(inNew("added/inner/deep.txt").match, 0);

    // A file replaced by a folder of the same name: the folder's contents have
    // no counterpart, the file is compared with the folder's values.
    EXPECT_EQ(inNew("was-file").match, -at(older, "was-file"));
    EXPECT_GT(inNew("was-file").status, 0);
    EXPECT_EQ(inNew("was-file/now-inside.txt").match, 0);
    EXPECT_EQ(inOld("was-file").match, at(newer, "was-file"));
    EXPECT_EQ(inOld("was-file").status & (Change::Attributes | Change::Size),
              Change::Attributes | Change::Size);
}

// On POSIX run.sh and RUN.sh are two files, and so are names that fold alike
// (paſſwd with the long s, Kernel with the Kelvin sign) or read alike (café
// in Latin-1 bytes): each beside its look-alike, with the same size and
// date, is an entry without counterpart, from whichever side the comparison
// starts. A name changed only in case is one entry gone and one added. (The
// hostile names' tests compare such twins with themselves.)
TEST_F(CompareTest, LookAlikeNamesMadeOnPosixAreEntriesOfTheirOwn) {
    const QStringList inBoth = {u"run.sh"_s, u"A"_s,    u"copyright"_s, u"passwd"_s,
                                u"kernel"_s, u"café"_s, u"Dir/f"_s};
    const QStringList onlyBefore = {u"a"_s, u"Readme.TXT"_s};
    const QStringList onlyAfter = {u"RUN.sh"_s,      u"COPYRIGHT"_s,        u"pa\u017F\u017Fwd"_s,
                                   u"\u212Aernel"_s, nativeText("caf\xE9"), u"dir/f"_s,
                                   u"README.txt"_s};
    TempTree before, after;
    const auto make = [](TempTree& tree, const QStringList& paths) {
        for (const QString& path : paths)
            tree.file(path, "same", 1700000000);
    };
    make(before, inBoth + onlyBefore);
    make(after, inBoth + onlyAfter);
    scanInto(older, before);
    scanInto(newer, after);

    const auto entryOf = [](const Snapshot& s, const QString& path) {
        const int32_t i = indexOf(s, storedPath(path));
        EXPECT_NE(i, 0) << path.toStdString();
        return s.entry(i);
    };
    for (const bool fromNewer : {true, false}) {
        ProgressMeter meter;
        ASSERT_TRUE(fromNewer ? CompareSnapshot(newer, 1, older, 1, true, {}, meter).ok
                              : CompareSnapshot(older, 1, newer, 1, true, {}, meter).ok);
        for (const QString& path : inBoth) {
            SCOPED_TRACE(path.toStdString());
            EXPECT_EQ(entryOf(newer, path).match, indexOf(older, path));
            EXPECT_EQ(entryOf(older, path).match, indexOf(newer, path));
            EXPECT_EQ(entryOf(newer, path).status, 0);
        }
        for (const QString& path : onlyBefore)
            EXPECT_EQ(entryOf(older, path).match, 0) << path.toStdString();
        for (const QString& path : onlyAfter)
            EXPECT_EQ(entryOf(newer, path).match, 0) << path.toStdString();
        EXPECT_EQ(entryOf(newer, u"Dir"_s).status, 0);
    }
}

// A snapshot made on Windows keeps matching names without regard to case,
// with another made there and with one made on POSIX.
TEST_F(CompareTest, SnapshotsMadeOnWindowsStillMatchAcrossCase) {
    // The Windows program's file: C:\Data\ holding Reports (with a.txt) and b.txt.
    QTemporaryDir dir;
    ASSERT_TRUE(writeBytes(dir.path() + u"/data.#01"_s, exampleSnapshotFile()));
    ASSERT_TRUE(loadSnapshotFrom(older, dir.path() + u"/data.#01"_s).ok);
    TempTree tree;
    tree.file(u"REPORTS/A.TXT"_s, QByteArray(1234, 'a'));
    tree.file(u"B.txt"_s, QByteArray(99, 'b'));
    scanInto(newer, tree);
    const auto expectAllMatched = [](const Snapshot& s) {
        for (int32_t i = 1; i <= s.entryCount; ++i)
            EXPECT_NE(s.entry(i).match, 0) << s.name(i);
    };
    ASSERT_TRUE(compare().ok);
    expectAllMatched(older);
    expectAllMatched(newer);
    Snapshot windowsMade = built(
        {Node::dir("reports", {Node::file("A.txt", 1234)}), Node::file("B.TXT")}, u"C:\\Data\\"_s);
    ProgressMeter meter;
    ASSERT_TRUE(CompareSnapshot(windowsMade, 1, older, 1, true, {}, meter).ok);
    expectAllMatched(windowsMade);
}

// Dates within the tolerance are the same, one second more is not; an
// hour either way, within the tolerance, is a clock change when asked.
TEST_F(CompareTest, DateToleranceIsStrictAndClockChangesCanBeIgnored) {
    constexpr double Second = 1.0 / 86400;
    const struct {
        std::string name;
        double seconds;
        bool changed[3]; // at 30 s, at 30 s ignoring clock changes, at 0 s ignoring them
    } moves[] = {{"exact", 30, {false, false, true}},
                 {"one-more", 31, {true, true, true}},
                 {"hour", 3600, {true, false, false}},
                 {"hour-and-tolerance", 3630, {true, false, true}},
                 {"hour-and-more", 3631, {true, true, true}},
                 {"back-an-hour", -3600, {true, false, false}}};
    std::vector<Node> before, after;
    for (const auto& m : moves) {
        before.push_back(Node::file(m.name, 1, roundTo15Digits(45000.5)));
        after.push_back(Node::file(m.name, 1, roundTo15Digits(45000.5 + m.seconds * Second)));
    }
    buildSnapshot(older, before);
    buildSnapshot(newer, after);
    const std::pair<double, bool> settings[] = {{30, false}, {30, true}, {0, true}};
    for (size_t k = 0; k < std::size(settings); ++k) {
        CompareOptions options;
        options.dateTolerance = settings[k].first * Second;
        options.ignoreDst = settings[k].second;
        ASSERT_TRUE(compare(options).ok);
        for (const auto& m : moves)
            EXPECT_EQ(inNew(m.name.c_str()).status, m.changed[k] ? Change::Date : 0)
                << m.name << " in setting " << k;
        EXPECT_EQ(told("hour", options).isEmpty(), !moves[2].changed[k]);
    }
}

// Versions are compared without regard to case; the attribute mask keeps
// only its bits, in the status and in the text. A file that was offline on
// Windows (the unknown bit, with its date) is compared, and every difference
// is told in order. (kestrel-cli's tests see sizes ignored and the read-only
// bit left out, and compare values a scan could not read with the same
// values read.)
TEST_F(CompareTest, AttributesVersionsAndSizesRespectTheOptions) {
    // ro is made read-only, arc loses its archive bit, c.dll's version
    // changes only in case.
    const double march4 = oleDateFromParts(2001, 3, 4, 10, 15, 0);
    buildSnapshot(older, {Node::file("ro", 5, 45000, 128), Node::file("arc", 5, 45000, 33),
                          Node::file("v.dll", 7, 45000, 0, "1.00.0000"),
                          Node::file("c.dll", 0, 45000, 0, "1.0a"),
                          Node::file("offline", 5, 45000, Attribute::Unknown),
                          Node::file("f", 1000, march4, 33, "1.00.0000")});
    buildSnapshot(newer, {Node::file("ro", 5, 45000, 1), Node::file("arc", 5, 45000, 1),
                          Node::file("v.dll", 7, 45000, 0, "1.01.0000"),
                          Node::file("c.dll", 0, 45000, 0, "1.0A"),
                          Node::file("offline", 6, 45000, Attribute::Unknown),
                          Node::file("f", 1234, march4 + 1, 0, "2.00.0000")});
    ASSERT_TRUE(compare().ok);
    EXPECT_EQ(inNew("v.dll").status, Change::Version);
    EXPECT_EQ(inNew("c.dll").status, 0);
    EXPECT_EQ(told("v.dll"), u"[was 1.00.0000]"_s);
    EXPECT_EQ(inNew("offline").status, Change::Size);
    EXPECT_EQ(inNew("f").status,
              Change::Size + Change::Date + Change::Attributes + Change::Version);
    EXPECT_EQ(told("f"), u"[was 1,000  3/4/01 10:15:00 AM  R/O,Arc  1.00.0000]"_s);

    CompareOptions options;
    options.ignoreVersion = true;
    options.attributeCompareMask = uint16_t(Attribute::Archive);
    ASSERT_TRUE(compare(options).ok);
    EXPECT_EQ(inNew("v.dll").status, 0);
    EXPECT_EQ(inNew("ro").status, 0);
    EXPECT_EQ(inNew("arc").status, Change::Attributes);
    EXPECT_EQ(told("ro", options), QString());
    EXPECT_EQ(told("arc", options), u"[was R/O,Arc]"_s);
    options.attributeCompareMask = 0;
    ASSERT_TRUE(compare(options).ok);
    EXPECT_EQ(inNew("arc").status, 0);
    EXPECT_EQ(told("arc", options), QString());
}

TEST_F(CompareTest, LoadedSnapshotsWithManyFoldersCompare) {
    // A loaded table is sized to its file's entries, not in steps of 4,096:
    // a walk with a folder for every other entry must still fit in it.
    std::vector<Node> folders;
    for (int i = 0; i < 200; ++i)
        folders.push_back(Node::dir(std::to_string(i) + "d", {Node::file("f")}));
    Snapshot saved = built(folders);
    QTemporaryDir dir;
    ASSERT_TRUE(saveSnapshotAs(saved, dir.path() + u"/many.#01"_s).ok);
    ASSERT_TRUE(loadSnapshotFrom(older, saved.header.fileName).ok);
    ASSERT_TRUE(loadSnapshotFrom(newer, saved.header.fileName).ok);
    ASSERT_TRUE(compare().ok);
    for (int32_t i = 1; i <= newer.entryCount; ++i)
        EXPECT_GT(newer.entry(i).match, 0);
}

TEST(RingLookup, AnswersExactlyAsTheRingWalk) {
    // Rings of several sizes with repeated names (in any case), looked up
    // from every start under either rule: the index must give what the walk
    // gives.
    std::mt19937 random(11);
    for (const NameMatching rule : {NameMatching::Exact, NameMatching::IgnoreCase})
        for (int size : {1, 5, 40, 300}) {
            std::vector<Node> nodes;
            for (int i = 0; i < size; ++i) {
                std::string name = "n" + std::to_string(random() % (size / 3 + 1));
                if (random() % 2)
                    name[0] = 'N';
                nodes.push_back(Node::file(name));
            }
            const Snapshot s = built(nodes);
            for (const std::string wanted : {"n0", "N1", "n2", "missing"}) {
                NameHashes hashes(s, rule);
                RingLookup lookup(s, hashes);
                // The wanted name as the name of an entry of a snapshot of its own.
                const Snapshot wantedSnapshot = built({Node::file(wanted)});
                NameHashes wantedHashes(wantedSnapshot, rule);
                int32_t viaIndex = 1;
                int32_t viaWalk = 1;
                for (int step = 0; step < size + 3; ++step) {
                    const int32_t a = lookup.locate(viaIndex, wanted, wantedHashes, 1);
                    const int32_t b = s.locateEntry(viaWalk, wanted, rule);
                    ASSERT_EQ(a, b) << "rule " << int(rule) << " size " << size << " name "
                                    << wanted << " step " << step;
                    ASSERT_EQ(viaIndex, viaWalk);
                    // Move on as the comparison does: from the match or a member.
                    viaIndex = viaWalk = 1 + int32_t(random() % uint32_t(size));
                }
            }
        }
}

// A random tree, and a second one as another listing and some changes would
// make it: folders in another order, names in another case, names twice in
// different cases, entries gone and added, files changed or become folders.
class RandomTrees {
public:
    explicit RandomTrees(unsigned seed) : m_random(seed) {}

    std::vector<Node> tree(int depth = 0) {
        std::vector<Node> nodes;
        const int count = depth == 0 ? 40 : int(m_random() % (depth < 2 ? 60 : 12));
        for (int i = 0; i < count; ++i) {
            const std::string name = "entry" + std::to_string(i) + (i % 3 ? ".txt" : "");
            if (depth < 3 && m_random() % 5 == 0)
                nodes.push_back(Node::dir(name, tree(depth + 1)));
            else
                nodes.push_back(Node::file(name, double(m_random() % 100), 45000 + m_random() % 3));
        }
        return nodes;
    }

    std::vector<Node> variant(std::vector<Node> nodes) {
        if (const unsigned order = m_random() % 3; order == 0)
            std::shuffle(nodes.begin(), nodes.end(), m_random);
        else if (order == 1)
            std::reverse(nodes.begin(), nodes.end());
        std::vector<Node> out;
        for (Node& n : nodes) {
            const unsigned roll = m_random() % 40;
            if (roll == 0)
                continue; // gone
            if (roll == 1)
                n.name[0] = 'E';
            if (roll == 2) {
                Node twin = n;
                twin.name[0] = 'E';
                // A folder's twin is a file, or a folder of other contents.
                twin.folder = n.folder && m_random() % 2;
                twin.children.clear();
                if (twin.folder)
                    twin.children.push_back(Node::file("twin only"));
                out.insert(m_random() % 2 ? out.end() : out.begin(), twin);
            }
            if (roll == 3)
                n.size += 1;
            if (roll == 4 && !n.folder)
                n = Node::dir(n.name, {Node::file("inside")});
            if (roll == 5 && n.folder)
                n = Node::file(n.name);
            n.children = variant(std::move(n.children));
            out.push_back(std::move(n));
        }
        if (m_random() % 4 == 0)
            out.push_back(Node::file("added" + std::to_string(m_random() % 5)));
        return out;
    }

private:
    std::mt19937 m_random;
};

// Compares first and second both ways, and each of them one way, and expects
// every entry's match and status to come out the same: with both snapshots
// made on POSIX (names matched exactly), and with the first made on Windows
// (names matched without regard to case).
void expectBothWaysAsOneWay(const std::vector<Node>& first, const std::vector<Node>& second,
                            const std::string& context) {
    for (const QString& firstRoot : {u"/built/"_s, u"C:\\Built\\"_s}) {
        Snapshot a = built(first, firstRoot), oneWayA = built(first, firstRoot);
        Snapshot b = built(second), oneWayB = built(second);
        ProgressMeter meter;
        ASSERT_TRUE(CompareSnapshot(a, 1, b, 1, true, {}, meter).ok);
        ASSERT_TRUE(CompareSnapshot(oneWayA, 1, oneWayB, 1, false, {}, meter).ok);
        ASSERT_TRUE(CompareSnapshot(oneWayB, 1, oneWayA, 1, false, {}, meter).ok);
        for (auto [both, oneWay] : {std::pair{&a, &oneWayA}, std::pair{&b, &oneWayB}})
            for (int32_t i = 1; i <= both->entryCount; ++i)
                ASSERT_EQ(std::pair(both->entry(i).match, both->entry(i).status),
                          std::pair(oneWay->entry(i).match, oneWay->entry(i).status))
                    << context << " first root " << firstRoot.toStdString() << " entry " << i << " "
                    << both->name(i);
    }
}

TEST(CompareBothWays, GivesWhatTwoOneWayComparisonsGive) {
    // The second way of a comparison both ways may take the first way's
    // matches; whatever it takes must be what comparing again would find.
    for (unsigned seed = 1; seed <= 40; ++seed) {
        RandomTrees random(seed);
        std::vector<Node> first = random.tree();
        std::vector<Node> second = random.variant(first);
        if (seed % 2) // the side with names twice compared first
            std::swap(first, second);
        expectBothWaysAsOneWay(first, second, "seed " + std::to_string(seed));
    }
    // Two folders whose names differ in case both find the one folder of the
    // other side, in every order: the second way finds only one of them.
    const std::vector<Node> contents = {Node::file("a"), Node::file("b"), Node::file("c")};
    const std::vector<Node> reversed(contents.rbegin(), contents.rend());
    const std::vector<Node> apart = {Node::file("x"), Node::file("y")};
    std::vector<Node> twins = {Node::dir("D", apart), Node::dir("d", contents), Node::file("e"),
                               Node::file("f")};
    std::vector<Node> one = {Node::dir("d", reversed), Node::file("e"), Node::file("f")};
    auto byName = [](const Node& x, const Node& y) { return x.name < y.name; };
    int order = 0;
    do {
        do {
            const std::string context = "order " + std::to_string(++order);
            expectBothWaysAsOneWay(twins, one, context + ", twins first");
            expectBothWaysAsOneWay(one, twins, context + ", twins second");
        } while (std::next_permutation(one.begin(), one.end(), byName));
    } while (std::next_permutation(twins.begin(), twins.end(), byName));
}

// The nodes the patterns leave, found path by path from the top: what a
// user who deleted the ignored entries by hand would have scanned.
std::vector<Node> withoutIgnored(const std::vector<Node>& nodes, const IgnorePatterns& patterns,
                                 const std::string& folder = {}) {
    std::vector<Node> kept;
    for (const Node& n : nodes) {
        const std::string path = folder + n.name;
        const bool fold = patterns.matching() == NameMatching::IgnoreCase;
        if (patterns.ignores(fold ? foldCase(path) : path, n.folder))
            continue;
        Node copy = n;
        copy.children = withoutIgnored(n.children, patterns, path + "/");
        kept.push_back(std::move(copy));
    }
    return kept;
}

QHash<QString, int32_t> entriesByPath(const Snapshot& s) {
    QHash<QString, int32_t> paths;
    for (int32_t i = 1; i <= s.entryCount; ++i)
        paths.insert(s.relativePath(i), i);
    return paths;
}

// Every entry of full that the patterns keep has the status, the kind of
// match and the counterpart (by path) its copy in cut has; every other is
// marked ignored.
void expectAsIfRemoved(const Snapshot& full, const Snapshot& fullOther, const Snapshot& cut,
                       const Snapshot& cutOther, const std::string& context) {
    const QHash<QString, int32_t> cutPaths = entriesByPath(cut);
    int32_t ignored = 0;
    for (int32_t i = 1; i <= full.entryCount; ++i) {
        const SnapshotEntry& e = full.entry(i);
        const QString path = full.relativePath(i);
        SCOPED_TRACE(context + " " + path.toStdString());
        ASSERT_EQ(e.isIgnored(), !cutPaths.contains(path));
        if (e.isIgnored()) {
            ++ignored;
            EXPECT_EQ(e.match, 0);
            continue;
        }
        const SnapshotEntry& c = cut.entry(cutPaths.value(path));
        ASSERT_EQ(e.status, c.status);
        ASSERT_EQ((e.match > 0) - (e.match < 0), (c.match > 0) - (c.match < 0));
        if (e.match != 0) {
            ASSERT_EQ(fullOther.relativePath(std::abs(e.match)),
                      cutOther.relativePath(std::abs(c.match)));
        }
    }
    EXPECT_EQ(ignored, full.ignoredCount) << context;
    EXPECT_EQ(full.entryCount - cut.entryCount, ignored) << context;
}

TEST(CompareIgnoring, GivesWhatComparingWithoutTheIgnoredEntriesGives) {
    // Names, anchors, "**", folders only (some entries are files on one side
    // and folders on the other), a negation, and case.
    const char* const text = "entry1*\n!entry12.txt\n/entry4\nentry2?/**/entry3.txt\n"
                             "entry6/\ninside\n*only\nEntry5.txt\n";
    const auto stored = std::make_shared<const IgnorePatterns>(text, u"Ignore Patterns"_s);
    for (unsigned seed = 1; seed <= 30; ++seed) {
        RandomTrees random(seed);
        const std::vector<Node> first = random.tree();
        const std::vector<Node> second = random.variant(first);
        for (const QString& root : {u"/built/"_s, u"C:\\Built\\"_s}) {
            // The stored patterns, or the same as one snapshot's own.
            for (const bool own : {false, true}) {
                const std::string context =
                    std::to_string(seed) + root.toStdString() + (own ? " own" : " stored");
                Snapshot a = built(first, root), b = built(second);
                const IgnorePatterns patterns = stored->forMatching(nameMatchingFor(a, b));
                Snapshot cutA = built(withoutIgnored(first, patterns), root),
                         cutB = built(withoutIgnored(second, patterns));
                CompareOptions options;
                if (own)
                    b.header.ownIgnorePatterns = text;
                else
                    options.ignorePatterns = stored;
                ProgressMeter meter;
                ASSERT_TRUE(CompareSnapshot(a, 1, b, 1, true, options, meter).ok);
                ASSERT_TRUE(CompareSnapshot(cutA, 1, cutB, 1, true, {}, meter).ok);
                expectAsIfRemoved(a, b, cutA, cutB, context + " first");
                expectAsIfRemoved(b, a, cutB, cutA, context + " second");
                // Compared again, the first comparison's marks change nothing.
                ASSERT_TRUE(CompareSnapshot(a, 1, b, 1, true, options, meter).ok);
                expectAsIfRemoved(a, b, cutA, cutB, context + " again");
                // A comparison one way marks all entries before it starts.
                ASSERT_TRUE(CompareSnapshot(a, 1, b, 1, false, options, meter).ok);
                ASSERT_TRUE(CompareSnapshot(cutA, 1, cutB, 1, false, {}, meter).ok);
                expectAsIfRemoved(a, b, cutA, cutB, context + " one way");

                // Compared again without patterns, nothing stays ignored.
                b.header.ownIgnorePatterns.clear();
                ASSERT_TRUE(CompareSnapshot(a, 1, b, 1, true, {}, meter).ok);
                for (const Snapshot* s : {&a, &b}) {
                    EXPECT_EQ(s->ignoredCount, 0);
                    for (int32_t i = 1; i <= s->entryCount; ++i)
                        ASSERT_FALSE(s->entry(i).isIgnored()) << context;
                }
            }
        }
    }
}

TEST_F(CompareTest, DamagedRingsEndWithAnErrorInsteadOfHanging) {
    for (Snapshot* s : {&older, &newer})
        buildSnapshot(*s, {Node::dir("d", {Node::file("a"), Node::file("b"), Node::file("c")})});
    const auto expectOutOfRange = [&] {
        const Outcome o = compare();
        EXPECT_TRUE(!o.ok && o.error == ErrorCode::SubscriptOutOfRange);
        EXPECT_EQ(o.message.value_or(UserMessage{}).text, u"Subscript out of range"_s);
    };
    // c points back to b instead of a: the ring never returns to its start.
    newer.mutableEntry(4).nextSibling = 3;
    expectOutOfRange();
    // An index outside the table.
    newer.mutableEntry(4).nextSibling = 999999;
    expectOutOfRange();

    // Folders whose contents loop back to a folder above them, on both sides,
    // so that every folder finds a counterpart to descend into.
    for (Snapshot* s : {&older, &newer}) {
        s->mutableEntry(4).nextSibling = 2;
        for (int32_t i : {2, 3, 4})
            s->mutableEntry(i).attributes = 16;
        s->mutableEntry(3).parent = 2;
        s->mutableEntry(4).parent = 3;
        s->mutableEntry(5).parent = 4; // 4 "contains" 5, whose ring leads back to 2
        s->mutableEntry(5).nextSibling = 2;
    }
    expectOutOfRange();
}

} // namespace

TEST(CompareMarks, ListTheDifferencesAndMovesAWalkOfEverythingFinds) {
    // What the comparison marked lets the listing of differences and the
    // search for moves pass over whole folders: both must find what walking
    // every entry finds, with names twice, folders become files, and
    // entries ignored.
    const auto stored = std::make_shared<const IgnorePatterns>("entry1*\n!entry12.txt\nentry6/\n",
                                                               u"Ignore Patterns"_s);
    const auto rows = [](const std::vector<Difference>& differences) {
        std::vector<std::pair<char, int32_t>> out;
        for (const Difference& d : differences)
            out.emplace_back(char(d.kind), d.index);
        return out;
    };
    const auto moves = [](const MoveList& list) {
        std::vector<std::tuple<int32_t, int32_t, bool>> out;
        for (const Move& m : list.moves)
            out.emplace_back(m.from, m.to, m.folder);
        return std::pair(out, std::pair(list.files, list.folders));
    };
    int passedOver = 0;
    for (unsigned seed = 1; seed <= 40; ++seed) {
        RandomTrees random(seed);
        std::vector<Node> first = random.tree();
        std::vector<Node> second = random.variant(first);
        if (seed % 2)
            std::swap(first, second);
        for (const QString& root : {u"/built/"_s, u"C:\\Built\\"_s}) {
            const std::string context = std::to_string(seed) + root.toStdString();
            Snapshot older = built(first, root), newer = built(second);
            CompareOptions options;
            if (seed % 3 == 0)
                options.ignorePatterns = stored;
            ProgressMeter meter;
            ChangedFolders changed;
            ASSERT_TRUE(CompareSnapshot(newer, 1, older, 1, true, options, meter, &changed).ok);
            const std::vector<Difference> everything = listDifferences(newer, older);
            EXPECT_EQ(rows(listDifferences(newer, older, &changed.self, &changed.other)),
                      rows(everything))
                << context;
            EXPECT_EQ(moves(detectMoves(older, 1, newer, 1, &changed.other, &changed.self)),
                      moves(detectMoves(older, 1, newer, 1)))
                << context;
            for (int32_t i = 1; i <= newer.entryCount; ++i)
                passedOver +=
                    newer.entry(i).isFolder() && newer.entry(i).match != 0 && !changed.self.has(i);
        }
    }
    // The marks do leave folders out.
    EXPECT_GT(passedOver, 100);
}
