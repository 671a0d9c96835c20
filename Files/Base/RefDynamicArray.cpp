// Script arrays: elements, growth and reference counts.
#include "Files/Base/RefDynamicArray.h"

#include "Files/Base/Collector.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr int kFirstElements = 4;

void Reserve(RefDynamicArrayOfRValue* array, int length) {
    if (length <= array->m_allocated) return;
    long long grown = array->m_allocated ? array->m_allocated * 2LL : kFirstElements;
    if (grown < length) grown = length;
    long long bytes = grown * static_cast<long long>(sizeof(RValue));
    if (bytes > INT_MAX) throw std::bad_alloc();
    array->m_elements = static_cast<RValue*>(
        MemoryManager::ReAlloc(array->m_elements, static_cast<unsigned int>(bytes), __FILE__, __LINE__, true));
    array->m_allocated = static_cast<int>(grown);
}

void Release(RefDynamicArrayOfRValue* array) {
    for (int i = 0; i < array->m_length; ++i) {
        FREE_RValue__Pre(&array->m_elements[i]);
    }
    MemoryManager::Free(array->m_elements);
    delete array;
}

}  // namespace

RefDynamicArrayOfRValue* ARRAY_RefAlloc() {
    auto* array = new RefDynamicArrayOfRValue{};
    array->m_refCount = 1;
    Collector::Adopt(array);
    return array;
}

void SET_RValue(RValue* array, RValue* value, KXObjectBase* /*owner*/, int index) {
    RefDynamicArrayOfRValue* elements = ArrayIn(*array);
    if (!elements || index < 0 || index == INT_MAX) return;

    RValueOwner replaced;
    COPY_RValue(&replaced.value, value);  // it may be one of those that move
    Reserve(elements, index + 1);
    for (; elements->m_length <= index; ++elements->m_length) {
        elements->m_elements[elements->m_length] = RValue{};
    }
    std::swap(elements->m_elements[index], replaced.value);
}

void REMOVE_RValue(RValue* array, int index) {
    RefDynamicArrayOfRValue* elements = ArrayIn(*array);
    if (!elements || index < 0 || index >= elements->m_length) return;
    RValueOwner removed(elements->m_elements[index]);
    RValue* place = elements->m_elements + index;
    --elements->m_length;
    std::memmove(place, place + 1, static_cast<size_t>(elements->m_length - index) * sizeof(RValue));
}

void Array_DecRef(RefDynamicArrayOfRValue* array) {
    if (!array) return;
    LOCK_RVALUE_MUTEX();
    bool last = --array->m_refCount == 0;
    if (last) Collector::Forget(array);  // at once: a collection must not find what is ending
    UNLOCK_RVALUE_MUTEX();
    if (!last) return;

    // What an element's release brings to its end waits for its turn, so that deep arrays do not make deep calls.
    thread_local RefDynamicArrayOfRValue* waiting = nullptr;
    thread_local bool releasing = false;
    array->m_next = waiting;
    waiting = array;
    if (releasing) return;
    releasing = true;
    while (waiting) {
        RefDynamicArrayOfRValue* next = waiting;
        waiting = next->m_next;
        Release(next);
    }
    releasing = false;
}

void Array_SetOwner(RefDynamicArrayOfRValue* /*array*/) {}
