#pragma once

#include "Files/IO/Archive.h"
#include "Files/IO/LoadSave_Area.h"

#include <optional>
#include <string>

/// What the sources of the file layer share about files that are opened.
namespace kx {

/// True where a failed look or open means that there is no such file, as opposed to one that cannot be read just now:
/// only then may another file stand in for it.
bool MeansNoFile(int reason);

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

/// Reads a whole file that has a name: in the save area, else in the bundle.
/// @param path  set to its full path; may be null.
/// @return null, with errno set, where it cannot be read: the bundle's stands in for no saved file that is there.
/// @throws std::bad_alloc
/// @thread any
Contents LoadExisting(const char* name, std::string* path = nullptr);

/// @return why a file that has a name cannot be read, fit to be read by whoever named it.
const char* WhyUnreadable(int reason);

/// Opens an archive: a file of either area, also one that is in an archive itself.
/// @param path   a full path.
/// @param fault  set to why it cannot be read, as the end of a sentence.
/// @throws std::bad_alloc
/// @thread any
std::unique_ptr<Archive> OpenArchive(const char* path, std::string* fault);

}  // namespace kx
