// Program parameters and environment variables as scripts see them.
#include "Files/Function/Function_File.h"
#include "Files/Run/Run_Command.h"
#include "Platform/MemoryManager.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

namespace kx::test {
namespace {

class Parameters : public ::testing::Test {
protected:
    void SetUp() override {
        InitFileFunctions();
        ASSERT_EQ(SetParameters(3, m_values), 0);
    }
    void TearDown() override {
        EXPECT_EQ(SetParameters(0, nullptr), 0);
        EXPECT_EQ(TakeError(), "");
    }

private:
    char m_script[9] = "game.lua";
    char m_first[6] = "first";
    char m_empty[1] = "";
    char* m_values[3] = {m_script, m_first, m_empty};
};

TEST_F(Parameters, AreCounted) {
    EXPECT_EQ(Call("parameter_count").Real(), 3);
    EXPECT_EQ(ParamCount(), 3);
}

TEST_F(Parameters, AreReadByTheirNumber) {
    EXPECT_EQ(Call("parameter_string", {0}).Text(), "game.lua");
    EXPECT_EQ(Call("parameter_string", {1}).Text(), "first");
    EXPECT_EQ(Call("parameter_string", {2}).Text(), "");
}

TEST_F(Parameters, BeyondTheirRangeAreEmptyAndNoError) {
    const Value numbers[] = {-1, 3, 100, 1e300, -1e300, INFINITY, Value(-INFINITY)};
    for (const Value& number : numbers) {
        SCOPED_TRACE(number.Real());
        EXPECT_EQ(Call("parameter_string", {number}).Text(), "");
    }
}

TEST_F(Parameters, NumbersAreCutTowardZero) {
    EXPECT_EQ(Call("parameter_string", {1.9}).Text(), "first");
    EXPECT_EQ(Call("parameter_string", {-0.9}).Text(), "game.lua");
    EXPECT_EQ(Call("parameter_string", {"1"}).Text(), "first");
}

TEST_F(Parameters, AreCopiedForOtherUnits) {
    const char* text = "before";

    ParamStr(text, 1);

    EXPECT_STREQ(text, "first");
    EXPECT_NE(text, g_pArgV[1]);
    KXFree(text);
}

TEST_F(Parameters, OutOfRangeAreNullForOtherUnits) {
    for (int number : {-1, 3}) {
        const char* text = "before";
        ParamStr(text, number);
        EXPECT_EQ(text, nullptr);
    }
}

TEST_F(Parameters, LeaveNoMemoryBehind) {
    long long before = MemoryManager::Stats().blocks;

    Call("parameter_string", {1});
    Call("parameter_string", {9});

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
}

TEST_F(Parameters, AskingForTheSandboxFlagClearsIt) {
    Secure_Mode = true;

    GetSecure();

    EXPECT_FALSE(Secure_Mode);
}

TEST_F(Parameters, EnvironmentVariablesAreReadByName) {
    ::setenv("KXFILES_TEST_VARIABLE", "its value", 1);
    long long before = MemoryManager::Stats().blocks;

    EXPECT_EQ(Call("environment_get_variable", {"KXFILES_TEST_VARIABLE"}).Text(), "its value");

    EXPECT_EQ(MemoryManager::Stats().blocks, before);
    ::unsetenv("KXFILES_TEST_VARIABLE");
}

TEST_F(Parameters, EnvironmentVariablesThatAreNotSetAreEmpty) {
    ::unsetenv("KXFILES_TEST_VARIABLE");

    Value value = Call("environment_get_variable", {"KXFILES_TEST_VARIABLE"});

    EXPECT_EQ(value.Text(), "");
    EXPECT_NE(value.Get().str, nullptr);  // an empty text, not a missing one
}

TEST_F(Parameters, AnEnvironmentVariableWithoutANameIsAStringWithNoText) {
    Value value = Call("environment_get_variable", {Value()});

    EXPECT_EQ(value.Kind(), VALUE_STRING);
    EXPECT_EQ(value.Get().str, nullptr);
}

}  // namespace
}  // namespace kx::test
