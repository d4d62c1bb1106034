#include "OutputCommands.h"

#include "CommandSupport.h"
#include "TerminalProgress.h"

#include "engine/compare/Compare.h"
#include "engine/compare/ShowMode.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/FolderIndex.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "engine/support/TextDecode.h"
#include "listing/FileList.h"
#include "listing/RowSelection.h"
#include "output/ExportLines.h"
#include "output/Report.h"
#include "output/ShownList.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>

#include <memory>
#include <optional>

namespace kestrel::cli {

using namespace engine;

namespace {

// The words --fields and --sort take for the grid's columns, Name to Version.
const QStringList ColumnWords = {QStringLiteral("name"),     QStringLiteral("folder"),
                                 QStringLiteral("size"),     QStringLiteral("type"),
                                 QStringLiteral("modified"), QStringLiteral("attributes"),
                                 QStringLiteral("version")};
const QString CustomPrefix = QStringLiteral("custom:");

bool usage(const QString& text) {
    printError(QStringLiteral("Usage"), text);
    return false;
}

// The options of the view export and report share.
struct ViewOptions {
    QCommandLineOption compare{
        QStringLiteral("compare"),
        QStringLiteral("Compare with OTHER (a snapshot file or a folder) both ways, as a second "
                       "snapshot window does, and list SNAPSHOT's side."),
        QStringLiteral("OTHER")};
    QCommandLineOption show{
        QStringLiteral("show"),
        QStringLiteral("With --compare: what the list shows, as the show selector: all (the "
                       "default), only (only in SNAPSHOT), both, changed or diffs."),
        QStringLiteral("MODE")};
    QCommandLineOption folder{
        QStringLiteral("folder"),
        QStringLiteral("The folder to list: a path below the snapshot's root, its names as "
                       "kestrel-cli prints them; letter case counts unless the snapshot was "
                       "made on Windows (default /, the top)."),
        QStringLiteral("PATH"), QStringLiteral("/")};
    QCommandLineOption subFolders{
        QStringLiteral("subfolders"),
        QStringLiteral("List the files of every sub-folder too, with the In Folder column "
                       "(View > Files in Sub-Folders; the window's limit of 30,000 entries "
                       "does not apply here).")};
    QCommandLineOption sort{
        QStringLiteral("sort"),
        QStringLiteral("Sort by a column: name, folder, size, type, modified, attributes, "
                       "version, or none (the order of the snapshot file); :desc reverses. "
                       "Default: name, as a click on the Name heading sorts."),
        QStringLiteral("COLUMN[:desc]"), QStringLiteral("name")};
    QCommandLineOption useSettings{
        QStringLiteral("use-settings"),
        QStringLiteral("Take the options stored by Kestrel's options dialog, as the window does: "
                       "what the comparison ignores, whether empty folders are listed and "
                       "whether the sort keys are kept (\"Optimise for speed and capacity\"). "
                       "Without it the comparison counts every attribute but the normal bit "
                       "and ignores nothing else, as kestrel-cli compare does.")};

    // The SNAPSHOT argument and the options.
    void addTo(QCommandLineParser& parser) const {
        parser.addPositionalArgument(QStringLiteral("SNAPSHOT"),
                                     QStringLiteral("A snapshot file or a folder."));
        parser.addOptions({compare, show, folder, subFolders, sort, useSettings});
    }
};

// A folder of a snapshot found by its path.
struct FolderFound {
    int32_t tag = 0;   // its first entry, 0 when it is empty
    QString key;       // "/Top/Sub/", with the snapshot's own spelling of the names
    int32_t entry = 0; // its own entry, 0 for the top
};

// Looks up a path below the root, name by name, matched as the snapshot
// matches its names: exactly when it was made on POSIX, without regard to
// case when it was made on Windows. Names are written as kestrel-cli prints
// them; a name given in bytes that are not UTF-8 is taken as those bytes.
std::optional<FolderFound> findFolder(const Snapshot& s, const QString& path) {
    FolderFound found{folderTag(s, 0), QStringLiteral("/")};
    for (const QString& name : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (found.tag == 0)
            return std::nullopt;
        int32_t index = found.tag;
        const QByteArray given = nativeBytes(name);
        std::string scratch;
        std::string_view wanted(given.constData(), size_t(given.size()));
        if (!isValidUtf8(wanted))
            wanted = storedName(wanted, scratch);
        if (s.locateEntry(index, wanted, s.nameMatching()) == 0 || !s.entries.get(index).isFolder())
            return std::nullopt;
        found.key += s.nameText(index) + QLatin1Char('/');
        found.tag = folderTag(s, index);
        found.entry = index;
    }
    return found;
}

// A snapshot window's view, made without a window: the snapshot, the one it
// is compared with, the listed folder's rows and the description export and
// report read.
class WindowlessView {
public:
    bool open(const QCommandLineParser& p, const ViewOptions& o, ProgressMeter& meter);
    output::ShownList& list() { return m_list; }

private:
    bool openSnapshot(const QString& path, Snapshot& snapshot, ProgressMeter& meter);
    // The --sort option's column and order; false, with the reason printed,
    // when the text names none or the keys it needs are not kept.
    bool parseSort(const QString& text, RowSelection& selection);

    Snapshot m_snapshot;
    Snapshot m_other;
    std::unique_ptr<FileList> m_rows;
    output::ShownList m_list;
};

bool WindowlessView::openSnapshot(const QString& path, Snapshot& snapshot, ProgressMeter& meter) {
    if (!obtainSnapshot(path, snapshot, meter))
        return false;
    // Damaged links are refused before anything walks them, as the window does.
    FolderIndex index;
    const Outcome checked =
        FolderIndex::buildChecked(snapshot, QStringLiteral("Invalid Snapshot"), index);
    if (!checked.ok && checked.message)
        printMessage(*checked.message);
    return checked.ok;
}

bool WindowlessView::open(const QCommandLineParser& p, const ViewOptions& o, ProgressMeter& meter) {
    const bool comparing = p.isSet(o.compare);
    ShowMode mode = ShowMode::None;
    if (p.isSet(o.show)) {
        if (!comparing)
            return usage(QStringLiteral("--show needs --compare"));
        mode = showModeNamed(p.value(o.show)).value_or(ShowMode::None);
        if (mode == ShowMode::None)
            return usage(QStringLiteral("--show takes all, only, both, changed or diffs"));
    } else if (comparing) {
        mode = ShowMode::All;
    }

    settings::Options stored;
    if (p.isSet(o.useSettings))
        settings::SettingsStore().getSettings(stored);
    ListingOptions listing;
    listing.mode = mode;
    listing.subFolders = p.isSet(o.subFolders);
    if (p.isSet(o.useSettings)) {
        listing.keys = !stored.isOn(settings::Key::Faster);
        listing.emptyFolders = stored.isOn(settings::Key::Empty);
    }

    if (!openSnapshot(p.positionalArguments().at(0), m_snapshot, meter))
        return false;
    CompareOptions options =
        p.isSet(o.useSettings) ? stored.compareOptions() : commandLineCompareOptions();
    if (comparing) {
        if (!openSnapshot(p.value(o.compare), m_other, meter))
            return false;
        // A snapshot taken without versions has none to compare.
        if (!m_snapshot.header.versions || !m_other.header.versions)
            options.ignoreVersion = true;
        const int32_t top = m_snapshot.entryCount >= 1 ? 1 : 0;
        const int32_t otherTop = m_other.entryCount >= 1 ? 1 : 0;
        if (top > 0 && otherTop > 0) {
            const Outcome compared =
                CompareSnapshot(m_snapshot, top, m_other, otherTop, true, options, meter);
            if (!succeeded(compared))
                return false;
        }
    }

    const std::optional<FolderFound> folder = findFolder(m_snapshot, p.value(o.folder));
    if (!folder) {
        printError(QStringLiteral("Folder Not Found"),
                   p.value(o.folder) + QStringLiteral(" is not a folder of the snapshot"));
        return false;
    }
    // The window's tree offers no folder its show mode hides.
    if (!folderReachable(m_snapshot, folder->entry, mode)) {
        printError(QStringLiteral("Folder Not Found"),
                   p.value(o.folder) + QStringLiteral(" is not shown with --show ") +
                       p.value(o.show));
        return false;
    }
    // The rows the window lists for this view, in the same order.
    RowSelection selection;
    selection.listing = listing;
    if (!parseSort(p.value(o.sort), selection))
        return false;
    m_rows = std::make_unique<FileList>(m_snapshot);
    selectRows(*m_rows, folder->tag, selection);

    output::ShownList& l = m_list;
    l.snapshot = &m_snapshot;
    l.rows = m_rows.get();
    l.other = comparing ? &m_other : nullptr;
    l.compareOptions = options;
    l.showMode = mode;
    l.inFolderOffered = listing.subFolders;
    l.folderPanel = m_snapshot.header.rootFolder + folder->key.mid(1);
    l.changesPanel = ShowChanges(comparing, comparing, mode, m_rows->counters());
    // An uncompared window's selector shows its first choice, greyed.
    l.showText = showModeText(mode == ShowMode::None ? ShowMode::All : mode);
    l.title = m_snapshot.header.title;
    l.created = m_snapshot.header.created;
    if (comparing) {
        l.otherTitle = m_other.header.title;
        l.otherCreated = m_other.header.created;
    }
    l.fileName = m_snapshot.header.fileName;
    return true;
}

bool WindowlessView::parseSort(const QString& text, RowSelection& selection) {
    QString word = text.toLower();
    bool descending = false;
    if (word.endsWith(QLatin1String(":desc"))) {
        descending = true;
        word.chop(5);
    }
    if (word == QLatin1String("none"))
        return true;
    const int column = int(ColumnWords.indexOf(word));
    if (column < 0)
        return usage(QStringLiteral("--sort takes name, folder, size, type, modified, attributes, "
                                    "version or none, with :desc to reverse"));
    if (!selection.listing.keys && sortNeedsKeys(column)) {
        printError(QStringLiteral("Sorting Restriction"),
                   QStringLiteral("Cannot sort by Size, Modified or Attributes when '") +
                       QString(settings::fasterCaption()).remove(QLatin1Char('&')) +
                       QStringLiteral("' is enabled (see Options and Preferences)."));
        return false;
    }
    selection.sortColumn = column;
    selection.descending = descending;
    return true;
}

// --fields: names or numbers of the grid's columns and custom:TEXT entries,
// in the order written, each checked.
bool parseFields(const QString& text, bool inFolderOffered,
                 std::vector<output::ExportField>& fields) {
    fields.clear();
    int custom = output::ExportField::FirstCustomField;
    std::vector<bool> taken(output::ExportField::FirstCustomField, false);
    for (const QString& part : text.split(QLatin1Char(','))) {
        if (part.startsWith(CustomPrefix, Qt::CaseInsensitive)) {
            if (custom > output::ExportField::LastCustomField)
                return usage(QStringLiteral("--fields takes at most eight custom texts"));
            fields.push_back({custom++, part.mid(CustomPrefix.size()), true});
            continue;
        }
        bool number = false;
        int column = part.trimmed().toInt(&number);
        if (!number)
            column = int(ColumnWords.indexOf(part.trimmed().toLower()));
        if (column < 0 || column >= output::ExportField::FirstCustomField)
            return usage(
                QStringLiteral("--fields: \"%1\" is not a column (name, folder, size, type, "
                               "modified, attributes, version, 0 to 6) nor custom:TEXT")
                    .arg(part));
        if (column == InFolderColumn && !inFolderOffered)
            return usage(QStringLiteral("--fields: the folder column needs --subfolders"));
        if (taken[size_t(column)])
            return usage(QStringLiteral("--fields: \"%1\" is named twice").arg(part));
        taken[size_t(column)] = true;
        fields.push_back({column, QString(), true});
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
                       "numbers 0 to 6, and up to eight custom:TEXT entries written as they stand. "
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
        usage(QStringLiteral("--separator takes none, comma, tab or space"));
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

int reportCommand(const QStringList& arguments) {
    CommandLine cl(QStringLiteral(
        "Prints the file list of a folder of SNAPSHOT (a snapshot file, or a folder scanned\n"
        "without saving) as Kestrel's Print command does, into a PDF file: the header, one\n"
        "line per row with the columns at the grid's widths, \"End of Report\". Pages are A4\n"
        "with margins of 10 points, as printing to a PDF file gives them, in the grid's font\n"
        "at 8.25 points. The file is written only once the report is complete."));
    QCommandLineParser& p = cl.parser;
    const ViewOptions view;
    view.addTo(p);
    const QCommandLineOption landscape(QStringLiteral("landscape"),
                                       QStringLiteral("Landscape pages (default: portrait)."));
    const QCommandLineOption differences(
        QStringLiteral("differences"),
        QStringLiteral("With --compare: the status panels, the snapshot compared with and the "
                       "show choice in the header, and each row's difference (may need "
                       "--landscape)."));
    const QCommandLineOption pdf(QStringLiteral("pdf"), QStringLiteral("The PDF file to write."),
                                 QStringLiteral("FILE"));
    p.addOptions({landscape, differences, pdf});
    if (!cl.parse(arguments, 1, QStringLiteral("kestrel-cli report SNAPSHOT --pdf FILE [options]")))
        return ExitTrouble;
    if (!p.isSet(pdf)) {
        usage(QStringLiteral("report needs --pdf FILE"));
        return ExitTrouble;
    }
    if (p.isSet(differences) && !p.isSet(view.compare)) {
        usage(QStringLiteral("--differences needs --compare"));
        return ExitTrouble;
    }
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        printError(QStringLiteral("Printing Error"), QStringLiteral("No graphics available"));
        return ExitTrouble;
    }

    TerminalProgress progress;
    ProgressMeter meter(&progress);
    WindowlessView shown;
    if (!shown.open(p, view, meter))
        return ExitTrouble;
    output::ShownList& list = shown.list();
    // The grid's font and widths as a window on this screen would have them.
    list.font = QGuiApplication::font();
    list.font.setPointSizeF(output::GridPointSize);
    const QScreen* screen = QGuiApplication::primaryScreen();
    const double dpi = screen ? screen->logicalDotsPerInchX() : 96.0;
    list.columnTwips = output::shownColumnTwips(list.snapshot->header.versions,
                                                list.inFolderOffered, list.font, dpi);

    output::ReportSettings settings;
    settings.includeDifferences = p.isSet(differences);
    const Outcome printed =
        output::writeReportPdf(QFileInfo(p.value(pdf)).absoluteFilePath(), list, settings,
                               output::defaultPdfLayout(p.isSet(landscape) ? QPageLayout::Landscape
                                                                           : QPageLayout::Portrait),
                               output::PdfResolution, meter);
    if (!succeeded(printed))
        return ExitTrouble;
    return ExitOk;
}

} // namespace kestrel::cli
