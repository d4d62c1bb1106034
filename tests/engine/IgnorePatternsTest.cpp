#include "TestSupport.h"

#include "engine/compare/IgnorePatterns.h"

#include <gtest/gtest.h>

#include <QStandardPaths>

using namespace kestrel::engine;
using namespace Qt::StringLiterals;

namespace {

struct Probe {
    std::string path;
    bool folder;
    bool ignored;
};

// A set of pattern lines and what they make of paths in one tree.
struct Case {
    const char* patterns;
    const char* probes;
    NameMatching matching = NameMatching::Exact;
};

// Probes as "+path" (ignored) or "-path" (kept), "|" between them, a
// folder's path ending in "/".
std::vector<Probe> probesOf(const char* text) {
    std::vector<Probe> probes;
    for (const QString& token : QString::fromUtf8(text).split(u'|')) {
        const bool folder = token.endsWith(u'/');
        probes.push_back({token.mid(1, token.size() - 1 - folder).toStdString(), folder,
                          token.startsWith(u'+')});
    }
    return probes;
}

const std::vector<Case>& cases() {
    static const std::vector<Case> all = {
        // A plain name or "*.ext" matches at any depth, and only whole names.
        {"*.pyc\nCore", "+a.pyc|+src/deep/b.pyc|-a.pyc.txt|-pyc|+src/Core|-src/Core2"},
        // A trailing "/" is for folders, and everything inside goes with them.
        {"__pycache__/\nnotes/",
         "+__pycache__/|+src/__pycache__/|+src/__pycache__/m.py|-lib/notes"},
        // A leading or middle "/" anchors at the root.
        {"/build\ndoc/*.txt",
         "+build/|+build/x.o|-src/build/|+doc/a.txt|-doc/sub/a.txt|-x/doc/a.txt"},
        {"/out/\na/*/c", "-out|-sub/out/|+a/b/c|-a/b/x/c"},
        // "**" at the start, the end and in the middle.
        {"**/logs\n**/cache/debug.log\n/var/log/**\na/**/b",
         "+logs/|+x/y/logs/|+cache/debug.log|+p/cache/debug.log|-p/cache/q/debug.log|-var/log/"
         "|+var/log/syslog|+var/log/apt/history|-var/logfiles/x|+a/b|+a/x/b|+a/x/y/b|-z/a/b"},
        {"foo/**/\n/**/tmp", "+foo/bar/|-foo/baz|+foo/bar/deep|+tmp|+u/v/tmp"},
        // The last pattern that matches decides.
        {"*.log\n!keep.log", "+x.log|-keep.log"},
        {"!keep.log\n*.log", "+keep.log"},
        // Nothing inside an ignored folder is taken back...
        {"cache/\n!cache/keep.txt", "+cache/keep.txt"},
        // ... but what is inside may be ignored name by name.
        {"stash/*\n!stash/keep.txt", "-stash/keep.txt|+stash/other|-stash/"},
        // Sets, ranges, classes and escaped brackets.
        {"file[0-9].txt\n[!a]*.c\n[]x]y\n\\[draft\\]*\n[[:digit:]]*.md\nv[^0-9]",
         "+file5.txt|-filea.txt|+b.c|-a.c|+]y|+xy|-zy|+[draft] notes.md|-draft notes|+1 "
         "intro.md|-intro.md|+vx|-v1"},
        // Blanks: inside names they count, trailing ones only when escaped.
        {"my file.txt\nfoo.txt   \nbar\\ \n?.md", "+my file.txt|+foo.txt|+bar |-bar|+a.md|-ab.md"},
        // Comments, escapes, and a line that cannot be compiled.
        {"#comment\n\\#hash\n\\!bang\n[abc\n*.o", "-#comment|+#hash|+!bang|-[abc|+x.o"},
        // Case: exact on POSIX, as git on Linux...
        {"*.PYC\nREADME", "-a.pyc|-readme"},
        // ... and without regard to case for snapshots made on Windows.
        {"*.PYC\nREADME\n/Docs/*.TXT", "+a.pyc|+readme|+docs/a.txt|-docs/sub/a.txt",
         NameMatching::IgnoreCase},
    };
    return all;
}

// What the patterns make of a path: each folder above it is met first, as a
// walk through the tree meets it.
bool ignoredInWalk(const IgnorePatterns& patterns, const std::string& path, bool folder) {
    IgnoreWalk walk(patterns);
    size_t start = 0;
    int depth = 0;
    for (size_t slash; (slash = path.find('/', start)) != std::string::npos; start = slash + 1)
        walk.ignored(depth++, std::string_view(path).substr(start, slash - start), true);
    return walk.ignored(depth, std::string_view(path).substr(start), folder);
}

TEST(IgnorePatterns, MatchTheTable) {
    for (const Case& c : cases()) {
        const IgnorePatterns patterns =
            IgnorePatterns(c.patterns, u"Ignore Patterns"_s).forMatching(c.matching);
        for (const Probe& probe : probesOf(c.probes))
            EXPECT_EQ(ignoredInWalk(patterns, probe.path, probe.folder), probe.ignored)
                << "patterns:\n"
                << c.patterns << "\npath: " << probe.path << (probe.folder ? "/" : "");
    }
}

// git is the oracle for what the patterns mean: each case's patterns as a
// repository's exclude file, its probes made in a real tree and asked of
// git check-ignore, with nobody's own git settings taking part.
TEST(IgnorePatterns, TableAgreesWithGitCheckIgnore) {
    if (QStandardPaths::findExecutable(u"git"_s).isEmpty())
        GTEST_SKIP() << "git is not installed";
    static const QString ask =
        u"set -e; cd \"$1\"; git init -q; printf '%s' \"$2\" > .git/info/exclude; "
        u"printf '%s' \"$3\" | tr '\\n' '\\0' | GIT_CONFIG_NOSYSTEM=1 git -c core.ignorecase=$4 "
        u"check-ignore --no-index -z --stdin || test $? -eq 1"_s;
    for (const Case& c : cases()) {
        kestrel::test::TempTree t;
        QString paths;
        for (const Probe& probe : probesOf(c.probes)) {
            const QString path = QString::fromStdString(probe.path);
            if (probe.folder)
                t.folder(path);
            else
                t.file(path);
            paths += path + u'\n';
        }
        const bool foldCase = c.matching == NameMatching::IgnoreCase;
        const kestrel::test::ProgramRun git = kestrel::test::runProgram(
            u"/bin/sh"_s,
            {u"-c"_s, ask, u"sh"_s, t.root(), QString::fromUtf8(c.patterns), paths,
             foldCase ? u"true"_s : u"false"_s},
            t.root());
        ASSERT_EQ(git.status, 0) << git.err.toStdString();
        const QStringList ignored = git.out.split(QChar(0), Qt::SkipEmptyParts);
        for (const Probe& probe : probesOf(c.probes))
            EXPECT_EQ(ignored.contains(QString::fromStdString(probe.path)), probe.ignored)
                << "git disagrees; patterns:\n"
                << c.patterns << "\npath: " << probe.path;
    }
}

// A line that cannot be compiled is told and the others apply; Windows line
// ends and a byte-order mark are not part of the patterns; patterns appended
// come last and take the others' rule for case; names are characters, not
// bytes, and fold as the comparison folds them.
TEST(IgnorePatterns, LinesTextAndCase) {
    const IgnorePatterns patterns("*.o\n\n# fine\n[abc\ntrail\\\n*.tmp\n[[:nope:]]",
                                  u"Ignore Patterns"_s);
    EXPECT_EQ(patterns.problems(),
              QStringList({u"Ignore Patterns: line 4: unclosed ["_s,
                           u"Ignore Patterns: line 5: ends with a lone \\"_s,
                           u"Ignore Patterns: line 7: unknown character class"_s}));
    EXPECT_TRUE(patterns.ignores("x/b.tmp", false) && !patterns.needsPaths());
    const IgnorePatterns windows("\xEF\xBB\xBF*.bak\r\n/Top\r\n", u"x"_s);
    EXPECT_TRUE(windows.problems().isEmpty());
    EXPECT_TRUE(windows.ignores("a.bak", false) && windows.ignores("Top", true));
    EXPECT_TRUE(windows.needsPaths());

    IgnorePatterns appended = IgnorePatterns("*.LOG", u"a"_s).forMatching(NameMatching::IgnoreCase);
    appended.append(IgnorePatterns("!Keep.log", u"b"_s));
    EXPECT_TRUE(appended.ignores("x.log", false));
    EXPECT_FALSE(appended.ignores("keep.log", false));
    EXPECT_TRUE(IgnorePatterns().empty());
    EXPECT_FALSE(IgnorePatterns().ignores("anything", false));

    const IgnorePatterns names("?.txt\n[ä-ö]x\nStraße", u"x"_s);
    EXPECT_TRUE(names.ignores("é.txt", false));
    EXPECT_TRUE(names.ignores("öx", false));
    EXPECT_FALSE(names.ignores("ax", false));
    const IgnorePatterns folded = names.forMatching(NameMatching::IgnoreCase);
    EXPECT_TRUE(ignoredInWalk(folded, "STRASSE", false));
    EXPECT_TRUE(ignoredInWalk(folded, "Öx", false));
    // A name is turned away by its first and last bytes before it is folded
    // only when they are ASCII: the Kelvin sign folds to "k".
    const IgnorePatterns kelvin =
        IgnorePatterns("k*\n/Docs/*.TXT", u"x"_s).forMatching(NameMatching::IgnoreCase);
    EXPECT_TRUE(ignoredInWalk(kelvin, "\u212Aelvin", false));
    EXPECT_TRUE(ignoredInWalk(kelvin, "DOCS/A.TXT", false));
    EXPECT_FALSE(ignoredInWalk(kelvin, "DOCS/SUB/A.TXT", false));
}

} // namespace
