#pragma once

#include <QtGlobal>

class QFileDevice;
class QIODevice;

namespace kestrel::engine {

// Writes all size bytes of data to device, going on after short writes, so
// that a device out of room fails with its own reason (errorString()).
// False when the device took less.
bool writeWhole(QIODevice& device, const char* data, qint64 size);

// Asks the system to start writing to the disk what was written to file so
// far (from started on, once 8 MiB have gathered; started moves along), so
// that the wait for it all when the file is committed is short: the disk
// works while the rest of the file is made. Nothing where the system cannot.
void startWriteBack(QFileDevice& file, qint64& started);

} // namespace kestrel::engine
