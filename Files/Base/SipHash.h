#pragma once

#include <cstdint>
#include <string_view>

namespace kx {

/// A hash of a text that nobody outside the process can foresee, so that no file can hold names that all fall together:
/// SipHash-1-3 under a random key. It differs in every run; nothing that is seen may depend on it.
/// Source: Aumasson, Bernstein, "SipHash: a fast short-input PRF", 2012.
/// @thread any
uint64_t KeyedHash(std::string_view text);

/// SipHash-1-3 itself.
uint64_t SipHash13(uint64_t key0, uint64_t key1, std::string_view text);

}  // namespace kx
