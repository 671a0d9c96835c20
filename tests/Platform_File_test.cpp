// Opening, reading and renaming beneath a root, where it is not a matter of areas.
#include "Platform/Platform_File.h"

#include "Files/Base/Limits.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/RootTest.h"

#include <fcntl.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using PlatformFile = RootTest;

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

TEST_F(PlatformFile, ARenameMovesAcrossFoldersAndReplacesWhatIsThere) {
    WriteWholeFile(Path("other/target"), "gone");

    EXPECT_EQ(RenameBeneath(Root(), "folder/file", "other/target"), 0);

    EXPECT_EQ(ReadWholeFile(Path("other/target")), "old");
    EXPECT_FALSE(fs::exists(Path("folder/file")));
}

TEST_F(PlatformFile, ARenameThatCannotBeChangesNothing) {
    fs::create_directory(Path("directory"));

    EXPECT_EQ(RenameBeneath(Root(), "folder/file", "missing/file"), ENOENT);
    EXPECT_EQ(RenameBeneath(Root(), "folder/missing", "folder/new"), ENOENT);
    EXPECT_EQ(RenameBeneath(Root(), "folder/file", "directory"), EISDIR);
    EXPECT_EQ(RenameBeneath(Root(), "missing/file", "folder/new"), ENOENT);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
}

}  // namespace
}  // namespace kx::test
