#pragma once

#include "ShownList.h"

#include "engine/support/Errors.h"

#include <QFont>
#include <QFontMetricsF>
#include <QPageLayout>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

class QPagedPaintDevice;
class QPaintDevice;

namespace kestrel::engine {
class ProgressMeter;
}

namespace kestrel::output {

// The printed report of a shown list: a header naming the snapshot (and,
// with the differences, the status panels, the snapshot compared with and
// the show selector's choice), one line per row with the columns at the
// grid's widths, and "End of Report". It is laid out first, under the
// meter "Printing Snapshot" with Cancel allowed, and only a complete layout
// reaches the device: a cancelled report prints nothing at all, on any
// device (printers abandon nothing once a job has started to reach them).

struct ReportSettings {
    // Each row followed by the text of its entry's difference.
    bool includeDifferences = false;
    // The time the report is produced, as an OLE date; 0 takes the clock's.
    double now = 0;
};

// The rows between two meter updates.
inline constexpr int32_t ReportMeterStep = 2000;
inline constexpr char ReportMeterCaption[] = "Printing Snapshot";
inline constexpr char PrintingErrorTitle[] = "Printing Error";

// "Kestrel v3.0.1 Directory Compare Program by Quillon Ltd": the program's
// major, minor and revision numbers in plain digits.
QString versionLine();
// The header lines, blank lines included, before the first row.
QStringList reportHeader(const ShownList& list, const ReportSettings& settings);

// FitText: text cut to fit width (device units, as metrics measure): the
// last characters go while the text is wider, and a cut text that keeps
// more than two characters loses two more for "..." (so it may end a little
// wider than what fitted). One or two characters are kept without dots. A
// width of 0 or less cuts nothing. Longer beginnings of a text are taken to
// be never narrower than shorter ones.
QString FitText(const QString& text, qreal width, const QFontMetricsF& metrics);

// A report laid out for one device: its lines, page by page, each line the
// pieces of text it prints and where they start.
class ReportDocument {
public:
    struct Piece {
        qreal x;
        qsizetype start;
        qsizetype length;
    };

    QFont font() const { return m_font; }
    qreal lineHeight() const { return m_lineHeight; }
    // From a line's top to the baseline of its text.
    qreal ascent() const { return m_ascent; }
    int linesPerPage() const { return m_linesPerPage; }
    int lineCount() const { return int(m_lineEnds.size()); }
    int pageCount() const;
    // The pieces of a line, and the text of a piece.
    std::pair<const Piece*, const Piece*> line(int index) const;
    QString textOf(const Piece& piece) const { return m_text.mid(piece.start, piece.length); }
    // The text of a line, pieces joined by blanks: for tests and checks.
    QString lineText(int index) const;

    void clear();

private:
    friend class ReportComposer;
    void addPiece(qreal x, const QString& text);
    void endLine();

    QFont m_font;
    qreal m_lineHeight = 1;
    qreal m_ascent = 0;
    int m_linesPerPage = 1;
    QString m_text;
    std::vector<Piece> m_pieces;
    std::vector<size_t> m_lineEnds; // one past each line's last piece
};

// Lays the report of list out for device, which is measured and never
// painted on. Cancelled (the meter's Cancel) leaves document empty and
// returns an outcome that is not ok and marked cancelled.
engine::Outcome composeReport(const ShownList& list, const ReportSettings& settings,
                              QPaintDevice& device, engine::ProgressMeter& meter,
                              ReportDocument& document);

// Prints a laid out report on device, page after page. A device that does
// not start or take a page gives "Printing Error".
engine::Outcome paintReport(const ReportDocument& document, QPagedPaintDevice& device);

// Lays out and prints: a cancelled report leaves device untouched.
engine::Outcome printReport(const ShownList& list, const ReportSettings& settings,
                            QPagedPaintDevice& device, engine::ProgressMeter& meter);

// The report as a PDF file, made in memory on pages of layout at resolution
// dots per inch, and saved only when complete: a cancelled or failed report
// leaves no file, and an existing file as it was; a link there is refused,
// never written through. A file that cannot be written gives "Printing
// Error" with the path and the system's description.
engine::Outcome writeReportPdf(const QString& path, const ShownList& list,
                               const ReportSettings& settings, const QPageLayout& layout,
                               int resolution, engine::ProgressMeter& meter);

// The PDF pages of a print to file, as printing to a PDF file gives them
// too: A4 with margins of 10 points, 1200 dots per inch.
QPageLayout defaultPdfLayout(QPageLayout::Orientation orientation);
inline constexpr int PdfResolution = 1200;

} // namespace kestrel::output
