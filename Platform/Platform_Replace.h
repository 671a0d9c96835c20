#pragma once

#include "Platform/Platform_File.h"

#include <optional>
#include <string>

namespace kx {

/// A file on its way to replace another in one step: whoever opens the name sees the old bytes or the new ones, never
/// a mix. It also makes a file that is missing. The permission bits stay; a link is replaced by a file.
///
///     FileReplacement replacement(directory, "save.dat", Durability::full);
///     int reason = replacement.Begin();
///     if (!reason) reason = replacement.Write(data, size);   // as often as it takes
///     if (!reason) reason = replacement.Commit();            // until here the old file is as it was
///
/// Written unnamed where the file system can, else under a name that no script can say. Without a Commit that succeeds
/// nothing is left of it.
/// @thread one at a time; two replacements of one name: the last one wins, no mix.
class FileReplacement {
public:
    /// @param directory  open directory that holds the file; has to stay open.
    /// @param leaf       the file's name in it, one component.
    FileReplacement(int directory, std::string leaf, Durability durability);
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    ~FileReplacement();

    /// @return 0 or an errno value: EISDIR, ENXIO where what stands there is no file.
    [[nodiscard]] int Begin();

    /// Adds bytes at the end. After a failure every later Write and the Commit fail for the same reason.
    /// @return 0 or an errno value.
    int Write(const void* data, size_t size);

    /// Makes a time, in seconds since 1970, the one at which the file was modified, where the file system lets it.
    void SetModified(time_t when) { m_modified = when; }

    /// @return 0, or an errno value; the file is then as it was. Only on a file system that cannot exchange two names
    ///         does a failure of the very last sync leave the new file there.
    [[nodiscard]] int Commit();

private:
    enum class Place { exchanged, fresh, overwritten };

    [[nodiscard]] int ReadOld();
    [[nodiscard]] int CreateNamed();
    [[nodiscard]] int KeepPermissions();
    [[nodiscard]] int FinishContents();
    [[nodiscard]] int Link(const char* name);
    [[nodiscard]] int GiveName();
    [[nodiscard]] int CopyToNamed();
    [[nodiscard]] int MoveIntoPlace();
    [[nodiscard]] int SettleIn(Place place);
    [[nodiscard]] int Settle();
    int Rename(const std::string& from, const std::string& to, unsigned int flags);
    void TakeBack(Place place);
    bool RemoveTemporary();

    int m_directory;
    std::string m_leaf;
    Durability m_durability;
    bool m_exists = false;                // something stands there
    std::optional<mode_t> m_permissions;  // of the file that stands there
    std::optional<time_t> m_modified;
    Descriptor m_file;
    std::string m_name;  // the temporary one
    bool m_named = false;
    int m_failure = 0;  // of a write
};

/// Replaces a whole file in one step, as FileReplacement does.
/// @param data  `size` bytes, may be null when `size` is 0; not kept.
/// @return 0, or an errno value; the file is then as it was, as after FileReplacement::Commit.
/// @thread any
[[nodiscard]] int ReplaceFile(int directory, const char* leaf, const void* data, size_t size, Durability durability);

}  // namespace kx
