// Archives and tables: both are the host's work, on names that are resolved here or there.
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Run/Run_Command.h"
#include "Files/Support/Support_File.h"

namespace {

constexpr unsigned int MARK_BITS = 0xFF000000;

}  // namespace

void F_ZipUnzip(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* pZipFilename = KXGetString(arg, 0);
    const char* pDest = KXGetString(arg, 1);
    SetReal(result, 0);
    char filename[PATH_SIZE];
    ResolveOrMake(filename, pZipFilename);
    char destname[PATH_SIZE];
    LoadSave::_GetSaveFileName(destname, PATH_SIZE, pDest);
    SetReal(result, Command_Unzip(filename, destname, 0, 0, nullptr));
}

void F_LoadCSV(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetReal(result, -1);
    if ((arg[0].kind & ~MARK_BITS) != VALUE_STRING) {
        KXError("load_csv - parameter should be a filename");
        return;
    }
    SetReal(result, LoadCSV(const_cast<char*>(KXGetString(arg, 0))));
}
