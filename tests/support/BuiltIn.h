#pragma once

#include "Files/Code/Code_Function.h"

#include <string>
#include <vector>

namespace kx::test {

/// A script value of a test: owns what it holds.
class Value {
public:
    Value() : m_value(g_undefined) {}
    Value(double real);  // NOLINT: tests pass numbers and texts as they are
    Value(int real) : Value(static_cast<double>(real)) {}
    Value(const char* text);  // NOLINT
    Value(const std::string& text) : Value(text.c_str()) {}
    Value(const RValue& plain) : m_value(plain) {}  // NOLINT: takes over what it owns
    Value(const Value& other) { COPY_RValue(&m_value, &other.m_value); }
    Value& operator=(const Value& other) = delete;
    ~Value() { FREE_RValue__Pre(&m_value); }

    RValue& Get() { return m_value; }
    [[nodiscard]] unsigned int Kind() const { return m_value.kind; }
    /// The number of a real; fails the test for another kind.
    [[nodiscard]] double Real() const;
    /// The text of a string; fails the test for another kind. A string with no text is empty.
    [[nodiscard]] std::string Text() const;

private:
    RValue m_value;
};

/// What a handler finds in its result before it writes one: a result that it never sets is still this.
constexpr double kUnset = -12345;

/// Calls a built-in by its script name. Errors stay pending.
Value Call(const char* name, std::vector<Value> arguments = {});

}  // namespace kx::test
