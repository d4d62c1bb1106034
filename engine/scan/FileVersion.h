#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <sys/stat.h>

namespace kestrel::engine {

// The two file-version words of a version resource's fixed file-information
// block (VS_FIXEDFILEINFO dwFileVersionMS and dwFileVersionLS).
struct FixedFileVersion {
    uint32_t mostSignificant = 0;
    uint32_t leastSignificant = 0;
};

// The signed 16-bit halves of a 32-bit value: HighWord is the arithmetic shift
// right by 16, LowWord the low 16 bits taken as signed (0x8000..0xFFFF give
// -32768..-1). A version part of 32768 or more therefore prints negative.
int16_t HighWord(int32_t value);
int16_t LowWord(int32_t value);

// The version text of the words: major "." minor as "00" "." and then either
// the whole least significant word as "0000" (when it is below 1) or its
// halves as "00" "." "00". 5.1.2600.0 gives 5.01.2600.00, 4.0.0.0 gives
// 4.00.0000, 1.2.3.4 gives 1.02.03.04.
std::string formatFileVersion(FixedFileVersion version);

// Finds the fixed file-information block of the RT_VERSION resource in a PE
// image (PE32 or PE32+) held in memory. Every read is bounds-checked: a
// truncated or malformed image gives nullopt, never a read outside the span.
std::optional<FixedFileVersion> parseFixedFileVersion(std::span<const uint8_t> image);

// The same for a file opened relative to dirFd (AT_FDCWD for a plain path),
// reading only the parts it needs. listed is what lstat said of the name
// (looked up here when not given): only a regular file is opened, never
// through a link, and read only when it is still that same file. "" when
// the file is not a PE image, has no version resource or cannot be read.
std::string fileVersionTextAt(int dirFd, const char* name, const struct stat* listed = nullptr);

// GetFileVersionText: the version text of the file at path, "" when none.
QString GetFileVersionText(const QString& path);

} // namespace kestrel::engine
