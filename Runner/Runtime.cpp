// One run of kxrun.
#include "Runner/Runtime.h"

#include "Files/Base/IniFile.h"
#include "Files/Code/Code_Error.h"
#include "Files/Code/Code_Function.h"
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "Files/Run/Run_Command.h"
#include "Runner/Interrupt.h"
#include "Runner/Lua_Call.h"
#include "Runner/Lua_Event.h"
#include "Runner/Lua_Library.h"
#include "Runner/Progress.h"
#include "Runner/Repl.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <unistd.h>
#include <utility>

namespace kx {
namespace {

constexpr int kScriptError = 1;
constexpr int kWrongUsage = 2;

/// What is run of an archive.
constexpr char kMainScript[] = "main.lua";

bool g_scriptFailed = false;
bool g_endFailed = false;

/// At the end no script is left to be told, and Lua swallows what its finalisers meet.
void ReportAtTheEnd(const char* text) {
    g_endFailed = true;
    PrintError(text);
}

/// After a failure nothing that is half done may replace a good save.
void DiscardUnfinished() {
    LoadSave::DiscardUnfinished();
    if (!g_IniFile || !g_IniFile->m_pFileName) return;
    if (g_IniFile->m_Changed) {
        dbg_csol->Output("Not written, because the script failed before it was closed: %s\n", g_IniFile->m_pFileName);
    }
    g_IniFile->Abandon();
}

/// The module leaves its document open at the end. One that there is no memory to write is no reason to lose the other
/// files.
void CloseIniFile() {
    std::unique_ptr<IniFile> file(std::exchange(g_IniFile, nullptr));
    if (!file || !file->m_pFileName) return;
    try {
        MemoryManager::Free(file->WriteIniFile());
    } catch (const std::bad_alloc&) {
        dbg_csol->Output("Failed to write file: %s (%s)\n", file->m_pFileName, std::strerror(ENOMEM));
    }
    if (file->m_Changed) g_endFailed = true;
}

/// Ends the module and the host: everything that is open for writing is written back, but after a failure nothing that
/// would replace a good save.
/// @return true where all of it is on the disk.
bool CloseFiles() {
    KXSetErrorHandler(ReportAtTheEnd);
    if (g_scriptFailed) DiscardUnfinished();
    CloseIniFile();
    FINALIZE_Function_File();
    LoadSave::Shutdown();
    KXSetErrorHandler(nullptr);
    return !g_endFailed;
}

/// Output that nobody can read any more is no reason to lose a save: the end reports it.
bool FlushOutput() {
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
    PrintError("cannot write to standard output");
    return false;
}

void ExitNow(int status) {
    bool written = CloseFiles();
    bool printed = FlushOutput();
    std::exit(written && printed && !g_scriptFailed ? status : kScriptError);
}

/// Message handler: the error as a text, with a traceback.
int AddTraceback(lua_State* L) {
    const char* text = lua_tostring(L, 1);
    if (!text && luaL_callmeta(L, 1, "__tostring") && lua_type(L, -1) == LUA_TSTRING) text = lua_tostring(L, -1);
    if (!text) text = lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
    luaL_traceback(L, L, text, 1);
    return 1;
}

void ListBuiltIns() {
    for (int i = 0; i < Function_Count(); ++i) {
        const FunctionRecord* record = Function_At(i);
        std::printf("%-32s %d\n", record->name, record->argc);
    }
}

int CannotUse(const char* what, const std::string& path, const char* why, const char* advice) {
    PrintError((std::string("cannot use ") + what + " \"" + path + "\": " + why + advice).c_str());
    return kWrongUsage;
}

}  // namespace

int Runtime::Run() {
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe ends the output, not the script
    std::signal(SIGXFSZ, SIG_IGN);  // a file beyond the process's limit is a write that fails
    InitFileFunctions();
    if (m_options.list) {
        ListBuiltIns();
        return FlushOutput() ? 0 : kScriptError;
    }
    if (int status = OpenAreas()) return status;
    OpenLua();

    bool ended = RunWhatIsToRun();
    int signal = Interruptible::Signal();
    int status = End(!ended);
    if (!ended && signal) EndBySignal(signal);
    return status;
}

bool Runtime::RunWhatIsToRun() {
    {
        Interruptible running(m_lua.get());
        if (!RunChunks() || !RunScript()) return false;
        if (!m_options.interactive) return RunEventLoop();
    }
    RunRepl(m_lua.get());
    Interruptible running(m_lua.get());
    return RunEventLoop();
}

int Runtime::OpenAreas() {
    std::string save = SaveFolder(m_options);
    if (save.empty()) {
        PrintError("no folder for saves: name one with --save");
        return kWrongUsage;
    }
    // The bundle first: no folder for saves is made for a game that is not there.
    if (int status = OpenBundle()) return status;
    LoadSave::SetDurability(m_options.durable ? Durability::full : Durability::none);
    if (int reason = LoadSave::SetSaveArea(save.c_str())) {
        return CannotUse("the save folder", save, std::strerror(reason), "; name another with --save");
    }

    m_parameters.push_back(const_cast<char*>(m_options.script.c_str()));
    for (const std::string& parameter : m_options.parameters) {
        m_parameters.push_back(const_cast<char*>(parameter.c_str()));
    }
    SetParameters(static_cast<int>(m_parameters.size()), m_parameters.data());
    return 0;
}

int Runtime::OpenBundle() {
    std::string bundle = BundleFolder(m_options);
    if (int reason = LoadSave::SetBundleArea(bundle.c_str())) {
        const char* why = reason == EINVAL ? "it is no folder and no archive to be used" : std::strerror(reason);
        return CannotUse("the bundle", bundle, why, m_options.isArchive ? "" : "; name another with --bundle");
    }
    bool runnable = !m_options.isArchive || LoadSave::BundleFileExists(kMainScript);
    return runnable ? 0 : CannotUse("the archive", bundle, "it has no main.lua to run", "");
}

void Runtime::OpenLua() {
    m_lua.reset(luaL_newstate());
    if (!m_lua) throw std::bad_alloc();
    OpenLibraries(m_lua.get(), m_options.unsafe ? Containment::open : Containment::closed, ExitNow);
    OpenBuiltIns(m_lua.get());
    WatchUnzipping();
}

bool Runtime::RunChunks() {
    for (const std::string& code : m_options.code) {
        int loaded = luaL_loadbufferx(m_lua.get(), code.data(), code.size(), "=(command line)", "t");
        if (!CallChunk(loaded, 0)) return false;
    }
    return true;
}

bool Runtime::RunScript() {
    if (m_options.script.empty()) return true;
    lua_State* L = m_lua.get();
    const char* path = m_options.script == "-" ? nullptr : m_options.script.c_str();
    int loaded = m_options.isArchive ? LoadFromBundle(L, kMainScript) : luaL_loadfilex(L, path, "t");
    int parameters = 0;
    for (const std::string& parameter : m_options.parameters) {
        if (loaded != LUA_OK) break;
        luaL_checkstack(L, 1, "too many parameters");
        lua_pushlstring(L, parameter.data(), parameter.size());
        ++parameters;
    }
    return CallChunk(loaded, parameters);
}

/// A script ends when its last line has run and no request is in flight.
bool Runtime::RunEventLoop() {
    lua_pushcfunction(m_lua.get(), RunEvents);
    return CallChunk(LUA_OK, 0);
}

bool Runtime::CallChunk(int loaded, int parameters) {
    lua_State* L = m_lua.get();
    if (loaded == LUA_OK && CallWithTraceback(L, parameters, 0)) return true;
    PrintError(lua_tostring(L, -1));
    lua_pop(L, 1);
    return false;
}

/// The order matters: after a failure nothing that is half done may replace a good save, neither what was open then and
/// finalisers close, nor what finalisers leave open.
int Runtime::End(bool failed) {
    g_scriptFailed = failed;
    if (failed) DiscardUnfinished();
    KXSetErrorHandler(ReportAtTheEnd);
    m_lua.reset();
    bool written = CloseFiles();
    bool printed = FlushOutput();
    return failed || !written || !printed ? kScriptError : 0;
}

bool CallWithTraceback(lua_State* L, int arguments, int results) {
    int base = lua_gettop(L) - arguments;
    lua_pushcfunction(L, AddTraceback);
    lua_insert(L, base);
    bool ended = lua_pcall(L, arguments, results, base) == LUA_OK;
    lua_remove(L, base);
    return ended;
}

void PrintError(const char* text) {
    bool coloured = ::isatty(STDERR_FILENO) && !std::getenv("NO_COLOR");
    std::fflush(stdout);  // what the script said before comes first
    std::fprintf(stderr, coloured ? "\033[31mkxrun:\033[0m %s\n" : "kxrun: %s\n",
                 text ? text : "(an error without a text)");
}

}  // namespace kx
