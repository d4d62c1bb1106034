#pragma once

#include "engine/FileList.h"

#include <QByteArray>
#include <QLocale>
#include <QString>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace kestrel::output {

// Bytes of lines being made: appending costs a copy and nothing else, which
// counts when a million lines of short pieces are made.
class LineBuffer {
public:
    void append(const char* data, size_t size) {
        // An empty piece may come with no storage at all.
        if (size == 0)
            return;
        if (m_bytes.size() - m_used < size)
            grow(size);
        std::memcpy(m_bytes.data() + m_used, data, size);
        m_used += size;
    }
    void append(std::string_view text) { append(text.data(), text.size()); }
    void append(const QByteArray& bytes) { append(bytes.constData(), size_t(bytes.size())); }
    void append(char c) { append(&c, 1); }

    const char* data() const { return m_bytes.data(); }
    size_t size() const { return m_used; }
    char at(size_t index) const { return m_bytes[index]; }
    // Takes out count bytes from index on.
    void erase(size_t index, size_t count);
    // Drops everything from index on.
    void truncate(size_t index) { m_used = std::min(m_used, index); }
    // Empty, its room kept.
    void clear() { m_used = 0; }
    QByteArray toByteArray() const { return QByteArray(data(), qsizetype(m_used)); }

private:
    void grow(size_t needed);

    std::vector<char> m_bytes;
    size_t m_used = 0;
};

// Texts made once and kept by a number, back to back in one block: a
// million lookups touch little memory.
class TextTable {
public:
    explicit TextTable(size_t keys = 0) : m_places(keys, Unknown) {}
    bool has(size_t key) const { return m_places[key] != Unknown; }
    std::string_view at(size_t key) const {
        const uint64_t place = m_places[key];
        return {m_bytes.data() + (place >> 32), size_t(place & 0xFFFFFFFFu)};
    }
    void put(size_t key, const QByteArray& text);

private:
    static constexpr uint64_t Unknown = ~uint64_t(0);
    std::vector<uint64_t> m_places; // start << 32 | length
    std::vector<char> m_bytes;
};

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
    void append(int32_t row, int column, LineBuffer& out);
    // Asks for the memory of the entries and names of the rows after row
    // ahead of their cells: rows sorted by name lie all over the snapshot.
    void prefetch(int32_t row) const;

private:
    void appendName(const engine::SnapshotEntry& entry, int32_t row, LineBuffer& out);
    void appendType(const engine::SnapshotEntry& entry, int32_t row, LineBuffer& out);
    void appendSize(const engine::SnapshotEntry& entry, LineBuffer& out);
    void appendModified(double oleDate, LineBuffer& out);
    void appendSlow(int32_t row, int column, LineBuffer& out);

    const engine::Snapshot& m_snapshot;
    const engine::FileList& m_rows;
    const QLocale m_locale;
    const QString m_timeFormat;
    // Sizes: grouped by hand with this separator (or none) when that gives
    // what the locale gives for every sample; otherwise formatted slowly.
    bool m_fastSizes = false;
    QByteArray m_groupSeparator;
    // The date text of each day met, by its number from the first kept
    // (other days are rare and made each time), and whether the day has its
    // local times unchanged by a clock change; the time text of each second
    // met.
    TextTable m_days;
    std::vector<bool> m_regularDays;
    TextTable m_times;
    // By attribute bits, and by the list's folder number.
    TextTable m_attributes;
    TextTable m_folders;
};

} // namespace kestrel::output
