#pragma once

#include <string>
#include <string_view>

namespace kx {

/// True when a text is well-formed UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF (RFC 3629).
/// @thread any
bool IsUtf8(std::string_view text);

/// True for a text with characters that drive a terminal: below the blank, delete, and those from U+0080 to U+009F.
/// @thread any
bool HasControls(std::string_view text);

/// Appends one character.
/// @param character  up to U+10FFFF, no surrogate.
void AppendUtf8(std::string* text, char32_t character);

/// The text with "\xNN" for the bytes of characters that drive a terminal and for those that are no UTF-8: what a
/// message can show of a text that comes from anywhere.
/// @thread any
std::string Printable(std::string_view text);

/// The text with small letters for capital ones, so that two texts that differ in nothing else become one. The
/// program's locale does not matter.
/// @param text  UTF-8.
/// @thread any
std::string FoldCase(std::string_view text);

}  // namespace kx
