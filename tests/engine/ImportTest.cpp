#include "engine/file/Import.h"
#include "engine/file/OpenSnapshot.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

// A v2 file: the marked root, number and creation time, the three flags, the
// entry count, then one line per entry: folder path, name, size, modified,
// attributes, version, an unused number, count, an unused number.
const QByteArray OldHeader = VersionTwoHeader;

class ImportTest : public ::testing::Test {
protected:
    QString write(const QString& name, const QByteArray& bytes) {
        const QString path = m_dir.filePath(name);
        EXPECT_TRUE(writeBytes(path, bytes));
        return path;
    }
    ImportOutcome import(Snapshot& s, const QString& name, const QByteArray& bytes) {
        s.header.fileName = write(name, bytes);
        return ImportSnapshot(s, m_meter);
    }
    // A file of n entries, all files in the root.
    static QByteArray flatFile(int n) {
        QByteArray bytes = OldHeader + QByteArray::number(n) + '\n';
        for (int i = 1; i <= n; ++i)
            bytes += R"("\","f)" + QByteArray::number(i) + R"(",1,0,32,"",0,0,0)" + '\n';
        return bytes;
    }

    QTemporaryDir m_dir;
    ProgressMeter m_meter;
};

// The header, the folder paths in every form and the rings they make.
// (kestrel-cli's tests convert an old file and read the new one back.)
TEST_F(ImportTest, ImportsHeaderPathsAndRings) {
    Snapshot s;
    const ImportOutcome outcome = import(s, "old.#01", versionTwoTree());
    ASSERT_TRUE(outcome.ok);
    EXPECT_TRUE(outcome.headerRead && !outcome.message);
    // The root without its marker.
    EXPECT_EQ(std::tuple(s.header.rootFolder, s.importedNumber, s.header.created, s.header.title),
              std::tuple(u"C:\\DATA\\"_s, int16_t(5), 0.0, s.header.fileName));
    EXPECT_TRUE(s.header.recurse && !s.header.hidden && s.header.versions);
    EXPECT_TRUE(outcome.summary.startsWith("Kestrel imported 6 files and 3 folders in "))
        << outcome.summary.toStdString();

    EXPECT_EQ(s.entry(0).count, 9);
    EXPECT_EQ(countsOf(s), std::tuple(9, 6, 3, 1234 + 7 + 99 + 0 + 5 + 6.0));
    const std::vector<int32_t> parents{0, 0, 1, 1, 3, 1, 1, 1, 0, 0};
    for (int32_t i = 1; i <= 9; ++i)
        EXPECT_EQ(s.entry(i).parent, parents[size_t(i)]) << s.nameText(i).toStdString();
    EXPECT_EQ(ringOf(s, 1), (std::vector<int32_t>{1, 8, 9}));
    EXPECT_EQ(ringOf(s, 2), (std::vector<int32_t>{2, 3, 5, 6, 7}));
    EXPECT_EQ(ringOf(s, 4), (std::vector<int32_t>{4}));
    // Folders keep the old format's size mark.
    EXPECT_EQ(fieldsOf(s, 1), EntryFields(16, 36950.5, 8, 6, "Docs", 0, -1, ""));
    EXPECT_EQ(fieldsOf(s, 3), EntryFields(16, 36950.5, 5, 1, "Sub", 1, -1, ""));
    EXPECT_EQ(fieldsOf(s, 4), EntryFields(33, 36951.125, 4, 0, "c.txt", 3, 7, ""));
    EXPECT_EQ(fieldsOf(s, 5), EntryFields(32, 36950.5, 6, 0, "b.txt", 1, 99, "1.00.0000"));

    // The root folder keeps the letter case the file gives it.
    Snapshot lower;
    ASSERT_TRUE(
        import(lower, "lower.#01", versionTwoTree().replace("C:\\DATA\\;3", "c:\\Data\\;3")).ok);
    EXPECT_EQ(lower.header.rootFolder, u"c:\\Data\\"_s);
}

// Up to 32,767 entries are imported, one more is refused (kestrel-cli's
// tests see the message through the opening of a file). A count within 16
// of the entries stands; one far above them is fitted to them and told, and
// opened, the notice of the import and that of the damage come in one box.
TEST_F(ImportTest, EntryCountsAreKeptWithinTheirLimits) {
    Snapshot fits, tooMany;
    ASSERT_TRUE(import(fits, "fits.#01", flatFile(32767)).ok);
    EXPECT_EQ(fits.entry(32767).nextSibling, 1);
    EXPECT_EQ(fits.entry(32766).nextSibling, 32767);
    const ImportOutcome refused = import(tooMany, "big.#01", flatFile(32768));
    EXPECT_FALSE(refused.ok);
    EXPECT_EQ(refused.error, ErrorCode::Overflow);

    Snapshot near, damaged;
    ASSERT_TRUE(import(near, "near.#01", flatFile(3).replace("\n3\n", "\n19\n")).ok);
    EXPECT_EQ(near.entry(0).count, 19);
    const ImportOutcome outcome =
        import(damaged, "damaged.#01", flatFile(3).replace("\n3\n", "\n2000000000\n"));
    ASSERT_TRUE(outcome.ok);
    EXPECT_EQ(damaged.entry(0).count, 16);
    EXPECT_EQ(damaged.capacity(), 17);
    expectMessage(outcome.message, u"Incomplete Snapshot"_s,
                  u"The file ends before its last 1,999,999,981 entries"_s,
                  MessageIcon::Information);
    Snapshot opened;
    const OpenOutcome open = OpenSnapshotFile(opened, m_dir.filePath("damaged.#01"), m_meter);
    ASSERT_TRUE(open.ok && open.message);
    EXPECT_EQ(open.message->title, u"Snapshot Imported"_s);
    EXPECT_TRUE(
        open.message->text.endsWith(u"\n\nThe file ends before its last 1,999,999,981 entries"_s));
}

TEST_F(ImportTest, BadFilesFailSilently) {
    const QByteArray file = QByteArray(R"("\","a.txt",1,0,32,"",0,0,0)") + '\n';
    const QByteArray folder = QByteArray(R"("\","Docs",-1,0,16,"",0,0,0)") + '\n';
    const std::vector<std::pair<const char*, QByteArray>> cases{
        {"no marker", R"("C:\DATA\",5,0,#TRUE#,#FALSE#,#FALSE#,1,)" + file},
        {"unknown path", OldHeader + R"(1,"\Nowhere\","a.txt",1,0,32,"",0,0,0)"},
        {"empty path after a file", OldHeader + "2," + file + R"("","b",1,0,32,"",0,0,0)"},
        {"malformed size", OldHeader + R"(1,"\","a.txt",big,0,32,"",0,0,0)"},
        {"truncated entry", OldHeader + R"(1,"\","a.txt",1,0)"},
        {"more entries than counted", OldHeader + "0," + file + file},
        {"folder listed twice", OldHeader + "2," + folder + folder},
        {"number too large", R"("C:\;3",40000,0,#TRUE#,#FALSE#,#FALSE#,1,)" + file},
    };
    for (const auto& [what, bytes] : cases) {
        Snapshot s;
        const ImportOutcome outcome = import(s, "bad.#01", bytes);
        EXPECT_FALSE(outcome.ok || outcome.message) << what;
    }
    // Opened as a snapshot, a v2 file is described by the import's error and
    // the entry it stopped at, not by the load's complaint about its lines.
    Snapshot s;
    const OpenOutcome open = OpenSnapshotFile(
        s, write("bad.#01", OldHeader + R"(1,"\","a.txt",big,0,32,"",0,0,0)"), m_meter);
    EXPECT_TRUE(!open.ok && open.oldFormat);
    EXPECT_EQ(open.failedEntry, 1);
    expectMessage(open.message, u"Invalid Snapshot"_s, u"Type mismatch"_s,
                  MessageIcon::Exclamation);
}

TEST_F(ImportTest, Cancel) {
    // Cancel pressed when the meter first moves (the folder at entry 10).
    RecordingView view;
    ProgressMeter meter(&view);
    view.onEvents = [&] { meter.cancel(); };
    QByteArray bytes = flatFile(12);
    bytes.replace("\"f10\",1,0,32", "\"f10\",-1,0,16");
    Snapshot s;
    s.header.fileName = write("cancel.#01", bytes);
    const ImportOutcome cancelled = ImportSnapshot(s, meter);
    EXPECT_TRUE(!cancelled.ok && cancelled.cancelled && !cancelled.message);
    EXPECT_EQ(s.entryCount, 10);
}

} // namespace
