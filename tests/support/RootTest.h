#pragma once

#include "Platform/SystemCalls.h"
#include "tests/support/Folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace kx::test {

/// A test with an open directory of its own, which holds folder/file with the text "old".
class RootTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_root = Descriptor(::open(m_folder.Path().c_str(), O_RDONLY | O_DIRECTORY));
        WriteWholeFile(Path("folder/file"), "old");
    }

    [[nodiscard]] std::filesystem::path Path(const std::string& name) const { return m_folder.Path() / name; }
    [[nodiscard]] int Root() const { return m_root.Get(); }

private:
    TemporaryFolder m_folder;
    Descriptor m_root;
};

}  // namespace kx::test
