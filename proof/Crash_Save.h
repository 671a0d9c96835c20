#pragma once

#include "proof/Crash_Scenario.h"
#include "proof/Crash_Trace.h"

namespace kx::proof {

/// Saves in a process of its own, which stops before each of the save's system calls.
End Save(const Scenario& scenario, const Setting& setting, const std::filesystem::path& folder,
         const std::function<Next(const Stop&)>& atStop);

/// Whether a system call may make, change or take away a name of a directory; whether it may change any file.
bool ChangesNames(long call);
bool ChangesFiles(long call);

/// A stop for messages: "17 (system call 74)".
std::string Text(const Stop& stop);

}  // namespace kx::proof
