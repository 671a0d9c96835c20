#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <string>

namespace kx::fuzz {

/// An input as a row of choices.
class Input : public FuzzedDataProvider {
public:
    using FuzzedDataProvider::FuzzedDataProvider;

    [[nodiscard]] bool IsOver() { return remaining_bytes() == 0; }

    /// @return from 0 to below the limit.
    size_t Below(size_t limit) { return ConsumeIntegralInRange<size_t>(0, limit - 1); }

    /// A text as scripts have them: no zero byte is in it.
    std::string Text(size_t most) {
        std::string text = ConsumeRandomLengthString(most);
        return text.substr(0, text.find('\0'));
    }

    /// One of a few.
    template <class T, size_t count>
    const T& Of(const T (&choices)[count]) {
        return choices[Below(count)];
    }
};

}  // namespace kx::fuzz
