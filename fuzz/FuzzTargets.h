#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kestrel::fuzz {

// The entry points the fuzzers drive, one per reader of outside input. Each
// takes any bytes, returns 0, and aborts only when it finds a fault: the
// sanitizers' reports, an exception that escaped the engine, or a broken
// promise (a table larger than the file can hold, a saved file that does not
// read back as it was saved, two version readers that disagree). The
// regression test feeds them every kept input in the normal test suite.

// LoadSnapshot of the bytes, then every walk the views and the command line
// make over a loaded snapshot.
int snapshotReader(const uint8_t* data, size_t size);
// ImportSnapshot of the bytes as a v2 file, then the same walks.
int versionTwoImport(const uint8_t* data, size_t size);
// The bytes opened as either format, compared with themselves and with a
// small snapshot both ways, and the differences listed.
int compareWithItself(const uint8_t* data, size_t size);
// The bytes opened as either format, saved, and read back: the second read
// must succeed and give what was saved.
int saveAndReadBack(const uint8_t* data, size_t size);
// The version reader over the bytes in memory and as a file: both must give
// the same text.
int peVersion(const uint8_t* data, size_t size);
// Kestrel.ini holding the bytes: reads, then a write that must read back.
int iniReader(const uint8_t* data, size_t size);
// The bytes as the side data of a small snapshot: what is accepted must be
// written again and read back as it was.
int sideDataReader(const uint8_t* data, size_t size);
// The side data of that snapshot with values of every kind: the seed.
std::string smallSideData();

} // namespace kestrel::fuzz
