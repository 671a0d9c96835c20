#pragma once

#include "Files/Code/Code_Function.h"

struct IniFile;

/// The file-and-data module: the built-ins that scripts read and write files with.
///
///     InitFileFunctions();        // once, before scripts run: the tables are empty, the built-ins callable
///     …scripts run…
///     FINALIZE_Function_File();   // once, after: binary files are closed
///
/// @thread InitFileFunctions and FINALIZE_Function_File on the main thread while no script runs; everything else on
///         the script thread. The tables have no lock.

/// Clears the module's tables and registers the built-ins. Files that are open then are forgotten, not closed.
void InitFileFunctions();

/// Clears the text-file table: names and handles are forgotten, neither freed nor closed.
void InitTextFiles();

/// Clears the binary-file table, in the same way.
void InitBinFiles();

/// Closes every binary file that is still open and empties its slot. Text files are left as they are.
void FINALIZE_Function_File();

/// The number of program parameters.
int ParamCount();

/// Copies a program parameter.
/// @param Result  set to a copy in host memory, which the caller frees with KXFree; null for a number out of range.
void ParamStr(const char*& Result, int p);

/// Clears the host's sandbox flag. It reports nothing, whatever its name says.
void GetSecure();

/// Makes the directories above a path in the save area. The path is cut at its last backslash, else at its last slash;
/// a bare name needs none.
void EnsureDirectoryIsCreated(const char* _filename);
