// Many small objects of one kind.
#include "Files/Base/Pool.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace kx::test {
namespace {

struct Item {
    char letter;
    double number;
    Item* link;
};

TEST(Pools, MakeItemsThatAreZero) {
    Pool<Item> pool;
    for (int i = 0; i < 100; ++i) {
        Item* item = pool.Make();
        ASSERT_TRUE(item->letter == 0 && item->number == 0 && item->link == nullptr);
        *item = {'x', 1, item};
        if (i % 3 == 0) pool.GiveBack(item);
    }
}

TEST(Pools, NeverMoveAnItem) {
    Pool<Item> pool;
    std::vector<Item*> items;
    for (int i = 0; i < 10000; ++i) {
        items.push_back(pool.Make());
        *items.back() = {'x', static_cast<double>(i), items.back()};
    }

    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(items[static_cast<size_t>(i)]->number, i);
        ASSERT_EQ(items[static_cast<size_t>(i)]->link, items[static_cast<size_t>(i)]);
    }
    EXPECT_EQ(std::set<Item*>(items.begin(), items.end()).size(), items.size());
}

TEST(Pools, UseAgainWhatIsGivenBack) {
    Pool<Item> pool;
    std::set<Item*> items;
    for (int i = 0; i < 1000; ++i) {
        items.insert(pool.Make());
    }
    long long blocks = MemoryManager::Stats().blocks;
    for (Item* item : items) {
        pool.GiveBack(item);
    }

    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(items.erase(pool.Make()), 1u);
    }

    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

TEST(Pools, HoldItemsSmallerThanAPointerAndAlignThem) {
    Pool<char> letters;
    Pool<std::max_align_t> wide;
    std::set<char*> places;
    for (int i = 0; i < 1000; ++i) {
        places.insert(letters.Make());
        EXPECT_EQ(reinterpret_cast<uintptr_t>(wide.Make()) % alignof(std::max_align_t), 0u);
    }
    EXPECT_EQ(places.size(), 1000u);
}

TEST(Pools, ReleaseAllMemoryWhenTheyAreClearedOrEnd) {
    long long before = MemoryManager::Stats().blocks;
    {
        Pool<Item> pool;
        EXPECT_EQ(MemoryManager::Stats().blocks, before);
        for (int i = 0; i < 5000; ++i) {
            pool.Make();
        }
        pool.GiveBack(pool.Make());
        pool.Clear();
        EXPECT_EQ(MemoryManager::Stats().blocks, before);
        pool.Clear();

        EXPECT_EQ(pool.Make()->number, 0);
        EXPECT_EQ(MemoryManager::Stats().blocks, before + 1);
    }
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

}  // namespace
}  // namespace kx::test
