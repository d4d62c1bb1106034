// The export's lines: the field list and its moves, separators, quoting,
// custom text, numeric attributes, the preview and the file written, and the
// fast cell texts checked against the grid's own in several locales.

#include "ShownListFixture.h"

#include "engine/support/TextFormats.h"
#include "output/CellWriter.h"
#include "output/ExportLines.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QFile>
#include <QTemporaryDir>

#include <ctime>
#include <new>

using namespace kestrel;
using namespace kestrel::output;
using kestrel::test::Node;
using kestrel::test::ShownListFixture;

namespace {

std::vector<ExportField> onlyFields(std::initializer_list<int> numbers) {
    std::vector<ExportField> fields;
    for (const int n : numbers)
        fields.push_back(
            {n, n >= ExportField::FirstCustomField ? QStringLiteral("Custom") : QString(), true});
    return fields;
}

ExportChoices choose(const QString& separator, bool quotes, bool numeric = false) {
    return ExportChoices{separator, quotes, numeric};
}

QStringList textsOf(const std::vector<ExportField>& fields) {
    QStringList texts;
    for (const ExportField& f : fields)
        texts << f.text + (f.checked ? QStringLiteral("+") : QString());
    return texts;
}

class ExportLinesTest : public testing::Test {
protected:
    ShownListFixture f;
    QTemporaryDir dir;

    // Two files: "a.txt" of 1,234 bytes and a read-only "B.Doc" of 5 bytes.
    void showTwoFiles() {
        Node a = Node::file("a.txt", 1234, engine::oleDateFromParts(2023, 1, 2, 13, 4, 5));
        f.show({a, Node::file("B.Doc", 5, engine::oleDateFromParts(2022, 12, 31, 0, 0, 0), 1)});
    }
    QString line(std::vector<ExportField> fields, const ExportChoices& choices, int32_t row = 0) {
        ExportLines lines(f.list, std::move(fields), choices);
        return lines.line(row);
    }
};

// The columns, In Folder among them with sub-folders, then eight custom
// entries; Version prompts for custom text as they do, Attributes does not.
// (The dialog's tests count the entries and check the prompts.)
TEST_F(ExportLinesTest, TheFieldListOffersTheColumnsThenEightCustomEntries) {
    const QStringList texts = textsOf(exportFields(false));
    EXPECT_EQ(texts.mid(4, 3), (QStringList{"[Attributes]+", "[Version]+", "Custom"}));
    EXPECT_EQ(texts.count(QStringLiteral("Custom")), 8);
    const std::vector<ExportField> withFolders = exportFields(true);
    EXPECT_EQ(withFolders[1].text, QStringLiteral("[In Folder]"));
    for (size_t i = 0; i < withFolders.size(); ++i)
        EXPECT_EQ(withFolders[i].number, int(i));
    // Permissions, Owner and Fingerprint, for a snapshot that holds them,
    // come unchecked after Version and ask for no text.
    const std::vector<ExportField> withAccess = exportFields(false, true, true);
    EXPECT_EQ(textsOf(withAccess).mid(5, 5),
              (QStringList{"[Version]+", "[Permissions]", "[Owner]", "[Fingerprint]", "Custom"}));
    EXPECT_EQ(withAccess[8].column(), int(engine::FingerprintColumn));
    EXPECT_EQ(withAccess[6].column(), int(engine::PermissionsColumn));
    EXPECT_EQ(withAccess[7].column(), int(engine::OwnerColumn));
    EXPECT_FALSE(withAccess[6].isCustom() || fieldPromptsForText(withAccess[7].number));
}

TEST_F(ExportLinesTest, MovingAnEntryChecksItAndStopsAtEitherEnd) {
    std::vector<ExportField> fields = exportFields(false);
    EXPECT_EQ(moveField(fields, 0, -1), 0);
    EXPECT_EQ(moveField(fields, 13, 1), 13);
    EXPECT_EQ(textsOf(fields), textsOf(exportFields(false)));

    // The first custom entry, unchecked, one place up: checked now.
    EXPECT_EQ(moveField(fields, 6, -1), 5);
    EXPECT_EQ(fields[5].number, 7);
    EXPECT_EQ(fields[5].text, QStringLiteral("Custom"));
    EXPECT_TRUE(fields[5].checked);
    EXPECT_EQ(fields[6].number, 6);
    // Down again, and the entry it passes keeps its state.
    EXPECT_EQ(moveField(fields, 5, 1), 6);
    EXPECT_EQ(fields[5].number, 6);
    EXPECT_TRUE(fields[6].checked);
}

TEST_F(ExportLinesTest, SeparatorsAndQuotesStandBetweenTheValuesOnly) {
    showTwoFiles();
    const auto nameSize = [] { return onlyFields({engine::NameColumn, engine::SizeColumn}); };
    EXPECT_EQ(line(nameSize(), choose(QString(), true)), QStringLiteral("\"a.txt\"\"1,234\""));
    EXPECT_EQ(line(nameSize(), choose(separatorText(2), false)), QStringLiteral("a.txt\t1,234"));
    EXPECT_EQ(line(nameSize(), choose(separatorText(3), false)), QStringLiteral("a.txt 1,234"));
    EXPECT_EQ(separatorNames(), (QStringList{"(none)", "Comma", "Tab", "Space"}));
    EXPECT_EQ(separatorText(0), QString());
    EXPECT_EQ(separatorText(CommaSeparator), QStringLiteral(","));

    // Every column the dialog starts with: the version is empty, the type in
    // lower case, the attributes as letters.
    const QString expected = QStringLiteral("\"B.Doc\",\"5\",\"doc\",\"") +
                             engine::modifiedText(f.snapshot.entry(2).modified) +
                             QStringLiteral("\",\"R/O\",\"\"");
    EXPECT_EQ(line(exportFields(false), ExportChoices{}, 1), expected);
}

// Custom text is never quoted; unchecked entries write nothing, not even a
// separator; grid values lose their leading blanks; entries write in the
// order they were moved to.
TEST_F(ExportLinesTest, ValuesCustomTextAndOrder) {
    f.show({Node::file("say \"hi\", ok", 7, 45000, 0, "1.02.03.04")});
    std::vector<ExportField> fields = onlyFields({7, engine::NameColumn, 8});
    fields[0].text = QStringLiteral("X");
    fields[2].text = QStringLiteral(" two words");
    EXPECT_EQ(line(fields, choose(QStringLiteral(","), true)),
              QStringLiteral("X,\"say \"\"hi\"\", ok\", two words"));
    fields[1].checked = false;
    EXPECT_EQ(line(fields, choose(QStringLiteral(","), true)), QStringLiteral("X, two words"));

    EXPECT_EQ(f.rows->cellText(0, engine::VersionColumn), QStringLiteral(" 1.02.03.04"));
    fields = exportFields(false);
    moveField(fields, 5, -1); // Version above Attributes
    moveField(fields, 1, -1); // Size above Name
    for (ExportField& field : fields)
        field.checked = field.number == engine::NameColumn || field.number == engine::SizeColumn ||
                        field.number == engine::VersionColumn;
    EXPECT_EQ(line(fields, choose(QStringLiteral(";"), false)),
              QStringLiteral("7;\"say \"\"hi\"\", ok\";1.02.03.04"));
}

// A value holding the separator, a double quote, a carriage return or a
// line feed is quoted, its quotes doubled, whatever the Quotes box says;
// what holds none of them is written as the box says.
TEST_F(ExportLinesTest, ValuesThatWouldSplitTheirRowAreAlwaysQuoted) {
    struct Case {
        const char* name;
        const char* separator;
        bool quotes;
        const char* written;
    };
    const Case cases[] = {
        {"plain", ",", false, "plain"},
        {"plain", ",", true, "\"plain\""},
        {"a,b", ",", false, "\"a,b\""},
        {"a,b", "\t", false, "a,b"},
        {"a\tb", "\t", false, "\"a\tb\""},
        {"a b", " ", false, "\"a b\""},
        {"a,b", "", false, "a,b"},
        {"q\"", "", false, "\"q\"\"\""},
        {"cr\r\nlf", "", false, "\"cr\r\nlf\""},
        {"\"q\"", ",", true, "\"\"\"q\"\"\""},
        {"line\nbreak", "\t", false, "\"line\nbreak\""},
        {"cr\rname", " ", true, "\"cr\rname\""},
    };
    for (const Case& c : cases) {
        ShownListFixture named;
        named.show({Node::file(c.name)});
        const QString separator = QString::fromUtf8(c.separator);
        ExportLines lines(named.list, onlyFields({engine::NameColumn, 7}),
                          choose(separator, c.quotes));
        EXPECT_EQ(lines.line(0),
                  QString::fromUtf8(c.written) + separator + QStringLiteral("Custom"))
            << c.name;
    }
}

TEST_F(ExportLinesTest, NumericAttributesComeFromTheHiddenKeyColumn) {
    showTwoFiles();
    const auto attributes = [] { return onlyFields({engine::AttributesColumn}); };
    EXPECT_EQ(line(attributes(), choose(QStringLiteral(","), true, true)),
              QStringLiteral("\"128\""));
    EXPECT_EQ(line(attributes(), choose(QStringLiteral(","), true, false), 1),
              QStringLiteral("\"R/O\""));
    // The faster option leaves the key column empty, so the number too.
    engine::ListingOptions faster;
    faster.keys = false;
    f.rows->list(1, faster);
    EXPECT_EQ(line(attributes(), choose(QStringLiteral(","), true, true)), QStringLiteral("\"\""));
}

// A long list has its lines made by several threads: the bytes are the
// lines made one by one, in order; a device that stops taking them ends the
// writing with false, every thread joined.
TEST_F(ExportLinesTest, ALongListWritesTheLinesInOrder) {
    std::vector<Node> many;
    for (int i = 0; i < 150000; ++i)
        many.push_back(Node::file("f" + std::to_string(i) + (i % 7 == 0 ? ",x" : ".txt"), i,
                                  45000 + i / 86400.0));
    f.show({Node::dir("sub", many), Node::file("top")}, {engine::ShowMode::None, true});
    const std::vector<ExportField> fields = exportFields(true);
    ExportLines oneByOne(f.list, fields, choose(QStringLiteral(","), false));
    LineBuffer expected;
    for (int32_t row = 0; row < oneByOne.rowCount(); ++row) {
        oneByOne.appendLine(row, expected);
        expected.append(std::string_view(LineEnd));
    }

    ExportLines lines(f.list, fields, choose(QStringLiteral(","), false));
    QBuffer written;
    written.open(QIODevice::WriteOnly);
    ASSERT_TRUE(writeExportLines(lines, written));
    EXPECT_TRUE(written.data() == expected.toByteArray());

    // Full after a megabyte and a half: a few blocks in.
    class FullDevice : public QIODevice {
    public:
        qint64 taken = 0;

    protected:
        qint64 readData(char*, qint64) override { return -1; }
        qint64 writeData(const char*, qint64 size) override {
            if (taken + size > 1500000)
                return -1;
            taken += size;
            return size;
        }
    } full;
    full.open(QIODevice::WriteOnly);
    EXPECT_FALSE(writeExportLines(lines, full));
    EXPECT_LE(full.taken, 1500000);

    // No memory left a few blocks in: the helpers are stopped and joined,
    // and the failure reaches the caller rather than ending the program.
    int blocks = 0;
    EXPECT_THROW(writeExportLines(lines,
                                  [&blocks](std::string_view) -> bool {
                                      if (++blocks == 3)
                                          throw std::bad_alloc();
                                      return true;
                                  }),
                 std::bad_alloc);
}

// The export dialog's tests write a grid of 26 rows; an empty grid previews
// nothing and writes an empty file.
TEST_F(ExportLinesTest, AnEmptyGridWritesAnEmptyFile) {
    f.show({});
    ExportLines none(f.list, onlyFields({engine::NameColumn}), ExportChoices{});
    EXPECT_EQ(none.preview(), QString());
    const QString path = dir.filePath(QStringLiteral("Work.txt"));
    ASSERT_TRUE(writeExportFile(path, none).ok);
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_EQ(kestrel::test::readBytes(path), QByteArray());
}

// No room left at any point of the file, its last bytes included: the
// system's text with the path, and the file that was there before stays
// whole. (A file that cannot be opened is the export dialog's test.)
TEST_F(ExportLinesTest, AFullDiskIsReportedAndTheOldFileKept) {
    std::vector<Node> many;
    for (int i = 0; i < 3000; ++i)
        many.push_back(Node::file("file number " + std::to_string(i), i));
    f.show(many);
    const QString path = dir.filePath(QStringLiteral("Kept.txt"));
    ExportLines large(f.list, exportFields(false), ExportChoices{});
    kestrel::test::expectFullDiskKeepsOldFile(path, "the old export\r\n", [&] {
        const engine::Outcome written = writeExportFile(path, large);
        if (!written.ok) {
            EXPECT_EQ(written.message.value_or(engine::UserMessage{}).title,
                      QStringLiteral("Error Writing Snapshot"));
        }
        return written;
    });
}

// The short cuts of the cell writer against the grid's own texts, cell by
// cell, in locales with other digits, separators, date orders, 12- and
// 24-hour clocks and no grouping at all, and on the days the clocks change;
// and whether a text holds a watched byte, against the text itself.
TEST(CellWriterTest, WritesWhatTheGridShowsInEveryLocale) {
    const char* const oldZone = std::getenv("TZ");
    const std::string zone = oldZone ? oldZone : "";
    qputenv("TZ", "Europe/Berlin");
    tzset();

    std::vector<Node> top;
    const double sizes[] = {0,   7, 999, 1000, 123456, 1234567, 5000000000.0, 9007199254740993.0,
                            12.5};
    const std::string names[] = {"plain.TXT", "Ärger.Dat", "noext", "a.b.C",  " lead",
                                 "日本.文書", "x.",        "a,\"b", "c\r\n.d"};
    const double dates[] = {engine::oleDateFromParts(2024, 3, 31, 2, 30, 0),  // no such local time
                            engine::oleDateFromParts(2024, 10, 27, 2, 30, 0), // twice that day
                            engine::oleDateFromParts(2024, 1, 1, 0, 0, 0),
                            engine::oleDateFromParts(2001, 7, 4, 23, 59, 59),
                            engine::oleDateFromParts(1850, 5, 6, 7, 8, 9),
                            engine::oleDateFromParts(2150, 2, 3, 4, 5, 6),
                            45000.99999999,
                            0,
                            -1.25,
                            engine::oleDateFromParts(2020, 2, 29, 0, 0, 1),
                            engine::oleDateFromParts(2020, 2, 29, 12, 34, 56),
                            engine::oleDateFromParts(2020, 2, 29, 13, 5, 7),
                            engine::oleDateFromParts(2020, 2, 29, 11, 59, 59)};
    const int16_t attributes[] = {0, 1, 7, 33, 128, 2048, -1};
    int i = 0;
    for (const std::string& name : names)
        for (const double size : sizes) {
            top.push_back(Node::file(name + std::to_string(i), size,
                                     dates[size_t(i) % std::size(dates)],
                                     attributes[size_t(i) % std::size(attributes)],
                                     i % 3 == 0   ? ""
                                     : i % 3 == 1 ? "1.02.0003"
                                                  : "5.ä"));
            ++i;
        }
    top.push_back(Node::dir("Folder.X", {Node::file("inner", 1)}));
    // Values a scan could not read, and a file that was offline on Windows.
    top.push_back(Node::file("unknown.txt", 0, 0, engine::Attribute::Unknown));
    top.push_back(Node::file("offline.txt", 10, 45000, engine::Attribute::Unknown));
    ShownListFixture f;
    f.show(top);
    // Permissions and owners of a few kinds, a folder's and a link's among
    // them, and entries without any.
    const uint32_t modes[] = {0644, 04755, 01777, 0};
    for (int32_t entry = 1; entry <= f.snapshot.entryCount; ++entry)
        if (entry % 5 != 0)
            f.snapshot.access.set(entry, {modes[size_t(entry) % 4], uint32_t(entry % 3),
                                          entry % 2 ? 0u : 4000000000u});
    for (int32_t entry = 1; entry <= f.snapshot.entryCount; entry += 3)
        f.snapshot.fingerprints.set(entry, {uint64_t(entry) << 40, ~uint64_t(entry)});

    for (const auto& [language, country] : {std::pair{QLocale::English, QLocale::UnitedStates},
                                            {QLocale::German, QLocale::Germany},
                                            {QLocale::French, QLocale::France},
                                            {QLocale::C, QLocale::AnyCountry},
                                            {QLocale::Hindi, QLocale::India},
                                            {QLocale::Arabic, QLocale::Egypt},
                                            {QLocale::Swedish, QLocale::Sweden}}) {
        QLocale::setDefault(QLocale(language, country));
        for (const bool keys : {true, false}) {
            engine::ListingOptions options;
            options.subFolders = true;
            options.keys = keys;
            f.rows->list(1, options);
            const std::string_view watched = " ,\"\r\n";
            CellWriter writer(f.snapshot, *f.rows, watched);
            for (int32_t row = 0; row < f.rows->rowCount(); ++row)
                for (const int column : {0, 1, 2, 3, 4, 5, 6, 11, 12, 13, 14}) {
                    LineBuffer fast;
                    const bool held = writer.append(row, column, fast);
                    const QByteArray text = f.rows->cellText(row, column).toUtf8();
                    EXPECT_EQ(fast.toByteArray(), text)
                        << QLocale().name().toStdString() << " row " << row << " column " << column;
                    EXPECT_EQ(held, text.toStdString().find_first_of(watched) != std::string::npos)
                        << QLocale().name().toStdString() << " row " << row << " column " << column;
                }
        }
    }
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    if (oldZone)
        qputenv("TZ", zone.c_str());
    else
        qunsetenv("TZ");
    tzset();
}

} // namespace
