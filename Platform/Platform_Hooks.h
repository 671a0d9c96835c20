#pragma once

#include "Files/IO/LoadSave_Area.h"

#include <string>
#include <vector>

namespace kx {

/// The names of the files and directories of an area that a mask lets through, sorted by their bytes.
/// @param mask    full path, its last component a pattern as the shell's; "*.*" is every name.
/// @param filter  attribute bits of what is wanted besides plain files: 2 hidden ones, 16 directories.
/// @return the names without their directory; none where there is no such directory and, with a line on dbg_csol, where
///         it cannot be read to its end.
/// @throws std::bad_alloc
/// @thread any
std::vector<std::string> FindNames(const Area& area, const char* mask, int filter);

}  // namespace kx
