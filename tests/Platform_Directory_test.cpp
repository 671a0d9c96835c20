// Listing, removing and sweeping directories beneath a root.
#include "Platform/Platform_Directory.h"

#include "tests/support/FaultySystemCalls.h"
#include "tests/support/Machine.h"
#include "tests/support/RootTest.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class PlatformDirectory : public RootTest {
protected:
    /// A chain of folders far deeper than a path may be long.
    void MakeDeep(const std::string& name, int depth) {
        fs::create_directory(Path(name));
        Descriptor at(::open(Path(name).c_str(), O_RDONLY | O_DIRECTORY));
        for (int i = 0; i < depth; ++i) {
            ASSERT_EQ(::mkdirat(at.Get(), "deeper", 0777), 0);
            Descriptor file(::openat(at.Get(), "file", O_WRONLY | O_CREAT, 0666));
            at = Descriptor(::openat(at.Get(), "deeper", O_RDONLY | O_DIRECTORY));
        }
    }
};

TEST_F(PlatformDirectory, AListTellsTheKindOfEachEntryAndFollowsNoLink) {
    fs::create_directory(Path("folder/directory"));
    fs::create_directory_symlink("directory", Path("folder/link"));
    ASSERT_EQ(::mkfifo(Path("folder/fifo").c_str(), 0600), 0);
    WriteWholeFile(Path("folder/.hidden"), "x");
    WriteWholeFile(Path("folder/line\nbreak \xff"), "x");
    WriteWholeFile(Path("folder/") / (std::string(kTemporaryPrefix) + "1-1"), "x");
    std::vector<DirectoryEntry> entries;

    ASSERT_EQ(ListDirectoryBeneath(Root(), "folder", &entries), 0);

    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    std::vector<std::pair<std::string, EntryKind>> found;
    for (const DirectoryEntry& entry : entries) {
        found.emplace_back(entry.name, entry.kind);
    }
    EXPECT_EQ(found, (std::vector<std::pair<std::string, EntryKind>>{{".hidden", EntryKind::file},
                                                                     {"directory", EntryKind::directory},
                                                                     {"fifo", EntryKind::other},
                                                                     {"file", EntryKind::file},
                                                                     {"line\nbreak \xff", EntryKind::file},
                                                                     {"link", EntryKind::link}}));
}

TEST_F(PlatformDirectory, AListThatBreaksOffSaysSo) {
    std::vector<DirectoryEntry> entries;
    FaultySystemCalls faults;
    faults.FailFrom("readdir", 2, EIO);

    EXPECT_EQ(ListDirectoryBeneath(Root(), "folder", &entries), EIO);
    EXPECT_EQ(ListDirectoryBeneath(Root(), "missing", &entries), ENOENT);
    EXPECT_EQ(ListDirectoryBeneath(Root(), "folder/file", &entries), ENOTDIR);
}

TEST_F(PlatformDirectory, ATreeIsRemovedWithItsLinksAndNothingBehindThem) {
    TemporaryFolder elsewhere;
    WriteWholeFile(elsewhere.Path() / "kept", "x");
    WriteWholeFile(Path("kept/too"), "x");
    WriteWholeFile(Path("folder/a/b/c"), "x");
    WriteWholeFile(Path("folder/a/.hidden"), "x");
    fs::create_directory_symlink(elsewhere.Path(), Path("folder/a/out"));
    fs::create_directory_symlink("../kept", Path("folder/in"));
    fs::create_directory_symlink(".", Path("folder/loop"));
    ASSERT_EQ(::mkfifo(Path("folder/fifo").c_str(), 0600), 0);

    EXPECT_EQ(RemoveTreeBeneath(Root(), "folder"), 0);

    EXPECT_FALSE(fs::exists(Path("folder")));
    EXPECT_TRUE(fs::exists(elsewhere.Path() / "kept"));
    EXPECT_TRUE(fs::exists(Path("kept/too")));
}

TEST_F(PlatformDirectory, OnlyADirectoryIsATree) {
    fs::create_directory_symlink("folder", Path("link"));

    EXPECT_EQ(RemoveTreeBeneath(Root(), "missing"), ENOENT);
    EXPECT_EQ(RemoveTreeBeneath(Root(), "folder/file"), ENOTDIR);
    EXPECT_NE(RemoveTreeBeneath(Root(), "link"), 0);

    EXPECT_TRUE(fs::exists(Path("folder/file")));
}

TEST_F(PlatformDirectory, ATreeOfManyFilesAndLevelsTakesAHandfulOfDescriptors) {
    fs::create_directory(Path("wide"));
    Descriptor wide(::open(Path("wide").c_str(), O_RDONLY | O_DIRECTORY));
    for (int i = 0; i < 100000; ++i) {
        Descriptor file(::openat(wide.Get(), std::to_string(i).c_str(), O_WRONLY | O_CREAT, 0666));
        ASSERT_TRUE(file);
    }
    MakeDeep("wide/deep", KnowsOpenat2() ? 2000 : 400);  // without, every step walks from the root
    int before = OpenDescriptors();
    int most = 0;
    int calls = 0;
    FaultySystemCalls faults;
    faults.OnCall([&] {
        if (++calls % 1000 == 0) most = std::max(most, OpenDescriptors());
    });

    EXPECT_EQ(RemoveTreeBeneath(Root(), "wide"), 0);

    EXPECT_FALSE(fs::exists(Path("wide")));
    EXPECT_LE(most, before + 8);
}

TEST_F(PlatformDirectory, WhatCannotBeRemovedStaysAndTheRestGoes) {
    int failures = 0;
    for (int number = 1;; ++number) {
        WriteWholeFile(Path("folder/a/one"), "x");
        WriteWholeFile(Path("folder/b/two"), "x");
        FaultySystemCalls each;
        each.FailAt(number, EACCES, FaultySystemCalls::Extent::once);
        int reason = RemoveTreeBeneath(Root(), "folder");
        bool reached = each.Calls().size() >= static_cast<size_t>(number);
        if (!reached) break;
        failures += reason != 0;
        if (reason) {
            EXPECT_TRUE(fs::exists(Path("folder"))) << number;
        } else {
            EXPECT_FALSE(fs::exists(Path("folder"))) << number;
        }
        ASSERT_LT(number, 200);
    }
    EXPECT_GT(failures, 10);
    EXPECT_FALSE(fs::exists(Path("folder")));
}

TEST_F(PlatformDirectory, ATreeThatKeepsFillingUpIsGivenUp) {
    FaultySystemCalls faults;
    faults.OnCall([&] {
        if (!faults.Calls().empty() && faults.Calls().back() == "closedir") WriteWholeFile(Path("folder/again"), "x");
    });

    EXPECT_EQ(RemoveTreeBeneath(Root(), "folder"), ENOTEMPTY);
}

TEST_F(PlatformDirectory, ATreeOfTemporariesIsSweptWithoutFollowingLinks) {
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
