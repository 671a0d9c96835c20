// How the files of an archive are written: in one step each, durably, watched, and in little memory.
#include "Platform/Sanitizer.h"
#include "tests/Run_Command_Unzip_fixture.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class UnzippedFiles : public UnzipTest {};

/// Watches extractions as long as it lives.
class Watching {
public:
    using Watch = std::function<bool(const UnzipProgress&)>;

    explicit Watching(Watch watch) {
        s_watch = std::move(watch);
        m_before = SetUnzipObserver(&Observe);
    }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;
    ~Watching() { EXPECT_EQ(SetUnzipObserver(m_before), &Observe); }

private:
    static bool Observe(const UnzipProgress& progress) { return s_watch(progress); }

    static inline Watch s_watch;
    UnzipObserver m_before;
};

// --- replacing -------------------------------------------------------------------------------------------------------

TEST_F(UnzippedFiles, ReplaceThoseThatAreThereAndKeepTheirPermissions) {
    WriteWholeFile(To("a"), "old");
    WriteWholeFile(To("unrelated"), "stays");
    fs::permissions(To("a"), fs::perms(0600));
    fs::create_hard_link(To("a"), Save("same"));

    EXPECT_EQ(Unzip({UnixEntry("a", 0100755, "new")}), 1);

    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"a", "new"}, {"unrelated", "stays"}}));
    EXPECT_EQ(fs::status(To("a")).permissions(), fs::perms(0600));
    EXPECT_EQ(ReadWholeFile(Save("same")), "old");  // it was not written into
}

TEST_F(UnzippedFiles, ReplaceInOneStep) {
    WriteWholeFile(To("a"), "old");
    std::string contents(3 << 20, 'n');
    std::ifstream reader(To("a"), std::ios::binary);
    int looks = 0;
    bool mixed = false;
    Watching watching([&](const UnzipProgress& progress) {
        std::string seen = ReadWholeFile(To("a"));
        bool whole = seen == "old" || (seen == contents && progress.bytes == progress.allBytes);
        if (!whole) mixed = true;
        ++looks;
        return true;
    });

    EXPECT_EQ(Unzip({Deflated("a", contents)}), 1);

    EXPECT_GE(looks, 12);
    EXPECT_FALSE(mixed);
    EXPECT_TRUE(ReadWholeFile(To("a")) == contents);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old");
}

TEST_F(UnzippedFiles, ComeAgainFromTheSameArchive) {
    Entries entries = {{"a", "x"}, Deflated("d/b", "y"), {"e/"}};

    EXPECT_EQ(Unzip(entries), 2);
    EXPECT_EQ(Unzip(entries), 2);

    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"a", "x"}, {"d", "<directory>"}, {"d/b", "y"}, {"e", "<directory>"}}));
}

TEST_F(UnzippedFiles, LeaveNothingBehindInTheProcess) {
    Entries entries = {{"a", "x"}, Deflated("d/b", std::string(1000000, 'b')), {"e/"}};
    Unzip(entries);
    int descriptors = OpenDescriptors();
    auto before = MemoryManager::Stats();

    EXPECT_EQ(Unzip(entries), 2);

    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(MemoryManager::Stats().blocks, before.blocks);
    EXPECT_EQ(MemoryManager::Stats().bytes, before.bytes);
}

TEST_F(UnzippedFiles, OfTwoExtractionsAtATimeAreEachOneOrTheOther) {
    LoadSave::SetDurability(Durability::none);
    const char* archives[] = {"1.zip", "2.zip"};
    for (const char* archive : archives) {
        Entries entries;
        for (int i = 0; i < 100; ++i) {
            entries.push_back(
                Deflated("d" + std::to_string(i % 10) + "/" + std::to_string(i), std::string(5000, *archive)));
        }
        WriteWholeFile(Bundle(archive), Build(entries));
    }
    int written[] = {0, 0};
    std::thread other([&] { written[1] = Command(Bundle(archives[1]), To()); });
    written[0] = Command(Bundle(archives[0]), To());
    other.join();

    EXPECT_EQ(written[0], 100);
    EXPECT_EQ(written[1], 100);
    Snapshot files = ContentsBelow(To());
    EXPECT_EQ(files.size(), 110u);
    for (const auto& [name, contents] : files) {
        bool one = contents == std::string(5000, '1') || contents == std::string(5000, '2');
        EXPECT_TRUE(one || contents == "<directory>") << name;
    }
}

// --- the disk --------------------------------------------------------------------------------------------------------

/// Writes down what is brought to the disk, and which files get their names, in this order.
class DiskLog {
public:
    struct Event {
        bool named;  // else synced
        ino_t inode;
    };

    DiskLog() : m_real(g_systemCalls) {
        s_active = this;
        g_systemCalls.fsync = [](int file) { return s_active->Synced(s_active->m_real.fsync, file); };
        g_systemCalls.fdatasync = [](int file) { return s_active->Synced(s_active->m_real.fdatasync, file); };
        g_systemCalls.linkat = [](int fromDirectory, const char* from, int directory, const char* to, int flags) {
            return s_active->Named(s_active->m_real.linkat(fromDirectory, from, directory, to, flags), directory, to);
        };
        g_systemCalls.renameat2 = [](int fromDirectory, const char* from, int directory, const char* to,
                                     unsigned int flags) {
            return s_active->Named(s_active->m_real.renameat2(fromDirectory, from, directory, to, flags), directory,
                                   to);
        };
    }
    DiskLog(const DiskLog&) = delete;
    DiskLog& operator=(const DiskLog&) = delete;
    ~DiskLog() { g_systemCalls = m_real; }

    /// Where an event of a file or directory stands first, -1 for nowhere; and how many there are.
    [[nodiscard]] long First(bool named, const fs::path& path) const {
        ino_t inode = InodeOf(path);
        auto found = std::find_if(m_events.begin(), m_events.end(),
                                  [&](const Event& event) { return event.named == named && event.inode == inode; });
        return found == m_events.end() ? -1 : found - m_events.begin();
    }
    [[nodiscard]] long Syncs(const fs::path& path) const {
        ino_t inode = InodeOf(path);
        return std::count_if(m_events.begin(), m_events.end(),
                             [&](const Event& event) { return !event.named && event.inode == inode; });
    }
    [[nodiscard]] bool IsEmpty() const {
        return std::all_of(m_events.begin(), m_events.end(), [](const Event& event) { return event.named; });
    }

private:
    static ino_t InodeOf(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_ino;
    }

    int Synced(int (*sync)(int), int file) {
        struct stat status {};
        ::fstat(file, &status);
        m_events.push_back({false, status.st_ino});
        return sync(file);
    }

    int Named(int result, int directory, const char* to) {
        struct stat status {};
        bool itsOwn = result == 0 && std::strncmp(to, kTemporaryPrefix, std::strlen(kTemporaryPrefix)) != 0;
        if (itsOwn && ::fstatat(directory, to, &status, AT_SYMLINK_NOFOLLOW) == 0) {
            m_events.push_back({true, status.st_ino});
        }
        return result;
    }

    static inline DiskLog* s_active = nullptr;
    SystemCalls m_real;
    std::vector<Event> m_events;
};

TEST_F(UnzippedFiles, AreOnTheDiskBeforeTheyGetTheirNamesAndEachDirectoryOnce) {
    WriteWholeFile(To("old/replaced"), "old");
    Entries entries = {{"old/replaced", "new"}, {"empty"}};
    for (int i = 0; i < 20; ++i) {
        entries.push_back(Deflated((i % 2 ? "odd/" : "even/") + std::to_string(i), "x"));
    }
    DiskLog disk;

    EXPECT_EQ(Unzip(entries), 22);

    for (const ZipEntry& entry : entries) {
        long synced = disk.First(false, To(entry.name));
        EXPECT_GE(synced, 0) << entry.name;
        EXPECT_GT(disk.First(true, To(entry.name)), synced) << entry.name;
        EXPECT_EQ(disk.Syncs(To(entry.name)), 1) << entry.name;
    }
    for (const char* directory : {"", "old", "odd", "even"}) {
        EXPECT_EQ(disk.Syncs(To(directory)), 1) << directory;
    }
}

TEST_F(UnzippedFiles, LeaveTheirDirectoriesToThoseWhoSyncThemThemselves) {
    LoadSave::SetDurability(Durability::contents);
    DiskLog disk;

    EXPECT_EQ(Unzip({{"a", "x"}, {"d/b", "y"}}), 2);

    EXPECT_EQ(disk.Syncs(To("a")), 1);
    EXPECT_EQ(disk.Syncs(To("d/b")), 1);
    EXPECT_EQ(disk.Syncs(To("d")), 0);
    EXPECT_EQ(disk.Syncs(To()), 0);
}

TEST_F(UnzippedFiles, AreNotSyncedWhereTheyNeedNotBe) {
    LoadSave::SetDurability(Durability::none);
    DiskLog disk;

    EXPECT_EQ(Unzip({{"a", "x"}, {"d/b", "y"}, {"e/"}}), 2);

    EXPECT_TRUE(disk.IsEmpty());
}

// --- the observer ----------------------------------------------------------------------------------------------------

TEST_F(UnzippedFiles, AreToldOfAtLeastEvery256Kilobytes) {
    constexpr unsigned long long kStep = 256 << 10;
    Entries entries = {{"stored", std::string(1000000, 's')}, Deflated("deflated", std::string(2000000, 'd')), {"e/"}};
    unsigned long long last = 0, gap = 0;
    int lastFiles = 0, calls = 0;
    bool forward = true, right = true;
    Watching watching([&](const UnzipProgress& progress) {
        forward = forward && progress.bytes >= last && progress.files >= lastFiles;
        right = right && progress.archive == Archive() && progress.allFiles == 2 && progress.allBytes == 3000000 &&
                progress.bytes <= progress.allBytes && progress.files <= progress.allFiles;
        gap = std::max(gap, progress.bytes - last);
        last = progress.bytes;
        lastFiles = progress.files;
        ++calls;
        return true;
    });

    EXPECT_EQ(Unzip(entries), 2);

    EXPECT_TRUE(forward);
    EXPECT_TRUE(right);
    EXPECT_LE(gap, kStep);
    EXPECT_LE(3000000 - last, kStep);
    EXPECT_GE(calls, 11);
}

TEST_F(UnzippedFiles, EndWhereTheObserverSaysSo) {
    Entries entries = {{"first", std::string(600000, '1')}, {"second", std::string(600000, '2')}, {"third", "3"}};
    WriteWholeFile(To("second"), "old");
    Watching watching([](const UnzipProgress& progress) { return progress.bytes <= 700000; });
    int descriptors = OpenDescriptors();

    EXPECT_EQ(Unzip(entries), -1);

    EXPECT_EQ(Why(), "stopped");
    bool whole = ContentsBelow(To()) == Snapshot{{"first", std::string(600000, '1')}, {"second", "old"}};
    EXPECT_TRUE(whole) << "not the first file alone";
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(UnzippedFiles, EndAfterAnEmptyFileWhereTheObserverSaysSo) {
    Watching watching([](const UnzipProgress& progress) { return progress.files < 2; });

    EXPECT_EQ(Unzip({{"first", ""}, {"second", ""}, {"third", ""}}), -1);

    EXPECT_EQ(Why(), "stopped");
    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"first", ""}, {"second", ""}}));
}

TEST_F(UnzippedFiles, AreNoneWhereTheObserverNeverWantsAny) {
    Watching watching([](const UnzipProgress&) { return false; });

    EXPECT_EQ(Unzip({{"a", std::string(300000, 'a')}, {"b", "x"}}), -1);

    EXPECT_EQ(Why(), "stopped");
    EXPECT_FALSE(fs::exists(To("b")));
}

// --- memory ----------------------------------------------------------------------------------------------------------

#if !KX_ADDRESS_SANITIZER && !KX_THREAD_SANITIZER  // they take memory of their own
/// The most that this process has had in memory, in KiB.
long PeakMemory() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST_F(UnzippedFiles, MayBeAThousandTimesAsLargeAsTheArchive) {
    LoadSave::SetDurability(Durability::none);
    WriteWholeFile(Archive(), Build({Zeros("zeros", 1024)}));
    ASSERT_LT(fs::file_size(Archive()), 2u << 20);
    constexpr long kBound = 16 << 10;

    pid_t child = ::fork();
    if (child == 0) {
        long before = PeakMemory();
        int written = Command(Archive(), To());
        ::_exit(written != 1 ? 1 : PeakMemory() - before > kBound ? 2 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(fs::file_size(To("zeros")), 1u << 30);
}

TEST_F(UnzippedFiles, MayBeManyInLittleMemory) {
    LoadSave::SetDurability(Durability::none);
    ZipBuilder builder;
    for (int i = 0; i < 20000; ++i) {
        builder.Add({"d" + std::to_string(i % 100) + "/" + std::to_string(i), "x"});
    }
    WriteWholeFile(Archive(), builder.Finish());
    constexpr long kBound = 48 << 10;

    pid_t child = ::fork();
    if (child == 0) {
        long before = PeakMemory();
        int written = Command(Archive(), To());
        ::_exit(written != 20000 ? 1 : PeakMemory() - before > kBound ? 2 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadWholeFile(To("d99/19999")), "x");
}
#endif

}  // namespace
}  // namespace kx::test
