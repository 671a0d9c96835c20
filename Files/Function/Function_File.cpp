// The module's frame: its tables, its built-ins, its start and its end.
#include "Files/Function/Function_File.h"

#include "Files/Base/RefDynamicArray.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Run/Run_Command.h"
#include "Platform/MemoryManager.h"

StFile textfiles[MAXFILE];
int filestatus[MAXFILE];
StFile binfiles[MAXBFILE];
bool bfilestatus[MAXBFILE];
char FileMode[FILE_MODE_SIZE];
kxFindData g_kxFindData;
bool filesrused;

RValue g_undefined = {{0}, 0, VALUE_UNDEFINED};

namespace {

struct BuiltIn {
    const char* name;
    TRoutine handler;
    int argc;
    bool flag;
};

const BuiltIn g_builtIns[] = {
    {"file_bin_open", F_FileBinOpen, 2, false},
    {"file_bin_rewrite", F_FileBinRewrite, 1, false},
    {"file_bin_close", F_FileBinClose, 1, false},
    {"file_bin_position", F_FileBinPosition, 1, false},
    {"file_bin_size", F_FileBinSize, 1, false},
    {"file_bin_seek", F_FileBinSeek, 2, false},
    {"file_bin_read_byte", F_FileBinReadByte, 1, false},
    {"file_bin_write_byte", F_FileBinWriteByte, 2, false},
    {"file_text_open_from_string", F_FileTextSet, 1, false},
    {"file_text_open_read", F_FileTextOpenRead, 1, false},
    {"file_text_open_write", F_FileTextOpenWrite, 1, false},
    {"file_text_open_append", F_FileTextOpenAppend, 1, false},
    {"file_text_close", F_FileTextClose, 1, false},
    {"file_text_read_string", F_FileTextReadString, 1, false},
    {"file_text_read_real", F_FileTextReadReal, 1, false},
    {"file_text_readln", F_FileTextReadLn, 1, false},
    {"file_text_eof", F_FileTextEof, 1, false},
    {"file_text_eoln", F_FileTextEoln, 1, false},
    {"file_text_write_string", F_FileTextWriteString, 2, false},
    {"file_text_write_real", F_FileTextWriteReal, 2, false},
    {"file_text_writeln", F_FileTextWriteLn, 1, false},
    {"file_exists", F_FileExists, 1, false},
    {"file_delete", F_FileDelete, 1, false},
    {"file_rename", F_FileRename, 2, false},
    {"file_copy", F_FileCopy, 2, false},
    {"directory_exists", F_DirectoryExists, 1, false},
    {"directory_create", F_DirectoryCreate, 1, false},
    {"directory_destroy", F_DirectoryDelete, 1, false},
    {"file_find_first", F_FileFindFirst, 2, false},
    {"file_find_next", F_FileFindNext, 0, false},
    {"file_find_close", F_FileFindClose, 0, false},
    {"file_attributes", F_FileAttributes, 2, false},
    {"filename_name", F_FilenameName, 1, false},
    {"filename_path", F_FilenamePath, 1, false},
    {"filename_dir", F_FilenameDir, 1, false},
    {"filename_drive", F_FilenameDrive, 1, false},
    {"filename_ext", F_FilenameExt, 1, false},
    {"filename_change_ext", F_FilenameChangeExt, 2, false},
    {"parameter_count", F_ParameterCount, 0, false},
    {"parameter_string", F_ParameterString, 1, false},
    {"environment_get_variable", F_EnvironmentGetVariable, 1, false},
    {"ini_open_from_string", F_IniOpenFromString, 1, false},
    {"ini_open", F_IniOpen, 1, false},
    {"ini_close", F_IniClose, 0, false},
    {"ini_read_string", F_IniReadString, 3, false},
    {"ini_read_real", F_IniReadReal, 3, false},
    {"ini_write_string", F_IniWriteString, 3, false},
    {"ini_write_real", F_IniWriteReal, 3, false},
    {"ini_key_exists", F_IniKeyExists, 2, false},
    {"ini_section_exists", F_IniSectionExists, 1, false},
    {"ini_key_delete", F_IniKeyDelete, 2, false},
    {"ini_section_delete", F_IniSectionDelete, 1, false},
    {"http_post_string", F_HttpPostString, 2, false},
    {"http_get", F_HttpGet, 1, false},
    {"http_get_file", F_HttpGetFile, 2, false},
    {"http_request", F_HttpRequest, 4, false},
    {"http_get_request_crossorigin", F_HttpGetRequestCrossOrigin, 0, false},
    {"http_set_request_crossorigin", F_HttpSetRequestCrossOrigin, 1, false},
    {"json_encode", F_JsonEncode, 1, false},
    {"json_decode", F_JsonDecode, 1, false},
    {"json_stringify", F_JsonEncodeExt, 1, false},
    {"json_parse", F_JsonDecodeExt, 1, false},
    {"zip_unzip", F_ZipUnzip, 2, false},
    {"load_csv", F_LoadCSV, 1, true},
};

void ClearSlots(StFile* slots, int count) {
    for (int i = 0; i < count; ++i) {
        slots[i].name = nullptr;
        slots[i].hF = nullptr;
    }
}

}  // namespace

void InitTextFiles() {
    ClearSlots(textfiles, MAXFILE);
    for (int& status : filestatus) {
        status = FILE_CLOSED;
    }
}

void InitBinFiles() {
    ClearSlots(binfiles, MAXBFILE);
    for (bool& status : bfilestatus) {
        status = false;
    }
}

void InitFileFunctions() {
    Secure_Mode = false;
    InitBinFiles();
    InitTextFiles();
    for (const BuiltIn& builtIn : g_builtIns) {
        Function_Add(builtIn.name, builtIn.handler, builtIn.argc, builtIn.flag);
    }
}

void FINALIZE_Function_File() {
    for (StFile& slot : binfiles) {
        if (slot.file) KXCloseStream(slot.file);
        MemoryManager::Free(slot.name);
        slot.name = nullptr;
        slot.file = nullptr;
    }
    g_pHttpHead = nullptr;
}

void FREE_RValue__Pre(RValue* v) {
    switch (v->kind & KIND_MASK) {
    case VALUE_ARRAY:
        if (v->arr) {
            Array_DecRef(v->arr);
            Array_SetOwner(v->arr);
        }
        return;
    case VALUE_PTR:
        if ((v->flags & VALUE_FLAG_OWNED) && v->owned) delete v->owned;
        return;
    case VALUE_STRING:
        if (v->str) {
            LOCK_RVALUE_MUTEX();
            if (--v->str->m_refCount == 0) {
                KXFree(v->str->m_thing);
                v->str->m_thing = nullptr;
                v->str->m_size = 0;
                delete v->str;
            }
            UNLOCK_RVALUE_MUTEX();
        }
        v->str = nullptr;
        return;
    default: return;
    }
}
