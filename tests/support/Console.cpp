// A console that remembers.
#include "tests/support/Console.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kx::test {

CapturingConsole::CapturingConsole() : m_before(std::exchange(dbg_csol, this)) {}

CapturingConsole::~CapturingConsole() {
    dbg_csol = m_before;
}

void CapturingConsole::Output(const char* format, ...) {
    char text[16384];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_text += text;
}

std::string CapturingConsole::Take() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_text, std::string());
}

std::string TakeError() {
    std::string text;
    KXTakeError(&text);
    return text;
}

}  // namespace kx::test
