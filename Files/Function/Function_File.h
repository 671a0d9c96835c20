#pragma once

#include "Files/Code/Code_Function.h"

class CDS_List;
class CDS_Map;
class IniFile;
struct json_object;

/// The file-and-data module: the built-ins that scripts read and write files with.
///
///     InitFileFunctions();        // once, before scripts run: the tables are empty, the built-ins callable
///     …scripts run…
///     MemoryManager::Free(KXTRQ_ini_close());   // or what was set in the open INI document is lost
///     FINALIZE_Function_File();                 // once, after: binary files are closed
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

// --- INI -----------------------------------------------------------------------------------------------------------

/// The open document; null where there is none. Only the functions below replace it, and nothing closes it at the end.
extern IniFile* g_IniFile;

/// Opens a file's document in the place of the one that is open, which is written back first. A null or empty name does
/// nothing at all.
void KXTRQ_ini_open(const char* name);

/// The same for a document that is a text, which must not be a part of the open one. A null text is an empty one.
void KXTRQ_ini_open_from_string(const char* text);

/// Writes the open document back and closes it.
/// @return its text, which the caller frees with MemoryManager::Free; null where none is open.
char* KXTRQ_ini_close();

/// @return the number that a key's text begins with, 0 where it begins with none; `def` where there is no such key, and
///         where no document is open, which is a script error.
double KXTRQ_ini_read_real(const char* section, const char* key, double def);

/// Sets a key to a number with six decimals. A script error where no document is open.
void KXTRQ_ini_write_real(const char* section, const char* key, double value);

/// @return the number that a text begins with, its commas read as points; 0 for null, and for 64 characters or more.
double MyStrToFloat(const char* str);

// --- JSON ----------------------------------------------------------------------------------------------------------

/// A value as JSON.
///
/// Reals are JSON doubles whatever their value; 64-bit integers are integers, or doubles where they are large, or,
/// where a double cannot hold them, the string "@i64@", hexadecimal digits, "$i64$". What has no JSON form becomes
/// null: so do a reference to a map or list that is not there, and a container inside itself.
/// @return what the caller owns and releases with json_object_put; null is a JSON null.
/// @throws KXRecursionLimit where containers are nested deeper than kx::kMaxNesting, or in a circle; std::bad_alloc.
/// @thread any; it takes the lock over the containers. Structs and arrays are the script thread's.
json_object* EncodeValue(RValue* v);

/// A map as a JSON object, its members in the order of the map's walk; a key that is no text under its printed form.
/// The caller holds the lock.
json_object* EncodeDSMap(CDS_Map* map);

/// A list or an array as a JSON array; a null array is an empty one. For a list the caller holds the lock.
json_object* EncodeDSList(CDS_List* list);
json_object* EncodeArray(RefDynamicArrayOfRValue* array);

/// A map's JSON text.
/// @param map   its index; nothing happens for one that is not there.
/// @param text  null or host memory, which is freed; set to a new text that the caller frees with KXFree.
/// @thread any
void DSMapToJSON(int map, char** text);

/// A scalar of JSON as a value: numbers and booleans are reals, null a null pointer, a string in the text form of a
/// 64-bit integer is that integer. An integer outside of 32 bits stops at their ends.
/// @param pVal  zeroed by the caller, who owns what it holds then; an object or array leaves it as it is.
void json_value(json_object* _jobj, RValue* pVal);

/// Adds every member of a JSON object to a map, but none whose name is a key there already. Objects and arrays become
/// new maps and lists. The caller holds the lock.
void json_parse_to_map(json_object* _jobj, CDS_Map* _map);

/// Appends every element of a JSON array to a list. No lock is taken for lists, here and below.
/// @param _key  the member of `_jobj` that is the array; null where `_jobj` itself is it.
void json_parse_array_to_list(json_object* _jobj, char* _key, CDS_List* _pList);

/// A new map or list filled by the above. A map's takes the lock itself, a list's is for the script thread.
/// @return its index.
int json_parse(json_object* _jobj);
int json_parse_array(json_object* _jobj, char* _key);

/// Reads JSON text into a map.
/// @param _map  an index whose map is added to; below 0 a new one is made.
/// @return the new map's index; -1 where the text is not JSON, and whenever no new map was asked for.
/// @thread any
int JSONToDSMap(char* _jsonData, int _map);

/// Reads the array that is the member `_key` of JSON text into a list, in the same way; -1 too where there is no such
/// array, or an empty one. A null key stands for the whole text.
/// @thread script thread
int JSONToDSList(char* _jsonListData, char* _key, int _list);

/// JSON as structs and arrays.
/// @param Result  zeroed by the caller, who owns what it holds then.
/// @thread script thread
void json_parse_ext(RValue& Result, json_object* _jobj);
void json_parse_object_ext(RValue& Result, json_object* _jobj);
void json_parse_array_ext(RValue& Result, json_object* _jobj);

/// Steps over white space.
/// @param _dir  1 forward, -1 backward.
/// @param _len  characters to look at, at most.
/// @return the first character that is not white space, or the place `_len` steps away.
const char* findfirstnonspace(const char* _pString, int _dir, int _len);
