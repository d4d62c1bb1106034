#include "EntryText.h"

#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"
#include "engine/support/TextFormats.h"

namespace kestrel::cli {

using namespace engine;

namespace {

// The path of a folder below the root as the command line prints it, "./"
// for the root.
QString folderPath(const Snapshot& s, int32_t folder) {
    return folder == 0 ? QStringLiteral("./") : s.relativePath(folder);
}

} // namespace

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

QString plainNumber(double value) {
    return QString::number(value, 'f', 0);
}

QString textOf(std::string_view utf8) {
    return QString::fromUtf8(utf8.data(), qsizetype(utf8.size()));
}

QString sizeText(const SnapshotEntry& e) {
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : plainNumber(e.size);
}
QString modifiedIsoText(const SnapshotEntry& e) {
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : isoDateTime(e.modified);
}
QString attributesText(const SnapshotEntry& e) {
    return e.valuesUnknown() ? QString::fromLatin1(UnknownValueText) : AttributeText(e.attributes);
}

QString unreadableText(const Snapshot& s, int32_t marker) {
    return escapedPath(folderPath(s, s.entry(marker).parent)) + QStringLiteral(" (unreadable)");
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
        case '"':
            out += QStringLiteral("\\\"");
            break;
        case '\\':
            out += QStringLiteral("\\\\");
            break;
        case '\n':
            out += QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        case '\t':
            out += QStringLiteral("\\t");
            break;
        default:
            if (c.unicode() < 0x20)
                out += QString::asprintf("\\u%04x", c.unicode());
            else
                out += c;
        }
    }
    return out + QLatin1Char('"');
}

} // namespace kestrel::cli
