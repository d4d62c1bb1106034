#pragma once

#include <QString>

#include <cstdint>
#include <string>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::bench {

struct TreeShape {
    int64_t entries = 1000000;
    uint64_t seed = 1;
    // When above 0, a folder "large-folder" with this many files is added
    // at the top, beyond the entries above.
    int64_t largeFolder = 0;
};

// Receives a generated tree depth first: a folder's contents come between
// its enter and leave.
class TreeSink {
public:
    virtual ~TreeSink() = default;
    virtual void enterFolder(const std::string& name, int64_t modified) = 0;
    virtual void leaveFolder() = 0;
    virtual void file(const std::string& name, int size, int64_t modified) = 0;
};

// Generates a deterministic tree of about shape.entries files and folders:
// depths 3 to 8, folders of 5 to 500 entries and a few of 20,000 or more,
// names of 5 to 30 characters, empty or tiny files with last-write times
// spread over some years. Returns the number of entries generated.
int64_t generateTree(TreeSink& sink, const TreeShape& shape);

// The tree made on disk under root, which must not exist yet.
int64_t generateTreeOnDisk(const QString& root, const TreeShape& shape);

// The tree as a snapshot in memory, laid out as a scan lays it out, rooted
// at rootFolder: for the sizes no disk should have to hold.
int64_t generateSnapshot(engine::Snapshot& snapshot, const QString& rootFolder,
                         const TreeShape& shape);

} // namespace kestrel::bench
