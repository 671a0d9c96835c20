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

/// The names that a file search has found.
struct kxFindData {
    int m_nCurrentIndex = 0;  ///< the name that was returned last
    int m_numFiles = 0;
    char** m_files = nullptr;  ///< exactly m_numFiles names; array and names come from the standard malloc

    /// Forgets all names.
    void Reset();

    /// Adds a copy of a name, unless it is "." or ".." or in the list already.
    void AddFile(const char* name);
};

// --- hooks that each platform supplies -----------------------------------------------------------------------------

/// Lists what a search asks for, by kxFindData::AddFile, in the form in which scripts get the names. What is deleted
/// afterwards stays in the list.
/// @param data        empty.
/// @param saveMask    full path in the save area, with the mask as its last component; empty where it was refused.
/// @param bundleMask  the same in the bundle area.
/// @param attributes  the attribute bits of what is wanted besides plain files.
/// @thread any
void CreateFindData(kxFindData* data, const char* saveMask, const char* bundleMask, double attributes);

/// @param path    full path in the save area, or, without isSave, in the bundle area.
/// @return attribute bits: 1 nobody may write it, 2 hidden (a leading dot), 16 directory, 32 file; 0 for neither.
/// @thread any
int KXGetFileAttributes(const char* path, bool isSave);

// --- exported helpers ----------------------------------------------------------------------------------------------

/// Makes the directories above a path in the save area. The path is cut at its last backslash, else at its last slash;
/// a bare name needs none.
void EnsureDirectoryIsCreated(const char* _filename);
