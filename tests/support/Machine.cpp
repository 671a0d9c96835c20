// What the machine offers that runs the tests.
#include "tests/support/Machine.h"

#include <cerrno>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kx::test {

bool IsEmulated() {
    return KXEMULATED;
}

bool KnowsOpenat2() {
    open_how how{};
    long result = ::syscall(SYS_openat2, -1, "", &how, sizeof how);  // no such file, or no such call
    return result >= 0 || (errno != ENOSYS && errno != EPERM);
}

}  // namespace kx::test
