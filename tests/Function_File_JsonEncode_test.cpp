// Values to JSON text.
#include "Files/Base/Json.h"
#include "Files/Base/KXObjectBase.h"
#include "Files/Base/Limits.h"
#include "tests/Data_Structures_fixture.h"
#include "tests/Function_File_fixture.h"
#include "tests/support/CommaLocale.h"

#include <climits>
#include <cmath>
#include <string>
#include <thread>

namespace kx::test {
namespace {

class JsonEncode : public BuiltInsTest {};

/// A value's JSON text.
std::string Encoded(RValue value) {
    JsonTree tree(EncodeValue(&value));
    return PrintJson(tree.Get());
}

std::string EncodedMap(int index) {
    return Call("json_encode", {index}).Text();
}

void Add(int list, const RValue& value) {
    thelists.arr[list]->Add(&value);
}

RValue NewStruct() {
    RValue value{};
    value.obj = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
    value.kind = VALUE_OBJECT;
    return value;
}

// --- values ---------------------------------------------------------------------------------------------------------

TEST_F(JsonEncode, EveryKindHasItsForm) {
    struct Case {
        RValue value;
        const char* json;
    };
    const Case cases[] = {
        {Int32(-7), "-7"},
        {Bool(true), "true"},
        {Bool(false), "false"},
        {Other(VALUE_PTR, 0), "null"},
        {Other(VALUE_PTR, 0xABC), "\"0xabc\""},
        {Other(VALUE_STRING, 0), "\"\""},
        {Other(VALUE_ARRAY, 0), "null"},
        {Other(VALUE_UNDEFINED, 0), "null"},
        {Other(VALUE_OBJECT, 0), "null"},
        {Other(VALUE_VEC3, 1), "null"},
        {Other(VALUE_VEC4, 1), "null"},
        {Other(VALUE_VEC44, 1), "null"},
        {Other(VALUE_ACCESSOR, 1), "null"},
        {Other(VALUE_NULL, 1), "null"},
        {Other(VALUE_ITERATOR, 1), "null"},
        {Other(VALUE_REF, 1), "null"},
        {Other(VALUE_UNSET, 1), "null"},
        {Other(VALUE_REAL | 0x01000000, 0), "null"},  // stray marks
        {Other(VALUE_INT32 | 0x20000000, 5), "null"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.value.kind);
        EXPECT_EQ(Encoded(each.value), each.json);
    }
}

TEST_F(JsonEncode, RealsAreDoublesWhateverTheirValue) {
    struct Case {
        double real;
        const char* json;
    };
    const Case cases[] = {
        {3, "3.0"},   {-0.0, "-0.0"},         {0.1, "0.10000000000000001"}, {1e300, "1.0000000000000001e+300"},
        {NAN, "NaN"}, {INFINITY, "Infinity"}, {-INFINITY, "-Infinity"},     {123456789012, "123456789012.0"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(Encoded(Real(each.real)), each.json);
    }
}

TEST_F(JsonEncode, RealsHaveAPointUnderACommaLocaleToo) {
    CommaLocale locale;

    EXPECT_EQ(Encoded(Real(2.5)), "2.5");
}

TEST_F(JsonEncode, SixtyFourBitsGoAsIntegersAsDoublesOrAsTheirTextForm) {
    constexpr int64_t kExact = 1LL << 53;
    struct Case {
        int64_t number;
        const char* json;
    };
    const Case cases[] = {
        {0, "0"},
        {5, "5"},
        {-2147483647, "-2147483647"},
        {2147483646, "2147483646"},
        {-2147483648LL, "-2147483648.0"},  // the ends of 32 bits are outside
        {2147483647, "2147483647.0"},
        {2147483648, "2147483648.0"},
        {kExact, "9007199254740992.0"},
        {kExact + 1, "\"@i64@20000000000001$i64$\""},
        {-kExact - 1, "\"@i64@ffdfffffffffffff$i64$\""},
        {INT64_MIN, "-9.2233720368547758e+18"},
        {INT64_MAX, "\"@i64@7fffffffffffffff$i64$\""},
        {INT64_MAX - 511, "\"@i64@7ffffffffffffe00$i64$\""},
        {INT64_MAX - 1023, "9.2233720368547748e+18"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.number);
        EXPECT_EQ(Encoded(Int64(each.number)), each.json);
    }
}

TEST_F(JsonEncode, TextsAreEscaped) {
    Value text("a \"b\" \\ / \n \t \x01 \x7f é 😀");

    EXPECT_EQ(Encoded(text.Get()), R"("a \"b\" \\ \/ \n \t \u0001 )"
                                   "\x7f é 😀\"");
}

TEST_F(JsonEncode, AStringWithoutATextIsAnEmptyOne) {
    Value textless(Textless());

    EXPECT_EQ(Encoded(textless.Get()), "\"\"");
}

TEST_F(JsonEncode, ALongPointerIsCut) {
    RValue pointer = Other(VALUE_PTR, -1);
    std::string json = Encoded(pointer);

    EXPECT_EQ(json.substr(0, 4), "\"0xf");
    EXPECT_LE(json.size(), 18u + 2);
}

// --- arrays and structs ---------------------------------------------------------------------------------------------

TEST_F(JsonEncode, ArraysKeepTheirOrder) {
    Value array(Array());
    EXPECT_EQ(Encoded(array.Get()), "[ ]");

    Push(&array.Get(), Real(1));
    Push(&array.Get(), Text("two"));
    Push(&array.Get(), Array());

    EXPECT_EQ(Encoded(array.Get()), "[ 1.0, \"two\", [ ] ]");
}

TEST_F(JsonEncode, NoArrayIsAnEmptyOne) {
    JsonTree tree(EncodeArray(nullptr));

    EXPECT_STREQ(PrintJson(tree.Get()), "[ ]");
}

TEST_F(JsonEncode, StructsKeepTheOrderOfTheirMembers) {
    RValue object = NewStruct();
    for (const char* name : {"z", "a", "m"}) {
        RValue number = Int32(name[0]);
        object.obj->Add(name, number, 0);
    }

    EXPECT_EQ(Encoded(object), R"({ "z": 122, "a": 97, "m": 109 })");
}

TEST_F(JsonEncode, AStructThatHoldsItselfIsNullInside) {
    RValue object = NewStruct();
    object.obj->Add("self", object, 0);

    EXPECT_EQ(Encoded(object), R"({ "self": null })");
}

// --- maps and lists -------------------------------------------------------------------------------------------------

TEST_F(JsonEncode, MapsAreWrittenInTheOrderOfTheirWalk) {
    int map = NewMap();
    for (int i = 0; i < 20; ++i) {
        Set(*themaps.arr[map], "key" + std::to_string(i), i);
    }
    std::string expected;
    for (const MapStore* entry = themaps.arr[map]->FindFirst(); entry;
         entry = themaps.arr[map]->FindNext(&entry->key)) {
        expected += std::string(expected.empty() ? "{ \"" : ", \"") + entry->key.str->m_thing +
                    "\": " + std::to_string(static_cast<int>(entry->value.real)) + ".0";
    }

    EXPECT_EQ(EncodedMap(map), expected + " }");
}

TEST_F(JsonEncode, AKeyThatIsNoTextGoesUnderItsPrintedForm) {
    struct Case {
        Value key;
        const char* name;
    };
    const Case cases[] = {{Real(1), "1"},
                          {Real(2.5), "2.5"},
                          {Bool(true), "true"},
                          {Int64(-3), "-3"},
                          {Other(VALUE_UNDEFINED, 0), "undefined"},
                          {Other(VALUE_STRING, 0), ""},
                          {Textless(), ""},
                          {Other(VALUE_PTR, 0), "null"}};
    for (const Case& each : cases) {
        CDS_Map map;
        Set(map, each.key, Int32(1));
        JsonTree tree(EncodeDSMap(&map));

        EXPECT_EQ(std::string(PrintJson(tree.Get())), std::string("{ \"") + each.name + "\": 1 }");
    }
}

TEST_F(JsonEncode, AKeyMayBeALongArray) {
    CDS_Map map;
    Value key(Array());
    for (int i = 0; i < 100; ++i) {
        Push(&key.Get(), Text("element"));
    }
    Set(map, key, 1);
    JsonTree tree(EncodeDSMap(&map));

    EXPECT_NE(std::string(PrintJson(tree.Get())).find("\"[ element,element,"), std::string::npos);
}

TEST_F(JsonEncode, TheWalkOfAMapEndsAtANodeWithoutAnEntry) {
    CDS_Map map;
    Set(map, "a", 1);
    HashLink<HashNode<MapStore>>* bucket = map.m_pHashTable->m_pHashingTable;
    while (!bucket->m_pFirst) {
        ++bucket;
    }
    MapStore* store = bucket->m_pFirst->m_pObj;
    bucket->m_pFirst->m_pObj = nullptr;
    JsonTree tree(EncodeDSMap(&map));
    bucket->m_pFirst->m_pObj = store;

    EXPECT_STREQ(PrintJson(tree.Get()), "{ }");
}

TEST_F(JsonEncode, ReferencesAreWrittenAsWhatTheyReferTo) {
    int map = NewMap();
    int child = NewMap();
    int list = NewList();
    Set(*themaps.arr[child], "n", 1);
    Add(list, MapReference(child));
    Add(list, Real(2));
    Set(*themaps.arr[map], "list", ListReference(list));

    EXPECT_EQ(EncodedMap(map), R"({ "list": [ { "n": 1.0 }, 2.0 ] })");
}

TEST_F(JsonEncode, AReferenceToNothingIsNull) {
    int map = NewMap();
    int freed = NewMap();
    int list = NewList();
    FreeDsMap(freed);
    struct Case {
        const char* what;
        RValue reference;
    };
    RValue fraction = MapReference(0);
    fraction.real = freed + 0.9;
    RValue nan = ListReference(0);
    nan.real = NAN;
    RValue huge = MapReference(0);
    huge.real = 1e300;
    const Case cases[] = {{"freed", MapReference(freed)},
                          {"fraction of a freed one", fraction},
                          {"beyond", MapReference(100000)},
                          {"zero", MapReference(0)},
                          {"negative", MapReference(-1)},
                          {"NaN", nan},
                          {"huge", huge},
                          {"negative list", ListReference(-5)},
                          {"list beyond", ListReference(list + 1)}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        EXPECT_EQ(Encoded(each.reference), "null");
    }
    EXPECT_EQ(EncodedMap(map), "{ }");
}

TEST_F(JsonEncode, AReferencesFractionIsCut) {
    int map = NewMap();
    RValue reference = MapReference(map);
    reference.real += 0.75;

    EXPECT_EQ(Encoded(reference), "{ }");
}

TEST_F(JsonEncode, WithBothMarksAReferenceIsToAMap) {
    int map = NewMap();
    RValue reference = MapReference(map);
    reference.kind |= KIND_DS_LIST;

    EXPECT_EQ(Encoded(reference), "{ }");
}

// --- the visit rule -------------------------------------------------------------------------------------------------

TEST_F(JsonEncode, AVisitStampsTheContainerAndRaisesItsFamilysThreshold) {
    int list = NewList();
    int map = NewMap();
    Add(list, MapReference(map));
    unsigned int before = g_countSTRING_RValue;
    unsigned int structs = g_comparisonSTRUCT_RValue;

    Encoded(ListReference(list));

    EXPECT_EQ(thelists.arr[list]->m_visited, before + 1);
    EXPECT_EQ(themaps.arr[map]->m_visited, before + 2);
    EXPECT_EQ(g_comparisonSTRUCT_RValue, before + 3);
    EXPECT_EQ(g_comparisonARRAY_RValue, before + 4);
    EXPECT_EQ(g_countSTRING_RValue, before + 4);
    EXPECT_NE(g_comparisonSTRUCT_RValue, structs);
}

TEST_F(JsonEncode, TheMapThatIsAskedForIsNotStamped) {
    int map = NewMap();
    Set(*themaps.arr[map], "self", MapReference(map));
    unsigned int before = g_countSTRING_RValue;

    std::string json = EncodedMap(map);

    EXPECT_EQ(json, R"({ "self": { "self": null } })");
    EXPECT_EQ(themaps.arr[map]->m_visited, before + 1);
    EXPECT_EQ(g_countSTRING_RValue, before + 2);
}

TEST_F(JsonEncode, AContainerThatIsMetAgainAfterItsEndIsWrittenAgain) {
    int map = NewMap();
    int list = NewList();
    Add(list, MapReference(map));
    Add(list, MapReference(map));

    EXPECT_EQ(Encoded(ListReference(list)), "[ { }, { } ]");
}

TEST_F(JsonEncode, ACircleThroughTheOtherFamilyIsCut) {
    int map = NewMap();
    int list = NewList();
    Set(*themaps.arr[map], "list", ListReference(list));
    Add(list, MapReference(map));

    EXPECT_EQ(Encoded(MapReference(map)), R"({ "list": [ null ] })");
}

TEST_F(JsonEncode, ACircleWithinAFamilyIsStoppedWithEveryLockGivenBack) {
    int a = NewMap();
    int b = NewMap();
    Set(*themaps.arr[a], "b", MapReference(b));
    Set(*themaps.arr[b], "a", MapReference(a));
    RValue first = NewStruct();
    RValue second = NewStruct();
    first.obj->Add("second", second, 0);
    second.obj->Add("first", first, 0);
    long long blocks = MemoryManager::Stats().blocks;

    for (const RValue& circle : {MapReference(a), first}) {
        EXPECT_THROW(Encoded(circle), KXRecursionLimit);
        ResetVisits();
    }

    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    int other = NewMap();
    Set(*themaps.arr[other], "n", Int32(1));
    EXPECT_EQ(EncodedMap(other), R"({ "n": 1 })");
    std::thread([] { DS_AutoMutex lock; }).join();  // waits for ever where a hold is left
}

// --- json_encode and DSMapToJSON
// --------------------------------------------------------------------------------------

TEST_F(JsonEncode, AMapThatIsNotThereHasNoText) {
    int freed = NewMap();
    FreeDsMap(freed);
    for (Value argument : {Value(-1), Value(0), Value(freed), Value(100000), Value("no number")}) {
        Value result = Call("json_encode", {argument});

        EXPECT_EQ(result.Kind(), VALUE_STRING);
        EXPECT_EQ(result.Get().str, nullptr);
    }
    EXPECT_EQ(TakeError(), "");
}

TEST_F(JsonEncode, AReferenceNamesItsMap) {
    int map = NewMap();
    Set(*themaps.arr[map], "n", Int32(1));

    EXPECT_EQ(Call("json_encode", {Value(MapReference(map))}).Text(), R"({ "n": 1 })");
}

TEST_F(JsonEncode, TheHostTakesAMapsTextAndOwnsIt) {
    int map = NewMap();
    char* text = KXStrDup("an older text");

    DSMapToJSON(map, &text);
    EXPECT_STREQ(text, "{ }");
    DSMapToJSON(-1, &text);
    DSMapToJSON(100000, &text);
    EXPECT_STREQ(text, "{ }");

    KXFree(text);
}

TEST_F(JsonEncode, WhatCannotBeReadBackIsWrittenAndSaidOnce) {
    Value array(Array());
    for (int depth = 1; depth < 40; ++depth) {
        Value outer(Array());
        Push(&outer.Get(), array.Get());
        COPY_RValue(&array.Get(), &outer.Get());
    }

    EXPECT_EQ(Encoded(array.Get()).size(), 40 * 2 + 39 * 2 + 1u);
    EXPECT_EQ(m_console.Take(), "JSON nested deeper than 32 levels: it is written, but cannot be read back\n");
}

TEST_F(JsonEncode, TheDeepestThatCanBeReadBackIsNoWordWorth) {
    Value array(Array());
    for (int depth = 1; depth < 32; ++depth) {
        Value outer(Array());
        Push(&outer.Get(), array.Get());
        COPY_RValue(&array.Get(), &outer.Get());
    }
    std::string json = Encoded(array.Get());

    EXPECT_EQ(m_console.Take(), "");
    JsonTree tree;
    EXPECT_EQ(ParseJson(json.c_str(), &tree), JsonVerdict::read);
    EXPECT_EQ(ParseJson(("[" + json + "]").c_str(), &tree), JsonVerdict::malformed);
}

}  // namespace
}  // namespace kx::test
