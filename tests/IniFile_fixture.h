#pragma once

#include "Files/Base/IniFile.h"
#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kx::test {

/// What a document holds, in the order of its lists.
using IniKeys = std::vector<std::pair<std::string, std::string>>;
using IniContents = std::vector<std::pair<std::string, IniKeys>>;

inline constexpr char kMark[] = "\xEF\xBB\xBF";

inline IniContents ContentsOf(const IniFile& ini) {
    IniContents contents;
    for (const Section* section = ini.m_pFirst; section; section = section->m_pNext) {
        IniKeys keys;
        for (const Key* key = section->m_pFirst; key; key = key->m_pNext) {
            keys.emplace_back(key->m_pKey, key->m_pValue);
        }
        contents.emplace_back(section->m_pName, std::move(keys));
    }
    return contents;
}

inline std::unique_ptr<IniFile> OpenIni(std::string name) {
    return std::make_unique<IniFile>(name.data(), false);
}

/// Closes nothing: the document's text, after it was written to its file where it has changed.
inline std::string WrittenText(IniFile* ini) {
    char* text = ini->WriteIniFile();
    std::string copy = text ? text : "(null)";
    MemoryManager::Free(text);
    return copy;
}

/// A document's value, or "(none)".
inline std::string ValueOf(IniFile* ini, const char* section, const char* key) {
    const Key* found = ini->GetKey(section, key);
    return found ? found->m_pValue : "(none)";
}

using Change = std::function<void(IniFile*)>;

/// Areas of its own, a console that is watched, and files that are whole but not synced.
class IniFilesTest : public AreasTest {
protected:
    void SetUp() override {
        AreasTest::SetUp();
        LoadSave::SetDurability(Durability::none);
    }

    /// What a file with these contents says.
    IniContents Reading(const std::string& contents) {
        WriteWholeFile(Save("a.ini"), contents);
        return ContentsOf(*OpenIni("a.ini"));
    }

    /// The file after a change of its document.
    std::string Changed(const std::string& contents, const Change& change) {
        WriteWholeFile(Save("a.ini"), contents);
        std::unique_ptr<IniFile> ini = OpenIni("a.ini");
        change(ini.get());
        std::string text = WrittenText(ini.get());
        EXPECT_FALSE(ini->m_Changed);
        EXPECT_EQ(ReadWholeFile(Save("a.ini")), text);
        return text;
    }

    CapturingConsole m_console;
};

}  // namespace kx::test
