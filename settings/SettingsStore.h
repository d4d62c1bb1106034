#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>

class QSettings;

namespace kestrel::settings {

class Options;

// The per-user settings store: sections "Config", "Ignore" and "Recent" of
// string values. The only code that knows the stored key names.
//
// Numbers are stored as decimal text. Reading them back follows two rules:
// - "Config" keys take the text's leading number (readConfigValue);
// - "Ignore" keys, tolerance lists included, must hold a whole number within
//   16 bits; anything else takes the key's default and the load goes on.
class SettingsStore {
public:
    // The user's own store: organisation and application "Kestrel", on Linux
    // the file ~/.config/Kestrel/Kestrel.conf.
    SettingsStore();
    // Another store, for instance a file in a temporary folder. Not owned;
    // it must outlive this object.
    explicit SettingsStore(QSettings* settings);
    virtual ~SettingsStore();

    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;

    // The file behind the store.
    QString fileName() const;

    // One text value; a missing key gives defaultValue. Also for "Recent".
    // Virtual so that tests can watch what is read and written, and in which
    // order.
    virtual QString readString(const QString& section, const QString& key,
                               const QString& defaultValue) const;
    virtual void writeString(const QString& section, const QString& key, const QString& value);

    // ReadConfigValue: "Config"/key as a 16-bit number. The stored text's
    // leading number counts ("12abc" gives 12, a fraction rounds to the
    // nearest whole number, halves to even); text that does not start with a
    // number gives 0. A number outside 16 bits is clamped to -32768..32767, the
    // nearest value the key can hold, rather than wrapped into an unrelated one.
    int16_t readConfigValue(const QString& key, int16_t defaultValue) const;

    // GetSettings: loads every option into options through its setters, so
    // each control's rule runs, in a fixed order: the tolerance lists, the
    // "Config" numbers, the "Ignore" boxes, "Shell", then "Program",
    // "Params" and the ignore patterns ("Ignore"/"Patterns": every line in
    // one value, the line breaks escaped by the store). A list position that the list does not have
    // gives the key's default.
    void getSettings(Options& options) const;

    // SaveSettings: writes every option except "Synch" (saveSynch does) and
    // "Params" (never written: each run starts from the stored template).
    void saveSettings(const Options& options);

    // Stores "Synch" as it stands. Called when the program ends, whether or
    // not the options were saved.
    void saveSynch(const Options& options);

    // The Window menu's last choice of tiling, stored as soon as it is made:
    // true for side by side, false (the default) for one above the other.
    bool readTileSideBySide() const;
    void writeTileSideBySide(bool sideBySide);

    // Section "Recent".
    // The recently opened snapshot files, most recent first: "File0",
    // "File1", ... up to the first missing or empty value (no upper limit).
    QStringList readRecentFiles() const;
    // Writes every file to "File0", "File1", ..., then blanks the stored
    // values that follow while there are any, so a shorter list leaves
    // nothing stale behind.
    void writeRecentFiles(const QStringList& files);
    // The folder the file dialogs start in ("Folder"); fallback when none
    // is stored.
    QString readLastFolder(const QString& fallback) const;
    void writeLastFolder(const QString& folder);
    // The recent list's window size in twips ("Width", "Height"). A value
    // that is not a whole number gives the designed one.
    struct TwipsSize {
        int width = 0;
        int height = 0;
    };
    TwipsSize readRecentWindowSize(TwipsSize designed) const;
    void writeRecentWindowSize(TwipsSize size);

private:
    std::unique_ptr<QSettings> m_owned;
    QSettings* m_settings;
};

} // namespace kestrel::settings
