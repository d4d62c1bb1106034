#include "engine/scan/FileVersion.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

TEST(FileVersionFormat, Text) {
    EXPECT_EQ(formatFileVersion({5u << 16 | 1, 2600u << 16}), "5.01.2600.00");
    EXPECT_EQ(formatFileVersion({4u << 16, 0}), "4.00.0000");
    EXPECT_EQ(formatFileVersion({1u << 16 | 2, 3u << 16 | 4}), "1.02.03.04");
    EXPECT_EQ(formatFileVersion({10u << 16 | 123, 4567u << 16 | 89}), "10.123.4567.89");
    // Halves of 32768 and more are signed and print negative, the sign before the padding.
    EXPECT_EQ(formatFileVersion({40000u << 16 | 65531, 3u << 16 | 40000}), "-25536.-05.03.-25536");
    // A least significant word with its top bit set is below 1 and prints whole.
    EXPECT_EQ(formatFileVersion({1u << 16, 32768u << 16 | 5}), "1.00.-2147483643");
    EXPECT_EQ(formatFileVersion({1u << 16, 0xFFFFFFFF}), "1.00.-0001");
    EXPECT_EQ(formatFileVersion({0, 0x80000000u}), "0.00.-2147483648");
}

TEST(FileVersionParse, RejectsMalformedImages) {
    const Image good = makeImage(false, 1, 2);
    const size_t s = good.sectionData;
    auto broken = [&](auto change) {
        Image img = good;
        change(img.bytes);
        return parseFixedFileVersion(img.bytes);
    };
    // A section with no virtual size spans its raw data. (The files below
    // are read as PE32 and PE32+.)
    EXPECT_TRUE(broken([&](auto& b) { put32(b, good.sectionTable + 8, 0); }));
    // A type entry pointing back at the root directory.
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 28, 0x80000000u); }));
    // A language entry flagged as a directory, a named type whose name sits at
    // offset 16, a data entry past the section.
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 0x38 + 20, 0x80000000u | 0x50); }));
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 24, 0x80000000u | 16); }));
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 0x38 + 20, 0x7FFFFFF0); }));
    // Raw data far past the end of the file, and a section of the largest size.
    EXPECT_FALSE(broken([&](auto& b) { put32(b, good.sectionTable + 20, 0xFFFFFFF0); }));
    EXPECT_FALSE(broken([&](auto& b) {
        put32(b, good.sectionTable + 8, 0xFFFFFFFF);
        put32(b, good.sectionTable + 16, 0xFFFFFFFF);
        put32(b, s + 0x50, 0xFFFFFFF0);
    }));
    // Raw data ending inside the version block, or before it while the file
    // goes on: the rest of the section is zeros in memory, not the file's bytes.
    EXPECT_FALSE(broken([&](auto& b) { put32(b, good.sectionTable + 16, 0x60 + 88); }));
    EXPECT_FALSE(broken([&](auto& b) {
        b.insert(b.begin() + long(s + 0x60), 4, 0);
        put32(b, good.sectionTable + 8, 0x200);
        put32(b, good.sectionTable + 16, 0x62);
        put32(b, s + 0x50, kSectionRva + 0x64);
    }));
    // No resource directory entry, no RT_VERSION type, a short fixed block or
    // a wrong signature.
    EXPECT_FALSE(broken([&](auto& b) { put32(b, good.dataDirectories - 4, 2); }));
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 24, 17); }));
    EXPECT_FALSE(broken([&](auto& b) { put16(b, s + 0x60 + 2, 51); }));
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 0x50 + 4, 91); }));
    EXPECT_FALSE(broken([&](auto& b) { put32(b, s + 0x60 + 40, 0xFEEF04BE); }));
    // Counts of 65535 named and id entries walk only as far as the bytes go.
    EXPECT_FALSE(broken([&](auto& b) {
        put32(b, s + 12, 0xFFFFFFFF);
        put32(b, s + 24, 17);
    }));

    // Every truncation and many overwritten bytes give the right version or
    // none, never a read outside the image (run under the address sanitizer).
    for (bool plus : {false, true}) {
        const Image img = makeImage(plus, 7u << 16 | 8, 9u << 16 | 10);
        const auto& b = img.bytes;
        for (size_t len = 0; len < b.size(); ++len)
            EXPECT_FALSE(parseFixedFileVersion(std::vector<uint8_t>(b.begin(), b.begin() + len)))
                << len;

        const size_t versionWords = img.sectionData + kFixedInfoInSection + 8;
        for (size_t at = 0; at < b.size(); ++at) {
            for (int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                std::vector<uint8_t> copy = b;
                copy[at] = uint8_t(value);
                const auto v = parseFixedFileVersion(copy);
                if (v && (at < versionWords || at >= versionWords + 8)) {
                    EXPECT_EQ(v->mostSignificant, 7u << 16 | 8) << at;
                    EXPECT_EQ(v->leastSignificant, 9u << 16 | 10) << at;
                }
            }
        }
    }
}

// Only a regular file is read, never through a link, a FIFO or a folder;
// one cut short has no version, and resources far into a sparse file are
// found by their offset.
TEST(FileVersionFile, ReadsOnlyRegularFilesWithoutFollowingLinks) {
    TempTree t;
    const QByteArray app = makeImage(false, 1u << 16 | 2, 3u << 16 | 4).contents();
    t.file(u"app.exe"_s, app);
    EXPECT_EQ(GetFileVersionText(t.root() + u"app.exe"_s), "1.02.03.04");

    // The resources 256 MiB into a sparse file: found by offset, not read through.
    const size_t far = size_t(256) << 20;
    Image big = makeImage(true, 6u << 16, 0);
    put32(big.bytes, big.sectionTable + 20, uint32_t(far));
    const QByteArray headers = big.contents();
    t.sparseFile(u"big.exe"_s, qint64(far));
    QFile f(t.root() + u"big.exe"_s);
    ASSERT_TRUE(f.open(QIODevice::ReadWrite));
    ASSERT_EQ(f.write(headers.left(0x200)), 0x200);
    ASSERT_TRUE(f.seek(qint64(far)));
    ASSERT_EQ(f.write(headers.mid(0x200)), headers.size() - 0x200);
    f.close();
    EXPECT_EQ(GetFileVersionText(t.root() + u"big.exe"_s), "6.00.0000");

    t.file(u"readme.txt"_s, "MZhi\n");
    t.file(u"short.exe"_s, app.chopped(1));
    t.symlink(u"link.exe"_s, u"app.exe"_s);
    // Nothing writes to the FIFO: opening or reading it would block the test.
    t.fifo(u"pipe.exe"_s);
    for (const QString& name : {u"readme.txt"_s, u"short.exe"_s, u"missing.exe"_s, QString(),
                                u"link.exe"_s, u"pipe.exe"_s})
        EXPECT_EQ(GetFileVersionText(t.root() + name), "") << name.toStdString();
}
