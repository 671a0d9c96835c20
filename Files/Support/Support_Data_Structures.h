#pragma once

#include "Files/Base/RValue.h"
#include "Files/Support/Csv.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

/// Maps, lists and grids of script values, which scripts know by their index in a table.
///
/// A container lives in its table from the moment that it is stored there until it is freed by its index; a value that
/// refers to one is a real with a mark (KIND_DS_MAP, KIND_DS_LIST) and owns nothing. Freeing a container releases what
/// its values own and leaves the containers that they refer to alone, unless the whole tree is freed.
///
///     DS_AutoMutex lock;
///     int index = FindFreeDsMapIndex();          // 1 or above: index 0 is never handed out
///     themaps.arr[index] = new CDS_Map;          // the caller stores it there before it asks for the next one
///     themaps.arr[index]->Set(&key, &value);     // copies; the caller still owns its own
///     FreeDsMap(index);
///
/// @thread any, under DS_AutoMutex: tables and containers have no lock of their own.

/// A number that no other container of the process has had or will have: by it one that was freed is told from the one
/// that has its index now.
/// @thread any
uint64_t NewDsSerial();

// --- maps ----------------------------------------------------------------------------------------------------------

struct MapStore {
    RValue key;
    RValue value;
};

template <class T>
struct HashNode {
    HashNode* m_pPrev;  ///< the chain inside a bucket
    HashNode* m_pNext;
    unsigned int m_ID;  ///< the key's hash
    T* m_pObj;
};

template <class Node>
struct HashLink {
    Node* m_pFirst;
    Node* m_pLast;
};

template <class T>
struct Hash {
    HashLink<HashNode<T>>* m_pHashingTable;  ///< m_HashingMask + 1 buckets
    int m_HashingMask;                       ///< the highest bucket's number, a power of two less one
    int m_Count;
};

/// A map. Keys are equal when they are the same text, the same number whatever its kind, or the same value of another
/// kind; NaN is equal to itself.
///
/// The walk goes through the buckets from the first and in each through the chain. For texts, numbers and bools its
/// order depends on what was added and deleted since the map was empty, and is the same on every target; arrays,
/// structs and pointers are keys by their address. Texts may be anyone's, a server's too, and chosen to share a bucket:
/// where many do, the map keeps its texts in order besides, and finds one of n in the order of log n steps.
class CDS_Map {
public:
    CDS_Map();
    CDS_Map(const CDS_Map&) = delete;
    CDS_Map& operator=(const CDS_Map&) = delete;
    ~CDS_Map();

    /// Makes room for so many entries in all. The walk's order is the same with and without.
    /// @throws std::bad_alloc
    void Reserve(int count);

    /// Adds a copy of an entry. An entry of that key stays as it is.
    /// @return false where the key was there.
    /// @throws std::bad_alloc; the map is then as it was.
    bool Add(const RValue* key, const RValue* value);

    /// The same, but without copies: the entry's owners give up what they hold where it is added.
    bool Take(RValueOwner* key, RValueOwner* value);

    /// Adds a copy of an entry, or replaces the value of that key.
    /// @throws std::bad_alloc; the map is then as it was.
    void Set(const RValue* key, const RValue* value);

    /// @return the value, which belongs to the map; null where the key is not there.
    const RValue* Find(const RValue* key) const;

    /// @return false where the key was not there.
    bool Delete(const RValue* key);

    void Clear();
    int Count() const { return m_pHashTable->m_Count; }

    /// The walk. What follows a key can be asked for as long as that key is in the map.
    /// @return null at the end, and for a key that is not there.
    const MapStore* FindFirst() const;
    const MapStore* FindNext(const RValue* key) const;

    Hash<MapStore>* m_pHashTable;
    uint32_t m_visited;  ///< visit stamp; see g_comparisonSTRUCT_RValue
    void* pGCProxy;      ///< the host's; null in this one

    uint64_t m_serial;   ///< see NewDsSerial
    uint64_t m_changes;  ///< another one as soon as an entry has come or gone
    CDS_Map* m_nextToFree = nullptr;

private:
    struct Entry;
    struct Slab;
    struct TextOrder;
    using Texts = std::set<HashNode<MapStore>*, TextOrder>;

    HashNode<MapStore>* NodeOf(const RValue* key, unsigned int id) const;
    HashNode<MapStore>* FirstFrom(int bucket) const;
    void Insert(const RValue* key, const RValue* value, unsigned int id);
    void Link(HashNode<MapStore>* node, unsigned int id);
    HashNode<MapStore>* NewNode();
    void AddSlab(int size);
    void ReleaseNode(HashNode<MapStore>* node);
    void FreeSlabs();
    void Grow();
    void UseFirstBuckets();
    void OrderTexts() const;
    void OrderText(HashNode<MapStore>* node);

    static constexpr int kFirstBuckets = 4;

    Hash<MapStore> m_table;
    HashLink<HashNode<MapStore>> m_firstBuckets[kFirstBuckets];  // most maps are small
    Slab* m_slabs = nullptr;
    HashNode<MapStore>* m_freeNodes = nullptr;
    mutable int m_firstUsed;                 // no bucket below it has an entry
    mutable std::unique_ptr<Texts> m_texts;  // every entry whose key is a text; null in an ordinary map
};

/// Calls `visit` with every entry of a map, in the order of its walk. The map must not gain or lose one meanwhile.
template <class Visit>
void ForEachEntry(const CDS_Map& map, Visit visit) {
    const Hash<MapStore>& table = *map.m_pHashTable;
    for (int bucket = 0; bucket <= table.m_HashingMask; ++bucket) {
        for (HashNode<MapStore>* node = table.m_pHashingTable[bucket].m_pFirst; node; node = node->m_pNext) {
            visit(*node->m_pObj);
        }
    }
}

// --- lists and grids -----------------------------------------------------------------------------------------------

/// A list. Elements are numbered from 0.
class CDS_List {
public:
    CDS_List() : m_serial(NewDsSerial()) {}
    CDS_List(const CDS_List&) = delete;
    CDS_List& operator=(const CDS_List&) = delete;
    ~CDS_List();

    /// Makes room for so many elements in all.
    /// @throws std::bad_alloc
    void Reserve(int count);

    /// Adds a copy at the end.
    /// @throws std::bad_alloc; the list is then as it was. So do the two below.
    void Add(const RValue* value);

    /// Puts a copy before the element of an index, which may be the count; the rest moves down.
    /// @return false, nothing changed, for an index beyond that.
    bool Insert(int index, const RValue* value);

    /// Replaces an element by a copy.
    /// @return false, nothing changed, for an index that is not there.
    bool Set(int index, const RValue* value);

    /// @return the element, which belongs to the list; null where it is not there.
    const RValue* Get(int index) const { return index >= 0 && index < m_count ? &m_elements[index] : nullptr; }

    /// Takes an element out; the rest moves up.
    /// @return false where it is not there.
    bool Delete(int index);

    void Clear();

    int m_count = 0;
    RValue* m_elements = nullptr;  ///< m_count of them, host memory
    unsigned int m_visited = 0;    ///< visit stamp; see g_comparisonARRAY_RValue

    uint64_t m_serial;  ///< see NewDsSerial
    CDS_List* m_nextToFree = nullptr;

private:
    int m_allocated = 0;
};

/// A grid of values, row by row, or of texts that a file held, which share one block of memory.
class CDS_Grid {
public:
    /// @param width   columns, 0 or more.
    /// @param height  rows, 0 or more. All cells are the real 0 at first.
    /// @throws std::bad_alloc, also where the size makes no sense.
    CDS_Grid(int width, int height);

    /// A grid of strings. Cells that a row does not have are empty ones.
    explicit CDS_Grid(kx::TextRows texts);

    CDS_Grid(const CDS_Grid&) = delete;
    CDS_Grid& operator=(const CDS_Grid&) = delete;
    ~CDS_Grid();

    /// Copies a cell.
    /// @param copy  set to what the caller owns then; what it held before is not released.
    /// @return false, nothing changed, for a cell that is not there.
    /// @throws std::bad_alloc
    bool Get(int column, int row, RValue* copy) const;

    /// Replaces a cell by a copy.
    /// @return false, nothing changed, for a cell that is not there.
    /// @throws std::bad_alloc; the grid is then as it was.
    bool Set(int column, int row, const RValue* value);

    /// Calls `visit` with every cell but the texts that the grid was made of.
    template <class Visit>
    void ForEachValue(Visit visit) const {
        for (size_t i = 0; i < m_cellCount; ++i) {
            visit(m_cells[i]);
        }
        for (const auto& cell : m_changed) {
            visit(cell.second);
        }
    }

    int m_width;
    int m_height;
    uint64_t m_serial;  ///< see NewDsSerial

private:
    [[nodiscard]] bool HasCell(int column, int row) const;
    [[nodiscard]] uint64_t IndexOf(int column, int row) const;

    // One or the other, row by row: values in host memory, or texts and the values that have taken their places.
    RValue* m_cells = nullptr;
    size_t m_cellCount = 0;
    kx::TextRows m_texts;
    std::unordered_map<uint64_t, RValue> m_changed;
};

// --- the tables ----------------------------------------------------------------------------------------------------

/// One table of containers. `arr` never moves: its room is reserved as address space when the first index is asked for.
template <class Container>
struct DS_Table {
    int length = 0;  ///< indices that have been handed out so far, 0 included; those freed are null
    Container** arr = nullptr;

    std::vector<int> m_free;  ///< indices to be handed out again; always with room for all
    int m_handedOut = 0;      ///< the last one, which may not be stored in yet
};

extern DS_Table<CDS_Map> themaps;
extern DS_Table<CDS_List> thelists;
extern DS_Table<CDS_Grid> thegrids;

/// Map indices that are in use: always themaps.length.
extern int mapnumb;

/// @return an index whose slot is empty, 1 or above. The same one again until something is stored there.
/// @throws std::bad_alloc beyond kx::kMaxContainers.
int FindFreeDsMapIndex();
int FindFreeDsListIndex();
int FindFreeDsGridIndex();

/// Frees a container. Nothing happens for an index that has none.
void FreeDsMap(int index);
void FreeDsList(int index);
void FreeDsGrid(int index);

/// @return the serial of the map of an index; 0 where there is none.
/// @thread any; takes the lock itself.
uint64_t SerialOfDsMap(int index);

/// Frees the map or list that a value refers to, with every map and list that it leads to through maps and lists, in a
/// circle too. Nothing happens for a value that refers to none.
void FreeDsTree(const RValue* reference);

/// The same for a map or list that is in no table.
void FreeDsTree(CDS_Map* map);
void FreeDsTree(CDS_List* list);

/// A new map or list while it is filled: freed with all that it leads to, unless it has got its place in the table.
template <class Container>
class DS_Owner {
public:
    DS_Owner() : m_container(new Container) {}
    DS_Owner(const DS_Owner&) = delete;
    DS_Owner& operator=(const DS_Owner&) = delete;
    ~DS_Owner() {
        if (m_container) FreeDsTree(m_container);
    }

    Container* Get() const { return m_container; }
    Container* operator->() const { return m_container; }

    Container* Release() {
        Container* container = m_container;
        m_container = nullptr;
        return container;
    }

private:
    Container* m_container;
};

/// @return the map or list that a value refers to; null where it refers to none, or to one that is freed.
CDS_Map* DsMapOf(const RValue* reference);
CDS_List* DsListOf(const RValue* reference);

/// Makes a map of entries, each a key (`const char*`), a number (`double`) and a text (`const char*`): the entry is the
/// text where that is not null, else the number.
/// @param count  entries, three arguments each.
/// @return the map's index.
/// @throws std::bad_alloc
/// @thread any; takes the lock itself.
int CreateDsMap(int count, ...);

/// The lock over tables and containers, held as long as this lives. Recursive.
///
/// It is taken once more for each value inside a value, so that it is also what stops a walk that never ends.
/// @throws KXRecursionLimit where one thread holds it kx::kMaxNesting times.
class DS_AutoMutex {
public:
    DS_AutoMutex();
    DS_AutoMutex(const DS_AutoMutex&) = delete;
    DS_AutoMutex& operator=(const DS_AutoMutex&) = delete;
    ~DS_AutoMutex();
};

/// The opposite, for whoever waits for another thread: this one holds the lock no more, however often it has taken it,
/// as long as this lives. A finaliser of a script may wait in the middle of anything.
class DS_AutoRelease {
public:
    DS_AutoRelease();
    DS_AutoRelease(const DS_AutoRelease&) = delete;
    DS_AutoRelease& operator=(const DS_AutoRelease&) = delete;
    ~DS_AutoRelease();

private:
    int m_holds;
};
