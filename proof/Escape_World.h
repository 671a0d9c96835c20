#pragma once

#include "tests/support/Console.h"
#include "tests/support/Folder.h"
#include "tests/support/Snapshot.h"

#include <filesystem>
#include <string>

namespace kx::proof {

/// What every file outside the areas holds, in forms that are text, INI and CSV at once. A script that is given any of
/// it has read outside.
extern const char kSecret[];

/// The two areas, and the world next to them that no script may reach:
///
///     <base>/save/      writable
///     <base>/bundle/    what the game ships; <base>/bundle.zip, the same as an archive
///     <base>/outside/   secrets, a FIFO, a socket; the process's own directory
///     <base>/linked/    files that have a second name in an area: those may be read
///
/// Links to outside are named "trap" in the areas, so that names can go through them in whatever layout.
/// @thread one; the process's directory and the host's areas are its own
class World {
public:
    World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    [[nodiscard]] std::string Save(const std::string& place = "") const { return Path("save", place); }
    [[nodiscard]] std::string Bundle(const std::string& place = "") const { return Path("bundle", place); }
    [[nodiscard]] std::string Outside(const std::string& place = "") const { return Path("outside", place); }
    /// @param area  "save" or "bundle": each has a file of its own that has its second name there.
    [[nodiscard]] std::string Linked(const std::string& area) const { return Path("linked", area + ".dat"); }
    [[nodiscard]] std::string Archive() const { return Base() + "/bundle.zip"; }
    [[nodiscard]] std::string Base() const { return m_folder.Path().string(); }

    /// Makes the areas what they are before anything hostile is put in: a few files each.
    void Refill() const;

    /// Makes paths the areas: those above, or links to them.
    void Use(const std::string& save, const std::string& bundle) const;

    /// @return where the world outside is not as it was; empty where it is.
    [[nodiscard]] std::string Damage() const;

    /// @return the file of the areas that holds a secret; empty where none does.
    [[nodiscard]] std::string Leak() const;

    /// What the console has been told is dropped.
    void Forget() const { m_console.Take(); }

private:
    [[nodiscard]] std::string Path(const char* area, const std::string& place) const;
    void MakeOutside() const;

    test::TemporaryFolder m_folder;
    mutable test::CapturingConsole m_console;
    std::filesystem::path m_before;
    test::Snapshot m_outside;
    test::Snapshot m_linked;
    std::vector<std::string> m_names;
};

}  // namespace kx::proof
