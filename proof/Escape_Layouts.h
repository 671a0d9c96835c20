#pragma once

#include "proof/Escape_World.h"

#include <functional>
#include <string>
#include <vector>

namespace kx::proof {

/// Links and other things that stand in the areas, put there by whoever can write them.
struct Layout {
    const char* name;
    bool bars;                               ///< nothing can be read by way of a trap
    std::function<void(const World&)> make;  ///< into areas that have just been filled again
    std::string save = {};                   ///< paths of the areas where they are others than the world's
    std::string bundle = {};
};

/// Every layout that this user may make; one that only root can make is left out for others.
std::vector<Layout> HostileLayouts(const World& world);

}  // namespace kx::proof
