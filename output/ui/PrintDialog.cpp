#include "PrintDialog.h"

#include "PagePicture.h"

#include "engine/support/Progress.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPaintEngine>
#include <QPrintDialog>
#include <QPrintPreviewDialog>
#include <QPrinter>
#include <QPrinterInfo>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace kestrel::output {

PrintDialog::PrintDialog(engine::ProgressMeter& meter, QWidget* parent)
    : QDialog(parent), m_meter(meter),
      m_printer(std::make_unique<QPrinter>(QPrinter::HighResolution)) {
    setObjectName(QStringLiteral("frmPrint"));
    setWindowTitle(QStringLiteral("Print Snapshot"));

    auto* frame1 = new QGroupBox(QStringLiteral("Paper &Orientation:"), this);
    frame1->setObjectName(QStringLiteral("Frame1"));
    m_optPortrait = new QRadioButton(QStringLiteral("&Portrait"), frame1);
    m_optPortrait->setObjectName(QStringLiteral("optOrient1"));
    m_optLandscape = new QRadioButton(QStringLiteral("&Landscape"), frame1);
    m_optLandscape->setObjectName(QStringLiteral("optOrient2"));
    connect(m_optPortrait, &QRadioButton::clicked, this, [this] { optOrient_Click(Portrait); });
    connect(m_optLandscape, &QRadioButton::clicked, this, [this] { optOrient_Click(Landscape); });
    m_picKestrel = new QLabel(frame1);
    m_picKestrel->setObjectName(QStringLiteral("picKestrel"));
    m_picKestrel->setPixmap(portraitPagePicture());
    m_picKestrel->setFixedSize(m_picKestrel->sizeHint());
    auto* orientation = new QGridLayout(frame1);
    orientation->addWidget(m_optPortrait, 0, 0);
    orientation->addWidget(m_optLandscape, 1, 0);
    orientation->addWidget(m_picKestrel, 0, 1, 2, 1, Qt::AlignCenter);
    orientation->setColumnStretch(0, 1);

    auto* frame2 = new QGroupBox(QStringLiteral("&Device:"), this);
    frame2->setObjectName(QStringLiteral("Frame2"));
    m_lblDevice = new QLabel(frame2);
    m_lblDevice->setObjectName(QStringLiteral("lblDevice"));
    m_lblDevice->setWordWrap(true);
    m_lblDevice->setMinimumWidth(220);
    auto* cmdPrinter = new QPushButton(QStringLiteral("&Printer..."), frame2);
    cmdPrinter->setObjectName(QStringLiteral("cmdPrinter"));
    cmdPrinter->setAutoDefault(false);
    connect(cmdPrinter, &QPushButton::clicked, this, &PrintDialog::cmdPrinter_Click);
    auto* device = new QHBoxLayout(frame2);
    device->addWidget(m_lblDevice, 1);
    device->addWidget(cmdPrinter, 0, Qt::AlignTop);

    m_chkDiffs = new QCheckBox(
        QStringLiteral("&Include file differences in printout (may require Landscape)"), this);
    m_chkDiffs->setObjectName(QStringLiteral("chkDiffs"));

    m_cmdOK = new QPushButton(QStringLiteral("OK"), this);
    m_cmdOK->setObjectName(QStringLiteral("cmdOK"));
    m_cmdOK->setDefault(true);
    connect(m_cmdOK, &QPushButton::clicked, this, &PrintDialog::cmdOK_Click);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cmdCancel"));
    cancel->setAutoDefault(false);
    connect(cancel, &QPushButton::clicked, this, &PrintDialog::cmdCancel_Click);

    auto* buttons = new QVBoxLayout;
    buttons->addWidget(m_cmdOK);
    buttons->addWidget(cancel);
    buttons->addStretch();
    auto* layout = new QGridLayout(this);
    layout->addWidget(frame1, 0, 0);
    layout->addLayout(buttons, 0, 1, 2, 1);
    layout->addWidget(frame2, 1, 0);
    layout->addWidget(m_chkDiffs, 2, 0, 1, 2);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    installedPrinters = [] { return QPrinterInfo::availablePrinterNames(); };
    choosePrinter = [this](QPrinter& printer) {
        QPrintDialog dialog(&printer, this);
        return dialog.exec() == QDialog::Accepted;
    };
    printingError = [this](const engine::UserMessage& m) {
        QMessageBox box(QMessageBox::Warning, m.title, m.text,
                        QMessageBox::Ok | QMessageBox::Cancel, this);
        box.exec();
    };
    showPreview = [](QPrintPreviewDialog& preview) { preview.exec(); };
}

PrintDialog::~PrintDialog() = default;

QRadioButton* PrintDialog::orientationButton(int index) const {
    return index == Landscape ? m_optLandscape : m_optPortrait;
}

bool PrintDialog::printsToFile() const {
    return m_printer->outputFormat() == QPrinter::PdfFormat &&
           !m_printer->outputFileName().isEmpty();
}

bool PrintDialog::hasDevice() const {
    return printsToFile() || !installedPrinters().isEmpty();
}

QString PrintDialog::deviceName() const {
    if (printsToFile())
        return QDir::toNativeSeparators(m_printer->outputFileName());
    if (installedPrinters().isEmpty())
        return QStringLiteral("No Printer Installed");
    const QString name = m_printer->printerName();
    return name.isEmpty() ? QPrinterInfo::defaultPrinterName() : name;
}

void PrintDialog::setList(const ShownList& list) {
    m_list = &list;
    setResult(QDialog::Rejected);
    Form_Activate();
}

void PrintDialog::Form_Activate() {
    m_lblDevice->setText(deviceName());
    m_cmdOK->setEnabled(hasDevice());
    showOrientation();
    const bool differences = m_list && holdsDifferences(m_list->showMode);
    m_chkDiffs->setChecked(differences);
    m_chkDiffs->setEnabled(differences);
}

void PrintDialog::showOrientation() {
    const bool portrait = m_printer->pageLayout().orientation() == QPageLayout::Portrait;
    (portrait ? m_optPortrait : m_optLandscape)->setChecked(true);
    m_picKestrel->setVisible(portrait);
}

void PrintDialog::optOrient_Click(int index) {
    m_printer->setPageOrientation(index == Landscape ? QPageLayout::Landscape
                                                     : QPageLayout::Portrait);
    showOrientation();
}

void PrintDialog::cmdPrinter_Click() {
    choosePrinter(*m_printer);
    // Whatever was chosen (a printer, a file, an orientation) shows now.
    Form_Activate();
}

void PrintDialog::cmdOK_Click() {
    if (!hasDevice() || m_printing)
        return;
    const bool printed = Print(m_chkDiffs->isChecked());
    QCoreApplication::processEvents();
    if (printed)
        accept();
}

void PrintDialog::cmdCancel_Click() {
    reject();
}

bool PrintDialog::Print(bool includeDifferences) {
    if (!m_list || m_printing)
        return false;
    m_printing = true;
    // The job is known by the snapshot's title in the printer's queue.
    m_printer->setDocName(m_list->title);
    ReportSettings settings;
    settings.includeDifferences = includeDifferences;
    const engine::Outcome outcome = printTo(*m_printer, settings);
    m_printing = false;
    if (!outcome.ok && outcome.message)
        printingError(*outcome.message);
    return outcome.ok;
}

engine::Outcome PrintDialog::printTo(QPrinter& printer, const ReportSettings& settings) {
    if (printer.outputFormat() == QPrinter::PdfFormat && !printer.outputFileName().isEmpty()) {
        // Written in memory and saved whole, never through a link: a
        // cancelled report leaves no file, a failed one the file that was
        // there. The printer itself would open the name and write into it.
        return writeReportPdf(printer.outputFileName(), *m_list, settings, printer.pageLayout(),
                              printer.resolution(), m_meter);
    }
    return printReport(*m_list, settings, printer, m_meter);
}

void PrintDialog::PrintPreview(const ShownList& list) {
    setList(list);
    QPrintPreviewDialog preview(m_printer.get(), parentWidget());
    const bool differences = m_chkDiffs->isChecked();
    connect(&preview, &QPrintPreviewDialog::paintRequested, this,
            [this, differences](QPrinter* printer) {
                if (!m_list)
                    return;
                ReportSettings settings;
                settings.includeDifferences = differences;
                // The preview's pages are painted on a recording engine; the
                // Print button of the preview hands over the real printer,
                // which may be a PDF file.
                const QPaintEngine* painting = printer->paintEngine();
                const bool previewing = painting && painting->type() == QPaintEngine::Picture;
                const engine::Outcome outcome =
                    previewing ? printReport(*m_list, settings, *printer, m_meter)
                               : printTo(*printer, settings);
                if (!outcome.ok && outcome.message)
                    printingError(*outcome.message);
            });
    showPreview(preview);
    clearList();
}

} // namespace kestrel::output
