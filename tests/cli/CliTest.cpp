#include "TestSupport.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/EntryAccess.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using kestrel::engine::nativeText;
using kestrel::test::Node;
using kestrel::test::TempTree;
using namespace Qt::StringLiterals;

namespace {

using CliRun = kestrel::test::ProgramRun;

// Runs kestrel-cli with its settings pointed at a folder of the test's own.
class CliTest : public testing::Test {
protected:
    // With fileSizeLimit, the command runs under that limit (ulimit -f), its
    // writes beyond it failing as on a full disk.
    CliRun cli(const QStringList& arguments, const QString& workingFolder = {},
               rlim_t fileSizeLimit = RLIM_INFINITY) {
        std::function<void()> limit;
        if (fileSizeLimit != RLIM_INFINITY)
            limit = [fileSizeLimit] {
                const rlimit size{fileSizeLimit, fileSizeLimit};
                ::setrlimit(RLIMIT_FSIZE, &size);
            };
        return kestrel::test::runProgram(QStringLiteral(KESTREL_CLI), arguments, home(),
                                         workingFolder, limit);
    }
    // Where the tests run as root, kestrel-cli runs as the user nobody, to
    // whom folder permissions apply.
    CliRun cliAsNobody(const QStringList& arguments) {
        std::function<void()> nobody;
        if (kestrel::test::runningAsRoot())
            nobody = [] {
                if (!kestrel::test::becomeNobody())
                    ::_exit(99);
            };
        return kestrel::test::runProgram(QStringLiteral(KESTREL_CLI), arguments, home(), {},
                                         nobody);
    }
    // kestrel-cli started by a shell command, which reaches it as $0 and its
    // arguments as $1...: for arguments in bytes that are not UTF-8, which
    // QProcess cannot pass.
    CliRun cliThroughShell(const QString& command, const QStringList& arguments) {
        return kestrel::test::runProgram(
            u"/bin/sh"_s, QStringList{u"-c"_s, command, QStringLiteral(KESTREL_CLI)} + arguments,
            home());
    }
    QString home() const { return m_home.path(); }
    // Writes the desktop program's settings file.
    void storeSettings(const QByteArray& contents) {
        QDir().mkpath(home() + u"/config/Kestrel"_s);
        ASSERT_TRUE(
            kestrel::test::writeBytes(home() + u"/config/Kestrel/Kestrel.conf"_s, contents));
    }

    QTemporaryDir m_home;
};

TEST_F(CliTest, SnapshotSavesTheNextNumberedFile) {
    TempTree t;
    t.file(u"data/a.txt"_s, "a");
    t.file(u"data/sub/b.txt"_s, "bb");
    const QString folder = t.root() + u"data"_s;

    CliRun r = cli({u"snapshot"_s, folder, u"--dir"_s, home()});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), home() + u"/data.#01"_s);
    EXPECT_TRUE(r.err.startsWith(u"Kestrel found 2 files and 1 folders in "_s));
    r = cli({u"snapshot"_s, folder, u"--dir"_s, home()});
    EXPECT_EQ(r.out.trimmed(), home() + u"/data.#02"_s);

    r = cli({u"info"_s, home() + u"/data.#02"_s});
    ASSERT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.contains(u"Title: Snapshot #2 of "_s + folder + u'\n'));
    EXPECT_TRUE(r.out.contains(u"Files: 2\nFolders: 1\n"_s)) << r.out.toStdString();

    // A relative folder is made absolute; the file goes to the current folder.
    r = cli({u"snapshot"_s, u"data"_s, u"--no-recurse"_s, u"--title"_s, u"Mine"_s}, t.root());
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), t.root() + u"data.#01"_s);
    EXPECT_EQ(cli({u"list"_s, t.root() + u"data.#01"_s}).lines().size(), 2);
    EXPECT_TRUE(cli({u"info"_s, t.root() + u"data.#01"_s}).out.startsWith(u"Title: Mine\n"_s));
}

// After the 99th the series is full and nothing is replaced unless --output
// names the file (the hostile trees' tests see links take their numbers). A
// file named so is titled by its number, or as the first of its series.
TEST_F(CliTest, SnapshotNumbersGoOnAfterTheHighestUpToTheNinetyNinth) {
    TempTree t;
    t.file(u"data/a.txt"_s, "a");
    const QString folder = t.root() + u"data"_s;
    const QString keep = home() + u"/"_s;
    ASSERT_TRUE(kestrel::test::writeBytes(keep + u"data.#99"_s, "last"));
    CliRun r = cli({u"snapshot"_s, folder});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(),
              u"Error Writing Snapshot: "_s + keep + u"data.#99 exists: the series is full"_s);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_TRUE(kestrel::test::readBytes(keep + u"data.#99"_s) == "last");

    const std::pair<QString, QString> titles[] = {{u"data.#99"_s, u"Snapshot #99 of "_s},
                                                  {u"plain.txt"_s, u"Snapshot #1 of "_s},
                                                  {u"zero.#00"_s, u"Snapshot #1 of "_s}};
    for (const auto& [name, title] : titles) {
        r = cli({u"snapshot"_s, folder, u"--output"_s, name});
        ASSERT_EQ(r.status, 0) << r.err.toStdString();
        EXPECT_TRUE(cli({u"info"_s, keep + name}).out.startsWith(u"Title: "_s + title + folder))
            << name.toStdString();
    }

    // A file that cannot be written is named with the system's reason.
    const QString nowhere = keep + u"missing/x.#01"_s;
    r = cli({u"snapshot"_s, folder, u"--output"_s, nowhere});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(), u"Error Writing Snapshot: "_s + nowhere + u": "_s +
                                   QString::fromLocal8Bit(std::strerror(ENOENT)));
}

// An export cut short by a full disk near its end (here a file size limit,
// with no one catching the signal it raises) fails with the path and the
// system's reason, and the old file stays.
TEST_F(CliTest, ExportCutShortByAFullDiskKeepsTheOldFile) {
    TempTree t;
    for (int i = 0; i < 400; ++i)
        t.file(u"data/file number %1.txt"_s.arg(i), QByteArray(i, 'x'));
    const QString out = home() + u"/e.txt"_s;
    const QStringList command = {u"export"_s, t.root() + u"data"_s, u"--output"_s, out};
    ASSERT_EQ(cli(command).status, 0);
    const qint64 length = QFileInfo(out).size();
    ASSERT_GT(length, 8192);
    for (const qint64 below : {1, 100, 4096, 8192}) {
        ASSERT_TRUE(kestrel::test::writeBytes(out, "old\r\n"));
        const CliRun r = cli(command, {}, rlim_t(length - below));
        EXPECT_EQ(r.status, 2) << below;
        EXPECT_EQ(r.err.trimmed(), u"Error Writing Snapshot: "_s + out + u": "_s +
                                       QString::fromLocal8Bit(std::strerror(EFBIG)));
        EXPECT_TRUE(kestrel::test::readBytes(out) == "old\r\n") << below;
    }
    EXPECT_EQ(QDir(home()).entryList(QDir::Files | QDir::Hidden), QStringList{u"e.txt"_s});
}

TEST_F(CliTest, ListPrintsOneTabSeparatedLinePerEntry) {
    TempTree t;
    t.file(u"sub/line\nbreak"_s, "12345");
    t.touch(u"sub/line\nbreak"_s, 1700000000);
    const CliRun r = cli({u"list"_s, t.root()});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QStringList lines = r.lines();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(u"sub/\t0\t"_s));
    // Path, size, modified (yyyy-MM-dd hh:mm:ss), attributes, version.
    static const QRegularExpression file(
        u"^sub/line\\\\nbreak\t5\t\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\tNorm\t$"_s);
    EXPECT_TRUE(file.match(lines[1]).hasMatch()) << lines[1].toStdString();
    // info escapes the title and the root folder as list escapes paths.
    t.file(u"line\nroot/a"_s);
    const QString snapshot = home() + u"/escaped.#01"_s;
    ASSERT_EQ(cli({u"snapshot"_s, t.root() + u"line\nroot"_s, u"--title"_s, u"two\tlines\\"_s,
                   u"--output"_s, snapshot})
                  .status,
              0);
    EXPECT_TRUE(cli({u"info"_s, snapshot})
                    .out.startsWith(u"Title: two\\tlines\\\nRoot folder: "_s + t.root() +
                                    u"line\\nroot/\n"_s));
}

// Folders that could not be read: snapshot names them and exits 3; list,
// info and compare show a folder that could not be listed as its path and
// " (unreadable)", never as an entry of its own, and values that could not
// be read as "unknown", never compared.
TEST_F(CliTest, UnreadableFoldersAreSaidNotListedAsEntries) {
    TempTree t;
    t.file(u"data/secret/s.txt"_s, "s");
    t.file(u"data/unsearchable/u.txt"_s, "u");
    t.file(u"data/open.txt"_s, "o");
    t.chmod(QString(), 0755);
    t.chmod(u"data"_s, 0755);
    t.chmod(u"data/secret"_s, 0);
    t.chmod(u"data/unsearchable"_s, 0644);
    QTemporaryDir out;
    ASSERT_TRUE(QFile::setPermissions(out.path(), QFileDevice::Permissions(0x7777)));
    const QString data = t.root() + u"data"_s;
    CliRun r = cliAsNobody({u"snapshot"_s, data, u"--dir"_s, out.path()});
    t.chmod(u"data/secret"_s, 0755);
    t.chmod(u"data/unsearchable"_s, 0755);
    ASSERT_EQ(r.status, 3) << r.err.toStdString();
    const QString unreadable = out.path() + u"/data.#01"_s;
    EXPECT_EQ(r.out.trimmed(), unreadable);
    EXPECT_TRUE(r.err.contains(u", 2 folders could not be read\n"_s)) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(u"Could not be read: "_s + data + u"/secret/\n"_s));
    EXPECT_TRUE(r.err.contains(u"Could not be read: "_s + data + u"/unsearchable/\n"_s));

    r = cli({u"list"_s, unreadable});
    // The folder's own line, then the marker's.
    const QStringList secret = r.lines().filter(u"secret"_s);
    ASSERT_EQ(secret.size(), 2) << r.out.toStdString();
    EXPECT_TRUE(secret[0].startsWith(u"secret/\t0\t"_s) && secret[0].endsWith(u"Dir\t"_s));
    EXPECT_EQ(secret[1], u"secret/ (unreadable)"_s);
    EXPECT_TRUE(r.lines().contains(u"unsearchable/u.txt\tunknown\tunknown\tunknown\t"_s));
    EXPECT_TRUE(
        cli({u"info"_s, unreadable}).out.contains(u"Folders that could not be read: 2\n"_s));

    // Read as root, everything is there: the file read and the folder listed
    // are no changes, only what could not be seen before and the folders'
    // own permissions, which were what hid them.
    r = cli({u"snapshot"_s, data, u"--dir"_s, out.path()});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    for (const char* format : {"text", "csv", "jsonl"}) {
        r = cli({u"compare"_s, unreadable, out.path() + u"/data.#02"_s, u"--format"_s,
                 QString::fromLatin1(format)});
        EXPECT_EQ(r.status, 1);
        const bool json = QLatin1String(format) == QLatin1String("jsonl");
        const QStringList marker = r.lines().filter(
            json ? u"\"kind\":\"unreadable\",\"path\":\"secret/\""_s : u"secret/ (unreadable)"_s);
        ASSERT_EQ(marker.size(), 1) << format;
        // Neither a deletion nor an addition: what was there is not known.
        EXPECT_TRUE(marker[0].contains(u"?"_s)) << format;
        EXPECT_FALSE(marker[0].startsWith(u"-"_s) || marker[0].startsWith(u"\"-"_s) ||
                     marker[0].contains(u"\"change\":\"-\""_s))
            << format;
        EXPECT_EQ(r.lines().filter(u"secret/s.txt"_s).size(), 1) << format;
        EXPECT_TRUE(r.lines().filter(u"u.txt"_s).isEmpty()) << format;
    }
    EXPECT_EQ(r.err.trimmed(),
              u"1 only in NEW, 0 only in OLD, 2 changed (2 permission changes), 1 folder could "
              u"not be read on one side"_s);
}

TEST_F(CliTest, EveryCommandsUsageLineNamesIt) {
    const std::pair<const char*, const char*> usages[] = {
        {"snapshot", "[options] FOLDER"}, {"list", "[options] SNAPSHOT|FOLDER"},
        {"info", "[options] SNAPSHOT"},   {"convert", "[options] SNAPSHOT OUTPUT"},
        {"compare", "[options] OLD NEW"}, {"export", "[options] SNAPSHOT"},
        {"report", "[options] SNAPSHOT"}};
    for (const auto& [command, rest] : usages) {
        const CliRun r = cli({QLatin1String(command), u"--help"_s});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.lines().value(0),
                  u"Usage: kestrel-cli "_s + QLatin1String(command) + u' ' + QLatin1String(rest));
    }
}

TEST_F(CliTest, ErrorsGoToStandardErrorWithStatusTwo) {
    TempTree t;
    CliRun r = cli({u"snapshot"_s, t.root()});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(), u"Empty Snapshot: No files or folders match the specifications"_s);
    EXPECT_TRUE(r.out.isEmpty());

    t.file(u"bad.#01"_s, "title\n\"root\",#2001-01-01 00:00:00#,#TRUE#,#TRUE#,#FALSE#,16\n"
                         "x,1,1,1,\"n\",0,0,\"\"\n");
    r = cli({u"info"_s, t.root() + u"bad.#01"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(),
              u"Invalid Snapshot: Type mismatch in entry 1 of "_s + t.root() + u"bad.#01"_s);

    // A folder to scan that is not there is refused before any scan.
    const std::pair<const char*, QString> refused[] = {
        {"missing", u"Folder Not Found: %1missing does not exist"_s},
        {"bad.#01", u"Not a Folder: %1bad.#01 is not a folder"_s}};
    for (const auto& [name, message] : refused) {
        r = cli({u"snapshot"_s, t.root() + QLatin1String(name), u"--dir"_s, home()});
        EXPECT_EQ(r.status, 2);
        EXPECT_TRUE(r.out.isEmpty());
        EXPECT_EQ(r.err.trimmed(), message.arg(t.root()));
    }
    EXPECT_TRUE(QDir(home()).entryList({u"*.#*"_s}).isEmpty());

    EXPECT_EQ(cli({u"frobnicate"_s}).status, 2);
    EXPECT_EQ(cli({u"list"_s}).status, 2);
}

// Whatever is given as a snapshot file, kestrel-cli ends with status 2 and
// one line that says what is wrong with it.
TEST_F(CliTest, GarbageGivenAsASnapshotIsNamedForWhatItIs) {
    TempTree t;
    t.folder(u"folder"_s);
    t.file(u"empty.#01"_s);
    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary += char((i * 7919) % 251);
    t.file(u"binary.#01"_s, binary);
    t.fifo(u"pipe.#01"_s);
    QByteArray old = "\"C:\\DATA\\;3\"\r\n5,36954.5\r\n#TRUE#,#FALSE#,#FALSE#\r\n32768\r\n";
    for (int i = 1; i <= 32768; ++i)
        old += "\"\\\",\"f" + QByteArray::number(i) + "\",1,36950.5,32,\"\",0,0,0\r\n";
    t.file(u"long-v2.dat"_s, old);
    const QString r = t.root();

    const std::pair<const char*, QString> cases[] = {
        {"folder", u"Invalid Snapshot: %1folder is a folder, not a snapshot file"_s},
        {"empty.#01", u"Invalid Snapshot: %1empty.#01 is empty, not a snapshot file"_s},
        {"missing.#01",
         u"Error: Unable to open Snapshot (%1missing.#01: No such file or directory)"_s},
        {"pipe.#01",
         u"Invalid Snapshot: %1pipe.#01 is a device, pipe or socket, not a snapshot file"_s},
        {"binary.#01", u"Invalid Snapshot: %1binary.#01 is not a Kestrel snapshot file ("_s},
        {"long-v2.dat",
         u"Entry Limit: Too many entries to import a Kestrel v2 snapshot (maximum is 32,767)"_s},
    };
    for (const auto& [name, expected] : cases) {
        const QString path = r + QLatin1String(name);
        // compare scans a folder, and an empty one is no snapshot.
        const QList<QStringList> runs = {
            {u"info"_s, path}, {u"convert"_s, path, r + u"out.#01"_s}, {u"compare"_s, path, path}};
        for (const QStringList& arguments : runs) {
            if (arguments[0] == u"compare"_s && path.endsWith(u"folder"_s))
                continue;
            const CliRun run = cli(arguments);
            SCOPED_TRACE(arguments.join(u' ').toStdString());
            EXPECT_EQ(run.status, 2);
            EXPECT_TRUE(run.out.isEmpty());
            EXPECT_EQ(run.err.count(u'\n'), 1) << run.err.toStdString();
            EXPECT_TRUE(run.err.startsWith(expected.arg(r))) << run.err.toStdString();
        }
    }
    EXPECT_FALSE(QFile::exists(r + u"out.#01"_s));
}

// A damaged capacity item no longer makes convert write two thousand million
// empty records: the file is fitted to its lines and the user told. An old
// file is brought to the current format.
TEST_F(CliTest, ConvertFitsDamagedFilesAndBringsOldOnesUpToDate) {
    TempTree t;
    t.file(u"cut.#01"_s, "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,2000000000\r\n"
                         "32,36950.5,1,0,\"a.txt\",0,5,\"\"\r\n");
    CliRun r = cli({u"convert"_s, t.root() + u"cut.#01"_s, t.root() + u"fixed.#01"_s});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.startsWith(
        u"Incomplete Snapshot: The file ends before its last 1,999,999,983 entries\n"_s))
        << r.err.toStdString();
    const QByteArray saved = QByteArray::fromStdString(t.bytes(u"fixed.#01"_s));
    EXPECT_TRUE(saved.contains(",#FALSE#,32\r\n"));
    EXPECT_EQ(saved.count('\n'), 2 + 16);

    t.file(u"old.dat"_s, "\"C:\\DATA\\;3\"\r\n5,36954.5\r\n#TRUE#,#FALSE#,#FALSE#\r\n2\r\n"
                         "\"\\\",\"Docs\",-1,36950.5,16,\"\",0,1,0\r\n"
                         "\"\",\"a.txt\",1234,36950.5,32,\"\",0,0,0\r\n");
    const QString out = t.root() + u"converted.#01"_s;
    r = cli({u"convert"_s, t.root() + u"old.dat"_s, out});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.startsWith(
        u"Snapshot Imported: File was created with Kestrel v2 and has been converted to v3\n"
        "Kestrel imported 1 files and 1 folders"_s))
        << r.err.toStdString();
    r = cli({u"list"_s, out});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    ASSERT_EQ(r.lines().size(), 2);
    EXPECT_TRUE(r.lines()[0].startsWith(u"Docs/\t"_s));
    EXPECT_TRUE(r.lines()[1].startsWith(u"Docs/a.txt\t1234\t2001-02-28 12:00:00\tArc"_s));
}

// Dot names are hidden items: a snapshot without hidden items says how many
// it left out, and compared with one that has them, both ways, they are
// extra entries like any other.
TEST_F(CliTest, DotEntriesCompareBothWays) {
    TempTree t;
    t.file(u"data/run.sh"_s, "r");
    t.file(u"data/.htaccess"_s, "h");
    t.file(u"data/.ssh/authorized_keys"_s, "k");
    const QString data = t.root() + u"data"_s;
    CliRun r = cli({u"snapshot"_s, data, u"--dir"_s, home()});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    r = cli({u"snapshot"_s, data, u"--dir"_s, home(), u"--no-hidden"_s});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(u", 2 hidden entries left out\n"_s)) << r.err.toStdString();
    const QString all = home() + u"/data.#01"_s, shown = home() + u"/data.#02"_s;

    const QStringList hidden = {u".htaccess"_s, u".ssh/"_s, u".ssh/authorized_keys"_s};
    for (const auto& [older, newer, sign] :
         {std::tuple{all, shown, u"-\t"_s}, std::tuple{shown, all, u"+\t"_s}}) {
        r = cli({u"compare"_s, older, newer});
        EXPECT_EQ(r.status, 1);
        QStringList expected;
        for (const QString& path : hidden)
            expected << sign + path;
        EXPECT_EQ(r.lines(), expected);
    }
}

TEST_F(CliTest, CompareReportsDifferencesAndExitsLikeDiff) {
    TempTree before, after;
    for (TempTree* t : {&before, &after}) {
        t->file(u"same.txt"_s, "s");
        t->touch(u"same.txt"_s, 1700000000);
        t->folder(u"docs"_s);
    }
    before.file(u"docs/old.txt"_s);
    before.file(u"grown.txt"_s, "1");
    before.touch(u"grown.txt"_s, 1700000000);
    after.file(u"grown.txt"_s, "12");
    after.touch(u"grown.txt"_s, 1700000000 + 2);
    after.file(u"new/inside.txt"_s);
    const auto compare = [&](const QStringList& options = {}) {
        return cli(QStringList{u"compare"_s, before.root(), after.root()} + options);
    };

    CliRun r = cli({u"compare"_s, before.root(), before.root()});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.isEmpty());

    r = compare();
    ASSERT_EQ(r.status, 1) << r.err.toStdString();
    QStringList lines = r.lines();
    lines.sort();
    ASSERT_EQ(lines.size(), 4) << r.out.toStdString();
    EXPECT_EQ(lines.mid(0, 3),
              (QStringList{u"+\tnew/"_s, u"+\tnew/inside.txt"_s, u"-\tdocs/old.txt"_s}));
    // What the file was, then each changed field, old and new, in the ISO
    // form the other outputs use.
    const auto iso = [](qint64 seconds) {
        return QDateTime::fromSecsSinceEpoch(seconds).toString(u"yyyy-MM-dd hh:mm:ss"_s);
    };
    EXPECT_TRUE(lines[3].startsWith(u"~\tgrown.txt\t[was 1  "_s));
    EXPECT_TRUE(lines[3].endsWith(u"]\tsize 1 -> 2, modified "_s + iso(1700000000) + u" -> "_s +
                                  iso(1700000002)))
        << lines[3].toStdString();
    EXPECT_EQ(r.err.trimmed(), u"2 only in NEW, 1 only in OLD, 1 changed"_s);

    // Ignoring size and two seconds of date difference leaves the grown file alone.
    EXPECT_FALSE(compare({u"--ignore-size"_s, u"--tolerance"_s, u"2s"_s}).out.contains(u"grown"_s));
    EXPECT_TRUE(compare({u"--ignore-size"_s, u"--tolerance"_s, u"1"_s}).out.contains(u"grown"_s));

    r = compare({u"--format"_s, u"csv"_s});
    EXPECT_TRUE(r.out.startsWith(u"change,path,size,modified,attributes,version,was\n"_s));
    EXPECT_TRUE(r.out.contains(u"\"+\",\"new/inside.txt\",\"0\","_s));
    // JSON lines: the header, then a line a change (the document's own tests
    // read the fields). Without --use-settings, the program's own colours.
    const QStringList json = compare({u"--format"_s, u"jsonl"_s}).lines();
    ASSERT_EQ(json.size(), 5) << json.join(u'\n').toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(json[0].toUtf8())[u"colours"].toObject(),
              (QJsonObject{{u"changed"_s, u"#00ffff"_s}, {u"unmatched"_s, u"#ff0000"_s}}));

    // The counts alone, on standard output, with the same exit status.
    r = compare({u"--summary"_s});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, u"2 only in NEW, 1 only in OLD, 1 changed\n"_s);
    EXPECT_EQ(cli({u"compare"_s, before.root(), before.root(), u"--summary"_s}).out,
              u"0 only in NEW, 0 only in OLD, 0 changed\n"_s);
    EXPECT_EQ(compare({u"--format"_s, u"xml"_s}).status, 2);

    // docs is empty in NEW: an empty folder's match is negative, so it is not
    // among the entries in both.
    lines = compare({u"--show"_s, u"both"_s}).lines();
    lines.sort();
    ASSERT_EQ(lines.size(), 2) << lines.join(u'\n').toStdString();
    EXPECT_TRUE(lines[0].startsWith(u"grown.txt\t2\t"_s));
    EXPECT_TRUE(lines[1].startsWith(u"same.txt\t1\t"_s));

    EXPECT_EQ(cli({u"compare"_s, before.root()}).status, 2);
    EXPECT_EQ(compare({u"--tolerance"_s, u"soon"_s}).status, 2);
}

// Attribute changes: every bit counts on the command line but the normal
// bit, so a file made read-only differs in its read-only bit alone;
// --use-settings takes the stored options, and compares only the attributes
// ticked in the options dialog.
TEST_F(CliTest, CompareTakesTheStoredOptionsOnlyWhenAsked) {
    TempTree before, after;
    before.file(u"f"_s, "1");
    after.file(u"f"_s, "1");
    after.file(u"sized"_s, "12");
    before.file(u"sized"_s, "1");
    for (TempTree* t : {&before, &after})
        for (const QString& f : {u"f"_s, u"sized"_s})
            t->touch(f, 1700000000);
    before.chmod(u"f"_s, 0644);
    after.chmod(u"f"_s, 0444);
    const auto compare = [&](const QStringList& options = {}) {
        return cli(QStringList{u"compare"_s, before.root(), after.root()} + options);
    };
    storeSettings("[Ignore]\nSize=1\n");
    CliRun r = compare();
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.lines(), (QStringList{u"~\tf\t[was Norm  -rw-r--r--]\tattributes Norm -> R/O, "
                                      u"permissions -rw-r--r-- -> -r--r--r--"_s,
                                      u"~\tsized\t[was 1]\tsize 1 -> 2"_s}));
    // The read-only attribute is the owner's write bit: a change of it is a
    // permission change too.
    EXPECT_EQ(compare({u"--ignore-attributes"_s, u"R"_s, u"--ignore-size"_s}).status, 1);
    EXPECT_EQ(
        compare({u"--ignore-attributes"_s, u"R"_s, u"--ignore-size"_s, u"--ignore-permissions"_s})
            .status,
        0);

    // "Ignore attributes" off: none compared; the permissions are.
    const QStringList withSettings{u"--use-settings"_s};
    r = compare(withSettings);
    EXPECT_EQ(r.lines(),
              QStringList{u"~\tf\t[was -rw-r--r--]\tpermissions -rw-r--r-- -> -r--r--r--"_s});
    storeSettings("[Ignore]\nSize=1\nPermissions=1\n");
    EXPECT_EQ(compare(withSettings).status, 0);
    storeSettings("[Ignore]\nSize=1\nAttrib=1\nArchive=1\nPermissions=1\n");
    EXPECT_EQ(compare(withSettings).status, 0);
    storeSettings("[Ignore]\nSize=1\nAttrib=1\nRead=1\nPermissions=1\n");
    r = compare(withSettings);
    EXPECT_EQ(r.status, 1);
    ASSERT_EQ(r.lines().size(), 1) << r.out.toStdString();
    EXPECT_TRUE(r.lines()[0].startsWith(u"~\tf\t"_s));
}

// What ls -la shows besides the bytes, changed in a real tree: each change
// is reported with its own field and old and new values, and nothing else;
// what makes a file dangerous is called out first. The link points elsewhere
// with a target of the same length and its time kept.
TEST_F(CliTest, CompareReportsPermissionsOwnersAndLinkTargets) {
    TempTree t;
    for (const QString& f : {u"sub/tool"_s, u"a"_s, u"plain"_s, u"shared/gid"_s})
        t.file(f, "x");
    t.chmod(u"sub/tool"_s, 0755);
    t.chmod(u"shared/gid"_s, 0755);
    t.chmod(u"a"_s, 0644);
    t.chmod(u"plain"_s, 0644);
    t.chmod(u"shared"_s, 0755);
    t.symlink(u"link"_s, u"/etc/passwd"_s);
    QTemporaryDir out;
    const QString old = out.filePath(u"t.#01"_s);
    ASSERT_EQ(cli({u"snapshot"_s, t.root(), u"--output"_s, old}).status, 0);

    t.chmod(u"sub/tool"_s, 04755);
    t.chmod(u"shared/gid"_s, 02755);
    t.chmod(u"plain"_s, 0646);
    t.chmod(u"shared"_s, 01777); // the folder's own bits
    const bool root = kestrel::test::runningAsRoot();
    const QByteArray a = kestrel::engine::nativeBytes(t.root() + u"a"_s);
    if (root) {
        ASSERT_EQ(::lchown(a.constData(), 1000, 1000), 0);
    }
    const QByteArray link = kestrel::engine::nativeBytes(t.root() + u"link"_s);
    struct stat before;
    ASSERT_EQ(::lstat(link.constData(), &before), 0);
    ASSERT_EQ(::unlink(link.constData()), 0);
    ASSERT_EQ(::symlink("/etc/shadow", link.constData()), 0);
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, link.constData(), times, AT_SYMLINK_NOFOLLOW), 0);

    CliRun r = cli({u"compare"_s, old, t.root()});
    EXPECT_EQ(r.status, 1);
    QStringList expected{
        u"~\tlink\t[was -> /etc/passwd]\ttarget /etc/passwd -> /etc/shadow"_s,
        u"!~\tplain\t[was -rw-r--r--]\tpermissions -rw-r--r-- -> -rw-r--rw-"_s,
        u"!~\tshared/\t[was drwxr-xr-x]\tpermissions drwxr-xr-x -> drwxrwxrwt"_s,
        u"!~\tshared/gid\t[was -rwxr-xr-x]\tpermissions -rwxr-xr-x -> -rwxr-sr-x"_s,
        u"!~\tsub/tool\t[was -rwxr-xr-x]\tpermissions -rwxr-xr-x -> -rwsr-xr-x"_s};
    const QString owner = kestrel::engine::ownerText(1000, 1000);
    if (root)
        expected.prepend(u"~\ta\t[was root:root]\towner root:root -> "_s + owner);
    EXPECT_EQ(r.lines(), expected);
    EXPECT_EQ(
        r.err.trimmed(),
        u"1 new set-user-ID file, 1 new set-group-ID file, 2 new world-writable entries; "
        u"0 only in NEW, 0 only in OLD, %1 changed (4 permission changes, %2"_s.arg(root ? 6 : 5)
                .arg(root ? u"1 owner change, "_s : QString()) +
            u"1 link target change)"_s);

    r = cli({u"compare"_s, old, t.root(), u"--format"_s, u"jsonl"_s});
    QStringList lines = r.lines();
    ASSERT_EQ(lines.size(), expected.size() + 1); // the header first
    lines.removeFirst();
    const QJsonObject tool = QJsonDocument::fromJson(lines.last().toUtf8()).object();
    EXPECT_EQ(tool.value(u"change"_s).toString(), u"~"_s);
    EXPECT_EQ(tool.value(u"alert"_s).toString(), u"setuid"_s);
    EXPECT_EQ(tool.value(u"permissions"_s).toObject().value(u"new"_s).toString(), u"-rwsr-xr-x"_s);
    const QJsonObject target = QJsonDocument::fromJson(lines.at(root ? 1 : 0).toUtf8()).object();
    EXPECT_FALSE(target.contains(u"alert"_s));
    EXPECT_FALSE(target.contains(u"modified"_s));
    EXPECT_EQ(target.value(u"target"_s).toObject().value(u"old"_s).toString(), u"/etc/passwd"_s);

    // Switched off, what is left is the owner and the link target.
    r = cli({u"compare"_s, old, t.root(), u"--ignore-permissions"_s, u"--ignore-owner"_s});
    EXPECT_EQ(r.lines(), QStringList{expected.at(root ? 1 : 0)});
    EXPECT_FALSE(r.err.contains(u"new set-user-ID"_s));

    // The export writes the values on request, sorted by them as asked.
    r = cli(
        {u"export"_s, old, u"--folder"_s, u"sub"_s, u"--fields"_s, u"name,permissions,owner"_s});
    EXPECT_EQ(r.out, u"tool,-rwxr-xr-x,"_s + kestrel::engine::ownerText(::geteuid(), ::getegid()) +
                         u"\r\n"_s);
    r = cli({u"export"_s, t.root(), u"--fields"_s, u"permissions,name"_s, u"--sort"_s,
             u"permissions:desc"_s});
    EXPECT_TRUE(r.out.startsWith(u"lrwxrwxrwx,link\r\n"_s)) << r.out.toStdString();
}

// Moves are their own lines, before what is only on one side, and stand in
// for the lines of what moved; --no-moves lists them as before. A folder
// snapshot with fingerprints makes the scan of the other side take them.
TEST_F(CliTest, CompareTellsMovesAndContent) {
    TempTree t;
    for (const QString& f : {u"old/a"_s, u"old/b"_s})
        t.file(f, "same");
    t.file(u"kept"_s, "before");
    QTemporaryDir out;
    const QString old = out.filePath(u"t.#01"_s);
    ASSERT_EQ(cli({u"snapshot"_s, t.root(), u"--fingerprints"_s, u"--output"_s, old}).status, 0);
    ASSERT_TRUE(QDir().rename(t.root() + u"old"_s, t.root() + u"new"_s));
    t.file(u"added"_s, "x");
    t.file(u"kept"_s, "BEFORE"); // same size, new content

    CliRun r = cli({u"compare"_s, old, t.root()});
    EXPECT_EQ(r.status, 1);
    ASSERT_GE(r.lines().size(), 3);
    EXPECT_EQ(r.lines().at(0), u">\told/ -> new/"_s);
    EXPECT_EQ(r.lines().at(1), u"+\tadded"_s);
    EXPECT_TRUE(r.lines().at(2).startsWith(u"~\tkept\t"_s)) << r.lines().at(2).toStdString();
    EXPECT_TRUE(r.lines().at(2).contains(u"content changed"_s));
    EXPECT_TRUE(r.err.contains(u"2 moved files, 1 moved folder"_s)) << r.err.toStdString();

    r = cli({u"compare"_s, old, t.root(), u"--format"_s, u"jsonl"_s});
    EXPECT_TRUE(
        r.out.contains(u"\"kind\":\"moved\",\"path\":\"new/\",\"folder\":true,\"from\":\"old/\""_s))
        << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(u"\"kind\":\"content\",\"path\":\"kept\""_s));
    r = cli({u"compare"_s, old, t.root(), u"--no-moves"_s});
    EXPECT_TRUE(r.lines().contains(u"-\told/"_s) && r.lines().contains(u"+\tnew/a"_s));
}

// The history of a series: one row a path that ever changed, its state in
// each snapshot, read back from csv and jsonl; a damaged member is named and
// left out; --summary counts each snapshot's changes.
TEST_F(CliTest, HistoryTellsEachPathsLifeAcrossTheSeries) {
    TempTree t;
    t.file(u"data/a.txt"_s, "a");
    t.file(u"data/gone.txt"_s, "g");
    const QString folder = t.root() + u"data"_s;
    const auto snapshot = [&] {
        ASSERT_EQ(cli({u"snapshot"_s, folder, u"--dir"_s, home()}).status, 0);
    };
    snapshot();
    t.file(u"data/a.txt"_s, "aaa");
    snapshot();
    ASSERT_TRUE(QFile::remove(folder + u"/gone.txt"_s));
    t.file(u"data/sub/new.txt"_s, "nn");
    snapshot();
    ASSERT_TRUE(kestrel::test::writeBytes(home() + u"/data.#05"_s, "damaged"));
    const QString second = home() + u"/data.#02"_s;

    CliRun r = cli({u"history"_s, second, u"--format"_s, u"jsonl"_s});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(u"data.#05"_s)) << r.err.toStdString();
    QList<QJsonObject> objects;
    for (const QString& line : r.lines())
        objects << QJsonDocument::fromJson(line.toUtf8()).object();
    ASSERT_EQ(objects.size(), 5); // the series, a.txt, gone.txt, sub/, sub/new.txt
    EXPECT_EQ(objects[0][u"schema"_s].toInt(), 1);
    const QJsonArray generations = objects[0][u"generations"_s].toArray();
    ASSERT_EQ(generations.size(), 4);
    EXPECT_EQ(generations[1].toObject()[u"changed"_s].toInt(), 1);
    EXPECT_TRUE(generations[3].toObject().contains(u"error"_s));
    EXPECT_EQ(objects[1][u"path"_s].toString(), u"a.txt"_s);
    const QJsonArray a = objects[1][u"states"_s].toArray();
    EXPECT_EQ(a[0].toObject()[u"size"_s].toInt(), 1);
    EXPECT_EQ(a[1].toObject()[u"change"_s].toString(), u"changed"_s);
    EXPECT_EQ(a[1].toObject()[u"size"_s].toInt(), 3);
    EXPECT_TRUE(a[3].toObject()[u"unreadable"_s].toBool());
    EXPECT_EQ(objects[2][u"states"_s].toArray()[2].toObject()[u"present"_s].toBool(), false);

    r = cli({u"history"_s, second, u"--format"_s, u"csv"_s, u"--folder"_s, u"sub"_s});
    EXPECT_EQ(r.lines(),
              (QStringList{u"path,\"#01 size\",\"#01 change\",\"#02 size\",\"#02 change\","
                           u"\"#03 size\",\"#03 change\",\"#05 size\",\"#05 change\""_s,
                           u"\"sub/\",\"\",\"\",\"\",\"\",\"0\",\"added\",\"\",\"unreadable\""_s,
                           u"\"sub/new.txt\",\"\",\"\",\"\",\"\",\"2\",\"added\",\"\","
                           u"\"unreadable\""_s}));
    r = cli({u"history"_s, second});
    EXPECT_TRUE(r.lines().contains(u"a.txt\t1\t~3\t3\t?"_s)) << r.out.toStdString();
    r = cli({u"history"_s, second, u"--summary"_s});
    ASSERT_EQ(r.lines().size(), 4);
    EXPECT_TRUE(r.lines()[2].endsWith(u"\t+2 \u22121 ~0"_s)) << r.lines()[2].toStdString();
    EXPECT_TRUE(r.lines()[3].contains(u"could not be read"_s));
    EXPECT_EQ(cli({u"history"_s, home() + u"/data.#05"_s, home() + u"/data.#04"_s}).status, 2);
}

// A snapshot sent down a pipe carries its side data: kept in a file or read
// from standard input, it is the same snapshot, byte for byte.
TEST_F(CliTest, SnapshotsTravelThroughPipes) {
    TempTree t;
    t.file(u"tool"_s, "x");
    t.chmod(u"tool"_s, 0755);
    t.symlink(u"l"_s, u"/etc/passwd"_s);
    QTemporaryDir out;
    const QString stream = out.filePath(u"host.#01"_s);
    CliRun r = cliThroughShell(u"\"$0\" snapshot \"$1\" --output - > \"$2\""_s, {t.root(), stream});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_FALSE(QFile::exists(stream + u".meta"_s));
    t.chmod(u"tool"_s, 04755);

    const QStringList expected{
        u"!~\ttool\t[was -rwxr-xr-x]\tpermissions -rwxr-xr-x -> -rwsr-xr-x"_s};
    EXPECT_EQ(cli({u"compare"_s, stream, t.root()}).lines(), expected);
    EXPECT_EQ(cliThroughShell(u"\"$0\" compare - \"$1\" < \"$2\""_s, {t.root(), stream}).lines(),
              expected);
    // Straight from one command to the other.
    r = cliThroughShell(u"\"$0\" snapshot \"$1\" --output - | \"$0\" compare \"$2\" -"_s,
                        {t.root(), stream});
    EXPECT_EQ(r.status, 1) << r.err.toStdString();
    EXPECT_EQ(r.lines(), expected);

    // Converted from the file and from standard input: the same files.
    const QString fromFile = out.filePath(u"a.#01"_s), fromPipe = out.filePath(u"b.#01"_s);
    ASSERT_EQ(cli({u"convert"_s, stream, fromFile}).status, 0);
    ASSERT_EQ(cliThroughShell(u"\"$0\" convert - \"$1\" < \"$2\""_s, {fromPipe, stream}).status, 0);
    using kestrel::test::readBytes;
    EXPECT_TRUE(readBytes(fromFile) == readBytes(fromPipe));
    EXPECT_FALSE(readBytes(fromFile + u".meta"_s).isEmpty());
    EXPECT_TRUE(readBytes(fromFile + u".meta"_s) == readBytes(fromPipe + u".meta"_s));

    r = cliThroughShell(u"\"$0\" compare - - < \"$1\""_s, {stream});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.contains(u"it can be read once"_s)) << r.err.toStdString();
}

TEST_F(CliTest, CompareLeavesOutWhatThePatternsIgnore) {
    TempTree before, after;
    for (TempTree* t : {&before, &after}) {
        t->file(u"a.c"_s, "1");
        t->file(u"__pycache__/m.pyc"_s, "1");
        t->file(u"logs/x.log"_s, t == &before ? "1" : "22");
        t->file(u"a.pyc"_s, t == &before ? "1" : "22");
        for (const QString& f : {u"a.c"_s, u"__pycache__/m.pyc"_s, u"logs/x.log"_s, u"a.pyc"_s})
            t->touch(f, 1700000000);
    }
    after.file(u"__pycache__/n.pyc"_s);
    after.file(u"keep.log"_s);
    after.file(u"new.txt"_s);
    const auto compare = [&](const QStringList& options = {}) {
        return cli(QStringList{u"compare"_s, before.root(), after.root()} + options);
    };
    EXPECT_EQ(compare().lines().size(), 5);
    CliRun r = compare({u"--ignore"_s, u"*.pyc"_s, u"--ignore"_s, u"__pycache__/"_s});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.lines(), (QStringList{u"+\tkeep.log"_s, u"~\tlogs/x.log\t[was 1]\tsize 1 -> 2"_s,
                                      u"+\tnew.txt"_s}));
    EXPECT_EQ(r.err.trimmed(),
              u"2 only in NEW, 0 only in OLD, 1 changed, 4 ignored in NEW, 3 in OLD"_s);

    // A file's patterns come before --ignore's; the last that matches decides.
    const QString file = home() + u"/patterns"_s;
    ASSERT_TRUE(kestrel::test::writeBytes(file, "*.log\n!keep.log\n*.pyc\n__pycache__/\n"));
    r = compare({u"--ignore-from"_s, file, u"--ignore"_s, u"[bad"_s, u"--ignore"_s, u"new.*"_s});
    EXPECT_EQ(r.lines(), QStringList{u"+\tkeep.log"_s});
    EXPECT_TRUE(r.err.startsWith(u"--ignore: line 1: unclosed [\n"_s)) << r.err.toStdString();

    r = compare({u"--ignore-from"_s, home() + u"/missing"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(),
              u"Ignore Patterns: "_s + home() + u"/missing: No such file or directory"_s);

    // The stored patterns, only with --use-settings.
    storeSettings("[Ignore]\nPatterns=\"*.pyc\\n*.log\\nnew.txt\"\n");
    EXPECT_EQ(compare().status, 1);
    EXPECT_EQ(compare({u"--use-settings"_s}).status, 0);

    // A snapshot's own patterns apply to the comparison; one that cannot be
    // read stops it.
    after.file(u".kestrelignore"_s, "*.pyc\n*.log\nnew.txt\n");
    r = compare({u"--ignore"_s, u".kestrelignore"_s});
    EXPECT_EQ(r.status, 0) << r.out.toStdString();
    QFile::remove(after.root() + u".kestrelignore"_s);
    after.symlink(u".kestrelignore"_s, file);
    r = compare();
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(),
              u"Ignore Patterns: "_s + after.root() + u".kestrelignore: not a regular file"_s);
}

// Excluded folders are never opened: one nobody may read is no trouble.
TEST_F(CliTest, SnapshotExcludeLeavesFoldersUnopened) {
    TempTree t;
    t.file(u"data/secret/s.txt"_s, "s");
    t.file(u"data/cache/c.bin"_s, "c");
    t.file(u"data/sub/cache/kept.txt"_s, "k");
    t.file(u"data/a.txt"_s, "a");
    t.file(u"data/b.tmp"_s, "b");
    t.chmod(QString(), 0755);
    for (const QString& folder : {u"data"_s, u"data/cache"_s, u"data/sub"_s, u"data/sub/cache"_s})
        t.chmod(folder, 0755);
    t.chmod(u"data/secret"_s, 0);
    QTemporaryDir out;
    ASSERT_TRUE(QFile::setPermissions(out.path(), QFileDevice::Permissions(0x7777)));
    const QString patterns = out.path() + u"/exclude"_s;
    ASSERT_TRUE(kestrel::test::writeBytes(patterns, "*.tmp\n/cache\n"));
    const QString data = t.root() + u"data"_s;
    CliRun r = cliAsNobody({u"snapshot"_s, data, u"--dir"_s, out.path(), u"--exclude"_s,
                            u"secret/"_s, u"--exclude-from"_s, patterns});
    t.chmod(u"data/secret"_s, 0755);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_FALSE(r.err.contains(u"could not be read"_s)) << r.err.toStdString();
    r = cli({u"list"_s, out.path() + u"/data.#01"_s});
    QStringList names;
    for (const QString& line : r.lines())
        names << line.section(u'\t', 0, 0);
    EXPECT_EQ(names,
              (QStringList{u"a.txt"_s, u"sub/"_s, u"sub/cache/"_s, u"sub/cache/kept.txt"_s}));

    r = cli({u"snapshot"_s, data, u"--dir"_s, out.path(), u"--exclude-from"_s, data});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(), u"Ignore Patterns: "_s + data + u": Is a directory"_s);

    // A .kestrelignore that is a link is not read; the snapshot is saved all
    // the same, and the trouble said.
    t.symlink(u"data/.kestrelignore"_s, patterns);
    r = cli({u"snapshot"_s, data, u"--output"_s, out.path() + u"/linked.#01"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(QFile::exists(out.path() + u"/linked.#01"_s));
    EXPECT_TRUE(
        r.err.endsWith(u"Ignore Patterns: "_s + data + u"/.kestrelignore: not a regular file\n"_s))
        << r.err.toStdString();
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
        s.header.fileName = home() + u'/' + name + u".#01"_s;
        kestrel::engine::ProgressMeter meter;
        EXPECT_TRUE(kestrel::engine::SaveSnapshot(s, meter).ok);
        return s.header.fileName;
    };
    const Node x = Node::dir("x", {Node::file("deep", 3)});
    const QString one =
        save({Node::file("b", 4), Node::dir("a", {Node::file("z", 1), Node::file("y", 2), x}),
              Node::file("a b", 5), Node::file("B", 6)},
             u"one"_s);
    const QString two =
        save({Node::file("B", 6), Node::file("a b", 5),
              Node::dir("a", {x, Node::file("y", 2), Node::file("z", 1)}), Node::file("b", 4)},
             u"two"_s);
    const QString changed = save({Node::file("a b", 50), Node::file("new", 1),
                                  Node::dir("a", {Node::file("y", 2), Node::dir("x"),
                                                  Node::file("z", 1), Node::file("w", 1)})},
                                 u"changed"_s);
    const auto pathsOf = [](const CliRun& run, int field) {
        QStringList paths;
        for (const QString& line : run.lines())
            paths << line.section(u'\t', field, field);
        return paths;
    };

    const CliRun listOne = cli({u"list"_s, one});
    ASSERT_EQ(listOne.status, 0) << listOne.err.toStdString();
    EXPECT_EQ(listOne.out, cli({u"list"_s, two}).out);
    EXPECT_EQ(pathsOf(listOne, 0),
              (QStringList{"B", "a/", "a/x/", "a/x/deep", "a/y", "a/z", "a b", "b"}));

    for (const QStringList& order : {QStringList{one, changed}, QStringList{changed, one}}) {
        const CliRun fromOne = cli(QStringList{u"compare"_s} + order);
        QStringList swapped = order;
        swapped.replaceInStrings(one, two);
        const CliRun fromTwo = cli(QStringList{u"compare"_s} + swapped);
        EXPECT_EQ(fromOne.status, 1);
        EXPECT_EQ(fromOne.out, fromTwo.out);
        EXPECT_EQ(fromOne.err, fromTwo.err);
        EXPECT_FALSE(fromOne.err.isEmpty()); // the summary stays on standard error
        const QStringList paths = pathsOf(fromOne, 1);
        QStringList sorted = paths;
        std::sort(sorted.begin(), sorted.end(), [](const QString& x, const QString& y) {
            return x.toUtf8().replace('/', '\0') < y.toUtf8().replace('/', '\0');
        });
        EXPECT_EQ(paths, sorted);
    }
    const CliRun shown = cli({u"compare"_s, changed, one, u"--show"_s, u"all"_s});
    EXPECT_EQ(shown.out, cli({u"compare"_s, changed, two, u"--show"_s, u"all"_s}).out);
    EXPECT_TRUE(shown.out.startsWith(u"B\t6\t"_s));
}

// export writes the Export dialog's lines for a view: its columns, separator,
// quoting and custom text, name order unless told otherwise, the In Folder
// column with sub-folders; mistakes are told as "Title: text" with status 2.
TEST_F(CliTest, ExportWritesTheListOfAFolder) {
    TempTree t;
    t.file(u"data/b.TXT"_s, "12345");
    t.file(u"data/A.bin"_s, QByteArray(1234, 'a'));
    t.file(u"data/sub/c"_s, "c");
    for (const QString& f : {u"data/b.TXT"_s, u"data/A.bin"_s, u"data/sub/c"_s, u"data/sub"_s})
        t.touch(f, 1700000000);
    const QString snapshot = home() + u"/data.#01"_s;
    ASSERT_EQ(cli({u"snapshot"_s, t.root() + u"data"_s, u"--output"_s, snapshot}).status, 0);
    const auto exported = [&](const QStringList& options) {
        return cli(QStringList{u"export"_s, snapshot} + options);
    };

    CliRun r = exported({u"--fields"_s, u"name,size,type,attributes"_s});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    // A size holding the separator is quoted all the same.
    EXPECT_EQ(r.out, u"A.bin,\"1,234\",bin,Norm\r\nb.TXT,5,txt,Norm\r\nsub,<dir>,,Dir\r\n"_s);

    r = exported({u"--quotes"_s, u"--separator"_s, u"tab"_s, u"--fields"_s,
                  u"custom:HOST,0,folder,size,attributes"_s, u"--subfolders"_s,
                  u"--numeric-attributes"_s, u"--sort"_s, u"size:desc"_s});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    // A folder's size key is 0: the smallest.
    EXPECT_EQ(r.out, u"HOST\t\"A.bin\"\t\"\"\t\"1,234\"\t\"128\"\r\n"
                     "HOST\t\"b.TXT\"\t\"\"\t\"5\"\t\"128\"\r\n"
                     "HOST\t\"c\"\t\"sub/\"\t\"1\"\t\"128\"\r\n"
                     "HOST\t\"sub\"\t\"\"\t\"<dir>\"\t\"16\"\r\n"_s);

    // The default fields are the dialog's: every column, Version included.
    r = exported({u"--folder"_s, u"sub"_s, u"--separator"_s, u"none"_s, u"--output"_s,
                  home() + u"/sub.txt"_s});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty());
    const QByteArray line = kestrel::test::readBytes(home() + u"/sub.txt"_s);
    EXPECT_TRUE(line.startsWith("c1") && line.endsWith("Norm\r\n")) << line.toStdString();

    const std::pair<QStringList, const char*> mistakes[] = {
        {{u"--fields"_s, u"name,colour"_s}, "Usage: --fields: \"colour\" is not a column"},
        {{u"--fields"_s, u"folder"_s}, "Usage: --fields: the folder column needs --subfolders"},
        {{u"--fields"_s, u"name,0"_s}, "Usage: --fields: \"0\" is named twice"},
        {{u"--folder"_s, u"nowhere"_s},
         "Folder Not Found: nowhere is not a folder of the snapshot"},
        {{u"--folder"_s, u"b.TXT"_s}, "Folder Not Found: b.TXT is not a folder of the snapshot"},
        {{u"--show"_s, u"all"_s}, "Usage: --show needs --compare"},
        {{u"--separator"_s, u"semicolon"_s}, "Usage: --separator takes none, comma, tab or space"},
        {{u"--sort"_s, u"colour"_s}, "Usage: --sort takes name"},
    };
    for (const auto& [options, error] : mistakes) {
        r = exported(options);
        EXPECT_EQ(r.status, 2) << error;
        EXPECT_TRUE(r.err.startsWith(QLatin1String(error))) << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty());
    }
}

// On POSIX names are matched exactly: --folder takes the case twin asked
// for. Names that are not UTF-8, the root's own included, are kept and
// printed with their bad bytes marked, and --folder takes them so or in
// their own bytes.
TEST_F(CliTest, NamesAreMatchedAndKeptExactly) {
    TempTree t;
    t.file(u"Dir/upper"_s);
    t.file(u"dir/lower"_s);
    const auto exported = [&](const QString& snapshot, const QString& folder) {
        return cli({u"export"_s, snapshot, u"--folder"_s, folder, u"--fields"_s, u"name"_s});
    };
    EXPECT_EQ(exported(t.root(), u"dir"_s).out, u"lower\r\n"_s);
    EXPECT_EQ(exported(t.root(), u"Dir"_s).out, u"upper\r\n"_s);
    EXPECT_EQ(exported(t.root(), u"DIR"_s).status, 2);

    // A root named in bytes that are not UTF-8, holding such a name beside
    // its look-alike in UTF-8.
    t.file(nativeText("caf\xE9/caf\xE9/x"), "1");
    t.file(nativeText("caf\xE9/caf\xC3\xA9"), "22");
    const QString odd = home() + u"/odd.#01"_s;
    CliRun r = cliThroughShell(u"exec \"$0\" snapshot \"$1$(printf 'caf\\351')\" --output \"$2\""_s,
                               {t.root(), odd});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(
        cli({u"info"_s, odd}).out.contains(u"Root folder: "_s + t.root() + u"caf\\xE9/\n"_s));
    QStringList names;
    for (const QString& line : cli({u"list"_s, odd}).lines())
        names << line.section(u'\t', 0, 0);
    EXPECT_EQ(names, (QStringList{u"caf\\xE9/"_s, u"caf\\xE9/x"_s, u"café"_s}));
    EXPECT_EQ(exported(odd, u"caf\\xE9"_s).out, u"x\r\n"_s);
    r = cliThroughShell(
        u"exec \"$0\" export \"$1\" --folder \"$(printf 'caf\\351')\" --fields name"_s, {odd});
    EXPECT_EQ(r.out, u"x\r\n"_s) << r.err.toStdString();
}

// report writes the printed report as a PDF, here of a comparison with its
// differences (the report's own tests read its lines back); without a
// comparison there are no differences to print.
TEST_F(CliTest, ReportPrintsAPdf) {
    TempTree before, after;
    before.file(u"f.txt"_s, "1");
    after.file(u"f.txt"_s, "12");
    after.file(u"g.txt"_s, "1");
    for (TempTree* t : {&before, &after})
        t->touch(u"f.txt"_s, 1700000000);
    const QString pdf = home() + u"/report.pdf"_s;
    CliRun r = cli({u"report"_s, after.root(), u"--compare"_s, before.root(), u"--differences"_s,
                    u"--landscape"_s, u"--pdf"_s, pdf});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
    EXPECT_TRUE(QFile::exists(pdf));
    EXPECT_EQ(cli({u"report"_s, after.root(), u"--differences"_s, u"--pdf"_s, pdf}).err.trimmed(),
              u"Usage: --differences needs --compare"_s);
    EXPECT_EQ(cli({u"report"_s, after.root()}).status, 2);

    const QString pdftotext = QStandardPaths::findExecutable(u"pdftotext"_s);
    if (pdftotext.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    QProcess p;
    p.start(pdftotext, {u"-layout"_s, pdf, u"-"_s});
    ASSERT_TRUE(p.waitForFinished(60000));
    const QString text = QString::fromUtf8(p.readAllStandardOutput());
    EXPECT_TRUE(text.contains(u"Compared with Snapshot #1 of "_s));
    EXPECT_TRUE(text.contains(u"[was not in other Snapshot]"_s));
    EXPECT_TRUE(text.contains(u"[was 1"_s));
}

} // namespace
