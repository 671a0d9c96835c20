#pragma once

#include "Platform/SystemCalls.h"

#include <string>

/// The file system below one directory: names that cannot leave it, and files that are replaced whole.
///
/// Every name here is relative to an open directory (the root), its components separated by "/", without "." and "..";
/// the empty name is the root itself. Opening and checking are one step: a component that is replaced by a link at any
/// moment cannot lead the open outside.
/// @thread any; all state is in the file system.
namespace kx {

/// Names that begin with this belong to replacements under way. No script name may.
extern const char kTemporaryPrefix[];

enum class Durability {
    none,  ///< no syncs: a crash of the program loses nothing, a power cut may
    full,  ///< contents and name are on the disk when a replacement returns
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

/// Makes a directory beneath a root and every missing one above it.
/// @return 0, also where it exists already, or an errno value.
[[nodiscard]] int MakeDirectoriesBeneath(int root, const std::string& name, Durability durability);

/// Replaces a whole file in one step: whoever opens the name sees the old bytes or the new ones, never a mix. Also
/// makes a file that is missing. The permission bits stay; a link is replaced by a file.
/// @param directory  open directory that holds the file.
/// @param leaf       the file's name in it, one component.
/// @param data       `size` bytes, may be null when `size` is 0; not kept.
/// @return 0, or an errno value; the file is then as it was. Only on a file system that cannot exchange two names does
///         a failure of the very last sync leave the new file there.
/// @thread any; two writers of one name: the last one wins, no mix.
[[nodiscard]] int ReplaceFile(int directory, const char* leaf, const void* data, size_t size, Durability durability);

/// Removes what replacements left behind that were killed on their way, everywhere beneath a root. Files that a running
/// program is still writing stay.
void SweepTemporaries(int root);

/// Splits a name at its last "/": the parent (empty for the root) and the last component.
std::string ParentOf(const std::string& name);
std::string LeafOf(const std::string& name);

}  // namespace kx
