// The HTML change report opened in headless Chromium: the page template filled
// as kestrel-cli fills it, driven by drive.js (typing, clicks on headings and
// folders), and read back from the DOM Chromium prints.

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

#include <algorithm>
#include <iostream>
#include <ostream>

// Test failures show QStrings as text.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

using namespace Qt::StringLiterals;

namespace {

const QByteArray kDataPlace = "{{KESTREL_REPORT_DATA}}";
const QByteArray kTitlePlace = "{{KESTREL_REPORT_TITLE}}";

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        ADD_FAILURE() << "cannot read " << path.toStdString();
    return file.readAll();
}

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
    const QByteArray page = readFile(QStringLiteral(KESTREL_REPORT_TEMPLATE));
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

QStringList strings(const QJsonValue& value) {
    QStringList out;
    for (const QJsonValue& v : value.toArray())
        out << v.toString();
    return out;
}

// Only the digits of a figure the page shows ("100,000" is 100000).
qint64 figure(const QJsonValue& value) {
    QString digits = value.toString();
    digits.remove(QRegularExpression(u"[^0-9]"_s));
    return digits.isEmpty() ? -1 : digits.toLongLong();
}

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
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
            << path.toStdString();
        return path;
    }

    // Runs Chromium on a page with a profile, home and caches in the test's
    // own folder; returns what it printed, empty when it failed.
    QByteArray chromium(const QString& page, QStringList arguments) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString home = m_dir.filePath(u"home"_s);
        QDir().mkpath(home);
        environment.insert(u"HOME"_s, home);
        environment.insert(u"XDG_CONFIG_HOME"_s, home + u"/.config"_s);
        environment.insert(u"XDG_CACHE_HOME"_s, home + u"/.cache"_s);
        // No sandbox: it needs privileges a test run as root or in a container
        // lacks, and the pages are the test's own.
        arguments = QStringList{u"--headless=new"_s,
                                u"--no-sandbox"_s,
                                u"--disable-gpu"_s,
                                u"--no-first-run"_s,
                                u"--no-default-browser-check"_s,
                                u"--user-data-dir="_s + m_dir.filePath(u"profile"_s)} +
                    arguments + QStringList{QUrl::fromLocalFile(page).toString()};
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(m_chromium, arguments);
        const bool finished = process.waitForFinished(90000);
        if (!finished)
            process.kill();
        const QByteArray out = process.readAllStandardOutput();
        if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            ADD_FAILURE() << "chromium failed (" << (finished ? "exit " : "timed out ")
                          << process.exitCode() << "):\n"
                          << process.readAllStandardError().right(3000).toStdString();
            return {};
        }
        return out;
    }

    // The page copied with drive.js and its steps, opened, and what the
    // driver wrote. extraMarkup goes into the page's body as it is.
    QJsonObject drive(const QByteArray& page, const QJsonArray& steps,
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
                        readFile(QStringLiteral(KESTREL_REPORT_DRIVER)) + "</script>\n");
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
        const QJsonDocument result = QJsonDocument::fromJson(text, &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError)
            << error.errorString().toStdString() << " at " << error.offset << " in\n"
            << text.left(3000).toStdString();
        const QJsonObject object = result.object();
        EXPECT_TRUE(object[u"problems"].toArray().isEmpty())
            << "the driver could not do every step: "
            << QJsonDocument(object[u"problems"].toArray()).toJson().toStdString();
        EXPECT_TRUE(object[u"errors"].toArray().isEmpty())
            << "the page's script failed: "
            << QJsonDocument(object[u"errors"].toArray()).toJson().toStdString();
        return object;
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

QJsonObject change(const QString& path, const char* kind, const QJsonObject& more) {
    QJsonObject c = more;
    c[u"path"] = path;
    c[u"kind"] = QString::fromLatin1(kind);
    return c;
}

QJsonDocument hostileReport() {
    const QJsonArray changes{
        change(kScriptName, "added",
               {{u"alert"_s, u"setuid"_s},
                {u"new"_s, QJsonObject{{u"size"_s, 9}, {u"permissions"_s, u"-rwsr-xr-x"_s}}}}),
        change(kQuoteName, "changed",
               {{u"old"_s,
                 QJsonObject{{u"size"_s, 100}, {u"modified"_s, u"2026-01-02T03:04:05+01:00"_s}}},
                {u"new"_s,
                 QJsonObject{{u"size"_s, 10}, {u"modified"_s, u"2026-01-03T03:04:05+01:00"_s}}},
                {u"fields"_s, QJsonArray{u"size"_s, u"modified"_s}}}),
        change(kNewlineName, "content",
               {{u"old"_s, QJsonObject{{u"size"_s, 100}, {u"fingerprint"_s, QString(32, u'a')}}},
                {u"new"_s, QJsonObject{{u"size"_s, 100}, {u"fingerprint"_s, QString(32, u'b')}}},
                {u"fields"_s, QJsonArray{u"content"_s}}}),
        change(kDeepName, "changed",
               {{u"old"_s, QJsonObject{{u"size"_s, 40}}},
                {u"new"_s, QJsonObject{{u"size"_s, 50}}},
                {u"fields"_s, QJsonArray{u"size"_s}}}),
        change(kEscapedName, "removed",
               {{u"escaped"_s, true}, {u"old"_s, QJsonObject{{u"size"_s, 77}}}}),
        change(kFolderName, "added",
               {{u"folder"_s, true}, {u"new"_s, QJsonObject{{u"size"_s, QJsonValue()}}}}),
        change(kMovedName, "moved",
               {{u"from"_s, u"old/place/a.so"_s},
                {u"old"_s, QJsonObject{{u"size"_s, 2000}}},
                {u"new"_s, QJsonObject{{u"size"_s, 2000}}}}),
        change(kImageName, "added", {{u"new"_s, QJsonObject{{u"size"_s, 1000}}}}),
        change(kBesideName, "removed", {{u"old"_s, QJsonObject{{u"size"_s, 5}}}}),
    };
    const QJsonObject side{{u"file"_s, QJsonValue()},
                           {u"root"_s, u"/srv/app/"_s},
                           {u"title"_s, u"<b>x</b>"_s},
                           {u"created"_s, u"2026-11-25T10:00:00+01:00"_s},
                           {u"files"_s, 12},
                           {u"folders"_s, 4}};
    return QJsonDocument(QJsonObject{
        {u"schema"_s, 1},
        {u"old"_s, side},
        {u"new"_s, side},
        {u"options"_s, QJsonObject{{u"ignore"_s, QJsonArray{u"date"_s}},
                                   {u"detectMoves"_s, true},
                                   {u"ignorePatterns"_s, QJsonArray{u"*.pyc"_s}}}},
        {u"counts"_s, QJsonObject{{u"added"_s, 3},
                                  {u"removed"_s, 2},
                                  {u"changed"_s, 3},
                                  {u"content"_s, 1},
                                  {u"movedFiles"_s, 1},
                                  {u"movedFolders"_s, 0},
                                  {u"unreadable"_s, 0},
                                  {u"ignoredNew"_s, 1234},
                                  {u"ignoredOld"_s, 7},
                                  {u"total"_s, 9}}},
        {u"summary"_s, u"3 only in NEW, 2 only in OLD, 3 changed, 1 moved file"_s},
        // Not the usual colours: the page must take them from here.
        {u"colours"_s, QJsonObject{{u"changed"_s, u"#11eeee"_s},
                                   {u"unmatched"_s, u"#c00001"_s},
                                   {u"unmatchedOnDark"_s, u"#ff6060"_s}}},
        {u"changes"_s, changes},
    });
}

const QString kChangedBackground = u"rgb(17, 238, 238)"_s;
const QString kUnmatchedText = u"rgb(192, 0, 1)"_s;

QJsonObject step(const char* what, const char* member = nullptr, const QString& value = {}) {
    QJsonObject s{{u"do"_s, QString::fromLatin1(what)}};
    if (member)
        s[QString::fromLatin1(member)] = value;
    return s;
}

// What a step saw.
QJsonObject seen(const QJsonObject& result, int index) {
    return result[u"steps"].toArray().at(index).toObject()[u"seen"].toObject();
}

QJsonObject rowOf(const QJsonObject& seen, const QString& path) {
    for (const QJsonValue& row : seen[u"rows"].toArray())
        if (row[u"path"].toString() == path)
            return row.toObject();
    ADD_FAILURE() << "no row " << path.toStdString();
    return {};
}

TEST(ReportTemplate, HasOnePlaceEachForTitleAndDataAndNothingFromOutside) {
    const QByteArray page = readFile(QStringLiteral(KESTREL_REPORT_TEMPLATE));
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
    const QStringList inDataOrder = [&] {
        QStringList paths;
        for (const QJsonValue& c : data[u"changes"].toArray())
            paths << c[u"path"].toString();
        return paths;
    }();
    const QJsonObject result = drive(
        filledPage(kTitle, data),
        {step("look"), step("sort", "key", u"path"_s), step("sort", "key", u"path"_s),
         step("sort", "key", u"newSize"_s), step("type", "text", u"&B \"q\""_s),
         step("type", "text", u"only in old"_s), step("type", "text", u"old/PLACE"_s),
         step("type", "text", QString()), step("folder", "path", u"lib/"_s), step("showAll")});
    ASSERT_EQ(result[u"steps"].toArray().size(), 10);
    EXPECT_TRUE(result[u"pwned"].isNull())
        << "markup in a name ran: " << result[u"pwned"].toString().toStdString();
    EXPECT_EQ(result[u"heading"].toString(), kTitle);

    // Every name as text, whatever it holds, in the data's order at first.
    const QJsonObject first = seen(result, 0);
    EXPECT_EQ(strings(first[u"visible"]), inDataOrder);
    QStringList drawn;
    for (const QJsonValue& row : first[u"rows"].toArray())
        drawn << row[u"path"].toString();
    EXPECT_EQ(drawn, inDataOrder);
    EXPECT_EQ(first[u"rowsShown"].toInt(), inDataOrder.size());

    const QJsonObject counts = data[u"counts"].toObject();
    const QJsonObject figures = first[u"figures"].toObject();
    for (auto it = counts.begin(); it != counts.end(); ++it)
        EXPECT_EQ(figure(figures[it.key()]), it.value().toInteger()) << it.key().toStdString();

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
    EXPECT_TRUE(rowOf(first, kQuoteName)[u"escapedTitle"].isNull());

    // Folders with their changes beneath them, open two levels deep.
    EXPECT_EQ(first[u"tree"].toObject(), (QJsonObject{{u""_s, u"9"_s},
                                                      {u"bin/"_s, u"2"_s},
                                                      {u"bin/<script>alert(1)</"_s, u"1"_s},
                                                      {u"docs/"_s, u"2"_s},
                                                      {u"docs/a/"_s, u"1"_s},
                                                      {u"lib/"_s, u"3"_s},
                                                      {u"lib/new/"_s, u"1"_s},
                                                      {u"lib/plugins/"_s, u"1"_s}}));

    // Path order: name by name, a folder right before its contents and
    // before a name that goes on ("lib/..." before "lib-old.txt").
    const QStringList byPath{kImageName, kScriptName, kEscapedName, kDeepName,  kNewlineName,
                             kQuoteName, kMovedName,  kFolderName,  kBesideName};
    EXPECT_EQ(strings(seen(result, 1)[u"visible"]), byPath);
    EXPECT_TRUE(seen(result, 1)[u"headings"][u"path"].toString().endsWith(QChar(0x25B2)));
    QStringList reversed(byPath.rbegin(), byPath.rend());
    EXPECT_EQ(strings(seen(result, 2)[u"visible"]), reversed);
    EXPECT_TRUE(seen(result, 2)[u"headings"][u"path"].toString().endsWith(QChar(0x25BC)));
    EXPECT_FALSE(seen(result, 3)[u"headings"][u"path"].toString().endsWith(QChar(0x25BC)));

    // Sizes as numbers (9 < 10 < 50 < 100), the ones without a size last.
    EXPECT_EQ(strings(seen(result, 3)[u"visible"]),
              (QStringList{kScriptName, kQuoteName, kDeepName, kNewlineName, kImageName, kMovedName,
                           kEscapedName, kFolderName, kBesideName}));

    // The filter: any case, in a path, a kind's label, where a moved entry was.
    EXPECT_EQ(strings(seen(result, 4)[u"visible"]), QStringList{kQuoteName});
    EXPECT_EQ(seen(result, 4)[u"rowsShown"].toInt(), 1);
    EXPECT_EQ(seen(result, 4)[u"rowCount"].toString(), u"1 of 9 changes"_s);
    EXPECT_EQ(strings(seen(result, 5)[u"visible"]), (QStringList{kEscapedName, kBesideName}));
    EXPECT_EQ(strings(seen(result, 6)[u"visible"]), QStringList{kMovedName});
    EXPECT_EQ(seen(result, 7)[u"rowsShown"].toInt(), 9);

    // A folder of the tree: what is in it, not what only starts like it.
    EXPECT_EQ(strings(seen(result, 8)[u"visible"]),
              (QStringList{kQuoteName, kMovedName, kFolderName}));
    EXPECT_EQ(strings(seen(result, 9)[u"visible"]).size(), 9);
}

TEST_F(ReportPageTest, DriverNoticesMarkupThatRuns) {
    // The check that no name ran as markup is only worth something if
    // markup that does run is caught.
    const QJsonObject result = drive(filledPage(kTitle, hostileReport()), {step("look")},
                                     "<img src=x onerror=\"window.__pwned=1\">");
    EXPECT_EQ(result[u"pwned"].toString(), u"1"_s);
}

TEST_F(ReportPageTest, HundredThousandChangesCanAllBeReachedFilteredAndSorted) {
    constexpr int count = 100000;
    const char* const kinds[] = {"added", "removed", "changed", "content", "moved", "changed"};
    QJsonArray changes;
    QStringList paths;
    for (int i = 0; i < count; ++i) {
        const QString path =
            QString::asprintf("dir%02d/sub%02d/file%06d.dat", i % 40, (i / 40) % 25, i);
        const char* kind = kinds[i % 6];
        QJsonObject c{{u"path"_s, path}, {u"kind"_s, QString::fromLatin1(kind)}};
        const QJsonObject old{{u"size"_s, i * 3},
                              {u"modified"_s, u"2026-01-02T03:04:05+01:00"_s},
                              {u"attributes"_s, u"Norm"_s},
                              {u"version"_s, u"1.%1.0.0"_s.arg(i % 13)}};
        const QJsonObject now{{u"size"_s, i * 7 % 100003},
                              {u"modified"_s, u"2026-01-03T03:04:05+01:00"_s},
                              {u"attributes"_s, u"Norm"_s}};
        if (qstrcmp(kind, "added") != 0)
            c[u"old"] = old;
        if (qstrcmp(kind, "removed") != 0)
            c[u"new"] = now;
        if (qstrcmp(kind, "changed") == 0)
            c[u"fields"] = QJsonArray{u"size"_s, u"modified"_s};
        if (qstrcmp(kind, "moved") == 0)
            c[u"from"] = u"old/"_s + path;
        changes.append(c);
        paths << path;
    }
    QJsonObject document = hostileReport().object();
    document[u"changes"] = changes;
    const auto matching = [&](const QString& text) {
        return paths.filter(text, Qt::CaseInsensitive).size();
    };

    const QJsonObject result =
        drive(filledPage(u"Many changes"_s, QJsonDocument(document)),
              {step("look"), step("scrollEnd"), step("type", "text", u"file01234"_s),
               step("type", "text", u"FILE0123"_s), step("type", "text", QString()),
               step("sort", "key", u"newSize"_s), step("folder", "path", u"dir07/"_s)});
    const QJsonArray steps = result[u"steps"].toArray();
    ASSERT_EQ(steps.size(), 7);

    // How quickly it opens and answers is kestrel-bench's to measure; here,
    // that every step answered and what it shows.
    for (const QJsonValue& s : steps)
        if (s[u"do"].toString() != u"look"_s)
            EXPECT_GE(s[u"ms"].toDouble(), 0) << s[u"do"].toString().toStdString();

    EXPECT_EQ(seen(result, 0)[u"rowsShown"].toInt(), count);
    EXPECT_EQ(strings(seen(result, 0)[u"visible"]).value(0), paths.first());
    // Every row can be scrolled to: the last one is the data's last.
    const QStringList atEnd = strings(seen(result, 1)[u"visible"]);
    ASSERT_FALSE(atEnd.isEmpty());
    EXPECT_EQ(atEnd.last(), paths.last());
    EXPECT_LT(seen(result, 1)[u"rows"].toArray().size(), 200) << "only the rows in view are drawn";

    EXPECT_EQ(seen(result, 2)[u"rowsShown"].toInt(), matching(u"file01234"_s));
    EXPECT_EQ(strings(seen(result, 2)[u"visible"]).size(), 10);
    EXPECT_EQ(seen(result, 3)[u"rowsShown"].toInt(), matching(u"file0123"_s));
    EXPECT_EQ(seen(result, 4)[u"rowsShown"].toInt(), count);
    EXPECT_EQ(seen(result, 6)[u"rowsShown"].toInt(), count / 40);
    EXPECT_EQ(figure(seen(result, 6)[u"tree"][u"dir07/"]), count / 40);
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

// The page kestrel-cli writes for a real comparison lists exactly the
// changes of its JSON document, each name shown as it is on disk.
TEST_F(ReportPageTest, PageTheCommandLineWritesHoldsExactlyTheChanges) {
    const QString tree = m_dir.filePath(u"tree"_s);
    const auto file = [&](const QString& name, const QByteArray& bytes) {
        QDir().mkpath(QFileInfo(tree + u'/' + name).path());
        QFile f(tree + u'/' + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    };
    file(u"kept/same.txt"_s, "same");
    file(u"kept/grows.txt"_s, "1");
    file(u"gone & <b>bold</b>.txt"_s, "gone");
    const auto cli = [&](const QStringList& arguments) {
        QProcess process;
        process.start(QStringLiteral(KESTREL_CLI), arguments);
        EXPECT_TRUE(process.waitForFinished(60000));
        return process.exitCode();
    };
    const QString old = m_dir.filePath(u"tree.#01"_s);
    ASSERT_EQ(cli({u"snapshot"_s, tree, u"--output"_s, old}), 0);
    file(u"kept/grows.txt"_s, "12");
    QFile::remove(tree + u"/gone & <b>bold</b>.txt"_s);
    file(u"new/<img src=x onerror=\"window.__pwned=1\">"_s, "x");
    file(u"new/quote \"q\" 'q'"_s, "y");
    const QString html = m_dir.filePath(u"report.html"_s), json = m_dir.filePath(u"report.json"_s);
    ASSERT_EQ(cli({u"compare"_s, old, tree, u"--format"_s, u"html"_s, u"--output"_s, html}), 1);
    ASSERT_EQ(cli({u"compare"_s, old, tree, u"--format"_s, u"json"_s, u"--output"_s, json}), 1);

    QStringList expected;
    for (const QJsonValue& c : QJsonDocument::fromJson(readFile(json))[u"changes"].toArray())
        expected << c[u"path"].toString();
    ASSERT_EQ(expected.size(), 5); // kept/grows.txt, the one gone, new/ and both in it
    const QJsonObject result = drive(readFile(html), {step("look")});
    EXPECT_TRUE(result[u"pwned"].isNull());
    const QJsonObject first = seen(result, 0);
    EXPECT_EQ(first[u"rowsShown"].toInt(), expected.size());
    QStringList shown = strings(first[u"visible"]);
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
