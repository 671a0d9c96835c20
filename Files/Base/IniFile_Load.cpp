// How an INI document comes to be: from a file or a text, line by line.
#include "Files/Base/IniFile.h"
#include "Files/Base/Limits.h"
#include "Files/Code/Code_Error.h"
#include "Files/IO/LoadSave.h"
#include "Files/IO/LoadSave_Open.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace {

/// The line end that a text begins with, which new lines get too.
const char* FirstLineEnd(std::string_view text) {
    size_t lineFeed = text.find('\n');
    bool windows = lineFeed != std::string_view::npos && lineFeed > 0 && text[lineFeed - 1] == '\r';
    return windows ? "\r\n" : "\n";
}

/// Bytes that a value gets at least: a number that is written in the place of another needs no block of its own then.
constexpr size_t kValueRoom = 16;

/// Bytes for all names and values of a text. Never more than the text itself: where a terminator comes in, a "=" or a
/// line end goes, but for the last line, which may have none. Values may have more room than they need.
/// Beyond 32 bits for a text of 500 MB that is all keys.
uint64_t RoomForTexts(std::string_view text) {
    auto lines = std::count(text.begin(), text.end(), '\n') + 1;
    auto keys = std::min(lines, std::count(text.begin(), text.end(), '='));
    return uint64_t{text.size()} + 1 + static_cast<uint64_t>(keys) * kValueRoom;
}

char* AllocText(uint64_t size) {
    if (size > UINT_MAX) throw std::bad_alloc();
    return static_cast<char*>(MemoryManager::Alloc(static_cast<unsigned int>(size), __FILE__, __LINE__, false));
}

}  // namespace

IniFile::IniFile(char* name, bool /*flag*/) : IniFile() {
    m_anew = false;
    m_pFileName = KXStrDup(name);
    if (!m_pFileName) return;
    try {
        Load();
    } catch (const std::bad_alloc&) {
        GiveUpReading(ENOMEM);
    }
    if (m_unreadableLines) ReportUnreadable();
}

/// A full path in the bundle means the saved file of that place, where there is one: what is written goes there. A name
/// that the save area refuses, a link that leads outside for one, is not read from the bundle either.
void IniFile::Load() {
    std::optional<std::string> place = kx::PlaceToWrite(m_pFileName);
    if (!place) {
        char path[kx::kMaxPath];
        m_unread = LoadSave::_GetSaveFileName(path, sizeof path, m_pFileName);  // it says why
        return;
    }
    int reason = kx::SaveArea().IsSet() ? kx::SaveArea().Contain(*place) : 0;
    if (reason) {
        GiveUpReading(reason);
        return;
    }
    _KXFILE* file = LoadSave::fopen(place->c_str(), "rt");
    if (!file) {
        bool missing = errno == ENOENT || errno == ENOTDIR;
        if (!missing) GiveUpReading(errno);
        return;
    }
    char* text = std::exchange(file->pBuff->m_data, nullptr);
    int size = file->pBuff->m_size;
    LoadSave::fclose(file);
    TakeText(text, size);
}

void IniFile::GiveUpReading(int reason) {
    m_unread = reason;
    const char* text = reason == EXDEV ? "it leads out of its folder" : std::strerror(reason);
    dbg_csol->Output("Failed to read INI file: %s (%s)\n", m_pFileName, text);
}

void IniFile::SetText(const char* text) {
    size_t length = text ? std::strlen(text) : 0;
    if (length > static_cast<size_t>(kx::kMaxFileBytes)) {
        dbg_csol->Output("INI text too large: %zu MiB\n", length >> 20);
        return;
    }
    char* copy = AllocText(length);  // before the old text goes, which it may be a part of
    if (length) std::memcpy(copy, text, length);
    Clear();
    m_Changed = m_pFileName != nullptr;
    TakeText(copy, static_cast<int>(length));
    if (m_unreadableLines) ReportUnreadable();
}

/// Reads a text that is the document's from now on. What fails leaves it empty.
void IniFile::TakeText(char* text, int size) {
    m_pFileBuffer = text;
    m_Size = size;
    try {
        Parse();
    } catch (const std::bad_alloc&) {
        Clear();
        throw;
    }
}

void IniFile::Parse() {
    std::string_view text(m_pFileBuffer, static_cast<size_t>(m_Size));
    m_pTextsEnd = m_pTexts = AllocText(RoomForTexts(text));
    m_lineEnd = FirstLineEnd(text);
    m_hasMark = text.substr(0, kx::kByteOrderMark.size()) == kx::kByteOrderMark;
    if (m_hasMark) m_FileIndex = static_cast<int>(kx::kByteOrderMark.size());

    std::string_view line;
    while (NextLine(&line)) {
        ReadLine(line);
    }
    m_pCurrent = nullptr;
}

/// @param line  set to the next one, its line end included.
bool IniFile::NextLine(std::string_view* line) {
    if (m_FileIndex >= m_Size) return false;
    std::string_view left(m_pFileBuffer + m_FileIndex, static_cast<size_t>(m_Size - m_FileIndex));
    size_t lineFeed = left.find('\n');
    *line = lineFeed == std::string_view::npos ? left : left.substr(0, lineFeed + 1);
    m_FileIndex += static_cast<int>(line->size());
    ++m_LineNumber;
    return true;
}

void IniFile::ReadLine(std::string_view line) {
    std::string_view contents = kx::WithoutLineEnd(line);
    kx::IniLineText read = kx::ReadIniLine(contents);
    bool hasText = read.kind == kx::IniLineText::section || read.kind == kx::IniLineText::key;
    // No name and no value can hold a zero byte.
    if (hasText && contents.find('\0') != std::string_view::npos) read.kind = kx::IniLineText::unreadable;
    switch (read.kind) {
    case kx::IniLineText::section: ReadHeader(line, read.name); return;
    case kx::IniLineText::key: ReadKey(line, read); return;
    case kx::IniLineText::unreadable:
        if (m_unreadableLines++ == 0) m_firstUnreadable = m_LineNumber;
        break;
    case kx::IniLineText::blank:
    case kx::IniLineText::comment: break;
    }
    KeepLine(line);
}

/// A header of a section that is there already goes on with it.
void IniFile::ReadHeader(std::string_view line, std::string_view name) {
    char* text = m_pTextsEnd;
    size_t length = kx::ReadIniName(name, text);
    text[length] = 0;
    uint32_t hash = HashOf({text, length});
    Section* section = FindSection({text, length}, hash);
    IniLine* header = NewLine(line);
    if (section) {
        AddHeader(section, header);
    } else {
        section = NewSection(text, hash, false);
        LinkSection(section, header);
        m_pTextsEnd = text + length + 1;
    }
    LinkLine(m_pLastLine, header);
    m_pCurrent = section;
}

/// A key that is there already gets another value.
void IniFile::ReadKey(std::string_view line, const kx::IniLineText& read) {
    if (!m_pCurrent) m_pCurrent = AddSection("", HashOf(""));
    char* name = m_pTextsEnd;
    size_t length = kx::ReadIniName(read.name, name);
    name[length] = 0;
    uint32_t hash = HashOf(m_pCurrent->m_hash, {name, length});
    Key* key = FindKey(m_pCurrent, {name, length}, hash);
    IniLine* keyLine = NewLine(line);
    if (!key) {
        key = NewKey(name, hash, false);
        LinkKey(m_pCurrent, key);
        m_pTextsEnd = name + length + 1;
    }
    key->m_pValue = m_pTextsEnd;
    size_t size = kx::ReadIniValue(read.value, key->m_pValue) + 1;
    key->m_pValue[size - 1] = 0;
    key->m_room = static_cast<uint32_t>(std::max(size, kValueRoom));
    m_pTextsEnd += key->m_room;
    key->m_valueAt = static_cast<uint32_t>(read.value.data() - line.data());
    AddKeyLine(key, keyLine);
    LinkLine(m_pLastLine, keyLine);
}

/// Several such lines in a row are one piece.
void IniFile::KeepLine(std::string_view line) {
    IniLine* last = m_pLastLine;
    if (last && last->kind == IniLine::kept) {
        last->length += static_cast<int>(line.size());
    } else {
        LinkLine(last, NewLine(line));
    }
}

void IniFile::ReportUnreadable() const {
    dbg_csol->Output("%s: line %d is no section, no key and no comment, and is kept as it is (%d such lines)\n",
                     m_pFileName ? m_pFileName : "INI text", m_firstUnreadable, m_unreadableLines);
}
