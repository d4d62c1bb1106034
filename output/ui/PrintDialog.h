#pragma once

#include "output/Report.h"
#include "output/ShownList.h"

#include "engine/support/Errors.h"

#include <QDialog>

#include <functional>
#include <memory>

class QCheckBox;
class QLabel;
class QPrintPreviewDialog;
class QPrinter;
class QPushButton;
class QRadioButton;

namespace kestrel::engine {
class ProgressMeter;
}

namespace kestrel::output {

// frmPrint, "Print Snapshot": prints the report of the list a snapshot window
// shows on the current device, in the orientation chosen, with or without
// the differences. The device is the printer chosen last, or, when the
// platform's print dialog was told to print to a PDF file, that file: then
// the label names the file and the report can be printed on a machine
// without any printer. Print Preview shows the same pages in Qt's preview.
//
// Loaded once and then only shown and hidden; the device and orientation
// stay for the run. Controls carry their program names as object names:
// "optOrient1" ("&Portrait"), "optOrient2" ("&Landscape"), "picKestrel",
// "lblDevice", "cmdPrinter", "chkDiffs", "cmdOK", "cmdCancel".
class PrintDialog : public QDialog {
    Q_OBJECT
public:
    // The printer's orientation codes, which number the option buttons.
    static constexpr int Portrait = 1;
    static constexpr int Landscape = 2;

    // meter shows the printing's progress and carries its Cancel; not owned.
    explicit PrintDialog(engine::ProgressMeter& meter, QWidget* parent = nullptr);
    ~PrintDialog() override;

    // Activation for a list (borrowed until the dialog hides): the device,
    // the orientation, and the differences box ticked and enabled when the
    // window holds differences to show, cleared and disabled otherwise.
    void setList(const ShownList& list);
    void clearList() { m_list = nullptr; }
    void Form_Activate();

    // What the dialog asks of the world, replaceable so that tests answer
    // without windows or printers.
    // The names of the printers installed.
    std::function<QStringList()> installedPrinters;
    // The platform's print dialog over printer; true when the user chose.
    std::function<bool(QPrinter& printer)> choosePrinter;
    // A printing failure: its description, an exclamation icon, OK and Cancel.
    std::function<void(const engine::UserMessage& message)> printingError;
    // Shows the preview modally.
    std::function<void(QPrintPreviewDialog& preview)> showPreview;

    // The user's commands.
    void optOrient_Click(int index);
    void cmdPrinter_Click();
    // OK: prints; a report printed to the end closes the dialog, one
    // cancelled or failed leaves it open.
    void cmdOK_Click();
    void cmdCancel_Click();

    // Print: the report of the list on the current device, laid out first
    // under the meter. True when it was printed to the end; a failure has
    // been shown.
    bool Print(bool includeDifferences);
    // The report in Qt's print preview on the current device's pages.
    void PrintPreview(const ShownList& list);

    QPrinter& printer() { return *m_printer; }
    // Whether there is a device to print on: an installed printer, or a PDF
    // file chosen in the print dialog.
    bool hasDevice() const;
    QString deviceName() const;
    QLabel* deviceLabel() const { return m_lblDevice; }
    QCheckBox* differencesBox() const { return m_chkDiffs; }
    QPushButton* okButton() const { return m_cmdOK; }
    QRadioButton* orientationButton(int index) const;
    QLabel* picture() const { return m_picKestrel; }

private:
    bool printsToFile() const;
    void showOrientation();
    // The report of the list on printer: a PDF file is written whole
    // through the safe writer, anything else is printed.
    engine::Outcome printTo(QPrinter& printer, const ReportSettings& settings);

    engine::ProgressMeter& m_meter;
    std::unique_ptr<QPrinter> m_printer;
    const ShownList* m_list = nullptr;
    // Set while a report is laid out: the meter lets events through, and a
    // second OK must not start a second report.
    bool m_printing = false;

    QRadioButton* m_optPortrait = nullptr;
    QRadioButton* m_optLandscape = nullptr;
    QLabel* m_picKestrel = nullptr;
    QLabel* m_lblDevice = nullptr;
    QCheckBox* m_chkDiffs = nullptr;
    QPushButton* m_cmdOK = nullptr;
};

} // namespace kestrel::output
