// Virtual files and whole files.
#include "Files/IO/LoadSave.h"

#include "Files/Base/Limits.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/Machine.h"

#include <climits>
#include <cmath>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class VirtualFiles : public AreasTest {
protected:
    static std::string Rest(_KXFILE* file) {
        std::string text;
        while (!LoadSave::kxfeof(file)) {
            text += static_cast<char>(LoadSave::fgetc(file));
        }
        return text;
    }

    static ino_t Inode(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_ino;
    }

    static mode_t Permissions(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    CapturingConsole m_console;
};

// --- opening -------------------------------------------------------------------------------------------------------

TEST_F(VirtualFiles, OpenInEveryMode) {
    struct Case {
        const char* mode;
        const char* contents;  // of an existing file that holds "old", right after the open
        long position;
        bool writes, creates, isText;
    };
    const Case cases[] = {
        {"r", "old", 0, false, false, false},  {"rt", "old", 0, false, false, true},
        {"rb", "old", 0, false, false, false}, {"w", "", 0, true, true, true},
        {"wb", "", 0, true, true, false},      {"wb+", "", 0, true, true, false},
        {"a+", "old", 3, true, true, true},    {"rw", "old", 0, true, true, false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.mode);
        WriteWholeFile(Save("file"), "old");
        fs::remove(Save("missing"));

        _KXFILE* file = LoadSave::fopen("file", each.mode);
        ASSERT_NE(file, nullptr);
        EXPECT_STREQ(file->pName, Save("file").c_str());
        EXPECT_EQ(file->writeBack, each.writes);
        EXPECT_EQ(file->isText, each.isText);
        EXPECT_EQ(LoadSave::ftell(file), each.position);
        EXPECT_EQ(std::string(file->pBuff->m_data), each.contents);
        EXPECT_EQ(ReadWholeFile(Save("file")), "old");  // as it was until the close
        LoadSave::fclose(file);

        _KXFILE* created = LoadSave::fopen("missing", each.mode);
        EXPECT_EQ(created != nullptr, each.creates);
        EXPECT_EQ(fs::exists(Save("missing")), each.creates);  // at once
        LoadSave::fclose(created);
    }
}

TEST_F(VirtualFiles, NeedAKnownMode) {
    WriteWholeFile(Save("file"), "old");
    for (const char* mode : {"", "x", "a", "rx", "b", "+"}) {
        EXPECT_EQ(LoadSave::fopen("file", mode), nullptr) << mode;
    }
    EXPECT_EQ(LoadSave::fopen("file", nullptr), nullptr);
    EXPECT_EQ(LoadSave::fopen(nullptr, "r"), nullptr);
    EXPECT_EQ(LoadSave::fopen(nullptr, "w"), nullptr);
}

TEST_F(VirtualFiles, LookInTheSaveAreaThenInTheBundle) {
    WriteWholeFile(Bundle("both"), "bundle");
    WriteWholeFile(Bundle("shipped"), "bundle");
    WriteWholeFile(Save("both"), "save");
    struct Case {
        std::string path;
        const char* contents;
    };
    const Case cases[] = {
        {"both", "save"}, {"shipped", "bundle"}, {Bundle("both").string(), "bundle"}, {Save("both").string(), "save"}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.path);
        _KXFILE* file = LoadSave::fopen(each.path.c_str(), "rb");
        EXPECT_EQ(Rest(file), each.contents);
        LoadSave::fclose(file);
    }
    EXPECT_EQ(LoadSave::fopen(Save("shipped").c_str(), "rb"), nullptr);
}

TEST_F(VirtualFiles, ASaveThatCannotBeReadJustNowIsNotReplacedByWhatIsShipped) {
    WriteWholeFile(Bundle("file"), "bundle");
    WriteWholeFile(Save("file"), "save");
    FaultySystemCalls faults;
    faults.FailAt(1, EMFILE, FaultySystemCalls::Extent::once);

    EXPECT_EQ(LoadSave::fopen("file", "rb"), nullptr);

    EXPECT_EQ(errno, EMFILE);
}

TEST_F(VirtualFiles, AFileOfTheBundleIsWrittenToTheSaveArea) {
    struct Case {
        const char* mode;
        const char* after;
    };
    const Case cases[] = {{"w", "new"}, {"wb", "new"}, {"rw", "newpped"}, {"a+", "shippednew"}};
    for (bool full : {false, true}) {
        for (const Case& each : cases) {
            SCOPED_TRACE(each.mode);
            fs::remove_all(Save("data"));
            WriteWholeFile(Bundle("data/file"), "shipped");
            std::string path = full ? Bundle("data/file").string() : "data/file";

            _KXFILE* file = LoadSave::fopen(path.c_str(), each.mode);
            ASSERT_NE(file, nullptr);
            EXPECT_FALSE(fs::exists(Save("data/file")));  // an empty one would hide the shipped one until the close
            LoadSave::fputs(file, "new");
            EXPECT_EQ(LoadSave::fclose(file), 0);

            EXPECT_EQ(ReadWholeFile(Save("data/file")), each.after);
            EXPECT_EQ(ReadWholeFile(Bundle("data/file")), "shipped");
        }
    }
}

TEST_F(VirtualFiles, OpeningAShippedFileToUpdateItChangesNothingByItself) {
    WriteWholeFile(Bundle("file"), "shipped");

    LoadSave::fclose(LoadSave::fopen("file", "rw"));

    EXPECT_FALSE(fs::exists(Save("file")));
}

TEST_F(VirtualFiles, AFileBeyondTheLimitCannotBeOpened) {
    WriteWholeFile(Save("huge"), "");
    fs::resize_file(Save("huge"), static_cast<uintmax_t>(kMaxFileBytes) + 1);

    EXPECT_EQ(LoadSave::fopen("huge", "rb"), nullptr);

    EXPECT_EQ(errno, EFBIG);
}

TEST_F(VirtualFiles, AnEmptyFileIsAtItsEnd) {
    WriteWholeFile(Save("empty"), "");

    _KXFILE* file = LoadSave::fopen("empty", "rb");

    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(LoadSave::kxfeof(file));
    LoadSave::fclose(file);
}

TEST_F(VirtualFiles, APlaceThatCannotBeWrittenShowsAtTheOpen) {
    WriteWholeFile(Save("file"), "old");
    FaultySystemCalls faults;
    faults.FailFrom("faccessat", 1, EACCES);

    EXPECT_EQ(LoadSave::fopen("file", "w"), nullptr);

    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
}

TEST_F(VirtualFiles, ReadAFileThatShrinksMeanwhile) {
    WriteWholeFile(Save("file"), "0123456789");
    FaultySystemCalls faults;
    faults.OnCall([&] {
        if (!faults.Calls().empty() && faults.Calls().back() == "fstat") fs::resize_file(Save("file"), 4);
    });

    _KXFILE* file = LoadSave::fopen("file", "rb");

    EXPECT_EQ(Rest(file), "0123");
    LoadSave::fclose(file);
}

// --- reading -------------------------------------------------------------------------------------------------------

TEST_F(VirtualFiles, TheEndIsANegativeCharacterWithALowByteOfZero) {
    WriteWholeFile(Save("file"), "a\xff");
    _KXFILE* file = LoadSave::fopen("file", "rb");

    EXPECT_EQ(LoadSave::fgetc(file), 'a');
    EXPECT_EQ(LoadSave::fgetc(file), 0xff);
    EXPECT_EQ(LoadSave::fgetc(file), -256);
    EXPECT_EQ(LoadSave::fgetc(file), -256);
    LoadSave::fclose(file);
}

TEST_F(VirtualFiles, LinesAreReadInPieces) {
    WriteWholeFile(Save("file"), "abc\ndef\r\nghi");
    _KXFILE* file = LoadSave::fopen("file", "rb");
    char out[20] = {};

    EXPECT_EQ(LoadSave::ReadThroughLine(file, out, 2), 2);
    EXPECT_EQ(LoadSave::ReadThroughLine(file, out, 2), 2);
    EXPECT_EQ(std::string(out, 2), "c\n");
    EXPECT_EQ(LoadSave::ReadToLineEnd(file, out, 20), 3);
    EXPECT_EQ(LoadSave::ReadToLineEnd(file, out, 20), 0);
    EXPECT_TRUE(LoadSave::kxfeoln(file));
    EXPECT_EQ(LoadSave::ReadThroughLine(file, out, 20), 2);
    EXPECT_EQ(LoadSave::ReadToLineEnd(file, out, 2), 2);
    EXPECT_EQ(LoadSave::ReadToLineEnd(file, out, 2), 1);
    EXPECT_EQ(LoadSave::ReadThroughLine(file, out, 20), 0);
    LoadSave::fclose(file);
}

TEST_F(VirtualFiles, BlocksAreReadLikeTheStandardLibraryDoes) {
    WriteWholeFile(Save("file"), "0123456789");
    _KXFILE* file = LoadSave::fopen("file", "rb");
    char out[20] = {};

    EXPECT_EQ(LoadSave::fread(out, 3, 2, file), 2u);
    EXPECT_EQ(std::string(out, 6), "012345");
    EXPECT_EQ(LoadSave::fread(out, 3, 2, file), 1u);  // one whole item and a part
    EXPECT_EQ(LoadSave::fread(out, 1, 1, file), 0u);
    EXPECT_EQ(LoadSave::fread(out, 0, 5, file), 0u);
    LoadSave::fseek(file, 0, SEEK_SET);
    EXPECT_EQ(LoadSave::fread(out, UINT_MAX, 1, file), 0u);
    LoadSave::fclose(file);
}

TEST_F(VirtualFiles, SeekStaysInTheRangeOfPositions) {
    WriteWholeFile(Save("file"), "0123456789");
    _KXFILE* file = LoadSave::fopen("file", "rb");
    struct Case {
        long offset;
        int whence;
        int result;
        long position;
    };
    const Case cases[] = {
        {4, SEEK_SET, 0, 4},        {-1, SEEK_SET, -1, 4}, {2, SEEK_CUR, 0, 6},  {-7, SEEK_CUR, -1, 6},
        {-3, SEEK_END, 0, 7},       {0, SEEK_END, 0, 10},  {5, SEEK_END, 0, 15}, {INT_MAX, SEEK_SET, 0, INT_MAX},
        {1, SEEK_CUR, -1, INT_MAX}, {0, 7, -1, INT_MAX},   {0, SEEK_SET, 0, 0}};
    for (const Case& each : cases) {
        EXPECT_EQ(LoadSave::fseek(file, each.offset, each.whence), each.result);
        EXPECT_EQ(LoadSave::ftell(file), each.position);
    }
    LoadSave::fseek(file, 1000, SEEK_SET);
    EXPECT_TRUE(LoadSave::kxfeof(file));
    EXPECT_EQ(LoadSave::fgetc(file), -256);
    EXPECT_EQ(file->pBuff->m_allocated, 10);  // a mere seek allocates nothing
    LoadSave::fclose(file);
}

// --- writing -------------------------------------------------------------------------------------------------------

TEST_F(VirtualFiles, WritesGoToThePosition) {
    WriteWholeFile(Save("file"), "0123456789");
    _KXFILE* file = LoadSave::fopen("file", "rw");

    LoadSave::fseek(file, 2, SEEK_SET);
    EXPECT_EQ(LoadSave::fputs(file, "ab"), 0);
    EXPECT_EQ(LoadSave::ftell(file), 4);
    LoadSave::fseek(file, 2, SEEK_END);
    EXPECT_EQ(LoadSave::fwrite("xyz", 1, 3, file), 3u);
    LoadSave::fclose(file);

    EXPECT_EQ(ReadWholeFile(Save("file")), std::string("01ab456789\0\0xyz", 15));  // the gap is zeros
}

TEST_F(VirtualFiles, AppendsGoToTheEndWhereverThePositionIs) {
    WriteWholeFile(Save("file"), "0123");
    _KXFILE* file = LoadSave::fopen("file", "a+");

    LoadSave::fseek(file, 0, SEEK_SET);
    EXPECT_EQ(LoadSave::fgetc(file), '0');
    LoadSave::fputs(file, "45");
    LoadSave::fclose(file);

    EXPECT_EQ(ReadWholeFile(Save("file")), "012345");
}

TEST_F(VirtualFiles, FilesOpenForReadingTakeNothing) {
    WriteWholeFile(Save("file"), "old");
    _KXFILE* file = LoadSave::fopen("file", "rb");

    EXPECT_EQ(LoadSave::fputs(file, "new"), -1);
    EXPECT_EQ(LoadSave::fwrite("new", 1, 3, file), 0u);
    LoadSave::fclose(file);

    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
}

TEST_F(VirtualFiles, AWriteBeyondTheLimitIsAnErrorAndWritesNothing) {
    _KXFILE* file = LoadSave::fopen("file", "wb");
    LoadSave::fseek(file, kMaxFileBytes - 1, SEEK_SET);

    EXPECT_EQ(LoadSave::fwrite("ab", 1, 2, file), 0u);

    EXPECT_EQ(TakeError(), "Failed to write file: " + Save("file").string() + " (File too large)");
    EXPECT_EQ(file->pBuff->m_size, 0);
    LoadSave::fclose(file);
}

TEST_F(VirtualFiles, NullIsAFileAtItsEndThatTakesNothing) {
    char out[2];
    double value = 5;

    EXPECT_EQ(LoadSave::fgetc(nullptr), -256);
    EXPECT_TRUE(LoadSave::kxfeof(nullptr));
    EXPECT_TRUE(LoadSave::kxfeoln(nullptr));
    EXPECT_EQ(LoadSave::ReadThroughLine(nullptr, out, 2), 0);
    EXPECT_EQ(LoadSave::ReadToLineEnd(nullptr, out, 2), 0);
    LoadSave::freadreal(nullptr, &value);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(LoadSave::fputs(nullptr, "x"), -1);
    EXPECT_EQ(LoadSave::fread(out, 1, 1, nullptr), 0u);
    EXPECT_EQ(LoadSave::fwrite("x", 1, 1, nullptr), 0u);
    EXPECT_EQ(LoadSave::fseek(nullptr, 0, SEEK_SET), -1);
    EXPECT_EQ(LoadSave::ftell(nullptr), -1);
    EXPECT_EQ(LoadSave::fclose(nullptr), 0);
    EXPECT_EQ(KXCloseStream(nullptr), 0);
}

// --- closing -------------------------------------------------------------------------------------------------------

TEST_F(VirtualFiles, AFileThatDidNotChangeIsNotWritten) {
    WriteWholeFile(Save("file"), "old");
    WriteWholeFile(Save("empty"), "");
    ino_t before = Inode(Save("file"));
    ino_t empty = Inode(Save("empty"));

    LoadSave::fclose(LoadSave::fopen("file", "rw"));
    LoadSave::fclose(LoadSave::fopen("file", "a+"));
    LoadSave::fclose(LoadSave::fopen("file", "rb"));
    LoadSave::fclose(LoadSave::fopen("empty", "w"));

    EXPECT_EQ(Inode(Save("file")), before);
    EXPECT_EQ(Inode(Save("empty")), empty);
}

TEST_F(VirtualFiles, StartingAFileAnewEmptiesItEvenWhenNothingIsWritten) {
    WriteWholeFile(Save("file"), "old");

    LoadSave::fclose(LoadSave::fopen("file", "w"));

    EXPECT_EQ(ReadWholeFile(Save("file")), "");
}

TEST_F(VirtualFiles, PermissionsStay) {
    for (mode_t mode : {0600u, 0640u, 0755u}) {
        WriteWholeFile(Save("file"), "old");
        ASSERT_EQ(::chmod(Save("file").c_str(), mode), 0);

        _KXFILE* file = LoadSave::fopen("file", "w");
        LoadSave::fputs(file, "new");
        LoadSave::fclose(file);

        EXPECT_EQ(Permissions(Save("file")), mode);
    }
}

TEST_F(VirtualFiles, NewFilesFollowTheUmask) {
    mode_t before = ::umask(027);

    _KXFILE* file = LoadSave::fopen("opened", "w");
    LoadSave::fputs(file, "x");
    LoadSave::fclose(file);
    LoadSave::WriteFile("written", "x", 1, nullptr);

    ::umask(before);
    EXPECT_EQ(Permissions(Save("opened")), 0640u);
    EXPECT_EQ(Permissions(Save("written")), 0640u);
}

TEST_F(VirtualFiles, AFolderThatWentMissingIsMadeAgainAtTheClose) {
    _KXFILE* file = LoadSave::fopen("folder/file", "w");
    LoadSave::fputs(file, "kept");
    fs::remove_all(Save("folder"));

    EXPECT_EQ(LoadSave::fclose(file), 0);

    EXPECT_EQ(ReadWholeFile(Save("folder/file")), "kept");
}

TEST_F(VirtualFiles, HandlesThatTheModuleMadeAreReleased) {
    long long before = MemoryManager::Stats().blocks;
    auto* file = new _KXFILE;
    file->pBuff = new Buffer_Standard(4, eBuffer_Format_Grow, 1);

    EXPECT_EQ(LoadSave::fclose(file), 0);

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST_F(VirtualFiles, ASlotsStreamIsClosedWhicheverItIs) {
    _KXFILE* file = LoadSave::fopen("virtual", "w");
    LoadSave::fputs(file, "virtual");
    FILE* stream = std::fopen(Save("stream").c_str(), "w");
    std::fputs("stream", stream);

    EXPECT_EQ(KXCloseStream(reinterpret_cast<FILE*>(file)), 0);
    EXPECT_EQ(KXCloseStream(stream), 0);

    EXPECT_EQ(ReadWholeFile(Save("virtual")), "virtual");
    EXPECT_EQ(ReadWholeFile(Save("stream")), "stream");
}

TEST_F(VirtualFiles, ManyOpenAtATimeAreClosedInAnyOrder) {
    std::vector<_KXFILE*> files;
    for (int i = 0; i < 9; ++i) {
        files.push_back(LoadSave::fopen(("file" + std::to_string(i)).c_str(), "w"));
        LoadSave::fputs(files.back(), "x");
    }
    for (size_t i : {0u, 8u, 4u, 3u, 5u, 1u, 7u, 2u, 6u}) {
        EXPECT_EQ(LoadSave::fclose(files[i]), 0);
    }
    EXPECT_EQ(NamesIn(Save()).size(), 9u);
}

// --- the end -------------------------------------------------------------------------------------------------------

TEST_F(VirtualFiles, ShutdownWritesWhatIsStillOpen) {
    _KXFILE* file = LoadSave::fopen("file", "w");
    LoadSave::fputs(file, "kept");

    LoadSave::Shutdown();

    EXPECT_EQ(ReadWholeFile(Save("file")), "kept");
    EXPECT_EQ(LoadSave::fputs(file, "more"), -1);
    EXPECT_EQ(LoadSave::fclose(file), 0);
    EXPECT_EQ(ReadWholeFile(Save("file")), "kept");
}

TEST_F(VirtualFiles, ShutdownNamesEveryFileThatCannotBeWritten) {
    _KXFILE* first = LoadSave::fopen("first", "w");
    _KXFILE* second = LoadSave::fopen("second", "w");
    LoadSave::fputs(first, "x");
    LoadSave::fputs(second, "x");
    static std::vector<std::string> errors;
    errors.clear();
    KXSetErrorHandler([](const char* text) { errors.emplace_back(text); });
    {
        FaultySystemCalls faults;
        faults.FailFrom("write", 1, ENOSPC);
        LoadSave::Shutdown();
    }
    KXSetErrorHandler(nullptr);

    EXPECT_EQ(errors.size(), 2u);
    EXPECT_TRUE(NamesIn(Save()).empty());  // nor does an empty file stay
    LoadSave::fclose(first);
    LoadSave::fclose(second);
}

TEST_F(VirtualFiles, AFailedScriptsFilesAreDiscardedButNotWhatItAppended) {
    WriteWholeFile(Save("anew"), "old");
    WriteWholeFile(Save("updated"), "old");
    WriteWholeFile(Save("appended"), "old");
    WriteWholeFile(Save("untouched"), "old");
    std::vector<_KXFILE*> files;
    for (auto [name, mode] : {std::pair{"anew", "w"}, {"updated", "rw"}, {"appended", "a+"}, {"created", "w"}}) {
        files.push_back(LoadSave::fopen(name, mode));
        LoadSave::fputs(files.back(), "new");
    }
    files.push_back(LoadSave::fopen("untouched", "rw"));

    LoadSave::DiscardUnfinished();
    LoadSave::Shutdown();

    EXPECT_EQ(ReadWholeFile(Save("anew")), "old");
    EXPECT_EQ(ReadWholeFile(Save("updated")), "old");
    EXPECT_EQ(ReadWholeFile(Save("appended")), "oldnew");
    EXPECT_FALSE(fs::exists(Save("created")));
    std::string told = m_console.Take();
    for (const char* name : {"anew", "updated", "created"}) {
        EXPECT_NE(
            told.find("Not written, because the script failed before it was closed: " + Save(name).string() + "\n"),
            std::string::npos);
    }
    EXPECT_EQ(told.find("appended"), std::string::npos);
    EXPECT_EQ(told.find("untouched"), std::string::npos);
    for (_KXFILE* file : files) {
        LoadSave::fclose(file);
    }
}

TEST_F(VirtualFiles, AFailedOpenGivesTheSaveAreasReasonNotThatTheBundleHasNoSuchFile) {
    std::filesystem::create_directory(Save("folder"));
    std::filesystem::create_symlink(Outside(), Save("link"));
    struct Case {
        const char* name;
        int reason;
    };
    for (const Case& each : {Case{"folder", EISDIR}, Case{"link", KnowsOpenat2() ? EXDEV : ELOOP},
                             Case{"missing", ENOENT}, Case{"../x", EXDEV}}) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(LoadSave::fopen(each.name, "rt"), nullptr);
        EXPECT_EQ(errno, each.reason);
    }
}

// --- whole files ---------------------------------------------------------------------------------------------------

TEST_F(VirtualFiles, WholeFilesAreWritten) {
    EXPECT_EQ(LoadSave::WriteFile("a/b", "bytes\0more", 10, nullptr), 1);
    EXPECT_EQ(ReadWholeFile(Save("a/b")), std::string("bytes\0more", 10));

    EXPECT_EQ(LoadSave::WriteFile(Save("a/b").c_str(), "", 0, nullptr), 1);
    EXPECT_EQ(ReadWholeFile(Save("a/b")), "");
}

TEST_F(VirtualFiles, AWholeFileOfTheBundleIsWrittenToItsPlaceInTheSaveArea) {
    WriteWholeFile(Bundle("a/b"), "shipped");

    EXPECT_EQ(LoadSave::WriteFile(Bundle("a/b").c_str(), "saved", 5, nullptr), 1);

    EXPECT_EQ(ReadWholeFile(Save("a/b")), "saved");
    EXPECT_EQ(ReadWholeFile(Bundle("a/b")), "shipped");
}

TEST_F(VirtualFiles, WholeFilesNeedDataALengthAndAPlace) {
    WriteWholeFile(Save("file"), "old");

    EXPECT_EQ(LoadSave::WriteFile("file", nullptr, 0, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile("file", nullptr, 5, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile("file", "x", -1, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile(nullptr, "x", 1, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile("", "x", 1, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile(".", "x", 1, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile("../outside", "x", 1, nullptr), 0);
    EXPECT_EQ(LoadSave::WriteFile("file/x", "x", 1, nullptr), 0);

    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
}

TEST_F(VirtualFiles, AWholeFileThatFailsSaysWhyOnTheConsole) {
    FaultySystemCalls faults;
    faults.FailFrom("write", 1, ENOSPC);

    EXPECT_EQ(LoadSave::WriteFile("file", "x", 1, nullptr), 0);

    EXPECT_EQ(m_console.Take(), "Failed to write file: file (No space left on device)\n");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(VirtualFiles, WholeFilesOfTheBundleAreRead) {
    WriteWholeFile(Bundle("file"), std::string("a\0b", 3));
    WriteWholeFile(Bundle("empty"), "");
    WriteWholeFile(Save("saved"), "save");
    int size = -1;

    char* data = LoadSave::ReadBundleFile("file", &size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data, static_cast<size_t>(size) + 1), std::string("a\0b\0", 4));
    MemoryManager::Free(data);

    data = LoadSave::ReadBundleFile("empty", &size);
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(size, 0);
    MemoryManager::Free(data);

    for (const char* name : {"saved", "missing", ".", "", "../outside"}) {
        EXPECT_EQ(LoadSave::ReadBundleFile(name, &size), nullptr) << name;
    }
    EXPECT_EQ(LoadSave::ReadBundleFile(nullptr, &size), nullptr);
}

TEST_F(VirtualFiles, FilesOfTheSaveAreaAreRemoved) {
    WriteWholeFile(Save("a/file"), "x");
    WriteWholeFile(Save("full"), "x");
    WriteWholeFile(Bundle("shipped"), "x");

    EXPECT_EQ(LoadSave::RemoveSaveFile("a/file"), 1);
    EXPECT_EQ(LoadSave::RemoveSaveFile(Save("full").c_str()), 1);
    for (const char* name : {"a/file", "shipped", "a", ".", "", "../outside"}) {
        EXPECT_EQ(LoadSave::RemoveSaveFile(name), 0) << name;
    }
    EXPECT_EQ(LoadSave::RemoveSaveFile(nullptr), 0);

    EXPECT_TRUE(fs::is_directory(Save("a")));
    EXPECT_TRUE(fs::exists(Bundle("shipped")));
}

}  // namespace
}  // namespace kx::test
