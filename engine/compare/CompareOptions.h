#pragma once

#include <cstdint>
#include <memory>

namespace kestrel::engine {

class IgnorePatterns;

// What a comparison of two snapshots leaves out. The defaults ignore nothing.
struct CompareOptions {
    bool ignoreSize = false;
    bool ignoreVersion = false;
    // A date difference of one hour, give or take the tolerance, is a clock
    // change (daylight saving, disks that store local time), not a change.
    bool ignoreDst = false;
    // The attribute bits that are compared: a file whose attributes differ
    // only in bits outside this mask has no attribute change, and 0 compares
    // none. Each caller decides what its users' options mean; by default
    // every bit counts.
    uint16_t attributeCompareMask = 0xFFFF;
    // Dates that differ by this many days or less are the same.
    double dateTolerance = 0;
    // Permission bits, and owners and groups, that differ are no change.
    bool ignorePermissions = false;
    bool ignoreOwner = false;
    // Where both files have content fingerprints and they are equal, a
    // difference of date alone is no change (the file was only touched).
    bool ignoreTouched = false;
    // After a comparison both ways, files and folders only on one side are
    // paired as moves where that is beyond doubt (engine/compare/Moves.h).
    bool detectMoves = false;
    // Entries whose names these patterns match take no part: the options'
    // and the command line's patterns, compiled for exact names. Each
    // snapshot's own .kestrelignore patterns apply after them. None: nothing
    // is ignored but by the snapshots' own patterns.
    std::shared_ptr<const IgnorePatterns> ignorePatterns;
};

} // namespace kestrel::engine
