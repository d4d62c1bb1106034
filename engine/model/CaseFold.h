#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrel::engine {

// Names are compared whole and without regard to letter case, by full Unicode
// case folding of the stored UTF-8 text (ordinal: no locale, no
// normalisation). "Readme.TXT" equals "README.txt", "Ärger" equals "ärger",
// "Straße" equals "STRASSE". Bytes that are not valid UTF-8 compare as
// themselves.

// The folded form of a name: two names are equal exactly when their folded
// forms are byte-for-byte equal.
std::string foldCase(std::string_view utf8);
// The folded form appended to out: no allocation once out has room.
void appendFolded(std::string& out, std::string_view utf8);

bool namesEqual(std::string_view a, std::string_view b);

// A hash of the folded form; equal names give equal hashes.
uint64_t nameHash(std::string_view utf8);

// A hash of the bytes as they stand, mixed as nameHash mixes them, for names
// matched exactly.
uint64_t exactNameHash(std::string_view name);

// True when text begins with prefix, compared the same way.
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);

} // namespace kestrel::engine
