#pragma once

#include "Platform/SystemCalls.h"

#include <string>

/// The file system below one directory: names that cannot leave it.
///
/// Every name here is relative to an open directory (the root), its components separated by "/", without "." and "..";
/// the empty name is the root itself. Opening and checking are one step: a component that is replaced by a link at any
/// moment cannot lead the open outside.
/// @thread any; all state is in the file system.
namespace kx {

/// Names that begin with this belong to replacements under way. No script name may.
extern const char kTemporaryPrefix[];

enum class Durability {
    none,      ///< no syncs: a crash of the program loses nothing, a power cut may
    contents,  ///< the contents are on the disk before they get their name; the name follows when its directory is
               ///< synced
    full,      ///< contents and name are on the disk when a replacement returns
};

/// Opens a name beneath a root. Links may lead to places beneath the root only; kernels without openat2 follow none.
/// @param flags  as for open; close-on-exec is added.
/// @return a descriptor, or an empty one and errno: EXDEV or ELOOP where a link leads outside.
Descriptor OpenBeneath(int root, const std::string& name, int flags, mode_t mode = 0);

/// Opens a name beneath a root that must be a regular file; never waits for a FIFO's other end.
/// @param status  filled with the file's state.
/// @return a descriptor, or an empty one and errno: EISDIR for a directory, ENXIO for what is no file.
Descriptor OpenRegularBeneath(int root, const std::string& name, int flags, struct stat* status);

/// Reads up to `size` bytes, over short reads and interruptions.
/// @return bytes read, fewer than `size` at the end of the file; -1 and errno on failure.
ssize_t ReadAll(int file, char* data, size_t size);

/// The same from an offset, the file's own position unchanged.
ssize_t ReadAllAt(int file, char* data, size_t size, off_t offset);

/// Gives a file or a link beneath a root another name, in one step; what has that name is replaced, as rename does.
/// @return 0 or an errno value.
[[nodiscard]] int RenameBeneath(int root, const std::string& from, const std::string& to);

/// Splits a name at its last "/": the parent (empty for the root) and the last component.
std::string ParentOf(const std::string& name);
std::string LeafOf(const std::string& name);

}  // namespace kx
