#pragma once

#include "Errors.h"

#include <cstdint>

namespace kestrel::engine {

// Counter arithmetic that raises Overflow instead of wrapping: the counters
// and indices of a snapshot are 32-bit signed and an overflow is an error.
inline int32_t checkedAdd(int32_t a, int32_t b) {
    int32_t r;
    if (__builtin_add_overflow(a, b, &r))
        raise(ErrorCode::Overflow);
    return r;
}

inline int32_t checkedMul(int32_t a, int32_t b) {
    int32_t r;
    if (__builtin_mul_overflow(a, b, &r))
        raise(ErrorCode::Overflow);
    return r;
}

inline int16_t checkedAdd16(int16_t a, int16_t b) {
    int16_t r;
    if (__builtin_add_overflow(a, b, &r))
        raise(ErrorCode::Overflow);
    return r;
}

// Converts to a 16-bit signed number; a value outside -32768..32767 overflows.
inline int16_t toInt16(int64_t v) {
    if (v < INT16_MIN || v > INT16_MAX)
        raise(ErrorCode::Overflow);
    return int16_t(v);
}

inline int32_t toInt32(int64_t v) {
    if (v < INT32_MIN || v > INT32_MAX)
        raise(ErrorCode::Overflow);
    return int32_t(v);
}

} // namespace kestrel::engine
