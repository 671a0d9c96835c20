#pragma once

#include "tests/support/Snapshot.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kx::proof {

/// What a way into a tree meets.
enum class Way {
    free,    ///< every directory above is there, or can be made
    closed,  ///< a file stands where a directory would have to be
};

/// Files and directories in memory, by their places: "/" between components, "" for the root.
class Tree {
public:
    [[nodiscard]] bool HasFile(const std::string& place) const { return m_files.count(place) != 0; }
    [[nodiscard]] bool HasDirectory(const std::string& place) const {
        return place.empty() || m_directories.count(place) != 0;
    }
    [[nodiscard]] const std::string& Contents(const std::string& place) const { return m_files.at(place); }
    [[nodiscard]] Way WayTo(const std::string& place) const;

    /// Makes a directory and those above it.
    /// @return false where a file is in the way; nothing is made then.
    bool MakeDirectory(const std::string& place);

    /// Makes or replaces a file; the directories above it have to be there.
    void Write(const std::string& place, std::string contents) { m_files[place] = std::move(contents); }
    void RemoveFile(const std::string& place) { m_files.erase(place); }
    void RemoveDirectory(const std::string& place);

    /// The names of a directory.
    struct Entry {
        std::string name;
        bool directory;
    };
    [[nodiscard]] std::vector<Entry> List(const std::string& place) const;

    /// The tree as test::ContentsBelow gives a folder.
    [[nodiscard]] test::Snapshot Snapshot() const;

private:
    std::map<std::string, std::string> m_files;
    std::set<std::string> m_directories;
};

std::string ParentPlace(const std::string& place);

/// What a script's name means.
struct Meaning {
    bool inSave = false;    ///< it can be a name of the save area
    bool inBundle = false;  ///< and of the bundle
    bool full = false;      ///< a full path, which means something of one area only
    std::string place = {};
};

/// Works out a name by the rules for names.
/// @param save    the areas' paths.
Meaning MeaningOf(const std::string& name, const std::string& save, const std::string& bundle);

/// @return true where a name matches a mask: * any text, ? a character, [abc] [a-c] [!a] sets.
bool Matches(const std::string& mask, const std::string& name);

}  // namespace kx::proof
