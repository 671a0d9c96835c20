// The host's allocator.
#include "Platform/MemoryManager.h"

#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <thread>

namespace kx::test {
namespace {

char* Alloc(unsigned int size, bool clear = false) {
    return static_cast<char*>(MemoryManager::Alloc(size, __FILE__, __LINE__, clear));
}

char* ReAlloc(char* block, unsigned int size, bool clear = false) {
    return static_cast<char*>(MemoryManager::ReAlloc(block, size, __FILE__, __LINE__, clear));
}

bool IsZero(const char* block, size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
        if (block[i] != 0) return false;
    }
    return true;
}

/// Leaves dirt where malloc finds its next blocks of a size.
void MakeDirt(unsigned int size) {
    char* blocks[8];
    for (char*& block : blocks) {
        block = Alloc(size);
        std::memset(block, 'd', size);
    }
    for (char* block : blocks) {
        MemoryManager::Free(block);
    }
}

TEST(MemoryManager, CountsWhatIsAllocatedNow) {
    MemoryManager::Statistics before = MemoryManager::Stats();

    char* block = Alloc(1000);
    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks + 1);
    EXPECT_GE(MemoryManager::Stats().bytes, before.bytes + 1000);

    block = ReAlloc(block, 100000);
    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks + 1);
    EXPECT_GE(MemoryManager::Stats().bytes, before.bytes + 100000);

    MemoryManager::Free(block);
    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks);
    EXPECT_EQ(MemoryManager::Stats().bytes, before.bytes);
}

TEST(MemoryManager, CountsOverThreadsAlsoThoseThatHaveEnded) {
    MemoryManager::Statistics before = MemoryManager::Stats();
    char* block = nullptr;

    std::thread([&] { block = Alloc(500); }).join();
    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks + 1);

    MemoryManager::Free(block);  // by another thread than allocated it
    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks);
    EXPECT_EQ(MemoryManager::Stats().bytes, before.bytes);
}

TEST(MemoryManager, AddsNoHeaderOfItsOwn) {
    char* block = Alloc(1024);
    void* plain = std::malloc(1024);

    EXPECT_EQ(malloc_usable_size(block), malloc_usable_size(plain));

    std::free(plain);
    MemoryManager::Free(block);
}

TEST(MemoryManager, ClearsWhenAsked) {
    for (unsigned int size : {1u, 16u, 1024u, 1032u, 1033u, 5000u, 1u << 20, 16u << 20}) {
        MakeDirt(size);
        char* block = Alloc(size, true);
        EXPECT_TRUE(IsZero(block, 0, size)) << size;
        MemoryManager::Free(block);
    }
}

TEST(MemoryManager, ClearsWhatABlockGains) {
    for (unsigned int size : {1u, 20u, 1000u, 1024u, 3000u}) {
        MakeDirt(size);
        MakeDirt(size * 3);
        char* block = Alloc(size, true);
        std::memset(block, 'x', size);

        block = ReAlloc(block, size * 3, true);

        EXPECT_EQ(block[size - 1], 'x');
        EXPECT_TRUE(IsZero(block, size, size * 3)) << size;
        MemoryManager::Free(block);
    }
}

TEST(MemoryManager, AllocatesWhatNullIsGrownFrom) {
    char* block = ReAlloc(nullptr, 10, true);
    EXPECT_TRUE(IsZero(block, 0, 10));
    MemoryManager::Free(block);
}

TEST(MemoryManager, GivesABlockOfNothingToo) {
    long long before = MemoryManager::Stats().blocks;
    char* block = Alloc(0, true);
    EXPECT_NE(block, nullptr);
    block = ReAlloc(block, 0);
    EXPECT_NE(block, nullptr);

    MemoryManager::Free(block);

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST(MemoryManager, TakesNull) {
    long long before = MemoryManager::Stats().blocks;

    MemoryManager::Free(nullptr);
    KXFree(nullptr);

    EXPECT_EQ(KXStrDup(nullptr), nullptr);
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST(MemoryManager, CopiesTexts) {
    const char* text = "a text";

    char* copy = KXStrDup(text);

    EXPECT_STREQ(copy, text);
    EXPECT_NE(copy, text);
    KXFree(copy);
}

}  // namespace
}  // namespace kx::test
