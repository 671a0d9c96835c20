// Numbers to and from text, on top of <charconv>.
#include "Files/Base/Number.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace kx {
namespace {

constexpr double kIntegralText = 1e15;  // from here on the shortest form is the clearer one

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

int Finish(char* out, std::to_chars_result printed) {
    *printed.ptr = 0;
    return static_cast<int>(printed.ptr - out);
}

/// The exponent of a number's tail such as "e+400", 0 of an empty one; one that no integer holds becomes kHuge with its
/// sign.
long long Exponent(std::string_view tail) {
    constexpr long long kHuge = 1LL << 60;
    if (tail.empty()) return 0;
    tail.remove_prefix(tail[1] == '+' ? 2 : 1);
    long long exponent = 0;
    auto [end, error] = std::from_chars(tail.data(), tail.data() + tail.size(), exponent);
    bool huge = error == std::errc::result_out_of_range || exponent > kHuge || exponent < -kHuge;
    if (!huge) return exponent;
    return tail[0] == '-' ? -kHuge : kHuge;
}

/// What a number outside a double's range becomes: an infinity or a zero, by the decimal place of its first digit that
/// is not a zero.
double Saturated(std::string_view digits, bool negative) {
    long long place = 0;
    bool point = false;
    bool significant = false;
    size_t i = 0;
    for (; i < digits.size() && (IsDigit(digits[i]) || digits[i] == '.'); ++i) {
        if (digits[i] == '.') {
            point = true;
            continue;
        }
        significant = significant || digits[i] != '0';
        if (significant && !point) ++place;
        if (!significant && point) --place;
    }
    double value = place + Exponent(digits.substr(i)) > 0 ? std::numeric_limits<double>::infinity() : 0.0;
    return negative ? -value : value;
}

}  // namespace

int ParseReal(std::string_view text, double* value) {
    size_t at = 0;
    bool negative = false;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        negative = text[at] == '-';
        ++at;
    }
    bool number = at < text.size() && (IsDigit(text[at]) || text[at] == '.');
    if (!number) return 0;

    const char* first = text.data() + at;
    const char* last = text.data() + text.size();
    double magnitude = 0;
    auto [end, error] = std::from_chars(first, last, magnitude);
    if (error == std::errc::invalid_argument) return 0;
    if (error == std::errc::result_out_of_range) {
        *value = Saturated(std::string_view(first, static_cast<size_t>(end - first)), negative);
    } else {
        *value = negative ? -magnitude : magnitude;
    }
    return static_cast<int>(end - text.data());
}

double ReadReal(const char* text) {
    // What from_chars reads to its end, which is much faster, strtod reads the same.
    double value = 0;
    const char* last = text + std::strlen(text);
    auto [end, error] = std::from_chars(text, last, value);
    if (end == last && error == std::errc()) return value;
    static const locale_t point = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return ::strtod_l(text, nullptr, point);
}

int PrintReal(char* out, double value) {
    bool integral = std::fabs(value) < kIntegralText && value == std::trunc(value);
    if (integral) return PrintInteger(out, static_cast<long long>(value));
    return Finish(out, std::to_chars(out, out + kNumberText - 1, value));
}

int PrintRealG(char* out, double value) {
    return Finish(out, std::to_chars(out, out + kNumberText - 1, value, std::chars_format::general, 6));
}

int PrintRealFixed(char* out, int size, double value, int decimals) {
    char text[kFixedText];
    int length = Finish(text, std::to_chars(text, text + kFixedText - 1, value, std::chars_format::fixed, decimals));
    length = std::min(length, size - 1);
    std::memcpy(out, text, static_cast<size_t>(length));
    out[length] = 0;
    return length;
}

int PrintInteger(char* out, long long value) {
    return Finish(out, std::to_chars(out, out + kNumberText - 1, value));
}

}  // namespace kx
