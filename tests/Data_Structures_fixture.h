#pragma once

#include "Files/Support/Support_Data_Structures.h"
#include "tests/RValue_fixture.h"
#include "tests/support/BuiltIn.h"

#include <string>
#include <vector>

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

/// The hash that a map has for a text: FNV-1a, mixed.
inline unsigned int HashOf(const std::string& text) {
    unsigned int hash = 2166136261u;
    for (unsigned char byte : text) {
        hash = (hash ^ byte) * 16777619u;
    }
    hash = (hash ^ (hash >> 16)) * 0x85EBCA6Bu;
    return hash ^ (hash >> 13);
}

/// Texts that are in one bucket, however many buckets a map of theirs has.
inline std::vector<std::string> TextsOfOneBucket(size_t count) {
    std::vector<std::string> texts;
    for (int i = 0; texts.size() < count; ++i) {
        std::string text = std::to_string(i);
        if (HashOf(text) % 4096 == 0) texts.push_back(text);
    }
    return texts;
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
