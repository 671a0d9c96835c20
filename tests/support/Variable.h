#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace kx::test {

/// Sets an environment variable, or takes it away, as long as it lives. Nobody else may look at the environment then.
class Variable {
public:
    Variable(const char* name, const std::optional<std::string>& value) : m_name(name) {
        if (const char* before = std::getenv(name)) m_before = before;
        Set(value);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { Set(m_before); }

private:
    void Set(const std::optional<std::string>& value) const {
        if (value) {
            ::setenv(m_name, value->c_str(), 1);
        } else {
            ::unsetenv(m_name);
        }
    }

    const char* m_name;
    std::optional<std::string> m_before;
};

}  // namespace kx::test
