#pragma once

#include "Files/IO/Archive_Tree.h"
#include "Files/IO/LoadSave_Area.h"

#include <memory>
#include <string>
#include <vector>

namespace kx {

/// An area that is a zip archive: its directory is read once, an entry whole when it is loaded.
class ArchiveArea : public Area {
public:
    using Area::Area;

    /// @return 0 or an errno value; the area is then as it was. EINVAL, with a line on dbg_csol, for what is no archive
    ///         or one that breaks the rules.
    [[nodiscard]] int Open(const char* path);

    [[nodiscard]] bool IsSet() const override { return m_archive != nullptr; }
    [[nodiscard]] int Look(const std::string& place, struct stat* status) const override;
    [[nodiscard]] Contents Load(const std::string& place) const override;
    [[nodiscard]] Descriptor OpenToRead(const std::string& place, struct stat* status) const override;
    [[nodiscard]] int List(const std::string& place, std::vector<DirectoryEntry>* entries) const override;

private:
    [[nodiscard]] Contents Unpack(const ArchiveEntry& entry, std::string* fault) const;

    std::unique_ptr<Archive> m_archive;
    std::vector<ArchiveNode> m_nodes;
};

}  // namespace kx
