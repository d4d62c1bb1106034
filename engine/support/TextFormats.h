#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

#include <cstdint>

namespace kestrel::engine {

// Numbers and dates as the program shows them. Numbers round to nearest
// (halves away from zero) and carry the default locale's digit grouping and
// decimal point; dates use the default locale's formats. The default locale is
// the system's unless a program or test sets another with QLocale::setDefault.

// A whole number with digit grouping: the "#,###,##0" of counts and the
// "###,###,###,###,##0" of sizes.
QString formatGrouped(double value);
// Grouped with a fixed number of decimals: "##,##0.00" is formatFixed(v, 2).
QString formatFixed(double value, int decimals);
inline QString formatCount(double value) {
    return formatGrouped(value);
}
inline QString formatDuration(double seconds) {
    return formatFixed(seconds, 2);
}

// A byte count for people: with abbreviate, 512 bytes and up read in KB, MB
// and from 2 GB with one decimal in GB; without, the exact count in bytes.
QString FormatByteSize(double size, bool abbreviate);

// The display path of a folder for a status-bar panel: root joined with the
// key (which starts with a separator); when longer than maximum, the drive
// part of the root, "..." and the tail of the path from a folder boundary.
// Line breaks show as visibleText shows them.
QString ShortenPath(const QString& root, const QString& key, int maximum);

// A text as the program shows it on screen and on paper: each line feed and
// carriage return (a POSIX name may hold them) becomes the mark "⏎", so
// that it neither breaks a line nor silently vanishes.
inline constexpr char16_t LineBreakMark = u'\u23CE';
QString visibleText(QString text);

// AttributeText: the short text of attribute bits, "R/O", "Hid", then "Sys"
// (which replaces what came before it, so 7 gives "Sys" alone), "Dir", "Arc",
// "Norm", "Temp", "Link" (a symbolic link, 1024), "Comp", separated by
// commas: 33 gives "R/O,Arc", 1026 "Hid,Link".
QString AttributeText(int16_t attributes);

// What the file list shows for a value the scan could not read.
inline constexpr char UnknownValueText[] = "unknown";

// The text after the last "." of a file name; empty when there is none.
QString FileTypeText(const QString& name);

// The status-bar line after a scan ("found"), a load ("read") or an import
// ("imported"): "Kestrel found 12,345 files and 678 folders in 3.21 seconds
// (4,057/sec)"; with nothing found only the verb and the time.
QString SummaryLine(const QString& verb, double startSeconds, double nowSeconds, int32_t files,
                    int32_t folders);

// Date texts of an OLE date in the default locale: "Short Date", "Long Time"
// (the locale's long time without a zone name), "Long Date", "Short Time", and
// "General Date" (the short date and long time, the date alone at midnight).
QString shortDateText(double oleDate);
QString longTimeText(double oleDate);
QString longDateText(double oleDate);
QString shortTimeText(double oleDate);
QString generalDateText(double oleDate);
// "Short Date", a blank and "Long Time": how file lists and difference texts
// show a modified time.
QString modifiedText(double oleDate);
// "2025-02-16 05:23:41": a date as the snapshot keeps it (local time), in
// an order that sorts as text.
QString isoDateTime(double oleDate);
// "2025-02-16T05:23:41+01:00": the same local time with this machine's offset
// from UTC at that time, as ISO 8601 writes it.
QString isoDateTimeWithOffset(double oleDate);
// The same texts of a calendar date and a time of day: what the texts of a
// date are made of, for callers that keep them per day and per second.
QString shortDateText(const QDate& date);
QString longTimeText(const QTime& time);
// The format of "Long Time": the default locale's long time format without
// its time-zone field (a time of day in a snapshot has no zone).
QString longTimeFormat();

} // namespace kestrel::engine
