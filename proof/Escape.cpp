// Tries to reach outside the two areas: by every kind of name, through every kind of link, and in a race with whoever
// puts links in place.
#include "proof/Campaign.h"
#include "proof/Escape_Race.h"
#include "proof/Escape_Table.h"

#include "Files/Function/Function_File.h"
#include "tests/support/Variable.h"

#include <cstdio>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

using kx::proof::Extent;
using kx::proof::Opening;

namespace {

constexpr size_t kOpens = 1'000'000;
constexpr size_t kShortOpens = 20'000;

/// What goes wrong here goes wrong with "/" and "/etc/passwd": root gives its rights up first, for good.
/// @return false where it cannot.
bool BecomeOrdinary() {
    if (::geteuid() != 0) return true;
    const passwd* nobody = ::getpwnam("nobody");
    return nobody && ::setgroups(0, nullptr) == 0 && ::setgid(nobody->pw_gid) == 0 && ::setuid(nobody->pw_uid) == 0;
}

}  // namespace

int main(int count, char** arguments) {
    kx::proof::Options options = kx::proof::ReadOptions(
        count, arguments, "Gives hostile names to every built-in, in areas full of links that lead out of them.");
    kx::proof::WorkInMemory();
    kx::test::Variable proxies("no_proxy", "*");
    if (!BecomeOrdinary()) {
        std::fprintf(stderr, "escape: not as root: there is no user \"nobody\" to become\n");
        return 1;
    }
    InitFileFunctions();

    int failed = 0;
    for (Opening opening : {Opening::withOpenat2, Opening::walking}) {
        kx::proof::World world;
        failed |= kx::proof::TryEveryName(world, opening, options.isShort ? Extent::sample : Extent::whole);
        failed |= kx::proof::Race(world, opening, options.isShort ? kShortOpens : kOpens);
    }
    bool unexpected = ::testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
    return failed || unexpected ? 1 : 0;
}
