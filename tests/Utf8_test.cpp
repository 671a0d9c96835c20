// Well-formed UTF-8.
#include "Files/Base/Utf8.h"

#include <gtest/gtest.h>
#include <string>

namespace kx::test {
namespace {

TEST(Utf8, TakesShortestFormsOfEveryCharacter) {
    for (const char* text :
         {"", "ascii", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
          "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xAE"}) {
        EXPECT_TRUE(IsUtf8(text)) << text;
    }
    EXPECT_TRUE(IsUtf8(std::string("a\0b", 3)));
}

TEST(Utf8, RefusesEverythingElse) {
    for (const char* text : {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2x", "\xE0\x9F\xBF", "\xE2\x82",
                             "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                             "\xF0\x9F\x8E", "\xFE", "\xFF", "good\xC3", "\xE2\x28\xA1", "\xE2\x82\x28"}) {
        EXPECT_FALSE(IsUtf8(text)) << text;
    }
}

}  // namespace
}  // namespace kx::test
