#pragma once

#include "proof/Campaign.h"

#include <cstddef>

namespace kx::proof {

/// Plays a random script in fresh areas, with the model beside it, until they differ or it ends.
/// @param seed   the same script for the same number.
/// @param calls  how many it makes.
/// @return false where they differ; the last calls are on standard error then.
bool PlayBesideModel(unsigned int seed, size_t calls, Campaign* campaign);

}  // namespace kx::proof
