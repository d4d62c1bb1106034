// The HTML change report opened in headless Chromium: the page template filled
// as kestrel-cli fills it, driven by drive.js (typing, clicks on headings and
// folders), and read back from the DOM Chromium prints.

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>

using kestrel::test::readBytes;
using namespace Qt::StringLiterals;

namespace {

const QByteArray kDataPlace = "{{KESTREL_REPORT_DATA}}";
const QByteArray kTitlePlace = "{{KESTREL_REPORT_TITLE}}";

// JSON that is safe inside a script element, as the program writes it: the
// characters that could end the element or a line of script are escapes.
QByteArray scriptSafe(const QJsonDocument& document) {
    QString text = QString::fromUtf8(document.toJson(QJsonDocument::Compact));
    text.replace(u'<', u"\\u003c"_s)
        .replace(u'>', u"\\u003e"_s)
        .replace(u'&', u"\\u0026"_s)
        .replace(QChar(0x2028), u"\\u2028"_s)
        .replace(QChar(0x2029), u"\\u2029"_s);
    return text.toUtf8();
}

// The template with its title and data put in, each place found in the
// template itself, never in what went into the other.
QByteArray filledPage(const QString& title, const QJsonDocument& data) {
    const QByteArray page = readBytes(QStringLiteral(KESTREL_REPORT_TEMPLATE));
    const qsizetype t = page.indexOf(kTitlePlace), d = page.indexOf(kDataPlace);
    if (t < 0 || d < t) {
        ADD_FAILURE() << "the template lacks its places for the title and the data";
        return {};
    }
    QString escapedTitle = title.toHtmlEscaped();
    escapedTitle.replace(u'\'', u"&#39;"_s);
    return page.left(t) + escapedTitle.toUtf8() +
           page.mid(t + kTitlePlace.size(), d - t - kTitlePlace.size()) + scriptSafe(data) +
           page.mid(d + kDataPlace.size());
}

// Only the digits of a figure the page shows ("100,000" is 100000).
qint64 figure(const QJsonValue& value) {
    QString digits = value.toString();
    digits.remove(QRegularExpression(u"[^0-9]"_s));
    return digits.isEmpty() ? -1 : digits.toLongLong();
}

// What the driver's steps saw, step by step.
struct Driven {
    QJsonObject result;
    QJsonObject seen(int step) const {
        return result[u"steps"].toArray().at(step)[u"seen"].toObject();
    }
    QStringList visible(int step) const {
        return QVariant(seen(step)[u"visible"].toArray().toVariantList()).toStringList();
    }
    int rowsShown(int step) const { return seen(step)[u"rowsShown"].toInt(); }
};

class ReportPageTest : public testing::Test {
protected:
    void SetUp() override {
        m_chromium = QStandardPaths::findExecutable(u"chromium"_s);
        ASSERT_FALSE(m_chromium.isEmpty())
            << "Chromium is missing: the report page is tested in headless Chromium "
               "(Debian package chromium; the setup script installs it)";
        ASSERT_TRUE(m_dir.isValid());
    }

    QString writePage(const QString& name, const QByteArray& bytes) {
        const QString path = m_dir.filePath(name);
        EXPECT_TRUE(kestrel::test::writeBytes(path, bytes)) << path.toStdString();
        return path;
    }

    // A home, configuration and caches in the test's own folder.
    QProcessEnvironment environment() {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString home = m_dir.filePath(u"home"_s);
        QDir().mkpath(home);
        environment.insert(u"HOME"_s, home);
        environment.insert(u"XDG_CONFIG_HOME"_s, home + u"/.config"_s);
        environment.insert(u"XDG_CACHE_HOME"_s, home + u"/.cache"_s);
        return environment;
    }
    // Runs Chromium on a page with its profile in the test's own folder;
    // returns what it printed, empty when it failed.
    QByteArray chromium(const QString& page, const QStringList& arguments) {
        QProcess process;
        process.setProcessEnvironment(environment());
        // No sandbox: it needs privileges a test run as root or in a container
        // lacks, and the pages are the test's own.
        process.start(m_chromium,
                      QStringList{u"--headless=new"_s, u"--no-sandbox"_s, u"--disable-gpu"_s,
                                  u"--no-first-run"_s, u"--no-default-browser-check"_s,
                                  u"--user-data-dir="_s + m_dir.filePath(u"profile"_s)} +
                          arguments + QStringList{QUrl::fromLocalFile(page).toString()});
        const bool finished = process.waitForFinished(90000);
        if (!finished)
            process.kill();
        if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            ADD_FAILURE() << "chromium failed (" << (finished ? "exit " : "timed out ")
                          << process.exitCode() << "):\n"
                          << process.readAllStandardError().right(3000).toStdString();
            return {};
        }
        return process.readAllStandardOutput();
    }

    // The page copied with drive.js and its steps, opened, and what the
    // driver wrote. extraMarkup goes into the page's body as it is.
    Driven drive(const QByteArray& page, const QJsonArray& steps,
                 const QByteArray& extraMarkup = {}) {
        QByteArray copy = page;
        // Errors of the page's own script, and dialogs opened by anything
        // that slipped through, are noted for the driver to tell.
        copy.insert(copy.indexOf("<head>") + 6,
                    "<script>window.__errors = [];"
                    "addEventListener('error', function (e) { __errors.push(String(e.message)); });"
                    "window.alert = window.confirm = window.prompt = function () { window.__pwned "
                    "= 'dialog'; };"
                    "</script>");
        copy.insert(copy.lastIndexOf("</body>"),
                    extraMarkup + "<script>window.kestrelDriveSteps = " +
                        scriptSafe(QJsonDocument(steps)) + ";</script>\n<script>\n" +
                        readBytes(QStringLiteral(KESTREL_REPORT_DRIVER)) + "</script>\n");
        const QString path = writePage(u"driven.html"_s, copy);
        const QByteArray dom = chromium(path, {u"--dump-dom"_s, u"--virtual-time-budget=10000"_s});
        const QByteArray start = "<pre id=\"kestrel-test-result\">";
        const qsizetype from = dom.lastIndexOf(start), to = dom.indexOf("</pre>", from);
        if (from < 0 || to < 0) {
            ADD_FAILURE() << "the driver wrote no result; the page ends:\n"
                          << dom.right(2000).toStdString();
            return {};
        }
        const QByteArray text = dom.mid(from + start.size(), to - from - start.size());
        QJsonParseError error;
        const QJsonObject result = QJsonDocument::fromJson(text, &error).object();
        EXPECT_EQ(error.error, QJsonParseError::NoError)
            << error.errorString().toStdString() << " at " << error.offset << " in\n"
            << text.left(3000).toStdString();
        for (const char* trouble : {"problems", "errors"}) // steps not done, the page's failures
            EXPECT_TRUE(result[QLatin1String(trouble)].toArray().isEmpty())
                << trouble << ": "
                << QJsonDocument(result[QLatin1String(trouble)].toArray()).toJson().toStdString();
        return {result};
    }

    QTemporaryDir m_dir;
    QString m_chromium;
};

// ---- A small comparison whose names attack the page ----

const QString kScriptName = u"bin/<script>alert(1)</script>"_s;
const QString kQuoteName = u"lib/a&b \"q\" 'q'"_s;
const QString kNewlineName = u"docs/line1\nline2.txt"_s;
const QString kDeepName = u"docs/a/b/c.txt"_s;
const QString kEscapedName = u"bin/\\xFFtool"_s;
const QString kFolderName = u"lib/plugins/"_s;
const QString kMovedName = u"lib/new/place.so"_s;
const QString kImageName = u"<img src=x onerror=\"window.__pwned=1\">"_s;
const QString kBesideName = u"lib-old.txt"_s;
const QString kTitle = u"Kestrel: <srv> & \"app\" 'x'"_s;

QJsonDocument hostileReport() {
    // Each change's members but its path.
    const std::pair<QString, const char*> members[] = {
        {kScriptName,
         R"("kind": "added", "alert": "setuid", "new": {"size": 9, "permissions": "-rwsr-xr-x"})"},
        {kQuoteName, R"("kind": "changed", "fields": ["size", "modified"],
            "old": {"size": 100, "modified": "2026-01-02T03:04:05+01:00"},
            "new": {"size": 10, "modified": "2026-01-03T03:04:05+01:00"})"},
        {kNewlineName, R"("kind": "content", "fields": ["content"],
            "old": {"size": 100, "fingerprint": "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
            "new": {"size": 100, "fingerprint": "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb"})"},
        {kDeepName, R"("kind": "changed", "old": {"size": 40}, "new": {"size": 50},
            "fields": ["size"])"},
        {kEscapedName, R"("kind": "removed", "escaped": true, "old": {"size": 77})"},
        {kFolderName, R"("kind": "added", "folder": true, "new": {"size": null})"},
        {kMovedName, R"("kind": "moved", "from": "old/place/a.so", "old": {"size": 2000},
            "new": {"size": 2000})"},
        {kImageName, R"("kind": "added", "new": {"size": 1000})"},
        {kBesideName, R"("kind": "removed", "old": {"size": 5})"},
    };
    QJsonArray changes;
    for (const auto& [path, more] : members) {
        QJsonObject change = QJsonDocument::fromJson('{' + QByteArray(more) + '}').object();
        change[u"path"] = path;
        changes.append(change);
    }
    // Not the usual colours: the page must take them from here.
    QJsonObject report = QJsonDocument::fromJson(R"({"schema": 1,
        "options": {"ignore": ["date"], "detectMoves": true, "ignorePatterns": ["*.pyc"]},
        "counts": {"added": 3, "removed": 2, "changed": 3, "content": 1, "movedFiles": 1,
                   "movedFolders": 0, "unreadable": 0, "ignoredNew": 1234, "ignoredOld": 7,
                   "total": 9},
        "summary": "3 only in NEW, 2 only in OLD, 3 changed, 1 moved file",
        "colours": {"changed": "#11eeee", "unmatched": "#c00001", "unmatchedOnDark": "#ff6060"}
    })")
                             .object();
    const QJsonObject side = QJsonDocument::fromJson(R"({"file": null, "root": "/srv/app/",
        "title": "<b>x</b>", "created": "2026-11-25T10:00:00+01:00", "files": 12, "folders": 4
    })")
                                 .object();
    report[u"old"] = report[u"new"] = side;
    report[u"changes"] = changes;
    return QJsonDocument(report);
}

const QString kChangedBackground = u"rgb(17, 238, 238)"_s;
const QString kUnmatchedText = u"rgb(192, 0, 1)"_s;

QJsonObject step(const char* what, const char* member = nullptr, const QString& value = {}) {
    QJsonObject s{{u"do"_s, QString::fromLatin1(what)}};
    if (member)
        s[QString::fromLatin1(member)] = value;
    return s;
}

QJsonObject rowOf(const QJsonObject& seen, const QString& path) {
    for (const QJsonValue& row : seen[u"rows"].toArray())
        if (row[u"path"].toString() == path)
            return row.toObject();
    ADD_FAILURE() << "no row " << path.toStdString();
    return {};
}

TEST(ReportTemplate, HasOnePlaceEachForTitleAndDataAndNothingFromOutside) {
    const QByteArray page = readBytes(QStringLiteral(KESTREL_REPORT_TEMPLATE));
    EXPECT_EQ(page.count(kDataPlace), 1);
    EXPECT_EQ(page.count(kTitlePlace), 1);
    EXPECT_TRUE(page.contains("<script id=\"kestrel-data\" type=\"application/json\">" +
                              kDataPlace + "</script>"));
    EXPECT_TRUE(page.contains("<title>" + kTitlePlace + "</title>"));
    // One file, no network: nothing loaded from anywhere.
    const QByteArray lower = page.toLower();
    for (const char* outside : {"src=", "href=", "<link", "url(", "@import", "://", "fetch(",
                                "xmlhttprequest", "innerhtml"})
        EXPECT_FALSE(lower.contains(outside)) << outside;
}

TEST_F(ReportPageTest, HostileNamesShowExactlyAsDataAndSortFilterAndTreeWork) {
    const QJsonDocument data = hostileReport();
    QStringList inDataOrder;
    for (const QJsonValue& c : data[u"changes"].toArray())
        inDataOrder << c[u"path"].toString();
    const Driven page = drive(
        filledPage(kTitle, data),
        {step("look"), step("sort", "key", u"path"_s), step("sort", "key", u"path"_s),
         step("sort", "key", u"newSize"_s), step("type", "text", u"&B \"q\""_s),
         step("type", "text", u"only in old"_s), step("type", "text", u"old/PLACE"_s),
         step("type", "text", QString()), step("folder", "path", u"lib/"_s), step("showAll")});
    ASSERT_EQ(page.result[u"steps"].toArray().size(), 10);
    EXPECT_TRUE(page.result[u"pwned"].isNull())
        << "markup in a name ran: " << page.result[u"pwned"].toString().toStdString();
    EXPECT_EQ(page.result[u"heading"].toString(), kTitle);

    // Every name as text, whatever it holds, in the data's order at first.
    const QJsonObject first = page.seen(0);
    EXPECT_EQ(page.visible(0), inDataOrder);
    QStringList drawn;
    for (const QJsonValue& row : first[u"rows"].toArray())
        drawn << row[u"path"].toString();
    EXPECT_EQ(drawn, inDataOrder);
    EXPECT_EQ(page.rowsShown(0), inDataOrder.size());
    const QJsonObject counts = data[u"counts"].toObject();
    for (auto it = counts.begin(); it != counts.end(); ++it)
        EXPECT_EQ(figure(first[u"figures"][it.key()]), it.value().toInteger())
            << it.key().toStdString();

    // The window's colours, as the data gives them.
    const QJsonObject quote = rowOf(first, kQuoteName);
    EXPECT_EQ(quote[u"changed"].toObject(), (QJsonObject{{u"oldSize"_s, kChangedBackground},
                                                         {u"newSize"_s, kChangedBackground},
                                                         {u"oldModified"_s, kChangedBackground},
                                                         {u"newModified"_s, kChangedBackground}}));
    EXPECT_NE(quote[u"color"].toString(), kUnmatchedText);
    EXPECT_EQ(rowOf(first, kNewlineName)[u"changed"].toObject().keys(),
              (QStringList{u"newFingerprint"_s, u"oldFingerprint"_s}));
    for (const QString& unmatched : {kScriptName, kEscapedName, kFolderName, kImageName}) {
        EXPECT_EQ(rowOf(first, unmatched)[u"color"].toString(), kUnmatchedText)
            << unmatched.toStdString();
        EXPECT_EQ(rowOf(first, unmatched)[u"changed"].toObject(), QJsonObject());
    }
    const QJsonObject moved = rowOf(first, kMovedName);
    EXPECT_EQ(moved[u"from"].toString(), u"old/place/a.so"_s);
    EXPECT_TRUE(moved[u"italic"].toBool());
    EXPECT_GT(moved[u"height"].toDouble(), quote[u"height"].toDouble());
    EXPECT_TRUE(rowOf(first, kEscapedName)[u"escapedTitle"].toString().contains(u"\\xHH"_s));
    EXPECT_TRUE(quote[u"escapedTitle"].isNull());

    // Folders with their changes beneath them, open two levels deep.
    EXPECT_EQ(first[u"tree"].toObject(), QJsonDocument::fromJson(R"({"": "9", "bin/": "2",
        "bin/<script>alert(1)</": "1", "docs/": "2", "docs/a/": "1", "lib/": "3", "lib/new/": "1",
        "lib/plugins/": "1"})")
                                             .object());

    // Path order: name by name, a folder right before its contents and
    // before a name that goes on ("lib/..." before "lib-old.txt").
    const QStringList byPath{kImageName, kScriptName, kEscapedName, kDeepName,  kNewlineName,
                             kQuoteName, kMovedName,  kFolderName,  kBesideName};
    EXPECT_EQ(page.visible(1), byPath);
    EXPECT_EQ(page.visible(2), QStringList(byPath.rbegin(), byPath.rend()));
    const auto pathHeading = [&](int step) {
        return page.seen(step)[u"headings"][u"path"].toString();
    };
    EXPECT_TRUE(pathHeading(1).endsWith(QChar(0x25B2)));
    EXPECT_TRUE(pathHeading(2).endsWith(QChar(0x25BC)));
    EXPECT_FALSE(pathHeading(3).endsWith(QChar(0x25BC)));
    // Sizes as numbers (9 < 10 < 50 < 100), the ones without a size last.
    EXPECT_EQ(page.visible(3),
              (QStringList{kScriptName, kQuoteName, kDeepName, kNewlineName, kImageName, kMovedName,
                           kEscapedName, kFolderName, kBesideName}));

    // The filter: any case, in a path, a kind's label, where a moved entry was.
    EXPECT_EQ(page.visible(4), QStringList{kQuoteName});
    EXPECT_EQ(page.rowsShown(4), 1);
    EXPECT_EQ(page.seen(4)[u"rowCount"].toString(), u"1 of 9 changes"_s);
    EXPECT_EQ(page.visible(5), (QStringList{kEscapedName, kBesideName}));
    EXPECT_EQ(page.visible(6), QStringList{kMovedName});
    EXPECT_EQ(page.rowsShown(7), 9);
    // A folder of the tree: what is in it, not what only starts like it.
    EXPECT_EQ(page.visible(8), (QStringList{kQuoteName, kMovedName, kFolderName}));
    EXPECT_EQ(page.visible(9).size(), 9);
}

// The check that no name ran as markup is only worth something if markup
// that does run is caught.
TEST_F(ReportPageTest, DriverNoticesMarkupThatRuns) {
    const Driven page = drive(filledPage(kTitle, hostileReport()), {step("look")},
                              "<img src=x onerror=\"window.__pwned=1\">");
    EXPECT_EQ(page.result[u"pwned"].toString(), u"1"_s);
}

// How quickly it opens and answers is kestrel-bench's to measure; here,
// that every step answered and what it shows.
TEST_F(ReportPageTest, HundredThousandChangesCanAllBeReachedFilteredAndSorted) {
    constexpr int count = 100000;
    QJsonArray changes;
    QStringList paths;
    for (int i = 0; i < count; ++i) {
        paths << QString::asprintf("dir%02d/sub%02d/file%06d.dat", i % 40, (i / 40) % 25, i);
        changes.append(QJsonObject{{u"path"_s, paths.last()},
                                   {u"kind"_s, u"added"_s},
                                   {u"new"_s, QJsonObject{{u"size"_s, i * 7 % 100003}}}});
    }
    QJsonObject document = hostileReport().object();
    document[u"changes"] = changes;
    const auto matching = [&](const QString& text) {
        return paths.filter(text, Qt::CaseInsensitive).size();
    };

    const Driven page =
        drive(filledPage(u"Many changes"_s, QJsonDocument(document)),
              {step("look"), step("scrollEnd"), step("type", "text", u"file01234"_s),
               step("type", "text", u"FILE0123"_s), step("type", "text", QString()),
               step("sort", "key", u"newSize"_s), step("folder", "path", u"dir07/"_s)});
    const QJsonArray steps = page.result[u"steps"].toArray();
    ASSERT_EQ(steps.size(), 7);
    for (const QJsonValue& s : steps)
        EXPECT_TRUE(s[u"do"].toString() == u"look"_s || s[u"ms"].toDouble() >= 0)
            << s[u"do"].toString().toStdString();

    EXPECT_EQ(page.rowsShown(0), count);
    EXPECT_EQ(page.visible(0).value(0), paths.first());
    // Every row can be scrolled to: the last one is the data's last.
    EXPECT_EQ(page.visible(1).value(page.visible(1).size() - 1), paths.last());
    EXPECT_LT(page.seen(1)[u"rows"].toArray().size(), 200) << "only the rows in view are drawn";
    EXPECT_EQ(page.rowsShown(2), matching(u"file01234"_s));
    EXPECT_EQ(page.visible(2).size(), 10);
    EXPECT_EQ(page.rowsShown(3), matching(u"file0123"_s));
    EXPECT_EQ(page.rowsShown(4), count);
    EXPECT_EQ(page.rowsShown(6), count / 40);
    EXPECT_EQ(figure(page.seen(6)[u"tree"][u"dir07/"]), count / 40);
}

TEST_F(ReportPageTest, ScreenshotShowsThePageInBothColourSchemes) {
    const QString page = writePage(u"report.html"_s, filledPage(kTitle, hostileReport()));
    for (const bool dark : {false, true}) {
        SCOPED_TRACE(dark ? "dark" : "light");
        const QString png = m_dir.filePath(dark ? u"report-dark.png"_s : u"report.png"_s);
        QStringList arguments{u"--screenshot="_s + png, u"--window-size=1280,900"_s};
        if (dark)
            arguments << u"--force-dark-mode"_s;
        chromium(page, arguments);
        const QImage image(png);
        ASSERT_FALSE(image.isNull()) << "no screenshot in " << png.toStdString();
        EXPECT_EQ(image.size(), QSize(1280, 900));
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); y += 3)
            for (int x = 0; x < image.width(); x += 3)
                colours.insert(image.pixel(x, y));
        EXPECT_GT(colours.size(), 50) << "the page looks blank";
        EXPECT_TRUE(colours.contains(qRgb(17, 238, 238))) << "no changed value in view";
        EXPECT_EQ(qGray(image.pixel(4, 4)) < 80, dark)
            << "page background " << qGray(image.pixel(4, 4));
        // To look at them: KESTREL_REPORT_SCREENSHOTS=folder.
        const QString keep = qEnvironmentVariable("KESTREL_REPORT_SCREENSHOTS");
        if (!keep.isEmpty()) {
            QFile::remove(keep + u'/' + QFileInfo(png).fileName());
            QFile::copy(png, keep + u'/' + QFileInfo(png).fileName());
        }
    }
}

// The page kestrel-cli writes for a real comparison lists exactly its
// changes, each name shown as it is on disk.
TEST_F(ReportPageTest, PageTheCommandLineWritesHoldsExactlyTheChanges) {
    kestrel::test::TempTree tree;
    tree.file(u"kept/same.txt"_s, "same");
    tree.file(u"kept/grows.txt"_s, "1");
    tree.file(u"gone & <b>bold</b>.txt"_s, "gone");
    const auto cli = [&](const QStringList& arguments) {
        return kestrel::test::runProgram(QStringLiteral(KESTREL_CLI), arguments, m_dir.path())
            .status;
    };
    const QString old = m_dir.filePath(u"tree.#01"_s);
    ASSERT_EQ(cli({u"snapshot"_s, tree.root(), u"--output"_s, old}), 0);
    tree.file(u"kept/grows.txt"_s, "12");
    QFile::remove(tree.root() + u"gone & <b>bold</b>.txt"_s);
    tree.file(u"new/<img src=x onerror=\"window.__pwned=1\">"_s, "x");
    tree.file(u"new/quote \"q\" 'q'"_s, "y");
    const QString html = m_dir.filePath(u"report.html"_s);
    ASSERT_EQ(cli({u"compare"_s, old, tree.root(), u"--format"_s, u"html"_s, u"--output"_s, html}),
              1);
    QStringList expected{u"gone & <b>bold</b>.txt"_s, u"kept/grows.txt"_s, u"new/"_s,
                         u"new/<img src=x onerror=\"window.__pwned=1\">"_s,
                         u"new/quote \"q\" 'q'"_s};
    const Driven page = drive(readBytes(html), {step("look")});
    EXPECT_TRUE(page.result[u"pwned"].isNull());
    EXPECT_EQ(page.rowsShown(0), expected.size());
    QStringList shown = page.visible(0);
    shown.sort();
    expected.sort();
    EXPECT_EQ(shown, expected);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
