// What a crash in the middle of a save leaves behind.
#include "proof/Crash_Campaigns.h"
#include "tests/Http_answers.h"
#include "tests/support/Variable.h"

#include <cstdio>
#include <exception>

using namespace kx::proof;

namespace {

int RunAll(const Options& options) {
    kx::test::HttpServer server(kx::test::Each(kx::test::Ok(TheDownload())));
    std::vector<Scenario> scenarios = AllScenarios(server);
    int failed = RunKill(scenarios, options.isShort);
    if (options.isShort) {
        std::printf("crash: power cut: not in the short form\n");
    } else {
        failed |= RunPowerCuts(scenarios);
    }
    return failed | RunReplay(scenarios, options.isShort);  // the last: it starts the host in this process
}

}  // namespace

int main(int count, char** arguments) {
    Options options = ReadOptions(count, arguments, "Kills saves and cuts their power, at every step.");
    kx::test::Variable noProxy("no_proxy", "*");
    WorkInMemory();  // no point depends on a real disk
    try {
        return RunAll(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "crash: %s\n", error.what());
        return 1;
    }
}
