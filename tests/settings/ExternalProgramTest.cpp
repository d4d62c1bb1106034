// The launch of the external compare program: the parameter template split
// into arguments with both paths put in, and the program path split into
// folder and file or looked up on PATH.

#include "settings/ExternalProgram.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestrel::settings;
using namespace Qt::StringLiterals;

namespace {

QStringList argumentsOf(const QString& params, const QString& first, const QString& second) {
    return buildCustomLaunch(u"/usr/bin/cmp"_s, params, first, second).arguments;
}

TEST(ExternalProgramTest, TemplatesGiveTheirArgumentLists) {
    const QString first = u"/a/x.txt"_s;
    const QString second = u"/b/x.txt"_s;
    EXPECT_EQ(argumentsOf(u"%1 %2"_s, first, second), (QStringList{first, second}));
    EXPECT_EQ(argumentsOf(u"/diff %2 %1"_s, first, second),
              (QStringList{u"/diff"_s, second, first}));
    EXPECT_EQ(argumentsOf(u"%1 %1"_s, first, second), (QStringList{first, first}));
    // Without "%1" and "%2" the text goes as it stands.
    EXPECT_EQ(argumentsOf(u"--brief -s"_s, first, second), (QStringList{u"--brief"_s, u"-s"_s}));
    // The template's own quotes group words; a placeholder may sit inside
    // a longer argument.
    EXPECT_EQ(argumentsOf(u"--left=%1 \"%2 vs %1\""_s, first, second),
              (QStringList{u"--left="_s + first, second + u" vs "_s + first}));
}

// Whatever a file name holds, it stays inside the argument that named it:
// no path adds, splits or changes arguments, and no placeholder inside a
// path is replaced.
TEST(ExternalProgramTest, PathsNeverChangeTheArguments) {
    const QString paths[] = {u"a%2 -o/tmp/pwned"_s,
                             u"/a b/c  d.txt"_s,
                             u"/x/\"quoted\" name"_s,
                             u"\"start"_s,
                             u"end\" \""_s,
                             u"%1%2 %1"_s,
                             u"-rf"_s,
                             u"tab\there"_s,
                             u"two\"\"quotes"_s};
    for (const QString& first : paths) {
        for (const QString& second : paths) {
            EXPECT_EQ(
                argumentsOf(u"-x %1 --right=%2 \"%2 & %1\""_s, first, second),
                (QStringList{u"-x"_s, first, u"--right="_s + second, second + u" & "_s + first}))
                << first.toStdString() << " | " << second.toStdString();
        }
    }
}

TEST(ExternalProgramTest, ProgramPathSplitsAtItsLastSeparator) {
    CustomLaunch launch = buildCustomLaunch(u"/opt/Tools/cmp"_s, {}, u"a"_s, u"b"_s);
    EXPECT_EQ(launch.folder, u"/opt/Tools"_s);
    EXPECT_EQ(launch.fileName, u"cmp"_s);
    EXPECT_EQ(launch.program, u"/opt/Tools/cmp"_s);

    // A trailing separator is dropped before the split.
    launch = buildCustomLaunch(u"/opt/Tools/"_s, {}, u"a"_s, u"b"_s);
    EXPECT_EQ(launch.folder, u"/opt"_s);
    EXPECT_EQ(launch.fileName, u"Tools"_s);
}

// A name without a folder is the program of that name on PATH; one found
// nowhere (or no name at all) stays as typed, with no folder.
TEST(ExternalProgramTest, BareNamesAreLookedUpOnPath) {
    QTemporaryDir bin;
    ASSERT_TRUE(bin.isValid());
    const QString tool = bin.filePath(u"kestrel-test-diff"_s);
    QFile script(tool);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\nexit 0\n");
    script.close();
    ASSERT_TRUE(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    // A file that may not be run is no program, on PATH as in a shell.
    QFile plain(bin.filePath(u"kestrel-test-plain"_s));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();

    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(bin.path()) + ":/nonexistent");
    const CustomLaunch found =
        buildCustomLaunch(u"kestrel-test-diff"_s, u"%1 %2"_s, u"a"_s, u"b"_s);
    const CustomLaunch plainName = buildCustomLaunch(u"kestrel-test-plain"_s, {}, u"a"_s, u"b"_s);
    const CustomLaunch missing = buildCustomLaunch(u"kestrel-no-such-tool"_s, {}, u"a"_s, u"b"_s);
    const CustomLaunch empty = buildCustomLaunch(QString(), {}, u"a"_s, u"b"_s);
    qputenv("PATH", path);

    EXPECT_EQ(found.program, tool);
    EXPECT_EQ(found.folder, bin.path());
    EXPECT_EQ(found.fileName, u"kestrel-test-diff"_s);
    EXPECT_EQ(found.arguments, (QStringList{u"a"_s, u"b"_s}));
    for (const CustomLaunch& bare : {plainName, missing, empty}) {
        EXPECT_EQ(bare.program, bare.fileName);
        EXPECT_EQ(bare.folder, QString());
    }
    EXPECT_EQ(missing.program, u"kestrel-no-such-tool"_s);
}

} // namespace
