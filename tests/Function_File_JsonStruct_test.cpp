// JSON text to structs and arrays, and back.
#include "Files/Base/Collector.h"
#include "Files/Base/Json.h"
#include "Files/Base/KXObjectBase.h"
#include "tests/Data_Structures_fixture.h"
#include "tests/Function_File_fixture.h"

#include <climits>

namespace kx::test {
namespace {

class JsonStruct : public BuiltInsTest {
protected:
    void TearDown() override {
        Collector::Collect();
        BuiltInsTest::TearDown();
    }
};

Value Parsed(const char* text) {
    return Call("json_parse", {text});
}

std::string Stringified(const Value& value) {
    return Call("json_stringify", {value}).Text();
}

TEST_F(JsonStruct, ObjectsBecomeStructsAndArraysArrays) {
    Value value = Parsed(R"({"a":[1,{"b":null}],"c":"x"})");

    ASSERT_EQ(value.Kind(), VALUE_OBJECT);
    const KXObjectBase& object = *value.Get().obj;
    EXPECT_STREQ(object.m_className, "___struct___");
    ASSERT_EQ(object.Get("a")->kind, VALUE_ARRAY);
    const RefDynamicArrayOfRValue& array = *object.Get("a")->arr;
    ASSERT_EQ(array.m_length, 2);
    EXPECT_EQ(array.m_refCount, 1);
    EXPECT_EQ(array.m_elements[0].real, 1);
    ASSERT_EQ(array.m_elements[1].kind, VALUE_OBJECT);
    EXPECT_EQ(array.m_elements[1].obj->Get("b")->kind, VALUE_PTR);
    EXPECT_EQ(array.m_elements[1].obj->Get("b")->ptr, nullptr);
    EXPECT_STREQ(object.Get("c")->str->m_thing, "x");
}

TEST_F(JsonStruct, MembersKeepTheOrderOfTheText) {
    Value value = Parsed(R"({"z":1,"a":2,"m":3,"a":4})");

    EXPECT_EQ(Stringified(value), R"({ "z": 1.0, "a": 4.0, "m": 3.0 })");
}

TEST_F(JsonStruct, ANullElementIsAPointer) {
    Value value = Parsed("[null]");

    EXPECT_EQ(value.Get().arr->m_elements[0].kind, VALUE_PTR);
}

TEST_F(JsonStruct, AScalarIsItself) {
    EXPECT_EQ(Parsed("5").Real(), 5);
    EXPECT_EQ(Parsed(" true ").Real(), 1);
    EXPECT_EQ(Parsed("2.5").Real(), 2.5);
    EXPECT_EQ(Parsed("\"text\"").Text(), "text");
    EXPECT_EQ(Parsed("\"@i64@ffffffffffffffff$i64$\"").Get().i64, -1);
    EXPECT_EQ(Parsed("\"@i64@ffffffffffffffff$i64$\"").Kind(), VALUE_INT64);
    EXPECT_EQ(Parsed("[]").Get().arr->m_length, 0);
    EXPECT_EQ(Parsed("{}").Get().obj->Count(), 0);
}

TEST_F(JsonStruct, AnArgumentThatIsNoTextIsRefused) {
    for (const Value& argument : {Value(5), Value(g_undefined), Value(Array())}) {
        Value result = Call("json_parse", {argument});

        EXPECT_EQ(TakeError(), "json_parse : expects a string argument");
        EXPECT_EQ(result.Real(), kUnset);
    }
}

TEST_F(JsonStruct, TextThatIsNoJsonIsAnError) {
    for (const char* text : {"null", "", "{", "nul", "[1,2", "\xEF\xBB\xBF{}"}) {
        SCOPED_TRACE(text);
        Value result = Parsed(text);

        EXPECT_EQ(TakeError(), "JSON parse error");
        EXPECT_EQ(result.Kind(), VALUE_UNDEFINED);
    }
    Call("json_parse", {Value(Other(VALUE_STRING, 0))});
    EXPECT_EQ(TakeError(), "JSON parse error");
}

TEST_F(JsonStruct, StringifyWantsAParameter) {
    Value result(kUnset);

    Function_Find("json_stringify")->routine(result.Get(), nullptr, nullptr, 0, nullptr);

    EXPECT_EQ(TakeError(), "json_stringify expects a parameter");
    EXPECT_EQ(result.Real(), kUnset);
}

TEST_F(JsonStruct, WhatHasNoJsonFormIsTheTextNull) {
    EXPECT_EQ(Stringified(Value(g_undefined)), "null");
    EXPECT_EQ(Stringified(Value(Other(VALUE_VEC3, 0))), "null");
    EXPECT_EQ(Stringified(Value(MapReference(100000))), "null");
}

TEST_F(JsonStruct, NumbersComeBackAsTheirKindAllows) {
    struct Case {
        RValue value;
        unsigned int kind;
        double real;  // of a real that comes back
    };
    const Case cases[] = {
        {Real(2.5), VALUE_REAL, 2.5},
        {Real(3), VALUE_REAL, 3},
        {Int32(-7), VALUE_REAL, -7},
        {Int64(5), VALUE_REAL, 5},
        {Int64(-2147483648LL), VALUE_REAL, -2147483648.0},
        {Int64(1LL << 53), VALUE_REAL, 9007199254740992.0},
        {Bool(true), VALUE_REAL, 1},
        {Bool(false), VALUE_REAL, 0},
        {Other(VALUE_PTR, 0xABC), VALUE_STRING, 0},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.value.kind);
        Value back = Parsed(Stringified(Value(each.value)).c_str());

        EXPECT_EQ(back.Kind(), each.kind);
        if (each.kind == VALUE_REAL) {
            EXPECT_EQ(back.Get().real, each.real);
        }
    }
}

TEST_F(JsonStruct, SixtyFourBitsThatADoubleCannotHoldComeBackWhole) {
    constexpr int64_t kExact = 1LL << 53;
    for (int64_t number : {kExact + 1, -kExact - 1, INT64_MAX, INT64_MIN + 1, INT64_MAX - 511}) {
        Value back = Parsed(Stringified(Value(Int64(number))).c_str());

        EXPECT_EQ(back.Kind(), VALUE_INT64);
        EXPECT_EQ(back.Get().i64, number);
    }
}

TEST_F(JsonStruct, AReferenceComesBackAsAStruct) {
    int map = NewMap();
    Set(*themaps.arr[map], "n", 1);
    Value back = Parsed(Stringified(Value(MapReference(map))).c_str());

    EXPECT_EQ(back.Kind(), VALUE_OBJECT);
    EXPECT_EQ(back.Get().obj->Get("n")->real, 1);
    FreeDsMap(map);
}

TEST_F(JsonStruct, NamesThatComeAgainShareTheirText) {
    long long before = MemoryManager::Stats().blocks;
    Value value = Parsed(R"([{"a name":1},{"a name":2},{"a name":3}])");

    // The array's elements, three structs' members, and one name in a block of host memory.
    EXPECT_EQ(MemoryManager::Stats().blocks - before, 1 + 3 + 1);
}

TEST_F(JsonStruct, NothingIsLeftBehind) {
    Collector::Collect();
    long long before = MemoryManager::Stats().blocks;
    Collector::Statistics objects = Collector::Stats();
    for (const char* text : {R"({"a":[1,{"b":"text"},[]]})", "[[[1]]]", "\"text\"", "[1", "null"}) {
        Value value = Parsed(text);
        TakeError();
    }
    Collector::Collect();

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
    EXPECT_EQ(Collector::Stats().structs, objects.structs);
    EXPECT_EQ(Collector::Stats().arrays, objects.arrays);
}

TEST_F(JsonStruct, TheWalksTakeWhatIsNoObjectAndNoArray) {
    JsonTree number(MadeJson(json_object_new_int(1)));
    Value object(RValue{});
    Value array(RValue{});

    json_parse_object_ext(object.Get(), number.Get());
    json_parse_array_ext(array.Get(), nullptr);

    EXPECT_EQ(object.Get().obj->Count(), 0);
    EXPECT_EQ(array.Get().arr->m_length, 0);
}

}  // namespace
}  // namespace kx::test
