#include "engine/file/SnapshotFile.h"
#include "TestSupport.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotItems.h"
#include "engine/support/OleDate.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <charconv>
#include <climits>
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

const QByteArray EmptyRecord = "0,0,0,0,\"\",0,0,\"\"\r\n";

const QByteArray PlainHeader =
    "Title\r\n\"/data/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,16\r\n";

// A snapshot of n files in the root, with its own ignore patterns when given,
// as a scan of a root with a .kestrelignore makes it.
void fill(Snapshot& s, int32_t n, const std::string& patterns = {}, double created = 45000.5) {
    for (int32_t i = 1; i <= n; ++i)
        s.createEntry(32, 36950.5, i == n ? 1 : i + 1, "file" + std::to_string(i), 0, i, "");
    s.mutableEntry(0).count = n;
    s.header.rootFolder = u"/data/"_s;
    s.header.created = created;
    s.header.ownIgnorePatterns = patterns;
}

class SnapshotFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;

    QString path(const QString& name) const { return dir.filePath(name); }

    // Loads bytes written to a file of their own.
    LoadOutcome loadBytes(Snapshot& s, const QByteArray& bytes) {
        EXPECT_TRUE(writeBytes(path(u"in.#01"_s), bytes));
        return loadSnapshotFrom(s, path(u"in.#01"_s));
    }
    // The bytes of s saved as out.#01.
    QByteArray saved(Snapshot& s) {
        EXPECT_TRUE(saveSnapshotAs(s, path(u"out.#01"_s)).ok);
        return readBytes(path(u"out.#01"_s));
    }
    static std::string patternsOpened(const QString& file) {
        Snapshot s;
        ProgressMeter meter;
        EXPECT_TRUE(OpenSnapshotFile(s, file, meter).ok);
        return s.header.ownIgnorePatterns;
    }
};

// Saved, the capacity item is the next multiple of 16 above the count, the
// records padded up to it. Loaded, one up to 16 above the lines stands; one
// far above them is fitted to them and told.
TEST_F(SnapshotFileTest, CapacityItem) {
    for (int32_t n : {0, 15, 16, 32}) {
        Snapshot s;
        fill(s, n);
        const QList<QByteArray> lines = saved(s).split('\n');
        ASSERT_EQ(lines.size(), n + 3) << n; // title, header, entries, nothing after the last CR LF
        const int expected = n + 16 - n % 16;
        EXPECT_TRUE(lines[1].endsWith("," + QByteArray::number(expected) + "\r"))
            << lines[1].data();
        Snapshot back;
        ASSERT_TRUE(loadSnapshotFrom(back, path(u"out.#01"_s)).ok) << n;
        EXPECT_EQ(back.entryCount, n);
        EXPECT_EQ(back.entry(0).count, expected);
    }
    // The example as the Windows program wrote it.
    for (int capacity : {4, 16, 19}) {
        Snapshot s;
        const LoadOutcome r = loadBytes(s, exampleSnapshotFile(capacity));
        ASSERT_TRUE(r.ok && !r.message) << capacity;
        EXPECT_EQ(s.capacity(), capacity + 1); // indices 0..capacity + 1
        EXPECT_EQ(std::tuple(s.header.title, s.header.rootFolder, s.header.created),
                  std::tuple(u"Original Snapshot of C:\\Data\\"_s, u"C:\\Data\\"_s,
                             oleDateFromParts(2001, 3, 4, 10, 15, 0)));
        EXPECT_TRUE(s.header.recurse && !s.header.hidden && !s.header.versions);
        EXPECT_EQ(countsOf(s), std::tuple(3, 2, 1, 1333.0));
        EXPECT_EQ(fieldsOf(s, 1), EntryFields(16, 36954.4270833333, 3, 1, "Reports", 0, 0, ""));
    }

    // A hundred-odd bytes that claim two thousand million entries: loaded
    // with the capacity a save of its three lines writes, told once, and
    // saved with no more padding than that.
    const std::pair<int, const char*> damaged[] = {
        {20, "1"}, {2000000000, "1,999,999,981"}, {INT32_MAX, "2,147,483,628"}};
    for (const auto& [capacity, missing] : damaged) {
        Snapshot s;
        const LoadOutcome r = loadBytes(s, exampleSnapshotFile(capacity));
        ASSERT_TRUE(r.ok) << capacity;
        expectMessage(r.message, u"Incomplete Snapshot"_s,
                      u"The file ends before its last %1 entries"_s.arg(QLatin1String(missing)),
                      MessageIcon::Information);
        EXPECT_EQ(s.capacity(), 17);
        EXPECT_LT(s.memoryUsed(), size_t(4) << 20);
        EXPECT_EQ(saved(s), exampleSnapshotFile(32) + EmptyRecord.repeated(13));
    }

    // A file cut short after 50 of its 100 entries.
    Snapshot whole, cut;
    fill(whole, 100);
    const LoadOutcome r = loadBytes(cut, saved(whole).split('\n').mid(0, 52).join('\n') + '\n');
    ASSERT_TRUE(r.ok && r.message);
    EXPECT_EQ(r.message->text, u"The file ends before its last 46 entries"_s);
    EXPECT_EQ(cut.entryCount, 50);
    EXPECT_EQ(cut.entry(0).count, 64);
}

TEST_F(SnapshotFileTest, BadDataFails) {
    const QByteArray capacityOne =
        "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,1\r\n";
    const QByteArray entry = "32,1,1,0,\"a\",0,0,\"\"\r\n";
    // What, the file, the error and the message (none: fails silently).
    const std::tuple<const char*, QByteArray, ErrorCode, const char*> cases[] = {
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
    for (const auto& [what, file, error, message] : cases) {
        SCOPED_TRACE(what);
        Snapshot s;
        const LoadOutcome r = loadBytes(s, file);
        EXPECT_EQ(r.ok, error == ErrorCode::None);
        EXPECT_EQ(r.error, error);
        if (message) {
            expectMessage(r.message, u"Invalid Snapshot"_s, QString::fromLatin1(message),
                          MessageIcon::Exclamation);
        } else {
            EXPECT_FALSE(r.message);
        }
    }

    // A file that cannot be opened fails quietly; a folder or a pipe is no
    // file to read (the pipe would keep the load waiting for a writer).
    ASSERT_EQ(::mkfifo(QFile::encodeName(path(u"pipe.#01"_s)).constData(), 0600), 0);
    for (const char* name : {"absent.#01", "pipe.#01", "."}) {
        Snapshot s;
        const LoadOutcome r = loadSnapshotFrom(s, path(QLatin1String(name)));
        EXPECT_FALSE(r.ok || r.message || r.headerRead) << name;
    }
}

// Text with quotes, commas, line breaks and bytes that are not UTF-8, and
// dates and sizes in file form, come back bit for bit.
TEST_F(SnapshotFileTest, AwkwardTextAndValuesRoundTrip) {
    const char* names[] = {
        "a,b.txt",     "say \"hi\".txt", "\"",         "\"\"",   "Grüße ä€ 日本.txt",
        "line\nbreak", "cr\r\nlf",       "  padded  ", "#TRUE#", "ends with comma,",
        "caf\\xE9",    "a\\\\b", // names as stored: a byte not UTF-8, a backslash
    };
    const double values[] = {
        roundTo15Digits(oleDateFromParts(2023, 6, 15, 13, 47, 29)),
        roundTo15Digits(oleDateFromParts(1899, 12, 29, 6, 0, 1)), // before 1899-12-30
        roundTo15Digits(1.0 / 3),
        roundTo15Digits(123456789012345678.0),
        36954.4270833333,
        2147483647,
        -2147483648.0,
        0.1};
    const auto value = [&](int32_t i) { return values[size_t(i) % std::size(values)]; };
    Snapshot s;
    s.header.title = u"Snap, \"quoted\", end,"_s;
    s.header.rootFolder = u"/data/\"q\",x/"_s;
    s.header.created = oleDateFromParts(2024, 2, 29, 23, 59, 59);
    const int32_t n = int32_t(std::size(names));
    for (int32_t i = 1; i <= n; ++i)
        s.createEntry(32, value(i), i == n ? 1 : i + 1, names[i - 1], 0, value(n - i),
                      i == 2 ? "1.0 \"b\"" : "");
    s.mutableEntry(0).count = n;
    EXPECT_TRUE(saved(s).contains(",\"say \"\"hi\"\".txt\","));

    Snapshot back;
    ASSERT_TRUE(loadSnapshotFrom(back, path(u"out.#01"_s)).ok);
    EXPECT_EQ(std::tuple(back.header.title, back.header.rootFolder, back.header.created),
              std::tuple(s.header.title, s.header.rootFolder, s.header.created));
    ASSERT_EQ(back.entryCount, n);
    for (int32_t i = 1; i <= n; ++i)
        EXPECT_EQ(fieldsOf(back, i), fieldsOf(s, i)) << i;
}

TEST_F(SnapshotFileTest, ReadsOldFilesLeniently) {
    // Windows-1252 text, unquoted items, booleans written as words and numbers without
    // the zero before the point.
    const QByteArray file = "Gr\xE4n \x80 Title\r\n"
                            "/old/D\xE4ten/,2001-03-04 10:15:00,True,False,#TRUE#,16\r\n"
                            "32,.5,2,0,\xE4\x80.txt,0,-.5,\r\n"
                            "  32 , 36950.5 ,1,0, \"b, c\" ,0,+99,1.00.0000\r\n";
    Snapshot s;
    ASSERT_TRUE(loadBytes(s, file).ok);
    EXPECT_EQ(s.header.title, u"Grän € Title"_s);
    EXPECT_EQ(s.header.rootFolder, u"/old/Däten/"_s);
    EXPECT_EQ(s.header.created, oleDateFromParts(2001, 3, 4, 10, 15, 0));
    EXPECT_TRUE(s.header.recurse && !s.header.hidden && s.header.versions);
    ASSERT_EQ(s.entryCount, 2);
    EXPECT_EQ(fieldsOf(s, 1), EntryFields(32, 0.5, 2, 0, "ä€.txt", 0, -0.5, ""));
    EXPECT_EQ(fieldsOf(s, 2), EntryFields(32, 36950.5, 1, 0, "b, c", 0, 99, "1.00.0000"));
}

TEST_F(SnapshotFileTest, Cancel) {
    QByteArray file = "T\r\n\"/d/\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#,32\r\n";
    for (int i = 1; i <= 25; ++i)
        file += "16,1," + QByteArray::number(i == 25 ? 1 : i + 1) + ",0,\"d\",0,0,\"\"\r\n";
    // Cancel is asked for whenever the meter lets events run.
    RecordingView view;
    ProgressMeter meter(&view);
    view.onEvents = [&] { meter.cancel(); };
    Snapshot s;
    ASSERT_TRUE(writeBytes(path(u"c.#01"_s), file));
    s.header.fileName = path(u"c.#01"_s);
    const LoadOutcome r = LoadSnapshot(s, meter);
    EXPECT_TRUE(!r.ok && r.cancelled && !r.message);
    EXPECT_EQ(s.entryCount, 10); // the meter is first updated at the tenth folder
    EXPECT_EQ(view.closed, 1);
}

// A full disk at any point of the save, the last bytes included: the save
// fails with the system's reason and the path, and the previous file stays.
TEST_F(SnapshotFileTest, FailedWriteKeepsThePreviousFile) {
    for (const int32_t n : {3, 3000}) {
        Snapshot s;
        fill(s, n);
        expectFullDiskKeepsOldFile(path(u"Data.#01"_s), exampleSnapshotFile(16), [&] {
            const Outcome r = saveSnapshotAs(s, path(u"Data.#01"_s));
            if (!r.ok) {
                EXPECT_EQ(r.message.value_or(UserMessage{}).title, u"Invalid Snapshot File"_s);
            }
            return r;
        });
    }
}

// Saves a snapshot made by make to file in a child process killed at the
// first meter update, once a block of entry lines has gone to the disk;
// true when it was killed there.
bool killedMidSave(const QString& file, const std::function<void(Snapshot&)>& make) {
    const pid_t child = ::fork();
    if (child == 0) {
        RecordingView view;
        view.onValue = [](int32_t) { ::raise(SIGKILL); };
        ProgressMeter meter(&view);
        Snapshot s;
        make(s);
        s.header.fileName = file;
        SaveSnapshot(s, meter);
        ::_exit(0);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGKILL;
}

// Killed in the middle of a save, the previous file and its side file stay.
TEST_F(SnapshotFileTest, KillDuringTheSaveKeepsThePreviousFiles) {
    const QString file = path(u"Data.#01"_s);
    Snapshot old;
    fill(old, 10, "old\n", 45000.5);
    ASSERT_TRUE(saveSnapshotAs(old, file).ok);
    const QByteArray oldFile = readBytes(file);
    const QByteArray oldSide = readBytes(file + u".ignore"_s);
    ASSERT_TRUE(killedMidSave(file, [](Snapshot& s) { fill(s, 100000, "new\n", 45001.5); }));
    EXPECT_EQ(readBytes(file), oldFile);
    EXPECT_EQ(readBytes(file + u".ignore"_s), oldSide);
    EXPECT_EQ(patternsOpened(file), "old\n");
    // The half-written file lies beside it under another name, never in its place.
    for (const QString& name : folderEntries(dir.path())) {
        if (name.startsWith(u"Data.#01"_s))
            continue;
        EXPECT_TRUE(name.startsWith(u".Data.#01.kestrel-"_s)) << name.toStdString();
        EXPECT_GT(QFileInfo(dir.filePath(name)).size(), 32768 * 10);
    }
}

TEST_F(SnapshotFileTest, OwnIgnorePatternsTravelInTheSideFileThroughSaveAs) {
    const QString first = path(u"Data.#01"_s);
    const QString copy = path(u"Copy.#01"_s);
    Snapshot s;
    fill(s, 10, "*.tmp\n/cache/\n", 45000.5);
    ASSERT_TRUE(saveSnapshotAs(s, first).ok);
    EXPECT_EQ(patternsOpened(first), "*.tmp\n/cache/\n");

    // Save As of the opened snapshot takes its patterns along.
    Snapshot opened;
    ProgressMeter meter;
    ASSERT_TRUE(OpenSnapshotFile(opened, first, meter).ok);
    ASSERT_TRUE(saveSnapshotAs(opened, copy).ok);
    EXPECT_EQ(patternsOpened(copy), "*.tmp\n/cache/\n");

    // Another snapshot without patterns saved over it takes the side file
    // away; a side file left by a program that knows none is not read.
    const QByteArray side = readBytes(first + u".ignore"_s);
    Snapshot plain;
    fill(plain, 3, "", 45001.5);
    ASSERT_TRUE(saveSnapshotAs(plain, first).ok);
    EXPECT_FALSE(QFileInfo::exists(first + u".ignore"_s));
    ASSERT_TRUE(writeBytes(first + u".ignore"_s, side));
    EXPECT_EQ(patternsOpened(first), "");
    // Nor is a link in its place.
    ASSERT_TRUE(QFile::link(copy + u".ignore"_s, path(u"Other.#01.ignore"_s)));
    ASSERT_TRUE(QFile::copy(copy, path(u"Other.#01"_s)));
    EXPECT_EQ(patternsOpened(path(u"Other.#01"_s)), "");
}

// The writer's own digit making against the standard library's, for
// integers of every length and sign and for dates of every fraction.
TEST(ItemWriterNumbers, AsTheStandardLibraryWritesThem) {
    const auto standard = [](auto value, auto... format) {
        char buffer[32];
        const auto r = std::to_chars(buffer, buffer + sizeof buffer, value, format...);
        return std::string(buffer, r.ptr);
    };
    const auto written = [](auto value, bool asInteger) {
        ItemWriter w;
        asInteger ? w.integer(int64_t(value)) : w.number(double(value));
        return std::string(w.data(), w.size());
    };
    uint64_t seed = 7;
    const auto random = [&seed] {
        return seed = seed * 6364136223846793005u + 1442695040888963407u;
    };
    std::vector<int64_t> integers = {
        0, INT64_MIN, INT64_MAX, INT32_MIN, INT32_MAX, UINT32_MAX, int64_t(UINT32_MAX) + 1};
    for (int64_t power = 1; power <= INT64_MAX / 10; power *= 10)
        for (const int64_t near : {power - 1, power, power + 1, 2 * power - 1, 9 * power})
            for (const int64_t sign : {1, -1})
                integers.push_back(sign * near);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t r = random();
        integers.push_back(int64_t(r) >> (r % 64));
    }
    for (const int64_t v : integers) {
        ASSERT_EQ(written(v, true), standard(v)) << v;
        if (v > -9007199254740992 && v < 9007199254740992) {
            ASSERT_EQ(written(v, false), standard(v)) << v;
        }
    }
    // Whole seconds of days over the years, and fractions with trailing
    // zeros dropped or none to drop.
    std::vector<double> dates = {36954.5, 36954.4270833333, 45000.0000000001, 99998.9999999999,
                                 10000.0000000005};
    for (int i = 0; i < 20000; ++i) {
        const uint64_t r = random();
        dates.push_back(10000 + double(r % 89000) + double(r >> 47) / 86400.0);
        dates.push_back(10000 + double(r >> 11) * 0x1p-53 * 89998);
    }
    for (const double d : dates)
        ASSERT_EQ(written(d, false), standard(d, std::chars_format::general, 15))
            << std::hexfloat << d;
}

// The quick reading of a whole entry line gives what reading its items one
// by one gives, or declines and leaves the line as it was: over lines as
// Kestrel writes them, at the edges of each field's range, and over lines
// only an older or damaged file has.
TEST(ItemReaderLines, QuickReadingAgreesWithItemByItem) {
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
    // The fields, each taken in turn (the braces keep the order).
    const auto byItems = [](const QByteArray& text) {
        Source in(text);
        ItemReader& r = in.reader;
        try {
            return std::pair(
                ErrorCode::None,
                EntryFields{ItemReader::toInt16(r.next()), ItemReader::toDouble(r.next()),
                            ItemReader::toInt32(r.next()), ItemReader::toInt32(r.next()),
                            std::string(ItemReader::toText(r.next(), in.scratch)),
                            ItemReader::toInt32(r.next()), ItemReader::toDouble(r.next()),
                            std::string(ItemReader::toText(r.next(), in.scratch))});
        } catch (const RuntimeError& e) {
            return std::pair(e.code(), EntryFields{});
        }
    };
    // The first five as Kestrel writes them (the fifth with UTF-8 and
    // Windows-1252 bytes); then an int32 too long, one past int16, a blank
    // before an item, a doubled quote, text after a quote, an old line end, a
    // ninth item, a date as text, numbers of the old program, a line end for
    // a comma, the name unquoted, an empty number, more digits than a double
    // keeps, and the file ending without a line end.
    int taken = 0;
    for (const QByteArray text :
         {"32,36954.4270833333,2,0,\"a.txt\",1,1234,\"\"\r\n",
          "16,45000,0,12,\"\",0,0,\"1.2.3.4\"\n",
          "-32768,10000.0000000001,2147483647,-2147483648,\"x\",-1,999999999999999,\"v\"\r\n",
          "32767,99998.9999999999,-1,0,\"line\r\nbreak\",2,0.5,\"\"\r\n",
          "1,2,3,4,\"caf\xc3\xa9 \xe9\",5,6,\"\"\r\n", "128,-1.5,12345678901,0,\"n\",1,1,\"\"\r\n",
          "32768,1,0,0,\"n\",1,1,\"\"\r\n", "1, 2,3,4,\"n\",5,6,\"\"\r\n",
          "1,2,3,4,\"say \"\"hi\"\"\",5,6,\"\"\r\n", "1,2,3,4,\"n\"tail,5,6,\"\"\r\n",
          "1,2,3,4,\"n\",5,6,\"\"\r", "1,2,3,4,\"n\",5,6,\"\",\"extra\"\r\n",
          "1,#2001-02-03#,3,4,\"n\",5,6,\"\"\r\n", "1,.5,3,4,\"n\",5,+6,\"\"\r\n",
          "1,2,3,4\r\n\"n\",5,6,\"\"\r\n", "1,2,3,4,n,5,6,\"\"\r\n", "1,2,,4,\"n\",5,6,\"\"\r\n",
          "1,2.5,3,4,\"n\",5,12345678901234567,\"\"\r\n", "1,2,3,4,\"n\",5,6,\"\""}) {
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
        EXPECT_EQ(
            std::pair(ErrorCode::None,
                      EntryFields{line.attributes, line.modified, line.nextSibling, line.count,
                                  std::string(ItemReader::toText(line.name, in.scratch)),
                                  line.parent, line.size,
                                  std::string(ItemReader::toText(line.version, in.scratch))}),
            byItems(text));
    }
    EXPECT_EQ(taken, 5);
}

// One past the highest number, whatever lies below it; anything with the
// name counts, a dangling link too; the 99th stays the last. (kestrel-cli's
// tests see a full series refused.)
TEST_F(SnapshotFileTest, SeriesNamesAndNumbers) {
    const QString folder = dir.path() + QLatin1Char('/');
    const auto touch = [&](const QString& name) { ASSERT_TRUE(writeBytes(folder + name, "x")); };
    const auto next = [&](const char* base) {
        return NextSnapshotName(QString::fromLatin1(base), folder);
    };
    EXPECT_EQ(next("Data"), u"Data.#01"_s);
    for (const char* name : {"Data.#02", "Data.#04", "data.#09", "Data.#7", "Other.#30"})
        touch(QString::fromLatin1(name));
    EXPECT_EQ(next("Data"), u"Data.#05"_s);
    ASSERT_EQ(::symlink("/nowhere/victim", QFile::encodeName(folder + u"Data.#05"_s)), 0);
    ASSERT_TRUE(QDir().mkdir(folder + u"Data.#06"_s));
    EXPECT_EQ(next("Data"), u"Data.#07"_s);
    touch(u"Data.#99"_s);
    EXPECT_EQ(next("Data"), u"Data.#99"_s);

    EXPECT_EQ(next("c:"), u"C_DRIVE.#01"_s);
    touch(u"X_DRIVE.#01"_s);
    EXPECT_EQ(next("x:"), u"X_DRIVE.#02"_s);

    // The base name of a root and the number of a file: each case is "root|base
    // name". A POSIX name keeps its escaped bytes and backslashes, so two
    // folders never share one series.
    for (const char* c : {"/|ROOT", "/a/b/|b", "/a/b|b", "C:\\|C:", "C:\\Data\\|Data",
                          "/tmp/r\\xE9root/|r\\xE9root", "/tmp/q\\xE9root/|q\\xE9root",
                          "/tmp/bs\\\\dir/|bs\\\\dir"}) {
        const QStringList parts = QString::fromLatin1(c).split(u'|');
        EXPECT_EQ(SnapshotBaseName(parts[0]), parts[1]) << c;
    }
    const std::pair<const char*, int> numbers[] = {
        {"/s/Data.#03", 3}, {"Data.#99", 99}, {".#10", 10}, {"xx", 0}, {"Data.#x1", 0}};
    for (auto [name, number] : numbers)
        EXPECT_EQ(SnapshotNumberFromName(QString::fromLatin1(name)), number) << name;
}

} // namespace
