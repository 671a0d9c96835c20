// Temporary areas.
#include "tests/support/Areas.h"

#include "Files/IO/LoadSave.h"

namespace fs = std::filesystem;

namespace kx::test {
namespace {

constexpr char kOutsideText[] = "nothing may touch this";

}  // namespace

AreasTest::AreasTest() = default;
AreasTest::~AreasTest() = default;

void AreasTest::SetUp() {
    fs::create_directory(Bundle());
    WriteWholeFile(Outside(), kOutsideText);
    ASSERT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);
    ASSERT_EQ(LoadSave::SetBundleArea(Bundle().c_str()), 0);
}

void AreasTest::TearDown() {
    LoadSave::Shutdown();
    LoadSave::SetDurability(Durability::full);
    EXPECT_EQ(ReadWholeFile(Outside()), kOutsideText);
}

fs::path AreasTest::Save(const std::string& name) const {
    return name.empty() ? m_folder.Path() / "save" : m_folder.Path() / "save" / name;
}

fs::path AreasTest::Bundle(const std::string& name) const {
    return name.empty() ? m_folder.Path() / "bundle" : m_folder.Path() / "bundle" / name;
}

fs::path AreasTest::Outside() const {
    return m_folder.Path() / "outside";
}

}  // namespace kx::test
