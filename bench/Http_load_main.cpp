// kxrun for load on HTTP: a script can say when a request has stalled, and ask what the process takes.
#include "Files/Code/Code_Function.h"
#include "Files/IO/LoadSave.h"
#include "Runner/Options.h"
#include "Runner/Runtime.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <iterator>
#include <unistd.h>

namespace {

void SetReal(RValue* result, double value) {
    result->real = value;
    result->kind = VALUE_REAL;
}

/// KB that are in memory now.
void Resident(RValue& result, CInstance*, CInstance*, int, RValue*) {
    long pages = 0;
    if (FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
        std::fclose(file);
    }
    SetReal(&result, static_cast<double>(pages) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024);
}

void Descriptors(RValue& result, CInstance*, CInstance*, int, RValue*) {
    std::filesystem::directory_iterator open("/proc/self/fd");
    SetReal(&result, static_cast<double>(std::distance(begin(open), end(open))) - 1);  // without its own
}

/// Events of requests that have ended which the script has not been given.
void Undelivered(RValue& result, CInstance*, CInstance*, int, RValue*) {
    SetReal(&result, LoadSave::RequestsInFlight() - LoadSave::Progress().requests);
}

/// Milliseconds without progress after which a request fails.
void SetStall(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    kx::HttpOptions options;
    options.stall = KXGetInt32(arg, 0);
    LoadSave::SetHttpOptions(options);
}

int Run(int argc, char** argv) {
    kx::Options options;
    int status = kx::ParseOptions(argc, argv, &options);
    if (status >= 0) return status;
    Function_Add("bench_resident", Resident, 0, false);
    Function_Add("bench_descriptors", Descriptors, 0, false);
    Function_Add("bench_undelivered", Undelivered, 0, false);
    Function_Add("bench_set_stall", SetStall, 1, false);
    return kx::Runtime(options).Run();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kxhttpload: %s\n", failure.what());
        return 1;
    }
}
