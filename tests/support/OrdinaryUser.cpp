// A user to whom permissions apply.
#include "tests/support/OrdinaryUser.h"

#include <cstdlib>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

constexpr uid_t kNobody = 65534;

void GiveTo(const fs::path& path, uid_t user) {
    if (::lchown(path.c_str(), user, static_cast<gid_t>(-1)) != 0) std::abort();
}

}  // namespace

OrdinaryUser::OrdinaryUser(const fs::path& folder) : m_wasRoot(::geteuid() == 0) {
    if (!m_wasRoot) return;
    GiveTo(folder, kNobody);
    for (const fs::directory_entry& each : fs::recursive_directory_iterator(folder)) {
        GiveTo(each.path(), kNobody);
    }
    if (::seteuid(kNobody) != 0) std::abort();
}

OrdinaryUser::~OrdinaryUser() {
    if (m_wasRoot && ::seteuid(0) != 0) std::abort();
}

}  // namespace kx::test
