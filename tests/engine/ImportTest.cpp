#include "engine/file/Import.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"

#include "TestSupport.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <vector>

using namespace kestrel::engine;
using kestrel::test::expectMessage;
using kestrel::test::ringOf;

namespace {

// A v2 file: the marked root, number and creation time, the three flags, the
// entry count, then one line per entry: folder path, name, size, modified,
// attributes, version, an unused number, count, an unused number.
const QByteArray OldHeader = kestrel::test::VersionTwoHeader;
const QByteArray OldTree = kestrel::test::versionTwoTree();

class ImportTest : public ::testing::Test {
protected:
    QString write(const QString& name, const QByteArray& bytes) {
        const QString path = m_dir.filePath(name);
        EXPECT_TRUE(kestrel::test::writeBytes(path, bytes));
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

TEST_F(ImportTest, ImportsHeaderPathsAndRingsAndSavesThemAsTheyAre) {
    Snapshot s;
    const ImportOutcome outcome = import(s, "old.#01", OldTree);
    ASSERT_TRUE(outcome.ok);
    EXPECT_TRUE(outcome.headerRead);
    EXPECT_FALSE(outcome.message);
    EXPECT_EQ(s.header.rootFolder, QStringLiteral("C:\\DATA\\")); // without the marker
    EXPECT_EQ(s.importedNumber, 5);
    EXPECT_EQ(s.header.created, 0);
    EXPECT_TRUE(s.header.recurse && !s.header.hidden && s.header.versions);
    EXPECT_EQ(s.header.title, s.header.fileName);
    EXPECT_TRUE(outcome.summary.startsWith("Kestrel imported 6 files and 3 folders in "))
        << outcome.summary.toStdString();

    EXPECT_EQ(s.entry(0).count, 9);
    EXPECT_EQ(kestrel::test::countsOf(s), std::tuple(9, 6, 3, 1234 + 7 + 99 + 0 + 5 + 6.0));
    const std::vector<int32_t> parents{0, 0, 1, 1, 3, 1, 1, 1, 0, 0};
    for (int32_t i = 1; i <= 9; ++i)
        EXPECT_EQ(s.entry(i).parent, parents[size_t(i)]) << s.nameText(i).toStdString();
    EXPECT_EQ(ringOf(s, 1), (std::vector<int32_t>{1, 8, 9}));
    EXPECT_EQ(ringOf(s, 2), (std::vector<int32_t>{2, 3, 5, 6, 7}));
    EXPECT_EQ(ringOf(s, 4), (std::vector<int32_t>{4}));
    EXPECT_EQ(s.entry(3).size, -1); // folders keep the old format's mark
    EXPECT_TRUE(s.entry(3).isFolder());
    EXPECT_EQ(s.entry(4).attributes, 33);
    EXPECT_EQ(s.entry(4).modified, 36951.125);
    EXPECT_EQ(s.version(5), "1.00.0000");
    EXPECT_EQ(s.entry(1).count, 6);

    s.header.fileName = m_dir.filePath("new.#01");
    ASSERT_TRUE(SaveSnapshot(s, m_meter).ok);
    Snapshot loaded;
    loaded.header.fileName = s.header.fileName;
    ASSERT_TRUE(LoadSnapshot(loaded, m_meter).ok);
    EXPECT_EQ(loaded.header.title, s.header.title);
    EXPECT_EQ(loaded.header.rootFolder, s.header.rootFolder);
    EXPECT_EQ(kestrel::test::countsOf(loaded), kestrel::test::countsOf(s));
    for (int32_t i = 1; i <= 9; ++i)
        EXPECT_EQ(kestrel::test::fieldsOf(loaded, i), kestrel::test::fieldsOf(s, i)) << i;

    // The root folder keeps the letter case the file gives it.
    Snapshot lower;
    QByteArray bytes = OldTree;
    bytes.replace("C:\\DATA\\;3", "c:\\Data\\;3");
    ASSERT_TRUE(import(lower, "lower.#01", bytes).ok);
    EXPECT_EQ(lower.header.rootFolder, QStringLiteral("c:\\Data\\"));
}

TEST_F(ImportTest, EntryLimitIs32767) {
    Snapshot fits;
    ASSERT_TRUE(import(fits, "fits.#01", flatFile(32767)).ok);
    EXPECT_EQ(fits.entry(32767).nextSibling, 1);
    EXPECT_EQ(fits.entry(32766).nextSibling, 32767);

    // One more is refused with a message that says why (kestrel-cli's tests
    // see it through the opening of a file).
    Snapshot tooMany;
    const ImportOutcome outcome = import(tooMany, "big.#01", flatFile(32768));
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.error, ErrorCode::Overflow);
    ASSERT_TRUE(outcome.message);
    EXPECT_EQ(outcome.message->title, QStringLiteral("Entry Limit"));
}

TEST_F(ImportTest, CountFarAboveTheEntriesIsFittedToThem) {
    // Within 16 of the entries the stored count stands.
    Snapshot fits;
    QByteArray bytes = flatFile(3);
    bytes.replace("\n3\n", "\n19\n");
    ASSERT_TRUE(import(fits, "fits.#01", bytes).ok);
    EXPECT_EQ(fits.entry(0).count, 19);

    Snapshot damaged;
    bytes = flatFile(3);
    bytes.replace("\n3\n", "\n2000000000\n");
    const ImportOutcome outcome = import(damaged, "damaged.#01", bytes);
    ASSERT_TRUE(outcome.ok);
    EXPECT_EQ(damaged.entry(0).count, 16);
    EXPECT_EQ(damaged.capacity(), 17);
    expectMessage(outcome.message, QStringLiteral("Incomplete Snapshot"),
                  QStringLiteral("The file ends before its last 1,999,999,981 entries"),
                  MessageIcon::Information);

    // Opened, the notice of the import and that of the damage come in one box.
    Snapshot opened;
    const OpenOutcome open = OpenSnapshotFile(opened, m_dir.filePath("damaged.#01"), m_meter);
    ASSERT_TRUE(open.ok);
    ASSERT_TRUE(open.message);
    EXPECT_EQ(open.message->title, QStringLiteral("Snapshot Imported"));
    EXPECT_TRUE(open.message->text.endsWith(
        QStringLiteral("\n\nThe file ends before its last 1,999,999,981 entries")));
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
        EXPECT_FALSE(outcome.ok) << what;
        EXPECT_FALSE(outcome.message) << what;
    }
    // Opened as a snapshot, a v2 file is described by the import's error and
    // the entry it stopped at, not by the load's complaint about its lines.
    Snapshot s;
    const OpenOutcome open = OpenSnapshotFile(
        s, write("bad.#01", OldHeader + R"(1,"\","a.txt",big,0,32,"",0,0,0)"), m_meter);
    EXPECT_FALSE(open.ok);
    EXPECT_TRUE(open.oldFormat);
    EXPECT_EQ(open.failedEntry, 1);
    ASSERT_TRUE(open.message);
    EXPECT_EQ(open.message->title, QStringLiteral("Invalid Snapshot"));
    EXPECT_EQ(open.message->text, QStringLiteral("Type mismatch"));
}

TEST_F(ImportTest, UnopenableFileAndCancel) {
    // A pipe is no file to import: the import does not wait for a writer.
    // (A missing file is OpenSnapshotFile's test below.)
    Snapshot pipe;
    pipe.header.fileName = m_dir.filePath("pipe.#01");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe.header.fileName).constData(), 0600), 0);
    const ImportOutcome fromPipe = ImportSnapshot(pipe, m_meter);
    EXPECT_FALSE(fromPipe.ok);
    expectMessage(fromPipe.message, QStringLiteral("Error"),
                  QStringLiteral("Unable to open Snapshot"), MessageIcon::Exclamation);

    // Cancel pressed when the meter first moves (the folder at entry 10).
    kestrel::test::RecordingView view;
    ProgressMeter meter(&view);
    view.onEvents = [&] { meter.cancel(); };
    QByteArray bytes = flatFile(12);
    bytes.replace("\"f10\",1,0,32", "\"f10\",-1,0,16");
    Snapshot s;
    s.header.fileName = write("cancel.#01", bytes);
    const ImportOutcome cancelled = ImportSnapshot(s, meter);
    EXPECT_FALSE(cancelled.ok);
    EXPECT_TRUE(cancelled.cancelled);
    EXPECT_FALSE(cancelled.message);
    EXPECT_EQ(s.entryCount, 10);
}

// What the windows and the command line learn from opening a file: the
// number in its name and whether it recorded versions. (Their own tests see
// the import's notice and the message of a file that is no snapshot.)
TEST_F(ImportTest, OpenSnapshotFileLoadsOrImports) {
    Snapshot loaded;
    const OpenOutcome load =
        OpenSnapshotFile(loaded, write("Data.#02", kestrel::test::exampleSnapshotFile()), m_meter);
    ASSERT_TRUE(load.ok);
    EXPECT_FALSE(load.imported || load.message);
    EXPECT_EQ(load.versions, false);
    EXPECT_EQ(load.number, 2);
    EXPECT_EQ(loaded.header.title, QStringLiteral("Original Snapshot of C:\\Data\\"));

    const QString old = write("Data.#03", OldTree);
    Snapshot imported;
    const OpenOutcome import = OpenSnapshotFile(imported, old, m_meter);
    ASSERT_TRUE(import.ok);
    EXPECT_TRUE(import.imported);
    EXPECT_EQ(import.versions, true);
    EXPECT_EQ(import.number, 3);
    ASSERT_TRUE(import.message); // the notice, not the load's complaint
    EXPECT_EQ(import.message->title, QStringLiteral("Snapshot Imported"));
    // Nothing the failed load read survives the import.
    EXPECT_EQ(imported.header.title, old);
    EXPECT_EQ(imported.fileCount, 6);
    EXPECT_EQ(imported.entry(0).count, 9);

    Snapshot garbage;
    const OpenOutcome bad = OpenSnapshotFile(garbage, write("junk.xx", "hello\r\n"), m_meter);
    EXPECT_FALSE(bad.ok || bad.imported);
    EXPECT_EQ(bad.number, 0);
    Snapshot absent;
    const OpenOutcome none = OpenSnapshotFile(absent, m_dir.filePath("none.#01"), m_meter);
    ASSERT_TRUE(none.message);
    EXPECT_EQ(none.message->text, QStringLiteral("Unable to open Snapshot"));
    EXPECT_FALSE(none.versions);
}

} // namespace
