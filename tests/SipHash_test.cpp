// The keyed hash of texts.
#include "Files/Base/SipHash.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace kx::test {
namespace {

/// The bytes 0, 1, 2 and so on.
std::string Counting(int size) {
    std::string text;
    for (int i = 0; i < size; ++i) {
        text += static_cast<char>(i);
    }
    return text;
}

TEST(SipHash, HashesAsTheAlgorithmSays) {
    struct Case {
        int size;
        uint64_t hash;
    };
    const Case cases[] = {
        {0, 0xabac0158050fc4dc},  {1, 0xc9f49bf37d57ca93},  {7, 0xd3927d989bb11140},   {8, 0x369095118d299a8e},
        {15, 0xd320d86d2a519956}, {16, 0xcc4fdd1a7d908b66}, {255, 0xf76214e3153c4a15}, {256, 0x75b3e64e167de370},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(SipHash13(0x0706050403020100, 0x0f0e0d0c0b0a0908, Counting(each.size)), each.hash) << each.size;
    }
}

TEST(SipHash, HangsOnBothHalvesOfTheKey) {
    EXPECT_EQ(SipHash13(0, 0, ""), 0xd1fba762150c532cu);
    EXPECT_EQ(SipHash13(0x0f0e0d0c0b0a0908, 0x0706050403020100, Counting(8)), 0x6bc8e757a8fde7abu);
}

TEST(SipHash, CountsZerosAtTheEnd) {
    std::set<uint64_t> hashes;
    for (size_t size = 0; size < 100; ++size) {
        hashes.insert(SipHash13(1, 2, std::string(size, '\0')));
    }
    EXPECT_EQ(hashes.size(), 100u);
}

TEST(KeyedHash, IsTheSameForTheSameText) {
    std::string text = "text";

    EXPECT_EQ(KeyedHash("text"), KeyedHash(text));
    EXPECT_NE(KeyedHash("text"), KeyedHash("texs"));
    EXPECT_NE(KeyedHash(""), KeyedHash(text));
}

}  // namespace
}  // namespace kx::test
