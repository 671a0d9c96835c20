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

    /// What counts: with `library`, json-c's own allocations too.
    enum Scope { ours, library };

    static void Arm(int skipped, Mode mode, Scope scope);

    /// @return true where an allocation has failed.
    static bool Disarm();

    /// Blocks that are allocated now and not freed.
    static long long Live();
};

}  // namespace kx::test
