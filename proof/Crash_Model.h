#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace kx::proof {

constexpr int kNoNode = -1;

/// A name of a directory, and the file or directory that gets it; kNoNode where the name is taken away.
struct Binding {
    std::string name;
    int node;
};

/// A change of files or directories, as a system call makes it.
struct Event {
    enum class Kind {
        makeFile,       ///< the next node is a file
        makeDirectory,  ///< the next node is a directory
        write,          ///< of data at an offset
        truncate,       ///< to nothing
        bind,           ///< of names in a directory
        sync,           ///< what has been done to the node until now is on the disk
    };
    Kind kind;
    int node = kNoNode;
    size_t offset = 0;
    std::string data = {};
    std::vector<Binding> bindings = {};
};

/// Contents that a file may have, shared by all the states that have them.
struct Bytes {
    explicit Bytes(std::string contents) : text(std::move(contents)), hash(std::hash<std::string>()(text)) {}

    std::string text;
    size_t hash;
};

/// What a disk holds: each path, with its contents or, for a directory, null.
using Tree = std::map<std::string, std::shared_ptr<const Bytes>>;

/// What a file system may keep of what was done to it, when the power goes off.
///
/// It knows no journal: all that it promises is what a sync promises. Of the writes to a file since its last sync, each
/// may be lost, whole, torn, or zeros of its size. Of the names that a directory has got or lost since its last sync,
/// any may have reached the disk without the others, and without the contents of the files that have them; a rename
/// binds two names, and either may be there alone.
///
///     DiskModel disk;               // node 0 is the root, a directory
///     disk.Add(event);              // as often as it takes; Settle() makes all of it what was there before
///     disk.ForEachState(visit);     // what may be there after a power cut now
/// @thread one at a time
class DiskModel {
public:
    DiskModel();

    void Add(const Event& event);

    /// Brings everything to the disk.
    void Settle();

    /// What the running system sees.
    [[nodiscard]] Tree Now() const;

    /// Calls back for the states that differ: for all of them, or, where there are more than a few hundred ways for
    /// files or for directories, a sample that is always the same.
    void ForEachState(const std::function<void(const Tree&)>& visit) const;

private:
    struct Write {
        size_t offset;
        std::string data;
        bool truncates;
    };
    using Names = std::map<std::string, int>;
    struct Node {
        bool directory = false;
        std::string contents;          // on the disk
        Names names;                   // on the disk
        std::vector<Write> writes;     // since
        std::vector<Binding> changed;  // since
    };
    struct Outcome {
        enum class Kind { whole, lost, zeros, torn, tornThenZeros };
        Kind kind;
        size_t kept;  // bytes of one that is torn
    };
    using Choice = std::vector<const Names*>;  // of each node's names
    using Possible = std::vector<std::shared_ptr<const Bytes>>;

    static Names Bound(const Node& node, const std::vector<bool>& kept);
    static std::vector<Names> PossibleNames(const Node& node);
    static void Apply(const Write& write, const Outcome& outcome, std::string* contents);
    static std::vector<Outcome> PossibleOutcomes(const Write& write);
    static Possible PossibleContents(const Node& node);
    void Walk(int node, const std::string& path, const Choice& names, std::map<std::string, int>* found) const;

    std::vector<Node> m_nodes;
};

}  // namespace kx::proof
