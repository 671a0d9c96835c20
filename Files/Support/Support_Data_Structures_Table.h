#pragma once

#include "Files/Base/Limits.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <new>

/// What every table of things that scripts know by an index does.
namespace kx {

/// @return an index whose slot is empty, 1 or above. The same one again until something is stored there.
/// @throws std::bad_alloc beyond kx::kMaxContainers.
template <class Container>
int FindFreeIndex(DS_Table<Container>& table) {
    DS_AutoMutex lock;
    if (!table.arr) {
        table.arr = static_cast<Container**>(MemoryManager::Reserve(kMaxContainers * sizeof(Container*)));
        table.length = 1;
    }
    bool unused = table.m_handedOut && !table.arr[table.m_handedOut];
    if (unused) return table.m_handedOut;
    if (!table.m_free.empty()) {
        table.m_handedOut = table.m_free.back();
        table.m_free.pop_back();
    } else {
        if (table.length >= kMaxContainers) throw std::bad_alloc();
        auto indices = static_cast<size_t>(table.length);
        if (table.m_free.capacity() <= indices) table.m_free.reserve(indices * 2 + 1);  // freeing must not fail
        table.m_handedOut = table.length++;
    }
    return table.m_handedOut;
}

/// Takes out what has an index; the caller holds the lock and owns it then.
/// @return null where nothing has it.
template <class Container>
Container* TakeOut(DS_Table<Container>& table, int index) {
    if (index < 1 || index >= table.length || !table.arr[index]) return nullptr;
    if (index != table.m_handedOut) table.m_free.push_back(index);  // that one comes next anyway
    Container* container = table.arr[index];
    table.arr[index] = nullptr;
    return container;
}

}  // namespace kx
