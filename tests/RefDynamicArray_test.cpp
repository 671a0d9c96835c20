// Script arrays.
#include "Files/Base/RefDynamicArray.h"

#include "tests/RValue_fixture.h"

#include <climits>
#include <new>

namespace kx::test {
namespace {

TEST(Arrays, StartEmptyWithOneReference) {
    RefDynamicArrayOfRValue* array = ARRAY_RefAlloc();

    EXPECT_EQ(array->m_length, 0);
    EXPECT_EQ(array->m_elements, nullptr);
    EXPECT_EQ(array->m_visited, 0u);
    EXPECT_EQ(array->m_refCount, 1);
    Array_DecRef(array);
}

TEST(Arrays, KeepCopiesAndReleaseWhatTheyReplace) {
    long long before = MemoryManager::Stats().blocks;
    RValue array = Array();
    RValue text = Text("kept");

    SET_RValue(&array, &text, nullptr, 0);
    EXPECT_EQ(text.str->m_refCount, 2);

    RValue other = Real(5);
    SET_RValue(&array, &other, nullptr, 0);
    EXPECT_EQ(text.str->m_refCount, 1);
    EXPECT_EQ(array.arr->m_elements[0].real, 5);

    SET_RValue(&array, &array.arr->m_elements[0], nullptr, 0);  // onto itself
    EXPECT_EQ(array.arr->m_elements[0].real, 5);
    FREE_RValue__Pre(&text);
    FREE_RValue__Pre(&array);
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST(Arrays, GrowToAnyIndexWithZerosInBetween) {
    RValue array = Array();
    RValue one = Real(1);

    SET_RValue(&array, &one, nullptr, 99);

    EXPECT_EQ(array.arr->m_length, 100);
    for (int i = 0; i < 99; ++i) {
        EXPECT_EQ(array.arr->m_elements[i].kind, VALUE_REAL);
        EXPECT_EQ(array.arr->m_elements[i].real, 0);
    }
    FREE_RValue__Pre(&array);
}

TEST(Arrays, CanBeFilledFromTheEnd) {
    RValue array = Array();
    for (int i = 9; i >= 0; --i) {
        RValue value = Real(i);
        SET_RValue(&array, &value, nullptr, i);
    }
    EXPECT_EQ(Printed(array), "[ 0,1,2,3,4,5,6,7,8,9 ]");
    FREE_RValue__Pre(&array);
}

TEST(Arrays, TakeNoIndexBelowZeroAndNothingThatIsNoArray) {
    RValue array = Array();
    RValue one = Real(1);

    SET_RValue(&array, &one, nullptr, -1);
    SET_RValue(&array, &one, nullptr, INT_MAX);
    EXPECT_EQ(array.arr->m_length, 0);

    SET_RValue(&one, &one, nullptr, 0);
    RValue none{{0}, 0, VALUE_ARRAY};
    SET_RValue(&none, &one, nullptr, 0);
    EXPECT_EQ(one.real, 1);
    FREE_RValue__Pre(&array);
}

TEST(Arrays, BeyondWhatMemoryHoldsAreAnErrorAndStayAsTheyAre) {
    RValue array = Array();
    RValue one = Real(1);
    SET_RValue(&array, &one, nullptr, 0);

    EXPECT_THROW(SET_RValue(&array, &one, nullptr, INT_MAX - 1), std::bad_alloc);

    EXPECT_EQ(array.arr->m_length, 1);
    EXPECT_EQ(array.arr->m_elements[0].real, 1);
    FREE_RValue__Pre(&array);
}

TEST(Arrays, TakeNull) {
    Array_DecRef(nullptr);
    Array_SetOwner(nullptr);
}

TEST(Arrays, MayTakeAnElementOfTheirOwnWhileTheyGrow) {
    RValue array = Array();
    Push(&array, Text("text"));
    for (int i = 1; i < 100; ++i) {
        SET_RValue(&array, &array.arr->m_elements[i - 1], nullptr, i);
    }

    EXPECT_EQ(array.arr->m_elements[99].str->m_refCount, 100);
    FREE_RValue__Pre(&array);
}

TEST(Arrays, FillTheGapWithZeros) {
    RValue array = Array();
    Push(&array, Real(1));
    array.arr->m_length = 0;  // a slot beyond the end may hold anything
    RValue last = Real(3);

    SET_RValue(&array, &last, nullptr, 2);

    EXPECT_EQ(array.arr->m_elements[0].real, 0);
    EXPECT_EQ(array.arr->m_elements[1].real, 0);
    EXPECT_EQ(array.arr->m_elements[2].real, 3);
    FREE_RValue__Pre(&array);
}

TEST(Arrays, CloseUpWhereAnElementIsRemoved) {
    RValue array = Array();
    for (const char* text : {"a", "b", "c"}) {
        Push(&array, Text(text));
    }

    REMOVE_RValue(&array, 1);
    REMOVE_RValue(&array, 2);
    REMOVE_RValue(&array, -1);
    RValue number = Real(1);
    REMOVE_RValue(&number, 0);

    EXPECT_EQ(Printed(array), "[ a,c ]");
    FREE_RValue__Pre(&array);
}

}  // namespace
}  // namespace kx::test
