#pragma once

#include "Files/IO/Archive.h"

#include <string>
#include <vector>

namespace kx {

/// A file or a directory that an archive has.
struct ArchiveNode {
    std::string key;            ///< its place in the archive; where case does not count, that without capital letters
    const ArchiveEntry* entry;  ///< null for a directory that only lies above others
    bool directory;
};

enum class CaseRule { counts, doesNotCount };

/// Puts the entries of an archive in the tree that their names describe.
/// @param nodes  set to all of them, sorted by the bytes of their keys; the archive has to outlive them.
/// @param fault  set to what is wrong with the archive, as the end of a sentence: an entry's name that means no place,
///               two entries of one place, a file that is also a directory, what is neither.
/// @return false then.
/// @throws std::bad_alloc
/// @thread any
[[nodiscard]] bool BuildTree(const Archive& archive, CaseRule rule, std::vector<ArchiveNode>* nodes,
                             std::string* fault);

/// @return the index of the first node whose key is not before a key.
size_t FirstFrom(const std::vector<ArchiveNode>& nodes, const std::string& key);

/// @return the node of a key; null where there is none.
const ArchiveNode* FindNode(const std::vector<ArchiveNode>& nodes, const std::string& key);

}  // namespace kx
