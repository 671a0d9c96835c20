// The module's frame: registration, start and end.
#include "Files/Function/Function_File.h"

#include "Files/Function/Function_File_Internal.h"
#include "Files/Run/Run_Command.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/BuiltIn.h"

#include <iterator>

namespace kx::test {
namespace {

struct Row {
    const char* name;
    TRoutine handler;
    int argc;
    bool flag;
};

/// The built-ins, in the order in which they are registered.
const Row kRows[] = {
    {"file_bin_open", F_FileBinOpen, 2, false},
    {"file_bin_rewrite", F_FileBinRewrite, 1, false},
    {"file_bin_close", F_FileBinClose, 1, false},
    {"file_bin_position", F_FileBinPosition, 1, false},
    {"file_bin_size", F_FileBinSize, 1, false},
    {"file_bin_seek", F_FileBinSeek, 2, false},
    {"file_bin_read_byte", F_FileBinReadByte, 1, false},
    {"file_bin_write_byte", F_FileBinWriteByte, 2, false},
    {"file_text_open_from_string", F_FileTextSet, 1, false},
    {"file_text_open_read", F_FileTextOpenRead, 1, false},
    {"file_text_open_write", F_FileTextOpenWrite, 1, false},
    {"file_text_open_append", F_FileTextOpenAppend, 1, false},
    {"file_text_close", F_FileTextClose, 1, false},
    {"file_text_read_string", F_FileTextReadString, 1, false},
    {"file_text_read_real", F_FileTextReadReal, 1, false},
    {"file_text_readln", F_FileTextReadLn, 1, false},
    {"file_text_eof", F_FileTextEof, 1, false},
    {"file_text_eoln", F_FileTextEoln, 1, false},
    {"file_text_write_string", F_FileTextWriteString, 2, false},
    {"file_text_write_real", F_FileTextWriteReal, 2, false},
    {"file_text_writeln", F_FileTextWriteLn, 1, false},
    {"file_exists", F_FileExists, 1, false},
    {"file_delete", F_FileDelete, 1, false},
    {"file_rename", F_FileRename, 2, false},
    {"file_copy", F_FileCopy, 2, false},
    {"directory_exists", F_DirectoryExists, 1, false},
    {"directory_create", F_DirectoryCreate, 1, false},
    {"directory_destroy", F_DirectoryDelete, 1, false},
    {"file_find_first", F_FileFindFirst, 2, false},
    {"file_find_next", F_FileFindNext, 0, false},
    {"file_find_close", F_FileFindClose, 0, false},
    {"file_attributes", F_FileAttributes, 2, false},
    {"filename_name", F_FilenameName, 1, false},
    {"filename_path", F_FilenamePath, 1, false},
    {"filename_dir", F_FilenameDir, 1, false},
    {"filename_drive", F_FilenameDrive, 1, false},
    {"filename_ext", F_FilenameExt, 1, false},
    {"filename_change_ext", F_FilenameChangeExt, 2, false},
    {"parameter_count", F_ParameterCount, 0, false},
    {"parameter_string", F_ParameterString, 1, false},
    {"environment_get_variable", F_EnvironmentGetVariable, 1, false},
    {"ini_open_from_string", F_IniOpenFromString, 1, false},
    {"ini_open", F_IniOpen, 1, false},
    {"ini_close", F_IniClose, 0, false},
    {"ini_read_string", F_IniReadString, 3, false},
    {"ini_read_real", F_IniReadReal, 3, false},
    {"ini_write_string", F_IniWriteString, 3, false},
    {"ini_write_real", F_IniWriteReal, 3, false},
    {"ini_key_exists", F_IniKeyExists, 2, false},
    {"ini_section_exists", F_IniSectionExists, 1, false},
    {"ini_key_delete", F_IniKeyDelete, 2, false},
    {"ini_section_delete", F_IniSectionDelete, 1, false},
    {"http_post_string", F_HttpPostString, 2, false},
    {"http_get", F_HttpGet, 1, false},
    {"http_get_file", F_HttpGetFile, 2, false},
    {"http_request", F_HttpRequest, 4, false},
    {"http_get_request_crossorigin", F_HttpGetRequestCrossOrigin, 0, false},
    {"http_set_request_crossorigin", F_HttpSetRequestCrossOrigin, 1, false},
    {"json_encode", F_JsonEncode, 1, false},
    {"json_decode", F_JsonDecode, 1, false},
    {"json_stringify", F_JsonEncodeExt, 1, false},
    {"json_parse", F_JsonDecodeExt, 1, false},
    {"zip_unzip", F_ZipUnzip, 2, false},
    {"load_csv", F_LoadCSV, 1, true},
};
static_assert(std::size(kRows) == 64);

class ModuleFrame : public AreasTest {
protected:
    void SetUp() override {
        AreasTest::SetUp();
        InitFileFunctions();
    }

    void TearDown() override {
        AreasTest::TearDown();
        InitFileFunctions();
    }

    /// What a binary built-in would leave in a slot.
    void OpenBinary(int id, const char* name) {
        binfiles[id].name = KXStrDup(name);
        binfiles[id].hF = LoadSave::fopen(name, "wb");
        binfiles[id].mode = 1;
        bfilestatus[id] = true;
    }
};

/// What the module has registered; other tests may have added names of their own.
std::vector<const FunctionRecord*> Registered() {
    std::vector<const FunctionRecord*> records;
    for (int i = 0; i < Function_Count(); ++i) {
        const FunctionRecord* record = Function_At(i);
        if (std::string(record->name).rfind("test_", 0) != 0) records.push_back(record);
    }
    return records;
}

TEST_F(ModuleFrame, RegistersEveryBuiltInInOrder) {
    std::vector<const FunctionRecord*> records = Registered();
    ASSERT_EQ(records.size(), std::size(kRows));
    for (size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE(kRows[i].name);
        EXPECT_STREQ(records[i]->name, kRows[i].name);
        EXPECT_EQ(records[i]->routine, kRows[i].handler);
        EXPECT_EQ(records[i]->argc, kRows[i].argc);
        EXPECT_EQ(records[i]->flag, kRows[i].flag);
    }
}

TEST_F(ModuleFrame, RegistersEachNameOnceHoweverOftenItStarts) {
    InitFileFunctions();
    InitFileFunctions();

    EXPECT_EQ(Registered().size(), std::size(kRows));
}

TEST_F(ModuleFrame, StartClearsTheSandboxFlag) {
    Secure_Mode = true;

    InitFileFunctions();

    EXPECT_FALSE(Secure_Mode);
}

TEST_F(ModuleFrame, StartForgetsOpenFilesAndKeepsTheirModes) {
    Call("file_text_open_write", {"left open.txt"});
    OpenBinary(3, "left open.bin");
    HKXFILE text = textfiles[1].hF;
    HKXFILE binary = binfiles[3].hF;
    String textName = textfiles[1].name;
    String binaryName = binfiles[3].name;

    InitFileFunctions();

    for (int id = 0; id < MAXFILE; ++id) {
        EXPECT_EQ(textfiles[id].name, nullptr);
        EXPECT_EQ(textfiles[id].hF, nullptr);
        EXPECT_EQ(filestatus[id], 0);
        EXPECT_EQ(binfiles[id].name, nullptr);
        EXPECT_EQ(binfiles[id].hF, nullptr);
        EXPECT_FALSE(bfilestatus[id]);
    }
    EXPECT_EQ(textfiles[1].mode, 2);
    EXPECT_EQ(binfiles[3].mode, 1);

    // Forgotten, neither closed nor released: the handles still work.
    EXPECT_EQ(LoadSave::fputs(text, "still open"), 0);
    LoadSave::fclose(text);
    LoadSave::fclose(binary);
    KXFree(textName);
    KXFree(binaryName);
}

TEST_F(ModuleFrame, ClearsOneTableAndLeavesTheOther) {
    double id = Call("file_text_open_from_string", {"text"}).Real();
    ASSERT_EQ(id, 1);

    InitBinFiles();

    EXPECT_EQ(filestatus[1], 1);
    EXPECT_NE(textfiles[1].hF, nullptr);

    OpenBinary(1, "kept.bin");
    HKXFILE text = textfiles[1].hF;
    KXFree(textfiles[1].name);
    InitTextFiles();

    EXPECT_EQ(filestatus[1], 0);
    EXPECT_EQ(textfiles[1].hF, nullptr);
    EXPECT_NE(binfiles[1].hF, nullptr);
    EXPECT_TRUE(bfilestatus[1]);
    LoadSave::fclose(text);
    FINALIZE_Function_File();
}

TEST_F(ModuleFrame, EndClosesBinaryFilesAndKeepsWhatWasWritten) {
    OpenBinary(1, "one.bin");
    OpenBinary(31, "last.bin");
    LoadSave::fputs(binfiles[1].hF, "one");
    LoadSave::fputs(binfiles[31].hF, "last");

    FINALIZE_Function_File();

    EXPECT_EQ(ReadWholeFile(Save("one.bin")), "one");
    EXPECT_EQ(ReadWholeFile(Save("last.bin")), "last");
    for (const StFile& slot : binfiles) {
        EXPECT_EQ(slot.name, nullptr);
        EXPECT_EQ(slot.file, nullptr);
    }
    EXPECT_EQ(binfiles[31].mode, 1);
    EXPECT_TRUE(bfilestatus[31]);
}

TEST_F(ModuleFrame, EndClosesAStreamOfTheStandardLibraryToo) {
    binfiles[2].file = std::fopen(Save("stream.bin").c_str(), "wb");
    std::fputs("stream", binfiles[2].file);

    FINALIZE_Function_File();

    EXPECT_EQ(ReadWholeFile(Save("stream.bin")), "stream");
    EXPECT_EQ(binfiles[2].file, nullptr);
}

TEST_F(ModuleFrame, EndReleasesTheNameOfASlotWithoutAHandle) {
    long long before = MemoryManager::Stats().blocks;
    binfiles[5].name = KXStrDup("a failed open leaves its name");

    FINALIZE_Function_File();

    EXPECT_EQ(binfiles[5].name, nullptr);
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST_F(ModuleFrame, EndLeavesTextFilesAsTheyAre) {
    Call("file_text_open_write", {"open.txt"});

    FINALIZE_Function_File();

    EXPECT_EQ(filestatus[1], 2);
    ASSERT_NE(textfiles[1].hF, nullptr);
    Call("file_text_close", {1});
}

TEST_F(ModuleFrame, EndForgetsTheHttpRequests) {
    g_pHttpHead = reinterpret_cast<HTTP_REQ_CONTEXT*>(&g_undefined);

    FINALIZE_Function_File();

    EXPECT_EQ(g_pHttpHead, nullptr);
}

TEST_F(ModuleFrame, UndefinedIsAPlainValue) {
    EXPECT_EQ(g_undefined.kind, VALUE_UNDEFINED);
    EXPECT_EQ(g_undefined.kind, 5u);
    EXPECT_EQ(g_undefined.flags, 0u);
    EXPECT_EQ(g_undefined.i64, 0);
}

TEST_F(ModuleFrame, MakesTheDirectoriesAboveAPath) {
    struct Case {
        const char* path;  // below the save area
        const char* made;  // empty: nothing
    };
    const Case cases[] = {
        {"file.txt", ""},         {"a/file.txt", "a"}, {"b/c/d/file.txt", "b/c/d"},
        {"e\\f/file.txt", "e"},  // the last backslash decides, though a slash follows it
        {"g/h\\file.txt", "g/h"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.path);

        EnsureDirectoryIsCreated(each.path);

        EXPECT_TRUE(std::filesystem::is_directory(Save(each.made)));
    }
    EXPECT_EQ(NamesIn(Save()), (std::vector<std::string>{"a", "b", "e", "g"}));
    EXPECT_TRUE(std::filesystem::is_empty(Save("e")));
}

TEST_F(ModuleFrame, MakesNoDirectoryOutsideTheSaveArea) {
    EnsureDirectoryIsCreated("../elsewhere/file.txt");
    EnsureDirectoryIsCreated((Bundle("made") / "file.txt").c_str());
    EnsureDirectoryIsCreated("");

    EXPECT_FALSE(std::filesystem::exists(Save().parent_path() / "elsewhere"));
    EXPECT_TRUE(NamesIn(Bundle()).empty());
    EXPECT_TRUE(NamesIn(Save()).empty());
}

}  // namespace
}  // namespace kx::test
