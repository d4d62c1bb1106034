#pragma once

#include "engine/FileList.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace kestrel::output {

// The cell texts of a file list as UTF-8, byte for byte what
// FileList::cellText gives, made fast enough to export a million rows: ASCII
// names and types are copied from the snapshot's pools without a detour
// through QString, sizes are grouped by hand where that is proven to give
// the locale's text, and the texts that repeat (dates per day, times per
// second, attribute texts, In Folder paths) are made once. Anything the
// short cuts cannot vouch for takes cellText itself.
//
// It reads the default locale when it is made; one thread at a time.
class CellWriter {
public:
    // rows lists entries of snapshot; both must outlive the writer.
    CellWriter(const engine::Snapshot& snapshot, const engine::FileList& rows);
    ~CellWriter();
    CellWriter(const CellWriter&) = delete;
    CellWriter& operator=(const CellWriter&) = delete;

    // Appends the text of a cell of columns Name to Version or a hidden key.
    void append(int32_t row, int column, QByteArray& out);

private:
    void appendName(const engine::SnapshotEntry& entry, int32_t row, QByteArray& out);
    void appendType(const engine::SnapshotEntry& entry, int32_t row, QByteArray& out);
    void appendSize(const engine::SnapshotEntry& entry, QByteArray& out);
    void appendModified(double oleDate, QByteArray& out);
    void appendSlow(int32_t row, int column, QByteArray& out);

    const engine::Snapshot& m_snapshot;
    const engine::FileList& m_rows;
    // Sizes: grouped by hand with this separator (or none) when that gives
    // what the locale gives for every sample; otherwise formatted slowly.
    bool m_fastSizes = false;
    QByteArray m_groupSeparator;
    // The date text of each day met, the time text of each second met.
    std::unordered_map<int64_t, QByteArray> m_days;
    std::vector<QByteArray> m_times;
    std::vector<bool> m_timeKnown;
    std::unordered_map<int, QByteArray> m_attributes;
    // The In Folder text of the last row, identified by where its text lives.
    const QString* m_folder = nullptr;
    QByteArray m_folderText;
};

} // namespace kestrel::output
