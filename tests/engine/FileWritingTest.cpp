// The writer every file of Kestrel goes through: whole files only, never
// through a link, the replaced file's permissions kept.

#include "engine/file/FileWriting.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

QByteArray native(const QString& path) {
    return QFile::encodeName(path);
}

struct stat statOf(const QString& path) {
    struct stat st {};
    EXPECT_EQ(::lstat(native(path).constData(), &st), 0) << path.toStdString();
    return st;
}

// A failure as the writers report one.
Outcome failed(const AtomicFile& file) {
    return Outcome::failure(UserMessage{{}, file.errorText()});
}

class AtomicFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path(const QString& name) const { return dir.filePath(name); }
    QStringList left() const { return folderEntries(dir.path()); }
};

// Bytes appended in pieces of every size are all there or the old file
// stays, at every point a full disk can stop them; until the commit the
// name keeps the old file and the new one lies beside it.
TEST_F(AtomicFileTest, AppendedPiecesReplaceTheFileOnlyWhenCommitted) {
    const QString target = path(u"out.txt"_s);
    QByteArray expected;
    expectFullDiskKeepsOldFile(target, "old", [&] {
        AtomicFile file(target);
        expected.clear();
        if (!file.open())
            return failed(file);
        for (const int size : {1, 70000, 3, 5000}) {
            const QByteArray piece(size, char('a' + size % 26));
            if (!file.append(piece.constData(), size_t(size)))
                return failed(file);
            expected += piece;
        }
        EXPECT_EQ(file.size(), expected.size());
        EXPECT_TRUE(readBytes(target) == "old");
        if (!file.commit())
            return failed(file);
        return Outcome::success();
    });
    EXPECT_TRUE(readBytes(target) == expected);

    // Abandoned, or gone without a commit: the old file and nothing else.
    for (const bool explicitly : {true, false}) {
        {
            AtomicFile file(target);
            ASSERT_TRUE(file.open());
            ASSERT_TRUE(file.append("new"));
            EXPECT_EQ(left().size(), 2);
            if (explicitly) {
                file.abandon();
                EXPECT_FALSE(file.commit());
            }
        }
        EXPECT_EQ(left(), QStringList{u"out.txt"_s});
        EXPECT_TRUE(readBytes(target) == expected);
    }

    // A folder that is not there is named with the system's reason.
    AtomicFile nowhere(path(u"missing/out.txt"_s));
    EXPECT_FALSE(nowhere.open());
    EXPECT_EQ(nowhere.errorText(),
              path(u"missing/out.txt: "_s) + QString::fromLocal8Bit(std::strerror(ENOENT)));
}

// A file whose start is written last, as the save behind a scan writes one:
// without a name until the commit, its body written at an offset, moved
// over itself both ways by more than the piece a move takes at once, cut
// and finished with its start; at every point a full disk can stop it, the
// old file stays. A replaced file's permissions are kept here too.
TEST_F(AtomicFileTest, AnUnnamedFileWrittenAroundItsStart) {
    const QString target = path(u"around.txt"_s);
    QByteArray body(3 << 20, '\0');
    for (int i = 0; i < body.size(); ++i)
        body[i] = char('a' + (i * 7 + i / 4099) % 26);
    const QByteArray head = "head\n";
    const auto write = [&](int64_t firstRoom, int64_t secondRoom) {
        const QByteArray before = readBytes(target);
        AtomicFile file(target);
        if (!file.openUnnamed())
            return failed(file);
        EXPECT_EQ(left(), QStringList{u"around.txt"_s});
        const int64_t half = body.size() / 2;
        const bool ok =
            file.writeAt(firstRoom, body.constData(), size_t(half)) &&
            file.moveBytes(firstRoom, secondRoom, half) &&
            file.writeAt(secondRoom + half, body.constData() + half, size_t(body.size() - half)) &&
            file.moveBytes(secondRoom, head.size(), body.size()) &&
            file.truncate(head.size() + body.size()) &&
            file.writeAt(0, head.constData(), size_t(head.size()));
        if (!ok)
            return failed(file);
        EXPECT_EQ(left(), QStringList{u"around.txt"_s});
        EXPECT_TRUE(readBytes(target) == before);
        if (!file.commit())
            return failed(file);
        return Outcome::success();
    };
    // Moved towards the end by less than a piece, then back by more.
    ASSERT_TRUE(writeBytes(target, "old"));
    ASSERT_EQ(::chmod(native(target).constData(), 0604), 0);
    ASSERT_TRUE(write(10, 17).ok);
    EXPECT_TRUE(readBytes(target) == head + body);
    EXPECT_EQ(statOf(target).st_mode & 07777, 0604u);
    // Moved towards the end by more than a piece, then back by less.
    ASSERT_TRUE(write(1, (1 << 20) + 3).ok);
    EXPECT_TRUE(readBytes(target) == head + body);
    EXPECT_EQ(left(), QStringList{u"around.txt"_s});

    expectFullDiskKeepsOldFile(target, "old", [&] { return write(100, 2); });
    EXPECT_TRUE(readBytes(target) == head + body);
}

// A link at the name is refused with a message naming it and stays as it
// was, its target never made; so is a folder, a pipe, and a link put there
// while the file was written. (The hostile trees' tests plant links to
// files and folders at the name of every writer.)
TEST_F(AtomicFileTest, NeverWritesThroughALinkNorOverASpecialFile) {
    const QString absent = path(u"absent"_s);
    const QString isLink = u" is a symbolic link; Kestrel does not write over links"_s;
    ASSERT_TRUE(QFile::link(absent, path(u"dangling"_s)));
    ASSERT_TRUE(QDir().mkdir(path(u"folder"_s)));
    ASSERT_EQ(::mkfifo(native(path(u"pipe"_s)).constData(), 0600), 0);
    const QString late = path(u"late"_s);
    ASSERT_TRUE(writeBytes(late, "old"));
    const QStringList before = left();
    const std::pair<QString, QString> refusals[] = {
        {u"dangling"_s, isLink},
        {u"folder"_s, u" is a folder"_s},
        {u"pipe"_s, u" is a device, pipe or socket, not a regular file"_s}};
    for (const auto& [name, text] : refusals) {
        AtomicFile file(path(name));
        EXPECT_FALSE(file.open() || replaceFile(path(name), "planted")) << name.toStdString();
        EXPECT_EQ(file.errorText(), path(name) + text);
    }

    // Planted between open and commit: the new file goes, the link stays.
    AtomicFile file(late);
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.append("new"));
    ASSERT_TRUE(QFile::remove(late) && QFile::link(absent, late));
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(file.errorText(), late + isLink);
    EXPECT_EQ(QFile::symLinkTarget(late), absent);
    EXPECT_FALSE(QFileInfo::exists(absent));
    EXPECT_EQ(left(), before);
}

// A replaced file keeps its mode (and, for root, its owner and group); a
// new file has 0666 less the umask.
TEST_F(AtomicFileTest, AReplacedFileKeepsItsPermissions) {
    const mode_t oldMask = ::umask(027);
    const QString fresh = path(u"fresh"_s);
    EXPECT_TRUE(replaceFile(fresh, "new"));
    EXPECT_EQ(statOf(fresh).st_mode & 07777, 0640u);
    ::umask(oldMask);

    const QString kept = path(u"kept"_s);
    for (const mode_t mode : {mode_t(0600), mode_t(0755), mode_t(0444)}) {
        QFile::remove(kept);
        ASSERT_TRUE(writeBytes(kept, "old"));
        ASSERT_EQ(::chmod(native(kept).constData(), mode), 0);
        EXPECT_TRUE(replaceFile(kept, "new"));
        EXPECT_EQ(statOf(kept).st_mode & 07777, mode);
        EXPECT_TRUE(readBytes(kept) == "new");
    }
    if (!runningAsRoot())
        return;
    ASSERT_EQ(::chown(native(kept).constData(), 4321, 4322), 0);
    ASSERT_EQ(::chmod(native(kept).constData(), 0664), 0);
    EXPECT_TRUE(replaceFile(kept, "root's"));
    const struct stat st = statOf(kept);
    EXPECT_EQ(std::tuple(st.st_uid, st.st_gid, st.st_mode & 07777),
              std::tuple(uid_t(4321), gid_t(4322), mode_t(0664)));
}

} // namespace
