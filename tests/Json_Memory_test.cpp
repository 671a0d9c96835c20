// JSON where memory runs out: at every allocation an error, nothing left behind, nothing half done.
#include "Files/Base/Collector.h"
#include "Files/Base/Json.h"
#include "Files/Base/Limits.h"
#include "Files/Function/Function_File.h"
#include "Files/Support/Support_Data_Structures.h"
#include "tests/Data_Structures_fixture.h"
#include "tests/support/FailingMalloc.h"

#include <functional>
#include <new>
#include <string>
#include <tuple>

namespace kx::test {
namespace {

const char* const kText = R"({"player":{"name":"Ada the long-named, who fills a block","id":"@i64@20000000000001$i64$"},
 "a":[1,2.5,true,null,"text",[{"name":"x"},{"name":"y"}]],"b":{},"c1":1,"c2":2,"c3":3,"c4":4,"c5":5,"c6":6,"c7":7})";

RValue Given(const char* name, const RValue& argument) {
    RValue result{};
    RValue copy = argument;
    Function_Find(name)->routine(result, nullptr, nullptr, 1, &copy);
    return result;
}

/// In each round one allocation more succeeds, until all do.
class EveryAllocation : public ::testing::TestWithParam<std::tuple<FailingMalloc::Mode, FailingMalloc::Scope>> {
protected:
    void SetUp() override { InitFileFunctions(); }

    /// @param work  what is to fail whole.
    /// @param undo  frees what the work made once it succeeded.
    void FailEach(FailingMalloc::Scope scope, const std::function<RValue()>& work,
                  const std::function<void(RValue*)>& undo) {
        WarmUp(scope, work, undo);
        int rounds = 0;
        for (;; ++rounds) {
            SCOPED_TRACE(rounds);
            long long live = FailingMalloc::Live();
            bool refused = false;
            RValue result{};
            FailingMalloc::Arm(rounds, std::get<0>(GetParam()), scope);
            try {
                result = work();
            } catch (const std::bad_alloc&) {
                refused = true;
            }
            bool failed = FailingMalloc::Disarm();
            Collector::Collect();
            if (!refused) undo(&result);

            ASSERT_EQ(FailingMalloc::Live(), live);
            if (!failed) break;
        }
        EXPECT_GT(rounds, 0);
    }

private:
    /// What the first success and the first failure leave behind for good.
    void WarmUp(FailingMalloc::Scope scope, const std::function<RValue()>& work,
                const std::function<void(RValue*)>& undo) {
        RValue first = work();
        undo(&first);
        FailingMalloc::Arm(0, FailingMalloc::once, scope);
        EXPECT_THROW(work(), std::bad_alloc);
        FailingMalloc::Disarm();
        Collector::Collect();
    }
};

void FreeMap(RValue* map) {
    ASSERT_GE(map->real, 1);
    map->kind = KIND_DS_MAP;
    EXPECT_EQ(DsMapOf(map)->Count(), 10);
    FreeDsTree(map);
}

TEST_P(EveryAllocation, OfDecodingMayFail) {
    RValueOwner text(Text(kText));

    FailEach(
        FailingMalloc::ours, [&] { return Given("json_decode", text.value); }, FreeMap);
}

TEST_P(EveryAllocation, OfParsingMayFail) {
    RValueOwner text(Text(kText));

    FailEach(
        FailingMalloc::ours, [&] { return Given("json_parse", text.value); },
        [](RValue* value) {
            EXPECT_EQ(value->kind, VALUE_OBJECT);
            Collector::Collect();
        });
}

/// Without members: for their names the library itself follows a null pointer.
TEST_P(EveryAllocation, OfTheLibrarysOwnReadingMayFail) {
    const char* const text = R"([1,[2.5,"a text that is longer than what fits a short one",true],null,[[],[3]]])";
    FailEach(
        std::get<1>(GetParam()),
        [&] {
            JsonTree tree;
            if (ParseJson(text, &tree) != JsonVerdict::read)
                throw std::bad_alloc();  // no success, and that is what counts
            RValue printed{};
            KXCreateString(&printed, PrintJson(tree.Get()));
            return printed;
        },
        [&](RValue* printed) {
            EXPECT_STREQ(
                printed->str->m_thing,
                R"([ 1, [ 2.5, "a text that is longer than what fits a short one", true ], null, [ [ ], [ 3 ] ] ])");
            FREE_RValue__Pre(printed);
        });
}

TEST_P(EveryAllocation, OfEncodingMayFail) {
    RValueOwner text(Text(kText));
    RValue map = Given("json_decode", text.value);
    RValueOwner whole(Given("json_encode", map));

    FailEach(
        std::get<1>(GetParam()), [&] { return Given("json_encode", map); },
        [&](RValue* value) {
            EXPECT_STREQ(value->str->m_thing, whole.value.str->m_thing);  // never a shorter one
            FREE_RValue__Pre(value);
        });
    FreeMap(&map);
}

/// From here on the library's printer could leave a piece out.
TEST(LargeJson, IsRefusedWhereItsTextIsTooLong) {
    std::string half(kMaxJsonText / 2, 'x');
    JsonTree array(MadeJson(json_object_new_array()));
    AddElement(array, JsonTree(MadeJsonText(half.c_str())));
    AddElement(array, JsonTree(MadeJsonText(half.c_str())));

    EXPECT_THROW(PrintJson(array.Get()), std::bad_alloc);
}

INSTANTIATE_TEST_SUITE_P(Json, EveryAllocation,
                         ::testing::Combine(::testing::Values(FailingMalloc::once, FailingMalloc::from_then_on),
                                            ::testing::Values(FailingMalloc::ours, FailingMalloc::library)));

}  // namespace
}  // namespace kx::test
