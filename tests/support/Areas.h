#pragma once

#include "tests/support/Folder.h"

#include <gtest/gtest.h>

namespace kx::test {

/// A test with a save area and a bundle area of its own, side by side in one folder:
///
///     <folder>/save/     writable
///     <folder>/bundle/   what the game ships
///     <folder>/outside   a file that nothing may touch: checked at the end
class AreasTest : public ::testing::Test {
protected:
    AreasTest();
    ~AreasTest() override;

    void SetUp() override;
    void TearDown() override;

    [[nodiscard]] std::filesystem::path Save(const std::string& name = "") const;
    [[nodiscard]] std::filesystem::path Bundle(const std::string& name = "") const;
    [[nodiscard]] std::filesystem::path Outside() const;

private:
    TemporaryFolder m_folder;
};

}  // namespace kx::test
