#pragma once

#include "listing/FileList.h"

#include <QByteArray>
#include <QLocale>
#include <QString>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
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
    void append(char c) {
        if (m_used == m_bytes.size())
            grow(1);
        m_bytes[m_used++] = c;
    }
    // Appends count bytes for the caller to write, and returns where.
    char* extend(size_t count) {
        if (m_bytes.size() - m_used < count)
            grow(count);
        char* at = m_bytes.data() + m_used;
        m_used += count;
        return at;
    }
    // A text of at most PaddedSize bytes from storage that can be read that
    // far whatever the text's length: copied whole, in one move, and only
    // its own bytes kept.
    static constexpr size_t PaddedSize = 16;
    void appendPadded(std::string_view text) {
        if (text.size() > PaddedSize) {
            append(text);
            return;
        }
        if (m_bytes.size() - m_used < PaddedSize)
            grow(PaddedSize);
        std::memcpy(m_bytes.data() + m_used, text.data(), PaddedSize);
        m_used += text.size();
    }

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

// Texts made once and kept by a number, back to back in one block, each
// with a few bits of what is known about it: a million lookups touch little
// memory. The block ends in LineBuffer::PaddedSize spare bytes, so that any
// text can be appended padded.
class TextTable {
public:
    TextTable() : m_bytes(LineBuffer::PaddedSize) {}
    bool has(size_t key) const { return key < m_places.size() && m_places[key] != Unknown; }
    std::string_view at(size_t key) const {
        const uint64_t place = m_places[key];
        return {m_bytes.data() + (place >> 32), size_t((place >> 8) & 0xFFFFFF)};
    }
    uint8_t flags(size_t key) const { return uint8_t(m_places[key]); }
    // A text of up to 16 MB. The table grows to hold the keys put.
    void put(size_t key, const QByteArray& text, uint8_t flags = 0);

private:
    static constexpr uint64_t Unknown = ~uint64_t(0);
    std::vector<uint64_t> m_places; // start << 32 | length << 8 | flags
    std::vector<char> m_bytes;
};

// The cell texts of a file list as UTF-8, byte for byte what
// FileList::cellText gives, made fast enough to export a million rows: ASCII
// names and types are copied from the snapshot's pools without a detour
// through QString, sizes are grouped and times written by hand where that
// is proven to give the locale's text, and the texts that repeat (dates per
// day, attribute texts, In Folder paths, permissions and owners, and times
// per second where the locale's format is not understood) are made once. Anything the short cuts
// cannot vouch for takes cellText itself.
//
// It also tells whether a text holds one of a few bytes the caller names
// (the export's separator, quotes and line breaks), found as the text is
// made or kept with it, so that no text is searched twice.
//
// It reads the default locale when it is made; one thread at a time.
class CellWriter {
public:
    // rows lists entries of snapshot; both must outlive the writer.
    CellWriter(const engine::Snapshot& snapshot, const engine::FileList& rows,
               std::string_view watchedBytes = {});
    ~CellWriter();
    CellWriter(const CellWriter&) = delete;
    CellWriter& operator=(const CellWriter&) = delete;

    // Appends the text of a cell of any column; true when the text holds one
    // of the watched bytes.
    bool append(int32_t row, int column, LineBuffer& out);
    // Asks for the memory of the entries and names of the rows after row
    // ahead of their cells: rows sorted by name lie all over the snapshot.
    void prefetch(int32_t row) const;

private:
    // What a byte is, as a set of bits.
    enum ByteClass : uint8_t {
        NotAscii = 1,
        Watched = 2,
    };
    // The classes of the bytes of a text, together.
    uint8_t classesOf(std::string_view text) const {
        uint8_t classes = 0;
        for (const char c : text)
            classes |= m_classes[uint8_t(c)];
        return classes;
    }
    bool watched(std::string_view text) const { return classesOf(text) & Watched; }
    bool watched(const QByteArray& text) const {
        return watched(std::string_view(text.constData(), size_t(text.size())));
    }

    // The classes of an entry's name, worked out once for its Name and Type.
    uint8_t nameClasses(const engine::SnapshotEntry& entry, std::string_view name) {
        if (&entry != m_classesEntry) {
            m_classesEntry = &entry;
            m_nameClasses = classesOf(name);
        }
        return m_nameClasses;
    }

    bool appendName(const engine::SnapshotEntry& entry, int32_t row, LineBuffer& out);
    bool appendType(const engine::SnapshotEntry& entry, int32_t row, LineBuffer& out);
    bool appendSize(const engine::SnapshotEntry& entry, LineBuffer& out);
    bool appendModified(double oleDate, LineBuffer& out);
    bool appendTime(int secondOfDay, LineBuffer& out);
    bool appendAccess(int32_t row, int column, LineBuffer& out);
    bool appendSlow(int32_t row, int column, LineBuffer& out);
    bool appendText(const QString& text, LineBuffer& out);

    class TimeFormat;

    const engine::Snapshot& m_snapshot;
    const engine::FileList& m_rows;
    const QLocale m_locale;
    const QString m_timeFormat;
    std::array<uint8_t, 256> m_classes{};
    // Sizes: grouped by hand with this separator (or none) when that gives
    // what the locale gives for every sample; otherwise formatted slowly.
    bool m_fastSizes = false;
    QByteArray m_groupSeparator;
    bool m_groupSeparatorWatched = false;
    // Times of day: written by hand from the locale's format when that
    // gives what the locale gives for every sample; otherwise made once per
    // second met and kept.
    std::unique_ptr<TimeFormat> m_fastTimes;
    TextTable m_times;
    // The date text of each day met, by its day number from the first kept
    // (other days are rare and made each time), and whether the day has its
    // local times unchanged by a clock change.
    TextTable m_days;
    // By attribute bits, and by the list's folder number.
    TextTable m_attributes;
    TextTable m_folders;
    // By the number of the entry's access kind: the owner text, and the
    // permissions text three times over, for a file, a folder and a link.
    TextTable m_owners;
    TextTable m_permissions;
    const engine::SnapshotEntry* m_classesEntry = nullptr;
    uint8_t m_nameClasses = 0;
};

} // namespace kestrel::output
