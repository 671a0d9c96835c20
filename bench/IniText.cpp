// A made-up INI document.
#include "bench/IniText.h"

#include <cstdio>
#include <iterator>
#include <random>

namespace kx::bench {
namespace {

const char* const kTexts[] = {"windowed",   "The Long Way",        "#ff8800",
                              "left;right", "saves\\slot one",     "\"  centred  \"",
                              "yes",        "\"C:\\games\\data\"", "\"Caf\u00e9 Zum L\u00f6wen\""};

std::vector<std::string> Names(const char* format, int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, format, i);
        names.emplace_back(name);
    }
    return names;
}

/// Two values in three are numbers.
std::string Value(std::mt19937* random) {
    auto kind = (*random)() % 3;
    auto number = (*random)();
    if (kind == 0) return kTexts[number % std::size(kTexts)];
    return kind == 1 ? std::to_string(number % 4096) : std::to_string(static_cast<double>(number) / 1e6);
}

}  // namespace

std::vector<std::string> IniSectionNames() {
    return Names("section%04d", kIniSections);
}

std::vector<std::string> IniKeyNames() {
    return Names("key%02d", kIniKeys);
}

std::string IniText() {
    std::mt19937 random{1};
    const std::vector<std::string> keys = IniKeyNames();
    std::string text = "; Settings of the game\n\n";
    for (const std::string& section : IniSectionNames()) {
        text += "[" + section + "]\n";
        for (const std::string& key : keys) {
            if (random() % 8 == 0) text += "; what " + key + " is for\n";
            text += key;
            text += "=";
            text += Value(&random) + "\n";
        }
        text += "\n";
    }
    return text;
}

}  // namespace kx::bench
