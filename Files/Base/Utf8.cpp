// UTF-8 as RFC 3629 defines it.
#include "Files/Base/Utf8.h"

#include <cstddef>

namespace kx {
namespace {

struct Form {
    unsigned char first, last;              // lead bytes of this form
    int following;                          // continuation bytes after the lead
    unsigned char secondFirst, secondLast;  // range of the first of them
};

/// The table of RFC 3629, section 4.
constexpr Form kForms[] = {
    {0x00, 0x7F, 0, 0x00, 0x00}, {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF},
    {0xE1, 0xEC, 2, 0x80, 0xBF}, {0xED, 0xED, 2, 0x80, 0x9F}, {0xEE, 0xEF, 2, 0x80, 0xBF},
    {0xF0, 0xF0, 3, 0x90, 0xBF}, {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F},
};

/// Bytes of the character at the start of a text; 0 where none is well-formed.
size_t CharacterSize(std::string_view text) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    for (const Form& form : kForms) {
        if (byte(0) < form.first || byte(0) > form.last) continue;
        size_t size = static_cast<size_t>(form.following) + 1;
        if (text.size() < size) return 0;
        if (size > 1 && (byte(1) < form.secondFirst || byte(1) > form.secondLast)) return 0;
        for (size_t i = 2; i < size; ++i) {
            if ((byte(i) & 0xC0) != 0x80) return 0;
        }
        return size;
    }
    return 0;
}

}  // namespace

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        size_t size = CharacterSize(text);
        if (size == 0) return false;
        text.remove_prefix(size);
    }
    return true;
}

}  // namespace kx
