#include "ChangeDocument.h"

#include "ChangeList.h"

#include "engine/compare/Compare.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/file/FileWriting.h"
#include "engine/model/EntryAccess.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

#include <array>
#include <cstdlib>
#include <optional>

namespace kestrel::output {

using namespace engine;

namespace {

const QString WriteErrorTitle = QStringLiteral("Error Writing File");
constexpr char DataPlaceholder[] = "{{KESTREL_REPORT_DATA}}";
constexpr char TitlePlaceholder[] = "{{KESTREL_REPORT_TITLE}}";
// Changes are made into blocks of about this size before they are written.
constexpr size_t BlockBytes = size_t(1) << 20;

// A JSON string of UTF-8 text. Besides what JSON asks to escape, "<", ">",
// "&" and the two line separators JavaScript once refused are written as
// \uXXXX, so that the same text is safe inside an HTML script element.
void appendJsonString(std::string& out, std::string_view utf8) {
    static constexpr char Hex[] = "0123456789abcdef";
    out += '"';
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        switch (c) {
        case '"':
            out += "\\\"";
            continue;
        case '\\':
            out += "\\\\";
            continue;
        case '\n':
            out += "\\n";
            continue;
        case '\r':
            out += "\\r";
            continue;
        case '\t':
            out += "\\t";
            continue;
        default:
            break;
        }
        const bool lineSeparator = c == 0xE2 && i + 2 < utf8.size() &&
                                   static_cast<unsigned char>(utf8[i + 1]) == 0x80 &&
                                   (static_cast<unsigned char>(utf8[i + 2]) & 0xFE) == 0xA8;
        if (c < 0x20 || c == '<' || c == '>' || c == '&') {
            out += "\\u00";
            out += Hex[c >> 4];
            out += Hex[c & 15];
        } else if (lineSeparator) {
            out += static_cast<unsigned char>(utf8[i + 2]) == 0xA8 ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            out += char(c);
        }
    }
    out += '"';
}

void appendJsonString(std::string& out, const QString& text) {
    appendJsonString(out, std::string_view(text.toUtf8().toStdString()));
}

// JSON made by Qt, made safe to stand inside an HTML script element: "<",
// ">" and "&" occur only inside its strings, where \uXXXX says the same.
QByteArray scriptSafe(QByteArray json) {
    json.replace("<", "\\u003c");
    json.replace(">", "\\u003e");
    json.replace("&", "\\u0026");
    json.replace("\xE2\x80\xA8", "\\u2028");
    json.replace("\xE2\x80\xA9", "\\u2029");
    return json;
}

// Whether a stored path holds a byte that was not UTF-8 (written \xHH; a
// backslash of the name itself is written \\).
bool holdsEscapedBytes(std::string_view stored) {
    for (size_t i = 0; i + 1 < stored.size(); ++i) {
        if (stored[i] != '\\')
            continue;
        if (stored[i + 1] == 'x')
            return true;
        ++i;
    }
    return false;
}

const std::array<std::pair<int16_t, const char*>, 10> AttributeNames = {{
    {Attribute::ReadOnly, "read-only"},
    {Attribute::Hidden, "hidden"},
    {Attribute::System, "system"},
    {Attribute::Folder, "folder"},
    {Attribute::Archive, "archive"},
    {Attribute::Normal, "normal"},
    {Attribute::Temporary, "temporary"},
    {Attribute::ReparsePoint, "link"},
    {Attribute::Compressed, "compressed"},
    {Attribute::Unknown, "unknown"},
}};

// The values of an entry as JSON texts, each ready to append; the fields
// that entry lacks are empty.
struct EntryValues {
    std::string size, modified, attributes, version, fingerprint, permissions, owner, target;
};

EntryValues valuesOf(const Snapshot& s, int32_t i) {
    EntryValues v;
    const SnapshotEntry& e = s.entry(i);
    if (e.valuesUnknown()) {
        v.size = v.modified = v.attributes = "null";
    } else {
        v.size = QString::number(e.size, 'f', 0).toStdString();
        appendJsonString(
            v.modified,
            std::string_view(isoDateTimeWithOffset(e.modified).toLatin1().toStdString()));
        v.attributes = "[";
        for (const auto& [bit, name] : AttributeNames) {
            if (!(e.attributes & bit))
                continue;
            if (v.attributes.size() > 1)
                v.attributes += ',';
            appendJsonString(v.attributes, std::string_view(name));
        }
        v.attributes += ']';
    }
    appendJsonString(v.version, s.versionOf(e));
    if (!e.isFolder() && s.fingerprints.has(i))
        appendJsonString(v.fingerprint, std::string_view(fingerprintHex(s.fingerprints.at(i))));
    if (s.access.kindOf(i) != AccessTable::NoKind) {
        const AccessValues a = accessValuesOf(s, i);
        appendJsonString(v.permissions, permissionsText(a.access.mode, kindLetter(e.attributes)));
        appendJsonString(v.owner, ownerText(a.access.owner, a.access.group));
        if (!a.linkTarget.empty())
            appendJsonString(v.target, a.linkTarget);
    }
    return v;
}

void appendMember(std::string& out, const char* name, const std::string& value) {
    if (value.empty())
        return;
    if (out.back() != '{')
        out += ',';
    out += '"';
    out += name;
    out += "\":";
    out += value;
}

void appendValues(std::string& out, const EntryValues& v) {
    out += '{';
    appendMember(out, "size", v.size);
    appendMember(out, "modified", v.modified);
    appendMember(out, "attributes", v.attributes);
    appendMember(out, "version", v.version);
    appendMember(out, "fingerprint", v.fingerprint);
    appendMember(out, "permissions", v.permissions);
    appendMember(out, "owner", v.owner);
    appendMember(out, "target", v.target);
    out += '}';
}

// A changed value's name and its JSON texts on both sides, by change bit.
// The value of each of the fields change bits name, in the order of
// engine::ChangedFields.
const std::array<const std::string EntryValues::*, ChangedFields.size()> FieldValues = {
    &EntryValues::size,    &EntryValues::modified,    &EntryValues::attributes,
    &EntryValues::version, &EntryValues::fingerprint, &EntryValues::permissions,
    &EntryValues::owner,   &EntryValues::target,
};

QJsonObject snapshotObject(const Snapshot& s, const QString& file) {
    return QJsonObject{
        {QStringLiteral("file"), file.isEmpty() ? QJsonValue() : QJsonValue(file)},
        {QStringLiteral("root"), s.header.rootFolder},
        {QStringLiteral("title"), s.header.title},
        {QStringLiteral("created"), isoDateTimeWithOffset(s.header.created)},
        {QStringLiteral("files"), s.fileCount},
        {QStringLiteral("folders"), s.folderCount},
        {QStringLiteral("fingerprints"), s.fingerprints.taken()},
        {QStringLiteral("permissions"), !s.access.empty()},
    };
}

// "all", "none", or the names of the bits compared ("read-only, hidden,
// system, ...").
QString attributesCompared(uint16_t mask) {
    QStringList names;
    bool all = true;
    for (const auto& [bit, name] : AttributeNames) {
        if (bit == Attribute::Unknown)
            continue;
        if (mask & uint16_t(bit))
            names << QLatin1String(name);
        else
            all = false;
    }
    return all               ? QStringLiteral("all")
           : names.isEmpty() ? QStringLiteral("none")
                             : names.join(QStringLiteral(", "));
}

QJsonObject optionsObject(const ChangeList& list) {
    const CompareOptions& o = list.options();
    QJsonArray ignored;
    const auto note = [&](bool on, const char* what) {
        if (on)
            ignored.append(QLatin1String(what));
    };
    note(o.ignoreSize, "size");
    note(o.ignoreVersion, "version");
    note(o.ignoreDst, "clock changes");
    note(o.ignorePermissions, "permissions");
    note(o.ignoreOwner, "owner");
    note(o.ignoreTouched, "date when the content is the same");
    QJsonArray patterns;
    const IgnorePatterns applied = comparisonPatterns(list.newer(), list.older(), o);
    for (const std::string& line : applied.lines())
        patterns.append(QString::fromStdString(line));
    return QJsonObject{
        {QStringLiteral("ignore"), ignored},
        {QStringLiteral("dateToleranceDays"), o.dateTolerance},
        {QStringLiteral("attributesCompared"), attributesCompared(o.attributeCompareMask)},
        {QStringLiteral("detectMoves"), o.detectMoves},
        {QStringLiteral("ignorePatterns"), patterns},
    };
}

QJsonObject countsObject(const ChangeList& list) {
    const ChangeCounts& c = list.counts();
    return QJsonObject{
        {QStringLiteral("added"), c.added},
        {QStringLiteral("removed"), c.removed},
        {QStringLiteral("changed"), c.changed},
        {QStringLiteral("content"), c.content},
        {QStringLiteral("movedFiles"), c.movedFiles},
        {QStringLiteral("movedFolders"), c.movedFolders},
        {QStringLiteral("unreadable"), c.unreadable},
        {QStringLiteral("permissions"), c.access.permissions},
        {QStringLiteral("owners"), c.access.owners},
        {QStringLiteral("targets"), c.access.targets},
        {QStringLiteral("ignoredNew"), list.newer().ignoredCount},
        {QStringLiteral("ignoredOld"), list.older().ignoredCount},
        {QStringLiteral("total"), c.total()},
    };
}

// Makes the changes' objects block by block, each followed by separator,
// and hands each block to write.
bool writeChanges(const ChangeList& list, const char* separator, const char* last,
                  const ByteSink& write) {
    std::string block;
    block.reserve(BlockBytes + 4096);
    const std::vector<Change>& changes = list.changes();
    for (size_t k = 0; k < changes.size(); ++k) {
        appendChangeObject(list, changes[k], block);
        block += k + 1 < changes.size() ? separator : last;
        if (block.size() >= BlockBytes) {
            if (!write(block))
                return false;
            block.clear();
        }
    }
    return block.empty() || write(block);
}

// The document without its closing brace, ready for "changes".
QByteArray headerJson(const ChangeList& list, const ReportContext& context) {
    QByteArray json =
        QJsonDocument(changeReportHeader(list, context)).toJson(QJsonDocument::Compact);
    json.chop(1);
    return json;
}

} // namespace

QJsonObject changeReportHeader(const ChangeList& list, const ReportContext& context) {
    return QJsonObject{
        {QStringLiteral("schema"), 1},
        {QStringLiteral("old"), snapshotObject(list.older(), context.oldFile)},
        {QStringLiteral("new"), snapshotObject(list.newer(), context.newFile)},
        {QStringLiteral("options"), optionsObject(list)},
        {QStringLiteral("counts"), countsObject(list)},
        {QStringLiteral("summary"), list.summaryText()},
        {QStringLiteral("colours"),
         QJsonObject{{QStringLiteral("changed"), context.changedColour},
                     {QStringLiteral("unmatched"), context.unmatchedColour}}},
    };
}

void appendChangeObject(const ChangeList& list, const Change& change, std::string& out) {
    const Snapshot& side = list.sideOf(change);
    const QString path = list.path(change);
    const QByteArray pathBytes = path.toUtf8();
    out += "{\"change\":\"";
    out += kindSign(change.kind);
    out += "\",\"kind\":\"";
    out += kindName(change.kind);
    out += "\",\"path\":";
    appendJsonString(out, std::string_view(pathBytes.constData(), size_t(pathBytes.size())));
    out += change.folder ? ",\"folder\":true" : ",\"folder\":false";
    bool escaped =
        holdsEscapedBytes(std::string_view(pathBytes.constData(), size_t(pathBytes.size())));
    if (change.kind == Change::Moved) {
        const QByteArray from = list.older().relativePath(change.oldIndex).toUtf8();
        escaped =
            escaped || holdsEscapedBytes(std::string_view(from.constData(), size_t(from.size())));
        out += ",\"from\":";
        appendJsonString(out, std::string_view(from.constData(), size_t(from.size())));
    }
    if (change.kind != Change::Unreadable) {
        const bool bothSides = change.kind == Change::Changed || change.kind == Change::Content ||
                               change.kind == Change::Moved;
        std::optional<EntryValues> before, after;
        if (change.inOld)
            before = valuesOf(side, change.index);
        else
            after = valuesOf(side, change.index);
        if (bothSides)
            before = valuesOf(list.older(), change.oldIndex);
        if (before) {
            out += ",\"old\":";
            appendValues(out, *before);
        }
        if (after) {
            out += ",\"new\":";
            appendValues(out, *after);
        }
        if (change.kind == Change::Changed || change.kind == Change::Content) {
            const int16_t status = ownChanges(list.newer(), change.index);
            std::string names, members;
            for (size_t field = 0; field < ChangedFields.size(); ++field) {
                const ChangedField& f = ChangedFields[field];
                if (!(status & f.bit))
                    continue;
                names += names.empty() ? "" : ",";
                names += '"';
                names += f.key;
                names += '"';
                const std::string& was = (*before).*FieldValues[field];
                const std::string& is = (*after).*FieldValues[field];
                members += ",\"";
                members += f.key;
                members += "\":{\"old\":";
                members += was.empty() ? "null" : was;
                members += ",\"new\":";
                members += is.empty() ? "null" : is;
                members += '}';
            }
            out += ",\"fields\":[" + names + ']' + members;
        }
    } else {
        out += change.inOld ? ",\"side\":\"old\"" : ",\"side\":\"new\"";
    }
    if (!change.inOld) {
        const AccessAlert alert = alertOf(list.newer(), change.index);
        if (alert != AccessAlert::None) {
            out += ",\"alert\":\"";
            out += alertKeyword(alert);
            out += '"';
        }
    }
    if (escaped)
        out += ",\"escaped\":true";
    out += '}';
}

bool writeChangeJson(const ChangeList& list, const ReportContext& context, const ByteSink& write) {
    const QByteArray head = headerJson(list, context) + ",\"changes\":[";
    return write(std::string_view(head.constData(), size_t(head.size()))) &&
           writeChanges(list, ",", "", write) && write("]}\n");
}

bool writeChangeJsonLines(const ChangeList& list, const ReportContext& context,
                          const ByteSink& write) {
    const QByteArray head =
        QJsonDocument(changeReportHeader(list, context)).toJson(QJsonDocument::Compact) + '\n';
    return write(std::string_view(head.constData(), size_t(head.size()))) &&
           writeChanges(list, "\n", "\n", write);
}

bool writeChangeHtml(const ChangeList& list, const ReportContext& context, const ByteSink& write) {
    QFile resource(QStringLiteral(":/kestrel/ChangeReport.html"));
    if (!resource.open(QIODevice::ReadOnly))
        throw RuntimeError(ErrorCode::SystemError,
                           QStringLiteral("The report page is missing from Kestrel"));
    const QByteArray page = resource.readAll();
    const qsizetype data = page.indexOf(DataPlaceholder);
    if (data < 0)
        throw RuntimeError(ErrorCode::SystemError, QStringLiteral("The report page is damaged"));
    // The title is text in an element of its own: escaped as HTML.
    const QString title = QStringLiteral("Kestrel: %1 compared with %2")
                              .arg(list.newer().header.rootFolder, list.older().header.rootFolder)
                              .toHtmlEscaped();
    QByteArray before = page.left(data);
    before.replace(TitlePlaceholder, title.toUtf8());
    const QByteArray after = page.mid(data + qsizetype(sizeof DataPlaceholder) - 1);
    const QByteArray head = before + scriptSafe(headerJson(list, context)) + ",\"changes\":[";
    return write(std::string_view(head.constData(), size_t(head.size()))) &&
           writeChanges(list, ",", "", write) && write("]}") &&
           write(std::string_view(after.constData(), size_t(after.size())));
}

bool writeChangeReport(ChangeReportFormat format, const ChangeList& list,
                       const ReportContext& context, const ByteSink& write) {
    switch (format) {
    case ChangeReportFormat::Html:
        return writeChangeHtml(list, context, write);
    case ChangeReportFormat::Json:
        return writeChangeJson(list, context, write);
    case ChangeReportFormat::JsonLines:
        return writeChangeJsonLines(list, context, write);
    }
    return false;
}

ChangeReportFormat changeReportFormatFor(const QString& path) {
    if (path.endsWith(QLatin1String(".jsonl"), Qt::CaseInsensitive))
        return ChangeReportFormat::JsonLines;
    if (path.endsWith(QLatin1String(".json"), Qt::CaseInsensitive))
        return ChangeReportFormat::Json;
    return ChangeReportFormat::Html;
}

Outcome writeChangeReportFile(const QString& path, ChangeReportFormat format,
                              const ChangeList& list, const ReportContext& context) {
    return guardedOperation(WriteErrorTitle, [&] {
        AtomicFile file(path);
        const ByteSink write = [&file](std::string_view bytes) { return file.append(bytes); };
        if (!file.open() || !writeChangeReport(format, list, context, write) || !file.commit())
            return Outcome::failure(
                UserMessage{WriteErrorTitle, file.errorText(), MessageIcon::Exclamation},
                ErrorCode::SystemError);
        return Outcome::success();
    });
}

} // namespace kestrel::output
