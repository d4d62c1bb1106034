// The writer every file of Kestrel goes through: whole files only, never
// through a link, the replaced file's permissions kept.

#include "engine/file/FileWriting.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

using namespace kestrel::engine;
using kestrel::test::folderEntries;
using kestrel::test::readBytes;
using kestrel::test::writeBytes;

namespace {

QByteArray native(const QString& path) {
    return QFile::encodeName(path);
}

QString linkTarget(const QString& path) {
    return QFileInfo(path).symLinkTarget();
}

struct stat statOf(const QString& path) {
    struct stat st {};
    EXPECT_EQ(::lstat(native(path).constData(), &st), 0) << path.toStdString();
    return st;
}

class AtomicFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path(const QString& name) const { return dir.filePath(name); }
};

// Bytes appended in pieces of every size are all there or the old file
// stays, at every point a full disk can stop them; until the commit the
// name keeps the old file and the new one lies beside it.
TEST_F(AtomicFileTest, AppendedPiecesReplaceTheFileOnlyWhenCommitted) {
    const QString target = path(QStringLiteral("out.txt"));
    QByteArray expected;
    kestrel::test::expectFullDiskKeepsOldFile(target, "old", [&] {
        AtomicFile file(target);
        expected.clear();
        if (!file.open())
            return Outcome::failure(UserMessage{{}, file.errorText()});
        for (const int size : {1, 70000, 3, 5000}) {
            const QByteArray piece(size, char('a' + size % 26));
            if (!file.append(piece.constData(), size_t(size)))
                return Outcome::failure(UserMessage{{}, file.errorText()});
            expected += piece;
        }
        EXPECT_EQ(file.size(), expected.size());
        EXPECT_TRUE(readBytes(target) == "old");
        if (!file.commit())
            return Outcome::failure(UserMessage{{}, file.errorText()});
        return Outcome::success();
    });
    EXPECT_TRUE(readBytes(target) == expected);

    // Abandoned, or gone without a commit: the old file and nothing else.
    for (const bool explicitly : {true, false}) {
        {
            AtomicFile file(target);
            ASSERT_TRUE(file.open());
            ASSERT_TRUE(file.append("new"));
            EXPECT_EQ(folderEntries(dir.path()).size(), 2);
            if (explicitly) {
                file.abandon();
                EXPECT_FALSE(file.commit());
            }
        }
        EXPECT_EQ(folderEntries(dir.path()), QStringList{QStringLiteral("out.txt")});
        EXPECT_TRUE(readBytes(target) == expected);
    }

    // A folder that is not there is named with the system's reason.
    AtomicFile nowhere(path(QStringLiteral("missing/out.txt")));
    EXPECT_FALSE(nowhere.open());
    EXPECT_EQ(nowhere.errorText(), path(QStringLiteral("missing/out.txt: ")) +
                                       QString::fromLocal8Bit(std::strerror(ENOENT)));
}

// A file whose start is written last, as the save behind a scan writes one:
// without a name until the commit, its body written at an offset, moved
// over itself both ways by more than the piece a move takes at once, cut
// and finished with its start; at every point a full disk can stop it, the
// old file stays. A replaced file's permissions are kept here too.
TEST_F(AtomicFileTest, AnUnnamedFileWrittenAroundItsStart) {
    const QString target = path(QStringLiteral("around.txt"));
    QByteArray body(3 << 20, '\0');
    for (int i = 0; i < body.size(); ++i)
        body[i] = char('a' + (i * 7 + i / 4099) % 26);
    const QByteArray head = "head\n";
    const auto write = [&](int64_t firstRoom, int64_t secondRoom) {
        const QByteArray before = readBytes(target);
        AtomicFile file(target);
        if (!file.openUnnamed())
            return Outcome::failure(UserMessage{{}, file.errorText()});
        EXPECT_EQ(folderEntries(dir.path()), QStringList{QStringLiteral("around.txt")});
        const int64_t half = body.size() / 2;
        const bool ok =
            file.writeAt(firstRoom, body.constData(), size_t(half)) &&
            file.moveBytes(firstRoom, secondRoom, half) &&
            file.writeAt(secondRoom + half, body.constData() + half, size_t(body.size() - half)) &&
            file.moveBytes(secondRoom, head.size(), body.size()) &&
            file.truncate(head.size() + body.size()) &&
            file.writeAt(0, head.constData(), size_t(head.size()));
        if (!ok)
            return Outcome::failure(UserMessage{{}, file.errorText()});
        EXPECT_EQ(folderEntries(dir.path()), QStringList{QStringLiteral("around.txt")});
        EXPECT_TRUE(readBytes(target) == before);
        if (!file.commit())
            return Outcome::failure(UserMessage{{}, file.errorText()});
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
    EXPECT_EQ(folderEntries(dir.path()), QStringList{QStringLiteral("around.txt")});

    kestrel::test::expectFullDiskKeepsOldFile(target, "old", [&] { return write(100, 2); });
    EXPECT_TRUE(readBytes(target) == head + body);
}

// A link at the name, dangling or not, to a file or a folder, is refused
// with a message naming it and stays as it was, its target untouched; so
// is a folder, a pipe, and a link put there while the file was written.
TEST_F(AtomicFileTest, NeverWritesThroughALinkNorOverASpecialFile) {
    const QString victim = path(QStringLiteral("victim"));
    const QString absent = path(QStringLiteral("absent"));
    ASSERT_TRUE(writeBytes(victim, "victim's own"));
    ASSERT_TRUE(QDir().mkdir(path(QStringLiteral("folder"))));
    const QString isLink = QStringLiteral(" is a symbolic link; Kestrel does not write over links");
    const std::pair<QString, QString> links[] = {
        {QStringLiteral("dangling"), absent},
        {QStringLiteral("to-file"), victim},
        {QStringLiteral("to-folder"), path(QStringLiteral("folder"))}};
    for (const auto& [name, target] : links)
        ASSERT_EQ(::symlink(native(target).constData(), native(path(name)).constData()), 0);
    ASSERT_EQ(::mkfifo(native(path(QStringLiteral("pipe"))).constData(), 0600), 0);
    const QString late = path(QStringLiteral("late"));
    ASSERT_TRUE(writeBytes(late, "old"));
    const QStringList before = folderEntries(dir.path());

    const std::pair<const char*, QString> refusals[] = {
        {"dangling", isLink},
        {"to-file", isLink},
        {"to-folder", isLink},
        {"folder", QStringLiteral(" is a folder")},
        {"pipe", QStringLiteral(" is a device, pipe or socket, not a regular file")}};
    for (const auto& [name, text] : refusals) {
        const QString target = path(QString::fromLatin1(name));
        AtomicFile file(target);
        EXPECT_FALSE(file.open()) << name;
        EXPECT_EQ(file.errorText(), target + text);
        EXPECT_FALSE(replaceFile(target, "planted"));
    }
    for (const auto& [name, target] : links)
        EXPECT_EQ(linkTarget(path(name)), target);
    EXPECT_FALSE(QFileInfo::exists(absent));
    EXPECT_TRUE(readBytes(victim) == "victim's own");
    EXPECT_EQ(folderEntries(dir.path()), before);

    // Planted between open and commit: the new file goes, the link stays.
    AtomicFile file(late);
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.append("new"));
    ASSERT_TRUE(QFile::remove(late));
    ASSERT_EQ(::symlink(native(absent).constData(), native(late).constData()), 0);
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(file.errorText(), late + isLink);
    EXPECT_EQ(linkTarget(late), absent);
    EXPECT_FALSE(QFileInfo::exists(absent));
    EXPECT_EQ(folderEntries(dir.path()), before);
}

// A replaced file keeps its mode (and, for root, its owner and group); a
// new file has 0666 less the umask.
TEST_F(AtomicFileTest, AReplacedFileKeepsItsPermissions) {
    const mode_t oldMask = ::umask(027);
    const QString fresh = path(QStringLiteral("fresh"));
    EXPECT_TRUE(replaceFile(fresh, "new"));
    EXPECT_EQ(statOf(fresh).st_mode & 07777, 0640u);
    ::umask(oldMask);

    const QString kept = path(QStringLiteral("kept"));
    for (const mode_t mode : {mode_t(0600), mode_t(0755), mode_t(0444)}) {
        QFile::remove(kept);
        ASSERT_TRUE(writeBytes(kept, "old"));
        ASSERT_EQ(::chmod(native(kept).constData(), mode), 0);
        EXPECT_TRUE(replaceFile(kept, "new"));
        EXPECT_EQ(statOf(kept).st_mode & 07777, mode);
        EXPECT_TRUE(readBytes(kept) == "new");
    }
    if (!kestrel::test::runningAsRoot())
        return;
    ASSERT_EQ(::chown(native(kept).constData(), 4321, 4322), 0);
    ASSERT_EQ(::chmod(native(kept).constData(), 0664), 0);
    EXPECT_TRUE(replaceFile(kept, "root's"));
    const struct stat st = statOf(kept);
    EXPECT_EQ(std::tuple(st.st_uid, st.st_gid, st.st_mode & 07777),
              std::tuple(uid_t(4321), gid_t(4322), mode_t(0664)));
}

} // namespace
