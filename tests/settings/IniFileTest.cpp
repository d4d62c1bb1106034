// Kestrel.ini: lines Kestrel does not own survive a write byte for byte,
// and the file is written whole or not at all.

#include "settings/IniFile.h"

#include "TestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using kestrel::settings::IniFile;
using kestrel::test::readBytes;
using kestrel::test::writeBytes;
using namespace Qt::StringLiterals;

namespace {

// As a Windows editor left it: CR LF line ends, a comment and a value in
// Windows-1252, other sections, and no line end after the last line.
const QByteArray WindowsIni =
    "; Gr\xF6\xDF der Fenster\r\n[Main]\r\nFolder=C:\\Caf\xE9\r\nTop=100\r\n"
    "\r\n[Other]\r\nName=M\xFCnchen";

class IniFileTest : public testing::Test {
protected:
    QTemporaryDir m_dir;
    QString iniPath() const { return m_dir.filePath(u"Kestrel.ini"_s); }
};

TEST_F(IniFileTest, LinesItDoesNotOwnAreKeptByteForByte) {
    ASSERT_TRUE(writeBytes(iniPath(), WindowsIni));
    const IniFile ini(iniPath());
    // Values in Windows-1252 read as what they say.
    EXPECT_EQ(ini.readString(u"main"_s, u"FOLDER"_s, {}), u"C:\\Café"_s);
    EXPECT_EQ(ini.readString(u"Other"_s, u"Name"_s, {}), u"München"_s);

    // A changed value, a new key in its section, a new section after the
    // unended last line, a deleted key: new lines end as the file's do.
    ASSERT_TRUE(ini.writeString(u"Main"_s, u"Top"_s, u"250"_s));
    ASSERT_TRUE(ini.writeString(u"Main"_s, u"Left"_s, u"Ä"_s));
    ASSERT_TRUE(ini.writeString(u"Extra"_s, u"Window"_s, u"2"_s));
    ASSERT_TRUE(ini.writeString(u"Other"_s, u"Missing"_s, QString()));
    QByteArray expected = WindowsIni;
    expected.replace("Top=100\r\n", "Top=250\r\nLeft=\xC3\x84\r\n");
    expected += "\r\n[Extra]\r\nWindow=2\r\n";
    EXPECT_TRUE(readBytes(iniPath()) == expected) << readBytes(iniPath()).toStdString();
    EXPECT_EQ(ini.readString(u"Main"_s, u"Left"_s, {}), u"Ä"_s);

    ASSERT_TRUE(ini.writeString(u"Main"_s, u"Left"_s, QString()));
    expected.replace("Left=\xC3\x84\r\n", "");
    EXPECT_TRUE(readBytes(iniPath()) == expected);
}

// A full disk at any point of the file leaves the old one. (The hostile
// trees' tests plant links of every kind at its name.)
TEST_F(IniFileTest, WrittenWholeOrNotAtAll) {
    const IniFile ini(iniPath());
    kestrel::test::expectFullDiskKeepsOldFile(iniPath(), WindowsIni, [&] {
        kestrel::engine::Outcome outcome;
        outcome.ok = ini.writeString(u"Main"_s, u"Folder"_s, u"/home/ann/data"_s);
        return outcome;
    });
}

// The frame's numbers are read leniently: a fraction rounds, damaged or
// absurd text keeps what the frame has; only 1 and 2 are special states.
TEST_F(IniFileTest, PlacementReadsWhatItCanAndKeepsTheRest) {
    ASSERT_TRUE(writeBytes(iniPath(), "[Main]\nTop=1200.6\nLeft=wide\nHeight=1e12\n"
                                      "Window=2.2\n"));
    const IniFile ini(iniPath());
    const kestrel::settings::FramePlacement present{1, 2, 3, 4};
    const auto read = ini.readFramePlacement(present);
    EXPECT_EQ(std::tuple(read.top, read.left, read.height, read.width), std::tuple(1201, 2, 3, 4));
    EXPECT_EQ(ini.readFrameState(), kestrel::settings::FrameState::Maximised);
    ASSERT_TRUE(ini.writeString(u"Main"_s, u"Window"_s, u"3"_s));
    EXPECT_EQ(ini.readFrameState(), kestrel::settings::FrameState::Normal);

    // The dialog's folders go back as they came; an empty one is no key.
    ini.writeScanFolders({u"/home/ann"_s, QString(), u"/home/ann/bin"_s, QString()});
    EXPECT_EQ(ini.readString(u"Main"_s, u"Drive"_s, u"none"_s), u"none"_s);
    const kestrel::settings::ScanFolders folders = ini.readScanFolders();
    EXPECT_EQ(QStringList({folders.folder, folders.versionFolder}),
              (QStringList{u"/home/ann"_s, u"/home/ann/bin"_s}));
}

} // namespace
