#pragma once

/// Directories of the save area.

/// Makes a directory and every missing one above it, inside the save area. A directory that exists already, in either
/// area, is made.
/// @param path  full path or name.
/// @return 1, or 0 where it cannot be made or lies outside.
/// @thread any
int ForceDirectories(const char* path);
