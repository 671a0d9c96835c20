// kx.struct.
#include "Files/Base/KXObjectBase.h"
#include "Runner/Lua_Proxy.h"
#include "Runner/Lua_Value.h"

namespace kx {
namespace {

constexpr Subject kSubject = {"kx.struct", 0, "the value"};

KXObjectBase* CheckStruct(lua_State* L) {
    return CheckProxy(L, 1, ProxyType::structure)->held.obj;
}

/// A member's name, which stays Lua's.
class Name : public BorrowedText {
public:
    Name(lua_State* L, int index) : BorrowedText(L, {"kx.struct", 0, "the name"}, Checked(L, index)) {}

    const char* Text() const { return Value()->str->m_thing; }

private:
    static int Checked(lua_State* L, int index) {
        if (lua_type(L, index) == LUA_TSTRING) return index;
        Raise(L, "kx.struct: a member's name is a string, not a %s", luaL_typename(L, index));
    }
};

/// Pushes a member's value; nil where there is none.
void PushMember(lua_State* L, const RValue* member) {
    RValueOwner value(g_undefined);
    if (member) COPY_RValue(&value.value, member);
    PushValue(L, "kx.struct", value.value);
}

int Index(lua_State* L) {
    KXObjectBase* object = CheckStruct(L);
    Crossing crossing(L);
    Name name(L, 2);
    PushMember(L, object->Get(name.Text()));
    return 1;
}

int SetIndex(lua_State* L) {
    KXObjectBase* object = CheckStruct(L);
    Crossing crossing(L);
    Name name(L, 2);
    RValueOwner value;
    TakeValue(L, kSubject, 3, &value);
    if (value.value.kind == VALUE_UNDEFINED) {
        object->Remove(name.Text());
    } else {
        object->Add(name.Text(), value.value, 0);
    }
    return 0;
}

int Length(lua_State* L) {
    lua_pushinteger(L, CheckStruct(L)->Count());
    return 1;
}

/// The iterator of pairs, with the place of the next member and the number of changes before in its upvalues.
int Next(lua_State* L) {
    KXObjectBase* object = CheckStruct(L);
    auto place = static_cast<int>(lua_tointeger(L, lua_upvalueindex(1)));
    bool changed = static_cast<uint64_t>(lua_tointeger(L, lua_upvalueindex(2))) != object->m_changes;
    if (changed) Raise(L, "kx.struct: a member came or went while it was walked; collect the names first");
    while (place < object->Places() && !object->NameAt(place)) {
        ++place;
    }
    if (place >= object->Places()) return 0;
    lua_pushinteger(L, place + 1);
    lua_replace(L, lua_upvalueindex(1));
    Crossing crossing(L);
    lua_pushstring(L, object->NameAt(place));
    PushMember(L, object->ValueAt(place));
    return 2;
}

int Pairs(lua_State* L) {
    KXObjectBase* object = CheckStruct(L);
    lua_pushinteger(L, 0);
    lua_pushinteger(L, static_cast<lua_Integer>(object->m_changes));
    lua_pushcclosure(L, Guarded<Next>, 2);
    lua_pushvalue(L, 1);
    return 2;
}

/// kx.struct([table])
int Make(lua_State* L) {
    return MakeHeld(L, ProxyType::structure, "kx.struct", TakeStruct);
}

}  // namespace

void OpenStruct(lua_State* L) {
    const luaL_Reg methods[] = {{"__index", Guarded<Index>},
                                {"__newindex", Guarded<SetIndex>},
                                {"__len", Guarded<Length>},
                                {"__pairs", Guarded<Pairs>},
                                {nullptr, nullptr}};
    RegisterProxy(L, ProxyType::structure, methods);
    lua_pushcfunction(L, Guarded<Make>);
    lua_setfield(L, -2, "struct");
}

}  // namespace kx
