#pragma once

#include <string>

/// What every fuzz target stands on: built-ins that can be called, a console that says nothing, and properties whose
/// violation ends the program.
///
///     extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
///         kx::fuzz::Round round;                       // afterwards no host memory is left behind
///         …
///         kx::fuzz::Require(again == before, "what is written reads back the same");
///         return 0;
///     }
/// @thread one
namespace kx::fuzz {

/// Ends the program with a message where a property does not hold; the driver keeps the input.
/// @param property  what should have held, as a sentence.
/// @param details   what was found instead, printed with control characters as "\xHH".
void Require(bool held, const char* property, const std::string& details = "");

/// Takes and clears the pending script error.
/// @return true where there was one.
bool TakeError();

/// One input from its begin to its end: the built-ins are there, and all host memory that was taken meanwhile has to be
/// given back.
class Round {
public:
    Round();
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;
    ~Round();

private:
    long long m_blocks;
};

/// Calls a function when it goes out of scope.
template <class Function>
class Finally {
public:
    explicit Finally(Function function) : m_function(function) {}
    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;
    ~Finally() { m_function(); }

private:
    Function m_function;
};

}  // namespace kx::fuzz
