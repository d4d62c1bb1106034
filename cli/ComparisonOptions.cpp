#include "ComparisonOptions.h"

#include "CommandSupport.h"

#include "engine/model/Snapshot.h"

#include "settings/Settings.h"
#include "settings/SettingsStore.h"

namespace kestrel::cli {

using namespace engine;

namespace {

// A tolerance: seconds, or numbers with units s, m, h, d, w, y ("90", "2s",
// "1h30m", "3d"). Returns days, or -1 when the text is not a duration.
double parseDuration(const QString& text) {
    const QString t = text.trimmed().toLower();
    if (t.isEmpty())
        return -1;
    bool plain = false;
    const double seconds = t.toDouble(&plain);
    if (plain)
        return seconds >= 0 ? seconds / 86400 : -1;
    double total = 0;
    qsizetype i = 0;
    while (i < t.size()) {
        const qsizetype start = i;
        while (i < t.size() && (t.at(i).isDigit() || t.at(i) == QLatin1Char('.')))
            ++i;
        bool ok = false;
        const double n = t.mid(start, i - start).toDouble(&ok);
        if (!ok || i >= t.size())
            return -1;
        switch (t.at(i).unicode()) {
        case 's':
            total += n;
            break;
        case 'm':
            total += n * 60;
            break;
        case 'h':
            total += n * 3600;
            break;
        case 'd':
            total += n * 86400;
            break;
        case 'w':
            total += n * 7 * 86400;
            break;
        case 'y':
            total += n * 365 * 86400;
            break;
        default:
            return -1;
        }
        ++i;
    }
    return total / 86400;
}

// "R,H,S,A" as the attribute bits whose differences are ignored.
bool parseAttributes(const QString& text, int16_t& mask) {
    mask = 0;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString p = part.trimmed().toUpper();
        if (p == QLatin1String("R"))
            mask |= Attribute::ReadOnly;
        else if (p == QLatin1String("H"))
            mask |= Attribute::Hidden;
        else if (p == QLatin1String("S"))
            mask |= Attribute::System;
        else if (p == QLatin1String("A"))
            mask |= Attribute::Archive;
        else
            return false;
    }
    return true;
}

} // namespace

void ComparisonOptions::addTo(QCommandLineParser& parser) const {
    parser.addOptions({ignoreSize, ignoreVersion, ignoreDst, ignoreAttributes, ignorePermissions,
                       ignoreOwner, touched, noMoves, tolerance, ignore, ignoreFrom, useSettings});
}

std::optional<CompareOptions> ComparisonOptions::chosen(const QCommandLineParser& p) const {
    const ComparisonOptions& o = *this;
    // The normal bit changes whenever any other bit does, so comparing it
    // would report what --ignore-attributes asked to leave out.
    CompareOptions options = commandLineCompareOptions();
    if (p.isSet(o.useSettings)) {
        settings::Options stored;
        settings::SettingsStore().getSettings(stored);
        options = stored.compareOptions();
        for (const QString& problem : stored.patternProblems())
            printLine(stderr, problem);
    }
    options.ignoreSize |= p.isSet(o.ignoreSize);
    options.ignoreVersion |= p.isSet(o.ignoreVersion);
    options.ignoreDst |= p.isSet(o.ignoreDst);
    options.ignorePermissions |= p.isSet(o.ignorePermissions);
    options.ignoreOwner |= p.isSet(o.ignoreOwner);
    if (p.isSet(o.touched))
        options.ignoreTouched = false;
    if (p.isSet(o.ignoreAttributes)) {
        int16_t mask = 0;
        if (!parseAttributes(p.value(o.ignoreAttributes), mask)) {
            printError(QStringLiteral("Usage"),
                       QStringLiteral("--ignore-attributes takes letters among R,H,S,A"));
            return std::nullopt;
        }
        options.attributeCompareMask &= uint16_t(~mask);
    }
    if (p.isSet(o.tolerance)) {
        const double days = parseDuration(p.value(o.tolerance));
        if (days < 0) {
            printError(
                QStringLiteral("Usage"),
                QStringLiteral("--tolerance takes seconds or a duration such as 2s, 1h, 3d"));
            return std::nullopt;
        }
        options.dateTolerance = days;
    }
    const auto patterns =
        patternsFromCommandLine(p, o.ignore, o.ignoreFrom, options.ignorePatterns);
    if (!patterns)
        return std::nullopt;
    options.ignorePatterns = *patterns;
    // --use-settings keeps the stored choice unless --no-moves is given.
    if (p.isSet(o.noMoves))
        options.detectMoves = false;
    return options;
}

} // namespace kestrel::cli
