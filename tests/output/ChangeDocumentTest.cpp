#include "../engine/TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/model/FileSystemNames.h"
#include "engine/support/TextFormats.h"
#include "output/ChangeDocument.h"
#include "output/ChangeList.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <set>

namespace {

using namespace kestrel;
using namespace Qt::StringLiterals;
using test::TempTree;

// Two scans of one tree: before, and after names that attack markup and
// text (quotes, "<", "&", a line break, a byte that is not UTF-8) came and
// went, a file grew, one changed its bytes alone and a folder moved.
struct ComparedPair {
    TempTree tree;
    engine::Snapshot older, newer;
    engine::CompareOptions options;
    engine::MoveList moves;

    ComparedPair() {
        tree.file(u"same.txt"_s, "same");
        tree.file(u"grows.txt"_s, "1");
        tree.file(u"bytes.txt"_s, "abcd");
        tree.file(u"gone & <lost>.txt"_s, "gone");
        tree.file(u"box/one"_s, "moved along");
        tree.file(u"box/two"_s, "with its folder");
        tree.touch(u"bytes.txt"_s, 1700000000);
        EXPECT_TRUE(test::scanTree(older, tree, true).ok);
        tree.file(u"grows.txt"_s, "12");
        tree.file(u"bytes.txt"_s, "ABCD");
        tree.touch(u"bytes.txt"_s, 1700000000);
        QFile::remove(tree.root() + u"gone & <lost>.txt"_s);
        tree.file(u"quote \"q\" 'q'\nline"_s, "new");
        tree.file(u"bad"_s + QChar(0xDCFF) + u".bin"_s, "bytes"); // the byte 0xFF
        tree.file(u"<img src=x onerror=alert(1)>"_s, "");
        EXPECT_TRUE(QDir(tree.root()).rename(u"box"_s, u"crate"_s));
        EXPECT_TRUE(test::scanTree(newer, tree, true).ok);
        options.detectMoves = true;
        options.ignoreTouched = true;
        engine::ProgressMeter meter;
        EXPECT_TRUE(engine::CompareSnapshot(newer, 1, older, 1, true, options, meter).ok);
        moves = engine::detectMoves(older, 1, newer, 1);
        engine::noteMoves(older, newer, moves);
    }
};

QJsonDocument jsonOf(const output::ChangeList& list, bool lines = false) {
    std::string bytes;
    const output::ByteSink sink = [&](std::string_view b) {
        bytes.append(b);
        return true;
    };
    output::ReportContext context;
    EXPECT_TRUE(lines ? output::writeChangeJsonLines(list, context, sink)
                      : output::writeChangeJson(list, context, sink));
    if (lines) {
        // The header line, then a change a line: put together as one
        // document to be read the same way.
        const QList<QByteArray> parts = QByteArray::fromStdString(bytes).split('\n');
        QJsonObject head = QJsonDocument::fromJson(parts.first()).object();
        QJsonArray changes;
        for (qsizetype i = 1; i < parts.size(); ++i)
            if (!parts[i].isEmpty())
                changes.append(QJsonDocument::fromJson(parts[i]).object());
        EXPECT_TRUE(bytes.back() == '\n');
        head[u"changes"_s] = changes;
        return QJsonDocument(head);
    }
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromStdString(bytes), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    // Nothing that could close a script element when the same text is
    // embedded in a page.
    EXPECT_EQ(bytes.find('<'), std::string::npos);
    return document;
}

// Each value of one side of a change: its type, and its text against the
// entry's.
void expectValues(const QJsonObject& values, const engine::Snapshot& s, int32_t i) {
    static const QRegularExpression iso(
        u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d[+-]\\d\\d:\\d\\d$"_s);
    const engine::SnapshotEntry& e = s.entry(i);
    EXPECT_TRUE(values[u"size"].isDouble() && values[u"size"].toDouble() == e.size);
    EXPECT_TRUE(iso.match(values[u"modified"].toString()).hasMatch())
        << values[u"modified"].toString().toStdString();
    EXPECT_EQ(values[u"modified"].toString().left(19).replace(u'T', u' '),
              engine::isoDateTime(e.modified));
    ASSERT_TRUE(values[u"attributes"].isArray());
    for (const QJsonValue& name : values[u"attributes"].toArray())
        EXPECT_TRUE(name.isString());
    EXPECT_EQ(values[u"attributes"].toArray().contains(u"folder"_s), e.isFolder());
    EXPECT_TRUE(values[u"version"].isString());
    if (!e.isFolder()) {
        EXPECT_EQ(values[u"fingerprint"].toString().size(), 32);
    }
    EXPECT_TRUE(values[u"permissions"].toString().startsWith(e.isFolder() ? u'd' : u'-'));
    EXPECT_TRUE(values[u"owner"].toString().contains(u':'));
}

// The JSON document and the JSON lines read back hold every difference of
// the comparison once, in the list's order, each with the values of the
// side or sides it is on, the names of the fields that changed and their
// old and new values; hostile names come back as they are.
TEST(ChangeDocumentTest, JsonHoldsTheComparisonEntryByEntry) {
    ComparedPair pair;
    const output::ChangeList list(pair.newer, pair.older, pair.options, pair.moves);
    for (const bool lines : {false, true}) {
        SCOPED_TRACE(lines ? "jsonl" : "json");
        const QJsonObject document = jsonOf(list, lines).object();
        EXPECT_EQ(document[u"schema"].toInt(), 1);
        EXPECT_EQ(document[u"new"][u"root"].toString(), pair.newer.header.rootFolder);
        EXPECT_TRUE(document[u"old"][u"file"].isNull());
        EXPECT_EQ(document[u"summary"].toString(), list.summaryText());
        const QJsonObject counts = document[u"counts"].toObject();
        EXPECT_EQ(counts[u"total"].toInt(), list.counts().total());
        // grows.txt's bytes changed too.
        const std::pair<const char*, int> expected[] = {
            {"added", 3}, {"removed", 1}, {"changed", 2}, {"content", 2}, {"movedFolders", 1}};
        for (const auto& [name, count] : expected)
            EXPECT_EQ(counts[QLatin1String(name)].toInt(), count) << name;

        const QJsonArray changes = document[u"changes"].toArray();
        ASSERT_EQ(changes.size(), qsizetype(list.changes().size()));
        std::set<QString> paths;
        for (qsizetype k = 0; k < changes.size(); ++k) {
            const QJsonObject c = changes[k].toObject();
            const output::Change& expected = list.changes()[size_t(k)];
            const QString path = c[u"path"].toString();
            SCOPED_TRACE(path.toStdString());
            EXPECT_EQ(c[u"kind"].toString(), QLatin1String(output::kindName(expected.kind)));
            EXPECT_EQ(path, list.path(expected));
            EXPECT_EQ(c[u"folder"].toBool(), expected.folder);
            paths.insert(path);
            EXPECT_EQ(c.contains(u"new"_s), expected.kind != output::Change::Removed);
            EXPECT_EQ(c.contains(u"old"_s), expected.kind != output::Change::Added);
            if (c.contains(u"new"_s))
                expectValues(c[u"new"].toObject(), pair.newer, expected.index);
            if (c.contains(u"old"_s))
                expectValues(c[u"old"].toObject(), pair.older,
                             expected.inOld ? expected.index : expected.oldIndex);
            const auto fields = list.fieldChanges(expected);
            ASSERT_EQ(c[u"fields"].toArray().size(), qsizetype(fields.size()));
            for (const output::FieldChange& f : fields) {
                const QJsonObject both = c[QLatin1String(f.field)].toObject();
                EXPECT_TRUE(c[u"fields"].toArray().contains(QLatin1String(f.field)));
                EXPECT_TRUE(both.contains(u"old"_s) && both.contains(u"new"_s)) << f.field;
                EXPECT_NE(both[u"old"], both[u"new"]) << f.field;
            }
            EXPECT_EQ(c.contains(u"escaped"_s), path.contains(u"\\x"_s));
            if (path == u"bytes.txt"_s) {
                EXPECT_EQ(c[u"kind"].toString(), u"content"_s);
                EXPECT_EQ(c[u"fields"].toArray(), QJsonArray{u"content"_s});
            } else if (path == u"grows.txt"_s) {
                EXPECT_EQ(c[u"size"].toObject(), (QJsonObject{{u"old"_s, 1}, {u"new"_s, 2}}));
                EXPECT_TRUE(c[u"fields"].toArray().contains(u"content"_s));
            } else if (path == u"crate/"_s) {
                EXPECT_EQ(c[u"kind"].toString(), u"moved"_s);
                EXPECT_EQ(c[u"from"].toString(), u"box/"_s);
            }
        }
        // What the comparison lists, moved entries told by their move.
        int differences = 0;
        for (const engine::Difference& d : engine::listDifferences(pair.newer, pair.older)) {
            const bool moved = d.kind == engine::Difference::OnlyInOld
                                   ? pair.older.movedTo.count(d.index) > 0
                                   : pair.newer.movedFrom.count(d.index) > 0;
            differences += moved ? 0 : 1;
        }
        EXPECT_EQ(changes.size(), differences + 1);
        for (const QString& name : {u"quote \"q\" 'q'\nline"_s, u"gone & <lost>.txt"_s,
                                    u"bad\\xFF.bin"_s, u"<img src=x onerror=alert(1)>"_s})
            EXPECT_EQ(paths.count(name), 1u) << name.toStdString();
    }
}

// A report that cannot be written leaves the file that was there, and one
// written replaces it whole, its template's places filled.
TEST(ChangeDocumentTest, ReportFilesAreWholeOrNotWritten) {
    ComparedPair pair;
    const output::ChangeList list(pair.newer, pair.older, pair.options, pair.moves);
    QTemporaryDir dir;
    const QString path = dir.filePath(u"report.html"_s);
    ASSERT_TRUE(test::writeBytes(path, "the old report"));
    ASSERT_EQ(output::changeReportFormatFor(u"a.JSONL"_s), output::ChangeReportFormat::JsonLines);
    ASSERT_EQ(output::changeReportFormatFor(u"a.json"_s), output::ChangeReportFormat::Json);
    ASSERT_TRUE(output::writeChangeReportFile(path, output::changeReportFormatFor(path), list,
                                              output::ReportContext{})
                    .ok);
    // The page filled in: what it shows, and that no name in it runs as
    // markup, is the report page's tests' (in a browser).
    const QByteArray html = test::readBytes(path);
    EXPECT_TRUE(html.startsWith("<!DOCTYPE html>"));
    EXPECT_FALSE(html.contains("{{KESTREL_REPORT"));

    // A disk that fills at any point near the end of the report: refused,
    // the old report kept byte for byte.
    for (const auto format : {output::ChangeReportFormat::Json, output::ChangeReportFormat::Html}) {
        test::expectFullDiskKeepsOldFile(path, "the old report", [&] {
            return output::writeChangeReportFile(path, format, list, output::ReportContext{});
        });
    }

    // A folder in the way of the file: refused, the folder untouched.
    const QString blocked = dir.filePath(u"blocked.json"_s);
    ASSERT_TRUE(QDir().mkdir(blocked));
    EXPECT_FALSE(output::writeChangeReportFile(blocked, output::ChangeReportFormat::Json, list,
                                               output::ReportContext{})
                     .ok);
    EXPECT_TRUE(QFileInfo(blocked).isDir());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              (QStringList{u"blocked.json"_s, u"report.html"_s}));
}

} // namespace
