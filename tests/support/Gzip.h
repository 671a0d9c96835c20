#pragma once

#include <cstdint>
#include <string>

namespace kx::test {

/// A text of less than 64 KiB in the gzip format, not made any smaller.
/// @param error  what the checksum is to be wrong by.
inline std::string Gzip(const std::string& text, uint32_t error = 0) {
    auto number = [](uint32_t value, int bytes) {
        std::string low;
        for (int i = 0; i < bytes; ++i) {
            low += static_cast<char>(value >> 8 * i);
        }
        return low;
    };
    uint32_t checksum = ~0u;
    for (unsigned char c : text) {
        checksum ^= c;
        for (int bit = 0; bit < 8; ++bit) {
            checksum = checksum >> 1 ^ (checksum & 1 ? 0xEDB88320u : 0);
        }
    }
    auto size = static_cast<uint32_t>(text.size());
    return std::string("\x1f\x8b\x08\0\0\0\0\0\0\xff\x01", 11) + number(size, 2) + number(~size, 2) + text +
           number(~checksum + error, 4) + number(size, 4);
}

}  // namespace kx::test
