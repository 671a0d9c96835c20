// The work of scripts/ini_kxrun.lua with SimpleIni: settings.ini loaded, every key read and written, saved elsewhere.
#define SI_NO_CONVERSION  // bytes, as they are
#include "bench/IniText.h"

#include <SimpleIni.h>
#include <cstdio>
#include <string>
#include <vector>

int main() {
    const std::vector<std::string> sections = kx::bench::IniSectionNames();
    const std::vector<std::string> keys = kx::bench::IniKeyNames();
    CSimpleIniCaseA settings;
    if (settings.LoadFile("settings.ini") < 0) return 1;

    double sum = 0;
    for (const std::string& section : sections) {
        for (const std::string& key : keys) {
            sum += settings.GetDoubleValue(section.c_str(), key.c_str(), 0);
        }
    }
    for (size_t s = 0; s < sections.size(); ++s) {
        for (size_t k = 0; k < keys.size(); ++k) {
            double value = static_cast<double>(s + 1) + static_cast<double>(k + 1) / 32;
            settings.SetDoubleValue(sections[s].c_str(), keys[k].c_str(), value);
        }
    }
    double last = settings.GetDoubleValue(sections.back().c_str(), keys.back().c_str(), 0);
    if (settings.SaveFile("settings.simpleini", false) < 0) return 1;
    std::printf("%.6f %.6f\n", sum, last);
    return 0;
}
