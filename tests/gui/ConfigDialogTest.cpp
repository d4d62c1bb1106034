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

using namespace kestrel;
using namespace Qt::StringLiterals;
using settings::ConfigDialog;
using settings::Key;

namespace {

// The control each key is edited in, after the key's stored name.
const QStringList BoundControls = words(
    u"Attrib:chkAttr0 Read:chkAttr1 Hidden:chkAttr2 System:chkAttr3 Archive:chkAttr4 Date:chkDate "
    "DST:chkDst Size:chkSize Version:chkVers Permissions:chkPermissions Owner:chkOwner "
    "Touched:chkTouched Moves:chkMoves Compare:chkCompare Scroll:chkScroll Synch:chkSynch "
    "Empty:chkEmpty Always:chkAlways Tiling:chkTiling Toolbar:chkToolbar Filename:chkFilename "
    "Title:chkTitle Naming:chkNaming Faster:chkFaster Explore:chkExplore secs:cboSecs1 "
    "mins:cboSecs2 hours:cboSecs3 days:cboDays1 weeks:cboDays2 years:cboDays3 Limit:cboLimit "
    "Changed:cboChanged Deleted:cboDeleted Meter:cboMeter Shell:optShell1"_s);

QByteArray controlOf(const settings::KeyInfo& info) {
    for (const QString& pair : BoundControls)
        if (pair.section(u':', 0, 0) == QLatin1String(info.name))
            return pair.section(u':', 1).toLatin1();
    qFatal("no control for %s", info.name);
}

// What a control shows: a box or button 0 or 1, a list its position.
int shown(QWidget& dialog, const QByteArray& name) {
    QWidget* widget = control<QWidget>(dialog, name.constData());
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

QString storedName(const settings::KeyInfo& info) {
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
        // The last test's dialog, options and store go before the file they use.
        m_dialog.reset();
        m_options.reset();
        m_store.reset();
        m_file.reset();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_file =
            std::make_unique<QSettings>(m_dir->filePath(u"Kestrel.conf"_s), QSettings::IniFormat);
        m_store = std::make_unique<settings::SettingsStore>(m_file.get());
        m_asked.clear();
        m_answer = false;
    }

    // Each stored key reaches its own control and no other; stored all at
    // once they give the texts, samples, enabling and derived values, and a
    // stored "Faster" asks its question at start-up.
    void loadingFillsEveryControl() {
        ConfigDialog& first = start();
        QHash<QByteArray, int> defaults;
        for (const settings::KeyInfo& info : settings::allKeys())
            defaults[controlOf(info)] = shown(first, controlOf(info));
        m_answer = true;
        for (const settings::KeyInfo& info : settings::allKeys()) {
            m_dialog.reset(); // it stores "Synch" as it goes
            m_file->clear();
            store(storedName(info), QString::number(otherValue(info)));
            ConfigDialog& d = start();
            QStringList differing;
            for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
                if (shown(d, it.key()) != it.value())
                    differing << QString::fromLatin1(it.key());
            // ("Synch" off clears "Scroll", but "Scroll" loads after it.)
            QCOMPARE(differing, QStringList{QString::fromLatin1(controlOf(info))});
            QCOMPARE(shown(d, controlOf(info)), otherValue(info));
        }

        m_asked.clear();
        m_dialog.reset();
        for (const settings::KeyInfo& info : settings::allKeys())
            store(storedName(info), QString::number(otherValue(info)));
        store(u"Config/Program"_s, u"/opt/diff tools/cmp"_s);
        store(u"Config/Params"_s, u"-x %2 %1"_s);
        ConfigDialog& d = start();
        QCOMPARE(m_asked.size(), 1);
        QVERIFY(m_asked.first().startsWith(u"Maximise Speed and Capacity: Enabling this"_s));
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

    // The boxes enable the controls they govern and act at once; "Faster"
    // answered No stays clear; "Synch" off clears and disables "Scroll" and
    // disables Cancel, so Escape and the close button wait. A change to a
    // display option marks the display changed; a change made elsewhere
    // shows.
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
        click("chkFaster");
        QVERIFY(!c<QCheckBox>("chkFaster")->isChecked());
        QCOMPARE(m_asked.size(), 1);

        auto* scroll = c<QCheckBox>("chkScroll");
        QVERIFY(cancel->isEnabled());
        click("chkSynch");
        QVERIFY(!scroll->isChecked() && !scroll->isEnabled());
        QVERIFY(!cancel->isEnabled() && d.displayChanged());
        click("chkSynch");
        QVERIFY(scroll->isEnabled() && !scroll->isChecked());
        QTest::keyClick(&d, Qt::Key_Escape);
        QVERIFY(!d.close() && d.isVisible());
        for (const char* name :
             {"chkEmpty", "chkScroll", "chkAlways", "cboChanged", "cboDeleted"}) {
            d.hide();
            d.show();
            QVERIFY(cancel->isEnabled() && !d.displayChanged());
            if (auto* list = qobject_cast<QComboBox*>(c<QWidget>(name)))
                list->setCurrentIndex(list->currentIndex() + 1);
            else
                click(name);
            QVERIFY2(d.displayChanged(), name);
        }
        m_options->setValue(Key::Version, 1); // from the new-snapshot dialog
        QVERIFY(c<QCheckBox>("chkVers")->isChecked());
    }

    // Cancel, or Escape, puts back what is stored and the first tab.
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
        QCOMPARE(sampleColour(d, "txtChanged"), QColor(0, 0, 255)); // Blue
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
        start().show();
        auto* box = c<QPlainTextEdit>("txtPatterns");
        box->setFocus();
        for (const QString& line : {u"*.pyc"_s, u"cache[/"_s}) {
            QTest::keyClicks(box, line);
            QTest::keyClick(box, Qt::Key_Return);
        }
        QTest::keyClicks(box, u"!keep.pyc"_s);
        QCOMPARE(m_options->values().patterns, u"*.pyc\ncache[/\n!keep.pyc"_s);
        QVERIFY(m_options->ignorePatterns()->ignores("a.pyc", false));
        QVERIFY(!c<QLabel>("lblPatterns")->isHidden());
        QCOMPARE(c<QLabel>("lblPatterns")->text(), u"Ignore Patterns: line 2: unclosed ["_s);
        click("cmdSave");
        start();
        QCOMPARE(c<QPlainTextEdit>("txtPatterns")->toPlainText(), u"*.pyc\ncache[/\n!keep.pyc"_s);
    }

    // From a snapshot window the dialog opens on its first tab; Compare
    // saves, then asks for the comparison of both snapshots or of the
    // current one alone.
    void compareButtons() {
        ConfigDialog& d = start();
        QSignalSpy compares(&d, &ConfigDialog::compareRequested);
        int tab = -1;
        d.showModal = [&](QDialog& dialog) {
            tab = c<QTabWidget>("tabSetup")->currentIndex();
            c<QComboBox>("cboChanged")->setCurrentIndex(0);
            click("cmdCompare1");
            return dialog.result();
        };
        c<QTabWidget>("tabSetup")->setCurrentIndex(2);
        QCOMPARE(d.showForComparison(u"one"_s, u"two"_s), int(QDialog::Accepted));
        QCOMPARE(tab, 0);
        QCOMPARE(stored(u"Config/Changed"_s), u"0"_s);
        click("cmdCompare0");
        QCOMPARE(compares.size(), 2);
        QVERIFY(compares.at(0).at(0).toBool() && !compares.at(1).at(0).toBool());
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
        writeProgram(program,
                     "#!/bin/sh\n{ for a in \"$@\"; do printf '%s\\0' \"$a\"; done; pwd -P; }"
                     " > \"$0.tmp\" && mv \"$0.tmp\" \"$0.out\"\n");

        shell::Launcher launcher([](const engine::UserMessage& m) { QFAIL(qPrintable(m.text)); });
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
    }
};

int main(int argc, char** argv) {
    return runWindowTest<ConfigDialogTest>(argc, argv);
}

#include "ConfigDialogTest.moc"
