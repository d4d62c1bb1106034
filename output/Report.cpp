#include "Report.h"

#include "engine/compare/Compare.h"
#include "engine/file/FileWriting.h"
#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "listing/Twips.h"

#include <QBuffer>
#include <QPageSize>
#include <QPagedPaintDevice>
#include <QPainter>
#include <QPdfWriter>

#include <algorithm>
#include <array>
#include <cmath>

namespace kestrel::output {

using engine::MessageIcon;
using engine::Outcome;
using engine::UserMessage;

namespace {

Outcome printingError(const QString& text) {
    return Outcome::failure(
        UserMessage{QLatin1String(PrintingErrorTitle), text, MessageIcon::Exclamation});
}

QString createdText(const QString& title, double created) {
    return title + QStringLiteral(" (created ") + engine::generalDateText(created) +
           QLatin1Char(')');
}

} // namespace

QString versionLine() {
    // Plain digits, whatever padding the version string carries.
    const QStringList parts = QStringLiteral(KESTREL_VERSION).split(QLatin1Char('.'));
    QStringList numbers;
    for (qsizetype i = 0; i < 3; ++i)
        numbers << QString::number(parts.value(i).toInt());
    return QStringLiteral("Kestrel v") + numbers.join(QLatin1Char('.')) +
           QStringLiteral(" Directory Compare Program by Quillon Ltd");
}

QStringList reportHeader(const ShownList& list, const ReportSettings& settings) {
    const double now = settings.now != 0 ? settings.now : engine::oleNow();
    QStringList lines;
    lines << versionLine();
    lines << QStringLiteral("Report produced on ") + engine::longDateText(now) +
                 QStringLiteral(" at ") + engine::shortTimeText(now);
    lines << QString();
    lines << createdText(list.title, list.created);
    if (settings.includeDifferences) {
        lines << QString();
        lines << list.folderPanel;
        lines << QStringLiteral("Compared with ") + createdText(list.otherTitle, list.otherCreated);
        lines << list.changesPanel;
        lines << QString();
        lines << list.showText;
    }
    lines << QString();
    return lines;
}

QString FitText(const QString& text, qreal width, const QFontMetricsF& metrics) {
    if (width <= 0 || metrics.horizontalAdvance(text) <= width)
        return text;
    // The longest beginning that fits: the one dropping the last character
    // again and again would stop at, found by halving.
    qsizetype fits = 0;
    qsizetype tooWide = text.size();
    while (tooWide - fits > 1) {
        const qsizetype middle = (fits + tooWide) / 2;
        if (metrics.horizontalAdvance(text.left(middle)) <= width)
            fits = middle;
        else
            tooWide = middle;
    }
    QString kept = text.left(fits);
    // Half a character would print as garbage.
    if (!kept.isEmpty() && kept.back().isHighSurrogate())
        kept.chop(1);
    if (kept.size() > 2) {
        kept.chop(2);
        kept += QStringLiteral("...");
    }
    return kept;
}

// ReportDocument ---------------------------------------------------------------

int ReportDocument::pageCount() const {
    return lineCount() == 0 ? 0 : (lineCount() + m_linesPerPage - 1) / m_linesPerPage;
}

std::pair<const ReportDocument::Piece*, const ReportDocument::Piece*>
ReportDocument::line(int index) const {
    const size_t first = index == 0 ? 0 : m_lineEnds[size_t(index - 1)];
    const size_t end = m_lineEnds[size_t(index)];
    return {m_pieces.data() + first, m_pieces.data() + end};
}

QString ReportDocument::lineText(int index) const {
    QStringList texts;
    const auto [first, end] = line(index);
    for (const Piece* piece = first; piece != end; ++piece)
        texts << textOf(*piece);
    return texts.join(QLatin1Char(' '));
}

void ReportDocument::addPiece(qreal x, const QString& text) {
    if (text.isEmpty())
        return;
    m_pieces.push_back({x, m_text.size(), text.size()});
    m_text += text;
}

void ReportDocument::endLine() {
    m_lineEnds.push_back(m_pieces.size());
}

void ReportDocument::clear() {
    m_text.clear();
    m_pieces.clear();
    m_lineEnds.clear();
}

// Composing -------------------------------------------------------------------------

// Lays the lines of one report out on a document, measured for one device.
class ReportComposer {
public:
    ReportComposer(const ShownList& list, const ReportSettings& settings, QPaintDevice& device,
                   ReportDocument& document)
        : m_list(list), m_settings(settings), m_document(document), m_font(fontFor(list)),
          m_metrics(m_font, &device) {
        m_document.clear();
        m_document.m_font = m_font;
        m_document.m_lineHeight = m_metrics.lineSpacing();
        m_document.m_ascent = m_metrics.ascent();
        // A page holds the lines that fit whole; the printer breaks the page
        // before one that would not.
        m_document.m_linesPerPage =
            std::max(1, int(std::floor(device.height() / m_document.m_lineHeight)));
        // Each column starts where the one shown before it ends, at the
        // grid's widths.
        const double unitsPerTwip = device.logicalDpiX() / double(engine::TwipsPerInch);
        qreal x = 0;
        for (const int column : engine::ShownColumnOrder) {
            m_positions[size_t(column)] = x;
            m_widths[size_t(column)] = list.columnTwips[size_t(column)] * unitsPerTwip;
            x += m_widths[size_t(column)];
        }
        m_twoBlanks = m_metrics.horizontalAdvance(QStringLiteral("  "));
    }

    void header() {
        for (const QString& line : reportHeader(m_list, m_settings)) {
            m_document.addPiece(0, engine::visibleText(line));
            m_document.endLine();
        }
    }

    void row(int32_t row) {
        const engine::FileList& rows = *m_list.rows;
        for (const int column : engine::ShownColumnOrder) {
            if (column == engine::FillerColumn)
                continue;
            const qreal start = m_positions[size_t(column)];
            const qreal width = m_widths[size_t(column)];
            if (width == 0)
                continue; // a column the grid hides
            const QString text = engine::visibleText(rows.cellText(row, column));
            if (column == engine::SizeColumn) {
                // Right-aligned, two blanks short of the column's end.
                m_document.addPiece(start + width - m_twoBlanks - m_metrics.horizontalAdvance(text),
                                    text);
            } else {
                m_document.addPiece(start, FitText(text, width, m_metrics));
            }
        }
        // An entry the comparison did not cover (outside the comparison
        // root) has no difference to tell.
        const engine::ComparedPart* compared = rows.options().compared;
        if (m_settings.includeDifferences && (!compared || compared->covers(rows.entryAt(row)))) {
            const QString difference = engine::WhatChanged(
                *m_list.snapshot, m_list.other, rows.entryAt(row), m_list.compareOptions);
            m_document.addPiece(m_positions[engine::FillerColumn],
                                difference + QStringLiteral("  "));
        }
        m_document.endLine();
    }

    void footer() {
        m_document.endLine();
        m_document.addPiece(0, QStringLiteral("End of Report"));
        m_document.endLine();
    }

private:
    static QFont fontFor(const ShownList& list) {
        QFont font = list.font;
        font.setPointSizeF(GridPointSize);
        return font;
    }

    const ShownList& m_list;
    const ReportSettings& m_settings;
    ReportDocument& m_document;
    QFont m_font;
    QFontMetricsF m_metrics;
    // Where each column starts and how wide it is, by column number.
    std::array<qreal, ShownColumnCount> m_positions{};
    std::array<qreal, ShownColumnCount> m_widths{};
    qreal m_twoBlanks = 0;
};

Outcome composeReport(const ShownList& list, const ReportSettings& settings, QPaintDevice& device,
                      engine::ProgressMeter& meter, ReportDocument& document) {
    const int32_t rows = list.rowCount();
    engine::startCancellable(meter, rows, QLatin1String(ReportMeterCaption));
    ReportComposer composer(list, settings, device, document);
    try {
        composer.header();
        for (int32_t row = 0; row < rows; ++row) {
            composer.row(row);
            const int32_t number = row + 1;
            if (number % ReportMeterStep == 0)
                meter.update(number);
            if (meter.cancelled()) {
                document.clear();
                Outcome cancelled;
                cancelled.cancelled = true;
                return cancelled;
            }
        }
        composer.footer();
    } catch (...) {
        // A difference text of a damaged snapshot, or no memory left for
        // the laid-out lines.
        document.clear();
        return printingError(engine::caughtError().text);
    }
    return Outcome::success();
}

// Printing -------------------------------------------------------------------------------

Outcome paintReport(const ReportDocument& document, QPagedPaintDevice& device) {
    QPainter painter;
    if (!painter.begin(&device))
        return printingError(QStringLiteral("The printer did not start the report"));
    painter.setFont(document.font());
    const int perPage = document.linesPerPage();
    for (int index = 0; index < document.lineCount(); ++index) {
        const int onPage = index % perPage;
        if (index > 0 && onPage == 0 && !device.newPage()) {
            painter.end();
            return printingError(QStringLiteral("The printer did not take a new page"));
        }
        const qreal baseline = onPage * document.lineHeight() + document.ascent();
        const auto [first, end] = document.line(index);
        for (const ReportDocument::Piece* piece = first; piece != end; ++piece)
            painter.drawText(QPointF(piece->x, baseline), document.textOf(*piece));
    }
    if (!painter.end())
        return printingError(QStringLiteral("The printer did not finish the report"));
    return Outcome::success();
}

Outcome printReport(const ShownList& list, const ReportSettings& settings,
                    QPagedPaintDevice& device, engine::ProgressMeter& meter) {
    const engine::MeterCloser closer(meter);
    return engine::guardedOperation(QLatin1String(PrintingErrorTitle), [&] {
        ReportDocument document;
        const Outcome composed = composeReport(list, settings, device, meter, document);
        if (!composed.ok)
            return composed;
        return paintReport(document, device);
    });
}

QPageLayout defaultPdfLayout(QPageLayout::Orientation orientation) {
    return QPageLayout(QPageSize(QPageSize::A4), orientation, QMarginsF(10, 10, 10, 10),
                       QPageLayout::Point);
}

Outcome writeReportPdf(const QString& path, const ShownList& list, const ReportSettings& settings,
                       const QPageLayout& layout, int resolution, engine::ProgressMeter& meter) {
    // A name that cannot be written is told before the report is laid out.
    engine::AtomicFile file(path);
    if (!file.open())
        return printingError(file.errorText());
    return engine::guardedOperation(QLatin1String(PrintingErrorTitle), [&] {
        QBuffer pdf;
        pdf.open(QIODevice::WriteOnly);
        {
            QPdfWriter writer(&pdf);
            writer.setResolution(resolution);
            writer.setPageLayout(layout);
            writer.setCreator(QStringLiteral("Kestrel " KESTREL_VERSION));
            writer.setTitle(list.title);
            const Outcome printed = printReport(list, settings, writer, meter);
            if (!printed.ok)
                return printed;
        }
        if (!file.append(pdf.data().constData(), size_t(pdf.size())) || !file.commit())
            return printingError(file.errorText());
        return Outcome::success();
    });
}

} // namespace kestrel::output
