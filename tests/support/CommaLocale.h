#pragma once

#include "tests/support/Folder.h"

#include <string>

namespace kx::test {

/// Makes the process's locale one that writes numbers with a decimal comma, as long as it lives. The locale is built
/// for the occasion from the system's sources; a machine without them fails the test.
class CommaLocale {
public:
    CommaLocale();
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    ~CommaLocale();

private:
    TemporaryFolder m_folder;
    std::string m_before;
};

}  // namespace kx::test
