// Built-ins as a script calls them, at the level of their handlers.
#include "tests/support/BuiltIn.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace kx::test {

Value::Value(double real) : m_value{{real}, 0, VALUE_REAL} {}

Value::Value(const char* text) : m_value{} {
    KXCreateString(&m_value, text);
}

double Value::Real() const {
    EXPECT_EQ(m_value.kind, VALUE_REAL);
    return m_value.real;
}

std::string Value::Text() const {
    EXPECT_EQ(m_value.kind, VALUE_STRING);
    bool hasText = m_value.kind == VALUE_STRING && m_value.str && m_value.str->m_thing;
    return hasText ? m_value.str->m_thing : "";
}

Value Call(const char* name, std::vector<Value> arguments) {
    const FunctionRecord* record = Function_Find(name);
    if (!record) throw std::runtime_error(std::string("no built-in named ") + name);
    EXPECT_EQ(static_cast<int>(arguments.size()), record->argc) << name;

    std::vector<RValue> plain;
    for (Value& argument : arguments) {
        plain.push_back(argument.Get());
    }
    Value result(kUnset);
    record->routine(result.Get(), nullptr, nullptr, record->argc, plain.data());
    return result;
}

}  // namespace kx::test
