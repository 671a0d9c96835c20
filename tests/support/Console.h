#pragma once

#include "Files/Code/Code_Error.h"

#include <mutex>
#include <string>

namespace kx::test {

/// Takes the debug console's place and keeps what is written to it, by any thread, until it goes out of scope.
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
    std::mutex m_mutex;
    std::string m_text;  // under the mutex
};

/// The pending script error, which is cleared; empty where there is none.
std::string TakeError();

}  // namespace kx::test
