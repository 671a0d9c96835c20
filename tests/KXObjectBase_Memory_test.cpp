// Structs where memory runs out: a member more or none, and every member is found.
#include "Files/Base/Collector.h"
#include "Files/Base/KXObjectBase.h"
#include "tests/RValue_fixture.h"
#include "tests/support/FailingMalloc.h"

#include <new>

namespace kx::test {
namespace {

std::string NameOf(int member) {
    return "a member whose name needs a block of its own " + std::to_string(member);
}

/// @return false where there is no memory for it.
bool Add(KXObjectBase* object, const std::string& name, int member) {
    RValue value = Real(member);
    try {
        object->Add(name.c_str(), value, 0);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void ExpectMembers(const KXObjectBase& object, int from, int end) {
    EXPECT_EQ(object.Count(), end - from);
    for (int i = from; i < end; ++i) {
        const RValue* value = object.Get(NameOf(i).c_str());
        ASSERT_NE(value, nullptr) << i;
        EXPECT_EQ(value->real, i);
    }
    EXPECT_EQ(object.Get(NameOf(end).c_str()), nullptr);
}

/// The first member that makes a struct so large that it keeps an index of its names.
constexpr int kFirstOfMany = 16;

TEST(StructMemory, ALargeStructIsWholeWithoutTheMemoryForItsIndex) {
    std::string name = NameOf(kFirstOfMany);
    bool failed = true;
    int without = 0;
    for (int skipped = 0; failed; ++skipped) {
        SCOPED_TRACE(skipped);
        KXObjectBase* object = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
        for (int i = 0; i < kFirstOfMany; ++i) {
            ASSERT_TRUE(Add(object, NameOf(i), i));
        }

        FailingMalloc::Arm(skipped, FailingMalloc::once, FailingMalloc::ours);
        bool added = Add(object, name, kFirstOfMany);
        failed = FailingMalloc::Disarm();

        ExpectMembers(*object, 0, added ? kFirstOfMany + 1 : kFirstOfMany);
        if (failed && added) ++without;
    }
    EXPECT_GT(without, kFirstOfMany);  // whichever of its entries there was no memory for
    Collector::Collect();
}

TEST(StructMemory, GapsAreClosedWithoutTheMemoryForANewIndex) {
    KXObjectBase* object = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(Add(object, NameOf(i), i));
    }
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(object->Remove(NameOf(i).c_str()));
    }
    std::string last = NameOf(50);

    FailingMalloc::Arm(0, FailingMalloc::from_then_on, FailingMalloc::ours);
    bool removed = object->Remove(last.c_str());
    EXPECT_TRUE(FailingMalloc::Disarm());

    EXPECT_TRUE(removed);
    EXPECT_EQ(object->Places(), 49);
    ExpectMembers(*object, 51, 100);
    Collector::Collect();
}

}  // namespace
}  // namespace kx::test
