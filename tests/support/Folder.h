#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kx::test {

/// A folder of its own for one test, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

std::string ReadWholeFile(const std::filesystem::path& path);

/// Writes a file, its folders made.
void WriteWholeFile(const std::filesystem::path& path, const std::string& contents);

/// The names in a folder, hidden ones too, sorted.
std::vector<std::string> NamesIn(const std::filesystem::path& folder);

/// Descriptors that this process has open now.
int OpenDescriptors();

/// Makes a device that swallows what is written to it.
/// @return false where this user may not make one: only root may.
bool MakeDevice(const std::filesystem::path& path);

}  // namespace kx::test
