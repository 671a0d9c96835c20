// Binary files: slots, modes, and byte by byte reading and writing.
#include "tests/Function_File_fixture.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

constexpr char kNotOpened[] = "File is not opened.";
constexpr char kErrorReading[] = "Error reading byte.";

class BinaryFiles : public BuiltInsTest {
protected:
    double Open(const std::string& name, int mode) { return Call("file_bin_open", {name, mode}).Real(); }
    double Read(double id) { return Call("file_bin_read_byte", {id}).Real(); }
    void Write(double id, const std::string& bytes) {
        for (char byte : bytes) {
            Call("file_bin_write_byte", {id, static_cast<unsigned char>(byte)});
        }
    }
    void Seek(double id, double position) { Call("file_bin_seek", {id, position}); }
    double Position(double id) { return Call("file_bin_position", {id}).Real(); }
    double Size(double id) { return Call("file_bin_size", {id}).Real(); }
    void Close(double id) { Call("file_bin_close", {id}); }
};

/// What is no number of an open file, whatever is open.
std::vector<Value> NoIds() {
    return {0, 32, 33, -1, 1e9, -1e9, Value(NAN), Value(INFINITY), Value(-INFINITY), Value(), "no number", 0.9, 31};
}

// --- slots -----------------------------------------------------------------------------------------------------------

TEST_F(BinaryFiles, TheFirstFileIsNumberOneAndSoIsTheNextAfterItsClose) {
    EXPECT_EQ(Open("a", 1), 1);
    Close(1);
    EXPECT_EQ(Open("b", 1), 1);
    EXPECT_EQ(Open("c", 1), 2);
    EXPECT_EQ(Open("d", 1), 3);
    Close(2);
    EXPECT_EQ(Open("e", 1), 2);
}

TEST_F(BinaryFiles, ThirtyOneFilesAreOpenAtMost) {
    for (int id = 1; id <= 31; ++id) {
        ASSERT_EQ(Open("file" + std::to_string(id), 1), id);
    }

    EXPECT_EQ(Open("one more", 1), -1);

    EXPECT_EQ(m_console.Take(), "Error opening binary file one more\n");
    EXPECT_EQ(TakeError(), "");
    EXPECT_FALSE(fs::exists(Save("one more")));
    Close(31);
    EXPECT_EQ(Open("one more", 1), 31);
}

TEST_F(BinaryFiles, ASlotKnowsItsFileAndTheModeThatItWasAskedFor) {
    WriteWholeFile(Bundle("shipped"), "x");
    Open("shipped", 0);
    Open("new", 1);
    Open("other", 5);
    Open("negative", -3);

    EXPECT_STREQ(binfiles[1].name, Bundle("shipped").c_str());
    EXPECT_STREQ(binfiles[2].name, Save("new").c_str());
    EXPECT_EQ(binfiles[1].mode, 0);
    EXPECT_EQ(binfiles[2].mode, 1);
    EXPECT_EQ(binfiles[3].mode, 5);
    EXPECT_EQ(binfiles[4].mode, -3);
    EXPECT_TRUE(bfilestatus[1]);
    EXPECT_FALSE(bfilestatus[0]);
}

TEST_F(BinaryFiles, TheHostIsAskedForTheModeThatBelongsToTheNumber) {
    WriteWholeFile(Save("file"), "x");
    struct Case {
        Value mode;
        const char* text;
    };
    for (const Case& each :
         {Case{0, "rb"}, {1, "wb"}, {2, "rw"}, {5, "rw"}, {-1, "rw"}, {0.9, "rb"}, {"1", "wb"}, {Value(), "rb"}}) {
        double id = Call("file_bin_open", {"file", each.mode}).Real();
        EXPECT_STREQ(FileMode, each.text);
        Close(id);
    }
}

TEST_F(BinaryFiles, AFailedOpenLeavesItsPathInTheSlotUntilTheSlotIsUsedAgain) {
    long long blocks = MemoryManager::Stats().blocks;

    EXPECT_EQ(Open("missing", 0), -1);

    EXPECT_STREQ(binfiles[1].name, Save("missing").c_str());
    EXPECT_EQ(binfiles[1].hF, nullptr);
    EXPECT_FALSE(bfilestatus[1]);
    EXPECT_EQ(Open("new", 1), 1);
    EXPECT_STREQ(binfiles[1].name, Save("new").c_str());
    Close(1);
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

TEST_F(BinaryFiles, AHandleThatAnEarlierUseLeftIsClosedWhereItsModeIsKnown) {
    for (int mode : {0, 1, 2}) {
        Open("stale", 1);
        Write(1, "written");
        bfilestatus[1] = false;
        binfiles[1].mode = mode;

        EXPECT_EQ(Open("new", 1), 1);

        EXPECT_EQ(ReadWholeFile(Save("stale")), "written");
        EXPECT_STREQ(binfiles[1].name, Save("new").c_str());
        Close(1);
        fs::remove(Save("stale"));
    }
}

TEST_F(BinaryFiles, AHandleOfAnotherModeIsForgottenAndNotClosed) {
    Open("stale", 1);
    Write(1, "written");
    HKXFILE stale = binfiles[1].hF;
    bfilestatus[1] = false;
    binfiles[1].mode = 5;

    EXPECT_EQ(Open("new", 1), 1);

    EXPECT_EQ(ReadWholeFile(Save("stale")), "");
    EXPECT_EQ(LoadSave::fclose(stale), 0);
    EXPECT_EQ(ReadWholeFile(Save("stale")), "written");
}

TEST_F(BinaryFiles, OpenAndCloseLeaveNothingBehind) {
    WriteWholeFile(Bundle("shipped"), "x");
    int descriptors = OpenDescriptors();
    long long blocks = MemoryManager::Stats().blocks;

    for (int mode : {0, 1, 2, 7}) {
        Close(Open("shipped", mode));
    }

    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
}

// --- opening ---------------------------------------------------------------------------------------------------------

TEST_F(BinaryFiles, AFileIsLookedForInTheSaveAreaThenInTheBundle) {
    WriteWholeFile(Bundle("shipped"), "s");
    WriteWholeFile(Bundle("both"), "b");
    WriteWholeFile(Save("both"), "B");

    EXPECT_EQ(Read(Open("shipped", 0)), 's');
    EXPECT_EQ(Read(Open("both", 0)), 'B');
}

TEST_F(BinaryFiles, AFileThatIsNowhereCannotBeRead) {
    EXPECT_EQ(Open("folder/missing", 0), -1);

    EXPECT_EQ(m_console.Take(), "Error opening binary file folder/missing\n");  // the script's name, not the path
    EXPECT_TRUE(NamesIn(Save()).empty());
    EXPECT_EQ(TakeError(), "");
}

TEST_F(BinaryFiles, EveryModeButReadingMakesTheDirectoriesAbove) {
    for (int mode : {1, 2, 5}) {
        std::string folder = "mode" + std::to_string(mode) + "/a/b";
        EXPECT_NE(Open(folder + "/file", mode), -1);
        EXPECT_TRUE(fs::is_regular_file(Save(folder + "/file")));
    }
    EXPECT_EQ(Open("mode0/a/file", 0), -1);
    EXPECT_FALSE(fs::exists(Save("mode0")));
}

TEST_F(BinaryFiles, WritingAShippedFileMakesASavedOne) {
    WriteWholeFile(Bundle("data/shipped"), "shipped");
    double id = Open("data/shipped", 2);

    EXPECT_EQ(Size(id), 7);
    Write(id, "SH");
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("data/shipped")), "SHipped");
    EXPECT_EQ(ReadWholeFile(Bundle("data/shipped")), "shipped");
    id = Open("data/shipped", 1);
    Write(id, "new");
    Close(id);
    EXPECT_EQ(ReadWholeFile(Save("data/shipped")), "new");
    EXPECT_EQ(ReadWholeFile(Bundle("data/shipped")), "shipped");
}

TEST_F(BinaryFiles, AShippedFileThatIsRewrittenIsNeverChanged) {
    WriteWholeFile(Bundle("shipped"), "shipped");
    double id = Open("shipped", 0);

    Call("file_bin_rewrite", {id});
    Write(id, "new");
    Close(id);

    EXPECT_EQ(ReadWholeFile(Bundle("shipped")), "shipped");
    EXPECT_EQ(ReadWholeFile(Save("shipped")), "new");
}

TEST_F(BinaryFiles, WhatIsNoFileCannotBeOpened) {
    fs::create_directory(Save("folder"));
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    for (const char* name : {"folder", "fifo", "../outside", "", "."}) {
        for (int mode : {0, 1, 2, 5}) {
            EXPECT_EQ(Open(name, mode), -1) << name;
            EXPECT_NE(m_console.Take().find("Error opening binary file " + std::string(name) + "\n"),
                      std::string::npos);
        }
    }
    EXPECT_EQ(Call("file_bin_open", {Value(), 1}).Real(), -1);
}

TEST_F(BinaryFiles, AFileBeyondWhatAPositionCanSayIsRefusedWithTheReason) {
    WriteWholeFile(Save("huge"), "");
    ASSERT_EQ(::truncate(Save("huge").c_str(), 5LL << 30), 0);

    for (int mode : {0, 2}) {
        EXPECT_EQ(Open("huge", mode), -1);
        EXPECT_EQ(m_console.Take(), "File too large to open: " + Save("huge").string() +
                                        " (5368709120 bytes, at most 2147483646)\n"
                                        "Error opening binary file huge\n");
    }
}

// --- reading and writing ---------------------------------------------------------------------------------------------

TEST_F(BinaryFiles, EveryByteIsReadBackAsItWasWritten) {
    double id = Open("all", 1);
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(Call("file_bin_write_byte", {id, byte}).Real(), kUnset);
    }
    Close(id);

    id = Open("all", 0);
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(Read(id), byte);
    }
    EXPECT_EQ(TakeError(), "");
}

TEST_F(BinaryFiles, BytesAreReducedModulo256) {
    struct Case {
        Value value;
        int byte;
    };
    const Case cases[] = {{256, 0},     {-1, 255},      {300, 44},       {255.9, 255}, {-256, 0},
                          {1e12, 255},  {-1e12, 0},     {Value(NAN), 0}, {"65", 65},   {"no number", 0},
                          {Value(), 0}, {INT_MAX, 255}, {INT_MIN, 0}};
    double id = Open("file", 1);
    for (const Case& each : cases) {
        Call("file_bin_write_byte", {id, each.value});
    }
    Close(id);

    std::string written = ReadWholeFile(Save("file"));
    ASSERT_EQ(written.size(), std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(static_cast<unsigned char>(written[i]), cases[i].byte) << i;
    }
}

TEST_F(BinaryFiles, ReadingAtTheEndIsAnErrorAndZero) {
    WriteWholeFile(Save("file"), "a");
    double id = Open("file", 0);
    EXPECT_EQ(Read(id), 'a');

    EXPECT_EQ(Read(id), 0);

    EXPECT_EQ(TakeError(), kErrorReading);
    EXPECT_EQ(Position(id), 1);
    Seek(id, 0);
    EXPECT_EQ(Read(id), 'a');
    EXPECT_EQ(TakeError(), "");
}

TEST_F(BinaryFiles, AFileThatIsOpenForWritingOnlyCannotBeRead) {
    double id = Open("file", 1);
    Write(id, "abc");
    Seek(id, 0);

    EXPECT_EQ(Read(id), 0);

    EXPECT_EQ(TakeError(), kErrorReading);
    EXPECT_EQ(Position(id), 0);
}

TEST_F(BinaryFiles, AFileThatIsOpenForReadingIsNotWrittenAndNothingIsSaid) {
    WriteWholeFile(Save("file"), "abc");
    double id = Open("file", 0);

    Write(id, "X");
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("file")), "abc");
    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(BinaryFiles, AModeThatIsUnknownOpensTheFileAndNeitherReadsNorWrites) {
    WriteWholeFile(Save("file"), "abc");
    double id = Open("file", 5);
    EXPECT_EQ(id, 1);

    EXPECT_EQ(Read(id), 0);
    EXPECT_EQ(TakeError(), kErrorReading);
    EXPECT_EQ(Position(id), 0);
    Write(id, "X");
    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(Size(id), 3);
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("file")), "abc");
}

TEST_F(BinaryFiles, ReadingAndWritingShareOnePosition) {
    WriteWholeFile(Save("file"), "abcdef");
    double id = Open("file", 2);

    EXPECT_EQ(Read(id), 'a');
    Write(id, "BC");
    EXPECT_EQ(Read(id), 'd');
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("file")), "aBCdef");
}

TEST_F(BinaryFiles, WritingAnewCutsTheFileAndReadingAndWritingKeepsIt) {
    WriteWholeFile(Save("file"), "abcdef");
    Close(Open("file", 2));
    EXPECT_EQ(ReadWholeFile(Save("file")), "abcdef");

    double id = Open("file", 1);
    EXPECT_EQ(Size(id), 0);
    Write(id, "x");
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("file")), "x");
}

// --- position and size -----------------------------------------------------------------------------------------------

TEST_F(BinaryFiles, TheSizeLeavesThePositionWhereItWas) {
    WriteWholeFile(Save("file"), "abcdef");
    for (int mode : {0, 2, 5}) {
        double id = Open("file", mode);
        Seek(id, 4);

        EXPECT_EQ(Size(id), 6);

        EXPECT_EQ(Position(id), 4);
        Close(id);
    }
    double id = Open("new", 1);
    EXPECT_EQ(Size(id), 0);
    Write(id, "abc");
    EXPECT_EQ(Size(id), 3);
    EXPECT_EQ(Position(id), 3);
}

TEST_F(BinaryFiles, ASeekGoesToAPositionAndStaysWhereThereIsNone) {
    WriteWholeFile(Save("file"), "abcdef");
    struct Case {
        Value position;
        double reached;
    };
    double id = Open("file", 2);
    for (const Case& each : {Case{0, 0},
                             {3, 3},
                             {6, 6},
                             {100, 100},
                             {-1, 100},
                             {-1e12, 100},
                             {2.9, 2},
                             {"4", 4},
                             {1e12, INT_MAX},
                             {Value(NAN), 0},
                             {Value(), 0},
                             {INT_MAX, INT_MAX}}) {
        EXPECT_EQ(Call("file_bin_seek", {id, each.position}).Real(), kUnset);
        EXPECT_EQ(Position(id), each.reached);
    }
    EXPECT_EQ(TakeError(), "");
}

TEST_F(BinaryFiles, NothingIsReadBeyondTheEndAndAWriteThereFillsTheGapWithZeros) {
    WriteWholeFile(Save("file"), "abc");
    double id = Open("file", 2);
    Seek(id, 5);
    EXPECT_EQ(Read(id), 0);
    EXPECT_EQ(TakeError(), kErrorReading);
    EXPECT_EQ(Size(id), 3);

    Write(id, "X");
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("file")), std::string("abc\0\0X", 6));
}

TEST_F(BinaryFiles, AMereSeekAllocatesNothing) {
    double id = Open("file", 2);
    long long bytes = MemoryManager::Stats().bytes;

    for (double position : {1e6, 1e9, 2147483647.0}) {
        Seek(id, position);
        Size(id);
        Read(id);
    }

    EXPECT_EQ(MemoryManager::Stats().bytes, bytes);
    Close(id);
    EXPECT_EQ(ReadWholeFile(Save("file")), "");
}

TEST_F(BinaryFiles, AWriteBeyondWhatAPositionCanSayIsAnErrorAndChangesNothing) {
    WriteWholeFile(Save("file"), "abc");
    double id = Open("file", 2);
    Seek(id, INT_MAX);

    Write(id, "X");

    EXPECT_EQ(TakeError(), "Failed to write file: " + Save("file").string() + " (File too large)");
    EXPECT_EQ(Size(id), 3);
    Close(id);
    EXPECT_EQ(ReadWholeFile(Save("file")), "abc");
}

// --- rewriting -------------------------------------------------------------------------------------------------------

TEST_F(BinaryFiles, ARewriteStartsTheFileAnewForWriting) {
    WriteWholeFile(Save("file"), "old contents");
    for (int mode : {0, 2, 5}) {
        double id = Open("file", mode);
        Seek(id, 3);

        EXPECT_EQ(Call("file_bin_rewrite", {id}).Real(), kUnset);

        EXPECT_EQ(binfiles[1].mode, 1);
        EXPECT_TRUE(bfilestatus[1]);
        EXPECT_EQ(Size(id), 0);
        EXPECT_EQ(Position(id), 0);
        Write(id, "new");
        EXPECT_EQ(Read(id), 0);
        EXPECT_EQ(TakeError(), kErrorReading);
        Close(id);
        EXPECT_EQ(ReadWholeFile(Save("file")), "new");
    }
}

TEST_F(BinaryFiles, ARewriteNeverWritesWhatItThrowsAway) {
    WriteWholeFile(Save("file"), "good");
    double id = Open("file", 1);
    Write(id, "half");

    Call("file_bin_rewrite", {id});

    EXPECT_EQ(ReadWholeFile(Save("file")), "good");
    LoadSave::DiscardUnfinished();  // the script fails
    Close(id);
    EXPECT_EQ(ReadWholeFile(Save("file")), "good");
}

TEST_F(BinaryFiles, ARewriteWithoutAWriteAfterItLeavesAnEmptyFile) {
    WriteWholeFile(Save("file"), "old");
    double id = Open("file", 2);
    Write(id, "N");

    Call("file_bin_rewrite", {id});
    Close(id);

    EXPECT_EQ(ReadWholeFile(Save("file")), "");
    id = Open("fresh", 1);
    Write(id, "x");
    Call("file_bin_rewrite", {id});
    Close(id);
    EXPECT_EQ(ReadWholeFile(Save("fresh")), "");
}

TEST_F(BinaryFiles, ASlotWithoutANameOrAHandleCannotBeRead) {
    WriteWholeFile(Save("file"), "abc");
    double id = Open("file", 0);

    String name = std::exchange(binfiles[1].name, nullptr);
    EXPECT_EQ(Read(id), 0);
    EXPECT_EQ(TakeError(), kErrorReading);
    binfiles[1].name = name;
    HKXFILE handle = std::exchange(binfiles[1].hF, nullptr);
    EXPECT_EQ(Read(id), 0);
    EXPECT_EQ(TakeError(), kErrorReading);
    binfiles[1].hF = handle;

    EXPECT_EQ(Read(id), 'a');
}

TEST_F(BinaryFiles, ARewriteThatCannotOpenTheFileAgainIsAnErrorAndTheSlotStaysOpen) {
    double id = Open("folder/file", 1);
    Write(id, "first");
    Close(id);
    id = Open("folder/file", 0);
    fs::remove_all(Save("folder"));
    fs::create_directories(Save("folder/file"));

    Call("file_bin_rewrite", {id});

    EXPECT_EQ(TakeError(), "Error opening binary file " + Save("folder/file").string());
    EXPECT_TRUE(bfilestatus[1]);
    EXPECT_EQ(binfiles[1].mode, 1);
    Write(id, "X");
    EXPECT_EQ(Read(id), 0);
    EXPECT_EQ(TakeError(), kErrorReading);
    EXPECT_EQ(Position(id), -1);
    EXPECT_EQ(Size(id), -1);
    Seek(id, 5);
    Close(id);
    EXPECT_FALSE(bfilestatus[1]);
}

// --- numbers that stand for no open file -----------------------------------------------------------------------------

TEST_F(BinaryFiles, ANumberThatIsNotOpenIsAnErrorOfEachBuiltInAndSetsNoResult) {
    Open("file", 2);
    struct Case {
        const char* builtIn;
        const char* error;
    };
    const Case cases[] = {{"file_bin_rewrite", "Trying to rewrite unopened file."},
                          {"file_bin_close", "Trying to close unopened file."},
                          {"file_bin_position", kNotOpened},
                          {"file_bin_size", kNotOpened},
                          {"file_bin_seek", kNotOpened},
                          {"file_bin_read_byte", kNotOpened},
                          {"file_bin_write_byte", kNotOpened}};
    for (const Case& each : cases) {
        for (const Value& id : NoIds()) {
            std::vector<Value> arguments{id};
            if (Function_Find(each.builtIn)->argc == 2) arguments.emplace_back(65);
            EXPECT_EQ(Call(each.builtIn, arguments).Real(), kUnset) << each.builtIn;
            EXPECT_EQ(TakeError(), each.error) << each.builtIn;
        }
    }
}

TEST_F(BinaryFiles, ClosingTwiceIsAnError) {
    double id = Open("file", 1);

    Close(id);
    EXPECT_EQ(TakeError(), "");
    EXPECT_EQ(binfiles[1].name, nullptr);
    EXPECT_EQ(binfiles[1].hF, nullptr);
    EXPECT_EQ(binfiles[1].mode, 1);

    Close(id);
    EXPECT_EQ(TakeError(), "Trying to close unopened file.");
}

// --- failures --------------------------------------------------------------------------------------------------------

TEST_F(BinaryFiles, AFailedWriteAtTheCloseIsAnErrorAndTheOldFileStays) {
    WriteWholeFile(Save("file"), "old");
    double id = Open("file", 1);
    Write(id, "new");
    FaultySystemCalls faults;
    faults.FailFrom("write", 1, ENOSPC);

    Close(id);

    EXPECT_EQ(TakeError(), "Failed to write file: " + Save("file").string() + " (" + std::strerror(ENOSPC) + ")");
    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
    EXPECT_FALSE(bfilestatus[1]);
}

TEST_F(BinaryFiles, TheEndOfTheModuleKeepsWhatWasWritten) {
    double id = Open("file", 1);
    Write(id, "kept");

    FINALIZE_Function_File();

    EXPECT_EQ(ReadWholeFile(Save("file")), "kept");
    EXPECT_EQ(binfiles[1].hF, nullptr);
    EXPECT_EQ(binfiles[1].name, nullptr);
}

}  // namespace
}  // namespace kx::test
