// INI documents: what they hold.
#include "tests/IniFile_fixture.h"

#include <cstring>

namespace kx::test {
namespace {

using namespace std::string_literals;

class IniFiles : public IniFilesTest {};

/// A text as a document that only ever was one gives it back.
std::string Rendered(const std::string& text) {
    IniFile ini;
    ini.SetText(text.c_str());
    return WrittenText(&ini);
}

// --- what others read -----------------------------------------------------------------------------------------------

template <class... Fields>
bool Ascend(const Fields&... fields) {
    const void* last = nullptr;
    auto isNext = [&last](const void* field) { return std::exchange(last, field) < field; };
    return (isNext(&fields) && ...);
}

TEST(IniFields, StandInTheirOrder) {
    IniFile ini;
    Section section{};
    Key key{};

    EXPECT_TRUE(Ascend(ini.m_pFileName, ini.m_Size, ini.m_pFirst, ini.m_FileIndex, ini.m_pFileBuffer, ini.m_LineNumber,
                       ini.m_Changed));
    EXPECT_TRUE(Ascend(section.m_pNext, section.m_pFirst, section.m_pName));
    EXPECT_TRUE(Ascend(key.m_pNext, key.m_pKey, key.m_pValue));
    EXPECT_EQ(static_cast<void*>(&section), &section.m_pNext);
    EXPECT_EQ(static_cast<void*>(&key), &key.m_pNext);
}

TEST_F(IniFiles, HoldTheirTextAndHowFarItIsRead) {
    std::string contents = "; one\n[two]\nthree=3\r\nfour";
    WriteWholeFile(Save("a.ini"), contents);
    char name[] = "a.ini";

    IniFile ini(name, false);
    name[0] = 'x';

    EXPECT_STREQ(ini.m_pFileName, "a.ini");
    EXPECT_EQ(ini.m_Size, static_cast<int>(contents.size()));
    EXPECT_EQ(std::string(ini.m_pFileBuffer, contents.size()), contents);
    EXPECT_EQ(ini.m_FileIndex, ini.m_Size);
    EXPECT_EQ(ini.m_LineNumber, 4);
    EXPECT_FALSE(ini.m_Changed);
}

TEST(IniDocuments, AreEmptyAtFirst) {
    IniFile ini;

    EXPECT_EQ(ini.m_pFileName, nullptr);
    EXPECT_EQ(ini.m_Size, 0);
    EXPECT_EQ(ini.m_pFirst, nullptr);
    EXPECT_EQ(ini.m_pFileBuffer, nullptr);
    EXPECT_EQ(ini.m_LineNumber, 0);
    EXPECT_FALSE(ini.m_Changed);
    EXPECT_EQ(WrittenText(&ini), "");
}

TEST_F(IniFiles, CanDoWithoutAName) {
    IniFile ini(nullptr, false);

    ini.SetKey("s", "k", "v");

    EXPECT_EQ(WrittenText(&ini), "[s]\nk=v\n");
    EXPECT_EQ(m_console.Take(), "");
    EXPECT_TRUE(NamesIn(Save()).empty());
}

// --- reading --------------------------------------------------------------------------------------------------------

TEST_F(IniFiles, ReadAsTheirLinesSay) {
    struct Case {
        std::string name;
        std::string file;
        IniContents contents;
    };
    const Case cases[] = {
        {"nothing", "", {}},
        {"a line end alone", "\n", {}},
        {"a mark alone", kMark, {}},
        {"comments and blanks only", "; c\n\n # d\n \t\n", {}},
        {"sections and keys", "[a]\nk=v\nl=w\n[b]\nk=x\n", {{"a", {{"k", "v"}, {"l", "w"}}}, {"b", {{"k", "x"}}}}},
        {"sections without keys", "[a]\n[b]\n", {{"a", {}}, {"b", {}}}},
        {"keys before any section", "k=v\n[a]\nl=w\n", {{"", {{"k", "v"}}}, {"a", {{"l", "w"}}}}},
        {"the section without a name", "[]\nk=v\n", {{"", {{"k", "v"}}}}},
        {"both together", "k=v\n[a]\n[]\nl=w\nk=x\n", {{"", {{"k", "x"}, {"l", "w"}}}, {"a", {}}}},
        {"the section without a name in its place", "[a]\n[]\nk=v\n", {{"a", {}}, {"", {{"k", "v"}}}}},
        {"a section again", "[a]\nk=v\n[b]\n[a]\nl=w\n", {{"a", {{"k", "v"}, {"l", "w"}}}, {"b", {}}}},
        {"a key again", "[a]\nk=1\nl=2\nk=3\nk=4\n", {{"a", {{"k", "4"}, {"l", "2"}}}}},
        {"a key again in its section's second part",
         "[a]\nk=1\n[b]\nk=2\n[a]\nk=3\n",
         {{"a", {{"k", "3"}}}, {"b", {{"k", "2"}}}}},
        {"a key again in another form", "[a]\nx]=1\n@text@x%5D$text$=2\n", {{"a", {{"x]", "2"}}}}},
        {"a section again in another form", "[a]\nk=1\n[ @text@%61$text$ ]\nl=2\n", {{"a", {{"k", "1"}, {"l", "2"}}}}},
        {"a key again without a value", "k=1\nk=\n", {{"", {{"k", ""}}}}},
        {"names that differ in case",
         "[a]\nk=1\nK=2\n[A]\nk=3\n",
         {{"a", {{"k", "1"}, {"K", "2"}}}, {"A", {{"k", "3"}}}}},
        {"a key without a name", "=v\n", {{"", {{"", "v"}}}}},
        {"CR LF", "[a]\r\nk=v\r\n\r\nl=w\r\n", {{"a", {{"k", "v"}, {"l", "w"}}}}},
        {"mixed line ends", "[a]\r\nk=v\nl=w\r\n", {{"a", {{"k", "v"}, {"l", "w"}}}}},
        {"no line end at the end", "[a]\nk=v", {{"a", {{"k", "v"}}}}},
        {"a section at the end without a line end", "k=v\n[a]", {{"", {{"k", "v"}}}, {"a", {}}}},
        {"a carriage return alone is no line end", "[a]\rk=v\rl=w\n", {{"a", {}}}},
        {"a carriage return at the very end", "k=v\r", {{"", {{"k", "v\r"}}}}},
        {"a mark before a section", kMark + "[a]\nk=v\n"s, {{"a", {{"k", "v"}}}}},
        {"a mark before a key", kMark + "k=v\n"s, {{"", {{"k", "v"}}}}},
        {"a mark in the middle, where two files became one",
         "k=v\n"s + kMark + "[a]\n" + kMark + "l=w\n",
         {{"", {{"k", "v"}}}, {"a", {{"l", "w"}}}}},
        {"quotes and comment signs",
         "p = \"C:\\new\\table\"\nc=#ff8800 ; x\n",
         {{"", {{"p", "C:\\new\\table"}, {"c", "#ff8800 ; x"}}}}},
        {"unreadable lines among others", "[a]\njunk\nk=v\nj: x\nl=w\n", {{"a", {{"k", "v"}, {"l", "w"}}}}},
        {"a header without its bracket", "[a]\nk=v\n[b\nk=w\n", {{"a", {{"k", "v"}}}, {"b", {{"k", "w"}}}}},
        {"zero bytes", "[a]\nk=v\nl=\0\n[b\0]\nm=w\n;\0\n"s, {{"a", {{"k", "v"}, {"m", "w"}}}}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Reading(each.file), each.contents);
    }
}

TEST_F(IniFiles, FindWhatTheyHoldAndNothingElse) {
    WriteWholeFile(Save("a.ini"), "top=1\n[section]\nkey=2\n");
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");

    EXPECT_EQ(ini->GetSection(""), ini->m_pFirst);
    EXPECT_EQ(ini->GetSection("section"), ini->m_pFirst->m_pNext);
    EXPECT_EQ(ini->GetKey("section", "key"), ini->m_pFirst->m_pNext->m_pFirst);
    EXPECT_STREQ(ini->GetKey("", "top")->m_pValue, "1");
    for (const char* section : {"Section", "sectio", "sections", " section", "[section]"}) {
        EXPECT_EQ(ini->GetSection(section), nullptr) << section;
        EXPECT_EQ(ini->GetKey(section, "key"), nullptr) << section;
    }
    for (const char* key : {"Key", "ke", "keys", "", "top"}) {
        EXPECT_EQ(ini->GetKey("section", key), nullptr) << key;
    }
}

TEST_F(IniFiles, FindTheirKeysHoweverManyThereAre) {
    IniFile ini;
    auto section = [](int i) { return std::to_string(i % 100); };
    for (int i = 0; i < 20000; ++i) {
        ini.SetKey(section(i).c_str(), std::to_string(i).c_str(), std::to_string(-i).c_str());
    }
    for (int i = 0; i < 20000; i += 2) {
        ini.DeleteKey(section(i).c_str(), std::to_string(i).c_str());
    }
    IniFile again;
    again.SetText(WrittenText(&ini).c_str());

    for (int i = 0; i < 20000; ++i) {
        std::string expected = i % 2 ? std::to_string(-i) : "(none)";
        ASSERT_EQ(ValueOf(&ini, section(i).c_str(), std::to_string(i).c_str()), expected);
        ASSERT_EQ(ValueOf(&again, section(i).c_str(), std::to_string(i).c_str()), expected);
    }
}

TEST_F(IniFiles, TellOnceOfTheLinesThatTheyCannotRead) {
    WriteWholeFile(Save("a.ini"), "k=1\n\nj: 2\nl=3\n[b\0]\nm=\0\n"s);

    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    WrittenText(ini.get());

    EXPECT_EQ(m_console.Take(),
              "a.ini: line 3 is no section, no key and no comment, and is kept as it is (3 such lines)\n");
    ini->SetText("junk\n");
    EXPECT_EQ(m_console.Take(),
              "a.ini: line 1 is no section, no key and no comment, and is kept as it is (1 such lines)\n");
    IniFile text;
    text.SetText("k=1\njunk\n");
    EXPECT_EQ(m_console.Take(),
              "INI text: line 2 is no section, no key and no comment, and is kept as it is (1 such lines)\n");
}

TEST_F(IniFiles, ReadWithoutAWordWhatTheyUnderstand) {
    Reading(kMark + "; c\r\n[a] ; b\n\nk=v\n;\0\n=\n"s);

    EXPECT_EQ(m_console.Take(), "");
}

// --- texts ----------------------------------------------------------------------------------------------------------

TEST(IniTextDocuments, RenderTheirKeysAnewAndTheRestAsItWas) {
    struct Case {
        const char* name;
        std::string text;
        std::string rendered;
    };
    const Case cases[] = {
        {"nothing", "", ""},
        {"layout of keys", "[s]\n  k  =  \"v\"  \n\tl=w\n", "[s]\nk=v\nl=w\n"},
        {"layout of the rest", "  ; c\n\n [ s ]  ; d\n\tk = v\n \n", "  ; c\n\n [ s ]  ; d\nk=v\n \n"},
        {"no line end at the end", "[s]\nk = v", "[s]\nk=v\n"},
        {"CR LF", "[s]\r\nk = v\r\n; c\r\n", "[s]\r\nk=v\r\n; c\r\n"},
        {"mixed line ends", "[s]\r\nk = v\n; c\n", "[s]\r\nk=v\r\n; c\n"},
        {"a mark", kMark + "k = v\n"s, kMark + "k=v\n"s},
        {"a key that comes again", "[s]\nk=1\nl=1\n k = 2\n", "[s]\nl=1\nk=2\n"},
        {"needed forms", "a=\" 1\"\nb=\"\"yes\"\"\nc=@text@1%0a2$text$\n@text@%3d$text$=1\n",
         "a=\" 1\"\nb=\"\"yes\"\"\nc=@text@1%0A2$text$\n@text@%3D$text$=1\n"},
        {"forms that are not needed", "a=\"1\"\nb=@text@1$text$\n@text@c$text$=1\n", "a=1\nb=1\nc=1\n"},
        {"unreadable lines", "junk\n[s\nk = v\n", "junk\n[s\nk=v\n"},
    };
    CapturingConsole console;
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Rendered(each.text), each.rendered);
        EXPECT_EQ(Rendered(each.rendered), each.rendered);
    }
}

TEST(IniTextDocuments, TakeChangesLikeFiles) {
    IniFile ini;
    ini.SetText("; c\na = 1\n[s]\nb = 1\n");

    ini.SetKey("s", "k", "v");
    ini.SetKey("t", "k", " v");
    ini.SetKey("", "a", "2");
    ini.DeleteKey("s", "b");

    EXPECT_EQ(WrittenText(&ini), "; c\na=2\n[s]\nk=v\n\n[t]\nk=\" v\"\n");
}

TEST(IniTextDocuments, StartAnewWithEveryText) {
    IniFile ini;
    ini.SetText("[s]\nk=1\n");
    ini.SetKey("s", "l", "2");

    ini.SetText("[t]\r\nx=1\r\n");
    EXPECT_EQ(ContentsOf(ini), (IniContents{{"t", {{"x", "1"}}}}));
    EXPECT_FALSE(ini.m_Changed);
    EXPECT_EQ(ini.m_LineNumber, 2);
    EXPECT_EQ(WrittenText(&ini), "[t]\r\nx=1\r\n");

    ini.SetText(nullptr);
    EXPECT_EQ(ini.m_pFirst, nullptr);
    ini.SetKey("s", "k", "v");
    EXPECT_EQ(WrittenText(&ini), "[s]\nk=v\n");  // and no line end of the text before
}

TEST_F(IniFiles, TakeATextInPlaceOfTheirOwnAsItIs) {
    std::string text = "[t]\n  x  =  \"1\"";

    EXPECT_EQ(Changed("[s]\nk=1\n",
                      [&](IniFile* ini) {
                          ini->SetText(text.c_str());
                          EXPECT_TRUE(ini->m_Changed);
                      }),
              text);
    EXPECT_EQ(Changed("[s]\nk=1\n", [](IniFile* ini) { ini->SetText(nullptr); }), "");
}

TEST(IniTextDocuments, MayBeSetToAPartOfThemselves) {
    IniFile ini;
    ini.SetText("[a]\nk=l = 1\n");

    ini.SetText(ini.GetKey("a", "k")->m_pValue);

    EXPECT_EQ(ValueOf(&ini, "", "l"), "1");
    EXPECT_EQ(ini.GetSection("a"), nullptr);
}

#if UINTPTR_MAX == UINT32_MAX  // elsewhere no text is as large as that

TEST(IniTextDocuments, RefuseATextWhoseKeysTakeMoreThanTheAddressSpace) {
    constexpr size_t kKeys = (1ull << 32) / 18 + 1;  // a "=", a line end and 16 bytes for a value: more than 32 bits
    std::string text = "[a]\nk";
    text.append(kKeys, '=').append(kKeys, '\n');
    IniFile ini;

    EXPECT_THROW(ini.SetText(text.c_str()), std::bad_alloc);

    EXPECT_EQ(ini.m_pFirst, nullptr);
}

#endif

}  // namespace
}  // namespace kx::test
