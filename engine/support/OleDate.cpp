#include "OleDate.h"

#include <QTime>

#include <algorithm>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>

namespace kestrel::engine {

int64_t daysFromCivil(int year, unsigned month, unsigned day) {
    // Howard Hinnant's days_from_civil.
    const int64_t y = int64_t(year) - (month <= 2);
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + int64_t(doe) - 719468;
}

static double oleFromDaysAndSeconds(int64_t oleDay, int64_t secondOfDay) {
    const double fraction = double(secondOfDay) / 86400.0;
    return oleDay >= 0 ? double(oleDay) + fraction : double(oleDay) - fraction;
}

double oleDateFromParts(int year, int month, int day, int hour, int minute, int second) {
    const int64_t oleDay = daysFromCivil(year, unsigned(month), unsigned(day)) + UnixEpochOleDay;
    return oleFromDaysAndSeconds(oleDay, int64_t(hour) * 3600 + minute * 60 + second);
}

DateParts datePartsFromOle(double oleDate) {
    // Dates run from the year 100 to 9999, as they always have. A value
    // outside (only a damaged file holds one) is shown as the nearest end,
    // so that every date splits into parts and writes back as a date.
    constexpr double FirstDay = -657434.0;     // 0100-01-01
    constexpr double LastDay = 2958465.999988; // 9999-12-31 23:59:59
    if (std::isnan(oleDate))
        oleDate = 0;
    oleDate = std::clamp(oleDate, FirstDay, LastDay);
    double whole = std::trunc(oleDate);
    int64_t seconds = std::llround(std::fabs(oleDate - whole) * 86400.0);
    if (seconds >= 86400) {
        // The time counts forward from the day's start on both sides of the
        // epoch, so rounding up to midnight always lands on the next day.
        seconds -= 86400;
        whole += 1;
    }
    // civil_from_days (Howard Hinnant).
    int64_t z = int64_t(whole) - UnixEpochOleDay + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    DateParts p;
    p.year = int(int64_t(yoe) + era * 400 + (m <= 2));
    p.month = int(m);
    p.day = int(d);
    p.hour = int(seconds / 3600);
    p.minute = int(seconds / 60 % 60);
    p.second = int(seconds % 60);
    return p;
}

QDateTime dateTimeFromOle(double oleDate) {
    const DateParts p = datePartsFromOle(oleDate);
    return QDateTime(QDate(p.year, p.month, p.day), QTime(p.hour, p.minute, p.second));
}

double oleFromDateTime(const QDateTime& dateTime) {
    const QDate d = dateTime.date();
    const QTime t = dateTime.time();
    return oleDateFromParts(d.year(), d.month(), d.day(), t.hour(), t.minute(), t.second());
}

// Exactly, in integers: the binary value times 10^10 rounded half to even, as
// the decimal writer rounds it. Far cheaper than writing and reading the text
// for every entry of a scan.
bool fifteenDigitsOfDate(double d, uint64_t& digits) {
    if (!(d >= 10000.0 && d < 99999.0))
        return false;
    // d = m * 2^exponent with m the 53-bit significand.
    const auto bits = std::bit_cast<uint64_t>(d);
    const uint64_t m = (bits & ((uint64_t(1) << 52) - 1)) | (uint64_t(1) << 52);
    const int exponent = int((bits >> 52) & 0x7FF) - 1075;
    const int shift = -(exponent + 10); // d * 10^10 = m * 5^10 * 2^-shift
    const unsigned __int128 scaled = (unsigned __int128)m * 9765625u;
    const unsigned __int128 whole = scaled >> shift;
    const unsigned __int128 remainder = scaled - (whole << shift);
    const unsigned __int128 half = (unsigned __int128)1 << (shift - 1);
    digits = uint64_t(whole);
    if (remainder > half || (remainder == half && (digits & 1)))
        ++digits;
    return true;
}

double roundTo15Digits(double d) {
    // A reader of those digits gets the double nearest to digits / 10^10,
    // which is what the division gives.
    uint64_t digits = 0;
    if (fifteenDigitsOfDate(d, digits))
        return double(digits) / 1e10;
    char buffer[32];
    const auto written =
        std::to_chars(buffer, buffer + sizeof buffer, d, std::chars_format::general, 15);
    double back = 0;
    std::from_chars(buffer, written.ptr, back);
    return back;
}

double oleNow() {
    return oleFromDateTime(QDateTime::currentDateTime());
}

double secondsSinceMidnight() {
    // Asking the system for the local time costs a look at the time-zone file
    // each time, and meters ask thousands of times an operation; the time of
    // day is taken afresh every few seconds and carried on with the steady
    // clock in between.
    using Clock = std::chrono::steady_clock;
    thread_local Clock::time_point base;
    thread_local double baseSeconds = -1;
    const Clock::time_point now = Clock::now();
    if (baseSeconds < 0 || now - base > std::chrono::seconds(5)) {
        base = now;
        baseSeconds = QTime::currentTime().msecsSinceStartOfDay() / 1000.0;
        return baseSeconds;
    }
    const double seconds = baseSeconds + std::chrono::duration<double>(now - base).count();
    return seconds >= 86400 ? seconds - 86400 : seconds;
}

LocalTimeConverter::LocalTimeConverter() = default;

static bool localOffset(int64_t t, int64_t& offset) {
    const time_t tt = time_t(t);
    struct tm local;
    if (!localtime_r(&tt, &local))
        return false;
    offset = local.tm_gmtoff;
    return true;
}

bool localOffsetSteadyOn(int64_t unixDay, int64_t* offset) {
    // Local days start between 14 hours before and 12 hours after midnight UTC.
    constexpr int64_t Hour = 3600;
    const int64_t start = unixDay * 86400;
    int64_t before = 0, middle = 0, after = 0;
    if (!localOffset(start - 14 * Hour, before) || !localOffset(start + 12 * Hour, middle) ||
        !localOffset(start + 36 * Hour, after) || before != middle || middle != after)
        return false;
    if (offset)
        *offset = middle;
    return true;
}

bool LocalTimeConverter::offsetFor(int64_t t, int64_t& offset) {
    constexpr int64_t Day = 86400;
    const int64_t day = t >= 0 ? t / Day : (t - Day + 1) / Day;
    const int64_t run = day >> RunBits;
    // Days a 32-bit run number cannot name (past the year 1.4 million) are
    // converted one by one.
    if (run < INT32_MIN + 1 || run > INT32_MAX)
        return localOffset(t, offset);
    Run& r = m_runs[uint64_t(run) % RunCount];
    if (r.run != int32_t(run))
        learnRun(run);
    if (r.offset != Mixed) {
        offset = r.offset;
        return true;
    }
    return dayOffset(day, t, offset);
}

void LocalTimeConverter::learnRun(int64_t run) {
    constexpr int64_t Day = 86400;
    Run& r = m_runs[uint64_t(run) % RunCount];
    r.run = int32_t(run);
    r.offset = Mixed;
    const int64_t firstDay = run << RunBits;
    int64_t common = 0;
    for (int64_t day = firstDay; day < firstDay + (int64_t(1) << RunBits); ++day) {
        int64_t first = 0, last = 0;
        if (!localOffset(day * Day, first) || !localOffset(day * Day + Day - 1, last) ||
            first != last || (day != firstDay && first != common) || first == Mixed)
            return;
        common = first;
    }
    r.offset = int32_t(common);
}

bool LocalTimeConverter::dayOffset(int64_t day, int64_t t, int64_t& offset) {
    constexpr int64_t Day = 86400;
    Slot& slot = m_slots[uint64_t(day) % SlotCount];
    if (slot.day == day) {
        offset = slot.offset;
        return true;
    }
    int64_t first = 0, last = 0;
    if (!localOffset(day * Day, first) || !localOffset(day * Day + Day - 1, last) || first != last)
        return localOffset(t, offset);
    slot.day = day;
    slot.offset = first;
    offset = first;
    return true;
}

bool LocalTimeConverter::convert(int64_t t, double& oleDate) {
    int64_t offset = 0;
    if (!offsetFor(t, offset))
        return false;
    const int64_t local = t + offset;
    int64_t days = local / 86400;
    int64_t second = local % 86400;
    if (second < 0) {
        second += 86400;
        --days;
    }
    oleDate = roundTo15Digits(oleFromDaysAndSeconds(days + UnixEpochOleDay, second));
    return true;
}

} // namespace kestrel::engine
