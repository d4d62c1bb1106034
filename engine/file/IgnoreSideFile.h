#pragma once

#include "FileWriting.h"

#include <QString>

#include <string>

namespace kestrel::engine {

class Snapshot;
struct SnapshotHeader;

// A snapshot's own ignore patterns (SnapshotHeader::ownIgnorePatterns) live
// beside its file, in NAME.#NN.ignore, since the snapshot file's format
// stays as it is. The side file begins with a line naming the snapshot it
// belongs to (root folder and creation time, as the snapshot file writes
// them) and holds the patterns after it, byte for byte. A side file that
// names another snapshot, one left by an earlier save of the name that was
// cut short or made by a program that knows no side files, is not read.
QString ignoreSideFilePath(const QString& snapshotFile);

// Writes the side file of a snapshot together with its file: prepare()
// before the snapshot file is committed, commit() right after. While the
// snapshot file is written the old side file stays as it was, so a failed or
// interrupted save leaves both old files; the new side file takes its name
// only once the new snapshot file has taken its own. A snapshot without
// patterns removes the side file of the one it replaces.
class IgnoreSideFile {
public:
    explicit IgnoreSideFile(const SnapshotHeader& header);

    // Writes the new side file under a temporary name. False, with
    // errorText(), when it cannot be written; the snapshot file should then
    // not be committed either.
    bool prepare();
    // Puts the new side file in place, or removes a stale one. False, with
    // errorText(), when that fails; the snapshot file is saved by then.
    bool commit();
    const QString& errorText() const { return m_writer.errorText(); }

private:
    const SnapshotHeader& m_header;
    SideFileWriter m_writer;
};

// Reads the side file of a snapshot just loaded into its header's
// ownIgnorePatterns, when there is one that belongs to it (a regular file,
// never reached through a link). Anything else leaves them empty.
void LoadIgnoreSideFile(Snapshot& snapshot);

} // namespace kestrel::engine
