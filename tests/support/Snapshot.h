#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace kx::test {

/// What each name below a folder is, and the folder itself as "".
using Snapshot = std::map<std::string, std::string>;

/// Everything below a folder to the last inode and instant: two that are equal have had nothing made, written, renamed
/// or removed between them.
Snapshot ExactSnapshot(const std::filesystem::path& folder);

/// Names with the files' contents, "<directory>" and "-> target of a link".
Snapshot ContentsBelow(const std::filesystem::path& folder);

}  // namespace kx::test
