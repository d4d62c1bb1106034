#pragma once

#include <QString>

namespace kestrel::test {

// Writes the fuzzers' seed inputs into folder: real files of the kinds each
// target reads, made the way the tests make them (snapshots saved by the
// engine, loaded and saved again, v2 files, PE images with a version
// resource, a Kestrel.ini written by IniFile), one sub-folder per kind:
// snapshot, v2, pe, ini, side (side data). Returns false when a file could not be written.
bool writeSeeds(const QString& folder);

} // namespace kestrel::test
