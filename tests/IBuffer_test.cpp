// Growable blocks of bytes.
#include "Files/Buffer/Buffer_Standard.h"

#include "Files/Base/Limits.h"

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

}  // namespace
}  // namespace kx::test
