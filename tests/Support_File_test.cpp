// Directories of the save area.
#include "Files/Support/Support_File.h"

#include "tests/support/Areas.h"
#include "tests/support/FaultySystemCalls.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using SupportFile = AreasTest;

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

}  // namespace
}  // namespace kx::test
