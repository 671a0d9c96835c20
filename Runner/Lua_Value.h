#pragma once

#include "Files/Base/Limits.h"
#include "Files/Code/Code_Function.h"

#include <functional>
#include <lua5.4/lua.hpp>

/// Values across the boundary between Lua and the host.
///
/// | Lua                                          | RValue                 | back        |
/// |----------------------------------------------|------------------------|-------------|
/// | float                                        | VALUE_REAL             | float       |
/// | integer                                      | VALUE_INT64            | integer     |
/// | boolean                                      | VALUE_BOOL             | boolean     |
/// | string without zero bytes                    | VALUE_STRING           | string      |
/// | nil                                          | VALUE_UNDEFINED        | nil         |
/// | kx.null                                      | VALUE_PTR, null        | kx.null     |
/// | kx.struct, table with strings as keys or `{}`| VALUE_OBJECT           | kx.struct   |
/// | kx.array, table with the keys 1…n            | VALUE_ARRAY            | kx.array    |
/// | kx.map, kx.list                              | VALUE_REAL, marked     | the same    |
/// | kx.grid                                      | VALUE_REAL             | float       |
///
/// A struct that is made of a table has its members in the order of their names' bytes. Within one value a table that
/// is met twice becomes one struct or array.
///
/// Anything else is a Lua error. Lua is built as C++: an error unwinds, and destructors run.
/// @thread the script's
namespace kx {

/// What a value is converted for; its errors begin with it.
struct Subject {
    const char* function;
    int argument;      ///< from 1; 0 where it is none
    const char* noun;  ///< what it is then, such as "the value"
};

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
    /// @throws std::bad_alloc
    void Take(lua_State* L, const FunctionRecord& record);

    RValue* Data() { return m_values; }

    /// Ends the call.
    /// @return false where there was no memory for the copy of a string that the handler keeps, which then has no text.
    bool Release();

private:
    static bool TakePlain(lua_State* L, int index, RValue* value);

    RValue m_values[kMaxCallArguments];
    int m_count = 0;
};

/// A string that stays Lua's. Nobody may keep a reference to it.
class BorrowedText {
public:
    /// Raises a Lua error where the string at a stack's index has a zero byte.
    BorrowedText(lua_State* L, const Subject& subject, int index);
    BorrowedText(const BorrowedText&) = delete;
    BorrowedText& operator=(const BorrowedText&) = delete;

    const RValue* Value() const { return &m_value; }

private:
    _RefThing<char const*> m_record;
    RValue m_value;
};

/// Fills a value from the stack; a string is copied. Raises a Lua error where it has no counterpart.
/// @param index  not relative to the top.
/// @throws std::bad_alloc
void TakeValue(lua_State* L, const Subject& subject, int index, RValueOwner* value);

/// Makes a new struct or array of the table at an index of the stack, whatever keys an empty one could have.
void TakeStruct(lua_State* L, const Subject& subject, int index, RValueOwner* value);
void TakeArray(lua_State* L, const Subject& subject, int index, RValueOwner* value);

/// Takes the entries of the table at an index of the stack, one after another: calls `each` with the key at the stack's
/// index that it is given and the value, which the table's others may share.
void TakeEntries(lua_State* L, const Subject& subject, int index,
                 const std::function<void(int keyIndex, const RValue& value)>& each);

/// Pushes a value onto Lua's stack. Raises a Lua error where it has no counterpart.
void PushValue(lua_State* L, const char* function, const RValue& value);

/// A time in which values are on their way that only C++ variables hold. While one lives nothing is collected; what is
/// due is collected before it begins.
class Crossing {
public:
    explicit Crossing(lua_State* L) {
        bool mayBeDue = g_madeObjects || g_countSTRING_RValue >= kManyVisits;
        if (mayBeDue && g_crossings == 0) SafePoint(L);
        ++g_crossings;
    }
    Crossing(const Crossing&) = delete;
    Crossing& operator=(const Crossing&) = delete;
    ~Crossing() { --g_crossings; }

    /// A struct or an array has come about, or has become Lua's.
    static void NoteObject() { g_madeObjects = true; }

private:
    /// Two steps of the visit counter for each container: from here on the collector is to renumber soon.
    static constexpr unsigned int kManyVisits = 1u << 31;

    static void SafePoint(lua_State* L);

    static inline int g_crossings = 0;
    static inline bool g_madeObjects = false;  // since the last collection
};

}  // namespace kx
