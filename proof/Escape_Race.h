#pragma once

#include "proof/Escape_Calls.h"
#include "proof/Escape_World.h"

#include <cstddef>

namespace kx::proof {

/// Calls built-ins on names inside while another thread puts links to outside in their way, and takes them away again,
/// as fast as it can.
/// @param calls  how many.
/// @return 0, or 1 where a promise was broken.
int Race(const World& world, Opening opening, size_t calls);

}  // namespace kx::proof
