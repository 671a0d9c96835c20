// What has to be true before an archive is unpacked.
#include "Files/Run/Run_Command_UnzipPlan.h"

#include "Files/Base/Limits.h"
#include "Files/IO/Archive_Name.h"
#include "Files/IO/Archive_Tree.h"
#include "Files/IO/LoadSave_Area.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <utility>

namespace kx {
namespace {

bool Refuse(std::string* fault, const ArchiveEntry& entry, std::string_view what) {
    *fault = FaultOfEntry(entry.name, what);
    return false;
}

/// No file so large, all of them together no larger, every one of a kind that can be unpacked.
bool CheckPacking(const std::vector<UnzipPlan::Target>& targets, std::string* fault) {
    uint64_t left = kMaxArchiveBytes;
    for (const UnzipPlan::Target& target : targets) {
        if (target.entry->size > left) {
            *fault = "holds more than " + std::to_string(kMaxArchiveBytes) + " bytes";
            return false;
        }
        left -= target.entry->size;
        std::string wrong = FaultOfPacking(*target.entry);
        if (!wrong.empty()) return Refuse(fault, *target.entry, wrong);
    }
    return true;
}

/// Every entry is where the directory says, and no two share a byte: one that a thousand entries share would make a
/// small archive a thousand times as large.
bool CheckRanges(const Archive& archive, std::string* fault) {
    struct Located {
        Archive::Range range;
        const ArchiveEntry* entry;
    };
    std::vector<Located> all;
    all.reserve(archive.Entries().size());
    for (const ArchiveEntry& entry : archive.Entries()) {
        std::string wrong;
        std::optional<Archive::Range> range = archive.Locate(entry, &wrong);
        if (!range) return Refuse(fault, entry, wrong);
        all.push_back({*range, &entry});
    }
    std::sort(all.begin(), all.end(), [](const Located& one, const Located& other) {
        return std::make_pair(one.range.begin, one.entry) < std::make_pair(other.range.begin, other.entry);
    });
    for (size_t i = 1; i < all.size(); ++i) {
        bool shared = all[i].range.begin < all[i - 1].range.end;
        if (shared) return Refuse(fault, *all[i].entry, "shares its bytes with another entry");
    }
    return true;
}

/// What stands already where an archive is to go.
class Standing {
public:
    Standing(const Archive& archive, std::string destination)
        : m_archive(archive.Bytes()), m_destination(std::move(destination)) {}

    /// @return what is in the way of a file or a directory at a place; empty for nothing.
    std::string InTheWay(const std::string& place, bool directory) {
        std::string wrong = InTheWayOf(ParentOf(place));
        if (!wrong.empty()) return wrong;
        switch (Look(place)) {
        case Found::nothing: return "";
        case Found::file: return directory ? "is a file already" : "";
        case Found::directory: return directory ? "" : "is a directory already";
        case Found::link: return "leads through a link";
        case Found::archive: return "would replace the archive itself";
        case Found::other: return "lies where something else is";
        case Found::unknown: return m_failure;
        }
        return "";
    }

private:
    enum class Found { nothing, file, directory, link, archive, other, unknown };

    /// @return what is in the way of anything in a directory.
    std::string InTheWayOf(const std::string& directory) {
        if (m_clear.count(directory) > 0) return "";
        bool below = directory.size() > m_destination.size();
        std::string wrong = below ? InTheWayOf(ParentOf(directory)) : "";
        if (!wrong.empty()) return wrong;
        Found found = below ? Look(directory) : LookAtDestination();
        if (found == Found::unknown) return m_failure;
        if (found == Found::link) return "leads through a link";
        bool clear = found == Found::nothing || found == Found::directory;
        if (!clear) return "lies below what is no directory";
        m_clear.emplace(directory, found);
        return "";
    }

    /// It may be a link to somewhere else in the save area.
    Found LookAtDestination() {
        struct stat status {};
        if (int reason = SaveArea().Look(m_destination, &status)) return NothingOr(reason);
        return S_ISDIR(status.st_mode) ? Found::directory : Found::other;
    }

    /// Looks at what is in a directory in whose way nothing is.
    Found Look(const std::string& place) {
        auto above = m_clear.find(ParentOf(place));
        if (above->second == Found::nothing) return Found::nothing;
        struct stat status {};
        if (int reason = SaveArea().LookAtLink(place, &status)) return NothingOr(reason);
        if (S_ISLNK(status.st_mode)) return Found::link;
        if (S_ISDIR(status.st_mode)) return Found::directory;
        if (m_archive.AreOf(status)) return Found::archive;
        return S_ISREG(status.st_mode) ? Found::file : Found::other;
    }

    /// What cannot be looked at may be anything.
    Found NothingOr(int reason) {
        if (reason == ENOENT) return Found::nothing;
        m_failure = std::string("cannot be written: ") + std::strerror(reason);
        return Found::unknown;
    }

    const ArchiveBytes& m_archive;
    std::string m_destination;
    std::string m_failure;  // of the last look

    // Directories with nothing in the way, those that are not there too.
    std::unordered_map<std::string, Found> m_clear;
};

bool CheckDestination(const Archive& archive, const UnzipPlan& plan, const std::string& destination,
                      std::string* fault) {
    Standing standing(archive, destination);
    for (const UnzipPlan::Target& target : plan.targets) {
        bool tooLong = SaveArea().FullPath(target.place).size() >= static_cast<size_t>(kMaxPath);
        if (tooLong) return Refuse(fault, *target.entry, "is too long");
        std::string wrong = standing.InTheWay(target.place, target.directory);
        if (!wrong.empty()) return Refuse(fault, *target.entry, wrong);
    }
    return true;
}

}  // namespace

bool MakeUnzipPlan(const Archive& archive, const std::string& destination, UnzipPlan* plan, std::string* fault) {
    std::vector<ArchiveNode> nodes;
    if (!BuildTree(archive, CaseRule::doesNotCount, &nodes, fault)) return false;
    std::string above = destination.empty() ? "" : destination + "/";
    for (const ArchiveEntry& entry : archive.Entries()) {
        const char* wrong = nullptr;  // none is: the tree has it
        bool directory = KindOf(entry) == ArchiveEntryKind::directory;
        plan->targets.push_back({&entry, above + *PlaceOfEntry(entry.name, &wrong), directory});
        plan->files += directory ? 0 : 1;
        plan->bytes += entry.size;
    }
    return CheckPacking(plan->targets, fault) && CheckRanges(archive, fault) &&
           CheckDestination(archive, *plan, destination, fault);
}

}  // namespace kx
