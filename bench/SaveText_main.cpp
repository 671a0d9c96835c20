// Prints a made-up save of 5 MB.
#include "bench/SaveText.h"

#include <cstdio>

int main() {
    std::string text = kx::bench::SaveText(kx::bench::kSaveBytes);
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
