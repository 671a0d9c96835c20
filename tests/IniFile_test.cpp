// INI documents: what they hold, what they keep, what is on the disk.
#include "tests/IniFile_fixture.h"

#include "tests/support/FaultySystemCalls.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using namespace std::string_literals;

using Change = std::function<void(IniFile*)>;

class IniFiles : public IniFilesTest {
protected:
    /// What a file with these contents says.
    IniContents Reading(const std::string& contents) {
        WriteWholeFile(Save("a.ini"), contents);
        return ContentsOf(*OpenIni("a.ini"));
    }

    /// The file after a change of its document.
    std::string Changed(const std::string& contents, const Change& change) {
        WriteWholeFile(Save("a.ini"), contents);
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");
        change(ini.get());
        std::string text = WrittenText(ini.get());
        EXPECT_FALSE(ini->m_Changed);
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), text);
        return text;
    }

    static ino_t Inode(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_ino;
    }
};

/// A text as a document that only ever was one gives it back.
std::string Rendered(const std::string& text) {
    IniFile ini;
    ini.SetText(text.c_str());
    return WrittenText(&ini);
}

Change Setting(std::string section, std::string key, std::string value) {
    return [=](IniFile* ini) { ini->SetKey(section.c_str(), key.c_str(), value.c_str()); };
}

Change Deleting(std::string section) {
    return [=](IniFile* ini) { ini->DeleteSection(section.c_str()); };
}

Change Deleting(std::string section, std::string key) {
    return [=](IniFile* ini) { ini->DeleteKey(section.c_str(), key.c_str()); };
}

/// A file before and after a change.
struct Rewriting {
    const char* name;
    std::string before;
    std::string after;
};

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

TEST_F(IniFiles, HaveASectionThatIsMadeAgainWhereItWas) {
    WriteWholeFile(Save("a.ini"), "[a]\nk=1\n\n; of b\n[b]\nk=2\n; below\n\n[c]\nk=3\n");
    for (int session = 0; session < 3; ++session) {
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");
        for (const char* section : {"a", "b", "c"}) {
            ini->DeleteSection(section);
            EXPECT_EQ(ini->GetSection(section), nullptr);
            EXPECT_EQ(ini->GetKey(section, "k"), nullptr);
            ini->DeleteSection(section);
            ini->SetKey(section, "l", "4");
            EXPECT_NE(ini->GetSection(section), nullptr);
        }
        WrittenText(ini.get());
    }
    EXPECT_EQ(ReadWholeFile(Save("a.ini")), "[a]\nl=4\n\n; of b\n[b]\nl=4\n; below\n\n[c]\nl=4\n");
}

TEST_F(IniFiles, LayNewKeysOutInTimeHoweverOddTheLinesBeforeThemAre) {
    std::string blanks(1 << 20, ' ');
    for (const std::string& text : {"[a]\n" + blanks + "k=1\n", "[a]\nk=1" + blanks + "\n"}) {
        WriteWholeFile(Save("a.ini"), text);
        std::unique_ptr<IniFile> file = OpenIni("a.ini");
        for (int i = 0; i < 300000; ++i) {  // looking at the line for each would take longer than a test may
            file->SetKey("a", std::to_string(i).c_str(), "");
        }
        EXPECT_LT(WrittenText(file.get()).size(), text.size() + 300000 * std::strlen("299999=\n") + 1);
    }
}

TEST_F(IniFiles, MayBeSetToAPartOfThemselves) {
    IniFile ini;
    ini.SetText("[a]\nk=l = 1\n");

    ini.SetText(ini.GetKey("a", "k")->m_pValue);

    EXPECT_EQ(ValueOf(&ini, "", "l"), "1");
    EXPECT_EQ(ini.GetSection("a"), nullptr);
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

// --- changing -------------------------------------------------------------------------------------------------------

TEST_F(IniFiles, ChangeNothingButTheValueInTheLineOfAKey) {
    struct Case {
        const char* name;
        std::string before;
        std::string value;
        std::string after;
    };
    const Case cases[] = {
        {"plain", "[s]\nk=1\nl=1\n", "2", "[s]\nk=2\nl=1\n"},
        {"indent and blanks around the equals sign", "[s]\n \tk  =\t1\n", "2", "[s]\n \tk  =\t2\n"},
        {"blanks before the equals sign only", "[s]\nk =1\n", "2", "[s]\nk =2\n"},
        {"CR LF in a file with LF", "[s]\nk=1\r\nl=1\n", "2", "[s]\nk=2\r\nl=1\n"},
        {"LF in a file with CR LF", "[s]\r\nk=1\nl=1\r\n", "2", "[s]\r\nk=2\nl=1\r\n"},
        {"no line end", "[s]\nk=1", "2", "[s]\nk=2"},
        {"a carriage return for a line end", "[s]\nk=1\r", "2", "[s]\nk=2"},
        {"no value before", "[s]\nk=\n", "2", "[s]\nk=2\n"},
        {"no value before, but blanks", "[s]\nk = \n", "2", "[s]\nk = 2\n"},
        {"no value afterwards", "[s]\nk = 1\n", "", "[s]\nk = \n"},
        {"a value in quotes", "[s]\nk = \"1\"\n", "2", "[s]\nk = 2\n"},
        {"a value that needs quotes", "[s]\nk = 1\n", " 2", "[s]\nk = \" 2\"\n"},
        {"a value of two lines", "[s]\nk = 1\n", "2\n3", "[s]\nk = @text@2%0A3$text$\n"},
        {"a name in another form", "[s]\n@text@%6B$text$ = 1\n", "2", "[s]\n@text@%6B$text$ = 2\n"},
        {"a key that comes again", "[s]\nk=1\nl=1\n k = 3\n", "2", "[s]\nk=1\nl=1\n k = 2\n"},
        {"a section that comes again", "[s]\nk=1\n[t]\n[s] ; c\nk=3\n", "2", "[s]\nk=1\n[t]\n[s] ; c\nk=2\n"},
        {"comments, blanks and junk", ";c\n\n[s] x\n:\nk=1\n#\n\n", "2", ";c\n\n[s] x\n:\nk=2\n#\n\n"},
        {"marks", kMark + "[s]\n"s + kMark + "k=1\n", "2", kMark + "[s]\n"s + kMark + "k=2\n"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Changed(each.before, Setting("s", "k", each.value)), each.after);
        EXPECT_EQ(ValueOf(OpenIni("a.ini").get(), "s", "k"), each.value);
    }
}

TEST_F(IniFiles, PutANewKeyBehindTheLastOneOfItsSectionAndLayItOutAlike) {
    const Rewriting cases[] = {
        {"last section", "[s]\na=1\n", "[s]\na=1\nk=v\n"},
        {"before what is below the last key", "[s]\na=1\n\n; t\n[t]\nb=1\n", "[s]\na=1\nk=v\n\n; t\n[t]\nb=1\n"},
        {"a section without keys", "[s]\n[t]\n", "[s]\nk=v\n[t]\n"},
        {"a section without keys at the end", "[s]", "[s]\nk=v\n"},
        {"indent and blanks", "[s]\n\ta  =  1\n[t]\nb=1\n", "[s]\n\ta  =  1\n\tk = v\n[t]\nb=1\n"},
        {"the layout of the section before", "[t]\n  a = 1\n[s]\n", "[t]\n  a = 1\n[s]\n  k = v\n"},
        {"no line end at the end", "[s]\na=1", "[s]\na=1\nk=v\n"},
        {"CR LF", "[s]\r\na=1\r\n", "[s]\r\na=1\r\nk=v\r\n"},
        {"CR LF, and no line end at the end", "[s]\r\na=1", "[s]\r\na=1\r\nk=v\r\n"},
        {"the line end that the file begins with", "[s]\r\na=1\n", "[s]\r\na=1\nk=v\r\n"},
        {"a key that comes again", "[s]\na=1\n; c\na=2\n; d\n", "[s]\na=1\n; c\na=2\nk=v\n; d\n"},
        {"a section that comes again", "[s]\na=1\n[t]\n[s]\nb=1\n", "[s]\na=1\n[t]\n[s]\nb=1\nk=v\n"},
        {"a section that comes again without keys", "[s]\n[t]\n[s]\n; c\n", "[s]\n[t]\n[s]\nk=v\n; c\n"},
    };
    for (const Rewriting& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Changed(each.before, Setting("s", "k", "v")), each.after);
    }
}

TEST_F(IniFiles, PutANewSectionAtTheEndBehindABlankLine) {
    const Rewriting cases[] = {
        {"nothing", "", "[s]\nk=v\n"},
        {"a mark alone", kMark, kMark + "[s]\nk=v\n"s},
        {"a key", "a=1\n", "a=1\n\n[s]\nk=v\n"},
        {"no line end", "a=1", "a=1\n\n[s]\nk=v\n"},
        {"a comment", "; c\n", "; c\n\n[s]\nk=v\n"},
        {"another section", "[t]\n", "[t]\n\n[s]\nk=v\n"},
        {"a blank line", "a=1\n\n", "a=1\n\n[s]\nk=v\n"},
        {"a line of blanks", "a=1\n \t\n", "a=1\n \t\n[s]\nk=v\n"},
        {"blanks without a line end", "a=1\n  ", "a=1\n  \n[s]\nk=v\n"},
        {"a line end alone", "\n", "\n[s]\nk=v\n"},
        {"CR LF", "a=1\r\n", "a=1\r\n\r\n[s]\r\nk=v\r\n"},
        {"a blank line with CR LF", "a=1\r\n\r\n", "a=1\r\n\r\n[s]\r\nk=v\r\n"},
        {"layout", "[t]\n  a = 1\n", "[t]\n  a = 1\n\n[s]\n  k = v\n"},
    };
    for (const Rewriting& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Changed(each.before, Setting("s", "k", "v")), each.after);
    }
}

TEST_F(IniFiles, PutANewKeyWithoutASectionFirst) {
    const Rewriting cases[] = {
        {"nothing", "", "k=v\n"},
        {"a section", "[s]\na=1\n", "k=v\n[s]\na=1\n"},
        {"a comment", "; c\n[s]\n", "k=v\n; c\n[s]\n"},
        {"a mark", kMark + "[s]\n"s, kMark + "k=v\n[s]\n"s},
        {"a mark alone", kMark, kMark + "k=v\n"s},
        {"others before it", "a=1\n; c\n[s]\n", "a=1\nk=v\n; c\n[s]\n"},
        {"a header without a name", "[s]\n[]\n[t]\n", "[s]\n[]\nk=v\n[t]\n"},
    };
    for (const Rewriting& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Changed(each.before, Setting("", "k", "v")), each.after);
        EXPECT_EQ(ValueOf(OpenIni("a.ini").get(), "", "k"), "v");
    }
}

TEST_F(IniFiles, KeepTheOrderInWhichKeysAndSectionsCome) {
    std::string after = Changed("[a]\nx=1\n", [](IniFile* ini) {
        ini->SetKey("b", "z", "1");
        ini->SetKey("c", "z", "1");
        ini->SetKey("b", "y", "1");
        ini->SetKey("a", "y", "1");
        ini->SetKey("", "y", "1");
        EXPECT_EQ(ContentsOf(*ini), (IniContents{{"", {{"y", "1"}}},
                                                 {"a", {{"x", "1"}, {"y", "1"}}},
                                                 {"b", {{"z", "1"}, {"y", "1"}}},
                                                 {"c", {{"z", "1"}}}}));
    });

    EXPECT_EQ(after, "y=1\n[a]\nx=1\ny=1\n\n[b]\nz=1\ny=1\n\n[c]\nz=1\n");
}

TEST_F(IniFiles, KeepACarriageReturnAtTheVeryEndInItsValue) {
    EXPECT_EQ(Changed("a=1\r", Setting("", "k", "v")), "a=1\r\r\nk=v\n");
    EXPECT_EQ(Reading("a=1\r\r\nk=v\n"), (IniContents{{"", {{"a", "1\r"}, {"k", "v"}}}}));
    EXPECT_EQ(Changed("a=1\r", Setting("s", "k", "v")), "a=1\r\r\n\n[s]\nk=v\n");
}

TEST_F(IniFiles, WriteAwkwardNamesSoThatTheyReadBack) {
    std::string after = Changed("[s]\n  a = 1\n", [](IniFile* ini) {
        ini->SetKey("s", "a=b", "1");
        ini->SetKey("s", "[c]", "2");
        ini->SetKey("a]\n;b", "", " 3");
    });

    EXPECT_EQ(after, "[s]\n  a = 1\n  @text@a%3Db$text$ = 1\n  @text@[c%5D$text$ = 2\n"
                     "\n[@text@a%5D%0A;b$text$]\n   = \" 3\"\n");
    EXPECT_EQ(Reading(after), (IniContents{{"s", {{"a", "1"}, {"a=b", "1"}, {"[c]", "2"}}}, {"a]\n;b", {{"", " 3"}}}}));
}

TEST_F(IniFiles, TakeNothingUnderANullName) {
    std::string file = "k=v\n[s]\nk=v\n";

    std::string after = Changed(file, [](IniFile* ini) {
        EXPECT_EQ(ini->GetSection(nullptr), nullptr);
        EXPECT_EQ(ini->GetKey(nullptr, "k"), nullptr);
        EXPECT_EQ(ini->GetKey("s", nullptr), nullptr);
        EXPECT_EQ(ini->GetKey(nullptr, nullptr), nullptr);
        ini->SetKey(nullptr, "k", "x");
        ini->SetKey("s", nullptr, "x");
        ini->DeleteKey(nullptr, "k");
        ini->DeleteKey("s", nullptr);
        ini->DeleteSection(nullptr);
        EXPECT_FALSE(ini->m_Changed);
    });

    EXPECT_EQ(after, file);
}

TEST_F(IniFiles, TakeNullForAnEmptyValue) {
    EXPECT_EQ(Changed("[s]\nk=1\n",
                      [](IniFile* ini) {
                          ini->SetKey("s", "k", nullptr);
                          ini->SetKey("s", "l", nullptr);
                          EXPECT_STREQ(ini->GetKey("s", "k")->m_pValue, "");
                      }),
              "[s]\nk=\nl=\n");
}

TEST_F(IniFiles, MayBeGivenTheirOwnTexts) {
    EXPECT_EQ(Changed("[s]\nk=v\n",
                      [](IniFile* ini) {
                          Section* section = ini->GetSection("s");
                          Key* key = ini->GetKey("s", "k");
                          for (int i = 0; i < 2; ++i) {
                              ini->SetKey(section->m_pName, key->m_pKey, key->m_pValue);
                              EXPECT_STREQ(key->m_pValue, "v");
                          }
                          ini->SetKey(section->m_pName, key->m_pValue, key->m_pKey);
                          ini->SetKey(key->m_pValue, section->m_pName, key->m_pValue);
                          ini->DeleteKey(section->m_pName, key->m_pKey);
                          ini->DeleteSection(section->m_pName);
                      }),
              "[v]\ns=v\n");
}

TEST_F(IniFiles, KeepAKeyWhereItIsWhileItsValueChanges) {
    WriteWholeFile(Save("a.ini"), "[s]\nk=1\n");
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    Key* key = ini->GetKey("s", "k");

    for (int i = 0; i < 1000; ++i) {
        ini->SetKey("s", "k", "2");
        ini->SetKey("s", std::to_string(i).c_str(), "new");
    }

    EXPECT_EQ(ini->GetKey("s", "k"), key);
    EXPECT_STREQ(key->m_pValue, "2");
}

// --- deleting -------------------------------------------------------------------------------------------------------

TEST_F(IniFiles, LoseTheLinesOfWhatIsDeletedAndNoOthers) {
    struct Case {
        const char* name;
        std::string before;
        Change change;
        std::string after;
    };
    const Case cases[] = {
        {"a key", "[s]\na=1\n; c\nk=2\n; d\nb=3\n", Deleting("s", "k"), "[s]\na=1\n; c\n; d\nb=3\n"},
        {"a key with all its lines", "[s]\nk=1\na=1\nk=2\n[t]\nk=3\n[s]\nk=4\n", Deleting("s", "k"),
         "[s]\na=1\n[t]\nk=3\n[s]\n"},
        {"the last key of a section", "[s]\nk=1\n[t]\n", Deleting("s", "k"), "[s]\n[t]\n"},
        {"the last key without a section", "k=1\n; c\n[t]\n", Deleting("", "k"), "; c\n[t]\n"},
        {"a key without a line end", "[s]\na=1\nk=1", Deleting("s", "k"), "[s]\na=1\n"},
        {"a section", "[a]\nx=1\n; c\n[s]\nk=1\n; d\nl=2\n\n[b]\ny=1\n", Deleting("s"),
         "[a]\nx=1\n; c\n; d\n\n[b]\ny=1\n"},
        {"a section with all its parts", "[s]\nk=1\n[t]\n; c\n[s]\nl=1\nk=2\n", Deleting("s"), "[t]\n; c\n"},
        {"a section with a comment behind its header", "[s] ; c\nk=1\n[t]\n", Deleting("s"), "[t]\n"},
        {"the keys without a section", "k=1\n; c\n[t]\na=1\n[]\nl=1\n", Deleting(""), "; c\n[t]\na=1\n"},
        {"unreadable lines stay", "[s]\njunk\nk=1\nk=\0\n[t]\n"s, Deleting("s"), "junk\nk=\0\n[t]\n"s},
        {"everything but the mark", kMark + "[s]\nk=1\n"s, Deleting("s"), kMark},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        WriteWholeFile(Save("a.ini"), each.before);
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");

        each.change(ini.get());

        EXPECT_TRUE(ini->m_Changed);
        IniContents contents = ContentsOf(*ini);
        WrittenText(ini.get());
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), each.after);
        EXPECT_EQ(ContentsOf(*OpenIni("a.ini")), contents);
    }
}

TEST_F(IniFiles, DoNotChangeWhereThereIsNothingToDelete) {
    WriteWholeFile(Save("a.ini"), "[s]\nk=1\n");
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");

    ini->DeleteKey("s", "l");
    ini->DeleteKey("t", "k");
    ini->DeleteKey("", "k");
    ini->DeleteSection("t");
    ini->DeleteSection("");

    EXPECT_FALSE(ini->m_Changed);
    EXPECT_EQ(ContentsOf(*ini), (IniContents{{"s", {{"k", "1"}}}}));
}

TEST_F(IniFiles, KeepASectionWithoutKeysAsLongAsItHasAHeader) {
    IniFile ini;
    ini.SetText("k=1\n[s]\nk=1\n[]\nl=1\n");

    ini.DeleteKey("s", "k");
    EXPECT_NE(ini.GetSection("s"), nullptr);
    ini.DeleteKey("", "k");
    ini.DeleteKey("", "l");
    EXPECT_NE(ini.GetSection(""), nullptr);
    ini.SetText("k=1\n");
    ini.DeleteKey("", "k");
    EXPECT_EQ(ini.GetSection(""), nullptr);
}

TEST_F(IniFiles, TakeBackWhatWasDeleted) {
    EXPECT_EQ(Changed("[s]\nk=1\na=1\n[t]\nx=1\n",
                      [](IniFile* ini) {
                          ini->DeleteKey("s", "k");
                          ini->SetKey("s", "k", "2");
                          ini->DeleteSection("t");
                          ini->SetKey("t", "x", "2");
                      }),
              "[s]\na=1\nk=2\n[t]\nx=2\n");
}

TEST_F(IniFiles, LeaveNothingOfANewSectionThatIsDeleted) {
    EXPECT_EQ(Changed("[a]\nx=1\n",
                      [](IniFile* ini) {
                          ini->SetKey("s", "k", "1");
                          ini->SetKey("", "k", "1");
                          ini->DeleteSection("s");
                          ini->DeleteKey("", "k");
                      }),
              "[a]\nx=1\n");
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

// --- files ----------------------------------------------------------------------------------------------------------

TEST_F(IniFiles, AreReadFromTheSaveAreaThenFromTheBundle) {
    WriteWholeFile(Bundle("shipped.ini"), "[s]\nk=bundle\n");
    WriteWholeFile(Bundle("both.ini"), "[s]\nk=bundle\n");
    WriteWholeFile(Save("both.ini"), "[s]\nk=save\n");

    EXPECT_EQ(ValueOf(OpenIni("shipped.ini").get(), "s", "k"), "bundle");
    EXPECT_EQ(ValueOf(OpenIni("both.ini").get(), "s", "k"), "save");
    EXPECT_EQ(ValueOf(OpenIni(Save("both.ini")).get(), "s", "k"), "save");
    EXPECT_EQ(ValueOf(OpenIni(Bundle("shipped.ini")).get(), "s", "k"), "bundle");
    EXPECT_EQ(ValueOf(OpenIni(Bundle("both.ini")).get(), "s", "k"), "save");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(IniFiles, KeepWhatWasChangedBeforeThroughAFullPathInTheBundle) {
    WriteWholeFile(Bundle("a.ini"), "[s]\nk=shipped\nl=shipped\n");
    for (const char* key : {"k", "l"}) {
        std::unique_ptr<IniFile> ini = OpenIni(Bundle("a.ini"));
        ini->SetKey("s", key, "mine");
        WrittenText(ini.get());
    }
    EXPECT_EQ(ReadWholeFile(Save("a.ini")), "[s]\nk=mine\nl=mine\n");
}

TEST_F(IniFiles, AreWrittenToTheSaveArea) {
    for (bool full : {false, true}) {
        SCOPED_TRACE(full);
        fs::remove_all(Save("data"));
        WriteWholeFile(Bundle("data/a.ini"), "; c\n[s]\nk = 1\n");
        std::unique_ptr<IniFile> ini = OpenIni(full ? Bundle("data/a.ini").string() : "data/a.ini");

        ini->SetKey("s", "k", "2");
        EXPECT_FALSE(fs::exists(Save("data/a.ini")));
        WrittenText(ini.get());

        EXPECT_EQ(ReadWholeFile(Save("data/a.ini")), "; c\n[s]\nk = 2\n");
        EXPECT_EQ(ReadWholeFile(Bundle("data/a.ini")), "; c\n[s]\nk = 1\n");
    }
}

TEST_F(IniFiles, ThatAreMissingAreMadeWithTheirFoldersOnceTheyHoldSomething) {
    for (const std::string& name : {"new/folder/a.ini"s, Save("new/folder/a.ini").string()}) {
        SCOPED_TRACE(name);
        fs::remove_all(Save("new"));
        std::unique_ptr<IniFile> ini = OpenIni(name);
        EXPECT_EQ(ini->m_pFirst, nullptr);
        EXPECT_EQ(WrittenText(ini.get()), "");
        EXPECT_FALSE(fs::exists(Save("new")));

        ini->SetKey("s", "k", "v");
        WrittenText(ini.get());

        EXPECT_EQ(ReadWholeFile(Save("new/folder/a.ini")), "[s]\nk=v\n");
        EXPECT_EQ(m_console.Take(), "");
    }
}

TEST_F(IniFiles, AreNotWrittenWithoutAChange) {
    WriteWholeFile(Save("a.ini"), "[s]\n k = v ");
    WriteWholeFile(Bundle("shipped.ini"), "[s]\nk=v\n");
    ino_t before = Inode(Save("a.ini"));

    for (const char* name : {"a.ini", "shipped.ini"}) {
        std::unique_ptr<IniFile> ini = OpenIni(name);
        ini->GetKey("s", "k");
        EXPECT_EQ(WrittenText(ini.get()), ReadWholeFile(name[0] == 'a' ? Save(name) : Bundle(name)));
    }

    EXPECT_EQ(Inode(Save("a.ini")), before);
    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"a.ini"});
}

TEST_F(IniFiles, AreWrittenAgainAfterEveryChange) {
    WriteWholeFile(Save("a.ini"), "[s]\nk=1\n");
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    for (const char* value : {"2", "3"}) {
        ini->SetKey("s", "k", value);
        EXPECT_TRUE(ini->m_Changed);
        std::string text = WrittenText(ini.get());
        EXPECT_FALSE(ini->m_Changed);

        EXPECT_EQ(text, "[s]\nk="s + value + "\n");
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), text);
        ino_t written = Inode(Save("a.ini"));
        EXPECT_EQ(WrittenText(ini.get()), text);
        EXPECT_EQ(Inode(Save("a.ini")), written);
    }
    ini->SetKey("t", "x", "1");
    WrittenText(ini.get());
    EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=3\n\n[t]\nx=1\n");
}

TEST_F(IniFiles, KeepTheirZeroBytesAndLeaveTheirLinesOutOfTheText) {
    struct Case {
        const char* name;
        std::string file;
        std::string text;
    };
    const Case cases[] = {
        {"first line", "\0\n[s]\nk=1\n"s, "[s]\nk=1\n"},
        {"middle", "[s]\n;\0 c \0\nl=\0\r\nk=1\n"s, "[s]\nk=1\n"},
        {"last line", "[s]\nk=1\n\0\n"s, "[s]\nk=1\n"},
        {"no line end at the end", "[s]\nk=1\n; c\0"s, "[s]\nk=1\n"},
        {"several in a row", "\0\n\0\0\n[s]\nk=1\n\0\n\0"s, "[s]\nk=1\n"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        WriteWholeFile(Save("a.ini"), each.file);
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");

        EXPECT_EQ(WrittenText(ini.get()), each.text);
        ini->SetKey("s", "k", "2");
        WrittenText(ini.get());

        std::string after = each.file;
        after[after.find('1')] = '2';
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), after);
    }
    WriteWholeFile(Save("a.ini"), "\0"s);
    EXPECT_EQ(WrittenText(OpenIni("a.ini").get()), "");
}

TEST_F(IniFiles, ThatWereGivenUpStayAsTheyAre) {
    WriteWholeFile(Save("a.ini"), "[s]\nk=1\n");
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    ini->SetKey("s", "k", "2");

    ini->Abandon();
    ini->Abandon();

    EXPECT_EQ(ini->m_pFileName, nullptr);
    EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=2\n");
    EXPECT_EQ(ReadWholeFile(Save("a.ini")), "[s]\nk=1\n");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(IniFiles, ReleaseAllTheirMemory) {
    WriteWholeFile(Save("a.ini"), kMark + "; c\nk=1\nk=2\n[s]\nl=\"3\"\njunk\n[t]\nm=4\n[s]\n\0"s);
    MemoryManager::Statistics before = MemoryManager::Stats();
    {
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");
        for (int i = 0; i < 3; ++i) {
            ini->SetKey("s", "l", "new");
            ini->SetKey("s", "new", "new");
            ini->SetKey("new", "new", "new");
            ini->SetKey("", "new", "new");
            WrittenText(ini.get());
            ini->DeleteKey("", "k");
            ini->DeleteKey("", "new");
            ini->DeleteSection(i ? "new" : "t");
            ini->SetKey("t", "again", "new");
            if (i == 1) ini->SetText("[s]\nk=v\n");
        }
        ini->Abandon();
        IniFile text;
        text.SetText("[s]\nk=v\n");
        text.SetText("[s]\nk=v\n");
        OpenIni("missing.ini");
        OpenIni("../refused.ini");
    }

    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks);
    EXPECT_EQ(MemoryManager::Stats().bytes, before.bytes);
}

// --- what fails -----------------------------------------------------------------------------------------------------

TEST_F(IniFiles, ThatCannotBeWrittenStayAsTheyWereAndSayWhy) {
    struct Case {
        const char* call;
        int reason;
    };
    const Case cases[] = {{"write", ENOSPC},  {"write", EIO},     {"write", EDQUOT},
                          {"openat", EACCES}, {"openat", EMFILE}, {"openat", EROFS},
                          {"linkat", EIO},    {"renameat2", EIO}, {"renameat2", ENOSPC}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.call + ": "s + std::strerror(each.reason));
        WriteWholeFile(Save("a.ini"), "[s]\nk=1\n");
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");
        ini->SetKey("s", "k", "2");
        {
            FaultySystemCalls faults;
            faults.FailFrom(each.call, 1, each.reason);
            if (each.call == "openat"s) faults.FailFrom("openat2", 1, each.reason);

            EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=2\n");
        }
        EXPECT_TRUE(ini->m_Changed);
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), "[s]\nk=1\n");
        EXPECT_EQ(m_console.Take(), "Failed to write file: a.ini ("s + std::strerror(each.reason) + ")\n");
        EXPECT_EQ(TakeError(), "");

        WrittenText(ini.get());  // there is room again
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), "[s]\nk=2\n");
        EXPECT_FALSE(ini->m_Changed);
    }
}

TEST_F(IniFiles, AreOldOrNewAfterAFaultAtAnyCallOfAWrite) {
    LoadSave::SetDurability(Durability::full);
    for (bool exists : {true, false}) {
        for (int number = 1;; ++number) {
            SCOPED_TRACE("call " + std::to_string(number));
            std::string old = exists ? "[s]\nk=1\n" : "";
            fs::remove_all(Save("folder"));
            if (exists) WriteWholeFile(Save("folder/a.ini"), old);
            std::unique_ptr<IniFile> ini = OpenIni("folder/a.ini");
            ini->SetKey("s", "k", "2");
            size_t calls = 0;
            {
                FaultySystemCalls faults;
                faults.FailAt(number, ENOSPC, FaultySystemCalls::Extent::once);
                WrittenText(ini.get());
                calls = faults.Calls().size();
            }
            bool isThere = fs::exists(Save("folder/a.ini"));
            EXPECT_EQ(isThere ? ReadWholeFile(Save("folder/a.ini")) : "", ini->m_Changed ? old : "[s]\nk=2\n");
            EXPECT_EQ(ini->m_Changed, !m_console.Take().empty());
            if (calls < static_cast<size_t>(number)) break;
            ASSERT_LT(number, 100);
        }
    }
}

TEST_F(IniFiles, ThatCannotBeReadAreEmptyAndNeverWritten) {
    struct Case {
        const char* call;
        int reason;
    };
    const Case cases[] = {{"openat2", EACCES}, {"openat2", EMFILE}, {"openat2", EIO}, {"openat2", ENOMEM},
                          {"openat2", ENFILE}, {"fstat", EIO},      {"read", EIO},    {"read", ENOMEM}};
    std::string file = "[s]\nk=1\n";
    WriteWholeFile(Save("a.ini"), file);
    WriteWholeFile(Bundle("a.ini"), "[s]\nk=bundle\n");
    for (const Case& each : cases) {
        SCOPED_TRACE(each.call + ": "s + std::strerror(each.reason));
        std::unique_ptr<IniFile> ini;
        {
            FaultySystemCalls faults;
            faults.FailFrom(each.call, 1, each.reason);
            if (each.call == "read"s) faults.FailFrom("pread", 1, each.reason);
            ini = OpenIni("a.ini");
        }
        EXPECT_EQ(ini->m_pFirst, nullptr);
        EXPECT_EQ(m_console.Take(), "Failed to read INI file: a.ini ("s + std::strerror(each.reason) + ")\n");

        ini->SetKey("s", "k", "2");
        EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=2\n");
        EXPECT_EQ(m_console.Take(), "Failed to write file: a.ini (it could not be read, and would be lost)\n");
        ini->SetText("[s]\nk=3\n");
        WrittenText(ini.get());
        EXPECT_NE(m_console.Take(), "");

        EXPECT_TRUE(ini->m_Changed);
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), file);
    }
}

TEST_F(IniFiles, LoseNothingToAFaultAtAnyCallOfAnOpen) {
    std::string file = "; c\n[s]\nk=1\nl=1\n";
    for (int reason : {EIO, EACCES, EMFILE, ENOMEM}) {
        for (int number = 1;; ++number) {
            SCOPED_TRACE("call " + std::to_string(number) + ": " + std::strerror(reason));
            WriteWholeFile(Save("a.ini"), file);
            std::unique_ptr<IniFile> ini;
            size_t calls = 0;
            {
                FaultySystemCalls faults;
                faults.FailAt(number, reason, FaultySystemCalls::Extent::once);
                ini = OpenIni("a.ini");
                calls = faults.Calls().size();
            }
            ini->SetKey("s", "k", "2");
            WrittenText(ini.get());

            std::string now = ReadWholeFile(Save("a.ini"));
            EXPECT_EQ(now, ini->m_Changed ? file : "; c\n[s]\nk=2\nl=1\n");
            EXPECT_EQ(ini->m_Changed, !m_console.Take().empty());
            if (calls < static_cast<size_t>(number)) break;
            ASSERT_LT(number, 100);
        }
    }
}

TEST_F(IniFiles, InAFoldersPlaceAreEmptyAndNeverWritten) {
    fs::create_directories(Save("a.ini"));
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    EXPECT_EQ(m_console.Take(), "Failed to read INI file: a.ini (Is a directory)\n");

    ini->SetKey("s", "k", "v");
    WrittenText(ini.get());

    EXPECT_EQ(m_console.Take(), "Failed to write file: a.ini (it could not be read, and would be lost)\n");
    EXPECT_TRUE(fs::is_directory(Save("a.ini")));
}

TEST_F(IniFiles, UnderANameThatLeavesTheirAreasAreEmptyAndNeverWritten) {
    for (const std::string& name : {"../x.ini"s, "../outside"s, "a/../../outside"s, "..\\outside"s, "/etc/x.ini"s,
                                    Outside().string(), ""s, " "s, "a\nb"s}) {
        SCOPED_TRACE(name);
        std::unique_ptr<IniFile> ini = OpenIni(name);
        EXPECT_EQ(ini->m_pFirst, nullptr);
        EXPECT_NE(m_console.Take(), "");

        ini->SetKey("s", "k", "v");
        EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=v\n");

        EXPECT_NE(m_console.Take(), "");
        EXPECT_TRUE(ini->m_Changed);
        EXPECT_TRUE(NamesIn(Save()).empty());
        EXPECT_EQ(NamesIn(Outside().parent_path()), (std::vector<std::string>{"bundle", "outside", "save"}));
    }
}

TEST_F(IniFiles, BehindALinkThatLeadsOutsideAreEmptyAndNeverWritten) {
    fs::create_symlink(Outside(), Save("link.ini"));
    fs::create_directory_symlink(Outside().parent_path(), Save("up"));
    WriteWholeFile(Bundle("link.ini"), "[shipped]\n");
    for (const char* name : {"link.ini", "up/outside", "up/x.ini"}) {
        SCOPED_TRACE(name);
        std::unique_ptr<IniFile> ini = OpenIni(name);
        EXPECT_EQ(ini->m_pFirst, nullptr);
        EXPECT_NE(m_console.Take(), "");

        ini->SetKey("s", "k", "v");
        EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=v\n");

        EXPECT_NE(m_console.Take(), "");
        EXPECT_TRUE(ini->m_Changed);
        EXPECT_TRUE(fs::is_symlink(Save("link.ini")));
        EXPECT_EQ(NamesIn(Outside().parent_path()), (std::vector<std::string>{"bundle", "outside", "save"}));
    }
}

TEST_F(IniFiles, TellOnceOfANameThatIsRefused) {
    OpenIni("../x.ini");

    std::string told = m_console.Take();
    EXPECT_EQ(told.find("File name refused"), 0u);
    EXPECT_EQ(told.find('\n'), told.size() - 1);
}

}  // namespace
}  // namespace kx::test
