// Which structs and arrays live on, and which go.
#include "Files/Base/Collector.h"

#include "Files/Base/KXObjectBase.h"
#include "Files/Support/Support_Data_Structures.h"
#include "tests/RValue_fixture.h"

#include <algorithm>
#include <thread>

namespace kx::test {
namespace {

class Collections : public ::testing::Test {
protected:
    void SetUp() override {
        Collector::Collect();
        m_before = Collector::Stats();
        m_blocks = MemoryManager::Stats().blocks;
    }

    void TearDown() override {
        Collector::Collect();
        EXPECT_EQ(Structs(), 0);
        EXPECT_EQ(Arrays(), 0);
        EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks);
    }

    /// Structs and arrays that the test has made and that are alive.
    [[nodiscard]] long long Structs() const { return Collector::Stats().structs - m_before.structs; }
    [[nodiscard]] long long Arrays() const { return Collector::Stats().arrays - m_before.arrays; }

private:
    Collector::Statistics m_before{};
    long long m_blocks = 0;
};

RValue Struct() {
    RValue value{};
    value.obj = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
    value.kind = VALUE_OBJECT;
    return value;
}

/// Adds a member and releases the value.
void Add(const RValue& object, const char* name, RValue value) {
    object.obj->Add(name, value, 0);
    FREE_RValue__Pre(&value);
}

TEST_F(Collections, AStructThatNothingLeadsToGoes) {
    Add(Struct(), "text", Text("released with it"));
    EXPECT_EQ(Structs(), 1);

    Collector::Collect();

    EXPECT_EQ(Structs(), 0);
}

TEST_F(Collections, ARootIsKeptWithEverythingThatItLeadsTo) {
    RValue root = Struct();
    RValue array = Array();
    Push(&array, Struct());
    Add(root, "array", array);
    Add(root, "inner", Struct());
    Struct();
    Collector::AddRoot(&root);

    Collector::Collect();
    EXPECT_EQ(Structs(), 3);
    EXPECT_EQ(Arrays(), 1);
    EXPECT_EQ(root.obj->Get("array")->arr->m_length, 1);

    Collector::RemoveRoot(&root);
    Collector::Collect();
    EXPECT_EQ(Structs(), 0);
    EXPECT_EQ(Arrays(), 0);
}

TEST_F(Collections, ARootCountsForWhatItHoldsThen) {
    RValue root = Struct();
    Collector::AddRoot(&root);
    root = Struct();

    Collector::Collect();

    EXPECT_EQ(Structs(), 1);
    EXPECT_EQ(root.obj->Count(), 0);
    Collector::RemoveRoot(&root);
}

TEST_F(Collections, ARootThatWasReleasedIsNotFollowed) {
    RValue root = Array();
    Push(&root, Struct());
    Collector::AddRoot(&root);

    FREE_RValue__Pre(&root);
    Collector::Collect();

    EXPECT_EQ(Structs(), 0);
    Collector::RemoveRoot(&root);
}

TEST_F(Collections, ArraysMayEndOnOtherThreadsMeanwhile) {
    std::thread other([] {
        for (int i = 0; i < 20000; ++i) {
            RValue array = Array();
            FREE_RValue__Pre(&array);
        }
    });
    for (int i = 0; i < 500; ++i) {
        Collector::Collect();
        Collector::SafePoint();
    }
    other.join();
}

TEST_F(Collections, WhatContainersHoldIsKept) {
    int map = FindFreeDsMapIndex();
    themaps.arr[map] = new CDS_Map;
    int list = FindFreeDsListIndex();
    thelists.arr[list] = new CDS_List;
    int grid = FindFreeDsGridIndex();
    thegrids.arr[grid] = new CDS_Grid(2, 2);
    RValue key = Struct();
    RValue value = Struct();
    RValue element = Struct();
    themaps.arr[map]->Set(&key, &value);
    thelists.arr[list]->Add(&element);
    RValue cell = Struct();
    thegrids.arr[grid]->Set(1, 1, &cell);

    Collector::Collect();
    EXPECT_EQ(Structs(), 4);

    FreeDsMap(map);
    FreeDsList(list);
    FreeDsGrid(grid);
    Collector::Collect();
    EXPECT_EQ(Structs(), 0);
}

TEST_F(Collections, AnArrayThatAPlainVariableHoldsIsKeptWithItsStructs) {
    RValue array = Array();
    Push(&array, Struct());

    Collector::Collect();

    EXPECT_EQ(Structs(), 1);
    EXPECT_EQ(array.arr->m_length, 1);
    FREE_RValue__Pre(&array);
    EXPECT_EQ(Arrays(), 0);
}

TEST_F(Collections, CirclesOfStructsGo) {
    RValue a = Struct();
    RValue b = Struct();
    Add(a, "b", b);
    Add(b, "a", a);
    Add(a, "self", a);

    Collector::Collect();

    EXPECT_EQ(Structs(), 0);
}

TEST_F(Collections, CirclesOfArraysAndStructsGo) {
    RValue array = Array();
    RValue object = Struct();
    Add(object, "array", array);  // the struct has the only reference now
    RValue inner = *object.obj->Get("array");
    SET_RValue(&inner, &object, nullptr, 0);
    SET_RValue(&inner, &inner, nullptr, 1);
    SET_RValue(&inner, &inner, nullptr, 2);

    Collector::Collect();

    EXPECT_EQ(Structs(), 0);
    EXPECT_EQ(Arrays(), 0);
}

TEST_F(Collections, ACircleThatIsHeldIsKept) {
    RValue array = Array();
    SET_RValue(&array, &array, nullptr, 0);

    Collector::Collect();
    EXPECT_EQ(array.arr->m_length, 1);

    FREE_RValue__Pre(&array);
    EXPECT_EQ(Arrays(), 1);
    Collector::Collect();
    EXPECT_EQ(Arrays(), 0);
}

TEST_F(Collections, ArraysAndStructsGoHoweverDeepTheyAre) {
    RValue arrays = Array();
    for (int i = 0; i < 200000; ++i) {
        RValue outer = Array();
        Push(&outer, arrays);
        arrays = outer;
    }
    RValue structs = Struct();
    for (int i = 0; i < 200000; ++i) {
        RValue outer = Struct();
        Add(outer, "inner", structs);
        structs = outer;
    }
    Collector::AddRoot(&structs);
    Collector::Collect();
    EXPECT_EQ(Structs(), 200001);
    Collector::RemoveRoot(&structs);

    FREE_RValue__Pre(&arrays);
    EXPECT_EQ(Arrays(), 0);
    Collector::Collect();
    EXPECT_EQ(Structs(), 0);
}

TEST_F(Collections, ASafePointCollectsWhenThereIsTwiceAsMuch) {
    RValue kept = Array();
    Collector::AddRoot(&kept);
    long long most = 0;
    for (int i = 0; i < 200000; ++i) {
        RValue object = Struct();
        if (i % 100 == 0) Push(&kept, object);
        Collector::SafePoint();
        most = std::max(most, Structs());
    }

    EXPECT_GE(Structs(), 2000);
    EXPECT_LE(most, 21000);
    EXPECT_FALSE(Collector::IsDue());
    Collector::RemoveRoot(&kept);
    FREE_RValue__Pre(&kept);
}

TEST_F(Collections, ASafePointRenumbersTheVisitsBeforeTheirCounterWraps) {
    RValue array = Array();
    RValue object = Struct();
    Push(&array, object);
    int map = CreateDsMap(0);
    themaps.arr[map]->m_visited = 5;
    int list = FindFreeDsListIndex();
    thelists.arr[list] = new CDS_List;
    thelists.arr[list]->m_visited = 5;
    g_countSTRING_RValue = (1u << 31) - 3;
    g_comparisonARRAY_RValue = g_comparisonSTRUCT_RValue = g_countSTRING_RValue;
    EXPECT_EQ(Printed(array), "[ {  } ]");
    EXPECT_GT(array.arr->m_visited, 1u << 30);

    Collector::SafePoint();

    EXPECT_EQ(g_countSTRING_RValue, 1u);
    EXPECT_EQ(g_comparisonARRAY_RValue, 1u);
    EXPECT_EQ(g_comparisonSTRUCT_RValue, 1u);
    EXPECT_EQ(array.arr->m_visited, 0u);
    EXPECT_EQ(object.obj->m_visited, 0u);
    EXPECT_EQ(themaps.arr[map]->m_visited, 0u);
    EXPECT_EQ(thelists.arr[list]->m_visited, 0u);
    FreeDsMap(map);
    FreeDsList(list);
    EXPECT_EQ(Printed(array), "[ {  } ]");
    FREE_RValue__Pre(&array);
}

}  // namespace
}  // namespace kx::test
