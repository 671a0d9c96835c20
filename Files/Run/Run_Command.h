#pragma once

#include "Files/Base/Limits.h"

/// The program that runs scripts: its parameters, its environment, its sandbox flag.

/// The parameters, the script's own name first. Set once at start-up, read by the script thread.
extern int g_nArgC;
extern char* g_pArgV[kx::kMaxParameters];

/// Sets the parameters.
/// @param values  `count` texts, not copied: they have to outlive the scripts.
/// @return 0; E2BIG for more than kx::kMaxParameters, which changes nothing.
/// @thread main thread, while no script runs
int SetParameters(int count, char* const* values);

/// @return a copy of an environment variable's value in host memory, which the caller frees with KXFree; null where it
///         is not set.
char* EnvironmentGetVariable(const char* name);

/// The host's sandbox flag. The module clears it; nothing reads it.
extern bool Secure_Mode;
