#include "engine/support/TextFormats.h"
#include "TestSupport.h"
#include "engine/file/SnapshotItems.h"
#include "engine/model/FileSystemNames.h"
#include "engine/support/OleDate.h"
#include "engine/support/ShortText.h"
#include "engine/support/TextDecode.h"

#include <QLocale>
#include <QStringDecoder>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>
#include <map>
#include <random>

using namespace kestrel::engine;

namespace {

// Every text here is checked against US English, whatever the machine's locale.
class TextFormats : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }
};

QString u(const char* utf8) {
    return QString::fromUtf8(utf8);
}

// While it lives, the process's time zone is the one last set; then as before.
struct ZoneSetting {
    QByteArray old = qgetenv("TZ");
    ~ZoneSetting() { set(old.isNull() ? nullptr : old.constData()); }
    static void set(const char* zone) {
        zone ? qputenv("TZ", zone) : qunsetenv("TZ");
        tzset();
    }
};

template <typename Value> using Table = std::vector<std::pair<Value, const char*>>;

// Sizes (halves round up: 1536 bytes is 2 KB), counts and durations (halves
// away from zero); sizes only a damaged file holds still read as numbers.
TEST_F(TextFormats, SizesCountsAndDurations) {
    const Table<double> abbreviated = {{511, "511 bytes"},       {512, "1 KB"},
                                       {1536, "2 KB"},           {2097151, "2,048 KB"},
                                       {2097152, "2 MB"},        {-600, "-600 bytes"},
                                       {2147483648.0, "2.0 GB"}, {3221225472.0, "3.0 GB"}};
    for (auto [size, text] : abbreviated)
        EXPECT_EQ(FormatByteSize(size, true), u(text)) << size;
    EXPECT_EQ(FormatByteSize(1099511627776.0, true), u("1,024.0 GB"));
    EXPECT_EQ(FormatByteSize(1500000000, false), u("1,500,000,000 bytes"));
    EXPECT_EQ(FormatByteSize(-1e19, false), u("-10,000,000,000,000,000,000 bytes"));
    EXPECT_FALSE(FormatByteSize(std::numeric_limits<double>::infinity(), true).isEmpty());
    EXPECT_FALSE(FormatByteSize(std::nan(""), false).isEmpty());

    const Table<double> counts = {{2.5, "3"}, {-2.5, "-3"}, {-1234567, "-1,234,567"}};
    for (auto [value, text] : counts)
        EXPECT_EQ(formatCount(value), u(text)) << value;
    const Table<double> durations = {{0.125, "0.13"}, {99.999, "100.00"}, {12345.678, "12,345.68"},
                                     {-1.5, "-1.50"}, {-0.125, "-0.13"},  {0.001, "0.00"}};
    for (auto [value, text] : durations)
        EXPECT_EQ(formatDuration(value), u(text)) << value;

    // 13,023 entries in 3.209 s: "3.21" seconds at 4,057 a second; an
    // instant operation divides by the 0.001 s allowance, not by zero.
    EXPECT_EQ(SummaryLine(u("found"), 50000, 50003.209, 12345, 678),
              u("Kestrel found 12,345 files and 678 folders in 3.21 seconds (4,057/sec)"));
    EXPECT_EQ(SummaryLine(u("found"), 100, 100, 0, 0), u("Kestrel found in 0.00 seconds"));
    EXPECT_EQ(SummaryLine(u("read"), 100, 100, 3, 0),
              u("Kestrel read 3 files and 0 folders in 0.00 seconds (3,000/sec)"));
}

TEST_F(TextFormats, FileTypeAndAttributeText) {
    const Table<const char*> types = {
        {"report.TXT", "TXT"}, {"archive.tar.gz", "gz"}, {"Makefile", ""}, {"name.", ""}};
    for (auto [name, type] : types)
        EXPECT_EQ(FileTypeText(u(name)), u(type)) << name;

    // Each case is "bits|text". "Sys" replaces what came before it; a link
    // (1024) shows "Link" in bit order (with Temp 256 and Comp 2048: 3328);
    // the unknown bit (4096) has no text of its own (with Dir 16: 4112).
    for (const char* c :
         {"0|", "33|R/O,Arc", "7|Sys", "3|R/O,Hid", "128|Norm", "1026|Hid,Link", "52|Sys,Dir,Arc",
          "3328|Temp,Link,Comp", "4112|Dir", "2487|Sys,Dir,Arc,Norm,Temp,Comp"}) {
        const QStringList parts = u(c).split(u'|');
        EXPECT_EQ(AttributeText(int16_t(parts[0].toInt())), parts[1]) << c;
    }
}

// The general form leaves out a midnight time, the grid's never does; the
// long time carries no zone: a snapshot's times have none. The offset
// written with an ISO time is the zone's at that time: either side of a
// clock change, on the day of it, and in a zone whose offset is not whole
// hours. (Offsets are kept per day for the life of the process, so each
// zone is asked about days of its own.)
TEST_F(TextFormats, DateTexts) {
    const double midnight = oleDateFromParts(2001, 3, 4, 0, 0, 0);
    const QString morning = generalDateText(oleDateFromParts(2001, 3, 4, 10, 15, 7));
    EXPECT_EQ(generalDateText(midnight), u("3/4/01"));
    EXPECT_TRUE(morning.startsWith(u("3/4/01 10:15:07")) && morning.endsWith(u("AM")) &&
                morning.size() == 18)
        << morning.toStdString();
    EXPECT_TRUE(modifiedText(midnight).startsWith(u("3/4/01 12:00:00")));

    ZoneSetting zone;
    const auto at = [](const char* name, int mo, int d, int h, int mi) {
        ZoneSetting::set(name);
        return isoDateTimeWithOffset(oleDateFromParts(2024, mo, d, h, mi, 0));
    };
    const std::tuple<const char*, int, int, int, int, const char*> cases[] = {
        {"Europe/Berlin", 1, 15, 12, 0, "2024-01-15T12:00:00+01:00"},
        {"Europe/Berlin", 7, 15, 12, 0, "2024-07-15T12:00:00+02:00"},
        {"Europe/Berlin", 3, 31, 1, 30, "2024-03-31T01:30:00+01:00"},
        {"Europe/Berlin", 3, 31, 3, 30, "2024-03-31T03:30:00+02:00"},
        {"America/St_Johns", 1, 16, 12, 0, "2024-01-16T12:00:00-03:30"},
        {"America/St_Johns", 7, 16, 12, 0, "2024-07-16T12:00:00-02:30"}};
    for (const auto& [name, mo, d, h, mi, text] : cases)
        EXPECT_EQ(at(name, mo, d, h, mi), u(text));
    EXPECT_EQ(isoDateTime(oleDateFromParts(2024, 7, 16, 12, 0, 0)), u("2024-07-16 12:00:00"));
}

// The scan's converter caches offsets by runs of days and by day; whatever
// the zone (half-hour and 45-minute offsets, clocks that change twice within
// weeks, a skipped day), every time must come out as the zone's own
// conversion gives it, around every change of the clocks and anywhere else.
TEST(OleDate, ConverterAgreesWithTheZone) {
    ZoneSetting zone;
    const auto offsetAt = [](int64_t t) {
        const time_t tt = time_t(t);
        struct tm local;
        localtime_r(&tt, &local);
        return local.tm_gmtoff;
    };
    std::mt19937_64 random(7);
    for (const char* name : {"UTC", "Europe/Berlin", "Australia/Lord_Howe", "Africa/Casablanca",
                             "America/St_Johns", "Pacific/Apia", "Asia/Kathmandu"}) {
        SCOPED_TRACE(name);
        zone.set(name);
        std::vector<int64_t> times;
        // Every quarter hour of the two days around each change, 1970-2040.
        constexpr int64_t Day = 86400;
        for (int64_t t = 0; t < 2208988800; t += Day)
            if (offsetAt(t) != offsetAt(t + Day))
                for (int64_t u = t - Day; u < t + 2 * Day; u += 900)
                    times.push_back(u);
        // And anywhere from 1900 to 2100, in a shuffled order that makes
        // the caches evict one another.
        for (int i = 0; i < 20000; ++i)
            times.push_back(int64_t(random() % 6311390400ull) - 2208988800);
        std::shuffle(times.begin(), times.end(), random);
        LocalTimeConverter converter;
        int wrong = 0;
        for (const int64_t t : times) {
            double got = 0;
            ASSERT_TRUE(converter.convert(t, got));
            if (got != kestrel::test::localFileDate(time_t(t)) && ++wrong <= 5)
                ADD_FAILURE() << "unix time " << t;
        }
        EXPECT_EQ(wrong, 0);
    }
}

TEST(OleDate, PartsBothWays) {
    struct Case {
        double ole;
        std::array<int, 6> parts;
        bool exact; // false: the date is rounded to the second
    };
    const Case cases[] = {
        {0, {1899, 12, 30, 0, 0, 0}, true},
        {1.5, {1899, 12, 31, 12, 0, 0}, true},
        {-1.25, {1899, 12, 29, 6, 0, 0}, true}, // before the epoch the time still counts forward
        {-2.75, {1899, 12, 28, 18, 0, 0}, true},
        {-36522, {1800, 1, 1, 0, 0, 0}, true},
        {36585.75, {2000, 2, 29, 18, 0, 0}, true},
        {36954 + 36900.0 / 86400, {2001, 3, 4, 10, 15, 0}, true},
        {2958465, {9999, 12, 31, 0, 0, 0}, true},
        {0.5 + 0.4 / 86400, {1899, 12, 30, 12, 0, 0}, false},
        {0.5 + 0.6 / 86400, {1899, 12, 30, 12, 0, 1}, false},
        {36526 - 0.1 / 86400, {2000, 1, 1, 0, 0, 0}, false}, // carries into a new year
        // 1899-12-29 23:59:59.8 carries forward into the 30th, not back to the 28th.
        {-2 + 0.2 / 86400, {1899, 12, 30, 0, 0, 0}, false}};
    for (const Case& c : cases) {
        const DateParts p = datePartsFromOle(c.ole);
        EXPECT_EQ((std::array{p.year, p.month, p.day, p.hour, p.minute, p.second}), c.parts)
            << c.ole;
        const auto& [y, mo, d, h, mi, s] = c.parts;
        if (c.exact) {
            EXPECT_DOUBLE_EQ(oleDateFromParts(y, mo, d, h, mi, s), c.ole);
        }
    }
    EXPECT_EQ(dateTimeFromOle(-1.25), QDateTime(QDate(1899, 12, 29), QTime(6, 0)));
    EXPECT_EQ(oleFromDateTime(QDateTime(QDate(1899, 12, 29), QTime(6, 0))), -1.25);
}

// Valid UTF-8 is taken as it is, anything else as Windows-1252, whose every
// byte from 0x80 up agrees with the system's decoder, except the five the
// code page leaves undefined, which stay C1 controls.
TEST(TextDecode, Utf8OrWindows1252) {
    const std::string valid[] = {"", "plain ascii text, longer than eight",
                                 "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x90\xA6",
                                 "\xF4\x8F\xBF\xBF" /* U+10FFFF */, "\xED\x9F\xBF" /* U+D7FF */};
    for (const std::string& bytes : valid)
        EXPECT_TRUE(isValidUtf8(bytes)) << testing::PrintToString(bytes);
    // Cut short, stray bytes, overlong forms, surrogates, too high, five
    // bytes, Windows-1252.
    for (const std::string bytes :
         {"\xC3", "abcdefgh\xE2\x82", "\x80", "\xC3\x28", "\xC0\xAF", "\xE0\x80\xAF",
          "\xF0\x82\x82\xAC", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80",
          "\xF8\x88\x80\x80\x80", "Gr\xE4n"})
        EXPECT_FALSE(isValidUtf8(bytes)) << testing::PrintToString(bytes);

    QStringDecoder reference("windows-1252");
    ASSERT_TRUE(reference.isValid());
    for (int b = 0x80; b <= 0xFF; ++b) {
        const std::string utf8 = windows1252ToUtf8(std::string(1, char(b)));
        ASSERT_TRUE(isValidUtf8(utf8)) << b;
        const bool undefined = b == 0x81 || b == 0x8D || b == 0x8F || b == 0x90 || b == 0x9D;
        EXPECT_EQ(QString::fromStdString(utf8),
                  undefined ? QString(QChar(b)) : reference.decode(QByteArray(1, char(b))))
            << std::hex << b;
    }
    std::string converted;
    EXPECT_FALSE(toStoredText("Gr\xC3\xBCn", converted));
    EXPECT_TRUE(toStoredText("Gr\xFCn \x80", converted));
    EXPECT_EQ(converted, "Gr\xC3\xBCn \xE2\x82\xAC");
    EXPECT_EQ(decodeText("Gr\xC3\xBCn"), u("Grün"));
    EXPECT_EQ(decodeText("\xE4\x80"), u("ä€"));
    EXPECT_EQ(decodeText("\xC3\xA4\x80"), u("Ã¤€")); // one bad byte makes it all Windows-1252
}

// A name from the disk is stored as valid UTF-8 that gives back its exact
// bytes, and no two names share a stored form; a valid name without a
// backslash is stored as it is. Tried on every string of up to four bytes
// and on longer random ones, from an alphabet of awkward bytes: the marks'
// own characters, valid, cut-off and overlong sequences, a surrogate.
TEST(StoredNames, EveryNameComesBackAsItsBytes) {
    const std::string alphabet = "a\\xE9\xC3\xA9\xE9\x80\xED\xF0\x9F\xC0";
    std::map<std::string, std::string> namesByStored;
    const auto check = [&](const std::string& bytes) {
        std::string scratch;
        const std::string stored(storedName(bytes, scratch));
        ASSERT_TRUE(isValidUtf8(stored)) << testing::PrintToString(bytes);
        ASSERT_EQ(fileSystemBytes(stored), bytes);
        if (isValidUtf8(bytes) && bytes.find('\\') == std::string::npos) {
            ASSERT_EQ(stored, bytes);
        }
        const auto [it, added] = namesByStored.emplace(stored, bytes);
        ASSERT_EQ(it->second, bytes) << testing::PrintToString(stored);
        // The same through native text, as command lines and launches carry it.
        const QString native = nativeText(bytes);
        ASSERT_EQ(nativeBytes(native).toStdString(), bytes);
        ASSERT_EQ(storedPath(native).toStdString(), stored);
        ASSERT_EQ(nativeFromStored(QString::fromStdString(stored)), native);
    };
    std::vector<std::string> level{""};
    for (int length = 0; length <= 4; ++length) {
        std::vector<std::string> longer;
        for (const std::string& s : level) {
            check(s);
            for (char c : alphabet)
                longer.push_back(s + c);
        }
        level = std::move(longer);
    }
    // Longer names, mostly plain, take the eight-bytes-at-a-time paths.
    std::mt19937 random(5);
    for (int i = 0; i < 5000; ++i) {
        std::string s(5 + random() % 20, ' ');
        for (char& c : s)
            c = random() % 4 ? 'a' : alphabet[random() % alphabet.size()];
        check(s);
    }
}

} // namespace

// Names are copied and searched a word at a time, the ends covered by moves
// that overlap: every length up to past the longest inline case, at every
// alignment, must give exactly the bytes and write nothing around them.
TEST(ShortText, CopiesAndSearchesEveryLength) {
    std::string source(200, '\0');
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = char(0x80 + i % 127); // high bytes: no quote, no filler
    for (size_t length = 0; length <= 130; ++length) {
        for (size_t shift = 0; shift < 8; ++shift) {
            std::string target(length + 32, '#');
            copyShort(target.data() + 16 + shift % 4, source.data() + shift, length);
            ASSERT_EQ(target.substr(16 + shift % 4, length), source.substr(shift, length))
                << length << " from " << shift;
            ASSERT_EQ(target.find_first_not_of('#'), length ? 16 + shift % 4 : std::string::npos);
            ASSERT_EQ(target.find_last_not_of('#'),
                      length ? 16 + shift % 4 + length - 1 : std::string::npos);
        }
        ASSERT_FALSE(containsByte(source.data() + 1, length, '"')) << length;
        for (size_t at = 0; at < length; ++at) {
            std::string text = source.substr(1, length);
            text[at] = '"';
            ASSERT_TRUE(containsByte(text.data(), length, '"')) << length << " at " << at;
        }
    }
    EXPECT_FALSE(containsByte(nullptr, 0, '"'));
}

// A quote anywhere in a name is doubled in the file, and only a quote.
TEST(ShortText, ItemWriterDoublesQuotesWherever) {
    for (size_t length = 1; length <= 40; ++length) {
        for (size_t at = 0; at < length; ++at) {
            std::string name(length, 'n');
            name[at] = '"';
            std::string expected = name;
            expected.insert(at, 1, '"');
            ItemWriter w;
            w.string(name);
            ASSERT_EQ(std::string(w.data(), w.size()), '"' + expected + '"') << length;
        }
        ItemWriter w;
        w.string(std::string(length, 'n'));
        ASSERT_EQ(std::string(w.data(), w.size()), '"' + std::string(length, 'n') + '"');
    }
}
