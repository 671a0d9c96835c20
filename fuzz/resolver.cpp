// Any text as a file's name: what it resolves to, and what can be opened by it, lies beneath one of the areas.
#include "Files/Base/Utf8.h"
#include "Files/IO/LoadSave.h"
#include "fuzz/Areas.h"
#include "fuzz/Host.h"
#include "tests/support/Folder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

namespace fs = std::filesystem;

namespace kx::fuzz {
namespace {

/// Files, directories and links of all kinds, the same names in both areas.
void Furnish(const Areas& areas, const std::string& area) {
    test::WriteWholeFile(area + "/file", "in " + area);
    test::WriteWholeFile(area + "/a/b/file", "in " + area);
    const std::pair<const char*, std::string> links[] = {
        {"out", areas.Outside()},
        {"a/out", "../../outside"},
        {"secret", areas.Outside("secret")},
        {"up", ".."},
        {"in", "a/b"},
        {"self", "self"},
        {"a/deep", "b/../../../outside"},
        {"root", "/"},
        {"dangling", "a/nothing"},
    };
    for (const auto& [name, target] : links) {
        fs::create_symlink(target, area + "/" + name);
    }
}

bool IsBeneath(const std::string& path, const std::string& area) {
    return path == area || path.compare(0, area.size() + 1, area + "/") == 0;
}

std::vector<std::string> Components(const std::string& path) {
    std::vector<std::string> components(1);
    for (char c : path) {
        if (c == '/') {
            components.emplace_back();
        } else {
            components.back() += c;
        }
    }
    return components;
}

/// What a full path has to look like.
void CheckPath(const std::string& path, const std::string& area, const std::string& name) {
    if (path.empty()) return;
    Require(IsBeneath(path, area), "a path lies beneath its area", name + "\n" + path);
    if (path == area) return;
    std::string below = path.substr(area.size() + 1);
    for (const std::string& component : Components(below)) {
        bool plain = !component.empty() && component != "." && component != "..";
        Require(plain, "a path has plain components only", name + "\n" + path);
        bool reserved = component.compare(0, std::strlen(kTemporaryPrefix), kTemporaryPrefix) == 0;
        Require(!reserved, "no name is one of the host's own", name + "\n" + path);
    }
    Require(IsUtf8(below) && !HasControls(below), "a path is text", name + "\n" + path);
}

/// What a relative name means, worked out again; nothing where it is refused.
std::optional<std::string> Meaning(std::string name) {
    std::replace(name.begin(), name.end(), '\\', '/');
    std::vector<std::string> kept;
    for (const std::string& component : Components(name)) {
        if (component.empty() || component == ".") continue;
        if (component != "..") {
            kept.push_back(component);
        } else if (kept.empty()) {
            return std::nullopt;
        } else {
            kept.pop_back();
        }
    }
    std::string meaning;
    for (const std::string& component : kept) {
        meaning += "/" + component;
    }
    return meaning;
}

struct Resolved {
    int reason;
    std::string path;
};

Resolved Resolve(int (*resolve)(char*, int, const char*), const std::string& name) {
    char path[kMaxPath];
    int reason = resolve(path, sizeof path, name.c_str());
    return {reason, path};
}

void CheckResolved(const Resolved& resolved, const std::string& area, const std::string& name) {
    Require((resolved.reason == 0) == !resolved.path.empty(), "a refused name has no path", name);
    CheckPath(resolved.path, area, name);
    bool relative = !resolved.path.empty() && name[0] != '/' && name[0] != '\\';
    if (!relative) return;
    std::optional<std::string> meaning = Meaning(name);
    Require(meaning && resolved.path == area + *meaning, "a name means what it says", name + "\n" + resolved.path);
}

/// Every file inside holds what it was given, so that what is read tells where it was.
void CheckContents(const Areas& areas, const std::string& name) {
    _KXFILE* file = LoadSave::fopen(name.c_str(), "rb");
    if (!file) return;
    std::string contents(file->pBuff->m_data, static_cast<size_t>(file->pBuff->m_size));
    LoadSave::fclose(file);
    bool inside = contents == "in " + areas.Save() || contents == "in " + areas.Bundle();
    Require(inside, "what is opened lies inside", name + "\n" + contents);
    bool relative = name[0] != '/' && name[0] != '\\';
    Require(!relative || contents == "in " + areas.Save(), "the save area comes first", name);
}

/// "$" at the begin stands for the full path of an area, which an input cannot know.
std::string NameOf(const Areas& areas, std::string text) {
    if (text.substr(0, 2) == "$s") return areas.Save() + text.substr(2);
    if (text.substr(0, 2) == "$b") return areas.Bundle() + text.substr(2);
    if (text.substr(0, 2) == "$o") return areas.Outside() + text.substr(2);
    return text;
}

const Areas& Prepared() {
    static const Areas& areas = []() -> const Areas& {
        const Areas& fresh = Areas::Get();
        Furnish(fresh, fresh.Save());
        Furnish(fresh, fresh.Bundle());
        return fresh;
    }();
    return areas;
}

void Check(const std::string& text) {
    const Areas& areas = Prepared();
    std::string name = NameOf(areas, text);
    CheckResolved(Resolve(LoadSave::_GetSaveFileName, name), areas.Save(), name);
    CheckResolved(Resolve(LoadSave::_GetBundleFileName, name), areas.Bundle(), name);
    CheckContents(areas, name);
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Check(std::string(reinterpret_cast<const char*>(data), size).c_str());
    return 0;
}
