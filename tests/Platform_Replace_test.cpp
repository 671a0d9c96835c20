// Replacing files whole, where it is not a matter of areas.
#include "Platform/Platform_Replace.h"

#include "tests/support/FaultySystemCalls.h"
#include "tests/support/RootTest.h"

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using PlatformReplace = RootTest;

TEST_F(PlatformReplace, OnlyFilesAndMissingNamesAreReplaced) {
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

TEST_F(PlatformReplace, AReaderOfTheOldFileKeepsIt) {
    Descriptor reader = OpenBeneath(Root(), "folder/file", O_RDONLY);
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), 0);

    char old[4] = {};
    EXPECT_EQ(ReadAll(reader.Get(), old, 3), 3);
    EXPECT_STREQ(old, "old");
}

TEST_F(PlatformReplace, ANewFileGetsItsNameAtOnce) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls calls;

    EXPECT_EQ(ReplaceFile(folder.Get(), "fresh", "new", 3, Durability::full), 0);

    const std::vector<std::string>& made = calls.Calls();
    EXPECT_EQ(std::count(made.begin(), made.end(), "linkat"), 1);
    EXPECT_EQ(std::count(made.begin(), made.end(), "renameat2"), 0);
    EXPECT_EQ(ReadWholeFile(Path("folder/fresh")), "new");
}

TEST_F(PlatformReplace, AFileThatComesInBetweenIsReplacedWhole) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FileReplacement replacement(folder.Get(), "fresh", Durability::full);
    ASSERT_EQ(replacement.Begin(), 0);
    ASSERT_EQ(replacement.Write("ours", 4), 0);

    WriteWholeFile(Path("folder/fresh"), "somebody else's");

    EXPECT_EQ(replacement.Commit(), 0);
    EXPECT_EQ(ReadWholeFile(Path("folder/fresh")), "ours");
    EXPECT_EQ(NamesIn(Path("folder")), (std::vector<std::string>{"file", "fresh"}));
}

TEST_F(PlatformReplace, DurableContentsLeaveTheDirectoryToTheCaller) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    for (const char* name : {"file", "fresh"}) {
        FaultySystemCalls calls;
        EXPECT_EQ(ReplaceFile(folder.Get(), name, "new", 3, Durability::contents), 0);
        const std::vector<std::string>& made = calls.Calls();
        auto synced = std::find(made.begin(), made.end(), "fdatasync");
        EXPECT_LT(synced, std::find(made.begin(), made.end(), "linkat")) << name;
        EXPECT_EQ(std::count(made.begin(), made.end(), "fsync"), 0) << name;
    }
}

TEST_F(PlatformReplace, TheTimeOfModificationCanBeSet) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    for (const char* failing : {"none", "linkat"}) {
        FaultySystemCalls faults;
        faults.FailFrom(failing, 1, EPERM);
        for (const char* name : {"file", "fresh"}) {
            FileReplacement replacement(folder.Get(), name, Durability::none);
            ASSERT_EQ(replacement.Begin(), 0);
            ASSERT_EQ(replacement.Write("new", 3), 0);
            replacement.SetModified(1234567890);
            EXPECT_EQ(replacement.Commit(), 0);
            struct stat status {};
            ASSERT_EQ(::stat(Path(std::string("folder/") + name).c_str(), &status), 0);
            EXPECT_EQ(status.st_mtime, 1234567890) << name << ", " << failing;
        }
        fs::remove(Path("folder/fresh"));
    }
}

TEST_F(PlatformReplace, ATimeThatCannotBeSetIsNoReasonToLoseTheFile) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailFrom("futimens", 1, EPERM);  // as on file systems that give all files one owner
    FileReplacement replacement(folder.Get(), "file", Durability::none);
    ASSERT_EQ(replacement.Begin(), 0);
    ASSERT_EQ(replacement.Write("new", 3), 0);
    replacement.SetModified(1);
    EXPECT_EQ(replacement.Commit(), 0);
    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "new");
}

TEST_F(PlatformReplace, ADirectoryThatComesInBetweenStays) {
    for (const char* name : {"file", "fresh"}) {
        Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
        FileReplacement replacement(folder.Get(), name, Durability::full);
        ASSERT_EQ(replacement.Begin(), 0);
        ASSERT_EQ(replacement.Write("ours", 4), 0);

        fs::remove(Path("folder") / name);
        WriteWholeFile(Path("folder") / name / "inside", "somebody else's");

        EXPECT_EQ(replacement.Commit(), EISDIR) << name;
        EXPECT_EQ(ReadWholeFile(Path("folder") / name / "inside"), "somebody else's");
        EXPECT_EQ(NamesIn(Path("folder")).size(), name == std::string("file") ? 1u : 2u);
    }
}

TEST_F(PlatformReplace, WhatSyncedTooLateIsTakenBack) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailFrom("fsync", 1, EIO);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), EIO);
    EXPECT_EQ(ReplaceFile(folder.Get(), "fresh", "new", 3, Durability::full), EIO);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
    EXPECT_EQ(NamesIn(Path("folder")), std::vector<std::string>{"file"});
}

TEST_F(PlatformReplace, ASystemThatCannotExchangeNamesKeepsTheNewFileWhenTheLastSyncFails) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailWithFlags("renameat2", RENAME_EXCHANGE, EINVAL);
    faults.FailFrom("fsync", 1, EIO);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::full), EIO);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "new");
}

TEST_F(PlatformReplace, AnErrorThatOnlyTheCloseReportsIsReported) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    faults.FailFrom("close", 1, EIO);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", "new", 3, Durability::none), EIO);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
}

TEST_F(PlatformReplace, AFileMayBeWrittenInManyPieces) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FileReplacement replacement(folder.Get(), "file", Durability::full);

    ASSERT_EQ(replacement.Begin(), 0);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(replacement.Write("piece ", 6), 0);
    }
    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
    EXPECT_EQ(replacement.Commit(), 0);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")).size(), 6000u);
    EXPECT_EQ(NamesIn(Path("folder")), std::vector<std::string>{"file"});
}

TEST_F(PlatformReplace, WithoutACommitNothingIsLeft) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    for (bool named : {false, true}) {
        if (named) faults.FailWithFlags("openat", O_TMPFILE, EOPNOTSUPP);
        FileReplacement replacement(folder.Get(), "file", Durability::full);
        ASSERT_EQ(replacement.Begin(), 0);
        ASSERT_EQ(replacement.Write("new", 3), 0);
        EXPECT_EQ(NamesIn(Path("folder")).size(), named ? 2u : 1u);
    }
    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
    EXPECT_EQ(NamesIn(Path("folder")), std::vector<std::string>{"file"});
}

TEST_F(PlatformReplace, AFileThatGetsNoNameIsCopiedWhole) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    fs::permissions(Path("folder/file"), fs::perms(0640));
    std::string contents(300000, '\0');
    for (size_t i = 0; i < contents.size(); ++i) {
        contents[i] = static_cast<char>(i % 251);
    }
    FaultySystemCalls faults;
    faults.FailFrom("linkat", 1, EPERM);
    faults.FallShort(7777);

    EXPECT_EQ(ReplaceFile(folder.Get(), "file", contents.data(), contents.size(), Durability::full), 0);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), contents);
    EXPECT_EQ(fs::status(Path("folder/file")).permissions(), fs::perms(0640));
}

TEST_F(PlatformReplace, AFailedWriteFailsTheCommitToo) {
    Descriptor folder = OpenBeneath(Root(), "folder", O_RDONLY | O_DIRECTORY);
    FaultySystemCalls faults;
    FileReplacement replacement(folder.Get(), "file", Durability::full);
    ASSERT_EQ(replacement.Begin(), 0);
    faults.FailAt(1, ENOSPC, FaultySystemCalls::Extent::once);

    EXPECT_EQ(replacement.Write("new", 3), ENOSPC);
    EXPECT_EQ(replacement.Write("new", 3), ENOSPC);
    EXPECT_EQ(replacement.Commit(), ENOSPC);

    EXPECT_EQ(ReadWholeFile(Path("folder/file")), "old");
}

}  // namespace
}  // namespace kx::test
