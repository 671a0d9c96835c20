// The call gate: every call of a built-in from Lua passes here.
#include "Runner/Lua_Call.h"

#include "Files/Code/Code_Error.h"
#include "Runner/Interrupt.h"
#include "Runner/Lua_Error.h"
#include "Runner/Lua_Value.h"

#include <exception>
#include <new>
#include <string>

namespace kx {
namespace {

/// Here the C++ exceptions of handlers become script errors.
void CallHandler(const FunctionRecord& record, RValue* result, RValue* arguments) {
    try {
        record.routine(*result, nullptr, nullptr, record.argc, arguments);
    } catch (const KXRecursionLimit&) {
        ResetVisits();
        KXError("%s: values are nested too deep, or in a circle", record.name);
    } catch (const std::bad_alloc&) {
        KXError("%s: not enough memory", record.name);
    } catch (const std::exception& failure) {
        KXError("%s: %s", record.name, failure.what());
    }
}

/// @return false without the memory for them. Lua's own errors pass.
bool TakeArguments(lua_State* L, const FunctionRecord& record, CallArguments* arguments) {
    try {
        arguments->Take(L, record);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Pushes the result.
void CallWith(lua_State* L, const FunctionRecord& record) {
    Crossing crossing(L);
    CallArguments arguments;
    if (!TakeArguments(L, record, &arguments)) {
        Raise(L, "%s: not enough memory", record.name);
    }
    RValueOwner result(g_undefined);
    CallHandler(record, &result.value, arguments.Data());

    std::string error;
    if (KXTakeError(&error)) Raise(L, "%s", error.c_str());
    if (!arguments.Release()) Raise(L, "%s: not enough memory", record.name);
    PushValue(L, record.name, result.value);
}

int Call(lua_State* L) {
    Interruptible::Check(L);  // the hook that stops scripts does not reach into a coroutine that runs already
    const auto& record = *static_cast<const FunctionRecord*>(lua_touserdata(L, lua_upvalueindex(1)));
    int given = lua_gettop(L);
    if (given != record.argc) {
        const char* plural = record.argc == 1 ? "" : "s";
        Raise(L, "%s takes %d argument%s, but %d given", record.name, record.argc, plural, given);
    }
    CallWith(L, record);
    return 1;
}

}  // namespace

void OpenBuiltIns(lua_State* L) {
    for (int i = 0; i < Function_Count(); ++i) {
        const FunctionRecord* record = Function_At(i);
        if (record->argc > kMaxCallArguments) continue;
        lua_pushlightuserdata(L, const_cast<FunctionRecord*>(record));
        lua_pushcclosure(L, Call, 1);
        lua_setglobal(L, record->name);
    }
}

}  // namespace kx
