#include "IgnoreSideFile.h"

#include "SnapshotFile.h"
#include "SnapshotItems.h"
#include "engine/compare/IgnorePatterns.h"
#include "engine/model/Snapshot.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

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
    : m_header(header), m_path(ignoreSideFilePath(header.fileName)) {}

bool IgnoreSideFile::prepare() {
    if (m_header.ownIgnorePatterns.empty())
        return true;
    m_file.emplace(m_path);
    if (m_file->open() && m_file->append(ownerLine(m_header)) &&
        m_file->append(m_header.ownIgnorePatterns))
        return true;
    m_error = m_file->errorText();
    m_file.reset();
    return false;
}

bool IgnoreSideFile::commit() {
    if (m_file) {
        if (m_file->commit())
            return true;
        m_error = m_file->errorText();
        return false;
    }
    // Whatever has the name, a link too, but never a folder: a side file of
    // the snapshot that was replaced.
    const QByteArray name = QFile::encodeName(m_path);
    struct stat st;
    if (::lstat(name.constData(), &st) != 0 || S_ISDIR(st.st_mode) ||
        ::unlink(name.constData()) == 0)
        return true;
    m_error = m_path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
    return false;
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
