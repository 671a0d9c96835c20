// Parameters and environment of the program.
#include "Files/Run/Run_Command.h"

#include "Platform/MemoryManager.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>

int g_nArgC = 0;
char* g_pArgV[kx::kMaxParameters] = {};
bool Secure_Mode = false;

int SetParameters(int count, char* const* values) {
    if (count > kx::kMaxParameters) return E2BIG;
    std::fill(std::begin(g_pArgV), std::end(g_pArgV), nullptr);
    std::copy_n(values, count, g_pArgV);
    g_nArgC = count;
    return 0;
}

char* EnvironmentGetVariable(const char* name) {
    return KXStrDup(std::getenv(name));
}
