#pragma once

#include "engine/model/Snapshot.h"
#include "listing/FileList.h"
#include "listing/RowSelection.h"
#include "output/ShownList.h"

#include <QCommandLineOption>
#include <QCommandLineParser>

#include <memory>

namespace kestrel::engine {
class ProgressMeter;
}

namespace kestrel::cli {

// The options of the view that export and report share.
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
    void addTo(QCommandLineParser& parser) const;
};

// The grid column a --fields or --sort word names (name, folder, size, type,
// modified, attributes, version, permissions, owner, fingerprint, in any
// case); -1 for none.
int columnNamed(const QString& word);

// A snapshot window's view, made without a window: the snapshot, the one it
// is compared with, the listed folder's rows and the description export and
// report read.
class WindowlessView {
public:
    // Opens (and compares) the snapshots and lists the folder the options
    // name. False, with the reason printed, when there is nothing to show.
    bool open(const QCommandLineParser& p, const ViewOptions& o, engine::ProgressMeter& meter);
    output::ShownList& list() { return m_list; }

private:
    bool openSnapshot(const QString& path, engine::Snapshot& snapshot,
                      engine::ProgressMeter& meter);
    // Opens the other snapshot and compares both ways; false, with the
    // reason printed, when either fails.
    bool compareWith(const QString& path, engine::CompareOptions& options,
                     engine::ProgressMeter& meter);
    // The --sort option's column and order; false, with the reason printed,
    // when the text names none or the keys it needs are not kept.
    bool parseSort(const QString& text, engine::RowSelection& selection);
    // What a window shows around its list: panels, titles, show choice.
    void describe(bool comparing, const engine::CompareOptions& options, engine::ShowMode mode,
                  bool subFolders, const QString& folderKey);

    engine::Snapshot m_snapshot;
    engine::Snapshot m_other;
    std::unique_ptr<engine::FileList> m_rows;
    output::ShownList m_list;
};

} // namespace kestrel::cli
