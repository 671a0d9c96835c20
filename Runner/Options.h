#pragma once

#include <string>
#include <vector>

namespace kx {

/// What kxrun was asked to do.
struct Options {
    std::string save;    ///< save area; empty for the default
    std::string bundle;  ///< bundle area; empty for the default
    bool durable = true;
    bool interactive = false;
    bool list = false;
    bool unsafe = false;                  ///< all of Lua
    std::vector<std::string> code;        ///< chunks to run before the script
    std::string script;                   ///< path, "-" for standard input, empty for none
    bool isArchive = false;               ///< the script is an archive, and the bundle: its main.lua is run
    std::vector<std::string> parameters;  ///< what follows the script
};

/// Reads a command line. Prints help, version or what is wrong with it, each to its own stream.
/// @return -1 where there is something to run, else the exit status: 0, or 2 for wrong usage.
int ParseOptions(int argc, char** argv, Options* options);

/// The save area in use: the option, else $KX_SAVE_DIR, else a folder named after the script below $XDG_DATA_HOME/kxrun
/// or ~/.local/share/kxrun. Empty where no home is known.
std::string SaveFolder(const Options& options);

/// The bundle area in use: the option, else the script where it is an archive, else its folder, else the current one.
std::string BundleFolder(const Options& options);

}  // namespace kx
