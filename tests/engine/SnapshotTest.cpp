#include "engine/model/Snapshot.h"
#include "engine/support/Errors.h"

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
    for (int32_t i = 1; i <= 4097; ++i) {
        const SnapshotEntry& e = s.entry(i);
        ASSERT_TRUE(s.name(i) == std::to_string(i) && e.modified == i * 0.5 &&
                    e.nextSibling == i + 1 && e.parent == i / 2 && e.size == i * 3.0 &&
                    e.attributes == FileAttr)
            << i;
        ASSERT_EQ(s.version(i), i % 100 == 0 ? "1.02.03.04" : "");
    }
    // Never-written slots inside the capacity read as empty records.
    EXPECT_EQ(s.entry(8192).nextSibling, 0);
    EXPECT_EQ(s.name(8192), "");

    // Making an entry again keeps the comparison fields of its slot.
    SnapshotEntry& first = s.mutableEntry(1);
    first.status = 8;
    first.count = 5;
    first.match = -7;
    s.entryCount = 0;
    s.createEntry(FolderAttr, 2, 1, "new", 0, 0, "v");
    EXPECT_TRUE(s.entry(1).status == 8 && s.entry(1).count == 5 && s.entry(1).match == -7);
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

// Whole names under the rule, the first match in ring order after the given
// entry, which is visited last; without a match the index is left at the
// ring's start.
TEST(LocateEntry, WalksTheRingFromTheGivenEntry) {
    constexpr NameMatching Exact = NameMatching::Exact;
    constexpr NameMatching AnyCase = NameMatching::IgnoreCase;
    const struct {
        NameMatching rule;
        std::initializer_list<const char*> ring;
        int32_t given;
        const char* name;
        int32_t found, indexAfter;
    } cases[] = {
        {AnyCase, {"Only"}, 1, "ONLY", 1, 1},
        {AnyCase, {"Only"}, 1, "other", 0, 1},
        {AnyCase, {"a.txt", "Readme.TXT", "b"}, 1, "README.txt", 2, 2},
        {AnyCase, {"a.txt", "Readme.TXT", "b"}, 2, "readme.txt", 2, 2},
        {AnyCase, {"a.txt", "Readme.TXT", "b"}, 3, "A.TXT", 1, 1},
        {AnyCase, {"a.txt", "Readme.TXT", "b"}, 1, "Readme", 0, 2},
        {AnyCase, {"a.txt", "Readme.TXT", "b"}, 3, "Readme.TXT2", 0, 1},
        {AnyCase, {"a.txt", "Readme.TXT", "b"}, 2, "", 0, 3},
        {AnyCase, {"README", "x", "readme"}, 1, "Readme", 3, 3},
        {AnyCase, {"README", "x", "readme"}, 2, "Readme", 3, 3},
        {AnyCase, {"README", "x", "readme"}, 3, "Readme", 1, 1},
        {Exact, {"Only"}, 1, "ONLY", 0, 1},
        {Exact, {"Only"}, 1, "Only", 1, 1},
        {Exact, {"a.txt", "Readme.TXT", "b"}, 3, "a.txt", 1, 1},
        {Exact, {"a.txt", "Readme.TXT", "b"}, 1, "README.txt", 0, 2},
        {Exact, {"README", "x", "readme"}, 1, "README", 1, 1},
        {Exact, {"README", "x", "readme"}, 1, "readme", 3, 3},
        {Exact, {"README", "x", "readme"}, 3, "Readme", 0, 1},
    };
    for (const auto& c : cases) {
        const Snapshot s = ringOf(c.ring);
        int32_t index = c.given;
        EXPECT_EQ(s.locateEntry(index, c.name, c.rule), c.found) << c.given << " " << c.name;
        EXPECT_EQ(index, c.indexAfter) << c.given << " " << c.name;
    }
}

TEST(LocateEntry, DamagedRingsRaiseInsteadOfHanging) {
    // 4 -> 1 -> 2 -> 3 -> 2 -> 3 ...: the walk never returns to its start, 1.
    Snapshot s = ringOf({"a", "b", "c", "d"});
    s.mutableEntry(3).nextSibling = 2;
    int32_t index = 4;
    EXPECT_EQ(raised([&] { s.locateEntry(index, "missing", NameMatching::Exact); }), OutOfRange);

    // A link out of the table, and a start outside it.
    s.mutableEntry(3).nextSibling = s.capacity() + 1;
    for (int32_t start : {1, -1, s.capacity() + 1}) {
        index = start;
        EXPECT_EQ(raised([&] { s.locateEntry(index, "missing", NameMatching::Exact); }), OutOfRange)
            << start;
    }
}

TEST(EntryPath, BuiltFromTheParentChain) {
    Snapshot s;
    s.createEntry(FolderAttr, 0, 4, "Top", 0, 0, "");
    s.createEntry(FolderAttr, 0, 2, "Sub", 1, 0, "");
    s.createEntry(FileAttr, 0, 3, "file.txt", 2, 0, "");
    s.createEntry(FileAttr, 0, 1, "Grüße.txt", 0, 0, "");
    const std::tuple<int32_t, const char*, const char*> cases[] = {
        {0, "/", ""},
        {1, "/Top/", "Top/"},
        {2, "/Top/Sub/", "Top/Sub/"},
        {3, "/Top/Sub/file.txt/", "Top/Sub/file.txt"},
        {4, "/Grüße.txt/", "Grüße.txt"},
    };
    for (const auto& [index, entryPath, relativePath] : cases) {
        EXPECT_EQ(s.entryPath(index), QString::fromUtf8(entryPath)) << index;
        EXPECT_EQ(s.relativePath(index), QString::fromUtf8(relativePath)) << index;
    }

    // A parent chain that loops must not hang.
    s.mutableEntry(1).parent = 2;
    EXPECT_EQ(raised([&] { s.entryPath(3); }), OutOfRange);
}
