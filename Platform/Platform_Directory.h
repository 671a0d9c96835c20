#pragma once

#include "Platform/Platform_File.h"

#include <string>
#include <vector>

/// Directories beneath a root, under the rules of Platform_File.h.
/// @thread any; all state is in the file system.
namespace kx {

enum class EntryKind { file, directory, link, other };

struct DirectoryEntry {
    std::string name;  ///< one component, any bytes
    EntryKind kind;    ///< of the entry itself: links are not followed
};

/// Makes a directory beneath a root and every missing one above it.
/// @return 0, also where it exists already, or an errno value.
[[nodiscard]] int MakeDirectoriesBeneath(int root, const std::string& name, Durability durability);

/// Lists a directory beneath a root, in no order, without "." and ".." and without replacements under way.
/// @param entries  the directory's entries are added to it.
/// @return 0, or an errno value; what was read until then has been added.
[[nodiscard]] int ListDirectoryBeneath(int root, const std::string& name, std::vector<DirectoryEntry>* entries);

/// Removes a directory beneath a root with everything in it, however deep, with a handful of descriptors. Links are
/// removed, not followed. What cannot be removed stays, with the directories above it; the rest goes.
/// @return 0, or an errno value: why the first of what is left is left.
[[nodiscard]] int RemoveTreeBeneath(int root, const std::string& name);

/// Removes what replacements left behind that were killed on their way, everywhere beneath a root. Files that a running
/// program is still writing stay.
void SweepTemporaries(int root);

}  // namespace kx
