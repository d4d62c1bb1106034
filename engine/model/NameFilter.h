#pragma once

#include <QString>

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrel::engine {

class Snapshot;

// What a user types to find entries by name: a text that a name must
// contain, or, when it holds a "*" or "?", a pattern the whole name must
// fit ("*" any run of characters, "?" any one character). Letter case never
// counts. The empty text matches every name.
class NameFilter {
public:
    NameFilter() = default;
    explicit NameFilter(const QString& text);

    bool empty() const { return m_folded.empty(); }
    const QString& text() const { return m_text; }
    // Whether a stored name (UTF-8) passes.
    bool matches(std::string_view name) const;

private:
    bool containsFolded(std::string_view name) const;
    static bool fitsPattern(std::string_view name, std::string_view pattern);

    QString m_text;
    std::string m_folded; // the text case-folded
    bool m_pattern = false;
    // An ASCII text needs no folding of the names it is looked for in: the
    // letters are compared with their case ignored, as they are read.
    bool m_ascii = true;
    mutable std::string m_scratch; // a folded name, reused
};

// The first entry after from in the table's order (depth first, each folder
// followed by its contents), coming round to the start after the last and to
// from itself at the end, whose name passes the filter and for which accept
// says yes; 0 when none does. The nameless entry of an unreadable folder
// never passes.
template <typename Accept>
int32_t findNextEntry(const Snapshot& snapshot, int32_t from, const NameFilter& filter,
                      Accept accept);

} // namespace kestrel::engine

#include "Snapshot.h"

namespace kestrel::engine {

template <typename Accept>
int32_t findNextEntry(const Snapshot& snapshot, int32_t from, const NameFilter& filter,
                      Accept accept) {
    const int32_t last = snapshot.entryCount;
    if (last < 1)
        return 0;
    int32_t index = from < 1 || from > last ? last : from;
    for (int32_t step = 0; step < last; ++step) {
        index = index == last ? 1 : index + 1;
        const SnapshotEntry& e = snapshot.entries.get(index);
        if (e.nameLength > 0 && filter.matches(snapshot.nameOf(e)) && accept(index))
            return index;
    }
    return 0;
}

} // namespace kestrel::engine
