// Archives and CSV: the two built-ins.
#include "tests/Function_File_fixture.h"
#include "tests/support/ZipBuilder.h"

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class ArchiveBuiltIns : public BuiltInsTest {
protected:
    void TearDown() override {
        for (int i = 1; i < thegrids.length; ++i) {
            FreeDsGrid(i);
        }
        BuiltInsTest::TearDown();
    }

    double Unzip(const Value& archive, const Value& folder) { return Call("zip_unzip", {archive, folder}).Real(); }

    static std::string Cell(double grid) {
        RValueOwner cell;
        EXPECT_TRUE(thegrids.arr[static_cast<int>(grid)]->Get(0, 0, &cell.value));
        return cell.value.kind == VALUE_STRING && cell.value.str ? cell.value.str->m_thing : "";
    }
};

// --- zip_unzip -------------------------------------------------------------------------------------------------------

TEST_F(ArchiveBuiltIns, AnArchiveIsUnpackedIntoTheSaveArea) {
    WriteWholeFile(Save("saved.zip"), Build({{"a.txt", "first"}, {"folder/b.txt", "second"}, {"empty/", ""}}));

    EXPECT_EQ(Unzip("saved.zip", "mods/one"), 2);

    EXPECT_EQ(ReadWholeFile(Save("mods/one/a.txt")), "first");
    EXPECT_EQ(ReadWholeFile(Save("mods/one/folder/b.txt")), "second");
    EXPECT_TRUE(fs::is_directory(Save("mods/one/empty")));
    EXPECT_EQ(m_console.Take(), "");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(ArchiveBuiltIns, AnArchiveOfTheSaveAreaComesBeforeOneOfTheBundle) {
    WriteWholeFile(Save("both.zip"), Build({{"name", "saved"}}));
    WriteWholeFile(Bundle("both.zip"), Build({{"name", "shipped"}}));
    WriteWholeFile(Bundle("shipped.zip"), Build({{"name", "shipped"}}));

    EXPECT_EQ(Unzip("both.zip", "a"), 1);
    EXPECT_EQ(Unzip("shipped.zip", "b"), 1);
    EXPECT_EQ(Unzip(Save("both.zip").string(), "c"), 1);
    EXPECT_EQ(Unzip(Bundle("both.zip").string(), "d"), 1);

    EXPECT_EQ(ReadWholeFile(Save("a/name")), "saved");
    EXPECT_EQ(ReadWholeFile(Save("b/name")), "shipped");
    EXPECT_EQ(ReadWholeFile(Save("c/name")), "saved");
    EXPECT_EQ(ReadWholeFile(Save("d/name")), "shipped");
}

TEST_F(ArchiveBuiltIns, TheDestinationIsAlwaysInTheSaveArea) {
    fs::create_directory(Bundle("data"));
    WriteWholeFile(Bundle("shipped.zip"), Build({{"name", "new"}}));

    EXPECT_EQ(Unzip("shipped.zip", "data"), 1);
    EXPECT_EQ(Unzip("shipped.zip", Save("full").string()), 1);

    EXPECT_EQ(ReadWholeFile(Save("data/name")), "new");
    EXPECT_EQ(ReadWholeFile(Save("full/name")), "new");
    for (const std::string& folder :
         {Bundle("data").string(), Save().parent_path().string(), std::string("../elsewhere"), std::string("/tmp")}) {
        EXPECT_EQ(Unzip("shipped.zip", folder), -1) << folder;
        EXPECT_NE(m_console.Take(), "") << folder;
    }
    EXPECT_TRUE(NamesIn(Bundle("data")).empty());
    EXPECT_EQ(NamesIn(Save()), (std::vector<std::string>{"data", "full"}));
}

TEST_F(ArchiveBuiltIns, AMissingArchiveFailsAndLeavesAModeBehind) {
    WriteWholeFile(Save("file"), "x");
    Call("file_bin_close", {Call("file_bin_open", {"file", 0})});
    ASSERT_STREQ(FileMode, "rb");

    EXPECT_EQ(Unzip("missing.zip", "mods"), -1);

    EXPECT_STREQ(FileMode, "ab+");
    EXPECT_NE(m_console.Take(), "");
    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"file"});
}

TEST_F(ArchiveBuiltIns, ABrokenArchiveFailsAndIsNamed) {
    WriteWholeFile(Save("broken.zip"), "no archive");
    WriteWholeFile(Save("bad.zip"), Build({{"a.txt", "x"}, {"../b.txt", "x"}}));

    EXPECT_EQ(Unzip("broken.zip", "mods"), -1);
    EXPECT_EQ(m_console.Take(), "Failed to unzip: " + Save("broken.zip").string() + " (is no zip archive)\n");
    EXPECT_EQ(Unzip("bad.zip", "mods"), -1);
    EXPECT_EQ(m_console.Take(),
              "Failed to unzip: " + Save("bad.zip").string() + " (entry \"../b.txt\" leaves its folder)\n");

    EXPECT_EQ(TakeError(), "");
    EXPECT_FALSE(fs::exists(Save("mods")));
}

// --- load_csv --------------------------------------------------------------------------------------------------------

TEST_F(ArchiveBuiltIns, ATableOfTheSaveAreaComesBeforeOneOfTheBundle) {
    WriteWholeFile(Save("both.csv"), "saved,1\n");
    WriteWholeFile(Bundle("both.csv"), "shipped,2\n");
    WriteWholeFile(Bundle("shipped.csv"), "shipped,2\n");

    double both = Call("load_csv", {"both.csv"}).Real();
    double shipped = Call("load_csv", {"shipped.csv"}).Real();

    ASSERT_GE(both, 1);
    ASSERT_GE(shipped, 1);
    EXPECT_NE(both, shipped);
    EXPECT_EQ(Cell(both), "saved");
    EXPECT_EQ(Cell(shipped), "shipped");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(ArchiveBuiltIns, ATableThatCannotBeLoadedIsNoScriptError) {
    WriteWholeFile(Save("open.csv"), "a\n\"b");

    EXPECT_EQ(Call("load_csv", {"missing.csv"}).Real(), -1);
    EXPECT_EQ(m_console.Take(), "Failed to load CSV file: missing.csv (No such file or directory)\n");
    EXPECT_EQ(Call("load_csv", {"open.csv"}).Real(), -1);
    EXPECT_EQ(m_console.Take(), "Failed to load CSV file: open.csv (the quotes of line 2 are never closed)\n");
    EXPECT_EQ(Call("load_csv", {""}).Real(), -1);
    EXPECT_EQ(TakeError(), "");
}

TEST_F(ArchiveBuiltIns, WhatIsNoNameIsAScriptError) {
    WriteWholeFile(Save("5"), "a");
    RValue noObject{};
    noObject.kind = VALUE_PTR;
    for (const Value& argument : {Value(5), Value(), Value(noObject)}) {
        EXPECT_EQ(Call("load_csv", {argument}).Real(), -1) << argument.Kind();
        EXPECT_EQ(TakeError(), "load_csv - parameter should be a filename") << argument.Kind();
    }
}

}  // namespace
}  // namespace kx::test
