// Lines, names and values of INI documents: what they say, and how they are written.
#include "Files/Base/IniFile_Text.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kx::test {
namespace {

constexpr char kMark[] = "\xEF\xBB\xBF";

std::string NameIn(std::string_view written) {
    std::string text(written.size(), 0);
    text.resize(ReadIniName(written, text.data()));
    return text;
}

std::string ValueIn(std::string_view written) {
    std::string text(written.size(), 0);
    text.resize(ReadIniValue(written, text.data()));
    return text;
}

template <class Append>
std::string Appended(Append append, const std::string& text) {
    std::string out = "before";
    append(&out, text);
    EXPECT_EQ(out.substr(0, 6), "before");
    return out.substr(6);
}

std::string HeaderFor(const std::string& name) {
    return Appended(AppendIniHeader, name);
}

std::string NameFor(const std::string& name) {
    return Appended(AppendIniName, name);
}

std::string ValueFor(const std::string& value) {
    return Appended(AppendIniValue, value);
}

std::string With(const char* before, const char* after) {
    return std::string(before) + after;
}

// --- lines ----------------------------------------------------------------------------------------------------------

TEST(IniLines, EndWithALineFeedAndACarriageReturnBeforeIt) {
    struct Case {
        const char* line;
        const char* contents;
    };
    const Case cases[] = {
        {"", ""},         {"\n", ""},       {"\r\n", ""},     {"a\n", "a"},       {"a\r\n", "a"},
        {"a", "a"},       {"a\r", "a\r"},   {"\r", "\r"},     {"a\r\r\n", "a\r"}, {"a \n", "a "},
        {"a\rb", "a\rb"}, {"\ra\n", "\ra"}, {"a\n\n", "a\n"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(WithoutLineEnd(each.line), each.contents);
    }
}

TEST(IniLines, AreBlankWithNothingButBlanksAndMarks) {
    for (const std::string& line : {std::string(), std::string(" "), std::string("\t \t"), std::string(kMark),
                                    With(kMark, " "), With(" ", kMark), With(kMark, kMark)}) {
        EXPECT_EQ(ReadIniLine(line).kind, IniLineText::blank) << line;
    }
}

TEST(IniLines, AreCommentsThatBeginWithASemicolonOrAHash) {
    for (const std::string& line : {std::string(";"), std::string("#"), std::string("; a=b"), std::string("#[a]"),
                                    std::string(" \t;x"), std::string(" # x"), With(kMark, ";"), With(kMark, " # a=b"),
                                    std::string(";\x80\xFF"), std::string(";a\0b", 4)}) {
        EXPECT_EQ(ReadIniLine(line).kind, IniLineText::comment) << line;
    }
}

TEST(IniLines, AreSectionsInBrackets) {
    struct Case {
        std::string line;
        std::string name;
    };
    const Case cases[] = {
        {"[a]", "a"},
        {"[]", ""},
        {"[ ]", ""},
        {" \t[a]", "a"},
        {"[a] \t", "a"},
        {"[ \ta b\t ]", "a b"},
        {"[a=b]", "a=b"},
        {"[;a]", ";a"},
        {"[#]", "#"},
        {"[\"a\"]", "\"a\""},
        {"[sub \"x\"]", "sub \"x\""},
        {"[a[0]]", "a[0]"},
        {"[[a]]", "[a]"},
        {"[a]]", "a]"},
        {"[]]", "]"},
        {"[a] b", "a"},
        {"[a]b", "a"},
        {"[a] b]", "a] b"},
        {"[a[0]] b", "a[0]"},
        {"[a] ; see [b]", "a"},
        {"[a];see [b]", "a"},
        {"[a]\t# see [b]", "a"},
        {"[a] b ; see [c]", "a] b ; see [c"},
        {"[a[0]] ; see [b]", "a[0]"},
        {"[a;b]", "a;b"},
        {"[a] = b", "a"},
        {With(kMark, "[a]"), "a"},
        {With(" ", kMark) + "\t[a]", "a"},
        {std::string("[") + kMark + "a]", With(kMark, "a")},
        {"[a\r]", "a\r"},
        {"[a]\r", "a"},
        {"[a", "a"},  // its bracket is missing
        {"[", ""},
        {" [a=b \t", "a=b"},
        {"[a ; [b", "a ; [b"},
        {"[\xFF\x80]", "\xFF\x80"},
        {"[@text@a%5Db$text$]", "@text@a%5Db$text$"},  // as written
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.line);
        IniLineText read = ReadIniLine(each.line);
        EXPECT_EQ(read.kind, IniLineText::section);
        EXPECT_EQ(read.name, each.name);
    }
}

TEST(IniLines, AreKeysAroundTheFirstEqualsSign) {
    struct Case {
        std::string line;
        std::string name;
        std::string value;
    };
    const Case cases[] = {
        {"k=v", "k", "v"},
        {" \tk \t=\t v \t", "k", "v"},
        {"k=", "k", ""},
        {"k = ", "k", ""},
        {"=v", "", "v"},
        {"=", "", ""},
        {" = ", "", ""},
        {"k==v", "k", "=v"},
        {"k=a=b", "k", "a=b"},
        {"a b = c d", "a b", "c d"},
        {"k=a ; b", "k", "a ; b"},
        {"k=;b", "k", ";b"},
        {"k=#ff8800", "k", "#ff8800"},
        {"a;b=c", "a;b", "c"},
        {"a#b=c", "a#b", "c"},
        {"k=[a]", "k", "[a]"},
        {"k]=[", "k]", "["},
        {"a[0]=b", "a[0]", "b"},
        {"a:b=c", "a:b", "c"},
        {"k=a:b", "k", "a:b"},
        {"\"k\"=\"v\"", "\"k\"", "\"v\""},  // as written
        {"\"a=b\"=c", "\"a", "b\"=c"},
        {"k=\" v \"", "k", "\" v \""},
        {"k=a\\", "k", "a\\"},
        {"k=${v}%(w)s", "k", "${v}%(w)s"},
        {With(kMark, "k=v"), "k", "v"},
        {With(kMark, kMark) + " k=v", "k", "v"},
        {std::string("k=") + kMark, "k", kMark},
        {std::string("a") + kMark + "=b", std::string("a") + kMark, "b"},
        {"k=v\r", "k", "v\r"},
        {"k=\r", "k", "\r"},
        {"\rk=v", "\rk", "v"},
        {"\vk=v\f", "\vk", "v\f"},
        {"\xA0k=v\xA0", "\xA0k", "v\xA0"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.line);
        IniLineText read = ReadIniLine(each.line);
        EXPECT_EQ(read.kind, IniLineText::key);
        EXPECT_EQ(read.name, each.name);
        EXPECT_EQ(read.value, each.value);
    }
}

TEST(IniLines, AreUnreadableOtherwise) {
    for (const std::string& line : {std::string("a"), std::string("k: v"), std::string("a]"), std::string("\r"),
                                    std::string("\v"), std::string("\""), std::string("@text@a$text$"),
                                    With(kMark, "a"), std::string("\xEF\xBB"), std::string("\xC2\xA0")}) {
        EXPECT_EQ(ReadIniLine(line).kind, IniLineText::unreadable) << line;
    }
}

// --- reading --------------------------------------------------------------------------------------------------------

TEST(IniValues, LoseOnePairOfQuotes) {
    struct Case {
        const char* written;
        const char* value;
    };
    const Case cases[] = {
        {"", ""},
        {"a", "a"},
        {"\"a\"", "a"},
        {"\"\"", ""},
        {"\"", "\""},
        {"\"\"\"", "\""},
        {"\"\"\"\"", "\"\""},
        {"\"\"yes\"\"", "\"yes\""},
        {"\"a", "\"a"},
        {"a\"", "a\""},
        {"a\"b\"", "a\"b\""},
        {"\"a\" b", "\"a\" b"},
        {"\"a\" \"b\"", "a\" \"b"},
        {"\"  centred  \"", "  centred  "},
        {"\" \"", " "},
        {"\"C:\\new\\table\"", "C:\\new\\table"},
        {"\"a\\\"", "a\\"},
        {"\"a\\\"b\"", "a\\\"b"},
        {"'a'", "'a'"},
        {"\"a;b\"", "a;b"},
        {"\"@text@a%0Ab$text$\"", "@text@a%0Ab$text$"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(ValueIn(each.written), each.value) << each.written;
    }
}

TEST(IniNames, KeepTheirQuotes) {
    for (const char* name : {"\"a\"", "\"\"", "\"", "\" a \""}) {
        EXPECT_EQ(NameIn(name), name);
    }
}

TEST(IniTexts, StandForBytesBetweenTheirMarks) {
    struct Case {
        const char* written;
        const char* text;
    };
    const Case cases[] = {
        {"@text@Hello%0AWorld$text$", "Hello\nWorld"},
        {"@text@$text$", ""},
        {"@text@a$text$", "a"},
        {"@text@%0a%0D%3d%5D%25%7f$text$", "\n\r=]%\x7F"},
        {"@text@%41%62$text$", "Ab"},
        {"@text@%01%ff%80$text$", "\x01\xFF\x80"},
        {"@text@ a $text$", " a "},
        {"@text@\"a\"$text$", "\"a\""},
        {"@text@%2541$text$", "%41"},
        {"@text@@text@$text$", "@text@"},
        {"@text@$text$$text$", "$text$"},
        {"@text@@text@a$text$$text$", "@text@a$text$"},
        {"@text@=]$text$", "=]"},  // nobody has to escape them in a value
    };
    for (const Case& each : cases) {
        EXPECT_EQ(ValueIn(each.written), each.text) << each.written;
        EXPECT_EQ(NameIn(each.written), each.text) << each.written;
    }
}

TEST(IniTexts, AreWhatTheySayWhereTheirFormIsBroken) {
    for (const char* text :
         {"@text@",          "$text$",          "@text$",           "@text@text$",       "@text@a",
          "a$text$",         "x@text@a$text$",  "@text@a$text$x",   "@TEXT@a$TEXT$",     "@text@a$TEXT$",
          "@text@%0$text$",  "@text@%$text$",   "@text@a%$text$",   "@text@%00$text$",   "@text@a%00b$text$",
          "@text@%zz$text$", "@text@%0g$text$", "@text@%g0$text$",  "@text@%+1$text$",   "@text@%-1$text$",
          "@text@% 1$text$", "@text@%0x$text$", "@text@%%41$text$", "@text@%41%4$text$", "@text@ab%41cd%zz$text$",
          "@i64@10$i64$"}) {
        EXPECT_EQ(ValueIn(text), text);
        EXPECT_EQ(NameIn(text), text);
    }
}

// --- writing --------------------------------------------------------------------------------------------------------

TEST(IniHeaders, AreAsPlainAsTheyReadBack) {
    struct Case {
        std::string name;
        std::string header;
    };
    const Case cases[] = {
        {"a", "[a]"},
        {"", "[]"},
        {"a b", "[a b]"},
        {"a[0]", "[a[0]]"},
        {"[", "[[]"},
        {"]", "[]]"},
        {"a] b", "[a] b]"},
        {"a;b", "[a;b]"},
        {";", "[;]"},
        {"#", "[#]"},
        {"a=b", "[a=b]"},
        {"100%", "[100%]"},
        {"\"a\"", "[\"a\"]"},
        {"\x01\x7F\xFF", "[\x01\x7F\xFF]"},
        {With(kMark, "a"), std::string("[") + kMark + "a]"},
        {"@text@", "[@text@]"},
        {"@text@%zz$text$", "[@text@%zz$text$]"},
        {"a];b", "[@text@a%5D;b$text$]"},
        {"];", "[@text@%5D;$text$]"},
        {"a] # [b", "[@text@a%5D # [b$text$]"},
        {" a", "[@text@ a$text$]"},
        {"a\t", "[@text@a%09$text$]"},
        {" ", "[@text@ $text$]"},
        {"a\nb", "[@text@a%0Ab$text$]"},
        {"a\r", "[@text@a%0D$text$]"},
        {"\n=%]\x01\x7F", "[@text@%0A%3D%25%5D%01%7F$text$]"},
        {"@text@$text$", "[@text@@text@$text$$text$]"},
        {"@text@%41$text$", "[@text@@text@%2541$text$$text$]"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(HeaderFor(each.name), each.header);
    }
}

TEST(IniNames, AreWrittenAsPlainAsTheyReadBack) {
    struct Case {
        std::string name;
        std::string written;
    };
    const Case cases[] = {
        {"a", "a"},
        {"", ""},
        {"a b", "a b"},
        {"a[0]", "a[0]"},
        {"]", "]"},
        {"a;b#c", "a;b#c"},
        {"a:b", "a:b"},
        {"100%", "100%"},
        {"\"a\"", "\"a\""},
        {"\x01\x7F\xFF", "\x01\x7F\xFF"},
        {std::string("a") + kMark, std::string("a") + kMark},
        {"@text@", "@text@"},
        {"@text@%0$text$", "@text@%0$text$"},
        {"a=b", "@text@a%3Db$text$"},
        {"=", "@text@%3D$text$"},
        {"[a]", "@text@[a%5D$text$"},
        {"[", "@text@[$text$"},
        {";a", "@text@;a$text$"},
        {"#", "@text@#$text$"},
        {" a", "@text@ a$text$"},
        {"a\t", "@text@a%09$text$"},
        {"a\nb", "@text@a%0Ab$text$"},
        {"\r", "@text@%0D$text$"},
        {With(kMark, "a"), std::string("@text@") + kMark + "a$text$"},
        {kMark, std::string("@text@") + kMark + "$text$"},
        {"@text@a$text$", "@text@@text@a$text$$text$"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(NameFor(each.name), each.written);
    }
}

TEST(IniValues, AreWrittenAsPlainAsTheyReadBack) {
    struct Case {
        std::string value;
        std::string written;
    };
    const Case cases[] = {
        {"a", "a"},
        {"", ""},
        {"The Long Way", "The Long Way"},
        {"C:\\new\\table", "C:\\new\\table"},
        {"#ff8800", "#ff8800"},
        {"a;b", "a;b"},
        {"=[a]=", "=[a]="},
        {"100%", "100%"},
        {"\"", "\""},
        {"\"a", "\"a"},
        {"a\"b\"", "a\"b\""},
        {"\x01\x7F\xFF", "\x01\x7F\xFF"},
        {kMark, kMark},
        {"@text@", "@text@"},
        {"@text@%zz$text$", "@text@%zz$text$"},
        {" a", "\" a\""},
        {"a\t", "\"a\t\""},
        {"  centred  ", "\"  centred  \""},
        {" ", "\" \""},
        {"\" ", "\"\" \""},
        {" \"a\"", "\" \"a\"\""},
        {"\"\"", "\"\"\"\""},
        {"\"yes\"", "\"\"yes\"\""},
        {"@text@a$text$", "\"@text@a$text$\""},
        {"\"@text@a$text$\"", "\"\"@text@a$text$\"\""},
        {"Hello\nWorld", "@text@Hello%0AWorld$text$"},
        {"\r", "@text@%0D$text$"},
        {" a\r\n", "@text@ a%0D%0A$text$"},
        {"\"\n\"", "@text@\"%0A\"$text$"},
        {"a\t=\n", "@text@a%09%3D%0A$text$"},
        {"@text@\n$text$", "@text@@text@%0A$text$$text$"},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(ValueFor(each.value), each.written);
    }
}

// --- every text reads back ------------------------------------------------------------------------------------------

/// A text is in a line of its own, whatever stands around it.
void ExpectLine(const std::string& line, IniLineText::Kind kind, const std::string& name, const std::string& value) {
    EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos);
    IniLineText read = ReadIniLine(line);
    ASSERT_EQ(read.kind, kind);
    EXPECT_EQ(NameIn(read.name), name);
    EXPECT_EQ(ValueIn(read.value), value);
}

void ExpectReadsBack(const std::string& text) {
    SCOPED_TRACE(text);
    ExpectLine(HeaderFor(text), IniLineText::section, text, "");
    for (const char* indent : {"", "\t "}) {
        for (const char* equals : {"=", " = "}) {
            ExpectLine(indent + NameFor(text) + equals + "v", IniLineText::key, text, "v");
            ExpectLine(indent + NameFor(text) + equals, IniLineText::key, text, "");
            ExpectLine(std::string(indent) + "k" + equals + ValueFor(text), IniLineText::key, "k", text);
            ExpectLine(indent + NameFor(text) + equals + ValueFor(text), IniLineText::key, text, text);
        }
    }
}

TEST(IniTexts, ReadBackWithEveryByteAnywhere) {
    for (int byte = 1; byte < 256 && !::testing::Test::HasFailure(); ++byte) {
        std::string c(1, static_cast<char>(byte));
        for (const std::string& text : {c, "a" + c, c + "a", "a" + c + "a", c + c, c + "a" + c}) {
            ExpectReadsBack(text);
        }
    }
}

TEST(IniTexts, ReadBackWhateverAwkwardPiecesTheyAreMadeOf) {
    const std::vector<std::string> pieces = {" ",      "\t",     "\"", "=",  ";", "#",   "[",    "]",    "%",  "%41",
                                             "@text@", "$text$", "\n", "\r", "a", "\\n", "\x01", "\xFF", kMark};
    ExpectReadsBack("");
    for (const std::string& first : pieces) {
        for (const std::string& second : pieces) {
            ExpectReadsBack(first + second);
            for (const std::string& third : pieces) {
                ExpectReadsBack(first + second + third);
            }
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// --- layout ---------------------------------------------------------------------------------------------------------

TEST(IniLayouts, AreTheIndentAndOneBlankAroundTheEqualsSignOrNone) {
    struct Case {
        std::string line;
        const char* indent;
        const char* equals;
    };
    const Case cases[] = {
        {"k=v", "", "="},
        {"k = v", "", " = "},
        {"k\t=\tv", "", " = "},
        {"k    =    v", "", " = "},
        {"k =v", "", " = "},
        {"k= v", "", "="},
        {"  k=v", "  ", "="},
        {"\t k = v", "\t ", " = "},
        {"=v", "", "="},
        {"a b=v", "", "="},
        {With(kMark, "k = v"), "", " = "},
        {With(kMark, "  k=v"), "  ", "="},
        {With("  ", kMark) + "k=v", "", "="},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.line);
        IniKeyLayout layout = LayoutOfIniKey(each.line, ReadIniLine(each.line));
        EXPECT_EQ(layout.indent, each.indent);
        EXPECT_EQ(layout.equals, each.equals);
    }
}

}  // namespace
}  // namespace kx::test
