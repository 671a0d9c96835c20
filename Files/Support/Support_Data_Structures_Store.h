#pragma once

#include "Files/Base/RValue.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <new>

/// How containers keep what they hold.
namespace kx {

/// @return room for so many, all bytes zero, which MemoryManager::Free releases.
/// @throws std::bad_alloc, also for a count that makes no sense.
template <class T>
T* AllocZeroed(long long count) {
    constexpr auto kSize = static_cast<long long>(sizeof(T));
    if (count < 0 || count > INT_MAX / kSize) throw std::bad_alloc();
    return static_cast<T*>(MemoryManager::Alloc(static_cast<unsigned int>(count * kSize), __FILE__, __LINE__, true));
}

/// Puts a copy in the place of another value, which may be the copy's own source.
inline void ReplaceValue(RValue* place, const RValue* value) {
    RValue old = *place;
    COPY_RValue(place, value);
    FREE_RValue__Pre(&old);
}

}  // namespace kx
