#pragma once

#include "Runner/Options.h"

#include <lua5.4/lua.hpp>
#include <memory>

namespace kx {

/// One run of kxrun: the host's areas, the module and a Lua state, from start to end. One a process.
class Runtime {
public:
    explicit Runtime(const Options& options) : m_options(options) {}

    /// @return the exit status: 0 the script ended, 1 a script error or a save that could not be written, 2 wrong
    /// usage.
    int Run();

private:
    int OpenAreas();
    int OpenBundle();
    void OpenLua();
    bool RunWhatIsToRun();
    bool RunChunks();
    bool RunScript();
    bool RunEventLoop();
    bool CallChunk(int loaded, int parameters);
    int End(bool failed);

    const Options& m_options;
    std::vector<char*> m_parameters;
    std::unique_ptr<lua_State, decltype(&lua_close)> m_lua{nullptr, &lua_close};
};

/// Calls the function below `arguments` values on the stack; an error is left as a text with a traceback.
/// @return true where it ended well.
bool CallWithTraceback(lua_State* L, int arguments, int results);

/// Prints "kxrun: " and a text on standard error, the name in red on a terminal.
void PrintError(const char* text);

}  // namespace kx
