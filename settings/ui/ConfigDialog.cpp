#include "ConfigDialog.h"

#include "settings/SettingsStore.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QStyle>
#include <QTabWidget>
#include <QVBoxLayout>

namespace kestrel::settings {

using namespace Qt::StringLiterals;

namespace {

#ifdef Q_OS_WIN
const QString ProgramFilters = u"Program Files (*.exe);;All Files (*.*)"_s;
const QString ProgramsFolder;
#else
// Programs have no extension of their own here; they mostly live in /usr/bin.
const QString ProgramFilters = u"All Files (*)"_s;
const QString ProgramsFolder = u"/usr/bin"_s;
#endif

// Where the program browse button's file dialog starts: at the program named
// now, when its folder exists, so that its name is proposed; otherwise in the
// programs folder, proposing whatever name is there.
QString browseStart(const QString& program) {
    if (program.isEmpty())
        return ProgramsFolder;
    const QFileInfo named(program);
    if (named.isAbsolute() && named.dir().exists())
        return program;
    return QDir(ProgramsFolder).filePath(named.fileName());
}

// The indentation that puts text under a check box's caption.
int captionIndent(const QWidget* widget) {
    const QStyle* style = widget->style();
    return style->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, widget) +
           style->pixelMetric(QStyle::PM_CheckBoxLabelSpacing, nullptr, widget);
}

QHBoxLayout* indented(int indent) {
    auto* row = new QHBoxLayout;
    row->addSpacing(indent);
    return row;
}

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setEnabled(false); // greyed: an explanation, not a control
    return label;
}

} // namespace

QString ConfigDialog::fasterQuestionTitle() {
    return u"Maximise Speed and Capacity"_s;
}

QString ConfigDialog::fasterQuestionText() {
    return u"Enabling this feature can improve speed and increases the "_s
           u"number of entries that can be displayed in the file "_s
           u"list. However, it will disable sorting of the Size, "_s
           u"Modified and Attributes columns. You only need to "_s
           u"enable this feature if you are having problems "_s
           u"displaying the contents of very large directories."_s
           u"\n\nAre you sure you need to do this?"_s;
}

ConfigDialog::ConfigDialog(Options& options, SettingsStore& store, QWidget* parent, Question ask)
    : QDialog(parent), question(std::move(ask)), m_options(options), m_store(store) {
    setObjectName(u"frmConfig"_s);
    setWindowTitle(u"Kestrel Configuration"_s);

    if (!question)
        question = [this](const QString& title, const QString& text) {
            QMessageBox box(QMessageBox::Warning, title, text, QMessageBox::Yes | QMessageBox::No,
                            this);
            box.setDefaultButton(QMessageBox::Yes);
            return box.exec() == QMessageBox::Yes;
        };
    chooseProgram = [this](const QString& start) {
        return QFileDialog::getOpenFileName(this, u"Open"_s, start, ProgramFilters);
    };
    showModal = [](QDialog& dialog) { return dialog.exec(); };

    m_tabSetup = new QTabWidget(this);
    m_tabSetup->setObjectName(u"tabSetup"_s);
    m_tabSetup->addTab(makeCompareTab(), u"Compare"_s);
    m_tabSetup->addTab(makeViewTab(), u"View"_s);
    m_tabSetup->addTab(makeOptionsTab(), u"Options"_s);

    auto* cmdHelp = new QPushButton(u"&Help..."_s, this);
    cmdHelp->setObjectName(u"cmdHelp"_s);
    auto* cmdSave = new QPushButton(u"Sa&ve Config"_s, this);
    cmdSave->setObjectName(u"cmdSave"_s);
    m_cmdCancel = new QPushButton(u"Cancel"_s, this);
    m_cmdCancel->setObjectName(u"cmdCancel"_s);
    for (QPushButton* button : {cmdHelp, cmdSave, m_cmdCancel})
        button->setAutoDefault(false);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(cmdHelp);
    buttons->addStretch(1);
    buttons->addWidget(cmdSave);
    buttons->addWidget(m_cmdCancel);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabSetup);
    layout->addLayout(buttons);

    // What the options hold shows first; the load below then changes what
    // differs, running each rule once as a control's change event would.
    for (const KeyInfo& info : allKeys())
        showValue(info.key);
    showTexts();
    showEnabling();
    paintSamples();
    connect(&m_options, &Options::valueChanged, this, &ConfigDialog::optionChanged);
    connect(&m_options, &Options::changed, this, &ConfigDialog::showTexts);

    connect(cmdHelp, &QPushButton::clicked, this, &ConfigDialog::helpRequested);
    connect(cmdSave, &QPushButton::clicked, this, &ConfigDialog::cmdSave_Click);
    connect(m_cmdCancel, &QPushButton::clicked, this, &ConfigDialog::cmdCancel_Click);
    for (int index : {0, 1})
        connect(m_cmdCompare[size_t(index)], &QPushButton::clicked, this,
                [this, index] { cmdCompare_Click(index); });

    m_store.getSettings(m_options);
}

ConfigDialog::~ConfigDialog() {
    // "Synch" is kept whether or not the options were saved: it reached the
    // open windows the moment it changed.
    m_store.saveSynch(m_options);
}

// Tabs ----------------------------------------------------------------------

QWidget* ConfigDialog::makeCompareTab() {
    auto* tab = new QWidget;
    const int indent = captionIndent(tab);

    m_txtSnap = new QLineEdit(tab);
    m_txtSnap->setObjectName(u"txtSnap"_s);
    m_txtOther = new QLineEdit(tab);
    m_txtOther->setObjectName(u"txtOther"_s);
    auto* names = new QGridLayout;
    for (QLineEdit* box : {m_txtSnap, m_txtOther})
        box->setReadOnly(true);
    names->addWidget(new QLabel(u"Current Snapshot:"_s, tab), 0, 0);
    names->addWidget(m_txtSnap, 0, 1);
    names->addWidget(new QLabel(u"Compared Against:"_s, tab), 1, 0);
    names->addWidget(m_txtOther, 1, 1);
    names->setColumnStretch(1, 1);

    auto* frame = new QGroupBox(u"When Comparing Snapshots:"_s, tab);
    auto* inside = new QVBoxLayout(frame);
    inside->addWidget(makeBox(Key::Attrib, u"&Ignore attributes:"_s, u"chkAttr0"_s));
    QHBoxLayout* attributes = indented(indent);
    const std::pair<Key, QString> bits[] = {
        {Key::Read, u"Read-Only"_s},
        {Key::Hidden, u"Hidden"_s},
        {Key::System, u"System"_s},
        {Key::Archive, u"Archi&ve"_s},
    };
    int number = 1;
    for (const auto& [key, caption] : bits)
        attributes->addWidget(makeBox(key, caption, u"chkAttr"_s + QString::number(number++)));
    attributes->addStretch(1);
    inside->addLayout(attributes);

    inside->addWidget(makeBox(Key::Date, u"Ignore time differences of less than:"_s, u"chkDate"_s));
    // The seconds, minutes and hours lists are cboSecs 1 to 3, the days,
    // weeks and years lists cboDays 1 to 3.
    auto* tolerance = new QGridLayout;
    tolerance->setColumnMinimumWidth(0, indent);
    int position = 0;
    for (const CountList& list : countLists()) {
        const bool time = position < 3;
        const QString name =
            (time ? u"cboSecs"_s : u"cboDays"_s) + QString::number(position % 3 + 1);
        tolerance->addWidget(
            makeList(list.key, countListTexts(list.highest, QString::fromLatin1(list.unit)), name),
            time ? 0 : 1, position % 3 + 1);
        ++position;
    }
    tolerance->setColumnStretch(4, 1);
    inside->addLayout(tolerance);
    // Kestrel's own addition, bound to "Ignore"/"DST".
    inside->addWidget(
        makeBox(Key::Dst, u"Ignore exact one-hour &shifts (daylight saving)"_s, u"chkDst"_s));
    inside->addWidget(makeBox(Key::Size, u"Ignore file size"_s, u"chkSize"_s));
    inside->addWidget(makeBox(Key::Version, u"Ignore file version"_s, u"chkVers"_s));
    // Kestrel's own additions, bound to "Ignore"/"Permissions" and "Owner".
    inside->addWidget(makeBox(Key::Permissions, u"Ignore &permissions"_s, u"chkPermissions"_s));
    inside->addWidget(makeBox(Key::Owner, u"Ignore o&wner and group"_s, u"chkOwner"_s));
    // Kestrel's own addition, bound to "Ignore"/"Touched".
    inside->addWidget(makeBox(Key::Touched, u"Ignore date changes when the content is the same"_s,
                              u"chkTouched"_s));
    // Kestrel's own addition, bound to "Config"/"Moves".
    inside->addWidget(makeBox(Key::Moves, u"&Detect moved files"_s, u"chkMoves"_s));

    // Compare buttons: element 1 compares both ways, element 0 this side only.
    const QString captions[] = {u"Compare &Current"_s, u"Compare &Both"_s};
    for (int index : {0, 1}) {
        auto* button = new QPushButton(captions[index], tab);
        button->setObjectName(u"cmdCompare"_s + QString::number(index));
        button->setAutoDefault(false);
        m_cmdCompare[size_t(index)] = button;
    }
    auto* compareRow = new QHBoxLayout;
    compareRow->addStretch(1);
    compareRow->addWidget(m_cmdCompare[1]);
    compareRow->addWidget(m_cmdCompare[0]);

    auto* layout = new QVBoxLayout(tab);
    layout->addLayout(names);
    layout->addWidget(frame);
    layout->addWidget(makePatternsBox(tab), 1);
    layout->addWidget(makeBox(
        Key::Compare, u"A&uto-compare using these options when loading or creating Snapshots"_s,
        u"chkCompare"_s));
    layout->addLayout(compareRow);
    return tab;
}

QWidget* ConfigDialog::makePatternsBox(QWidget* tab) {
    auto* box = new QWidget(tab);
    auto* label = new QLabel(u"Ignore &patterns, one a line, as in .gitignore:"_s, box);
    m_txtPatterns = new QPlainTextEdit(box);
    m_txtPatterns->setObjectName(u"txtPatterns"_s);
    m_txtPatterns->setPlaceholderText(u"*.pyc\n__pycache__/\n/var/log/**\n!keep.log"_s);
    m_txtPatterns->setTabChangesFocus(true);
    m_txtPatterns->setLineWrapMode(QPlainTextEdit::NoWrap);
    label->setBuddy(m_txtPatterns);
    m_lblPatterns = new QLabel(box);
    m_lblPatterns->setObjectName(u"lblPatterns"_s);
    m_lblPatterns->setWordWrap(true);
    m_lblPatterns->setStyleSheet(u"color: #c00000"_s);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label);
    layout->addWidget(m_txtPatterns, 1);
    layout->addWidget(m_lblPatterns);
    connect(m_txtPatterns, &QPlainTextEdit::textChanged, this, &ConfigDialog::txtPatterns_Change);
    return box;
}

void ConfigDialog::txtPatterns_Change() {
    // Applied at the next comparison, as the other ignore options are.
    m_options.setPatterns(m_txtPatterns->toPlainText());
}

QWidget* ConfigDialog::makeViewTab() {
    auto* tab = new QWidget;

    auto* synchronisation = new QGroupBox(u"Window Synchronisation:"_s, tab);
    auto* synchronisationLayout = new QVBoxLayout(synchronisation);
    synchronisationLayout->addWidget(makeBox(
        Key::Scroll, u"When scrolling &up/down the file list, scroll the other Snapshot too"_s,
        u"chkScroll"_s));
    synchronisationLayout->addWidget(makeBox(
        Key::Synch, u"Clicking on a &folder will select the same folder in the other Snapshot"_s,
        u"chkSynch"_s));

    auto* subFolders = new QGroupBox(u"Snapshot Sub-Folders:"_s, tab);
    auto* subFoldersLayout = new QVBoxLayout(subFolders);
    subFoldersLayout->addWidget(
        makeBox(Key::Empty, u"Show &empty folders in the file list"_s, u"chkEmpty"_s));
    subFoldersLayout->addWidget(
        makeBox(Key::Always, u"Always show files in &sub-folders"_s, u"chkAlways"_s));
    QHBoxLayout* limitRow = indented(captionIndent(tab));
    auto* limitLabel = new QLabel(u"&when folder contains less than"_s, subFolders);
    QComboBox* cboLimit = makeList(Key::Limit, limitTexts(), u"cboLimit"_s);
    limitLabel->setBuddy(cboLimit);
    limitRow->addWidget(limitLabel);
    limitRow->addWidget(cboLimit);
    limitRow->addWidget(new QLabel(u"entries"_s, subFolders));
    limitRow->addStretch(1);
    subFoldersLayout->addLayout(limitRow);

    auto* mainWindow = new QGroupBox(u"Main Window Options:"_s, tab);
    auto* mainWindowLayout = new QVBoxLayout(mainWindow);
    mainWindowLayout->addWidget(makeBox(Key::Tiling, u"Auto-&tile windows"_s, u"chkTiling"_s));
    mainWindowLayout->addWidget(makeBox(Key::Toolbar, u"Show Kestrel tool&bar"_s, u"chkToolbar"_s));
    mainWindowLayout->addStretch(1);

    auto* highlighting = new QGroupBox(u"Colour Highlighting:"_s, tab);
    auto* colours = new QGridLayout(highlighting);
    m_txtChanged = makeSample(u"txtChanged"_s);
    m_txtDeleted = makeSample(u"txtDeleted"_s);
    colours->addWidget(new QLabel(u"Changed:"_s, highlighting), 0, 0);
    colours->addWidget(makeList(Key::Changed, changedColourTexts(), u"cboChanged"_s), 0, 1);
    colours->addWidget(m_txtChanged, 0, 2);
    colours->addWidget(new QLabel(u"No Match:"_s, highlighting), 1, 0);
    colours->addWidget(makeList(Key::Deleted, deletedColourTexts(), u"cboDeleted"_s), 1, 1);
    colours->addWidget(m_txtDeleted, 1, 2);

    auto* bottom = new QHBoxLayout;
    bottom->addWidget(mainWindow, 1);
    bottom->addWidget(highlighting, 1);
    auto* layout = new QVBoxLayout(tab);
    layout->addWidget(synchronisation);
    layout->addWidget(subFolders);
    layout->addLayout(bottom);
    layout->addStretch(1);
    return tab;
}

QWidget* ConfigDialog::makeOptionsTab() {
    auto* tab = new QWidget;
    const int indent = captionIndent(tab);

    auto* titles = new QGroupBox(u"Snapshot Titles:"_s, tab);
    auto* titlesLayout = new QVBoxLayout(titles);
    titlesLayout->addWidget(makeTwoLineBox(Key::Filename, u"Show filename instead of"_s,
                                           u"title on loaded Snapshots"_s, u"chkFilename"_s));
    titlesLayout->addWidget(makeTwoLineBox(Key::Title, u"Prompt for a &title after"_s,
                                           u"creating new Snapshots"_s, u"chkTitle"_s));
    titlesLayout->addWidget(makeTwoLineBox(Key::Naming, u"Use \"Original\" and \"Final\""_s,
                                           u"title naming convention"_s, u"chkNaming"_s));
    titlesLayout->addStretch(1);

    auto* efficiency = new QGroupBox(u"Optimisation and Efficiency:"_s, tab);
    auto* efficiencyLayout = new QVBoxLayout(efficiency);
    auto* meterLabel = new QLabel(u"&Progress meter refresh:"_s, efficiency);
    QComboBox* cboMeter = makeList(Key::Meter, meterTexts(), u"cboMeter"_s);
    meterLabel->setBuddy(cboMeter);
    efficiencyLayout->addWidget(meterLabel);
    efficiencyLayout->addWidget(cboMeter);
    efficiencyLayout->addWidget(note(u"(applies only when creating new)"_s, efficiency));
    efficiencyLayout->addWidget(makeBox(Key::Faster, fasterCaption(), u"chkFaster"_s));
    efficiencyLayout->addStretch(1);

    auto* doubleClicking = new QGroupBox(u"Double-Clicking:"_s, tab);
    auto* clicking = new QVBoxLayout(doubleClicking);
    m_optShell = new QButtonGroup(this);
    const QString choices[] = {
        u"&Run the application or application associated with the file's type"_s,
        u"Run the following &application:"_s};
    for (int choice : {0, 1}) {
        auto* button = new QRadioButton(choices[choice], doubleClicking);
        button->setObjectName(u"optShell"_s + QString::number(choice));
        m_optShell->addButton(button, choice);
        clicking->addWidget(button);
    }
    m_txtProgram = new QLineEdit(doubleClicking);
    m_txtProgram->setObjectName(u"txtProgram"_s);
    auto* cmdBrowse = new QPushButton(u"..."_s, doubleClicking);
    cmdBrowse->setObjectName(u"cmdBrowse"_s);
    cmdBrowse->setAutoDefault(false);
    cmdBrowse->setFixedWidth(cmdBrowse->fontMetrics().horizontalAdvance(u"...."_s) + 16);
    QHBoxLayout* programRow = indented(indent);
    programRow->addWidget(m_txtProgram, 1);
    programRow->addWidget(cmdBrowse);
    clicking->addLayout(programRow);
    m_txtParams = new QLineEdit(doubleClicking);
    m_txtParams->setObjectName(u"txtParams"_s);
    auto* paramsLabel = new QLabel(u"&Parameters:"_s, doubleClicking);
    paramsLabel->setBuddy(m_txtParams);
    QHBoxLayout* paramsRow = indented(indent);
    paramsRow->addWidget(paramsLabel);
    paramsRow->addWidget(m_txtParams, 1);
    paramsRow->addWidget(note(u"(use %1 and %2 to indicate file names)"_s, doubleClicking));
    clicking->addLayout(paramsRow);
    clicking->addWidget(makeBox(Key::Explore,
                                u"&Double-clicking folder names opens up Explorer windows"_s,
                                u"chkExplore"_s));

    connect(m_optShell, &QButtonGroup::idToggled, this, [this](int id, bool checked) {
        if (checked)
            m_options.setValue(Key::Shell, id);
    });
    connect(m_txtProgram, &QLineEdit::textChanged, &m_options, &Options::setProgram);
    // Edited for this run only: "Params" is never saved.
    connect(m_txtParams, &QLineEdit::textChanged, &m_options, &Options::setParams);
    connect(cmdBrowse, &QPushButton::clicked, this, &ConfigDialog::cmdBrowse_Click);

    auto* top = new QHBoxLayout;
    top->addWidget(titles, 1);
    top->addWidget(efficiency, 1);
    auto* layout = new QVBoxLayout(tab);
    layout->addLayout(top);
    layout->addWidget(doubleClicking);
    layout->addStretch(1);
    return tab;
}

QCheckBox* ConfigDialog::makeBox(Key key, const QString& caption, const QString& name) {
    auto* box = new QCheckBox(caption);
    box->setObjectName(name);
    m_boxes[key] = box;
    connect(box, &QCheckBox::toggled, this,
            [this, key](bool checked) { m_options.setValue(key, checked ? 1 : 0); });
    return box;
}

QWidget* ConfigDialog::makeTwoLineBox(Key key, const QString& first, const QString& second,
                                      const QString& name) {
    auto* holder = new QWidget;
    auto* layout = new QVBoxLayout(holder);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(makeBox(key, first, name));
    QHBoxLayout* rest = indented(captionIndent(holder));
    rest->addWidget(new QLabel(second, holder));
    layout->addLayout(rest);
    return holder;
}

QComboBox* ConfigDialog::makeList(Key key, const QStringList& texts, const QString& name) {
    auto* list = new QComboBox;
    list->setObjectName(name);
    list->addItems(texts);
    list->setMaxVisibleItems(12);
    m_lists[key] = list;
    connect(list, &QComboBox::currentIndexChanged, this, [this, key](int index) {
        if (index >= 0)
            m_options.setValue(key, index);
    });
    return list;
}

QLabel* ConfigDialog::makeSample(const QString& name) {
    auto* sample = new QLabel(u"Sample"_s);
    sample->setObjectName(name);
    sample->setAlignment(Qt::AlignCenter);
    sample->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    sample->setAutoFillBackground(true);
    sample->setMinimumWidth(sample->fontMetrics().horizontalAdvance(u"Sample"_s) + 24);
    return sample;
}

// Options to controls -------------------------------------------------------

void ConfigDialog::optionChanged(Key key) {
    showValue(key);
    switch (key) {
    case Key::Attrib:
        showEnabling();
        break;
    case Key::Always:
        showEnabling();
        m_displayChanged = true;
        break;
    case Key::Synch:
        showEnabling();
        // The open windows have followed already and cannot be put back, so
        // Cancel could no longer undo everything.
        m_cmdCancel->setEnabled(false);
        m_displayChanged = true;
        break;
    case Key::Empty:
    case Key::Scroll:
        m_displayChanged = true;
        break;
    case Key::Changed:
    case Key::Deleted:
        paintSamples();
        m_displayChanged = true;
        break;
    case Key::Faster:
        // Last: answering No clears the box again, through this same path.
        if (m_options.isOn(Key::Faster))
            chkFaster_Checked();
        break;
    default:
        break;
    }
}

void ConfigDialog::showValue(Key key) {
    const int16_t value = m_options.value(key);
    if (const auto box = m_boxes.find(key); box != m_boxes.end()) {
        const QSignalBlocker quiet(box->second);
        box->second->setChecked(value != 0);
    } else if (const auto list = m_lists.find(key); list != m_lists.end()) {
        const QSignalBlocker quiet(list->second);
        list->second->setCurrentIndex(value);
    } else if (key == Key::Shell) {
        const QSignalBlocker quiet(m_optShell);
        m_optShell->button(value != 0 ? 1 : 0)->setChecked(true);
    }
}

void ConfigDialog::showTexts() {
    const Settings& values = m_options.values();
    for (const auto& [edit, text] :
         {std::pair{m_txtProgram, &values.program}, std::pair{m_txtParams, &values.params}}) {
        if (edit->text() == *text)
            continue;
        const QSignalBlocker quiet(edit);
        edit->setText(*text);
    }
    if (m_txtPatterns->toPlainText() != values.patterns) {
        const QSignalBlocker quiet(m_txtPatterns);
        m_txtPatterns->setPlainText(values.patterns);
    }
    const QStringList problems = m_options.patternProblems();
    m_lblPatterns->setText(problems.join(u'\n'));
    m_lblPatterns->setVisible(!problems.isEmpty());
}

void ConfigDialog::showEnabling() {
    const bool attributes = m_options.isOn(Key::Attrib);
    for (Key key : {Key::Read, Key::Hidden, Key::System, Key::Archive})
        m_boxes[key]->setEnabled(attributes);
    m_boxes[Key::Scroll]->setEnabled(m_options.isOn(Key::Synch));
    m_lists[Key::Limit]->setEnabled(m_options.isOn(Key::Always));
}

void ConfigDialog::paintSamples() {
    for (const auto& [sample, rgb] : {std::pair{m_txtChanged, m_options.changedColour()},
                                      std::pair{m_txtDeleted, m_options.deletedColour()}}) {
        const QColor colour = QColor::fromRgb(rgb);
        QPalette palette = sample->palette();
        palette.setColor(QPalette::Window, colour);
        // The word stays readable on the dark colours.
        palette.setColor(QPalette::WindowText,
                         colour.lightnessF() < 0.4 ? QColor(Qt::white) : QColor(Qt::black));
        sample->setPalette(palette);
    }
}

void ConfigDialog::chkFaster_Checked() {
    if (!question(fasterQuestionTitle(), fasterQuestionText()))
        m_options.setValue(Key::Faster, 0);
}

// Commands ------------------------------------------------------------------

int ConfigDialog::showForComparison(const QString& current, const QString& other) {
    m_txtSnap->setText(current);
    m_txtOther->setText(other);
    m_tabSetup->setCurrentIndex(0);
    return showModal(*this);
}

bool ConfigDialog::ExecuteCustom(const QString& first, const QString& second) {
    if (first.isEmpty() || second.isEmpty())
        return false;
    const CustomLaunch launch =
        buildCustomLaunch(m_txtProgram->text(), m_txtParams->text(), first, second);
    return launchProgram && launchProgram(launch);
}

void ConfigDialog::disableCompareButtons() {
    for (QPushButton* button : m_cmdCompare)
        button->setEnabled(false);
}

void ConfigDialog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    Form_Activate();
}

void ConfigDialog::Form_Activate() {
    m_displayChanged = false;
    m_cmdCancel->setEnabled(true);
}

void ConfigDialog::reject() {
    if (m_cmdCancel->isEnabled())
        cmdCancel_Click();
}

void ConfigDialog::cmdSave_Click() {
    m_store.saveSettings(m_options);
    accept();
}

void ConfigDialog::cmdCompare_Click(int index) {
    cmdSave_Click();
    // The windows repaint before the comparison keeps this thread busy.
    QCoreApplication::processEvents();
    Q_EMIT compareRequested(index != 0);
}

void ConfigDialog::cmdCancel_Click() {
    m_store.getSettings(m_options);
    m_tabSetup->setCurrentIndex(0);
    m_displayChanged = false;
    QDialog::reject();
}

void ConfigDialog::cmdBrowse_Click() {
    const QString chosen = chooseProgram(browseStart(m_txtProgram->text()));
    if (!chosen.isEmpty())
        m_options.setProgram(QDir::toNativeSeparators(chosen));
}

} // namespace kestrel::settings
