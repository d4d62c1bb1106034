#include "Commands.h"

#include "CommandSupport.h"
#include "TerminalProgress.h"
#include "WindowlessView.h"

#include "engine/support/Progress.h"
#include "output/Report.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>

namespace kestrel::cli {

using namespace engine;

int reportCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Prints the file list of a folder of SNAPSHOT (a snapshot file, or a folder scanned\n"
        "without saving) as Kestrel's Print command does, into a PDF file: the header, one\n"
        "line per row with the columns at the grid's widths (Permissions and Owner too when\n"
        "the snapshot holds them), \"End of Report\". Pages are A4 with margins of 10 points,\n"
        "as printing to a PDF file gives them, in the grid's font at 8.25 points. The file is\n"
        "written only once the report is complete."));
    QCommandLineParser& p = cl.parser;
    const ViewOptions view;
    view.addTo(p);
    const QCommandLineOption landscape(QStringLiteral("landscape"),
                                       QStringLiteral("Landscape pages (default: portrait)."));
    const QCommandLineOption differences(
        QStringLiteral("differences"),
        QStringLiteral("With --compare: the status panels, the snapshot compared with and the "
                       "show choice in the header, and each row's difference (may need "
                       "--landscape)."));
    const QCommandLineOption pdf(QStringLiteral("pdf"), QStringLiteral("The PDF file to write."),
                                 QStringLiteral("FILE"));
    p.addOptions({landscape, differences, pdf});
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli report SNAPSHOT --pdf FILE [options]")))
        return ExitTrouble;
    if (!p.isSet(pdf)) {
        usageError(QStringLiteral("report needs --pdf FILE"));
        return ExitTrouble;
    }
    if (p.isSet(differences) && !p.isSet(view.compare)) {
        usageError(QStringLiteral("--differences needs --compare"));
        return ExitTrouble;
    }
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        printError(QStringLiteral("Printing Error"), QStringLiteral("No graphics available"));
        return ExitTrouble;
    }

    TerminalProgress progress;
    ProgressMeter meter(&progress);
    WindowlessView shown;
    if (!shown.open(p, view, meter))
        return ExitTrouble;
    output::ShownList& list = shown.list();
    // The grid's font and widths as a window on this screen would have them.
    list.font = QGuiApplication::font();
    list.font.setPointSizeF(output::GridPointSize);
    const QScreen* screen = QGuiApplication::primaryScreen();
    const double dpi = screen ? screen->logicalDotsPerInchX() : 96.0;
    list.columnTwips =
        output::shownColumnTwips({list.snapshot->header.versions, list.inFolderOffered,
                                  list.accessOffered, list.fingerprintsOffered},
                                 list.font, dpi);

    output::ReportSettings settings;
    settings.includeDifferences = p.isSet(differences);
    const Outcome printed =
        output::writeReportPdf(QFileInfo(p.value(pdf)).absoluteFilePath(), list, settings,
                               output::defaultPdfLayout(p.isSet(landscape) ? QPageLayout::Landscape
                                                                           : QPageLayout::Portrait),
                               output::PdfResolution, meter);
    if (!succeeded(printed))
        return ExitTrouble;
    return ExitOk;
}

} // namespace kestrel::cli
