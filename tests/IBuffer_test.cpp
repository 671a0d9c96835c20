// Growable blocks of bytes.
#include "Files/Buffer/Buffer_Standard.h"

#include "Files/Base/Limits.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Console.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace kx::test {
namespace {

std::string Contents(const IBuffer& buffer) {
    return {buffer.m_data, static_cast<size_t>(buffer.m_size)};
}

TEST(Buffer, StartsAsZerosAtItsStart) {
    Buffer_Standard buffer(5, eBuffer_Format_Grow, 1);

    EXPECT_EQ(Contents(buffer), std::string(5, '\0'));
    EXPECT_EQ(buffer.m_position, 0);
    EXPECT_EQ(buffer.m_refCount, 0);
    EXPECT_EQ(buffer.m_alignment, 1);
}

TEST(Buffer, GrowsAsItIsWritten) {
    Buffer_Standard buffer(0, eBuffer_Format_Grow, 1);
    std::string expected;
    for (int i = 0; i < 3000; ++i) {
        std::string part(static_cast<size_t>(i % 7 + 1), static_cast<char>('a' + i % 26));
        EXPECT_TRUE(buffer.Write(part.data(), static_cast<int>(part.size())));
        expected += part;
        ASSERT_EQ(buffer.m_data[buffer.m_size], 0);  // a zero byte always follows
    }
    EXPECT_EQ(Contents(buffer), expected);
    EXPECT_EQ(buffer.m_position, buffer.m_size);
}

TEST(Buffer, OfFixedSizeDoesNotGrow) {
    Buffer_Standard buffer(4, eBuffer_Format_Fixed, 1);

    EXPECT_TRUE(buffer.Write("abcd", 4));
    EXPECT_FALSE(buffer.Write("e", 1));
    buffer.Seek(eBuffer_Start, 2);
    EXPECT_FALSE(buffer.Write("xyz", 3));

    EXPECT_EQ(Contents(buffer), "abcd");
    EXPECT_EQ(buffer.m_position, 2);
}

TEST(Buffer, SeeksFromItsStartItsPositionAndItsEnd) {
    Buffer_Standard buffer(10, eBuffer_Format_Grow, 1);

    EXPECT_EQ(buffer.Seek(eBuffer_Start, 3), 3);
    EXPECT_EQ(buffer.Seek(eBuffer_Relative, 4), 7);
    EXPECT_EQ(buffer.Seek(eBuffer_Relative, -2), 5);
    EXPECT_EQ(buffer.Seek(eBuffer_End, -1), 9);
    EXPECT_EQ(buffer.Seek(eBuffer_End, 5), 15);
}

TEST(Buffer, PositionsStopAtTheEndsOfTheirRange) {
    Buffer_Standard buffer(10, eBuffer_Format_Grow, 1);

    EXPECT_EQ(buffer.Seek(eBuffer_Start, -1), 0);
    EXPECT_EQ(buffer.Seek(eBuffer_End, INT_MIN), 0);
    EXPECT_EQ(buffer.Seek(eBuffer_End, INT_MAX), INT_MAX);
    EXPECT_EQ(buffer.Seek(eBuffer_Relative, INT_MAX), INT_MAX);
}

TEST(Buffer, AWriteBeyondTheEndFillsTheGapWithZeros) {
    Buffer_Standard buffer(0, eBuffer_Format_Grow, 1);
    buffer.Write("abcdef", 6);
    buffer.Truncate(2);  // what was there before does not come back
    buffer.Seek(eBuffer_Start, 5);

    EXPECT_TRUE(buffer.Write("x", 1));

    EXPECT_EQ(Contents(buffer), std::string("ab\0\0\0x", 6));
}

TEST(Buffer, AWriteBeyondTheLimitIsRefused) {
    Buffer_Standard buffer(3, eBuffer_Format_Grow, 1);
    buffer.Seek(eBuffer_Start, kMaxFileBytes - 1);

    EXPECT_FALSE(buffer.Write("ab", 2));

    EXPECT_EQ(buffer.m_size, 3);
    EXPECT_EQ(buffer.m_allocated, 3);
}

TEST(Buffer, TruncateOnlyCuts) {
    Buffer_Standard buffer(0, eBuffer_Format_Grow, 1);
    buffer.Write("abcdef", 6);

    buffer.Truncate(10);
    buffer.Truncate(-1);
    EXPECT_EQ(Contents(buffer), "abcdef");

    buffer.Truncate(2);
    EXPECT_EQ(Contents(buffer), "ab");
    EXPECT_EQ(buffer.m_data[2], 0);
}

// --- copying into one -----------------------------------------------------------------------------------------------

struct CopyCase {
    const char* name;
    int from, count, offset;
    bool grow;
    int position;  // that is given
    std::string contents;
};

TEST(Buffer, CopiesAPartOfMemoryToAnOffset) {
    const CopyCase cases[] = {
        {"all of it", 0, -1, 0, true, 5, "helloz"},
        {"from the third byte on", 2, -1, 0, true, 3, "lloxyz"},
        {"two bytes", 1, 2, 0, true, 2, "elwxyz"},
        {"more than there are", 3, 100, 0, true, 2, "lowxyz"},
        {"none", 0, 0, 1, true, 1, "uvwxyz"},
        {"over the end", 0, -1, 4, true, 9, "uvwxhello"},
        {"beyond the end, over a gap of zeros", 0, -1, 8, true, 13, std::string("uvwxyz\0\0hello", 13)},
        {"within, where it must not grow", 0, -1, 1, false, 6, "uhello"},
        {"over the end, where it must not grow", 0, -1, 2, false, 2, "uvwxyz"},
        {"from after the end", 5, -1, 0, true, 0, "uvwxyz"},
        {"from before the start", -1, -1, 0, true, 0, "uvwxyz"},
        {"to before the start", 0, -1, -1, true, -1, "uvwxyz"},
        {"to where no file ends", 0, -1, kMaxFileBytes - 2, true, kMaxFileBytes - 2, "uvwxyz"},
    };
    for (const CopyCase& c : cases) {
        SCOPED_TRACE(c.name);
        Buffer_Standard buffer(0, eBuffer_Format_Grow, 1);
        buffer.Write("uvwxyz", 6);
        buffer.Seek(eBuffer_Start, 4);

        int position = IBuffer::CopyMemoryToBuffer(&buffer, reinterpret_cast<const unsigned char*>("hello"), 5, c.from,
                                                   c.count, c.offset, c.grow, false, false);

        EXPECT_EQ(position, c.position);
        EXPECT_EQ(Contents(buffer), c.contents);
        EXPECT_EQ(buffer.m_position, 4);  // it stays
    }
}

TEST(Buffer, CopiesNothingFromNowhere) {
    Buffer_Standard buffer(3, eBuffer_Format_Grow, 1);

    EXPECT_EQ(IBuffer::CopyMemoryToBuffer(&buffer, nullptr, 0, 0, -1, 2, true, false, false), 2);

    EXPECT_EQ(buffer.m_size, 3);
}

// --- the table ------------------------------------------------------------------------------------------------------

TEST(BufferTable, KnowsABufferByItsIndexUntilItIsFreed) {
    int index = CreateBuffer(10, eBuffer_Format_Grow, 1);

    EXPECT_GE(index, 1);
    ASSERT_NE(GetIBuffer(index), nullptr);
    EXPECT_EQ(GetIBuffer(index)->m_size, 10);
    FreeBuffer(index);
    EXPECT_EQ(GetIBuffer(index), nullptr);
    FreeBuffer(index);  // once is enough
}

TEST(BufferTable, HasNothingWhereNoIndexIs) {
    for (int index : {0, -1, INT_MIN, INT_MAX, 1 << 20}) {
        EXPECT_EQ(GetIBuffer(index), nullptr) << index;
        FreeBuffer(index);
    }
}

TEST(BufferTable, ALaterBufferOfAnIndexHasAnotherSerial) {
    int first = CreateBuffer(0, eBuffer_Format_Grow, 1);
    uint64_t serial = GetIBuffer(first)->m_serial;
    FreeBuffer(first);

    int second = CreateBuffer(0, eBuffer_Format_Grow, 1);

    EXPECT_EQ(second, first);
    EXPECT_NE(GetIBuffer(second)->m_serial, serial);
    FreeBuffer(second);
}

TEST(BufferTable, ABufferThatIsInUseIsFreedByItsLastUser) {
    long long blocks = MemoryManager::Stats().blocks;
    int index = CreateBuffer(100, eBuffer_Format_Grow, 1);
    IBuffer* buffer = GetIBuffer(index);
    buffer->AddRefCount();
    buffer->AddRefCount();

    FreeBuffer(index);

    EXPECT_EQ(GetIBuffer(index), nullptr);  // for scripts it is gone
    EXPECT_EQ(buffer->m_size, 100);
    buffer->DecRefCount();
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks + 1);
    buffer->DecRefCount();
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

TEST(BufferTable, ABufferOfTheScriptsIsNotFreedByItsUsers) {
    int index = CreateBuffer(1, eBuffer_Format_Grow, 1);
    GetIBuffer(index)->AddRefCount();

    GetIBuffer(index)->DecRefCount();

    EXPECT_NE(GetIBuffer(index), nullptr);
    FreeBuffer(index);
}

TEST(BufferTable, ACountBelowZeroIsSaid) {
    CapturingConsole console;
    int index = CreateBuffer(1, eBuffer_Format_Grow, 1);

    GetIBuffer(index)->DecRefCount();

    EXPECT_EQ(console.Take(), "Decrementing buffer ref count to less than zero\n");
    EXPECT_EQ(GetIBuffer(index)->m_refCount, -1);
    FreeBuffer(index);
}

}  // namespace
}  // namespace kx::test
