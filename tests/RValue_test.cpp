// Script values: sharing, releasing, printing.
#include "Files/Base/RValue.h"

#include "tests/RValue_fixture.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace kx::test {
namespace {

/// Counts how often it is destroyed.
class Owned : public COwnedObject {
public:
    explicit Owned(int* destroyed) : m_destroyed(destroyed) {}
    ~Owned() override { ++*m_destroyed; }

private:
    int* m_destroyed;
};

// --- releasing -----------------------------------------------------------------------------------------------------

TEST(FreeValue, OfTheLastReferenceReleasesAString) {
    long long before = MemoryManager::Stats().blocks;
    RValue value = Text("text");

    FREE_RValue__Pre(&value);

    EXPECT_EQ(value.str, nullptr);
    EXPECT_EQ(value.kind, VALUE_STRING);  // the kind is the caller's to change
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST(FreeValue, OfASharedStringTakesOneReference) {
    RValue first = Text("text");
    RValue second{};
    COPY_RValue(&second, &first);
    _RefThing<char const*>* record = first.str;

    FREE_RValue__Pre(&first);

    EXPECT_EQ(first.str, nullptr);
    EXPECT_EQ(record->m_refCount, 1);
    EXPECT_STREQ(record->m_thing, "text");
    FREE_RValue__Pre(&second);
}

TEST(FreeValue, KnowsAKindByItsLow24Bits) {
    long long before = MemoryManager::Stats().blocks;
    for (unsigned int mark : {0x01000000u, 0x80000000u, 0xFF000000u}) {
        RValue value = Text("text");
        value.kind |= mark;

        FREE_RValue__Pre(&value);

        EXPECT_EQ(value.str, nullptr);
        EXPECT_EQ(value.kind, VALUE_STRING | mark);
    }
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST(FreeValue, OfAPointerDestroysTheObjectOnlyWhereItIsOwned) {
    int destroyed = 0;
    auto* object = new Owned(&destroyed);
    RValue value{};
    value.owned = object;
    value.kind = VALUE_PTR;

    FREE_RValue__Pre(&value);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(value.owned, object);

    value.flags = 7;  // every other flag but the one
    FREE_RValue__Pre(&value);
    EXPECT_EQ(destroyed, 0);

    value.flags = VALUE_FLAG_OWNED;
    FREE_RValue__Pre(&value);
    EXPECT_EQ(destroyed, 1);
}

TEST(FreeValue, OfAnArrayTakesOneReferenceAndKeepsThePayload) {
    long long before = MemoryManager::Stats().blocks;
    RValue first = Array();
    Push(&first, Text("element"));
    RValue second{};
    COPY_RValue(&second, &first);
    RefDynamicArrayOfRValue* array = first.arr;

    FREE_RValue__Pre(&first);
    EXPECT_EQ(first.arr, array);
    EXPECT_EQ(array->m_refCount, 1);

    FREE_RValue__Pre(&second);
    EXPECT_EQ(second.arr, array);
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST(FreeValue, TakesNullPayloads) {
    for (unsigned int kind : {VALUE_STRING, VALUE_ARRAY, VALUE_PTR, VALUE_OBJECT}) {
        RValue value{{0}, VALUE_FLAG_OWNED, kind};
        FREE_RValue__Pre(&value);
        EXPECT_EQ(value.ptr, nullptr);
        EXPECT_EQ(value.kind, kind);
    }
}

TEST(FreeValue, LeavesPlainKindsAsTheyAre) {
    for (unsigned int kind :
         {VALUE_REAL, VALUE_VEC3, VALUE_UNDEFINED, VALUE_INT32, VALUE_INT64, VALUE_BOOL, VALUE_REF, VALUE_UNSET}) {
        RValue value{{1.5}, 0, kind};
        FREE_RValue__Pre(&value);
        EXPECT_EQ(value.real, 1.5);
        EXPECT_EQ(value.kind, kind);
    }
}

// --- copying -------------------------------------------------------------------------------------------------------

TEST(CopyValue, SharesTextsAndElements) {
    RValue text = Text("text");
    RValue array = Array();
    RValue textCopy{};
    RValue arrayCopy{};

    COPY_RValue(&textCopy, &text);
    COPY_RValue(&arrayCopy, &array);

    EXPECT_EQ(textCopy.str, text.str);
    EXPECT_EQ(text.str->m_refCount, 2);
    EXPECT_EQ(arrayCopy.arr, array.arr);
    EXPECT_EQ(array.arr->m_refCount, 2);
    for (RValue* value : {&text, &array, &textCopy, &arrayCopy}) {
        FREE_RValue__Pre(value);
    }
}

TEST(CopyValue, OfAnOwningPointerDoesNotOwn) {
    int destroyed = 0;
    RValue value{};
    value.owned = new Owned(&destroyed);
    value.kind = VALUE_PTR;
    value.flags = VALUE_FLAG_OWNED | 1;
    RValue copy{};

    COPY_RValue(&copy, &value);

    EXPECT_EQ(copy.flags, 1u);
    EXPECT_EQ(copy.owned, value.owned);
    FREE_RValue__Pre(&copy);
    EXPECT_EQ(destroyed, 0);
    FREE_RValue__Pre(&value);
    EXPECT_EQ(destroyed, 1);
}

TEST(CopyValue, CopiesPlainKindsAndTakesNullPayloads) {
    for (unsigned int kind : {VALUE_REAL, VALUE_STRING, VALUE_ARRAY, VALUE_PTR, VALUE_UNDEFINED, VALUE_BOOL}) {
        RValue value{{0}, 0, kind};
        RValue copy{{1}, 5, VALUE_UNSET};
        COPY_RValue(&copy, &value);
        EXPECT_EQ(copy.i64, 0);
        EXPECT_EQ(copy.flags, 0u);
        EXPECT_EQ(copy.kind, kind);
    }
}

TEST(ValueMutex, IsRecursive) {
    LOCK_RVALUE_MUTEX();
    LOCK_RVALUE_MUTEX();
    RValue value = Text("released under the lock");
    FREE_RValue__Pre(&value);
    UNLOCK_RVALUE_MUTEX();
    UNLOCK_RVALUE_MUTEX();
}

TEST(ValueMutex, GuardsReferencesOverThreads) {
    RValue text = Text("text");
    RValue array = Array();
    auto share = [&] {
        for (int i = 0; i < 10000; ++i) {
            for (const RValue* value : {&text, &array}) {
                RValue copy{};
                COPY_RValue(&copy, value);
                FREE_RValue__Pre(&copy);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(share);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(text.str->m_refCount, 1);
    EXPECT_EQ(array.arr->m_refCount, 1);
    FREE_RValue__Pre(&text);
    FREE_RValue__Pre(&array);
}

// --- printing ------------------------------------------------------------------------------------------------------

TEST(PrintValue, PrintsPlainKinds) {
    RValue int32{};
    int32.i32 = INT_MIN;
    int32.kind = VALUE_INT32;
    RValue int64{};
    int64.i64 = LLONG_MAX;
    int64.kind = VALUE_INT64;
    struct Case {
        RValue value;
        const char* text;
    };
    const Case cases[] = {
        {Real(1), "1"},
        {Real(-0.0), "0"},
        {Real(0.1), "0.1"},
        {Real(999999999999999), "999999999999999"},
        {Real(1e15), "1e+15"},
        {Real(-1e300), "-1e+300"},
        {Real(INFINITY), "inf"},
        {int32, "-2147483648"},
        {int64, "9223372036854775807"},
        {{{1}, 0, VALUE_BOOL}, "true"},
        {{{0}, 0, VALUE_BOOL}, "false"},
        {g_undefined, "undefined"},
        {{{0}, 0, VALUE_PTR}, "null"},
        {{{0}, 0, VALUE_NULL}, "null"},
        {{{0}, 0, VALUE_ARRAY}, "null"},
        {{{0}, 0, VALUE_STRING}, ""},
        {{{0}, 0, VALUE_VEC3}, ""},
        {{{0}, 0, VALUE_UNSET}, ""},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.value.kind);
        EXPECT_EQ(Printed(each.value), each.text);
    }
}

TEST(PrintValue, PrintsAPointerAsAHexadecimalNumber) {
    RValue value{};
    value.i64 = 0;
    value.ptr = reinterpret_cast<void*>(0xABC);
    value.kind = VALUE_PTR;
    EXPECT_EQ(Printed(value), "0xabc");
}

TEST(PrintValue, GrowsTheText) {
    for (size_t length : {0u, 14u, 15u, 16u, 17u, 1000u, 100000u}) {
        RValue value = Text(std::string(length, 'x').c_str());
        EXPECT_EQ(Printed(value).size(), length);
        FREE_RValue__Pre(&value);
    }
}

TEST(PrintValue, AppendsToWhatIsThere) {
    int size = 16;
    auto* buffer = static_cast<char*>(MemoryManager::Alloc(16, __FILE__, __LINE__, true));
    char* pos = buffer;
    for (double number : {1.0, 2.5, -3.0}) {
        RValue value = Real(number);
        STRING_RValue(&pos, &buffer, &size, &value);
    }
    EXPECT_STREQ(buffer, "12.5-3");
    MemoryManager::Free(buffer);
}

TEST(PrintValue, PrintsArraysInsideArrays) {
    RValue inner = Array();
    Push(&inner, Text("x"));
    RValue array = Array();
    EXPECT_EQ(Printed(array), "[  ]");
    Push(&array, Real(1));
    Push(&array, Real(2.5));
    Push(&array, inner);
    Push(&array, g_undefined);

    EXPECT_EQ(Printed(array), "[ 1,2.5,[ x ],undefined ]");
    FREE_RValue__Pre(&array);
}

TEST(PrintValue, AnArrayInsideItselfIsNullThere) {
    RValue array = Array();
    Push(&array, Real(1));
    SET_RValue(&array, &array, nullptr, 1);

    EXPECT_EQ(Printed(array), "[ 1,null ]");
    EXPECT_EQ(Printed(array), "[ 1,null ]");  // and whole again the next time

    RValue nothing = g_undefined;
    SET_RValue(&array, &nothing, nullptr, 1);  // opens the circle
    FREE_RValue__Pre(&array);
}

TEST(PrintValue, AnArrayMetTwiceIsPrintedTwice) {
    RValue inner = Array();
    Push(&inner, Real(7));
    RValue array = Array();
    SET_RValue(&array, &inner, nullptr, 0);
    SET_RValue(&array, &inner, nullptr, 1);
    FREE_RValue__Pre(&inner);

    EXPECT_EQ(Printed(array), "[ [ 7 ],[ 7 ] ]");
    FREE_RValue__Pre(&array);
}

TEST(PrintValue, EachArrayTakesTwoStepsOfTheCounter) {
    RValue inner = Array();
    RValue array = Array();
    Push(&array, inner);
    unsigned int before = g_countSTRING_RValue;

    Printed(array);

    EXPECT_EQ(g_countSTRING_RValue, before + 4);
    EXPECT_EQ(array.arr->m_visited, before + 1);
    EXPECT_EQ(array.arr->m_elements[0].arr->m_visited, before + 2);
    EXPECT_EQ(g_comparisonARRAY_RValue, before + 4);
    FREE_RValue__Pre(&array);
}

TEST(PrintValue, ACircleOfTwoArraysEndsAsAnErrorAndLeavesNothingMarked) {
    RValue a = Array();
    RValue b = Array();
    SET_RValue(&a, &b, nullptr, 0);
    SET_RValue(&b, &a, nullptr, 0);
    int size = 16;
    auto* buffer = static_cast<char*>(MemoryManager::Alloc(16, __FILE__, __LINE__, true));
    char* pos = buffer;

    EXPECT_THROW(STRING_RValue(&pos, &buffer, &size, &a), KXRecursionLimit);
    MemoryManager::Free(buffer);

    ResetVisits();
    RValue nothing = g_undefined;
    SET_RValue(&b, &nothing, nullptr, 0);  // opens the circle
    EXPECT_EQ(Printed(a), "[ [ undefined ] ]");
    EXPECT_EQ(g_comparisonSTRUCT_RValue <= g_countSTRING_RValue, true);
    FREE_RValue__Pre(&a);
    FREE_RValue__Pre(&b);
}

}  // namespace
}  // namespace kx::test
