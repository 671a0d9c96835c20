// The tables that scripts find maps, lists and grids in, their lock, and whole trees.
#include "Files/Support/Support_Data_Structures_Table.h"
#include "Files/Base/Limits.h"
#include "Files/Code/Code_Function.h"

#include <cstdarg>
#include <mutex>
#include <new>
#include <utility>

DS_Table<CDS_Map> themaps;
DS_Table<CDS_List> thelists;
DS_Table<CDS_Grid> thegrids;
int mapnumb = 0;

namespace {

/// The one lock. A thread that holds it takes it again by counting.
class Lock {
public:
    static void Take(int holds = 1) {
        t_holds += holds;
        if (t_holds > holds || holds == 0) return;
        // Whoever has it lets it go soon: longer than that takes only being put to sleep and woken.
        for (int i = 0; i < kTries; ++i) {
            if (Mutex().try_lock()) return;
        }
        Mutex().lock();
    }
    static void Release() {
        if (--t_holds == 0) Mutex().unlock();
    }
    static int Holds() { return t_holds; }

    /// @return how often this thread has held it.
    static int ReleaseAll() {
        int holds = std::exchange(t_holds, 0);
        if (holds > 0) Mutex().unlock();
        return holds;
    }

private:
    static std::mutex& Mutex() {
        static auto* mutex = new std::mutex;  // outlives every static object that holds a container
        return *mutex;
    }

    static constexpr int kTries = 200;

    static thread_local int t_holds;
};

thread_local int Lock::t_holds = 0;

template <class Container>
void Free(DS_Table<Container>& table, int index) {
    DS_AutoMutex lock;
    delete kx::TakeOut(table, index);
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
            Add(kx::TakeOut(themaps, static_cast<int>(value.real)));
        } else if (DsListOf(&value)) {
            Add(kx::TakeOut(thelists, static_cast<int>(value.real)));
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
    int index = kx::FindFreeIndex(themaps);
    mapnumb = themaps.length;
    return index;
}

int FindFreeDsListIndex() {
    return kx::FindFreeIndex(thelists);
}

int FindFreeDsGridIndex() {
    return kx::FindFreeIndex(thegrids);
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

uint64_t SerialOfDsMap(int index) {
    DS_AutoMutex lock;
    const CDS_Map* map = index >= 1 && index < themaps.length ? themaps.arr[index] : nullptr;
    return map ? map->m_serial : 0;
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
    DS_Owner<CDS_Map> map;  // nobody else has it yet
    map->Reserve(count);
    va_list entries;
    va_start(entries, count);
    try {
        for (int i = 0; i < count; ++i) {
            RValueOwner key;
            RValueOwner value;
            KXSetString(&key.value, va_arg(entries, const char*));
            value.value.real = va_arg(entries, double);
            const char* text = va_arg(entries, const char*);
            if (text) KXCreateString(&value.value, text);
            if (!map->Take(&key, &value)) map->Set(&key.value, &value.value);
        }
    } catch (...) {
        va_end(entries);
        throw;
    }
    va_end(entries);
    DS_AutoMutex lock;
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

DS_AutoRelease::DS_AutoRelease() : m_holds(Lock::ReleaseAll()) {}

DS_AutoRelease::~DS_AutoRelease() {
    Lock::Take(m_holds);
}
