#pragma once

#include "Files/Buffer/Buffer_Standard.h"
#include "Platform/Platform_Directory.h"
#include "Platform/Platform_Replace.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kx {

using Contents = std::unique_ptr<Buffer_Standard>;

/// One of the two file areas: the rule by which names are found in it, and what is there.
///
/// A name becomes a `place` first: the path below the root, "/" between components, no "." or "..", empty for the root
/// itself. Only places reach what the area is kept in. What that is, a kind of area says for itself.
/// @thread set up while nothing else runs; everything else on any thread.
class Area {
public:
    explicit Area(const char* title) : m_title(title) {}
    Area(const Area&) = delete;
    Area& operator=(const Area&) = delete;
    virtual ~Area() = default;

    [[nodiscard]] const char* Title() const { return m_title; }

    /// The place that a name means, by its text alone; nothing where the name is refused.
    /// @param fault  when not null: set to what is wrong with a refused name, as the end of a sentence.
    [[nodiscard]] std::optional<std::string> Place(const char* name, const char** fault = nullptr) const;

    [[nodiscard]] std::string FullPath(const std::string& place) const;

    /// Whether a place can be used: nothing on the way to it leads outside. The place itself may be missing.
    /// @return 0 or an errno value.
    [[nodiscard]] int Contain(const std::string& place) const;

    [[nodiscard]] bool HasFile(const std::string& place) const;
    [[nodiscard]] bool HasDirectory(const std::string& place) const;

    [[nodiscard]] virtual bool IsSet() const = 0;

    /// What is at a place; a link counts as what it leads to.
    /// @param status  filled with its kind, permission bits and size.
    /// @return 0 or an errno value: ENOENT where nothing is, EXDEV or ELOOP where the way leads outside.
    [[nodiscard]] virtual int Look(const std::string& place, struct stat* status) const = 0;

    /// Reads a whole file.
    /// @return its bytes; null, with errno set, where it cannot be read.
    /// @throws std::bad_alloc
    [[nodiscard]] virtual Contents Load(const std::string& place) const = 0;

    /// Opens a file that the system itself can read.
    /// @param status  filled with the file's state.
    /// @return an empty one, with errno set, also where the file is no file of the system.
    [[nodiscard]] virtual Descriptor OpenToRead(const std::string& place, struct stat* status) const = 0;

    /// Lists the files and directories of a directory, in no order. Links count as what they lead to, and do not where
    /// that is nothing inside.
    /// @return 0 or an errno value.
    [[nodiscard]] virtual int List(const std::string& place, std::vector<DirectoryEntry>* entries) const = 0;

protected:
    /// @param written    what full paths begin with.
    /// @param canonical  the same without links.
    void SetPaths(std::string written, std::string canonical);

    /// Sets them to those of something that exists, for a path as an embedder gives it.
    /// @return 0; ENOENT where it has been removed meanwhile.
    [[nodiscard]] int SetPathsOf(const char* path);

private:
    [[nodiscard]] std::optional<std::string> BelowRoot(const std::string& absolute) const;

    const char* m_title;
    std::string m_path;
    std::string m_canonical;
};

/// An area that is a directory: everything happens beneath the root's descriptor.
class DirectoryArea : public Area {
public:
    using Area::Area;

    /// @param create  make the directory when it is missing.
    /// @return 0 or an errno value; the area is then as it was.
    [[nodiscard]] int SetRoot(const char* directory, bool create);

    [[nodiscard]] int Root() const { return m_root.Get(); }

    [[nodiscard]] bool IsSet() const override { return static_cast<bool>(m_root); }
    [[nodiscard]] int Look(const std::string& place, struct stat* status) const override;
    [[nodiscard]] Contents Load(const std::string& place) const override;
    [[nodiscard]] Descriptor OpenToRead(const std::string& place, struct stat* status) const override;
    [[nodiscard]] int List(const std::string& place, std::vector<DirectoryEntry>* entries) const override;

    /// What is at a place itself: a link is a link.
    /// @return 0 or an errno value.
    [[nodiscard]] int LookAtLink(const std::string& place, struct stat* status) const;

    [[nodiscard]] Descriptor OpenFile(const std::string& place, int flags, struct stat* status) const;
    [[nodiscard]] Descriptor OpenDirectoryOf(const std::string& place) const;

    // --- changing it: these return 0 or an errno value

    /// Makes a directory and every missing one above it. What was made before a failure stays.
    [[nodiscard]] int MakeDirectories(const std::string& place) const;

    /// Removes a directory with everything in it; what cannot be removed stays. A link is removed itself.
    [[nodiscard]] int RemoveTree(const std::string& place) const;

    /// Replaces a whole file in one step, as kx::ReplaceFile does; missing directories are made. After a failure the
    /// file is as it was.
    [[nodiscard]] int Replace(const std::string& place, const char* data, int size) const;

    /// Gives a file another name, as kx::RenameBeneath does. After a failure nothing has changed. Where only the syncs
    /// fail it has its new name all the same, and a line on dbg_csol says so.
    [[nodiscard]] int Rename(const std::string& from, const std::string& to) const;

    /// How durable what these make is when they return.
    void SetDurability(Durability durability) { m_durability = durability; }
    [[nodiscard]] Durability DurabilityNow() const { return m_durability; }

private:
    void SyncDirectoryOf(const std::string& place) const;
    [[nodiscard]] EntryKind Target(const std::string& link) const;

    Durability m_durability = Durability::full;
    Descriptor m_root;
};

/// The bytes of a file that is open.
/// @param path  what messages call it.
/// @return null, with errno set, where it cannot be read: EFBIG beyond kx::kMaxFileBytes, with a line on dbg_csol.
/// @throws std::bad_alloc
Contents LoadOpenFile(const Descriptor& file, const struct stat& status, const std::string& path);

/// The areas of this process.
DirectoryArea& SaveArea();
Area& BundleArea();

/// Makes another area the bundle.
/// @return the one that it was.
std::unique_ptr<Area> SetBundle(std::unique_ptr<Area> area);

}  // namespace kx
