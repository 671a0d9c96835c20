#pragma once

#include "Files/IO/LoadSave_Area.h"

#include <optional>
#include <string>

/// What the sources of the file layer share about files that are opened.
namespace kx {

/// @return true while any virtual file is open for writing.
/// @thread any
bool AnyFileOpenForWriting();

/// @return true while a virtual file that is written back to this path is open.
/// @thread any
bool IsOpenForWriting(const std::string& path);

/// The place in the save area that a file is written to whatever its name says: one of the bundle goes to the same
/// place.
/// @return nothing where the name is refused.
/// @thread any
std::optional<std::string> PlaceToWrite(const char* name);

}  // namespace kx
