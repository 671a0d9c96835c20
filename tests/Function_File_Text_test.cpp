// Text files: opening, closing and the table of slots.
#include "tests/Function_File_Text_fixture.h"

#include <cmath>

namespace kx::test {
namespace {

constexpr char kMaximum[] = "Cannot open another file (maximum exceeded).";
constexpr char kNotOpened[] = "Trying to close text file that has not been opened.";

const char* const kOpeners[] = {"file_text_open_from_string", "file_text_open_read", "file_text_open_write",
                                "file_text_open_append"};

// --- slots ---------------------------------------------------------------------------------------------------------

TEST_F(TextFiles, TheFirstFileIsNumberOne) {
    for (const char* opener : kOpeners) {
        SCOPED_TRACE(opener);
        WriteWholeFile(Save("name"), "");

        double id = Call(opener, {"name"}).Real();

        EXPECT_EQ(id, 1);
        Call("file_text_close", {id});
    }
}

TEST_F(TextFiles, ThirtyOneFilesAreOpenAtMost) {
    for (int id = 1; id <= 31; ++id) {
        ASSERT_EQ(Call("file_text_open_from_string", {"text"}).Real(), id);
    }
    for (const char* opener : kOpeners) {
        SCOPED_TRACE(opener);

        EXPECT_EQ(Call(opener, {"name"}).Real(), -1);

        EXPECT_EQ(TakeError(), kMaximum);
    }
    EXPECT_TRUE(NamesIn(Save()).empty());  // nothing was created on the way
}

TEST_F(TextFiles, TheLowestFreeNumberIsUsedNext) {
    for (int id = 1; id <= 5; ++id) {
        Call("file_text_open_from_string", {"text"});
    }
    Call("file_text_close", {4});
    Call("file_text_close", {2});

    EXPECT_EQ(Call("file_text_open_from_string", {"text"}).Real(), 2);
    EXPECT_EQ(Call("file_text_open_from_string", {"text"}).Real(), 4);
    EXPECT_EQ(Call("file_text_open_from_string", {"text"}).Real(), 6);
}

TEST_F(TextFiles, OpeningUsesNoMoreDescriptorsHoweverOften) {
    int before = OpenDescriptors();
    WriteWholeFile(Save("in.txt"), "text");
    for (int i = 0; i < 100; ++i) {
        Call("file_text_open_read", {"in.txt"});
        Call("file_text_open_write", {"out" + std::to_string(i) + ".txt"});
    }
    EXPECT_EQ(TakeError(), kMaximum);

    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(TextFiles, AFailedOpenLeavesItsPathInTheSlotUntilTheSlotIsUsedAgain) {
    std::filesystem::create_directory(Save("folder"));

    EXPECT_EQ(Call("file_text_open_write", {"folder"}).Real(), -1);

    EXPECT_EQ(filestatus[1], 0);
    EXPECT_STREQ(textfiles[1].name, Save("folder").c_str());
    EXPECT_EQ(Call("file_text_open_from_string", {"text"}).Real(), 1);
    EXPECT_STREQ(textfiles[1].name, "FileFromString");
}

TEST_F(TextFiles, ASlotKnowsItsFile) {
    WriteWholeFile(Save("in.txt"), "");
    Call("file_text_open_read", {"in.txt"});
    Call("file_text_open_write", {"out.txt"});
    Call("file_text_open_append", {"log.txt"});

    EXPECT_STREQ(textfiles[1].name, Save("in.txt").c_str());
    EXPECT_STREQ(textfiles[2].name, Save("out.txt").c_str());
    EXPECT_STREQ(textfiles[3].name, Save("log.txt").c_str());
    EXPECT_EQ(filestatus[1], 1);
    EXPECT_EQ(filestatus[2], 2);
    EXPECT_EQ(filestatus[3], 2);
    EXPECT_EQ(textfiles[1].mode, 1);
    EXPECT_EQ(textfiles[2].mode, 2);
}

// --- closing -------------------------------------------------------------------------------------------------------

TEST_F(TextFiles, ClosingEmptiesTheSlotAndSetsNoResult) {
    Call("file_text_open_write", {"out.txt"});

    Value result = Call("file_text_close", {1});

    EXPECT_EQ(result.Real(), kUnset);
    EXPECT_EQ(textfiles[1].name, nullptr);
    EXPECT_EQ(textfiles[1].hF, nullptr);
    EXPECT_EQ(filestatus[1], 0);
}

TEST_F(TextFiles, ClosingANumberOutOfRangeIsAnError) {
    const Value numbers[] = {0, 32, -1, 1e9, Value(NAN), Value(-INFINITY), INFINITY, Value(), "no number", 0.9};
    for (const Value& number : numbers) {
        Call("file_text_close", {number});
        EXPECT_EQ(TakeError(), kNotOpened);
    }
}

TEST_F(TextFiles, ClosingTwiceIsSilent) {
    Call("file_text_open_from_string", {"text"});

    Call("file_text_close", {1});
    Call("file_text_close", {1});
    Call("file_text_close", {31});

    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(TextFiles, AFractionOfANumberIsCut) {
    Call("file_text_open_from_string", {"text"});

    Call("file_text_close", {1.9});

    EXPECT_EQ(filestatus[1], 0);
}

TEST_F(TextFiles, OpenAndCloseLeaveNoMemoryBehind) {
    WriteWholeFile(Bundle("shipped.txt"), "shipped");
    long long before = MemoryManager::Stats().blocks;

    for (const char* opener : kOpeners) {
        double id = Call(opener, {"shipped.txt"}).Real();
        Call("file_text_close", {id});
    }

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

// --- open_read -----------------------------------------------------------------------------------------------------

TEST_F(TextFiles, ReadingLooksInTheSaveAreaFirst) {
    WriteWholeFile(Bundle("both.txt"), "bundle");
    WriteWholeFile(Save("both.txt"), "save");

    Call("file_text_open_read", {"both.txt"});

    EXPECT_EQ(Call("file_text_read_string", {1}).Text(), "save");
}

TEST_F(TextFiles, ReadingFallsBackToTheBundle) {
    WriteWholeFile(Bundle("data/shipped.txt"), "bundle");

    Call("file_text_open_read", {"data/shipped.txt"});

    EXPECT_EQ(Call("file_text_read_string", {1}).Text(), "bundle");
    EXPECT_STREQ(textfiles[1].name, Bundle("data/shipped.txt").c_str());
}

TEST_F(TextFiles, ReadingANameThatExistsNowhereFailsWithTheScriptsName) {
    EXPECT_EQ(Call("file_text_open_read", {"missing.txt"}).Real(), -1);

    EXPECT_EQ(m_console.Take(), "ERROR!!! :: Failed to open file: missing.txt\n");
    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(filestatus[1], 0);
}

TEST_F(TextFiles, ReadingFailsWithThePathWhereTheFileIsThereAndCannotBeOpened) {
    WriteWholeFile(Save("there.txt"), "");
    FaultySystemCalls faults;
    faults.FailFrom("openat2", 3, EMFILE);  // the existence test and the resolver come first

    EXPECT_EQ(Call("file_text_open_read", {"there.txt"}).Real(), -1);

    EXPECT_EQ(m_console.Take(), "ERROR!!! :: Failed to open file: " + Save("there.txt").string() + "\n");
    EXPECT_EQ(filestatus[1], 0);
    EXPECT_STREQ(textfiles[1].name, Save("there.txt").c_str());
}

// --- open_write ----------------------------------------------------------------------------------------------------

TEST_F(TextFiles, WritingReplacesTheFileAtTheClose) {
    WriteWholeFile(Save("out.txt"), "old");
    Call("file_text_open_write", {"out.txt"});
    Call("file_text_write_string", {1, "new"});
    EXPECT_EQ(ReadWholeFile(Save("out.txt")), "old");

    Call("file_text_close", {1});

    EXPECT_EQ(ReadWholeFile(Save("out.txt")), "new");
}

TEST_F(TextFiles, WritingMakesMissingDirectories) {
    EXPECT_EQ(Call("file_text_open_write", {"a/b\\c/out.txt"}).Real(), 1);

    EXPECT_TRUE(std::filesystem::is_regular_file(Save("a/b/c/out.txt")));
}

TEST_F(TextFiles, WritingNeverTouchesTheBundle) {
    WriteWholeFile(Bundle("shipped.txt"), "shipped");

    Call("file_text_open_write", {"shipped.txt"});
    Call("file_text_write_string", {1, "mine"});
    Call("file_text_close", {1});

    EXPECT_EQ(ReadWholeFile(Bundle("shipped.txt")), "shipped");
    EXPECT_EQ(ReadWholeFile(Save("shipped.txt")), "mine");
}

TEST_F(TextFiles, AWriteThatFailsAtTheCloseIsAScriptErrorAndKeepsTheOldFile) {
    WriteWholeFile(Save("out.txt"), "old");
    Call("file_text_open_write", {"out.txt"});
    Call("file_text_write_string", {1, "new"});
    FaultySystemCalls faults;
    faults.FailFrom("write", 1, ENOSPC);

    Call("file_text_close", {1});

    EXPECT_EQ(TakeError(), "Failed to write file: " + Save("out.txt").string() + " (No space left on device)");
    EXPECT_EQ(ReadWholeFile(Save("out.txt")), "old");
    EXPECT_EQ(filestatus[1], 0);
}

// --- open_append ---------------------------------------------------------------------------------------------------

TEST_F(TextFiles, AppendingGoesOnAtTheEnd) {
    WriteWholeFile(Save("log.txt"), "one\n");

    Call("file_text_open_append", {"log.txt"});
    Call("file_text_write_string", {1, "two\n"});
    Call("file_text_close", {1});

    EXPECT_EQ(ReadWholeFile(Save("log.txt")), "one\ntwo\n");
}

TEST_F(TextFiles, AppendingMakesAMissingFileAndItsDirectories) {
    Call("file_text_open_append", {"logs/today/log.txt"});
    Call("file_text_write_string", {1, "one"});
    Call("file_text_close", {1});

    EXPECT_EQ(ReadWholeFile(Save("logs/today/log.txt")), "one");
}

TEST_F(TextFiles, AppendingToAShippedFileWorksOnACopy) {
    WriteWholeFile(Bundle("data/log.txt"), "shipped\n");

    Call("file_text_open_append", {"data/log.txt"});
    EXPECT_EQ(ReadWholeFile(Save("data/log.txt")), "shipped\n");  // the copy is there before anything is appended
    Call("file_text_write_string", {1, "mine\n"});
    Call("file_text_close", {1});

    EXPECT_EQ(ReadWholeFile(Save("data/log.txt")), "shipped\nmine\n");
    EXPECT_EQ(ReadWholeFile(Bundle("data/log.txt")), "shipped\n");
}

TEST_F(TextFiles, AppendingPrefersTheCopyThatIsThereAlready) {
    WriteWholeFile(Bundle("log.txt"), "shipped\n");
    WriteWholeFile(Save("log.txt"), "mine\n");

    Call("file_text_open_append", {"log.txt"});
    Call("file_text_write_string", {1, "more\n"});
    Call("file_text_close", {1});

    EXPECT_EQ(ReadWholeFile(Save("log.txt")), "mine\nmore\n");
}

TEST_F(TextFiles, AppendingToAShippedFileThatCannotBeCopiedFails) {
    WriteWholeFile(Bundle("log.txt"), "shipped\n");
    FaultySystemCalls faults;
    faults.FailFrom("write", 1, ENOSPC);

    EXPECT_EQ(Call("file_text_open_append", {"log.txt"}).Real(), -1);

    EXPECT_EQ(m_console.Take(), "ERROR!!! :: Failed to open file: " + Save("log.txt").string() + "\n");
    EXPECT_EQ(TakeError(), "Failed to write file: " + Save("log.txt").string() + " (No space left on device)");
    EXPECT_TRUE(NamesIn(Save()).empty());  // nothing that would hide what is shipped
}

// --- open_from_string ----------------------------------------------------------------------------------------------

TEST_F(TextFiles, ATextIsReadLikeAFile) {
    EXPECT_EQ(Call("file_text_open_from_string", {"one\ntwo"}).Real(), 1);

    EXPECT_EQ(Call("file_text_readln", {1}).Text(), "one\n");
    EXPECT_EQ(Call("file_text_readln", {1}).Text(), "two");
    EXPECT_EQ(Call("file_text_eof", {1}).Real(), 1);
    EXPECT_STREQ(textfiles[1].name, "FileFromString");
    EXPECT_FALSE(textfiles[1].hF->writeBack);
    EXPECT_FALSE(textfiles[1].hF->isText);
    EXPECT_EQ(textfiles[1].hF->pName, nullptr);
    EXPECT_EQ(textfiles[1].hF->pBuff->m_size, 7);
}

TEST_F(TextFiles, AnEmptyTextIsAtItsEnd) {
    Call("file_text_open_from_string", {""});

    EXPECT_EQ(Call("file_text_eof", {1}).Real(), 1);
}

TEST_F(TextFiles, AStringWithNoTextIsAtItsEnd) {
    EXPECT_EQ(Call("file_text_open_from_string", {RValue{{0}, 0, VALUE_STRING}}).Real(), 1);

    EXPECT_EQ(Call("file_text_eof", {1}).Real(), 1);
}

TEST_F(TextFiles, OnlyAStringCanBeReadAsAText) {
    const unsigned int kinds[] = {VALUE_REAL, VALUE_UNDEFINED, VALUE_INT64, VALUE_BOOL, VALUE_STRING | 0x01000000};
    for (unsigned int kind : kinds) {
        SCOPED_TRACE(kind);

        EXPECT_EQ(Call("file_text_open_from_string", {RValue{{0}, 0, kind}}).Real(), -1);

        EXPECT_EQ(m_console.Take(), "ERROR!!! :: wrong type for filename\n");
        EXPECT_EQ(filestatus[1], 0);
    }
}

TEST_F(TextFiles, AWrongTypeStillReleasesTheSlotsOldName) {
    textfiles[1].name = KXStrDup("left by an earlier use");

    Call("file_text_open_from_string", {1});

    EXPECT_EQ(textfiles[1].name, nullptr);
}

// --- names ---------------------------------------------------------------------------------------------------------

TEST_F(TextFiles, NamesThatMeanNoFileAreRefusedByEveryOpener) {
    std::filesystem::create_directory(Save("folder"));
    std::filesystem::create_symlink(Outside(), Save("leads outside"));
    std::filesystem::create_directory_symlink(Outside().parent_path(), Save("folder outside"));
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    bool special = MakeDevice(Save("device")) || ::mknod(Save("device").c_str(), S_IFSOCK | 0600, 0) == 0;
    ASSERT_TRUE(special);
    std::vector<std::string> before = NamesIn(Save());

    const Value names[] = {"..",
                           "a/../../x",
                           Outside().string(),
                           "leads outside",
                           "fifo",
                           "device",
                           "",
                           std::string(5000, 'x'),
                           "folder",
                           "   ",
                           "\xff\xfe.txt",
                           "folder outside/outside",
                           "a\nb.txt",
                           "/etc/passwd",
                           "..\\outside",
                           Value(),
                           "../outside",
                           ".kxtmp-1-1",
                           "device/x"};
    for (const char* opener : {"file_text_open_read", "file_text_open_write", "file_text_open_append"}) {
        for (const Value& name : names) {
            const char* text = KXGetString(&const_cast<Value&>(name).Get(), 0);
            SCOPED_TRACE(std::string(opener) + " " + (text ? text : "undefined"));

            EXPECT_EQ(Call(opener, {name}).Real(), -1);

            EXPECT_NE(m_console.Take().find("ERROR!!! :: Failed to open file: "), std::string::npos);
            EXPECT_EQ(TakeError(), "");
        }
    }
    EXPECT_EQ(NamesIn(Save()), before);
}

TEST_F(TextFiles, ARefusedNameIsReportedWithTheReason) {
    Call("file_text_open_write", {"../outside"});

    EXPECT_EQ(m_console.Take(), "File name refused for the save area: \"../outside\" leaves its folder\n"
                                "ERROR!!! :: Failed to open file: \n");
}

TEST_F(TextFiles, AFullPathInsideAnAreaIsAName) {
    WriteWholeFile(Save("in.txt"), "save");
    WriteWholeFile(Bundle("shipped.txt"), "bundle");

    Call("file_text_open_read", {Save("in.txt").string()});
    Call("file_text_open_read", {Bundle("shipped.txt").string()});

    EXPECT_EQ(Call("file_text_read_string", {1}).Text(), "save");
    EXPECT_EQ(Call("file_text_read_string", {2}).Text(), "bundle");
}

TEST_F(TextFiles, ANumberIsANameToo) {
    Call("file_text_open_write", {7});

    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"7"});
}

}  // namespace
}  // namespace kx::test
