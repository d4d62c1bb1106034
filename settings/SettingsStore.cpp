#include "SettingsStore.h"

#include "Settings.h"

#include <QSettings>
#include <QStringList>
#include <QVariant>

#include <cmath>
#include <optional>

namespace kestrel::settings {

namespace {

const QString Config = QStringLiteral("Config");
const QString Ignore = QStringLiteral("Ignore");
const QString Recent = QStringLiteral("Recent");

QString recentFileKey(qsizetype n) {
    return QStringLiteral("File") + QString::number(n);
}

bool isDigit(QChar c) {
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

// The length of the number at the start of text (after blanks): an optional
// sign, digits with an optional fraction, an optional exponent. 0 if none.
qsizetype numberLength(QStringView text) {
    qsizetype i = 0;
    const qsizetype n = text.size();
    if (i < n && (text[i] == QLatin1Char('+') || text[i] == QLatin1Char('-')))
        ++i;
    qsizetype digits = 0;
    while (i < n && isDigit(text[i]))
        ++i, ++digits;
    if (i < n && text[i] == QLatin1Char('.')) {
        ++i;
        while (i < n && isDigit(text[i]))
            ++i, ++digits;
    }
    if (digits == 0)
        return 0;
    if (i < n && (text[i] == QLatin1Char('e') || text[i] == QLatin1Char('E'))) {
        qsizetype j = i + 1;
        if (j < n && (text[j] == QLatin1Char('+') || text[j] == QLatin1Char('-')))
            ++j;
        if (j < n && isDigit(text[j])) {
            while (j < n && isDigit(text[j]))
                ++j;
            i = j;
        }
    }
    return i;
}

int16_t clampTo16(double value) {
    // nearbyint rounds halves to even in the default rounding mode.
    const double rounded = std::nearbyint(value);
    if (rounded <= INT16_MIN)
        return INT16_MIN;
    if (rounded >= INT16_MAX)
        return INT16_MAX;
    return int16_t(rounded);
}

int16_t leadingNumber(const QString& text) {
    const QStringView trimmed = QStringView(text).trimmed();
    const qsizetype length = numberLength(trimmed);
    if (length == 0)
        return 0;
    return clampTo16(trimmed.left(length).toDouble());
}

// Strict: the whole text (blanks around it aside) is a whole number that
// fits 16 bits. Fractions, words and large numbers are not.
std::optional<int16_t> strictNumber(const QString& text) {
    bool ok = false;
    const int value = QStringView(text).trimmed().toInt(&ok);
    if (!ok || value < INT16_MIN || value > INT16_MAX)
        return std::nullopt;
    return int16_t(value);
}

// Sets a loaded value; a list that has no such position takes the key's
// default instead, so every list holds a real choice after a load.
void apply(Options& options, Key key, int16_t value) {
    if (!options.setValue(key, value))
        options.setValue(key, defaultValue(key));
}

QString name(Key key) {
    return QString::fromLatin1(keyInfo(key).name);
}
QString section(Key key) {
    return QString::fromLatin1(keyInfo(key).section);
}

} // namespace

SettingsStore::SettingsStore()
    : m_owned(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                          QStringLiteral("Kestrel"), QStringLiteral("Kestrel"))),
      m_settings(m_owned.get()) {
    // A missing key must give the program's own default, not one from an
    // organisation-wide or system-wide file.
    m_settings->setFallbacksEnabled(false);
}

SettingsStore::SettingsStore(QSettings* settings) : m_settings(settings) {}

SettingsStore::~SettingsStore() = default;

QString SettingsStore::fileName() const {
    return m_settings->fileName();
}

QString SettingsStore::readString(const QString& section, const QString& key,
                                  const QString& defaultValue) const {
    const QVariant value = m_settings->value(section + QLatin1Char('/') + key);
    if (!value.isValid())
        return defaultValue;
    // A hand-edited value with unquoted commas reads back as a list.
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(QLatin1Char(','));
    return value.toString();
}

void SettingsStore::writeString(const QString& section, const QString& key, const QString& value) {
    m_settings->setValue(section + QLatin1Char('/') + key, value);
}

int16_t SettingsStore::readConfigValue(const QString& key, int16_t defaultValue) const {
    return leadingNumber(readString(Config, key, QString::number(defaultValue)));
}

void SettingsStore::getSettings(Options& options) const {
    auto readStrict = [this](Key key) {
        const int16_t fallback = defaultValue(key);
        const QString text = readString(section(key), name(key), QString::number(fallback));
        // A value that is not a whole number stops nothing: the key keeps its
        // default and the rest of the options still load.
        return strictNumber(text).value_or(fallback);
    };

    // The order is part of the behaviour: the tolerance lists come before the
    // "Date" box, and "Synch" (which may clear "Scroll") before "Scroll".
    for (const CountList& list : countLists())
        apply(options, list.key, readStrict(list.key));

    for (Key key : {Key::Meter, Key::Changed, Key::Deleted, Key::Limit, Key::Toolbar, Key::Tiling,
                    Key::Synch, Key::Scroll, Key::Compare, Key::Faster, Key::Always, Key::Empty,
                    Key::Explore, Key::Filename, Key::Title, Key::Naming})
        apply(options, key, readConfigValue(name(key), defaultValue(key)));

    for (Key key :
         {Key::Attrib, Key::Read, Key::Hidden, Key::System, Key::Archive, Key::Date, Key::Size,
          Key::Version, Key::Dst, Key::Permissions, Key::Owner, Key::Touched, Key::Moves})
        apply(options, key, readStrict(key));

    apply(options, Key::Shell, readConfigValue(name(Key::Shell), defaultValue(Key::Shell)));

    const Settings defaults;
    options.setProgram(readString(Config, QStringLiteral("Program"), defaults.program));
    options.setParams(readString(Config, QStringLiteral("Params"), defaults.params));
    options.setPatterns(readString(Ignore, QStringLiteral("Patterns"), defaults.patterns));
}

void SettingsStore::saveSettings(const Options& options) {
    auto save = [&](Key key) {
        writeString(section(key), name(key), QString::number(options.value(key)));
    };

    // "Compare" before "Scroll" here, the other way round when loading.
    for (Key key : {Key::Meter, Key::Changed, Key::Deleted, Key::Limit, Key::Toolbar, Key::Tiling,
                    Key::Compare, Key::Scroll, Key::Faster, Key::Always, Key::Empty, Key::Explore,
                    Key::Filename, Key::Title, Key::Naming})
        save(key);
    for (Key key :
         {Key::Attrib, Key::Read, Key::Hidden, Key::System, Key::Archive, Key::Date, Key::Size,
          Key::Version, Key::Dst, Key::Permissions, Key::Owner, Key::Touched, Key::Moves})
        save(key);
    save(Key::Shell);
    writeString(Config, QStringLiteral("Program"), options.values().program);
    for (const CountList& list : countLists())
        save(list.key);
    // The lines in one value: the store escapes the line breaks.
    writeString(Ignore, QStringLiteral("Patterns"), options.values().patterns);
    m_settings->sync();
}

void SettingsStore::saveSynch(const Options& options) {
    writeString(Config, name(Key::Synch), QString::number(options.value(Key::Synch)));
    m_settings->sync();
}

bool SettingsStore::readTileSideBySide() const {
    return readConfigValue(QStringLiteral("TileSideBySide"), 0) != 0;
}

void SettingsStore::writeTileSideBySide(bool sideBySide) {
    writeString(Config, QStringLiteral("TileSideBySide"),
                sideBySide ? QStringLiteral("1") : QStringLiteral("0"));
}

QStringList SettingsStore::readRecentFiles() const {
    QStringList files;
    for (qsizetype n = 0;; ++n) {
        const QString path = readString(Recent, recentFileKey(n), QString());
        if (path.isEmpty())
            return files;
        files << path;
    }
}

void SettingsStore::writeRecentFiles(const QStringList& files) {
    for (qsizetype i = 0; i < files.size(); ++i)
        writeString(Recent, recentFileKey(i), files[i]);
    // A list that shrank since the last save leaves older keys behind.
    for (qsizetype n = files.size(); !readString(Recent, recentFileKey(n), QString()).isEmpty();
         ++n)
        writeString(Recent, recentFileKey(n), QString());
}

QString SettingsStore::readLastFolder(const QString& fallback) const {
    return readString(Recent, QStringLiteral("Folder"), fallback);
}

void SettingsStore::writeLastFolder(const QString& folder) {
    writeString(Recent, QStringLiteral("Folder"), folder);
}

SettingsStore::TwipsSize SettingsStore::readRecentWindowSize(TwipsSize designed) const {
    const auto read = [this](const QString& key, int designedValue) {
        bool ok = false;
        const int value = readString(Recent, key, QString::number(designedValue)).toInt(&ok);
        return ok ? value : designedValue;
    };
    return {read(QStringLiteral("Width"), designed.width),
            read(QStringLiteral("Height"), designed.height)};
}

void SettingsStore::writeRecentWindowSize(TwipsSize size) {
    writeString(Recent, QStringLiteral("Width"), QString::number(size.width));
    writeString(Recent, QStringLiteral("Height"), QString::number(size.height));
}

} // namespace kestrel::settings
