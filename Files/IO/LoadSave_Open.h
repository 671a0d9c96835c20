#pragma once

#include "Files/IO/LoadSave_Area.h"

#include <string>

/// What the sources of the file layer share about files that are opened.
namespace kx {

/// @return true while any virtual file is open for writing.
/// @thread any
bool AnyFileOpenForWriting();

/// @return true while a virtual file that is written back to this path is open.
/// @thread any
bool IsOpenForWriting(const std::string& path);

}  // namespace kx
