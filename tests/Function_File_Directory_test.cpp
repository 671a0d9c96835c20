// Files and directories by name.
#include "tests/Function_File_fixture.h"
#include "tests/support/Machine.h"
#include "tests/support/MemoryArea.h"
#include "tests/support/OrdinaryUser.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

/// Save and bundle hold a file each of their own and one that both have.
class FilesAndDirectories : public BuiltInsTest {
protected:
    void SetUp() override {
        BuiltInsTest::SetUp();
        WriteWholeFile(Save("saved"), "saved");
        WriteWholeFile(Bundle("shipped"), "shipped");
        WriteWholeFile(Save("both"), "saved version");
        WriteWholeFile(Bundle("both"), "shipped version");
    }

    std::string Contents(const std::string& name) {
        return fs::is_regular_file(Save(name)) ? ReadWholeFile(Save(name)) : "(none)";
    }
};

/// Names that mean nothing in any area, whatever is asked of them.
const Value kNoNames[] = {"",
                          "   ",
                          "..",
                          "../outside",
                          "a/../../outside",
                          "/etc/passwd",
                          "/",
                          "\\x",
                          "..\\outside",
                          "a\nb",
                          "\xff",
                          ".kxtmp-1-1",
                          Value(),
                          "link",
                          "link/outside",
                          "C:/../../x",
                          std::string(3000, 'x')};

/// Links that lead out of the save area.
void MakeLinksOut(const fs::path& save) {
    fs::create_symlink("../outside", save / "link to file");
    fs::create_directory_symlink("..", save / "link");
}

// --- file_exists -----------------------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, AFileExistsInEitherArea) {
    fs::create_directory(Save("folder"));
    fs::create_directory(Bundle("shipped folder"));
    struct Case {
        const char* name;
        double exists;
    };
    for (const Case& each : {Case{"saved", 1},
                             {"shipped", 1},
                             {"both", 1},
                             {"missing", 0},
                             {"folder", 0},
                             {"shipped folder", 0},
                             {"./x/..\\saved", 1},
                             {"SAVED", 0}}) {
        EXPECT_EQ(Call("file_exists", {each.name}).Real(), each.exists) << each.name;
    }
}

// --- file_delete -----------------------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, ASavedFileIsDeletedAndTheShippedOneIsBack) {
    EXPECT_EQ(Call("file_delete", {"both"}).Real(), 1);

    EXPECT_FALSE(fs::exists(Save("both")));
    EXPECT_EQ(Call("file_exists", {"both"}).Real(), 1);
    EXPECT_EQ(Call("file_delete", {"both"}).Real(), 0);
    EXPECT_EQ(ReadWholeFile(Bundle("both")), "shipped version");
}

TEST_F(FilesAndDirectories, WhatIsNotSavedIsNotDeleted) {
    fs::create_directory(Save("folder"));

    for (const char* name : {"shipped", "missing", "folder"}) {
        EXPECT_EQ(Call("file_delete", {name}).Real(), 0) << name;
    }
    EXPECT_TRUE(fs::exists(Bundle("shipped")));
    EXPECT_TRUE(fs::exists(Save("folder")));
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(FilesAndDirectories, AFileThatCannotBeDeletedGivesZero) {
    FaultySystemCalls faults;
    faults.FailFrom("unlinkat", 1, EACCES);

    EXPECT_EQ(Call("file_delete", {"saved"}).Real(), 0);

    EXPECT_EQ(Contents("saved"), "saved");
}

TEST_F(FilesAndDirectories, DeletingAndRenamingHaveRoomForLongerPathsThanTheRest) {
    std::string folder = std::string(200, 'd') + "/" + std::string(200, 'd') + "/" + std::string(200, 'd') + "/" +
                         std::string(200, 'd') + "/";
    std::string name = folder + std::string(150, 'f');
    std::string longer = name + std::string(1023 - name.size(), 'g');
    ASSERT_GT(Save(longer).string().size(), 1024u);
    fs::create_directories(Save(folder));
    Descriptor at(::open(Save(folder).c_str(), O_RDONLY | O_DIRECTORY));
    std::string leaf = longer.substr(folder.size());
    Descriptor file(::openat(at.Get(), leaf.c_str(), O_WRONLY | O_CREAT, 0666));
    ASSERT_TRUE(file);

    EXPECT_EQ(Call("file_copy", {longer, "copy"}).Real(), -1);
    EXPECT_EQ(Call("file_rename", {longer, name}).Real(), 1);
    EXPECT_EQ(Call("file_rename", {name, longer}).Real(), 1);
    EXPECT_EQ(Call("file_delete", {longer}).Real(), 1);

    EXPECT_TRUE(fs::is_empty(Save(folder)));
}

// --- file_rename -----------------------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, ASavedFileGetsAnotherName) {
    fs::create_directory(Save("folder"));

    EXPECT_EQ(Call("file_rename", {"saved", "folder/new"}).Real(), 1);

    EXPECT_EQ(Contents("folder/new"), "saved");
    EXPECT_FALSE(fs::exists(Save("saved")));
}

TEST_F(FilesAndDirectories, ARenameReplacesTheFileThatHasTheName) {
    EXPECT_EQ(Call("file_rename", {"saved", "both"}).Real(), 1);
    EXPECT_EQ(Call("file_rename", {"both", "both"}).Real(), 1);

    EXPECT_EQ(Contents("both"), "saved");
}

TEST_F(FilesAndDirectories, ARenameOfWhatIsNotSavedSetsNoResult) {
    fs::create_directory(Save("folder"));

    for (const char* name : {"shipped", "missing", "folder"}) {
        EXPECT_EQ(Call("file_rename", {name, "new"}).Real(), kUnset) << name;
    }
    EXPECT_FALSE(fs::exists(Save("new")));
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(FilesAndDirectories, ARenameThatCannotBeGivesZeroAndMakesNoDirectories) {
    fs::create_directory(Save("folder"));

    EXPECT_EQ(Call("file_rename", {"saved", "missing/new"}).Real(), 0);
    EXPECT_EQ(Call("file_rename", {"saved", "folder"}).Real(), 0);
    EXPECT_EQ(Call("file_rename", {"saved", "both/new"}).Real(), 0);
    EXPECT_EQ(Call("file_rename", {"saved", "."}).Real(), 0);

    EXPECT_EQ(Contents("saved"), "saved");
    EXPECT_FALSE(fs::exists(Save("missing")));
}

TEST_F(FilesAndDirectories, AFileThatIsOpenForWritingIsNotRenamedOverAGoodOne) {
    double id = Call("file_bin_open", {"fresh", 1}).Real();
    Call("file_bin_write_byte", {id, 65});

    EXPECT_EQ(Call("file_rename", {"fresh", "saved"}).Real(), 0);
    EXPECT_EQ(Contents("saved"), "saved");

    Call("file_bin_close", {id});
    EXPECT_EQ(Call("file_rename", {"fresh", "saved"}).Real(), 1);
    EXPECT_EQ(Contents("saved"), "A");
}

TEST_F(FilesAndDirectories, ARenameToAShippedNameHidesTheShippedFile) {
    EXPECT_EQ(Call("file_rename", {"saved", "shipped"}).Real(), 1);

    EXPECT_EQ(Contents("shipped"), "saved");
    EXPECT_EQ(ReadWholeFile(Bundle("shipped")), "shipped");
}

// --- file_copy -------------------------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, ACopyComesFromTheSaveAreaElseFromTheBundle) {
    EXPECT_EQ(Call("file_copy", {"saved", "a"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"shipped", "b"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"both", "c"}).Real(), 0);

    EXPECT_EQ(Contents("a"), "saved");
    EXPECT_EQ(Contents("b"), "shipped");
    EXPECT_EQ(Contents("c"), "saved version");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(FilesAndDirectories, ACopyMakesTheDirectoriesOfItsDestination) {
    EXPECT_EQ(Call("file_copy", {"shipped", "sub/dir/copy.bin"}).Real(), 0);

    EXPECT_EQ(Contents("sub/dir/copy.bin"), "shipped");
}

TEST_F(FilesAndDirectories, FilesOfEverySizeAreCopiedWhole) {
    for (size_t size : {0u, 1u, 4095u, 4096u, 4097u, 8192u, 131071u, 131072u, 131073u, 1000003u}) {
        std::string contents;
        for (size_t i = 0; i < size; ++i) {
            contents += static_cast<char>(i * 7 % 256);
        }
        WriteWholeFile(Save("from"), contents);

        EXPECT_EQ(Call("file_copy", {"from", "to"}).Real(), 0);

        EXPECT_EQ(Contents("to"), contents) << size;
    }
}

TEST_F(FilesAndDirectories, ACopyOntoItselfLeavesTheFileAsItWas) {
    WriteWholeFile(Save("folder/file"), "contents");
    fs::create_hard_link(Save("folder/file"), Save("same file"));
    fs::create_symlink("folder/file", Save("inside"));

    for (const std::string& other :
         {std::string("folder/file"), std::string("folder\\.\\file"), std::string("x/../folder//file"),
          Save("folder/file").string(), std::string("same file"), std::string("inside")}) {
        bool refused = other == "inside" && !KnowsOpenat2();
        EXPECT_EQ(Call("file_copy", {"folder/file", other}).Real(), refused ? -1 : 0) << other;
        EXPECT_EQ(Contents("folder/file"), "contents") << other;
        EXPECT_EQ(Contents("same file"), "contents") << other;
        EXPECT_EQ(Contents("inside"), "contents") << other;
    }
}

TEST_F(FilesAndDirectories, ACopyOntoAShippedNameNeverChangesTheBundle) {
    EXPECT_EQ(Call("file_copy", {"saved", "shipped"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"saved", Bundle("shipped").string()}).Real(), -1);

    EXPECT_EQ(ReadWholeFile(Bundle("shipped")), "shipped");
    EXPECT_EQ(Contents("shipped"), "saved");
}

TEST_F(FilesAndDirectories, AMissingSourceIsReportedAndTheDirectoriesAreMadeAllTheSame) {
    EXPECT_EQ(Call("file_copy", {"missing", "made/all the same/x"}).Real(), -1);

    EXPECT_EQ(m_console.Take(), "Unable to open source file missing\n");
    EXPECT_TRUE(fs::is_directory(Save("made/all the same")));
    EXPECT_FALSE(fs::exists(Save("made/all the same/x")));
}

TEST_F(FilesAndDirectories, ADestinationThatCannotBeMadeIsReportedByTheScriptsName) {
    fs::create_directory(Save("folder"));
    int before = OpenDescriptors();

    EXPECT_EQ(Call("file_copy", {"saved", "./folder"}).Real(), -1);
    EXPECT_EQ(m_console.Take(), "Unable to open destination file ./folder\n");
    EXPECT_EQ(Call("file_copy", {"saved", "both/x"}).Real(), -1);
    EXPECT_EQ(m_console.Take(), "Unable to open destination file both/x\n");

    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(TakeError(), "");
}

TEST_F(FilesAndDirectories, WhatIsNoFileIsNeitherCopiedNorCopiedOnto) {
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mknod(Save("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    bool device = MakeDevice(Save("device"));

    for (const char* name : {"fifo", "socket", "device"}) {
        if (!device && name == std::string("device")) continue;
        EXPECT_EQ(Call("file_exists", {name}).Real(), 0) << name;
        EXPECT_EQ(Call("file_copy", {name, "copy"}).Real(), -1) << name;
        EXPECT_EQ(Call("file_copy", {"saved", name}).Real(), -1) << name;
        EXPECT_EQ(Call("file_delete", {name}).Real(), 0) << name;
        EXPECT_EQ(Call("file_rename", {name, "renamed"}).Real(), kUnset) << name;
        EXPECT_FALSE(fs::is_regular_file(Save(name))) << name;
    }
    EXPECT_FALSE(fs::exists(Save("copy")));
}

TEST_F(FilesAndDirectories, AShippedFileThatOnlyTheHostCanReadIsCopiedToo) {
    MemoryBundle bundle(Files{{"packed.txt", "packed"}, {"data/empty", ""}, {"data/big", std::string(100000, 'b')}});
    fs::create_directory(Save("folder"));
    long long blocks = MemoryManager::Stats().blocks;

    EXPECT_EQ(Call("file_copy", {"packed.txt", "sub/copy.txt"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"data/empty", "empty"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"data\\big", "big"}).Real(), 0);
    EXPECT_EQ(m_console.Take(), "");
    EXPECT_EQ(Call("file_copy", {"packed.txt", "folder"}).Real(), -1);
    EXPECT_EQ(m_console.Take(), "Unable to open destination file folder\n");
    EXPECT_EQ(Call("file_copy", {"data", "x"}).Real(), -1);
    EXPECT_EQ(m_console.Take(), "Unable to open source file data\n");

    EXPECT_EQ(Contents("sub/copy.txt"), "packed");
    EXPECT_EQ(Contents("empty"), "");
    EXPECT_EQ(Contents("big"), std::string(100000, 'b'));
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

TEST_F(FilesAndDirectories, AWriteThatFallsShortGivesZeroButTheOldFileStaysAndTheConsoleSaysWhy) {
    WriteWholeFile(Save("big"), std::string(300000, 'n'));
    FaultySystemCalls faults;
    faults.FailFrom("write", 2, ENOSPC);

    EXPECT_EQ(Call("file_copy", {"big", "both"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"big", "fresh"}).Real(), 0);

    EXPECT_EQ(Contents("both"), "saved version");
    EXPECT_FALSE(fs::exists(Save("fresh")));
    std::string why = std::string(" (") + std::strerror(ENOSPC) + ")\n";
    EXPECT_EQ(m_console.Take(), "Failed to write file: " + Save("both").string() + why +
                                    "Failed to write file: " + Save("fresh").string() + why);
    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(NamesIn(Save()), (std::vector<std::string>{"big", "both", "saved"}));
}

TEST_F(FilesAndDirectories, ASourceThatCannotBeReadToItsEndLeavesTheOldFile) {
    WriteWholeFile(Save("big"), std::string(300000, 'n'));
    FaultySystemCalls faults;
    faults.FailFrom("read", 2, EIO);

    EXPECT_EQ(Call("file_copy", {"big", "both"}).Real(), -1);

    EXPECT_EQ(Contents("both"), "saved version");
    EXPECT_EQ(m_console.Take(), "Failed to read file: " + Save("big").string() + " (" + std::strerror(EIO) + ")\n");
}

// --- directories -----------------------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, ADirectoryExistsInTheSaveAreaElseInTheBundle) {
    fs::create_directory(Save("saved folder"));
    fs::create_directories(Bundle("shipped folder/below"));
    struct Case {
        const char* name;
        double exists;
    };
    for (const Case& each : {Case{"saved folder", 1},
                             {"shipped folder", 1},
                             {"shipped folder\\below/", 1},
                             {".", 1},
                             {"saved", 0},
                             {"shipped", 0},
                             {"missing", 0}}) {
        EXPECT_EQ(Call("directory_exists", {each.name}).Real(), each.exists) << each.name;
    }
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(FilesAndDirectories, ADirectoryInsideABundleThatIsNoFolderExistsToo) {
    MemoryBundle bundle(Files{{"data/file", "x"}});

    EXPECT_EQ(Call("directory_exists", {"data"}).Real(), 1);
    EXPECT_EQ(Call("directory_exists", {"data/file"}).Real(), 0);
    EXPECT_EQ(Call("directory_exists", {"missing"}).Real(), 0);
}

TEST_F(FilesAndDirectories, DirectoriesAreMadeInTheSaveArea) {
    fs::create_directory(Bundle("shipped folder"));
    struct Case {
        const char* name;
        double made;
    };
    for (const Case& each :
         {Case{"a", 1}, {"b/c\\d", 1}, {"a", 1}, {"shipped folder/x", 1}, {"saved", 0}, {"saved/x", 0}}) {
        EXPECT_EQ(Call("directory_create", {each.name}).Real(), each.made) << each.name;
    }
    EXPECT_EQ(Call("directory_create", {std::string(255, 'n')}).Real(), 1);
    EXPECT_EQ(Call("directory_create", {std::string(256, 'n')}).Real(), 0);
    EXPECT_TRUE(fs::is_directory(Save("b/c/d")));
    EXPECT_TRUE(fs::is_directory(Save("shipped folder/x")));
    EXPECT_TRUE(fs::is_empty(Bundle("shipped folder")));
}

TEST_F(FilesAndDirectories, ADestroyedDirectoryGoesWithItsContents) {
    WriteWholeFile(Save("tree/a/b"), "x");
    fs::create_directory_symlink("../..", Save("tree/up"));
    fs::create_symlink("../../outside", Save("tree/a/file"));

    EXPECT_EQ(Call("directory_destroy", {"tree"}).Real(), kUnset);

    EXPECT_FALSE(fs::exists(Save("tree")));
    EXPECT_TRUE(fs::exists(Save("saved")));
}

TEST_F(FilesAndDirectories, OnlySavedDirectoriesAreDestroyedAndNeverTheRoot) {
    WriteWholeFile(Bundle("shipped folder/x"), "x");
    std::vector<std::string> before = NamesIn(Save());

    for (const Value& name : {Value("shipped folder"), Value("saved"), Value("missing"), Value("."), Value("./"),
                              Value("a/.."), Value(Save().string()), Value(Bundle().string())}) {
        EXPECT_EQ(Call("directory_destroy", {name}).Real(), kUnset);
    }

    EXPECT_EQ(NamesIn(Save()), before);
    EXPECT_TRUE(fs::exists(Bundle("shipped folder/x")));
    EXPECT_EQ(TakeError(), "");
}

TEST_F(FilesAndDirectories, DestroyingWhatIsNotSavedSaysNothing) {
    WriteWholeFile(Bundle("shipped folder/x"), "x");

    for (const char* name : {"missing", "missing/x", "saved", "saved/x", "shipped folder"}) {
        Call("directory_destroy", {name});
        EXPECT_EQ(m_console.Take(), "") << name;
    }
}

// --- file_attributes -------------------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, AttributesAreBitsOfTheSavedElseOfTheShippedFile) {
    WriteWholeFile(Save(".hidden"), "x");
    WriteWholeFile(Save("folder/.hidden"), "x");
    WriteWholeFile(Bundle(".shipped"), "x");
    WriteWholeFile(Save("locked"), "x");
    fs::permissions(Save("locked"), fs::perms(0444));
    fs::permissions(Bundle("both"), fs::perms(0444));
    struct Case {
        const char* name;
        double bits;
    };
    for (const Case& each : {Case{"saved", 32},
                             {"shipped", 32},
                             {"both", 32},
                             {".hidden", 34},
                             {"folder/.hidden", 34},
                             {".shipped", 34},
                             {"locked", 33},
                             {"folder", 0},
                             {"missing", 0}}) {
        EXPECT_EQ(Call("file_attributes", {each.name, 0}).Real(), each.bits) << each.name;
    }
}

TEST_F(FilesAndDirectories, AttributesReadOnlyTheirFirstArgument) {
    EXPECT_EQ(Call("file_attributes", {"saved", "anything"}).Real(), 32);
    EXPECT_EQ(Call("file_attributes", {"saved", Value()}).Real(), 32);
}

// --- names that mean nothing -----------------------------------------------------------------------------------------

TEST_F(FilesAndDirectories, NamesThatLeaveTheAreasAreRefusedByEveryBuiltIn) {
    MakeLinksOut(Save());
    WriteWholeFile(Save().parent_path() / "folder/file", "outside too");
    fs::create_directory_symlink("../folder", Save("link to folder"));
    std::vector<std::string> top = NamesIn(Save().parent_path());
    std::vector<std::string> save = NamesIn(Save());
    std::vector<Value> names(std::begin(kNoNames), std::end(kNoNames));
    for (const std::string& name :
         {std::string("link to file"), std::string("link/bundle/shipped"), std::string("link to folder"),
          std::string("link to folder/file"), Outside().string(), Save("../outside").string()}) {
        names.emplace_back(name);
    }

    for (const Value& name : names) {
        SCOPED_TRACE(Value(name).Kind() == VALUE_STRING ? Value(name).Text().substr(0, 40) : "no text");
        EXPECT_EQ(Call("file_exists", {name}).Real(), 0);
        EXPECT_EQ(Call("file_delete", {name}).Real(), 0);
        EXPECT_EQ(Call("file_rename", {name, "new"}).Real(), kUnset);
        EXPECT_EQ(Call("file_rename", {"saved", name}).Real(), 0);
        EXPECT_EQ(Call("file_copy", {name, "new"}).Real(), -1);
        EXPECT_EQ(Call("file_copy", {"saved", name}).Real(), -1);
        EXPECT_EQ(Call("directory_exists", {name}).Real(), 0);
        EXPECT_EQ(Call("directory_create", {name}).Real(), 0);
        EXPECT_EQ(Call("directory_destroy", {name}).Real(), kUnset);
        EXPECT_EQ(Call("file_attributes", {name, 0}).Real(), 0);
        EXPECT_EQ(Call("file_find_first", {name, 18}).Text(), "");
        EXPECT_EQ(Call("file_bin_open", {name, 0}).Real(), -1);
        EXPECT_EQ(Call("file_bin_open", {name, 1}).Real(), -1);
        EXPECT_EQ(Call("file_bin_open", {name, 2}).Real(), -1);
    }

    EXPECT_EQ(NamesIn(Save().parent_path()), top);
    EXPECT_EQ(NamesIn(Save()), save);
    EXPECT_EQ(ReadWholeFile(Save().parent_path() / "folder/file"), "outside too");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(FilesAndDirectories, DirectoriesBehindALinkAreNeitherMadeNorListedNorDestroyed) {
    MakeLinksOut(Save());

    EXPECT_EQ(Call("directory_create", {"link/made"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"saved", "link/made/x"}).Real(), -1);
    EXPECT_EQ(Call("file_find_first", {"link/*", 18}).Text(), "");
    Call("directory_destroy", {"link/bundle"});

    EXPECT_FALSE(fs::exists(Save().parent_path() / "made"));
    EXPECT_TRUE(fs::exists(Bundle("shipped")));
}

TEST_F(FilesAndDirectories, WhatTheUserMayNotUseIsAnOrdinaryFailure) {
    WriteWholeFile(Save("locked/file"), "x");
    WriteWholeFile(Save("tree/locked/file"), "x");
    WriteWholeFile(Save("tree/free"), "x");
    WriteWholeFile(Save("fixed/file"), "x");
    OrdinaryUser user(Save().parent_path());
    fs::permissions(Save("locked"), fs::perms::none);
    fs::permissions(Save("tree/locked"), fs::perms::none);
    fs::permissions(Save("fixed"), fs::perms(0555));

    for (const char* name : {"locked/file", "locked/new"}) {
        EXPECT_EQ(Call("file_exists", {name}).Real(), 0) << name;
        EXPECT_EQ(Call("file_delete", {name}).Real(), 0) << name;
        EXPECT_EQ(Call("file_copy", {name, "copy"}).Real(), -1) << name;
        EXPECT_EQ(Call("file_copy", {"saved", name}).Real(), -1) << name;
        EXPECT_EQ(Call("file_rename", {"saved", name}).Real(), 0) << name;
        EXPECT_EQ(Call("file_attributes", {name, 0}).Real(), 0) << name;
        EXPECT_EQ(Call("directory_create", {name}).Real(), 0) << name;
        EXPECT_EQ(Call("file_bin_open", {name, 0}).Real(), -1) << name;
        EXPECT_EQ(Call("file_bin_open", {name, 1}).Real(), -1) << name;
    }
    EXPECT_EQ(Call("file_find_first", {"locked/*", 0}).Text(), "");
    EXPECT_EQ(Call("file_delete", {"fixed/file"}).Real(), 0);
    EXPECT_EQ(Call("file_rename", {"fixed/file", "moved"}).Real(), 0);
    EXPECT_EQ(Call("file_copy", {"saved", "fixed/file"}).Real(), -1);
    EXPECT_EQ(Call("file_copy", {"fixed/file", "copy"}).Real(), 0);
    m_console.Take();
    Call("directory_destroy", {"tree"});
    EXPECT_EQ(m_console.Take(), "Failed to remove directory: " + Save("tree").string() + " (Permission denied)\n");

    for (const char* name : {"locked", "tree/locked", "fixed"}) {
        fs::permissions(Save(name), fs::perms(0755));
    }
    for (const char* name : {"locked/file", "tree/locked/file", "fixed/file"}) {
        EXPECT_EQ(ReadWholeFile(Save(name)), "x") << name;
    }
    EXPECT_FALSE(fs::exists(Save("tree/free")));
}

TEST_F(FilesAndDirectories, AShippedFileStandsInForNoSavedFileThatCannotBeOpened) {
    WriteWholeFile(Save("backup"), "good");
    OrdinaryUser user(Save().parent_path());
    fs::permissions(Save("both"), fs::perms::none);

    EXPECT_EQ(Call("file_copy", {"both", "backup"}).Real(), -1);

    EXPECT_EQ(m_console.Take(), "Unable to open source file both\n");
    EXPECT_EQ(Contents("backup"), "good");
}

}  // namespace
}  // namespace kx::test
