#pragma once

namespace kx::test {

/// malloc, calloc and realloc that fail at will, in place of the C library's, for a whole program: link it into a test
/// of its own. Sanitizers bring theirs.
///
///     FailingMalloc::Arm(3, FailingMalloc::once);
///     …the fourth allocation that our code makes gets nothing…
///     FailingMalloc::Disarm();
class FailingMalloc {
public:
    enum Mode { once, from_then_on };

    /// What counts: our own code with the C++ library that it calls; with `library`, json-c, libzip and what the C
    /// library allocates for its caller too. Other libraries never go without.
    enum Scope { ours, library };

    /// Whose allocations count.
    enum Threads { own, others };

    static void Arm(int skipped, Mode mode, Scope scope, Threads threads = own);

    /// @return true where an allocation has failed.
    static bool Disarm();

    /// Blocks that are allocated now and not freed.
    static long long Live();
};

}  // namespace kx::test
