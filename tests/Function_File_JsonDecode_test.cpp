// JSON text to maps and lists.
#include "Files/Base/Json.h"
#include "tests/Data_Structures_fixture.h"
#include "tests/Function_File_fixture.h"
#include "tests/support/CommaLocale.h"

#include <climits>
#include <cmath>
#include <string>

namespace kx::test {
namespace {

class JsonDecode : public BuiltInsTest {};

/// The map that a text is decoded to.
CDS_Map& Decoded(const std::string& text) {
    auto index = static_cast<int>(Call("json_decode", {text}).Real());
    if (index < 1) throw std::runtime_error("not decoded: " + text);
    return *themaps.arr[index];
}

/// The member "v" of a decoded object.
const RValue& Member(const std::string& json) {
    return *Find(Decoded("{\"v\":" + json + "}"), "v");
}

std::string Default(const std::string& text) {
    const RValue* value = Find(Decoded(text), "default");
    return value && value->kind == VALUE_STRING ? value->str->m_thing : "(no text)";
}

/// Text that functions of the host's take as their own.
char* Own(const char* text) {
    return const_cast<char*>(text);
}

// --- values ---------------------------------------------------------------------------------------------------------

TEST_F(JsonDecode, NumbersAndBooleansAreReals) {
    struct Case {
        const char* json;
        double real;
    };
    const Case cases[] = {
        {"1", 1},
        {"-1.5e2", -150},
        {"true", 1},
        {"false", 0},
        {"2147483647", 2147483647},
        {"2147483648", 2147483647},  // integers stop at the ends of 32 bits
        {"-2147483649", -2147483648.0},
        {"9007199254740993", 2147483647},
        {"99999999999999999999999", 2147483647},
        {"2147483648.0", 2147483648.0},
        {"1e999", INFINITY},
        {"-Infinity", -INFINITY},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.json);
        const RValue& value = Member(each.json);

        EXPECT_EQ(value.kind, VALUE_REAL);
        EXPECT_EQ(value.real, each.real);
    }
    EXPECT_TRUE(std::isnan(Member("NaN").real));
}

TEST_F(JsonDecode, NumbersHaveAPointUnderACommaLocaleToo) {
    CommaLocale locale;

    EXPECT_EQ(Member("2.5").real, 2.5);
    EXPECT_EQ(Find(*themaps.arr[static_cast<int>(Call("json_decode", {2.5}).Real())], "default")->str->m_thing,
              std::string("2.50"));
}

TEST_F(JsonDecode, ATextInTheFormOfA64BitIntegerIsOne) {
    struct Case {
        const char* text;
        int64_t number;
    };
    const Case cases[] = {
        {"@i64@20000000000001$i64$", 9007199254740993},
        {"@i64@ffffffffffffffff$i64$", -1},
        {"@i64@7fffffffffffffff$i64$", INT64_MAX},
        {"@i64@8000000000000000$i64$", INT64_MIN},
        {"@i64@A$i64$", 10},
        {"@i64@x$i64$", 0},  // digits that do not read
        {"@i64@-1$i64$", -1},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.text);
        const RValue& value = Member("\"" + std::string(each.text) + "\"");

        EXPECT_EQ(value.kind, VALUE_INT64);
        EXPECT_EQ(value.i64, each.number);
    }
}

TEST_F(JsonDecode, AnyOtherTextStaysText) {
    for (const char* text :
         {"", "@i64@$i64$", "@i64@1$i64", "i64@1$i64$", "@i64@1$i64$ ", " @i64@1$i64$", "plain", "@i32@1$i64$"}) {
        SCOPED_TRACE(text);
        const RValue& value = Member("\"" + std::string(text) + "\"");

        ASSERT_EQ(value.kind, VALUE_STRING);
        EXPECT_STREQ(value.str->m_thing, text);
    }
    EXPECT_STREQ(Member(R"("\u00e9\ud83d\ude00\n\/")").str->m_thing, "é😀\n/");
}

TEST_F(JsonDecode, NullIsAPointerInAnObjectAndUndefinedInAnArray) {
    const RValue& member = Member("null");
    const RValue& list = Member("[null]");

    EXPECT_EQ(member.kind, VALUE_PTR);
    EXPECT_EQ(member.ptr, nullptr);
    EXPECT_EQ(DsListOf(&list)->m_elements[0].kind, VALUE_UNDEFINED);
}

TEST_F(JsonDecode, ObjectsAndArraysBecomeMapsAndLists) {
    CDS_Map& map = Decoded(R"({"a":1,"b":[1,2,{"c":true}]})");

    EXPECT_EQ(Find(map, "a")->real, 1);
    const CDS_List* list = DsListOf(Find(map, "b"));
    ASSERT_EQ(list->m_count, 3);
    EXPECT_EQ(list->m_elements[0].real, 1);
    EXPECT_EQ(list->m_elements[1].real, 2);
    EXPECT_EQ(Find(*DsMapOf(&list->m_elements[2]), "c")->real, 1);
    EXPECT_EQ(Find(map, "b")->kind, KIND_DS_LIST);
    EXPECT_EQ(list->m_elements[2].kind, KIND_DS_MAP);
}

TEST_F(JsonDecode, WhatIsInsideGetsTheLowerIndex) {
    auto outer = static_cast<int>(Call("json_decode", {R"({"inner":{}})"}).Real());

    EXPECT_LT(Find(*themaps.arr[outer], "inner")->real, outer);
}

TEST_F(JsonDecode, OfTwoMembersOfOneNameTheLastCounts) {
    CDS_Map& map = Decoded(R"({"a":1,"a":2})");

    EXPECT_EQ(map.Count(), 1);
    EXPECT_EQ(Find(map, "a")->real, 2);
}

TEST_F(JsonDecode, NamesThatComeAgainShareTheirText) {
    CDS_Map& map = Decoded(R"({"a":{"name":1},"b":{"name":2}})");
    const MapStore* a = DsMapOf(Find(map, "a"))->FindFirst();
    const MapStore* b = DsMapOf(Find(map, "b"))->FindFirst();

    EXPECT_EQ(a->key.str, b->key.str);
    EXPECT_EQ(a->key.str->m_refCount, 2);
}

// --- the forms of a text --------------------------------------------------------------------------------------------

TEST_F(JsonDecode, AnythingButAnObjectBecomesTheMemberDefault) {
    struct Case {
        const char* text;
        const char* read;
    };
    const Case cases[] = {
        {"hello", "hello"}, {"", ""},
        {"  ", "  "},       {"{abc}", "{abc}"},
        {"{", "{"},         {"{ \t", "{ \t"},
        {"[", "["},         {"[1", "[1"},
        {"}", "}"},         {"null", "null"},
        {"3", "3"},         {"true", "true"},
        {"} {", "} {"},     {" {abc} \n", " {abc} \n"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.text);
        EXPECT_EQ(Default(each.text), each.read);
    }
}

TEST_F(JsonDecode, AnArrayBecomesTheListDefault) {
    for (const char* text : {"[1,2]", " \n[1,2]\t "}) {
        SCOPED_TRACE(text);
        const CDS_List* list = DsListOf(Find(Decoded(text), "default"));

        ASSERT_EQ(list->m_count, 2);
        EXPECT_EQ(list->m_elements[1].real, 2);
    }
}

TEST_F(JsonDecode, ANumberIsItsTextWithTwoDecimals) {
    struct Case {
        double number;
        const char* text;
    };
    const Case cases[] = {{3, "3.00"}, {-0.126, "-0.13"}, {1e31, "9999999999999999635896294965248.00"}, {NAN, "nan"}};
    for (const Case& each : cases) {
        auto index = static_cast<int>(Call("json_decode", {each.number}).Real());

        EXPECT_STREQ(Find(*themaps.arr[index], "default")->str->m_thing, each.text);
    }
    auto nothing = static_cast<int>(Call("json_decode", {Value(g_undefined)}).Real());
    EXPECT_STREQ(Find(*themaps.arr[nothing], "default")->str->m_thing, "0.00");
}

TEST_F(JsonDecode, ANumberThatIsTooLongForItsBufferIsRefused) {
    EXPECT_NE(Call("json_decode", {-1e31}).Real(), -1);  // 35 characters
    EXPECT_EQ(Call("json_decode", {1e32}).Real(), -1);
    EXPECT_EQ(Call("json_decode", {1e40}).Real(), -1);
    EXPECT_EQ(Call("json_decode", {-1.7e308}).Real(), -1);
}

TEST_F(JsonDecode, AByteOrderMarkIsSkipped) {
    EXPECT_EQ(Find(Decoded("\xEF\xBB\xBF{\"a\":1}"), "a")->real, 1);
    EXPECT_EQ(Default("\xEF\xBB\xBFtext"), "text");
    EXPECT_EQ(Default("\xEF\xBB\xBF"), "");
    EXPECT_EQ(Default("\xEF\xBB"), "\xEF\xBB");
}

TEST_F(JsonDecode, TextThatIsNoJsonEvenInQuotesIsRefused) {
    for (const char* text : {"say \"hi\"", "a\\", "{\"a\":}", "{\"a\":1", "[\"a]", "{\"a\" 1}"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Call("json_decode", {text}).Real(), -1);
    }
    EXPECT_EQ(TakeError(), "");
}

TEST_F(JsonDecode, AStringWithoutATextIsRefused) {
    EXPECT_EQ(Call("json_decode", {Value(Other(VALUE_STRING, 0))}).Real(), -1);
    EXPECT_EQ(Call("json_decode", {Value(Textless())}).Real(), -1);
}

TEST_F(JsonDecode, NothingIsLeftBehind) {
    for (const char* text : {"{\"a\":[1,{\"b\":\"text\"},[]]}", "[1,[2]]", "plain", "{bad}", "a\\", "{\"a\":1"}) {
        SCOPED_TRACE(text);
        Value argument(text);
        long long before = MemoryManager::Stats().blocks;
        RValue map = Call("json_decode", {argument}).Get();
        map.kind = KIND_DS_MAP;

        FreeDsTree(&map);

        EXPECT_EQ(MemoryManager::Stats().blocks, before);
    }
}

// --- large and hostile texts ----------------------------------------------------------------------------------------

TEST_F(JsonDecode, AVeryLongStringIsReadWhole) {
    std::string longText(50 << 20, 'x');

    EXPECT_EQ(Member("\"" + longText + "\"").str->m_size, static_cast<int>(longText.size()));
}

TEST_F(JsonDecode, TextThatWouldTakeGigabytesIsRefusedBeforeItIsParsed) {
    std::string brackets(100 << 20, '[');
    std::string objects = "[";
    for (int i = 0; i < 3000000; ++i) {
        objects += "{},";
    }
    objects += "{}]";

    EXPECT_EQ(Call("json_decode", {brackets}).Real(), -1);
    const char* size = sizeof(void*) > 4 ? "51600" : "26000";
    EXPECT_EQ(m_console.Take(), std::string("JSON text too large: it could take ") + size + " MiB\n");  // once
    EXPECT_EQ(Call("json_decode", {objects}).Real(), -1);
    EXPECT_NE(m_console.Take().find("JSON text too large"), std::string::npos);
}

TEST_F(JsonDecode, EmptyObjectsTakeABlockEachAndNoMore) {
    long long before = MemoryManager::Stats().blocks;
    Decoded("[" + std::string("{},{},{},{}") + "]");

    // The outer map's entry and the list's elements, and the name of its one member.
    EXPECT_EQ(MemoryManager::Stats().blocks - before, 3);
}

TEST_F(JsonDecode, NestingDeeperThanTheLibraryReadsIsRefused) {
    auto nested = [](int depth) {
        return std::string(static_cast<size_t>(depth), '[') + std::string(static_cast<size_t>(depth), ']');
    };
    EXPECT_NE(Call("json_decode", {nested(31)}).Real(), -1);  // the object around it makes 32
    EXPECT_EQ(Call("json_decode", {nested(32)}).Real(), -1);
}

// --- what the host calls --------------------------------------------------------------------------------------------

TEST_F(JsonDecode, TextIsReadIntoANewMapOrIntoOneThatIsThere) {
    int made = JSONToDSMap(Own(R"({"a":1,"b":2})"), -1);

    ASSERT_GE(made, 1);
    EXPECT_EQ(JSONToDSMap(Own(R"({"b":20,"c":30})"), made), -1);
    EXPECT_EQ(Find(*themaps.arr[made], "a")->real, 1);
    EXPECT_EQ(Find(*themaps.arr[made], "b")->real, 2);  // what is there stays
    EXPECT_EQ(Find(*themaps.arr[made], "c")->real, 30);
}

TEST_F(JsonDecode, AContainerWhoseNameIsTakenIsNotLeftBehind) {
    int map = JSONToDSMap(Own(R"({"a":1})"), -1);
    long long before = MemoryManager::Stats().blocks;

    JSONToDSMap(Own(R"({"a":{"b":[1,{}]}})"), map);

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST_F(JsonDecode, TextThatIsNoObjectMakesAnEmptyMap) {
    for (const char* text : {"null", "[1]", "5", "\"x\""}) {
        SCOPED_TRACE(text);
        int map = JSONToDSMap(Own(text), -1);

        ASSERT_GE(map, 1);
        EXPECT_EQ(themaps.arr[map]->Count(), 0);
    }
}

TEST_F(JsonDecode, WhatDoesNotParseMakesNoMap) {
    EXPECT_EQ(JSONToDSMap(Own("{"), -1), -1);
    EXPECT_EQ(JSONToDSMap(Own(""), -1), -1);
    EXPECT_EQ(JSONToDSMap(nullptr, -1), -1);
    EXPECT_EQ(JSONToDSMap(Own("{}"), 100000), -1);
    EXPECT_EQ(JSONToDSMap(Own("{\"a\":1}"), 0), -1);
}

TEST_F(JsonDecode, AMemberIsReadIntoANewListOrIntoOneThatIsThere) {
    int made = JSONToDSList(Own(R"({"k":[1,null,[2]]})"), Own("k"), -1);

    ASSERT_GE(made, 1);
    EXPECT_EQ(JSONToDSList(Own(R"({"k":[3]})"), Own("k"), made), -1);
    const CDS_List& list = *thelists.arr[made];
    ASSERT_EQ(list.m_count, 4);
    EXPECT_EQ(list.m_elements[0].real, 1);
    EXPECT_EQ(list.m_elements[1].kind, VALUE_UNDEFINED);
    EXPECT_EQ(DsListOf(&list.m_elements[2])->m_elements[0].real, 2);
    EXPECT_EQ(list.m_elements[3].real, 3);
}

TEST_F(JsonDecode, WithoutAnArrayOfElementsThereIsNoList) {
    for (const char* text : {"{", "null", "[1]", "{\"k\":[]}", "{\"k\":1}", "{\"other\":[1]}", "{\"k\":null}", "5"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(JSONToDSList(Own(text), Own("k"), -1), -1);
    }
    EXPECT_EQ(JSONToDSList(nullptr, Own("k"), -1), -1);
    EXPECT_EQ(JSONToDSList(Own("{\"k\":[1]}"), Own("k"), 100000), -1);
}

TEST_F(JsonDecode, WithoutAKeyTheTextItselfIsTheArray) {
    int list = JSONToDSList(Own("[1,2]"), nullptr, -1);

    ASSERT_GE(list, 1);
    EXPECT_EQ(thelists.arr[list]->m_count, 2);
}

TEST_F(JsonDecode, TheWalksTakeJsonNull) {
    CDS_Map map;
    CDS_List list;
    RValue value{};

    json_parse_to_map(nullptr, &map);
    json_parse_array_to_list(nullptr, nullptr, &list);
    json_parse_array_to_list(nullptr, Own("k"), &list);
    json_value(nullptr, &value);

    EXPECT_EQ(map.Count(), 0);
    EXPECT_EQ(list.m_count, 0);
    EXPECT_EQ(value.kind, VALUE_PTR);
    int newMap = json_parse(nullptr);
    int newList = json_parse_array(nullptr, nullptr);
    EXPECT_EQ(themaps.arr[newMap]->Count(), 0);
    EXPECT_EQ(thelists.arr[newList]->m_count, 0);
}

TEST_F(JsonDecode, AContainerLeavesAScalarAsItIs) {
    JsonTree array(MadeJson(json_object_new_array()));
    RValue value = Real(7);

    json_value(array.Get(), &value);

    EXPECT_EQ(value.real, 7);
}

TEST_F(JsonDecode, WhiteSpaceIsSteppedOverInBothDirections) {
    const char text[] = " \t\n\v\f\r x  ";
    auto length = static_cast<int>(sizeof text) - 1;

    EXPECT_EQ(findfirstnonspace(text, 1, length), text + 7);
    EXPECT_EQ(findfirstnonspace(text + length - 1, -1, length), text + 7);
    EXPECT_EQ(findfirstnonspace(text, 1, 3), text + 3);
    EXPECT_EQ(findfirstnonspace("x", 1, 1)[0], 'x');
    EXPECT_EQ(findfirstnonspace(text, 1, 0), text);
}

}  // namespace
}  // namespace kx::test
