#include "Compare.h"

#include "Differences.h"
#include "Moves.h"

#include "RingLookup.h"
#include "engine/model/CaseFold.h"
#include "engine/model/ReadWatermark.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"

#include <cmath>
#include <functional>
#include <future>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace kestrel::engine {

namespace {

// Dates are whole seconds, but a date read from a file carries the rounding
// of its 15 digits; differences are compared to the millisecond so that a
// difference of exactly the tolerance is no change.
constexpr double SecondsPerDay = 86400.0;
constexpr double SlackSeconds = 0.001;
constexpr double OneHour = 3600.0;

// A walk that follows a snapshot being read came to an entry the reading
// ended without.
struct ReadingOutrun {};

// The reading of a snapshot that the first way of a comparison follows.
struct SelfReading {
    const ReadWatermark& watermark;
    // Called each time the walk catches up with what is read.
    const std::function<void()>& meanwhile;
};

int16_t addSaturated(int16_t a, int16_t b) {
    const int sum = int(a) + int(b);
    return int16_t(std::clamp(sum, int(INT16_MIN), int(INT16_MAX)));
}

bool attributesDiffer(int16_t a, int16_t b, const CompareOptions& options) {
    const uint16_t compared = options.attributeCompareMask;
    return (uint16_t(a) & compared) != (uint16_t(b) & compared);
}

// What the first way of a comparison both ways learnt about the other
// snapshot's folder rings, for the second way. Where every member of a ring
// has a name of its own (it was indexed, and no two members share a hash) and
// no two entries of this snapshot found the same member, the member an entry
// found is the only one with that name on either side; so the second way's
// look-up from that member can only find that entry, and an unfound member
// has no counterpart at all. The same holds for two rings paired member by
// member in their order (two snapshots of a folder that did not change).
// Such rings are remembered with the ring they were compared with, and the
// second way takes their matches from here instead of looking them up again.
class FirstWayMatches {
public:
    explicit FirstWayMatches(const Snapshot& other)
        : m_foundBy(size_t(other.capacity()) + 1, 0),
          m_pairedWith(size_t(other.capacity()) + 1, 0) {}

    // The first way starts comparing the ring of its snapshot that starts at
    // selfFirst with the other's ring that starts at otherFirst. A ring of the
    // other's compared twice is not remembered.
    bool beginRing(int32_t otherFirst, int32_t selfFirst) {
        int32_t& paired = m_pairedWith[size_t(otherFirst)];
        paired = paired == 0 ? selfFirst : Forgotten;
        return paired != Forgotten;
    }
    // Entry self found member other; false when another entry found it
    // first. A file that finds a member compares itself with it, and marks
    // the member with the differences.
    bool found(int32_t other, int32_t self, bool selfIsFile) {
        int32_t& by = m_foundBy[size_t(other)];
        const bool first = by == 0;
        by = selfIsFile ? self : -self;
        return first;
    }
    void endRing(int32_t otherFirst, bool remembered) {
        if (!remembered)
            m_pairedWith[size_t(otherFirst)] = Forgotten;
    }

    // For the second way: whether the ring starting at first, compared with
    // the ring starting at counterpartFirst, was remembered by the first way.
    bool knows(int32_t first, int32_t counterpartFirst) const {
        return size_t(first) < m_pairedWith.size() &&
               m_pairedWith[size_t(first)] == counterpartFirst;
    }
    // The entry that found member index, 0 for none, negative for a folder.
    int32_t foundBy(int32_t index) const { return m_foundBy[size_t(index)]; }

private:
    static constexpr int32_t Forgotten = -1;
    std::vector<int32_t> m_foundBy;    // by the other's entry index; a folder's negative
    std::vector<int32_t> m_pairedWith; // by the other's ring start
};

// The walk of CompareFolder, on an explicit stack: a damaged file can nest
// folders as deep as it likes without reaching the machine's stack.
class Comparer {
public:
    // The first way of a comparison both ways records into learning; the
    // second way reads known, which the first way recorded with the two
    // snapshots the other way round.
    // selfRead, when given, is the reading of self, still going on: the walk
    // takes each entry once the reading has it.
    // changed, when given, gets the folders of self with a difference
    // beneath them, and otherChanged those of the other files compared here
    // found to differ (comparing files marks both).
    Comparer(Snapshot& self, NameHashes& selfHashes, Snapshot& other, NameHashes& otherHashes,
             const CompareOptions& options, ProgressMeter& meter, FirstWayMatches* learning,
             const FirstWayMatches* known, const SelfReading* selfRead, FolderMarks* changed,
             FolderMarks* otherChanged)
        : m_self(self), m_other(other), m_selfHashes(selfHashes), m_otherHashes(otherHashes),
          m_options(options), m_meter(meter), m_budget(int64_t(self.capacity()) + 1),
          m_learning(learning), m_known(known), m_selfRead(selfRead),
          m_selfFinal(selfRead ? 0 : INT32_MAX), m_changed(changed), m_otherChanged(otherChanged) {}

    void run(int32_t first, int32_t otherIndex) {
        push(first, otherIndex, true);
        while (!m_stack.empty())
            step();
    }

private:
    struct Frame {
        int32_t first = 0;      // where the ring started
        int32_t i = 0;          // the entry being compared
        int32_t otherIndex = 0; // position in the other snapshot's ring
        bool hasOtherRing = true;
        bool result = false;       // an entry of the ring had a counterpart that counted
        int32_t found = 0;         // counterpart of the folder whose contents are compared
        int32_t otherFirst = 0;    // where the other ring was entered
        bool knownMatches = false; // the first way's matches answer this ring
        bool remembered = false;   // the first way may still remember this ring
        bool anyCompared = false;  // an entry of the ring was not ignored
        // The first way so far found, for each member in turn, the other
        // ring's members in their order, the last being lastFound.
        bool inOrder = true;
        int32_t lastFound = 0;
    };

    void push(int32_t first, int32_t otherIndex, bool hasOtherRing) {
        const size_t depth = m_stack.size();
        if (m_lookups.size() <= depth)
            m_lookups.emplace_back(std::make_unique<RingLookup>(m_other, m_otherHashes));
        m_lookups[depth]->reset();
        Frame f;
        f.first = f.i = first;
        f.otherIndex = f.otherFirst = otherIndex;
        f.hasOtherRing = hasOtherRing;
        f.knownMatches = hasOtherRing && m_known && m_known->knows(first, otherIndex);
        f.remembered = hasOtherRing && m_learning && m_learning->beginRing(otherIndex, first);
        m_stack.push_back(f);
    }

    // The counterpart of entry i of ring f, 0 for none. comparedFiles tells
    // whether the first way already compared it, as a file, with entry i.
    int32_t counterpartOf(Frame& f, int32_t i, const SnapshotEntry& e, bool& comparedFiles) {
        comparedFiles = false;
        if (f.knownMatches) {
            const int32_t by = m_known->foundBy(i);
            comparedFiles = by > 0;
            return std::abs(by);
        }
        if (!f.hasOtherRing)
            return 0;
        int32_t found =
            m_lookups[m_stack.size() - 1]->locate(f.otherIndex, m_self.nameOf(e), m_selfHashes, i);
        // An entry ignored there (a folder of the name, where only folders
        // are ignored) is no counterpart.
        if (found != 0 && m_other.entries.at(found).isIgnored())
            found = 0;
        if (f.remembered) {
            if (found != 0)
                f.remembered = m_learning->found(found, i, !e.isFolder());
            const int32_t expected =
                f.lastFound == 0 ? f.otherFirst : m_other.entries.at(f.lastFound).nextSibling;
            f.inOrder = f.inOrder && found != 0 && found == expected;
            f.lastFound = found;
        }
        return found;
    }

    // Whether the second way may take this ring's matches from the first.
    // Either every member of the other ring has a name of its own, or the
    // two rings were paired member by member in their order, all of both:
    // then each look-up of the second way starts at the member the first
    // way paired, which matches (matching names is an equivalence), and no
    // member before it in the walk does, or the first way would have found
    // that one.
    bool ringKnown(const Frame& f) const {
        if (!f.remembered)
            return false;
        if (m_lookups[m_stack.size() - 1]->namesToldApart())
            return true;
        return f.inOrder && f.lastFound != 0 &&
               m_other.entries.at(f.lastFound).nextSibling == f.otherFirst;
    }

    // Waits, while self is still being read, until its entry index is read.
    // An entry the reading ended without is never read here: the walk is
    // given up (ReadingOutrun) and made again once the file is read whole,
    // so a damaged file fails as it always does.
    void awaitSelf(int32_t index) {
        if (index > m_selfFinal) [[unlikely]]
            waitForSelf(index, true);
    }
    // As awaitSelf, for a look past an entry that may be the last: past the
    // end of the reading it reads the table's empty records, as it would
    // once the file is read.
    void peekSelf(int32_t index) {
        if (index > m_selfFinal) [[unlikely]]
            waitForSelf(index, false);
    }
    void waitForSelf(int32_t index, bool needed) {
        if (m_selfEnded) {
            if (needed)
                throw ReadingOutrun{};
            return;
        }
        if (m_selfRead->meanwhile)
            m_selfRead->meanwhile();
        const ReadWatermark::Progress read = m_selfRead->watermark.waitFor(index);
        m_selfFinal = read.final;
        m_selfEnded = read.ended;
        if (index > m_selfFinal && needed)
            throw ReadingOutrun{};
    }
    SnapshotEntry& selfEntry(int32_t index) {
        awaitSelf(index);
        return m_self.entries.mutableAt(index);
    }

    void step() {
        Frame& f = m_stack.back();
        if (--m_budget < 0)
            raise(ErrorCode::SubscriptOutOfRange);
        m_self.progress = m_self.progress == INT32_MAX ? 0 : m_self.progress + 1;
        if (m_self.progress % 500 == 0)
            m_meter.update(m_self.progress);

        const int32_t i = f.i;
        SnapshotEntry& e = selfEntry(i);
        if (e.isIgnored()) {
            f.inOrder = false;
            advance();
            return;
        }
        f.anyCompared = true;
        bool comparedFiles;
        const int32_t found = counterpartOf(f, i, e, comparedFiles);
        // The first way marked both files of a pair it compared with their
        // differences.
        const int16_t firstWayStatus = e.status;
        e.status = 0;
        if (found == 0) {
            e.match = 0;
            differenceIn(e.parent, true);
        } else if (e.isFolder()) {
            noteFolderChanges(i, e, found);
            peekSelf(i + 1);
            if (hasContents(m_self, i)) {
                // The contents are compared with the counterpart's contents;
                // a counterpart that is a file or an empty folder has none,
                // so everything inside this folder is without counterpart.
                const bool otherRing =
                    m_other.entries.at(found).isFolder() && hasContents(m_other, found);
                f.found = found;
                push(i + 1, found + 1, otherRing);
                return;
            }
            e.match = -found;
            f.result = true;
            f.otherIndex = found;
        } else {
            e.match = found;
            e.status = comparedFiles
                           ? firstWayStatus
                           : CompareFiles(m_other, found, e.size, e.modified, e.attributes,
                                          m_self.versionOf(e), m_options, &m_self, i);
            if (e.status > 0) {
                differenceIn(e.parent, false);
                if (!comparedFiles && m_otherChanged)
                    m_otherChanged->markUp(m_other, m_other.entries.at(found).parent, false);
            }
            f.result = true;
        }
        advance();
    }

    // A matched folder whose own access differs: noted for it, and its
    // folder holds a change.
    void noteFolderChanges(int32_t i, const SnapshotEntry& e, int32_t found) {
        if (m_self.access.empty() || m_other.access.empty())
            return;
        const int16_t bits = accessChangesBetween(m_other, found, m_self, i, m_options);
        if (bits == 0)
            return;
        m_self.folderChanges[i] = bits;
        differenceIn(e.parent, false);
    }

    // An entry directly inside folder differs; unmatched: it has no
    // counterpart.
    void differenceIn(int32_t folder, bool unmatched) {
        selfEntry(folder).status = Change::InsideFolder;
        if (m_changed)
            m_changed->markUp(m_self, folder, unmatched);
    }

    // Moves to the next entry of the ring, or ends the ring and hands its
    // result to the folder that holds it.
    void advance() {
        for (;;) {
            Frame& f = m_stack.back();
            const int32_t next = m_self.entries.at(f.i).nextSibling;
            if (next != f.first) {
                f.i = next;
                return;
            }
            const bool result = f.result;
            const bool allIgnored = !f.anyCompared;
            if (m_learning && f.hasOtherRing)
                m_learning->endRing(f.otherFirst, ringKnown(f));
            m_stack.pop_back();
            if (m_stack.empty())
                return;
            Frame& parent = m_stack.back();
            SnapshotEntry& folder = m_self.entries.mutableAt(parent.i);
            if (allIgnored) {
                // Contents that are all ignored are as none: an empty folder.
                folder.match = -parent.found;
                parent.result = true;
            } else if (result) {
                folder.match = parent.found;
                SnapshotEntry& holder = selfEntry(folder.parent);
                holder.status = addSaturated(holder.status, folder.status);
                parent.result = true;
            } else {
                folder.match = -parent.found;
            }
            parent.otherIndex = parent.found;
        }
    }

    Snapshot& m_self;
    Snapshot& m_other;
    NameHashes& m_selfHashes;
    NameHashes& m_otherHashes;
    const CompareOptions& m_options;
    ProgressMeter& m_meter;
    int64_t m_budget;
    std::vector<Frame> m_stack;
    std::vector<std::unique_ptr<RingLookup>> m_lookups; // one per depth, reused
    FirstWayMatches* m_learning;
    const FirstWayMatches* m_known;
    const SelfReading* m_selfRead;
    int32_t m_selfFinal;      // self's entries 1..m_selfFinal are read
    bool m_selfEnded = false; // and no more will be
    FolderMarks* m_changed;
    FolderMarks* m_otherChanged;
};

// selfRead: see Comparer. The caller has waited for self's first entry,
// with its header.
void compareOneWay(Snapshot& self, NameHashes& selfHashes, int32_t selfTop, Snapshot& other,
                   NameHashes& otherHashes, int32_t otherTop, const CompareOptions& options,
                   ProgressMeter& meter, FirstWayMatches* learning, const FirstWayMatches* known,
                   const SelfReading* selfRead, FolderMarks* changed, FolderMarks* otherChanged) {
    const int32_t maximum = self.entries.contains(1) ? self.entries.get(1).count : 0;
    meter.initialise(maximum, QStringLiteral("Comparing Snapshots"), false);
    self.progress = 0;
    Comparer(self, selfHashes, other, otherHashes, options, meter, learning, known, selfRead,
             changed, otherChanged)
        .run(selfTop, otherTop);
}

} // namespace

bool datesDiffer(double a, double b, const CompareOptions& options) {
    const double difference = std::fabs(a - b) * SecondsPerDay;
    const double tolerance = options.dateTolerance * SecondsPerDay + SlackSeconds;
    if (difference <= tolerance)
        return false;
    if (options.ignoreDst && std::fabs(difference - OneHour) <= tolerance)
        return false;
    return true;
}

AccessValues accessValuesOf(const Snapshot& snapshot, int32_t index) {
    if (!snapshot.access.has(index))
        return {};
    // Only a link has a target: the look-up is left to the few that are.
    const bool link = snapshot.entries.get(index).attributes & Attribute::ReparsePoint;
    return {snapshot.access.at(index),
            link ? snapshot.access.linkTarget(index) : std::string_view()};
}

char kindLetter(int16_t attributes) {
    if (attributes & Attribute::Folder)
        return 'd';
    return attributes & Attribute::ReparsePoint ? 'l' : '-';
}

namespace {

// Where two links point, compared apart from the values every entry has:
// few entries are links.
[[gnu::noinline]] bool linkTargetsDiffer(const AccessTable& a, int32_t i, const AccessTable& b,
                                         int32_t j) {
    return a.linkTarget(i) != b.linkTarget(j);
}

// The access change bits between entry i of table a and entry j of table b;
// link says whether either entry is a link. Made to be inlined into the
// comparison of files, which runs for every pair.
inline int16_t accessChanges(const AccessTable& a, int32_t i, const AccessTable& b, int32_t j,
                             bool link, const CompareOptions& options) {
    const uint32_t kindA = a.kindOf(i), kindB = b.kindOf(j);
    if (kindA == AccessTable::NoKind || kindB == AccessTable::NoKind)
        return 0;
    const EntryAccess& was = a.kind(kindA);
    const EntryAccess& is = b.kind(kindB);
    int16_t status = 0;
    if (!options.ignorePermissions && was.mode != is.mode)
        status += Change::Permissions;
    if (!options.ignoreOwner && (was.owner != is.owner || was.group != is.group))
        status += Change::Owner;
    if (link && linkTargetsDiffer(a, i, b, j))
        status += Change::LinkTarget;
    return status;
}

// The status with the content bit added where both files have fingerprints
// and they differ; where they are equal, the date bit taken away when the
// options ignore files only touched.
inline int16_t contentChanges(const FingerprintTable& a, int32_t i, const FingerprintTable& b,
                              int32_t j, int16_t status, const CompareOptions& options) {
    if (!a.has(i) || !b.has(j))
        return status;
    if (!(a.at(i) == b.at(j)))
        return int16_t(status + Change::Content);
    return options.ignoreTouched ? int16_t(status & ~Change::Date) : status;
}

} // namespace

int16_t accessChangesBetween(const Snapshot& a, int32_t i, const Snapshot& b, int32_t j,
                             const CompareOptions& options) {
    const bool link =
        (a.entries.get(i).attributes | b.entries.get(j).attributes) & Attribute::ReparsePoint;
    return accessChanges(a.access, i, b.access, j, link, options);
}

namespace {

// "-rwxr-xr-x root:root -> /etc/passwd": the values of entry index of holder
// that the change bits name, as ls shows them.
QString accessWasText(const Snapshot& holder, int32_t index, int16_t bits) {
    const AccessValues was = accessValuesOf(holder, index);
    QStringList parts;
    if (bits & Change::Permissions)
        parts << permissionsText(was.access.mode, kindLetter(holder.entries.at(index).attributes));
    if (bits & Change::Owner)
        parts << ownerText(was.access.owner, was.access.group);
    if (bits & Change::LinkTarget)
        parts << QStringLiteral("-> ") + linkTargetText(was.linkTarget);
    return parts.join(QLatin1Char(' '));
}

} // namespace

int16_t CompareFiles(Snapshot& holder, int32_t index, double size, double modified,
                     int16_t attributes, std::string_view version, const CompareOptions& options,
                     const Snapshot* valuesOf, int32_t valuesIndex) {
    SnapshotEntry& e = holder.entries.mutableAt(index);
    int16_t status = 0;
    // Values a scan could not read say nothing about a change.
    if (e.valuesUnknown() || valuesUnknown(attributes, size, modified)) {
        e.status = 0;
        return 0;
    }
    if (!options.ignoreSize && e.size != size)
        status = Change::Size;
    if (datesDiffer(e.modified, modified, options))
        status += Change::Date;
    if (attributesDiffer(e.attributes, attributes, options))
        status += Change::Attributes;
    if (!options.ignoreVersion && !namesEqual(holder.versionOf(e), version))
        status += Change::Version;
    if (valuesOf) {
        status += accessChanges(holder.access, index, valuesOf->access, valuesIndex,
                                (e.attributes | attributes) & Attribute::ReparsePoint, options);
        status = contentChanges(holder.fingerprints, index, valuesOf->fingerprints, valuesIndex,
                                status, options);
    }
    e.status = status;
    return status;
}

QString WhatChanged(const Snapshot& self, const Snapshot* other, int32_t i,
                    const CompareOptions& options) {
    const SnapshotEntry& e = self.entries.at(i);
    if (e.match == 0)
        return QStringLiteral("[was not in other Snapshot]");
    if (!e.isFolder())
        return other ? WhatItWas(*other, e.match, e.size, e.modified, e.attributes,
                                 self.versionOf(e), options, &self, i)
                     : QString();
    if (const int16_t own = ownChanges(self, i); own != 0 && other)
        return QStringLiteral("[was ") + accessWasText(*other, std::abs(e.match), own) +
               QLatin1Char(']');
    return e.status > 0 ? QStringLiteral("[contains changes]") : QString();
}

QString WhatChanged(const Snapshot& self, const Snapshot& other, int32_t i,
                    const CompareOptions& options) {
    return WhatChanged(self, &other, i, options);
}

QString WhatItWas(const Snapshot& holder, int32_t index, double size, double modified,
                  int16_t attributes, std::string_view version, const CompareOptions& options,
                  const Snapshot* valuesOf, int32_t valuesIndex) {
    const SnapshotEntry& e = holder.entries.at(index);
    if (e.valuesUnknown() || valuesUnknown(attributes, size, modified))
        return QString();
    // Fingerprints of both files, when they have them: equal or not.
    const bool fingerprinted =
        valuesOf && holder.fingerprints.has(index) && valuesOf->fingerprints.has(valuesIndex);
    const bool sameContent =
        fingerprinted && holder.fingerprints.at(index) == valuesOf->fingerprints.at(valuesIndex);
    const bool dateDiffers =
        datesDiffer(e.modified, modified, options) && !(sameContent && options.ignoreTouched);
    QString list;
    if (!options.ignoreSize && e.size != size)
        list += formatGrouped(e.size) + QStringLiteral("  ");
    if (dateDiffers)
        list += shortDateText(e.modified) + QLatin1Char(' ') + longTimeText(e.modified) +
                QStringLiteral("  ");
    if (attributesDiffer(e.attributes, attributes, options))
        list += AttributeText(e.attributes) + QStringLiteral("  ");
    const std::string_view ownVersion = holder.versionOf(e);
    if (!options.ignoreVersion && !namesEqual(ownVersion, version))
        list += QString::fromUtf8(ownVersion.data(), qsizetype(ownVersion.size())) +
                QStringLiteral("  ");
    if (valuesOf) {
        const QString access = accessWasText(
            holder, index, accessChangesBetween(holder, index, *valuesOf, valuesIndex, options));
        if (!access.isEmpty())
            list += access + QStringLiteral("  ");
    }
    if (fingerprinted && !sameContent)
        list += QStringLiteral("content changed");
    else if (sameContent && dateDiffers)
        list += QStringLiteral("touched, content unchanged");
    while (list.endsWith(QLatin1Char(' ')))
        list.chop(1);
    return list.isEmpty() ? QString() : QStringLiteral("[was ") + list + QLatin1Char(']');
}

QString ignoredNote(int32_t ignored) {
    return ignored > 0 ? QStringLiteral(", ") + formatCount(ignored) + QStringLiteral(" ignored")
                       : QString();
}

IgnorePatterns comparisonPatterns(const Snapshot& self, const Snapshot& other,
                                  const CompareOptions& options) {
    IgnorePatterns patterns = options.ignorePatterns ? *options.ignorePatterns : IgnorePatterns();
    const QString own = QString::fromLatin1(OwnIgnoreFileName);
    const std::string& selfOwn = self.header.ownIgnorePatterns;
    const std::string& otherOwn = other.header.ownIgnorePatterns;
    if (!selfOwn.empty())
        patterns.append(IgnorePatterns(selfOwn, own));
    if (!otherOwn.empty() && otherOwn != selfOwn)
        patterns.append(IgnorePatterns(otherOwn, own));
    const NameMatching matching = nameMatchingFor(self, other);
    return patterns.matching() == matching ? patterns : patterns.forMatching(matching);
}

void markAccessAlerts(Snapshot& newer, int32_t top, const Snapshot& older,
                      const CompareOptions& options) {
    if (newer.access.empty() || options.ignorePermissions)
        return;
    const auto check = [&](int32_t i) {
        // Most entries have none of the bits an alert is about.
        const uint32_t mode = newer.access.at(i).mode; // 0 for none
        if (!(mode & (S_ISUID | S_ISGID | S_IWOTH)))
            return;
        const SnapshotEntry& e = newer.entries.get(i);
        if (e.isIgnored())
            return;
        const int32_t counterpart = e.match < 0 ? -e.match : e.match;
        uint32_t wasMode = 0;
        if (counterpart > 0) {
            // Without the older side's values nothing can be said.
            if (!older.access.has(counterpart))
                return;
            wasMode = older.access.at(counterpart).mode;
        }
        const AccessAlert alert = accessAlert(
            mode, wasMode, e.isFolder(), !e.isFolder() && (e.attributes & Attribute::ReparsePoint));
        if (alert != AccessAlert::None)
            newer.alerts.emplace(i, alert);
    };
    // The whole snapshot in table order; a part of it through its rings.
    if (top == 1) {
        for (int32_t i = 1; i <= newer.entryCount; ++i)
            check(i);
    } else {
        walkFrom(newer, top, [&](int32_t i, int) { check(i); });
    }
}

int16_t ownChanges(const Snapshot& s, int32_t i) {
    const SnapshotEntry& e = s.entries.get(i);
    // A folder's status is a sum of what lies beneath it, not its own bits.
    if (!e.isFolder())
        return e.status > 0 ? e.status : 0;
    if (s.folderChanges.empty())
        return 0;
    const auto found = s.folderChanges.find(i);
    return found == s.folderChanges.end() ? 0 : found->second;
}

const std::array<ChangedField, 8> ChangedFields = {{
    {Change::Size, "size", "size"},
    {Change::Date, "modified", "modified"},
    {Change::Attributes, "attributes", "attributes"},
    {Change::Version, "version", "version"},
    {Change::Content, "content", "content"},
    {Change::Permissions, "permissions", "permissions"},
    {Change::Owner, "owner", "owner"},
    {Change::LinkTarget, "target", "link target"},
}};

QString changedFieldsText(int16_t bits) {
    QStringList names;
    for (const ChangedField& field : ChangedFields)
        if (bits > 0 && (bits & field.bit))
            names << QString::fromLatin1(field.text);
    return names.join(QStringLiteral(", "));
}

AccessAlert alertOf(const Snapshot& s, int32_t i) {
    if (s.alerts.empty())
        return AccessAlert::None;
    const auto found = s.alerts.find(i);
    return found == s.alerts.end() ? AccessAlert::None : found->second;
}

void AccessCounts::add(const Snapshot& s, int32_t i) {
    const int16_t bits = ownChanges(s, i);
    permissions += (bits & Change::Permissions) != 0;
    owners += (bits & Change::Owner) != 0;
    targets += (bits & Change::LinkTarget) != 0;
    switch (alertOf(s, i)) {
    case AccessAlert::SetUserId:
        ++setUserId;
        break;
    case AccessAlert::SetGroupId:
        ++setGroupId;
        break;
    case AccessAlert::WorldWritable:
        ++worldWritable;
        break;
    case AccessAlert::None:
        break;
    }
}

namespace {

// "1 owner change", "2 owner changes"; nothing for none.
void appendCount(QStringList& parts, int32_t count, const QString& one, const QString& many) {
    if (count == 1)
        parts << QStringLiteral("1 ") + one;
    else if (count > 1)
        parts << formatCount(count) + QLatin1Char(' ') + many;
}

} // namespace

QString alertsText(const AccessCounts& c) {
    QStringList parts;
    for (const auto& [alert, count] : {std::pair{AccessAlert::SetUserId, c.setUserId},
                                       std::pair{AccessAlert::SetGroupId, c.setGroupId},
                                       std::pair{AccessAlert::WorldWritable, c.worldWritable}})
        if (count > 0)
            parts << alertCountText(alert, count);
    return parts.join(QStringLiteral(", "));
}

QString accessChangesText(const AccessCounts& c) {
    QStringList parts;
    appendCount(parts, c.permissions, QStringLiteral("permission change"),
                QStringLiteral("permission changes"));
    appendCount(parts, c.owners, QStringLiteral("owner change"), QStringLiteral("owner changes"));
    appendCount(parts, c.targets, QStringLiteral("link target change"),
                QStringLiteral("link target changes"));
    return parts.join(QStringLiteral(", "));
}

int32_t MarkIgnoredEntries(Snapshot& snapshot, const IgnorePatterns& patterns) {
    IgnoreWalk walk(patterns);
    int32_t ignored = 0;
    walkEntries(snapshot, [&](int32_t i, int depth) {
        SnapshotEntry& e = snapshot.entries.getMutable(i);
        if (walk.ignored(depth, snapshot.nameOf(e), e.isFolder())) {
            e.status = Change::Ignored;
            e.match = 0;
            ++ignored;
        } else if (e.isIgnored()) {
            e.status = 0;
        }
    });
    snapshot.ignoredCount = ignored;
    return ignored;
}

namespace {

// Marks what the patterns ignore in both snapshots. Each snapshot's marks are
// its own, so the other's are made on a second thread meanwhile when one can
// be started. Marks of an earlier comparison go even when nothing is ignored
// now.
void markIgnoredInBoth(Snapshot& self, Snapshot& other, const IgnorePatterns& patterns) {
    const auto needed = [&](const Snapshot& s) { return !patterns.empty() || s.ignoredCount > 0; };
    std::future<int32_t> otherMarked;
    if (&other != &self && needed(other)) {
        try {
            otherMarked =
                std::async(std::launch::async, [&] { return MarkIgnoredEntries(other, patterns); });
        } catch (const std::system_error&) {
            MarkIgnoredEntries(other, patterns);
        }
    }
    // Should this throw, the future waits for the other thread as it goes.
    if (needed(self))
        MarkIgnoredEntries(self, patterns);
    if (otherMarked.valid())
        otherMarked.get();
}

} // namespace

namespace {

// One comparison, in the steps CompareSnapshot takes: begin, the first way,
// then the rest.
class Comparison {
public:
    Comparison(Snapshot& self, int32_t selfTop, Snapshot& other, int32_t otherTop, bool bothWays,
               const CompareOptions& options, ProgressMeter& meter)
        : m_self(self), m_other(other), m_selfTop(selfTop), m_otherTop(otherTop),
          m_bothWays(bothWays), m_options(options), m_meter(meter) {}

    // Clears what an earlier comparison left and marks what is ignored.
    void begin() {
        m_self.folderChanges.clear();
        m_other.folderChanges.clear();
        for (Snapshot* s : {&m_self, &m_other}) {
            s->movedTo.clear();
            s->movedFrom.clear();
        }
        markIgnoredInBoth(m_self, m_other, comparisonPatterns(m_self, m_other, m_options));
        // The names' hashes serve both ways: the second way finds them all
        // worked out by the first.
        const NameMatching matching = nameMatchingFor(m_self, m_other);
        m_selfHashes.emplace(m_self, matching);
        m_otherHashes.emplace(m_other, matching);
        if (m_bothWays)
            m_firstWay.emplace(m_other);
    }

    void firstWay(const SelfReading* selfRead) {
        compareOneWay(m_self, *m_selfHashes, m_selfTop, m_other, *m_otherHashes, m_otherTop,
                      m_options, m_meter, m_bothWays ? &*m_firstWay : nullptr, nullptr, selfRead,
                      &m_changed.self, &m_changed.other);
    }

    // The second way, the alerts and the moves.
    void rest() {
        if (m_bothWays)
            compareOneWay(m_other, *m_otherHashes, m_otherTop, m_self, *m_selfHashes, m_selfTop,
                          m_options, m_meter, nullptr, &*m_firstWay, nullptr, &m_changed.other,
                          &m_changed.self);
        m_self.alerts.clear();
        m_other.alerts.clear();
        // The later snapshot is the one whose changes are called out; the
        // other side's matches are known only after both ways.
        if (m_bothWays && !isLaterSnapshot(m_self, m_other))
            markAccessAlerts(m_other, m_otherTop, m_self, m_options);
        else
            markAccessAlerts(m_self, m_selfTop, m_other, m_options);
        // Moves go from the earlier snapshot to the later.
        if (m_bothWays && m_options.detectMoves) {
            const bool selfLater = isLaterSnapshot(m_self, m_other);
            Snapshot& older = selfLater ? m_other : m_self;
            Snapshot& newer = selfLater ? m_self : m_other;
            noteMoves(older, newer,
                      detectMoves(older, selfLater ? m_otherTop : m_selfTop, newer,
                                  selfLater ? m_selfTop : m_otherTop));
        }
    }

    // The folders with a difference beneath, of each side its way reached.
    ChangedFolders& changed() { return m_changed; }

private:
    Snapshot& m_self;
    Snapshot& m_other;
    const int32_t m_selfTop;
    const int32_t m_otherTop;
    const bool m_bothWays;
    const CompareOptions& m_options;
    ProgressMeter& m_meter;
    std::optional<NameHashes> m_selfHashes;
    std::optional<NameHashes> m_otherHashes;
    std::optional<FirstWayMatches> m_firstWay;
    ChangedFolders m_changed;
};

Outcome comparisonFailed(ProgressMeter& meter) {
    meter.close();
    const CaughtError e = caughtError();
    return Outcome::failure(
        UserMessage{QStringLiteral("Comparing Snapshots"), e.text, MessageIcon::Exclamation},
        e.code);
}

} // namespace

Outcome CompareSnapshot(Snapshot& self, int32_t selfTop, Snapshot& other, int32_t otherTop,
                        bool bothWays, const CompareOptions& options, ProgressMeter& meter,
                        ChangedFolders* changed) {
    try {
        Comparison comparison(self, selfTop, other, otherTop, bothWays, options, meter);
        comparison.begin();
        comparison.firstWay(nullptr);
        comparison.rest();
        if (changed)
            *changed = std::move(comparison.changed());
    } catch (...) {
        return comparisonFailed(meter);
    }
    meter.close();
    return Outcome::success();
}

struct FollowingComparison::State {
    ProgressMeter quiet;
    Comparison comparison;

    State(Snapshot& newer, Snapshot& older, const CompareOptions& options)
        : comparison(newer, 1, older, 1, true, options, quiet) {}
};

FollowingComparison::FollowingComparison(Snapshot& newer, Snapshot& older,
                                         const CompareOptions& options)
    : m_newer(newer), m_older(older), m_options(options) {}

FollowingComparison::~FollowingComparison() = default;

bool FollowingComparison::followReading(ReadWatermark& read,
                                        const std::function<void()>& meanwhile) {
    struct LetGo {
        ReadWatermark& read;
        ~LetGo() { read.release(); }
    } letGo{read};
    try {
        // The header comes with the first entry. A snapshot without entries
        // is compared once it is read.
        if (read.waitFor(1).final < 1)
            return false;
        m_state = std::make_unique<State>(m_newer, m_older, m_options);
        m_state->comparison.begin();
        const SelfReading reading{read, meanwhile};
        m_state->comparison.firstWay(&reading);
    } catch (...) {
        // Given up: the reading ended first (a cut or damaged file), or the
        // walk failed; the comparison on the whole snapshot tells which.
        m_state.reset();
    }
    return m_state != nullptr;
}

void FollowingComparison::forget() {
    m_state.reset();
}

Outcome FollowingComparison::finish(ChangedFolders* changed) {
    // Side files are read after the entries: what they brought (permissions,
    // fingerprints, ignore patterns) the walk could not see.
    if (!m_newer.access.empty() || !m_newer.fingerprints.empty() ||
        !m_newer.header.ownIgnorePatterns.empty())
        m_state.reset();
    if (!m_state) {
        // Whatever a walk given up marked goes first (it reads no further
        // than the entries read): the snapshot is compared as if just read.
        for (int32_t i = 0; i <= m_newer.entryCount; ++i) {
            SnapshotEntry& e = m_newer.entries.mutableAt(i);
            e.status = 0;
            e.match = 0;
        }
        ProgressMeter quiet;
        return CompareSnapshot(m_newer, 1, m_older, 1, true, m_options, quiet, changed);
    }
    try {
        m_state->comparison.rest();
    } catch (...) {
        return comparisonFailed(m_state->quiet);
    }
    if (changed)
        *changed = std::move(m_state->comparison.changed());
    m_state->quiet.close();
    return Outcome::success();
}

} // namespace kestrel::engine
