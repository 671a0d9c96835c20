// Maps, lists and grids, and the tables that scripts find them in.
#include "Files/Support/Support_Data_Structures.h"

#include "Files/Base/Limits.h"
#include "Files/Code/Code_Function.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

DS_Table<CDS_Map> themaps;
DS_Table<CDS_List> thelists;
DS_Table<CDS_Grid> thegrids;
int mapnumb = 0;

namespace {

constexpr int kFirstBuckets = 8;
constexpr int kFirstElements = 4;
constexpr int kMaxBuckets = 1 << 30;

// --- keys -----------------------------------------------------------------------------------------------------------

/// The hash of bytes: FNV-1a, 32 bits, as its authors publish it, then mixed so that the low bits, which choose the
/// bucket, depend on all. The same on every target.
class KeyHash {
public:
    void Add(const void* data, size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        for (size_t i = 0; i < size; ++i) {
            m_hash = (m_hash ^ bytes[i]) * 16777619u;
        }
    }

    /// A number's bytes, the lowest first whatever the target's order is.
    void Add(uint64_t number) {
        for (int shift = 0; shift < 64; shift += 8) {
            m_hash = (m_hash ^ static_cast<unsigned char>(number >> shift)) * 16777619u;
        }
    }

    unsigned int Value() const {
        unsigned int mixed = m_hash ^ (m_hash >> 16);
        mixed *= 0x85EBCA6Bu;
        return mixed ^ (mixed >> 13);
    }

private:
    unsigned int m_hash = 2166136261u;
};

const char* TextOf(const RValue& string) {
    return string.str && string.str->m_thing ? string.str->m_thing : "";
}

bool IsNumber(unsigned int kind) {
    return kind == VALUE_REAL || kind == VALUE_INT32 || kind == VALUE_INT64;
}

/// A number as a key: exact as an integer where it is one, else its bits. So 1 is 1 in every kind, and 2^53 + 1 is not
/// 2^53.
struct NumberKey {
    explicit NumberKey(const RValue& v) {
        unsigned int kind = v.kind & KIND_MASK;
        double real = v.real;
        bool fits = kind == VALUE_REAL && real >= -9223372036854775808.0 && real < 9223372036854775808.0;
        integral = kind != VALUE_REAL || (fits && real == std::trunc(real));
        if (kind == VALUE_INT32) {
            bits = static_cast<uint64_t>(static_cast<int64_t>(v.i32));
        } else if (kind == VALUE_INT64) {
            bits = static_cast<uint64_t>(v.i64);
        } else if (integral) {
            bits = static_cast<uint64_t>(static_cast<int64_t>(real));
        } else {
            if (std::isnan(real)) real = NAN;  // one of many
            std::memcpy(&bits, &real, sizeof bits);
        }
    }

    bool operator==(const NumberKey& other) const { return integral == other.integral && bits == other.bits; }

    bool integral;
    uint64_t bits;
};

unsigned int HashOf(const RValue& key) {
    KeyHash hash;
    unsigned int kind = key.kind & KIND_MASK;
    if (kind == VALUE_STRING) {
        const char* text = TextOf(key);
        hash.Add(text, std::strlen(text));
    } else if (IsNumber(kind)) {
        hash.Add(NumberKey(key).bits);
    } else if (kind == VALUE_BOOL) {
        hash.Add(key.real != 0.0 ? 1 : 0);
    } else if (kind == VALUE_PTR || kind == VALUE_ARRAY || kind == VALUE_OBJECT) {
        hash.Add(reinterpret_cast<uintptr_t>(key.ptr));
    }
    return hash.Value();
}

bool IsSameKey(const RValue& a, const RValue& b) {
    unsigned int kind = a.kind & KIND_MASK;
    unsigned int other = b.kind & KIND_MASK;
    bool sameMarks = (a.kind & ~KIND_MASK) == (b.kind & ~KIND_MASK);  // a map's index is no plain number
    if (!sameMarks) return false;
    if (IsNumber(kind) && IsNumber(other)) return NumberKey(a) == NumberKey(b);
    if (kind != other) return false;
    if (kind == VALUE_STRING) return std::strcmp(TextOf(a), TextOf(b)) == 0;
    if (kind == VALUE_BOOL) return (a.real != 0.0) == (b.real != 0.0);
    if (kind == VALUE_PTR || kind == VALUE_ARRAY || kind == VALUE_OBJECT) return a.ptr == b.ptr;
    bool single = kind == VALUE_UNDEFINED || kind == VALUE_NULL || kind == VALUE_UNSET;
    return single || a.i64 == b.i64;
}

// --- maps -----------------------------------------------------------------------------------------------------------

using Node = HashNode<MapStore>;
using Bucket = HashLink<Node>;

/// A node and what it points to, in one block.
struct Entry {
    Node node;
    MapStore store;
};

template <class T>
T* AllocZeroed(long long count) {
    constexpr auto kSize = static_cast<long long>(sizeof(T));
    if (count < 0 || count > INT_MAX / kSize) throw std::bad_alloc();
    return static_cast<T*>(MemoryManager::Alloc(static_cast<unsigned int>(count * kSize), __FILE__, __LINE__, true));
}

void Append(Bucket* bucket, Node* node) {
    node->m_pPrev = bucket->m_pLast;
    node->m_pNext = nullptr;
    if (bucket->m_pLast) {
        bucket->m_pLast->m_pNext = node;
    } else {
        bucket->m_pFirst = node;
    }
    bucket->m_pLast = node;
}

void Unlink(Bucket* bucket, Node* node) {
    (node->m_pPrev ? node->m_pPrev->m_pNext : bucket->m_pFirst) = node->m_pNext;
    (node->m_pNext ? node->m_pNext->m_pPrev : bucket->m_pLast) = node->m_pPrev;
}

void FreeNode(Node* node) {
    auto* entry = reinterpret_cast<Entry*>(node);  // the node is its first member
    FREE_RValue__Pre(&entry->store.key);
    FREE_RValue__Pre(&entry->store.value);
    MemoryManager::Free(entry);
}

/// Replaces a value by a copy of another; the old one is released last, for it may hold the new one.
void Replace(RValue* place, const RValue* value) {
    RValue old = *place;
    COPY_RValue(place, value);
    FREE_RValue__Pre(&old);
}

// --- tables ---------------------------------------------------------------------------------------------------------

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

std::recursive_mutex& Mutex() {
    static auto* mutex = new std::recursive_mutex;  // outlives every static object that holds a container
    return *mutex;
}

thread_local int t_holds = 0;

}  // namespace

// --- maps -----------------------------------------------------------------------------------------------------------

CDS_Map::CDS_Map() : m_pHashTable(nullptr), m_visited(0), pGCProxy(nullptr), m_firstUsed(0) {
    auto table = std::make_unique<Hash<MapStore>>();
    table->m_pHashingTable = AllocZeroed<Bucket>(kFirstBuckets);
    table->m_HashingMask = kFirstBuckets - 1;
    m_pHashTable = table.release();
}

CDS_Map::~CDS_Map() {
    Clear();
    MemoryManager::Free(m_pHashTable->m_pHashingTable);
    delete m_pHashTable;
}

bool CDS_Map::Add(const RValue* key, const RValue* value) {
    unsigned int id = HashOf(*key);
    if (NodeOf(key, id)) return false;
    Insert(key, value, id);
    return true;
}

void CDS_Map::Set(const RValue* key, const RValue* value) {
    unsigned int id = HashOf(*key);
    if (Node* node = NodeOf(key, id)) {
        Replace(&node->m_pObj->value, value);
    } else {
        Insert(key, value, id);
    }
}

const RValue* CDS_Map::Find(const RValue* key) const {
    const Node* node = NodeOf(key, HashOf(*key));
    return node ? &node->m_pObj->value : nullptr;
}

bool CDS_Map::Delete(const RValue* key) {
    unsigned int id = HashOf(*key);
    Node* node = NodeOf(key, id);
    if (!node) return false;
    Unlink(&m_pHashTable->m_pHashingTable[id & static_cast<unsigned int>(m_pHashTable->m_HashingMask)], node);
    --m_pHashTable->m_Count;
    FreeNode(node);
    return true;
}

void CDS_Map::Clear() {
    for (int i = 0; i <= m_pHashTable->m_HashingMask; ++i) {
        Bucket& bucket = m_pHashTable->m_pHashingTable[i];
        while (Node* node = bucket.m_pFirst) {
            Unlink(&bucket, node);
            --m_pHashTable->m_Count;
            FreeNode(node);
        }
    }
    Shrink();
}

/// An empty table as it was at first, so that a map that was large once is walked and filled like a new one.
void CDS_Map::Shrink() {
    m_firstUsed = 0;
    if (m_pHashTable->m_HashingMask < kFirstBuckets) return;
    try {
        constexpr unsigned int kBytes = kFirstBuckets * sizeof(Bucket);
        void* fewer = MemoryManager::ReAlloc(m_pHashTable->m_pHashingTable, kBytes, __FILE__, __LINE__, false);
        m_pHashTable->m_pHashingTable = static_cast<Bucket*>(fewer);
        m_pHashTable->m_HashingMask = kFirstBuckets - 1;
    } catch (const std::bad_alloc&) {
        // the table stays as large as it was
    }
}

const MapStore* CDS_Map::FindFirst() const {
    const Node* node = FirstFrom(0);
    return node ? node->m_pObj : nullptr;
}

const MapStore* CDS_Map::FindNext(const RValue* key) const {
    unsigned int id = HashOf(*key);
    const Node* node = NodeOf(key, id);
    if (!node) return nullptr;
    auto bucket = static_cast<int>(id & static_cast<unsigned int>(m_pHashTable->m_HashingMask));
    const Node* next = node->m_pNext ? node->m_pNext : FirstFrom(bucket + 1);
    return next ? next->m_pObj : nullptr;
}

HashNode<MapStore>* CDS_Map::NodeOf(const RValue* key, unsigned int id) const {
    unsigned int bucket = id & static_cast<unsigned int>(m_pHashTable->m_HashingMask);
    for (Node* node = m_pHashTable->m_pHashingTable[bucket].m_pFirst; node; node = node->m_pNext) {
        if (node->m_ID == id && IsSameKey(node->m_pObj->key, *key)) return node;
    }
    return nullptr;
}

HashNode<MapStore>* CDS_Map::FirstFrom(int bucket) const {
    bool fromStart = bucket <= m_firstUsed;
    if (fromStart) bucket = m_firstUsed;
    while (bucket <= m_pHashTable->m_HashingMask && !m_pHashTable->m_pHashingTable[bucket].m_pFirst) {
        ++bucket;
    }
    if (fromStart) m_firstUsed = bucket;
    return bucket <= m_pHashTable->m_HashingMask ? m_pHashTable->m_pHashingTable[bucket].m_pFirst : nullptr;
}

void CDS_Map::Insert(const RValue* key, const RValue* value, unsigned int id) {
    if (m_pHashTable->m_Count > m_pHashTable->m_HashingMask) Grow();
    auto* entry = AllocZeroed<Entry>(1);
    COPY_RValue(&entry->store.key, key);
    COPY_RValue(&entry->store.value, value);
    entry->node.m_ID = id;
    entry->node.m_pObj = &entry->store;
    unsigned int bucket = id & static_cast<unsigned int>(m_pHashTable->m_HashingMask);
    Append(&m_pHashTable->m_pHashingTable[bucket], &entry->node);
    m_firstUsed = std::min(m_firstUsed, static_cast<int>(bucket));
    ++m_pHashTable->m_Count;
}

/// Twice the buckets; what shared a bucket and still does keeps its order.
void CDS_Map::Grow() {
    int buckets = m_pHashTable->m_HashingMask + 1;
    if (buckets >= kMaxBuckets) throw std::bad_alloc();
    auto* grown = AllocZeroed<Bucket>(buckets * 2LL);
    unsigned int mask = static_cast<unsigned int>(buckets) * 2 - 1;
    for (int i = 0; i < buckets; ++i) {
        Node* next = nullptr;
        for (Node* node = m_pHashTable->m_pHashingTable[i].m_pFirst; node; node = next) {
            next = node->m_pNext;
            Append(&grown[node->m_ID & mask], node);
        }
    }
    MemoryManager::Free(m_pHashTable->m_pHashingTable);
    m_pHashTable->m_pHashingTable = grown;
    m_pHashTable->m_HashingMask = static_cast<int>(mask);
    m_firstUsed = 0;
}

// --- lists and grids ------------------------------------------------------------------------------------------------

CDS_List::~CDS_List() {
    Clear();
    MemoryManager::Free(m_elements);
}

bool CDS_List::Insert(int index, const RValue* value) {
    if (index < 0 || index > m_count) return false;
    RValue copy;
    COPY_RValue(&copy, value);  // it may be one of those that move
    if (m_count == m_allocated) {
        long long grown = m_allocated ? m_allocated * 2LL : kFirstElements;
        long long bytes = grown * static_cast<long long>(sizeof(RValue));
        void* moved = nullptr;
        try {
            if (bytes > INT_MAX) throw std::bad_alloc();
            moved = MemoryManager::ReAlloc(m_elements, static_cast<unsigned int>(bytes), __FILE__, __LINE__, false);
        } catch (const std::bad_alloc&) {
            FREE_RValue__Pre(&copy);
            throw;
        }
        m_elements = static_cast<RValue*>(moved);
        m_allocated = static_cast<int>(grown);
    }
    RValue* place = m_elements + index;
    std::memmove(place + 1, place, static_cast<size_t>(m_count - index) * sizeof(RValue));
    *place = copy;
    ++m_count;
    return true;
}

bool CDS_List::Set(int index, const RValue* value) {
    if (index < 0 || index >= m_count) return false;
    Replace(&m_elements[index], value);
    return true;
}

bool CDS_List::Delete(int index) {
    if (index < 0 || index >= m_count) return false;
    RValue old = m_elements[index];
    --m_count;
    RValue* place = m_elements + index;
    std::memmove(place, place + 1, static_cast<size_t>(m_count - index) * sizeof(RValue));
    FREE_RValue__Pre(&old);
    return true;
}

void CDS_List::Clear() {
    while (m_count > 0) {
        FREE_RValue__Pre(&m_elements[--m_count]);
    }
}

CDS_Grid::CDS_Grid(int width, int height) : m_width(width), m_height(height), m_cells(nullptr) {
    if (width < 0 || height < 0) throw std::bad_alloc();
    m_cells = AllocZeroed<RValue>(static_cast<long long>(width) * height);
}

CDS_Grid::~CDS_Grid() {
    for (long long i = 0; i < static_cast<long long>(m_width) * m_height; ++i) {
        FREE_RValue__Pre(&m_cells[i]);
    }
    MemoryManager::Free(m_cells);
}

RValue* CDS_Grid::At(int column, int row) const {
    bool inside = column >= 0 && column < m_width && row >= 0 && row < m_height;
    return inside ? &m_cells[static_cast<long long>(row) * m_width + column] : nullptr;
}

// --- the tables -----------------------------------------------------------------------------------------------------

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
    DS_AutoMutex lock;
    std::vector<RValue> pending{*reference};  // references own nothing
    auto add = [&](const RValue& value) {
        if (value.kind & (KIND_DS_MAP | KIND_DS_LIST)) pending.push_back(value);
    };
    while (!pending.empty()) {
        RValue next = pending.back();
        pending.pop_back();
        if (CDS_Map* map = DsMapOf(&next)) {
            for (const MapStore* entry = map->FindFirst(); entry; entry = map->FindNext(&entry->key)) {
                add(entry->value);
            }
            FreeDsMap(static_cast<int>(next.real));
        } else if (CDS_List* list = DsListOf(&next)) {
            for (int i = 0; i < list->m_count; ++i) {
                add(list->m_elements[i]);
            }
            FreeDsList(static_cast<int>(next.real));
        }
    }
}

int CreateDsMap(int count, ...) {
    DS_AutoMutex lock;
    auto map = std::make_unique<CDS_Map>();
    va_list entries;
    va_start(entries, count);
    RValue key{};
    RValue value{};
    auto release = [&] {
        FREE_RValue__Pre(&key);
        FREE_RValue__Pre(&value);
        key = value = RValue{};
    };
    try {
        for (int i = 0; i < count; ++i) {
            KXCreateString(&key, va_arg(entries, const char*));
            value.real = va_arg(entries, double);
            const char* text = va_arg(entries, const char*);
            if (text) KXCreateString(&value, text);
            map->Set(&key, &value);
            release();
        }
    } catch (...) {
        release();
        va_end(entries);
        throw;
    }
    va_end(entries);
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = map.release();
    return index;
}

DS_AutoMutex::DS_AutoMutex() {
    if (t_holds >= kx::kMaxNesting) throw KXRecursionLimit{};
    Mutex().lock();
    ++t_holds;
}

DS_AutoMutex::~DS_AutoMutex() {
    --t_holds;
    Mutex().unlock();
}
