// The table of built-ins; arguments and results.
#include "Files/Code/Code_Function.h"

#include "Files/Base/RefDynamicArray.h"
#include "Platform/MemoryManager.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/CommaLocale.h"
#include "tests/support/Numbers.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>

namespace kx::test {
namespace {

void One(RValue&, CInstance*, CInstance*, int, RValue*) {}
void Two(RValue& result, CInstance*, CInstance*, int, RValue*) {
    result.kind = VALUE_UNDEFINED;
}

TEST(FunctionTable, FindsWhatWasAdded) {
    Function_Add("test_found", One, 3, true);

    const FunctionRecord* record = Function_Find("test_found");

    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->name, "test_found");
    EXPECT_EQ(record->routine, One);
    EXPECT_EQ(record->argc, 3);
    EXPECT_TRUE(record->flag);
    EXPECT_EQ(Function_Find("test_missing"), nullptr);
    EXPECT_EQ(Function_Find(""), nullptr);
}

TEST(FunctionTable, ASecondAddOfANameReplacesTheRecord) {
    Function_Add("test_replaced", One, 3, true);
    const FunctionRecord* before = Function_Find("test_replaced");
    int count = Function_Count();

    Function_Add("test_replaced", Two, 1, false);

    EXPECT_EQ(Function_Count(), count);
    EXPECT_EQ(Function_Find("test_replaced"), before);  // the record itself stays where it is
    EXPECT_EQ(before->routine, Two);
    EXPECT_EQ(before->argc, 1);
    EXPECT_FALSE(before->flag);
}

TEST(FunctionTable, CopiesNamesAndNeverMovesRecords) {
    Function_Add("test_first", One, 0, false);
    const FunctionRecord* first = Function_Find("test_first");
    for (int i = 0; i < 1000; ++i) {
        Function_Add(("test_many_" + std::to_string(i)).c_str(), One, i % 5, false);
    }

    EXPECT_EQ(Function_Find("test_first"), first);
    EXPECT_EQ(Function_Find("test_many_999")->argc, 4);
}

TEST(FunctionTable, IsReadByNumberInTheOrderOfTheNames) {
    Function_Add("test_order_a", One, 0, false);
    Function_Add("test_order_b", One, 0, false);

    EXPECT_STREQ(Function_At(Function_Count() - 2)->name, "test_order_a");
    EXPECT_STREQ(Function_At(Function_Count() - 1)->name, "test_order_b");
    EXPECT_EQ(Function_At(Function_Count()), nullptr);
    EXPECT_EQ(Function_At(-1), nullptr);
}

TEST(Arguments, AreReadAsNumbers) {
    struct Case {
        Value value;
        double real;
        int integer;
    };
    const Case cases[] = {
        {0, 0, 0},
        {1.9, 1.9, 1},
        {-1.9, -1.9, -1},
        {1e10, 1e10, INT_MAX},
        {-1e10, -1e10, INT_MIN},
        {2147483647.5, 2147483647.5, INT_MAX},
        {-2147483648.0, -2147483648.0, INT_MIN},
        {INFINITY, INFINITY, INT_MAX},
        {-INFINITY, -INFINITY, INT_MIN},
        {Int32(-5), -5, -5},
        {Int32(INT_MIN), INT_MIN, INT_MIN},
        {Int64(7), 7, 7},
        {Int64(LLONG_MAX), 9223372036854775808.0, INT_MAX},
        {Int64(LLONG_MIN), -9223372036854775808.0, INT_MIN},
        {Bool(true), 1, 1},
        {Bool(false), 0, 0},
        {"12", 12, 12},
        {"-1.5e1", -15, -15},
        {"+3", 3, 3},
        {"12 ", 0, 0},
        {" 12", 0, 0},
        {"12x", 0, 0},
        {"0x10", 0, 0},
        {"inf", 0, 0},
        {"", 0, 0},
        {"text", 0, 0},
        {"1e999", INFINITY, INT_MAX},
        {Value(), 0, 0},
        {RValue{{0}, 0, VALUE_PTR}, 0, 0},
        {RValue{{0}, 0, VALUE_STRING}, 0, 0},
        {RValue{{5}, 0, VALUE_UNSET}, 0, 0},
        {RValue{{5}, 0, VALUE_NULL}, 0, 0},
    };
    for (Case each : cases) {
        SCOPED_TRACE(each.value.Kind());
        EXPECT_EQ(KXGetReal(&each.value.Get(), 0), each.real);
        EXPECT_EQ(KXGetInt32(&each.value.Get(), 0), each.integer);
    }
    Value nan(NAN);
    EXPECT_TRUE(std::isnan(KXGetReal(&nan.Get(), 0)));
    EXPECT_EQ(KXGetInt32(&nan.Get(), 0), 0);
}

TEST(Arguments, AreReadAsTexts) {
    struct Case {
        Value value;
        const char* text;
    };
    const Case cases[] = {{"text", "text"},     {"", ""},
                          {1.0, "1"},           {-2.5, "-2.5"},
                          {Int32(-5), "-5"},    {Int64(LLONG_MIN), "-9223372036854775808"},
                          {Bool(true), "true"}, {Bool(false), "false"}};
    for (Case each : cases) {
        EXPECT_STREQ(KXGetString(&each.value.Get(), 0), each.text);
    }
    for (unsigned int kind :
         {VALUE_UNDEFINED, VALUE_ARRAY, VALUE_PTR, VALUE_OBJECT, VALUE_NULL, VALUE_UNSET, VALUE_STRING}) {
        RValue value{{0}, 0, kind};
        EXPECT_EQ(KXGetString(&value, 0), nullptr) << kind;
    }
}

TEST(Arguments, AStringsTextIsItsOwn) {
    Value value("text");
    EXPECT_EQ(KXGetString(&value.Get(), 0), value.Get().str->m_thing);
}

TEST(Arguments, AreCountedFromZero) {
    RValue values[] = {{{1}, 0, VALUE_REAL}, {{2}, 0, VALUE_REAL}};
    EXPECT_EQ(KXGetReal(values, 1), 2);
    EXPECT_STREQ(KXGetString(values, 1), "2");
}

TEST(Arguments, TextsOfNumbersLiveThroughACall) {
    RValue values[16];
    const char* texts[16];
    for (int i = 0; i < 16; ++i) {
        values[i] = {{i * 1.5}, 0, VALUE_REAL};
        texts[i] = KXGetString(values, i);
    }
    EXPECT_STREQ(texts[0], "0");
    EXPECT_STREQ(texts[1], "1.5");
    EXPECT_STREQ(texts[15], "22.5");
}

TEST(Arguments, KnowNoDecimalComma) {
    CommaLocale locale;
    Value number(1.5);
    Value text("2.5");
    Value comma("2,5");

    EXPECT_STREQ(KXGetString(&number.Get(), 0), "1.5");
    EXPECT_EQ(KXGetReal(&text.Get(), 0), 2.5);
    EXPECT_EQ(KXGetReal(&comma.Get(), 0), 0);
}

TEST(Results, AreCopiesOfTheirText) {
    char text[] = "text";
    RValue value{{5}, 8, VALUE_REAL};

    KXCreateString(&value, text);
    text[0] = 'n';

    EXPECT_EQ(value.kind, VALUE_STRING);
    EXPECT_EQ(value.flags, 0u);
    EXPECT_STREQ(value.str->m_thing, "text");
    EXPECT_EQ(value.str->m_refCount, 1);
    EXPECT_EQ(value.str->m_size, 4);
    FREE_RValue__Pre(&value);
}

TEST(Results, OfNoTextAreEmptyStrings) {
    for (auto create : {KXCreateString, KXSetString}) {
        RValue value{};
        create(&value, nullptr);
        EXPECT_EQ(value.kind, VALUE_STRING);
        EXPECT_STREQ(value.str->m_thing, "");
        FREE_RValue__Pre(&value);
    }
}

TEST(Names, ShareOneTextWhileTheyAreShared) {
    long long before = MemoryManager::Stats().blocks;
    RValueOwner first;
    RValueOwner second;
    RValueOwner other;
    {
        KXNames names;
        KXSetString(&first.value, "name");
        KXNames inner;  // is the outer one
        KXSetString(&second.value, "name");
        KXSetString(&other.value, "other");
    }

    EXPECT_EQ(first.value.str, second.value.str);
    EXPECT_NE(first.value.str, other.value.str);
    EXPECT_EQ(first.value.str->m_refCount, 2);
    EXPECT_EQ(MemoryManager::Stats().blocks - before, 2);
}

TEST(Names, AreTheirOwnOtherwise) {
    RValueOwner first;
    RValueOwner second;

    KXSetString(&first.value, "name");
    KXSetString(&second.value, "name");

    EXPECT_NE(first.value.str, second.value.str);
}

TEST(Names, AreRightHoweverManyAndHoweverLong) {
    KXNames names;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1000; ++i) {
            std::string text = std::to_string(i) + std::string(static_cast<size_t>(i % 100), 'x');
            RValueOwner name;
            KXSetString(&name.value, text.c_str());
            EXPECT_EQ(name.value.str->m_thing, text);
        }
    }
}

}  // namespace
}  // namespace kx::test
