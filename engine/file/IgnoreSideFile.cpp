#include "IgnoreSideFile.h"

#include "SnapshotFile.h"
#include "SnapshotItems.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/model/Snapshot.h"

#include <QFile>

namespace kestrel::engine {

namespace {

// The line that ties a side file to its snapshot.
std::string ownerLine(const SnapshotHeader& header) {
    ItemWriter w;
    const QByteArray root = header.rootFolder.toUtf8();
    w.string(std::string_view(root.constData(), size_t(root.size())));
    w.comma();
    w.date(header.created);
    w.endLine();
    return std::string(w.data(), w.size());
}

} // namespace

QString ignoreSideFilePath(const QString& snapshotFile) {
    return snapshotFile + QStringLiteral(".ignore");
}

IgnoreSideFile::IgnoreSideFile(const SnapshotHeader& header)
    : m_header(header), m_writer(ignoreSideFilePath(header.fileName)) {}

bool IgnoreSideFile::prepare() {
    if (m_header.ownIgnorePatterns.empty())
        return true;
    return m_writer.prepare(ownerLine(m_header), m_header.ownIgnorePatterns);
}

bool IgnoreSideFile::commit() {
    return m_writer.commit();
}

void LoadIgnoreSideFile(Snapshot& snapshot) {
    snapshot.header.ownIgnorePatterns.clear();
    QFile file(ignoreSideFilePath(snapshot.header.fileName));
    if (!openForReading(file, QIODevice::ReadOnly, LinkRule::Refuse))
        return;
    const std::string owner = ownerLine(snapshot.header);
    const QByteArray text = file.read(int64_t(owner.size()) + OwnIgnoreFileLimit + 1);
    if (!text.startsWith(QByteArray::fromStdString(owner)) ||
        text.size() > int64_t(owner.size()) + OwnIgnoreFileLimit)
        return;
    snapshot.header.ownIgnorePatterns.assign(text.constData() + owner.size(),
                                             size_t(text.size()) - owner.size());
}

} // namespace kestrel::engine
