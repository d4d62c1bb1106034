#pragma once

#include "engine/compare/History.h"

#include <QFileInfo>
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

// The snapshot files (NAME.#NN) of one folder a drag carries, when every
// URL it carries is one; otherwise none.
inline QStringList droppedSnapshotFiles(const QMimeData* data) {
    if (!data || !data->hasUrls())
        return {};
    QStringList files;
    QString folder;
    for (const QUrl& url : data->urls()) {
        if (!url.isLocalFile())
            return {};
        const QString path = url.toLocalFile();
        const QFileInfo info(path);
        if (engine::snapshotNumberOf(path) == 0 || !info.isFile())
            return {};
        if (!folder.isEmpty() && info.absolutePath() != folder)
            return {};
        folder = info.absolutePath();
        files << path;
    }
    return files;
}

} // namespace kestrel::shell
