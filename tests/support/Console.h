#pragma once

#include "Files/Code/Code_Error.h"

#include <string>

namespace kx::test {

/// Takes the debug console's place and keeps what is written to it, until it goes out of scope.
class CapturingConsole : public IConsole {
public:
    CapturingConsole();
    CapturingConsole(const CapturingConsole&) = delete;
    CapturingConsole& operator=(const CapturingConsole&) = delete;
    ~CapturingConsole() override;

    void Output(const char* format, ...) override __attribute__((format(printf, 2, 3)));

    /// What was written since the last call.
    std::string Take();

private:
    IConsole* m_before;
    std::string m_text;
};

/// The pending script error, which is cleared; empty where there is none.
std::string TakeError();

}  // namespace kx::test
