#include "engine/Snapshot.h"
#include "engine/Errors.h"

#include <gtest/gtest.h>

#include <string>

using namespace kestrel::engine;

namespace {

constexpr int16_t FileAttr = Attribute::Archive;
constexpr int16_t FolderAttr = Attribute::Folder;

const QString OutOfRange = QStringLiteral("Subscript out of range");

// The text of the runtime error that f raises, empty when it raises none.
template <typename F> QString raised(F f) {
    try {
        f();
    } catch (const RuntimeError& e) {
        return e.text();
    }
    return {};
}

// A snapshot whose entries 1..names.size() form one ring in the root folder.
Snapshot ringOf(std::initializer_list<const char*> names) {
    Snapshot s;
    const auto n = int32_t(names.size());
    int32_t i = 0;
    for (const char* name : names) {
        ++i;
        s.createEntry(FileAttr, 0, i == n ? 1 : i + 1, name, 0, 0, "");
    }
    return s;
}

} // namespace

TEST(SnapshotTable, GrowsInStepsOf4096KeepingEntries) {
    Snapshot s;
    EXPECT_EQ(s.capacity(), 0);
    for (int32_t i = 1; i <= 4097; ++i) {
        s.createEntry(FileAttr, i * 0.5, i + 1, std::to_string(i), i / 2, i * 3.0,
                      i % 100 == 0 ? "1.02.03.04" : "");
        if (i == 1 || i == 4096) {
            EXPECT_EQ(s.capacity(), 4096) << "after entry " << i;
        }
    }
    EXPECT_EQ(s.capacity(), 8192);
    EXPECT_EQ(s.entryCount, 4097);
    for (int32_t i = 1; i <= 4097; ++i) {
        const SnapshotEntry& e = s.entry(i);
        ASSERT_EQ(s.name(i), std::to_string(i));
        ASSERT_EQ(e.modified, i * 0.5);
        ASSERT_EQ(e.nextSibling, i + 1);
        ASSERT_EQ(e.parent, i / 2);
        ASSERT_EQ(e.size, i * 3.0);
        ASSERT_EQ(e.attributes, FileAttr);
        ASSERT_EQ(s.version(i), i % 100 == 0 ? "1.02.03.04" : "");
    }
    // Never-written slots inside the capacity read as empty records.
    EXPECT_EQ(s.entry(8192).nextSibling, 0);
    EXPECT_EQ(s.name(8192), "");
}

TEST(SnapshotTable, CreateEntryKeepsComparisonFieldsOfTheSlot) {
    Snapshot s;
    s.createEntry(FileAttr, 1, 1, "old", 0, 10, "");
    SnapshotEntry& e = s.mutableEntry(1);
    e.status = 8;
    e.count = 5;
    e.match = -7;
    s.entryCount = 0;
    s.createEntry(FolderAttr, 2, 1, "new", 0, 0, "v");
    EXPECT_EQ(s.entry(1).status, 8);
    EXPECT_EQ(s.entry(1).count, 5);
    EXPECT_EQ(s.entry(1).match, -7);
    EXPECT_EQ(s.name(1), "new");
    EXPECT_EQ(s.entry(1).attributes, FolderAttr);
}

TEST(SnapshotTable, AccessOutsideTheTableRaises) {
    Snapshot empty;
    EXPECT_EQ(empty.entry(0).count, 0); // index 0 always exists
    EXPECT_EQ(raised([&] { empty.entry(1); }), OutOfRange);

    Snapshot s = ringOf({"a"});
    EXPECT_EQ(raised([&] { s.entry(s.capacity()); }), QString());
    EXPECT_EQ(raised([&] { s.entry(-1); }), OutOfRange);
    EXPECT_EQ(raised([&] { s.entry(s.capacity() + 1); }), OutOfRange);
    EXPECT_EQ(raised([&] { s.mutableEntry(s.capacity() + 1); }), OutOfRange);
    EXPECT_EQ(raised([&] { s.name(INT32_MIN); }), OutOfRange);
}

TEST(LocateEntry, RingOfOne) {
    Snapshot s = ringOf({"Only"});
    int32_t index = 1;
    EXPECT_EQ(s.locateEntry(index, "ONLY"), 1);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(s.locateEntry(index, "other"), 0);
    EXPECT_EQ(index, 1);
}

TEST(LocateEntry, MatchesWholeNamesIgnoringCase) {
    Snapshot s = ringOf({"a.txt", "Readme.TXT", "b"});
    struct Case {
        int32_t given;
        const char* name;
        int32_t found;
        int32_t indexAfter;
    };
    const Case cases[] = {
        {1, "README.txt", 2, 2},
        {2, "readme.txt", 2, 2}, // the given entry is visited last
        {3, "A.TXT", 1, 1},
        {1, "Readme", 0, 2}, // no match: the index is left at the ring start
        {3, "Readme.TXT2", 0, 1},
        {2, "", 0, 3},
    };
    for (const Case& c : cases) {
        int32_t index = c.given;
        EXPECT_EQ(s.locateEntry(index, c.name), c.found) << c.given << " " << c.name;
        EXPECT_EQ(index, c.indexAfter) << c.given << " " << c.name;
    }
}

TEST(LocateEntry, FirstMatchInRingOrderFromTheGivenEntry) {
    // README and readme both match; which is found depends on where the walk starts.
    Snapshot s = ringOf({"README", "x", "readme"});
    const std::pair<int32_t, int32_t> cases[] = {{1, 3}, {2, 3}, {3, 1}};
    for (auto [given, found] : cases) {
        int32_t index = given;
        EXPECT_EQ(s.locateEntry(index, "Readme"), found) << "from " << given;
        EXPECT_EQ(index, found);
    }
}

TEST(LocateEntry, DamagedRingsRaiseInsteadOfHanging) {
    // 4 -> 1 -> 2 -> 3 -> 2 -> 3 ...: the walk never returns to its start, 1.
    Snapshot s = ringOf({"a", "b", "c", "d"});
    s.mutableEntry(3).nextSibling = 2;
    int32_t index = 4;
    EXPECT_EQ(raised([&] { s.locateEntry(index, "missing"); }), OutOfRange);

    // A link out of the table.
    s.mutableEntry(3).nextSibling = s.capacity() + 1;
    index = 1;
    EXPECT_EQ(raised([&] { s.locateEntry(index, "missing"); }), OutOfRange);

    for (int32_t bad : {-1, s.capacity() + 1}) {
        index = bad;
        EXPECT_EQ(raised([&] { s.locateEntry(index, "a"); }), OutOfRange);
    }
}

TEST(EntryPath, BuiltFromTheParentChain) {
    Snapshot s;
    s.createEntry(FolderAttr, 0, 4, "Top", 0, 0, "");
    s.createEntry(FolderAttr, 0, 2, "Sub", 1, 0, "");
    s.createEntry(FileAttr, 0, 3, "file.txt", 2, 0, "");
    s.createEntry(FileAttr, 0, 1, "Grüße.txt", 0, 0, "");
    struct Case {
        int32_t index;
        const char* entryPath;
        const char* relativePath;
    };
    const Case cases[] = {
        {0, "/", ""},
        {1, "/Top/", "Top/"},
        {2, "/Top/Sub/", "Top/Sub/"},
        {3, "/Top/Sub/file.txt/", "Top/Sub/file.txt"},
        {4, "/Grüße.txt/", "Grüße.txt"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(s.entryPath(c.index), QString::fromUtf8(c.entryPath)) << c.index;
        EXPECT_EQ(s.relativePath(c.index), QString::fromUtf8(c.relativePath)) << c.index;
    }

    // A parent chain that loops must not hang.
    s.mutableEntry(1).parent = 2;
    EXPECT_EQ(raised([&] { s.entryPath(3); }), OutOfRange);
}
