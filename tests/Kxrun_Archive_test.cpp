// kxrun and zip archives: games in one file, and scripts that unpack.
#include "tests/Kxrun_fixture.h"
#include "tests/support/Snapshot.h"
#include "tests/support/Variable.h"
#include "tests/support/ZipBuilder.h"

#include <fstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class KxrunArchive : public KxrunTest {
protected:
    fs::path Game(const std::string& name = "game.zip") const { return Folder(name); }

    /// A game with what it needs to run, and to tell how.
    static std::vector<ZipEntry> GameEntries() {
        return {Deflated("main.lua", "local items = require('lib.items')\n"
                                     "local file = file_text_open_read('data/hello.txt')\n"
                                     "print(items.name, file_text_read_string(file), parameter_string(0), ...)\n"
                                     "file_text_close(file)\n"),
                Deflated("lib/items.lua", "return {name = 'sword'}"),
                {"data/hello.txt", "hello"}};
    }

    void WriteGame() { WriteWholeFile(Game(), Build(GameEntries())); }

    Outcome RunGame(const fs::path& game, Words parameters = {}) {
        parameters.insert(parameters.begin(), {KXRUN, "--save", Save().string(), game.string()});
        return Start(parameters);
    }
};

// --- an archive as the bundle ----------------------------------------------------------------------------------------

TEST_F(KxrunArchive, AnArchiveIsABundleLikeAFolder) {
    WriteGame();
    WriteWholeFile(Folder("script.lua"), "print(file_exists('data/hello.txt'), directory_exists('lib'),\n"
                                         "require('lib.items').name, file_find_first('*', 0))");

    Outcome outcome =
        Start({KXRUN, "--save", Save().string(), "--bundle", Game().string(), Folder("script.lua").string()});

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.out, "1.0\t1.0\tsword\tmain.lua\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KxrunArchive, ABrokenArchiveIsNoBundle) {
    WriteWholeFile(Game(), Build({{"../x", "x"}}));

    Outcome outcome = Start({KXRUN, "--save", Save().string(), "--bundle", Game().string(), "-e", "print(1)"});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(
        outcome.errors.find("Failed to open archive: " + Game().string() + " (entry \"../x\" leaves its folder)\n"),
        std::string::npos)
        << outcome.errors;
}

// --- a game in an archive --------------------------------------------------------------------------------------------

TEST_F(KxrunArchive, AGameInAnArchiveIsRun) {
    WriteGame();

    Outcome outcome = RunGame(Game(), {"easy", "--list"});

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.out, "sword\thello\t" + Game().string() + "\teasy\t--list\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(KxrunArchive, AGameIsKnownByItsContentNotByItsName) {
    WriteWholeFile(Game("game.dat"), Build(GameEntries()));
    EXPECT_EQ(RunGame(Game("game.dat")).out, "sword\thello\t" + Game("game.dat").string() + "\n");

    WriteWholeFile(Game("text.zip"), "print('a script')");
    EXPECT_EQ(RunGame(Game("text.zip")).out, "a script\n");
}

TEST_F(KxrunArchive, AGameIsRunWhateverTheDateOfItsFile) {
    WriteGame();
    timespec later{4323110400, 0};  // in 2106: more seconds than 32 bits count
    timespec times[] = {later, later};
    ASSERT_EQ(::utimensat(AT_FDCWD, Game().c_str(), times, 0), 0);

    Outcome outcome = RunGame(Game());

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.out, "sword\thello\t" + Game().string() + "\n");
}

TEST_F(KxrunArchive, AGameSavesInAFolderOfItsNameWithoutTheEnding) {
    WriteWholeFile(Game("quest.zip"), Build({{"main.lua", "file_text_close(file_text_open_write('saved'))"}}));
    Variable data("XDG_DATA_HOME", Folder("data").string());
    Variable none("KX_SAVE_DIR", std::nullopt);

    Outcome outcome = Start({KXRUN, Game("quest.zip").string()});

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_TRUE(fs::exists(Folder("data/kxrun/quest/saved")));
}

TEST_F(KxrunArchive, AnErrorInAGameHasItsPositionThere) {
    WriteWholeFile(Game(), Build({{"main.lua", "\nrequire 'broken'\n"}, {"broken.lua", "\n\nerror('oh')"}}));

    Outcome outcome = RunGame(Game());

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("broken.lua:3: oh"), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("main.lua:2:"), std::string::npos) << outcome.errors;
}

TEST_F(KxrunArchive, ArchivesThatAreNoGamesAreWrongUsage) {
    WriteWholeFile(Game(), Build({{"other.lua", "print(1)"}}));
    Outcome without = RunGame(Game());
    EXPECT_EQ(without.status, 2);
    EXPECT_EQ(without.out, "");
    EXPECT_NE(without.errors.find("main.lua"), std::string::npos) << without.errors;

    WriteWholeFile(Game(), Build({{"main.lua/x", "print(1)"}}));
    EXPECT_EQ(RunGame(Game()).status, 2);

    std::string bytes = Build(GameEntries());
    WriteWholeFile(Game(), bytes.substr(0, bytes.size() - 10));
    Outcome cut = RunGame(Game());
    EXPECT_EQ(cut.status, 2);
    EXPECT_NE(cut.errors.find("is no zip archive"), std::string::npos) << cut.errors;
}

TEST_F(KxrunArchive, AGameWithAnotherBundleIsWrongUsage) {
    WriteGame();

    Outcome outcome = Run({Game().string()});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.errors.find("--bundle"), std::string::npos) << outcome.errors;
}

TEST_F(KxrunArchive, AGameThatCannotBeReadIsAFailure) {
    ZipEntry main = Deflated("main.lua", "print('run')");
    main.crc = 1;
    WriteWholeFile(Game(), Build({main}));

    Outcome outcome = RunGame(Game());

    EXPECT_NE(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.errors.find("has a wrong checksum"), std::string::npos) << outcome.errors;
}

// --- scripts that unpack ---------------------------------------------------------------------------------------------

TEST_F(KxrunArchive, AScriptUnpacksWhatIsShippedAndWhatIsSaved) {
    WriteWholeFile(Bundle() / "pack.zip", Build({{"a.txt", "shipped"}, Deflated("d/b.txt", "x")}));
    WriteWholeFile(Save() / "own.zip", Build({{"a.txt", "saved"}}));

    Outcome outcome = RunScript("print(zip_unzip('pack.zip', 'level'), zip_unzip('own.zip', '.'))\n"
                                "print(zip_unzip('missing.zip', 'x'), zip_unzip('pack.zip', '../x'))");

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.out, "2.0\t1.0\n-1.0\t-1.0\n");
    EXPECT_EQ(ReadWholeFile(Save() / "level/d/b.txt"), "x");
    EXPECT_EQ(ReadWholeFile(Save() / "a.txt"), "saved");
    EXPECT_NE(outcome.errors.find("Failed to unzip: "), std::string::npos);
    EXPECT_FALSE(fs::exists(Folder("x")));
}

TEST_F(KxrunArchive, AHostileArchiveCostsTheScriptNothing) {
    WriteWholeFile(Bundle() / "evil.zip", Build({{"good", "x"}, {"../../evil", "x"}}));

    Outcome outcome = RunScript("print(zip_unzip('evil.zip', 'to'))");

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.out, "-1.0\n");
    EXPECT_EQ(outcome.errors,
              "Failed to unzip: " + (Bundle() / "evil.zip").string() + " (entry \"../../evil\" leaves its folder)\n");
    EXPECT_TRUE(fs::is_empty(Save()));
}

TEST_F(KxrunArchive, WhatIsRunMayBeginAsFilesForTheShellDo) {
    for (const char* head : {"#!/usr/bin/env kxrun\n", "\xEF\xBB\xBF", "\xEF\xBB\xBF#!kxrun\n"}) {
        WriteWholeFile(Game(),
                       Build({{"main.lua", head + std::string("print('runs') require('m')")}, {"m.lua", "#x"}}));
        Outcome outcome = RunGame(Game());
        EXPECT_EQ(outcome.out, "runs\n") << outcome.errors;
        EXPECT_EQ(outcome.status, 0);
    }
}

TEST_F(KxrunArchive, AScriptFromAPipeIsReadOnce) {
    WriteWholeFile(Folder("script.lua"), "print('runs')");
    ASSERT_EQ(::mkfifo(Folder("pipe").c_str(), 0600), 0);
    pid_t child = Begin({KXRUN, "--save", Save().string(), Folder("pipe").string()});
    { std::ofstream(Folder("pipe")) << "print('runs')"; }

    EXPECT_EQ(Finish(child).out, "runs\n");
}

TEST_F(KxrunArchive, AnArchiveThatCannotBeRunLeavesNoFolderForSaves) {
    for (const std::string& bytes : {Build({}), Build({{"x.lua", ""}}), Build(GameEntries()).substr(0, 100)}) {
        WriteWholeFile(Game(), bytes);
        Outcome outcome = RunGame(Game());
        EXPECT_EQ(outcome.status, 2);
        EXPECT_NE(outcome.errors.find("\"" + Game().string() + "\""), std::string::npos) << outcome.errors;
        EXPECT_EQ(outcome.errors.find("--bundle"), std::string::npos) << outcome.errors;
        EXPECT_FALSE(fs::exists(Save()));
    }
}

TEST_F(KxrunArchive, AModuleThatCannotBeUnpackedIsNotOneThatIsMissing) {
    ZipEntry broken = Deflated("m.lua", "return 1");
    broken.crc = 1;
    WriteWholeFile(Game(), Build({{"main.lua", "require('m')"}, broken}));

    Outcome outcome = RunGame(Game());

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("cannot read file 'm.lua' of the bundle"), std::string::npos) << outcome.errors;
}

/// More than any machine unpacks within the second after which progress is shown.
std::string LongArchive() {
    return Build({{"first", "x"}, Zeros("zeros", 4000), {"last", "x"}});
}

TEST_F(KxrunArchive, ATerminalShowsHowFarALongExtractionIsAndAnInterruptEndsIt) {
    WriteWholeFile(Bundle() / "long.zip", LongArchive());
    Terminal terminal(*this, {"--durability", "none", "-e", "zip_unzip('long.zip', 'to')"});

    std::string shown = terminal.ReadUntil("\033[K");
    terminal.Type("\003");
    terminal.ReadUntil("");

    EXPECT_NE(shown.find("unpacking long.zip: 1 of 3 files, "), std::string::npos) << shown;
    EXPECT_EQ(ContentsBelow(Save()), (Snapshot{{"to", "<directory>"}, {"to/first", "x"}}));
}

}  // namespace
}  // namespace kx::test
