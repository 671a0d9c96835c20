// The program's parameters and environment.
#include "Files/Run/Run_Command.h"

#include "Platform/MemoryManager.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>

namespace kx::test {
namespace {

TEST(RunCommand, KeepsUpToAHundredParameters) {
    char value[] = "x";
    std::vector<char*> values(101, value);

    EXPECT_EQ(SetParameters(100, values.data()), 0);
    EXPECT_EQ(g_nArgC, 100);
    EXPECT_EQ(g_pArgV[99], value);

    EXPECT_EQ(SetParameters(101, values.data()), E2BIG);
    EXPECT_EQ(g_nArgC, 100);  // as it was

    EXPECT_EQ(SetParameters(1, values.data()), 0);
    EXPECT_EQ(g_nArgC, 1);
    EXPECT_EQ(g_pArgV[1], nullptr);  // nothing of the old ones is left
    EXPECT_EQ(SetParameters(0, nullptr), 0);
}

TEST(RunCommand, CopiesTheEnvironment) {
    ::setenv("KXFILES_TEST_VARIABLE", "value", 1);

    char* value = EnvironmentGetVariable("KXFILES_TEST_VARIABLE");

    EXPECT_STREQ(value, "value");
    EXPECT_NE(value, std::getenv("KXFILES_TEST_VARIABLE"));
    KXFree(value);
    ::unsetenv("KXFILES_TEST_VARIABLE");
    EXPECT_EQ(EnvironmentGetVariable("KXFILES_TEST_VARIABLE"), nullptr);
}

}  // namespace
}  // namespace kx::test
