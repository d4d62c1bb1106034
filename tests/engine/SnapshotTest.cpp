#include "TestSupport.h"

#include <gtest/gtest.h>

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

// Whole names under the rule, the first match in ring order after the given
// entry, which is visited last; without a match the index is left at the
// ring's start.
TEST(LocateEntry, WalksTheRingFromTheGivenEntry) {
    // Each case is "given|name|found|index after", in a ring of the names.
    const auto expectFound = [](NameMatching rule, std::initializer_list<const char*> ring,
                                std::initializer_list<const char*> cases) {
        const Snapshot s = ringOf(ring);
        for (const char* c : cases) {
            const QList<QByteArray> f = QByteArray(c).split('|');
            int32_t index = f[0].toInt();
            EXPECT_EQ(s.locateEntry(index, f[1].toStdString(), rule), f[2].toInt()) << c;
            EXPECT_EQ(index, f[3].toInt()) << c;
        }
    };
    const NameMatching anyCase = NameMatching::IgnoreCase, exact = NameMatching::Exact;
    expectFound(anyCase, {"Only"}, {"1|ONLY|1|1", "1|other|0|1"});
    expectFound(anyCase, {"a.txt", "Readme.TXT", "b"},
                {"1|README.txt|2|2", "2|readme.txt|2|2", "3|A.TXT|1|1", "1|Readme|0|2",
                 "3|Readme.TXT2|0|1", "2||0|3"});
    expectFound(anyCase, {"README", "x", "readme"},
                {"1|Readme|3|3", "2|Readme|3|3", "3|Readme|1|1"});
    expectFound(exact, {"Only"}, {"1|ONLY|0|1", "1|Only|1|1"});
    expectFound(exact, {"a.txt", "Readme.TXT", "b"}, {"3|a.txt|1|1", "1|README.txt|0|2"});
    expectFound(exact, {"README", "x", "readme"}, {"1|README|1|1", "1|readme|3|3", "3|Readme|0|1"});
}

// Access outside the table, a ring that never returns to its start, a link
// out of the table and a parent chain that loops raise instead of hanging.
TEST(SnapshotTable, DamageRaisesInsteadOfHanging) {
    Snapshot empty;
    EXPECT_EQ(empty.entry(0).count, 0); // index 0 always exists
    EXPECT_EQ(raised([&] { empty.entry(1); }), OutOfRange);
    Snapshot s = ringOf({"a", "b", "c", "d"});
    EXPECT_EQ(raised([&] { s.entry(s.capacity()); }), QString());
    for (const int32_t outside : {-1, INT32_MIN, s.capacity() + 1}) {
        EXPECT_EQ(raised([&] { s.entry(outside); }), OutOfRange) << outside;
        EXPECT_EQ(raised([&] { s.mutableEntry(outside); }), OutOfRange) << outside;
        EXPECT_EQ(raised([&] { s.name(outside); }), OutOfRange) << outside;
    }

    // 4 -> 1 -> 2 -> 3 -> 2 -> 3 ...: the walk never returns to its start, 1.
    s.mutableEntry(3).nextSibling = 2;
    int32_t index = 4;
    EXPECT_EQ(raised([&] { s.locateEntry(index, "missing", NameMatching::Exact); }), OutOfRange);
    s.mutableEntry(3).nextSibling = s.capacity() + 1;
    for (int32_t start : {1, -1, s.capacity() + 1}) {
        index = start;
        EXPECT_EQ(raised([&] { s.locateEntry(index, "missing", NameMatching::Exact); }), OutOfRange)
            << start;
    }
    s.mutableEntry(2).attributes = FolderAttr;
    s.mutableEntry(3).parent = 2;
    s.mutableEntry(2).parent = 3;
    EXPECT_EQ(raised([&] { s.entryPath(3); }), OutOfRange);
}
