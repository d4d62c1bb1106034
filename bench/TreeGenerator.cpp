#include "TreeGenerator.h"

#include "Random.h"

#include "engine/model/Snapshot.h"
#include "engine/support/OleDate.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kestrel::bench {

namespace {

constexpr int MaxDepth = 8;
constexpr int MinDepth = 3;
constexpr int64_t BigFolder = 20000;

class Generator {
public:
    Generator(TreeSink& sink, const TreeShape& shape) : m_sink(sink), m_random(shape.seed) {
        // A few big folders in a million entries.
        m_bigFolders = std::max<int64_t>(1, shape.entries / 300000);
    }

    int64_t made() const { return m_made; }

    // Generates the contents of a folder at depth with budget entries beneath it.
    void fill(int depth, int64_t budget) {
        if (budget <= 0)
            return;
        int64_t here;
        if (m_bigFolders > 0 && depth >= 2 && budget > BigFolder + 1000 && m_random.chance(0.05)) {
            here = m_random.between(BigFolder, BigFolder + 5000);
            --m_bigFolders;
        } else if (depth + 1 >= MaxDepth) {
            here = budget; // nowhere deeper to go
        } else {
            here = std::min<int64_t>(budget, m_random.between(5, 500));
        }
        int64_t folders = 0;
        if (depth + 1 < MaxDepth && (depth + 1 < MinDepth || budget > here))
            folders = std::min(here, std::max<int64_t>(1, here * m_random.between(5, 30) / 100));
        // Shares of the rest of the budget, decided before anything is made.
        std::vector<int64_t> shares(size_t(folders), 0);
        int64_t rest = budget - here;
        for (size_t k = 0; k < shares.size(); ++k) {
            const int64_t left = int64_t(shares.size() - k);
            shares[k] = k + 1 == shares.size()
                            ? rest
                            : std::min<int64_t>(rest, m_random.between(0, 2 * rest / left));
            rest -= shares[k];
        }
        // Folders and files interleave as a file system would list them.
        std::vector<char> isFolder(size_t(here), 0);
        for (int64_t i = 0; i < folders; ++i)
            isFolder[size_t(i)] = 1;
        for (size_t i = isFolder.size(); i > 1; --i)
            std::swap(isFolder[i - 1], isFolder[size_t(m_random.next() % i)]);
        size_t nextShare = 0;
        for (int64_t i = 0; i < here; ++i) {
            const std::string name = m_random.name(int(i));
            const int64_t when = 1500000000 + m_random.between(0, 190000000);
            ++m_made;
            if (isFolder[size_t(i)]) {
                m_sink.enterFolder(name, when);
                fill(depth + 1, shares[nextShare++]);
                m_sink.leaveFolder();
            } else {
                const int size = m_random.chance(0.3) ? int(m_random.between(1, 100)) : 0;
                m_sink.file(name, size, when);
            }
        }
    }

private:
    TreeSink& m_sink;
    Random m_random;
    int64_t m_made = 0;
    int64_t m_bigFolders = 0;
};

class DiskSink : public TreeSink {
public:
    explicit DiskSink(std::string root) { m_path.push_back(std::move(root)); }

    void enterFolder(const std::string& name, int64_t) override {
        const std::string path = m_path.back() + name + "/";
        if (::mkdir(path.c_str(), 0755) != 0)
            throw std::runtime_error("mkdir " + path + ": " + std::strerror(errno));
        m_path.push_back(path);
    }
    void leaveFolder() override { m_path.pop_back(); }
    void file(const std::string& name, int size, int64_t modified) override {
        const std::string path = m_path.back() + name;
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0)
            throw std::runtime_error("create " + path + ": " + std::strerror(errno));
        if (size > 0) {
            char bytes[100];
            std::memset(bytes, 'k', size_t(size));
            if (::write(fd, bytes, size_t(size)) != ssize_t(size))
                throw std::runtime_error("write " + path);
        }
        const struct timespec times[2] = {{time_t(modified), 0}, {time_t(modified), 0}};
        ::futimens(fd, times);
        ::close(fd);
    }

private:
    std::vector<std::string> m_path;
};

// Builds the entries as the scan does: each folder's entries ring, its count,
// the subtree right after the folder.
class SnapshotSink : public TreeSink {
public:
    explicit SnapshotSink(engine::Snapshot& s) : m_s(s) { m_frames.push_back({0, 1, 0, 0}); }

    void enterFolder(const std::string& name, int64_t modified) override {
        const int32_t index = add(engine::Attribute::Folder, name, 0, modified);
        m_frames.push_back({index, index + 1, 0, 0});
        ++m_s.folderCount;
    }
    void leaveFolder() override {
        const Frame f = m_frames.back();
        m_frames.pop_back();
        close(f);
        Frame& parent = m_frames.back();
        parent.here += f.here;
        m_s.entries.mutableAt(f.index).nextSibling = m_s.entryCount + 1;
    }
    void file(const std::string& name, int size, int64_t modified) override {
        const int32_t index = add(engine::Attribute::Normal, name, size, modified);
        m_s.entries.mutableAt(index).nextSibling = index + 1;
        ++m_s.fileCount;
        m_s.totalSize += size;
    }
    void finish() {
        close(m_frames.back());
        if (m_s.entryCount >= 1)
            m_s.entries.mutableAt(1).count =
                m_s.folderCount; // the meter maximum, as a scan leaves it
    }

private:
    struct Frame {
        int32_t index;
        int32_t first;
        int32_t last;
        int32_t here;
    };

    int32_t add(int16_t attributes, const std::string& name, int size, int64_t modified) {
        double date = 0;
        m_time.convert(modified, date);
        m_s.createEntry(attributes, date, 0, name, m_frames.back().index, size, {});
        Frame& f = m_frames.back();
        f.last = m_s.entryCount;
        ++f.here;
        return m_s.entryCount;
    }
    void close(const Frame& f) {
        if (f.last)
            m_s.entries.mutableAt(f.last).nextSibling = f.first;
        m_s.entries.mutableAt(f.index).count = f.here;
    }

    engine::Snapshot& m_s;
    std::vector<Frame> m_frames;
    engine::LocalTimeConverter m_time;
};

} // namespace

int64_t generateTree(TreeSink& sink, const TreeShape& shape) {
    Generator g(sink, shape);
    g.fill(0, shape.entries);
    if (shape.largeFolder <= 0)
        return g.made();
    const int64_t when = 1600000000;
    sink.enterFolder("large-folder", when);
    char name[32];
    for (int64_t i = 0; i < shape.largeFolder; ++i) {
        std::snprintf(name, sizeof name, "item-%07lld.dat", static_cast<long long>(i));
        sink.file(name, int(i % 100), when + i * 37);
    }
    sink.leaveFolder();
    return g.made() + 1 + shape.largeFolder;
}

int64_t generateTreeOnDisk(const QString& root, const TreeShape& shape) {
    const std::string top = QFile::encodeName(root).toStdString();
    if (::mkdir(top.c_str(), 0755) != 0)
        throw std::runtime_error("mkdir " + top + ": " + std::strerror(errno));
    DiskSink sink(top + "/");
    return generateTree(sink, shape);
}

int64_t generateSnapshot(engine::Snapshot& snapshot, const QString& rootFolder,
                         const TreeShape& shape) {
    snapshot.header.rootFolder = rootFolder;
    snapshot.header.recurse = snapshot.header.hidden = true;
    snapshot.header.title = QStringLiteral("Generated snapshot");
    snapshot.header.created = engine::oleNow();
    SnapshotSink sink(snapshot);
    const int64_t made = generateTree(sink, shape);
    sink.finish();
    return made;
}

} // namespace kestrel::bench
