// INI documents and their files: where they are read from and written to, and what fails.
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

class StoredIniFiles : public IniFilesTest {
protected:
    /// A document under a name that leads outside: it says so when it is opened and when it is written.
    void ExpectEmptyAndNeverWritten(const std::string& name) {
        std::unique_ptr<IniFile> ini = OpenIni(name);
        EXPECT_EQ(ini->m_pFirst, nullptr);
        EXPECT_NE(m_console.Take(), "");

        ini->SetKey("s", "k", "v");
        EXPECT_EQ(WrittenText(ini.get()), "[s]\nk=v\n");

        EXPECT_NE(m_console.Take(), "");
        EXPECT_TRUE(ini->m_Changed);
        EXPECT_EQ(NamesIn(Outside().parent_path()), (std::vector<std::string>{"bundle", "outside", "save"}));
    }

    static ino_t Inode(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_ino;
    }
};

// --- files ----------------------------------------------------------------------------------------------------------

TEST_F(StoredIniFiles, AreReadFromTheSaveAreaThenFromTheBundle) {
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

TEST_F(StoredIniFiles, KeepWhatWasChangedBeforeThroughAFullPathInTheBundle) {
    WriteWholeFile(Bundle("a.ini"), "[s]\nk=shipped\nl=shipped\n");
    for (const char* key : {"k", "l"}) {
        std::unique_ptr<IniFile> ini = OpenIni(Bundle("a.ini"));
        ini->SetKey("s", key, "mine");
        WrittenText(ini.get());
    }
    EXPECT_EQ(ReadWholeFile(Save("a.ini")), "[s]\nk=mine\nl=mine\n");
}

TEST_F(StoredIniFiles, AreWrittenToTheSaveArea) {
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

TEST_F(StoredIniFiles, ThatAreMissingAreMadeWithTheirFoldersOnceTheyHoldSomething) {
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

TEST_F(StoredIniFiles, AreMadeBelowAFolderWhoseNameTheBundleHasForAFile) {
    WriteWholeFile(Bundle("player"), "shipped");

    std::unique_ptr<IniFile> ini = OpenIni("player/a.ini");
    ini->SetKey("s", "k", "v");
    WrittenText(ini.get());

    EXPECT_EQ(ReadWholeFile(Save("player/a.ini")), "[s]\nk=v\n");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(StoredIniFiles, AreNotWrittenWithoutAChange) {
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

TEST_F(StoredIniFiles, AreWrittenAgainAfterEveryChange) {
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

TEST_F(StoredIniFiles, KeepTheirZeroBytesAndLeaveTheirLinesOutOfTheText) {
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

TEST_F(StoredIniFiles, ThatWereGivenUpStayAsTheyAre) {
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

TEST_F(StoredIniFiles, ReleaseAllTheirMemory) {
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

TEST_F(StoredIniFiles, ThatCannotBeWrittenStayAsTheyWereAndSayWhy) {
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

TEST_F(StoredIniFiles, AreOldOrNewAfterAFaultAtAnyCallOfAWrite) {
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

TEST_F(StoredIniFiles, ThatCannotBeReadAreEmptyAndNeverWritten) {
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

TEST_F(StoredIniFiles, LoseNothingToAFaultAtAnyCallOfAnOpen) {
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

TEST_F(StoredIniFiles, InAFoldersPlaceAreEmptyAndNeverWritten) {
    fs::create_directories(Save("a.ini"));
    std::unique_ptr<IniFile> ini = OpenIni("a.ini");
    EXPECT_EQ(m_console.Take(), "Failed to read INI file: a.ini (Is a directory)\n");

    ini->SetKey("s", "k", "v");
    WrittenText(ini.get());

    EXPECT_EQ(m_console.Take(), "Failed to write file: a.ini (it could not be read, and would be lost)\n");
    EXPECT_TRUE(fs::is_directory(Save("a.ini")));
}

TEST_F(StoredIniFiles, UnderANameThatLeavesTheirAreasAreEmptyAndNeverWritten) {
    for (const std::string& name : {"../x.ini"s, "../outside"s, "a/../../outside"s, "..\\outside"s, "/etc/x.ini"s,
                                    Outside().string(), ""s, " "s, "a\nb"s}) {
        SCOPED_TRACE(name);
        ExpectEmptyAndNeverWritten(name);
        EXPECT_TRUE(NamesIn(Save()).empty());
    }
}

TEST_F(StoredIniFiles, BehindALinkThatLeadsOutsideAreEmptyAndNeverWritten) {
    fs::create_symlink(Outside(), Save("link.ini"));
    fs::create_directory_symlink(Outside().parent_path(), Save("up"));
    WriteWholeFile(Bundle("link.ini"), "[shipped]\n");
    for (const char* name : {"link.ini", "up/outside", "up/x.ini"}) {
        SCOPED_TRACE(name);
        ExpectEmptyAndNeverWritten(name);
        EXPECT_TRUE(fs::is_symlink(Save("link.ini")));
    }
}

TEST_F(StoredIniFiles, TellOnceOfANameThatIsRefused) {
    OpenIni("../x.ini");

    std::string told = m_console.Take();
    EXPECT_EQ(told.find("File name refused"), 0u);
    EXPECT_EQ(told.find('\n'), told.size() - 1);
}

}  // namespace
}  // namespace kx::test
