// Which structs and arrays can still be reached, and the end of the others.
#include "Files/Base/Collector.h"

#include "Files/Base/KXObjectBase.h"
#include "Files/Base/RefDynamicArray.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <new>
#include <unordered_set>
#include <vector>

namespace {

/// Fewer than this are not worth a collection, nor are fewer bytes.
constexpr long long kFewObjects = 20000;
constexpr long long kFewBytes = 32 << 20;

/// Two steps of the counter for each container that is written: far from the end of its 32 bits.
constexpr unsigned int kRenumberFrom = 1u << 31;

struct State {
    std::unordered_set<const RValue*> roots;
    KXObjectBase* firstStruct = nullptr;
    RefDynamicArrayOfRValue* firstArray = nullptr;
    long long structs = 0;
    long long arrays = 0;
    long long left = 0;       // by the last collection
    long long leftBytes = 0;  // of all host memory, then
    long long contained = 0;  // values in maps, lists and grids, then
};

State& TheState() {
    static auto* state = new State;  // values are released while static objects are destroyed
    return *state;
}

class ValueLock {
public:
    ValueLock() { LOCK_RVALUE_MUTEX(); }
    ValueLock(const ValueLock&) = delete;
    ValueLock& operator=(const ValueLock&) = delete;
    ~ValueLock() { UNLOCK_RVALUE_MUTEX(); }
};

template <class Visit>
void ForEachElement(const RefDynamicArrayOfRValue& array, Visit visit) {
    for (int i = 0; i < array.m_length; ++i) {
        visit(array.m_elements[i]);
    }
}

template <class Visit>
void ForEachMember(const KXObjectBase& object, Visit visit) {
    for (int place = 0; place < object.Places(); ++place) {
        if (const RValue* value = object.ValueAt(place)) visit(*value);
    }
}

/// Every value that a map, a list or a grid holds.
template <class Visit>
void ForEachContained(Visit visit) {
    for (int i = 1; i < themaps.length; ++i) {
        if (!themaps.arr[i]) continue;
        ForEachEntry(*themaps.arr[i], [&](const MapStore& entry) {
            visit(entry.key);
            visit(entry.value);
        });
    }
    for (int i = 1; i < thelists.length; ++i) {
        const CDS_List* list = thelists.arr[i];
        for (int k = 0; list && k < list->m_count; ++k) {
            visit(list->m_elements[k]);
        }
    }
    for (int i = 1; i < thegrids.length; ++i) {
        if (thegrids.arr[i]) thegrids.arr[i]->ForEachValue(visit);
    }
}

KXObjectBase* StructIn(const RValue& value) {
    return (value.kind & KIND_MASK) == VALUE_OBJECT ? value.obj : nullptr;
}

}  // namespace

/// One collection.
class Collector::Walk {
public:
    void FindOutsideReferences() {
        for (auto* array = TheState().firstArray; array; array = array->m_next) {
            array->m_reached = false;
            array->m_outside = array->m_refCount;
        }
        auto subtract = [](const RValue& value) {
            if (RefDynamicArrayOfRValue* array = ArrayIn(value)) --array->m_outside;
        };
        for (auto* array = TheState().firstArray; array; array = array->m_next) {
            ForEachElement(*array, subtract);
        }
        for (auto* object = TheState().firstStruct; object; object = object->m_next) {
            object->m_reached = false;
            ForEachMember(*object, subtract);
        }
        TheState().contained = 0;
        ForEachContained([&](const RValue& value) {
            subtract(value);
            ++TheState().contained;
        });
    }

    void Reach() {
        ForEachContained([this](const RValue& value) { Add(value); });
        for (const RValue* root : TheState().roots) {
            Add(StructIn(*root));  // a root's array is counted; after its release the pointer is stale
        }
        for (auto* array = TheState().firstArray; array; array = array->m_next) {
            if (array->m_outside > 0) Add(array);
        }
        while (!m_arrays.empty() || !m_structs.empty()) {
            if (!m_arrays.empty()) {
                RefDynamicArrayOfRValue* array = m_arrays.back();
                m_arrays.pop_back();
                ForEachElement(*array, [this](const RValue& value) { Add(value); });
            } else {
                KXObjectBase* object = m_structs.back();
                m_structs.pop_back();
                ForEachMember(*object, [this](const RValue& value) { Add(value); });
            }
        }
    }

    /// Takes note of what was not reached. The last step that needs memory.
    void Sort() {
        for (auto* array = TheState().firstArray; array; array = array->m_next) {
            if (!array->m_reached) m_arrays.push_back(array);
        }
        for (auto* object = TheState().firstStruct; object; object = object->m_next) {
            if (!object->m_reached) m_structs.push_back(object);
        }
    }

    void FreeTheRest() {
        for (RefDynamicArrayOfRValue* array : m_arrays) {
            ++array->m_refCount;  // until the circles are cut
        }
        for (KXObjectBase* object : m_structs) {
            object->ReleaseMembers();
        }
        for (RefDynamicArrayOfRValue* array : m_arrays) {
            while (array->m_length > 0) {
                FREE_RValue__Pre(&array->m_elements[--array->m_length]);
            }
        }
        for (RefDynamicArrayOfRValue* array : m_arrays) {
            Array_DecRef(array);
        }
        for (KXObjectBase* object : m_structs) {
            Free(object);
        }
    }

private:
    void Add(const RValue& value) {
        if (RefDynamicArrayOfRValue* array = ArrayIn(value)) Add(array);
        Add(StructIn(value));
    }

    void Add(KXObjectBase* object) {
        if (!object || object->m_reached) return;
        object->m_reached = true;
        m_structs.push_back(object);
    }

    void Add(RefDynamicArrayOfRValue* array) {
        if (array->m_reached) return;
        array->m_reached = true;
        m_arrays.push_back(array);
    }

    std::vector<RefDynamicArrayOfRValue*> m_arrays;
    std::vector<KXObjectBase*> m_structs;
};

void Collector::AddRoot(const RValue* value) {
    TheState().roots.insert(value);
}

void Collector::RemoveRoot(const RValue* value) {
    TheState().roots.erase(value);
}

void Collector::Collect() {
    DS_AutoMutex containers;
    ValueLock values;
    try {
        Walk walk;
        walk.FindOutsideReferences();
        walk.Reach();
        walk.Sort();
        walk.FreeTheRest();
    } catch (const std::bad_alloc&) {
        // nothing has been freed
    }
    TheState().left = TheState().structs + TheState().arrays;
    TheState().leftBytes = MemoryManager::Stats().bytes;
}

bool Collector::IsDue() {
    ValueLock lock;
    const State& state = TheState();
    long long objects = state.structs + state.arrays;
    if (objects == 0) return false;
    bool manyBytes = MemoryManager::Stats().bytes > std::max(2 * state.leftBytes, kFewBytes);
    long long few = std::max(kFewObjects, state.contained / 16);  // a collection goes through what is contained too
    return manyBytes || objects > std::max(2 * state.left, few);
}

void Collector::SafePoint() {
    if (IsDue()) Collect();
    if (g_countSTRING_RValue < kRenumberFrom) return;
    DS_AutoMutex containers;
    ValueLock values;
    for (auto* array = TheState().firstArray; array; array = array->m_next) {
        array->m_visited = 0;
    }
    for (auto* object = TheState().firstStruct; object; object = object->m_next) {
        object->m_visited = 0;
    }
    for (int i = 1; i < themaps.length; ++i) {
        if (themaps.arr[i]) themaps.arr[i]->m_visited = 0;
    }
    for (int i = 1; i < thelists.length; ++i) {
        if (thelists.arr[i]) thelists.arr[i]->m_visited = 0;
    }
    g_countSTRING_RValue = g_comparisonSTRUCT_RValue = g_comparisonARRAY_RValue = 1;
}

Collector::Statistics Collector::Stats() {
    ValueLock lock;
    return {TheState().structs, TheState().arrays};
}

template <class Object>
void Collector::Link(Object** first, Object* object) {
    object->m_next = *first;
    if (*first) (*first)->m_previous = object;
    *first = object;
}

template <class Object>
void Collector::Unlink(Object** first, Object* object) {
    (object->m_previous ? object->m_previous->m_next : *first) = object->m_next;
    if (object->m_next) object->m_next->m_previous = object->m_previous;
}

void Collector::Adopt(KXObjectBase* object) {
    ValueLock lock;
    Link(&TheState().firstStruct, object);
    ++TheState().structs;
}

void Collector::Adopt(RefDynamicArrayOfRValue* array) {
    ValueLock lock;
    Link(&TheState().firstArray, array);
    ++TheState().arrays;
}

void Collector::Forget(RefDynamicArrayOfRValue* array) {
    ValueLock lock;
    Unlink(&TheState().firstArray, array);
    --TheState().arrays;
}

void Collector::Free(KXObjectBase* object) {
    ValueLock lock;
    Unlink(&TheState().firstStruct, object);
    --TheState().structs;
    delete object;
}
