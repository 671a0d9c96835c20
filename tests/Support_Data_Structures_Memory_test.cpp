// Maps where memory runs out: texts that share a bucket are found all the same.
#include "tests/Data_Structures_fixture.h"
#include "tests/support/FailingMalloc.h"

#include <deque>

namespace kx::test {
namespace {

/// As many texts of one bucket as a map looks through before it wants their order.
constexpr size_t kUnordered = 65;

/// Values are made before memory runs out.
class MapMemory : public DataStructuresTest {
protected:
    static constexpr size_t kTexts = 100;

    MapMemory() {
        for (const std::string& text : TextsOfOneBucket(kTexts)) {
            m_keys.emplace_back(text);
        }
    }

    void Fill(CDS_Map* map, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            RValue number = Real(static_cast<double>(i));
            map->Set(&m_keys[i].Get(), &number);
        }
    }

    void ExpectTexts(const CDS_Map& map, size_t count) {
        EXPECT_EQ(static_cast<size_t>(map.Count()), count);
        for (size_t i = 0; i < kTexts; ++i) {
            const RValue* value = map.Find(&m_keys[i].Get());
            ASSERT_EQ(value != nullptr, i < count) << i;
            EXPECT_TRUE(!value || value->real == static_cast<double>(i));
        }
    }

    std::deque<Value> m_keys;
};

TEST_F(MapMemory, TextsOfOneBucketAreFoundWithoutTheMemoryForTheirOrder) {
    bool failed = true;
    int rounds = 0;
    for (; failed; ++rounds) {
        SCOPED_TRACE(rounds);
        CDS_Map map;
        Fill(&map, kUnordered);

        FailingMalloc::Arm(rounds, FailingMalloc::once, FailingMalloc::ours);
        const RValue* missing = map.Find(&m_keys[kUnordered].Get());
        failed = FailingMalloc::Disarm();

        EXPECT_EQ(missing, nullptr);
        ExpectTexts(map, kUnordered);
    }
    EXPECT_GT(rounds, static_cast<int>(kUnordered));  // one for each of them
}

TEST_F(MapMemory, ATextIsAddedWithoutTheMemoryForItsPlaceInTheOrder) {
    CDS_Map map;
    Fill(&map, kUnordered + 1);
    RValue number = Real(kUnordered + 1);

    FailingMalloc::Arm(0, FailingMalloc::once, FailingMalloc::ours);
    map.Set(&m_keys[kUnordered + 1].Get(), &number);
    EXPECT_TRUE(FailingMalloc::Disarm());

    ExpectTexts(map, kUnordered + 2);
}

}  // namespace
}  // namespace kx::test
