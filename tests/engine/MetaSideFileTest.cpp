#include "TestSupport.h"

#include "engine/file/MetaSideFile.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotFile.h"
#include "engine/scan/Scan.h"

#include <QFile>

#include <gtest/gtest.h>

namespace kestrel::engine {
namespace {

using test::TempTree;

class MetaSideFileTest : public ::testing::Test {
protected:
    // Scans the tree into s and saves it as NAME.#01 beside the tree.
    QString scanAndSave(TempTree& tree, Snapshot& s) {
        s.header.rootFolder = tree.root();
        s.header.recurse = s.header.hidden = true;
        ProgressMeter meter;
        EXPECT_TRUE(CreateSnapshot(s, {}, meter).ok);
        const QString file = m_dir.path() + QStringLiteral("/Data.#01");
        s.header.fileName = file;
        EXPECT_TRUE(SaveSnapshot(s, meter).ok);
        return file;
    }

    static OpenOutcome open(Snapshot& s, const QString& file) {
        ProgressMeter meter;
        return OpenSnapshotFile(s, file, meter);
    }

    static void expectSameAccess(const Snapshot& a, const Snapshot& b) {
        ASSERT_EQ(a.entryCount, b.entryCount);
        for (int32_t i = 1; i <= a.entryCount; ++i) {
            EXPECT_EQ(a.access.has(i), b.access.has(i)) << i;
            EXPECT_EQ(a.access.at(i), b.access.at(i)) << i;
            EXPECT_EQ(a.access.linkTarget(i), b.access.linkTarget(i)) << i;
        }
    }

    QTemporaryDir m_dir;
};

TEST_F(MetaSideFileTest, ScannedValuesComeBackWithTheFile) {
    TempTree tree;
    tree.file(QStringLiteral("tool"), "x");
    tree.chmod(QStringLiteral("tool"), 04755);
    tree.folder(QStringLiteral("shared"));
    tree.chmod(QStringLiteral("shared"), 01777);
    // A target that is no text, with a line break in it.
    tree.symlink(QStringLiteral("odd"), QString::fromLatin1("/tmp/a\nb\xff"));
    tree.symlink(QStringLiteral("shared/pw"), QStringLiteral("/etc/passwd"));
    Snapshot scanned;
    const QString file = scanAndSave(tree, scanned);
    ASSERT_TRUE(QFile::exists(metaSideFilePath(file)));

    Snapshot opened;
    const OpenOutcome outcome = open(opened, file);
    ASSERT_TRUE(outcome.ok);
    EXPECT_FALSE(outcome.message) << outcome.message->text.toStdString();
    expectSameAccess(scanned, opened);
    const int32_t tool = test::indexOf(opened, QStringLiteral("tool"));
    EXPECT_EQ(opened.access.at(tool).mode, 04755u);
    EXPECT_EQ(opened.access.linkTarget(test::indexOf(opened, QStringLiteral("shared/pw"))),
              "/etc/passwd");
}

TEST_F(MetaSideFileTest, DamagedOrForeignSideDataIsToldAndLeftOut) {
    TempTree tree;
    tree.file(QStringLiteral("a"), "1");
    tree.symlink(QStringLiteral("l"), QStringLiteral("/etc/passwd"));
    Snapshot scanned;
    const QString file = scanAndSave(tree, scanned);
    const QString side = metaSideFilePath(file);
    const QByteArray good = test::readBytes(side);
    ASSERT_FALSE(good.isEmpty());
    const QString notice =
        QStringLiteral("Permissions and owners of Data.#01 are unreadable and were not used");
    const auto expectLeftOut = [&](const QByteArray& bytes, const char* what) {
        ASSERT_TRUE(test::writeBytes(side, bytes));
        Snapshot s;
        const OpenOutcome outcome = open(s, file);
        ASSERT_TRUE(outcome.ok) << what;
        ASSERT_TRUE(outcome.message) << what;
        EXPECT_EQ(outcome.message->text, notice) << what;
        EXPECT_TRUE(s.access.empty()) << what;
        EXPECT_EQ(s.entryCount, scanned.entryCount) << what;
    };
    for (qsizetype length = 0; length < good.size(); ++length)
        expectLeftOut(good.left(length), "cut short");
    for (qsizetype at = 0; at < good.size(); ++at) {
        QByteArray flipped = good;
        flipped[at] = char(flipped[at] ^ 0x20);
        expectLeftOut(flipped, "a byte changed");
    }

    // The side file of another snapshot of the same tree: a file was added.
    tree.file(QStringLiteral("b"), "2");
    Snapshot other;
    other.header.rootFolder = tree.root();
    other.header.recurse = other.header.hidden = true;
    ProgressMeter meter;
    ASSERT_TRUE(CreateSnapshot(other, {}, meter).ok);
    expectLeftOut(QByteArray::fromStdString(metaSideData(other)), "another snapshot's");

    // A side file that is not a regular file is not read.
    QFile::remove(side);
    ASSERT_TRUE(QFile::link(file, side));
    Snapshot linked;
    const OpenOutcome viaLink = open(linked, file);
    ASSERT_TRUE(viaLink.ok && viaLink.message);
    EXPECT_TRUE(linked.access.empty());
}

TEST_F(MetaSideFileTest, ASnapshotWithoutSideDataOpensAsBeforeAndTakesTheStaleFileAway) {
    TempTree tree;
    tree.file(QStringLiteral("a"), "1");
    Snapshot scanned;
    const QString file = scanAndSave(tree, scanned);
    ASSERT_TRUE(QFile::exists(metaSideFilePath(file)));

    // A snapshot file from Windows has no side data; saved over the
    // scanned one, it takes the side file away.
    ASSERT_TRUE(test::writeBytes(file, test::exampleSnapshotFile()));
    QFile::remove(metaSideFilePath(file));
    Snapshot windows;
    OpenOutcome outcome = open(windows, file);
    ASSERT_TRUE(outcome.ok);
    EXPECT_FALSE(outcome.message);
    EXPECT_TRUE(windows.access.empty());
    ASSERT_TRUE(test::writeBytes(metaSideFilePath(file), test::readBytes(file)));
    ProgressMeter meter;
    ASSERT_TRUE(SaveSnapshot(windows, meter).ok);
    EXPECT_FALSE(QFile::exists(metaSideFilePath(file)));
}

} // namespace
} // namespace kestrel::engine
