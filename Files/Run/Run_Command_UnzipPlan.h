#pragma once

#include "Files/IO/Archive.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kx {

/// What unpacking an archive will make.
struct UnzipPlan {
    struct Target {
        const ArchiveEntry* entry;
        std::string place;  ///< in the save area
        bool directory;
    };

    std::vector<Target> targets;  ///< in the archive's order
    int files = 0;
    uint64_t bytes = 0;
};

/// Looks at a whole archive, and at where it is to go, before anything is made there.
/// @param destination  a place in the save area.
/// @param fault        set to what is wrong with the archive, as the end of a sentence.
/// @return false then.
/// @throws std::bad_alloc
/// @thread any
[[nodiscard]] bool MakeUnzipPlan(const Archive& archive, const std::string& destination, UnzipPlan* plan,
                                 std::string* fault);

}  // namespace kx
