#pragma once

#include <QMimeData>
#include <QString>
#include <QUrl>

namespace kestrel::shell {

// The path a drag from the file manager carries: its first URL when that is
// a local file or folder, otherwise empty.
inline QString droppedPath(const QMimeData* data) {
    if (!data || !data->hasUrls() || data->urls().isEmpty())
        return {};
    const QUrl url = data->urls().constFirst();
    return url.isLocalFile() ? url.toLocalFile() : QString();
}

} // namespace kestrel::shell
