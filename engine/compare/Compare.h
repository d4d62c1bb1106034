// engine/compare: two snapshots compared, their differences listed, and the show modes.

#pragma once

#include "CompareOptions.h"
#include "IgnorePatterns.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Errors.h"

#include <QString>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

namespace kestrel::engine {

class ProgressMeter;
class ReadWatermark;
struct ChangedFolders;

// Status bits of a file entry after a comparison. A folder's status is only
// meaningful as "greater than 0": something beneath it changed.
namespace Change {
inline constexpr int16_t Size = 8;
inline constexpr int16_t Date = 32;
inline constexpr int16_t Attributes = 64;
inline constexpr int16_t Version = 128;
// Where both files have content fingerprints: they differ.
inline constexpr int16_t Content = 256;
// Where both snapshots have permissions and owners: the permission bits
// differ, the owner or the group does, a link points elsewhere.
inline constexpr int16_t Permissions = 512;
inline constexpr int16_t Owner = 1024;
inline constexpr int16_t LinkTarget = 2048;
// The status a folder is set to when an entry directly inside it has no
// counterpart or is a changed file; each changed sub-folder then adds its
// own status to it.
inline constexpr int16_t InsideFolder = 2;
// The whole status of an entry the ignore patterns leave out (below 0).
inline constexpr int16_t Ignored = IgnoredStatus;
} // namespace Change

// Whether a is the later of two compared snapshots by their created times
// (the first of two made at the same moment): the one whose changes a
// comparison both ways calls out, and that moves lead to.
inline bool isLaterSnapshot(const Snapshot& a, const Snapshot& b) {
    return a.header.created >= b.header.created;
}

// CompareSnapshot: marks every entry of self that the walk reaches with its
// status and match. Matching is by whole name within matching folders, from
// the top rings down: exactly when both snapshots were made on POSIX, without
// regard to case when either was made on Windows (nameMatchingFor). selfTop
// and otherTop are the first entries of the rings to start from (1 for a
// whole snapshot, the first entry inside the comparison root otherwise). A
// file with a counterpart gets the change bits of CompareFiles, which also
// marks the counterpart. With bothWays the other snapshot is then marked from
// its own side. Entries the walk does not reach (inside a folder without
// counterpart) keep their values. The meter's maximum is the count entry 1
// keeps; the meter is not cancellable. A damaged snapshot whose rings do not
// close ends the comparison with "Subscript out of range".
//
// Ignore patterns: the options' patterns, then self's own and other's own
// (.kestrelignore), matched against paths below each snapshot's root under
// the pair's name rule. Before the walk every entry of both snapshots they
// ignore, and everything beneath an ignored folder, is marked with
// Change::Ignored and match 0, and each snapshot's ignoredCount counts them;
// marks of an earlier comparison are cleared. The walk then passes ignored
// entries by: they are neither counterparts nor differences, and a folder
// whose contents are all ignored compares as an empty one.
//
// changed, when given, gets the folders of each snapshot with a difference
// beneath them (for listDifferences), as far as each side was walked.
Outcome CompareSnapshot(Snapshot& self, int32_t selfTop, Snapshot& other, int32_t otherTop,
                        bool bothWays, const CompareOptions& options, ProgressMeter& meter,
                        ChangedFolders* changed = nullptr);

// CompareSnapshot(newer, 1, older, 1, true, options) whose first way walks
// newer while another thread still reads it into newer: each entry is
// compared as soon as the reading has it, so that most of the comparison is
// done when the file is. The options' and older's ignore patterns must be
// empty. Newer's own patterns come with its side files, after the reading,
// and so do its permissions, owners and fingerprints: where it has any of
// them, finish compares the whole snapshots instead.
class FollowingComparison {
public:
    FollowingComparison(Snapshot& newer, Snapshot& older, const CompareOptions& options);
    ~FollowingComparison();
    FollowingComparison(const FollowingComparison&) = delete;
    FollowingComparison& operator=(const FollowingComparison&) = delete;

    // The first way, entry by entry as read publishes them (the reader was
    // given read). Lets go of read before it returns, also when not
    // following. False when the walk was given up: the reading ended first
    // or the walk failed; finish then compares the whole snapshots.
    // meanwhile, when set, is called each time the walk has caught up with
    // the reading (often: it keeps its own pace), so a caller on the user
    // interface's thread can let events through.
    bool followReading(ReadWatermark& read, const std::function<void()>& meanwhile = {});
    // The walk was made with options that the newer snapshot's header, read
    // with the file, turned out not to allow: finish compares the whole
    // snapshots.
    void forget();
    // Once the reading is over: the rest of the comparison, or all of it
    // when it was not followed. changed is CompareSnapshot's (self is newer).
    Outcome finish(ChangedFolders* changed = nullptr);

private:
    struct State;
    Snapshot& m_newer;
    Snapshot& m_older;
    const CompareOptions m_options;
    std::unique_ptr<State> m_state;
};

// The permissions, owner and link target of an entry; all empty where its
// snapshot has none.
struct AccessValues {
    EntryAccess access;
    std::string_view linkTarget;
};
AccessValues accessValuesOf(const Snapshot& snapshot, int32_t index);

// CompareFiles: compares entry index of holder with the values of its
// counterpart, stores the change bits in the entry's status and returns them.
// When either side's values could not be read by its scan, nothing differs.
// The permissions, owners and link targets of the two entries are compared
// too when the values come from entry valuesIndex of valuesOf and both sides
// have them.
int16_t CompareFiles(Snapshot& holder, int32_t index, double size, double modified,
                     int16_t attributes, std::string_view version, const CompareOptions& options,
                     const Snapshot* valuesOf = nullptr, int32_t valuesIndex = 0);
// The change bits of the access values of entry i of a against entry j of b
// under the options; 0 unless both have them.
int16_t accessChangesBetween(const Snapshot& a, int32_t i, const Snapshot& b, int32_t j,
                             const CompareOptions& options);

// WhatChanged: the text that tells how entry i of self differs from the
// other snapshot. "[was not in other Snapshot]" when it has no counterpart;
// for a file what its counterpart in other was (WhatItWas), empty without
// other; for a folder "[contains changes]" when something beneath it
// changed, otherwise empty.
QString WhatChanged(const Snapshot& self, const Snapshot* other, int32_t i,
                    const CompareOptions& options);
QString WhatChanged(const Snapshot& self, const Snapshot& other, int32_t i,
                    const CompareOptions& options);

// WhatItWas, asked on the snapshot that holds entry index, the counterpart of
// an entry with the given values: what index was where its values differ
// from them, as "[was 1,000  3/4/01 10:15:00 AM  R/O,Arc  1.00.0000]"; empty
// when nothing differs or when either side's values could not be read.
// When the values come from entry valuesIndex of valuesOf, changed
// permissions and owners follow, as ls shows them ("-rwxr-xr-x root:root"),
// and a link's old target ("-> /etc/passwd").
QString WhatItWas(const Snapshot& holder, int32_t index, double size, double modified,
                  int16_t attributes, std::string_view version, const CompareOptions& options,
                  const Snapshot* valuesOf = nullptr, int32_t valuesIndex = 0);

// The kind letter ls shows first for an entry with these attributes.
char kindLetter(int16_t attributes);

// Notes in newer.alerts the entries of the ring at top and beneath it whose
// access calls for attention against their counterparts in older (see
// AccessAlert); a snapshot without access values has none, and there are
// none while the options ignore permissions.
void markAccessAlerts(Snapshot& newer, int32_t top, const Snapshot& older,
                      const CompareOptions& options);
// The change bits of entry i of s itself after a comparison: a file's
// status, a folder's own access changes (Snapshot::folderChanges).
int16_t ownChanges(const Snapshot& s, int32_t i);
// The alert the last comparison noted for entry i of s.
AccessAlert alertOf(const Snapshot& s, int32_t i);

// What a comparison found of access among some entries of a snapshot: the
// files whose permissions, owner or link target changed, and the alerts.
struct AccessCounts {
    int32_t permissions = 0;
    int32_t owners = 0;
    int32_t targets = 0;
    int32_t setUserId = 0;
    int32_t setGroupId = 0;
    int32_t worldWritable = 0;

    // Counts entry i of s (after a comparison).
    void add(const Snapshot& s, int32_t i);
};
// "1 new set-user-ID file, 2 new world-writable entries": what comes first
// in a change summary; empty without alerts.
QString alertsText(const AccessCounts& counts);
// "2 permission changes, 1 owner change, 1 link target change"; empty when
// none changed.
QString accessChangesText(const AccessCounts& counts);

// The values change bits name: the bit, the key the command line's JSON
// gives it, and the words for it; in the order the grid shows them.
struct ChangedField {
    int16_t bit;
    const char* key;
    const char* text;
};
extern const std::array<ChangedField, 8> ChangedFields;
// "size, permissions": the values a file's (or a folder's own) change bits
// say differ; empty for none.
QString changedFieldsText(int16_t bits);

// ", 1,234 ignored" for the change summary; empty when nothing was ignored.
QString ignoredNote(int32_t ignored);

// The patterns a comparison of the two snapshots applies: the options',
// then each snapshot's own, for the pair's name rule. Empty when there are
// none.
IgnorePatterns comparisonPatterns(const Snapshot& self, const Snapshot& other,
                                  const CompareOptions& options);

// Marks the entries of a snapshot the patterns ignore (see CompareSnapshot)
// and returns how many; clears the marks of entries they do not ignore.
int32_t MarkIgnoredEntries(Snapshot& snapshot, const IgnorePatterns& patterns);

// True when two modified times differ by more than the tolerance (and, when
// clock changes are ignored, by more than the tolerance from one hour).
bool datesDiffer(double a, double b, const CompareOptions& options);

} // namespace kestrel::engine
