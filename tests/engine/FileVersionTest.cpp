#include "engine/scan/FileVersion.h"

#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <vector>

using namespace kestrel::engine;
using kestrel::test::Image;
using kestrel::test::kFixedInfoInSection;
using kestrel::test::kSectionRva;
using kestrel::test::makeImage;
using kestrel::test::put16;
using kestrel::test::put32;

namespace {

std::optional<FixedFileVersion> parse(const std::vector<uint8_t>& bytes) {
    return parseFixedFileVersion(bytes);
}

bool writeFile(const QString& path, const std::vector<uint8_t>& bytes) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           f.write(reinterpret_cast<const char*>(bytes.data()), qint64(bytes.size())) ==
               qint64(bytes.size());
}

} // namespace

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

TEST(FileVersionParse, ReadsPe32AndPe32Plus) {
    for (bool plus : {false, true}) {
        const auto v = parse(makeImage(plus, 5u << 16 | 1, 2600u << 16).bytes);
        ASSERT_TRUE(v) << plus;
        EXPECT_EQ(formatFileVersion(*v), "5.01.2600.00");
    }
    // A section with no virtual size spans its raw data.
    Image img = makeImage(false, 1, 2);
    put32(img.bytes, img.sectionTable + 8, 0);
    EXPECT_TRUE(parse(img.bytes));
    EXPECT_FALSE(parse({}));
    EXPECT_FALSE(parse({'M', 'Z'}));
}

TEST(FileVersionParse, RejectsMalformedImages) {
    const Image good = makeImage(false, 1, 2);
    const size_t s = good.sectionData;
    auto broken = [&](auto change) {
        Image img = good;
        change(img.bytes);
        return parse(img.bytes);
    };
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
}

// Every truncation and many overwritten bytes give the right version or none,
// never a read outside the image (run under the address sanitizer).
TEST(FileVersionParse, SurvivesTruncationAndCorruption) {
    for (bool plus : {false, true}) {
        const Image img = makeImage(plus, 7u << 16 | 8, 9u << 16 | 10);
        const auto& b = img.bytes;
        for (size_t len = 0; len < b.size(); ++len)
            EXPECT_FALSE(parse(std::vector<uint8_t>(b.begin(), b.begin() + len))) << len;

        const size_t versionWords = img.sectionData + kFixedInfoInSection + 8;
        for (size_t at = 0; at < b.size(); ++at) {
            for (int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
                std::vector<uint8_t> copy = b;
                copy[at] = uint8_t(value);
                const auto v = parse(copy);
                if (v && (at < versionWords || at >= versionWords + 8)) {
                    EXPECT_EQ(v->mostSignificant, 7u << 16 | 8) << at;
                    EXPECT_EQ(v->leastSignificant, 9u << 16 | 10) << at;
                }
            }
        }
    }
}

TEST(FileVersionFile, ReadsOnlyRegularFilesWithoutFollowingLinks) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString exe = dir.filePath("app.exe");
    const Image img = makeImage(false, 1u << 16 | 2, 3u << 16 | 4);
    ASSERT_TRUE(writeFile(exe, img.bytes));
    EXPECT_EQ(GetFileVersionText(exe), "1.02.03.04");

    const QString shortExe = dir.filePath("short.exe");
    for (size_t len : {size_t(0), size_t(100), img.sectionData + 0x60, img.bytes.size() - 1}) {
        ASSERT_TRUE(writeFile(shortExe, {img.bytes.begin(), img.bytes.begin() + len}));
        EXPECT_EQ(GetFileVersionText(shortExe), "") << len;
    }

    // The resources 256 MiB into a sparse file: found by offset, not read through.
    const QString big = dir.filePath("big.exe");
    const size_t far = size_t(256) << 20;
    const Image farImg = makeImage(true, 6u << 16, 0);
    std::vector<uint8_t> headers = farImg.bytes;
    put32(headers, farImg.sectionTable + 20, uint32_t(far));
    QFile f(big);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    ASSERT_EQ(f.write(reinterpret_cast<const char*>(headers.data()), 0x200), 0x200);
    ASSERT_TRUE(f.seek(qint64(far)));
    const qint64 rest = qint64(headers.size() - 0x200);
    ASSERT_EQ(f.write(reinterpret_cast<const char*>(headers.data()) + 0x200, rest), rest);
    f.close();
    EXPECT_EQ(GetFileVersionText(big), "6.00.0000");

    const QString text = dir.filePath("readme.txt");
    ASSERT_TRUE(writeFile(text, {'M', 'Z', 'h', 'i', '\n'}));
    EXPECT_EQ(GetFileVersionText(text), "");
    EXPECT_EQ(GetFileVersionText(dir.filePath("missing.exe")), "");
    EXPECT_EQ(GetFileVersionText(dir.path()), "");

    const QString link = dir.filePath("link.exe");
    ASSERT_TRUE(QFile::link(exe, link));
    EXPECT_EQ(GetFileVersionText(link), "");

    // Nothing writes to the FIFO: opening or reading it would block the test.
    const QString fifo = dir.filePath("pipe.exe");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    EXPECT_EQ(GetFileVersionText(fifo), "");
}

TEST(FileVersionFile, WindowsLibrariesOnThisMachine) {
    int found = 0;
    for (const char* root : {"/usr/lib/x86_64-linux-gnu/wine", "/usr/lib/wine"}) {
        for (const char* sub : {"x86_64-windows", "i386-windows"}) {
            const QDir d(QString::fromLatin1(root) + '/' + QString::fromLatin1(sub));
            for (const char* dll : {"kernel32.dll", "user32.dll", "shell32.dll"}) {
                if (!d.exists(dll))
                    continue;
                ++found;
                EXPECT_NE(GetFileVersionText(d.filePath(dll)), "") << dll;
            }
        }
    }
    if (found == 0)
        GTEST_SKIP() << "no Wine libraries installed";
}
