// The export's lines: the field list and its moves, separators, quoting,
// custom text, numeric attributes, the file written, and the fast cell texts
// checked against the grid's own in several locales.

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
using namespace Qt::StringLiterals;

namespace {

std::vector<ExportField> onlyFields(std::initializer_list<int> numbers) {
    std::vector<ExportField> fields;
    for (const int n : numbers)
        fields.push_back({n, n >= ExportField::FirstCustomField ? u"Custom"_s : QString(), true});
    return fields;
}

QStringList textsOf(const std::vector<ExportField>& fields) {
    QStringList texts;
    for (const ExportField& f : fields)
        texts << f.text + (f.checked ? u"+"_s : QString());
    return texts;
}

QString line(const ShownListFixture& f, std::vector<ExportField> fields,
             const ExportChoices& choices, int32_t row = 0) {
    return ExportLines(f.list, std::move(fields), choices).line(row);
}

// The columns, In Folder among them with sub-folders, then eight custom
// entries; Version prompts for custom text as they do, Attributes does not.
// Permissions, Owner and Fingerprint, for a snapshot that holds them, come
// unchecked after Version and ask for no text. A move stops at either end.
// (The dialog's tests count the entries, check the prompts and see a moved
// entry checked.)
TEST(ExportFieldsTest, TheColumnsThenEightCustomEntries) {
    const QStringList texts = textsOf(exportFields(false));
    EXPECT_EQ(texts.mid(4, 3), (QStringList{"[Attributes]+", "[Version]+", "Custom"}));
    EXPECT_EQ(texts.count(u"Custom"_s), 8);
    const std::vector<ExportField> withFolders = exportFields(true);
    EXPECT_EQ(withFolders[1].text, u"[In Folder]"_s);
    for (size_t i = 0; i < withFolders.size(); ++i)
        EXPECT_EQ(withFolders[i].number, int(i));
    const std::vector<ExportField> withAccess = exportFields(false, true, true);
    EXPECT_EQ(textsOf(withAccess).mid(5, 5),
              (QStringList{"[Version]+", "[Permissions]", "[Owner]", "[Fingerprint]", "Custom"}));
    EXPECT_EQ(withAccess[6].column(), int(engine::PermissionsColumn));
    EXPECT_EQ(withAccess[7].column(), int(engine::OwnerColumn));
    EXPECT_EQ(withAccess[8].column(), int(engine::FingerprintColumn));
    EXPECT_FALSE(withAccess[6].isCustom() || fieldPromptsForText(withAccess[7].number));

    std::vector<ExportField> fields = exportFields(false);
    EXPECT_EQ(moveField(fields, 0, -1), 0);
    EXPECT_EQ(moveField(fields, 13, 1), 13);
    EXPECT_EQ(textsOf(fields), texts);
}

// Every column the dialog starts with: the version empty, the type in lower
// case, the attributes as letters. Custom text is never quoted; unchecked
// entries write nothing, not even a separator; grid values lose their
// leading blanks; entries write in the order they were moved to. Numeric
// attributes come from the hidden key column, which the faster option leaves
// empty.
TEST(ExportLinesTest, ValuesCustomTextOrderAndAttributes) {
    ShownListFixture f;
    f.show({Node::file("say \"hi\", ok", 7, 45000, 0, "1.02.03.04"),
            Node::file("B.Doc", 5, engine::oleDateFromParts(2022, 12, 31, 0, 0, 0), 1)});
    EXPECT_EQ(line(f, exportFields(false), {}, 1),
              u"\"B.Doc\",\"5\",\"doc\",\""_s + engine::modifiedText(f.snapshot.entry(2).modified) +
                  u"\",\"R/O\",\"\""_s);

    std::vector<ExportField> fields = onlyFields({7, engine::NameColumn, 8});
    fields[0].text = u"X"_s;
    fields[2].text = u" two words"_s;
    EXPECT_EQ(line(f, fields, {}), u"X,\"say \"\"hi\"\", ok\", two words"_s);
    fields[1].checked = false;
    EXPECT_EQ(line(f, fields, {}), u"X, two words"_s);

    EXPECT_EQ(f.rows->cellText(0, engine::VersionColumn), u" 1.02.03.04"_s);
    fields = exportFields(false);
    moveField(fields, 5, -1); // Version above Attributes
    moveField(fields, 1, -1); // Size above Name
    for (ExportField& field : fields)
        field.checked = field.number == engine::NameColumn || field.number == engine::SizeColumn ||
                        field.number == engine::VersionColumn;
    EXPECT_EQ(line(f, fields, {u";"_s, false}), u"7;\"say \"\"hi\"\", ok\";1.02.03.04"_s);

    const ExportChoices numeric{u","_s, true, true};
    EXPECT_EQ(line(f, onlyFields({engine::AttributesColumn}), numeric), u"\"128\""_s);
    EXPECT_EQ(line(f, onlyFields({engine::AttributesColumn}), {}, 1), u"\"R/O\""_s);
    engine::ListingOptions faster;
    faster.keys = false;
    f.rows->list(1, faster);
    EXPECT_EQ(line(f, onlyFields({engine::AttributesColumn}), numeric), u"\"\""_s);
}

// A value holding the separator, a double quote, a carriage return or a
// line feed is quoted, its quotes doubled, whatever the Quotes box says;
// what holds none of them is written as the box says.
TEST(ExportLinesTest, ValuesThatWouldSplitTheirRowAreAlwaysQuoted) {
    struct Case {
        const char* name;
        const char* separator;
        bool quotes;
        const char* written;
    };
    const Case cases[] = {
        {"plain", ",", false, "plain"},
        {"plain", "", true, "\"plain\""},
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
        EXPECT_EQ(line(named, onlyFields({engine::NameColumn, 7}), {separator, c.quotes}),
                  QString::fromUtf8(c.written) + separator + u"Custom"_s)
            << c.name;
    }
}

// A long list has its lines made by several threads: the bytes are the
// lines made one by one, in order; a device that stops taking them, or
// memory that runs out, ends the writing with every thread joined.
TEST(ExportLinesTest, ALongListWritesTheLinesInOrder) {
    std::vector<Node> many;
    for (int i = 0; i < 150000; ++i)
        many.push_back(Node::file("f" + std::to_string(i) + (i % 7 == 0 ? ",x" : ".txt"), i,
                                  45000 + i / 86400.0));
    ShownListFixture f;
    f.show({Node::dir("sub", many), Node::file("top")}, {engine::ShowMode::None, true});
    const ExportChoices comma{u","_s, false};
    ExportLines oneByOne(f.list, exportFields(true), comma),
        lines(f.list, exportFields(true), comma);
    LineBuffer expected;
    for (int32_t row = 0; row < oneByOne.rowCount(); ++row) {
        oneByOne.appendLine(row, expected);
        expected.append(std::string_view(LineEnd));
    }
    QBuffer written;
    written.open(QIODevice::WriteOnly);
    ASSERT_TRUE(writeExportLines(lines, written));
    EXPECT_TRUE(written.data() == expected.toByteArray());

    // Full after a megabyte and a half: a few blocks in; no memory left a
    // few blocks in reaches the caller rather than ending the program.
    struct FullDevice : QIODevice {
        qint64 taken = 0;
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
    int blocks = 0;
    EXPECT_THROW(writeExportLines(lines,
                                  [&blocks](std::string_view) -> bool {
                                      if (++blocks == 3)
                                          throw std::bad_alloc();
                                      return true;
                                  }),
                 std::bad_alloc);
}

// No room left at any point of the file, its last bytes included: the
// system's text with the path, and the file that was there before stays
// whole. An empty grid writes an empty file. (A file that cannot be opened
// is the export dialog's test.)
TEST(ExportLinesTest, AFullDiskIsReportedAndTheOldFileKept) {
    std::vector<Node> many;
    for (int i = 0; i < 3000; ++i)
        many.push_back(Node::file("file number " + std::to_string(i), i));
    ShownListFixture f;
    f.show(many);
    QTemporaryDir dir;
    const QString path = dir.filePath(u"Kept.txt"_s);
    ExportLines large(f.list, exportFields(false), ExportChoices{});
    kestrel::test::expectFullDiskKeepsOldFile(path, "the old export\r\n", [&] {
        const engine::Outcome written = writeExportFile(path, large);
        if (!written.ok) {
            EXPECT_EQ(written.message.value_or(engine::UserMessage{}).title,
                      u"Error Writing Snapshot"_s);
        }
        return written;
    });

    ShownListFixture empty;
    empty.show({});
    ExportLines none(empty.list, onlyFields({engine::NameColumn}), ExportChoices{});
    EXPECT_EQ(none.preview(), QString());
    ASSERT_TRUE(writeExportFile(path, none).ok);
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_EQ(kestrel::test::readBytes(path), QByteArray());
}

// The short cuts of the cell writer against the grid's own texts, cell by
// cell, in locales with other digits, separators, date orders, 12- and
// 24-hour clocks and no grouping at all, and on the days the clocks change
// (a time that does not exist, one that comes twice); and whether a text
// holds a watched byte, against the text itself.
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
    std::vector<double> dates{45000.99999999, 0, -1.25};
    const int parts[][6] = {{2024, 3, 31, 2, 30, 0}, {2024, 10, 27, 2, 30, 0},
                            {2024, 1, 1, 0, 0, 0},   {2001, 7, 4, 23, 59, 59},
                            {1850, 5, 6, 7, 8, 9},   {2150, 2, 3, 4, 5, 6},
                            {2020, 2, 29, 0, 0, 1},  {2020, 2, 29, 12, 34, 56},
                            {2020, 2, 29, 13, 5, 7}, {2020, 2, 29, 11, 59, 59}};
    for (const auto& [year, month, day, hour, minute, second] : parts)
        dates.push_back(engine::oleDateFromParts(year, month, day, hour, minute, second));
    const int16_t attributes[] = {0, 1, 7, 33, 128, 2048, -1};
    const char* const versions[] = {"", "1.02.0003", "5.ä"};
    int i = 0;
    for (const std::string& name : names)
        for (const double size : sizes) {
            top.push_back(
                Node::file(name + std::to_string(i), size, dates[size_t(i) % dates.size()],
                           attributes[size_t(i) % std::size(attributes)], versions[i % 3]));
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
            f.rows->list(1, {engine::ShowMode::None, true, keys});
            const std::string_view watched = " ,\"\r\n";
            CellWriter writer(f.snapshot, *f.rows, watched);
            for (int32_t row = 0; row < f.rows->rowCount(); ++row)
                for (const int column : {0, 1, 2, 3, 4, 5, 6, 11, 12, 13, 14}) {
                    SCOPED_TRACE(QLocale().name().toStdString() + " row " + std::to_string(row) +
                                 " column " + std::to_string(column));
                    LineBuffer fast;
                    const bool held = writer.append(row, column, fast);
                    const QByteArray text = f.rows->cellText(row, column).toUtf8();
                    EXPECT_EQ(fast.toByteArray(), text);
                    EXPECT_EQ(held, text.toStdString().find_first_of(watched) != std::string::npos);
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
