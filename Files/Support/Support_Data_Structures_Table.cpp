// The tables that scripts find maps, lists and grids in, their lock, and whole trees.
#include "Files/Base/Limits.h"
#include "Files/Code/Code_Function.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <cstdarg>
#include <mutex>
#include <new>

DS_Table<CDS_Map> themaps;
DS_Table<CDS_List> thelists;
DS_Table<CDS_Grid> thegrids;
int mapnumb = 0;

namespace {

/// The one lock. A thread that holds it takes it again by counting.
class Lock {
public:
    static void Take() {
        if (t_holds++ == 0) Mutex().lock();
    }
    static void Release() {
        if (--t_holds == 0) Mutex().unlock();
    }
    static int Holds() { return t_holds; }

private:
    static std::mutex& Mutex() {
        static auto* mutex = new std::mutex;  // outlives every static object that holds a container
        return *mutex;
    }

    static thread_local int t_holds;
};

thread_local int Lock::t_holds = 0;

template <class Container>
int FindFreeIndex(DS_Table<Container>& table) {
    DS_AutoMutex lock;
    if (!table.arr) {
        table.arr = static_cast<Container**>(MemoryManager::Reserve(kx::kMaxContainers * sizeof(Container*)));
        table.length = 1;
    }
    bool unused = table.m_handedOut && !table.arr[table.m_handedOut];
    if (unused) return table.m_handedOut;
    if (!table.m_free.empty()) {
        table.m_handedOut = table.m_free.back();
        table.m_free.pop_back();
    } else {
        if (table.length >= kx::kMaxContainers) throw std::bad_alloc();
        auto indices = static_cast<size_t>(table.length);
        if (table.m_free.capacity() <= indices) table.m_free.reserve(indices * 2 + 1);  // freeing must not fail
        table.m_handedOut = table.length++;
    }
    return table.m_handedOut;
}

template <class Container>
Container* TakeOut(DS_Table<Container>& table, int index) {
    if (index < 1 || index >= table.length || !table.arr[index]) return nullptr;
    if (index != table.m_handedOut) table.m_free.push_back(index);  // that one comes next anyway
    Container* container = table.arr[index];
    table.arr[index] = nullptr;
    return container;
}

template <class Container>
void Free(DS_Table<Container>& table, int index) {
    DS_AutoMutex lock;
    delete TakeOut(table, index);
}

/// The index in a reference of one kind, 0 in any other value.
int IndexIn(const RValue* reference, unsigned int mark, int length) {
    unsigned int marks = reference->kind & (KIND_DS_MAP | KIND_DS_LIST);
    bool refers = marks == mark || (mark == KIND_DS_MAP && marks > mark);  // with both marks it is a map
    bool inside = refers && reference->real >= 1 && reference->real < length;
    return inside ? static_cast<int>(reference->real) : 0;
}

/// Maps and lists on their way to being freed, with all that they lead to. They are out of their tables, so that a
/// circle ends, and linked to one another, so that nothing here needs memory.
class Trees {
public:
    Trees() { Lock::Take(); }  // not DS_AutoMutex: what frees must not be refused
    Trees(const Trees&) = delete;
    Trees& operator=(const Trees&) = delete;
    ~Trees() {
        while (m_maps || m_lists) {
            if (m_maps) {
                FreeFirst(&m_maps);
            } else {
                FreeFirst(&m_lists);
            }
        }
        Lock::Release();
    }

    void Add(const RValue& value) {
        if (DsMapOf(&value)) {
            Add(TakeOut(themaps, static_cast<int>(value.real)));
        } else if (DsListOf(&value)) {
            Add(TakeOut(thelists, static_cast<int>(value.real)));
        }
    }

    template <class Container>
    void Add(Container* container) {
        Container*& first = First(container);
        container->m_nextToFree = first;
        first = container;
    }

private:
    CDS_Map*& First(const CDS_Map*) { return m_maps; }
    CDS_List*& First(const CDS_List*) { return m_lists; }

    template <class Container>
    void FreeFirst(Container** first) {
        Container* container = *first;
        *first = container->m_nextToFree;
        AddAllIn(*container);
        delete container;
    }

    void AddAllIn(const CDS_Map& map) {
        ForEachEntry(map, [this](const MapStore& entry) { Add(entry.value); });
    }

    void AddAllIn(const CDS_List& list) {
        for (int i = 0; i < list.m_count; ++i) {
            Add(list.m_elements[i]);
        }
    }

    CDS_Map* m_maps = nullptr;
    CDS_List* m_lists = nullptr;
};

}  // namespace

int FindFreeDsMapIndex() {
    int index = FindFreeIndex(themaps);
    mapnumb = themaps.length;
    return index;
}

int FindFreeDsListIndex() {
    return FindFreeIndex(thelists);
}

int FindFreeDsGridIndex() {
    return FindFreeIndex(thegrids);
}

void FreeDsMap(int index) {
    Free(themaps, index);
}

void FreeDsList(int index) {
    Free(thelists, index);
}

void FreeDsGrid(int index) {
    Free(thegrids, index);
}

CDS_Map* DsMapOf(const RValue* reference) {
    int index = IndexIn(reference, KIND_DS_MAP, themaps.length);
    return index ? themaps.arr[index] : nullptr;
}

CDS_List* DsListOf(const RValue* reference) {
    int index = IndexIn(reference, KIND_DS_LIST, thelists.length);
    return index ? thelists.arr[index] : nullptr;
}

void FreeDsTree(const RValue* reference) {
    Trees trees;
    trees.Add(*reference);
}

void FreeDsTree(CDS_Map* map) {
    Trees trees;
    trees.Add(map);
}

void FreeDsTree(CDS_List* list) {
    Trees trees;
    trees.Add(list);
}

int CreateDsMap(int count, ...) {
    DS_AutoMutex lock;
    DS_Owner<CDS_Map> map;
    va_list entries;
    va_start(entries, count);
    try {
        for (int i = 0; i < count; ++i) {
            RValueOwner key;
            RValueOwner value;
            KXCreateString(&key.value, va_arg(entries, const char*));
            value.value.real = va_arg(entries, double);
            const char* text = va_arg(entries, const char*);
            if (text) KXCreateString(&value.value, text);
            map->Set(&key.value, &value.value);
        }
    } catch (...) {
        va_end(entries);
        throw;
    }
    va_end(entries);
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = map.Release();
    return index;
}

DS_AutoMutex::DS_AutoMutex() {
    if (Lock::Holds() >= kx::kMaxNesting) throw KXRecursionLimit{};
    Lock::Take();
}

DS_AutoMutex::~DS_AutoMutex() {
    Lock::Release();
}
