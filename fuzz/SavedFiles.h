#pragma once

#include <map>
#include <optional>
#include <string>

namespace kx::fuzz {

/// What the save area should hold of a few files, beside the areas themselves. One of the files is shipped in the
/// bundle.
///
///     SavedFiles files;                        // the save area is empty
///     …a script writes "b", and so does files.Save("b", text)…
///     files.RequireOnDisk();
class SavedFiles {
public:
    static constexpr const char* kNames[] = {"a", "folder/b", "shipped"};
    static constexpr size_t kCount = sizeof kNames / sizeof *kNames;
    static constexpr char kShipped[] = "shipped 1\r\n2.5 and more\n";

    SavedFiles();
    SavedFiles(const SavedFiles&) = delete;
    SavedFiles& operator=(const SavedFiles&) = delete;
    ~SavedFiles();

    [[nodiscard]] bool IsSaved(const std::string& name) const { return m_saved.count(name) > 0; }
    [[nodiscard]] static bool IsShipped(const std::string& name) { return name == kNames[kCount - 1]; }

    /// What a script reads under a name; nothing where there is no such file.
    [[nodiscard]] std::optional<std::string> Read(const std::string& name) const;

    void Save(const std::string& name, const std::string& contents) { m_saved[name] = contents; }
    void Remove(const std::string& name) { m_saved.erase(name); }

    /// The files hold what was saved, to the last byte, and no other is there.
    void RequireOnDisk() const;

private:
    std::map<std::string, std::string> m_saved;
};

}  // namespace kx::fuzz
