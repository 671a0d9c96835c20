#pragma once

// What the module's JSON sources share. Nobody else includes it.

#include "Files/Base/Json.h"
#include "Files/Function/Function_File_Internal.h"

/// How a walk leaves the tree that it reads: as it was, or, where the caller owns it alone, with JSON null in the place
/// of every value that has been read. So each value's memory is there again for what is made of the next ones, while it
/// is still in the cache: a large text takes less time and less memory.
enum class Tree { kept, spent };

inline void SpendMember(lh_entry* entry) {
    auto* value = static_cast<json_object*>(lh_entry_v(entry));
    lh_entry_set_val(entry, nullptr);
    json_object_put(value);
}

/// The last one stays: for its place the library would make the array larger first.
inline void SpendElement(json_object* array, size_t index, size_t length) {
    if (index + 1 < length) json_object_array_put_idx(array, index, nullptr);
}
