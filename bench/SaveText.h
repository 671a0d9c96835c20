#pragma once

#include <cstddef>
#include <string>

namespace kx::bench {

/// What the benchmarks read.
constexpr size_t kSaveBytes = 5 << 20;

/// @return the JSON text of a made-up save of about so many bytes: nested objects, arrays, texts with escapes and
/// UTF-8,
///         reals, integers, booleans and nulls. The same at every call.
std::string SaveText(size_t bytes);

}  // namespace kx::bench
