// UTF-8 as RFC 3629 defines it.
#include "Files/Base/Utf8.h"

#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cwctype>

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

/// The character of a well-formed sequence of so many bytes.
wint_t CharacterOf(std::string_view bytes) {
    auto lead = static_cast<unsigned char>(bytes[0]);
    wint_t character = bytes.size() == 1 ? lead : lead & (0x7Fu >> bytes.size());
    for (size_t i = 1; i < bytes.size(); ++i) {
        character = character << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
    }
    return character;
}

/// Takes the bytes of the next character off a text's front; one byte where they are none.
std::string_view TakeCharacter(std::string_view* text, bool* wellFormed) {
    size_t size = CharacterSize(*text);
    *wellFormed = size > 0;
    std::string_view bytes = text->substr(0, *wellFormed ? size : 1);
    text->remove_prefix(bytes.size());
    return bytes;
}

/// Unicode's letters, whatever the locale of the program is; null where the system has none of them.
locale_t Utf8Locale() {
    static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

/// The I with a dot and the i without one: letters of their own, whose other case is not the Latin one's.
bool IsTurkishI(wint_t character) {
    return character == 0x130 || character == 0x131;
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

bool HasControls(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if (c < 0x20 || c == 0x7F || (c == 0xC2 && next >= 0x80 && next < 0xA0)) return true;
    }
    return false;
}

void AppendUtf8(std::string* text, char32_t character) {
    if (character < 0x80) {
        *text += static_cast<char>(character);
        return;
    }
    int following = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    *text += static_cast<char>((0xFF00u >> (following + 1) & 0xFF) | character >> (6 * following));
    while (following-- > 0) {
        *text += static_cast<char>(0x80 | (character >> (6 * following) & 0x3F));
    }
}

std::string Printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        bool wellFormed = false;
        std::string_view character = TakeCharacter(&text, &wellFormed);
        if (wellFormed && !HasControls(character)) {
            shown += character;
            continue;
        }
        for (char c : character) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(c));
            shown += escaped;
        }
    }
    return shown;
}

std::string FoldCase(std::string_view text) {
    std::string folded;
    while (!text.empty()) {
        bool wellFormed = false;
        std::string_view bytes = TakeCharacter(&text, &wellFormed);
        wint_t character = wellFormed ? CharacterOf(bytes) : 0;
        if (!wellFormed || !Utf8Locale() || IsTurkishI(character)) {
            folded += bytes;
            continue;
        }
        wint_t capital = ::towupper_l(character, Utf8Locale());  // by it two small forms are one letter
        AppendUtf8(&folded, ::towlower_l(capital, Utf8Locale()));
    }
    return folded;
}

}  // namespace kx
