// The two areas: which names mean what, and what no name can reach.
#include "Files/IO/LoadSave_Area.h"

#include "Files/Base/Limits.h"
#include "Files/IO/LoadSave.h"
#include "Files/Support/Support_File.h"
#include "Platform/Platform_Hooks.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/Machine.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

/// What a name resolves to: the path, or nothing where it is refused.
std::string Resolved(const char* name, int (*resolve)(char*, int, const char*) = LoadSave::_GetSaveFileName) {
    char path[kMaxPath] = "not touched";
    int reason = resolve(path, kMaxPath, name);
    EXPECT_EQ(reason == 0, *path != 0);
    return path;
}

class Areas : public AreasTest {
protected:
    CapturingConsole m_console;
};

// --- names ---------------------------------------------------------------------------------------------------------

TEST_F(Areas, NamesMeanPlacesBelowTheRoot) {
    struct Case {
        std::string name;
        const char* place;
    };
    const Case cases[] = {
        {"a", "a"},
        {"a/b", "a/b"},
        {"./a//b/.", "a/b"},
        {"a/", "a"},
        {"a\\b", "a/b"},
        {"a/../b", "b"},
        {"a\\..\\b", "b"},
        {"a/..", ""},
        {".", ""},
        {"...", "..."},
        {"..a/b..", "..a/b.."},
        {" a ", " a "},
        {"\xC3\xA4/\xE2\x82\xAC", "\xC3\xA4/\xE2\x82\xAC"},
        {"\xC2\xA0\xC3\x9B", "\xC2\xA0\xC3\x9B"},
        {"C:\\a", "C:/a"},
        {".hidden", ".hidden"},
        {"a/" + std::string(300, '*'), nullptr},  // a mask may be longer than any name
        {Save("a/b").string(), "a/b"},
        {Save().string(), ""},
        {Save().string() + "/", ""},
        {Save("../save/a").string(), "a"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(Resolved(each.name.c_str()), Save(each.place ? each.place : each.name).string());
    }
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(Areas, NamesThatLeaveTheAreaOrAreNoNamesAreRefusedWithTheReason) {
    struct Case {
        std::string name;
        const char* reason;
    };
    const Case cases[] = {
        {"", "is empty"},
        {"   ", "is empty"},
        {"..", "leaves its folder"},
        {"a/../..", "leaves its folder"},
        {"a/../../x", "leaves its folder"},
        {"..\\x", "leaves its folder"},
        {"/etc/passwd", "leaves its folder"},
        {"/", "leaves its folder"},
        {"\\etc\\passwd", "leaves its folder"},
        {Outside().string(), "leaves its folder"},
        {Save().string() + "2/x", "leaves its folder"},  // only begins like the root
        {std::string(5000, 'x'), "is too long"},
        {std::string(300, 'x') + "/y", "File name too long"},
        {"a\nb", "holds control characters"},
        {"\x1b[31m", "holds control characters"},
        {"\x7f", "holds control characters"},
        {"x\xC2\x9B"
         "31m",
         "holds control characters"},
        {"\xC2\x80", "holds control characters"},
        {"\xff", "is not UTF-8"},
        {"a\xC3", "is not UTF-8"},
        {"\xC0\xAF", "is not UTF-8"},
        {".kxtmp-1-1", "is reserved"},
        {"a/.kxtmp-x/b", "is reserved"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name.substr(0, 50));
        EXPECT_EQ(Resolved(each.name.c_str()), "");
        EXPECT_EQ(m_console.Take(), "File name refused for the save area: \"" + each.name + "\" " + each.reason + "\n");
    }
    EXPECT_EQ(Resolved(nullptr), "");
    EXPECT_EQ(m_console.Take(), "File name refused for the save area: \"\" is missing\n");
}

TEST_F(Areas, APathThatDoesNotFitIsRefusedAndNeverCut) {
    std::string path = Save("some name").string();
    auto fits = static_cast<int>(path.size()) + 1;
    std::string buffer(path.size() + 1, '?');

    EXPECT_EQ(LoadSave::_GetSaveFileName(buffer.data(), fits, "some name"), 0);
    EXPECT_EQ(buffer.c_str(), path);

    EXPECT_NE(LoadSave::_GetSaveFileName(buffer.data(), fits - 1, "some name"), 0);
    EXPECT_EQ(buffer[0], 0);
}

TEST_F(Areas, ALongNameMayFillTheWholePath) {
    std::string name;
    while (Save(name).string().size() + 101 < kMaxPath) {
        name += std::string(100, 'd') + "/";
    }
    name.pop_back();

    EXPECT_EQ(Resolved(name.c_str()), Save(name).string());
    EXPECT_EQ(LoadSave::WriteFile(name.c_str(), "deep", 4, nullptr), 1);
    EXPECT_EQ(ReadWholeFile(Save(name)), "deep");
}

TEST_F(Areas, TheBundleHasNamesOfItsOwn) {
    EXPECT_EQ(Resolved("a/b", LoadSave::_GetBundleFileName), Bundle("a/b").string());
    EXPECT_EQ(Resolved("../save/x", LoadSave::_GetBundleFileName), "");
    EXPECT_EQ(Resolved(Save("x").c_str(), LoadSave::_GetBundleFileName), "");
    EXPECT_EQ(Resolved(Bundle("x").c_str(), LoadSave::_GetBundleFileName), Bundle("x").string());
}

TEST_F(Areas, WhatLiesInTheOtherAreaIsNoFaultOfTheName) {
    EXPECT_EQ(Resolved(Save("x").c_str(), LoadSave::_GetBundleFileName), "");
    EXPECT_EQ(Resolved(Bundle("x").c_str(), LoadSave::_GetSaveFileName), "");
    std::unique_ptr<Area> before = SetBundle(std::make_unique<DirectoryArea>("no bundle"));
    EXPECT_EQ(Resolved("x", LoadSave::_GetBundleFileName), "");
    EXPECT_EQ(m_console.Take(), "");
    SetBundle(std::move(before));
}

TEST_F(Areas, TheRootItselfMayBeALink) {
    fs::create_directory_symlink(Save(), Save().parent_path() / "link");
    fs::path link = Save().parent_path() / "link";
    ASSERT_EQ(LoadSave::SetSaveArea(link.c_str()), 0);

    EXPECT_EQ(Resolved("a"), (link / "a").string());
    EXPECT_EQ(Resolved((link / "a").c_str()), (link / "a").string());
    EXPECT_EQ(Resolved(Save("a").c_str()), (link / "a").string());  // the same place by its true path
    EXPECT_EQ(LoadSave::WriteFile("a", "x", 1, nullptr), 1);
    EXPECT_EQ(ReadWholeFile(Save("a")), "x");
}

TEST_F(Areas, AnAreaIsSomethingThatCanBeUsed) {
    WriteWholeFile(Outside().parent_path() / "file", "");
    std::string file = (Outside().parent_path() / "file").string();

    EXPECT_EQ(LoadSave::SetSaveArea(file.c_str()), ENOTDIR);
    EXPECT_EQ(LoadSave::SetSaveArea((file + "/x").c_str()), ENOTDIR);
    EXPECT_EQ(LoadSave::SetSaveArea((Save().string() + "\\x").c_str()), EINVAL);
    EXPECT_EQ(LoadSave::SetSaveArea(""), EINVAL);
    EXPECT_EQ(LoadSave::SetSaveArea(nullptr), EINVAL);
    EXPECT_EQ(LoadSave::SetBundleArea(""), EINVAL);
    EXPECT_EQ(LoadSave::SetBundleArea(nullptr), EINVAL);
    EXPECT_EQ(LoadSave::SetBundleArea(file.c_str()), EINVAL);  // no archive either
    EXPECT_EQ(LoadSave::SetBundleArea((file + "/x").c_str()), ENOTDIR);
    EXPECT_EQ(LoadSave::SetBundleArea((Bundle() / "missing").c_str()), ENOENT);

    EXPECT_EQ(Resolved("still"), Save("still").string());
    EXPECT_EQ(Resolved("still", LoadSave::_GetBundleFileName), Bundle("still").string());
}

TEST_F(Areas, NoRuleForNamesIsForTheRootsOwnPath) {
    for (const char* odd : {"m\xFCller", "tab\there", ".kxtmp-x", "esc\x1b"}) {
        SCOPED_TRACE(odd);
        fs::path root = Save().parent_path() / odd / "save";
        ASSERT_EQ(LoadSave::SetSaveArea(root.c_str()), 0);
        char path[kMaxPath];
        ASSERT_EQ(LoadSave::_GetSaveFileName(path, kMaxPath, "folder/file"), 0);

        _KXFILE* file = LoadSave::fopen(path, "w");
        ASSERT_NE(file, nullptr);
        LoadSave::fputs(file, "x");
        EXPECT_EQ(LoadSave::fclose(file), 0);

        EXPECT_EQ(ReadWholeFile(root / "folder" / "file"), "x");
        EXPECT_EQ(Resolved((root.string() + "/a\nb").c_str()), "");
        EXPECT_EQ(Resolved((root.string() + "/../x").c_str()), "");
    }
}

TEST_F(Areas, AMissingSaveAreaIsMade) {
    fs::path fresh = Save().parent_path() / "made" / "with parents";

    EXPECT_EQ(LoadSave::SetSaveArea(fresh.c_str()), 0);

    EXPECT_TRUE(fs::is_directory(fresh));
}

TEST_F(Areas, ASaveAreaThatIsMadeIsOnTheDisk) {
    fs::path fresh = Save().parent_path() / "made" / "with parents";
    FaultySystemCalls calls;

    EXPECT_EQ(LoadSave::SetSaveArea(fresh.c_str()), 0);
    EXPECT_EQ(std::count(calls.Calls().begin(), calls.Calls().end(), "fsync"), 2);  // each name that is new

    LoadSave::SetDurability(Durability::none);
    EXPECT_EQ(LoadSave::SetSaveArea((fresh / "x").c_str()), 0);
    EXPECT_EQ(std::count(calls.Calls().begin(), calls.Calls().end(), "fsync"), 2);
}

TEST_F(Areas, ASaveAreaThatDoesNotReachTheDiskIsNoSaveArea) {
    fs::path fresh = Save().parent_path() / "made";
    FaultySystemCalls calls;
    calls.FailFrom("fsync", 1, EIO);

    EXPECT_EQ(LoadSave::SetSaveArea(fresh.c_str()), EIO);

    EXPECT_EQ(Resolved("x"), Save("x").string());
}

TEST_F(Areas, TheSaveAreaDoesNotChangeUnderOpenFiles) {
    _KXFILE* reading = LoadSave::fopen("x", "w");
    LoadSave::fclose(reading);
    reading = LoadSave::fopen("x", "r");
    EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);
    _KXFILE* writing = LoadSave::fopen("x", "w");

    EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), EBUSY);

    LoadSave::fclose(writing);
    EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);
    LoadSave::fclose(reading);
}

TEST_F(Areas, ARenameReachesTheDiskTheNewNameFirst) {
    WriteWholeFile(Save("a/file"), "x");
    fs::create_directory(Save("b"));
    FaultySystemCalls calls;

    EXPECT_EQ(LoadSave::RenameSaveFile("a/file", "b/file"), 0);

    EXPECT_EQ(std::count(calls.Calls().begin(), calls.Calls().end(), "fsync"), 2);
    LoadSave::SetDurability(Durability::none);
    EXPECT_EQ(LoadSave::RenameSaveFile("b/file", "a/file"), 0);
    EXPECT_EQ(std::count(calls.Calls().begin(), calls.Calls().end(), "fsync"), 2);
}

TEST_F(Areas, ARenameThatIsNotOnTheDiskYetSaysSo) {
    WriteWholeFile(Save("a"), "x");
    FaultySystemCalls calls;
    calls.FailFrom("fsync", 2, EIO);

    EXPECT_EQ(LoadSave::RenameSaveFile("a", "b"), 0);

    EXPECT_EQ(ReadWholeFile(Save("b")), "x");
    EXPECT_EQ(m_console.Take(), "Renamed, but not on the disk yet: " + Save("a").string() + " (Input/output error)\n");
}

TEST_F(Areas, AFileThatIsOpenForWritingKeepsItsName) {
    WriteWholeFile(Save("good"), "good");
    _KXFILE* file = LoadSave::fopen("fresh", "w");
    LoadSave::fputs(file, "half");

    EXPECT_EQ(LoadSave::RenameSaveFile("fresh", "good"), -1);  // an empty file would take the good one's place
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(m_console.Take(), "File keeps its name while it is open for writing: " + Save("fresh").string() + "\n");
    EXPECT_EQ(ReadWholeFile(Save("good")), "good");

    LoadSave::fclose(file);
    _KXFILE* reader = LoadSave::fopen("fresh", "r");
    EXPECT_EQ(LoadSave::RenameSaveFile("fresh", "good"), 0);
    EXPECT_EQ(ReadWholeFile(Save("good")), "half");
    LoadSave::fclose(reader);
}

// --- what is there -------------------------------------------------------------------------------------------------

TEST_F(Areas, OnlyRegularFilesExist) {
    WriteWholeFile(Save("file"), "x");
    WriteWholeFile(Bundle("shipped"), "x");
    fs::create_directory(Save("folder"));
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    MakeDevice(Save("device"));
    ASSERT_EQ(::mknod(Save("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    WriteWholeFile(Save(".kxtmp-9-9"), "x");

    EXPECT_TRUE(LoadSave::SaveFileExists("file"));
    EXPECT_TRUE(LoadSave::SaveFileExists(Save("file").c_str()));
    EXPECT_TRUE(LoadSave::BundleFileExists("shipped"));
    EXPECT_FALSE(LoadSave::BundleFileExists("file"));
    EXPECT_FALSE(LoadSave::SaveFileExists("shipped"));
    for (const char* name : {"folder", "fifo", "device", "socket", "missing", "file/x", ".", "", ".kxtmp-9-9"}) {
        EXPECT_FALSE(LoadSave::SaveFileExists(name)) << name;
    }
    EXPECT_FALSE(LoadSave::SaveFileExists(nullptr));
    EXPECT_FALSE(LoadSave::BundleFileExists(nullptr));
}

TEST_F(Areas, WhatIsNoFileIsNeitherReadNorWaitedForNorReplaced) {
    fs::create_directory(Save("folder"));
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    bool device = MakeDevice(Save("device"));
    ASSERT_EQ(::mknod(Save("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    std::vector<std::string> before = NamesIn(Save());

    for (const std::string& each : before) {
        const char* name = each.c_str();
        SCOPED_TRACE(name);
        for (const char* mode : {"r", "w", "a+", "rw"}) {
            EXPECT_EQ(LoadSave::fopen(name, mode), nullptr) << mode;
        }
        EXPECT_EQ(LoadSave::WriteFile(name, "x", 1, nullptr), 0);
        EXPECT_EQ(LoadSave::RemoveSaveFile(name), 0);
    }
    EXPECT_EQ(NamesIn(Save()), before);
    EXPECT_TRUE(fs::is_fifo(Save("fifo")));
    EXPECT_EQ(fs::is_character_file(Save("device")), device);
}

// --- links ---------------------------------------------------------------------------------------------------------

/// The same on a kernel that opens beneath a directory by itself, on one that does not know the call, and in a
/// container whose filter refuses it.
class Links : public Areas, public ::testing::WithParamInterface<int> {
protected:
    void SetUp() override {
        Areas::SetUp();
        fs::create_directory(Save("folder"));
        WriteWholeFile(Save("folder/inside"), "inside");
        if (GetParam()) m_calls.FailFrom("openat2", 1, GetParam());
    }

    FaultySystemCalls m_calls;
};

TEST_P(Links, ThatLeadOutsideLeadNowhere) {
    fs::path top = Outside().parent_path();
    fs::create_symlink(Outside(), Save("file absolute"));
    fs::create_symlink("../outside", Save("file relative"));
    fs::create_symlink(top / "missing", Save("dangling absolute"));
    fs::create_symlink("../missing", Save("dangling relative"));
    fs::create_symlink("file relative", Save("chain"));
    fs::create_directory_symlink(top, Save("folder absolute"));
    fs::create_directory_symlink("..", Save("folder relative"));
    fs::create_directory_symlink("/", Save("root"));
    fs::create_symlink("loop", Save("loop"));
    fs::create_directory_symlink("../..", Save("folder/up"));
    std::vector<std::string> before = NamesIn(top);

    for (const char* name : {"file absolute", "file relative", "dangling absolute", "dangling relative", "chain",
                             "folder absolute/outside", "folder absolute/new", "folder relative/outside",
                             "folder relative/new", "root/etc/passwd", "loop", "folder/up/outside"}) {
        SCOPED_TRACE(name);
        // A link is a name in its own folder, so that a whole file may take its place; nothing beyond it is touched.
        bool last = std::string(name).find('/') == std::string::npos;
        EXPECT_FALSE(LoadSave::SaveFileExists(name));
        EXPECT_EQ(Resolved(name), "");
        for (const char* mode : {"r", "rt", "rb", "w", "wb", "wb+", "a+", "rw"}) {
            EXPECT_EQ(LoadSave::fopen(name, mode), nullptr) << mode;
        }
        if (!last) {
            EXPECT_EQ(LoadSave::WriteFile(name, "x", 1, nullptr), 0);
            EXPECT_EQ(LoadSave::RemoveSaveFile(name), 0);
            EXPECT_EQ(LoadSave::RenameSaveFile(name, "stolen"), -1);
            EXPECT_EQ(LoadSave::RenameSaveFile("folder/inside", name), -1);
        }
        for (const char* mode : {"rb", "wb"}) {
            EXPECT_EQ(KXOpenStream(Save(name).c_str(), mode), nullptr) << mode;
        }
        EXPECT_EQ(DirectoryExists(name), 0);
        EXPECT_EQ(DestroyDir(name), 0);
        EXPECT_EQ(FindNames(SaveArea(), (std::string(name) + "/*").c_str(), -1), std::vector<std::string>());
        EXPECT_EQ(ForceDirectories((std::string(name) + "/made").c_str()), 0);
    }
    EXPECT_EQ(NamesIn(top), before);
}

TEST_P(Links, AreReplacedByWholeFilesAndRemovedThemselves) {
    fs::create_symlink("../outside", Save("replaced"));
    fs::create_symlink("../outside", Save("removed"));

    EXPECT_EQ(LoadSave::WriteFile("replaced", "x", 1, nullptr), 1);
    EXPECT_EQ(LoadSave::RemoveSaveFile("removed"), 1);

    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Save("replaced"))));
    EXPECT_EQ(ReadWholeFile(Save("replaced")), "x");
    EXPECT_FALSE(fs::exists(fs::symlink_status(Save("removed"))));
}

TEST_P(Links, ThatLeadOutOfTheBundleLeadNowhere) {
    fs::create_symlink(Outside(), Bundle("outside"));
    fs::create_directory_symlink("..", Bundle("up"));
    int size = 0;

    for (const char* name : {"outside", "up/outside"}) {
        EXPECT_FALSE(LoadSave::BundleFileExists(name));
        EXPECT_EQ(Resolved(name, LoadSave::_GetBundleFileName), "");
        EXPECT_EQ(LoadSave::ReadBundleFile(name, &size), nullptr);
        EXPECT_EQ(LoadSave::fopen(name, "rb"), nullptr);
    }
}

TEST_P(Links, InsideAreFollowedWhereTheKernelCanPromiseIt) {
    fs::create_symlink("folder/inside", Save("link"));
    fs::create_directory_symlink("folder", Save("folder link"));
    bool followed = GetParam() == 0 && KnowsOpenat2();

    EXPECT_EQ(LoadSave::SaveFileExists("link"), followed);
    EXPECT_EQ(LoadSave::SaveFileExists("folder link/inside"), followed);
    _KXFILE* file = LoadSave::fopen("folder link/inside", "r");
    EXPECT_EQ(file != nullptr, followed);
    LoadSave::fclose(file);
}

TEST_P(Links, LeavePlainNamesAlone) {
    EXPECT_TRUE(LoadSave::SaveFileExists("folder/inside"));
    EXPECT_EQ(Resolved("folder/new"), Save("folder/new").string());
    EXPECT_EQ(Resolved("new/new"), Save("new/new").string());
    EXPECT_EQ(Resolved("."), Save().string());
    EXPECT_EQ(LoadSave::WriteFile("a/b/c", "x", 1, nullptr), 1);
    EXPECT_EQ(ReadWholeFile(Save("a/b/c")), "x");
    EXPECT_EQ(ForceDirectories("d/e/f"), 1);
    EXPECT_TRUE(fs::is_directory(Save("d/e/f")));
}

INSTANTIATE_TEST_SUITE_P(Kernels, Links, ::testing::Values(0, ENOSYS, EPERM), [](const auto& kernel) {
    if (kernel.param == 0) return "knows_openat2";
    return kernel.param == ENOSYS ? "lacks_openat2" : "filters_openat2";
});

}  // namespace
}  // namespace kx::test
