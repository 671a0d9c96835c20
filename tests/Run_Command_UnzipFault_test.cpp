// Faults that only unpacking shows: what is there afterwards are whole files.
#include "tests/Run_Command_Unzip_fixture.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using Extent = FaultySystemCalls::Extent;

bool (*const kNobody)(const UnzipProgress&) = nullptr;

class UnzipFaults : public UnzipTest {
protected:
    void TearDown() override {
        SetUnzipObserver(kNobody);
        UnzipTest::TearDown();
    }

    /// Why an archive's second entry cannot be unpacked. The first one is there then, the second one is as it was, the
    /// third one is not there.
    std::string FailureOf(ZipEntry entry) {
        entry.name = "second";
        fs::remove_all(To());
        WriteWholeFile(To("second"), "old");
        int descriptors = OpenDescriptors();
        long long blocks = MemoryManager::Stats().blocks;

        EXPECT_EQ(Unzip({Deflated("first", "good"), entry, {"third", "good"}}), -1);

        bool whole = ContentsBelow(To()) == Snapshot{{"first", "good"}, {"second", "old"}};
        EXPECT_TRUE(whole) << "not the first file alone";
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
        EXPECT_EQ(TakeError(), "");
        return Why();
    }
};

// --- what the bytes turn out to be -----------------------------------------------------------------------------------

TEST_F(UnzipFaults, AWrongChecksumIsFound) {
    for (size_t size : {0u, 1u, 1000u, 1000000u}) {
        ZipEntry stored{"", std::string(size, 's')};
        stored.crc = Crc32(stored.contents) ^ 1;
        ZipEntry deflated = Deflated("", stored.contents);
        deflated.crc = stored.crc;
        ZipEntry later = deflated;
        later.flags = kWithDescriptor;
        ZipEntry changed{"", std::string(size, 's')};
        changed.crc = Crc32(changed.contents + "?");

        for (const ZipEntry& entry : {stored, deflated, later, changed}) {
            EXPECT_EQ(FailureOf(entry), "entry \"second\" has a wrong checksum") << size;
        }
    }
}

TEST_F(UnzipFaults, SizesThatAreDeclaredTooSmallOrTooLargeAreFound) {
    for (size_t size : {10u, 100000u, 1000000u}) {
        ZipEntry entry = Deflated("", std::string(size, 'x'));
        for (size_t less : {size_t{1}, size / 2, size}) {
            entry.size = size - less;
            entry.crc = Crc32(std::string(size - less, 'x'));
            EXPECT_EQ(FailureOf(entry), "entry \"second\" is longer than its directory says") << size << ", " << less;
        }
        for (size_t more : {size_t{1}, size, size_t{1} << 30}) {
            entry.size = size + more;
            entry.crc.reset();
            EXPECT_EQ(FailureOf(entry), "entry \"second\" is shorter than its directory says") << size << ", " << more;
        }
    }
}

TEST_F(UnzipFaults, AFileOfOneSizeThatIsStoredAsAnotherIsNone) {
    for (uint64_t size : {0, 4, 6, 1000000}) {
        ZipEntry entry{"second", "12345"};
        entry.size = size;
        WriteWholeFile(To("second"), "old");

        EXPECT_EQ(Unzip({entry}), -1);

        EXPECT_EQ(Why().find("entry \"second\" "), 0u) << size;
        EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"second", "old"}}));
    }
}

TEST_F(UnzipFaults, ABombThatCallsItselfSmallIsStopped) {
    LoadSave::SetDurability(Durability::none);
    for (uint64_t size : {0, 1, 1000}) {
        ZipEntry bomb = Zeros("", 2048);
        bomb.size = size;
        EXPECT_EQ(FailureOf(bomb), "entry \"second\" is longer than its directory says") << size;
    }
}

TEST_F(UnzipFaults, BytesThatAreNothingDeflatedAreFound) {
    std::string contents;
    for (unsigned int i = 0; i < 200000; ++i) {
        contents += static_cast<char>('a' + i * i % 7);
    }
    ZipEntry broken = Deflated("", contents);
    broken.packed = RawDeflate(contents);
    for (size_t at : {size_t{0}, broken.packed->size() / 2}) {
        std::string packed = RawDeflate(contents);
        std::fill(packed.begin() + static_cast<long>(at), packed.end(), '\xff');
        broken.packed = packed;
        std::string why = FailureOf(broken);
        bool expected = why == "entry \"second\" is damaged" || why == "entry \"second\" has a wrong checksum" ||
                        why == "entry \"second\" is longer than its directory says" ||
                        why == "entry \"second\" is shorter than its directory says";
        EXPECT_TRUE(at == 0 ? why == "entry \"second\" is damaged" : expected) << why;
    }
}

TEST_F(UnzipFaults, BytesThatEndTooEarlyAreFound) {
    std::string contents(200000, 'c');
    std::string packed = RawDeflate(contents);
    for (size_t size : {size_t{0}, size_t{1}, packed.size() / 2}) {
        ZipEntry cut = Deflated("", contents);
        cut.packed = packed.substr(0, size);
        std::string why = FailureOf(cut);
        bool expected =
            why == "entry \"second\" is damaged" || why == "entry \"second\" is shorter than its directory says";
        EXPECT_TRUE(expected) << size << ": " << why;
    }
}

// --- the archive changes ---------------------------------------------------------------------------------------------

std::function<void()> g_meanwhile;

/// Does something once, when the first bytes of an extraction are written.
bool Interfere(const UnzipProgress&) {
    if (g_meanwhile) std::exchange(g_meanwhile, nullptr)();
    return true;
}

TEST_F(UnzipFaults, AnArchiveThatIsReplacedMeanwhileIsReadToItsEnd) {
    SetUnzipObserver(&Interfere);
    g_meanwhile = [&] {
        WriteWholeFile(Bundle("new"), "no archive");
        fs::rename(Bundle("new"), Archive());
    };

    EXPECT_EQ(Unzip({{"big", std::string(2000000, 'b')}, Deflated("last", "x")}), 2);

    EXPECT_EQ(ReadWholeFile(To("last")), "x");
    EXPECT_EQ(ReadWholeFile(Archive()), "no archive");
}

TEST_F(UnzipFaults, AnArchiveThatIsCutMeanwhileGivesWholeFilesOnly) {
    SetUnzipObserver(&Interfere);
    g_meanwhile = [&] { fs::resize_file(Archive(), 0); };
    std::string big(3000000, 'b');

    EXPECT_EQ(Unzip({{"big", big}, Deflated("last", std::string(1000000, 'l'))}), -1);

    EXPECT_NE(m_console.Take(), "");
    for (const auto& [name, contents] : ContentsBelow(To())) {
        EXPECT_TRUE(name == "big" && contents == big) << name;
    }
}

TEST_F(UnzipFaults, ADirectoryThatBecomesALinkMeanwhileLeadsNowhere) {
    SetUnzipObserver(&Interfere);
    fs::create_directories(To("d"));
    g_meanwhile = [&] {
        fs::rename(To("d"), To("was d"));
        fs::create_directory_symlink("../..", To("d"));
    };

    int written = Unzip({{"big", std::string(2000000, 'b')}, {"d/outside", "overwritten"}, {"d/new", "x"}});

    EXPECT_FALSE(fs::exists(Save().parent_path() / "new"));  // and "outside" is looked at when the test ends
    EXPECT_TRUE(written == -1 || fs::exists(To("was d/new")));
}

// --- the disk --------------------------------------------------------------------------------------------------------

TEST_F(UnzipFaults, AFullDiskKeepsWhatIsThereAndSaysSo) {
    WriteWholeFile(To("b"), "old");
    Entries entries = {{"a", std::string(1000, 'a')}, {"b", std::string(1000000, 'b')}, {"c", "c"}};
    WriteWholeFile(Archive(), Build(entries));
    int descriptors = OpenDescriptors();
    {
        FaultySystemCalls faults;
        faults.FailFrom("write", 2, ENOSPC);
        EXPECT_EQ(Command(Archive(), To()), -1);
    }

    EXPECT_EQ(Why(), std::string("entry \"b\" cannot be written: ") + std::strerror(ENOSPC));
    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"a", std::string(1000, 'a')}, {"b", "old"}}));
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(UnzipFaults, ShortAndInterruptedCallsDoNotShow) {
    Entries entries = {Deflated("a", std::string(300000, 'a')), {"d/b", std::string(30000, 'b')}, {"e/"}};
    WriteWholeFile(Archive(), Build(entries));
    FaultySystemCalls faults;
    faults.FallShort(97);
    faults.InterruptEach();

    EXPECT_EQ(Command(Archive(), To()), 2) << m_console.Take();

    EXPECT_TRUE(ReadWholeFile(To("a")) == entries[0].contents);
    EXPECT_TRUE(ReadWholeFile(To("d/b")) == entries[1].contents);
}

class EveryUnzipFault : public UnzipFaults, public ::testing::WithParamInterface<Extent> {
protected:
    static constexpr int kFiles = 4;
    const Entries m_entries = {{"replaced", "new"},
                               Deflated("d/fresh", std::string(300000, 'f')),
                               {"e/"},
                               {"d/also replaced", "new"},
                               {"f", ""}};

    /// @return false where the extraction ends before the call that is to fail.
    bool UnzipWithFault(int number, int reason) {
        fs::remove_all(To());
        WriteWholeFile(To("replaced"), "old");
        WriteWholeFile(To("d/also replaced"), "old");
        int descriptors = OpenDescriptors();
        long long blocks = MemoryManager::Stats().blocks;
        int written = 0;
        size_t calls = 0;
        bool restart = false;
        {
            FaultySystemCalls faults;
            faults.FailAt(number, reason, GetParam());
            written = Command(Archive(), To());
            calls = faults.Calls().size();
            // What cannot be removed stays until the next start.
            bool kept =
                calls >= static_cast<size_t>(number) && faults.Calls()[static_cast<size_t>(number) - 1] == "unlinkat";
            if (kept) restart = true;
        }
        if (restart) {
            EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);
        }
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
        EXPECT_EQ(m_console.Take().empty(), written == kFiles);
        EXPECT_TRUE(written == -1 || written == kFiles) << written;
        Check(written == kFiles);
        return calls >= static_cast<size_t>(number);
    }

    void Check(bool allNew) {
        Snapshot files = ContentsBelow(To());
        for (const ZipEntry& entry : m_entries) {
            auto found =
                files.find(entry.name.back() == '/' ? entry.name.substr(0, entry.name.size() - 1) : entry.name);
            bool isNew = found != files.end() && (found->second == entry.contents || entry.name.back() == '/');
            EXPECT_TRUE(isNew || !allNew) << entry.name << " is not new, but success was reported";
            bool whole = isNew || found == files.end() || found->second == "old";
            EXPECT_TRUE(whole) << entry.name << " is neither old nor new";
        }
        for (const auto& [name, contents] : files) {
            EXPECT_EQ(name.find(kTemporaryPrefix), std::string::npos) << name << " is left";
        }
    }
};

TEST_P(EveryUnzipFault, LeavesWholeFilesAndNoTemporaries) {
    WriteWholeFile(Archive(), Build(m_entries));
    int points = 0;
    for (Durability durability : {Durability::full, Durability::none}) {
        LoadSave::SetDurability(durability);
        for (int reason : {ENOSPC, EIO, ENOENT, EMFILE}) {
            for (int number = 1; UnzipWithFault(number, reason); ++number) {
                ++points;
                ASSERT_LT(number, 1000);
                ASSERT_FALSE(HasFailure()) << "call " << number << ": " << std::strerror(reason);
            }
        }
    }
    EXPECT_GT(points, 200);
}

INSTANTIATE_TEST_SUITE_P(Extents, EveryUnzipFault, ::testing::Values(Extent::once, Extent::makingCalls),
                         [](const auto& extent) {
                             return extent.param == Extent::once ? "once" : "full_from_then_on";
                         });

TEST_F(UnzipFaults, WithoutMemoryFilesStayWholeToo) {
    WriteWholeFile(Archive(), Build({{"d/a", "new"}, Deflated("b", "new")}));
    for (const char* call : {"futimens", "fdatasync"}) {  // what follows each can throw
        fs::remove_all(To());
        WriteWholeFile(To("b"), "old");
        int descriptors = OpenDescriptors();
        long long blocks = MemoryManager::Stats().blocks;
        bool thrown = false;
        {
            FaultySystemCalls faults;
            faults.OnCall([&] {
                bool now = !thrown && !faults.Calls().empty() && faults.Calls().back() == call;
                if (!now) return;
                thrown = true;
                throw std::bad_alloc();
            });
            EXPECT_THROW(Command(Archive(), To()), std::bad_alloc) << call;
        }
        EXPECT_EQ(ReadWholeFile(To("b")), "old") << call;
        for (const auto& [name, contents] : ContentsBelow(To())) {
            EXPECT_EQ(name.find(kTemporaryPrefix), std::string::npos) << call << ": " << name;
        }
        EXPECT_EQ(OpenDescriptors(), descriptors) << call;
        EXPECT_EQ(MemoryManager::Stats().blocks, blocks) << call;
    }
}

}  // namespace
}  // namespace kx::test
