// The launch of the external compare program: the parameter template with
// both paths put in, the argument list it splits into, and the program path
// split into folder and file.

#include "settings/ExternalProgram.h"

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
    EXPECT_EQ(substituteParameters(u"%1 %2"_s, first, second), u"\"/a/x.txt\" \"/b/x.txt\""_s);
    EXPECT_EQ(argumentsOf(u"%1 %2"_s, first, second), (QStringList{first, second}));
    EXPECT_EQ(argumentsOf(u"/diff %2 %1"_s, first, second),
              (QStringList{u"/diff"_s, second, first}));
    EXPECT_EQ(argumentsOf(u"%1 %1"_s, first, second), (QStringList{first, first}));
    // Without "%1" and "%2" the text goes as it stands.
    EXPECT_EQ(argumentsOf(u"--brief -s"_s, first, second), (QStringList{u"--brief"_s, u"-s"_s}));
    // Deliberate: the second replacement runs over the first path too.
    EXPECT_EQ(substituteParameters(u"%1"_s, u"/a/100%2/x"_s, u"/b"_s), u"\"/a/100\"/b\"/x\""_s);
}

TEST(ExternalProgramTest, AwkwardPathsStayOneArgumentEach) {
    const QString paths[] = {u"/a b/c  d.txt"_s, u"/x/\"quoted\" name"_s, u"\"start"_s, u"end\""_s,
                             u"two\"\"quotes"_s};
    for (const QString& path : paths)
        EXPECT_EQ(argumentsOf(u"-x %1 %2"_s, path, u"/other"_s),
                  (QStringList{u"-x"_s, path, u"/other"_s}))
            << path.toStdString();
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

    // No separator: an empty folder, and the separator still goes before the name.
    launch = buildCustomLaunch(u"meld"_s, {}, u"a"_s, u"b"_s);
    EXPECT_EQ(launch.folder, QString());
    EXPECT_EQ(launch.program, u"/meld"_s);
    launch = buildCustomLaunch(QString(), {}, u"a"_s, u"b"_s);
    EXPECT_EQ(launch.program, u"/"_s);
}

} // namespace
