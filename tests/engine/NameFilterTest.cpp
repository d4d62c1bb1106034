// Finding entries by name: the text a name contains or the pattern it fits,
// letter case ignored, and the walk to the next such entry.

#include "TestSupport.h"

#include "engine/model/NameFilter.h"
#include "engine/model/Snapshot.h"

#include <gtest/gtest.h>

using namespace kestrel::engine;
using kestrel::test::Node;

namespace {

bool passes(const char* text, const char* name) {
    return NameFilter(QString::fromUtf8(text)).matches(name);
}

TEST(NameFilter, TextsAndPatternsIgnoringCase) {
    struct Case {
        const char* text;
        const char* name;
        bool passes;
    };
    const Case cases[] = {
        {"", "anything", true},
        {"read", "README.md", true},
        {"ME.M", "readme.md", true},
        {"readme.md.", "readme.md", false},
        {"xyz", "readme.md", false},
        // A pattern fits the whole name.
        {"*.TXT", "notes.txt", true},
        {"*.txt", "notes.txt.bak", false},
        {"n?tes*", "Notes.txt", true},
        {"n?tes", "notes.txt", false},
        {"*a*b*c*", "xaxbxcx", true},
        {"*a*b*c", "xaxbxcx", false},
        {"a**", "a", true},
        // "?" is one character, however many bytes it takes.
        {"caf?", "café", true},
        {"caf??", "café", false},
        // Names outside ASCII fold as the comparison folds them.
        {"ÄRGER", "ärger.doc", true},
        {"strasse", "Straße", true},
        {"kernel", "\u212Aernel", true},    // the Kelvin sign
        {"pass", "pa\u017F\u017Fwd", true}, // long s
        // Bytes that are not UTF-8 stand for themselves.
        {"caf", "caf\xE9", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(passes(c.text, c.name), c.passes) << c.text << " / " << c.name;
}

// The next entry after a given one, in the table's order, coming round at
// the end; entries the caller turns down are passed over.
TEST(NameFilter, FindsTheNextEntryRoundTheTable) {
    Snapshot s;
    s.header.rootFolder = QStringLiteral("/r/");
    kestrel::test::buildSnapshot(
        s, {Node::file("notes.txt"),
            Node::dir("sub", {Node::file("b.txt"), Node::file("Notes.md")}), Node::file("other")});
    const NameFilter notes(QStringLiteral("notes"));
    const auto any = [](int32_t) { return true; };
    const int32_t first = findNextEntry(s, 0, notes, any);
    ASSERT_NE(first, 0);
    EXPECT_EQ(s.name(first), "notes.txt");
    const int32_t second = findNextEntry(s, first, notes, any);
    EXPECT_EQ(s.name(second), "Notes.md");
    EXPECT_EQ(s.entryPath(s.entry(second).parent), QStringLiteral("/sub/"));
    EXPECT_EQ(findNextEntry(s, second, notes, any), first);
    // Alone, an entry is found again from itself.
    EXPECT_EQ(findNextEntry(s, first, notes, [&](int32_t i) { return i == first; }), first);
    EXPECT_EQ(findNextEntry(s, 0, notes, [](int32_t) { return false; }), 0);
    EXPECT_EQ(findNextEntry(s, 0, NameFilter(QStringLiteral("missing")), any), 0);
}

} // namespace
