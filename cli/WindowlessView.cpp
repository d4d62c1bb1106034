#include "WindowlessView.h"

#include "CommandSupport.h"

#include "engine/compare/Compare.h"
#include "engine/compare/ShowMode.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/FolderIndex.h"
#include "engine/support/Progress.h"
#include "engine/support/TextDecode.h"
#include "listing/RowSelection.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <optional>

namespace kestrel::cli {

using namespace engine;

namespace {

// The words --fields and --sort take for the grid's columns, Name to Version.
const QStringList ColumnWords = {QStringLiteral("name"),     QStringLiteral("folder"),
                                 QStringLiteral("size"),     QStringLiteral("type"),
                                 QStringLiteral("modified"), QStringLiteral("attributes"),
                                 QStringLiteral("version")};

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

// The show mode of the view: --show, which needs --compare; All when
// comparing without it, None when not comparing. Nothing, with the reason
// printed, when --show is out of place or names no show mode.
std::optional<ShowMode> viewShowMode(const QCommandLineParser& p, const ViewOptions& o) {
    const bool comparing = p.isSet(o.compare);
    if (p.isSet(o.show)) {
        if (!comparing) {
            usageError(QStringLiteral("--show needs --compare"));
            return std::nullopt;
        }
        return namedShowMode(p.value(o.show));
    }
    return comparing ? ShowMode::All : ShowMode::None;
}

// The folder --folder names, as long as the show mode shows it; nothing,
// with the reason printed, otherwise.
std::optional<FolderFound> shownFolder(const Snapshot& snapshot, const QCommandLineParser& p,
                                       const ViewOptions& o, ShowMode mode) {
    const std::optional<FolderFound> folder = findFolder(snapshot, p.value(o.folder));
    if (!folder) {
        printError(QStringLiteral("Folder Not Found"),
                   p.value(o.folder) + QStringLiteral(" is not a folder of the snapshot"));
        return std::nullopt;
    }
    // The window's tree offers no folder its show mode hides.
    if (!folderReachable(snapshot, folder->entry, mode)) {
        printError(QStringLiteral("Folder Not Found"),
                   p.value(o.folder) + QStringLiteral(" is not shown with --show ") +
                       p.value(o.show));
        return std::nullopt;
    }
    return folder;
}

} // namespace

void ViewOptions::addTo(QCommandLineParser& parser) const {
    parser.addPositionalArgument(QStringLiteral("SNAPSHOT"),
                                 QStringLiteral("A snapshot file or a folder."));
    parser.addOptions({compare, show, folder, subFolders, sort, useSettings});
}

int columnNamed(const QString& word) {
    const QString lower = word.toLower();
    if (lower == QLatin1String("permissions"))
        return PermissionsColumn;
    if (lower == QLatin1String("owner"))
        return OwnerColumn;
    if (lower == QLatin1String("fingerprint"))
        return FingerprintColumn;
    return int(ColumnWords.indexOf(lower));
}

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
    const std::optional<ShowMode> mode = viewShowMode(p, o);
    if (!mode)
        return false;

    settings::Options stored;
    if (p.isSet(o.useSettings))
        settings::SettingsStore().getSettings(stored);
    ListingOptions listing;
    listing.mode = *mode;
    listing.subFolders = p.isSet(o.subFolders);
    if (p.isSet(o.useSettings)) {
        listing.keys = !stored.isOn(settings::Key::Faster);
        listing.emptyFolders = stored.isOn(settings::Key::Empty);
    }

    if (!openSnapshot(p.positionalArguments().at(0), m_snapshot, meter))
        return false;
    CompareOptions options =
        p.isSet(o.useSettings) ? stored.compareOptions() : commandLineCompareOptions();
    if (comparing && !compareWith(p.value(o.compare), options, meter))
        return false;

    const std::optional<FolderFound> folder = shownFolder(m_snapshot, p, o, *mode);
    if (!folder)
        return false;
    // The rows the window lists for this view, in the same order.
    RowSelection selection;
    selection.listing = listing;
    if (!parseSort(p.value(o.sort), selection))
        return false;
    m_rows = std::make_unique<FileList>(m_snapshot);
    selectRows(*m_rows, folder->tag, selection);
    describe(comparing, options, *mode, listing.subFolders, folder->key);
    return true;
}

bool WindowlessView::compareWith(const QString& path, CompareOptions& options,
                                 ProgressMeter& meter) {
    if (!openSnapshot(path, m_other, meter))
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
    return true;
}

void WindowlessView::describe(bool comparing, const CompareOptions& options, ShowMode mode,
                              bool subFolders, const QString& folderKey) {
    output::ShownList& l = m_list;
    l.snapshot = &m_snapshot;
    l.rows = m_rows.get();
    l.other = comparing ? &m_other : nullptr;
    l.compareOptions = options;
    l.showMode = mode;
    l.inFolderOffered = subFolders;
    l.accessOffered = !m_snapshot.access.empty();
    l.fingerprintsOffered = m_snapshot.fingerprints.taken();
    l.folderPanel = m_snapshot.header.rootFolder + folderKey.mid(1);
    l.changesPanel =
        ShowChanges(comparing, comparing, mode, m_rows->counters(), m_snapshot.ignoredCount);
    // An uncompared window's selector shows its first choice, greyed.
    l.showText = showModeText(mode == ShowMode::None ? ShowMode::All : mode);
    l.title = m_snapshot.header.title;
    l.created = m_snapshot.header.created;
    if (comparing) {
        l.otherTitle = m_other.header.title;
        l.otherCreated = m_other.header.created;
    }
    l.fileName = m_snapshot.header.fileName;
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
    const int column = columnNamed(word);
    if (column < 0)
        return usageError(
            QStringLiteral("--sort takes name, folder, size, type, modified, attributes, "
                           "permissions, owner, version, fingerprint or none, with :desc to "
                           "reverse"));
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

} // namespace kestrel::cli
