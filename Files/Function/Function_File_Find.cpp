// File search: one list of names at a time.
#include "Files/Function/Function_File_Internal.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

/// The list of a search under way: forgotten at the end, unless the search has found something.
struct SearchOwner {
    SearchOwner() = default;
    SearchOwner(const SearchOwner&) = delete;
    SearchOwner& operator=(const SearchOwner&) = delete;
    ~SearchOwner() {
        if (!filesrused) g_kxFindData.Reset();
    }
};

/// Makes the result a copy of the name at the list's index, where there is one.
bool GiveCurrentName(RValue& result) {
    if (g_kxFindData.m_nCurrentIndex >= g_kxFindData.m_numFiles) return false;
    KXCreateString(&result, g_kxFindData.m_files[g_kxFindData.m_nCurrentIndex]);
    return true;
}

}  // namespace

void kxFindData::Reset() {
    for (int i = 0; i < m_numFiles; ++i) {
        std::free(m_files[i]);
    }
    std::free(m_files);
    m_files = nullptr;
    m_nCurrentIndex = 0;
    m_numFiles = 0;
}

void kxFindData::AddFile(const char* name) {
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return;
    for (int i = 0; i < m_numFiles; ++i) {
        if (std::strcmp(m_files[i], name) == 0) return;
    }
    // One more each time, and each name compared with all: the list is as long as a directory.
    auto count = static_cast<size_t>(m_numFiles);
    auto** files = static_cast<char**>(std::malloc((count + 1) * sizeof(char*)));
    char* copy = strdup(name);
    if (!files || !copy) {
        std::free(files);
        std::free(copy);
        throw std::bad_alloc();
    }
    if (m_files) std::memcpy(files, m_files, count * sizeof(char*));
    std::free(m_files);
    files[count] = copy;
    m_files = files;
    ++m_numFiles;
}

void F_FileFindFirst(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    SetNoText(result);
    filesrused = false;
    const char* mask = KXGetString(arg, 0);
    double attributes = KXGetReal(arg, 1);
    g_kxFindData.Reset();
    SearchOwner search;
    char saveMask[PATH_SIZE];
    char bundleMask[PATH_SIZE];
    LoadSave::_GetSaveFileName(saveMask, PATH_SIZE, mask);
    LoadSave::_GetBundleFileName(bundleMask, PATH_SIZE, mask);
    CreateFindData(&g_kxFindData, saveMask, bundleMask, attributes);
    filesrused = GiveCurrentName(result);
}

void F_FileFindNext(RValue& result, CInstance*, CInstance*, int, RValue*) {
    SetNoText(result);
    if (!filesrused) return;
    if (g_kxFindData.m_nCurrentIndex < INT_MAX) ++g_kxFindData.m_nCurrentIndex;
    GiveCurrentName(result);
}

void F_FileFindClose(RValue&, CInstance*, CInstance*, int, RValue*) {
    if (filesrused) g_kxFindData.Reset();
    filesrused = false;
}
