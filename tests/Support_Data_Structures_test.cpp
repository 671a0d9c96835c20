// Maps, lists and grids, and their tables.
#include "Files/Support/Support_Data_Structures.h"

#include "Files/Base/Limits.h"
#include "Files/Base/RefDynamicArray.h"
#include "Platform/MemoryManager.h"
#include "tests/Data_Structures_fixture.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace kx::test {
namespace {

using DataStructures = DataStructuresTest;

/// The numbers under the keys in the order of the walk.
std::vector<double> Walk(const CDS_Map& map) {
    std::vector<double> numbers;
    for (const MapStore* entry = map.FindFirst(); entry; entry = map.FindNext(&entry->key)) {
        numbers.push_back(entry->value.real);
    }
    return numbers;
}

// --- maps ------------------------------------------------------------------------------------------------------------

TEST_F(DataStructures, AMapGivesWhatWasSet) {
    CDS_Map map;

    Set(map, "name", "Ada");
    Set(map, "score", 1200);
    Set(map, "score", 1300);

    EXPECT_EQ(map.Count(), 2);
    EXPECT_STREQ(Find(map, "name")->str->m_thing, "Ada");
    EXPECT_EQ(Find(map, "score")->real, 1300);
    EXPECT_EQ(Find(map, "missing"), nullptr);
}

TEST_F(DataStructures, AddingLeavesAnEntryThatIsThere) {
    CDS_Map map;
    Value key("key");
    Value first(1);
    Value second(2);

    EXPECT_TRUE(map.Add(&key.Get(), &first.Get()));
    EXPECT_FALSE(map.Add(&key.Get(), &second.Get()));

    EXPECT_EQ(Find(map, "key")->real, 1);
    EXPECT_EQ(map.Count(), 1);
}

TEST_F(DataStructures, AMapHoldsReferencesAndNoCopiesOfTexts) {
    Value text("a text");
    {
        CDS_Map map;
        Set(map, "key", text);
        EXPECT_EQ(Find(map, "key")->str, text.Get().str);
        EXPECT_EQ(text.Get().str->m_refCount, 2);
    }
    EXPECT_EQ(text.Get().str->m_refCount, 1);
}

TEST_F(DataStructures, KeysAreEqualByTextByNumberAndByIdentity) {
    Value array;
    array.Get().arr = ARRAY_RefAlloc();
    array.Get().kind = VALUE_ARRAY;
    Value otherArray;
    otherArray.Get().arr = ARRAY_RefAlloc();
    otherArray.Get().kind = VALUE_ARRAY;
    RValue noText{};
    noText.kind = VALUE_STRING;
    struct Case {
        Value a;
        Value b;
        bool same;
    };
    const Case cases[] = {
        {"a", "a", true},
        {"a", "b", false},
        {"", Value(noText), true},
        {"1", 1, false},
        {1, Int32(1), true},
        {1, Int64(1), true},
        {Int32(-5), Int64(-5), true},
        {1, 1.5, false},
        {0.0, -0.0, true},
        {Value(NAN), Value(-NAN), true},
        {Value(INFINITY), Value(-INFINITY), false},
        {1e300, 1e300, true},
        {9007199254740992.0, Int64(9007199254740992), true},
        {9007199254740992.0, Int64(9007199254740993), false},
        {9223372036854775808.0, Int64(INT64_MAX), false},
        {-9223372036854775808.0, Int64(INT64_MIN), true},
        {Bool(true), Bool(true), true},
        {Bool(true), Bool(false), false},
        {Bool(true), 1, false},
        {Value(), Value(), true},
        {Value(), 0, false},
        {MapReference(1), MapReference(1), true},
        {MapReference(1), ListReference(1), false},
        {MapReference(1), 1, false},
        {Other(VALUE_REF, 1), Other(VALUE_REF, 1), true},
        {Other(VALUE_REF, 1), Other(VALUE_REF, 2), false},
        {Other(VALUE_NULL, 1), Other(VALUE_NULL, 2), true},
        {Other(VALUE_UNSET, 1), Other(VALUE_UNSET, 2), true},
        {Other(VALUE_PTR, 16), Other(VALUE_PTR, 16), true},
        {Other(VALUE_PTR, 16), Other(VALUE_PTR, 32), false},
        {Other(VALUE_OBJECT, 16), Other(VALUE_OBJECT, 16), true},
        {Other(VALUE_OBJECT, 16), Other(VALUE_OBJECT, 32), false},
        {array, array, true},
        {array, otherArray, false},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        CDS_Map map;
        Set(map, cases[i].a, 1);

        EXPECT_EQ(Find(map, cases[i].b) != nullptr, cases[i].same) << i;
    }
}

TEST_F(DataStructures, ADeletedEntryIsGoneAndReleased) {
    CDS_Map map;
    Value text("text");
    Set(map, "a", text);
    Set(map, "b", 2);
    Value a("a");

    EXPECT_TRUE(map.Delete(&a.Get()));
    EXPECT_FALSE(map.Delete(&a.Get()));

    EXPECT_EQ(text.Get().str->m_refCount, 1);
    EXPECT_EQ(map.Count(), 1);
    map.Clear();
    EXPECT_EQ(map.Count(), 0);
    EXPECT_EQ(map.FindFirst(), nullptr);
    Set(map, "a", 1);
    EXPECT_EQ(Find(map, "a")->real, 1);
}

TEST_F(DataStructures, TheWalkGoesThroughTheBucketsAndTheirChains) {
    CDS_Map map;
    for (int i = 0; i < 100; ++i) {
        Set(map, "key" + std::to_string(i), i);
    }

    std::vector<double> expected;
    for (int i = 0; i <= map.m_pHashTable->m_HashingMask; ++i) {
        const HashNode<MapStore>* before = nullptr;
        for (auto* node = map.m_pHashTable->m_pHashingTable[i].m_pFirst; node; node = node->m_pNext) {
            EXPECT_EQ(node->m_pPrev, before);
            EXPECT_EQ(node->m_ID & static_cast<unsigned int>(map.m_pHashTable->m_HashingMask),
                      static_cast<unsigned int>(i));
            expected.push_back(node->m_pObj->value.real);
            before = node;
        }
        EXPECT_EQ(map.m_pHashTable->m_pHashingTable[i].m_pLast, before);
    }
    EXPECT_EQ(expected.size(), 100u);
    EXPECT_EQ(Walk(map), expected);
}

TEST_F(DataStructures, TheWalkIsTheSameOnEveryTarget) {
    CDS_Map map;
    const char* const keys[] = {"id", "name", "level", "x", "y", "inventory", "quests", "\xC3\xA4", "", "hp"};
    double number = 0;
    for (const char* key : keys) {
        Set(map, key, number++);
    }
    Set(map, 7, number++);
    Set(map, Int64(-1), number++);
    Set(map, 0.5, number++);
    Set(map, Bool(true), number++);

    EXPECT_EQ(Walk(map), (std::vector<double>{3, 6, 8, 12, 10, 9, 0, 1, 7, 13, 2, 5, 4, 11}));
}

TEST_F(DataStructures, AClearedMapIsWalkedLikeANewOne) {
    CDS_Map fresh;
    CDS_Map used;
    for (int i = 0; i < 500; ++i) {
        Set(used, "key" + std::to_string(i), i);
    }
    used.Clear();
    for (const char* key : {"id", "name", "level", "x", "y"}) {
        double number = key[0];
        Set(fresh, key, number);
        Set(used, key, number);
    }

    EXPECT_EQ(Walk(used), Walk(fresh));
    EXPECT_EQ(used.m_pHashTable->m_HashingMask, fresh.m_pHashTable->m_HashingMask);
}

TEST_F(DataStructures, AMapMayBeEmptiedFromItsFirstEntry) {
    CDS_Map map;
    for (int i = 0; i < 100000; ++i) {
        Set(map, i, i);
    }
    int left = 100000;
    while (const MapStore* entry = map.FindFirst()) {
        RValue key = entry->key;
        ASSERT_TRUE(map.Delete(&key));
        --left;
    }
    EXPECT_EQ(left, 0);
    Set(map, "again", 1);
    EXPECT_EQ(map.FindFirst()->value.real, 1);
}

TEST_F(DataStructures, WhatFollowsAKeyThatIsNotThereIsNothing) {
    CDS_Map map;
    Value missing("missing");
    EXPECT_EQ(map.FindFirst(), nullptr);
    EXPECT_EQ(map.FindNext(&missing.Get()), nullptr);
    Set(map, "a", 1);
    Value last("a");
    EXPECT_EQ(map.FindNext(&last.Get()), nullptr);
}

TEST_F(DataStructures, AMapBehavesLikeAModelWhateverIsDone) {
    std::mt19937 random(1);
    CDS_Map map;
    std::map<std::string, double> model;
    for (int step = 0; step < 20000; ++step) {
        std::string key = "k" + std::to_string(random() % 500);
        Value name(key);
        if (random() % 3 == 0) {
            EXPECT_EQ(map.Delete(&name.Get()), model.erase(key) == 1);
        } else {
            Set(map, name, step);
            model[key] = step;
        }
    }
    EXPECT_EQ(static_cast<size_t>(map.Count()), model.size());
    EXPECT_EQ(Walk(map).size(), model.size());
    for (const auto& each : model) {
        ASSERT_NE(Find(map, each.first), nullptr);
        EXPECT_EQ(Find(map, each.first)->real, each.second);
    }
}

TEST_F(DataStructures, TextsThatShareABucketAreFoundReplacedAndDeletedLikeOthers) {
    CDS_Map map;
    std::vector<std::string> texts = TextsOfOneBucket(500);
    for (size_t i = 0; i < texts.size(); ++i) {
        Set(map, texts[i], static_cast<double>(i));
        Set(map, static_cast<double>(i), -1);  // other keys among them
    }
    ASSERT_EQ(map.m_pHashTable->m_pHashingTable[0].m_pFirst->m_ID % 4096, 0u);

    for (size_t i = 0; i < texts.size(); i += 2) {
        Value key(texts[i]);
        EXPECT_TRUE(map.Delete(&key.Get()));
        EXPECT_FALSE(map.Delete(&key.Get()));
        Set(map, texts[i + 1], 1000.0 + static_cast<double>(i));
    }

    EXPECT_EQ(map.Count(), 750);
    EXPECT_EQ(Walk(map).size(), 750u);
    for (size_t i = 0; i < texts.size(); i += 2) {
        EXPECT_EQ(Find(map, texts[i]), nullptr);
        EXPECT_EQ(Find(map, texts[i + 1])->real, 1000.0 + static_cast<double>(i));
    }
    map.Clear();
    Set(map, texts[0], 1);
    EXPECT_EQ(Find(map, texts[0])->real, 1);
}

TEST_F(DataStructures, ANumberIsDeletedFromAmongTextsThatShareABucket) {
    CDS_Map map;
    for (const std::string& text : TextsOfOneBucket(100)) {
        Set(map, text, 1);
    }
    Set(map, "", 2);
    Set(map, 0, 3);
    Value zero(0);

    EXPECT_TRUE(map.Delete(&zero.Get()));

    EXPECT_EQ(Find(map, 0), nullptr);
    EXPECT_EQ(Find(map, "")->real, 2);
}

TEST_F(DataStructures, AMapMakesRoomBeforehand) {
    CDS_Map map;
    map.Reserve(40);
    long long blocks = MemoryManager::Stats().blocks;
    for (int i = 0; i < 20; ++i) {
        Set(map, i, i);
    }
    map.Reserve(40);  // there is room for the rest
    for (int i = 20; i < 40; ++i) {
        Set(map, i, i);
    }
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);

    map.Reserve(60);
    blocks = MemoryManager::Stats().blocks;
    for (int i = 40; i < 60; ++i) {
        Set(map, i, i);
    }
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

TEST_F(DataStructures, AMapTakesOverWhatItsOwnersHold) {
    CDS_Map copies;
    CDS_Map map;
    for (int i = 0; i < 100; ++i) {
        RValueOwner key(Text(("key" + std::to_string(i)).c_str()));
        RValueOwner value(Real(i));
        copies.Set(&key.value, &value.value);
        RValue before = key.value;

        EXPECT_TRUE(map.Take(&key, &value));

        EXPECT_EQ(before.str->m_refCount, 2);  // the two maps'
        EXPECT_EQ(key.value.kind, VALUE_REAL);
    }
    EXPECT_EQ(Walk(map), Walk(copies));
    EXPECT_EQ(map.m_pHashTable->m_HashingMask, copies.m_pHashTable->m_HashingMask);
}

TEST_F(DataStructures, WhatAMapDoesNotTakeStaysWithItsOwners) {
    CDS_Map map;
    Set(map, "key", 1);
    RValueOwner key(Text("key"));
    RValueOwner value(Text("value"));

    EXPECT_FALSE(map.Take(&key, &value));

    EXPECT_STREQ(key.value.str->m_thing, "key");
    EXPECT_STREQ(value.value.str->m_thing, "value");
    EXPECT_EQ(Find(map, "key")->real, 1);
}

TEST_F(DataStructures, AMapTellsThatEntriesCameOrWentAndNothingElse) {
    CDS_Map map;
    Set(map, "a", 1);
    uint64_t changes = map.m_changes;

    Set(map, "a", 2);
    Find(map, "b");
    EXPECT_EQ(map.m_changes, changes);
    Set(map, "b", 1);
    EXPECT_NE(map.m_changes, changes);
    changes = map.m_changes;
    Value key("b");
    map.Delete(&key.Get());
    EXPECT_NE(map.m_changes, changes);
    changes = map.m_changes;
    map.Clear();
    EXPECT_NE(map.m_changes, changes);
}

TEST_F(DataStructures, ADeletedEntrysRoomIsUsedAgain) {
    CDS_Map map;
    for (int i = 0; i < 100; ++i) {
        Set(map, i, i);
    }
    long long blocks = MemoryManager::Stats().blocks;
    for (int i = 0; i < 10000; ++i) {
        Value key(i);
        map.Delete(&key.Get());
        Set(map, i + 100, i);
    }

    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    EXPECT_EQ(map.Count(), 100);
}

// --- lists and grids -------------------------------------------------------------------------------------------------

TEST_F(DataStructures, AListKeepsItsOrder) {
    CDS_List list;
    auto texts = [&] {
        std::string all;
        for (int i = 0; i < list.m_count; ++i) {
            all += list.Get(i)->str->m_thing;
        }
        return all;
    };
    for (const char* text : {"a", "b", "c", "d", "e", "f"}) {
        Value value(text);
        list.Add(&value.Get());
    }
    Value x("x");

    EXPECT_TRUE(list.Insert(0, &x.Get()));
    EXPECT_TRUE(list.Insert(7, &x.Get()));
    EXPECT_FALSE(list.Insert(9, &x.Get()));
    EXPECT_FALSE(list.Insert(-1, &x.Get()));
    EXPECT_EQ(texts(), "xabcdefx");
    EXPECT_TRUE(list.Set(1, &x.Get()));
    EXPECT_FALSE(list.Set(8, &x.Get()));
    EXPECT_FALSE(list.Set(-1, &x.Get()));
    EXPECT_TRUE(list.Delete(2));
    EXPECT_FALSE(list.Delete(7));
    EXPECT_FALSE(list.Delete(-1));
    EXPECT_EQ(texts(), "xxcdefx");
    EXPECT_EQ(list.Get(7), nullptr);
    EXPECT_EQ(list.Get(-1), nullptr);
    EXPECT_EQ(x.Get().str->m_refCount, 4);
    list.Clear();
    EXPECT_EQ(x.Get().str->m_refCount, 1);
}

TEST_F(DataStructures, AListMayTakeAnElementOfItsOwn) {
    CDS_List list;
    Value text("text");
    list.Add(&text.Get());
    for (int i = 0; i < 100; ++i) {
        list.Insert(0, list.Get(list.m_count - 1));
        list.Set(0, list.Get(0));
    }
    EXPECT_EQ(list.m_count, 101);
    EXPECT_EQ(text.Get().str->m_refCount, 102);
}

TEST_F(DataStructures, AListMakesRoomBeforehand) {
    CDS_List list;
    list.Reserve(1000);
    const RValue* elements = list.m_elements;
    for (int i = 0; i < 1000; ++i) {
        RValue value = Real(i);
        list.Add(&value);
    }
    list.Reserve(10);

    EXPECT_EQ(list.m_elements, elements);
    EXPECT_EQ(list.Get(999)->real, 999);
}

TEST_F(DataStructures, AGridsCellIsReplaced) {
    CDS_Grid grid(2, 2);
    Value text("text");

    EXPECT_TRUE(grid.Set(1, 0, &text.Get()));
    EXPECT_TRUE(grid.Set(1, 0, &text.Get()));
    EXPECT_FALSE(grid.Set(2, 0, &text.Get()));
    EXPECT_FALSE(grid.Set(0, -1, &text.Get()));

    EXPECT_EQ(text.Get().str->m_refCount, 2);
    Value copy;
    EXPECT_TRUE(grid.Get(1, 0, &copy.Get()));
    EXPECT_EQ(copy.Get().str, text.Get().str);
    EXPECT_EQ(text.Get().str->m_refCount, 3);
}

TEST_F(DataStructures, AGridsCellsAreZeroUntilTheyAreSet) {
    CDS_Grid grid(3, 2);
    RValue seven = Real(7);
    EXPECT_TRUE(grid.Set(2, 1, &seven));

    for (int row = 0; row < 2; ++row) {
        for (int column = 0; column < 3; ++column) {
            RValue cell = Real(-1);
            EXPECT_TRUE(grid.Get(column, row, &cell));
            EXPECT_EQ(cell.kind, VALUE_REAL);
            EXPECT_EQ(cell.real, column == 2 && row == 1 ? 7 : 0);
        }
    }
    for (auto [column, row] : {std::pair(3, 0), {0, 2}, {-1, 0}, {0, -1}}) {
        RValue untouched = Real(-1);
        EXPECT_FALSE(grid.Get(column, row, &untouched));
        EXPECT_EQ(untouched.real, -1);
    }
    Value text("released with the grid");
    EXPECT_TRUE(grid.Set(0, 0, &text.Get()));
}

TEST_F(DataStructures, AGridMayBeEmptyAndMustNotBeTooLarge) {
    RValue cell = Real(-1);
    EXPECT_FALSE(CDS_Grid(0, 5).Get(0, 0, &cell));
    EXPECT_FALSE(CDS_Grid(5, 0).Get(0, 0, &cell));
    EXPECT_FALSE(CDS_Grid(5, 0).Set(0, 0, &cell));
    EXPECT_THROW(CDS_Grid(-1, 1), std::bad_alloc);
    for (int side : {1 << 20, 1 << 30, INT_MAX}) {
        EXPECT_THROW(CDS_Grid(side, side), std::bad_alloc);
    }
}

// --- tables ----------------------------------------------------------------------------------------------------------

TEST_F(DataStructures, IndexZeroIsNeverHandedOutAndFreedOnesAreUsedAgain) {
    int first = NewMap();
    int second = NewMap();
    EXPECT_GE(first, 1);
    EXPECT_NE(first, second);

    FreeDsMap(first);
    EXPECT_EQ(themaps.arr[first], nullptr);
    EXPECT_EQ(FindFreeDsMapIndex(), first);
    EXPECT_EQ(FindFreeDsMapIndex(), first);  // nothing was stored there
    EXPECT_EQ(NewMap(), first);

    EXPECT_EQ(mapnumb, themaps.length);
    EXPECT_GT(mapnumb, second);
    FreeDsMap(first);
    FreeDsMap(second);
    FreeDsMap(second);
    FreeDsMap(0);
    FreeDsMap(-1);
    FreeDsMap(mapnumb);
}

TEST_F(DataStructures, AnIndexThatNothingWasStoredAtIsHandedOutAgain) {
    int index = FindFreeDsListIndex();

    EXPECT_EQ(FindFreeDsListIndex(), index);
    EXPECT_EQ(NewList(), index);
    EXPECT_NE(FindFreeDsListIndex(), index);

    FreeDsList(index);
}

TEST_F(DataStructures, TheTableGrowsNoLongerHoweverOftenAnIndexIsUsed) {
    int kept = NewMap();
    int index = NewMap();
    FreeDsMap(index);
    size_t free = themaps.m_free.size();
    int length = themaps.length;

    for (int i = 0; i < 1000; ++i) {
        index = NewMap();
        FreeDsMap(index);
        int first = NewMap();
        int second = NewMap();
        FreeDsMap(first);
        FreeDsMap(second);
    }

    EXPECT_LE(themaps.m_free.size(), free + 2);
    EXPECT_LE(themaps.length, length + 2);
    FreeDsMap(kept);
}

TEST_F(DataStructures, TablesNeverMoveHoweverMuchTheyHold) {
    CDS_Map** before = nullptr;
    std::vector<int> indices;
    for (int i = 0; i < 5000; ++i) {
        indices.push_back(NewMap());
        if (i == 0) before = themaps.arr;
    }
    EXPECT_EQ(themaps.arr, before);
    for (int index : indices) {
        FreeDsMap(index);
    }
    int length = themaps.length;
    for (int& index : indices) {
        index = NewMap();
    }
    EXPECT_EQ(themaps.length, length);
    for (int index : indices) {
        FreeDsMap(index);
    }
}

TEST_F(DataStructures, AReferenceLeadsToItsContainerOrToNothing) {
    int map = NewMap();
    int list = NewList();
    RValue half = MapReference(map);
    half.real += 0.5;

    struct Case {
        RValue reference;
        bool toMap;
        bool toList;
    };
    for (const Case& each : {Case{MapReference(map), true, false},
                             {ListReference(list), false, true},
                             {half, true, false},
                             {MapReference(0), false, false},
                             {MapReference(-1), false, false},
                             {ListReference(thelists.length), false, false},
                             {{{static_cast<double>(map)}, 0, KIND_DS_MAP | KIND_DS_LIST}, true, false},
                             {{{NAN}, 0, KIND_DS_MAP}, false, false},
                             {{{-INFINITY}, 0, KIND_DS_LIST}, false, false},
                             {{{1e300}, 0, KIND_DS_LIST}, false, false},
                             {{{static_cast<double>(map)}, 0, VALUE_REAL}, false, false}}) {
        EXPECT_EQ(DsMapOf(&each.reference) != nullptr, each.toMap) << each.reference.real;
        EXPECT_EQ(DsListOf(&each.reference) != nullptr, each.toList) << each.reference.real;
    }
    FreeDsMap(map);
    FreeDsList(list);
    RValue freed = MapReference(map);
    EXPECT_EQ(DsMapOf(&freed), nullptr);
}

TEST_F(DataStructures, FreeingAContainerLeavesThoseThatItRefersTo) {
    int outer = NewMap();
    int inner = NewList();
    Set(*themaps.arr[outer], "list", ListReference(inner));

    FreeDsMap(outer);

    EXPECT_NE(thelists.arr[inner], nullptr);
    FreeDsList(inner);
}

TEST_F(DataStructures, AWholeTreeIsFreedInACircleToo) {
    int a = NewMap();
    int b = NewMap();
    int list = NewList();
    int other = NewMap();
    Set(*themaps.arr[a], "b", MapReference(b));
    Set(*themaps.arr[b], "list", ListReference(list));
    Set(*themaps.arr[b], "text", "released");
    RValue back = MapReference(a);
    thelists.arr[list]->Add(&back);
    thelists.arr[list]->Add(&back);
    RValue self = ListReference(list);
    thelists.arr[list]->Add(&self);
    RValue root = MapReference(a);

    FreeDsTree(&root);
    FreeDsTree(&root);

    EXPECT_EQ(themaps.arr[a], nullptr);
    EXPECT_EQ(themaps.arr[b], nullptr);
    EXPECT_EQ(thelists.arr[list], nullptr);
    EXPECT_NE(themaps.arr[other], nullptr);
    FreeDsMap(other);
}

TEST_F(DataStructures, AContainerThatIsBeingFilledGoesWithItsTree) {
    int child = 0;
    {
        DS_Owner<CDS_List> list;
        child = NewMap();
        RValue reference = MapReference(child);
        list->Add(&reference);
    }
    EXPECT_EQ(themaps.arr[child], nullptr);

    DS_Owner<CDS_List> kept;
    delete kept.Release();
}

TEST_F(DataStructures, NoTwoContainersHaveOneSerial) {
    int first = NewMap();
    uint64_t serial = themaps.arr[first]->m_serial;
    FreeDsMap(first);
    int second = NewMap();

    EXPECT_EQ(first, second);
    EXPECT_NE(themaps.arr[second]->m_serial, serial);
    EXPECT_NE(CDS_List().m_serial, CDS_List().m_serial);
    EXPECT_NE(CDS_Grid(1, 1).m_serial, CDS_Grid(1, 1).m_serial);
    FreeDsMap(second);
}

TEST_F(DataStructures, AMapsSerialIsFoundByItsIndex) {
    int index = NewMap();

    EXPECT_EQ(SerialOfDsMap(index), themaps.arr[index]->m_serial);
    FreeDsMap(index);

    for (int none : {index, 0, -1, themaps.length, INT_MAX, INT_MIN}) {
        EXPECT_EQ(SerialOfDsMap(none), 0u) << none;
    }
}

TEST_F(DataStructures, ATreeIsFreedWhereTheLockCanBeTakenNoDeeper) {
    int map = NewMap();
    std::vector<std::unique_ptr<DS_AutoMutex>> holds;
    for (int i = 0; i < kMaxNesting; ++i) {
        holds.push_back(std::make_unique<DS_AutoMutex>());
    }
    RValue reference = MapReference(map);

    EXPECT_NO_THROW(FreeDsTree(&reference));

    EXPECT_EQ(themaps.arr[map], nullptr);
}

TEST_F(DataStructures, ADeepTreeIsFreedWithoutDeepCalls) {
    int first = NewList();
    int last = first;
    for (int i = 0; i < 100000; ++i) {
        int next = NewList();
        RValue reference = ListReference(next);
        thelists.arr[last]->Add(&reference);
        last = next;
    }
    RValue root = ListReference(first);

    FreeDsTree(&root);

    EXPECT_EQ(thelists.arr[last], nullptr);
}

TEST_F(DataStructures, AMapIsMadeOfEntries) {
    int index = CreateDsMap(3, "id", 5.0, static_cast<const char*>(nullptr), "url", 0.0, "http://x", "empty", 1.0, "");

    const CDS_Map& map = *themaps.arr[index];
    EXPECT_EQ(map.Count(), 3);
    EXPECT_EQ(Find(map, "id")->real, 5);
    EXPECT_EQ(Find(map, "id")->kind, VALUE_REAL);
    EXPECT_STREQ(Find(map, "url")->str->m_thing, "http://x");
    EXPECT_STREQ(Find(map, "empty")->str->m_thing, "");
    FreeDsMap(index);
    index = CreateDsMap(0);
    EXPECT_EQ(themaps.arr[index]->Count(), 0);
    FreeDsMap(index);
}

// --- the lock --------------------------------------------------------------------------------------------------------

TEST_F(DataStructures, TheLockMayBeTakenAgainByItsHolder) {
    DS_AutoMutex outer;
    DS_AutoMutex inner;

    FreeDsMap(NewMap());
}

TEST_F(DataStructures, TheLockKeepsOtherThreadsOut) {
    long count = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            DS_AutoMutex lock;
            ++count;
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();

    EXPECT_EQ(count, 200000);
}

TEST_F(DataStructures, MapsAreMadeOnManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 500; ++k) {
                FreeDsMap(CreateDsMap(1, "key", 1.0, "text"));
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
}

/// Takes the lock once more and once more.
void Hold(int times) {
    if (times == 0) return;
    DS_AutoMutex lock;
    Hold(times - 1);
}

TEST_F(DataStructures, AWalkThatNeverEndsIsStoppedWithEveryHoldGivenBack) {
    EXPECT_THROW(Hold(kMaxNesting + 1), KXRecursionLimit);
    EXPECT_NO_THROW(Hold(kMaxNesting));

    std::thread([] { DS_AutoMutex lock; }).join();  // would wait for ever for a hold that was kept
}

}  // namespace
}  // namespace kx::test
