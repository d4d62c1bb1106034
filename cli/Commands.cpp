#include "Commands.h"

#include "CommandSupport.h"
#include "OutputCommands.h"
#include "PathOrder.h"
#include "TerminalProgress.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/compare/ShowMode.h"
#include "engine/file/FileWriting.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SaveBehind.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/OleDate.h"
#include "engine/support/Paths.h"
#include "engine/support/TextFormats.h"

#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace kestrel::cli {

using namespace engine;

namespace {

// Tabs and line breaks in a path, escaped so that each entry stays one
// tab-separated line. Backslashes are printed as they stand: a name of a
// snapshot made on POSIX already has each of its own written \\ (and each
// byte that is not UTF-8 written \xHH), and names made on Windows hold none.
// Every other control character is written as the bytes of its UTF-8, \xHH
// each, which read back as those bytes: printed as it stands, an escape
// sequence in a name would act on the terminal, erasing or rewriting the
// lines before it.
QString escapedPath(const QString& path) {
    QString out;
    out.reserve(path.size());
    for (QChar c : path) {
        switch (c.unicode()) {
        case '\t':
            out += QStringLiteral("\\t");
            break;
        case '\n':
            out += QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        default:
            if (c.unicode() < 0x20 || (c.unicode() >= 0x7F && c.unicode() < 0xA0)) {
                for (const char byte : QString(c).toUtf8())
                    out += QString::asprintf("\\x%02X", unsigned(uint8_t(byte)));
            } else {
                out += c;
            }
        }
    }
    return out;
}

QString isoDateTime(double oleDate) {
    const DateParts p = datePartsFromOle(oleDate);
    return QString::asprintf("%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour,
                             p.minute, p.second);
}

QString plainNumber(double value) { return QString::number(value, 'f', 0); }

// Size, date and attributes of an entry as the command line prints them;
// "unknown" where the scan could not read them.
QString sizeText(const SnapshotEntry& e) {
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : plainNumber(e.size);
}
QString modifiedIsoText(const SnapshotEntry& e) {
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : isoDateTime(e.modified);
}
QString attributesText(const SnapshotEntry& e) {
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : AttributeText(e.attributes);
}

// The path of a folder below the root as the command line prints it, "./"
// for the root.
QString folderPath(const Snapshot& s, int32_t folder) {
    return folder == 0 ? QStringLiteral("./") : s.relativePath(folder);
}

// The nameless entry that stands for the contents of a folder that could not
// be listed, as the command line prints it: the folder's path and
// " (unreadable)", never an entry of its own.
QString unreadableText(const Snapshot& s, int32_t marker) {
    return escapedPath(folderPath(s, s.entry(marker).parent)) + QStringLiteral(" (unreadable)");
}

int snapshotCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Takes a snapshot of FOLDER and saves it in DIR (the current folder by default) as\n"
        "FOLDER.#01 ... .#99, numbered one past the highest number there; when FOLDER.#99\n"
        "exists the series is full and nothing is replaced unless named with --output.\n"
        "Prints the summary on standard error and the path written on standard output.\n"
        "Folders that could not be read are recorded as such and their paths printed on\n"
        "standard error. Exit status: 0 saved, 3 saved with folders that could not be\n"
        "read, 2 trouble."));
    QCommandLineParser& p = cl.parser;
    p.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The folder to scan."));
    const QCommandLineOption output(QStringLiteral("output"), QStringLiteral("Save as FILE."),
                                    QStringLiteral("FILE"));
    const QCommandLineOption dir(QStringLiteral("dir"),
                                 QStringLiteral("Keep the numbered snapshot file in DIR."),
                                 QStringLiteral("DIR"));
    const QCommandLineOption noRecurse(QStringLiteral("no-recurse"),
                                       QStringLiteral("Leave out the contents of sub-folders."));
    const QCommandLineOption noHidden(QStringLiteral("no-hidden"),
                                      QStringLiteral("Leave out hidden and system items."));
    const QCommandLineOption versions(
        QStringLiteral("versions"),
        QStringLiteral("Record the version of Windows executables in FOLDER and beneath it."),
        QStringLiteral("FOLDER"));
    const QCommandLineOption title(QStringLiteral("title"), QStringLiteral("The snapshot's title."),
                                   QStringLiteral("TEXT"));
    const QCommandLineOption meterLevel(
        QStringLiteral("meter"),
        QStringLiteral("Progress feedback: 0 faster processing, 1 standard, 2 maximum."),
        QStringLiteral("0|1|2"), QStringLiteral("1"));
    p.addOptions({output, dir, noRecurse, noHidden, versions, title, meterLevel});
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli snapshot FOLDER [options]")))
        return ExitTrouble;
    if (p.isSet(output) && p.isSet(dir)) {
        printError(QStringLiteral("Usage"), QStringLiteral("--output and --dir exclude each other"));
        return ExitTrouble;
    }
    bool levelOk = false;
    const int level = p.value(meterLevel).toInt(&levelOk);
    if (!levelOk || level < 0 || level > 2) {
        printError(QStringLiteral("Usage"), QStringLiteral("--meter takes 0, 1 or 2"));
        return ExitTrouble;
    }

    const QString folder = absoluteFolder(p.positionalArguments().at(0));
    // The scan itself records a folder it cannot list as one nameless entry;
    // a folder named here that is not there is a mistake worth saying so.
    const PathInfo folderInfo = pathInfo(nativeBytes(folder));
    if (!folderInfo.exists) {
        printError(QStringLiteral("Folder Not Found"),
                   storedPath(folder) + QStringLiteral(" does not exist"));
        return ExitTrouble;
    }
    if (!folderInfo.folder) {
        printError(QStringLiteral("Not a Folder"),
                   storedPath(folder) + QStringLiteral(" is not a folder"));
        return ExitTrouble;
    }
    QString path;
    if (p.isSet(output)) {
        path = QFileInfo(p.value(output)).absoluteFilePath();
    } else {
        const QString keepIn =
            withSeparator(absoluteFolder(p.isSet(dir) ? p.value(dir) : QStringLiteral(".")));
        path = keepIn + NextSnapshotName(SnapshotBaseName(storedPath(folder)), keepIn);
        // The next name is taken only when the 99th exists: nothing is
        // replaced unless named with --output.
        if (nameTaken(path)) {
            printError(QStringLiteral("Error Writing Snapshot"),
                       path + QStringLiteral(" exists: the series is full"));
            return ExitTrouble;
        }
    }
    Snapshot snapshot;
    snapshot.header.recurse = !p.isSet(noRecurse);
    snapshot.header.hidden = !p.isSet(noHidden);
    ScanSettings settings;
    settings.meterLevel = level;
    if (p.isSet(versions)) {
        snapshot.header.versions = true;
        settings.versionFolder = absoluteFolder(p.value(versions));
    }
    // A file named without a snapshot number is the first of its series.
    const int16_t number = std::max<int16_t>(SnapshotNumberFromName(path), 1);
    snapshot.header.title =
        p.isSet(title) ? p.value(title) : NewSnapshotTitle(storedPath(folder), number, false);
    snapshot.header.fileName = path;
    snapshot.header.rootFolder = scannedRoot(folder);
    TerminalProgress view;
    ProgressMeter meter(&view);
    const ScanAndSaveOutcome done = ScanAndSaveSnapshot(snapshot, settings, meter);
    if (!scanSucceeded(done.scan) || !succeeded(done.save))
        return ExitTrouble;
    printLine(stderr, done.scan.summary);
    const std::vector<int32_t> unreadable = UnreadableFolders(snapshot);
    for (const int32_t folder : unreadable)
        printLine(stderr, QStringLiteral("Could not be read: ") + snapshot.header.rootFolder +
                              escapedPath(snapshot.relativePath(folder)));
    printLine(stdout, path);
    return unreadable.empty() ? ExitOk : ExitUnreadable;
}

int listCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Lists every entry of a snapshot file, or of a folder scanned without saving, one per\n"
        "line: path below the root (folders end with /), size, modified (local yyyy-MM-dd\n"
        "hh:mm:ss), attributes and version, separated by tabs. Tabs, line breaks and\n"
        "backslashes in names are written as \\t, \\n, \\r and \\\\, other control characters\n"
        "as \\x and two hexadecimal digits for each byte. Values that could not be read\n"
        "are \"unknown\"; a folder that could not be listed is followed by a line with its\n"
        "path and \" (unreadable)\".\n"
        "Entries come in path order, whatever order the file system listed them in: name by\n"
        "name from the top, names compared byte by byte (UTF-8, as LC_ALL=C sort does), each\n"
        "folder followed by its contents."));
    cl.parser.addPositionalArgument(QStringLiteral("SNAPSHOT|FOLDER"),
                                    QStringLiteral("A snapshot file or a folder."));
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli list SNAPSHOT|FOLDER")))
        return ExitTrouble;
    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot snapshot;
    if (!obtainSnapshot(cl.parser.positionalArguments().at(0), snapshot, meter))
        return ExitTrouble;
    QTextStream out(stdout);
    out.setEncoding(QStringConverter::Utf8);
    try {
        for (const int32_t i : entriesInPathOrder(snapshot)) {
            const SnapshotEntry& e = snapshot.entry(i);
            if (e.isUnreadableMarker()) {
                out << unreadableText(snapshot, i) << '\n';
                continue;
            }
            const std::string_view version = snapshot.versionOf(e);
            out << escapedPath(snapshot.relativePath(i)) << '\t' << sizeText(e) << '\t'
                << modifiedIsoText(e) << '\t' << attributesText(e) << '\t'
                << QString::fromUtf8(version.data(), qsizetype(version.size())) << '\n';
        }
    } catch (const RuntimeError& e) {
        out.flush();
        printError(QStringLiteral("Invalid Snapshot"), e.text());
        return ExitTrouble;
    }
    return ExitOk;
}

int infoCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral("Describes a snapshot file: title, root folder, creation time,\n"
                                  "scan flags, counts, total size and the folders that could not\n"
                                  "be read. Tabs and line breaks in the title and the root folder\n"
                                  "are written as \\t, \\n and \\r, as list writes them."));
    cl.parser.addPositionalArgument(QStringLiteral("SNAPSHOT"), QStringLiteral("A snapshot file."));
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli info SNAPSHOT")))
        return ExitTrouble;
    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot s;
    if (!loadSnapshotFile(cl.parser.positionalArguments().at(0), s, meter, nullptr))
        return ExitTrouble;
    auto yesNo = [](bool b) { return b ? QStringLiteral("yes") : QStringLiteral("no"); };
    QTextStream out(stdout);
    out.setEncoding(QStringConverter::Utf8);
    // Escaped as list escapes paths: a line break in either cannot forge a line.
    out << "Title: " << escapedPath(s.header.title) << '\n'
        << "Root folder: " << escapedPath(s.header.rootFolder) << '\n'
        << "Created: " << isoDateTime(s.header.created) << '\n'
        << "Files in sub-folders: " << yesNo(s.header.recurse) << '\n'
        << "Hidden and system files: " << yesNo(s.header.hidden) << '\n'
        << "File versions: " << yesNo(s.header.versions) << '\n'
        << "Files: " << s.fileCount << '\n'
        << "Folders: " << s.folderCount << '\n'
        << "Total size: " << plainNumber(s.totalSize) << " bytes ("
        << FormatByteSize(s.totalSize, true) << ")\n"
        << "Folders that could not be read: " << UnreadableFolders(s).size() << '\n';
    return ExitOk;
}

int convertCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Opens a snapshot file and saves it as OUTPUT in the current format, as Save As does."));
    cl.parser.addPositionalArgument(QStringLiteral("SNAPSHOT"), QStringLiteral("A snapshot file."));
    cl.parser.addPositionalArgument(QStringLiteral("OUTPUT"), QStringLiteral("The file to write."));
    if (!cl.parse(arguments, 2, QStringLiteral("kestrel-cli convert SNAPSHOT OUTPUT")))
        return ExitTrouble;
    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot snapshot;
    QString summary;
    if (!loadSnapshotFile(cl.parser.positionalArguments().at(0), snapshot, meter, &summary))
        return ExitTrouble;
    snapshot.header.fileName = QFileInfo(cl.parser.positionalArguments().at(1)).absoluteFilePath();
    const Outcome saved = guardedOperation(QStringLiteral("Error Writing Snapshot"),
                                           [&] { return SaveSnapshot(snapshot, meter); });
    if (!succeeded(saved))
        return ExitTrouble;
    printLine(stderr, summary);
    printLine(stdout, snapshot.header.fileName);
    return ExitOk;
}

// A tolerance: seconds, or numbers with units s, m, h, d, w, y ("90", "2s",
// "1h30m", "3d"). Returns days, or -1 when the text is not a duration.
double parseDuration(const QString& text) {
    const QString t = text.trimmed().toLower();
    if (t.isEmpty())
        return -1;
    bool plain = false;
    const double seconds = t.toDouble(&plain);
    if (plain)
        return seconds >= 0 ? seconds / 86400 : -1;
    double total = 0;
    qsizetype i = 0;
    while (i < t.size()) {
        const qsizetype start = i;
        while (i < t.size() && (t.at(i).isDigit() || t.at(i) == QLatin1Char('.')))
            ++i;
        bool ok = false;
        const double n = t.mid(start, i - start).toDouble(&ok);
        if (!ok || i >= t.size())
            return -1;
        switch (t.at(i).unicode()) {
        case 's': total += n; break;
        case 'm': total += n * 60; break;
        case 'h': total += n * 3600; break;
        case 'd': total += n * 86400; break;
        case 'w': total += n * 7 * 86400; break;
        case 'y': total += n * 365 * 86400; break;
        default: return -1;
        }
        ++i;
    }
    return total / 86400;
}

// "R,H,S,A" as the attribute bits whose differences are ignored.
bool parseAttributes(const QString& text, int16_t& mask) {
    mask = 0;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString p = part.trimmed().toUpper();
        if (p == QLatin1String("R"))
            mask |= Attribute::ReadOnly;
        else if (p == QLatin1String("H"))
            mask |= Attribute::Hidden;
        else if (p == QLatin1String("S"))
            mask |= Attribute::System;
        else if (p == QLatin1String("A"))
            mask |= Attribute::Archive;
        else
            return false;
    }
    return true;
}

QString csvField(const QString& text) {
    QString quoted = text;
    quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QString jsonString(const QString& text) {
    QString out = QStringLiteral("\"");
    for (QChar c : text) {
        switch (c.unicode()) {
        case '"': out += QStringLiteral("\\\""); break;
        case '\\': out += QStringLiteral("\\\\"); break;
        case '\n': out += QStringLiteral("\\n"); break;
        case '\r': out += QStringLiteral("\\r"); break;
        case '\t': out += QStringLiteral("\\t"); break;
        default:
            if (c.unicode() < 0x20)
                out += QString::asprintf("\\u%04x", c.unicode());
            else
                out += c;
        }
    }
    return out + QLatin1Char('"');
}

QString textOf(std::string_view utf8) { return QString::fromUtf8(utf8.data(), qsizetype(utf8.size())); }

// Writes the rows of a compare command in the chosen format.
class CompareReport {
public:
    enum Format { Text, Csv, Jsonl };
    CompareReport(Format format, const Snapshot& newer, const Snapshot& older,
                  const CompareOptions& options)
        : m_format(format), m_new(newer), m_old(older), m_options(options), m_out(stdout) {
        m_out.setEncoding(QStringConverter::Utf8);
        if (m_format == Csv)
            m_out << "change,path,size,modified,attributes,version,was\n";
    }

    // A difference line: the entry of the side it belongs to.
    void difference(const Difference& d) {
        const bool inOld = d.kind == Difference::OnlyInOld;
        const Snapshot& s = inOld ? m_old : m_new;
        const QString change(QLatin1Char(char(d.kind)));
        if (s.entry(d.index).isUnreadableMarker()) {
            unreadable(change, s, d.index);
            return;
        }
        const QString path = s.relativePath(d.index);
        const QString was = d.kind == Difference::Changed ? WhatChanged(m_new, m_old, d.index, m_options)
                                                          : QString();
        switch (m_format) {
        case Text:
            m_out << change << '\t' << escapedPath(path);
            if (!was.isEmpty())
                m_out << '\t' << was;
            if (d.kind == Difference::Changed)
                m_out << '\t' << changesText(d.index);
            m_out << '\n';
            break;
        case Csv:
            csvRow(change, s, d.index, was);
            break;
        case Jsonl:
            if (d.kind == Difference::Changed)
                jsonChanged(d.index);
            else
                jsonEntry(change, s, d.index, QString());
            break;
        }
    }

    // A row of the file list of a show mode.
    void listed(int32_t index) {
        const SnapshotEntry& e = m_new.entry(index);
        const QString change = e.match == 0 ? QStringLiteral("+")
                               : (!e.isFolder() && e.status > 0) ? QStringLiteral("~")
                                                                  : QString();
        if (e.isUnreadableMarker()) {
            unreadable(change, m_new, index);
            return;
        }
        const QString was = WhatChanged(m_new, m_old, index, m_options);
        switch (m_format) {
        case Text:
            m_out << escapedPath(m_new.relativePath(index)) << '\t' << sizeText(e) << '\t'
                  << modifiedIsoText(e) << '\t' << attributesText(e) << '\t'
                  << textOf(m_new.versionOf(e)) << '\t' << was << '\n';
            break;
        case Csv:
            csvRow(change, m_new, index, was);
            break;
        case Jsonl:
            jsonEntry(change, m_new, index, was);
            break;
        }
    }

private:
    // The nameless entry of a folder that could not be listed: the folder's
    // path and " (unreadable)", with nothing of an entry.
    void unreadable(const QString& change, const Snapshot& s, int32_t marker) {
        const QString text = unreadableText(s, marker);
        switch (m_format) {
        case Text:
            m_out << change << '\t' << text << '\n';
            break;
        case Csv:
            m_out << csvField(change) << ',' << csvField(text);
            for (int field = 0; field < 5; ++field)
                m_out << ',' << csvField(QString());
            m_out << '\n';
            break;
        case Jsonl:
            m_out << "{\"change\":" << jsonString(change) << ",\"path\":" << jsonString(text)
                  << ",\"unreadable\":true}\n";
            break;
        }
    }

    void csvRow(const QString& change, const Snapshot& s, int32_t i, const QString& was) {
        const SnapshotEntry& e = s.entry(i);
        m_out << csvField(change) << ',' << csvField(s.relativePath(i)) << ','
              << csvField(sizeText(e)) << ',' << csvField(modifiedIsoText(e)) << ','
              << csvField(attributesText(e)) << ',' << csvField(textOf(s.versionOf(e))) << ','
              << csvField(was) << '\n';
    }

    void jsonEntry(const QString& change, const Snapshot& s, int32_t i, const QString& was) {
        const SnapshotEntry& e = s.entry(i);
        // Values the scan could not read are null.
        const bool unknown = e.valuesUnknown();
        m_out << "{\"change\":" << jsonString(change)
              << ",\"path\":" << jsonString(s.relativePath(i))
              << ",\"folder\":" << (e.isFolder() ? "true" : "false")
              << ",\"size\":" << (unknown ? QStringLiteral("null") : plainNumber(e.size))
              << ",\"modified\":"
              << (unknown ? QStringLiteral("null") : jsonString(isoDateTime(e.modified)))
              << ",\"attributes\":"
              << (unknown ? QStringLiteral("null") : jsonString(AttributeText(e.attributes)))
              << ",\"version\":" << jsonString(textOf(s.versionOf(e)));
        if (!was.isEmpty())
            m_out << ",\"was\":" << jsonString(was);
        m_out << "}\n";
    }

    // A field of a changed file whose value differs, with its old and new
    // values in the forms list prints them.
    struct FieldChange {
        const char* field;
        QString before;
        QString after;
        bool number;
    };
    std::vector<FieldChange> fieldChanges(int32_t i) const {
        const SnapshotEntry& now = m_new.entry(i);
        const SnapshotEntry& before = m_old.entry(now.match);
        std::vector<FieldChange> changes;
        if (now.status & Change::Size)
            changes.push_back({"size", plainNumber(before.size), plainNumber(now.size), true});
        if (now.status & Change::Date)
            changes.push_back(
                {"modified", isoDateTime(before.modified), isoDateTime(now.modified), false});
        if (now.status & Change::Attributes)
            changes.push_back({"attributes", AttributeText(before.attributes),
                               AttributeText(now.attributes), false});
        if (now.status & Change::Version)
            changes.push_back(
                {"version", textOf(m_old.versionOf(before)), textOf(m_new.versionOf(now)), false});
        return changes;
    }

    // "size 18 -> 9, modified 2025-02-16 05:23:41 -> 2026-11-24 18:28:51":
    // a changed file's line read on its own.
    QString changesText(int32_t i) const {
        QStringList parts;
        for (const FieldChange& c : fieldChanges(i))
            parts << QLatin1String(c.field) + QLatin1Char(' ') + valueText(c.before) +
                         QStringLiteral(" -> ") + valueText(c.after);
        return parts.join(QStringLiteral(", "));
    }
    static QString valueText(const QString& value) {
        return value.isEmpty() ? QStringLiteral("none") : escapedPath(value);
    }

    void jsonChanged(int32_t i) {
        m_out << "{\"change\":\"~\",\"path\":" << jsonString(m_new.relativePath(i));
        for (const FieldChange& c : fieldChanges(i)) {
            m_out << ",\"" << c.field << "\":{\"old\":";
            if (c.number)
                m_out << c.before << ",\"new\":" << c.after << '}';
            else
                m_out << jsonString(c.before) << ",\"new\":" << jsonString(c.after) << '}';
        }
        m_out << "}\n";
    }

    Format m_format;
    const Snapshot& m_new;
    const Snapshot& m_old;
    const CompareOptions& m_options;
    QTextStream m_out;
};

int compareCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Compares two snapshots, each a snapshot file (current or version-2 format) or a folder\n"
        "scanned without saving, both ways. Lists every difference: + and the path of an entry\n"
        "only in NEW, - and the path of an entry only in OLD, ~ and the path of a changed\n"
        "file, what it was in OLD (\"[was ...]\") and the fields that changed, old and new\n"
        "(\"size 18 -> 9, modified 2025-02-16 05:23:41 -> 2026-11-24 18:28:51\"). Everything\n"
        "inside a folder that is only on one side is listed too. Paths are relative to the\n"
        "root; folders end with /. Lines come in path order, whatever order the file systems\n"
        "listed the folders in: name by name from the top, names compared byte by byte\n"
        "(UTF-8, as LC_ALL=C sort does), each folder followed by its contents; the summary\n"
        "line goes to standard error. A folder that one side could not list is shown as its\n"
        "path and \" (unreadable)\" on that side's line; values that could not be read are\n"
        "\"unknown\" and never compared.\n"
        "Nothing is ignored unless asked; versions are compared only when both snapshots\n"
        "recorded them. Exit status: 0 no differences, 1 differences, 2 trouble."));
    QCommandLineParser& p = cl.parser;
    p.addPositionalArgument(QStringLiteral("OLD"), QStringLiteral("The earlier snapshot file or folder."));
    p.addPositionalArgument(QStringLiteral("NEW"), QStringLiteral("The later snapshot file or folder."));
    const QCommandLineOption ignoreSize(QStringLiteral("ignore-size"), QStringLiteral("Ignore file sizes."));
    const QCommandLineOption ignoreVersion(QStringLiteral("ignore-version"),
                                           QStringLiteral("Ignore file versions."));
    const QCommandLineOption ignoreDst(
        QStringLiteral("ignore-dst"),
        QStringLiteral("Ignore dates that differ by one hour (clock changes), give or take the tolerance."));
    const QCommandLineOption ignoreAttributes(
        QStringLiteral("ignore-attributes"),
        QStringLiteral(
            "Leave these attributes out of the comparison: R read-only, H hidden, S system,\n"
            "A archive. Without it every attribute counts but the normal bit, which only says\n"
            "that no other bit is set."),
        QStringLiteral("R,H,S,A"));
    const QCommandLineOption tolerance(
        QStringLiteral("tolerance"),
        QStringLiteral("Dates that differ by this much or less are the same: seconds, or e.g. 2s, 90m, 1h, 3d."),
        QStringLiteral("DURATION"));
    const QCommandLineOption useSettings(
        QStringLiteral("use-settings"),
        QStringLiteral(
            "Start from the ignore options stored by Kestrel's options dialog. There the\n"
            "attributes ticked under \"Ignore attributes\" are the only ones compared, and\n"
            "none are while that box is off."));
    const QCommandLineOption show(
        QStringLiteral("show"),
        QStringLiteral("List NEW's entries as the file list shows them instead: all, only (only in NEW),\n"
                       "both, changed or diffs (all differences)."),
        QStringLiteral("MODE"));
    const QCommandLineOption format(QStringLiteral("format"),
                                    QStringLiteral("Output format: text, csv or jsonl."),
                                    QStringLiteral("FORMAT"), QStringLiteral("text"));
    p.addOptions({ignoreSize, ignoreVersion, ignoreDst, ignoreAttributes, tolerance, useSettings, show, format});
    if (!cl.parse(arguments, 2, QStringLiteral("kestrel-cli compare OLD NEW [options]")))
        return ExitTrouble;

    // The normal bit changes whenever any other bit does, so comparing it
    // would report what --ignore-attributes asked to leave out.
    CompareOptions options = commandLineCompareOptions();
    if (p.isSet(useSettings)) {
        settings::Options stored;
        settings::SettingsStore().getSettings(stored);
        options = stored.compareOptions();
    }
    options.ignoreSize |= p.isSet(ignoreSize);
    options.ignoreVersion |= p.isSet(ignoreVersion);
    options.ignoreDst |= p.isSet(ignoreDst);
    if (p.isSet(ignoreAttributes)) {
        int16_t mask = 0;
        if (!parseAttributes(p.value(ignoreAttributes), mask)) {
            printError(QStringLiteral("Usage"), QStringLiteral("--ignore-attributes takes letters among R,H,S,A"));
            return ExitTrouble;
        }
        options.attributeCompareMask &= uint16_t(~mask);
    }
    if (p.isSet(tolerance)) {
        const double days = parseDuration(p.value(tolerance));
        if (days < 0) {
            printError(QStringLiteral("Usage"), QStringLiteral("--tolerance takes seconds or a duration such as 2s, 1h, 3d"));
            return ExitTrouble;
        }
        options.dateTolerance = days;
    }
    ShowMode showMode = ShowMode::None;
    if (p.isSet(show)) {
        showMode = showModeNamed(p.value(show)).value_or(ShowMode::None);
        if (showMode == ShowMode::None) {
            printError(QStringLiteral("Usage"), QStringLiteral("--show takes all, only, both, changed or diffs"));
            return ExitTrouble;
        }
    }
    const QString formatName = p.value(format).toLower();
    CompareReport::Format reportFormat = CompareReport::Text;
    if (formatName == QLatin1String("csv"))
        reportFormat = CompareReport::Csv;
    else if (formatName == QLatin1String("jsonl"))
        reportFormat = CompareReport::Jsonl;
    else if (formatName != QLatin1String("text")) {
        printError(QStringLiteral("Usage"), QStringLiteral("--format takes text, csv or jsonl"));
        return ExitTrouble;
    }

    TerminalProgress view;
    ProgressMeter meter(&view);
    Snapshot older, newer;
    if (!obtainSnapshot(p.positionalArguments().at(0), older, meter) ||
        !obtainSnapshot(p.positionalArguments().at(1), newer, meter))
        return ExitTrouble;
    // A snapshot taken without versions has none to compare.
    if (!older.header.versions || !newer.header.versions)
        options.ignoreVersion = true;

    const Outcome compared = CompareSnapshot(newer, 1, older, 1, true, options, meter);
    if (!succeeded(compared))
        return ExitTrouble;
    int added = 0, removed = 0, changed = 0, unreadable = 0;
    try {
        std::vector<Difference> differences = listDifferences(newer, older);
        CompareReport report(reportFormat, newer, older, options);
        for (const Difference& d : differences) {
            const Snapshot& side = d.kind == Difference::OnlyInOld ? older : newer;
            if (side.entry(d.index).isUnreadableMarker())
                ++unreadable;
            else
                (d.kind == Difference::OnlyInNew   ? added
                 : d.kind == Difference::OnlyInOld ? removed
                                                   : changed)++;
        }
        if (showMode == ShowMode::None) {
            // By path, an entry only in OLD among NEW's; kinds break the tie
            // of a name that is on both sides.
            sortByPath(differences, [&](const Difference& d) {
                const Snapshot& side = d.kind == Difference::OnlyInOld ? older : newer;
                return pathSortKey(side.relativePath(d.index)) + '\0' + char(d.kind);
            });
            for (const Difference& d : differences)
                report.difference(d);
        } else {
            for (const int32_t i : entriesInPathOrder(newer))
                if (rowShown(newer.entries.get(i), showMode))
                    report.listed(i);
        }
    } catch (const RuntimeError& e) {
        printError(QStringLiteral("Comparing Snapshots"), e.text());
        return ExitTrouble;
    }
    QString summary = QStringLiteral("%1 only in NEW, %2 only in OLD, %3 changed")
                          .arg(added)
                          .arg(removed)
                          .arg(changed);
    if (unreadable > 0)
        summary += QStringLiteral(", ") + unreadableFoldersText(unreadable) +
                   QStringLiteral(" on one side");
    printLine(stderr, summary);
    return added + removed + changed + unreadable > 0 ? ExitDifferences : ExitOk;
}

const char* const kUsage =
    "Usage: kestrel-cli COMMAND [options]\n"
    "\n"
    "Records the state of folder trees as snapshot files and compares them.\n"
    "\n"
    "Commands:\n"
    "  snapshot FOLDER       take a snapshot of FOLDER and save it as FOLDER.#NN\n"
    "  list SNAPSHOT|FOLDER  list the entries of a snapshot file or a folder\n"
    "  info SNAPSHOT         describe a snapshot file\n"
    "  convert SNAPSHOT OUT  save a snapshot file again in the current format\n"
    "  compare OLD NEW       list what changed between two snapshots or folders\n"
    "  export SNAPSHOT       write the file list of a folder as the Export dialog does\n"
    "  report SNAPSHOT       print the file list of a folder to a PDF file\n"
    "\n"
    "kestrel-cli COMMAND --help describes a command. Exit status: 0 success, 2 trouble\n"
    "(compare: 0 no differences, 1 differences, 2 trouble; snapshot: 3 saved with folders\n"
    "that could not be read).\n";

} // namespace

int run(const QStringList& arguments) {
    if (arguments.size() < 2) {
        std::fputs(kUsage, stderr);
        return ExitTrouble;
    }
    const QString command = arguments.at(1);
    QStringList rest = arguments.mid(1);
    // The name a command's usage line gives it.
    rest[0] = QStringLiteral("kestrel-cli ") + command;
    if (command == QLatin1String("--help") || command == QLatin1String("-h") ||
        command == QLatin1String("help")) {
        std::fputs(kUsage, stdout);
        return ExitOk;
    }
    if (command == QLatin1String("--version")) {
        std::printf("kestrel-cli %s\n", KESTREL_VERSION);
        return ExitOk;
    }
    if (command == QLatin1String("snapshot"))
        return snapshotCommand(rest);
    if (command == QLatin1String("list"))
        return listCommand(rest);
    if (command == QLatin1String("info"))
        return infoCommand(rest);
    if (command == QLatin1String("convert"))
        return convertCommand(rest);
    if (command == QLatin1String("compare"))
        return compareCommand(rest);
    if (command == QLatin1String("export"))
        return exportCommand(rest);
    if (command == QLatin1String("report"))
        return reportCommand(rest);
    printError(QStringLiteral("Usage"), QStringLiteral("unknown command \"%1\"").arg(command));
    std::fputs(kUsage, stderr);
    return ExitTrouble;
}

} // namespace kestrel::cli
