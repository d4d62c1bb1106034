// The printed report: its header, FitText's cuts, the columns at the grid's
// widths, the differences, pages, a cancelled or failed report that prints
// nothing, and the PDF read back with pdftotext as a reader would see it.

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
using namespace Qt::StringLiterals;

namespace {

const double Now = engine::oleDateFromParts(2024, 6, 7, 8, 9, 10);

// The text pdftotext reads from a PDF, its pages separated by form feeds;
// empty when pdftotext is not installed.
QString pdfText(const QString& path) {
    const QString tool = QStandardPaths::findExecutable(u"pdftotext"_s);
    if (tool.isEmpty())
        return {};
    QProcess p;
    p.start(tool, {u"-layout"_s, path, u"-"_s});
    p.waitForFinished(60000);
    // The PDF's fonts join "fi" and "fl" into one glyph, which reads back as
    // a ligature character.
    return QString::fromUtf8(p.readAllStandardOutput())
        .replace(QChar(0xFB01), u"fi"_s)
        .replace(QChar(0xFB02), u"fl"_s);
}

class ReportTest : public testing::Test {
protected:
    ShownListFixture f;
    QTemporaryDir dir;
    engine::ProgressMeter meter;
    QBuffer buffer;
    QPdfWriter device{&buffer};
    ReportDocument document;

    // Lists files f0, f1... of 0, 1... bytes.
    void showFiles(int count) {
        std::vector<Node> files;
        for (int i = 0; i < count; ++i)
            files.push_back(Node::file("f" + std::to_string(1000 + i), i));
        f.show(files);
    }
    // Composes the fixture's list on device; the number of the first row's
    // line.
    int compose(bool differences = false) {
        ReportSettings settings;
        settings.includeDifferences = differences;
        settings.now = Now;
        EXPECT_TRUE(composeReport(f.list, settings, device, meter, document).ok);
        return int(reportHeader(f.list, settings).size());
    }
    engine::Outcome writePdf(const QString& path, engine::ProgressMeter& with,
                             ReportSettings settings = {},
                             QPageLayout::Orientation orientation = QPageLayout::Portrait) {
        settings.now = Now;
        return writeReportPdf(path, f.list, settings, defaultPdfLayout(orientation), PdfResolution,
                              with);
    }
    // The PDF's text, empty without pdftotext.
    QString pdf(const QString& name, const ReportSettings& settings = {},
                QPageLayout::Orientation orientation = QPageLayout::Portrait) {
        EXPECT_TRUE(writePdf(dir.filePath(name), meter, settings, orientation).ok);
        return pdfText(dir.filePath(name));
    }
};

TEST_F(ReportTest, FitTextCutsWithDotsAndKeepsOneOrTwoCharactersWithout) {
    QFont font = QGuiApplication::font();
    font.setPointSizeF(GridPointSize);
    const QFontMetricsF metrics(font, &device);
    const QString text = u"A rather long file name.txt"_s;
    const auto width = [&](const QString& s) { return metrics.horizontalAdvance(s); };
    EXPECT_EQ(FitText(text, width(text), metrics), text);
    EXPECT_EQ(FitText(text, 0, metrics), text); // no width: nothing is cut
    const qreal half = width(text) / 2;
    const QString cut = FitText(text, half, metrics);
    ASSERT_TRUE(cut.endsWith(u"..."_s)) << cut.toStdString();
    const QString kept = cut.chopped(3);
    EXPECT_TRUE(text.startsWith(kept));
    // What fitted was kept less two characters, and one more would not fit.
    EXPECT_LE(width(text.left(kept.size() + 2)), half);
    EXPECT_GT(width(text.left(kept.size() + 3)), half);

    EXPECT_EQ(FitText(text, width(u"A r"_s) - 0.01, metrics), u"A "_s);
    EXPECT_EQ(FitText(text, width(u"A"_s), metrics), u"A"_s);
    EXPECT_EQ(FitText(text, 0.01, metrics), QString());
    // Three characters that fit become none and the dots.
    EXPECT_EQ(FitText(text, width(u"A ra"_s) - 0.01, metrics), u"A..."_s);
}

// Each printed column starts at the sum of the grid's widths before it; the
// size ends two blanks short of its column; a hidden column is not printed;
// the difference text stands at the filler's position.
TEST_F(ReportTest, RowsKeepTheGridsColumnsAndTheirDifferences) {
    f.showCompared({Node::file("grown.bin", 2000), Node::file("new.txt", 5)},
                   {Node::file("grown.bin", 1000)}, engine::ShowMode::All);
    f.list.columnTwips[engine::ModifiedColumn] = 2400; // a column the user widened
    const int header = compose(true);

    const double unit = device.logicalDpiX() / double(engine::TwipsPerInch);
    std::vector<qreal> position{0};
    for (const int twips : f.list.columnTwips)
        position.push_back(position.back() + twips * unit);
    const auto [first, end] = document.line(header);
    std::vector<ReportDocument::Piece> pieces(first, end);
    // Name, Size, Type, Modified, Attributes and the difference: In Folder
    // and Version are hidden.
    ASSERT_EQ(pieces.size(), 6u) << document.lineText(header).toStdString();
    EXPECT_EQ(document.textOf(pieces[0]), u"grown.bin"_s);
    EXPECT_EQ(document.textOf(pieces[1]), u"2,000"_s);
    QFont font = f.list.font;
    font.setPointSizeF(GridPointSize);
    const QFontMetricsF metrics(font, &device);
    EXPECT_NEAR(pieces[1].x + metrics.horizontalAdvance(u"2,000"_s),
                position[engine::TypeColumn] - metrics.horizontalAdvance(u"  "_s), 0.01);
    const int columns[] = {engine::NameColumn,       -1,
                           engine::TypeColumn,       engine::ModifiedColumn,
                           engine::AttributesColumn, engine::FillerColumn};
    for (size_t k = 0; k < pieces.size(); ++k) {
        if (columns[k] >= 0) {
            EXPECT_DOUBLE_EQ(pieces[k].x, position[size_t(columns[k])]) << k;
        }
    }
    EXPECT_TRUE(document.textOf(pieces[5]).startsWith(u"[was 1,000"_s));
    EXPECT_TRUE(document.textOf(pieces[5]).endsWith(u"]  "_s));
    EXPECT_TRUE(document.lineText(header + 1).endsWith(u" [was not in other Snapshot]  "_s));
    EXPECT_EQ(document.lineText(document.lineCount() - 1), u"End of Report"_s);
    EXPECT_EQ(document.lineText(document.lineCount() - 2), QString());
}

// A list beneath a comparison root: the entries outside it were not
// compared and tell no difference, whatever their fields hold.
TEST_F(ReportTest, OnlyComparedEntriesTellTheirDifferences) {
    f.showCompared({Node::file("new.txt", 5), Node::dir("d", {Node::file("x", 2)})},
                   {Node::dir("d", {Node::file("x", 1)})}, engine::ShowMode::All);
    const engine::ComparedPart part(f.snapshot, test::indexOf(f.snapshot, u"d"_s));
    engine::ListingOptions options = f.rows->options();
    options.subFolders = true;
    options.compared = &part;
    f.rows->list(1, options);
    const int header = compose(true);
    EXPECT_FALSE(document.lineText(header).contains(u"[was"_s));  // new.txt
    EXPECT_FALSE(document.lineText(header + 1).contains(u"["_s)); // d
    EXPECT_TRUE(document.lineText(header + 2).endsWith(u"[was 1]  "_s))
        << document.lineText(header + 2).toStdString();
}

// A line break or carriage return in a name or a header line prints as a
// mark, so that it neither breaks the report's line nor vanishes.
TEST_F(ReportTest, LineBreaksInTextsPrintAsAMark) {
    f.show({Node::file("two\r\nlines.txt")});
    f.list.title = u"a\ntitle"_s;
    const int header = compose();
    EXPECT_TRUE(document.lineText(3).startsWith(u"a\u23CEtitle (created "_s))
        << document.lineText(3).toStdString();
    EXPECT_TRUE(document.lineText(header).startsWith(u"two\u23CE\u23CElines.txt "_s))
        << document.lineText(header).toStdString();
}

// Pages break where the next line would not fit; the header is not repeated.
TEST_F(ReportTest, PagesBreakWhereTheNextLineWouldNotFit) {
    showFiles(250);
    compose();
    EXPECT_EQ(document.linesPerPage(), int(device.height() / document.lineHeight()));
    EXPECT_EQ(document.lineCount(), 5 + 250 + 2);
    EXPECT_EQ(document.pageCount(),
              (document.lineCount() + document.linesPerPage() - 1) / document.linesPerPage());
    EXPECT_GT(document.pageCount(), 1);

    const QString text = pdf(u"pages.pdf"_s);
    if (text.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    EXPECT_EQ(text.count(QLatin1Char('\f')), document.pageCount());
    EXPECT_EQ(text.count(versionLine()), 1);
}

// Cancelling the meter after 2,000 rows abandons the report: the device is
// never painted on, and no file is written or replaced. Memory that runs out
// while the report is laid out is told under "Printing Error" with the
// system's text, and the PDF that was there stays.
TEST_F(ReportTest, ACancelledOrFailedReportPrintsNothing) {
    showFiles(4500);
    kestrel::test::RecordingView view;
    engine::ProgressMeter cancelling(&view);
    view.onEvents = [&] {
        if (!view.values.empty() && view.values.back() >= 2000)
            cancelling.cancel();
    };
    QBuffer printed;
    printed.open(QIODevice::WriteOnly);
    {
        QPdfWriter writer(&printed);
        const engine::Outcome outcome = printReport(f.list, {}, writer, cancelling);
        EXPECT_TRUE(!outcome.ok && outcome.cancelled && !outcome.message);
    }
    EXPECT_EQ(printed.size(), 0);
    EXPECT_EQ(view.caption, u"Printing Snapshot"_s);
    EXPECT_TRUE(view.cancellable);
    EXPECT_EQ(view.values, (std::vector<int32_t>{2000}));
    EXPECT_EQ(view.closed, 1);

    const QString kept = dir.filePath(u"kept.pdf"_s);
    ASSERT_TRUE(kestrel::test::writeBytes(kept, "old"));
    EXPECT_TRUE(writePdf(kept, cancelling).cancelled);
    EXPECT_EQ(kestrel::test::readBytes(kept), QByteArray("old"));
    EXPECT_FALSE(writePdf(dir.filePath(u"new.pdf"_s), cancelling).ok);
    EXPECT_FALSE(QFile::exists(dir.filePath(u"new.pdf"_s)));

    kestrel::test::RecordingView failingView;
    engine::ProgressMeter failing(&failingView);
    failingView.onEvents = [&] {
        if (!failingView.values.empty())
            throw std::bad_alloc();
    };
    const engine::Outcome written = writePdf(kept, failing);
    EXPECT_FALSE(written.ok);
    kestrel::test::expectMessage(written.message, u"Printing Error"_s,
                                 QString::fromLocal8Bit(std::strerror(ENOMEM)),
                                 engine::MessageIcon::Exclamation);
    EXPECT_EQ(kestrel::test::readBytes(kept), QByteArray("old"));
    EXPECT_EQ(failingView.closed, 1);
}

// A full disk at any point of the PDF, its last bytes included: "Printing
// Error" with the path and the system's text, and the old file stays.
TEST_F(ReportTest, AFullDiskIsReportedAndTheOldFileKept) {
    f.show({Node::file("a.txt", 1), Node::file("b.txt", 2)});
    const QString path = dir.filePath(u"kept.pdf"_s);
    kestrel::test::expectFullDiskKeepsOldFile(path, "old", [&] {
        const engine::Outcome written = writePdf(path, meter);
        if (!written.ok) {
            EXPECT_EQ(written.message.value_or(engine::UserMessage{}).title, u"Printing Error"_s);
        }
        return written;
    });
}

// The PDF as a reader sees it: header, columns, cut names, differences and
// the last line; an empty list prints the header and "End of Report" only.
// (The print dialog's tests see a file that cannot be written.)
TEST_F(ReportTest, ThePdfReadsBackAsTheReport) {
    const double date = engine::oleDateFromParts(2024, 2, 3, 14, 5, 6);
    f.showCompared({Node::file("grown.bin", 123456, date),
                    Node::file("an exceedingly long file name that cannot fit.txt", 7),
                    Node::file("ab", 1)},
                   {Node::file("grown.bin", 1000, date)}, engine::ShowMode::All);
    ReportSettings settings;
    settings.includeDifferences = true;
    const QString text = pdf(u"report.pdf"_s, settings, QPageLayout::Landscape);
    if (text.isEmpty())
        GTEST_SKIP() << "pdftotext is not installed (poppler-utils)";
    const QStringList lines = text.split(QLatin1Char('\n'));
    ASSERT_GE(lines.size(), 15);
    const std::pair<int, const char*> header[] = {
        {0, "Kestrel v" KESTREL_VERSION " Directory Compare Program by Quillon Ltd"},
        {1, "Report produced on Friday, June 7, 2024 at 8:09 AM"},
        {3, "Work (created 3/5/24 9:30:00 AM)"},
        {5, "/built/"},
        {6, "Compared with Before (created 3/1/24)"},
        {7, "2 extra files, 1 file changed"},
        {9, "All Files/Dirs in this Snapshot"}};
    for (const auto& [number, expected] : header)
        EXPECT_EQ(lines[number].trimmed(), QString::fromUtf8(expected));
    EXPECT_TRUE(lines[11].simplified().startsWith(
        u"grown.bin 123,456 bin 2/3/24 2:05:06 PM Norm [was 1,000]"_s))
        << lines[11].toStdString();
    const QString longLine = lines[12].simplified();
    EXPECT_TRUE(
        QRegularExpression(u"^an exceedingly [a-z ]*\\.\\.\\. 7 txt "_s).match(longLine).hasMatch())
        << longLine.toStdString();
    EXPECT_TRUE(longLine.endsWith(u"[was not in other Snapshot]"_s));
    EXPECT_TRUE(lines[13].simplified().startsWith(u"ab 1 "_s));
    EXPECT_EQ(text.trimmed().section(QLatin1Char('\n'), -1).trimmed(), u"End of Report"_s);
    // The size stands right-aligned: its last digit ends where the next
    // line's does.
    EXPECT_EQ(lines[11].indexOf(u"123,456"_s) + 7, lines[13].indexOf(u" 1 "_s) + 2);

    ShownListFixture empty;
    empty.show({});
    f.list = empty.list;
    const QString none = pdf(u"empty.pdf"_s);
    const QStringList noneLines = none.trimmed().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(noneLines.size(), 4) << none.toStdString();
    EXPECT_EQ(noneLines[2].trimmed(), u"Work (created 3/5/24 9:30:00 AM)"_s);
    EXPECT_EQ(noneLines.last().trimmed(), u"End of Report"_s);
}

} // namespace
