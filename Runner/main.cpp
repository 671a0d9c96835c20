// kxrun: runs a game script without a window.
#include "Runner/Options.h"
#include "Runner/Runtime.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    try {
        kx::Options options;
        int status = kx::ParseOptions(argc, argv, &options);
        if (status >= 0) return status;
        return kx::Runtime(options).Run();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "kxrun: %s\n", failure.what());
        return 1;
    }
}
