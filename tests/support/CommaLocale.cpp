// A locale with a decimal comma.
#include "tests/support/CommaLocale.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

namespace kx::test {

CommaLocale::CommaLocale() : m_before(std::setlocale(LC_ALL, nullptr)) {
    std::string target = (m_folder.Path() / "de_DE.UTF-8").string();
    std::string command = "localedef --no-archive -i de_DE -f UTF-8 '" + target + "' >/dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << "cannot build a locale: is the package \"locales\" installed?";
    ::setenv("LOCPATH", m_folder.Path().c_str(), 1);
    EXPECT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    ::unsetenv("LOCPATH");  // newlocale, which parsers call, leaks a copy of it

    char number[16];
    std::snprintf(number, sizeof number, "%.1f", 1.5);
    EXPECT_STREQ(number, "1,5");
}

CommaLocale::~CommaLocale() {
    std::setlocale(LC_ALL, m_before.c_str());
}

}  // namespace kx::test
