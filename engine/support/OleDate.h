#pragma once

#include <QDateTime>

#include <climits>
#include <cstdint>
#include <ctime>

namespace kestrel::engine {

// Dates are kept as the program has always kept them: days since 1899-12-30
// with the time of day as the fraction (an OLE date), in local time. Before
// 1899-12-30 the whole part counts days back and the fraction still counts
// the time forward (-1.25 is 1899-12-29 06:00).

inline constexpr int32_t UnixEpochOleDay = 25569; // 1970-01-01

// Days since 1970-01-01 of a proleptic Gregorian date.
int64_t daysFromCivil(int year, unsigned month, unsigned day);

double oleDateFromParts(int year, int month, int day, int hour, int minute, int second);

struct DateParts {
    int year = 1899, month = 12, day = 30, hour = 0, minute = 0, second = 0;
};
// Splits a date into its calendar parts, rounded to the whole second. Dates
// before the year 100 or after 9999 give the nearest of those ends; NaN gives
// 1899-12-30.
DateParts datePartsFromOle(double oleDate);

QDateTime dateTimeFromOle(double oleDate); // local time
double oleFromDateTime(const QDateTime& dateTime);

// For a date with a five-digit day number (the years 1927 to 2173): the 15
// digits its file text carries, as the whole number d * 10^10 rounded half to
// even, worked out exactly. False for other values.
bool fifteenDigitsOfDate(double d, uint64_t& digits);

// The value a snapshot file holds for d: written with at most 15 significant
// digits and read back. A scan stores dates in this form so that a snapshot
// and its file compare equal.
double roundTo15Digits(double d);

// The current local date and time to the whole second, as a date read back
// from "#yyyy-mm-dd hh:mm:ss#" gives it.
double oleNow();

// Whether the local clock keeps one offset from UTC through the whole local
// day unixDay days after 1970-01-01, told cheaply: the offset is the same a
// little before the day's earliest possible start, at its middle and a little
// after its latest possible end, whatever the zone; that offset, in seconds,
// goes to offset when given. False says only that the day may be one on which
// the clocks change.
bool localOffsetSteadyOn(int64_t unixDay, int64_t* offset = nullptr);

// Seconds since midnight, local time, with fractions: the program's timer.
double secondsSinceMidnight();

// Converts file times (seconds since 1970, UTC) to local OLE dates to the
// whole second. Converting time zones is costly, so the offset from UTC is
// cached: a day whose start and end have the same offset (all but the two
// days a year when clocks change) takes it from the cache; the others are
// converted entry by entry. Runs of 16 days that all share one offset are
// kept as one record in a table small enough to stay in the processor's
// cache while a scan's system calls pass through it; days of a run where the
// offset changes are kept one by one. One converter per thread.
class LocalTimeConverter {
public:
    LocalTimeConverter();
    // The local OLE date of t, rounded through its file form. Returns false
    // when the time cannot be converted (then the caller keeps 0).
    bool convert(int64_t unixSeconds, double& oleDate);

private:
    bool offsetFor(int64_t unixSeconds, int64_t& offset);
    // Fills the run's record: its offset, or Mixed when its days do not all
    // share one.
    void learnRun(int64_t run);
    bool dayOffset(int64_t day, int64_t t, int64_t& offset);

    static constexpr int RunBits = 4; // 16 days a run
    static constexpr int32_t Mixed = INT32_MIN;
    struct Run {
        int32_t run = INT32_MIN; // none yet
        int32_t offset = 0;
    };
    static constexpr int RunCount = 256;
    Run m_runs[RunCount];

    struct Slot {
        int64_t day = INT64_MIN;
        int64_t offset = 0;
    };
    static constexpr int SlotCount = 1024;
    Slot m_slots[SlotCount];
};

} // namespace kestrel::engine
