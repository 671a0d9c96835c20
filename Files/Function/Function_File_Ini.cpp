// INI documents: one at a time, by section and key. Values are texts; numbers are made of them and read from them here.
#include "Files/Base/IniFile.h"
#include "Files/Base/Number.h"
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Platform/MemoryManager.h"

#include <cstdio>
#include <cstring>

IniFile* g_IniFile = nullptr;

namespace {

constexpr char UNDEFINED_READ[] = "Trying to read from undefined INI file";
constexpr char UNDEFINED_WRITE[] = "Trying to write to undefined INI file";
constexpr char UNDEFINED_CHANGE[] = "Trying to change undefined INI file";

constexpr int REAL_TEXT_SIZE = 256;
constexpr int REAL_DECIMALS = 6;
constexpr int TOLERANT_SIZE = 64;
constexpr int DEFAULT_SIZE = 16;
constexpr int DEFAULT_LINE = 1839;  // what the block of a default is tagged with

bool IsOpen(const char* complaint) {
    if (!g_IniFile) KXError("%s", complaint);
    return g_IniFile != nullptr;
}

/// A document that is being read: not open before it is whole.
struct DocumentOwner {
    DocumentOwner() : file(new IniFile) {}
    DocumentOwner(const DocumentOwner&) = delete;
    DocumentOwner& operator=(const DocumentOwner&) = delete;
    ~DocumentOwner() { delete file; }

    IniFile* Release() {
        IniFile* released = file;
        file = nullptr;
        return released;
    }

    IniFile* file;
};

/// Sets a result to a value's printed form.
void SetPrinted(RValue& result, const RValue* value) {
    int size = DEFAULT_SIZE;
    HostText text(static_cast<char*>(MemoryManager::Alloc(DEFAULT_SIZE, MODULE_SOURCE, DEFAULT_LINE, true)));
    char* pos = text.text;
    STRING_RValue(&pos, &text.text, &size, value);
    KXCreateString(&result, text.text);
}

}  // namespace

// --- opening and closing -------------------------------------------------------------------------------------------

void KXTRQ_ini_open(const char* name) {
    if (!name || !*name) return;
    HostText copy(KXStrDup(name));  // it may be a part of the document that goes
    MemoryManager::Free(KXTRQ_ini_close());
    g_IniFile = new IniFile(copy.text, false);
}

void KXTRQ_ini_open_from_string(const char* text) {
    MemoryManager::Free(KXTRQ_ini_close());
    DocumentOwner document;
    document.file->SetText(text);
    g_IniFile = document.Release();
}

char* KXTRQ_ini_close() {
    if (!g_IniFile) return nullptr;
    char* text = g_IniFile->WriteIniFile();
    delete g_IniFile;
    g_IniFile = nullptr;
    return text;
}

void F_IniOpen(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    KXTRQ_ini_open(KXGetString(arg, 0));
}

void F_IniOpenFromString(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* text = KXGetString(arg, 0);
    KXTRQ_ini_open_from_string(text ? text : "");
}

void F_IniClose(RValue& result, CInstance*, CInstance*, int, RValue*) {
    HostText text(KXTRQ_ini_close());
    KXCreateString(&result, text.text);
}

// --- reading and writing -------------------------------------------------------------------------------------------

double KXTRQ_ini_read_real(const char* section, const char* key, double def) {
    if (!IsOpen(UNDEFINED_READ)) return def;
    const Key* found = g_IniFile->GetKey(section, key);
    return found ? kx::ReadReal(found->m_pValue) : def;  // a comma ends the number, as MyStrToFloat's does not
}

void KXTRQ_ini_write_real(const char* section, const char* key, double value) {
    if (!IsOpen(UNDEFINED_WRITE)) return;
    char text[REAL_TEXT_SIZE];
    kx::PrintRealFixed(text, REAL_TEXT_SIZE, value, REAL_DECIMALS);  // "%f" in any locale
    g_IniFile->SetKey(section, key, text);
}

double MyStrToFloat(const char* str) {
    if (!str || !*str || std::strlen(str) >= TOLERANT_SIZE) return 0;
    char buffer[TOLERANT_SIZE] = {};
    std::snprintf(buffer, TOLERANT_SIZE, "%s", str);
    while (char* comma = std::strchr(buffer, ',')) {
        *comma = '.';
    }
    return kx::ReadReal(buffer);
}

/// The only one that looks for a document before it looks at its arguments.
void F_IniReadString(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    if (!IsOpen(UNDEFINED_READ)) return;
    const char* section = KXGetString(arg, 0);
    const char* key = KXGetString(arg, 1);
    if (const Key* found = g_IniFile->GetKey(section, key)) {
        KXCreateString(&result, found->m_pValue);
    } else {
        SetPrinted(result, &arg[2]);
    }
}

void F_IniReadReal(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    const char* key = KXGetString(arg, 1);
    double def = KXGetReal(arg, 2);
    result.kind = VALUE_REAL;
    result.real = KXTRQ_ini_read_real(section, key, def);
}

void F_IniWriteString(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    const char* key = KXGetString(arg, 1);
    const char* value = KXGetString(arg, 2);
    if (IsOpen(UNDEFINED_WRITE)) g_IniFile->SetKey(section, key, value);
}

void F_IniWriteReal(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    const char* key = KXGetString(arg, 1);
    KXTRQ_ini_write_real(section, key, KXGetReal(arg, 2));
}

void F_IniKeyExists(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    const char* key = KXGetString(arg, 1);
    if (IsOpen(UNDEFINED_READ)) SetReal(result, g_IniFile->GetKey(section, key) ? 1 : 0);
}

void F_IniSectionExists(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    if (IsOpen(UNDEFINED_READ)) SetReal(result, g_IniFile->GetSection(section) ? 1 : 0);
}

void F_IniKeyDelete(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    const char* key = KXGetString(arg, 1);
    if (IsOpen(UNDEFINED_CHANGE)) g_IniFile->DeleteKey(section, key);
}

void F_IniSectionDelete(RValue&, CInstance*, CInstance*, int, RValue* arg) {
    const char* section = KXGetString(arg, 0);
    if (IsOpen(UNDEFINED_CHANGE)) g_IniFile->DeleteSection(section);
}
