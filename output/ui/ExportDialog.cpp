#include "ExportDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QSignalBlocker>
#include <QStyle>
#include <QVBoxLayout>

#include <algorithm>

namespace kestrel::output {

namespace {

constexpr int UpIndex = 0;
constexpr int DownIndex = 2;

} // namespace

QString ExportDialog::fileFilter() {
    return QStringLiteral("Text Files (*.txt);;Comma-Separated Files (*.csv);;All Files (*)");
}

ExportDialog::ExportDialog(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmExport"));
    setWindowTitle(QStringLiteral("Export File List"));
    createControls();
    layOutControls();

    // The first choices, kept from then on for the run.
    m_cboSepar->setCurrentIndex(CommaSeparator);
    m_chkQuotes->setChecked(true);
    connect(m_cboSepar, &QComboBox::currentIndexChanged, this, &ExportDialog::choicesChanged);
    connect(m_chkQuotes, &QCheckBox::toggled, this, &ExportDialog::choicesChanged);
    connect(m_chkFlags, &QCheckBox::toggled, this, &ExportDialog::choicesChanged);

    useStandardDialogs();
}

void ExportDialog::createControls() {
    m_lstField = new QListWidget(this);
    m_lstField->setObjectName(QStringLiteral("lstField"));
    connect(m_lstField, &QListWidget::itemChanged, this, &ExportDialog::lstField_ItemCheck);

    m_cmdUp = new QPushButton(QStringLiteral("&Up"), this);
    m_cmdUp->setObjectName(QStringLiteral("cmdShift0"));
    m_cmdUp->setAutoDefault(false);
    connect(m_cmdUp, &QPushButton::clicked, this, [this] { cmdShift_Click(UpIndex); });
    m_cmdDown = new QPushButton(QStringLiteral("&Dn"), this);
    m_cmdDown->setObjectName(QStringLiteral("cmdShift2"));
    m_cmdDown->setAutoDefault(false);
    connect(m_cmdDown, &QPushButton::clicked, this, [this] { cmdShift_Click(DownIndex); });

    m_cboSepar = new QComboBox(this);
    m_cboSepar->setObjectName(QStringLiteral("cboSepar"));
    m_cboSepar->addItems(separatorNames());

    m_chkQuotes = new QCheckBox(QStringLiteral("&All values in quotes (except Custom)"), this);
    m_chkQuotes->setObjectName(QStringLiteral("chkQuotes"));
    m_chkFlags = new QCheckBox(QStringLiteral("&Export attributes as numerical values"), this);
    m_chkFlags->setObjectName(QStringLiteral("chkFlags"));

    m_txtPreview = new QPlainTextEdit(this);
    m_txtPreview->setObjectName(QStringLiteral("txtPreview"));
    m_txtPreview->setReadOnly(true);
    m_txtPreview->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_txtPreview->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

    m_cmdOK = new QPushButton(QStringLiteral("OK"), this);
    m_cmdOK->setObjectName(QStringLiteral("cmdOK"));
    m_cmdOK->setDefault(true);
    connect(m_cmdOK, &QPushButton::clicked, this, &ExportDialog::cmdOK_Click);
    m_cmdCancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    m_cmdCancel->setAutoDefault(false);
    connect(m_cmdCancel, &QPushButton::clicked, this, &ExportDialog::cmdCancel_Click);
}

void ExportDialog::layOutControls() {
    auto* fieldsLabel = new QLabel(QStringLiteral("&Fields:"), this);
    fieldsLabel->setBuddy(m_lstField);
    auto* separatorLabel = new QLabel(QStringLiteral("Field &Separator:"), this);
    separatorLabel->setBuddy(m_cboSepar);
    auto* previewLabel = new QLabel(QStringLiteral("Preview:"), this);

    auto* shift = new QVBoxLayout;
    shift->addStretch();
    shift->addWidget(m_cmdUp);
    shift->addWidget(m_cmdDown);
    shift->addStretch();

    auto* options = new QVBoxLayout;
    options->addWidget(separatorLabel);
    options->addWidget(m_cboSepar);
    options->addSpacing(8);
    options->addWidget(m_chkQuotes);
    options->addWidget(m_chkFlags);
    options->addStretch();
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cmdOK);
    buttons->addWidget(m_cmdCancel);
    options->addLayout(buttons);

    auto* layout = new QGridLayout(this);
    layout->addWidget(fieldsLabel, 0, 0);
    layout->addWidget(m_lstField, 1, 0);
    layout->addLayout(shift, 1, 1);
    layout->addLayout(options, 1, 2);
    layout->addWidget(previewLabel, 2, 0, 1, 3);
    layout->addWidget(m_txtPreview, 3, 0, 1, 3);
    layout->setColumnStretch(2, 1);
    layout->setRowStretch(3, 1);
    // Room for the whole list: seven columns and eight custom entries.
    const int rowHeight = std::max(m_lstField->fontMetrics().height(),
                                   style()->pixelMetric(QStyle::PM_IndicatorHeight)) +
                          3;
    m_lstField->setMinimumHeight(rowHeight * 15 + 2 * m_lstField->frameWidth());
    resize(640, 520);
}

void ExportDialog::useStandardDialogs() {
    chooseFile = [this](const QString& proposed, const QString& filter) {
        return QFileDialog::getSaveFileName(this, QStringLiteral("Export Current List"), proposed,
                                            filter);
    };
    askText = [this](const QString& prompt, const QString& title,
                     const QString& text) -> std::optional<QString> {
        bool ok = false;
        const QString answer =
            QInputDialog::getText(this, title, prompt, QLineEdit::Normal, text, &ok);
        if (!ok)
            return std::nullopt;
        return answer;
    };
    message = [this](const engine::UserMessage& m) {
        QMessageBox box(m.icon == engine::MessageIcon::Information ? QMessageBox::Information
                                                                   : QMessageBox::Warning,
                        m.title, m.text, QMessageBox::Ok, this);
        box.exec();
    };
}

ExportDialog::~ExportDialog() = default;

void ExportDialog::setList(const ShownList& list) {
    m_list = &list;
    setResult(QDialog::Rejected);
    m_fields = exportFields(list.inFolderOffered, list.accessOffered, list.fingerprintsOffered);
    loadFieldList();
    m_lstField->setCurrentRow(0);
    rebuildPreview();
}

ExportChoices ExportDialog::choices() const {
    ExportChoices choices;
    choices.separator = separatorText(m_cboSepar->currentIndex());
    choices.quotes = m_chkQuotes->isChecked();
    choices.numericAttributes = m_chkFlags->isChecked();
    return choices;
}

QString ExportDialog::previewText() const {
    return m_txtPreview->toPlainText();
}

void ExportDialog::loadFieldList() {
    const QScopedValueRollback loading(m_loading, true);
    const QSignalBlocker blocker(m_lstField);
    m_lstField->clear();
    for (const ExportField& field : m_fields) {
        auto* item = new QListWidgetItem(field.text, m_lstField);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(field.checked ? Qt::Checked : Qt::Unchecked);
    }
}

void ExportDialog::lstField_ItemCheck(QListWidgetItem* item) {
    const int row = m_lstField->row(item);
    if (row < 0 || row >= int(m_fields.size()) || m_loading)
        return;
    ExportField& field = m_fields[size_t(row)];
    const bool checked = item->checkState() == Qt::Checked;
    if (checked == field.checked)
        return; // not a check: the text changed
    field.checked = checked;
    if (checked && fieldPromptsForText(field.number)) {
        const std::optional<QString> text = askText(QStringLiteral("Enter Custom Text:"),
                                                    QStringLiteral("Custom Field"), field.text);
        // An empty answer keeps the text; the entry stays checked either way.
        if (text && !text->isEmpty()) {
            field.text = *text;
            const QSignalBlocker blocker(m_lstField);
            item->setText(*text);
        }
    }
    rebuildPreview();
}

void ExportDialog::cmdShift_Click(int index) {
    const int row = m_lstField->currentRow();
    const int moved = moveField(m_fields, row, index == UpIndex ? -1 : 1);
    if (moved == row)
        return;
    loadFieldList();
    m_lstField->setCurrentRow(moved);
    m_lstField->scrollToItem(m_lstField->item(moved));
    rebuildPreview();
}

void ExportDialog::choicesChanged() {
    rebuildPreview();
}

void ExportDialog::rebuildPreview() {
    m_cmdOK->setEnabled(anyFieldChecked(m_fields));
    if (!m_list) {
        m_txtPreview->clear();
        return;
    }
    ExportLines lines(*m_list, m_fields, choices());
    m_txtPreview->setPlainText(lines.preview());
}

void ExportDialog::cmdOK_Click() {
    if (!m_list || !anyFieldChecked(m_fields))
        return;
    QString proposed = proposedExportName(m_list->fileName);
    if (!m_list->fileName.isEmpty())
        proposed = QFileInfo(m_list->fileName).absoluteDir().filePath(proposed);
    const QString path = chooseFile(proposed, fileFilter());
    if (path.isEmpty())
        return; // nothing written, the dialog stays
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    // Running out of memory while the lines are made is told like a failed
    // write, and the program goes on.
    const engine::Outcome written =
        engine::guardedOperation(QStringLiteral("Error Writing Snapshot"), [&] {
            ExportLines lines(*m_list, m_fields, choices());
            return writeExportFile(path, lines);
        });
    QGuiApplication::restoreOverrideCursor();
    if (!written.ok && written.message)
        message(*written.message);
    // Hidden after a failure as after success.
    accept();
}

void ExportDialog::cmdCancel_Click() {
    reject();
}

} // namespace kestrel::output
