// Files and directories by name.
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_File.h"

#include <cstdio>
#include <cstring>

void EnsureDirectoryIsCreated(const char* _filename) {
    char dirname[SCRATCH_PATH_SIZE];
    std::snprintf(dirname, sizeof dirname, "%s", _filename);
    char* pLastDir = std::strrchr(dirname, '\\');
    if (!pLastDir) pLastDir = std::strrchr(dirname, '/');
    if (!pLastDir) return;
    *pLastDir = 0;
    ForceDirectories(dirname);
}
