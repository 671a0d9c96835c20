#pragma once

namespace kx::test {

/// Whether an emulator runs what is built. It stands between a test and the system, so that some tests cannot be had:
///
///     if (IsEmulated()) GTEST_SKIP() << kLimitedWithTheProgram;
[[nodiscard]] bool IsEmulated();

constexpr char kLimitedWithTheProgram[] = "an emulator needs more address space than the program may have";

/// Whether the system knows openat2: where it does not, the host follows no links.
[[nodiscard]] bool KnowsOpenat2();

}  // namespace kx::test
