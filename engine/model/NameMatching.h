#pragma once

#include <QString>

#include <cstdint>
#include <string_view>

namespace kestrel::engine {

// How the names of a snapshot are told apart wherever two are matched: the
// comparison, the look-up of a name in a folder ring, tree keys and the
// synchronised windows.
//
// On POSIX a name is any sequence of bytes and file systems are
// case-sensitive: run.sh and RUN.sh are two files, so a snapshot whose root
// is a POSIX path ("/...") matches names exactly, byte for byte. A snapshot
// made on Windows (a drive letter or a backslash root) comes from file
// systems that cannot hold two names differing only in case, and matches
// them without regard to case; so does a pair with one such side, since its
// names may have been written in any case.
enum class NameMatching : uint8_t {
    Exact,
    IgnoreCase,
};

// The rule of a snapshot with this root folder.
inline NameMatching nameMatchingOfRoot(const QString& rootFolder) {
    return rootFolder.startsWith(QLatin1Char('/')) ? NameMatching::Exact : NameMatching::IgnoreCase;
}

// The rule of two snapshots matched with each other.
inline NameMatching combinedMatching(NameMatching a, NameMatching b) {
    return a == NameMatching::Exact && b == NameMatching::Exact ? NameMatching::Exact
                                                                : NameMatching::IgnoreCase;
}

// Whether two stored names (or keys, or paths) are the same under the rule.
bool namesMatch(std::string_view a, std::string_view b, NameMatching matching);

// A hash under the rule: names that match give equal hashes.
uint64_t matchingHash(std::string_view name, NameMatching matching);

// The rule as Qt's case sensitivity, for texts compared as QStrings. Stored
// names are valid UTF-8, so equal QStrings are equal bytes.
inline Qt::CaseSensitivity caseSensitivity(NameMatching matching) {
    return matching == NameMatching::Exact ? Qt::CaseSensitive : Qt::CaseInsensitive;
}

} // namespace kestrel::engine
