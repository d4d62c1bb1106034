#pragma once

#include <QString>

#include <functional>
#include <memory>

namespace kestrel::bench {

// Empties the system's caches of a tree before each run, so that a run
// reads the tree from the device as a first scan of a disk nobody read lately
// does. Two ways:
// - the system's own: writing 3 to /proc/sys/vm/drop_caches (root);
// - where that file cannot be written (a container, a sandbox) but file
//   systems can be mounted (root): a copy of the tree in a file system image,
//   attached with direct I/O (so the image's own file is not cached either)
//   and mounted afresh before each run; unmounting forgets everything cached
//   of it.
class ColdCache {
public:
    virtual ~ColdCache() = default;

    // Where the runs read the tree: the tree itself, or its copy.
    virtual QString treePath() const = 0;
    // Empties the caches; false, with the reason in why(), when it could not.
    virtual bool empty() = 0;
    // What it does ("drop_caches", "remounted image").
    virtual QString method() const = 0;
    QString why() const { return m_why; }

    // The way this machine allows for tree (made by makeTree when a copy is
    // needed and not made yet, in dir); null, with the reason in why, when
    // there is none (not root, nothing to mount with).
    // The system's own way only, for trees too large to copy into an image;
    // null, with the reason in why, where it cannot be used.
    static std::unique_ptr<ColdCache> systemCaches(const QString& tree, QString& why);

    static std::unique_ptr<ColdCache> prepare(const QString& dir, const QString& tree,
                                              int64_t entries,
                                              const std::function<void(const QString&)>& makeTree,
                                              QString& why);

protected:
    QString m_why;
};

} // namespace kestrel::bench
