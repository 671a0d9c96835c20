#pragma once

#include "Files/IO/LoadSave_Area.h"

#include <map>
#include <memory>
#include <string>

namespace kx::test {

/// Contents by their places.
using Files = std::map<std::string, std::string>;

/// An area whose files are no files of the system, as those inside an archive are none: only the host can read them.
class MemoryArea : public Area {
public:
    explicit MemoryArea(Files files);

    [[nodiscard]] bool IsSet() const override { return true; }
    [[nodiscard]] int Look(const std::string& place, struct stat* status) const override;
    [[nodiscard]] Contents Load(const std::string& place) const override;
    [[nodiscard]] Descriptor OpenToRead(const std::string& place, struct stat* status) const override;
    [[nodiscard]] int List(const std::string& place, std::vector<DirectoryEntry>* entries) const override;

private:
    Files m_files;
};

/// Makes a memory area the bundle as long as it lives.
class MemoryBundle {
public:
    explicit MemoryBundle(Files files);
    MemoryBundle(const MemoryBundle&) = delete;
    MemoryBundle& operator=(const MemoryBundle&) = delete;
    ~MemoryBundle();

private:
    std::unique_ptr<Area> m_before;
};

}  // namespace kx::test
