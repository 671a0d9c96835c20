#pragma once

#include "proof/Campaign.h"
#include "proof/Crash_Scenario.h"

#include <vector>

namespace kx::proof {

/// Kills the process before every system call of every save.
/// @return the program's exit status, as of Campaign::End.
int RunKill(const std::vector<Scenario>& scenarios, bool isShort);

/// Cuts the power before every system call of every save, on file systems of its own. Where this machine does not let
/// it mount them it says so and is done.
int RunPowerCuts(const std::vector<Scenario>& scenarios);

/// Works out what a disk may hold after a power cut at every step of every save, also one that keeps its writes back
/// and changes their order.
/// @return the program's exit status, as of Campaign::End.
int RunReplay(const std::vector<Scenario>& scenarios, bool isShort);

}  // namespace kx::proof
