// UTF-8: what is well-formed, what can be shown, what is the same but for case.
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

TEST(Utf8, KnowsCharactersThatDriveATerminal) {
    for (const char* text : {"\n", "a\x1b[2J", "\x7F", "a\xC2\x80", "\xC2\x9F"}) {
        EXPECT_TRUE(HasControls(text)) << text;
    }
    for (const char* text : {"", "a b", "\xC2\xA0", "\xC3\x80", "\xE2\x82\xAC", "cut\xC2", "\xC2x"}) {
        EXPECT_FALSE(HasControls(text)) << text;
    }
}

TEST(Utf8, WritesEveryCharacter) {
    struct Case {
        char32_t character;
        const char* bytes;
    };
    for (const Case& each : {Case{'a', "a"}, Case{0x7F, "\x7F"}, Case{0x80, "\xC2\x80"}, Case{0x7FF, "\xDF\xBF"},
                             Case{0x800, "\xE0\xA0\x80"}, Case{0xFFFF, "\xEF\xBF\xBF"},
                             Case{0x10000, "\xF0\x90\x80\x80"}, Case{0x10FFFF, "\xF4\x8F\xBF\xBF"}}) {
        std::string text = "<";
        AppendUtf8(&text, each.character);
        EXPECT_EQ(text, std::string("<") + each.bytes);
    }
}

TEST(Utf8, ShowsAnyBytes) {
    struct Case {
        std::string text, shown;
    };
    for (const Case& each : {Case{"", ""}, Case{"sw\xC3\xB6rd \"x\"", "sw\xC3\xB6rd \"x\""}, Case{"a\nb", "a\\x0Ab"},
                             Case{"\x1b[2J", "\\x1B[2J"}, Case{std::string("a\0b", 3), "a\\x00b"},
                             Case{"\xC2\x85", "\\xC2\\x85"}, Case{"cut\xE2\x82", "cut\\xE2\\x82"}}) {
        EXPECT_EQ(Printable(each.text), each.shown);
    }
}

TEST(Utf8, FoldsCase) {
    struct Case {
        const char *text, *folded;
    };
    for (const Case& each :
         {Case{"", ""}, Case{"Data/ITEMS.csv", "data/items.csv"}, Case{"\xC3\x84", "\xC3\xA4"},  // capital a umlaut
          Case{"\xCE\xA3", "\xCF\x83"}, Case{"\xCF\x82", "\xCF\x83"},                  // sigma, also a final one
          Case{"\xE2\x84\xAA", "k"},                                                   // the Kelvin sign
          Case{"\xF0\x90\x90\x80", "\xF0\x90\x90\xA8"}, Case{"\xC4\xB1", "\xC4\xB1"},  // i without a dot
          Case{"\xC4\xB0", "\xC4\xB0"}, Case{"\xC3\x9F", "\xC3\x9F"}, Case{"\xFF", "\xFF"}}) {
        EXPECT_EQ(FoldCase(each.text), each.folded);
    }
}

}  // namespace
}  // namespace kx::test
