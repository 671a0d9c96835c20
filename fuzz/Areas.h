#pragma once

#include <string>

namespace kx::fuzz {

/// A save area and a bundle area in memory, side by side in one folder that goes when the program ends. They stay from
/// one input to the next: whoever writes in them restores what the next one finds.
///
///     <folder>/save/
///     <folder>/bundle/
///     <folder>/outside/secret   what nothing may reach
class Areas {
public:
    static const Areas& Get();

    [[nodiscard]] std::string Save(const std::string& name = "") const { return m_folder + "/save" + Below(name); }
    [[nodiscard]] std::string Bundle(const std::string& name = "") const { return m_folder + "/bundle" + Below(name); }
    [[nodiscard]] std::string Outside(const std::string& name = "") const {
        return m_folder + "/outside" + Below(name);
    }

    /// Empties the save area, in which nothing may be half written.
    void Clear() const;

    /// Nothing outside of the two areas has been made, changed or removed.
    void RequireOutsideUntouched() const;

    Areas(const Areas&) = delete;
    Areas& operator=(const Areas&) = delete;

private:
    Areas();
    ~Areas();

    static std::string Below(const std::string& name) { return name.empty() ? name : "/" + name; }

    std::string m_folder;
    std::string m_outside;  // what it was at first
};

}  // namespace kx::fuzz
