#pragma once

#include <string_view>

namespace kx {

/// True when a text is well-formed UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF (RFC 3629).
/// @thread any
bool IsUtf8(std::string_view text);

}  // namespace kx
