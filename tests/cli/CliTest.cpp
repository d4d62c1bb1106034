#include "TestSupport.h"

#include "engine/Progress.h"
#include "engine/Snapshot.h"
#include "engine/SnapshotFile.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

using kestrel::test::Node;
using kestrel::test::TempTree;

namespace {

struct CliRun {
    int status = -1;
    QString out;
    QString err;
    QStringList lines() const { return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
};

// Runs kestrel-cli with its settings pointed at a folder of the test's own.
class CliTest : public testing::Test {
protected:
    CliRun cli(const QStringList& arguments, const QString& workingFolder = {}) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), m_home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.path() + QStringLiteral("/config"));
        env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(workingFolder.isEmpty() ? m_home.path() : workingFolder);
        p.start(QStringLiteral(KESTREL_CLI), arguments);
        EXPECT_TRUE(p.waitForFinished(60000));
        CliRun r;
        r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        r.out = QString::fromUtf8(p.readAllStandardOutput());
        r.err = QString::fromUtf8(p.readAllStandardError());
        return r;
    }
    QString home() const { return m_home.path(); }
    // Writes the desktop program's settings file.
    void storeSettings(const QByteArray& contents) {
        QDir().mkpath(home() + QStringLiteral("/config/Kestrel"));
        QFile conf(home() + QStringLiteral("/config/Kestrel/Kestrel.conf"));
        ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
        conf.write(contents);
    }

    QTemporaryDir m_home;
};

TEST_F(CliTest, SnapshotSavesTheNextNumberedFile) {
    TempTree t;
    t.file(QStringLiteral("data/a.txt"), "a");
    t.file(QStringLiteral("data/sub/b.txt"), "bb");
    const QString folder = t.root() + QStringLiteral("data");

    CliRun r = cli({QStringLiteral("snapshot"), folder, QStringLiteral("--dir"), home()});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), home() + QStringLiteral("/data.#01"));
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("Kestrel found 2 files and 1 folders in ")));
    r = cli({QStringLiteral("snapshot"), folder, QStringLiteral("--dir"), home()});
    EXPECT_EQ(r.out.trimmed(), home() + QStringLiteral("/data.#02"));

    r = cli({QStringLiteral("info"), home() + QStringLiteral("/data.#02")});
    ASSERT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.contains(QStringLiteral("Title: Snapshot #2 of ") + folder + QLatin1Char('\n')));
    EXPECT_TRUE(r.out.contains(QStringLiteral("Files: 2\n")));
    EXPECT_TRUE(r.out.contains(QStringLiteral("Folders: 1\n")));

    // A relative folder is made absolute; the file goes to the current folder.
    r = cli({QStringLiteral("snapshot"), QStringLiteral("data"), QStringLiteral("--no-recurse"),
             QStringLiteral("--title"), QStringLiteral("Mine")},
            t.root());
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), t.root() + QStringLiteral("data.#01"));
    r = cli({QStringLiteral("list"), t.root() + QStringLiteral("data.#01")});
    EXPECT_EQ(r.lines().size(), 2);
    r = cli({QStringLiteral("info"), t.root() + QStringLiteral("data.#01")});
    EXPECT_TRUE(r.out.startsWith(QStringLiteral("Title: Mine\n")));
}

TEST_F(CliTest, ListPrintsOneTabSeparatedLinePerEntry) {
    TempTree t;
    t.file(QStringLiteral("sub/line\nbreak"), "12345");
    t.touch(QStringLiteral("sub/line\nbreak"), 1700000000);
    const CliRun r = cli({QStringLiteral("list"), t.root()});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QStringList lines = r.lines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("sub/\t0\t")));
    const QStringList fields = lines[1].split(QLatin1Char('\t'));
    ASSERT_EQ(fields.size(), 5);
    EXPECT_EQ(fields[0], QStringLiteral("sub/line\\nbreak"));
    EXPECT_EQ(fields[1], QStringLiteral("5"));
    EXPECT_EQ(fields[3], QStringLiteral("Norm"));
    EXPECT_EQ(fields[2].size(), 19); // yyyy-MM-dd hh:mm:ss
}

TEST_F(CliTest, ErrorsGoToStandardErrorWithStatusTwo) {
    TempTree t;
    CliRun r = cli({QStringLiteral("snapshot"), t.root()});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(),
              QStringLiteral("Empty Snapshot: No files or folders match the specifications"));
    EXPECT_TRUE(r.out.isEmpty());

    t.file(QStringLiteral("bad.#01"), "title\n\"root\",#2001-01-01 00:00:00#,#TRUE#,#TRUE#,#FALSE#,16\nx,1,1,1,\"n\",0,0,\"\"\n");
    r = cli({QStringLiteral("info"), t.root() + QStringLiteral("bad.#01")});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("Invalid Snapshot: Type mismatch in entry 1 of ") +
                                   t.root() + QStringLiteral("bad.#01"));

    // A folder to scan that is not there is refused before any scan.
    for (const QString& name : {QStringLiteral("missing"), QStringLiteral("bad.#01")}) {
        r = cli({QStringLiteral("snapshot"), t.root() + name, QStringLiteral("--dir"), home()});
        EXPECT_EQ(r.status, 2);
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_EQ(r.err.trimmed(), name == QLatin1String("missing")
                                       ? QStringLiteral("Folder Not Found: ") + t.root() + name +
                                             QStringLiteral(" does not exist")
                                       : QStringLiteral("Not a Folder: ") + t.root() + name +
                                             QStringLiteral(" is not a folder"));
    }
    EXPECT_TRUE(QDir(home()).entryList({QStringLiteral("*.#*")}).isEmpty());

    EXPECT_EQ(cli({QStringLiteral("frobnicate")}).status, 2);
    EXPECT_EQ(cli({QStringLiteral("list")}).status, 2);
    for (const char* command : {"snapshot", "list", "info", "convert", "compare"}) {
        r = cli({QString::fromLatin1(command), QStringLiteral("--help")});
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_TRUE(r.out.contains(QStringLiteral("--help"))) << command;
    }
}

// Whatever is given as a snapshot file, kestrel-cli ends with status 2 and
// one line that says what is wrong with it.
TEST_F(CliTest, GarbageGivenAsASnapshotIsNamedForWhatItIs) {
    TempTree t;
    t.folder(QStringLiteral("folder"));
    t.file(QStringLiteral("empty.#01"));
    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary += char((i * 7919) % 251);
    t.file(QStringLiteral("binary.#01"), binary);
    t.fifo(QStringLiteral("pipe.#01"));
    QByteArray old = "\"C:\\DATA\\;3\"\r\n5,36954.5\r\n#TRUE#,#FALSE#,#FALSE#\r\n32768\r\n";
    for (int i = 1; i <= 32768; ++i)
        old += "\"\\\",\"f" + QByteArray::number(i) + "\",1,36950.5,32,\"\",0,0,0\r\n";
    t.file(QStringLiteral("long-v2.dat"), old);
    const QString r = t.root();

    const std::pair<QString, QString> cases[] = {
        {r + QStringLiteral("folder"),
         QStringLiteral("Invalid Snapshot: %1folder is a folder, not a snapshot file")},
        {r + QStringLiteral("empty.#01"),
         QStringLiteral("Invalid Snapshot: %1empty.#01 is empty, not a snapshot file")},
        {r + QStringLiteral("missing.#01"),
         QStringLiteral(
             "Error: Unable to open Snapshot (%1missing.#01: No such file or directory)")},
        {r + QStringLiteral("pipe.#01"),
         QStringLiteral(
             "Invalid Snapshot: %1pipe.#01 is a device, pipe or socket, not a snapshot file")},
        {r + QStringLiteral("binary.#01"),
         QStringLiteral("Invalid Snapshot: %1binary.#01 is not a Kestrel snapshot file (")},
        {r + QStringLiteral("long-v2.dat"),
         QStringLiteral(
             "Entry Limit: Too many entries to import a Kestrel v2 snapshot (maximum is 32,767)")},
    };
    for (const auto& [path, expected] : cases) {
        for (const char* command : {"info", "convert", "compare"}) {
            QStringList arguments{QString::fromLatin1(command), path};
            if (arguments[0] == QLatin1String("convert"))
                arguments << r + QStringLiteral("out.#01");
            if (arguments[0] == QLatin1String("compare"))
                arguments << r + QStringLiteral("folder");
            // A folder is scanned by compare, and an empty one is no snapshot.
            if (arguments[0] == QLatin1String("compare") && path.endsWith(QLatin1String("folder")))
                continue;
            const CliRun run = cli(arguments);
            SCOPED_TRACE(path.toStdString() + " " + command);
            EXPECT_EQ(run.status, 2);
            EXPECT_TRUE(run.out.isEmpty());
            EXPECT_EQ(run.err.count(QLatin1Char('\n')), 1) << run.err.toStdString();
            EXPECT_TRUE(run.err.startsWith(expected.arg(r))) << run.err.toStdString();
        }
    }
    EXPECT_FALSE(QFile::exists(r + QStringLiteral("out.#01")));
}

// A damaged capacity item no longer makes convert write two thousand million
// empty records: the file is fitted to its lines and the user told.
TEST_F(CliTest, ConvertFitsADamagedCapacityToTheFile) {
    TempTree t;
    t.file(QStringLiteral("cut.#01"),
           "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,2000000000\r\n"
           "32,36950.5,1,0,\"a.txt\",0,5,\"\"\r\n");
    const QString out = t.root() + QStringLiteral("fixed.#01");
    const CliRun r = cli({QStringLiteral("convert"), t.root() + QStringLiteral("cut.#01"), out});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.startsWith(QStringLiteral(
        "Incomplete Snapshot: The file ends before its last 1,999,999,983 entries\n")))
        << r.err.toStdString();
    const QByteArray saved = QByteArray::fromStdString(t.bytes(QStringLiteral("fixed.#01")));
    EXPECT_TRUE(saved.contains(",#FALSE#,32\r\n"));
    EXPECT_EQ(saved.count('\n'), 2 + 16);
}

TEST_F(CliTest, ConvertBringsOldFilesToTheCurrentFormat) {
    TempTree t;
    t.file(QStringLiteral("old.dat"), "\"C:\\DATA\\;3\"\r\n5,36954.5\r\n#TRUE#,#FALSE#,#FALSE#\r\n2\r\n"
                                      "\"\\\",\"Docs\",-1,36950.5,16,\"\",0,1,0\r\n"
                                      "\"\",\"a.txt\",1234,36950.5,32,\"\",0,0,0\r\n");
    const QString out = t.root() + QStringLiteral("converted.#01");
    CliRun r = cli({QStringLiteral("convert"), t.root() + QStringLiteral("old.dat"), out});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(
        r.err.section(QLatin1Char('\n'), 0, 0),
        QStringLiteral(
            "Snapshot Imported: File was created with Kestrel v2 and has been converted to v3"));
    EXPECT_TRUE(r.err.section(QLatin1Char('\n'), 1, 1)
                    .startsWith(QStringLiteral("Kestrel imported 1 files and 1 folders")));
    r = cli({QStringLiteral("list"), out});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QStringList lines = r.lines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Docs/\t")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Docs/a.txt\t1234\t2001-02-28 12:00:00\tArc")));
}

TEST_F(CliTest, CompareReportsDifferencesAndExitsLikeDiff) {
    TempTree before, after;
    for (TempTree* t : {&before, &after}) {
        t->file(QStringLiteral("same.txt"), "s");
        t->touch(QStringLiteral("same.txt"), 1700000000);
        t->folder(QStringLiteral("docs"));
    }
    before.file(QStringLiteral("docs/old.txt"));
    before.file(QStringLiteral("grown.txt"), "1");
    before.touch(QStringLiteral("grown.txt"), 1700000000);
    after.file(QStringLiteral("grown.txt"), "12");
    after.touch(QStringLiteral("grown.txt"), 1700000000 + 2);
    after.file(QStringLiteral("new/inside.txt"));

    CliRun r = cli({QStringLiteral("compare"), before.root(), before.root()});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.isEmpty());

    r = cli({QStringLiteral("compare"), before.root(), after.root()});
    ASSERT_EQ(r.status, 1) << r.err.toStdString();
    QStringList lines = r.lines();
    lines.sort();
    ASSERT_EQ(lines.size(), 4) << r.out.toStdString();
    EXPECT_EQ(lines[0], QStringLiteral("+\tnew/"));
    EXPECT_EQ(lines[1], QStringLiteral("+\tnew/inside.txt"));
    EXPECT_EQ(lines[2], QStringLiteral("-\tdocs/old.txt"));
    EXPECT_TRUE(lines[3].startsWith(QStringLiteral("~\tgrown.txt\t[was 1  ")));
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("2 only in NEW, 1 only in OLD, 1 changed"));

    // Ignoring size and two seconds of date difference leaves the grown file alone.
    r = cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--ignore-size"),
             QStringLiteral("--tolerance"), QStringLiteral("2s")});
    EXPECT_FALSE(r.out.contains(QStringLiteral("grown.txt")));
    r = cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--ignore-size"),
             QStringLiteral("--tolerance"), QStringLiteral("1")});
    EXPECT_TRUE(r.out.contains(QStringLiteral("grown.txt")));

    r = cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--format"),
             QStringLiteral("csv")});
    EXPECT_TRUE(r.out.startsWith(QStringLiteral("change,path,size,modified,attributes,version,was\n")));
    EXPECT_TRUE(r.out.contains(QStringLiteral("\"+\",\"new/inside.txt\",\"0\",")));

    r = cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--format"),
             QStringLiteral("jsonl")});
    EXPECT_TRUE(r.out.contains(QStringLiteral(
        "{\"change\":\"~\",\"path\":\"grown.txt\",\"size\":{\"old\":1,\"new\":2},\"modified\":{\"old\":")));

    r = cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--show"),
             QStringLiteral("both")});
    lines = r.lines();
    lines.sort();
    // docs is empty in NEW: an empty folder's match is negative, so it is not
    // among the entries in both.
    ASSERT_EQ(lines.size(), 2) << r.out.toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("grown.txt\t2\t")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("same.txt\t1\t")));

    EXPECT_EQ(cli({QStringLiteral("compare"), before.root()}).status, 2);
    EXPECT_EQ(cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--tolerance"),
                   QStringLiteral("soon")}).status, 2);
}

// Attribute changes: every bit counts on the command line but the normal
// bit, so a file made read-only differs in its read-only bit alone;
// --use-settings compares only the attributes ticked in the options dialog.
TEST_F(CliTest, CompareLeavesOutTheAttributesItIsTold) {
    TempTree before, after;
    for (TempTree* t : {&before, &after}) {
        t->file(QStringLiteral("f"), "1");
        t->touch(QStringLiteral("f"), 1700000000);
    }
    after.chmod(QStringLiteral("f"), 0444);
    CliRun r = cli({QStringLiteral("compare"), before.root(), after.root()});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.trimmed(), QStringLiteral("~\tf\t[was Norm]"));
    r = cli({QStringLiteral("compare"), before.root(), after.root(),
             QStringLiteral("--ignore-attributes"), QStringLiteral("R")});
    EXPECT_EQ(r.status, 0) << r.out.toStdString();

    const QStringList withSettings = {QStringLiteral("compare"), before.root(), after.root(),
                                      QStringLiteral("--use-settings")};
    EXPECT_EQ(cli(withSettings).status, 0); // "Ignore attributes" off: none compared
    storeSettings("[Ignore]\nAttrib=1\nArchive=1\n");
    EXPECT_EQ(cli(withSettings).status, 0);
    storeSettings("[Ignore]\nAttrib=1\nRead=1\n");
    EXPECT_EQ(cli(withSettings).status, 1);
}

TEST_F(CliTest, CompareTakesStoredOptionsOnlyWhenAsked) {
    TempTree before, after;
    before.file(QStringLiteral("f"), "1");
    after.file(QStringLiteral("f"), "12");
    for (TempTree* t : {&before, &after})
        t->touch(QStringLiteral("f"), 1700000000);
    storeSettings("[Ignore]\nSize=1\n");
    EXPECT_EQ(cli({QStringLiteral("compare"), before.root(), after.root()}).status, 1);
    EXPECT_EQ(cli({QStringLiteral("compare"), before.root(), after.root(), QStringLiteral("--use-settings")}).status,
              0);
}

// The same tree listed by file systems in two orders, saved as two snapshot
// files: list prints them alike, and compare against a third, changed one
// gives one text whichever of the two it starts from. Lines come in path
// order: a folder, then what is in it, then the next name ("a b" after "a/").
TEST_F(CliTest, ListAndCompareDoNotDependOnTheListingOrder) {
    const auto save = [this](const std::vector<Node>& top, const QString& name) {
        kestrel::engine::Snapshot s;
        kestrel::test::buildSnapshot(s, top);
        s.header.title = name;
        s.header.fileName = home() + QLatin1Char('/') + name + QStringLiteral(".#01");
        kestrel::engine::ProgressMeter meter;
        EXPECT_TRUE(kestrel::engine::SaveSnapshot(s, meter).ok);
        return s.header.fileName;
    };
    const Node inner = Node::dir(
        "a", {Node::file("z", 1), Node::file("y", 2), Node::dir("x", {Node::file("deep", 3)})});
    const Node innerReversed = Node::dir(
        "a", {Node::dir("x", {Node::file("deep", 3)}), Node::file("y", 2), Node::file("z", 1)});
    const QString one = save({Node::file("b", 4), inner, Node::file("a b", 5), Node::file("B", 6)},
                             QStringLiteral("one"));
    const QString two =
        save({Node::file("B", 6), Node::file("a b", 5), innerReversed, Node::file("b", 4)},
             QStringLiteral("two"));
    const QString changed = save({Node::file("a b", 50), Node::file("new", 1),
                                  Node::dir("a", {Node::file("y", 2), Node::dir("x"),
                                                  Node::file("z", 1), Node::file("w", 1)})},
                                 QStringLiteral("changed"));

    const CliRun listOne = cli({QStringLiteral("list"), one});
    const CliRun listTwo = cli({QStringLiteral("list"), two});
    ASSERT_EQ(listOne.status, 0) << listOne.err.toStdString();
    EXPECT_EQ(listOne.out, listTwo.out);
    QStringList paths;
    for (const QString& line : listOne.lines())
        paths << line.section(QLatin1Char('\t'), 0, 0);
    EXPECT_EQ(paths, (QStringList{"B", "a/", "a/x/", "a/x/deep", "a/y", "a/z", "a b", "b"}));

    for (const QStringList& order : {QStringList{one, changed}, QStringList{changed, one}}) {
        const CliRun fromOne = cli(QStringList{QStringLiteral("compare")} + order);
        QStringList swapped = order;
        swapped.replaceInStrings(one, two);
        const CliRun fromTwo = cli(QStringList{QStringLiteral("compare")} + swapped);
        EXPECT_EQ(fromOne.status, 1);
        EXPECT_EQ(fromOne.out, fromTwo.out);
        EXPECT_EQ(fromOne.err, fromTwo.err);
        EXPECT_FALSE(fromOne.err.isEmpty()); // the summary stays on standard error
        QStringList comparedPaths;
        for (const QString& line : fromOne.lines())
            comparedPaths << line.section(QLatin1Char('\t'), 1, 1);
        QStringList sorted = comparedPaths;
        std::sort(sorted.begin(), sorted.end(), [](const QString& x, const QString& y) {
            QByteArray a = x.toUtf8(), b = y.toUtf8();
            a.replace('/', '\0');
            b.replace('/', '\0');
            return a < b;
        });
        EXPECT_EQ(comparedPaths, sorted);
    }
    const CliRun shown = cli(
        {QStringLiteral("compare"), changed, one, QStringLiteral("--show"), QStringLiteral("all")});
    EXPECT_EQ(shown.out, cli({QStringLiteral("compare"), changed, two, QStringLiteral("--show"),
                              QStringLiteral("all")})
                             .out);
    EXPECT_TRUE(shown.out.startsWith(QStringLiteral("B\t6\t")));
}

// export writes the Export dialog's lines for a view: its columns, separator,
// quoting and custom text, name order unless told otherwise, the In Folder
// column with sub-folders; mistakes are told as "Title: text" with status 2.
TEST_F(CliTest, ExportWritesTheListOfAFolder) {
    TempTree t;
    t.file(QStringLiteral("data/b.TXT"), "12345");
    t.file(QStringLiteral("data/A.bin"), QByteArray(1234, 'a'));
    t.file(QStringLiteral("data/sub/c"), "c");
    for (const char* f : {"data/b.TXT", "data/A.bin", "data/sub/c"})
        t.touch(QLatin1String(f), 1700000000);
    t.touch(QStringLiteral("data/sub"), 1700000000);
    const QString data = t.root() + QStringLiteral("data");
    const QString snapshot = home() + QStringLiteral("/data.#01");
    ASSERT_EQ(cli({QStringLiteral("snapshot"), data, QStringLiteral("--output"), snapshot}).status,
              0);

    CliRun r = cli({QStringLiteral("export"), snapshot, QStringLiteral("--fields"),
                    QStringLiteral("name,size,type,attributes")});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out,
              QStringLiteral("A.bin,1,234,bin,Norm\r\nb.TXT,5,txt,Norm\r\nsub,<dir>,,Dir\r\n"));

    r = cli({QStringLiteral("export"), snapshot, QStringLiteral("--quotes"),
             QStringLiteral("--separator"), QStringLiteral("tab"), QStringLiteral("--fields"),
             QStringLiteral("custom:HOST,0,folder,size,attributes"), QStringLiteral("--subfolders"),
             QStringLiteral("--numeric-attributes"), QStringLiteral("--sort"),
             QStringLiteral("size:desc")});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    // A folder's size key is 0: the smallest.
    EXPECT_EQ(r.out, QStringLiteral("HOST\t\"A.bin\"\t\"\"\t\"1,234\"\t\"128\"\r\n"
                                    "HOST\t\"b.TXT\"\t\"\"\t\"5\"\t\"128\"\r\n"
                                    "HOST\t\"c\"\t\"sub/\"\t\"1\"\t\"128\"\r\n"
                                    "HOST\t\"sub\"\t\"\"\t\"<dir>\"\t\"16\"\r\n"));

    // The default fields are the dialog's: every column, Version included.
    r = cli({QStringLiteral("export"), snapshot, QStringLiteral("--folder"), QStringLiteral("SUB"),
             QStringLiteral("--separator"), QStringLiteral("none"), QStringLiteral("--output"),
             home() + QStringLiteral("/sub.txt")});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty());
    QFile written(home() + QStringLiteral("/sub.txt"));
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    const QByteArray line = written.readAll();
    EXPECT_TRUE(line.startsWith("c1")) << line.toStdString();
    EXPECT_TRUE(line.endsWith("Norm\r\n")) << line.toStdString();

    const std::pair<QStringList, const char*> mistakes[] = {
        {{QStringLiteral("--fields"), QStringLiteral("name,colour")},
         "Usage: --fields: \"colour\" is not a column"},
        {{QStringLiteral("--fields"), QStringLiteral("folder")},
         "Usage: --fields: the folder column needs --subfolders"},
        {{QStringLiteral("--fields"), QStringLiteral("name,0")},
         "Usage: --fields: \"0\" is named twice"},
        {{QStringLiteral("--folder"), QStringLiteral("nowhere")},
         "Folder Not Found: nowhere is not a folder of the snapshot"},
        {{QStringLiteral("--folder"), QStringLiteral("b.TXT")},
         "Folder Not Found: b.TXT is not a folder of the snapshot"},
        {{QStringLiteral("--show"), QStringLiteral("all")}, "Usage: --show needs --compare"},
        {{QStringLiteral("--separator"), QStringLiteral("semicolon")},
         "Usage: --separator takes none, comma, tab or space"},
        {{QStringLiteral("--sort"), QStringLiteral("colour")}, "Usage: --sort takes name"},
    };
    for (const auto& [options, error] : mistakes) {
        r = cli(QStringList{QStringLiteral("export"), snapshot} + options);
        EXPECT_EQ(r.status, 2) << error;
        EXPECT_TRUE(r.err.startsWith(QLatin1String(error))) << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty());
    }
}

// report writes the printed report as a PDF; without a comparison there are
// no differences to print.
TEST_F(CliTest, ReportPrintsAPdf) {
    TempTree before, after;
    before.file(QStringLiteral("f.txt"), "1");
    after.file(QStringLiteral("f.txt"), "12");
    after.file(QStringLiteral("g.txt"), "1");
    for (TempTree* t : {&before, &after})
        t->touch(QStringLiteral("f.txt"), 1700000000);
    const QString pdf = home() + QStringLiteral("/report.pdf");
    CliRun r = cli({QStringLiteral("report"), after.root(), QStringLiteral("--compare"),
                    before.root(), QStringLiteral("--differences"), QStringLiteral("--landscape"),
                    QStringLiteral("--pdf"), pdf});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
    EXPECT_TRUE(QFile::exists(pdf));

    EXPECT_EQ(cli({QStringLiteral("report"), after.root(), QStringLiteral("--differences"),
                   QStringLiteral("--pdf"), pdf})
                  .err.trimmed(),
              QStringLiteral("Usage: --differences needs --compare"));
    EXPECT_EQ(cli({QStringLiteral("report"), after.root()}).status, 2);

    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (pdftotext.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    QProcess p;
    p.start(pdftotext, {QStringLiteral("-layout"), pdf, QStringLiteral("-")});
    ASSERT_TRUE(p.waitForFinished(60000));
    const QString text = QString::fromUtf8(p.readAllStandardOutput());
    EXPECT_TRUE(text.startsWith(
        QStringLiteral("Kestrel v" KESTREL_VERSION " Directory Compare Program by Quillon Ltd")));
    EXPECT_TRUE(text.contains(QStringLiteral("Compared with Snapshot #1 of ")));
    EXPECT_TRUE(text.contains(QStringLiteral("[was not in other Snapshot]")));
    EXPECT_TRUE(text.contains(QStringLiteral("[was 1")));
    EXPECT_TRUE(text.trimmed().endsWith(QStringLiteral("End of Report")));
}

} // namespace
