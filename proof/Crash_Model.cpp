// What a file system may keep of what was done to it.
#include "proof/Crash_Model.h"

#include <algorithm>
#include <set>
#include <unordered_set>

namespace kx::proof {
namespace {

constexpr size_t kMostWaysOfNames = 400;   // beyond these a sample is taken
constexpr size_t kMostWaysOfWrites = 100;  // of one file, and of all that have been found
constexpr size_t kMostSubsets = 8;         // changes of a directory of which every subset is tried
constexpr size_t kSectorBytes = 512;
constexpr size_t kBlockBytes = 4096;

using Indices = std::vector<size_t>;

/// Calls back with each way to pick one of each, or with a sample of them, in which the first of each is.
/// @param sizes  how many there are of each; none is 0.
/// @param most   as many as there is time for.
void ForEachCombination(const Indices& sizes, size_t most, const std::function<void(const Indices&)>& visit) {
    size_t all = 1;
    for (size_t size : sizes) {
        all = std::min(all * size, most + 1);
    }
    std::mt19937 random(1);
    Indices picked(sizes.size(), 0);
    for (size_t i = 0; i < std::min(all, most); ++i) {
        visit(picked);
        if (all > most) {
            std::transform(sizes.begin(), sizes.end(), picked.begin(), [&](size_t size) { return random() % size; });
            continue;
        }
        for (size_t k = 0; k < picked.size() && ++picked[k] == sizes[k]; ++k) {
            picked[k] = 0;
        }
    }
}

size_t HashOf(const Tree& tree) {
    size_t hash = 0;
    for (const auto& [path, bytes] : tree) {
        hash = hash * 31 + std::hash<std::string>()(path);
        hash = hash * 31 + (bytes ? bytes->hash : 1);
    }
    return hash;
}

std::string Below(const std::string& directory, const std::string& leaf) {
    return directory.empty() ? leaf : directory + "/" + leaf;
}

/// Which of a number of changes have reached the disk: every subset of a few; of many, each beginning, each one alone
/// and all but each one.
std::vector<std::vector<bool>> Subsets(size_t count) {
    std::vector<std::vector<bool>> all;
    if (count <= kMostSubsets) {
        ForEachCombination(Indices(count, 2), kMostWaysOfNames,
                           [&](const Indices& picked) { all.emplace_back(picked.begin(), picked.end()); });
        return all;
    }
    for (size_t i = 0; i < count; ++i) {
        std::vector<bool> beginning(count, false), alone(count, false), others(count, true);
        std::fill_n(beginning.begin(), i, true);
        alone[i] = true;
        others[i] = false;
        all.insert(all.end(), {beginning, alone, others});
    }
    all.emplace_back(count, true);
    return all;
}

}  // namespace

DiskModel::DiskModel() : m_nodes(1) {
    m_nodes[0].directory = true;
}

void DiskModel::Add(const Event& event) {
    bool makes = event.kind == Event::Kind::makeFile || event.kind == Event::Kind::makeDirectory;
    if (makes) {
        m_nodes.emplace_back().directory = event.kind == Event::Kind::makeDirectory;
        return;
    }
    Node& node = m_nodes.at(static_cast<size_t>(event.node));
    if (event.kind == Event::Kind::write) node.writes.push_back({event.offset, event.data, false});
    if (event.kind == Event::Kind::truncate) node.writes.push_back({0, "", true});
    if (event.kind == Event::Kind::bind) {
        node.changed.insert(node.changed.end(), event.bindings.begin(), event.bindings.end());
    }
    if (event.kind != Event::Kind::sync) return;
    for (const Write& write : node.writes) {
        Apply(write, {Outcome::Kind::whole, 0}, &node.contents);
    }
    node.names = Bound(node, std::vector<bool>(node.changed.size(), true));
    node.writes.clear();
    node.changed.clear();
}

void DiskModel::Settle() {
    for (size_t i = 0; i < m_nodes.size(); ++i) {
        Add({Event::Kind::sync, static_cast<int>(i)});
    }
}

Tree DiskModel::Now() const {
    DiskModel settled = *this;
    settled.Settle();
    Tree now;
    settled.ForEachState([&now](const Tree& tree) { now = tree; });
    return now;
}

void DiskModel::ForEachState(const std::function<void(const Tree&)>& visit) const {
    std::vector<std::vector<Names>> names;
    Indices waysOfNames;
    for (const Node& node : m_nodes) {
        names.push_back(PossibleNames(node));
        waysOfNames.push_back(names.back().size());
    }
    std::map<int, Possible> contents;  // of the files that have been seen
    std::unordered_set<size_t> seen;
    ForEachCombination(waysOfNames, kMostWaysOfNames, [&](const Indices& named) {
        Choice choice;
        for (size_t i = 0; i < named.size(); ++i) {
            choice.push_back(&names[i][named[i]]);
        }
        std::map<std::string, int> found;
        Walk(0, "", choice, &found);
        std::map<int, size_t> position;  // of a file among those that are found: one may have two names
        Indices ways;
        for (const auto& entry : found) {
            const Node& node = m_nodes[static_cast<size_t>(entry.second)];
            if (node.directory || !position.emplace(entry.second, ways.size()).second) continue;
            Possible& possible = contents[entry.second];
            if (possible.empty()) possible = PossibleContents(node);
            ways.push_back(possible.size());
        }
        ForEachCombination(ways, kMostWaysOfWrites, [&](const Indices& written) {
            Tree tree;
            for (const auto& [path, node] : found) {
                auto at = position.find(node);
                tree[path] = at == position.end() ? nullptr : contents[node][written[at->second]];
            }
            if (seen.insert(HashOf(tree)).second) visit(tree);
        });
    });
}

DiskModel::Names DiskModel::Bound(const Node& node, const std::vector<bool>& kept) {
    Names names = node.names;
    for (size_t i = 0; i < kept.size(); ++i) {
        const Binding& binding = node.changed[i];
        if (!kept[i]) continue;
        if (binding.node == kNoNode) {
            names.erase(binding.name);
        } else {
            names[binding.name] = binding.node;
        }
    }
    return names;
}

std::vector<DiskModel::Names> DiskModel::PossibleNames(const Node& node) {
    std::set<Names> all;
    for (const std::vector<bool>& kept : Subsets(node.changed.size())) {
        all.insert(Bound(node, kept));
    }
    return {all.begin(), all.end()};
}

void DiskModel::Apply(const Write& write, const Outcome& outcome, std::string* contents) {
    if (outcome.kind == Outcome::Kind::lost) return;
    if (write.truncates) {
        contents->clear();
        return;
    }
    size_t kept = outcome.kind == Outcome::Kind::whole ? write.data.size() : outcome.kept;
    size_t reached = outcome.kind == Outcome::Kind::torn ? kept : write.data.size();
    if (contents->size() < write.offset + reached) contents->resize(write.offset + reached, 0);
    contents->replace(write.offset, kept, write.data, 0, kept);
    bool zeros = outcome.kind == Outcome::Kind::zeros || outcome.kind == Outcome::Kind::tornThenZeros;
    if (zeros) contents->replace(write.offset + kept, reached - kept, reached - kept, 0);
}

std::vector<DiskModel::Outcome> DiskModel::PossibleOutcomes(const Write& write) {
    std::vector<Outcome> outcomes{{Outcome::Kind::whole, 0}, {Outcome::Kind::lost, 0}};
    if (write.data.empty()) return outcomes;
    outcomes.push_back({Outcome::Kind::zeros, 0});
    size_t size = write.data.size();
    std::set<size_t> tears{1, size - 1, size / 2, size / 2 / kSectorBytes * kSectorBytes};
    tears.insert(size / kBlockBytes * kBlockBytes);
    for (size_t tear : tears) {
        if (tear == 0 || tear >= size) continue;
        outcomes.push_back({Outcome::Kind::torn, tear});
        outcomes.push_back({Outcome::Kind::tornThenZeros, tear});
    }
    return outcomes;
}

DiskModel::Possible DiskModel::PossibleContents(const Node& node) {
    std::vector<std::vector<Outcome>> outcomes;
    Indices ways;
    for (const Write& write : node.writes) {
        outcomes.push_back(PossibleOutcomes(write));
        ways.push_back(outcomes.back().size());
    }
    Possible all;
    std::set<size_t> seen;
    auto add = [&](std::string contents) {
        auto bytes = std::make_shared<const Bytes>(std::move(contents));
        if (seen.insert(bytes->hash).second) all.push_back(std::move(bytes));
    };
    std::string written = node.contents;
    for (const Write& write : node.writes) {
        add(written);  // the writes before this one
        Apply(write, {Outcome::Kind::whole, 0}, &written);
    }
    ForEachCombination(ways, kMostWaysOfWrites, [&](const Indices& picked) {
        std::string contents = node.contents;
        for (size_t i = 0; i < picked.size(); ++i) {
            Apply(node.writes[i], outcomes[i][picked[i]], &contents);
        }
        add(std::move(contents));
    });
    return all;
}

/// Finds the files and directories below one, as long as no directory leads back to itself.
void DiskModel::Walk(int node, const std::string& path, const Choice& names, std::map<std::string, int>* found) const {
    for (const auto& [leaf, below] : *names[static_cast<size_t>(node)]) {
        std::string name = Below(path, leaf);
        (*found)[name] = below;
        if (m_nodes[static_cast<size_t>(below)].directory) Walk(below, name, names, found);
    }
}

}  // namespace kx::proof
