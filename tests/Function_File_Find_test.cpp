// File search: the list, and what finds its way into it.
#include "tests/Function_File_fixture.h"
#include "tests/support/CommaLocale.h"
#include "tests/support/Machine.h"
#include "tests/support/MemoryArea.h"

#include <climits>
#include <cmath>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using Names = std::vector<std::string>;

constexpr int kHidden = 2;
constexpr int kDirectory = 16;

class FileSearch : public BuiltInsTest {
protected:
    /// A whole search: the names in the order in which a script gets them.
    Names Find(const std::string& mask, const Value& attributes = 0) {
        Names names;
        for (std::string name = Call("file_find_first", {mask, attributes}).Text(); !name.empty();
             name = Call("file_find_next").Text()) {
            names.push_back(name);
        }
        Call("file_find_close");
        return names;
    }

    void MakeFiles(std::initializer_list<const char*> names) {
        for (const char* name : names) {
            WriteWholeFile(Save(name), "x");
        }
    }
};

bool IsNoText(Value value) {
    return value.Kind() == VALUE_STRING && value.Get().str == nullptr;
}

// --- the list --------------------------------------------------------------------------------------------------------

TEST(FindData, BeginsEmpty) {
    kxFindData data;

    EXPECT_EQ(data.m_nCurrentIndex, 0);
    EXPECT_EQ(data.m_numFiles, 0);
    EXPECT_EQ(data.m_files, nullptr);
}

TEST(FindData, TakesEachNameOnceAndNeverTheDots) {
    kxFindData data;
    for (const char* name : {"b", ".", "a", "..", "b", "B", "...", "", "a", ".x"}) {
        data.AddFile(name);
    }

    ASSERT_EQ(data.m_numFiles, 6);
    const char* const expected[] = {"b", "a", "B", "...", "", ".x"};
    for (int i = 0; i < data.m_numFiles; ++i) {
        EXPECT_STREQ(data.m_files[i], expected[i]);
    }
    EXPECT_EQ(data.m_nCurrentIndex, 0);
    data.Reset();
}

TEST(FindData, IsEmptyAfterAReset) {
    kxFindData data;
    data.AddFile("a");
    data.AddFile("b");
    data.m_nCurrentIndex = 7;

    data.Reset();
    data.Reset();

    EXPECT_EQ(data.m_nCurrentIndex, 0);
    EXPECT_EQ(data.m_numFiles, 0);
    EXPECT_EQ(data.m_files, nullptr);
}

TEST(FindData, KeepsItsNamesOutsideTheHostsMemory) {
    long long before = MemoryManager::Stats().blocks;
    kxFindData data;
    data.AddFile("a");

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
    data.Reset();
}

// --- first, next, close ----------------------------------------------------------------------------------------------

TEST_F(FileSearch, WalksTheNamesThatTheMaskLetsThrough) {
    MakeFiles({"b.txt", "a.txt", "c.dat", "folder/d.txt"});

    EXPECT_EQ(Call("file_find_first", {"*.txt", 0}).Text(), "a.txt");
    EXPECT_TRUE(filesrused);
    EXPECT_EQ(Call("file_find_next").Text(), "b.txt");
    EXPECT_TRUE(IsNoText(Call("file_find_next")));
    EXPECT_TRUE(IsNoText(Call("file_find_next")));
    EXPECT_EQ(g_kxFindData.m_nCurrentIndex, 3);  // it goes on growing

    EXPECT_EQ(Call("file_find_close").Real(), kUnset);
    EXPECT_FALSE(filesrused);
    EXPECT_EQ(g_kxFindData.m_files, nullptr);
}

TEST_F(FileSearch, HoweverOftenTheNextNameIsAskedForThereIsNone) {
    MakeFiles({"a"});
    Call("file_find_first", {"*", 0});
    g_kxFindData.m_nCurrentIndex = INT_MAX - 1;

    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(IsNoText(Call("file_find_next")));
    }
}

TEST_F(FileSearch, WithoutASearchThereIsNoNextName) {
    EXPECT_TRUE(IsNoText(Call("file_find_next")));
    EXPECT_EQ(g_kxFindData.m_nCurrentIndex, 0);

    EXPECT_TRUE(IsNoText(Call("file_find_first", {"nothing*", 0})));
    EXPECT_FALSE(filesrused);
    EXPECT_TRUE(IsNoText(Call("file_find_next")));
    EXPECT_EQ(g_kxFindData.m_nCurrentIndex, 0);
}

TEST_F(FileSearch, ClosingTwiceIsHarmless) {
    MakeFiles({"a"});
    Call("file_find_close");
    Call("file_find_first", {"*", 0});

    Call("file_find_close");
    Call("file_find_close");

    EXPECT_TRUE(IsNoText(Call("file_find_next")));
    EXPECT_EQ(TakeError(), "");
}

TEST_F(FileSearch, ANewSearchForgetsTheOldOne) {
    MakeFiles({"a1", "a2", "b1"});
    Call("file_find_first", {"a*", 0});

    EXPECT_EQ(Call("file_find_first", {"b*", 0}).Text(), "b1");
    EXPECT_TRUE(IsNoText(Call("file_find_next")));

    EXPECT_TRUE(IsNoText(Call("file_find_first", {"c*", 0})));
    EXPECT_FALSE(filesrused);
    EXPECT_EQ(g_kxFindData.m_numFiles, 0);
}

TEST_F(FileSearch, FilesMayBeDeletedWhileTheyAreWalked) {
    MakeFiles({"a", "b", "c"});
    Names deleted;
    for (std::string name = Call("file_find_first", {"*", 0}).Text(); !name.empty();
         name = Call("file_find_next").Text()) {
        EXPECT_EQ(Call("file_delete", {name}).Real(), 1);
        deleted.push_back(name);
    }

    EXPECT_EQ(deleted, (Names{"a", "b", "c"}));
    EXPECT_TRUE(fs::is_empty(Save()));
}

TEST_F(FileSearch, AFileThatIsGoneByTheTimeItIsUsedIsAnOrdinaryFailure) {
    MakeFiles({"gone", "other"});
    std::string name = Call("file_find_first", {"*", 0}).Text();
    fs::remove(Save(name));

    EXPECT_EQ(Call("file_copy", {name, "copy"}).Real(), -1);
    EXPECT_EQ(Call("file_bin_open", {name, 0}).Real(), -1);
    EXPECT_EQ(Call("file_delete", {name}).Real(), 0);
    EXPECT_EQ(Call("file_attributes", {name, 0}).Real(), 0);
    EXPECT_EQ(Call("file_find_next").Text(), "other");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(FileSearch, AMaskThatIsNoTextFindsNothing) {
    MakeFiles({"a"});

    EXPECT_TRUE(IsNoText(Call("file_find_first", {Value(), 0})));
    EXPECT_EQ(Call("file_find_first", {"*", Value()}).Text(), "a");
}

// --- areas and order -------------------------------------------------------------------------------------------------

TEST_F(FileSearch, ListsTheSaveAreaThenTheBundleEachSortedByBytes) {
    MakeFiles({"b", "Z", "\xC3\xA4", "both"});
    for (const char* name : {"c", "A", "both"}) {
        WriteWholeFile(Bundle(name), "x");
    }

    EXPECT_EQ(Find("*"), (Names{"Z", "b", "both", "\xC3\xA4", "A", "c"}));
}

TEST_F(FileSearch, ListsADirectoryOfEitherAreaWithoutItsPath) {
    MakeFiles({"data/saved"});
    WriteWholeFile(Bundle("data/shipped"), "x");

    for (const char* mask : {"data/*", "data\\*", "./data//*", "x/../data/*"}) {
        EXPECT_EQ(Find(mask), (Names{"saved", "shipped"})) << mask;
    }
    EXPECT_EQ(Find(Save("data/*").string()), Names{"saved"});
    EXPECT_EQ(Find(Bundle("data/*").string()), Names{"shipped"});
}

TEST_F(FileSearch, ListsABundleThatIsNoFolder) {
    MemoryBundle bundle(Files{{"b.txt", ""}, {"a.txt", ""}, {"data/c.txt", ""}});

    EXPECT_EQ(Find("*"), (Names{"a.txt", "b.txt"}));
    EXPECT_EQ(Find("*", kDirectory), (Names{"a.txt", "b.txt", "data"}));
    EXPECT_EQ(Find("data/*.txt"), Names{"c.txt"});
}

// --- attributes ------------------------------------------------------------------------------------------------------

TEST_F(FileSearch, ListsHiddenFilesAndDirectoriesWhenAskedTo) {
    MakeFiles({"file", ".hidden", "folder/x", ".hidden folder/x"});

    struct Case {
        Value attributes;
        Names names;
    };
    for (const Case& each : {Case{0, {"file"}},
                             {kHidden, {".hidden", "file"}},
                             {kDirectory, {"file", "folder"}},
                             {kHidden | kDirectory, {".hidden", ".hidden folder", "file", "folder"}},
                             {1 | 4 | 32, {"file"}},
                             {2.9, {".hidden", "file"}},
                             {"2", {".hidden", "file"}},
                             {-1, {".hidden", ".hidden folder", "file", "folder"}},
                             {1e300, {".hidden", ".hidden folder", "file", "folder"}},
                             {Value(NAN), {"file"}}}) {
        EXPECT_EQ(Find("*", each.attributes), each.names);
    }
}

TEST_F(FileSearch, ListsOnlyFilesAndDirectories) {
    MakeFiles({"file", "folder/x"});
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mknod(Save("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    fs::create_symlink("file", Save("link to file"));
    fs::create_directory_symlink("folder", Save("link to folder"));
    fs::create_symlink("../outside", Save("link outside"));
    fs::create_symlink("missing", Save("link to nothing"));
    WriteWholeFile(Save(std::string(kTemporaryPrefix) + "1-1"), "x");

    bool links = KnowsOpenat2();
    EXPECT_EQ(Find("*", kHidden), (links ? Names{"file", "link to file"} : Names{"file"}));
    EXPECT_EQ(Find("*", kHidden | kDirectory),
              (links ? Names{"file", "folder", "link to file", "link to folder"} : Names{"file", "folder"}));
}

TEST_F(FileSearch, ALinkInAFolderIsWhatItLeadsTo) {
    MakeFiles({"file", "folder/x", "other/y"});
    fs::create_symlink("../file", Save("folder/link to file"));
    fs::create_directory_symlink("../other", Save("folder/link to folder"));
    fs::create_symlink("file", Save("folder/link to nothing"));

    bool links = KnowsOpenat2();
    EXPECT_EQ(Find("folder/*", 0), (links ? Names{"link to file", "x"} : Names{"x"}));
    EXPECT_EQ(Find("folder/*", kDirectory), (links ? Names{"link to file", "link to folder", "x"} : Names{"x"}));
}

// --- masks -----------------------------------------------------------------------------------------------------------

TEST_F(FileSearch, MasksArePatternsOnTheLastComponent) {
    MakeFiles({"a", "a.txt", "ab.txt", "a[1].txt", "\xC3\xA4.txt", "x.y.txt", "A.TXT", "-", "folder/in.txt"});
    struct Case {
        const char* mask;
        Names names;
    };
    const Case cases[] = {
        {"a", {"a"}},
        {"a.txt", {"a.txt"}},
        {"?", {"-", "a"}},
        {"?.txt", {"a.txt", "\xC3\xA4.txt"}},
        {"?b.txt", {"ab.txt"}},
        {"a*", {"a", "a.txt", "a[1].txt", "ab.txt"}},
        {"*.txt", {"a.txt", "a[1].txt", "ab.txt", "x.y.txt", "\xC3\xA4.txt"}},
        {"*.*", {"-", "A.TXT", "a", "a.txt", "a[1].txt", "ab.txt", "x.y.txt", "\xC3\xA4.txt"}},
        {"[ax].*", {"a.txt", "x.y.txt"}},
        {"[!a].txt", {"\xC3\xA4.txt"}},
        {"[b-z].*.txt", {"x.y.txt"}},
        {"[\xC3\xA0-\xC3\xBC].txt", {"\xC3\xA4.txt"}},
        {"a[[]1].txt", {"a[1].txt"}},
        {"a[1].txt", {}},
        {"[a", {}},
        {"*/in.txt", {}},
        {"*.TXT", {"A.TXT"}},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(Find(each.mask), each.names) << each.mask;
    }
}

TEST_F(FileSearch, MasksMeanTheSameInEveryLocale) {
    MakeFiles({"\xC3\xA4.txt", "B.txt", "a.txt"});
    auto expectTheSame = [this] {
        EXPECT_EQ(Find("?.txt"), (Names{"B.txt", "a.txt", "\xC3\xA4.txt"}));
        EXPECT_EQ(Find("[a-z].txt"), Names{"a.txt"});
    };
    expectTheSame();
    CommaLocale comma;
    expectTheSame();
}

TEST_F(FileSearch, AMaskOfManyStarsIsAnsweredAtOnce) {
    std::string name(255, 'a');
    MakeFiles({name.c_str()});
    std::string stars(900, '*');
    std::string pairs;
    for (int i = 0; i < 450; ++i) {
        pairs += "*a";
    }
    std::string brackets;
    for (int i = 0; i < 225; ++i) {
        brackets += "*[a]";
    }

    EXPECT_EQ(Find(stars), Names{name});
    EXPECT_EQ(Find(stars + "b"), Names{});
    EXPECT_EQ(Find(pairs), Names{});
    EXPECT_EQ(Find(pairs.substr(0, 500) + "b"), Names{});
    EXPECT_EQ(Find(brackets), Names{name});
    EXPECT_EQ(Find(brackets + "b"), Names{});
    EXPECT_EQ(Find(std::string(2000, '*')), Names{});  // longer than a path may be
}

TEST_F(FileSearch, NamesOfAnyBytesAreListedAndRefusedWhereTheyCannotBeNames) {
    MakeFiles({"line\nbreak", "\xff\xfe", "fine"});
    std::string longest(255, 'n');
    WriteWholeFile(Save(longest), "x");

    EXPECT_EQ(Find("*"), (Names{"fine", "line\nbreak", longest, "\xff\xfe"}));

    for (const char* name : {"line\nbreak", "\xff\xfe"}) {
        EXPECT_EQ(Call("file_exists", {name}).Real(), 0);
        EXPECT_EQ(Call("file_copy", {name, "copy"}).Real(), -1);
        EXPECT_EQ(Call("file_delete", {name}).Real(), 0);
    }
    EXPECT_EQ(Call("file_copy", {longest, "copy"}).Real(), 0);
}

// --- what cannot be listed -------------------------------------------------------------------------------------------

TEST_F(FileSearch, ADirectoryThatCannotBeListedIsEmptyAndTheConsoleSaysWhy) {
    MakeFiles({"a", "file"});
    FaultySystemCalls faults;
    faults.FailFrom("readdir", 1, EIO);

    EXPECT_EQ(Find("*"), Names{});

    std::string console = m_console.Take();
    EXPECT_NE(console.find("Failed to list files: " + Save("*").string() + " (Input/output error)\n"),
              std::string::npos)
        << console;
}

TEST_F(FileSearch, AMissingDirectoryIsEmptyWithoutAWord) {
    MakeFiles({"file"});

    EXPECT_EQ(Find("missing/*"), Names{});
    EXPECT_EQ(Find("file/*"), Names{});
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(FileSearch, LeavesNoMemoryAndNoDescriptorBehind) {
    MakeFiles({"a", "b"});
    int descriptors = OpenDescriptors();
    long long blocks = MemoryManager::Stats().blocks;

    for (int i = 0; i < 10; ++i) {
        Find("*");
    }

    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

}  // namespace
}  // namespace kx::test
