#pragma once

#include "Files/Base/IniFile_Text.h"
#include "Files/Base/NameIndex.h"
#include "Files/Base/Pool.h"

#include <cstdint>
#include <string_view>

/// INI documents that lose nothing.
///
///     IniFile settings(name, false);                     // from the save area, else from the bundle
///     settings.SetKey("display", "width", "1280");
///     MemoryManager::Free(settings.WriteIniFile());      // on the disk now, whole, or dbg_csol says why not
///
/// Whatever text is set as section, key or value reads back byte for byte. What a document does not understand it
/// keeps: comments, blank lines, lines that are neither section nor key, the order, the layout and the line ends of a
/// file written by hand. Only lines whose keys change are written anew. docs/ini.md describes the text.
///
/// Texts are bytes with a terminator. A null name names nothing: it is never found, and nothing is set under it.
/// @thread one document on one thread at a time

struct IniLine;
struct Section;

/// A key of a section. The document owns it and its texts.
struct Key {
    Key* m_pNext;  ///< in the order in which the keys came
    char* m_pKey;
    char* m_pValue;

    // What the host adds.
    Key* m_pPrevious;
    Section* m_pSection;
    IniLine* m_pLine;  ///< the last line of the key, the one that counts
    uint32_t m_hash;
    uint32_t m_room;     ///< bytes at m_pValue
    uint32_t m_valueAt;  ///< where the value begins in a line that was loaded
    bool m_ownsKey;      ///< a block of its own, as opposed to a part of the document's texts
    bool m_ownsValue;
};

/// A section. Keys before any header belong to the section with the empty name.
struct Section {
    Section* m_pNext;  ///< in the order in which the sections came
    Key* m_pFirst;
    char* m_pName;

    // What the host adds.
    Section* m_pPrevious;
    Key* m_pLast;
    IniLine* m_pHeader;  ///< its last header; null for keys before any header
    uint32_t m_hash;
    bool m_ownsName;
    bool m_isGone;  ///< deleted; its header keeps its place
};

/// A line of the text, or several that are kept as they are. The host's own.
struct IniLine {
    enum Kind : uint8_t { kept, header, key };

    IniLine* previous;
    IniLine* next;
    const char* text;  // as it was loaded, its line end included; null for a new line
    int length;
    Kind kind;
    bool rewritten;    // the key has another value now
    IniLine* earlier;  // header of the same section, or key with the same name, whose value does not count
    union {
        Section* section;
        Key* owner;
    };
};

class IniFile {
public:
    /// Loads a file by the name that a script gives it. A missing one is an empty document that is written to the save
    /// area. One that is there and cannot be read is empty too, with a line on dbg_csol; it is never written, for what
    /// the file holds would be lost.
    /// @param name  copied.
    /// @param flag  reserved, false.
    /// @throws std::bad_alloc for the name; a document that does not fit counts as one that cannot be read.
    IniFile(char* name, bool flag);

    /// An empty document with no file behind it.
    IniFile();

    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;
    ~IniFile();

    /// Replaces the contents by what a text says. A document that only ever was a text is rendered anew: the lines of
    /// its keys are in their plainest form.
    /// @param text  not kept; null is an empty one. One beyond kx::kMaxFileBytes is refused with a line on dbg_csol:
    ///              the document stays as it is.
    /// @throws std::bad_alloc; the document is then as it was, or empty.
    void SetText(const char* text);

    /// Writes a changed document back to its file in the save area, in one step and durably. Where that fails the file
    /// is as it was, a line on dbg_csol says why, and the document stays changed.
    /// @return the whole document as text, released with MemoryManager::Free. Lines that hold zero bytes, which only a
    ///         file can have, are left out. Null, with a line on dbg_csol, beyond kx::kMaxFileBytes.
    /// @throws std::bad_alloc
    char* WriteIniFile();

    /// @return the key or section, which lives until it is deleted; null where there is none.
    Key* GetKey(const char* section, const char* key);
    Section* GetSection(const char* section);

    /// Sets a value and makes section and key as needed; a null value is an empty one.
    /// @throws std::bad_alloc; no value is then changed.
    void SetKey(const char* section, const char* key, const char* value);

    /// Removes a key, or a section with its keys, and every line of theirs. All other lines stay. A section of the file
    /// that is made again is where it was.
    void DeleteKey(const char* section, const char* key);
    void DeleteSection(const char* section);

    char* m_pFileName = nullptr;  ///< as the script gave it; null where there is no file
    int m_Size = 0;               ///< bytes of the loaded text
    Section* m_pFirst = nullptr;
    int m_FileIndex = 0;            ///< where the next line to read begins
    char* m_pFileBuffer = nullptr;  ///< the loaded text, as it was loaded
    int m_LineNumber = 0;           ///< lines read
    bool m_Changed = false;         ///< differs from the file, as far as this document knows

    // What the host adds.

    /// Gives up the file: the document stays, and is not written any more.
    void Abandon();

private:
    // Loading
    void Load();
    void GiveUpReading(int reason);
    void Parse();
    bool NextLine(std::string_view* line);
    void ReadLine(std::string_view line);
    void ReadHeader(std::string_view line, std::string_view name);
    void ReadKey(std::string_view line, const kx::IniLineText& read);
    void KeepLine(std::string_view line);
    void ReportUnreadable() const;
    void TakeText(char* text, int size);
    void Clear();

    // What the document holds
    static uint32_t HashOf(std::string_view name);
    static uint32_t HashOf(uint32_t sectionHash, std::string_view key);
    [[nodiscard]] Section* FindSection(std::string_view name, uint32_t hash) const;
    [[nodiscard]] Key* FindKey(const Section* section, std::string_view name, uint32_t hash) const;
    Section* NewSection(char* name, uint32_t hash, bool owned);
    Key* NewKey(char* name, uint32_t hash, bool owned);
    IniLine* NewLine(std::string_view text);
    Section* AddSection(const char* name, uint32_t hash);
    void ReturnSection(Section* section);
    void ListSection(Section* section);
    void AddKey(const char* section, const char* name, const char* value);
    void SetValue(Key* key, const char* value);
    void FreeTexts();
    void LinkSection(Section* section, IniLine* header);
    void LinkKey(Section* section, Key* key);
    static void AddHeader(Section* section, IniLine* line);
    static void AddKeyLine(Key* key, IniLine* line);
    void LinkLine(IniLine* place, IniLine* line);
    void RemoveKey(Key* key);
    void RemoveSection(Section* section);
    void RemoveLines(IniLine* last);

    // Writing
    bool Save(std::string_view text);

    IniLine* m_pFirstLine = nullptr;
    IniLine* m_pLastLine = nullptr;
    kx::Pool<IniLine> m_linePool;
    kx::Pool<Section> m_sectionPool;
    kx::Pool<Key> m_keyPool;
    kx::NameIndex<Section> m_sections;
    kx::NameIndex<Key> m_keys;
    Section* m_pLastSection = nullptr;
    Section* m_pCurrent = nullptr;  // that the line being read is in; null before any header or key
    Key* m_pFound = nullptr;        // that was asked for last
    char* m_pTexts = nullptr;       // the names and values of the loaded text, each with a terminator
    char* m_pTextsEnd = nullptr;
    bool m_ownsTexts = false;      // some keys or sections have blocks of their own
    const char* m_lineEnd = "\n";  // of new lines
    bool m_hasMark = false;        // a byte order mark at the start
    bool m_anew = false;           // key lines are rendered anew, all of them
    int m_unread = 0;              // why the file could not be read, an errno value
    int m_unreadableLines = 0;
    int m_firstUnreadable = 0;  // its number
};
