// kxrun as a program: statuses, streams, and what happens to open files at the end.
#include "Platform/Sanitizer.h"
#include "tests/Kxrun_fixture.h"
#include "tests/support/Machine.h"

#include <cstdlib>

namespace kx::test {
namespace {

class Kxrun : public KxrunTest {};

constexpr char kOpenFiles[] = "local a = file_text_open_append('log.txt') file_text_write_string(a, 'appended')\n"
                              "local w = file_text_open_write('save.txt') file_text_write_string(w, 'half a')\n"
                              "local n = file_text_open_write('new.txt') file_text_write_string(n, 'half a')\n"
                              "local b = file_bin_open('bytes.bin', 2) file_bin_write_byte(b, 66)\n";

TEST_F(Kxrun, EndsWithZeroAndTheScriptsOutput) {
    Outcome outcome = RunScript("print('hello', parameter_string(1), ...)", {"you"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "hello\tyou\tyou\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(Kxrun, AScriptErrorIsStatusOneWithPositionAndTraceback) {
    Outcome outcome = RunScript("local function inner()\n  file_text_close(99)\nend\ninner()\n");

    std::string script = (Bundle() / "game.lua").string();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors.rfind("kxrun: " + script +
                                       ":2: Trying to close text file that has not been opened.\nstack traceback:\n",
                                   0),
              0u)
        << outcome.errors;
    EXPECT_NE(outcome.errors.find("game.lua:4: in main chunk"), std::string::npos);
    EXPECT_EQ(outcome.errors.find('\033'), std::string::npos);  // no colour off a terminal
}

TEST_F(Kxrun, ASyntaxErrorAndAMissingScriptAreStatusOne) {
    EXPECT_EQ(RunScript("this is no Lua").status, 1);
    EXPECT_EQ(Run({Folder("missing.lua").string()}).status, 1);
    EXPECT_EQ(RunScript(std::string("\x1bLua binary")).status, 1);
}

TEST_F(Kxrun, ErrorsThatAreNoTextsAreShown) {
    EXPECT_NE(RunScript("error({})").errors.find("(error object is a table value)"), std::string::npos);
    EXPECT_NE(RunScript("error(setmetatable({}, {__tostring = function() return 'told' end}))").errors.find("told"),
              std::string::npos);
    EXPECT_NE(RunScript("error(nil)").errors.find("(error object is a nil value)"), std::string::npos);
}

TEST_F(Kxrun, WrongUsageIsStatusTwo) {
    EXPECT_EQ(Run({"--nonsense"}).status, 2);
    EXPECT_EQ(Run({}).status, 2);
}

TEST_F(Kxrun, AreasThatCannotBeUsedAreStatusTwoWithAdvice) {
    WriteWholeFile(Folder("a file"), "");

    Outcome save = Start({KXRUN, "--save", Folder("a file").string(), "-e", "print(1)"});
    EXPECT_EQ(save.status, 2);
    EXPECT_NE(save.errors.find("Not a directory; name another with --save"), std::string::npos) << save.errors;

    Outcome bundle =
        Start({KXRUN, "--save", Save().string(), "--bundle", Folder("missing").string(), "-e", "print(1)"});
    EXPECT_EQ(bundle.status, 2);
    EXPECT_NE(bundle.errors.find("No such file or directory; name another with --bundle"), std::string::npos);
}

TEST_F(Kxrun, RunsChunksInTheirOrderBeforeTheScript) {
    WriteWholeFile(Bundle() / "game.lua", "print(x)");

    EXPECT_EQ(Run({"-e", "x = 1", "-e", "x = x + 1", (Bundle() / "game.lua").string()}).out, "2\n");
}

TEST_F(Kxrun, ReadsAScriptFromStandardInput) {
    WriteWholeFile(Folder("in"), "print(parameter_string(0), parameter_string(1), ...)");

    EXPECT_EQ(Run({"-", "x"}).out, "-\tx\tx\n");
}

TEST_F(Kxrun, ListsTheBuiltIns) {
    Outcome outcome = Run({"--list"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find("file_text_write_string           2\n"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(Save()));  // nothing is made for a mere question
}

TEST_F(Kxrun, AScriptThatEndsWellHasItsOpenFilesWritten) {
    WriteWholeFile(Save() / "save.txt", "old");

    EXPECT_EQ(RunScript(kOpenFiles).status, 0);

    EXPECT_EQ(ReadWholeFile(Save() / "log.txt"), "appended");
    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "half a");
    EXPECT_EQ(ReadWholeFile(Save() / "new.txt"), "half a");
    EXPECT_EQ(ReadWholeFile(Save() / "bytes.bin"), "B");
}

TEST_F(Kxrun, AScriptThatFailsReplacesNoGoodSave) {
    WriteWholeFile(Save() / "save.txt", "old");
    WriteWholeFile(Save() / "log.txt", "old, ");

    Outcome outcome = RunScript(std::string(kOpenFiles) + "error('stop')");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "old");
    EXPECT_EQ(ReadWholeFile(Save() / "log.txt"), "old, appended");
    EXPECT_EQ(NamesIn(Save()), (Words{"log.txt", "save.txt"}));
    for (const char* name : {"save.txt", "new.txt", "bytes.bin"}) {
        EXPECT_NE(outcome.errors.find("Not written, because the script failed before it was closed: " +
                                      (Save() / name).string()),
                  std::string::npos);
    }
    EXPECT_EQ(outcome.errors.find("log.txt"), std::string::npos);
}

TEST_F(Kxrun, AFinaliserDoesNotWriteAfterAFailureEither) {
    WriteWholeFile(Save() / "save.txt", "old");

    RunScript("local w = file_text_open_write('save.txt') file_text_write_string(w, 'half a')\n"
              "guard = setmetatable({}, {__gc = function() file_text_close(w) end})\nerror('stop')");

    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "old");
}

TEST_F(Kxrun, AScriptThatEndsWellHasItsIniFileWritten) {
    Outcome outcome = RunScript("ini_open('settings.ini') ini_write_string('a', 'k', 'v')");

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(ReadWholeFile(Save() / "settings.ini"), "[a]\nk=v\n");
}

TEST_F(Kxrun, AScriptThatFailsLeavesItsIniFileAsItWas) {
    WriteWholeFile(Save() / "settings.ini", "[a]\nk=good\n");

    Outcome outcome = RunScript("ini_open('settings.ini') ini_write_string('a', 'k', 'half')\n"
                                "guard = setmetatable({}, {__gc = function() ini_close() end})\nerror('stop')");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("Not written, because the script failed before it was closed: settings.ini\n"),
              std::string::npos);
    EXPECT_EQ(ReadWholeFile(Save() / "settings.ini"), "[a]\nk=good\n");
}

TEST_F(Kxrun, AnIniFileThatCannotBeWrittenAtTheEndIsStatusOne) {
    std::filesystem::create_directories(Save() / "settings.ini");

    Outcome outcome = RunScript("ini_open('settings.ini') ini_write_string('a', 'k', 'v')");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find("Failed to write file: settings.ini"), std::string::npos);
}

TEST_F(Kxrun, AFileThatCannotBeWrittenAtTheEndIsStatusOne) {
    // A file-size limit of 64 KB makes a larger write fail.
    std::string command =
        std::string("ulimit -f 64; exec '") + KXRUN + "' --save '" + Save().string() +
        "' -e \"file_text_write_string(file_text_open_write('late.txt'), ('x'):rep(1000000))\" 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
    EXPECT_FALSE(std::filesystem::exists(Save() / "late.txt"));
}

TEST_F(Kxrun, AFinaliserThatCannotWriteIsStatusOne) {
    WriteWholeFile(Save() / "late.txt", "old");
    WriteWholeFile(Folder("script.lua"),
                   "local w = file_text_open_write('late.txt') file_text_write_string(w, ('n'):rep(1000000))\n"
                   "setmetatable({}, {__gc = function() file_text_close(w) end})");
    std::string command = std::string("ulimit -f 64; exec '") + KXRUN + "' --save '" + Save().string() + "' '" +
                          Folder("script.lua").string() + "' 2>/dev/null";

    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);

    EXPECT_EQ(ReadWholeFile(Save() / "late.txt"), "old");
}

TEST_F(Kxrun, AFinaliserOfAFailedScriptNeitherReplacesAGoodSaveNorHidesTheFailure) {
    WriteWholeFile(Save() / "save.txt", "good");

    Outcome outcome = RunScript("setmetatable({}, {__gc = function()\n"
                                "local w = file_text_open_write('save.txt') file_text_write_string(w, 'half')\n"
                                "kx.exit(0) end})\nerror('bad')");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "good");
}

TEST_F(Kxrun, AFileBeyondTheProcesssLimitIsAScriptError) {
    std::string command = std::string("ulimit -f 64; exec '") + KXRUN + "' --save '" + Save().string() +
                          "' -e \"local w = file_text_open_write('x') file_text_write_string(w, ('x'):rep(1000000)) "
                          "kx.exit(pcall(file_text_close, w) and 3 or 4)\"";

    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 4);
}

TEST_F(Kxrun, AnExitStatusIsAByte) {
    for (const char* status : {"256", "-1", "4294967296"}) {
        Outcome outcome = RunScript("kx.exit(" + std::string(status) + ")");
        EXPECT_EQ(outcome.status, 1) << status;
        EXPECT_NE(outcome.errors.find("an exit status is 0 to 255"), std::string::npos) << status;
    }
    EXPECT_EQ(RunScript("kx.exit(255)").status, 255);
}

TEST_F(Kxrun, UnsafeScriptsEndWithTheirFilesWrittenToo) {
    struct Case {
        const char* argument;
        int status;
    };
    for (const Case& each : {Case{"", 0}, {"true", 0}, {"false", 1}, {"7", 7}}) {
        Outcome outcome = Run({"--unsafe", "-e",
                               "local w = file_text_open_write('u.txt')\n"
                               "file_text_write_string(w, 'x') os.exit(" +
                                   std::string(each.argument) + ")"});
        EXPECT_EQ(outcome.status, each.status);
        EXPECT_EQ(ReadWholeFile(Save() / "u.txt"), "x");
        std::filesystem::remove(Save() / "u.txt");
    }
}

TEST_F(Kxrun, ErrorsHaveTheScriptsPositionThroughAnyCallInBetween) {
    Outcome outcome = RunScript("\nprint(pcall(file_text_close, 99))\nprint(pcall(file_text_close))");

    EXPECT_NE(outcome.out.find("game.lua:2: Trying to close text file"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("game.lua:3: file_text_close takes 1 argument, but 0 given"), std::string::npos);
}

#if !KX_ADDRESS_SANITIZER && !KX_THREAD_SANITIZER  // they take more room than any limit leaves
TEST_F(Kxrun, ArgumentsThatDoNotFitIntoMemoryAreAScriptError) {
    if (IsEmulated()) GTEST_SKIP() << kLimitedWithTheProgram;
    std::string command = std::string("ulimit -v 160000; exec '") + KXRUN + "' --save '" + Save().string() +
                          "' -e \"local t = {} for i = 1, 3000000 do t[i] = 'a' end "
                          "local ok, text = pcall(file_exists, t) print(ok, text)\" > '" +
                          Folder("out").string() + "'";

    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0);

    EXPECT_NE(ReadWholeFile(Folder("out")).find("file_exists: not enough memory"), std::string::npos);
}

TEST_F(Kxrun, AnIniFileThatDoesNotFitIntoMemoryAtTheEndCostsNoOtherFile) {
    if (IsEmulated()) GTEST_SKIP() << kLimitedWithTheProgram;
    WriteWholeFile(Folder("script.lua"),
                   "local f = file_text_open_write('t.txt') file_text_write_string(f, 'precious')\n"
                   "ini_open('a.ini') ini_write_string('a', 'k', ('x'):rep(150000000))\n"
                   "collectgarbage()");
    std::string command = std::string("ulimit -v 500000; exec '") + KXRUN + "' --save '" + Save().string() + "' '" +
                          Folder("script.lua").string() + "' 2> '" + Folder("errors").string() + "'";

    int status = std::system(command.c_str());

    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(ReadWholeFile(Save() / "t.txt"), "precious");
    EXPECT_NE(ReadWholeFile(Folder("errors")).find("Failed to write file: a.ini (Cannot allocate memory)"),
              std::string::npos);
}

/// Whichever allocation it is that fails: those of the C++ library's own containers throw too.
TEST_F(Kxrun, StructsThatDoNotFitIntoMemoryAreAScriptErrorAndTheirFilesAreWritten) {
    if (IsEmulated()) GTEST_SKIP() << kLimitedWithTheProgram;
    std::string command = std::string("ulimit -v 200000; exec '") + KXRUN + "' --save '" + Save().string() +
                          "' -e \"local file = file_text_open_write('kept.txt') file_text_write_string(file, 'kept') "
                          "local t = {} local ok, text = pcall(function() for i = 1, 3000000 do t[i] = kx.struct() end "
                          "end) t = nil print(ok, text)\" > '" +
                          Folder("out").string() + "'";

    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0);

    EXPECT_NE(ReadWholeFile(Folder("out")).find("not enough memory"), std::string::npos);
    EXPECT_EQ(ReadWholeFile(Save() / "kept.txt"), "kept");
}
#endif

TEST_F(Kxrun, APromptOutlivesAScriptThatTakesPrintAway) {
    WriteWholeFile(Folder("in"), "setmetatable(_G, {__index = function() error('boom') end}) print = nil\n1\n"
                                 "rawset(_G, 'print', function() error({}) end)\n1\n");

    Outcome outcome = Run({"-i"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.errors.find("boom"), std::string::npos);
    EXPECT_NE(outcome.errors.find("(error object is a table value)"), std::string::npos);
}

TEST_F(Kxrun, ExitEndsAtOnceAndWritesFiles) {
    Outcome outcome = RunScript(std::string(kOpenFiles) + "pcall(function() kx.exit(7) end) print('not reached')");

    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "half a");
}

TEST_F(Kxrun, ExitWithoutAStatusIsZeroFromACoroutineToo) {
    EXPECT_EQ(RunScript("coroutine.wrap(function() print('out') kx.exit() end)()").status, 0);
    EXPECT_EQ(RunScript("coroutine.wrap(function() print('out') kx.exit() end)()").out, "out\n");
}

TEST_F(Kxrun, RequireLoadsModulesOfTheBundleOnce) {
    WriteWholeFile(Bundle() / "lib/items.lua", "count = (count or 0) + 1 return {name = ...}");

    Outcome outcome =
        RunScript("print(require('lib.items').name, require('lib.items') == require('lib.items'), count)");

    EXPECT_EQ(outcome.out, "lib.items\ttrue\t1\n");
}

TEST_F(Kxrun, RequireSaysWhatIsWrong) {
    WriteWholeFile(Bundle() / "broken.lua", "this is no Lua");
    WriteWholeFile(Bundle() / "circle.lua", "require 'circle'");
    WriteWholeFile(Folder("secret.lua"), "return 'secret'");

    EXPECT_NE(RunScript("require 'missing.one'").errors.find("no file 'missing/one.lua' in the bundle"),
              std::string::npos);
    EXPECT_NE(RunScript("require 'broken'").errors.find("broken.lua:1:"), std::string::npos);
    EXPECT_NE(RunScript("require 'circle'").errors.find("module 'circle' requires itself in a circle"),
              std::string::npos);
    std::filesystem::create_symlink(Folder("secret.lua"), Bundle() / "link.lua");
    std::string outside = Folder("secret").string();
    for (const std::string& name :
         {outside, std::string("link"), std::string("/secret"), std::string("\\\\..\\\\secret")}) {
        EXPECT_NE(RunScript("require '" + name + "'").errors.find("no file"), std::string::npos) << name;
    }
    EXPECT_NE(RunScript("require 'a\\0b'").errors.find("a name with a zero byte"), std::string::npos);
}

TEST_F(Kxrun, UnsafeOpensAllOfLua) {
    WriteWholeFile(Bundle() / "part.lua", "return 'from the bundle'");

    Outcome outcome = Run({"--unsafe", "-e", "print(type(io.open), type(os.getenv), type(debug), (require 'part'))"});

    EXPECT_EQ(outcome.out, "function\tfunction\ttable\tfrom the bundle\n");
}

TEST_F(Kxrun, APromptRunsLinesAndGoesOnAfterErrors) {
    WriteWholeFile(Folder("in"),
                   "1 + 1\nx = 5\nerror('oops')\nfor i = 1, 2 do\nprint(i * x)\nend\n'a', 'b'\nthis is no lua\n");

    Outcome outcome = Run({"-i"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "2\n5\n10\na\tb\n");
    EXPECT_NE(outcome.errors.find("stdin:1: oops"), std::string::npos);
}

TEST_F(Kxrun, APromptFollowsAScriptThatEndsWellAndNoOther) {
    WriteWholeFile(Folder("in"), "x\n");
    WriteWholeFile(Bundle() / "game.lua", "x = 'from the script'");
    EXPECT_EQ(Run({"-i", (Bundle() / "game.lua").string()}).out, "from the script\n");

    WriteWholeFile(Bundle() / "game.lua", "x = 'from the script' error('stop')");
    Outcome failed = Run({"-i", (Bundle() / "game.lua").string()});
    EXPECT_EQ(failed.out, "");
    EXPECT_EQ(failed.status, 1);
}

TEST_F(Kxrun, APromptOnATerminalCompletesNamesAndKeepsAHistory) {
    int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0) GTEST_SKIP() << "this machine has no terminals to give: is /dev/pts mounted?";
    ::close(terminal);
    std::filesystem::create_directory(Folder("state"));

    std::string shown = RunOnTerminal({"-i"}, {"x = parameter_co\t() * 41\n", "x\n", "kx.exit()\n"});

    EXPECT_NE(shown.find("41.0"), std::string::npos) << shown;
    EXPECT_NE(ReadWholeFile(Folder("state") / "kxrun" / "history").find("parameter_count"), std::string::npos);
}

TEST_F(Kxrun, AReaderThatLeavesDoesNotCostASave) {
    std::string script = (Bundle() / "game.lua").string();
    WriteWholeFile(script, "local w = file_text_open_write('save.txt') file_text_write_string(w, 'saved')\n"
                           "for i = 1, 100000 do print(i) end file_text_close(w)");
    std::string command = std::string("('") + KXRUN + "' --save '" + Save().string() + "' '" + script + "' 2>'" +
                          Folder("errors").string() + "'; echo $? > '" + Folder("status").string() + "') | true";

    EXPECT_EQ(std::system(command.c_str()), 0);

    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "saved");
    EXPECT_EQ(ReadWholeFile(Folder("status")), "1\n");
    EXPECT_NE(ReadWholeFile(Folder("errors")).find("cannot write to standard output"), std::string::npos);
}

}  // namespace
}  // namespace kx::test
