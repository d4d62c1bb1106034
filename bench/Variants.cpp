#include "Variants.h"

#include "Random.h"

#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kestrel::bench {

using namespace engine;

namespace {

class Copier {
public:
    Copier(const Snapshot& in, Snapshot& out, const Variation& v)
        : m_in(in), m_out(out), m_v(v), m_random(v.seed) {
        m_out.header = in.header;
        std::vector<int32_t> files, folders{0};
        walkEntries(
            in, [&](int32_t i, int) { (in.entry(i).isFolder() ? folders : files).push_back(i); });
        for (int k = 0; k < v.touched + v.removed + v.renamed && !files.empty(); ++k) {
            const size_t pick = size_t(m_random.next() % files.size());
            (k < v.touched               ? m_touched
             : k < v.touched + v.removed ? m_removed
                                         : m_renamed)
                .insert(files[pick]);
            files[pick] = files.back();
            files.pop_back();
        }
        for (int k = 0; k < v.added; ++k)
            ++m_added[folders[size_t(m_random.next() % folders.size())]];
    }

    void run() {
        copyFolder(0, 0);
        if (m_out.entryCount >= 1)
            m_out.entries.mutableAt(1).count = m_in.entry(1).count;
    }

private:
    // Copies the contents of folder index of the original as the contents of
    // folder outIndex of the copy; returns the entries made beneath it.
    int32_t copyFolder(int32_t index, int32_t outIndex) {
        std::vector<int32_t> members;
        if (hasContents(m_in, index) || index == 0) {
            const int32_t first = index + 1;
            if (m_in.entries.contains(first) && m_in.entryCount >= first) {
                int32_t i = first;
                do {
                    members.push_back(i);
                    i = m_in.entry(i).nextSibling;
                } while (i != first);
            }
        }
        if (m_v.shuffle)
            for (size_t k = members.size(); k > 1; --k)
                std::swap(members[k - 1], members[size_t(m_random.next() % k)]);
        const int32_t first = m_out.entryCount + 1;
        int32_t last = 0, here = 0;
        for (int32_t i : members) {
            if (m_removed.count(i))
                continue;
            const SnapshotEntry& e = m_in.entry(i);
            const double modified = m_touched.count(i) ? e.modified + 1 : e.modified;
            const std::string name = m_renamed.count(i) ? "moved_" + std::string(m_in.nameOf(e))
                                                        : std::string(m_in.nameOf(e));
            m_out.createEntry(e.attributes, modified, 0, name, outIndex, e.size, m_in.versionOf(e));
            last = m_out.entryCount;
            ++here;
            if (e.isFolder()) {
                ++m_out.folderCount;
                here += copyFolder(i, last);
            } else {
                ++m_out.fileCount;
                m_out.totalSize += e.size;
            }
            m_out.entries.mutableAt(last).nextSibling = m_out.entryCount + 1;
        }
        const auto extra = m_added.find(index);
        for (int k = 0; extra != m_added.end() && k < extra->second; ++k) {
            m_out.createEntry(Attribute::Normal, 45000, 0, "added_" + m_random.name(k), outIndex, 7,
                              {});
            last = m_out.entryCount;
            ++here;
            ++m_out.fileCount;
            m_out.totalSize += 7;
            m_out.entries.mutableAt(last).nextSibling = m_out.entryCount + 1;
        }
        if (last)
            m_out.entries.mutableAt(last).nextSibling = first;
        m_out.entries.mutableAt(outIndex).count = here;
        return here;
    }

    const Snapshot& m_in;
    Snapshot& m_out;
    const Variation& m_v;
    Random m_random;
    std::unordered_set<int32_t> m_touched, m_removed, m_renamed;
    std::unordered_map<int32_t, int> m_added;
};

} // namespace

void makeVariant(const Snapshot& original, Snapshot& copy, const Variation& v) {
    Copier(original, copy, v).run();
}

} // namespace kestrel::bench
