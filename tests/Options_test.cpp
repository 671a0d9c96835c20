// The command line of kxrun.
#include "Runner/Options.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace kx::test {
namespace {

struct Parsed {
    int status;
    Options options;
    std::string out, errors;
};

Parsed Parse(std::vector<std::string> words) {
    words.insert(words.begin(), "kxrun");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    Parsed parsed;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    parsed.status = ParseOptions(static_cast<int>(argv.size()), argv.data(), &parsed.options);
    parsed.out = ::testing::internal::GetCapturedStdout();
    parsed.errors = ::testing::internal::GetCapturedStderr();
    return parsed;
}

using Words = std::vector<std::string>;

TEST(Options, TakeAScriptAndItsParameters) {
    Parsed parsed = Parse({"game.lua", "easy", "-v", "--save", "x"});

    EXPECT_EQ(parsed.status, -1);
    EXPECT_EQ(parsed.options.script, "game.lua");
    EXPECT_EQ(parsed.options.parameters, (Words{"easy", "-v", "--save", "x"}));
    EXPECT_EQ(parsed.options.save, "");
}

TEST(Options, StandBeforeTheScript) {
    Parsed parsed = Parse(
        {"--save", "s", "--bundle", "b", "--durability=none", "-i", "--unsafe", "-e", "a()", "-e", "b()", "x.lua"});

    EXPECT_EQ(parsed.status, -1);
    EXPECT_EQ(parsed.options.save, "s");
    EXPECT_EQ(parsed.options.bundle, "b");
    EXPECT_FALSE(parsed.options.durable);
    EXPECT_TRUE(parsed.options.interactive);
    EXPECT_TRUE(parsed.options.unsafe);
    EXPECT_EQ(parsed.options.code, (Words{"a()", "b()"}));
    EXPECT_EQ(parsed.options.script, "x.lua");
}

TEST(Options, AreDurableAndContainedUnlessToldOtherwise) {
    Parsed parsed = Parse({"x.lua"});

    EXPECT_TRUE(parsed.options.durable);
    EXPECT_FALSE(parsed.options.unsafe);
    EXPECT_FALSE(parsed.options.interactive);
    EXPECT_FALSE(parsed.options.list);
}

TEST(Options, TwoDashesMakeTheNextWordTheScript) {
    Parsed parsed = Parse({"--save", "s", "--", "-strange.lua", "--", "x"});

    EXPECT_EQ(parsed.status, -1);
    EXPECT_EQ(parsed.options.script, "-strange.lua");
    EXPECT_EQ(parsed.options.parameters, (Words{"--", "x"}));
}

TEST(Options, OneDashIsStandardInput) {
    EXPECT_EQ(Parse({"-"}).options.script, "-");
    EXPECT_EQ(Parse({"-", "x"}).options.parameters, Words{"x"});
}

TEST(Options, WrongUsageIsStatusTwoAndSaysWhatToDo) {
    const Words lines[] = {{},
                           {"--nonsense"},
                           {"-z"},
                           {"--durability", "some", "x.lua"},
                           {"--save"},
                           {"-e"},
                           {"--save", "", "x.lua"},
                           {"--save=", "-e", "x"},
                           {"--bundle", "-i", "x.lua"}};
    for (const Words& line : lines) {
        Parsed parsed = Parse(line);

        EXPECT_EQ(parsed.status, 2);
        EXPECT_EQ(parsed.out, "");
        EXPECT_EQ(parsed.errors.rfind("kxrun: ", 0), 0u) << parsed.errors;
        EXPECT_NE(parsed.errors.find("Try 'kxrun --help'."), std::string::npos);
    }
}

TEST(Options, NinetyNineParametersAreTheMost) {
    Words words(100, "x");
    EXPECT_EQ(Parse(words).options.parameters.size(), 99u);
    EXPECT_EQ(Parse(words).status, -1);

    words.push_back("one more");

    EXPECT_EQ(Parse(words).status, 2);
}

TEST(Options, HelpAndVersionGoToStandardOutput) {
    Parsed help = Parse({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: kxrun"), std::string::npos);
    EXPECT_NE(help.out.find("--durability"), std::string::npos);
    EXPECT_NE(help.out.find("Examples:"), std::string::npos);

    Parsed version = Parse({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("kxrun ", 0), 0u);
}

class Folders : public ::testing::Test {
protected:
    Folders() {
        ::unsetenv("KX_SAVE_DIR");
        ::unsetenv("XDG_DATA_HOME");
        ::setenv("HOME", "/home/player", 1);
    }
};

TEST_F(Folders, SavesGoWhereTheOptionTheEnvironmentOrTheHomeSays) {
    Options options;
    options.script = "levels/my.game.lua";
    EXPECT_EQ(SaveFolder(options), "/home/player/.local/share/kxrun/my.game");

    ::setenv("XDG_DATA_HOME", "/data", 1);
    EXPECT_EQ(SaveFolder(options), "/data/kxrun/my.game");

    ::setenv("KX_SAVE_DIR", "/saves", 1);
    EXPECT_EQ(SaveFolder(options), "/saves");

    options.save = "here";
    EXPECT_EQ(SaveFolder(options), "here");
}

TEST_F(Folders, SavesWithoutAScriptFileHaveAFolderOfTheirOwn) {
    Options options;
    EXPECT_EQ(SaveFolder(options), "/home/player/.local/share/kxrun/scratch");

    options.script = "-";
    EXPECT_EQ(SaveFolder(options), "/home/player/.local/share/kxrun/scratch");
}

TEST_F(Folders, SavesHaveNoFolderWithoutAHome) {
    ::unsetenv("HOME");

    EXPECT_EQ(SaveFolder(Options()), "");
}

TEST_F(Folders, TheBundleIsTheScriptsFolderUnlessNamed) {
    Options options;
    EXPECT_EQ(BundleFolder(options), ".");

    options.script = "game.lua";
    EXPECT_EQ(BundleFolder(options), ".");

    options.script = "levels/one.lua";
    EXPECT_EQ(BundleFolder(options), "levels/");

    options.script = "/main.lua";
    EXPECT_EQ(BundleFolder(options), "/");

    options.bundle = "data";
    EXPECT_EQ(BundleFolder(options), "data");
}

}  // namespace
}  // namespace kx::test
