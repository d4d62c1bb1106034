#pragma once

#include <QIODevice>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kestrel::engine {

// Snapshot files are text in the "write" convention: items separated by
// commas, strings in double quotes (a quote inside doubled), numbers in
// invariant form, integral numbers without a point, dates as
// #yyyy-mm-dd hh:mm:ss#, booleans as #TRUE# and #FALSE#, lines ended by
// CR LF. ItemWriter builds such text, ItemReader takes it apart.

class ItemWriter {
public:
    ItemWriter();
    ItemWriter(ItemWriter&&) = default;
    ItemWriter& operator=(ItemWriter&&) = default;

    void string(std::string_view utf8);
    void integer(int64_t value);
    // Integral values without a point; others with at most 15 significant
    // digits, trailing zeros dropped (36954.4270833333).
    void number(double value);
    void boolean(bool value);
    void date(double oleDate);
    void comma() { put(','); }
    void endLine() { raw("\r\n"); }
    void raw(std::string_view text);

    // A line of items in one go, for lines written by the million: room for
    // at most bytes is taken once, the items are put in it one after the
    // other, and the text is kept up to where they ended.
    char* reserve(size_t bytes) { return room(bytes); }
    void keep(const char* end) { m_used = size_t(end - m_buffer.get()); }
    // Each puts one item at `at`, as the member of the same name writes it,
    // and returns where it ends. The most bytes each takes:
    static constexpr size_t IntegerRoom = 20;
    static constexpr size_t NumberRoom = 32;
    static size_t stringRoom(std::string_view utf8) { return 2 * utf8.size() + 2; }
    static char* putInteger(char* at, int64_t value);
    static char* putNumber(char* at, double value);
    static char* putString(char* at, std::string_view utf8);

    // The text gathered so far, and forgetting it once it is written out.
    const char* data() const { return m_buffer.get(); }
    size_t size() const { return m_used; }
    void clear() { m_used = 0; }

private:
    // Room for bytes more; the gathered text grows as needed.
    char* room(size_t bytes) {
        if (m_used + bytes > m_capacity) [[unlikely]]
            grow(m_used + bytes);
        return m_buffer.get() + m_used;
    }
    void grow(size_t needed);
    void put(char c) { *room(1) = c, ++m_used; }

    // Not a std::string: growing one fills the new room with zeros first.
    std::unique_ptr<char[]> m_buffer;
    size_t m_capacity = 0;
    size_t m_used = 0;
};

// One item as read: its text and how it was written.
struct Item {
    enum Kind { Unquoted, Quoted, Hash };
    Kind kind = Unquoted;
    std::string_view text; // valid until the next read
};

// The eight items of an entry line, converted as the item-by-item reading
// converts them; name and version are left as items for toText.
struct EntryLineItems {
    int16_t attributes = 0;
    double modified = 0;
    int32_t nextSibling = 0;
    int32_t count = 0;
    Item name;
    int32_t parent = 0;
    double size = 0;
    Item version;
};

// Reads items from a file in blocks, so a snapshot of millions of entries
// never sits in memory as text. Line ends separate items like commas do; a
// quoted item may run over line ends until its closing quote. Errors raise
// RuntimeError: "Input past end of file" at the end, SystemError on a read
// failure, "Out of string space" for an item or line of more than 64 MiB
// (only a damaged file has one; the reader's memory stays bounded).
class ItemReader {
public:
    explicit ItemReader(QIODevice& device);

    // An entry line as Kestrel writes it, lying whole in the buffer: plain
    // numbers, name and version quoted with no quote doubled, no blanks, a
    // line end after the version. Reads it and returns true; returns false
    // having read nothing for any other line, which next() then takes item
    // by item to the same values (or the error it raises).
    bool plainEntryLine(EntryLineItems& line);

    // The rest of the current line, whole, without its line end.
    std::string_view line();
    Item next();
    // True when nothing but blank space and line ends is left.
    bool atEnd();

    // Conversions of an item to the fields' types, raising "Type mismatch"
    // for text that is not of the type and "Overflow" for a number outside
    // the type's range. Whole-number types round halves to even.
    static int16_t toInt16(const Item& item);
    static int32_t toInt32(const Item& item);
    static double toDouble(const Item& item);
    static bool toBoolean(const Item& item);
    static double toDate(const Item& item);
    // The item as stored text: UTF-8 when valid, else read as Windows-1252.
    static std::string_view toText(const Item& item, std::string& scratch);

private:
    // Makes the byte at m_begin + offset available; false at the end of the file.
    bool available(size_t offset) {
        while (m_begin + offset >= m_end)
            if (!fill())
                return false;
        return true;
    }
    char at(size_t offset) const { return m_buffer[m_begin + offset]; }
    // Keeps the bytes from m_begin, moving them to the front, and reads more.
    bool fill();
    // Reads an item that lies whole in the buffer; false when it does not
    // (or needs the careful reading of escapes and hash items).
    bool nextInBuffer(Item& item);
    // Consumes the comma or line end that ends an item at offset.
    size_t skipDelimiter(size_t offset);

    QIODevice& m_device;
    std::string m_buffer;
    size_t m_begin = 0; // first unread byte
    size_t m_end = 0;   // end of valid data
    bool m_eof = false;
    std::string m_unescaped;
};

} // namespace kestrel::engine
