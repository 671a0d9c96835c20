#pragma once

#include "proof/Campaign.h"
#include "proof/Escape_Calls.h"
#include "proof/Escape_World.h"

namespace kx::proof {

enum class Extent { sample, whole };

/// Gives every hostile name in every layout, or in a sample of them, to every built-in that takes one.
/// @return 0, or 1 where a promise was broken.
int TryEveryName(const World& world, Opening opening, Extent extent);

}  // namespace kx::proof
