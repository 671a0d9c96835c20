#pragma once

#include "Files/Base/RValue.h"

/// A script array: the record that VALUE_ARRAY values share.
///
/// The elements are host memory and belong to the array. An array lives as long as values hold it: COPY_RValue adds a
/// reference, FREE_RValue__Pre takes one away. One that holds itself in a circle is the Collector's to free.
struct RefDynamicArrayOfRValue {
    RValue* m_elements;
    int m_length;
    unsigned int m_visited;  ///< visit stamp; see g_comparisonARRAY_RValue
    int m_refCount;
    int m_allocated;  ///< elements that fit before the array has to grow

    // The Collector's.
    bool m_reached;
    int m_outside;  ///< references that no struct, array or container holds
    RefDynamicArrayOfRValue* m_previous;
    RefDynamicArrayOfRValue* m_next;
};

/// @return the array that a value holds; null for any other value.
inline RefDynamicArrayOfRValue* ArrayIn(const RValue& value) {
    return (value.kind & KIND_MASK) == VALUE_ARRAY ? value.arr : nullptr;
}

/// @return a new, empty array with one reference, which the caller owns.
/// @throws std::bad_alloc
RefDynamicArrayOfRValue* ARRAY_RefAlloc();

/// Stores a copy of a value at an index of an array, which grows as needed; new elements in between are the real 0.
/// What stood at the index is released.
/// @param array  a VALUE_ARRAY value with an array; anything else, and an index below 0, changes nothing.
/// @param owner  reserved, null.
/// @throws std::bad_alloc; the array is then as it was.
/// @thread script thread
void SET_RValue(RValue* array, RValue* value, KXObjectBase* owner, int index);

/// Takes an element out of an array; those after it move up. Anything but an array's own index changes nothing.
/// @thread script thread
void REMOVE_RValue(RValue* array, int index);

/// Takes one reference away; the last one releases the elements and the array, however deep arrays are inside one
/// another. Null-safe.
/// @thread any
void Array_DecRef(RefDynamicArrayOfRValue* array);

/// Tells the host that an array has left its holder. This host keeps no owners: the pointer may be stale and is not
/// followed.
void Array_SetOwner(RefDynamicArrayOfRValue* array);
