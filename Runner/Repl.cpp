// The prompt.
#include "Runner/Repl.h"

#include "Runner/Interrupt.h"
#include "Runner/Lua_Event.h"
#include "Runner/Runtime.h"
#include "Runner/Version.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace kx {
namespace {

constexpr char kPrompt[] = "> ";
constexpr char kPromptMore[] = ">> ";
constexpr int kHistoryLines = 1000;

lua_State* g_completed = nullptr;  // whose names Tab completes; libedit's callbacks take no context

/// libedit, loaded when a prompt needs it: linked, it would more than double the start of every script. It keeps state
/// for the whole process and is never unloaded.
class LineEditor {
public:
    explicit LineEditor(lua_State* L) {
        bool terminal = ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
        m_library = terminal ? ::dlopen("libedit.so.2", RTLD_NOW | RTLD_LOCAL) : nullptr;
        if (!m_library) return;
        m_readline = Function<char*(const char*)>("readline");
        m_addHistory = Function<int(const char*)>("add_history");
        m_writeHistory = Function<int(const char*)>("write_history");
        auto readHistory = Function<int(const char*)>("read_history");
        auto stifleHistory = Function<void(int)>("stifle_history");
        auto* completion =
            static_cast<char** (**)(const char*, int, int)>(::dlsym(m_library, "rl_attempted_completion_function"));
        g_matches = Function<char**(const char*, char* (*)(const char*, int))>("rl_completion_matches");
        if (!m_readline || !m_addHistory) return;

        g_completed = L;
        if (completion && g_matches) *completion = Complete;
        m_historyFile = HistoryFile();
        if (stifleHistory) stifleHistory(kHistoryLines);
        if (readHistory && !m_historyFile.empty()) readHistory(m_historyFile.c_str());
    }
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;
    ~LineEditor() { g_completed = nullptr; }

    std::optional<std::string> Read(const char* prompt) {
        if (!m_readline) return ReadPlain();
        std::unique_ptr<char, decltype(&std::free)> line(m_readline(prompt), &std::free);
        if (!line) return std::nullopt;
        if (*line) Remember(line.get());
        return std::string(line.get());
    }

private:
    using Matches = char** (*)(const char*, char* (*)(const char*, int));

    template <class Signature>
    Signature* Function(const char* name) {
        return reinterpret_cast<Signature*>(::dlsym(m_library, name));
    }

    /// Written at once: a line may be the one that ends the program.
    void Remember(const char* line) {
        m_addHistory(line);
        if (m_writeHistory && !m_historyFile.empty()) m_writeHistory(m_historyFile.c_str());
    }

    static std::optional<std::string> ReadPlain() {
        std::string line;
        if (!std::getline(std::cin, line)) return std::nullopt;
        return line;
    }

    /// $XDG_STATE_HOME/kxrun/history, its folder made.
    static std::string HistoryFile() {
        const char* state = std::getenv("XDG_STATE_HOME");
        const char* home = std::getenv("HOME");
        std::string folder = state && *state ? state : home ? std::string(home) + "/.local/state" : "";
        if (folder.empty()) return folder;
        ::mkdir(folder.c_str(), 0700);
        folder += "/kxrun";
        ::mkdir(folder.c_str(), 0700);
        return folder + "/history";
    }

    static char** Complete(const char* text, int, int) { return g_matches(text, NextName); }

    /// The globals that begin with a text, one a call.
    /// @param again  0 at the first call.
    static char* NextName(const char* text, int again) {
        lua_State* L = g_completed;
        int top = lua_gettop(L);
        lua_pushglobaltable(L);
        if (again) {
            lua_pushlstring(L, g_lastName.data(), g_lastName.size());
        } else {
            lua_pushnil(L);
        }
        char* found = nullptr;
        while (!found && lua_next(L, -2)) {
            lua_pop(L, 1);
            if (lua_type(L, -1) != LUA_TSTRING) continue;
            const char* name = lua_tostring(L, -1);
            if (std::strncmp(name, text, std::strlen(text)) != 0) continue;
            g_lastName = name;
            found = ::strdup(name);
        }
        lua_settop(L, top);
        return found;
    }

    static Matches g_matches;
    static std::string g_lastName;

    void* m_library = nullptr;
    char* (*m_readline)(const char*) = nullptr;
    int (*m_addHistory)(const char*) = nullptr;
    int (*m_writeHistory)(const char*) = nullptr;
    std::string m_historyFile;
};

LineEditor::Matches LineEditor::g_matches = nullptr;
std::string LineEditor::g_lastName;

int LoadLine(lua_State* L, const std::string& code) {
    return luaL_loadbufferx(L, code.data(), code.size(), "=stdin", "t");
}

/// True where a chunk failed to load only because it goes on in the next line.
bool IsUnfinished(lua_State* L, int loaded) {
    constexpr char kMark[] = "<eof>";
    if (loaded != LUA_ERRSYNTAX) return false;
    std::string message = lua_tostring(L, -1);
    size_t length = sizeof kMark - 1;
    return message.size() >= length && message.compare(message.size() - length, length, kMark) == 0;
}

/// Reads one chunk and leaves it, or the reason why it cannot run, on the stack.
std::optional<int> ReadChunk(lua_State* L, LineEditor* editor) {
    std::optional<std::string> line = editor->Read(kPrompt);
    if (!line) return std::nullopt;
    if (LoadLine(L, "return " + *line) == LUA_OK) return LUA_OK;
    lua_pop(L, 1);

    std::string code = *line;
    int loaded = LoadLine(L, code);
    while (IsUnfinished(L, loaded)) {
        std::optional<std::string> more = editor->Read(kPromptMore);
        if (!more) break;
        lua_pop(L, 1);
        code += "\n" + *more;
        loaded = LoadLine(L, code);
    }
    return loaded;
}

/// Calls the script's own print, which may be anything, and so may the global table.
int CallPrint(lua_State* L) {
    int count = lua_gettop(L);
    lua_getglobal(L, "print");
    lua_insert(L, 1);
    lua_call(L, count, 0);
    return 0;
}

void PrintResults(lua_State* L) {
    int count = lua_gettop(L);
    if (count == 0) return;
    lua_pushcfunction(L, CallPrint);
    lua_insert(L, 1);
    if (!CallWithTraceback(L, count, 0)) PrintError(lua_tostring(L, -1));
}

/// What has come meanwhile; what comes later waits for the next line.
void HandleEvents(lua_State* L) {
    lua_settop(L, 0);
    lua_pushcfunction(L, RunReadyEvents);
    if (!CallWithTraceback(L, 0, 0)) PrintError(lua_tostring(L, -1));
}

}  // namespace

void RunRepl(lua_State* L) {
    LineEditor editor(L);
    bool terminal = ::isatty(STDIN_FILENO);
    if (terminal) {
        std::fprintf(stderr, "kxrun %s, %s. Tab completes names, Ctrl-D ends.\n", kVersion, kLuaVersion);
    }
    for (;;) {
        lua_settop(L, 0);
        std::optional<int> loaded = ReadChunk(L, &editor);
        if (!loaded) {
            if (terminal) std::fprintf(stderr, "\n");
            return;
        }
        Interruptible running(L);
        if (*loaded == LUA_OK && CallWithTraceback(L, 0, LUA_MULTRET)) {
            PrintResults(L);
        } else {
            PrintError(lua_tostring(L, -1));
        }
        if (!Interruptible::Signal()) HandleEvents(L);
    }
}

}  // namespace kx
