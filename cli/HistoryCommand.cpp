#include "Commands.h"

#include "CommandSupport.h"
#include "ComparisonOptions.h"
#include "EntryText.h"
#include "TerminalProgress.h"

#include "engine/compare/Compare.h"
#include "engine/compare/History.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "output/PathOrder.h"

#include <QFileInfo>
#include <QTextStream>

#include <algorithm>

namespace kestrel::cli {

using output::pathSortKey;
using output::sortByPath;

using namespace engine;

namespace {

const QString Description = QStringLiteral(
    "Shows the history of a folder from its numbered snapshot files: each snapshot\n"
    "is compared with the one before it, as compare does with the same options, and\n"
    "every entry that ever changed is listed once with its state in each snapshot.\n"
    "Given one file NAME.#NN, the history holds every NAME.#NN beside it, by number;\n"
    "given several, those, by number. A file that cannot be read is reported and\n"
    "left out: the snapshots on either side of it are compared with each other.\n"
    "\n"
    "Text: a heading line (\"path\" and each snapshot's #NN), then one line a path\n"
    "with a cell for each snapshot, separated by tabs: the size (\"dir\" for a\n"
    "folder), \"-\" where the entry was absent, \"?\" for a snapshot that could not be\n"
    "read; a size begins with + where the entry came, > where it moved in from\n"
    "elsewhere, ~ where it changed, and ! comes first where the change calls for\n"
    "attention (a new set-user-ID, set-group-ID or world-writable entry), as in\n"
    "compare. csv: path, then for each snapshot its size and its change (added,\n"
    "removed, changed, moved in, moved out or empty), and where the snapshots\n"
    "recorded them its permissions and owner. jsonl: a first object with\n"
    "\"schema\": 1 and the snapshots, then an object a path with its \"states\", one\n"
    "for each snapshot: with the values compare gives an entry (\"permissions\",\n"
    "\"owner\" and a link's \"target\" where recorded), and for a change of values\n"
    "the \"fields\" that changed; a change that calls for attention has compare's\n"
    "\"alert\".\n"
    "--summary prints one line a snapshot instead: its number, created time, title,\n"
    "counts, and what changed since the one before (\"+12 \u22123 ~40, 2 moved\"),\n"
    "new set-user-ID, set-group-ID and world-writable entries first, as compare\n"
    "calls them out.\n"
    "Paths come in path order, as compare prints them.\n"
    "Exit status: 0 nothing changed, 1 something changed, 2 trouble.");

enum class Format { Text, Csv, Jsonl };

// Writes a history in one of the formats.
class HistoryWriter {
public:
    HistoryWriter(const History& history, Format format) : m_history(history), m_format(format) {
        m_out.setEncoding(QStringConverter::Utf8);
    }

    void summary();
    void table(const std::vector<int32_t>& paths);
    // The records of each path, made once.
    const std::vector<std::vector<int32_t>>& recordsByPath() const { return m_byPath; }

private:
    int32_t changeAt(const std::vector<int32_t>& pathRecords, int g) const {
        return History::changeAt(m_history, pathRecords, g);
    }
    void textRow(int32_t path, const std::vector<int32_t>& pathRecords);
    void csvRow(int32_t path, const std::vector<int32_t>& pathRecords);
    void jsonRow(int32_t path, const std::vector<int32_t>& pathRecords);
    QString jsonGeneration(const Generation& g) const;
    // The letter ls shows first for the path's state in a record.
    char kindOf(const std::string& path, int32_t record) const {
        return isFolderPath(path) ? 'd' : kindLetter(m_history.records[size_t(record)].attributes);
    }

    const History& m_history;
    const Format m_format;
    // Permissions and owners are columns of the csv only where recorded.
    const bool m_access = m_history.hasAccess();
    const std::vector<std::vector<int32_t>> m_byPath = m_history.recordsByPath();
    QTextStream m_out{stdout};
};

QString HistoryWriter::jsonGeneration(const Generation& g) const {
    QString text =
        QStringLiteral("{\"number\":%1,\"file\":%2").arg(g.number).arg(jsonString(g.path));
    if (!g.readable())
        return text + QStringLiteral(",\"error\":%1}").arg(jsonString(g.error));
    text += QStringLiteral(",\"created\":%1,\"title\":%2,\"files\":%3,\"folders\":%4,"
                           "\"added\":%5,\"removed\":%6,\"changed\":%7,"
                           "\"movedFiles\":%8,\"movedFolders\":%9")
                .arg(jsonString(isoDateTime(g.created)), jsonString(g.title))
                .arg(g.files)
                .arg(g.folders)
                .arg(g.added)
                .arg(g.removed)
                .arg(g.changed)
                .arg(g.movedFiles)
                .arg(g.movedFolders);
    // What calls for attention, by compare's alert keywords.
    return text + QStringLiteral(",\"alerts\":{\"setuid\":%1,\"setgid\":%2,\"world-writable\":%3}}")
                      .arg(g.access.setUserId)
                      .arg(g.access.setGroupId)
                      .arg(g.access.worldWritable);
}

void HistoryWriter::summary() {
    if (m_format == Format::Csv)
        m_out << "number,file,created,title,files,folders,added,removed,changed,"
                 "moved files,moved folders,new set-user-ID,new set-group-ID,"
                 "new world-writable,error\n";
    bool first = true;
    for (const Generation& g : m_history.generations) {
        switch (m_format) {
        case Format::Text:
            m_out << generationName(g) << '\t';
            if (!g.readable()) {
                m_out << "\t\t\tcould not be read: " << g.error << '\n';
                continue;
            }
            m_out << isoDateTime(g.created) << '\t' << escapedPath(g.title) << '\t'
                  << QStringLiteral("%1 files, %2 folders")
                         .arg(formatCount(g.files), formatCount(g.folders))
                  << '\t' << (first ? QString() : generationChangesText(g)) << '\n';
            break;
        case Format::Csv:
            m_out << g.number << ',' << csvField(g.path) << ',';
            if (g.readable())
                m_out << csvField(isoDateTime(g.created)) << ',' << csvField(g.title) << ','
                      << g.files << ',' << g.folders << ',' << g.added << ',' << g.removed << ','
                      << g.changed << ',' << g.movedFiles << ',' << g.movedFolders << ','
                      << g.access.setUserId << ',' << g.access.setGroupId << ','
                      << g.access.worldWritable << ",\"\"\n";
            else
                m_out << ",,,,,,,,,,,," << csvField(g.error) << '\n';
            break;
        case Format::Jsonl:
            m_out << jsonGeneration(g) << '\n';
            break;
        }
        first = first && !g.readable();
    }
}

void HistoryWriter::table(const std::vector<int32_t>& paths) {
    const std::vector<Generation>& gens = m_history.generations;
    switch (m_format) {
    case Format::Text:
        m_out << "path";
        for (const Generation& g : gens)
            m_out << '\t' << generationName(g);
        m_out << '\n';
        break;
    case Format::Csv:
        m_out << "path";
        for (const Generation& g : gens) {
            m_out << ',' << csvField(generationName(g) + QStringLiteral(" size")) << ','
                  << csvField(generationName(g) + QStringLiteral(" change"));
            if (m_access)
                m_out << ',' << csvField(generationName(g) + QStringLiteral(" permissions")) << ','
                      << csvField(generationName(g) + QStringLiteral(" owner"));
        }
        m_out << '\n';
        break;
    case Format::Jsonl: {
        m_out << "{\"schema\":1,\"generations\":[";
        for (size_t g = 0; g < gens.size(); ++g)
            m_out << (g ? "," : "") << jsonGeneration(gens[g]);
        m_out << "]}\n";
        break;
    }
    }
    for (const int32_t path : paths) {
        const std::vector<int32_t>& pathRecords = m_byPath[size_t(path)];
        if (m_format == Format::Text)
            textRow(path, pathRecords);
        else if (m_format == Format::Csv)
            csvRow(path, pathRecords);
        else
            jsonRow(path, pathRecords);
    }
}

void HistoryWriter::textRow(int32_t path, const std::vector<int32_t>& pathRecords) {
    const std::string& name = m_history.paths[size_t(path)];
    m_out << escapedPath(textOf(name));
    for (int g = 0; g < int(m_history.generations.size()); ++g) {
        m_out << '\t';
        if (!m_history.generations[size_t(g)].readable()) {
            m_out << '?';
            continue;
        }
        const int32_t state = History::stateAt(m_history, pathRecords, g);
        if (state < 0) {
            m_out << '-';
            continue;
        }
        const int32_t change = changeAt(pathRecords, g);
        if (change >= 0) {
            const HistoryRecord::Kind kind = m_history.records[size_t(change)].kind;
            // A change that calls for attention is marked as compare marks it.
            if (m_history.alerts.count(change) > 0)
                m_out << '!';
            m_out << (kind == HistoryRecord::Added     ? "+"
                      : kind == HistoryRecord::MovedIn ? ">"
                                                       : "~");
        }
        const HistoryRecord& r = m_history.records[size_t(state)];
        m_out << (isFolderPath(name) ? QStringLiteral("dir") : plainNumber(r.size));
    }
    m_out << '\n';
}

void HistoryWriter::csvRow(int32_t path, const std::vector<int32_t>& pathRecords) {
    const std::string& name = m_history.paths[size_t(path)];
    m_out << csvField(textOf(name));
    for (int g = 0; g < int(m_history.generations.size()); ++g) {
        if (!m_history.generations[size_t(g)].readable()) {
            m_out << ",\"\",\"unreadable\"" << (m_access ? ",\"\",\"\"" : "");
            continue;
        }
        const int32_t state = History::stateAt(m_history, pathRecords, g);
        const int32_t change = changeAt(pathRecords, g);
        m_out << ','
              << (state < 0 ? QStringLiteral("\"\"")
                            : csvField(plainNumber(m_history.records[size_t(state)].size)))
              << ','
              << csvField(change < 0 ? QString()
                                     : changeText(m_history.records[size_t(change)].kind));
        if (m_access) {
            const std::optional<EntryAccess> access =
                state < 0 ? std::nullopt : m_history.accessOf(state);
            m_out << ','
                  << csvField(access ? permissionsText(access->mode, kindOf(name, state))
                                     : QString())
                  << ',' << csvField(access ? ownerText(access->owner, access->group) : QString());
        }
    }
    m_out << '\n';
}

void HistoryWriter::jsonRow(int32_t path, const std::vector<int32_t>& pathRecords) {
    const std::string& name = m_history.paths[size_t(path)];
    m_out << "{\"path\":" << jsonString(textOf(name))
          << ",\"folder\":" << (isFolderPath(name) ? "true" : "false") << ",\"states\":[";
    for (int g = 0; g < int(m_history.generations.size()); ++g) {
        const Generation& gen = m_history.generations[size_t(g)];
        m_out << (g ? "," : "") << "{\"number\":" << gen.number;
        if (!gen.readable()) {
            m_out << ",\"unreadable\":true}";
            continue;
        }
        const int32_t state = History::stateAt(m_history, pathRecords, g);
        const int32_t change = changeAt(pathRecords, g);
        m_out << ",\"present\":" << (state >= 0 ? "true" : "false");
        if (change >= 0) {
            m_out << ",\"change\":"
                  << jsonString(changeText(m_history.records[size_t(change)].kind));
            if (const auto alert = m_history.alerts.find(change); alert != m_history.alerts.end())
                m_out << ",\"alert\":\"" << alertKeyword(alert->second) << '"';
            if (const int16_t bits = m_history.records[size_t(change)].status; bits > 0) {
                m_out << ",\"fields\":[";
                bool firstField = true;
                for (const ChangedField& field : ChangedFields) {
                    if (!(bits & field.bit))
                        continue;
                    m_out << (firstField ? "\"" : ",\"") << field.key << '"';
                    firstField = false;
                }
                m_out << ']';
            }
            if (const auto moved = m_history.movedWith.find(change);
                moved != m_history.movedWith.end())
                m_out << (m_history.records[size_t(change)].kind == HistoryRecord::MovedIn
                              ? ",\"from\":"
                              : ",\"to\":")
                      << jsonString(textOf(m_history.paths[size_t(moved->second)]));
        }
        if (state >= 0) {
            const HistoryRecord& r = m_history.records[size_t(state)];
            m_out << ",\"size\":" << plainNumber(r.size)
                  << ",\"modified\":" << jsonString(isoDateTime(r.modified))
                  << ",\"attributes\":" << jsonString(AttributeText(r.attributes))
                  << ",\"version\":" << jsonString(textOf(m_history.versions[size_t(r.version)]));
            if (const auto print = m_history.fingerprints.find(state);
                print != m_history.fingerprints.end())
                m_out << ",\"fingerprint\":\""
                      << QString::fromStdString(fingerprintHex(print->second)) << '"';
            if (const std::optional<EntryAccess> access = m_history.accessOf(state))
                m_out << ",\"permissions\":"
                      << jsonString(permissionsText(access->mode, kindOf(name, state)))
                      << ",\"owner\":" << jsonString(ownerText(access->owner, access->group));
            if (const auto target = m_history.linkTargets.find(state);
                target != m_history.linkTargets.end())
                m_out << ",\"target\":" << jsonString(linkTargetText(target->second));
        }
        m_out << '}';
    }
    m_out << "]}\n";
}

// The files of the history: one names its whole series, several are taken
// as they are, by number.
QStringList historyFiles(const QStringList& named) {
    if (named.size() == 1)
        return historySeries(named.front());
    QStringList files = named;
    std::stable_sort(files.begin(), files.end(), [](const QString& a, const QString& b) {
        return snapshotNumberOf(a) < snapshotNumberOf(b);
    });
    return files;
}

// The paths to list: those at or below folder ("" for all), in path order.
std::vector<int32_t> pathsToList(const History& history,
                                 const std::vector<std::vector<int32_t>>& byPath,
                                 const QString& folder) {
    QString prefix = folder;
    while (prefix.startsWith(QLatin1Char('/')))
        prefix.remove(0, 1);
    if (!prefix.isEmpty() && !prefix.endsWith(QLatin1Char('/')))
        prefix += QLatin1Char('/');
    const std::string wanted = prefix.toStdString();
    std::vector<int32_t> paths;
    for (int32_t i = 0; i < int32_t(history.paths.size()); ++i) {
        const std::string& path = history.paths[size_t(i)];
        // Paths named only as where a move went, with no record of their
        // own, have no states to show.
        if (path.compare(0, wanted.size(), wanted) == 0)
            paths.push_back(i);
    }
    std::erase_if(paths, [&](int32_t i) { return byPath[size_t(i)].empty(); });
    sortByPath(paths, [&](int32_t i) { return pathSortKey(textOf(history.paths[size_t(i)])); });
    return paths;
}

} // namespace

int historyCommand(const QStringList& arguments) {
    CommandLine cl(Description);
    QCommandLineParser& p = cl.parser;
    const ComparisonOptions comparison;
    comparison.addTo(p);
    const QCommandLineOption folder(
        QStringLiteral("folder"),
        QStringLiteral("Only entries at or below PATH, a folder below the snapshots' root."),
        QStringLiteral("PATH"));
    const QCommandLineOption format(QStringLiteral("format"),
                                    QStringLiteral("Output format: text, csv or jsonl."),
                                    QStringLiteral("FORMAT"), QStringLiteral("text"));
    const QCommandLineOption summary(
        QStringLiteral("summary"),
        QStringLiteral("Print one line a snapshot with what changed since the one before."));
    p.addOptions({folder, format, summary});
    p.addPositionalArgument(QStringLiteral("FILE"),
                            QStringLiteral("A numbered snapshot file, or several."),
                            QStringLiteral("FILE..."));
    if (!cl.parse(arguments, -1, QStringLiteral("kestrel-cli history FILE... [options]")))
        return ExitTrouble;
    const QString formatName = p.value(format).toLower();
    const Format chosenFormat = formatName == QLatin1String("csv")     ? Format::Csv
                                : formatName == QLatin1String("jsonl") ? Format::Jsonl
                                                                       : Format::Text;
    if (chosenFormat == Format::Text && formatName != QLatin1String("text")) {
        usageError(QStringLiteral("--format takes text, csv or jsonl"));
        return ExitTrouble;
    }
    const std::optional<CompareOptions> options = comparison.chosen(p);
    if (!options)
        return ExitTrouble;

    TerminalProgress view;
    ProgressMeter meter(&view);
    History history;
    try {
        history = buildHistory(historyFiles(p.positionalArguments()), *options, meter);
    } catch (const RuntimeError& e) {
        printError(QStringLiteral("Comparing Snapshots"), e.text());
        return ExitTrouble;
    }
    int readable = 0;
    for (const Generation& g : history.generations) {
        if (g.readable())
            ++readable;
        else
            printLine(stderr, QStringLiteral("%1: %2").arg(g.path, g.error));
    }
    if (readable == 0) {
        printError(QStringLiteral("Invalid Snapshot"),
                   QStringLiteral("none of the snapshot files could be read"));
        return ExitTrouble;
    }
    HistoryWriter writer(history, chosenFormat);
    if (p.isSet(summary)) {
        writer.summary();
    } else {
        const std::vector<int32_t> paths =
            pathsToList(history, writer.recordsByPath(), p.value(folder));
        writer.table(paths);
        printLine(
            stderr,
            QStringLiteral("%1 %2, %3 %4 changed")
                .arg(formatCount(readable),
                     readable == 1 ? QStringLiteral("snapshot") : QStringLiteral("snapshots"),
                     formatCount(double(paths.size())),
                     paths.size() == 1 ? QStringLiteral("entry") : QStringLiteral("entries")));
    }
    return history.anyChanges() ? ExitDifferences : ExitOk;
}

} // namespace kestrel::cli
