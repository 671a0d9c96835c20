// INI documents that change: what goes where, and what stays.
#include "tests/IniFile_fixture.h"

#include <cstring>

namespace kx::test {
namespace {

using namespace std::string_literals;

class ChangedIniFiles : public IniFilesTest {};

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

// --- changing -------------------------------------------------------------------------------------------------------

TEST_F(ChangedIniFiles, ChangeNothingButTheValueInTheLineOfAKey) {
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

TEST_F(ChangedIniFiles, PutANewKeyBehindTheLastOneOfItsSectionAndLayItOutAlike) {
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

TEST_F(ChangedIniFiles, PutANewSectionAtTheEndBehindABlankLine) {
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

TEST_F(ChangedIniFiles, PutANewKeyWithoutASectionFirst) {
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

TEST_F(ChangedIniFiles, KeepTheOrderInWhichKeysAndSectionsCome) {
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

TEST_F(ChangedIniFiles, KeepACarriageReturnAtTheVeryEndInItsValue) {
    EXPECT_EQ(Changed("a=1\r", Setting("", "k", "v")), "a=1\r\r\nk=v\n");
    EXPECT_EQ(Reading("a=1\r\r\nk=v\n"), (IniContents{{"", {{"a", "1\r"}, {"k", "v"}}}}));
    EXPECT_EQ(Changed("a=1\r", Setting("s", "k", "v")), "a=1\r\r\n\n[s]\nk=v\n");
}

TEST_F(ChangedIniFiles, WriteAwkwardNamesSoThatTheyReadBack) {
    std::string after = Changed("[s]\n  a = 1\n", [](IniFile* ini) {
        ini->SetKey("s", "a=b", "1");
        ini->SetKey("s", "[c]", "2");
        ini->SetKey("a]\n;b", "", " 3");
    });

    EXPECT_EQ(after, "[s]\n  a = 1\n  @text@a%3Db$text$ = 1\n  @text@[c%5D$text$ = 2\n"
                     "\n[@text@a%5D%0A;b$text$]\n   = \" 3\"\n");
    EXPECT_EQ(Reading(after), (IniContents{{"s", {{"a", "1"}, {"a=b", "1"}, {"[c]", "2"}}}, {"a]\n;b", {{"", " 3"}}}}));
}

TEST_F(ChangedIniFiles, TakeNothingUnderANullName) {
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

TEST_F(ChangedIniFiles, TakeNullForAnEmptyValue) {
    EXPECT_EQ(Changed("[s]\nk=1\n",
                      [](IniFile* ini) {
                          ini->SetKey("s", "k", nullptr);
                          ini->SetKey("s", "l", nullptr);
                          EXPECT_STREQ(ini->GetKey("s", "k")->m_pValue, "");
                      }),
              "[s]\nk=\nl=\n");
}

TEST_F(ChangedIniFiles, MayBeGivenTheirOwnTexts) {
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

TEST_F(ChangedIniFiles, KeepAKeyWhereItIsWhileItsValueChanges) {
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

TEST_F(ChangedIniFiles, LayNewKeysOutInTimeHoweverOddTheLinesBeforeThemAre) {
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

// --- deleting -------------------------------------------------------------------------------------------------------

TEST_F(ChangedIniFiles, LoseTheLinesOfWhatIsDeletedAndNoOthers) {
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

TEST_F(ChangedIniFiles, DoNotChangeWhereThereIsNothingToDelete) {
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

TEST_F(ChangedIniFiles, KeepASectionWithoutKeysAsLongAsItHasAHeader) {
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

TEST_F(ChangedIniFiles, TakeBackWhatWasDeleted) {
    EXPECT_EQ(Changed("[s]\nk=1\na=1\n[t]\nx=1\n",
                      [](IniFile* ini) {
                          ini->DeleteKey("s", "k");
                          ini->SetKey("s", "k", "2");
                          ini->DeleteSection("t");
                          ini->SetKey("t", "x", "2");
                      }),
              "[s]\na=1\nk=2\n[t]\nx=2\n");
}

TEST_F(ChangedIniFiles, LeaveNothingOfANewSectionThatIsDeleted) {
    EXPECT_EQ(Changed("[a]\nx=1\n",
                      [](IniFile* ini) {
                          ini->SetKey("s", "k", "1");
                          ini->SetKey("", "k", "1");
                          ini->DeleteSection("s");
                          ini->DeleteKey("", "k");
                      }),
              "[a]\nx=1\n");
}

TEST_F(ChangedIniFiles, HaveASectionThatIsMadeAgainWhereItWas) {
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

}  // namespace
}  // namespace kx::test
