#include "engine/model/CaseFold.h"

#include <gtest/gtest.h>

#include <QString>

using namespace kestrel::engine;

namespace {

// Checks both directions, the hash, and that the folded forms agree with the verdict.
void expectSame(std::string_view a, std::string_view b) {
    EXPECT_TRUE(namesEqual(a, b)) << a << " / " << b;
    EXPECT_TRUE(namesEqual(b, a)) << b << " / " << a;
    EXPECT_EQ(foldCase(a), foldCase(b)) << a << " / " << b;
    EXPECT_EQ(nameHash(a), nameHash(b)) << a << " / " << b;
}

void expectDifferent(std::string_view a, std::string_view b) {
    EXPECT_FALSE(namesEqual(a, b)) << a << " / " << b;
    EXPECT_FALSE(namesEqual(b, a)) << b << " / " << a;
    EXPECT_NE(foldCase(a), foldCase(b)) << a << " / " << b;
    EXPECT_NE(nameHash(a), nameHash(b)) << a << " / " << b;
}

std::string utf8(char32_t cp) {
    return QString::fromUcs4(&cp, 1).toStdString();
}

} // namespace

TEST(CaseFoldAscii, LettersOnlyIgnoreCase) {
    expectSame("Readme.TXT", "README.txt");
    expectSame("", "");
    // Long enough for the eight-byte steps, with the difference in varying places.
    expectSame("The-Quick-Brown-Fox_JUMPS.over.the.lazy.dog",
               "the-quick-brown-fox_jumps.OVER.THE.LAZY.DOG");
    expectDifferent("report-2023-final.doc", "report-2024-final.doc");
    expectDifferent("abcdefgh", "abcdefgi");
    // Pairs 32 apart that are not letters: @ `, [ {, ^ ~.
    expectDifferent("x@x", "x`x");
    expectDifferent("files[1]", "files{1}");
    expectDifferent("aaaaaaa^", "aaaaaaa~");
    expectDifferent("a", "");
    expectDifferent("abc", "abcd");
    EXPECT_NE(nameHash(std::string_view("a\0", 2)), nameHash("a"));
    EXPECT_EQ(foldCase("MiXeD 123.TXT"), "mixed 123.txt");
}

TEST(CaseFoldUnicode, FullFolding) {
    expectSame("Ärger", "ärger");
    expectSame("ÄBCDEFGHIJKLMNOPQRS", "äbcdefghijklmnopqrs"); // ASCII runs off word boundaries
    expectSame("ΣΊΣΥΦΟΣ", "σίσυφος"); // capital, medial and final sigma all fold to σ
    expectSame("Straße", "STRASSE");
    expectSame("STRAẞE", "strasse");     // capital sharp s
    expectSame("\u212Aelvin", "kelvin"); // Kelvin sign
    expectSame("ﬃ", "FFI");
    expectSame("\u0390", "\u03B9\u0308\u0301");  // folds to three code points
    expectSame("𐐀𐐁", "𐐨𐐩");                      // Deseret, outside the BMP
    expectSame("\U0001E921", "\U0001E943");      // last code point that folds
    expectDifferent("Dokument-Ä", "Dokument-Ö"); // differs in the last bytes only
    EXPECT_EQ(foldCase("Straße"), "strasse");

    // Full folding turns İ into i + combining dot above, which is not a plain i.
    EXPECT_EQ(foldCase("\u0130"), "i\u0307");
    expectSame("\u0130stanbul", "i\u0307STANBUL");
    expectDifferent("\u0130stanbul", "istanbul");
    EXPECT_FALSE(startsWithIgnoringCase("istanbul", "\u0130"));
    expectDifferent("ı", "i"); // dotless i does not fold
    expectDifferent("Straße", "STRASS");
    expectDifferent("Straßen", "STRASSE");
    expectDifferent("é", "e\u0301"); // no normalisation
}

TEST(CaseFoldUnicode, EveryCodePointFoldsStably) {
    for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF)
            continue;
        const std::string s = utf8(cp);
        const std::string folded = foldCase(s);
        ASSERT_EQ(foldCase(folded), folded) << std::hex << uint32_t(cp);
        ASSERT_TRUE(namesEqual(s, folded)) << std::hex << uint32_t(cp);
        ASSERT_EQ(nameHash(s), nameHash(folded)) << std::hex << uint32_t(cp);
    }
}

TEST(CaseFoldInvalidUtf8, BytesStandForThemselves) {
    expectSame("a\x80Z", "A\x80z");     // stray continuation byte
    expectSame("\xC3X", "\xC3x");       // truncated sequence before a letter
    expectSame("\xE2\x84", "\xE2\x84"); // truncated at the end
    expectDifferent("\xC3", "\xC4");
    expectDifferent("\x80", "");
    expectDifferent("\xC0\xAF", "/");                // overlong
    expectDifferent("\xED\xA0\x80", "\xED\xA0\x81"); // encoded surrogates
    // A lone byte must not meet the code point of the same number: Å folds to U+00E5.
    expectDifferent("\xE5", "\xC3\x85");
    expectDifferent("\xC3", "\xC3\x84");
    // Prefixes of the folded streams: ß leads with s; rejected sequences are
    // raw bytes, so a lone lead byte is a prefix of them.
    EXPECT_TRUE(startsWithIgnoringCase("Straße.txt", "STRASS"));
    EXPECT_FALSE(startsWithIgnoringCase("Straße", "strassen"));
    EXPECT_TRUE(startsWithIgnoringCase("\xC3Xyz", "\xC3x"));
    EXPECT_FALSE(startsWithIgnoringCase("\xC3\x84rger", "\xC3"));
    EXPECT_TRUE(startsWithIgnoringCase("\xED\xA0\x80", "\xED"));     // surrogate
    EXPECT_TRUE(startsWithIgnoringCase("\xE0\x80\xAF", "\xE0"));     // overlong
    EXPECT_TRUE(startsWithIgnoringCase("\xF4\x90\x80\x80", "\xF4")); // past U+10FFFF
    EXPECT_FALSE(startsWithIgnoringCase("\xE2\x84\xAA", "\xE2"));    // valid: Kelvin sign
    // Views into longer strings: the bytes after the view are not part of the name.
    const std::string_view kelvin = "\xE2\x84\xAA";
    expectSame(kelvin.substr(0, 2), "\xE2\x84");
    expectDifferent(kelvin.substr(0, 2), "k");
    EXPECT_EQ(foldCase("\xF0\x9F\x98"), "\xF0\x9F\x98");
    EXPECT_EQ(foldCase("\xFF\xC3\x84\xC3"), "\xFF\xC3\xA4\xC3");
}

// Strings glued from pieces that fold in different ways, including invalid bytes, so that
// fast paths and folding meet at every offset.
TEST(CaseFoldConsistency, AgreesWithFoldedForm) {
    const char* pieces[] = {"a",      "A", "s",    "S",      "ß",       "ẞ", "k",
                            "\u212A", "Σ", "ς",    "\u0130", "i\u0307", "ﬃ", "ffi",
                            ".TXT",   "0", "\xC3", "\x80",   "\xE2\x84"};
    const size_t count = sizeof pieces / sizeof pieces[0];
    const size_t firstInvalid = count - 3;
    uint32_t seed = 12345;
    auto random = [&seed](size_t n) {
        seed = seed * 1664525u + 1013904223u;
        return size_t(seed >> 8) % n;
    };
    constexpr size_t kNames = 400;
    std::string names[kNames], folded[kNames];
    bool valid[kNames];
    for (size_t i = 0; i < kNames; ++i) {
        valid[i] = true;
        for (size_t n = random(12); n > 0; --n) {
            const size_t piece = random(count);
            names[i] += pieces[piece];
            valid[i] = valid[i] && piece < firstInvalid;
        }
        folded[i] = foldCase(names[i]);
    }
    for (size_t i = 0; i < kNames; ++i) {
        for (size_t j = 0; j < kNames; ++j) {
            const bool equal = namesEqual(names[i], names[j]);
            ASSERT_EQ(equal, folded[i] == folded[j]) << names[i] << " / " << names[j];
            // Distinct names colliding among a few hundred would point at a weak hash.
            ASSERT_EQ(equal, nameHash(names[i]) == nameHash(names[j]))
                << names[i] << " / " << names[j];
            ASSERT_EQ(names[i] == names[j], exactNameHash(names[i]) == exactNameHash(names[j]))
                << names[i] << " / " << names[j];
            // For valid UTF-8, one folded stream leads the other exactly when its bytes do.
            if (valid[i] && valid[j]) {
                ASSERT_EQ(startsWithIgnoringCase(names[i], names[j]),
                          folded[i].starts_with(folded[j]))
                    << names[i] << " / " << names[j];
            }
        }
    }
}
