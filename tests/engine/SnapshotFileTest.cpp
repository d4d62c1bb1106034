#include "engine/file/SnapshotFile.h"
#include "TestSupport.h"
#include "engine/file/FileWriting.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SaveBehind.h"
#include "engine/file/SnapshotItems.h"
#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <iterator>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace kestrel::engine;
using kestrel::test::readBytes;

namespace {

const QByteArray EmptyRecord = "0,0,0,0,\"\",0,0,\"\"\r\n";

// The example as the Windows program wrote it, with a capacity item of its own.
constexpr auto exampleFile = &kestrel::test::exampleSnapshotFile;

const QByteArray PlainHeader =
    "Title\r\n\"/data/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,16\r\n";

// A snapshot of n files in the root.
void fill(Snapshot& s, int32_t n) {
    for (int32_t i = 1; i <= n; ++i)
        s.createEntry(32, 36950.5, i == n ? 1 : i + 1, "file" + std::to_string(i), 0, i, "");
    s.mutableEntry(0).count = n;
}

class SnapshotFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;

    QString path(const QString& name) const { return dir.filePath(name); }

    static void write(const QString& file, const QByteArray& bytes) {
        ASSERT_TRUE(kestrel::test::writeBytes(file, bytes));
    }
    static LoadOutcome load(Snapshot& s, const QString& file) {
        s.header.fileName = file;
        ProgressMeter meter;
        return LoadSnapshot(s, meter);
    }
    static Outcome save(Snapshot& s, const QString& file) {
        s.header.fileName = file;
        ProgressMeter meter;
        return SaveSnapshot(s, meter);
    }
    // Loads bytes written to a file of their own.
    LoadOutcome loadBytes(Snapshot& s, const QByteArray& bytes) {
        const QString file = path(QStringLiteral("in.#01"));
        write(file, bytes);
        return load(s, file);
    }
};

TEST_F(SnapshotFileTest, LoadsTheWindowsExample) {
    Snapshot s;
    const LoadOutcome r = loadBytes(s, exampleFile(16));
    ASSERT_TRUE(r.ok) << (r.message ? r.message->text.toStdString() : "");
    EXPECT_FALSE(r.message);
    EXPECT_EQ(s.header.title, QStringLiteral("Original Snapshot of C:\\Data\\"));
    EXPECT_EQ(s.header.rootFolder, QStringLiteral("C:\\Data\\"));
    EXPECT_EQ(s.header.created, oleDateFromParts(2001, 3, 4, 10, 15, 0));
    EXPECT_TRUE(s.header.recurse && !s.header.hidden && !s.header.versions);
    EXPECT_EQ(s.entry(0).count, 16);
    EXPECT_EQ(s.capacity(), 17); // indices 0..capacity + 1
    EXPECT_EQ(kestrel::test::countsOf(s), std::tuple(3, 2, 1, 1333.0));
    EXPECT_TRUE(r.summary.startsWith(QStringLiteral("Kestrel read 2 files and 1 folders in ")))
        << r.summary.toStdString();

    using Fields = kestrel::test::EntryFields;
    EXPECT_EQ(kestrel::test::fieldsOf(s, 1),
              Fields(16, 36954.4270833333, 3, 1, "Reports", 0, 0, ""));
    EXPECT_EQ(kestrel::test::fieldsOf(s, 2), Fields(32, 36950.5, 2, 0, "a.txt", 1, 1234, ""));
    EXPECT_EQ(kestrel::test::fieldsOf(s, 3), Fields(32, 36950.5, 1, 0, "b.txt", 0, 99, ""));

    // Saved again, the file carries the capacity's worth of records: the three
    // real ones, then empty ones up to 16.
    ASSERT_TRUE(save(s, path(QStringLiteral("out.#02"))).ok);
    EXPECT_EQ(readBytes(path(QStringLiteral("out.#02"))),
              exampleFile(32) + EmptyRecord.repeated(13));
    EXPECT_EQ(s.entryCount, 16);
}

TEST_F(SnapshotFileTest, CapacityItemIsTheNextMultipleOf16AboveTheCount) {
    for (int32_t n : {0, 15, 16, 32}) {
        Snapshot s;
        fill(s, n);
        const QString file = path(QStringLiteral("n%1.#01").arg(n));
        ASSERT_TRUE(save(s, file).ok);

        const QList<QByteArray> lines = readBytes(file).split('\n');
        ASSERT_EQ(lines.size(), n + 3) << n; // title, header, entries, nothing after the last CR LF
        const int expected = n + 16 - n % 16;
        EXPECT_TRUE(lines[1].endsWith("," + QByteArray::number(expected) + "\r"))
            << lines[1].data();

        Snapshot back;
        ASSERT_TRUE(load(back, file).ok) << n;
        EXPECT_EQ(back.entryCount, n);
        EXPECT_EQ(back.entry(0).count, expected);
    }
}

TEST_F(SnapshotFileTest, CapacityFarAboveTheLinesIsFittedToThem) {
    // Up to 16 above the lines the capacity stands and saving pads to it.
    for (int capacity : {4, 19}) {
        Snapshot s;
        const LoadOutcome r = loadBytes(s, exampleFile(capacity));
        ASSERT_TRUE(r.ok) << capacity;
        EXPECT_FALSE(r.message) << capacity;
        EXPECT_EQ(s.entry(0).count, capacity);
        EXPECT_EQ(s.capacity(), capacity + 1);
    }

    // A hundred-odd bytes that claim two thousand million entries: loaded
    // with the capacity a save of its three lines writes, told once, and
    // saved with no more padding than that.
    const int capacities[] = {20, 2000000000, INT32_MAX};
    const char* missing[] = {"1", "1,999,999,981", "2,147,483,628"};
    for (size_t k = 0; k < std::size(capacities); ++k) {
        Snapshot s;
        const LoadOutcome r = loadBytes(s, exampleFile(capacities[k]));
        ASSERT_TRUE(r.ok) << capacities[k];
        kestrel::test::expectMessage(r.message, QStringLiteral("Incomplete Snapshot"),
                                     QStringLiteral("The file ends before its last %1 entries")
                                         .arg(QLatin1String(missing[k])),
                                     MessageIcon::Information);
        EXPECT_EQ(s.entryCount, 3);
        EXPECT_EQ(s.entry(0).count, 16);
        EXPECT_EQ(s.capacity(), 17);
        EXPECT_LT(s.memoryUsed(), size_t(4) << 20);
        ASSERT_TRUE(save(s, path(QStringLiteral("fitted.#01"))).ok);
        EXPECT_EQ(readBytes(path(QStringLiteral("fitted.#01"))),
                  exampleFile(32) + EmptyRecord.repeated(13));
    }

    // A file cut short after 50 of its 100 entries.
    Snapshot whole;
    fill(whole, 100);
    ASSERT_TRUE(save(whole, path(QStringLiteral("whole.#01"))).ok);
    const QList<QByteArray> lines = readBytes(path(QStringLiteral("whole.#01"))).split('\n');
    Snapshot cut;
    const LoadOutcome r = loadBytes(cut, lines.mid(0, 52).join('\n') + '\n');
    ASSERT_TRUE(r.ok);
    ASSERT_TRUE(r.message);
    EXPECT_EQ(r.message->text, QStringLiteral("The file ends before its last 46 entries"));
    EXPECT_EQ(cut.entryCount, 50);
    EXPECT_EQ(cut.entry(0).count, 64);
}

TEST_F(SnapshotFileTest, BadDataFails) {
    struct Case {
        const char* what;
        QByteArray file;
        ErrorCode error;
        const char* message; // nullptr: fails silently
    };
    const QByteArray capacityOne =
        "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,1\r\n";
    const QByteArray entry = "32,1,1,0,\"a\",0,0,\"\"\r\n";
    const Case cases[] = {
        {"capacity + 1 lines", capacityOne + entry + entry, ErrorCode::None, nullptr},
        {"more lines than capacity + 1", capacityOne + entry + entry + entry,
         ErrorCode::SubscriptOutOfRange, "Subscript out of range"},
        {"attributes overflow", PlainHeader + "40000,1,1,0,\"a\",0,0,\"\"\r\n", ErrorCode::Overflow,
         nullptr},
        {"malformed size", PlainHeader + "32,1,1,0,\"a\",0,12x,\"\"\r\n", ErrorCode::TypeMismatch,
         "Type mismatch"},
        {"malformed date", "T\r\n\"/d/\",#2001-13-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,16\r\n",
         ErrorCode::TypeMismatch, "Type mismatch"},
        {"truncated entry", PlainHeader + "32,1,1,0,\"a\"\r\n", ErrorCode::InputPastEndOfFile,
         "Input past end of file"},
        {"header only", "T\r\n", ErrorCode::InputPastEndOfFile, "Input past end of file"},
    };
    for (const Case& c : cases) {
        Snapshot s;
        const LoadOutcome r = loadBytes(s, c.file);
        EXPECT_EQ(r.ok, c.error == ErrorCode::None) << c.what;
        EXPECT_EQ(r.error, c.error) << c.what;
        if (!c.message) {
            EXPECT_FALSE(r.message) << c.what;
            continue;
        }
        SCOPED_TRACE(c.what);
        kestrel::test::expectMessage(r.message, QStringLiteral("Invalid Snapshot"),
                                     QString::fromLatin1(c.message), MessageIcon::Exclamation);
    }

    // A file that cannot be opened fails quietly; a folder or a pipe is no
    // file to read (the pipe would keep the load waiting for a writer).
    ASSERT_EQ(::mkfifo(QFile::encodeName(path(QStringLiteral("pipe.#01"))).constData(), 0600), 0);
    for (const char* name : {"absent.#01", "pipe.#01", "."}) {
        Snapshot s;
        const LoadOutcome r = load(s, path(QLatin1String(name)));
        EXPECT_FALSE(r.ok) << name;
        EXPECT_FALSE(r.message) << name;
        EXPECT_FALSE(r.headerRead) << name;
    }
}

TEST_F(SnapshotFileTest, AwkwardTextRoundTrips) {
    const char* names[] = {
        "a,b.txt",     "say \"hi\".txt", "\"",         "\"\"",   "Grüße ä€ 日本.txt",
        "line\nbreak", "cr\r\nlf",       "  padded  ", "#TRUE#", "ends with comma,",
        "caf\\xE9",    "a\\\\b", // names as stored: a byte not UTF-8, a backslash
    };
    Snapshot s;
    s.header.title = QStringLiteral("Snap, \"quoted\", end,");
    s.header.rootFolder = QStringLiteral("/data/\"q\",x/");
    const int32_t n = int32_t(std::size(names));
    for (int32_t i = 1; i <= n; ++i)
        s.createEntry(32, 1, i == n ? 1 : i + 1, names[i - 1], 0, i, i == 2 ? "1.0 \"b\"" : "");
    s.mutableEntry(0).count = n;
    const QString file = path(QStringLiteral("names.#01"));
    ASSERT_TRUE(save(s, file).ok);
    EXPECT_TRUE(readBytes(file).contains(",\"say \"\"hi\"\".txt\","));

    Snapshot back;
    const LoadOutcome r = load(back, file);
    ASSERT_TRUE(r.ok) << (r.message ? r.message->text.toStdString() : "");
    EXPECT_EQ(back.header.title, s.header.title);
    EXPECT_EQ(back.header.rootFolder, s.header.rootFolder);
    ASSERT_EQ(back.entryCount, n);
    for (int32_t i = 1; i <= n; ++i) {
        EXPECT_EQ(back.name(i), names[i - 1]);
        EXPECT_EQ(back.entry(i).size, i);
    }
    EXPECT_EQ(back.version(2), "1.0 \"b\"");
}

TEST_F(SnapshotFileTest, ReadsOldFilesLeniently) {
    // Windows-1252 text, unquoted items, booleans written as words and numbers without
    // the zero before the point.
    const QByteArray file = "Gr\xE4n \x80 Title\r\n"
                            "/old/D\xE4ten/,2001-03-04 10:15:00,True,False,#TRUE#,16\r\n"
                            "32,.5,2,0,\xE4\x80.txt,0,-.5,\r\n"
                            "  32 , 36950.5 ,1,0, \"b, c\" ,0,+99,1.00.0000\r\n";
    Snapshot s;
    const LoadOutcome r = loadBytes(s, file);
    ASSERT_TRUE(r.ok) << (r.message ? r.message->text.toStdString() : "");
    EXPECT_EQ(s.header.title, QString::fromUtf8("Grän € Title"));
    EXPECT_EQ(s.header.rootFolder, QString::fromUtf8("/old/Däten/"));
    EXPECT_EQ(s.header.created, oleDateFromParts(2001, 3, 4, 10, 15, 0));
    EXPECT_TRUE(s.header.recurse && !s.header.hidden && s.header.versions);
    ASSERT_EQ(s.entryCount, 2);
    using Fields = kestrel::test::EntryFields;
    EXPECT_EQ(kestrel::test::fieldsOf(s, 1), Fields(32, 0.5, 2, 0, "ä€.txt", 0, -0.5, ""));
    EXPECT_EQ(kestrel::test::fieldsOf(s, 2), Fields(32, 36950.5, 1, 0, "b, c", 0, 99, "1.00.0000"));
}

TEST_F(SnapshotFileTest, Cancel) {
    QByteArray file = "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,32\r\n";
    for (int i = 1; i <= 25; ++i)
        file += "16,1," + QByteArray::number(i == 25 ? 1 : i + 1) + ",0,\"d\",0,0,\"\"\r\n";
    write(path(QStringLiteral("c.#01")), file);

    // Cancel is asked for whenever the meter lets events run.
    kestrel::test::RecordingView view;
    ProgressMeter meter(&view);
    view.onEvents = [&] { meter.cancel(); };
    Snapshot s;
    s.header.fileName = path(QStringLiteral("c.#01"));
    const LoadOutcome r = LoadSnapshot(s, meter);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.cancelled);
    EXPECT_FALSE(r.message);
    EXPECT_EQ(s.entryCount, 10); // the meter is first updated at the tenth folder
    EXPECT_EQ(view.closed, 1);
}

// What a failed save left: the message and the folder's contents, one per line.
QByteArray describeSave(const Outcome& r, const QString& folder, const QString& file,
                        const QByteArray& previous) {
    QFile f(file);
    const bool intact = f.open(QIODevice::ReadOnly) && f.readAll() == previous;
    return QByteArray(r.ok ? "ok" : "failed") + '\n' +
           (r.message ? r.message->title.toUtf8() + '\n' + r.message->text.toUtf8()
                      : QByteArray("\n")) +
           '\n' + (intact ? "intact" : "damaged") + '\n' +
           QDir(folder).entryList(QDir::Files | QDir::Hidden).join(QLatin1Char(',')).toUtf8();
}

// A full disk at any point of the save, the last bytes included: the save
// fails with the system's reason and the path, and the previous file stays.
TEST_F(SnapshotFileTest, FailedWriteKeepsThePreviousFile) {
    for (const int32_t n : {3, 3000}) {
        Snapshot s;
        fill(s, n);
        kestrel::test::expectFullDiskKeepsOldFile(
            path(QStringLiteral("Data.#01")), exampleFile(16), [&] {
                const Outcome r = save(s, path(QStringLiteral("Data.#01")));
                if (!r.ok) {
                    EXPECT_EQ(r.message.value_or(UserMessage{}).title,
                              QStringLiteral("Invalid Snapshot File"));
                }
                return r;
            });
    }
}

// Runs scenario in a child process with a file system of its own mounted on
// folder: a tmpfs of the given size, read-only when asked, seen by nobody
// else and gone with the child. The scenario's result travels back through
// a pipe. False when this machine does not let the test mount one; a child
// that fails otherwise fails the test.
bool inOwnFileSystem(const QString& folder, const char* options, bool readOnly,
                     const std::function<void()>& prepare,
                     const std::function<QByteArray()>& scenario, QByteArray& result) {
    int channel[2];
    if (::pipe(channel) != 0)
        return false;
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0) {
        ::close(channel[0]);
        const QByteArray where = QFile::encodeName(folder);
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", where.constData(), "tmpfs", 0, options) != 0)
            ::_exit(3);
        prepare();
        if (readOnly &&
            ::mount("tmpfs", where.constData(), nullptr, MS_REMOUNT | MS_RDONLY, options) != 0)
            ::_exit(3);
        const QByteArray answer = scenario();
        const bool written =
            ::write(channel[1], answer.constData(), size_t(answer.size())) == answer.size();
        ::_exit(written ? 0 : 1);
    }
    ::close(channel[1]);
    char buffer[4096];
    ssize_t n;
    result.clear();
    while ((n = ::read(channel[0], buffer, sizeof buffer)) > 0)
        result.append(buffer, n);
    ::close(channel[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    const bool mounted = !(WIFEXITED(status) && WEXITSTATUS(status) == 3);
    EXPECT_TRUE(!mounted || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << "the child failed";
    return mounted;
}

TEST_F(SnapshotFileTest, FullDiskKeepsThePreviousFile) {
    const QString folder = path(QStringLiteral("small-disk"));
    ASSERT_TRUE(QDir().mkdir(folder));
    const QString file = folder + QStringLiteral("/Data.#01");
    QByteArray result;
    const bool ran = inOwnFileSystem(
        folder, "size=256k", false,
        [&] {
            write(file, exampleFile(16));
            // Fill the disk but for a few kilobytes.
            QFile filler(folder + QStringLiteral("/filler"));
            if (filler.open(QIODevice::WriteOnly))
                while (filler.write(QByteArray(4096, 'x')) == 4096 && filler.flush()) {
                }
            filler.resize(filler.size() - 8192);
        },
        [&] {
            Snapshot s;
            fill(s, 20000);
            return describeSave(save(s, file), folder, file, exampleFile(16));
        },
        result);
    if (!ran)
        GTEST_SKIP() << "cannot mount a small file system here";
    EXPECT_EQ(result, QByteArray("failed\nInvalid Snapshot File\n") + QFile::encodeName(file) +
                          ": " + std::strerror(ENOSPC) + "\nintact\nData.#01,filler");
}

// A read-only file system, or where none can be mounted a folder the user
// may not write to: neither the file nor a new one beside it can be saved.
TEST_F(SnapshotFileTest, ReadOnlyFolderKeepsThePreviousFile) {
    const QString folder = path(QStringLiteral("read-only"));
    ASSERT_TRUE(QDir().mkdir(folder));
    const QString file = folder + QStringLiteral("/Data.#01");
    const auto scenario = [&] {
        Snapshot s;
        fill(s, 10);
        return describeSave(save(s, file), folder, file, exampleFile(16)) + '\n' +
               describeSave(save(s, folder + QStringLiteral("/New.#02")), folder, file,
                            exampleFile(16));
    };
    QByteArray result;
    const bool mounted = inOwnFileSystem(
        folder, "size=256k", true, [&] { write(file, exampleFile(16)); }, scenario, result);
    if (!mounted) {
        if (kestrel::test::runningAsRoot())
            GTEST_SKIP() << "cannot mount a read-only file system, and root writes anywhere";
        write(file, exampleFile(16));
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        result = scenario();
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    const QList<QByteArray> lines = result.split('\n');
    ASSERT_EQ(lines.size(), 10) << result.data();
    for (const int at : {0, 5}) {
        EXPECT_EQ(lines[at], "failed");
        EXPECT_EQ(lines[at + 1], "Error Writing Snapshot");
        EXPECT_FALSE(lines[at + 2].isEmpty());
        EXPECT_EQ(lines[at + 3], "intact");
        EXPECT_EQ(lines[at + 4], "Data.#01");
    }
    // The system's words, with the path that could not be written.
    const char* const reason = std::strerror(mounted ? EROFS : EACCES);
    EXPECT_EQ(lines[2], QFile::encodeName(file) + ": " + reason);
    EXPECT_EQ(lines[7], QFile::encodeName(folder) + "/New.#02: " + reason);
}

// Saves a snapshot made by make to file in a child process killed at the
// first meter update, once a block of entry lines has gone to the disk;
// true when it was killed there.
bool killedMidSave(const QString& file, const std::function<void(Snapshot&)>& make) {
    int channel[2];
    if (::pipe(channel) != 0)
        return false;
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0) {
        ::close(channel[0]);
        kestrel::test::RecordingView view;
        view.onValue = [&](int32_t) {
            [[maybe_unused]] const auto n = ::write(channel[1], "w", 1);
            for (;;)
                ::pause();
        };
        ProgressMeter meter(&view);
        Snapshot s;
        make(s);
        s.header.fileName = file;
        SaveSnapshot(s, meter);
        ::_exit(0);
    }
    ::close(channel[1]);
    char signal = 0;
    const bool midWrite = ::read(channel[0], &signal, 1) == 1;
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(channel[0]);
    return midWrite && WIFSIGNALED(status);
}

TEST_F(SnapshotFileTest, KillDuringTheSaveKeepsThePreviousFile) {
    const QString file = path(QStringLiteral("Data.#01"));
    write(file, exampleFile(16));
    ASSERT_TRUE(killedMidSave(file, [](Snapshot& s) { fill(s, 100000); }));
    EXPECT_EQ(readBytes(file), exampleFile(16));
    // The half-written file lies beside it under another name, never in its place.
    for (const QString& name : QDir(dir.path()).entryList(QDir::Files | QDir::Hidden)) {
        if (name == QLatin1String("Data.#01"))
            continue;
        EXPECT_TRUE(name.startsWith(QLatin1String(".Data.#01.kestrel-"))) << name.toStdString();
        EXPECT_GT(QFileInfo(dir.filePath(name)).size(), 32768 * 10);
    }
    Snapshot s;
    EXPECT_TRUE(load(s, file).ok);
}

// A snapshot with its own ignore patterns, as a scan of a root with a
// .kestrelignore makes it.
void fillWithPatterns(Snapshot& s, int32_t n, const std::string& patterns, double created) {
    fill(s, n);
    s.header.rootFolder = QStringLiteral("/data/");
    s.header.created = created;
    s.header.ownIgnorePatterns = patterns;
}

std::string patternsOpened(const QString& file) {
    Snapshot s;
    ProgressMeter meter;
    EXPECT_TRUE(OpenSnapshotFile(s, file, meter).ok);
    return s.header.ownIgnorePatterns;
}

TEST_F(SnapshotFileTest, OwnIgnorePatternsTravelInTheSideFileThroughSaveAs) {
    const QString first = path(QStringLiteral("Data.#01"));
    const QString copy = path(QStringLiteral("Copy.#01"));
    Snapshot s;
    fillWithPatterns(s, 10, "*.tmp\n/cache/\n", 45000.5);
    ASSERT_TRUE(save(s, first).ok);
    EXPECT_TRUE(QFileInfo::exists(first + QStringLiteral(".ignore")));
    EXPECT_EQ(patternsOpened(first), "*.tmp\n/cache/\n");

    // Save As of the opened snapshot takes its patterns along.
    Snapshot opened;
    ProgressMeter meter;
    ASSERT_TRUE(OpenSnapshotFile(opened, first, meter).ok);
    ASSERT_TRUE(save(opened, copy).ok);
    EXPECT_EQ(patternsOpened(copy), "*.tmp\n/cache/\n");

    // Another snapshot without patterns saved over it takes the side file
    // away; a side file left by a program that knows none is not read.
    const QByteArray side = readBytes(first + QStringLiteral(".ignore"));
    Snapshot plain;
    fillWithPatterns(plain, 3, "", 45001.5);
    ASSERT_TRUE(save(plain, first).ok);
    EXPECT_FALSE(QFileInfo::exists(first + QStringLiteral(".ignore")));
    write(first + QStringLiteral(".ignore"), side);
    EXPECT_EQ(patternsOpened(first), "");
    // Nor is a link in its place.
    ASSERT_TRUE(
        QFile::link(copy + QStringLiteral(".ignore"), path(QStringLiteral("Other.#01.ignore"))));
    ASSERT_TRUE(QFile::copy(copy, path(QStringLiteral("Other.#01"))));
    EXPECT_EQ(patternsOpened(path(QStringLiteral("Other.#01"))), "");
}

TEST_F(SnapshotFileTest, KillDuringTheSaveKeepsThePreviousSideFile) {
    const QString file = path(QStringLiteral("Data.#01"));
    Snapshot old;
    fillWithPatterns(old, 10, "old\n", 45000.5);
    ASSERT_TRUE(save(old, file).ok);
    const QByteArray oldFile = readBytes(file);
    const QByteArray oldSide = readBytes(file + QStringLiteral(".ignore"));
    ASSERT_TRUE(
        killedMidSave(file, [](Snapshot& s) { fillWithPatterns(s, 100000, "new\n", 45001.5); }));
    EXPECT_EQ(readBytes(file), oldFile);
    EXPECT_EQ(readBytes(file + QStringLiteral(".ignore")), oldSide);
    EXPECT_EQ(patternsOpened(file), "old\n");
}

TEST_F(SnapshotFileTest, SaveBehindTheScanWritesTheSideFile) {
    kestrel::test::TempTree tree;
    tree.file(QStringLiteral("a.txt"));
    tree.file(QStringLiteral(".kestrelignore"), "*.log\n");
    Snapshot s;
    s.header.rootFolder = tree.root();
    s.header.recurse = s.header.hidden = true;
    s.header.fileName = path(QStringLiteral("Tree.#01"));
    ProgressMeter meter;
    const ScanAndSaveOutcome done = ScanAndSaveSnapshot(s, {}, meter);
    ASSERT_TRUE(done.scan.ok && done.save.ok);
    EXPECT_TRUE(done.savedBehind);
    EXPECT_EQ(patternsOpened(s.header.fileName), "*.log\n");
}

TEST_F(SnapshotFileTest, FileFormValuesSurviveBitForBit) {
    const double values[] = {
        roundTo15Digits(oleDateFromParts(2023, 6, 15, 13, 47, 29)),
        roundTo15Digits(oleDateFromParts(1899, 12, 29, 6, 0, 1)), // before 1899-12-30
        roundTo15Digits(1.0 / 3),
        roundTo15Digits(123456789012345678.0),
        36954.4270833333,
        2147483647,
        -2147483648.0,
        0.1};
    const int32_t n = int32_t(std::size(values));
    Snapshot s;
    for (int32_t i = 1; i <= n; ++i)
        s.createEntry(32, values[i - 1], i == n ? 1 : i + 1, "f", 0, values[n - i], "");
    s.mutableEntry(0).count = n;
    s.header.created = oleDateFromParts(2024, 2, 29, 23, 59, 59);
    ASSERT_TRUE(save(s, path(QStringLiteral("v.#01"))).ok);

    Snapshot back;
    ASSERT_TRUE(load(back, path(QStringLiteral("v.#01"))).ok);
    EXPECT_EQ(back.header.created, s.header.created);
    for (int32_t i = 1; i <= n; ++i) {
        EXPECT_EQ(back.entry(i).modified, values[i - 1]) << i;
        EXPECT_EQ(back.entry(i).size, values[n - i]) << i;
    }
}

// The writer's own digit making against the standard library's, for
// integers of every length and sign and for dates of every fraction.
TEST(ItemWriterNumbers, AsTheStandardLibraryWritesThem) {
    const auto standard = [](auto value, auto... format) {
        char buffer[32];
        const auto r = std::to_chars(buffer, buffer + sizeof buffer, value, format...);
        return std::string(buffer, r.ptr);
    };
    const auto written = [](auto write) {
        ItemWriter w;
        write(w);
        return std::string(w.data(), w.size());
    };
    std::vector<int64_t> integers = {
        0, INT64_MIN, INT64_MAX, INT32_MIN, INT32_MAX, UINT32_MAX, int64_t(UINT32_MAX) + 1};
    for (int64_t power = 1; power <= INT64_MAX / 10; power *= 10)
        for (const int64_t near : {power - 1, power, power + 1, 2 * power - 1, 9 * power})
            for (const int64_t sign : {1, -1})
                integers.push_back(sign * near);
    uint64_t seed = 7;
    for (int i = 0; i < 20000; ++i) {
        seed = seed * 6364136223846793005u + 1442695040888963407u;
        integers.push_back(int64_t(seed) >> (seed % 64));
    }
    for (const int64_t v : integers) {
        ASSERT_EQ(written([v](ItemWriter& w) { w.integer(v); }), standard(v)) << v;
        if (v > -9007199254740992 && v < 9007199254740992) {
            ASSERT_EQ(written([v](ItemWriter& w) { w.number(double(v)); }), standard(v)) << v;
        }
    }
    // Whole seconds of days over the years, and fractions with trailing
    // zeros dropped or none to drop.
    std::vector<double> dates = {36954.5, 36954.4270833333, 45000.0000000001, 99998.9999999999,
                                 10000.0000000005};
    for (int i = 0; i < 20000; ++i) {
        seed = seed * 6364136223846793005u + 1442695040888963407u;
        dates.push_back(10000 + double(seed % 89000) + double(seed >> 47) / 86400.0);
        dates.push_back(10000 + double(seed >> 11) * 0x1p-53 * 89998);
    }
    for (const double d : dates)
        ASSERT_EQ(written([d](ItemWriter& w) { w.number(d); }),
                  standard(d, std::chars_format::general, 15))
            << std::hexfloat << d;
}

// The quick reading of a whole entry line gives what reading its items one
// by one gives, or declines and leaves the line as it was: over lines as
// Kestrel writes them, at the edges of each field's range, and over lines
// only an older or damaged file has.
TEST(ItemReaderLines, QuickReadingAgreesWithItemByItem) {
    struct Read {
        bool ok = false;
        ErrorCode error = ErrorCode::None;
        int16_t attributes = 0;
        double modified = 0;
        int32_t nextSibling = 0, count = 0, parent = 0;
        double size = 0;
        std::string name, version;
        bool operator==(const Read&) const = default;
    };
    // An item reader over text in memory.
    struct Source {
        explicit Source(const QByteArray& text) : reader(buffer) {
            buffer.setData(text);
            buffer.open(QIODevice::ReadOnly);
        }
        QBuffer buffer;
        ItemReader reader;
        std::string scratch;
    };
    const auto byItems = [](const QByteArray& text) {
        Source in(text);
        ItemReader& r = in.reader;
        Read got;
        try {
            got.attributes = ItemReader::toInt16(r.next());
            got.modified = ItemReader::toDouble(r.next());
            got.nextSibling = ItemReader::toInt32(r.next());
            got.count = ItemReader::toInt32(r.next());
            got.name = ItemReader::toText(r.next(), in.scratch);
            got.parent = ItemReader::toInt32(r.next());
            got.size = ItemReader::toDouble(r.next());
            got.version = ItemReader::toText(r.next(), in.scratch);
            got.ok = true;
        } catch (const RuntimeError& e) {
            got = Read{};
            got.error = e.code();
        }
        return got;
    };
    const QByteArray plain[] = {
        "32,36954.4270833333,2,0,\"a.txt\",1,1234,\"\"\r\n",
        "16,45000,0,12,\"\",0,0,\"1.2.3.4\"\n",
        "-32768,10000.0000000001,2147483647,-2147483648,\"x\",-1,999999999999999,\"v\"\r\n",
        "32767,99998.9999999999,-1,0,\"line\r\nbreak\",2,0.5,\"\"\r\n",
        "1,2,3,4,\"caf\xc3\xa9 \xe9\",5,6,\"\"\r\n",    // UTF-8 and Windows-1252 bytes
        "128,-1.5,12345678901,0,\"n\",1,1,\"\"\r\n",    // an int32 too long
        "32768,1,0,0,\"n\",1,1,\"\"\r\n",               // past int16
        "1, 2,3,4,\"n\",5,6,\"\"\r\n",                  // a blank before an item
        "1,2,3,4,\"say \"\"hi\"\"\",5,6,\"\"\r\n",      // a doubled quote
        "1,2,3,4,\"n\"tail,5,6,\"\"\r\n",               // text after a quote
        "1,2,3,4,\"n\",5,6,\"\"\r",                     // an old line end
        "1,2,3,4,\"n\",5,6,\"\",\"extra\"\r\n",         // a ninth item
        "1,#2001-02-03#,3,4,\"n\",5,6,\"\"\r\n",        // a date as text
        "1,.5,3,4,\"n\",5,+6,\"\"\r\n",                 // numbers of the old program
        "1,2,3,4\r\n\"n\",5,6,\"\"\r\n",                // a line end for a comma
        "1,2,3,4,n,5,6,\"\"\r\n",                       // the name unquoted
        "1,2,,4,\"n\",5,6,\"\"\r\n",                    // an empty number
        "1,2.5,3,4,\"n\",5,12345678901234567,\"\"\r\n", // more digits than a double keeps
        "1,2,3,4,\"n\",5,6,\"\"",                       // the file ends without a line end
    };
    int taken = 0;
    for (const QByteArray& text : plain) {
        SCOPED_TRACE(text.toStdString());
        Source in(text);
        in.reader.atEnd(); // fills the buffer, as the loader's loop does
        EntryLineItems line;
        if (!in.reader.plainEntryLine(line)) {
            // Declined with nothing read: the first item is still there.
            EXPECT_EQ(in.reader.next().text, Source(text).reader.next().text);
            continue;
        }
        ++taken;
        Read quick;
        quick.ok = true;
        quick.attributes = line.attributes;
        quick.modified = line.modified;
        quick.nextSibling = line.nextSibling;
        quick.count = line.count;
        quick.name = ItemReader::toText(line.name, in.scratch);
        quick.parent = line.parent;
        quick.size = line.size;
        quick.version = ItemReader::toText(line.version, in.scratch);
        EXPECT_EQ(quick, byItems(text));
    }
    // The first five, lines as Kestrel writes them, are taken quickly.
    EXPECT_EQ(taken, 5);
}

// One past the highest number, whatever lies below it; anything with the
// name counts, a dangling link too; the 99th stays the last.
TEST_F(SnapshotFileTest, NextSnapshotName) {
    const QString folder = dir.path() + QLatin1Char('/');
    auto touch = [&](const QString& name) { write(folder + name, "x"); };

    EXPECT_EQ(NextSnapshotName(QStringLiteral("Data"), folder), QStringLiteral("Data.#01"));
    for (const char* name : {"Data.#02", "Data.#04", "data.#09", "Data.#7", "Other.#30"})
        touch(QString::fromLatin1(name));
    EXPECT_EQ(NextSnapshotName(QStringLiteral("Data"), folder), QStringLiteral("Data.#05"));
    ASSERT_EQ(::symlink("/nowhere/victim", QFile::encodeName(folder + QStringLiteral("Data.#05"))),
              0);
    ASSERT_TRUE(QDir().mkdir(folder + QStringLiteral("Data.#06")));
    EXPECT_EQ(NextSnapshotName(QStringLiteral("Data"), folder), QStringLiteral("Data.#07"));
    touch(QStringLiteral("Data.#98"));
    EXPECT_EQ(NextSnapshotName(QStringLiteral("Data"), folder), QStringLiteral("Data.#99"));
    touch(QStringLiteral("Data.#99"));
    EXPECT_EQ(NextSnapshotName(QStringLiteral("Data"), folder), QStringLiteral("Data.#99"));
    EXPECT_TRUE(nameTaken(folder + QStringLiteral("Data.#99")));

    EXPECT_EQ(NextSnapshotName(QStringLiteral("c:"), folder), QStringLiteral("C_DRIVE.#01"));
    touch(QStringLiteral("X_DRIVE.#01"));
    EXPECT_EQ(NextSnapshotName(QStringLiteral("x:"), folder), QStringLiteral("X_DRIVE.#02"));
}

TEST(SnapshotNames, BaseNameAndNumber) {
    const std::pair<const char*, const char*> bases[] = {
        {"/", "ROOT"},
        {"/a/b/", "b"},
        {"/a/b", "b"},
        {"C:\\", "C:"},
        {"C:\\Data\\", "Data"},
        // A POSIX name keeps its escaped bytes and backslashes, so two folders
        // never share one series.
        {"/tmp/r\\xE9root/", "r\\xE9root"},
        {"/tmp/q\\xE9root/", "q\\xE9root"},
        {"/tmp/bs\\\\dir/", "bs\\\\dir"}};
    for (auto [root, base] : bases)
        EXPECT_EQ(SnapshotBaseName(QString::fromLatin1(root)), QString::fromLatin1(base)) << root;

    const std::pair<const char*, int> numbers[] = {
        {"/s/Data.#03", 3}, {"Data.#99", 99}, {".#10", 10}, {"xx", 0}, {"Data.#x1", 0}};
    for (auto [name, number] : numbers)
        EXPECT_EQ(SnapshotNumberFromName(QString::fromLatin1(name)), number) << name;
}

} // namespace
