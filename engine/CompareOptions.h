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
    // Attribute bits whose differences do not count (read-only 1, hidden 2,
    // system 4, archive 32); all other bits are compared.
    int16_t attributeIgnoreMask = 0;
    // Dates that differ by this many days or less are the same.
    double dateTolerance = 0;
};

} // namespace kestrel::engine
