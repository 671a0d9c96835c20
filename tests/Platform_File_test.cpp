// Opening beneath a root and replacing files, where it is not a matter of areas.
#include "Platform/Platform_File.h"

#include "Files/Base/Limits.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/Folder.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class PlatformFile : public ::testing::Test {
protected:
    void SetUp() override {
        m_root = Descriptor(::open(m_folder.Path().c_str(), O_RDONLY | O_DIRECTORY));
        WriteWholeFile(Path("folder/file"), "old");
    }

    [[nodiscard]] fs::path Path(const std::string& name) const { return m_folder.Path() / name; }
    [[nodiscard]] int Root() const { return m_root.Get(); }

private:
    TemporaryFolder m_folder;
    Descriptor m_root;
};

TEST_F(PlatformFile, NamesAreSplitAtTheirLastSlash) {
    struct Case {
        const char *name, *parent, *leaf;
    };
    for (const Case& each : {Case{"", "", ""}, {"a", "", "a"}, {"a/b", "a", "b"}, {"a/b/c", "a/b", "c"}}) {
        EXPECT_EQ(ParentOf(each.name), each.parent);
        EXPECT_EQ(LeafOf(each.name), each.leaf);
    }
}

TEST_F(PlatformFile, DescriptorsAreClosedAndNotInherited) {
    int before = OpenDescriptors();
    {
        Descriptor file = OpenBeneath(Root(), "folder/file", O_RDONLY);
        ASSERT_TRUE(file);
        EXPECT_EQ(::fcntl(file.Get(), F_GETFD), FD_CLOEXEC);
        Descriptor moved = std::move(file);
        EXPECT_EQ(OpenDescriptors(), before + 1);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(PlatformFile, AClosingDescriptorKeepsTheReasonOfAFailure) {
    FaultySystemCalls faults;
    faults.FailFrom("close", 1, EIO);
    {
        Descriptor file = OpenBeneath(Root(), "folder/file", O_RDONLY);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(PlatformFile, APathThatIsRenamedMeanwhileIsTriedAgainAndNotForever) {
    FaultySystemCalls once;
    once.FailAt(1, EAGAIN, FaultySystemCalls::Extent::once);
    EXPECT_TRUE(OpenBeneath(Root(), "folder/file", O_RDONLY));

    once.FailFrom("openat2", 1, EAGAIN);
    EXPECT_FALSE(OpenBeneath(Root(), "folder/file", O_RDONLY));
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_LE(once.Calls().size(), static_cast<size_t>(kMaxRetries) + 10);
}

TEST_F(PlatformFile, OnlyFilesAndMissingNamesAreReplaced) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    fs::create_directory(Path("folder/directory"));
    ASSERT_EQ(::mkfifo(Path("folder/fifo").c_str(), 0600), 0);

    EXPECT_EQ(ReplaceFile(folder.Get(), "directory", "x", 1, Durability::full), EISDIR);
    EXPECT_EQ(ReplaceFile(folder.Get(), "fifo", "x", 1, Durability::full), ENXIO);
    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), 0);
    EXPECT_EQ(ReplaceFile(folder.Get(), "fresh", nullptr, 0, Durability::none), 0);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "new");
    EXPECT_EQ(ReadWholeFile(Path("folder/fresh")), "");
    EXPECT_EQ(NamesIn(Path("folder")), (std::vector<std::string>{"directory", "fifo", "file", "fresh"}));
}

TEST_F(PlatformFile, AReaderOfTheOldFileKeepsIt) {
    Descriptor reader = OpenBeneath(Root(), "folder/file", O_RDONLY);
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), 0);

    char old[4] = {};
    EXPECT_EQ(ReadAll(reader.Get(), old, 3), 3);
    EXPECT_STREQ(old, "old");
}

TEST_F(PlatformFile, WhatSyncedTooLateIsTakenBack) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailFrom("fsync", 1, EIO);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), EIO);
    EXPECT_EQ(ReplaceFile(folder.Get(), "fresh", "new", 3, Durability::full), EIO);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
    EXPECT_EQ(NamesIn(Path("folder")), std::vector<std::string>{"file"});
}

TEST_F(PlatformFile, ASystemThatCannotExchangeNamesKeepsTheNewFileWhenTheLastSyncFails) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailWithFlags("renameat2", RENAME_EXCHANGE, EINVAL);
    faults.FailFrom("fsync", 1, EIO);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), EIO);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "new");
}

TEST_F(PlatformFile, AnErrorThatOnlyTheCloseReportsIsReported) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailFrom("close", 1, EIO);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::none), EIO);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
}

TEST_F(PlatformFile, ATreeOfTemporariesIsSweptWithoutFollowingLinks) {
    TemporaryFolder elsewhere;
    std::string leftover = std::string(kTemporaryPrefix) + "1-1";
    WriteWholeFile(elsewhere.Path() / leftover, "not ours");
    fs::create_directory_symlink(elsewhere.Path(), Path("link"));
    WriteWholeFile(Path("folder/" + leftover), "x");
    int before = OpenDescriptors();

    SweepTemporaries(Root());

    EXPECT_EQ(NamesIn(Path("folder")), std::vector<std::string>{"file"});
    EXPECT_TRUE(fs::exists(elsewhere.Path() / leftover));
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
}  // namespace kx::test
