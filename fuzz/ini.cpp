// Any text as an INI document that is changed and written: it reads back as what was set, and the rest stays.
#include "Files/Base/IniFile.h"
#include "Platform/MemoryManager.h"
#include "fuzz/Host.h"
#include "fuzz/Input.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>

namespace kx::fuzz {
namespace {

using Keys = std::map<std::string, std::string>;
using Contents = std::map<std::string, Keys>;

Contents ContentsOf(const IniFile& ini) {
    Contents contents;
    for (const Section* section = ini.m_pFirst; section; section = section->m_pNext) {
        Keys& keys = contents[section->m_pName];
        for (const Key* key = section->m_pFirst; key; key = key->m_pNext) {
            bool fresh = keys.emplace(key->m_pKey, key->m_pValue).second;
            Require(fresh, "a key is there once", key->m_pKey);
        }
    }
    return contents;
}

/// The section of what stands before any header counts where it has keys.
Contents Counted(Contents contents) {
    auto first = contents.find("");
    if (first != contents.end() && first->second.empty()) contents.erase(first);
    return contents;
}

std::string Describe(const Contents& contents) {
    std::string text;
    for (const auto& [section, keys] : contents) {
        text += "section <" + section + ">\n";
        for (const auto& [key, value] : keys) {
            text += "  <" + key + "> <" + value + ">\n";
        }
    }
    return text;
}

void RequireSame(const Contents& a, const Contents& b, const char* property, const std::string& text) {
    bool same = Counted(a) == Counted(b);
    Require(same, property, same ? "" : Describe(a) + "---\n" + Describe(b) + "---\n" + text);
}

/// A name that the document has, or any other.
template <class Named>
std::string NameFor(Input* input, const Named& all) {
    if (all.empty() || input->Below(3) == 0) return input->Text(10);
    return std::next(all.begin(), static_cast<std::ptrdiff_t>(input->Below(all.size())))->first;
}

void Change(Input* input, IniFile* ini, Contents* contents) {
    std::string section = NameFor(input, *contents);
    auto found = contents->find(section);
    std::string key = NameFor(input, found == contents->end() ? Keys() : found->second);
    switch (input->Below(5)) {
    case 0:
        ini->DeleteSection(section.c_str());
        contents->erase(section);
        return;
    case 1:
        ini->DeleteKey(section.c_str(), key.c_str());
        if (found != contents->end()) found->second.erase(key);
        return;
    default:
        std::string value = input->Text(20);
        ini->SetKey(section.c_str(), key.c_str(), value.c_str());
        (*contents)[section][key] = value;
    }
}

std::string Written(IniFile* ini) {
    HostText text(ini->WriteIniFile());
    Require(text.text, "a document is written");
    return text.text;
}

/// The lines that nobody may touch: comments.
std::vector<std::string> CommentsOf(const std::string& text) {
    std::vector<std::string> comments;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        size_t first = text.find_first_not_of(" \t", at);
        bool comment = first < end && (text[first] == ';' || text[first] == '#');
        if (comment) comments.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return comments;
}

void RequireInOrder(const std::vector<std::string>& lines, const std::string& text) {
    size_t at = 0;
    for (const std::string& line : lines) {
        at = text.find(line, at);
        Require(at != std::string::npos, "comments stay where they are", line + "\n---\n" + text);
        at += line.size();
    }
}

/// A document that is only ever a text is rendered anew; one that has a place to be keeps its lines.
std::unique_ptr<IniFile> Open(bool anew, const std::string& text) {
    auto ini = anew ? std::make_unique<IniFile>() : std::make_unique<IniFile>(nullptr, false);
    ini->SetText(text.c_str());
    return ini;
}

void Check(Input* input) {
    bool anew = input->ConsumeBool();
    size_t changes = input->Below(8);
    std::string text = input->Text(160);
    std::unique_ptr<IniFile> ini = Open(anew, text);
    Contents contents = ContentsOf(*ini);
    Require(anew || Written(ini.get()) == text, "what nobody changes stays as it is", text);
    for (; changes > 0; --changes) {
        Change(input, ini.get(), &contents);
    }
    RequireSame(contents, ContentsOf(*ini), "a document holds what was set", text);
    std::string written = Written(ini.get());
    RequireInOrder(CommentsOf(text), written);
    RequireSame(contents, ContentsOf(*Open(!anew, written)), "what is written reads back the same", written);
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Input input(data, size);
    kx::fuzz::Check(&input);
    return 0;
}
