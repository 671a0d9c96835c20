#pragma once

#include "Files/IO/LoadSave_Area.h"

/// What the sources of the file layer share about files that are opened.
namespace kx {

/// @return true while any virtual file is open for writing.
/// @thread any
bool AnyFileOpenForWriting();

}  // namespace kx
