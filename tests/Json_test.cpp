// json-c's trees: who owns them, what is no memory, and what is no JSON.
#include "Files/Base/Json.h"

#include "Files/Base/Limits.h"
#include "tests/support/Console.h"

#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <utility>

namespace kx::test {
namespace {

TEST(JsonTrees, AreOwnedOnce) {
    JsonTree first(MadeJson(json_object_new_object()));
    json_object* object = first.Get();

    JsonTree second(std::move(first));
    EXPECT_EQ(first.Get(), nullptr);  // NOLINT: what is left of it
    EXPECT_EQ(second.Get(), object);
    JsonTree third;
    third = std::move(second);
    EXPECT_EQ(third.Get(), object);
    EXPECT_EQ(third.Release(), object);
    EXPECT_EQ(third.Get(), nullptr);
    json_object_put(object);
}

TEST(JsonTrees, TakeWhatIsAddedToThem) {
    JsonTree object(MadeJson(json_object_new_object()));
    JsonTree array(MadeJson(json_object_new_array()));

    AddElement(array, JsonTree(MadeJsonText("text")));
    AddElement(array, JsonTree(JsonNull()));
    AddMember(object, "list", std::move(array));
    AddMember(object, "none", JsonTree(JsonNull()));

    EXPECT_STREQ(PrintJson(object.Get()), R"({ "list": [ "text", null ], "none": null })");
}

TEST(JsonTrees, NothingMadeIsNoMemory) {
    EXPECT_THROW(MadeJson(nullptr), std::bad_alloc);
}

TEST(JsonTrees, ATextThatThePrinterCouldLoseAPieceOfIsRefused) {
    std::string longest(kMaxJsonText, 'x');

    EXPECT_THROW(MadeJsonText(longest.c_str()), std::bad_alloc);
}

TEST(JsonTrees, ATextThatCannotBeReadBackIsWrittenWithAWord) {
    CapturingConsole console;
    JsonTree commas(MadeJsonText(std::string(8 << 20, ',').c_str()));

    EXPECT_EQ(std::strlen(PrintJson(commas.Get())), (8u << 20) + 2);

    EXPECT_EQ(console.Take(), "JSON text is written, but is too large to be read back\n");
}

TEST(JsonText, NullIsReadAndIsNoError) {
    JsonTree tree(MadeJson(json_object_new_object()));

    EXPECT_EQ(ParseJson(" null ", &tree), JsonVerdict::read);
    EXPECT_EQ(tree.Get(), nullptr);
    EXPECT_STREQ(PrintJson(tree.Get()), "null");
}

TEST(JsonText, NullMayStandAfterAComment) {
    for (const char* text : {"/* none */null", " // none\n null"}) {
        JsonTree tree(MadeJson(json_object_new_object()));

        EXPECT_EQ(ParseJson(text, &tree), JsonVerdict::read) << text;
        EXPECT_EQ(tree.Get(), nullptr);
    }
}

TEST(JsonText, WhatIsNoJsonLeavesTheTreeAsItWas) {
    JsonTree tree(MadeJson(json_object_new_object()));
    for (const char* text :
         {"", " ", "{", "nul", "[1 2]", "[1,2/* 3]", "{\"a\":[1]//}", "[1,null/*", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(ParseJson(text, &tree), JsonVerdict::malformed);
        EXPECT_NE(tree.Get(), nullptr);
    }
}

TEST(JsonText, BracketsInsideStringsCountAgainstTheLimitToo) {
    CapturingConsole console;
    JsonTree tree;
    std::string brackets = "\"" + std::string(3 << 20, '{') + "\"";

    EXPECT_EQ(ParseJson(brackets.c_str(), &tree), JsonVerdict::tooLarge);

    const char* size = sizeof(void*) > 4 ? "3084" : "1548";
    EXPECT_EQ(console.Take(), std::string("JSON text too large: it could take ") + size + " MiB\n");
}

}  // namespace
}  // namespace kx::test
