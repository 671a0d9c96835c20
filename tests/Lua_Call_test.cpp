// The call gate: arguments, results and errors between Lua and the built-ins.
#include "Runner/Lua_Call.h"

#include "Files/Base/RefDynamicArray.h"
#include "Files/Code/Code_Error.h"
#include "Files/Code/Code_Function.h"
#include "Platform/MemoryManager.h"
#include "tests/Lua_fixture.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"

#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>

namespace kx::test {
namespace {

RValue g_kept{};

void Echo(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    COPY_RValue(&result, &arg[0]);
}

void Kind(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    result = {{double(arg[0].kind)}, 0, VALUE_REAL};
}

void Keep(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    COPY_RValue(&g_kept, &arg[0]);
}

void Nothing(RValue&, CInstance*, CInstance*, int, RValue*) {}

void Fail(RValue& result, CInstance*, CInstance*, int, RValue*) {
    KXError("failed with %d", 7);
    KXError("and again");
    result = {{1}, 0, VALUE_REAL};
}

void ThrowNoMemory(RValue&, CInstance*, CInstance*, int, RValue*) {
    throw std::bad_alloc();
}

void ThrowRecursion(RValue&, CInstance*, CInstance*, int, RValue*) {
    throw KXRecursionLimit();
}

void ThrowOther(RValue&, CInstance*, CInstance*, int, RValue*) {
    throw std::runtime_error("something else");
}

/// Gives the value that a test has put here.
RValue g_given{};
void Give(RValue& result, CInstance*, CInstance*, int, RValue*) {
    COPY_RValue(&result, &g_given);
}

class CallGate : public LuaTest {
protected:
    void SetUp() override {
        Function_Add("echo", Echo, 1, false);
        Function_Add("kind", Kind, 1, false);
        Function_Add("keep", Keep, 1, false);
        Function_Add("nothing", Nothing, 0, false);
        Function_Add("two", Nothing, 2, false);
        Function_Add("fail", Fail, 0, false);
        Function_Add("throw_no_memory", ThrowNoMemory, 0, false);
        Function_Add("throw_recursion", ThrowRecursion, 0, false);
        Function_Add("throw_other", ThrowOther, 0, false);
        Function_Add("give", Give, 0, false);
        LuaTest::SetUp();
    }
};

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

TEST_F(CallGate, MapsEveryKindAndBack) {
    struct Case {
        const char* value;
        unsigned int kind;
        const char* check;  // on what comes back, x
    };
    const Case cases[] = {
        {"1.0", VALUE_REAL, "math.type(x) == 'float' and x == 1"},
        {"-0.0", VALUE_REAL, "1 / x == -math.huge"},
        {"math.huge", VALUE_REAL, "x == math.huge"},
        {"0/0", VALUE_REAL, "x ~= x"},
        {"1", VALUE_INT64, "math.type(x) == 'integer' and x == 1"},
        {"math.mininteger", VALUE_INT64, "x == math.mininteger"},
        {"9007199254740993", VALUE_INT64, "x == 9007199254740993"},
        {"true", VALUE_BOOL, "x == true"},
        {"false", VALUE_BOOL, "x == false"},
        {"'text'", VALUE_STRING, "x == 'text'"},
        {"''", VALUE_STRING, "x == ''"},
        {"('x'):rep(100000)", VALUE_STRING, "x == ('x'):rep(100000)"},
        {"'\\xff\\xfe'", VALUE_STRING, "x == '\\xff\\xfe'"},
        {"nil", VALUE_UNDEFINED, "x == nil"},
        {"kx.null", VALUE_PTR, "x == kx.null and type(x) == 'userdata'"},
        {"{x = 1, y = {}}", VALUE_OBJECT, "#x == 2 and x.x == 1 and #x.y == 0 and kx.type(x) == 'struct'"},
        {"{}", VALUE_OBJECT, "#x == 0 and kx.type(x) == 'struct'"},
        {"kx.struct()", VALUE_OBJECT, "#x == 0"},
        {"kx.array()", VALUE_ARRAY, "#x == 0 and kx.type(x) == 'array'"},
        {"kx.map()", VALUE_REAL | KIND_DS_MAP, "#x == 0 and kx.type(x) == 'map'"},
        {"kx.list()", VALUE_REAL | KIND_DS_LIST, "#x == 0 and kx.type(x) == 'list'"},
        {"{1, 'two', {true}}", VALUE_ARRAY, "#x == 3 and x[1] == 1 and x[2] == 'two' and x[3][1] == true"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.value);
        std::string value = each.value;

        EXPECT_EQ(Run("return kind(" + value + ")"), std::to_string(each.kind) + ".0");
        EXPECT_EQ(Run("local x = echo(" + value + ") return " + each.check), "true");
    }
}

TEST_F(CallGate, RefusesWhatHasNoCounterpartAndSaysWhereItIs) {
    const char* const otherKeys = " is a table whose keys are neither all strings nor 1 to n (kx.null fills a gap)";
    struct Case {
        const char* value;
        std::string what;
    };
    const Case cases[] = {
        {"print", " is a function"},
        {"coroutine.create(print)", " is a coroutine"},
        {"'a\\0b'", " is a string with a zero byte"},
        {"{'a\\0b'}", ": [1] is a string with a zero byte"},
        {"{['a\\0b'] = 1}", " is a string with a zero byte"},
        {"{1, 2, x = 3}", otherKeys},
        {"{x = 3, [true] = 1}", otherKeys},
        {"{1, nil, 3, [10] = 1}", otherKeys},
        {"{[2.5] = 1}", otherKeys},
        {"{1, {2, {print}}}", ": [2][2][1] is a function"},
        {"{player = {items = {1, {use = print}}}}", ": player.items[2].use is a function"},
        {"(function() local t = {1} t[2] = {t} return t end)()", ": [2][1] is a table that leads back to itself"},
        {"(function() local t = {} t.a = {b = t} return t end)()", ": a.b is a table that leads back to itself"},
        {"(function() local t = {1} for i = 1, 1000 do t = {abcdefghi = t} end return t end)()",
         ": " + Repeated("abcdefghi.", 12) + "… is a table that is nested too deep"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.value);
        EXPECT_EQ(Run(std::string("return echo(") + each.value + ")"),
                  "test:1: echo: argument 1" + each.what + ", which a built-in cannot take");
    }
}

TEST_F(CallGate, RefusesForeignUserdataAndNamesTheArgument) {
    lua_newuserdatauv(L(), 8, 0);
    lua_setglobal(L(), "foreign");
    static int place = 0;
    lua_pushlightuserdata(L(), &place);
    lua_setglobal(L(), "pointer");

    EXPECT_EQ(Run("return two(1, foreign)"), "test:1: two: argument 2 is a userdata, which a built-in cannot take");
    EXPECT_EQ(Run("return two(1, pointer)"),
              "test:1: two: argument 2 is a foreign pointer, which a built-in cannot take");
}

TEST_F(CallGate, ChecksTheNumberOfArguments) {
    EXPECT_EQ(Run("echo()"), "test:1: echo takes 1 argument, but 0 given");
    EXPECT_EQ(Run("echo(1, 2)"), "test:1: echo takes 1 argument, but 2 given");
    EXPECT_EQ(Run("nothing(nil)"), "test:1: nothing takes 0 arguments, but 1 given");
    EXPECT_EQ(Run("two(1)"), "test:1: two takes 2 arguments, but 1 given");
}

TEST_F(CallGate, AResultThatIsNotSetIsNil) {
    EXPECT_EQ(Run("return select('#', nothing()), nothing()"), "1");
}

TEST_F(CallGate, AnErrorHasTheScriptsPosition) {
    EXPECT_EQ(Run("\n\nfail()"), "test:3: failed with 7");  // the first of two
    EXPECT_EQ(Run("local ok, text = pcall(function() fail() end) return text"), "test:1: failed with 7");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(CallGate, ExceptionsBecomeErrorsThatNameTheBuiltIn) {
    EXPECT_EQ(Run("throw_no_memory()"), "test:1: throw_no_memory: not enough memory");
    EXPECT_EQ(Run("throw_recursion()"), "test:1: throw_recursion: values are nested too deep, or in a circle");
    EXPECT_EQ(Run("throw_other()"), "test:1: throw_other: something else");
    EXPECT_EQ(Run("return echo('still here')"), "still here");
}

TEST_F(CallGate, ResultsThatLuaCannotHoldAreErrors) {
    const char text[] = "x";
    g_given = {{0}, 0, VALUE_PTR};
    g_given.ptr = const_cast<char*>(text);
    EXPECT_EQ(Run("return give()"), "test:1: give: the result is a pointer, which Lua cannot take");

    g_given = {{0}, 0, VALUE_ITERATOR};
    EXPECT_EQ(Run("return give()"), "test:1: give: the result is a value of an unknown kind, which Lua cannot take");
}

TEST_F(CallGate, MapsTheKindsThatOnlyResultsHave) {
    g_given = {{0}, 0, VALUE_INT32};
    g_given.i32 = -5;
    EXPECT_EQ(Run("return math.type(give()) .. give()"), "integer-5");

    g_given = {{0}, 0, VALUE_UNSET};
    EXPECT_EQ(Run("return give()"), "nil");

    g_given = {{0}, 0, VALUE_STRING};  // with no text
    EXPECT_EQ(Run("return #give()"), "0");
}

TEST_F(CallGate, AStringThatAHandlerKeepsOutlivesTheCall) {
    Run("local s = ('kept '):rep(20) keep(s) s = nil collectgarbage()");
    Run("for i = 1, 100 do echo('other ' .. i) end");

    EXPECT_EQ(g_kept.str->m_thing, Repeated("kept ", 20));
    EXPECT_EQ(g_kept.str->m_refCount, 1);
    FREE_RValue__Pre(&g_kept);
}

TEST_F(CallGate, CallsLeaveNoMemoryBehind) {
    Run("echo('warm') echo({1, {'two'}}) collectgarbage()");
    long long before = MemoryManager::Stats().blocks;

    Run("for i = 1, 100 do echo('text') echo({1, {'two'}}) pcall(echo, {1, {print}}) pcall(fail) end");

    Run("collectgarbage()");
    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

// --- what scripts cannot reach -------------------------------------------------------------------------------------

TEST_F(CallGate, ScriptsAreContained) {
    for (const char* name : {"io", "debug", "package", "dofile", "loadfile", "os.execute", "os.remove", "os.rename",
                             "os.exit", "os.getenv", "os.tmpname", "os.setlocale"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Run(std::string("return ") + name), "nil");
    }
    for (const char* name : {"io", "debug", "package"}) {
        SCOPED_TRACE(name);
        EXPECT_NE(Run(std::string("return require '") + name + "'").find("no file"), std::string::npos);
    }
    EXPECT_EQ(Run("return require('os').execute"), "nil");
    EXPECT_EQ(Run("return type(os.time()) .. type(os.clock()) .. type(os.date()) .. type(os.difftime(1, 1))"),
              "numbernumberstringnumber");
}

TEST_F(CallGate, LoadTakesTextOnly) {
    EXPECT_EQ(Run("return load('return 1 + 1')()"), "2");
    EXPECT_EQ(Run("return load('return x', 'chunk', 't', {x = 5})()"), "5");
    EXPECT_EQ(Run("return select(2, load(string.dump(function() end)))"),
              "attempt to load a binary chunk (mode is 't')");
    EXPECT_EQ(Run("return select(2, load(string.dump(function() end), 'x', 'b'))"),
              "attempt to load a binary chunk (mode is 't')");
    EXPECT_EQ(Run("local n = 0 return load(function() n = n + 1 return n == 1 and 'return 3' or nil end)()"), "3");
}

}  // namespace
}  // namespace kx::test
