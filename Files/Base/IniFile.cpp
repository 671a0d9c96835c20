// INI documents: their sections, keys and lines, and how they change.
#include "Files/Base/IniFile.h"

#include "Files/Base/SipHash.h"

#include <cstring>
#include <utility>

namespace {

bool Is(const char* text, std::string_view name) {
    return std::strncmp(text, name.data(), name.size()) == 0 && text[name.size()] == 0;
}

bool Is(const char* text, const char* name) {
    return std::strcmp(text, name) == 0;
}

}  // namespace

IniFile::IniFile() : m_anew(true) {}

IniFile::~IniFile() {
    Clear();
    KXFree(m_pFileName);
}

void IniFile::Abandon() {
    KXFree(m_pFileName);
    m_pFileName = nullptr;
}

/// Frees the texts that have blocks of their own.
void IniFile::FreeTexts() {
    if (!m_ownsTexts) return;
    for (Section* section = m_pFirst; section; section = section->m_pNext) {
        for (Key* key = section->m_pFirst; key; key = key->m_pNext) {
            if (key->m_ownsKey) KXFree(key->m_pKey);
            if (key->m_ownsValue) KXFree(key->m_pValue);
        }
        if (section->m_ownsName) KXFree(section->m_pName);
    }
    m_ownsTexts = false;
}

/// Forgets everything but the file's name.
void IniFile::Clear() {
    FreeTexts();
    m_linePool.Clear();
    m_sectionPool.Clear();
    m_keyPool.Clear();
    m_sections.Clear();
    m_keys.Clear();
    KXFree(m_pFileBuffer);
    KXFree(m_pTexts);
    m_pFileBuffer = m_pTexts = m_pTextsEnd = nullptr;
    m_pFirst = m_pLastSection = m_pCurrent = nullptr;
    m_pFound = nullptr;
    m_pFirstLine = m_pLastLine = nullptr;
    m_Size = m_FileIndex = m_LineNumber = 0;
    m_Changed = false;
    m_lineEnd = "\n";
    m_hasMark = false;
    m_unreadableLines = m_firstUnreadable = 0;
}

// --- finding --------------------------------------------------------------------------------------------------------

uint32_t IniFile::HashOf(std::string_view name) {
    return static_cast<uint32_t>(kx::KeyedHash(name));
}

/// It goes by the section too, so that the keys of one name in many sections do not fall together.
uint32_t IniFile::HashOf(uint32_t sectionHash, std::string_view key) {
    constexpr uint32_t kSpread = 0x9E3779B1;  // odd, so that no two sections come to the same
    return HashOf(key) ^ sectionHash * kSpread;
}

Section* IniFile::FindSection(std::string_view name, uint32_t hash) const {
    return m_sections.Find(hash, [&](const Section& each) { return Is(each.m_pName, name); });
}

Key* IniFile::FindKey(const Section* section, std::string_view name, uint32_t hash) const {
    return m_keys.Find(hash, [&](const Key& each) { return each.m_pSection == section && Is(each.m_pKey, name); });
}

Section* IniFile::GetSection(const char* section) {
    if (!section) return nullptr;
    if (m_pFound && Is(m_pFound->m_pSection->m_pName, section)) return m_pFound->m_pSection;
    Section* found = FindSection(section, HashOf(section));
    return found && !found->m_isGone ? found : nullptr;
}

/// Scripts take keys in the order of the file more often than not: the one that was found last, or the next, is at hand
/// without a look into the index.
Key* IniFile::GetKey(const char* section, const char* key) {
    const Section* owner = GetSection(section);
    if (!owner || !key) return nullptr;
    bool goesOn = m_pFound && m_pFound->m_pSection == owner;
    if (goesOn && Is(m_pFound->m_pKey, key)) return m_pFound;
    Key* next = goesOn ? m_pFound->m_pNext : owner->m_pFirst;
    Key* found = next && Is(next->m_pKey, key) ? next : FindKey(owner, key, HashOf(owner->m_hash, key));
    if (found) m_pFound = found;
    return found;
}

// --- changing -------------------------------------------------------------------------------------------------------

void IniFile::SetKey(const char* section, const char* key, const char* value) {
    if (!section || !key) return;
    if (!value) value = "";
    Key* found = GetKey(section, key);
    if (!found) {
        AddKey(section, key, value);
        return;
    }
    SetValue(found, value);
    found->m_pLine->rewritten = true;
    m_Changed = true;
}

/// @param value  may be a part of the old one.
void IniFile::SetValue(Key* key, const char* value) {
    size_t size = std::strlen(value) + 1;
    if (size <= key->m_room) {
        std::memmove(key->m_pValue, value, size);
        return;
    }
    char* copy = KXStrDup(value);
    if (key->m_ownsValue) KXFree(key->m_pValue);
    key->m_pValue = copy;
    key->m_room = static_cast<uint32_t>(size);
    key->m_ownsValue = true;
    m_ownsTexts = true;
}

void IniFile::DeleteKey(const char* section, const char* key) {
    Key* found = GetKey(section, key);
    if (!found) return;
    Section* owner = found->m_pSection;
    RemoveKey(found);
    bool hasLines = owner->m_pFirst || owner->m_pHeader;
    if (!hasLines) RemoveSection(owner);
    m_Changed = true;
}

void IniFile::DeleteSection(const char* section) {
    Section* found = GetSection(section);
    if (!found) return;
    while (found->m_pFirst) {
        RemoveKey(found->m_pFirst);
    }
    RemoveSection(found);
    m_Changed = true;
}

/// A new key's line comes after the last key of its section, else after the section's header.
void IniFile::AddKey(const char* section, const char* name, const char* value) {
    HostText nameCopy(KXStrDup(name));
    HostText valueCopy(KXStrDup(value));
    uint32_t sectionHash = HashOf(section);
    IniLine* line = NewLine({});
    Key* key = NewKey(nameCopy.text, HashOf(sectionHash, name), true);
    Section* owner = FindSection(section, sectionHash);
    if (!owner) owner = AddSection(section, sectionHash);  // the last step that can fail
    if (owner->m_isGone) ReturnSection(owner);

    nameCopy.Release();
    key->m_pValue = valueCopy.Release();
    key->m_room = static_cast<uint32_t>(std::strlen(value) + 1);
    key->m_ownsValue = true;
    m_ownsTexts = true;
    LinkLine(owner->m_pLast ? owner->m_pLast->m_pLine : owner->m_pHeader, line);
    LinkKey(owner, key);
    AddKeyLine(key, line);
    m_Changed = true;
}

/// A new section stands at the end, but the keys of the one without a name before any header.
Section* IniFile::AddSection(const char* name, uint32_t hash) {
    HostText copy(KXStrDup(name));
    IniLine* header = *name ? NewLine({}) : nullptr;
    Section* section = NewSection(copy.text, hash, true);

    copy.Release();
    m_ownsTexts = true;
    if (header) LinkLine(m_pLastLine, header);
    LinkSection(section, header);
    return section;
}

/// A section that was deleted is back in its place.
void IniFile::ReturnSection(Section* section) {
    section->m_isGone = false;
    ListSection(section);
}

// --- parts ----------------------------------------------------------------------------------------------------------

// The new ones are complete but for their place; what links them cannot fail.

Section* IniFile::NewSection(char* name, uint32_t hash, bool owned) {
    m_sections.Reserve();
    Section* section = m_sectionPool.Make();
    section->m_pName = name;
    section->m_hash = hash;
    section->m_ownsName = owned;
    return section;
}

Key* IniFile::NewKey(char* name, uint32_t hash, bool owned) {
    m_keys.Reserve();
    Key* key = m_keyPool.Make();
    key->m_pKey = name;
    key->m_hash = hash;
    key->m_ownsKey = owned;
    return key;
}

IniLine* IniFile::NewLine(std::string_view text) {
    IniLine* line = m_linePool.Make();
    line->text = text.data();
    line->length = static_cast<int>(text.size());
    return line;
}

void IniFile::LinkSection(Section* section, IniLine* header) {
    m_sections.Add(section);
    if (header) AddHeader(section, header);
    ListSection(section);
}

/// The section without a header comes first.
void IniFile::ListSection(Section* section) {
    Section* before = section->m_pHeader ? m_pLastSection : nullptr;
    Section* after = before ? before->m_pNext : m_pFirst;
    section->m_pPrevious = before;
    section->m_pNext = after;
    (before ? before->m_pNext : m_pFirst) = section;
    (after ? after->m_pPrevious : m_pLastSection) = section;
}

void IniFile::LinkKey(Section* section, Key* key) {
    m_keys.Add(key);
    key->m_pSection = section;
    key->m_pPrevious = section->m_pLast;
    (section->m_pLast ? section->m_pLast->m_pNext : section->m_pFirst) = key;
    section->m_pLast = key;
}

void IniFile::AddHeader(Section* section, IniLine* line) {
    line->kind = IniLine::header;
    line->section = section;
    line->earlier = std::exchange(section->m_pHeader, line);
}

void IniFile::AddKeyLine(Key* key, IniLine* line) {
    line->kind = IniLine::key;
    line->owner = key;
    line->earlier = std::exchange(key->m_pLine, line);
}

/// @param place  the line before it; null for none.
void IniFile::LinkLine(IniLine* place, IniLine* line) {
    line->previous = place;
    line->next = place ? place->next : m_pFirstLine;
    (line->previous ? line->previous->next : m_pFirstLine) = line;
    (line->next ? line->next->previous : m_pLastLine) = line;
}

void IniFile::RemoveKey(Key* key) {
    if (m_pFound == key) m_pFound = nullptr;
    Section* section = key->m_pSection;
    (key->m_pPrevious ? key->m_pPrevious->m_pNext : section->m_pFirst) = key->m_pNext;
    (key->m_pNext ? key->m_pNext->m_pPrevious : section->m_pLast) = key->m_pPrevious;
    m_keys.Remove(key);
    RemoveLines(key->m_pLine);
    if (key->m_ownsKey) KXFree(key->m_pKey);
    if (key->m_ownsValue) KXFree(key->m_pValue);
    m_keyPool.GiveBack(key);
}

/// Removes a section that has no keys any more. One of the file leaves its place behind: games that write a section
/// anew delete it first, and it would wander to the end, a blank line before it, each time.
void IniFile::RemoveSection(Section* section) {
    (section->m_pPrevious ? section->m_pPrevious->m_pNext : m_pFirst) = section->m_pNext;
    (section->m_pNext ? section->m_pNext->m_pPrevious : m_pLastSection) = section->m_pPrevious;
    IniLine* header = section->m_pHeader;
    bool keepsPlace = header && header->text && *section->m_pName;
    if (keepsPlace) {
        RemoveLines(std::exchange(header->earlier, nullptr));
        section->m_isGone = true;
        return;
    }
    m_sections.Remove(section);
    RemoveLines(section->m_pHeader);
    if (section->m_ownsName) KXFree(section->m_pName);
    m_sectionPool.GiveBack(section);
}

/// Removes a line with those that it stands for: earlier headers of the section, earlier values of the key.
void IniFile::RemoveLines(IniLine* last) {
    while (last) {
        IniLine* earlier = last->earlier;
        (last->previous ? last->previous->next : m_pFirstLine) = last->next;
        (last->next ? last->next->previous : m_pLastLine) = last->previous;
        m_linePool.GiveBack(last);
        last = earlier;
    }
}
