// Values from Lua to the built-ins and back.
#include "Runner/Lua_Value.h"

#include "Files/Base/RefDynamicArray.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace kx {
namespace {

using StringRecord = _RefThing<char const*>;

/// Records for strings that are Lua's own: a call costs neither a copy nor an allocation.
class BorrowedRecords {
public:
    StringRecord* Lend(const char* text, size_t length) {
        if (m_free.empty()) m_free.push_back(new StringRecord{});
        StringRecord* record = m_free.back();
        m_free.pop_back();
        *record = {text, 1, static_cast<int>(length)};
        return record;
    }

    void Return(StringRecord* record) {
        if (record->m_refCount == 1) {
            m_free.push_back(record);
            return;
        }
        // A handler has kept a reference: the record is the values' from now on, with a text of its own.
        LOCK_RVALUE_MUTEX();
        record->m_thing = KXStrDup(record->m_thing);
        --record->m_refCount;
        UNLOCK_RVALUE_MUTEX();
    }

private:
    std::vector<StringRecord*> m_free;
};

BorrowedRecords& Records() {
    static auto* records = new BorrowedRecords;
    return *records;
}

/// One argument on its way, with what its errors say.
class Conversion {
public:
    Conversion(lua_State* L, const FunctionRecord& record, int argument)
        : m_lua(L), m_record(record), m_argument(argument) {}

    /// Fills a value that the caller releases, also after an error.
    void Convert(int index, RValue* value) {
        *value = g_undefined;
        switch (lua_type(m_lua, index)) {
        case LUA_TNIL: return;
        case LUA_TNUMBER: return Number(index, value);
        case LUA_TBOOLEAN: *value = {{lua_toboolean(m_lua, index) ? 1.0 : 0.0}, 0, VALUE_BOOL}; return;
        case LUA_TSTRING: return Text(index, value);
        case LUA_TTABLE: return Table(index, value);
        case LUA_TLIGHTUSERDATA:
            if (lua_touserdata(m_lua, index)) Refuse("a foreign pointer");
            value->ptr = nullptr;
            value->kind = VALUE_PTR;
            return;
        case LUA_TTHREAD: Refuse("a coroutine");
        default: Refuse(lua_pushfstring(m_lua, "a %s", luaL_typename(m_lua, index)));
        }
    }

private:
    [[noreturn]] void Refuse(const char* what) {
        luaL_error(m_lua, "%s: argument %d is %s, which a built-in cannot take", m_record.name, m_argument, what);
        std::abort();  // luaL_error does not return
    }

    void Number(int index, RValue* value) {
        if (lua_isinteger(m_lua, index)) {
            value->i64 = lua_tointeger(m_lua, index);
            value->kind = VALUE_INT64;
        } else {
            value->real = lua_tonumber(m_lua, index);
            value->kind = VALUE_REAL;
        }
    }

    void Text(int index, RValue* value) {
        size_t length = 0;
        const char* text = lua_tolstring(m_lua, index, &length);
        if (std::memchr(text, 0, length)) Refuse("a string with a zero byte");
        if (length > INT_MAX) Refuse("a string over 2 GiB");
        value->str = Records().Lend(text, length);
        value->kind = VALUE_STRING;
    }

    void Table(int index, RValue* value) {
        const void* identity = lua_topointer(m_lua, index);
        for (const void* outer : m_path) {
            if (outer == identity) Refuse("a table that leads back to itself");
        }
        if (m_path.size() >= kMaxTableNesting) Refuse("a table that is nested too deep");
        lua_Unsigned length = lua_rawlen(m_lua, index);
        if (length == 0 || length > INT_MAX || !IsSequence(index, length)) {
            Refuse("a table with other keys than 1 to n");
        }
        luaL_checkstack(m_lua, 4, "tables nested too deep");
        m_path.push_back(identity);
        value->arr = ARRAY_RefAlloc();
        value->kind = VALUE_ARRAY;
        for (int i = 0; i < static_cast<int>(length); ++i) {
            lua_rawgeti(m_lua, index, i + 1);
            Element(value, i);
            lua_pop(m_lua, 1);
        }
        m_path.pop_back();
    }

    /// Strings in arrays are copied: nothing on the stack keeps them alive through the call.
    void Element(RValue* array, int i) {
        OwnedValue element;
        int top = lua_gettop(m_lua);
        if (lua_type(m_lua, top) != LUA_TSTRING) {
            Convert(top, &element.value);
            SET_RValue(array, &element.value, nullptr, i);
            return;
        }
        size_t length = 0;
        const char* text = lua_tolstring(m_lua, top, &length);
        if (std::memchr(text, 0, length)) Refuse("a table that holds a string with a zero byte");
        if (length > INT_MAX) Refuse("a table that holds a string over 2 GiB");
        KXCreateString(&element.value, text);
        SET_RValue(array, &element.value, nullptr, i);
    }

    /// True when the keys are just 1 to `length`.
    bool IsSequence(int index, lua_Unsigned length) {
        lua_Unsigned keys = 0;
        lua_pushnil(m_lua);
        while (lua_next(m_lua, index)) {
            lua_pop(m_lua, 1);
            int isInteger = 0;
            auto key = static_cast<lua_Unsigned>(lua_tointegerx(m_lua, -1, &isInteger));
            bool inside = isInteger && lua_type(m_lua, -1) == LUA_TNUMBER && key >= 1 && key <= length;
            if (!inside) {
                lua_pop(m_lua, 1);
                return false;
            }
            ++keys;
        }
        return keys == length;
    }

    lua_State* m_lua;
    const FunctionRecord& m_record;
    int m_argument;
    std::vector<const void*> m_path;  // tables that are being converted, outermost first
};

const char* KindName(unsigned int kind) {
    switch (kind & KIND_MASK) {
    case VALUE_PTR: return "a pointer";
    case VALUE_OBJECT: return "a struct";
    default: return "a value of an unknown kind";
    }
}

void PushArray(lua_State* L, const FunctionRecord& record, const RefDynamicArrayOfRValue& array, int depth);

void Push(lua_State* L, const FunctionRecord& record, const RValue& value, int depth) {
    switch (value.kind) {
    case VALUE_REAL: lua_pushnumber(L, value.real); return;
    case VALUE_BOOL: lua_pushboolean(L, value.real != 0.0); return;
    case VALUE_INT32: lua_pushinteger(L, value.i32); return;
    case VALUE_INT64: lua_pushinteger(L, value.i64); return;
    case VALUE_UNDEFINED:
    case VALUE_UNSET: lua_pushnil(L); return;
    case VALUE_STRING:
        if (value.str && value.str->m_thing) {
            lua_pushlstring(L, value.str->m_thing, static_cast<size_t>(value.str->m_size));
        } else {
            lua_pushliteral(L, "");
        }
        return;
    case VALUE_ARRAY:
        if (value.arr) return PushArray(L, record, *value.arr, depth);
        lua_pushnil(L);
        return;
    case VALUE_PTR:
        if (!value.ptr) return lua_pushlightuserdata(L, nullptr);
        break;
    default: break;
    }
    luaL_error(L, "%s: the result is %s, which Lua cannot take", record.name, KindName(value.kind));
}

void PushArray(lua_State* L, const FunctionRecord& record, const RefDynamicArrayOfRValue& array, int depth) {
    if (depth > kMaxTableNesting) luaL_error(L, "%s: the result is nested too deep", record.name);
    luaL_checkstack(L, 2, "arrays nested too deep");
    lua_createtable(L, array.m_length, 0);
    for (int i = 0; i < array.m_length; ++i) {
        Push(L, record, array.m_elements[i], depth + 1);
        lua_rawseti(L, -2, i + 1);
    }
}

}  // namespace

CallArguments::~CallArguments() {
    for (int i = 0; i < m_count; ++i) {
        RValue& value = m_values[i];
        if (value.kind == VALUE_STRING) {
            Records().Return(value.str);
        } else {
            FREE_RValue__Pre(&value);
        }
    }
}

void CallArguments::Take(lua_State* L, const FunctionRecord& record) {
    for (int i = 0; i < record.argc; ++i) {
        m_values[i] = g_undefined;
        m_count = i + 1;
        Conversion(L, record, i + 1).Convert(i + 1, &m_values[i]);
    }
}

void PushValue(lua_State* L, const FunctionRecord& record, const RValue& value) {
    Push(L, record, value, 0);
}

}  // namespace kx
