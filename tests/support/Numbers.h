#pragma once

#include "Files/Base/RValue.h"

#include <cstdint>

/// Numbers as scripts have them, each of its kind.
namespace kx::test {

inline RValue Real(double value) {
    return {{value}, 0, VALUE_REAL};
}

inline RValue Int32(int32_t number) {
    RValue value{};
    value.i32 = number;
    value.kind = VALUE_INT32;
    return value;
}

inline RValue Int64(int64_t number) {
    RValue value{};
    value.i64 = number;
    value.kind = VALUE_INT64;
    return value;
}

inline RValue Bool(bool truth) {
    return {{truth ? 1.0 : 0.0}, 0, VALUE_BOOL};
}

}  // namespace kx::test
