// kxrun and requests that do not end well: exits, Ctrl-C, and machines that have no library or no thread for them.
#include "Platform/Sanitizer.h"
#include "tests/Kxrun_Http_fixture.h"
#include "tests/support/Machine.h"

namespace kx::test {
namespace {

TEST_F(KxrunHttp, AnErrorAndAnExitEndAtOnceWithRequestsInFlight) {
    HttpServer server(BeSilent);

    Outcome failed = RunWith(server, "for i = 1, 50 do http_get(url .. '/') end error('stop')");
    Outcome ended = RunWith(server, "for i = 1, 50 do http_get(url .. '/') end kx.exit(7)");

    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.errors.find(": stop"), std::string::npos) << failed.errors;
    EXPECT_EQ(ended.status, 7) << ended.errors;
    EXPECT_NE(ended.errors.find("HTTP request 50 failed: the program ends\n"), std::string::npos) << ended.errors;
}

TEST_F(KxrunHttp, CtrlCEndsAScriptThatWaits) {
    Gate waiting;
    HttpServer server([&](HttpServer::Connection& connection) {
        connection.ReadRequest();
        waiting.Open();
        connection.WaitForClose();
    });
    WriteWholeFile(Save() / "save.txt", "old");
    WriteWholeFile(Save() / "log.txt", "");

    pid_t child = BeginWith(server, R"(
        local w = file_text_open_write('save.txt') file_text_write_string(w, 'half a')
        local a = file_text_open_append('log.txt') file_text_write_string(a, 'appended')
        http_get(url .. '/')
    )");
    waiting.Wait();
    ::kill(child, SIGINT);
    Outcome outcome = Finish(child);

    EXPECT_EQ(outcome.status, -SIGINT);  // who waits for it learns what ended it
    EXPECT_NE(outcome.errors.find("interrupted"), std::string::npos) << outcome.errors;
    EXPECT_EQ(ReadWholeFile(Save() / "save.txt"), "old");
    EXPECT_EQ(ReadWholeFile(Save() / "log.txt"), "appended");
    EXPECT_EQ(NamesIn(Save()), (Words{"log.txt", "save.txt"}));
}

#if !KX_THREAD_SANITIZER  // with it a thread that only computes gets no signal

TEST_F(KxrunHttp, CtrlCEndsAScriptThatComputesWhateverItCatches) {
    EXPECT_EQ(StatusAfterCtrlC("while true do pcall(function() while true do end end) end"), -SIGINT);
}

#endif

TEST_F(KxrunHttp, CtrlCEndsACoroutineAtItsNextBuiltIn) {
    EXPECT_EQ(StatusAfterCtrlC("coroutine.wrap(function() while true do file_exists('x') end end)()"), -SIGINT);
}

constexpr char kThreeInTurn[] = "for i = 1, 3 do local e = kx.await(http_get('http://127.0.0.1:1/')) "
                                "print(e.id, e.status, e.http_status, e.result == '') end";

TEST_F(KxrunHttp, WithoutTheLibraryEveryRequestFails) {
    WriteWholeFile(Folder("lib/libcurl.so.4"), "");
    ::setenv("LD_LIBRARY_PATH", Folder("lib").c_str(), 1);

    Outcome outcome = Run({"-e", kThreeInTurn});
    ::unsetenv("LD_LIBRARY_PATH");

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "1.0\t-1.0\t0.0\ttrue\n2.0\t-1.0\t0.0\ttrue\n3.0\t-1.0\t0.0\ttrue\n");
    EXPECT_NE(outcome.errors.find("HTTP request 3 failed: cannot load libcurl.so.4: "), std::string::npos)
        << outcome.errors;
}

#if !KX_ADDRESS_SANITIZER && !KX_THREAD_SANITIZER  // they want more address space than there is

TEST_F(KxrunHttp, WithoutThreadsEveryRequestFails) {
    if (IsEmulated()) GTEST_SKIP() << kLimitedWithTheProgram;
    WriteWholeFile(Bundle() / "game.lua", kThreeInTurn);
    std::string limits = "ulimit -s 4000000 && ulimit -v 3000000 && exec \"$@\"";  // KB; a thread's stack does not fit
    Words words = InAreas({(Bundle() / "game.lua").string()});
    words.insert(words.begin(), {"/bin/sh", "-c", limits, "sh"});

    Outcome outcome = Start(words);

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "1.0\t-1.0\t0.0\ttrue\n2.0\t-1.0\t0.0\ttrue\n3.0\t-1.0\t0.0\ttrue\n");
    EXPECT_NE(outcome.errors.find("HTTP request 3 failed: cannot start a thread\n"), std::string::npos)
        << outcome.errors;
}

#endif

}  // namespace
}  // namespace kx::test
