#pragma once

#include "Files/Buffer/Buffer_Standard.h"
#include "Files/IO/LoadSave_Area.h"

#include <memory>
#include <string>

/// What the sources of the file layer share about files that are opened.
namespace kx {

using Contents = std::unique_ptr<Buffer_Standard>;

/// Reads a whole file of an area.
/// @return its bytes; null, with errno set, where it cannot be read.
/// @throws std::bad_alloc
/// @thread any
Contents LoadFrom(const Area& area, const std::string& place);

/// @return true while any virtual file is open for writing.
/// @thread any
bool AnyFileOpenForWriting();

}  // namespace kx
