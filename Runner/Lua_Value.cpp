// Values from Lua to the host and back.
#include "Runner/Lua_Value.h"

#include "Files/Base/KXObjectBase.h"
#include "Files/Base/RefDynamicArray.h"
#include "Platform/MemoryManager.h"
#include "Runner/Lua_Error.h"
#include "Runner/Lua_Proxy.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kx {

namespace {

/// Of a value inside tables, in an error; bytes.
constexpr size_t kLongestPath = 120;

using StringRecord = _RefThing<char const*>;

/// Records for strings that are Lua's own: a call costs neither a copy nor an allocation.
class BorrowedRecords {
public:
    StringRecord* Lend(const char* text, size_t length) {
        if (m_free.empty()) {
            m_free.reserve(++m_lent);
            m_free.push_back(new StringRecord{});
        }
        StringRecord* record = m_free.back();
        m_free.pop_back();
        *record = {text, 1, static_cast<int>(length)};
        return record;
    }

    /// @return false where there was no memory for the copy that a handler is to keep.
    bool Return(StringRecord* record) {
        if (record->m_refCount == 1) {
            m_free.push_back(record);
            return true;
        }
        // The record is the values' from now on, with a text of its own.
        const char* text = Copied(record->m_thing);
        LOCK_RVALUE_MUTEX();
        record->m_thing = text;
        if (!text) record->m_size = 0;
        --record->m_refCount;
        UNLOCK_RVALUE_MUTEX();
        return text != nullptr;
    }

private:
    static const char* Copied(const char* text) {
        try {
            return KXStrDup(text);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    std::vector<StringRecord*> m_free;  // with room for all that are lent, so that a return cannot fail
    size_t m_lent = 0;
};

BorrowedRecords& Records() {
    static auto* records = new BorrowedRecords;
    return *records;
}

void SetNumber(lua_State* L, int index, RValue* value) {
    if (lua_isinteger(L, index)) {
        value->i64 = lua_tointeger(L, index);
        value->kind = VALUE_INT64;
    } else {
        value->real = lua_tonumber(L, index);
        value->kind = VALUE_REAL;
    }
}

/// One value on its way, with what its errors say.
class Conversion {
public:
    Conversion(lua_State* L, const Subject& subject) : m_lua(L), m_subject(subject) {}

    /// Fills a value that the caller releases, also after an error. A string is copied.
    void Convert(int index, RValue* value) {
        if (lua_type(m_lua, index) != LUA_TSTRING) return ConvertOther(index, value);
        *value = g_undefined;
        KXCreateString(value, CheckText(index));
    }

    /// The same, for anything but a string.
    void ConvertOther(int index, RValue* value) {
        *value = g_undefined;
        switch (lua_type(m_lua, index)) {
        case LUA_TNIL: return;
        case LUA_TNUMBER: return SetNumber(m_lua, index, value);
        case LUA_TBOOLEAN: *value = {{lua_toboolean(m_lua, index) ? 1.0 : 0.0}, 0, VALUE_BOOL}; return;
        case LUA_TTABLE: return Table(index, value);
        case LUA_TUSERDATA: return Userdata(index, value);
        case LUA_TLIGHTUSERDATA:
            if (lua_touserdata(m_lua, index)) Refuse("a foreign pointer");
            value->ptr = nullptr;
            value->kind = VALUE_PTR;
            return;
        case LUA_TTHREAD: Refuse("a coroutine");
        default: Refuse(lua_pushfstring(m_lua, "a %s", luaL_typename(m_lua, index)));
        }
    }

    /// @return the text of the string at an index, which stays Lua's.
    const char* CheckText(int index) {
        size_t length = 0;
        const char* text = lua_tolstring(m_lua, index, &length);
        if (std::memchr(text, 0, length)) Refuse("a string with a zero byte");
        if (length >= INT_MAX) Refuse("a string over 2 GiB");
        return text;
    }

    void Struct(int index, RValue* value) {
        std::vector<std::string> names;
        if (!TakeNames(index, &names)) RefuseKeys();
        std::sort(names.begin(), names.end());  // the order of Lua's tables is another one in every run
        value->obj = KXObjectBase::Alloc(0, VALUE_UNSET, 0, false);
        value->kind = VALUE_OBJECT;
        Enter(index, *value);
        for (const std::string& name : names) {
            m_path.back().name = name.c_str();
            lua_pushlstring(m_lua, name.data(), name.size());
            lua_rawget(m_lua, index);
            RValueOwner member;
            Convert(lua_gettop(m_lua), &member.value);
            value->obj->Add(name.c_str(), member.value, 0);
            lua_pop(m_lua, 1);
        }
        m_path.pop_back();
    }

    void Array(int index, RValue* value) {
        lua_Unsigned length = lua_rawlen(m_lua, index);
        if (length > INT_MAX || !IsSequence(index, length)) RefuseKeys();
        value->arr = ARRAY_RefAlloc();
        value->kind = VALUE_ARRAY;
        Enter(index, *value);
        for (int i = 0; i < static_cast<int>(length); ++i) {
            m_path.back().index = i + 1;
            lua_rawgeti(m_lua, index, i + 1);
            RValueOwner element;
            Convert(lua_gettop(m_lua), &element.value);
            SET_RValue(value, &element.value, nullptr, i);
            lua_pop(m_lua, 1);
        }
        m_path.pop_back();
    }

    /// Calls `each` with every entry of a table: the key's place on the stack, and the value.
    void Entries(int index, const std::function<void(int, const RValue&)>& each) {
        luaL_checkstack(m_lua, 6, "tables nested too deep");
        m_path.push_back({lua_topointer(m_lua, index), nullptr, 0});
        lua_pushnil(m_lua);
        while (lua_next(m_lua, index)) {
            int value = lua_gettop(m_lua);
            bool named = lua_type(m_lua, value - 1) == LUA_TSTRING;
            m_path.back().name = named ? lua_tostring(m_lua, value - 1) : nullptr;
            m_path.back().index = named ? 0 : static_cast<int>(lua_tointeger(m_lua, value - 1));
            RValueOwner taken;
            Convert(value, &taken.value);
            each(value - 1, taken.value);
            lua_settop(m_lua, value - 1);
        }
        m_path.pop_back();
    }

private:
    using Known = std::unordered_map<const void*, RValue>;

    /// Made for the first table only: most values are none.
    Known& KnownTables() {
        if (!m_known) m_known.emplace();
        return *m_known;
    }

    /// A table that is being converted, and which of its values is under way.
    struct Level {
        const void* table;
        const char* name;  // null where the index says it
        int index;
    };

    /// "json_encode: argument 1", and for a value inside a table its path: ": player.items[3]".
    std::string Where() const {
        std::string where = m_subject.function;
        where += ": ";
        where += m_subject.argument ? "argument " + std::to_string(m_subject.argument) : m_subject.noun;
        std::string path = Path();
        return path.empty() ? where : where + ": " + path;
    }

    std::string Path() const {
        std::string path;
        for (const Level& level : m_path) {
            if (level.name) {
                path += (path.empty() ? "" : ".") + std::string(level.name);
            } else if (level.index) {
                path += "[" + std::to_string(level.index) + "]";
            }
        }
        if (path.size() > kLongestPath) path = path.substr(0, kLongestPath) + "…";
        return path;
    }

    [[noreturn]] void Refuse(const char* what) {
        Raise(m_lua, "%s is %s, which a built-in cannot take", Where().c_str(), what);
    }

    [[noreturn]] void RefuseKeys() {
        Refuse("a table whose keys are neither all strings nor 1 to n (kx.null fills a gap)");
    }

    void Userdata(int index, RValue* value) {
        Proxy* proxy = ToProxy(m_lua, index);
        if (!proxy) Refuse("a userdata");
        if (proxy->type == ProxyType::row) Refuse("a grid's row");
        CheckAlive(m_lua, *proxy);
        RValue held = ValueOf(*proxy);
        COPY_RValue(value, &held);
    }

    void Table(int index, RValue* value) {
        const void* identity = lua_topointer(m_lua, index);
        auto known = KnownTables().find(identity);
        if (known != KnownTables().end()) {
            if (IsUnderWay(identity)) Refuse("a table that leads back to itself");
            COPY_RValue(value, &known->second);
            return;
        }
        if (m_path.size() >= kMaxTableNesting) Refuse("a table that is nested too deep");
        luaL_checkstack(m_lua, 6, "tables nested too deep");
        KXNames names;
        if (lua_rawlen(m_lua, index) > 0) {
            Array(index, value);
        } else {
            Struct(index, value);
        }
    }

    /// True for a table around this one, but for the one that holds it: one that holds itself is no harm.
    bool IsUnderWay(const void* table) const {
        auto isTable = [&](const Level& level) { return level.table == table; };
        return std::any_of(m_path.begin(), m_path.end() - 1, isTable);
    }

    void Enter(int index, const RValue& value) {
        const void* identity = lua_topointer(m_lua, index);
        KnownTables().emplace(identity, value);
        m_path.push_back({identity, nullptr, 0});
        Crossing::NoteObject();
    }

    /// @return false where there are other keys than strings.
    bool TakeNames(int index, std::vector<std::string>* names) {
        lua_pushnil(m_lua);
        while (lua_next(m_lua, index)) {
            lua_pop(m_lua, 1);
            if (lua_type(m_lua, -1) != LUA_TSTRING) return false;
            names->emplace_back(CheckText(lua_gettop(m_lua)));
        }
        return true;
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
            if (!inside) return false;
            ++keys;
        }
        return keys == length;
    }

    lua_State* m_lua;
    Subject m_subject;
    std::vector<Level> m_path;     // outermost first
    std::optional<Known> m_known;  // tables, and what they have become; owns nothing
};

const char* KindName(unsigned int kind) {
    return (kind & KIND_MASK) == VALUE_PTR ? "a pointer" : "a value of an unknown kind";
}

}  // namespace

CallArguments::~CallArguments() {
    Release();
}

bool CallArguments::Release() {
    bool whole = true;
    for (; m_count > 0; --m_count) {
        RValue& value = m_values[m_count - 1];
        if (value.kind == VALUE_STRING) {
            whole = Records().Return(value.str) && whole;
        } else {
            FREE_RValue__Pre(&value);
        }
    }
    return whole;
}

/// Ids, numbers and texts, which most arguments are, take no more than this.
bool CallArguments::TakePlain(lua_State* L, int index, RValue* value) {
    int type = lua_type(L, index);
    if (type == LUA_TNUMBER) {
        SetNumber(L, index, value);
        return true;
    }
    if (type != LUA_TSTRING) return false;
    size_t length = 0;
    const char* text = lua_tolstring(L, index, &length);
    bool travels = length < INT_MAX && !std::memchr(text, 0, length);
    if (!travels) return false;
    value->str = Records().Lend(text, length);
    value->kind = VALUE_STRING;
    return true;
}

void CallArguments::Take(lua_State* L, const FunctionRecord& record) {
    for (int i = 0; i < record.argc; ++i) {
        m_values[i] = g_undefined;
        m_count = i + 1;
        if (TakePlain(L, i + 1, &m_values[i])) continue;
        Conversion conversion(L, {record.name, i + 1, nullptr});
        if (lua_type(L, i + 1) == LUA_TSTRING) conversion.CheckText(i + 1);  // says what is wrong with it
        conversion.ConvertOther(i + 1, &m_values[i]);
    }
}

BorrowedText::BorrowedText(lua_State* L, const Subject& subject, int index)
    : m_record{Conversion(L, subject).CheckText(index), 1, static_cast<int>(lua_rawlen(L, index))}, m_value{} {
    m_value.str = &m_record;
    m_value.kind = VALUE_STRING;
}

void TakeValue(lua_State* L, const Subject& subject, int index, RValueOwner* value) {
    Conversion(L, subject).Convert(index, &value->value);
}

void TakeStruct(lua_State* L, const Subject& subject, int index, RValueOwner* value) {
    KXNames names;
    Conversion(L, subject).Struct(index, &value->value);
}

void TakeArray(lua_State* L, const Subject& subject, int index, RValueOwner* value) {
    KXNames names;
    Conversion(L, subject).Array(index, &value->value);
}

void TakeEntries(lua_State* L, const Subject& subject, int index, const std::function<void(int, const RValue&)>& each) {
    KXNames names;
    Conversion(L, subject).Entries(index, each);
}

void PushValue(lua_State* L, const char* function, const RValue& value) {
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
    case VALUE_OBJECT:
    case VALUE_ARRAY:
        if (!value.ptr) return lua_pushnil(L);
        Crossing::NoteObject();
        return PushProxyOf(L, value);
    case VALUE_PTR:
        if (!value.ptr) return lua_pushlightuserdata(L, nullptr);
        break;
    default:
        if (value.kind & (KIND_DS_MAP | KIND_DS_LIST)) return PushProxyOf(L, value);
        break;
    }
    Raise(L, "%s: the result is %s, which Lua cannot take", function, KindName(value.kind));
}

}  // namespace kx
