#pragma once

#include <climits>
#include <string_view>

/// Numbers to and from text, the same under every locale: the one place where a digit is read or printed.
///
/// @thread any; no state.
namespace kx {

/// Bytes that hold every text that the printers below make, terminator included.
constexpr int kNumberText = 32;

/// Bytes that hold every real with up to six decimals, terminator included.
constexpr int kFixedText = 320;

/// Reads the longest decimal number at the start of a text: sign, digits, point, exponent; no blanks before it, no
/// hexadecimal form, neither "inf" nor "nan".
/// @param value  set where a number is found; a number too large becomes an infinity, one too small a zero.
/// @return bytes read; 0 where the text does not start with a number.
int ParseReal(std::string_view text, double* value);

/// Reads a number as C's strtod does in the C locale: white space before it, the longest number there is, hexadecimal
/// forms, "inf" and "nan" too; 0 where the text starts with none.
double ReadReal(const char* text);

/// @return a real in the range of a 32-bit integer: cut toward zero, stopped at the ends; 0 for NaN.
inline int ToInt32(double value) {
    if (value > INT_MIN && value < INT_MAX) return static_cast<int>(value);
    if (value >= INT_MAX) return INT_MAX;
    return value <= INT_MIN ? INT_MIN : 0;
}

/// Prints a real the short way: an integer where it is one below 1e15, else the fewest digits that read back the same.
/// @param out  at least kNumberText bytes; the text is terminated.
/// @return the text's length.
int PrintReal(char* out, double value);

/// Prints a real as printf's "%g" does in the C locale: six significant digits.
/// @param out  at least kNumberText bytes; the text is terminated.
/// @return the text's length.
int PrintRealG(char* out, double value);

/// Prints a real as printf's "%.*f" does in the C locale.
/// @param out       terminated, and cut where the text is longer.
/// @param size      bytes at `out`, 1 or more; kFixedText hold every real.
/// @param decimals  6 at most.
/// @return the length of what is at `out`.
int PrintRealFixed(char* out, int size, double value, int decimals);

/// Prints an integer in decimal.
/// @param out  at least kNumberText bytes; the text is terminated.
/// @return the text's length.
int PrintInteger(char* out, long long value);

}  // namespace kx
