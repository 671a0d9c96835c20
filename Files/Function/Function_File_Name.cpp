// File names: taking them apart, and giving them another extension.
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_File.h"
#include "Platform/MemoryManager.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace {

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

/// Makes the result a part of the name, as a helper of the host cuts it out.
void GivePart(RValue& result, RValue* arg, char* (*extract)(const char*)) {
    SetNoText(result);
    const char* name = KXGetString(arg, 0);
    if (!name) return;
    HostText out(extract(name));
    KXCreateString(&result, out.text);
}

/// The first steps of taking a directory: the result has no text, and the directory part of the name is there; for a
/// bare name the directory where it is found.
/// @return host memory, empty where there is no directory; null, after KXError, where there is no name.
char* TakeDirectory(RValue& result, RValue* arg, bool flag, const char* error) {
    SetNoText(result);
    const char* name = KXGetString(arg, 0);
    if (!name) {
        KXError("%s", error);
        return nullptr;
    }
    HostText out(ExtractFilePath(name, flag));
    char path[PATH_SIZE];
    bool bare = out.text && !*out.text;
    bool found = bare && ResolveExisting(path, name);
    return found ? ExtractFilePath(path, false) : out.Release();
}

/// A text that is built here; cleared, so that it always ends.
/// @return null, after KXError, where it would be longer than a text can be.
char* AllocText(unsigned long long size) {
    if (size > INT_MAX) {
        KXError("File name too long.");
        return nullptr;
    }
    return static_cast<char*>(MemoryManager::Alloc(static_cast<unsigned int>(size), MODULE_SOURCE, __LINE__, true));
}

}  // namespace

void F_FilenameName(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    GivePart(result, arg, ExtractFileName);
}

void F_FilenamePath(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HostText out(TakeDirectory(result, arg, true, "null string passed to filename_path"));
    if (!out.text) return;
    size_t len = std::strlen(out.text);
    bool ended = len == 0 || IsSeparator(out.text[len - 1]);
    if (ended) {
        KXCreateString(&result, out.text);
        return;
    }
    HostText withEnd(AllocText(len + 2ULL));
    if (!withEnd.text) return;
    std::memcpy(withEnd.text, out.text, len);
    withEnd.text[len] = '/';
    KXCreateString(&result, withEnd.text);
}

void F_FilenameDir(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    HostText out(TakeDirectory(result, arg, false, "null string passed to filename_dir"));
    if (!out.text) return;
    size_t len = std::strlen(out.text);
    if (len > 1 && IsSeparator(out.text[len - 1])) out.text[len - 1] = 0;  // a lone "/" is a directory
    KXCreateString(&result, out.text);
}

void F_FilenameDrive(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    GivePart(result, arg, ExtractFileDrive);
}

void F_FilenameExt(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    GivePart(result, arg, ExtractFileExt);
}

void F_FilenameChangeExt(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetNoText(result);
    const char* pFilename = KXGetString(arg, 0);
    const char* pNewExt = KXGetString(arg, 1);
    if (!pFilename) return;
    if (!pNewExt) pNewExt = "";
    size_t n = std::strlen(pNewExt);
    const char* pDot = std::strrchr(pFilename, '.');
    HostText out(nullptr);
    if (pDot) {  // a folder's dot too; the new extension brings its own
        auto len2dot = static_cast<size_t>(pDot - pFilename);
        out.text = AllocText(len2dot + n + 2ULL);
        if (!out.text) return;
        std::memcpy(out.text, pFilename, len2dot);
        std::memcpy(out.text + len2dot, pNewExt, n);
    } else {
        unsigned long long new_len = n + 2ULL + std::strlen(pFilename);
        bool complete = *pNewExt == '.' || *pNewExt == 0;
        out.text = AllocText(new_len);
        if (!out.text) return;
        std::snprintf(out.text, static_cast<size_t>(new_len), complete ? "%s%s" : "%s.%s", pFilename, pNewExt);
    }
    KXCreateString(&result, out.text);
}
