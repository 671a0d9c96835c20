#pragma once

/// Directories by their paths, and file names by their text.

// --- directories: a path is a full path or a name, and means nothing where it lies outside the areas ---------------

/// Makes a directory and every missing one above it, inside the save area. A directory that exists already, in either
/// area, is made.
/// @return 1, or 0 where it cannot be made or lies outside.
/// @thread any
int ForceDirectories(const char* path);

/// @return 1 where the path is a directory of either area, else 0.
/// @thread any
int DirectoryExists(const char* path);

/// Removes a directory of the save area with everything in it. Links are removed, not followed; the area's root is
/// refused.
/// @return 1; 0 where there is no such directory and, with a line on dbg_csol that says why, where something is left.
/// @thread any
int DestroyDir(const char* path);

// --- CSV ------------------------------------------------------------------------------------------------------------

/// Loads a CSV file (RFC 4180) into a grid whose cells are all strings; rows that are shorter than the longest are
/// filled up with empty ones. Lines end with LF or CR LF, also inside quotes; a byte order mark is skipped; quotes
/// inside a cell that does not begin with one stand for themselves, as does a CR without LF. The last line's end may be
/// missing. An empty file is a grid without rows.
/// @param name  a file's name or full path: in the save area, else in the bundle.
/// @return the grid's index, which the caller frees with FreeDsGrid; -1, with a line on dbg_csol that says why and
///         where, for a file that cannot be read, holds a zero byte or ends inside quotes, and beyond
///         kx::kMaxCsvBytes and kx::kMaxFilledCells.
/// @throws std::bad_alloc
/// @thread any
int LoadCSV(char* name);

// --- file names: text only, nothing is looked up. Components end at "/" and at "\". ---------------------------------
// Each returns a new text in host memory, which the caller releases with KXFree; null for null.
// @throws std::bad_alloc
// @thread any

/// What follows the last separator: "save.ini" of "C:/games/save.ini".
char* ExtractFileName(const char* name);

/// Everything through the last separator: "C:/games/" of "C:/games/save.ini"; empty where there is none.
/// @param flag  reserved: the separator is kept whatever it is.
char* ExtractFilePath(const char* name, bool flag);

/// "C:" of "C:/games/save.ini", "\\server\share" of "\\server\share\save.ini", else empty.
char* ExtractFileDrive(const char* name);

/// What begins with the last dot of the last component: ".ini" of "C:/games.old/save.ini"; empty where there is none.
char* ExtractFileExt(const char* name);
