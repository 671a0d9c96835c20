// The command line.
#include "Runner/Options.h"

#include "Files/Base/Limits.h"
#include "Runner/Version.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sys/stat.h>

namespace kx {
namespace {

constexpr int kWrongUsage = 2;

const char kFooter[] = R"(Examples:
  kxrun game.lua                       run a script; it saves below ~/.local/share/kxrun/game
  kxrun game.zip                       run main.lua of an archive, which is the bundle
  kxrun --save /tmp/s game.lua easy    run it with its own save area; parameter_string(1) is "easy"
  kxrun -e 'print(parameter_count())'  run a line of Lua
  kxrun -i                             type Lua at a prompt, Tab completes names
  kxrun --list                         what scripts can call, with the number of arguments

Scripts see the save area, which they write, and the bundle area, which they only read.
Exit status: 0 the script ended, 1 a script error, 2 wrong usage.)";

class Help : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: kxrun [options] [--] [script.lua|game.zip|- [parameters...]]\n";
    }
};

int WrongUsage(const std::string& what) {
    std::fprintf(stderr, "kxrun: %s\nTry 'kxrun --help'.\n", what.c_str());
    return kWrongUsage;
}

std::string FromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool HasScriptFile(const Options& options) {
    return !options.script.empty() && options.script != "-";
}

/// "game" for "levels/game.lua" and for "game.zip".
std::string ScriptName(const Options& options) {
    if (!HasScriptFile(options)) return "scratch";
    std::string name = options.script.substr(options.script.rfind('/') + 1);
    std::string extension = options.isArchive ? ".zip" : ".lua";
    size_t dot = name.rfind(extension);
    bool ends = dot != std::string::npos && dot > 0 && dot + extension.size() == name.size();
    return ends ? name.substr(0, dot) : name;
}

/// Whether a file begins as zip archives do, and scripts never. What comes through a pipe can be read only once.
bool IsArchive(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    char head[4] = {};
    std::ifstream(path, std::ios::binary).read(head, sizeof head);
    bool empty = std::memcmp(head, "PK\5\6", sizeof head) == 0;
    return empty || std::memcmp(head, "PK\3\4", sizeof head) == 0;
}

/// What is wrong with a folder's name; empty for nothing. An empty variable in "--save=$FOLDER" takes the next option
/// as its value.
std::string FaultOfFolder(const std::string& name) {
    if (name.empty()) return "a folder has no name";
    return name[0] == '-' ? "\"" + name + "\" is no folder; write ./" + name + " if it is one" : "";
}

}  // namespace

int ParseOptions(int argc, char** argv, Options* options) {
    CLI::App app("Runs a game script: Lua with the file-and-data built-ins, without a window.", "kxrun");
    std::string durability = "full";
    bool version = false;
    CLI::Validator folder(FaultOfFolder, "", "folder");
    app.add_option("--save", options->save, "Folder that the script may write")->type_name("DIR")->check(folder);
    app.add_option("--bundle", options->bundle,
                   "Folder or zip archive with what the game ships, read only; default: the script's")
        ->type_name("DIR|ZIP")
        ->check(folder);
    app.add_option("--durability", durability, "full: a closed file is on the disk; none: faster, for tests")
        ->check(CLI::IsMember({"full", "none"}));
    app.add_option("-e", options->code, "Run a chunk of Lua; may be given more than once")
        ->type_name("CODE")
        ->allow_extra_args(false);
    app.add_flag("-i", options->interactive, "Prompt for Lua, after the script if there is one");
    app.add_flag("--list", options->list, "List the built-ins with their number of arguments");
    app.add_flag("--unsafe", options->unsafe, "Open all of Lua to the script: io, os, debug");
    app.add_flag("--version", version, "Print the version");
    app.prefix_command();
    app.footer(kFooter);
    app.formatter(std::make_shared<Help>());

    // What follows "--" or the script is the script's, whatever it looks like.
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        return 0;
    } catch (const CLI::ParseError& error) {
        return WrongUsage(error.what());
    }
    if (version) {
        std::printf("kxrun %s (%s)\n", kVersion, kLuaVersion);
        return 0;
    }
    options->durable = durability == "full";

    std::vector<std::string> rest = app.remaining();
    bool separated = !rest.empty() && rest[0] == "--";
    if (separated) rest.erase(rest.begin());
    if (!rest.empty()) {
        options->script = rest[0];
        options->parameters.assign(rest.begin() + 1, rest.end());
    }
    bool unknown = !separated && options->script.size() > 1 && options->script[0] == '-';
    if (unknown) return WrongUsage("unknown option " + options->script);
    options->isArchive = HasScriptFile(*options) && IsArchive(options->script);
    if (options->isArchive && !options->bundle.empty()) {
        return WrongUsage("\"" + options->script + "\" is an archive and its own bundle: leave out --bundle");
    }
    if (options->parameters.size() + 1 > static_cast<size_t>(kMaxParameters)) {
        return WrongUsage("a script takes at most " + std::to_string(kMaxParameters - 1) + " parameters");
    }
    bool nothing = options->script.empty() && options->code.empty() && !options->interactive && !options->list;
    if (nothing) return WrongUsage("nothing to run: name a script, or use -e or -i");
    return -1;
}

std::string SaveFolder(const Options& options) {
    if (!options.save.empty()) return options.save;
    std::string named = FromEnvironment("KX_SAVE_DIR");
    if (!named.empty()) return named;
    std::string data = FromEnvironment("XDG_DATA_HOME");
    std::string home = FromEnvironment("HOME");
    if (data.empty() && !home.empty()) data = home + "/.local/share";
    return data.empty() ? "" : data + "/kxrun/" + ScriptName(options);
}

std::string BundleFolder(const Options& options) {
    if (!options.bundle.empty()) return options.bundle;
    if (options.isArchive) return options.script;
    size_t slash = HasScriptFile(options) ? options.script.rfind('/') : std::string::npos;
    return slash == std::string::npos ? "." : options.script.substr(0, slash + 1);
}

}  // namespace kx
