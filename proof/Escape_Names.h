#pragma once

#include "proof/Escape_World.h"

#include <string>
#include <vector>

namespace kx::proof {

/// How far a name may reach.
enum class Reach {
    nowhere,      ///< no name at all: nothing is found by it, nothing made
    absent,       ///< a name inside that nothing has: nothing is found by it
    throughTrap,  ///< by way of the trap: nothing is found by it where the trap bars the way
    inside,       ///< of something that is there
};

struct HostileName {
    std::string text;
    Reach reach;
};

/// Every name that is tried, in a world whose areas have these paths.
std::vector<HostileName> HostileNames(const World& world, const std::string& save, const std::string& bundle);

/// A name as it can be printed.
std::string Shown(const std::string& name);

}  // namespace kx::proof
