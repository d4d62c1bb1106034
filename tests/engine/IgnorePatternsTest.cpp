#include "engine/compare/IgnorePatterns.h"

#include <climits>
#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <string>
#include <vector>

using namespace kestrel::engine;

namespace {

struct Probe {
    const char* path;
    bool folder;
    bool ignored;
};

// A set of pattern lines and what they make of paths in one tree.
struct Case {
    const char* patterns;
    std::vector<Probe> probes;
    NameMatching matching = NameMatching::Exact;
};

const std::vector<Case>& cases() {
    static const std::vector<Case> all = {
        // A plain name or "*.ext" matches at any depth, and only whole names.
        {"*.pyc\nCore",
         {{"a.pyc", false, true},
          {"src/deep/b.pyc", false, true},
          {"a.pyc.txt", false, false},
          {"pyc", false, false},
          {"src/Core", false, true},
          {"src/Core2", false, false}}},
        // A trailing "/" is for folders, and everything inside goes with them.
        {"__pycache__/\nnotes/",
         {{"__pycache__", true, true},
          {"src/__pycache__", true, true},
          {"src/__pycache__/m.py", false, true},
          {"lib/notes", false, false}}},
        // A leading or middle "/" anchors at the root.
        {"/build\ndoc/*.txt",
         {{"build", true, true},
          {"build/x.o", false, true},
          {"src/build", true, false},
          {"doc/a.txt", false, true},
          {"doc/sub/a.txt", false, false},
          {"x/doc/a.txt", false, false}}},
        {"/out/\na/*/c",
         {{"out", false, false},
          {"sub/out", true, false},
          {"a/b/c", false, true},
          {"a/b/x/c", false, false}}},
        // "**" at the start, the end and in the middle.
        {"**/logs\n**/cache/debug.log\n/var/log/**\na/**/b",
         {{"logs", true, true},
          {"x/y/logs", true, true},
          {"cache/debug.log", false, true},
          {"p/cache/debug.log", false, true},
          {"p/cache/q/debug.log", false, false},
          {"var/log", true, false},
          {"var/log/syslog", false, true},
          {"var/log/apt/history", false, true},
          {"var/logfiles/x", false, false},
          {"a/b", false, true},
          {"a/x/b", false, true},
          {"a/x/y/b", false, true},
          {"z/a/b", false, false}}},
        {"foo/**/\n/**/tmp",
         {{"foo/bar", true, true},
          {"foo/baz", false, false},
          {"foo/bar/deep", false, true},
          {"tmp", false, true},
          {"u/v/tmp", false, true}}},
        // The last pattern that matches decides.
        {"*.log\n!keep.log", {{"x.log", false, true}, {"keep.log", false, false}}},
        {"!keep.log\n*.log", {{"keep.log", false, true}}},
        // Nothing inside an ignored folder is taken back...
        {"cache/\n!cache/keep.txt", {{"cache/keep.txt", false, true}}},
        // ... but what is inside may be ignored name by name.
        {"stash/*\n!stash/keep.txt",
         {{"stash/keep.txt", false, false}, {"stash/other", false, true}, {"stash", true, false}}},
        // Sets, ranges, classes and escaped brackets.
        {"file[0-9].txt\n[!a]*.c\n[]x]y\n\\[draft\\]*\n[[:digit:]]*.md\nv[^0-9]",
         {{"file5.txt", false, true},
          {"filea.txt", false, false},
          {"b.c", false, true},
          {"a.c", false, false},
          {"]y", false, true},
          {"xy", false, true},
          {"zy", false, false},
          {"[draft] notes.md", false, true},
          {"draft notes", false, false},
          {"1 intro.md", false, true},
          {"intro.md", false, false},
          {"vx", false, true},
          {"v1", false, false}}},
        // Blanks: inside names they count, trailing ones only when escaped.
        {"my file.txt\nfoo.txt   \nbar\\ \n?.md",
         {{"my file.txt", false, true},
          {"foo.txt", false, true},
          {"bar ", false, true},
          {"bar", false, false},
          {"a.md", false, true},
          {"ab.md", false, false}}},
        // Comments, escapes, and a line that cannot be compiled.
        {"#comment\n\\#hash\n\\!bang\n[abc\n*.o",
         {{"#comment", false, false},
          {"#hash", false, true},
          {"!bang", false, true},
          {"[abc", false, false},
          {"x.o", false, true}}},
        // Case: exact on POSIX, as git on Linux...
        {"*.PYC\nREADME", {{"a.pyc", false, false}, {"readme", false, false}}},
        // ... and without regard to case for snapshots made on Windows.
        {"*.PYC\nREADME\n/Docs/*.TXT",
         {{"a.pyc", false, true},
          {"readme", false, true},
          {"docs/a.txt", false, true},
          {"docs/sub/a.txt", false, false}},
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

IgnorePatterns compiled(const Case& c) {
    return IgnorePatterns(c.patterns, QStringLiteral("Ignore Patterns")).forMatching(c.matching);
}

TEST(IgnorePatterns, MatchTheTable) {
    for (const Case& c : cases()) {
        const IgnorePatterns patterns = compiled(c);
        for (const Probe& probe : c.probes)
            EXPECT_EQ(ignoredInWalk(patterns, probe.path, probe.folder), probe.ignored)
                << "patterns:\n"
                << c.patterns << "\npath: " << probe.path << (probe.folder ? "/" : "");
    }
}

// The paths git check-ignore reports as ignored when the patterns are the
// repository's exclude file, in a real tree holding the probes.
std::optional<QSet<QString>> gitIgnored(const QString& git, const Case& c) {
    QTemporaryDir dir;
    const QString root = dir.path() + QLatin1Char('/');
    QProcess init;
    init.start(git, {QStringLiteral("init"), QStringLiteral("-q"), root});
    if (!init.waitForFinished() || init.exitCode() != 0)
        return std::nullopt;
    QFile exclude(root + QStringLiteral(".git/info/exclude"));
    if (!exclude.open(QIODevice::WriteOnly) || exclude.write(c.patterns) < 0)
        return std::nullopt;
    exclude.close();
    QByteArray input;
    for (const Probe& probe : c.probes) {
        const QString path = root + QString::fromUtf8(probe.path);
        if (probe.folder) {
            QDir().mkpath(path);
        } else {
            QDir().mkpath(QFileInfo(path).path());
            QFile(path).open(QIODevice::WriteOnly);
        }
        input += QByteArray(probe.path) + '\0';
    }
    QProcess check;
    // Nobody's own git settings (a global excludes file) may take part.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), dir.path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.path());
    environment.insert(QStringLiteral("GIT_CONFIG_NOSYSTEM"), QStringLiteral("1"));
    check.setProcessEnvironment(environment);
    check.setWorkingDirectory(root);
    const bool foldCase = c.matching == NameMatching::IgnoreCase;
    check.start(git, {QStringLiteral("-c"),
                      foldCase ? QStringLiteral("core.ignorecase=true")
                               : QStringLiteral("core.ignorecase=false"),
                      QStringLiteral("check-ignore"), QStringLiteral("--no-index"),
                      QStringLiteral("-z"), QStringLiteral("--stdin")});
    check.write(input);
    check.closeWriteChannel();
    if (!check.waitForFinished() || check.exitCode() > 1)
        return std::nullopt;
    QSet<QString> ignored;
    for (const QByteArray& path : check.readAllStandardOutput().split('\0'))
        if (!path.isEmpty())
            ignored.insert(QString::fromUtf8(path));
    return ignored;
}

TEST(IgnorePatterns, TableAgreesWithGitCheckIgnore) {
    const QString git = QStandardPaths::findExecutable(QStringLiteral("git"));
    if (git.isEmpty())
        GTEST_SKIP() << "git is not installed: the table is not checked against git check-ignore";
    for (const Case& c : cases()) {
        const std::optional<QSet<QString>> ignored = gitIgnored(git, c);
        ASSERT_TRUE(ignored) << "git check-ignore did not run for:\n" << c.patterns;
        for (const Probe& probe : c.probes)
            EXPECT_EQ(ignored->contains(QString::fromUtf8(probe.path)), probe.ignored)
                << "git disagrees with the table; patterns:\n"
                << c.patterns << "\npath: " << probe.path;
    }
}

TEST(IgnorePatterns, LinesThatCannotBeCompiledAreToldAndTheOthersApply) {
    const IgnorePatterns patterns("*.o\n\n# fine\n[abc\ntrail\\\n*.tmp\n[[:nope:]]",
                                  QStringLiteral("Ignore Patterns"));
    EXPECT_EQ(patterns.problems(),
              QStringList({QStringLiteral("Ignore Patterns: line 4: unclosed ["),
                           QStringLiteral("Ignore Patterns: line 5: ends with a lone \\"),
                           QStringLiteral("Ignore Patterns: line 7: unknown character class")}));
    EXPECT_TRUE(patterns.ignores("a.o", false));
    EXPECT_TRUE(patterns.ignores("x/b.tmp", false));
    EXPECT_FALSE(patterns.needsPaths());
    // Windows line ends and a byte-order mark are not part of the patterns.
    const IgnorePatterns windows("\xEF\xBB\xBF*.bak\r\n/Top\r\n", QStringLiteral("x"));
    EXPECT_TRUE(windows.problems().isEmpty());
    EXPECT_TRUE(windows.ignores("a.bak", false));
    EXPECT_TRUE(windows.ignores("Top", true));
    EXPECT_TRUE(windows.needsPaths());
}

TEST(IgnorePatterns, AppendedPatternsComeLastAndTakeTheOthersRule) {
    IgnorePatterns patterns("*.LOG", QStringLiteral("a"));
    patterns = patterns.forMatching(NameMatching::IgnoreCase);
    patterns.append(IgnorePatterns("!Keep.log", QStringLiteral("b")));
    EXPECT_TRUE(patterns.ignores("x.log", false));
    EXPECT_FALSE(patterns.ignores("keep.log", false));
    EXPECT_TRUE(IgnorePatterns().empty());
    EXPECT_FALSE(IgnorePatterns().ignores("anything", false));
}

TEST(IgnorePatterns, DeepestMatchBoundsOnlyAnchoredPatterns) {
    const auto deepest = [](const char* text) {
        return IgnorePatterns(text, QStringLiteral("t")).deepestMatch();
    };
    EXPECT_EQ(deepest(""), 0);
    EXPECT_EQ(deepest("/build/\n/a/b/c\n/*/*[13579]\n"), 3);
    EXPECT_EQ(deepest("/a/b\n*.pyc\n"), INT_MAX);
    EXPECT_EQ(deepest("/var/log/**\n"), INT_MAX);
    EXPECT_EQ(deepest("docs/**/*.bak\n"), INT_MAX);
    EXPECT_EQ(deepest("/a\n!/a/b\n"), 2);
}

TEST(IgnorePatterns, NamesAreCharactersNotBytes) {
    const IgnorePatterns patterns("?.txt\n[ä-ö]x\nStraße", QStringLiteral("x"));
    EXPECT_TRUE(patterns.ignores("é.txt", false));
    EXPECT_TRUE(patterns.ignores("öx", false));
    EXPECT_FALSE(patterns.ignores("ax", false));
    const IgnorePatterns folded = patterns.forMatching(NameMatching::IgnoreCase);
    EXPECT_TRUE(ignoredInWalk(folded, "STRASSE", false));
    EXPECT_TRUE(ignoredInWalk(folded, "Öx", false));
    // A name is turned away by its first and last bytes before it is folded
    // only when they are ASCII: the Kelvin sign folds to "k".
    const IgnorePatterns kelvin = IgnorePatterns("k*\n/Docs/*.TXT", QStringLiteral("x"))
                                      .forMatching(NameMatching::IgnoreCase);
    EXPECT_TRUE(ignoredInWalk(kelvin, "\u212Aelvin", false));
    EXPECT_TRUE(ignoredInWalk(kelvin, "DOCS/A.TXT", false));
    EXPECT_FALSE(ignoredInWalk(kelvin, "DOCS/SUB/A.TXT", false));
}

} // namespace
