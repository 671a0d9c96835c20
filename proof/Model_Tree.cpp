// Trees, names and masks of the model.
#include "proof/Model_Tree.h"

#include <algorithm>

namespace kx::proof {
namespace {

bool IsBelow(const std::string& place, const std::string& directory) {
    return place.size() > directory.size() && place.compare(0, directory.size(), directory) == 0 &&
           place[directory.size()] == '/';
}

/// @return false where a step leads out.
bool WorkOff(const std::string& path, std::string* place) {
    std::vector<std::string> parts;
    std::string part;
    for (char c : path + "/") {
        if (c != '/') {
            part += c;
            continue;
        }
        if (part == "..") {
            if (parts.empty()) return false;
            parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        part.clear();
    }
    place->clear();
    for (const std::string& each : parts) {
        *place += place->empty() ? each : "/" + each;
    }
    return true;
}

bool IsInSet(const std::string& set, char c) {
    for (size_t i = 0; i < set.size(); ++i) {
        bool range = i + 2 < set.size() && set[i + 1] == '-';
        if (range ? c >= set[i] && c <= set[i + 2] : c == set[i]) return true;
        if (range) i += 2;
    }
    return false;
}

bool MatchesFrom(const std::string& mask, size_t at, const std::string& name, size_t from) {
    if (at == mask.size()) return from == name.size();
    if (mask[at] == '*') {
        for (size_t next = from; next <= name.size(); ++next) {
            if (MatchesFrom(mask, at + 1, name, next)) return true;
        }
        return false;
    }
    if (from == name.size()) return false;
    size_t end = mask[at] == '[' ? mask.find(']', at + 2) : std::string::npos;
    if (end != std::string::npos) {
        bool negated = mask[at + 1] == '!';
        size_t start = at + (negated ? 2 : 1);
        bool member = IsInSet(mask.substr(start, end - start), name[from]);
        return member != negated && MatchesFrom(mask, end + 1, name, from + 1);
    }
    bool same = mask[at] == '?' || mask[at] == name[from];
    return same && MatchesFrom(mask, at + 1, name, from + 1);
}

}  // namespace

std::string ParentPlace(const std::string& place) {
    size_t slash = place.rfind('/');
    return slash == std::string::npos ? "" : place.substr(0, slash);
}

Way Tree::WayTo(const std::string& place) const {
    for (std::string above = ParentPlace(place); !above.empty(); above = ParentPlace(above)) {
        if (HasFile(above)) return Way::closed;
    }
    return Way::free;
}

bool Tree::MakeDirectory(const std::string& place) {
    if (HasFile(place) || WayTo(place) == Way::closed) return false;
    for (std::string each = place; !each.empty(); each = ParentPlace(each)) {
        m_directories.insert(each);
    }
    return true;
}

void Tree::RemoveDirectory(const std::string& place) {
    m_directories.erase(place);
    for (auto file = m_files.begin(); file != m_files.end();) {
        file = IsBelow(file->first, place) ? m_files.erase(file) : std::next(file);
    }
    for (auto directory = m_directories.begin(); directory != m_directories.end();) {
        directory = IsBelow(*directory, place) ? m_directories.erase(directory) : std::next(directory);
    }
}

std::vector<Tree::Entry> Tree::List(const std::string& place) const {
    std::vector<Entry> entries;
    if (!HasDirectory(place)) return entries;
    size_t skipped = place.empty() ? 0 : place.size() + 1;
    for (const auto& file : m_files) {
        if (ParentPlace(file.first) == place) entries.push_back({file.first.substr(skipped), false});
    }
    for (const std::string& directory : m_directories) {
        if (ParentPlace(directory) == place) entries.push_back({directory.substr(skipped), true});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return entries;
}

test::Snapshot Tree::Snapshot() const {
    test::Snapshot all(m_files.begin(), m_files.end());
    for (const std::string& directory : m_directories) {
        all[directory] = "<directory>";
    }
    return all;
}

Meaning MeaningOf(const std::string& name, const std::string& save, const std::string& bundle) {
    Meaning meaning;
    if (name.find_first_not_of(' ') == std::string::npos) return meaning;
    std::string path = name;
    std::replace(path.begin(), path.end(), '\\', '/');
    std::string place;
    if (!WorkOff(path, &place)) return meaning;
    meaning.full = path[0] == '/';
    if (!meaning.full) {
        meaning.inSave = meaning.inBundle = true;
        meaning.place = place;
        return meaning;
    }
    std::string absolute = "/" + place;
    meaning.inSave = absolute == save || IsBelow(absolute, save);
    meaning.inBundle = absolute == bundle || IsBelow(absolute, bundle);
    size_t root = meaning.inSave ? save.size() : bundle.size();
    if (meaning.inSave || meaning.inBundle) meaning.place = absolute.size() > root ? absolute.substr(root + 1) : "";
    return meaning;
}

bool Matches(const std::string& mask, const std::string& name) {
    return mask == "*.*" || MatchesFrom(mask, 0, name, 0);
}

}  // namespace kx::proof
