// The options dialog over a store of the test's own: what loading shows in
// every control, the rules between the controls, Cancel, Save and a restart,
// the Compare buttons, and the external program.

#include "TemporaryHome.h"

#include "engine/compare/IgnorePatterns.h"
#include "engine/model/Snapshot.h"

#include "settings/Settings.h"
#include "settings/SettingsStore.h"
#include "settings/ui/ConfigDialog.h"
#include "shell/Launcher.h"

#include <QPlainTextEdit>

#include <map>
#include <utility>

using namespace kestrel;
using namespace Qt::StringLiterals;
using settings::ConfigDialog;
using settings::Key;

namespace {

// The controls of the dialog with the keys they edit.
const std::map<Key, const char*> BoundControls = {
    {Key::Attrib, "chkAttr0"},      {Key::Read, "chkAttr1"},
    {Key::Hidden, "chkAttr2"},      {Key::System, "chkAttr3"},
    {Key::Archive, "chkAttr4"},     {Key::Date, "chkDate"},
    {Key::Dst, "chkDst"},           {Key::Size, "chkSize"},
    {Key::Version, "chkVers"},      {Key::Permissions, "chkPermissions"},
    {Key::Owner, "chkOwner"},       {Key::Touched, "chkTouched"},
    {Key::Moves, "chkMoves"},       {Key::Compare, "chkCompare"},
    {Key::Scroll, "chkScroll"},     {Key::Synch, "chkSynch"},
    {Key::Empty, "chkEmpty"},       {Key::Always, "chkAlways"},
    {Key::Tiling, "chkTiling"},     {Key::Toolbar, "chkToolbar"},
    {Key::Filename, "chkFilename"}, {Key::Title, "chkTitle"},
    {Key::Naming, "chkNaming"},     {Key::Faster, "chkFaster"},
    {Key::Explore, "chkExplore"},   {Key::Secs, "cboSecs1"},
    {Key::Mins, "cboSecs2"},        {Key::Hours, "cboSecs3"},
    {Key::Days, "cboDays1"},        {Key::Weeks, "cboDays2"},
    {Key::Years, "cboDays3"},       {Key::Limit, "cboLimit"},
    {Key::Changed, "cboChanged"},   {Key::Deleted, "cboDeleted"},
    {Key::Meter, "cboMeter"},       {Key::Shell, "optShell1"},
};

// What a control shows: a box or button 0 or 1, a list its position.
int shown(QWidget& dialog, const char* name) {
    QWidget* widget = control<QWidget>(dialog, name);
    if (auto* list = qobject_cast<QComboBox*>(widget))
        return list->currentIndex();
    return static_cast<QAbstractButton*>(widget)->isChecked() ? 1 : 0;
}

QColor sampleColour(QWidget& dialog, const char* name) {
    return control<QLabel>(dialog, name)->palette().color(QPalette::Window);
}

// The value a key gets when a test changes it from its default.
int otherValue(const settings::KeyInfo& info) {
    return info.control == settings::Control::List ? info.highest
                                                   : 1 - settings::defaultValue(info.key);
}

QString storedName(Key key) {
    const settings::KeyInfo& info = settings::keyInfo(key);
    return QLatin1String(info.section) + u'/' + QLatin1String(info.name);
}

} // namespace

class ConfigDialogTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QSettings> m_file;
    std::unique_ptr<settings::SettingsStore> m_store;
    std::unique_ptr<settings::Options> m_options;
    std::unique_ptr<ConfigDialog> m_dialog;
    QStringList m_asked; // "title: text" of each question
    bool m_answer = false;

    void store(const QString& key, const QString& value) { m_file->setValue(key, value); }
    QString stored(const QString& key) const { return m_file->value(key, u"(none)"_s).toString(); }

    // The program ends (the dialog goes, storing "Synch") and the next run
    // starts with fresh options and a new dialog, which loads them.
    ConfigDialog& start() {
        m_dialog.reset();
        m_options = std::make_unique<settings::Options>();
        m_dialog = std::make_unique<ConfigDialog>(
            *m_options, *m_store, nullptr, [this](const QString& title, const QString& text) {
                m_asked << title + u": "_s + text;
                return m_answer;
            });
        return *m_dialog;
    }
    template <typename T> T* c(const char* name) { return control<T>(*m_dialog, name); }
    void click(const char* name) { c<QAbstractButton>(name)->click(); }
    QString text(const char* name) { return c<QLineEdit>(name)->text(); }

private Q_SLOTS:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_file =
            std::make_unique<QSettings>(m_dir->filePath(u"Kestrel.conf"_s), QSettings::IniFormat);
        m_store = std::make_unique<settings::SettingsStore>(m_file.get());
        m_asked.clear();
        m_answer = false;
    }

    void cleanup() {
        m_dialog.reset();
        m_options.reset();
        m_store.reset();
        m_file.reset();
    }

    // Each stored key reaches its own control and no other; stored all at
    // once they give the texts, samples, enabling and derived values, and a
    // stored "Faster" asks its question at start-up.
    void loadingFillsEveryControl() {
        ConfigDialog& first = start();
        QCOMPARE(sampleColour(first, "txtChanged"), QColor(0, 255, 255));
        QCOMPARE(sampleColour(first, "txtDeleted"), QColor(255, 0, 0));
        std::map<Key, int> defaults;
        for (const auto& [key, name] : BoundControls)
            defaults[key] = shown(first, name);
        m_answer = true;
        for (const settings::KeyInfo& info : settings::allKeys()) {
            m_dialog.reset(); // it stores "Synch" as it goes
            m_file->clear();
            store(storedName(info.key), QString::number(otherValue(info)));
            ConfigDialog& d = start();
            QStringList differing;
            for (const auto& [key, name] : BoundControls)
                if (shown(d, name) != defaults[key])
                    differing << QLatin1String(name);
            // ("Synch" off clears "Scroll", but "Scroll" loads after it.)
            QCOMPARE(differing, QStringList{QLatin1String(BoundControls.at(info.key))});
            QCOMPARE(shown(d, BoundControls.at(info.key)), otherValue(info));
        }

        m_asked.clear();
        m_dialog.reset();
        for (const settings::KeyInfo& info : settings::allKeys())
            store(storedName(info.key), QString::number(otherValue(info)));
        store(u"Config/Program"_s, u"/opt/diff tools/cmp"_s);
        store(u"Config/Params"_s, u"-x %2 %1"_s);
        ConfigDialog& d = start();
        QCOMPARE(m_asked,
                 QStringList{u"Maximise Speed and Capacity: "_s
                             u"Enabling this feature can improve speed and increases the "
                             u"number of entries that can be displayed in the file list. "
                             u"However, it will disable sorting of the Size, Modified and "
                             u"Attributes columns. You only need to enable this feature if "
                             u"you are having problems displaying the contents of very "
                             u"large directories.\n\nAre you sure you need to do this?"_s});
        QCOMPARE(c<QComboBox>("cboDeleted")->currentText(), u"Brown"_s);
        QCOMPARE(sampleColour(d, "txtDeleted"), QColor(128, 128, 0));
        QCOMPARE(text("txtProgram"), u"/opt/diff tools/cmp"_s);
        QCOMPARE(text("txtParams"), u"-x %2 %1"_s);
        QVERIFY(c<QCheckBox>("chkAttr4")->isEnabled() && c<QComboBox>("cboLimit")->isEnabled());
        QVERIFY(!c<QCheckBox>("chkScroll")->isEnabled());
        QCOMPARE(m_options->dateTolerance(), 11685 + 86399 / 86400.0);
        m_answer = false;
        start();
        QVERIFY(!c<QCheckBox>("chkFaster")->isChecked());
        QCOMPARE(m_asked.size(), 2);
    }

    void controlRules() {
        ConfigDialog& d = start();
        d.show(); // activated: Cancel enabled, display flag clear
        auto* cancel = c<QPushButton>("cmdCancel");
        QVERIFY(!c<QCheckBox>("chkAttr4")->isEnabled());
        click("chkAttr0");
        click("chkAttr4");
        QCOMPARE(m_options->compareOptions().attributeCompareMask, engine::Attribute::Archive);
        click("chkAttr0");
        QVERIFY(!c<QCheckBox>("chkAttr4")->isEnabled() && c<QCheckBox>("chkAttr4")->isChecked());
        QCOMPARE(m_options->compareOptions().attributeCompareMask, 0);

        // A tolerance list counts once "Date" is clicked; while it is on, at once.
        c<QComboBox>("cboSecs1")->setCurrentIndex(30);
        QCOMPARE(m_options->dateTolerance(), 0.0);
        click("chkDate");
        c<QComboBox>("cboDays2")->setCurrentIndex(1);
        QCOMPARE(m_options->dateTolerance(), 7 + 30 / 86400.0);

        click("chkAlways");
        QVERIFY(c<QComboBox>("cboLimit")->isEnabled());

        // "Faster" answered No stays clear.
        click("chkFaster");
        QVERIFY(!c<QCheckBox>("chkFaster")->isChecked());
        QCOMPARE(m_asked.size(), 1);
        QVERIFY(cancel->isEnabled());

        auto* scroll = c<QCheckBox>("chkScroll");
        click("chkSynch");
        QVERIFY(!scroll->isChecked() && !scroll->isEnabled());
        QVERIFY(!cancel->isEnabled() && d.displayChanged());
        click("chkSynch");
        QVERIFY(scroll->isEnabled() && !scroll->isChecked());
        // Escape and the close button are Cancel, and wait while it is disabled.
        QTest::keyClick(&d, Qt::Key_Escape);
        QVERIFY(!d.close() && d.isVisible());
        for (const char* box : {"chkEmpty", "chkScroll", "chkAlways"}) {
            d.hide();
            d.show();
            QVERIFY(cancel->isEnabled() && !d.displayChanged());
            click(box);
            QVERIFY2(d.displayChanged(), box);
        }
        for (const char* list : {"cboChanged", "cboDeleted"}) {
            d.hide();
            d.show();
            QVERIFY(!d.displayChanged());
            c<QComboBox>(list)->setCurrentIndex(c<QComboBox>(list)->currentIndex() + 1);
            QVERIFY2(d.displayChanged(), list);
        }

        // A change made elsewhere (the new-snapshot dialog's version box) shows.
        m_options->setValue(Key::Version, 1);
        QVERIFY(c<QCheckBox>("chkVers")->isChecked());
    }

    void cancelRestoresTheStoredValues() {
        store(u"Config/Changed"_s, u"1"_s);
        store(u"Config/Params"_s, u"/b %1 %2"_s);
        ConfigDialog& d = start();
        d.show();
        c<QComboBox>("cboChanged")->setCurrentIndex(6);
        c<QComboBox>("cboDeleted")->setCurrentIndex(6);
        c<QLineEdit>("txtParams")->setText(u"-x"_s);
        click("chkEmpty");
        click("optShell1");
        c<QTabWidget>("tabSetup")->setCurrentIndex(2);
        click("cmdCancel");
        QVERIFY(!d.isVisible() && !d.displayChanged());
        QCOMPARE(c<QTabWidget>("tabSetup")->currentIndex(), 0);
        QCOMPARE(c<QComboBox>("cboChanged")->currentText(), u"Blue"_s);
        QCOMPARE(sampleColour(d, "txtChanged"), QColor(0, 0, 255));
        QCOMPARE(sampleColour(d, "txtDeleted"), QColor(255, 0, 0));
        QCOMPARE(text("txtParams"), u"/b %1 %2"_s);
        QVERIFY(c<QCheckBox>("chkEmpty")->isChecked() && c<QRadioButton>("optShell0")->isChecked());
        QCOMPARE(stored(u"Config/Changed"_s), u"1"_s);

        d.show();
        c<QComboBox>("cboChanged")->setCurrentIndex(3);
        QTest::keyClick(&d, Qt::Key_Escape);
        QVERIFY(!d.isVisible());
        QCOMPARE(c<QComboBox>("cboChanged")->currentText(), u"Blue"_s);
    }

    // The ignore patterns are typed one a line; a line that cannot be read
    // is named under the box while the others apply, and Save keeps them
    // for the next run.
    void ignorePatternsAreTypedCheckedAndSaved() {
        ConfigDialog& d = start();
        d.show();
        auto* box = c<QPlainTextEdit>("txtPatterns");
        auto* problems = c<QLabel>("lblPatterns");
        box->setFocus();
        QTest::keyClicks(box, u"*.pyc"_s);
        QTest::keyClick(box, Qt::Key_Return);
        QTest::keyClicks(box, u"cache[/"_s);
        QTest::keyClick(box, Qt::Key_Return);
        QTest::keyClicks(box, u"!keep.pyc"_s);
        QCOMPARE(m_options->values().patterns, u"*.pyc\ncache[/\n!keep.pyc"_s);
        QVERIFY(m_options->ignorePatterns());
        QVERIFY(!problems->isHidden());
        QCOMPARE(problems->text(), u"Ignore Patterns: line 2: unclosed ["_s);
        QVERIFY(m_options->ignorePatterns()->ignores("a.pyc", false));
        QVERIFY(!m_options->ignorePatterns()->ignores("keep.pyc", false));

        click("cmdSave");
        start();
        QCOMPARE(c<QPlainTextEdit>("txtPatterns")->toPlainText(), u"*.pyc\ncache[/\n!keep.pyc"_s);
        QCOMPARE(c<QLabel>("lblPatterns")->text(), u"Ignore Patterns: line 2: unclosed ["_s);
    }

    // Save writes neither "Params" nor "Synch"; "Synch" is written when the
    // dialog goes at the end of the run, and the next run starts from the
    // stored template, not the edit.
    void paramsAndSynchAcrossARestart() {
        store(u"Config/Params"_s, u"/b %1 %2"_s);
        ConfigDialog& d = start();
        d.show();
        c<QLineEdit>("txtParams")->setText(u"--edited %2 %1"_s);
        click("chkSynch");
        click("cmdSave");
        QVERIFY(!d.isVisible());
        QCOMPARE(stored(u"Config/Params"_s), u"/b %1 %2"_s);
        QCOMPARE(stored(u"Config/Synch"_s), u"(none)"_s);
        QCOMPARE(m_options->values().params, u"--edited %2 %1"_s); // for the rest of this run
        start();
        QCOMPARE(stored(u"Config/Synch"_s), u"0"_s);
        QVERIFY(!c<QCheckBox>("chkSynch")->isChecked());
        QCOMPARE(text("txtParams"), u"/b %1 %2"_s);
    }

    void compareButtons() {
        ConfigDialog& d = start();
        auto* both = c<QPushButton>("cmdCompare1");
        auto* current = c<QPushButton>("cmdCompare0");
        QSignalSpy compares(&d, &ConfigDialog::compareRequested);
        // From a snapshot window: the captions and the first tab; Compare
        // saves, then asks for the comparison.
        QStringList seen;
        d.showModal = [&](QDialog& dialog) {
            seen << text("txtSnap") << text("txtOther")
                 << QString::number(c<QTabWidget>("tabSetup")->currentIndex());
            c<QComboBox>("cboChanged")->setCurrentIndex(0);
            both->click();
            return dialog.result();
        };
        c<QTabWidget>("tabSetup")->setCurrentIndex(2);
        QCOMPARE(d.showForComparison(u"Snapshot #1 of /d"_s, u"Snapshot #2 of /d"_s),
                 int(QDialog::Accepted));
        QCOMPARE(seen, (QStringList{u"Snapshot #1 of /d"_s, u"Snapshot #2 of /d"_s, u"0"_s}));
        QCOMPARE(stored(u"Config/Changed"_s), u"0"_s);
        current->click();
        QCOMPARE(compares.size(), 2);
        QVERIFY(compares.at(0).at(0).toBool() && !compares.at(1).at(0).toBool());
        // (The main window's tests see them disabled for good by its menu.)
    }

    // ExecuteCustom takes the program and template as they stand in the
    // dialog and starts nothing for an empty path; a real program, started
    // as the main window starts it, gets each path as one argument and runs
    // in its own folder.
    void executeCustom() {
        const QString folder = m_dir->filePath(u"diff tools"_s);
        const QString program = folder + u"/record"_s;
        QVERIFY(QDir().mkpath(folder));
        // Each argument, and the working folder, ended by a NUL: a line break
        // inside an argument stays inside it.
        writeFile(program, "#!/bin/sh\n{ for a in \"$@\"; do printf '%s\\0' \"$a\"; done; pwd -P; }"
                           " > \"$0.tmp\" && mv \"$0.tmp\" \"$0.out\"\n");
        QVERIFY(
            QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

        QStringList messages;
        shell::Launcher launcher(
            [&](const engine::UserMessage& m) { messages << m.title + u": "_s + m.text; });
        int launches = 0;
        ConfigDialog& d = start();
        d.launchProgram = [&](const settings::CustomLaunch& launch) {
            ++launches;
            return launcher.StartProgram(launch.program, launch.arguments, launch.folder);
        };
        // Nothing reaches a shell: quotes, semicolons, line breaks and what a
        // shell would run arrive as they are.
        const QString first = m_dir->filePath(u"with space/\"quoted\"; $(touch pwned)\nname.txt"_s);
        const QString second = u"-n leading dash"_s;
        QVERIFY(!d.ExecuteCustom(QString(), second));
        QVERIFY(!d.ExecuteCustom(first, QString()));
        QCOMPARE(launches, 0);

        c<QLineEdit>("txtProgram")->setText(program);
        c<QLineEdit>("txtParams")->setText(u"%1 --then %2"_s); // edited, not saved
        QVERIFY(d.ExecuteCustom(first, second));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(program + u".out"_s), 30000);
        QCOMPARE(
            QString::fromUtf8(readFile(program + u".out"_s)).split(QChar(0), Qt::SkipEmptyParts),
            (QStringList{first, u"--then"_s, second, QDir(folder).canonicalPath() + u'\n'}));
        QVERIFY(!QFile::exists(folder + u"/pwned"_s));
        QVERIFY(messages.isEmpty());
    }

    // The browse button starts in the programs folder, proposing the name
    // given; the chosen path replaces the text, a cancel leaves it.
    void browseForTheProgram() {
        start();
        QStringList starts;
        QString answer = u"/usr/bin/meld"_s;
        m_dialog->chooseProgram = [&](const QString& start) {
            starts << start;
            return std::exchange(answer, QString());
        };
        click("cmdBrowse");
        QCOMPARE(m_options->values().program, u"/usr/bin/meld"_s);
        c<QLineEdit>("txtProgram")->setText(u"kdiff3"_s);
        click("cmdBrowse");
        QCOMPARE(text("txtProgram"), u"kdiff3"_s);
        QCOMPARE(starts, (QStringList{u"/usr/bin"_s, u"/usr/bin/kdiff3"_s}));
    }
};

int main(int argc, char** argv) {
    return runWindowTest<ConfigDialogTest>(argc, argv);
}

#include "ConfigDialogTest.moc"
