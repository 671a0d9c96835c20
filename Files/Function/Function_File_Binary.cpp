// Binary files: a table of slots, and byte by byte reading and writing.
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Platform/MemoryManager.h"

namespace {

enum : int { MODE_READ = 0, MODE_WRITE = 1, MODE_READ_WRITE = 2 };

/// How LoadSave::fseek counts.
enum : int { FROM_START = 0, FROM_END = 2 };

bool IsOpen(int id) {
    return static_cast<unsigned int>(id) - 1 <= MAXBFILE - 2 && bfilestatus[id];
}

/// @return the slot that an id stands for, null after KXError where it is not open.
StFile* OpenSlotOf(int id, const char* error = "File is not opened.") {
    if (IsOpen(id)) return &binfiles[id];
    KXError("%s", error);
    return nullptr;
}

/// @return the lowest slot that is free, or MAXBFILE where all are open.
int FindSlot() {
    int id = 1;
    while (id < MAXBFILE && bfilestatus[id]) {
        ++id;
    }
    return id;
}

/// Ends what an earlier use left in a slot.
void ReleaseStaleHandle(StFile& slot) {
    if (!slot.hF) return;
    bool known = slot.mode == MODE_READ || slot.mode == MODE_WRITE || slot.mode == MODE_READ_WRITE;
    MemoryManager::Free(slot.name);
    slot.name = nullptr;
    HKXFILE stale = TakeFile(slot);
    if (known) LoadSave::fclose(stale);
}

const char* ModeText(int mode) {
    if (mode == MODE_READ) return "rb";
    return mode == MODE_WRITE ? "wb" : "rw";
}

void ReportFailedOpen(const char* name) {
    dbg_csol->Output("Error opening binary file %s\n", name ? name : "");
}

void FailToRead(RValue& result) {
    KXError("Error reading byte.");
    result.real = 0;
}

}  // namespace

void F_FileBinOpen(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* name = KXGetString(arg, 0);
    int mode = KXGetInt32(arg, 1);
    SetReal(result, -1);
    int id = FindSlot();
    if (id == MAXBFILE) {
        ReportFailedOpen(name);
        return;
    }
    StFile& slot = binfiles[id];
    ReleaseStaleHandle(slot);
    char path[PATH_SIZE];
    ResolveOrMake(path, name);
    char* copy = KXStrDup(path);
    KXFree(slot.name);
    slot.name = copy;
    SetFileMode(ModeText(mode));
    if (mode != MODE_READ) EnsureDirectoryIsCreated(path);
    slot.hF = LoadSave::fopen(path, FileMode);
    if (!slot.hF) {
        ReportFailedOpen(name);
        return;
    }
    bfilestatus[id] = true;
    slot.mode = mode;
    SetReal(result, id);
}

void F_FileBinRewrite(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    StFile* slot = OpenSlotOf(KXGetInt32(arg, 0), "Trying to rewrite unopened file.");
    if (!slot) return;
    LoadSave::Abandon(slot->hF);  // it would replace the file by what is to go, and an error after that lose it
    LoadSave::fclose(TakeFile(*slot));
    slot->hF = LoadSave::fopen(slot->name, "wb+");
    if (slot->hF) {
        slot->hF->pBuff->Seek(eBuffer_Start, 0);
    } else {
        KXError("Error opening binary file %s", slot->name);  // there is no result to tell it by
    }
    slot->mode = MODE_WRITE;
}

void F_FileBinClose(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    int id = KXGetInt32(arg, 0);
    StFile* slot = OpenSlotOf(id, "Trying to close unopened file.");
    if (!slot) return;
    bfilestatus[id] = false;
    MemoryManager::Free(slot->name);
    slot->name = nullptr;
    LoadSave::fclose(TakeFile(*slot));
}

void F_FileBinPosition(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    StFile* slot = OpenSlotOf(KXGetInt32(arg, 0));
    if (slot) SetReal(result, static_cast<int>(LoadSave::ftell(slot->hF)));
}

void F_FileBinSize(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    StFile* slot = OpenSlotOf(KXGetInt32(arg, 0));
    if (!slot) return;
    long pos = LoadSave::ftell(slot->hF);
    LoadSave::fseek(slot->hF, 0, FROM_END);
    SetReal(result, static_cast<int>(LoadSave::ftell(slot->hF)));
    LoadSave::fseek(slot->hF, pos, FROM_START);
}

void F_FileBinSeek(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    int id = KXGetInt32(arg, 0);
    int position = KXGetInt32(arg, 1);
    StFile* slot = OpenSlotOf(id);
    if (slot) LoadSave::fseek(slot->hF, position, FROM_START);
}

void F_FileBinReadByte(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    unsigned char b = 0;
    StFile* slot = OpenSlotOf(KXGetInt32(arg, 0));
    if (!slot) return;
    result.kind = VALUE_REAL;
    bool readable = slot->hF && slot->name && (slot->mode == MODE_READ || slot->mode == MODE_READ_WRITE);
    if (!readable || LoadSave::fread(&b, 1, 1, slot->hF) == 0) {
        FailToRead(result);
        return;
    }
    result.real = b;
}

void F_FileBinWriteByte(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    int id = KXGetInt32(arg, 0);
    auto b = static_cast<unsigned char>(KXGetInt32(arg, 1));
    StFile* slot = OpenSlotOf(id);
    if (!slot) return;
    if (slot->mode == MODE_WRITE || slot->mode == MODE_READ_WRITE) LoadSave::fwrite(&b, 1, 1, slot->hF);
}
