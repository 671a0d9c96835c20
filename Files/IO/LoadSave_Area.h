#pragma once

#include "Platform/Platform_Directory.h"
#include "Platform/Platform_Replace.h"

#include <optional>
#include <string>

namespace kx {

/// One of the two file areas: a directory, and the rule by which names are found in it.
///
/// A name becomes a `place` first: the path below the root, "/" between components, no "." or "..", empty for the root
/// itself. Only places reach the file system, and only beneath the root's descriptor.
/// @thread set while nothing else runs; everything else on any thread.
class Area {
public:
    explicit Area(const char* title) : m_title(title) {}

    /// @param create  make the directory when it is missing.
    /// @return 0 or an errno value; the area is then as it was.
    [[nodiscard]] int SetRoot(const char* directory, bool create);

    [[nodiscard]] bool IsSet() const { return static_cast<bool>(m_root); }
    [[nodiscard]] int Root() const { return m_root.Get(); }
    [[nodiscard]] const char* Title() const { return m_title; }

    /// The place that a name means, by its text alone; nothing where the name is refused.
    /// @param fault  when not null: set to what is wrong with a refused name, as the end of a sentence.
    [[nodiscard]] std::optional<std::string> Place(const char* name, const char** fault = nullptr) const;

    [[nodiscard]] std::string FullPath(const std::string& place) const;

    /// True when nothing on the way to a place leads outside. The place itself may be missing.
    /// @return 0 or an errno value.
    [[nodiscard]] int Contain(const std::string& place) const;

    [[nodiscard]] bool HasFile(const std::string& place) const;
    [[nodiscard]] bool HasDirectory(const std::string& place) const;
    [[nodiscard]] Descriptor OpenFile(const std::string& place, int flags, struct stat* status) const;
    [[nodiscard]] Descriptor OpenDirectoryOf(const std::string& place) const;

    /// Makes a directory and every missing one above it.
    /// @return 0 or an errno value.
    [[nodiscard]] int MakeDirectories(const std::string& place) const;

    /// Replaces a whole file in one step, as kx::ReplaceFile does; missing directories are made.
    /// @return 0 or an errno value.
    [[nodiscard]] int Replace(const std::string& place, const char* data, int size) const;

    /// How durable what the two above make is when they return.
    void SetDurability(Durability durability) { m_durability = durability; }

private:
    [[nodiscard]] std::optional<std::string> BelowRoot(const std::string& absolute) const;

    const char* m_title;
    Durability m_durability = Durability::full;
    Descriptor m_root;
    std::string m_path;       // as it was set, made absolute: what full paths begin with
    std::string m_canonical;  // without links
};

/// The areas of this process.
Area& SaveArea();
Area& BundleArea();

}  // namespace kx
