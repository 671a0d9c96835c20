#pragma once

#include "Files/Support/Support_Data_Structures.h"
#include "tests/RValue_fixture.h"
#include "tests/support/BuiltIn.h"

namespace kx::test {

inline RValue MapReference(int index) {
    return {{static_cast<double>(index)}, 0, KIND_DS_MAP};
}

inline RValue ListReference(int index) {
    return {{static_cast<double>(index)}, 0, KIND_DS_LIST};
}

inline int NewMap() {
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = new CDS_Map;
    return index;
}

inline int NewList() {
    int index = FindFreeDsListIndex();
    thelists.arr[index] = new CDS_List;
    return index;
}

inline void Set(CDS_Map& map, Value key, Value value) {
    map.Set(&key.Get(), &value.Get());
}

inline const RValue* Find(const CDS_Map& map, Value key) {
    return map.Find(&key.Get());
}

/// Nothing that a test makes outlives it.
class DataStructuresTest : public ::testing::Test {
protected:
    void SetUp() override { m_blocks = MemoryManager::Stats().blocks; }
    void TearDown() override { EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks); }

private:
    long long m_blocks = 0;
};

}  // namespace kx::test
