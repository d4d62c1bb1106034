#pragma once

#include "engine/support/Errors.h"

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kestrel::output {

class ChangeList;
struct Change;

// The machine-readable and the browsable forms of a change list, schema 1:
//
// - JSON: one document, {"schema": 1, "old": {...}, "new": {...},
//   "options": {...}, "counts": {...}, "summary": "...", "colours": {...},
//   "changes": [change, ...]}.
// - JSON lines: the same header object first (without "changes"), then one
//   change object a line.
// - HTML: one self-contained page (the template kept as a resource) with
//   the JSON document inside, a folder tree, and a table that sorts and
//   filters in the browser.
//
// A change object: "change" (the text report's sign: + - ~ > ?), "kind"
// (added, removed, changed, content, moved, unreadable), "path" (NEW's, OLD's
// for removed; folders end with "/"), "folder", "from" (a moved entry's path
// in OLD), "old" and "new" (the entry's values on each side it is on: size in
// bytes, modified as ISO 8601 with the offset from UTC, attributes as names,
// version, and where recorded fingerprint, permissions, owner, target; null
// for a value the scan could not read), "fields" (the names of the values
// that changed) and, for each of them, a member of that name holding
// {"old": ..., "new": ...}; "alert" (setuid, setgid, world-writable) for an
// entry of NEW whose access calls for attention; "escaped": true when the
// path holds bytes that are not UTF-8, written \xHH.

// Where the two snapshots came from, and the colours the window paints
// changes in, for the page ("#rrggbb").
struct ReportContext {
    QString oldFile; // empty for a folder scanned without saving
    QString newFile;
    QString changedColour = QStringLiteral("#00ffff");
    QString unmatchedColour = QStringLiteral("#ff0000");

    // The colours as the options keep them (0xRRGGBB).
    void setColours(uint32_t changed, uint32_t unmatched) {
        changedColour = QString::asprintf("#%06x", unsigned(changed & 0xFFFFFF));
        unmatchedColour = QString::asprintf("#%06x", unsigned(unmatched & 0xFFFFFF));
    }
};

// Everything but the changes: both snapshots, the options and patterns, the
// counts, the summary and the colours.
QJsonObject changeReportHeader(const ChangeList& list, const ReportContext& context);

// One change as a compact JSON object, appended to out.
void appendChangeObject(const ChangeList& list, const Change& change, std::string& out);

using ByteSink = std::function<bool(std::string_view)>;
bool writeChangeJson(const ChangeList& list, const ReportContext& context, const ByteSink& write);
bool writeChangeJsonLines(const ChangeList& list, const ReportContext& context,
                          const ByteSink& write);
bool writeChangeHtml(const ChangeList& list, const ReportContext& context, const ByteSink& write);

enum class ChangeReportFormat { Html, Json, JsonLines };
// The report in a format, handed to write piece by piece.
bool writeChangeReport(ChangeReportFormat format, const ChangeList& list,
                       const ReportContext& context, const ByteSink& write);
// The format a file name asks for: .json, .jsonl, anything else HTML.
ChangeReportFormat changeReportFormatFor(const QString& path);

// Writes the report to path as one atomic file: a failure leaves whatever
// was there before.
engine::Outcome writeChangeReportFile(const QString& path, ChangeReportFormat format,
                                      const ChangeList& list, const ReportContext& context);

} // namespace kestrel::output
