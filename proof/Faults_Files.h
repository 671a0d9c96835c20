#pragma once

#include "tests/support/MemoryArea.h"

#include <string>

namespace kx::proof {

/// What stands in the folder of a campaign's world before every point, by name: save/, bundle/ and game.zip, an archive
/// of the bundle.
test::Files FirstFiles();

// Contents that scripts write, of a few pages, so that reads and writes come in more than one piece.
extern const std::string kLong;
extern const std::string kJsonText;

}  // namespace kx::proof
