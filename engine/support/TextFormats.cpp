#include "TextFormats.h"

#include "OleDate.h"

#include <cmath>
#include <cstdlib>
#include <unordered_map>

namespace kestrel::engine {

QString formatFixed(double value, int decimals) {
    // A size beyond 2^63 bytes, or none at all, comes only from a damaged
    // file; the locale's own formatting takes what the whole-number way
    // below cannot.
    if (!std::isfinite(value) || std::fabs(value) >= 9.0e18)
        return QLocale().toString(value, 'f', decimals);
    const double scale = std::pow(10.0, decimals);
    const double scaled = std::round(std::fabs(value) * scale); // halves away from zero
    const double whole = std::floor(scaled / scale);
    const QLocale locale;
    QString text = locale.toString(qlonglong(whole));
    if (decimals > 0) {
        const auto fraction = qlonglong(scaled - whole * scale);
        text += locale.decimalPoint();
        text += QString::number(fraction).rightJustified(decimals, QLatin1Char('0'));
    }
    if (value < 0 && scaled != 0)
        text.prepend(locale.negativeSign());
    return text;
}

QString formatGrouped(double value) {
    return formatFixed(value, 0);
}

QString FormatByteSize(double size, bool abbreviate) {
    if (!abbreviate || size < 512)
        return formatGrouped(size) + QStringLiteral(" bytes");
    if (size < 2097152.0)
        return formatGrouped(size / 1024) + QStringLiteral(" KB");
    if (size < 2147483648.0)
        return formatGrouped(size / 1048576) + QStringLiteral(" MB");
    return formatFixed(size / 1024 / 1048576, 1) + QStringLiteral(" GB");
}

static bool isSeparator(QChar c) {
    return c == QLatin1Char('/') || c == QLatin1Char('\\');
}

// The drive part of a root: "C:\" for a Windows root, the leading separator
// for a POSIX one.
static QString drivePart(const QString& root) {
    if (root.size() >= 3 && root.at(1) == QLatin1Char(':') && isSeparator(root.at(2)))
        return root.left(3);
    if (!root.isEmpty() && isSeparator(root.at(0)))
        return root.left(1);
    return root.left(3);
}

QString visibleText(QString text) {
    // Most texts hold neither: they are returned without a copy.
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (c == u'\n' || c == u'\r')
            text[i] = QChar(LineBreakMark);
    }
    return text;
}

QString ShortenPath(const QString& root, const QString& key, int maximum) {
    const QString full = visibleText(root + key.mid(1));
    if (full.size() <= maximum)
        return full;
    QString tail = full.right(std::max(maximum, 0));
    for (qsizetype i = 0; i < tail.size(); ++i) {
        if (isSeparator(tail.at(i))) {
            tail = tail.mid(i);
            break;
        }
    }
    return drivePart(root) + QStringLiteral("...") + tail;
}

QString AttributeText(int16_t attributes) {
    QString text;
    if (attributes & 1)
        text += QStringLiteral("R/O,");
    if (attributes & 2)
        text += QStringLiteral("Hid,");
    if (attributes & 4)
        text = QStringLiteral("Sys,");
    if (attributes & 16)
        text += QStringLiteral("Dir,");
    if (attributes & 32)
        text += QStringLiteral("Arc,");
    if (attributes & 128)
        text += QStringLiteral("Norm,");
    if (attributes & 256)
        text += QStringLiteral("Temp,");
    if (attributes & 1024)
        text += QStringLiteral("Link,");
    if (attributes & 2048)
        text += QStringLiteral("Comp,");
    if (!text.isEmpty())
        text.chop(1);
    return text;
}

QString FileTypeText(const QString& name) {
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot < 0 ? QString() : name.mid(dot + 1);
}

QString SummaryLine(const QString& verb, double startSeconds, double nowSeconds, int32_t files,
                    int32_t folders) {
    const double elapsed = nowSeconds - startSeconds;
    const double entries = double(files) + double(folders);
    QString line = QStringLiteral("Kestrel ") + verb;
    if (entries > 0)
        line += QLatin1Char(' ') + formatCount(files) + QStringLiteral(" files and ") +
                formatCount(folders) + QStringLiteral(" folders");
    line += QStringLiteral(" in ") + formatDuration(elapsed) + QStringLiteral(" seconds");
    if (entries > 0)
        line += QStringLiteral(" (") + formatCount(entries / (elapsed + 0.001)) +
                QStringLiteral("/sec)");
    return line;
}

QString longTimeFormat() {
    QString format = QLocale().timeFormat(QLocale::LongFormat);
    format.remove(QLatin1Char('t'));
    return format.trimmed();
}

QString shortDateText(const QDate& date) {
    return QLocale().toString(date, QLocale::ShortFormat);
}

QString longTimeText(const QTime& time) {
    return QLocale().toString(time, longTimeFormat());
}

QString shortDateText(double oleDate) {
    return shortDateText(dateTimeFromOle(oleDate).date());
}

QString longTimeText(double oleDate) {
    return longTimeText(dateTimeFromOle(oleDate).time());
}

QString longDateText(double oleDate) {
    return QLocale().toString(dateTimeFromOle(oleDate).date(), QLocale::LongFormat);
}

QString shortTimeText(double oleDate) {
    return QLocale().toString(dateTimeFromOle(oleDate).time(), QLocale::ShortFormat);
}

QString generalDateText(double oleDate) {
    const QDateTime dt = dateTimeFromOle(oleDate);
    if (dt.time() == QTime(0, 0))
        return shortDateText(oleDate);
    return shortDateText(oleDate) + QLatin1Char(' ') + longTimeText(oleDate);
}

QString modifiedText(double oleDate) {
    return shortDateText(oleDate) + QLatin1Char(' ') + longTimeText(oleDate);
}

QString isoDateTime(double oleDate) {
    const DateParts p = datePartsFromOle(oleDate);
    return QString::asprintf("%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour,
                             p.minute, p.second);
}

QString isoDateTimeWithOffset(double oleDate) {
    const DateParts p = datePartsFromOle(oleDate);
    // A day whose clocks keep one offset takes it from three cheap looks at
    // the time-zone rules, kept per day; a day on which they change asks Qt
    // about the very time.
    thread_local std::unordered_map<int64_t, int64_t> steadyOffsets;
    const int64_t day = daysFromCivil(p.year, unsigned(p.month), unsigned(p.day));
    int64_t offset = 0;
    if (const auto known = steadyOffsets.find(day); known != steadyOffsets.end()) {
        offset = known->second;
    } else if (localOffsetSteadyOn(day, &offset)) {
        steadyOffsets.emplace(day, offset);
    } else {
        offset = QDateTime(QDate(p.year, p.month, p.day), QTime(p.hour, p.minute, p.second))
                     .offsetFromUtc();
    }
    const char sign = offset < 0 ? '-' : '+';
    const int64_t minutes = std::abs(offset) / 60;
    return QString::asprintf("%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", p.year, p.month, p.day,
                             p.hour, p.minute, p.second, sign, int(minutes / 60),
                             int(minutes % 60));
}

} // namespace kestrel::engine
