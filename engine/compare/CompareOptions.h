#pragma once

#include <cstdint>

namespace kestrel::engine {

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
};

} // namespace kestrel::engine
