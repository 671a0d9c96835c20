// A search's mask over any names: what it lets through, a matcher that tries every way lets through too.
#include "Files/Base/Utf8.h"
#include "Platform/Platform_Hooks.h"
#include "fuzz/Host.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace kx::fuzz {
namespace {

constexpr int kHidden = 2;

/// An area that holds the names of an input, all of them files in its root.
class NamesArea : public Area {
public:
    NamesArea() : Area("names") { SetPaths("/names", "/names"); }

    void SetNames(std::vector<std::string> names) { m_names = std::move(names); }
    [[nodiscard]] const std::vector<std::string>& Names() const { return m_names; }

    [[nodiscard]] bool IsSet() const override { return true; }
    [[nodiscard]] int Look(const std::string& /*place*/, struct stat* /*status*/) const override { return ENOENT; }
    [[nodiscard]] Contents Load(const std::string& /*place*/) const override { return nullptr; }
    [[nodiscard]] Descriptor OpenToRead(const std::string& /*place*/, struct stat* /*status*/) const override {
        return Descriptor();
    }
    [[nodiscard]] int List(const std::string& place, std::vector<DirectoryEntry>* entries) const override {
        if (!place.empty()) return ENOENT;
        for (const std::string& name : m_names) {
            entries->push_back({name, EntryKind::file});
        }
        return 0;
    }

private:
    std::vector<std::string> m_names;
};

using Characters = std::u32string;

/// The characters of UTF-8, which it has to be.
Characters Decode(const std::string& text) {
    Characters characters;
    for (unsigned char byte : text) {
        bool continues = (byte & 0xC0) == 0x80;
        unsigned int bits = byte < 0x80 ? byte : byte < 0xE0 ? byte & 0x1F : byte < 0xF0 ? byte & 0x0F : byte & 0x07;
        if (continues) {
            characters.back() = characters.back() << 6 | (byte & 0x3F);
        } else {
            characters.push_back(bits);
        }
    }
    return characters;
}

/// Matches as the shell does, by what patterns mean: slow, but with nothing to get wrong.
class Matcher {
public:
    Matcher(Characters pattern, Characters name) : m_pattern(std::move(pattern)), m_name(std::move(name)) {}

    /// @return whether the rest of the name from `n` on matches the rest of the pattern from `p` on.
    bool Matches(size_t p, size_t n) {
        if (p == m_pattern.size()) return n == m_name.size();
        if (m_pattern[p] == '*') return Matches(p + 1, n) || (n < m_name.size() && Matches(p, n + 1));
        if (n == m_name.size()) return false;
        if (m_pattern[p] == '?') return Matches(p + 1, n + 1);
        size_t end = m_pattern[p] == '[' ? EndOfSet(p) : 0;
        if (end) return IsInSet(p + 1, end, m_name[n]) && Matches(end + 1, n + 1);
        return m_pattern[p] == m_name[n] && Matches(p + 1, n + 1);
    }

    /// @return false where a set is never closed: what that means the standards leave open.
    [[nodiscard]] bool IsWellFormed() const {
        for (size_t p = 0; p < m_pattern.size(); ++p) {
            if (m_pattern[p] != '[') continue;
            p = EndOfSet(p);
            if (p == 0) return false;
        }
        return true;
    }

private:
    [[nodiscard]] bool IsNegation(size_t p) const { return m_pattern[p] == '!' || m_pattern[p] == '^'; }

    /// @return where the "]" of a set is; 0 where there is none and the "[" stands for itself.
    [[nodiscard]] size_t EndOfSet(size_t p) const {
        size_t first = p + 1 < m_pattern.size() && IsNegation(p + 1) ? p + 2 : p + 1;
        size_t end = m_pattern.find(U']', first + 1);  // one that comes first belongs to the set
        return end == Characters::npos ? 0 : end;
    }

    [[nodiscard]] bool IsInSet(size_t p, size_t end, char32_t c) const {
        bool negated = IsNegation(p);
        bool found = false;
        for (p += negated ? 1 : 0; p < end; ++p) {
            bool range = p + 2 < end && m_pattern[p + 1] == '-';
            char32_t last = range ? m_pattern[p + 2] : m_pattern[p];
            found = found || (m_pattern[p] <= c && c <= last);
            if (range) p += 2;
        }
        return found != negated;
    }

    Characters m_pattern;
    Characters m_name;
};

/// The C library is wrong about ranges that end beyond U+00FF.
bool HasFarRange(const Characters& mask) {
    for (size_t p = 0; p + 1 < mask.size(); ++p) {
        if (mask[p] == '-' && mask[p + 1] > 0xFF) return true;
    }
    return false;
}

/// The masks whose meaning the matcher knows: few stars, closed sets of near ranges, no classes or collating elements.
bool IsPlain(const std::string& mask) {
    for (const char* special : {"[:", "[=", "[.", "/", "\\"}) {
        if (mask.find(special) != std::string::npos) return false;
    }
    if (HasFarRange(Decode(mask))) return false;
    return std::count(mask.begin(), mask.end(), '*') <= 4 && Matcher(Decode(mask), {}).IsWellFormed();
}

Characters Bytes(const std::string& text) {
    Characters bytes;
    for (unsigned char byte : text) {
        bytes.push_back(byte);
    }
    return bytes;
}

/// A mask lets through what it matches by characters. What it matches by bytes it may let through: the C library tries
/// both.
void CheckMatch(const std::string& mask, const std::string& name, bool found) {
    bool matches = mask == "*.*" || Matcher(Decode(mask), Decode(name)).Matches(0, 0);
    Require(found || !matches, "what matches is let through", mask + "\n" + name);
    if (matches || !found) return;
    Require(Matcher(Bytes(mask), Bytes(name)).Matches(0, 0), "what is let through matches", mask + "\n" + name);
}

std::vector<std::string> Lines(const uint8_t* data, size_t size) {
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += static_cast<char>(data[i] ? data[i] : '0');
        }
    }
    return lines;
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

void Check(const NamesArea& area, const std::string& mask) {
    std::vector<std::string> found = FindNames(area, mask.c_str(), kHidden);
    Require(std::is_sorted(found.begin(), found.end()), "names come sorted", mask);
    for (const std::string& name : found) {
        Require(Contains(area.Names(), name), "what is found is there", mask + "\n" + name);
    }
    std::vector<std::string> visible = FindNames(area, mask.c_str(), 0);
    for (const std::string& name : visible) {
        Require(name[0] != '.' && Contains(found, name), "hidden names are left out, and nothing else", mask);
    }
    bool meansItself = area.Place(mask.c_str()) == mask;  // no "." and the like
    if (!meansItself || !IsPlain(mask)) return;
    for (const std::string& name : area.Names()) {
        if (!IsUtf8(name)) continue;
        CheckMatch(mask, name, Contains(found, name));
    }
}

}  // namespace
}  // namespace kx::fuzz

/// The mask in the first line, a name in each of the others.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    static kx::fuzz::NamesArea area;
    std::vector<std::string> lines = kx::fuzz::Lines(data, size);
    std::string mask = lines[0];
    lines.erase(lines.begin());
    lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
    area.SetNames(std::move(lines));
    kx::fuzz::Check(area, mask);
    return 0;
}
