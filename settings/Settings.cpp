#include "Settings.h"

#include "engine/compare/IgnorePatterns.h"

#include "engine/model/Snapshot.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace kestrel::settings {

namespace {

// Lists in the order of Key, so that keyInfo can index the table.
constexpr std::array<KeyInfo, 36> Keys = {{
    {Key::Meter, "Config", "Meter", Control::List, 2, &Settings::meter},
    {Key::Changed, "Config", "Changed", Control::List, 6, &Settings::changed},
    {Key::Deleted, "Config", "Deleted", Control::List, 6, &Settings::deleted},
    {Key::Limit, "Config", "Limit", Control::List, 9, &Settings::limit},
    {Key::Toolbar, "Config", "Toolbar", Control::CheckBox, 1, &Settings::toolbar},
    {Key::Tiling, "Config", "Tiling", Control::CheckBox, 1, &Settings::tiling},
    {Key::Synch, "Config", "Synch", Control::CheckBox, 1, &Settings::synch},
    {Key::Scroll, "Config", "Scroll", Control::CheckBox, 1, &Settings::scroll},
    {Key::Compare, "Config", "Compare", Control::CheckBox, 1, &Settings::compare},
    {Key::Faster, "Config", "Faster", Control::CheckBox, 1, &Settings::faster},
    {Key::Always, "Config", "Always", Control::CheckBox, 1, &Settings::always},
    {Key::Empty, "Config", "Empty", Control::CheckBox, 1, &Settings::empty},
    {Key::Explore, "Config", "Explore", Control::CheckBox, 1, &Settings::explore},
    {Key::Filename, "Config", "Filename", Control::CheckBox, 1, &Settings::filename},
    {Key::Title, "Config", "Title", Control::CheckBox, 1, &Settings::title},
    {Key::Naming, "Config", "Naming", Control::CheckBox, 1, &Settings::naming},
    {Key::Shell, "Config", "Shell", Control::Choice, 1, &Settings::shell},
    {Key::Attrib, "Ignore", "Attrib", Control::CheckBox, 1, &Settings::attrib},
    {Key::Read, "Ignore", "Read", Control::CheckBox, 1, &Settings::read},
    {Key::Hidden, "Ignore", "Hidden", Control::CheckBox, 1, &Settings::hidden},
    {Key::System, "Ignore", "System", Control::CheckBox, 1, &Settings::system},
    {Key::Archive, "Ignore", "Archive", Control::CheckBox, 1, &Settings::archive},
    {Key::Date, "Ignore", "Date", Control::CheckBox, 1, &Settings::date},
    {Key::Secs, "Ignore", "secs", Control::List, 59, &Settings::secs},
    {Key::Mins, "Ignore", "mins", Control::List, 59, &Settings::mins},
    {Key::Hours, "Ignore", "hours", Control::List, 23, &Settings::hours},
    {Key::Days, "Ignore", "days", Control::List, 6, &Settings::days},
    {Key::Weeks, "Ignore", "weeks", Control::List, 52, &Settings::weeks},
    {Key::Years, "Ignore", "years", Control::List, 31, &Settings::years},
    {Key::Size, "Ignore", "Size", Control::CheckBox, 1, &Settings::size},
    {Key::Version, "Ignore", "Version", Control::CheckBox, 1, &Settings::version},
    {Key::Dst, "Ignore", "DST", Control::CheckBox, 1, &Settings::dst},
    {Key::Permissions, "Ignore", "Permissions", Control::CheckBox, 1, &Settings::permissions},
    {Key::Owner, "Ignore", "Owner", Control::CheckBox, 1, &Settings::owner},
    {Key::Touched, "Ignore", "Touched", Control::CheckBox, 1, &Settings::touched},
    {Key::Moves, "Config", "Moves", Control::CheckBox, 1, &Settings::moves},
}};

constexpr bool keysInEnumOrder() {
    for (size_t i = 0; i < Keys.size(); ++i)
        if (static_cast<size_t>(Keys[i].key) != i)
            return false;
    return static_cast<size_t>(Key::Moves) + 1 == Keys.size();
}
static_assert(keysInEnumOrder());

constexpr std::array<CountList, 6> CountListTable = {{
    {Key::Secs, "sec", 59},
    {Key::Mins, "min", 59},
    {Key::Hours, "hour", 23},
    {Key::Days, "day", 6},
    {Key::Weeks, "week", 52},
    {Key::Years, "year", 31},
}};

// The longest tolerance the lists allow must fit the 16-bit whole-day sum.
static_assert(52 * 7 + 6 + 31 * 365 <= INT16_MAX);

constexpr std::array<Rgb, 16> Palette = {
    0x000000, 0x000080, 0x008000, 0x008080, 0x800000, 0x800080, 0x808000, 0xC0C0C0,
    0x808080, 0x0000FF, 0x00FF00, 0x00FFFF, 0xFF0000, 0xFF00FF, 0xFFFF00, 0xFFFFFF,
};

constexpr std::array<int, 10> Limits = {1000,  2000,  5000,  8000,  10000,
                                        12000, 15000, 20000, 25000, 30000};

// "Changed" takes the bright half of the palette throughout.
Rgb changedColourAt(int position) {
    return paletteColour(position + 8);
}

// "Deleted" takes dark green, dark cyan and dark yellow instead of their
// bright versions; the last is why that list ends "Brown" where the other
// ends "Yellow". The asymmetry is deliberate.
Rgb deletedColourAt(int position) {
    if (position == 2 || position == 3 || position == 6)
        return paletteColour(position);
    return paletteColour(position + 8);
}

// The state of freshly made controls: boxes off, lists without selection.
Settings blankControls() {
    Settings s;
    for (const KeyInfo& info : Keys)
        s.*info.field = info.control == Control::List ? -1 : 0;
    s.program.clear();
    s.params.clear();
    return s;
}

} // namespace

const KeyInfo& keyInfo(Key key) {
    const auto index = static_cast<size_t>(key);
    assert(index < Keys.size());
    return Keys[index];
}

std::span<const KeyInfo> allKeys() {
    return Keys;
}

int16_t defaultValue(Key key) {
    static const Settings defaults;
    return defaults.*keyInfo(key).field;
}

Rgb paletteColour(int entry) {
    if (entry < 0 || entry >= int(Palette.size()))
        return 0;
    return Palette[size_t(entry)];
}

QStringList meterTexts() {
    return {QStringLiteral("Faster Processing"), QStringLiteral("Standard Setting"),
            QStringLiteral("Maximum Feedback")};
}

QStringList changedColourTexts() {
    return {QStringLiteral("Grey"),  QStringLiteral("Blue"), QStringLiteral("Green"),
            QStringLiteral("Cyan"),  QStringLiteral("Red"),  QStringLiteral("Magenta"),
            QStringLiteral("Yellow")};
}

QStringList deletedColourTexts() {
    QStringList texts = changedColourTexts();
    texts.last() = QStringLiteral("Brown");
    return texts;
}

QStringList limitTexts() {
    QStringList texts;
    for (int limit : Limits)
        texts << QString::number(limit);
    return texts;
}

int limitValue(int position) {
    if (position < 0 || position >= int(Limits.size()))
        return 0;
    return Limits[size_t(position)];
}

QString fasterCaption() {
    return QStringLiteral("&Optimise for speed and capacity");
}

QStringList countListTexts(int highest, const QString& unit) {
    QStringList texts;
    for (int n = 0; n <= highest; ++n) {
        if (n == 1)
            texts << QStringLiteral("1 ") + unit;
        else
            texts << QString::number(n) + QLatin1Char(' ') + unit + QLatin1Char('s');
    }
    return texts;
}

std::span<const CountList> countLists() {
    return CountListTable;
}

Options::Options(QObject* parent) : QObject(parent), m_values(blankControls()) {}

int16_t Options::value(Key key) const {
    return m_values.*keyInfo(key).field;
}

bool Options::setValue(Key key, int value) {
    const KeyInfo& info = keyInfo(key);
    int16_t& field = m_values.*info.field;
    int16_t newValue = 0;
    if (info.control == Control::List) {
        if (value < 0 || value > info.highest)
            return false;
        newValue = int16_t(value);
    } else {
        newValue = value != 0 ? 1 : 0;
        // A box or button that already shows the value raises no change
        // event, so its rule does not run.
        if (field == newValue)
            return true;
    }
    const bool different = field != newValue;
    field = newValue;
    // A list runs its rule even when set to the position it holds: loading
    // fills the lists afresh, which leaves them without a selection first.
    runRule(key);
    if (different) {
        Q_EMIT valueChanged(key);
        Q_EMIT changed();
    }
    return true;
}

void Options::setProgram(const QString& program) {
    if (m_values.program == program)
        return;
    m_values.program = program;
    Q_EMIT changed();
}

void Options::setParams(const QString& params) {
    if (m_values.params == params)
        return;
    m_values.params = params;
    Q_EMIT changed();
}

void Options::setPatterns(const QString& patterns) {
    if (m_values.patterns == patterns)
        return;
    m_values.patterns = patterns;
    const QByteArray text = patterns.toUtf8();
    auto compiled = std::make_shared<engine::IgnorePatterns>(
        std::string_view(text.constData(), size_t(text.size())), QStringLiteral("Ignore Patterns"));
    m_patternProblems = compiled->problems();
    m_ignorePatterns.reset();
    if (!compiled->empty())
        m_ignorePatterns = std::move(compiled);
    Q_EMIT changed();
}

QStringList Options::patternProblems() const {
    return m_patternProblems;
}

engine::CompareOptions Options::compareOptions() const {
    engine::CompareOptions options;
    options.ignoreSize = m_ignoreSize;
    options.ignoreVersion = m_ignoreVersion;
    options.ignoreDst = m_ignoreDst;
    options.ignorePermissions = ignorePermissions();
    options.ignoreOwner = ignoreOwner();
    options.ignoreTouched = ignoreTouched();
    options.detectMoves = detectMoves();
    // Despite its name the mask holds the attributes that are compared: with
    // "Ignore attributes" off it is 0 and no attribute change is reported, with
    // it on only the ticked attributes count. Deliberate, odd as the captions
    // make it look.
    options.attributeCompareMask = uint16_t(m_attributeIgnoreMask);
    options.dateTolerance = m_dateTolerance;
    options.ignorePatterns = m_ignorePatterns;
    return options;
}

void Options::runRule(Key key) {
    switch (key) {
    case Key::Changed:
        m_changedColour = changedColourAt(m_values.changed);
        break;
    case Key::Deleted:
        m_deletedColour = deletedColourAt(m_values.deleted);
        break;
    case Key::Toolbar:
        Q_EMIT toolbarChanged(m_values.toolbar != 0);
        break;
    case Key::Synch:
        // Scrolling follows only while folders do.
        if (m_values.synch == 0)
            setValue(Key::Scroll, 0);
        Q_EMIT synchChanged(m_values.synch != 0);
        break;
    case Key::Attrib:
    case Key::Read:
    case Key::Hidden:
    case Key::System:
    case Key::Archive:
        rebuildAttributeMask();
        break;
    case Key::Date:
        // Either way: turning the box off keeps the tolerance the lists
        // show, and the comparison reads it whatever the box says.
        recomputeDateTolerance();
        break;
    case Key::Secs:
    case Key::Mins:
    case Key::Hours:
    case Key::Days:
    case Key::Weeks:
    case Key::Years:
        if (m_values.date != 0)
            recomputeDateTolerance();
        break;
    case Key::Size:
        m_ignoreSize = m_values.size != 0;
        break;
    case Key::Version:
        m_ignoreVersion = m_values.version != 0;
        break;
    case Key::Dst:
        m_ignoreDst = m_values.dst != 0;
        break;
    default:
        break;
    }
}

void Options::rebuildAttributeMask() {
    int16_t mask = 0;
    if (m_values.attrib != 0) {
        if (m_values.read != 0)
            mask += engine::Attribute::ReadOnly;
        if (m_values.hidden != 0)
            mask += engine::Attribute::Hidden;
        if (m_values.system != 0)
            mask += engine::Attribute::System;
        if (m_values.archive != 0)
            mask += engine::Attribute::Archive;
    }
    m_attributeIgnoreMask = mask;
}

void Options::recomputeDateTolerance() {
    // A list without a selection counts as nothing.
    auto count = [](int16_t position) { return std::max<int16_t>(position, 0); };
    const int seconds =
        count(m_values.hours) * 3600 + count(m_values.mins) * 60 + count(m_values.secs);
    const int16_t wholeDays =
        int16_t(count(m_values.weeks) * 7 + count(m_values.days) + count(m_values.years) * 365);
    m_dateTolerance = wholeDays + seconds / 86400.0;
}

} // namespace kestrel::settings
