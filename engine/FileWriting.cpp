#include "FileWriting.h"

#include <QFileDevice>

#ifdef __linux__
#include <fcntl.h>
#endif

namespace kestrel::engine {

bool writeWhole(QIODevice& device, const char* data, qint64 size) {
    while (size > 0) {
        const qint64 written = device.write(data, size);
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

void startWriteBack(QFileDevice& file, qint64& started) {
#ifdef __linux__
    const qint64 written = file.pos();
    if (written - started >= (qint64(8) << 20)) {
        ::sync_file_range(file.handle(), started, written - started, SYNC_FILE_RANGE_WRITE);
        started = written;
    }
#else
    Q_UNUSED(file);
    Q_UNUSED(started);
#endif
}

} // namespace kestrel::engine
