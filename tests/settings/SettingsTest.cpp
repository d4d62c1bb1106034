#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include "engine/compare/IgnorePatterns.h"

#include "engine/model/Snapshot.h"

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

using namespace kestrel::settings;
using namespace Qt::StringLiterals;

namespace {

// Keeps the whole run away from the user's own settings: home, configuration
// folder and QSettings' default paths all point into a temporary folder.
class IsolatedHome : public testing::Environment {
public:
    void SetUp() override {
        m_dir = std::make_unique<QTemporaryDir>();
        ASSERT_TRUE(m_dir->isValid());
        qputenv("HOME", m_dir->path().toUtf8());
        qputenv("XDG_CONFIG_HOME", configPath().toUtf8());
        for (auto scope : {QSettings::UserScope, QSettings::SystemScope})
            for (auto format : {QSettings::NativeFormat, QSettings::IniFormat})
                QSettings::setPath(format, scope, configPath());
    }
    void TearDown() override { m_dir.reset(); }

    static QString configPath() { return QDir::homePath() + u"/config"_s; }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

const auto* const isolatedHome = testing::AddGlobalTestEnvironment(new IsolatedHome);

// Each test has a store file of its own, opened afresh as the next run would.
class StoreTest : public testing::Test {
protected:
    std::unique_ptr<QSettings> openFile() const {
        return std::make_unique<QSettings>(m_dir.filePath(u"Kestrel.conf"_s), QSettings::IniFormat);
    }
    void store(const QString& key, const QString& value) { openFile()->setValue(key, value); }
    void load(Options& options) const { SettingsStore(openFile().get()).getSettings(options); }

    QTemporaryDir m_dir;
};

// The first run gives the defaults; "Toolbar" goes from off to on while
// loading, so the window is told once. A box's rule runs on load only when
// the box changes: "Date" off leaves the tolerance at 0, whatever the lists
// hold.
TEST_F(StoreTest, LoadGivesTheDefaultsAndRunsABoxRuleOnlyWhenTheBoxChanges) {
    Options options;
    std::vector<bool> toolbar;
    QObject::connect(&options, &Options::toolbarChanged, [&](bool on) { toolbar.push_back(on); });
    load(options);
    EXPECT_EQ(options.values().params, u"%1 %2"_s);
    const kestrel::engine::CompareOptions compare = options.compareOptions();
    // No attribute is compared until "Ignore attributes" ticks some.
    EXPECT_EQ(compare.attributeCompareMask, 0);
    EXPECT_EQ(compare.dateTolerance, 0.0);
    EXPECT_FALSE(compare.ignoreSize || compare.ignoreVersion || compare.ignoreDst);
    EXPECT_EQ(toolbar, std::vector<bool>{true});

    store(u"Ignore/secs"_s, u"30"_s);
    load(options);
    EXPECT_EQ(options.values().secs, 30);
    EXPECT_EQ(options.dateTolerance(), 0.0);
    store(u"Ignore/Date"_s, u"1"_s);
    store(u"Config/Toolbar"_s, u"0"_s);
    load(options);
    load(options); // nothing differs, nothing fires
    EXPECT_DOUBLE_EQ(options.dateTolerance(), 30 / 86400.0);
    EXPECT_EQ(toolbar, (std::vector<bool>{true, false}));
}

// What the options dialog's tests leave out: a tolerance computed while
// "Date" was on stays for the comparison after it goes off, the daylight
// saving box reaches the comparison, a colour list
// refuses a position it does not have, and "Synch" tells the windows once
// per change.
TEST(OptionsTest, DerivedValuesAndSignals) {
    Options options;
    options.setValue(Key::Date, 1);
    options.setValue(Key::Years, 31);
    options.setValue(Key::Hours, 2);
    options.setValue(Key::Date, 0);
    options.setValue(Key::Weeks, 1);
    EXPECT_DOUBLE_EQ(options.compareOptions().dateTolerance, 31 * 365 + 7200 / 86400.0);
    options.setValue(Key::Dst, 1);
    EXPECT_TRUE(options.compareOptions().ignoreDst && !options.compareOptions().ignoreVersion);

    ASSERT_TRUE(options.setValue(Key::Changed, 6));
    EXPECT_FALSE(options.setValue(Key::Changed, 7));
    EXPECT_EQ(options.changedColour(), 0xFFFF00u); // "Yellow", still

    std::vector<bool> synch;
    QObject::connect(&options, &Options::synchChanged, [&](bool on) { synch.push_back(on); });
    options.setValue(Key::Synch, 1);
    options.setValue(Key::Synch, 1);
    options.setValue(Key::Synch, 0);
    EXPECT_EQ(synch, (std::vector<bool>{true, false}));
}

// Every key goes back as it came; the ignore patterns are one value, kept
// with their comments and their commas, and a line that cannot be read is
// told while the others apply. (The options dialog's tests type them.)
TEST_F(StoreTest, SaveAndLoadKeepEveryKey) {
    Options edited;
    for (const KeyInfo& info : allKeys()) {
        const int other = info.control == Control::List ? info.highest : 1 - defaultValue(info.key);
        ASSERT_TRUE(edited.setValue(info.key, other)) << info.name;
    }
    edited.setProgram(u"/opt/diff tools/cmp,v2"_s); // blanks and a comma need quoting
    edited.setParams(u"-x %1 %2"_s);
    const QString lines = u"*.pyc\n__pycache__/\n# comment, with a comma\n[bad\n!keep.pyc"_s;
    edited.setPatterns(lines);
    SettingsStore(openFile().get()).saveSettings(edited);
    EXPECT_EQ(openFile()->value(u"Ignore/Patterns"_s).toString(), lines);

    Options loaded;
    load(loaded);
    Settings expected = edited.values();
    expected.params = Settings().params; // never saved
    expected.synch = Settings().synch;   // written only at exit
    EXPECT_EQ(loaded.values(), expected);
    EXPECT_EQ(loaded.deletedColour(), 0x808000u);
    EXPECT_EQ(loaded.attributeIgnoreMask(), 39);
    EXPECT_DOUBLE_EQ(loaded.dateTolerance(), edited.dateTolerance());
    EXPECT_TRUE(loaded.ignoreSize() && loaded.ignoreVersion() && loaded.ignoreDst());
    EXPECT_EQ(loaded.patternProblems(), QStringList{u"Ignore Patterns: line 4: unclosed ["_s});
    ASSERT_TRUE(loaded.compareOptions().ignorePatterns);
    EXPECT_FALSE(loaded.compareOptions().ignorePatterns->ignores("keep.pyc", false));
    loaded.setPatterns(u"  \n# nothing\n"_s);
    EXPECT_FALSE(loaded.compareOptions().ignorePatterns);
}

TEST_F(StoreTest, ReadConfigValueTakesTheLeadingNumber) {
    const std::pair<QString, int> cases[] = {
        {u"12abc"_s, 12}, {u"abc"_s, 0}, {u""_s, 0},          {u"-3"_s, -3},
        {u" 7 "_s, 7},    {u"1.6"_s, 2}, {u"70000"_s, 32767}, {u"-70000"_s, -32768},
    };
    auto file = openFile();
    SettingsStore store(file.get());
    for (const auto& [text, number] : cases) {
        store.writeString(u"Config"_s, u"Limit"_s, text);
        EXPECT_EQ(store.readConfigValue(u"Limit"_s, 5), number) << text.toStdString();
    }
    EXPECT_EQ(store.readConfigValue(u"Missing"_s, 5), 5);
}

TEST_F(StoreTest, UnreadableValuesTakeTheirDefaultsAndTheLoadGoesOn) {
    store(u"Ignore/Size"_s, u"yes"_s);
    store(u"Ignore/Attrib"_s, u"1.5"_s);
    store(u"Ignore/weeks"_s, u"70000"_s);
    store(u"Ignore/Version"_s, u" 1 "_s);
    store(u"Ignore/DST"_s, u"1"_s);
    store(u"Config/Changed"_s, u"9"_s);   // no such colour: the default
    store(u"Config/Toolbar"_s, u"off"_s); // a "Config" word reads as 0
    Options options;
    load(options);
    EXPECT_EQ(std::tuple(options.values().size, options.values().attrib, options.values().weeks),
              std::tuple(0, 0, 0));
    EXPECT_TRUE(options.ignoreVersion() && options.ignoreDst());
    EXPECT_EQ(options.changedColour(), 0x00FFFFu);
    EXPECT_EQ(options.values().toolbar, 0);
}

TEST(ListTextsTest, CountListsAndTheUserStore) {
    const QStringList secs = countListTexts(59, u"sec"_s);
    ASSERT_EQ(secs.size(), 60);
    EXPECT_EQ(secs.mid(0, 3), (QStringList{u"0 secs"_s, u"1 sec"_s, u"2 secs"_s}));
    EXPECT_EQ(countListTexts(31, u"year"_s).last(), u"31 years"_s);

    EXPECT_EQ(SettingsStore().fileName(), IsolatedHome::configPath() + u"/Kestrel/Kestrel.conf"_s);
}

} // namespace
