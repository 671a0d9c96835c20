#pragma once

#include "proof/Model.h"

#include <cstddef>
#include <random>
#include <string>

namespace kx::proof {

/// Draws what a script does next: names that are there and others, files that are open and others.
class Player {
public:
    Player(unsigned int seed, std::string savePath, std::string bundlePath);

    Command Next();

    /// Learns which files are open by the answers.
    void Note(const Command& command, const Answer& answer);

private:
    [[nodiscard]] unsigned int Below(unsigned int count) { return static_cast<unsigned int>(m_random() % count); }
    template <class Item, size_t count>
    const Item& Any(const Item (&items)[count]) {
        return items[Below(count)];
    }
    bool Hoards();
    std::string Name();
    std::string Spelled(const std::string& place);
    int Id(const std::vector<int>& open);
    Command OfText();
    Command OfBinary();
    Command OfFiles();
    Command OfIni();

    std::mt19937 m_random;
    bool m_hoards;
    std::string m_savePath;
    std::string m_bundlePath;
    std::vector<int> m_readers, m_writers, m_binaries;
    bool m_hasDocument = false;
};

}  // namespace kx::proof
