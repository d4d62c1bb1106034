#pragma once

#include <QString>

#include <string>
#include <string_view>

namespace kestrel::engine {

// Kestrel writes text as UTF-8 and reads each item as UTF-8 when its bytes
// are valid UTF-8, otherwise as Windows-1252, so that files written by the
// Windows program stay readable.

bool isValidUtf8(std::string_view bytes);

// The length of the valid UTF-8 sequence at p (p < end), 0 when none starts
// there: a stray continuation byte, an overlong form, a surrogate, a code
// point past U+10FFFF or a sequence cut off by end.
int utf8SequenceLength(const unsigned char* p, const unsigned char* end);

// Windows-1252 bytes as UTF-8. The five bytes the code page leaves undefined
// become the C1 control characters of the same value, as Windows maps them.
std::string windows1252ToUtf8(std::string_view bytes);

// The bytes as stored text: unchanged when valid UTF-8, else converted from
// Windows-1252. Returns true when the bytes had to be converted.
bool toStoredText(std::string_view bytes, std::string& converted);

QString decodeText(std::string_view bytes);

// Valid UTF-8 as text, every character kept. Qt's own conversion takes a
// U+FEFF at the very start of what it converts for a byte-order mark and
// drops it; at the start of a name (or of a run of one) it is a character,
// and a file whose name starts with it is another file than the one without.
QString utf8Text(std::string_view utf8);

} // namespace kestrel::engine
