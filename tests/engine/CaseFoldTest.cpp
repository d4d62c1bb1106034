#include "engine/model/CaseFold.h"

#include <gtest/gtest.h>

#include <QString>

using namespace kestrel::engine;

namespace {

// Each pair is "a|b". Checks both directions, the hash, and that the folded
// forms agree with the verdict.
void expectEqual(std::initializer_list<const char*> pairs, bool same) {
    for (const char* pair : pairs) {
        SCOPED_TRACE(pair);
        const std::string_view both(pair), a = both.substr(0, both.find('|')),
                                           b = both.substr(both.find('|') + 1);
        EXPECT_EQ(namesEqual(a, b), same);
        EXPECT_EQ(namesEqual(b, a), same);
        EXPECT_EQ(foldCase(a) == foldCase(b), same);
        EXPECT_EQ(nameHash(a) == nameHash(b), same);
    }
}

} // namespace

// ASCII: letters only, in names long enough for the eight-byte steps with
// the difference in varying places; pairs 32 apart that are not letters (@ `,
// [ {, ^ ~) differ. Beyond: ASCII runs off word boundaries; capital, medial
// and final sigma all fold to σ; the capital sharp s, the Kelvin sign, a
// ligature, one that folds to three code points, Deseret outside the BMP,
// the last code point that folds. Full folding turns İ into i + combining
// dot above, which is not a plain i; the dotless i does not fold; nothing is
// normalised.
TEST(CaseFold, LettersFoldFully) {
    expectEqual({"Readme.TXT|README.txt", "|",
                 "The-Quick-Brown-Fox_JUMPS.over.the.lazy.dog|"
                 "the-quick-brown-fox_jumps.OVER.THE.LAZY.DOG"},
                true);
    expectEqual({"report-2023-final.doc|report-2024-final.doc", "abcdefgh|abcdefgi", "x@x|x`x",
                 "files[1]|files{1}", "aaaaaaa^|aaaaaaa~", "a|", "abc|abcd"},
                false);
    EXPECT_NE(nameHash(std::string_view("a\0", 2)), nameHash("a"));
    EXPECT_EQ(foldCase("MiXeD 123.TXT"), "mixed 123.txt");

    expectEqual({"Ärger|ärger", "ÄBCDEFGHIJKLMNOPQRS|äbcdefghijklmnopqrs", "ΣΊΣΥΦΟΣ|σίσυφος",
                 "Straße|STRASSE", "STRAẞE|strasse", "\u212Aelvin|kelvin", "ﬃ|FFI",
                 "\u0390|\u03B9\u0308\u0301", "𐐀𐐁|𐐨𐐩", "\U0001E921|\U0001E943",
                 "\u0130stanbul|i\u0307STANBUL"},
                true);
    expectEqual({"Dokument-Ä|Dokument-Ö", "\u0130stanbul|istanbul", "ı|i", "Straße|STRASS",
                 "Straßen|STRASSE", "é|e\u0301"},
                false);
    EXPECT_EQ(foldCase("Straße"), "strasse");
    EXPECT_EQ(foldCase("\u0130"), "i\u0307");
    EXPECT_FALSE(startsWithIgnoringCase("istanbul", "\u0130"));
}

TEST(CaseFoldUnicode, EveryCodePointFoldsStably) {
    for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF)
            continue;
        const std::string s = QString::fromUcs4(&cp, 1).toStdString();
        const std::string folded = foldCase(s);
        ASSERT_EQ(foldCase(folded), folded) << std::hex << uint32_t(cp);
        ASSERT_TRUE(namesEqual(s, folded)) << std::hex << uint32_t(cp);
        ASSERT_EQ(nameHash(s), nameHash(folded)) << std::hex << uint32_t(cp);
    }
}

// A stray continuation byte, a sequence cut short before a letter or at the
// end stand for themselves; overlong forms and encoded surrogates are not
// what they would encode, and a lone byte never meets the code point of the
// same number (Å folds to U+00E5).
TEST(CaseFoldInvalidUtf8, BytesStandForThemselves) {
    expectEqual({"a\x80Z|A\x80z", "\xC3X|\xC3x", "\xE2\x84|\xE2\x84"}, true);
    expectEqual({"\xC3|\xC4", "\x80|", "\xC0\xAF|/", "\xED\xA0\x80|\xED\xA0\x81", "\xE5|\xC3\x85",
                 "\xC3|\xC3\x84"},
                false);
    // Prefixes of the folded streams: ß leads with s; rejected sequences
    // (a surrogate, an overlong form, past U+10FFFF) are raw bytes, so a
    // lone lead byte is a prefix of them, but not of a valid Kelvin sign.
    EXPECT_TRUE(startsWithIgnoringCase("Straße.txt", "STRASS"));
    EXPECT_FALSE(startsWithIgnoringCase("Straße", "strassen"));
    EXPECT_TRUE(startsWithIgnoringCase("\xC3Xyz", "\xC3x"));
    EXPECT_FALSE(startsWithIgnoringCase("\xC3\x84rger", "\xC3"));
    EXPECT_TRUE(startsWithIgnoringCase("\xED\xA0\x80", "\xED"));
    EXPECT_TRUE(startsWithIgnoringCase("\xE0\x80\xAF", "\xE0"));
    EXPECT_TRUE(startsWithIgnoringCase("\xF4\x90\x80\x80", "\xF4"));
    EXPECT_FALSE(startsWithIgnoringCase("\xE2\x84\xAA", "\xE2"));
    // Views into longer strings: the bytes after the view are not part of the name.
    const std::string_view kelvin = "\xE2\x84\xAA";
    for (const char* other : {"\xE2\x84", "k"}) {
        EXPECT_EQ(namesEqual(kelvin.substr(0, 2), other), other[0] != 'k');
        EXPECT_EQ(nameHash(kelvin.substr(0, 2)) == nameHash(other), other[0] != 'k');
        EXPECT_EQ(foldCase(kelvin.substr(0, 2)) == foldCase(other), other[0] != 'k');
    }
    EXPECT_EQ(foldCase("\xF0\x9F\x98"), "\xF0\x9F\x98");
    EXPECT_EQ(foldCase("\xFF\xC3\x84\xC3"), "\xFF\xC3\xA4\xC3");
}

// Names glued at random from pieces that fold in different ways, invalid
// bytes among them, so that the fast paths and the folding meet at every
// offset: equality, both hashes and prefixes agree with the folded forms.
TEST(CaseFoldConsistency, AgreesWithFoldedForm) {
    const std::vector<std::string> pieces = {"a",      "A", "s",    "S",    "ß",       "ẞ", "k",
                                             "\u212A", "Σ", "ς",    "İ",    "i\u0307", "ﬃ", "ffi",
                                             ".TXT",   "0", "\xC3", "\x80", "\xE2\x84"};
    const size_t firstInvalid = pieces.size() - 3;
    uint32_t seed = 12345;
    const auto random = [&seed](size_t n) {
        seed = seed * 1664525u + 1013904223u;
        return size_t(seed >> 8) % n;
    };
    struct Name {
        std::string text, folded;
        bool valid = true;
    };
    std::vector<Name> names(400);
    for (Name& name : names) {
        for (size_t n = random(12); n > 0; --n) {
            const size_t piece = random(pieces.size());
            name.text += pieces[piece];
            name.valid = name.valid && piece < firstInvalid;
        }
        name.folded = foldCase(name.text);
    }
    for (const Name& a : names) {
        for (const Name& b : names) {
            SCOPED_TRACE(a.text + " / " + b.text);
            const bool equal = namesEqual(a.text, b.text);
            ASSERT_EQ(equal, a.folded == b.folded);
            // Distinct names colliding among a few hundred would point at a weak hash.
            ASSERT_EQ(equal, nameHash(a.text) == nameHash(b.text));
            ASSERT_EQ(a.text == b.text, exactNameHash(a.text) == exactNameHash(b.text));
            if (a.valid && b.valid) {
                ASSERT_EQ(startsWithIgnoringCase(a.text, b.text), a.folded.starts_with(b.folded));
            }
        }
    }
}
