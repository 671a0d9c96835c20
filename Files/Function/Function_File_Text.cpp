// Text files: a table of slots, and line by line reading and writing.
#include "Files/Base/Number.h"
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstring>

namespace {

constexpr unsigned int FIRST_LINE_SIZE = 1024;
constexpr unsigned int LINE_GROWTH = 1024;
constexpr int NUMBER_SIZE = 1024;

// --- slots ---------------------------------------------------------------------------------------------------------

bool IsSlot(int id) {
    return id >= 1 && id < MAXFILE;
}

void ReleaseName(StFile& slot) {
    MemoryManager::Free(slot.name);
    slot.name = nullptr;
}

/// The first steps of every opener: the result is -1, the lowest free slot is found, and the name that an earlier use
/// may have left in it is released.
/// @return the slot, or 0 after KXError where all are open.
int TakeSlot(RValue& result) {
    SetReal(result, -1);
    for (int id = 1; id < MAXFILE; ++id) {
        if (filestatus[id] != FILE_CLOSED) continue;
        ReleaseName(textfiles[id]);
        return id;
    }
    KXError("Cannot open another file (maximum exceeded).");
    return 0;
}

void ReportFailedOpen(const char* name) {
    dbg_csol->Output("ERROR!!! :: Failed to open file: %s\n", name ? name : "");
}

/// Opens a resolved path in a slot. A path that cannot be opened stays in the slot as its name.
void OpenSlot(RValue& result, int id, const char* path, const char* mode, int status) {
    StFile& slot = textfiles[id];
    slot.name = KXStrDup(path);
    slot.hF = LoadSave::fopen(path, mode);
    if (!slot.hF) {
        ReportFailedOpen(path);
        return;
    }
    slot.mode = status;
    filestatus[id] = status;
    SetReal(result, id);
}

/// @return the file that an id stands for, null after KXError where it is not open in that way.
HKXFILE OpenFileOf(int id, int status, const char* error) {
    if (IsSlot(id) && filestatus[id] == status) return textfiles[id].hF;
    KXError("%s", error);
    return nullptr;
}

HKXFILE FileToRead(RValue* arg) {
    return OpenFileOf(KXGetInt32(arg, 0), FILE_READING, "File is not opened for reading.");
}

HKXFILE FileToWrite(RValue* arg) {
    return OpenFileOf(KXGetInt32(arg, 0), FILE_WRITING, "File not opened for writing.");
}

/// Gives a file that only the bundle has a copy in the save area, so that a script appends to a copy of its own and
/// never to the bundle. It is read without a question whether it is there: an answer that fails would be a "no".
/// @return false where there is one and the copy is not whole: appending to it would hide what the bundle ships.
bool CopyShippedFile(const char* name, const char* path) {
    UnfinishedFile source(LoadSave::fopen(name, "rb"));
    if (!source.file) return !LoadSave::BundleFileExists(name);
    UnfinishedFile destination(LoadSave::fopen(path, "wb"));
    if (!destination.file) return false;
    Buffer_Standard* contents = source.file->pBuff;
    auto size = static_cast<unsigned>(contents->m_size);
    bool copied = LoadSave::fwrite(contents->m_data, 1, size, destination.file) == size;
    return copied && LoadSave::fclose(destination.Release()) == 0;
}

// --- lines ---------------------------------------------------------------------------------------------------------

/// The text of a line as it grows: host memory, released with it.
struct LineText {
    explicit LineText(bool cleared)
        : clear(cleared), capacity(FIRST_LINE_SIZE),
          text(static_cast<char*>(MemoryManager::Alloc(FIRST_LINE_SIZE, MODULE_SOURCE, __LINE__, cleared))) {}
    LineText(const LineText&) = delete;
    LineText& operator=(const LineText&) = delete;
    ~LineText() { MemoryManager::Free(text); }

    void Grow(unsigned int more) {
        text = static_cast<char*>(MemoryManager::ReAlloc(text, capacity + more, MODULE_SOURCE, __LINE__, clear));
        capacity += more;
    }

    void Advance(int taken) { count += static_cast<unsigned int>(taken); }

    char* End() { return text + count; }
    int Room() const { return capacity - count > INT_MAX ? INT_MAX : static_cast<int>(capacity - count); }

    bool clear;
    unsigned int capacity;  // of a line of 2 GB: more than an int holds
    unsigned int count = 0;
    char* text;
};

}  // namespace

void F_FileTextSet(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    int id = TakeSlot(result);
    if (!id) return;
    if (arg[0].kind != VALUE_STRING) {  // the whole word: marks above the kind are no string either
        dbg_csol->Output("ERROR!!! :: wrong type for filename\n");
        return;
    }
    const char* text = KXGetString(arg, 0);
    int length = text ? static_cast<int>(std::strlen(text)) : 0;

    UnfinishedFile file(new _KXFILE);
    file.file->pBuff = new Buffer_Standard(length, eBuffer_Format_Grow, 1);
    std::memcpy(file.file->pBuff->m_data, text ? text : "", static_cast<size_t>(length));

    StFile& slot = textfiles[id];
    slot.name = KXStrDup("FileFromString");
    slot.hF = file.Release();
    slot.mode = FILE_READING;
    filestatus[id] = FILE_READING;
    SetReal(result, id);
}

void F_FileTextOpenRead(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    int id = TakeSlot(result);
    if (!id) return;
    const char* name = KXGetString(arg, 0);
    char path[PATH_SIZE];
    if (!ResolveExisting(path, name)) {
        ReportFailedOpen(name);
        return;
    }
    OpenSlot(result, id, path, "rt", FILE_READING);
}

void F_FileTextOpenWrite(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    int id = TakeSlot(result);
    if (!id) return;
    char path[PATH_SIZE];
    LoadSave::_GetSaveFileName(path, PATH_SIZE, KXGetString(arg, 0));
    EnsureDirectoryIsCreated(path);
    OpenSlot(result, id, path, "w", FILE_WRITING);
}

void F_FileTextOpenAppend(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    int id = TakeSlot(result);
    if (!id) return;
    const char* name = KXGetString(arg, 0);
    char path[PATH_SIZE];
    LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
    if (!LoadSave::SaveFileExists(name) && !CopyShippedFile(name, path)) {
        ReportFailedOpen(path);
        return;
    }
    EnsureDirectoryIsCreated(path);
    OpenSlot(result, id, path, "a+", FILE_WRITING);
}

void F_FileTextClose(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    int id = KXGetInt32(arg, 0);
    if (!IsSlot(id)) {
        KXError("Trying to close text file that has not been opened.");
        return;
    }
    bool open = filestatus[id] == FILE_READING || filestatus[id] == FILE_WRITING;
    filestatus[id] = FILE_CLOSED;
    if (!open) return;
    ReleaseName(textfiles[id]);
    LoadSave::fclose(TakeFile(textfiles[id]));
}

void F_FileTextReadString(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HKXFILE file = FileToRead(arg);
    if (!file) return;
    LineText line(false);
    for (;;) {
        line.Advance(LoadSave::ReadToLineEnd(file, line.End(), line.Room()));
        if (LoadSave::kxfeoln(file)) break;
        line.Grow(line.capacity / 2);
    }
    if (line.Room() == 0) line.Grow(line.capacity / 2);
    *line.End() = 0;
    KXCreateString(&result, line.text);
}

void F_FileTextReadReal(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HKXFILE file = FileToRead(arg);
    if (!file) return;
    result.kind = VALUE_REAL;
    LoadSave::freadreal(file, &result.real);
}

void F_FileTextReadLn(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HKXFILE file = FileToRead(arg);
    if (!file) return;
    LineText line(true);  // cleared, so that the text always ends
    for (;;) {
        line.Advance(LoadSave::ReadThroughLine(file, line.End(), line.Room() - 1));
        bool ended = LoadSave::kxfeof(file) || line.End()[-1] == '\n';
        if (ended) break;
        line.Grow(LINE_GROWTH);
    }
    KXCreateString(&result, line.text);
}

void F_FileTextEof(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HKXFILE file = FileToRead(arg);
    if (file) SetReal(result, LoadSave::kxfeof(file) ? 1 : 0);
}

void F_FileTextEoln(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HKXFILE file = FileToRead(arg);
    if (file) SetReal(result, LoadSave::kxfeoln(file) ? 1 : 0);
}

void F_FileTextWriteString(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* text = KXGetString(arg, 1);
    HKXFILE file = FileToWrite(arg);
    if (file && text) LoadSave::fputs(file, text);
}

void F_FileTextWriteReal(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    double value = KXGetReal(arg, 1);
    HKXFILE file = FileToWrite(arg);
    if (!file) return;
    char text[NUMBER_SIZE] = {};
    int length = kx::PrintRealG(text, value);  // "%g" in any locale
    text[length] = ' ';                        // keeps numbers that are written one after another apart
    LoadSave::fputs(file, text);
}

void F_FileTextWriteLn(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    HKXFILE file = FileToWrite(arg);
    if (file) LoadSave::fputs(file, "\n");
}
