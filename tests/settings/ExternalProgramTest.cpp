// The launch of the external compare program: the parameter template split
// into arguments with both paths put in, and the program path split into
// folder and file or looked up on PATH.

#include "settings/ExternalProgram.h"

#include "TestSupport.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace kestrel::settings;
using namespace Qt::StringLiterals;

namespace {

CustomLaunch launchOf(const QString& program, const QString& params = {},
                      const QString& first = u"a"_s, const QString& second = u"b"_s) {
    return buildCustomLaunch(program, params, first, second);
}

// The template's own quotes group words, a placeholder may sit inside a
// longer argument, and without "%1" and "%2" the text goes as it stands.
// Whatever a file name holds, it stays inside the argument that named it:
// no path adds, splits or changes arguments, and no placeholder inside a
// path is replaced.
TEST(ExternalProgramTest, TemplatesGiveTheirArgumentsAndPathsNeverChangeThem) {
    const QString first = u"/a/x.txt"_s, second = u"/b/x.txt"_s;
    const std::pair<QString, QStringList> templates[] = {
        {u"%1 %2"_s, {first, second}},
        {u"/diff %2 %1"_s, {u"/diff"_s, second, first}},
        {u"%1 %1"_s, {first, first}},
        {u"--brief -s"_s, {u"--brief"_s, u"-s"_s}},
        {u"--left=%1 \"%2 vs %1\""_s, {u"--left="_s + first, second + u" vs "_s + first}}};
    for (const auto& [params, arguments] : templates)
        EXPECT_EQ(launchOf(u"/usr/bin/cmp"_s, params, first, second).arguments, arguments)
            << params.toStdString();

    const QString paths[] = {u"a%2 -o/tmp/pwned"_s,
                             u"/a b/c  d.txt"_s,
                             u"/x/\"quoted\" name"_s,
                             u"\"start"_s,
                             u"end\" \""_s,
                             u"%1%2 %1"_s,
                             u"-rf"_s,
                             u"tab\there"_s,
                             u"two\"\"quotes"_s};
    for (const QString& one : paths)
        for (const QString& other : paths)
            EXPECT_EQ(launchOf(u"/usr/bin/cmp"_s, u"-x %1 --right=%2 \"%2 & %1\""_s, one, other)
                          .arguments,
                      (QStringList{u"-x"_s, one, u"--right="_s + other, other + u" & "_s + one}))
                << one.toStdString() << " | " << other.toStdString();
}

// The program path splits at its last separator, a trailing one dropped
// first. A name without a folder is the program of that name on PATH that
// may be run, as in a shell; one found nowhere (or no name at all) stays as
// typed, with no folder. (The main window's tests start one from PATH.)
TEST(ExternalProgramTest, ProgramPathSplitsOrIsLookedUpOnPath) {
    CustomLaunch launch = launchOf(u"/opt/Tools/cmp"_s);
    EXPECT_EQ(QStringList({launch.folder, launch.fileName, launch.program}),
              (QStringList{u"/opt/Tools"_s, u"cmp"_s, u"/opt/Tools/cmp"_s}));
    launch = launchOf(u"/opt/Tools/"_s);
    EXPECT_EQ(QStringList({launch.folder, launch.fileName}), (QStringList{u"/opt"_s, u"Tools"_s}));

    QTemporaryDir bin;
    const QString tool = bin.filePath(u"kestrel-test-diff"_s);
    ASSERT_TRUE(kestrel::test::writeBytes(tool, "#!/bin/sh\nexit 0\n"));
    ASSERT_TRUE(QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner));
    ASSERT_TRUE(kestrel::test::writeBytes(bin.filePath(u"kestrel-test-plain"_s), {}));
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(bin.path()) + ":/nonexistent");
    const CustomLaunch found = launchOf(u"kestrel-test-diff"_s);
    const CustomLaunch missing = launchOf(u"kestrel-no-such-tool"_s);
    const CustomLaunch bare[] = {launchOf(u"kestrel-test-plain"_s), missing, launchOf({})};
    qputenv("PATH", path);

    EXPECT_EQ(QStringList({found.folder, found.fileName, found.program}),
              (QStringList{bin.path(), u"kestrel-test-diff"_s, tool}));
    for (const CustomLaunch& l : bare)
        EXPECT_EQ(QStringList({l.folder, l.program}), (QStringList{QString(), l.fileName}));
    EXPECT_EQ(missing.program, u"kestrel-no-such-tool"_s);
}

} // namespace
