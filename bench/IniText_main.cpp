// Prints a made-up INI document.
#include "bench/IniText.h"

#include <cstdio>

int main() {
    std::string text = kx::bench::IniText();
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
