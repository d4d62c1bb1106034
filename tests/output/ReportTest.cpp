// The printed report: its header, FitText's cuts, the columns at the grid's
// widths, the differences, pages, a cancelled report that prints nothing,
// and the PDF read back with pdftotext as a reader would see it.

#include "ShownListFixture.h"

#include "engine/support/TextFormats.h"
#include "listing/Twips.h"
#include "output/Report.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QFile>
#include <QPdfWriter>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cerrno>
#include <cstring>
#include <new>

using namespace kestrel;
using namespace kestrel::output;
using kestrel::test::Node;
using kestrel::test::ShownListFixture;

namespace {

const double Now = engine::oleDateFromParts(2024, 6, 7, 8, 9, 10);

// The text pdftotext reads from a PDF, its pages separated by form feeds;
// empty when pdftotext is not installed.
QString pdfText(const QString& path) {
    const QString tool = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (tool.isEmpty())
        return {};
    QProcess p;
    p.start(tool, {QStringLiteral("-layout"), path, QStringLiteral("-")});
    p.waitForFinished(60000);
    // The PDF's fonts join "fi" and "fl" into one glyph, which reads back as
    // a ligature character.
    return QString::fromUtf8(p.readAllStandardOutput())
        .replace(QChar(0xFB01), QStringLiteral("fi"))
        .replace(QChar(0xFB02), QStringLiteral("fl"));
}

class ReportTest : public testing::Test {
protected:
    ShownListFixture f;
    QTemporaryDir dir;
    engine::ProgressMeter meter;

    // Composes the fixture's list with its differences on device; returns
    // the number of the first row's line.
    int composeWithDifferences(QPaintDevice& device, ReportDocument& document) {
        ReportSettings settings;
        settings.includeDifferences = true;
        settings.now = Now;
        EXPECT_TRUE(composeReport(f.list, settings, device, meter, document).ok);
        return int(reportHeader(f.list, settings).size());
    }

    QString pdf(const QString& name, const ReportSettings& settings,
                QPageLayout::Orientation orientation = QPageLayout::Portrait) {
        const QString path = dir.filePath(name);
        const engine::Outcome written = writeReportPdf(
            path, f.list, settings, defaultPdfLayout(orientation), PdfResolution, meter);
        EXPECT_TRUE(written.ok);
        return path;
    }
};

TEST_F(ReportTest, FitTextCutsWithDotsAndKeepsOneOrTwoCharactersWithout) {
    QBuffer buffer;
    QPdfWriter device(&buffer);
    QFont font = QGuiApplication::font();
    font.setPointSizeF(GridPointSize);
    const QFontMetricsF metrics(font, &device);
    const QString text = QStringLiteral("A rather long file name.txt");
    const qreal wide = metrics.horizontalAdvance(text);

    EXPECT_EQ(FitText(text, wide, metrics), text);
    EXPECT_EQ(FitText(text, 0, metrics), text); // no width: nothing is cut
    const qreal half = wide / 2;
    const QString cut = FitText(text, half, metrics);
    ASSERT_TRUE(cut.endsWith(QStringLiteral("..."))) << cut.toStdString();
    const QString kept = cut.chopped(3);
    EXPECT_TRUE(text.startsWith(kept));
    // What fitted was kept less two characters, and one more would not fit.
    const QString fitted = text.left(kept.size() + 2);
    EXPECT_LE(metrics.horizontalAdvance(fitted), half);
    EXPECT_GT(metrics.horizontalAdvance(text.left(fitted.size() + 1)), half);

    const qreal two = metrics.horizontalAdvance(QStringLiteral("A r"));
    EXPECT_EQ(FitText(text, two - 0.01, metrics), QStringLiteral("A "));
    EXPECT_EQ(FitText(text, metrics.horizontalAdvance(QStringLiteral("A")), metrics),
              QStringLiteral("A"));
    EXPECT_EQ(FitText(text, 0.01, metrics), QString());
    // Three characters that fit become none and the dots.
    EXPECT_EQ(FitText(text, metrics.horizontalAdvance(QStringLiteral("A ra")) - 0.01, metrics),
              QStringLiteral("A..."));
}

// Each printed column starts at the sum of the grid's widths before it; the
// size ends two blanks short of its column; a hidden column is not printed;
// the difference text stands at the filler's position.
TEST_F(ReportTest, RowsKeepTheGridsColumnsAndTheirDifferences) {
    Node changed = Node::file("grown.bin", 2000);
    Node before = Node::file("grown.bin", 1000);
    f.showCompared({changed, Node::file("new.txt", 5)}, {before}, engine::ShowMode::All);
    f.list.columnTwips[engine::ModifiedColumn] = 2400; // a column the user widened
    QBuffer buffer;
    QPdfWriter device(&buffer);
    ReportDocument document;
    const int header = composeWithDifferences(device, document);

    const double unit = device.logicalDpiX() / double(engine::TwipsPerInch);
    std::vector<qreal> position{0};
    for (const int twips : f.list.columnTwips)
        position.push_back(position.back() + twips * unit);
    const auto [first, end] = document.line(header);
    std::vector<ReportDocument::Piece> pieces(first, end);
    // Name, Size, Type, Modified, Attributes and the difference: In Folder
    // and Version are hidden.
    ASSERT_EQ(pieces.size(), 6u) << document.lineText(header).toStdString();
    EXPECT_EQ(document.textOf(pieces[0]), QStringLiteral("grown.bin"));
    EXPECT_DOUBLE_EQ(pieces[0].x, position[engine::NameColumn]);
    QFont font = f.list.font;
    font.setPointSizeF(GridPointSize);
    const QFontMetricsF metrics(font, &device);
    EXPECT_EQ(document.textOf(pieces[1]), QStringLiteral("2,000"));
    EXPECT_NEAR(pieces[1].x + metrics.horizontalAdvance(QStringLiteral("2,000")),
                position[engine::TypeColumn] - metrics.horizontalAdvance(QStringLiteral("  ")),
                0.01);
    EXPECT_DOUBLE_EQ(pieces[2].x, position[engine::TypeColumn]);
    EXPECT_DOUBLE_EQ(pieces[3].x, position[engine::ModifiedColumn]);
    EXPECT_DOUBLE_EQ(pieces[4].x, position[engine::AttributesColumn]);
    EXPECT_DOUBLE_EQ(pieces[5].x, position[engine::FillerColumn]);
    EXPECT_TRUE(document.textOf(pieces[5]).startsWith(QStringLiteral("[was 1,000")));
    EXPECT_TRUE(document.textOf(pieces[5]).endsWith(QStringLiteral("]  ")));
    EXPECT_TRUE(
        document.lineText(header + 1).endsWith(QStringLiteral(" [was not in other Snapshot]  ")));
    EXPECT_EQ(document.lineText(document.lineCount() - 1), QStringLiteral("End of Report"));
    EXPECT_EQ(document.lineText(document.lineCount() - 2), QString());
}

// A list beneath a comparison root: the entries outside it were not
// compared and tell no difference, whatever their fields hold.
TEST_F(ReportTest, OnlyComparedEntriesTellTheirDifferences) {
    f.showCompared({Node::file("new.txt", 5), Node::dir("d", {Node::file("x", 2)})},
                   {Node::dir("d", {Node::file("x", 1)})}, engine::ShowMode::All);
    const engine::ComparedPart part(f.snapshot, test::indexOf(f.snapshot, QStringLiteral("d")));
    engine::ListingOptions options = f.rows->options();
    options.subFolders = true;
    options.compared = &part;
    f.rows->list(1, options);
    QBuffer buffer;
    QPdfWriter device(&buffer);
    ReportDocument document;
    const int header = composeWithDifferences(device, document);
    EXPECT_FALSE(document.lineText(header).contains(QStringLiteral("[was")));  // new.txt
    EXPECT_FALSE(document.lineText(header + 1).contains(QStringLiteral("["))); // d
    EXPECT_TRUE(document.lineText(header + 2).endsWith(QStringLiteral("[was 1]  ")))
        << document.lineText(header + 2).toStdString();
}

// A line break or carriage return in a name or a header line prints as a
// mark, so that it neither breaks the report's line nor vanishes.
TEST_F(ReportTest, LineBreaksInTextsPrintAsAMark) {
    f.show({Node::file("two\r\nlines.txt")});
    f.list.title = QStringLiteral("a\ntitle");
    QBuffer buffer;
    QPdfWriter device(&buffer);
    ReportDocument document;
    ReportSettings settings;
    settings.now = Now;
    ASSERT_TRUE(composeReport(f.list, settings, device, meter, document).ok);
    const int header = int(reportHeader(f.list, settings).size());
    const QString title = QStringLiteral("a\u23CEtitle (created ");
    EXPECT_TRUE(document.lineText(3).startsWith(title)) << document.lineText(3).toStdString();
    const QString name = QStringLiteral("two\u23CE\u23CElines.txt ");
    EXPECT_TRUE(document.lineText(header).startsWith(name))
        << document.lineText(header).toStdString();
}

TEST_F(ReportTest, PagesBreakWhereTheNextLineWouldNotFit) {
    std::vector<Node> files;
    for (int i = 0; i < 250; ++i)
        files.push_back(Node::file("f" + std::to_string(1000 + i), i));
    f.show(files);
    QBuffer buffer;
    QPdfWriter device(&buffer);
    ReportDocument document;
    ASSERT_TRUE(composeReport(f.list, {}, device, meter, document).ok);
    EXPECT_EQ(document.linesPerPage(), int(device.height() / document.lineHeight()));
    EXPECT_EQ(document.lineCount(), 5 + 250 + 2);
    EXPECT_EQ(document.pageCount(),
              (document.lineCount() + document.linesPerPage() - 1) / document.linesPerPage());
    EXPECT_GT(document.pageCount(), 1);

    const QString text = pdfText(pdf(QStringLiteral("pages.pdf"), {}));
    if (text.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    EXPECT_EQ(text.count(QLatin1Char('\f')), document.pageCount());
    // No header is repeated on the pages after the first.
    EXPECT_EQ(text.count(versionLine()), 1);
}

// Cancelling the meter after 2,000 rows abandons the report: the device is
// never painted on, and no file is written or replaced.
TEST_F(ReportTest, CancelledReportPrintsNothing) {
    std::vector<Node> files;
    for (int i = 0; i < 4500; ++i)
        files.push_back(Node::file("f" + std::to_string(i), i));
    f.show(files);
    kestrel::test::RecordingView view;
    engine::ProgressMeter cancelling(&view);
    view.onEvents = [&] {
        if (!view.values.empty() && view.values.back() >= 2000)
            cancelling.cancel();
    };

    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    {
        QPdfWriter device(&buffer);
        const engine::Outcome printed = printReport(f.list, {}, device, cancelling);
        EXPECT_FALSE(printed.ok);
        EXPECT_TRUE(printed.cancelled);
        EXPECT_FALSE(printed.message);
    }
    EXPECT_EQ(buffer.size(), 0);
    EXPECT_EQ(view.caption, QStringLiteral("Printing Snapshot"));
    EXPECT_TRUE(view.cancellable);
    EXPECT_EQ(view.values, (std::vector<int32_t>{2000}));
    EXPECT_EQ(view.closed, 1);

    const QString path = dir.filePath(QStringLiteral("kept.pdf"));
    {
        QFile old(path);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("old");
    }
    EXPECT_TRUE(writeReportPdf(path, f.list, {}, defaultPdfLayout(QPageLayout::Portrait),
                               PdfResolution, cancelling)
                    .cancelled);
    QFile kept(path);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), QByteArray("old"));
    EXPECT_FALSE(writeReportPdf(dir.filePath(QStringLiteral("new.pdf")), f.list, {},
                                defaultPdfLayout(QPageLayout::Portrait), PdfResolution, cancelling)
                     .ok);
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("new.pdf"))));
}

// Memory that runs out while the report is laid out is told under "Printing
// Error" with the system's text, and the PDF that was there stays.
TEST_F(ReportTest, RunningOutOfMemoryIsAPrintingError) {
    std::vector<Node> files;
    for (int i = 0; i < 2500; ++i)
        files.push_back(Node::file("f" + std::to_string(i), i));
    f.show(files);
    kestrel::test::RecordingView view;
    engine::ProgressMeter failing(&view);
    view.onEvents = [&] {
        if (!view.values.empty())
            throw std::bad_alloc();
    };
    const QString path = dir.filePath(QStringLiteral("kept.pdf"));
    {
        QFile old(path);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("old");
    }
    const engine::Outcome written = writeReportPdf(
        path, f.list, {}, defaultPdfLayout(QPageLayout::Portrait), PdfResolution, failing);
    EXPECT_FALSE(written.ok);
    kestrel::test::expectMessage(written.message, QStringLiteral("Printing Error"),
                                 QString::fromLocal8Bit(std::strerror(ENOMEM)),
                                 engine::MessageIcon::Exclamation);
    EXPECT_EQ(kestrel::test::readBytes(path), QByteArray("old"));
    EXPECT_EQ(view.closed, 1);
}

// A full disk at any point of the PDF, its last bytes included: "Printing
// Error" with the path and the system's text, and the old file stays.
TEST_F(ReportTest, AFullDiskIsReportedAndTheOldFileKept) {
    f.show({Node::file("a.txt", 1), Node::file("b.txt", 2)});
    const QString path = dir.filePath(QStringLiteral("kept.pdf"));
    ReportSettings settings;
    settings.now = Now;
    kestrel::test::expectFullDiskKeepsOldFile(path, "old", [&] {
        const engine::Outcome written = writeReportPdf(
            path, f.list, settings, defaultPdfLayout(QPageLayout::Portrait), PdfResolution, meter);
        if (!written.ok) {
            EXPECT_EQ(written.message.value_or(engine::UserMessage{}).title,
                      QStringLiteral("Printing Error"));
        }
        return written;
    });
}

// The PDF as a reader sees it: header, columns, cut names, differences and
// the last line; an empty list prints the header and "End of Report" only.
// (The print dialog's tests see a file that cannot be written.)
TEST_F(ReportTest, ThePdfReadsBackAsTheReport) {
    Node grown = Node::file("grown.bin", 123456, engine::oleDateFromParts(2024, 2, 3, 14, 5, 6));
    Node before = Node::file("grown.bin", 1000, engine::oleDateFromParts(2024, 2, 3, 14, 5, 6));
    const std::string longName = "an exceedingly long file name that cannot fit.txt";
    f.showCompared({grown, Node::file(longName, 7), Node::file("ab", 1)}, {before},
                   engine::ShowMode::All);
    ReportSettings settings;
    settings.includeDifferences = true;
    settings.now = Now;
    const QString text =
        pdfText(pdf(QStringLiteral("report.pdf"), settings, QPageLayout::Landscape));
    if (text.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    const QStringList lines = text.split(QLatin1Char('\n'));
    ASSERT_GE(lines.size(), 15);
    EXPECT_EQ(lines[0].trimmed(), QStringLiteral("Kestrel v" KESTREL_VERSION
                                                 " Directory Compare Program by Quillon Ltd"));
    EXPECT_EQ(lines[1].trimmed(),
              QStringLiteral("Report produced on Friday, June 7, 2024 at 8:09 AM"));
    EXPECT_EQ(lines[3].trimmed(), QStringLiteral("Work (created 3/5/24 9:30:00 AM)"));
    EXPECT_EQ(lines[5].trimmed(), QStringLiteral("/built/"));
    EXPECT_EQ(lines[6].trimmed(), QStringLiteral("Compared with Before (created 3/1/24)"));
    EXPECT_EQ(lines[7].trimmed(), QStringLiteral("2 extra files, 1 file changed"));
    EXPECT_EQ(lines[9].trimmed(), QStringLiteral("All Files/Dirs in this Snapshot"));

    const QString grownLine = lines[11].simplified();
    EXPECT_TRUE(grownLine.startsWith(
        QStringLiteral("grown.bin 123,456 bin 2/3/24 2:05:06 PM Norm [was 1,000]")))
        << grownLine.toStdString();
    const QString longLine = lines[12].simplified();
    EXPECT_TRUE(longLine.startsWith(QStringLiteral("an exceedingly")));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^an exceedingly [a-z ]*\\.\\.\\. 7 txt "))
                    .match(longLine)
                    .hasMatch())
        << longLine.toStdString();
    EXPECT_TRUE(longLine.endsWith(QStringLiteral("[was not in other Snapshot]")));
    EXPECT_TRUE(lines[13].simplified().startsWith(QStringLiteral("ab 1 ")));
    EXPECT_EQ(text.trimmed().section(QLatin1Char('\n'), -1).trimmed(),
              QStringLiteral("End of Report"));
    // The size stands right-aligned: its last digit ends where the next
    // line's does.
    EXPECT_EQ(lines[11].indexOf(QStringLiteral("123,456")) + 7,
              lines[13].indexOf(QStringLiteral(" 1 ")) + 2);

    ShownListFixture empty;
    empty.show({});
    f.list = empty.list;
    settings.includeDifferences = false;
    const QString none = pdfText(pdf(QStringLiteral("empty.pdf"), settings));
    const QStringList noneLines = none.trimmed().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(noneLines.size(), 4) << none.toStdString();
    EXPECT_EQ(noneLines[2].trimmed(), QStringLiteral("Work (created 3/5/24 9:30:00 AM)"));
    EXPECT_EQ(noneLines.last().trimmed(), QStringLiteral("End of Report"));
}

} // namespace
