#pragma once

#include "Files/Base/Limits.h"
#include "Files/Code/Code_Function.h"

#include <lua5.4/lua.hpp>

/// Values across the boundary between Lua and the built-ins.
///
/// | Lua                       | RValue          | back             |
/// |---------------------------|-----------------|------------------|
/// | float                     | VALUE_REAL      | float            |
/// | integer                   | VALUE_INT64     | integer          |
/// | boolean                   | VALUE_BOOL      | boolean          |
/// | string without zero bytes | VALUE_STRING    | string           |
/// | nil                       | VALUE_UNDEFINED | nil              |
/// | kx.null                   | VALUE_PTR, null | kx.null          |
/// | table with the keys 1…n   | VALUE_ARRAY     | such a table     |
///
/// Anything else is a Lua error. Lua is built as C++: an error unwinds, and destructors run.
/// @thread the script's
namespace kx {

/// The arguments of one call. Strings are not copied: they stay Lua's, and a handler that keeps a reference to one
/// finds a copy of its own there after the call.
class CallArguments {
public:
    CallArguments() = default;
    CallArguments(const CallArguments&) = delete;
    CallArguments& operator=(const CallArguments&) = delete;
    ~CallArguments();

    /// Takes the values 1 to `record.argc` of the stack, which have to stay there as long as this lives.
    /// Raises a Lua error that names the built-in and the argument where one has no counterpart.
    void Take(lua_State* L, const FunctionRecord& record);

    RValue* Data() { return m_values; }

private:
    RValue m_values[kMaxCallArguments];
    int m_count = 0;
};

/// A value that is released when it goes out of scope. Undefined at first.
struct OwnedValue {
    OwnedValue() = default;
    OwnedValue(const OwnedValue&) = delete;
    OwnedValue& operator=(const OwnedValue&) = delete;
    ~OwnedValue() { FREE_RValue__Pre(&value); }

    RValue value{{0}, 0, VALUE_UNDEFINED};
};

/// Pushes a value onto Lua's stack. Raises a Lua error that names the built-in where the value has no counterpart.
void PushValue(lua_State* L, const FunctionRecord& record, const RValue& value);

}  // namespace kx
