// The tree that the names in an archive describe.
#include "Files/IO/Archive_Tree.h"

#include "Files/Base/Limits.h"
#include "Files/Base/Utf8.h"
#include "Files/IO/Archive_Name.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <utility>

namespace kx {
namespace {

constexpr char kFileAndDirectory[] = "is a file and a directory";

bool IsBefore(const ArchiveNode& one, const ArchiveNode& other) {
    return one.key < other.key;
}

/// @return what is wrong with an entry by itself; null for nothing.
const char* FaultOfKind(const ArchiveEntry& entry) {
    switch (KindOf(entry)) {
    case ArchiveEntryKind::link: return "is a link";
    case ArchiveEntryKind::device: return "is a device";
    case ArchiveEntryKind::directory: return entry.size > 0 ? "is a directory with contents" : nullptr;
    case ArchiveEntryKind::file: return nullptr;
    }
    return nullptr;
}

bool AddEntries(const Archive& archive, CaseRule rule, std::vector<ArchiveNode>* nodes, std::string* fault) {
    nodes->reserve(archive.Entries().size());
    for (const ArchiveEntry& entry : archive.Entries()) {
        const char* wrong = nullptr;
        std::optional<std::string> place = PlaceOfEntry(entry.name, &wrong);
        if (!wrong) wrong = FaultOfKind(entry);
        if (wrong) {
            *fault = FaultOfEntry(entry.name, wrong);
            return false;
        }
        std::string key = rule == CaseRule::counts ? std::move(*place) : FoldCase(*place);
        nodes->push_back({std::move(key), &entry, KindOf(entry) == ArchiveEntryKind::directory});
    }
    return true;
}

bool CheckOnce(const std::vector<ArchiveNode>& nodes, std::string* fault) {
    auto same = [](const ArchiveNode& one, const ArchiveNode& other) { return one.key == other.key; };
    auto twice = std::adjacent_find(nodes.begin(), nodes.end(), same);
    if (twice == nodes.end()) return true;
    auto other = std::next(twice);
    const ArchiveEntry* later = std::max(twice->entry, other->entry);
    *fault = FaultOfEntry(later->name, twice->directory == other->directory ? "is there twice" : kFileAndDirectory);
    return false;
}

/// Adds every directory above what lies in one, once. There may be many more of them than entries.
/// @return false where all are too many.
bool AddAbove(const std::vector<ArchiveNode>& nodes, std::unordered_set<std::string>* directories) {
    for (const ArchiveNode& node : nodes) {
        std::string parent = ParentOf(node.key);
        while (!parent.empty() && directories->insert(parent).second) {
            parent = ParentOf(parent);
        }
        if (directories->size() > static_cast<size_t>(kMaxArchiveEntries)) return false;
    }
    return true;
}

}  // namespace

bool BuildTree(const Archive& archive, CaseRule rule, std::vector<ArchiveNode>* nodes, std::string* fault) {
    if (!AddEntries(archive, rule, nodes, fault)) return false;
    std::sort(nodes->begin(), nodes->end(), IsBefore);
    if (!CheckOnce(*nodes, fault)) return false;

    std::unordered_set<std::string> directories;
    if (!AddAbove(*nodes, &directories)) {
        *fault = "holds more than " + std::to_string(kMaxArchiveEntries) + " directories";
        return false;
    }
    std::vector<ArchiveNode> implied;
    for (const std::string& directory : directories) {
        const ArchiveNode* found = FindNode(*nodes, directory);
        if (found && !found->directory) {
            *fault = FaultOfEntry(found->entry->name, kFileAndDirectory);
            return false;
        }
        if (!found) implied.push_back({directory, nullptr, true});
    }
    std::move(implied.begin(), implied.end(), std::back_inserter(*nodes));
    std::sort(nodes->begin(), nodes->end(), IsBefore);
    return true;
}

size_t FirstFrom(const std::vector<ArchiveNode>& nodes, const std::string& key) {
    auto before = [](const ArchiveNode& node, const std::string& wanted) { return node.key < wanted; };
    return static_cast<size_t>(std::lower_bound(nodes.begin(), nodes.end(), key, before) - nodes.begin());
}

const ArchiveNode* FindNode(const std::vector<ArchiveNode>& nodes, const std::string& key) {
    size_t first = FirstFrom(nodes, key);
    return first < nodes.size() && nodes[first].key == key ? &nodes[first] : nullptr;
}

}  // namespace kx
