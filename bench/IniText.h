#pragma once

#include <string>
#include <vector>

namespace kx::bench {

constexpr int kIniSections = 2000;
constexpr int kIniKeys = 20;  // of every section

/// Text of a made-up INI document: reals, short texts and quoted texts, comments here and there, the same each time.
/// Every reader takes it alike, and each value for the same number: the reals are whole values, the texts begin with
/// none.
std::string IniText();

/// "section0000" and so on, and "key00", as the document names them.
std::vector<std::string> IniSectionNames();
std::vector<std::string> IniKeyNames();

}  // namespace kx::bench
