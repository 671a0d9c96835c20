// Directories by their paths, and the parts of file names.
#include "Files/Support/Support_File.h"

#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/Machine.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class SupportFile : public AreasTest {
protected:
    CapturingConsole m_console;
};

TEST_F(SupportFile, DirectoriesAreMadeWithEverythingAboveThem) {
    struct Case {
        std::string path;
        int made;
    };
    WriteWholeFile(Save("file"), "x");
    fs::create_directories(Bundle("data"));
    const Case cases[] = {{"a", 1},
                          {"b/c\\d", 1},
                          {Save("e/f").string(), 1},
                          {"a", 1},  // there already
                          {Save().string(), 1},
                          {Bundle("data").string(), 1},  // there already, in the bundle
                          {Bundle("new").string(), 0},
                          {"file", 0},
                          {"file/x", 0},
                          {"../x", 0},
                          {"", 0},
                          {"/", 0}};
    for (const Case& each : cases) {
        EXPECT_EQ(ForceDirectories(each.path.c_str()), each.made) << each.path;
    }
    EXPECT_EQ(ForceDirectories(nullptr), 0);
    EXPECT_TRUE(fs::is_directory(Save("b/c/d")));
    EXPECT_TRUE(fs::is_directory(Save("e/f")));
    EXPECT_EQ(NamesIn(Bundle()), std::vector<std::string>{"data"});
}

TEST_F(SupportFile, NewDirectoriesReachTheDisk) {
    FaultySystemCalls faults;

    EXPECT_EQ(ForceDirectories("a/b"), 1);

    const std::vector<std::string>& calls = faults.Calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "mkdirat"), 2);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "fsync"), 2);
}

TEST_F(SupportFile, ADirectoryExistsInEitherAreaAndNowhereElse) {
    fs::create_directory(Save("saved"));
    fs::create_directory(Bundle("shipped"));
    WriteWholeFile(Save("file"), "x");
    fs::create_directory_symlink("saved", Save("inside"));
    fs::create_directory_symlink("..", Save("outside"));
    struct Case {
        std::string path;
        int exists;
    };
    const Case cases[] = {{Save("saved").string(), 1},
                          {Save("inside").string(), KnowsOpenat2() ? 1 : 0},
                          {Save().string(), 1},
                          {Bundle("shipped").string(), 1},
                          {"saved", 1},
                          {"saved/", 1},
                          {"shipped", 1},
                          {Save("file").string(), 0},
                          {Save("missing").string(), 0},
                          {Save("outside").string(), 0},
                          {Save().parent_path().string(), 0},
                          {"/", 0},
                          {"..", 0},
                          {"", 0}};
    for (const Case& each : cases) {
        EXPECT_EQ(DirectoryExists(each.path.c_str()), each.exists) << each.path;
    }
    EXPECT_EQ(DirectoryExists(nullptr), 0);
}

TEST_F(SupportFile, ADirectoryIsDestroyedWithWhatIsInIt) {
    WriteWholeFile(Save("tree/a/b/file"), "x");
    WriteWholeFile(Save("tree/.hidden"), "x");
    WriteWholeFile(Save("kept"), "x");

    EXPECT_EQ(DestroyDir(Save("tree").c_str()), 1);

    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"kept"});
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(SupportFile, NeitherTheRootNorAFileNorWhatLiesElsewhereIsDestroyed) {
    WriteWholeFile(Save("file"), "x");
    WriteWholeFile(Bundle("shipped/file"), "x");
    fs::create_directory_symlink("..", Save("up"));
    fs::create_symlink("file", Save("to file"));

    for (const std::string& path :
         {Save().string(), Bundle("shipped").string(), Save("up/bundle").string(), Save("..").string(),
          std::string("/"), std::string(".."), std::string("."), std::string()}) {
        bool silent = path == Save("up/bundle") && !KnowsOpenat2();  // a link that is not followed is no directory
        EXPECT_EQ(DestroyDir(path.c_str()), 0) << path;
        EXPECT_EQ(m_console.Take().empty(), silent) << path;
    }
    for (const char* name :
         {"file", "missing", "to file", "up", "file/x"}) {  // there is no such directory, and that is that
        EXPECT_EQ(DestroyDir(name), 0) << name;
        EXPECT_EQ(m_console.Take(), "") << name;
    }
    EXPECT_EQ(DestroyDir(nullptr), 0);

    EXPECT_EQ(NamesIn(Save()), (std::vector<std::string>{"file", "to file", "up"}));
    EXPECT_TRUE(fs::exists(Bundle("shipped/file")));
}

TEST_F(SupportFile, ALinkToADirectoryIsDestroyedItself) {
    WriteWholeFile(Save("tree/file"), "x");
    fs::create_directory_symlink("tree", Save("link"));

    EXPECT_EQ(DestroyDir(Save("link").c_str()), KnowsOpenat2() ? 1 : 0);

    EXPECT_EQ(fs::is_symlink(Save("link")), !KnowsOpenat2());
    EXPECT_TRUE(fs::exists(Save("tree/file")));
}

TEST_F(SupportFile, WhyADirectoryIsLeftIsSaid) {
    WriteWholeFile(Save("tree/file"), "x");
    FaultySystemCalls faults;
    faults.FailFrom("unlinkat", 1, EACCES);

    EXPECT_EQ(DestroyDir(Save("tree").c_str()), 0);

    EXPECT_EQ(m_console.Take(), "Failed to remove directory: " + Save("tree").string() + " (Permission denied)\n");
    EXPECT_TRUE(fs::exists(Save("tree/file")));
}

TEST(FileNames, AreTakenApartByTheirTextAlone) {
    struct Case {
        const char *name, *path, *leaf, *drive, *extension;
    };
    const Case cases[] = {
        {"C:/games/data/save.ini", "C:/games/data/", "save.ini", "C:", ".ini"},
        {"data\\save.ini", "data\\", "save.ini", "", ".ini"},
        {"save.ini", "", "save.ini", "", ".ini"},
        {"a/b\\c/d", "a/b\\c/", "d", "", ""},
        {"a/b/c\\d", "a/b/c\\", "d", "", ""},
        {"folder/", "folder/", "", "", ""},
        {"/", "/", "", "", ""},
        {"my.dir/file", "my.dir/", "file", "", ""},
        {"archive.tar.gz", "", "archive.tar.gz", "", ".gz"},
        {".hidden", "", ".hidden", "", ".hidden"},
        {"ends with.", "", "ends with.", "", "."},
        {"C:file", "", "C:file", "C:", ""},
        {"c:", "", "c:", "c:", ""},
        {"1:/x", "1:/", "x", "", ""},
        {"@:/x", "@:/", "x", "", ""},
        {"[:/x", "[:/", "x", "", ""},
        {"{:/x", "{:/", "x", "", ""},
        {"\xC3\xA4:/x", "\xC3\xA4:/", "x", "", ""},
        {"\\\\server\\share\\dir\\f.x", "\\\\server\\share\\dir\\", "f.x", "\\\\server\\share", ".x"},
        {"\\\\server\\share", "\\\\server\\", "share", "\\\\server\\share", ""},
        {"\\\\server\\share/f", "\\\\server\\share/", "f", "\\\\server\\share", ""},
        {"\\\\server/share\\f", "\\\\server/share\\", "f", "\\\\server/share", ""},
        {"\\\\server\\\\f", "\\\\server\\\\", "f", "", ""},
        {"\\\\server", "\\\\", "server", "", ""},
        {"\\\\server\\", "\\\\server\\", "", "", ""},
        {"\\\\\\share", "\\\\\\", "share", "", ""},
        {"//server/share", "//server/", "share", "", ""},
        {"", "", "", "", ""},
    };
    auto taken = [](char* text) {
        std::string copy = text;
        KXFree(text);
        return copy;
    };
    long long before = MemoryManager::Stats().blocks;
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(taken(ExtractFilePath(each.name, false)), each.path);
        EXPECT_EQ(taken(ExtractFilePath(each.name, true)), each.path);
        EXPECT_EQ(taken(ExtractFileName(each.name)), each.leaf);
        EXPECT_EQ(taken(ExtractFileDrive(each.name)), each.drive);
        EXPECT_EQ(taken(ExtractFileExt(each.name)), each.extension);
    }
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
    EXPECT_EQ(ExtractFilePath(nullptr, true), nullptr);
    EXPECT_EQ(ExtractFileName(nullptr), nullptr);
    EXPECT_EQ(ExtractFileDrive(nullptr), nullptr);
    EXPECT_EQ(ExtractFileExt(nullptr), nullptr);
}

}  // namespace
}  // namespace kx::test
