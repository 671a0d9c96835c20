// Maps, lists and grids.
#include "Files/Support/Support_Data_Structures.h"

#include "Files/Base/Number.h"
#include "Files/Support/Support_Data_Structures_Store.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace {

constexpr int kFirstElements = 4;
constexpr int kMaxBuckets = 1 << 30;

/// Entries of a map's first slab, and of those that a large map takes.
constexpr int kFirstSlab = 4;
constexpr int kLargestSlab = 64;

/// A chain that is longer than chance makes one: someone has chosen keys that share a bucket.
constexpr int kLongChain = 64;

std::atomic<uint64_t> g_lastSerial{0};

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

std::string_view TextOf(const RValue& string) {
    bool hasText = string.str && string.str->m_thing;
    return hasText ? std::string_view(string.str->m_thing, static_cast<size_t>(string.str->m_size)) : "";
}

bool IsText(const RValue& key) {
    return (key.kind & KIND_MASK) == VALUE_STRING;
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
        std::string_view text = TextOf(key);
        hash.Add(text.data(), text.size());
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
    if (kind == VALUE_STRING) return TextOf(a) == TextOf(b);
    if (kind == VALUE_BOOL) return (a.real != 0.0) == (b.real != 0.0);
    if (kind == VALUE_PTR || kind == VALUE_ARRAY || kind == VALUE_OBJECT) return a.ptr == b.ptr;
    bool single = kind == VALUE_UNDEFINED || kind == VALUE_NULL || kind == VALUE_UNSET;
    return single || a.i64 == b.i64;
}

// --- maps -----------------------------------------------------------------------------------------------------------

using Node = HashNode<MapStore>;
using Bucket = HashLink<Node>;

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

}  // namespace

// --- maps -----------------------------------------------------------------------------------------------------------

/// A node and what it points to.
struct CDS_Map::Entry {
    Node node;
    MapStore store;
};

/// Room for entries, so that a small map takes one block for all of them.
struct alignas(MapStore) CDS_Map::Slab {
    Slab* next;
    int size;
    int used;  // the rest has never been

    Entry* Entries() { return reinterpret_cast<Entry*>(this + 1); }
};

/// Keys that are texts, in an order of their own.
struct CDS_Map::TextOrder {
    using is_transparent = void;

    bool operator()(const Node* a, const Node* b) const { return TextOf(a->m_pObj->key) < TextOf(b->m_pObj->key); }
    bool operator()(const Node* a, const RValue* b) const { return TextOf(a->m_pObj->key) < TextOf(*b); }
    bool operator()(const RValue* a, const Node* b) const { return TextOf(*a) < TextOf(b->m_pObj->key); }
};

uint64_t NewDsSerial() {
    return ++g_lastSerial;
}

CDS_Map::CDS_Map()
    : m_pHashTable(&m_table), m_visited(0), pGCProxy(nullptr), m_serial(NewDsSerial()),
      m_changes(0), m_table{}, m_firstBuckets{}, m_firstUsed(0) {
    UseFirstBuckets();
}

CDS_Map::~CDS_Map() {
    ForEachEntry(*this, [](MapStore& entry) {
        FREE_RValue__Pre(&entry.key);
        FREE_RValue__Pre(&entry.value);
    });
    FreeSlabs();
    UseFirstBuckets();
}

void CDS_Map::Reserve(int count) {
    if (count <= m_table.m_Count) return;
    while (m_table.m_HashingMask < count - 1) {
        Grow();
    }
    bool fits = m_slabs && m_slabs->size - m_slabs->used >= count - m_table.m_Count;
    if (!fits) AddSlab(count - m_table.m_Count);
}

bool CDS_Map::Add(const RValue* key, const RValue* value) {
    unsigned int id = HashOf(*key);
    if (NodeOf(key, id)) return false;
    Insert(key, value, id);
    return true;
}

bool CDS_Map::Take(RValueOwner* key, RValueOwner* value) {
    unsigned int id = HashOf(key->value);
    if (NodeOf(&key->value, id)) return false;
    if (m_table.m_Count > m_table.m_HashingMask) Grow();
    Node* node = NewNode();
    *node->m_pObj = {std::exchange(key->value, RValue{}), std::exchange(value->value, RValue{})};
    Link(node, id);
    return true;
}

void CDS_Map::Set(const RValue* key, const RValue* value) {
    unsigned int id = HashOf(*key);
    if (Node* node = NodeOf(key, id)) {
        kx::ReplaceValue(&node->m_pObj->value, value);
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
    if (m_texts && IsText(*key)) m_texts->erase(node);
    Unlink(&m_pHashTable->m_pHashingTable[id & static_cast<unsigned int>(m_pHashTable->m_HashingMask)], node);
    --m_pHashTable->m_Count;
    ++m_changes;
    ReleaseNode(node);
    return true;
}

void CDS_Map::Clear() {
    m_texts.reset();
    ++m_changes;
    for (int i = 0; i <= m_table.m_HashingMask; ++i) {
        Bucket& bucket = m_table.m_pHashingTable[i];
        while (Node* node = bucket.m_pFirst) {
            Unlink(&bucket, node);
            --m_table.m_Count;
            ReleaseNode(node);
        }
    }
    FreeSlabs();
    UseFirstBuckets();
}

HashNode<MapStore>* CDS_Map::NewNode() {
    if (m_freeNodes) return std::exchange(m_freeNodes, m_freeNodes->m_pNext);
    bool full = !m_slabs || m_slabs->used == m_slabs->size;
    if (full) AddSlab(m_slabs ? m_slabs->size * 2 : kFirstSlab);
    Entry* entry = &m_slabs->Entries()[m_slabs->used++];
    entry->node.m_pObj = &entry->store;
    return &entry->node;
}

void CDS_Map::AddSlab(int size) {
    size = std::clamp(size, 1, kLargestSlab);
    auto bytes = static_cast<unsigned int>(sizeof(Slab) + static_cast<size_t>(size) * sizeof(Entry));
    auto* slab = static_cast<Slab*>(MemoryManager::Alloc(bytes, __FILE__, __LINE__, false));
    *slab = {m_slabs, size, 0};
    m_slabs = slab;
}

/// What the entry holds may be the last to hold something that leads back here, so its node is free only afterwards.
void CDS_Map::ReleaseNode(Node* node) {
    FREE_RValue__Pre(&node->m_pObj->key);
    FREE_RValue__Pre(&node->m_pObj->value);
    node->m_pNext = m_freeNodes;
    m_freeNodes = node;
}

void CDS_Map::FreeSlabs() {
    m_freeNodes = nullptr;
    while (m_slabs) {
        MemoryManager::Free(std::exchange(m_slabs, m_slabs->next));
    }
}

/// An empty table as it is at first, so that a map that was large once is walked and filled like a new one.
void CDS_Map::UseFirstBuckets() {
    if (m_table.m_pHashingTable != m_firstBuckets) MemoryManager::Free(m_table.m_pHashingTable);
    m_table.m_pHashingTable = m_firstBuckets;
    m_table.m_HashingMask = kFirstBuckets - 1;
    m_firstUsed = 0;
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
    bool isText = IsText(*key);
    if (isText && m_texts) {
        auto found = m_texts->find(key);
        return found == m_texts->end() ? nullptr : *found;
    }
    unsigned int bucket = id & static_cast<unsigned int>(m_pHashTable->m_HashingMask);
    int length = 0;
    for (Node* node = m_pHashTable->m_pHashingTable[bucket].m_pFirst; node; node = node->m_pNext) {
        if (node->m_ID == id && IsSameKey(node->m_pObj->key, *key)) return node;
        ++length;
    }
    if (isText && length > kLongChain) OrderTexts();
    return nullptr;
}

/// Without the memory for its order such a map is slow, not wrong.
void CDS_Map::OrderTexts() const {
    try {
        m_texts = std::make_unique<Texts>();
        for (int bucket = 0; bucket <= m_pHashTable->m_HashingMask; ++bucket) {
            for (Node* node = m_pHashTable->m_pHashingTable[bucket].m_pFirst; node; node = node->m_pNext) {
                if (IsText(node->m_pObj->key)) m_texts->insert(node);
            }
        }
    } catch (const std::bad_alloc&) {
        m_texts.reset();
    }
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
    if (m_table.m_Count > m_table.m_HashingMask) Grow();
    Node* node = NewNode();
    COPY_RValue(&node->m_pObj->key, key);
    COPY_RValue(&node->m_pObj->value, value);
    Link(node, id);
}

/// Puts a node that has its entry into the table.
void CDS_Map::Link(Node* node, unsigned int id) {
    node->m_ID = id;
    unsigned int bucket = id & static_cast<unsigned int>(m_table.m_HashingMask);
    Append(&m_table.m_pHashingTable[bucket], node);
    m_firstUsed = std::min(m_firstUsed, static_cast<int>(bucket));
    ++m_table.m_Count;
    ++m_changes;
    if (m_texts && IsText(node->m_pObj->key)) OrderText(node);
}

void CDS_Map::OrderText(Node* node) {
    try {
        m_texts->insert(node);
    } catch (const std::bad_alloc&) {
        m_texts.reset();
    }
}

/// Twice the buckets; what shared a bucket and still does keeps its order.
void CDS_Map::Grow() {
    int buckets = m_pHashTable->m_HashingMask + 1;
    if (buckets >= kMaxBuckets) throw std::bad_alloc();
    auto* grown = kx::AllocZeroed<Bucket>(buckets * 2LL);
    unsigned int mask = static_cast<unsigned int>(buckets) * 2 - 1;
    for (int i = 0; i < buckets; ++i) {
        Node* next = nullptr;
        Bucket& bucket = m_table.m_pHashingTable[i];
        Node* first = std::exchange(bucket, Bucket{}).m_pFirst;
        for (Node* node = first; node; node = next) {
            next = node->m_pNext;
            Append(&grown[node->m_ID & mask], node);
        }
    }
    if (m_table.m_pHashingTable != m_firstBuckets) MemoryManager::Free(m_table.m_pHashingTable);
    m_table.m_pHashingTable = grown;
    m_table.m_HashingMask = static_cast<int>(mask);
    m_firstUsed = 0;
}

// --- lists and grids ------------------------------------------------------------------------------------------------

CDS_List::~CDS_List() {
    Clear();
    MemoryManager::Free(m_elements);
}

void CDS_List::Reserve(int count) {
    if (count <= m_allocated) return;
    long long bytes = count * static_cast<long long>(sizeof(RValue));
    if (bytes > INT_MAX) throw std::bad_alloc();
    void* moved = MemoryManager::ReAlloc(m_elements, static_cast<unsigned int>(bytes), __FILE__, __LINE__, false);
    m_elements = static_cast<RValue*>(moved);
    m_allocated = count;
}

void CDS_List::Add(const RValue* value) {
    bool moves = m_count == m_allocated;
    if (moves) {
        Insert(m_count, value);
    } else {
        COPY_RValue(&m_elements[m_count++], value);
    }
}

bool CDS_List::Insert(int index, const RValue* value) {
    if (index < 0 || index > m_count) return false;
    RValueOwner copy;
    COPY_RValue(&copy.value, value);  // it may be one of those that move
    if (m_count == m_allocated) Reserve(m_allocated ? kx::ToInt32(m_allocated * 2.0) : kFirstElements);
    RValue* place = m_elements + index;
    std::memmove(place + 1, place, static_cast<size_t>(m_count - index) * sizeof(RValue));
    *place = std::exchange(copy.value, RValue{});
    ++m_count;
    return true;
}

bool CDS_List::Set(int index, const RValue* value) {
    if (index < 0 || index >= m_count) return false;
    kx::ReplaceValue(&m_elements[index], value);
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
