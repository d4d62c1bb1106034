#include "Commands.h"

#include "CommandSupport.h"
#include "TerminalProgress.h"
#include "WindowlessView.h"

#include "engine/support/Progress.h"
#include "output/ExportLines.h"

#include <QFile>
#include <QFileInfo>

namespace kestrel::cli {

using namespace engine;

namespace {

const QString CustomPrefix = QStringLiteral("custom:");

// --fields: names or numbers of the grid's columns and custom:TEXT entries,
// in the order written, each checked.
bool parseFields(const QString& text, bool inFolderOffered,
                 std::vector<output::ExportField>& fields) {
    fields.clear();
    int custom = output::ExportField::FirstCustomField;
    std::vector<bool> taken(engine::GridColumnCount, false);
    for (const QString& part : text.split(QLatin1Char(','))) {
        if (part.startsWith(CustomPrefix, Qt::CaseInsensitive)) {
            if (custom > output::ExportField::LastCustomField)
                return usageError(QStringLiteral("--fields takes at most eight custom texts"));
            fields.push_back({custom++, part.mid(CustomPrefix.size()), true});
            continue;
        }
        bool number = false;
        int column = part.trimmed().toInt(&number);
        if (!number)
            column = columnNamed(part.trimmed());
        const bool extra =
            column == PermissionsColumn || column == OwnerColumn || column == FingerprintColumn;
        if ((column < 0 || column >= output::ExportField::FirstCustomField) && !extra)
            return usageError(
                QStringLiteral("--fields: \"%1\" is not a column (name, folder, size, type, "
                               "modified, attributes, version, 0 to 6, permissions, owner, "
                               "fingerprint) "
                               "nor custom:TEXT")
                    .arg(part));
        if (column == InFolderColumn && !inFolderOffered)
            return usageError(QStringLiteral("--fields: the folder column needs --subfolders"));
        if (taken[size_t(column)])
            return usageError(QStringLiteral("--fields: \"%1\" is named twice").arg(part));
        taken[size_t(column)] = true;
        fields.push_back({output::ExportField::numberOf(column), QString(), true});
    }
    return true;
}

bool writeToStandardOutput(output::ExportLines& lines) {
    QFile out;
    return out.open(stdout, QIODevice::WriteOnly) && output::writeExportLines(lines, out) &&
           out.flush();
}

} // namespace

int exportCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Writes the file list of a folder of SNAPSHOT (a snapshot file, or a folder scanned\n"
        "without saving) as the Export dialog writes it: one line per row of the list, in\n"
        "the list's order, no heading line, lines ending in CR LF, UTF-8. A grid value has its\n"
        "leading blanks removed and is put in double quotes with --quotes; one that holds the\n"
        "separator, a double quote, a carriage return or a line feed is always quoted, its\n"
        "quotes doubled (as RFC 4180 has it). Custom text is written as it stands."));
    QCommandLineParser& p = cl.parser;
    const ViewOptions view;
    view.addTo(p);
    const QCommandLineOption fields(
        QStringLiteral("fields"),
        QStringLiteral("The fields of a line, separated by commas: name, folder (needs "
                       "--subfolders), size, type, modified, attributes, version, or the column "
                       "numbers 0 to 6; permissions, owner and fingerprint (empty for a snapshot "
                       "without them); and up to eight custom:TEXT entries written as they stand. "
                       "Default: every column the Export dialog starts with, Name to Version."),
        QStringLiteral("LIST"));
    const QCommandLineOption separator(
        QStringLiteral("separator"), QStringLiteral("Between fields: none, comma, tab or space."),
        QStringLiteral("none|comma|tab|space"), QStringLiteral("comma"));
    const QCommandLineOption quotes(QStringLiteral("quotes"),
                                    QStringLiteral("Put every grid value in double quotes."));
    const QCommandLineOption numeric(
        QStringLiteral("numeric-attributes"),
        QStringLiteral("Write the attributes as their number (empty when the sort keys are not "
                       "kept, see --use-settings)."));
    const QCommandLineOption output(QStringLiteral("output"),
                                    QStringLiteral("Write to FILE, replaced only once complete "
                                                   "(default: standard output)."),
                                    QStringLiteral("FILE"));
    p.addOptions({fields, separator, quotes, numeric, output});
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli export SNAPSHOT [options]")))
        return ExitTrouble;

    const int separatorPosition = int(QStringList{QStringLiteral("none"), QStringLiteral("comma"),
                                                  QStringLiteral("tab"), QStringLiteral("space")}
                                          .indexOf(p.value(separator).toLower()));
    if (separatorPosition < 0) {
        usageError(QStringLiteral("--separator takes none, comma, tab or space"));
        return ExitTrouble;
    }
    std::vector<output::ExportField> chosen = output::exportFields(p.isSet(view.subFolders));
    if (p.isSet(fields) && !parseFields(p.value(fields), p.isSet(view.subFolders), chosen))
        return ExitTrouble;

    TerminalProgress progress;
    ProgressMeter meter(&progress);
    WindowlessView shown;
    if (!shown.open(p, view, meter))
        return ExitTrouble;
    output::ExportChoices choices;
    choices.separator = output::separatorText(separatorPosition);
    choices.quotes = p.isSet(quotes);
    choices.numericAttributes = p.isSet(numeric);
    output::ExportLines lines(shown.list(), std::move(chosen), choices);
    if (p.isSet(output)) {
        const Outcome written =
            output::writeExportFile(QFileInfo(p.value(output)).absoluteFilePath(), lines);
        if (!succeeded(written))
            return ExitTrouble;
    } else if (!writeToStandardOutput(lines)) {
        printError(QStringLiteral("Error Writing Snapshot"),
                   QStringLiteral("Cannot write to standard output"));
        return ExitTrouble;
    }
    return ExitOk;
}

} // namespace kestrel::cli
