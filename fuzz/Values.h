#pragma once

#include "Files/Code/Code_Function.h"

#include <initializer_list>
#include <string>
#include <vector>

/// Script values in fuzz targets.
namespace kx::fuzz {

/// Whether two values are the same for a script that has saved one as JSON and loaded the other: numbers by their value
/// whatever their kind, texts by their bytes, what stands for null all alike, lists and arrays by what they hold in its
/// order, maps and structs by what they hold under which text.
bool IsSame(const RValue& a, const RValue& b);

/// A script's own text; what is no text is an empty one.
std::string TextOf(const RValue& value);

/// A text as a value, which its owner releases.
RValue Text(const std::string& text);

/// A built-in that is called again and again.
class BuiltIn {
public:
    explicit BuiltIn(const char* name) : m_name(name) {}

    /// Calls it with values that stay the caller's. A C++ exception that comes out is an error, as for a script.
    /// @param result  released first; set to what the caller owns then, the real 0 where there was an exception.
    /// @return false where an error was raised.
    bool Call(std::vector<RValue> arguments, RValueOwner* result);

    /// Its result as a number, where an error is not to be.
    double Number(std::vector<RValue> arguments);

private:
    const char* m_name;
    const FunctionRecord* m_record = nullptr;
};

}  // namespace kx::fuzz
