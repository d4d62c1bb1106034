#pragma once

#include "engine/compare/CompareOptions.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <span>

namespace kestrel::settings {

// Every user option, one field per stored key, holding the table defaults
// (what a first run with an empty store gives). Numbers are 16-bit signed:
// check boxes 0 or 1, lists a zero-based position, "Shell" 0 for the file's
// own application and 1 for the external program.
struct Settings {
    // Section "Config".
    int16_t meter = 1;   // 0 "Faster Processing", 1 "Standard Setting", 2 "Maximum Feedback"
    int16_t changed = 3; // colour of changed entries: "Cyan"
    int16_t deleted = 4; // colour of entries without a match: "Red"
    int16_t limit = 2;   // "5000"
    int16_t toolbar = 1;
    int16_t tiling = 1;
    int16_t synch = 1;
    int16_t scroll = 1;
    int16_t compare = 1;
    int16_t faster = 0;
    int16_t always = 0;
    int16_t empty = 1;
    int16_t explore = 0;
    int16_t filename = 1;
    int16_t title = 0;
    int16_t naming = 0;
    int16_t shell = 0;
    QString program;
    QString params = QStringLiteral("%1 %2");

    // Section "Ignore".
    int16_t attrib = 0;
    int16_t read = 0;
    int16_t hidden = 0;
    int16_t system = 0;
    int16_t archive = 0;
    int16_t date = 0;
    int16_t secs = 0;
    int16_t mins = 0;
    int16_t hours = 0;
    int16_t days = 0;
    int16_t weeks = 0;
    int16_t years = 0;
    int16_t size = 0;
    int16_t version = 0;
    // Kestrel's own addition: an hour's difference (give or take the date
    // tolerance) is a clock change, not a change of the file.
    int16_t dst = 0;
    // Kestrel's own additions: permission bits, and owners and groups, that
    // differ are no change.
    int16_t permissions = 0;
    int16_t owner = 0;
    // Kestrel's own addition: where both files have content fingerprints
    // and they are equal, a date change alone is no change.
    int16_t touched = 1;
    // Kestrel's own addition: files and folders only on one side are paired
    // as moves where that is beyond doubt.
    int16_t moves = 1;
    // Kestrel's own addition: ignore patterns, one a line (gitignore rules;
    // engine/compare/IgnorePatterns.h). Stored as one value, "Patterns".
    QString patterns;

    bool operator==(const Settings&) const = default;
};

// The numeric keys. "Program" and "Params" are text and have their own setters.
enum class Key {
    // Section "Config".
    Meter,
    Changed,
    Deleted,
    Limit,
    Toolbar,
    Tiling,
    Synch,
    Scroll,
    Compare,
    Faster,
    Always,
    Empty,
    Explore,
    Filename,
    Title,
    Naming,
    Shell,
    // Section "Ignore".
    Attrib,
    Read,
    Hidden,
    System,
    Archive,
    Date,
    Secs,
    Mins,
    Hours,
    Days,
    Weeks,
    Years,
    Size,
    Version,
    Dst,
    Permissions,
    Owner,
    Touched,
    Moves,
};

// The kind of control that edits a key, which decides what values it takes
// and when its rule runs.
enum class Control {
    CheckBox, // 0 or 1; any other number counts as on
    List,     // a position 0..highest; other positions do not exist
    Choice,   // the two "Shell" buttons: 0, anything else selects the second
};

struct KeyInfo {
    Key key;
    const char* section; // "Config" or "Ignore"
    const char* name;    // the stored key name, exactly
    Control control;
    int16_t highest; // lists only: the last position
    int16_t Settings::*field;
};

const KeyInfo& keyInfo(Key key);
// Every numeric key, in the order of Key.
std::span<const KeyInfo> allKeys();
// The first-run value of a key: that of a default Settings.
int16_t defaultValue(Key key);

// A colour as 0xRRGGBB, free of any GUI type so the command line can use it.
using Rgb = uint32_t;

// The classic 16-colour text-mode palette: 0..7 dark, 8..15 bright. An entry
// outside 0..15 gives black.
Rgb paletteColour(int entry);

// The texts of the lists, position by position, for the options dialog.
QStringList meterTexts();
QStringList changedColourTexts(); // ends "Yellow"
QStringList deletedColourTexts(); // ends "Brown": its palette rule differs
QStringList limitTexts();
// The entry count a "Limit" position stands for; 0 for a position outside the list.
int limitValue(int position);

// The caption of the "Faster" box, its accelerator marked with "&": the
// file list names the option by it when it refuses to sort.
QString fasterCaption();

// FillCountList's entries for n = 0..highest: "1 sec" for one, "n secs" otherwise.
QStringList countListTexts(int highest, const QString& unit);

// The six tolerance lists in the order they are filled and loaded, with the
// unit word of their texts (the key is the unit word followed by "s").
struct CountList {
    Key key;
    const char* unit;
    int16_t highest;
};
std::span<const CountList> countLists();

// The options of the run: the current values and what the engines use that
// is derived from them. It is the model the options dialog edits; it lives
// for the whole run, owned by the application.
//
// Each change goes through a setter that runs the rule of the control that
// edits the key, whether the user changes it or the store loads it, so both
// take the same path. A check box runs its rule only when its value really
// changes; a list runs its rule whenever it is set.
//
// Until the first load the values are those of freshly made controls (boxes
// off, lists with no selection, -1, empty texts) and the derived values are
// 0 and false; load the store straight after construction. This start state
// is deliberate: a stored box that is off leaves its derived value alone, so
// the date tolerance, for one, stays 0 at start-up while "Date" is off
// whatever the tolerance lists say.
class Options : public QObject {
    Q_OBJECT
public:
    explicit Options(QObject* parent = nullptr);

    const Settings& values() const { return m_values; }
    int16_t value(Key key) const;
    bool isOn(Key key) const { return value(key) != 0; }

    // Sets a box, list or choice and runs its rule. Returns false, changing
    // nothing, when a list has no such position.
    bool setValue(Key key, int value);
    void setProgram(const QString& program);
    void setParams(const QString& params);
    // Sets the ignore patterns and compiles them at once.
    void setPatterns(const QString& patterns);

    // Derived values.
    Rgb changedColour() const { return m_changedColour; }
    Rgb deletedColour() const { return m_deletedColour; }
    // The ticked attribute bits while "Attrib" is on, else 0. The comparison
    // compares exactly these bits (see compareOptions).
    int16_t attributeIgnoreMask() const { return m_attributeIgnoreMask; }
    // Days, time of day as a fraction. Read whatever the state of "Date".
    double dateTolerance() const { return m_dateTolerance; }
    bool ignoreSize() const { return m_ignoreSize; }
    bool ignoreVersion() const { return m_ignoreVersion; }
    bool ignoreDst() const { return m_ignoreDst; }
    bool ignorePermissions() const { return m_values.permissions != 0; }
    bool ignoreOwner() const { return m_values.owner != 0; }
    bool ignoreTouched() const { return m_values.touched != 0; }
    bool detectMoves() const { return m_values.moves != 0; }
    // The ignore patterns compiled; none when there are none.
    const std::shared_ptr<const engine::IgnorePatterns>& ignorePatterns() const {
        return m_ignorePatterns;
    }
    // The pattern lines that could not be compiled ("Ignore Patterns: line
    // 3: unclosed ["); the others apply.
    QStringList patternProblems() const;

    engine::CompareOptions compareOptions() const;

Q_SIGNALS:
    // A numeric value changed (by the user, a load or another key's rule).
    void valueChanged(kestrel::settings::Key key);
    // Anything changed: a value, a text or a derived value.
    void changed();
    // "Toolbar": the main window shows or hides its toolbar at once.
    void toolbarChanged(bool visible);
    // "Synch": open snapshot windows set their folder-synchronisation check
    // mark, and clear the scroll one when it goes off.
    void synchChanged(bool on);

private:
    void runRule(Key key);
    void rebuildAttributeMask();
    void recomputeDateTolerance();

    Settings m_values;
    Rgb m_changedColour = 0;
    Rgb m_deletedColour = 0;
    int16_t m_attributeIgnoreMask = 0;
    double m_dateTolerance = 0;
    bool m_ignoreSize = false;
    bool m_ignoreVersion = false;
    bool m_ignoreDst = false;
    std::shared_ptr<const engine::IgnorePatterns> m_ignorePatterns;
    QStringList m_patternProblems;
};

} // namespace kestrel::settings
