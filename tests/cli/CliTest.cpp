#include "TestSupport.h"

#include "engine/model/EntryAccess.h"
#include "engine/model/FileSystemNames.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/resource.h>
#include <unistd.h>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

using CliRun = ProgramRun;

// One tab-separated field of every line printed.
QStringList fieldOf(const CliRun& run, int field = 0) {
    QStringList fields;
    for (const QString& line : run.lines())
        fields << line.section(u'\t', field, field);
    return fields;
}

// Trouble: status 2, nothing on standard output, one line on standard error
// that starts with message.
void expectTrouble(const CliRun& r, const QString& message) {
    EXPECT_EQ(r.status, 2) << message.toStdString();
    EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    EXPECT_EQ(r.err.count(u'\n'), 1) << r.err.toStdString();
    EXPECT_TRUE(r.err.startsWith(message)) << r.err.toStdString();
}

QString systemText(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// Runs kestrel-cli with its settings pointed at a folder of the test's own.
class CliTest : public testing::Test {
protected:
    // childSetup runs in kestrel-cli's process before the program starts.
    CliRun cli(const QStringList& arguments, const QString& workingFolder = {},
               const std::function<void()>& childSetup = {}) {
        return runProgram(QStringLiteral(KESTREL_CLI), arguments, home(), workingFolder,
                          childSetup);
    }
    // Where the tests run as root, as the user nobody, to whom folder
    // permissions apply; home is open to nobody too.
    CliRun cliAsNobody(const QStringList& arguments) {
        EXPECT_TRUE(QFile::setPermissions(home(), QFileDevice::Permissions(0x7777)));
        if (!runningAsRoot())
            return cli(arguments);
        return cli(arguments, {}, [] {
            if (!becomeNobody())
                ::_exit(99);
        });
    }
    // kestrel-cli started by a shell command, which reaches it as $0 and its
    // arguments as $1...: for pipes, and for arguments in bytes that are not
    // UTF-8, which QProcess cannot pass.
    CliRun cliThroughShell(const QString& command, const QStringList& arguments) {
        return runProgram(u"/bin/sh"_s,
                          QStringList{u"-c"_s, command, QStringLiteral(KESTREL_CLI)} + arguments,
                          home());
    }
    // Saves a snapshot of folder as home's file name; its path.
    QString snapshot(const QString& folder, const QString& name, const QStringList& options = {}) {
        const QString file = home() + u'/' + name;
        const CliRun r = cli(QStringList{u"snapshot"_s, folder, u"--output"_s, file} + options);
        EXPECT_EQ(r.status, 0) << r.err.toStdString();
        return file;
    }
    QString home() const { return m_home.path(); }
    // kestrel-cli compare of the trees before and after.
    CliRun compare(const QStringList& options = {}) {
        return cli(QStringList{u"compare"_s, before.root(), after.root()} + options);
    }
    // Writes the desktop program's settings file.
    void storeSettings(const QByteArray& contents) {
        QDir().mkpath(home() + u"/config/Kestrel"_s);
        ASSERT_TRUE(writeBytes(home() + u"/config/Kestrel/Kestrel.conf"_s, contents));
    }

    QTemporaryDir m_home;
    TempTree before, after;
};

// Numbers go on from the highest (the hostile trees' tests see links take
// them) up to the 99th, after which nothing is replaced. A relative folder is
// made absolute and saved in the current folder; a file named by --output is
// titled by its number, or as the first of its series.
TEST_F(CliTest, SnapshotNumbersPlacesAndTitlesItsFiles) {
    TempTree t;
    t.file(u"data/a.txt"_s, "a");
    t.file(u"data/sub/b.txt"_s, "bb");
    const QString folder = t.root() + u"data"_s;
    const QStringList numbered{u"snapshot"_s, folder, u"--dir"_s, home()};
    CliRun r = cli(numbered);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), home() + u"/data.#01"_s);
    EXPECT_TRUE(r.err.startsWith(u"Kestrel found 2 files and 1 folders in "_s));
    EXPECT_EQ(cli(numbered).out.trimmed(), home() + u"/data.#02"_s);
    r = cli({u"info"_s, home() + u"/data.#02"_s});
    EXPECT_TRUE(r.out.startsWith(u"Title: Snapshot #2 of "_s + folder + u'\n'));
    EXPECT_TRUE(r.out.contains(u"Files: 2\nFolders: 1\n"_s)) << r.out.toStdString();

    r = cli({u"snapshot"_s, u"data"_s, u"--no-recurse"_s, u"--title"_s, u"Mine"_s}, t.root());
    EXPECT_EQ(r.out.trimmed(), t.root() + u"data.#01"_s) << r.err.toStdString();
    EXPECT_EQ(cli({u"list"_s, t.root() + u"data.#01"_s}).lines().size(), 2);
    EXPECT_TRUE(cli({u"info"_s, t.root() + u"data.#01"_s}).out.startsWith(u"Title: Mine\n"_s));

    for (const auto& [name, number] :
         {std::pair{u"data.#99"_s, 99}, {u"plain.txt"_s, 1}, {u"zero.#00"_s, 1}}) {
        r = cli({u"info"_s, snapshot(folder, name)});
        EXPECT_TRUE(r.out.startsWith(u"Title: Snapshot #%1 of "_s.arg(number) + folder)) << number;
    }
    expectTrouble(cli(numbered), u"Error Writing Snapshot: "_s + home() +
                                     u"/data.#99 exists: the series is full"_s);
    // A file that cannot be written is named with the system's reason.
    const QString nowhere = home() + u"/missing/x.#01"_s;
    expectTrouble(cli({u"snapshot"_s, folder, u"--output"_s, nowhere}),
                  u"Error Writing Snapshot: "_s + nowhere + u": "_s + systemText(ENOENT));
}

// An export cut short by a full disk near its end fails with the path and
// the system's reason, and the old file stays.
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
        ASSERT_TRUE(writeBytes(out, "old\r\n"));
        // Under a file size limit (ulimit -f), with no one catching the
        // signal it raises.
        const rlimit size{rlim_t(length - below), rlim_t(length - below)};
        expectTrouble(cli(command, {}, [size] { ::setrlimit(RLIMIT_FSIZE, &size); }),
                      u"Error Writing Snapshot: "_s + out + u": "_s + systemText(EFBIG));
        EXPECT_TRUE(readBytes(out) == "old\r\n") << below;
    }
    EXPECT_EQ(QDir(home()).entryList(QDir::Files | QDir::Hidden), QStringList{u"e.txt"_s});
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
    for (const auto& [path, mode] : {std::pair{QString(), 0755},
                                     {u"data"_s, 0755},
                                     {u"data/secret"_s, 0},
                                     {u"data/unsearchable"_s, 0644}})
        t.chmod(path, mode);
    const QString data = t.root() + u"data"_s;
    CliRun r = cliAsNobody({u"snapshot"_s, data, u"--dir"_s, home()});
    t.chmod(u"data/secret"_s, 0755);
    t.chmod(u"data/unsearchable"_s, 0755);
    ASSERT_EQ(r.status, 3) << r.err.toStdString();
    const QString unreadable = home() + u"/data.#01"_s;
    EXPECT_EQ(r.out.trimmed(), unreadable);
    for (const QString& said :
         {u", 2 folders could not be read\n"_s, u"Could not be read: "_s + data + u"/secret/\n"_s,
          u"Could not be read: "_s + data + u"/unsearchable/\n"_s})
        EXPECT_TRUE(r.err.contains(said)) << r.err.toStdString();

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
    const QString whole = snapshot(data, u"whole.#01"_s);
    for (const QString& format : {u"text"_s, u"csv"_s, u"jsonl"_s}) {
        SCOPED_TRACE(format.toStdString());
        r = cli({u"compare"_s, unreadable, whole, u"--format"_s, format});
        EXPECT_EQ(r.status, 1);
        const QStringList marker = r.lines().filter(
            format == u"jsonl"_s ? u"\"kind\":\"unreadable\",\"path\":\"secret/\""_s
                                 : u"secret/ (unreadable)"_s);
        ASSERT_EQ(marker.size(), 1);
        // Neither a deletion nor an addition: what was there is not known.
        EXPECT_TRUE(marker[0].contains(u'?'));
        EXPECT_FALSE(marker[0].startsWith(u'-') || marker[0].startsWith(u"\"-"_s) ||
                     marker[0].contains(u"\"change\":\"-\""_s));
        EXPECT_EQ(r.lines().filter(u"secret/s.txt"_s).size(), 1);
        EXPECT_TRUE(r.lines().filter(u"u.txt"_s).isEmpty());
    }
    EXPECT_EQ(r.err.trimmed(),
              u"1 only in NEW, 0 only in OLD, 2 changed (2 permission changes), 1 folder could "
              u"not be read on one side"_s);
}

// Every command has its usage; every mistake and every file that is no
// snapshot (through each command that reads one) is told in one line on
// standard error with status 2, before anything is written.
TEST_F(CliTest, TroubleIsOneLineOnStandardErrorWithStatusTwo) {
    for (const QString& command : {u"snapshot"_s, u"list"_s, u"info"_s, u"convert"_s, u"compare"_s,
                                   u"history"_s, u"export"_s, u"report"_s}) {
        const CliRun r = cli({command, u"--help"_s});
        EXPECT_EQ(r.status, 0);
        EXPECT_TRUE(r.out.startsWith(u"Usage: kestrel-cli "_s + command + u" [options] "_s));
    }
    EXPECT_EQ(cli({u"frobnicate"_s}).status, 2);

    TempTree t;
    t.folder(u"empty"_s);
    t.file(u"data/b.TXT"_s, "b");
    t.file(u"bad.#01"_s, "title\n\"root\",#2001-01-01 00:00:00#,#TRUE#,#TRUE#,#FALSE#,16\n"
                         "x,1,1,1,\"n\",0,0,\"\"\n");
    // The words of each command line, "%1" standing for the tree's root.
    const std::pair<const char*, const char*> troubles[] = {
        {"list", "Usage: kestrel-cli list SNAPSHOT|FOLDER"},
        {"compare %1data", "Usage: kestrel-cli compare OLD NEW"},
        {"snapshot %1empty", "Empty Snapshot: No files or folders match the specifications"},
        {"snapshot %1missing", "Folder Not Found: %1missing does not exist"},
        {"snapshot %1bad.#01", "Not a Folder: %1bad.#01 is not a folder"},
        {"snapshot %1data --exclude-from %1data", "Ignore Patterns: %1data: Is a directory"},
        {"info %1bad.#01", "Invalid Snapshot: Type mismatch in entry 1 of %1bad.#01"},
        {"compare %1data %1data --format xml", "Usage: --format takes text, csv, json, jsonl"},
        {"compare %1data %1data --tolerance soon", "Usage: --tolerance takes seconds"},
        {"compare %1data %1data --ignore-from %1missing",
         "Ignore Patterns: %1missing: No such file or directory"},
        {"report %1data", "Usage: report needs --pdf FILE"},
        {"report %1data --differences --pdf %1x.pdf", "Usage: --differences needs --compare"},
        {"export %1data --fields name,colour", "Usage: --fields: \"colour\" is not a column"},
        {"export %1data --fields folder", "Usage: --fields: the folder column needs --subfolders"},
        {"export %1data --fields name,0", "Usage: --fields: \"0\" is named twice"},
        {"export %1data --folder nowhere",
         "Folder Not Found: nowhere is not a folder of the snapshot"},
        {"export %1data --folder b.TXT", "Folder Not Found: b.TXT is not a folder of the snapshot"},
        {"export %1data --show all", "Usage: --show needs --compare"},
        {"export %1data --separator semicolon",
         "Usage: --separator takes none, comma, tab or space"},
        {"export %1data --sort colour", "Usage: --sort takes name"},
    };
    for (const auto& [words, message] : troubles) {
        SCOPED_TRACE(words);
        const QString line = QString::fromUtf8(words).arg(t.root());
        expectTrouble(cli(line.split(u' ')), QString::fromUtf8(message).arg(t.root()));
    }

    // Files given as a snapshot that are none.
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
    const std::pair<const char*, const char*> garbage[] = {
        {"folder", "Invalid Snapshot: %1folder is a folder, not a snapshot file"},
        {"empty.#01", "Invalid Snapshot: %1empty.#01 is empty, not a snapshot file"},
        {"missing.#01",
         "Error: Unable to open Snapshot (%1missing.#01: No such file or directory)"},
        {"pipe.#01", "Invalid Snapshot: %1pipe.#01 is a device, pipe or socket, not a snapshot"},
        {"binary.#01", "Invalid Snapshot: %1binary.#01 is not a Kestrel snapshot file ("},
        {"long-v2.dat",
         "Entry Limit: Too many entries to import a Kestrel v2 snapshot (maximum is 32,767)"},
    };
    const QString out = t.root() + u"out.#01"_s;
    for (const auto& [name, message] : garbage) {
        const QString path = t.root() + QLatin1String(name);
        // compare scans a folder, and an empty one is no snapshot.
        for (const QStringList& run : {QStringList{u"info"_s, path},
                                       {u"convert"_s, path, out},
                                       {u"compare"_s, path, path}}) {
            if (run[0] == u"compare"_s && path.endsWith(u"folder"_s))
                continue;
            SCOPED_TRACE(run.join(u' ').toStdString());
            expectTrouble(cli(run), QString::fromUtf8(message).arg(t.root()));
        }
    }
    EXPECT_FALSE(QFile::exists(out));
    EXPECT_TRUE(QDir(home()).entryList({u"*.#*"_s}).isEmpty());
}

// A damaged capacity item no longer makes convert write two thousand million
// empty records: the file is fitted to its lines and the user told. An old
// file is brought to the current format. (The snapshot file's and import's
// tests read the values.)
TEST_F(CliTest, ConvertFitsDamagedFilesAndBringsOldOnesUpToDate) {
    TempTree t;
    t.file(u"cut.#01"_s, "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,2000000000\r\n"
                         "32,36950.5,1,0,\"a.txt\",0,5,\"\"\r\n");
    CliRun r = cli({u"convert"_s, t.root() + u"cut.#01"_s, t.root() + u"fixed.#01"_s});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.err.startsWith(
        u"Incomplete Snapshot: The file ends before its last 1,999,999,983 entries\n"_s))
        << r.err.toStdString();
    EXPECT_EQ(readBytes(t.root() + u"fixed.#01"_s).count('\n'), 2 + 16);

    t.file(u"old.dat"_s, "\"C:\\DATA\\;3\"\r\n5,36954.5\r\n#TRUE#,#FALSE#,#FALSE#\r\n2\r\n"
                         "\"\\\",\"Docs\",-1,36950.5,16,\"\",0,1,0\r\n"
                         "\"\",\"a.txt\",1234,36950.5,32,\"\",0,0,0\r\n");
    const QString out = t.root() + u"converted.#01"_s;
    r = cli({u"convert"_s, t.root() + u"old.dat"_s, out});
    EXPECT_TRUE(r.err.startsWith(
        u"Snapshot Imported: File was created with Kestrel v2 and has been converted to v3\n"_s))
        << r.err.toStdString();
    EXPECT_EQ(fieldOf(cli({u"list"_s, out})), (QStringList{u"Docs/"_s, u"Docs/a.txt"_s}));
}

TEST_F(CliTest, CompareReportsDifferencesAndExitsLikeDiff) {
    for (TempTree* t : {&before, &after}) {
        t->file(u"same.txt"_s, "s", 1700000000);
        t->folder(u"docs"_s);
    }
    before.file(u"docs/old.txt"_s);
    before.file(u"grown.txt"_s, "1", 1700000000);
    after.file(u"grown.txt"_s, "12", 1700000000 + 2);
    after.file(u"new/inside.txt"_s);
    CliRun r = cli({u"compare"_s, before.root(), before.root()});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.isEmpty());

    r = compare();
    EXPECT_EQ(r.status, 1);
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
    const QString summary = u"2 only in NEW, 1 only in OLD, 1 changed"_s;
    EXPECT_EQ(r.err.trimmed(), summary);
    // The counts alone, on standard output, with the same exit status.
    r = compare({u"--summary"_s});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, summary + u'\n');

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

    // docs is empty in NEW: an empty folder's match is negative, so it is not
    // among the entries in both.
    r = compare({u"--show"_s, u"both"_s});
    EXPECT_EQ(fieldOf(r, 0), (QStringList{u"grown.txt"_s, u"same.txt"_s}));
    EXPECT_EQ(fieldOf(r, 1), (QStringList{u"2"_s, u"1"_s}));
}

// Attribute changes: every bit counts on the command line but the normal
// bit, so a file made read-only differs in its read-only bit alone;
// --use-settings takes the stored options, and compares only the attributes
// ticked in the options dialog.
TEST_F(CliTest, CompareTakesTheStoredOptionsOnlyWhenAsked) {
    for (TempTree* t : {&before, &after}) {
        t->file(u"f"_s, "1", 1700000000);
        t->file(u"sized"_s, t == &before ? "1" : "12", 1700000000);
    }
    before.chmod(u"f"_s, 0644);
    after.chmod(u"f"_s, 0444);
    storeSettings("[Ignore]\nSize=1\n");
    EXPECT_EQ(compare().lines(), (QStringList{u"~\tf\t[was Norm  -rw-r--r--]\tattributes Norm -> "
                                              u"R/O, permissions -rw-r--r-- -> -r--r--r--"_s,
                                              u"~\tsized\t[was 1]\tsize 1 -> 2"_s}));
    // The read-only attribute is the owner's write bit: a change of it is a
    // permission change too.
    const QStringList withoutR{u"--ignore-attributes"_s, u"R"_s, u"--ignore-size"_s};
    EXPECT_EQ(compare(withoutR).status, 1);
    EXPECT_EQ(compare(withoutR + QStringList{u"--ignore-permissions"_s}).status, 0);

    // "Ignore attributes" off: none compared; the permissions are.
    const QStringList withSettings{u"--use-settings"_s};
    EXPECT_EQ(compare(withSettings).lines(),
              QStringList{u"~\tf\t[was -rw-r--r--]\tpermissions -rw-r--r-- -> -r--r--r--"_s});
    for (const auto& [stored, differs] : {std::pair{"Size=1\nPermissions=1\n", false},
                                          {"Size=1\nAttrib=1\nArchive=1\nPermissions=1\n", false},
                                          {"Size=1\nAttrib=1\nRead=1\nPermissions=1\n", true}}) {
        storeSettings(QByteArray("[Ignore]\n") + stored);
        const CliRun r = compare(withSettings);
        EXPECT_EQ(r.status, differs ? 1 : 0) << stored;
        EXPECT_EQ(fieldOf(r, 1), differs ? QStringList{u"f"_s} : QStringList()) << stored;
    }
}

// What ls -la shows besides the bytes, changed in a real tree: each change
// is reported with its own field and old and new values, and nothing else;
// what makes a file dangerous is called out first. The link points elsewhere
// with a target of the same length and its time kept.
TEST_F(CliTest, CompareReportsPermissionsOwnersAndLinkTargets) {
    TempTree t;
    for (const QString& f : {u"sub/tool"_s, u"a"_s, u"plain"_s, u"shared/gid"_s})
        t.file(f, "x");
    for (const auto& [path, mode] : {std::pair{u"sub/tool"_s, 0755},
                                     {u"shared/gid"_s, 0755},
                                     {u"a"_s, 0644},
                                     {u"plain"_s, 0644},
                                     {u"shared"_s, 0755}})
        t.chmod(path, mode);
    t.symlink(u"link"_s, u"/etc/passwd"_s);
    t.touch(u"link"_s, 1700000000);
    const QString old = snapshot(t.root(), u"t.#01"_s);

    for (const auto& [path, mode] : {std::pair{u"sub/tool"_s, 04755},
                                     {u"shared/gid"_s, 02755},
                                     {u"plain"_s, 0646},
                                     {u"shared"_s, 01777}})
        t.chmod(path, mode);
    const bool root = runningAsRoot();
    if (root) {
        ASSERT_EQ(::lchown(nativeBytes(t.root() + u"a"_s).constData(), 1000, 1000), 0);
    }
    ASSERT_TRUE(QFile::remove(t.root() + u"link"_s));
    t.symlink(u"link"_s, u"/etc/shadow"_s);
    t.touch(u"link"_s, 1700000000);

    CliRun r = cli({u"compare"_s, old, t.root()});
    EXPECT_EQ(r.status, 1);
    QStringList expected{
        u"~\tlink\t[was -> /etc/passwd]\ttarget /etc/passwd -> /etc/shadow"_s,
        u"!~\tplain\t[was -rw-r--r--]\tpermissions -rw-r--r-- -> -rw-r--rw-"_s,
        u"!~\tshared/\t[was drwxr-xr-x]\tpermissions drwxr-xr-x -> drwxrwxrwt"_s,
        u"!~\tshared/gid\t[was -rwxr-xr-x]\tpermissions -rwxr-xr-x -> -rwxr-sr-x"_s,
        u"!~\tsub/tool\t[was -rwxr-xr-x]\tpermissions -rwxr-xr-x -> -rwsr-xr-x"_s};
    if (root)
        expected.prepend(u"~\ta\t[was root:root]\towner root:root -> "_s + ownerText(1000, 1000));
    EXPECT_EQ(r.lines(), expected);
    EXPECT_EQ(
        r.err.trimmed(),
        u"1 new set-user-ID file, 1 new set-group-ID file, 2 new world-writable entries; "
        u"0 only in NEW, 0 only in OLD, %1 changed (4 permission changes, %2"_s.arg(root ? 6 : 5)
                .arg(root ? u"1 owner change, "_s : QString()) +
            u"1 link target change)"_s);

    const QStringList json = cli({u"compare"_s, old, t.root(), u"--format"_s, u"jsonl"_s}).lines();
    ASSERT_EQ(json.size(), expected.size() + 1); // the header first
    const QJsonObject tool = QJsonDocument::fromJson(json.last().toUtf8()).object();
    EXPECT_EQ(tool[u"alert"_s].toString(), u"setuid"_s);
    EXPECT_EQ(tool[u"permissions"_s][u"new"_s].toString(), u"-rwsr-xr-x"_s);
    const QJsonObject target = QJsonDocument::fromJson(json[root ? 2 : 1].toUtf8()).object();
    EXPECT_FALSE(target.contains(u"alert"_s) || target.contains(u"modified"_s));
    EXPECT_EQ(target[u"target"_s][u"old"_s].toString(), u"/etc/passwd"_s);

    // Switched off, what is left is the owner and the link target.
    r = cli({u"compare"_s, old, t.root(), u"--ignore-permissions"_s, u"--ignore-owner"_s});
    EXPECT_EQ(r.lines(), QStringList{expected.at(root ? 1 : 0)});
    EXPECT_FALSE(r.err.contains(u"new set-user-ID"_s));

    // The export writes the values on request, sorted by them as asked.
    r = cli(
        {u"export"_s, old, u"--folder"_s, u"sub"_s, u"--fields"_s, u"name,permissions,owner"_s});
    EXPECT_EQ(r.out, u"tool,-rwxr-xr-x,"_s + ownerText(::geteuid(), ::getegid()) + u"\r\n"_s);
    r = cli({u"export"_s, t.root(), u"--fields"_s, u"permissions,name"_s, u"--sort"_s,
             u"permissions:desc"_s});
    EXPECT_TRUE(r.out.startsWith(u"lrwxrwxrwx,link\r\n"_s)) << r.out.toStdString();
}

// Moves are their own lines, before what is only on one side, and stand in
// for the lines of what moved; --no-moves lists them as before. A folder
// snapshot with fingerprints makes the scan of the other side take them.
// (The change document's tests read moves and content changes in JSON.)
TEST_F(CliTest, CompareTellsMovesAndContent) {
    TempTree t;
    for (const QString& f : {u"old/a"_s, u"old/b"_s})
        t.file(f, "same");
    t.file(u"kept"_s, "before");
    const QString old = snapshot(t.root(), u"t.#01"_s, {u"--fingerprints"_s});
    ASSERT_TRUE(QDir().rename(t.root() + u"old"_s, t.root() + u"new"_s));
    t.file(u"added"_s, "x");
    t.file(u"kept"_s, "BEFORE"); // same size, new content

    CliRun r = cli({u"compare"_s, old, t.root()});
    EXPECT_EQ(r.status, 1);
    ASSERT_EQ(r.lines().size(), 3) << r.out.toStdString();
    EXPECT_EQ(r.lines().mid(0, 2), (QStringList{u">\told/ -> new/"_s, u"+\tadded"_s}));
    EXPECT_TRUE(r.lines()[2].startsWith(u"~\tkept\t"_s) &&
                r.lines()[2].contains(u"content changed"_s))
        << r.lines()[2].toStdString();
    EXPECT_TRUE(r.err.contains(u"2 moved files, 1 moved folder"_s)) << r.err.toStdString();

    r = cli({u"compare"_s, old, t.root(), u"--no-moves"_s});
    EXPECT_TRUE(r.lines().contains(u"-\told/"_s) && r.lines().contains(u"+\tnew/a"_s));
}

// The history of a series: one row a path that ever changed, its state in
// each snapshot, in text, csv and jsonl, with permissions and owners where
// recorded and the fields a change of values changed; a damaged member is
// named and left out; --summary counts each snapshot's changes.
TEST_F(CliTest, HistoryTellsEachPathsLifeAcrossTheSeries) {
    TempTree t;
    // a.txt keeps its time when it grows: only its size and permissions change,
    // however long the snapshot between takes.
    t.file(u"data/a.txt"_s, "a", 1700000000);
    t.file(u"data/gone.txt"_s, "g");
    const QString folder = t.root() + u"data"_s;
    snapshot(folder, u"data.#01"_s);
    t.file(u"data/a.txt"_s, "aaa", 1700000000);
    t.chmod(u"data/a.txt"_s, 04600);
    const QString second = snapshot(folder, u"data.#02"_s);
    ASSERT_TRUE(QFile::remove(folder + u"/gone.txt"_s));
    t.file(u"data/sub/new.txt"_s, "nn");
    t.chmod(u"data/sub"_s, 0755);
    t.chmod(u"data/sub/new.txt"_s, 0644);
    snapshot(folder, u"data.#03"_s);
    ASSERT_TRUE(writeBytes(home() + u"/data.#05"_s, "damaged"));

    CliRun r = cli({u"history"_s, second});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(u"data.#05"_s)) << r.err.toStdString();
    EXPECT_TRUE(r.lines().contains(u"a.txt\t1\t!~3\t3\t?"_s)) << r.out.toStdString();

    // JSON lines: the series, then a.txt, gone.txt, sub/ and sub/new.txt.
    const QStringList json = cli({u"history"_s, second, u"--format"_s, u"jsonl"_s}).lines();
    ASSERT_EQ(json.size(), 5);
    const QJsonArray generations =
        QJsonDocument::fromJson(json[0].toUtf8())[u"generations"].toArray();
    ASSERT_EQ(generations.size(), 4);
    EXPECT_EQ(generations[1][u"changed"_s].toInt(), 1);
    EXPECT_TRUE(generations[3].toObject().contains(u"error"_s));
    const QJsonValue a = QJsonDocument::fromJson(json[1].toUtf8())[u"states"][1];
    EXPECT_EQ(a[u"change"_s].toString(), u"changed"_s);
    EXPECT_EQ(a[u"size"_s].toInt(), 3);
    EXPECT_EQ(a[u"fields"_s].toArray(), (QJsonArray{u"size"_s, u"permissions"_s}));
    EXPECT_EQ(a[u"permissions"_s].toString(), u"-rwS------"_s);
    EXPECT_EQ(a[u"alert"_s].toString(), u"setuid"_s);
    const QString owner = ownerText(::geteuid(), ::getegid());
    EXPECT_EQ(a[u"owner"_s].toString(), owner);
    r = cli({u"history"_s, second, u"--format"_s, u"csv"_s, u"--folder"_s, u"sub"_s});
    const QString none = u"\"\",\"\",\"\",\"\""_s;
    const QString unreadable = u"\"\",\"unreadable\",\"\",\"\""_s;
    QStringList header{u"path"_s};
    for (const char* g : {"#01", "#02", "#03", "#05"})
        for (const char* column : {"size", "change", "permissions", "owner"})
            header << u"\"%1 %2\""_s.arg(QLatin1String(g), QLatin1String(column));
    EXPECT_EQ(
        r.lines(),
        (QStringList{header.join(u","_s),
                     u"\"sub/\","_s + none + u","_s + none +
                         u",\"0\",\"added\",\"drwxr-xr-x\",\""_s + owner + u"\","_s + unreadable,
                     u"\"sub/new.txt\","_s + none + u","_s + none +
                         u",\"2\",\"added\",\"-rw-r--r--\",\""_s + owner + u"\","_s + unreadable}));
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
    const QString stream = home() + u"/host.#01"_s;
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
    const QString fromFile = home() + u"/a.#01"_s, fromPipe = home() + u"/b.#01"_s;
    ASSERT_EQ(cli({u"convert"_s, stream, fromFile}).status, 0);
    ASSERT_EQ(cliThroughShell(u"\"$0\" convert - \"$1\" < \"$2\""_s, {fromPipe, stream}).status, 0);
    EXPECT_TRUE(readBytes(fromFile) == readBytes(fromPipe));
    EXPECT_FALSE(readBytes(fromFile + u".meta"_s).isEmpty());
    EXPECT_TRUE(readBytes(fromFile + u".meta"_s) == readBytes(fromPipe + u".meta"_s));

    r = cliThroughShell(u"\"$0\" compare - - < \"$1\""_s, {stream});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.contains(u"it can be read once"_s)) << r.err.toStdString();
}

TEST_F(CliTest, CompareLeavesOutWhatThePatternsIgnore) {
    for (TempTree* t : {&before, &after}) {
        const QByteArray grown = t == &before ? "1" : "22";
        for (const auto& [f, bytes] : {std::pair{u"a.c"_s, QByteArray("1")},
                                       {u"__pycache__/m.pyc"_s, QByteArray("1")},
                                       {u"logs/x.log"_s, grown},
                                       {u"a.pyc"_s, grown}})
            t->file(f, bytes, 1700000000);
    }
    for (const QString& f : {u"__pycache__/n.pyc"_s, u"keep.log"_s, u"new.txt"_s})
        after.file(f);
    EXPECT_EQ(compare().lines().size(), 5);
    CliRun r = compare({u"--ignore"_s, u"*.pyc"_s, u"--ignore"_s, u"__pycache__/"_s});
    EXPECT_EQ(r.lines(), (QStringList{u"+\tkeep.log"_s, u"~\tlogs/x.log\t[was 1]\tsize 1 -> 2"_s,
                                      u"+\tnew.txt"_s}));
    EXPECT_EQ(r.err.trimmed(),
              u"2 only in NEW, 0 only in OLD, 1 changed, 4 ignored in NEW, 3 in OLD"_s);
    // A pattern that cannot be compiled is told, and the others apply.
    const QString file = home() + u"/patterns"_s;
    ASSERT_TRUE(writeBytes(file, "*.log\n!keep.log\n*.pyc\n__pycache__/\n"));
    r = compare({u"--ignore-from"_s, file, u"--ignore"_s, u"[bad"_s, u"--ignore"_s, u"new.*"_s});
    EXPECT_EQ(r.lines(), QStringList{u"+\tkeep.log"_s});
    EXPECT_TRUE(r.err.startsWith(u"--ignore: line 1: unclosed [\n"_s)) << r.err.toStdString();

    // The stored patterns, only with --use-settings.
    storeSettings("[Ignore]\nPatterns=\"*.pyc\\n*.log\\nnew.txt\"\n");
    EXPECT_EQ(compare().status, 1);
    EXPECT_EQ(compare({u"--use-settings"_s}).status, 0);

    // A snapshot's own patterns apply to the comparison; one that cannot be
    // read stops it.
    after.file(u".kestrelignore"_s, "*.pyc\n*.log\nnew.txt\n");
    EXPECT_EQ(compare({u"--ignore"_s, u".kestrelignore"_s}).status, 0);
    QFile::remove(after.root() + u".kestrelignore"_s);
    after.symlink(u".kestrelignore"_s, file);
    expectTrouble(compare(),
                  u"Ignore Patterns: "_s + after.root() + u".kestrelignore: not a regular file"_s);
}

// What a snapshot is told to leave out: excluded folders are never opened
// (one nobody may read is no trouble), and dot names, hidden items, with
// --no-hidden, said and, compared with a snapshot that has them, extra
// entries both ways. A .kestrelignore that is a link is not read; the
// snapshot is saved all the same, and the trouble said.
TEST_F(CliTest, SnapshotLeavesOutWhatItIsTold) {
    TempTree t;
    for (const QString& f :
         {u"data/secret/s.txt"_s, u"data/cache/c.bin"_s, u"data/sub/cache/kept.txt"_s,
          u"data/a.txt"_s, u"data/b.tmp"_s, u"data/.htaccess"_s, u"data/.ssh/authorized_keys"_s})
        t.file(f, "x");
    for (const QString& folder : {QString(), u"data"_s, u"data/cache"_s, u"data/sub"_s,
                                  u"data/sub/cache"_s, u"data/.ssh"_s})
        t.chmod(folder, 0755);
    t.chmod(u"data/secret"_s, 0);
    const QString patterns = home() + u"/exclude"_s;
    ASSERT_TRUE(writeBytes(patterns, "*.tmp\n/cache\n"));
    const QString data = t.root() + u"data"_s, shown = home() + u"/shown.#01"_s;
    const QStringList excluded{u"--exclude"_s, u"secret/"_s, u"--exclude-from"_s, patterns};
    CliRun r = cliAsNobody(
        QStringList{u"snapshot"_s, data, u"--output"_s, shown, u"--no-hidden"_s} + excluded);
    t.chmod(u"data/secret"_s, 0755);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains(u", 2 hidden entries left out\n"_s)) << r.err.toStdString();
    EXPECT_EQ(fieldOf(cli({u"list"_s, shown})),
              (QStringList{u"a.txt"_s, u"sub/"_s, u"sub/cache/"_s, u"sub/cache/kept.txt"_s}));
    const QString all = snapshot(data, u"all.#01"_s, excluded);
    const QStringList hidden{u".htaccess"_s, u".ssh/"_s, u".ssh/authorized_keys"_s};
    for (const auto& [older, newer, sign] :
         {std::tuple{all, shown, u"-"_s}, {shown, all, u"+"_s}}) {
        r = cli({u"compare"_s, older, newer});
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(fieldOf(r, 0), QStringList(hidden.size(), sign));
        EXPECT_EQ(fieldOf(r, 1), hidden);
    }

    t.symlink(u"data/.kestrelignore"_s, patterns);
    r = cli({u"snapshot"_s, data, u"--output"_s, home() + u"/linked.#01"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(QFile::exists(home() + u"/linked.#01"_s));
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
        Snapshot s;
        buildSnapshot(s, top);
        s.header.title = name;
        EXPECT_TRUE(saveSnapshotAs(s, home() + u'/' + name + u".#01"_s).ok);
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

    const CliRun listOne = cli({u"list"_s, one});
    EXPECT_EQ(listOne.out, cli({u"list"_s, two}).out);
    EXPECT_EQ(fieldOf(listOne),
              (QStringList{"B", "a/", "a/x/", "a/x/deep", "a/y", "a/z", "a b", "b"}));
    const auto byPath = [](const QString& x, const QString& y) {
        return x.toUtf8().replace('/', '\0') < y.toUtf8().replace('/', '\0');
    };
    for (const bool forward : {true, false}) {
        const auto compare = [&](const QString& from) {
            return cli({u"compare"_s, forward ? from : changed, forward ? changed : from});
        };
        const CliRun fromOne = compare(one), fromTwo = compare(two);
        EXPECT_EQ(fromOne.status, 1);
        EXPECT_EQ(fromOne.out, fromTwo.out);
        EXPECT_EQ(fromOne.err, fromTwo.err);
        EXPECT_FALSE(fromOne.err.isEmpty()); // the summary stays on standard error
        const QStringList paths = fieldOf(fromOne, 1);
        EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end(), byPath))
            << paths.join(u' ').toStdString();
    }
    const CliRun shown = cli({u"compare"_s, changed, one, u"--show"_s, u"all"_s});
    EXPECT_EQ(shown.out, cli({u"compare"_s, changed, two, u"--show"_s, u"all"_s}).out);
    EXPECT_TRUE(shown.out.startsWith(u"B\t6\t"_s));
}

// export writes the Export dialog's lines for a view: its columns, separator,
// quoting and custom text, name order unless told otherwise, the In Folder
// column with sub-folders.
TEST_F(CliTest, ExportWritesTheListOfAFolder) {
    TempTree t;
    t.file(u"data/b.TXT"_s, "12345", 1700000000);
    t.file(u"data/A.bin"_s, QByteArray(1234, 'a'), 1700000000);
    t.file(u"data/sub/c"_s, "c", 1700000000);
    t.touch(u"data/sub"_s, 1700000000);
    const QString data = snapshot(t.root() + u"data"_s, u"data.#01"_s);
    const auto exported = [&](const QStringList& options) {
        return cli(QStringList{u"export"_s, data} + options).out;
    };
    // A size holding the separator is quoted all the same.
    EXPECT_EQ(exported({u"--fields"_s, u"name,size,type,attributes"_s}),
              u"A.bin,\"1,234\",bin,Norm\r\nb.TXT,5,txt,Norm\r\nsub,<dir>,,Dir\r\n"_s);
    // A folder's size key is 0: the smallest.
    EXPECT_EQ(exported({u"--quotes"_s, u"--separator"_s, u"tab"_s, u"--fields"_s,
                        u"custom:HOST,0,folder,size,attributes"_s, u"--subfolders"_s,
                        u"--numeric-attributes"_s, u"--sort"_s, u"size:desc"_s}),
              u"HOST\t\"A.bin\"\t\"\"\t\"1,234\"\t\"128\"\r\n"
              "HOST\t\"b.TXT\"\t\"\"\t\"5\"\t\"128\"\r\n"
              "HOST\t\"c\"\t\"sub/\"\t\"1\"\t\"128\"\r\n"
              "HOST\t\"sub\"\t\"\"\t\"<dir>\"\t\"16\"\r\n"_s);

    // The default fields are the dialog's: every column, Version included.
    const QString file = home() + u"/sub.txt"_s;
    EXPECT_TRUE(
        exported({u"--folder"_s, u"sub"_s, u"--separator"_s, u"none"_s, u"--output"_s, file})
            .isEmpty());
    const QByteArray line = readBytes(file);
    EXPECT_TRUE(line.startsWith("c1") && line.endsWith("Norm\r\n")) << line.toStdString();
}

// list prints path, size, modified, attributes and version, a line an
// entry; info escapes the title and the root folder as list escapes paths.
// On POSIX names are matched exactly: --folder takes the case twin asked
// for. Names that are not UTF-8, the root's own included, are kept and
// printed with their bad bytes marked, and --folder takes them so or in
// their own bytes.
TEST_F(CliTest, NamesAreListedMatchedAndKeptExactly) {
    TempTree t;
    t.file(u"line\nroot/line\nbreak"_s, "12345");
    const QString root = t.root() + u"line\nroot"_s;
    CliRun r = cli({u"list"_s, root});
    static const QRegularExpression line(
        u"^line\\\\nbreak\t5\t\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\tNorm\t$"_s);
    ASSERT_EQ(r.lines().size(), 1) << r.err.toStdString();
    EXPECT_TRUE(line.match(r.lines()[0]).hasMatch()) << r.lines()[0].toStdString();
    const QString escaped = snapshot(root, u"escaped.#01"_s, {u"--title"_s, u"two\tlines\\"_s});
    EXPECT_TRUE(cli({u"info"_s, escaped})
                    .out.startsWith(u"Title: two\\tlines\\\nRoot folder: "_s + t.root() +
                                    u"line\\nroot/\n"_s));

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
    r = cliThroughShell(u"exec \"$0\" snapshot \"$1$(printf 'caf\\351')\" --output \"$2\""_s,
                        {t.root(), odd});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(
        cli({u"info"_s, odd}).out.contains(u"Root folder: "_s + t.root() + u"caf\\xE9/\n"_s));
    EXPECT_EQ(fieldOf(cli({u"list"_s, odd})),
              (QStringList{u"caf\\xE9/"_s, u"caf\\xE9/x"_s, u"café"_s}));
    EXPECT_EQ(exported(odd, u"caf\\xE9"_s).out, u"x\r\n"_s);
    r = cliThroughShell(
        u"exec \"$0\" export \"$1\" --folder \"$(printf 'caf\\351')\" --fields name"_s, {odd});
    EXPECT_EQ(r.out, u"x\r\n"_s) << r.err.toStdString();
}

// report writes the printed report as a PDF, here of a comparison with its
// differences (the report's own tests read its lines back).
TEST_F(CliTest, ReportPrintsAPdf) {
    before.file(u"f.txt"_s, "1");
    after.file(u"f.txt"_s, "12");
    after.file(u"g.txt"_s, "1");
    const QString pdf = home() + u"/report.pdf"_s;
    const CliRun r = cli({u"report"_s, after.root(), u"--compare"_s, before.root(),
                          u"--differences"_s, u"--landscape"_s, u"--pdf"_s, pdf});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
    const QString pdftotext = QStandardPaths::findExecutable(u"pdftotext"_s);
    if (pdftotext.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    const QString text = runProgram(pdftotext, {u"-layout"_s, pdf, u"-"_s}, home()).out;
    for (const QString& printed :
         {u"Compared with Snapshot #1 of "_s, u"[was not in other Snapshot]"_s, u"[was 1"_s})
        EXPECT_TRUE(text.contains(printed)) << printed.toStdString();
}

} // namespace
