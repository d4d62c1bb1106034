#pragma once

#include "settings/ExternalProgram.h"
#include "settings/Settings.h"

#include <QDialog>

#include <array>
#include <functional>
#include <map>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTabWidget;

namespace kestrel::settings {

class SettingsStore;

// frmConfig, "Kestrel Configuration": the options dialog, with the tabs
// "Compare", "View" and "Options". It is a view over the options of the run:
// each control shows its key of Options and hands the user's changes to
// Options' setters, which run the rules; a value that changes in Options (a
// load, another key's rule) shows in its control at once. So loading and
// editing take one path.
//
// Made once, hidden, at start-up (its construction is the settings load) and
// kept until the program ends, then only shown and hidden. On destruction it
// stores "Synch", whatever was saved.
//
// Controls carry their program names as object names: "chkAttr0" to
// "chkAttr4", "cboSecs1" to "cboSecs3", "cboDays1" to "cboDays3",
// "cmdCompare0" ("Compare &Current"), "cmdCompare1" ("Compare &Both"),
// "optShell0", "optShell1", "chkDst" and the plain names of the others.
class ConfigDialog : public QDialog {
    Q_OBJECT
public:
    // A Yes/No question (exclamation icon); true for Yes.
    using Question = std::function<bool(const QString& title, const QString& text)>;

    // The question that "&Optimise for speed and capacity" asks when it
    // becomes checked.
    static QString fasterQuestionTitle();
    static QString fasterQuestionText();

    // Makes the controls and loads the options from the store, so each
    // control's rule runs; a stored "Faster" of 1 asks its question already
    // here, through question (a message box when none is given). options and
    // store are not owned and must outlive the dialog.
    ConfigDialog(Options& options, SettingsStore& store, QWidget* parent = nullptr,
                 Question question = {});
    ~ConfigDialog() override;

    // For a snapshot window's Compare Now: puts the two snapshots' captions
    // into "Current Snapshot:" and "Compared Against:", turns to the first
    // tab and shows the dialog modally through showModal. Returns its result:
    // Accepted after Save or a Compare button, Rejected after Cancel. A
    // Compare button emits compareRequested before this returns.
    int showForComparison(const QString& current, const QString& other);

    // Whether "Empty", "Always", "Scroll", "Synch" or a highlight colour
    // changed since the dialog was last shown; Cancel clears it. Read after
    // the dialog closes: when set, the snapshot windows refresh what they
    // show.
    bool displayChanged() const { return m_displayChanged; }

    // ExecuteCustom: starts the external program on two files through
    // launchProgram, built from "Program" and "Params" as the dialog holds
    // them now (an edited "Params" counts, though it is never saved). False,
    // with no message, when either path is empty (an entry without
    // counterpart); otherwise whether the program was started. A failed
    // launch is reported by whoever launchProgram hands it to.
    bool ExecuteCustom(const QString& first, const QString& second);

    // The main window's menu disables both Compare buttons before it shows
    // the dialog. Nothing enables them again: they stay disabled for the
    // rest of the run, also when a snapshot window opens the dialog later.
    // Deliberate.
    void disableCompareButtons();

    // What the dialog asks of the world, replaceable so that tests answer
    // without windows.
    // The "Maximise Speed and Capacity" question.
    Question question;
    // The program browse button's file dialog, starting at a folder or a
    // proposed file; returns the chosen full path, empty when cancelled.
    std::function<QString(const QString& start)> chooseProgram;
    // Starts the external program; true when it started. Unset, nothing is
    // started and ExecuteCustom returns false.
    std::function<bool(const CustomLaunch& launch)> launchProgram;
    // Shows the dialog modally and returns its result; QDialog::exec unless
    // replaced.
    std::function<int(QDialog& dialog)> showModal;

Q_SIGNALS:
    // A Compare button, after the options were saved and the dialog hidden:
    // the active snapshot window compares again, both ways or its own side only.
    void compareRequested(bool bothWays);
    // "&Help...": the main window opens its help.
    void helpRequested();

protected:
    // Activation: clears the display-changed flag and enables Cancel again.
    void showEvent(QShowEvent* event) override;
    // Escape and the frame's close button act as Cancel, and do nothing
    // while Cancel is disabled: a "Synch" change cannot be taken back.
    void reject() override;

private:
    QWidget* makeCompareTab();
    // Kestrel's own addition to the Compare tab: the ignore patterns, one a
    // line, with the lines that cannot be compiled named beneath.
    QWidget* makePatternsBox(QWidget* tab);
    void txtPatterns_Change();
    QWidget* makeViewTab();
    QWidget* makeOptionsTab();
    QCheckBox* makeBox(Key key, const QString& caption, const QString& name);
    // A box whose caption runs on in a label on the line below it.
    QWidget* makeTwoLineBox(Key key, const QString& first, const QString& second,
                            const QString& name);
    QComboBox* makeList(Key key, const QStringList& texts, const QString& name);
    QLabel* makeSample(const QString& name);

    void optionChanged(Key key);
    void showValue(Key key);
    void showTexts();
    void showEnabling();
    void paintSamples();
    void chkFaster_Checked();

    void Form_Activate();
    void cmdSave_Click();
    void cmdCompare_Click(int index);
    void cmdCancel_Click();
    void cmdBrowse_Click();

    Options& m_options;
    SettingsStore& m_store;
    bool m_displayChanged = false;

    std::map<Key, QCheckBox*> m_boxes;
    std::map<Key, QComboBox*> m_lists;
    QTabWidget* m_tabSetup = nullptr;
    QLineEdit* m_txtSnap = nullptr;
    QLineEdit* m_txtOther = nullptr;
    std::array<QPushButton*, 2> m_cmdCompare{};
    QButtonGroup* m_optShell = nullptr;
    QLineEdit* m_txtProgram = nullptr;
    QPlainTextEdit* m_txtPatterns = nullptr;
    QLabel* m_lblPatterns = nullptr; // the lines that could not be compiled
    QLineEdit* m_txtParams = nullptr;
    QLabel* m_txtChanged = nullptr;
    QLabel* m_txtDeleted = nullptr;
    QPushButton* m_cmdCancel = nullptr;
};

} // namespace kestrel::settings
