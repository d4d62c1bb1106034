#include "TestSupport.h"

#include "engine/file/MetaSideFile.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/scan/ContentFingerprint.h"

#include <gtest/gtest.h>

#include <QFile>

namespace kestrel::engine {
namespace {

using namespace Qt::StringLiterals;
using test::TempTree;

class MetaSideFileTest : public ::testing::Test {
protected:
    // Scans the tree into s, with fingerprints, and saves it as Data.#01
    // beside the tree.
    QString scanAndSave(TempTree& tree, Snapshot& s) {
        EXPECT_TRUE(test::scanTree(s, tree, true).ok);
        EXPECT_TRUE(test::saveSnapshotAs(s, m_dir.path() + u"/Data.#01"_s).ok);
        return s.header.fileName;
    }

    static OpenOutcome open(Snapshot& s, const QString& file) {
        ProgressMeter meter;
        return OpenSnapshotFile(s, file, meter);
    }

    QTemporaryDir m_dir;
};

// Scanned values come back with the file: modes, a link target that is no
// text, fingerprints. Side data cut short, with any byte changed (a
// fingerprint's among them), of another snapshot of the tree, or not a
// regular file is told and not used at all. (kestrel-cli's tests compare
// permissions, owners and link targets kept beside a snapshot.)
TEST_F(MetaSideFileTest, ScannedValuesComeBackAndDamagedOnesAreLeftOut) {
    TempTree tree;
    tree.file(u"tool"_s, "x");
    tree.chmod(u"tool"_s, 04755);
    tree.symlink(u"odd"_s, QString::fromLatin1("/tmp/a\nb\xff"));
    Snapshot scanned;
    const QString file = scanAndSave(tree, scanned);
    Snapshot opened;
    const OpenOutcome outcome = open(opened, file);
    ASSERT_TRUE(outcome.ok && !outcome.message);
    const int32_t tool = test::indexOf(opened, u"tool"_s), odd = test::indexOf(opened, u"odd"_s);
    EXPECT_EQ(opened.access.at(tool).mode, 04755u);
    EXPECT_EQ(opened.access.linkTarget(odd), scanned.access.linkTarget(odd));
    EXPECT_EQ(fingerprintHex(opened.fingerprints.at(tool)),
              fingerprintHex(scanned.fingerprints.at(tool)));

    const QString side = metaSideFilePath(file);
    const QByteArray good = test::readBytes(side);
    const QString notice = u"Permissions and owners of Data.#01 are unreadable and were not used"_s;
    const auto expectLeftOut = [&](const QByteArray& bytes, const char* what) {
        ASSERT_TRUE(test::writeBytes(side, bytes));
        Snapshot s;
        const OpenOutcome outcome = open(s, file);
        ASSERT_TRUE(outcome.ok && outcome.message) << what;
        EXPECT_EQ(outcome.message->text, notice) << what;
        EXPECT_TRUE(s.access.empty() && !s.fingerprints.taken()) << what;
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
    tree.file(u"b"_s, "2");
    Snapshot other;
    ASSERT_TRUE(test::scanTree(other, tree, true).ok);
    expectLeftOut(QByteArray::fromStdString(metaSideData(other)), "another snapshot's");
    QFile::remove(side);
    ASSERT_TRUE(QFile::link(file, side));
    Snapshot linked;
    const OpenOutcome viaLink = open(linked, file);
    ASSERT_TRUE(viaLink.ok && viaLink.message);
    EXPECT_TRUE(linked.access.empty());
}

// A snapshot file from Windows has no side data; saved over the scanned
// one, it takes the side file away.
TEST_F(MetaSideFileTest, ASnapshotWithoutSideDataOpensAsBeforeAndTakesTheStaleFileAway) {
    TempTree tree;
    tree.file(u"a"_s, "1");
    Snapshot scanned;
    const QString file = scanAndSave(tree, scanned);
    ASSERT_TRUE(QFile::exists(metaSideFilePath(file)));

    ASSERT_TRUE(test::writeBytes(file, test::exampleSnapshotFile()));
    QFile::remove(metaSideFilePath(file));
    Snapshot windows;
    const OpenOutcome outcome = open(windows, file);
    ASSERT_TRUE(outcome.ok);
    EXPECT_FALSE(outcome.message);
    EXPECT_TRUE(windows.access.empty());
    ASSERT_TRUE(test::writeBytes(metaSideFilePath(file), test::readBytes(file)));
    ASSERT_TRUE(test::saveSnapshotAs(windows, file).ok);
    EXPECT_FALSE(QFile::exists(metaSideFilePath(file)));
}

} // namespace
} // namespace kestrel::engine
