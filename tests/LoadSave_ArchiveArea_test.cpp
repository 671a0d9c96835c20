// A zip archive as the bundle.
#include "Files/Run/Run_Command.h"
#include "tests/Function_File_fixture.h"
#include "tests/support/ZipBuilder.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

using Entries = std::vector<ZipEntry>;
using Names = std::vector<std::string>;

/// An archive beside the save area, and what a game may have in it.
class ArchiveBundle : public BuiltInsTest {
protected:
    [[nodiscard]] fs::path Game() const { return Save().parent_path() / "game.zip"; }

    int ShipBytes(const std::string& bytes) {
        WriteWholeFile(Game(), bytes);
        return LoadSave::SetBundleArea(Game().c_str());
    }
    int Ship(const Entries& entries, const ZipFrame& frame = {}) { return ShipBytes(Build(entries, frame)); }

    void ShipGame() {
        Entries entries = {Deflated("readme.txt", "first line\nsecond line\n"),
                           {"data/numbers.bin", std::string("\0\1\2\3", 4)},
                           {"data/settings.ini", "[audio]\nmusic=0.5\n"},
                           {"data/table.csv", "a,b\n1,2\n"},
                           {".secret", "hidden"},
                           {"empty/"},
                           Deflated("levels\\one\\map.txt", std::string(100000, 'm'))};
        ASSERT_EQ(Ship(entries), 0) << m_console.Take();
    }

    /// A bundle file's bytes; "(none)" where it cannot be read.
    static std::string Read(const std::string& name) {
        int size = 0;
        char* bytes = LoadSave::ReadBundleFile(name.c_str(), &size);
        if (!bytes) return "(none)";
        std::string text(bytes, static_cast<size_t>(size));
        MemoryManager::Free(bytes);
        return text;
    }

    static Names Find(const std::string& mask, int attributes) {
        Names names;
        for (std::string name = Call("file_find_first", {mask, attributes}).Text(); !name.empty();
             name = Call("file_find_next").Text()) {
            names.push_back(name);
        }
        Call("file_find_close");
        std::sort(names.begin(), names.end());
        return names;
    }

    /// The line about an archive that is refused.
    [[nodiscard]] std::string Refusal(const std::string& why) const {
        return "Failed to open archive: " + Game().string() + " (" + why + ")\n";
    }
};

// --- what scripts read -----------------------------------------------------------------------------------------------

TEST_F(ArchiveBundle, FilesAreReadByEveryBuiltInThatReads) {
    ShipGame();

    Value text = Call("file_text_open_read", {"readme.txt"});
    EXPECT_EQ(Call("file_text_read_string", {text}).Text(), "first line");
    Call("file_text_readln", {text});
    EXPECT_EQ(Call("file_text_read_string", {text}).Text(), "second line");
    Call("file_text_close", {text});
    Value bytes = Call("file_bin_open", {"data/numbers.bin", 0});
    EXPECT_EQ(Call("file_bin_size", {bytes}).Real(), 4);
    Call("file_bin_seek", {bytes, 3});
    EXPECT_EQ(Call("file_bin_read_byte", {bytes}).Real(), 3);
    Call("file_bin_close", {bytes});
    Call("ini_open", {"data/settings.ini"});
    EXPECT_EQ(Call("ini_read_real", {"audio", "music", 0}).Real(), 0.5);
    Call("ini_close");
    auto grid = static_cast<int>(Call("load_csv", {"data/table.csv"}).Real());
    EXPECT_GE(grid, 0);
    FreeDsGrid(grid);

    EXPECT_EQ(m_console.Take(), "");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(ArchiveBundle, FilesAndDirectoriesAreThereByTheirNames) {
    ShipGame();
    struct Case {
        const char* name;
        double file, directory, attributes;
    };
    for (const Case& each : {Case{"readme.txt", 1, 0, 33},
                             {"./data/../readme.txt", 1, 0, 33},
                             {"data\\settings.ini", 1, 0, 33},
                             {"levels/one/map.txt", 1, 0, 33},
                             {".secret", 1, 0, 35},
                             {"data", 0, 1, 0},
                             {"data/", 0, 1, 0},
                             {"levels", 0, 1, 0},
                             {"levels/one", 0, 1, 0},
                             {"empty", 0, 1, 0},
                             {".", 0, 1, 0},
                             {"README.TXT", 0, 0, 0},
                             {"readme.txt/x", 0, 0, 0},
                             {"dat", 0, 0, 0},
                             {"missing", 0, 0, 0}}) {
        EXPECT_EQ(Call("file_exists", {each.name}).Real(), each.file) << each.name;
        EXPECT_EQ(Call("directory_exists", {each.name}).Real(), each.directory) << each.name;
        EXPECT_EQ(Call("file_attributes", {each.name, 0}).Real(), each.attributes) << each.name;
    }
    EXPECT_EQ(m_console.Take(), "");
}

TEST_F(ArchiveBundle, ASearchFindsWhatIsInADirectoryBesideWhatIsSaved) {
    ShipGame();
    WriteWholeFile(Save("data/numbers.bin"), "saved");
    WriteWholeFile(Save("data/own.txt"), "saved");

    EXPECT_EQ(Find("*", 0), Names{"readme.txt"});
    EXPECT_EQ(Find("*", 16), (Names{"data", "empty", "levels", "readme.txt"}));
    EXPECT_EQ(Find("*", 2), (Names{".secret", "readme.txt"}));
    EXPECT_EQ(Find("data/*", 0), (Names{"numbers.bin", "own.txt", "settings.ini", "table.csv"}));
    EXPECT_EQ(Find("levels/*", 16), Names{"one"});
    EXPECT_EQ(Find("levels/one/*.txt", 0), Names{"map.txt"});
    EXPECT_EQ(Find("empty/*", 16), Names{});
    EXPECT_EQ(Find("missing/*", 16), Names{});
    EXPECT_EQ(Find("../*", 16), Names{});
}

TEST_F(ArchiveBundle, ACopyComesOutOfTheArchive) {
    ShipGame();

    EXPECT_EQ(Call("file_copy", {"levels/one/map.txt", "copies/map.txt"}).Real(), 0);

    EXPECT_TRUE(ReadWholeFile(Save("copies/map.txt")) == std::string(100000, 'm'));
    EXPECT_EQ(Call("file_copy", {"data", "x"}).Real(), -1);
    EXPECT_FALSE(fs::exists(Save("x")));
}

TEST_F(ArchiveBundle, WhatIsSavedHidesWhatIsShippedAndTheArchiveIsNeverWritten) {
    ShipGame();
    std::string before = ReadWholeFile(Game());

    Value append = Call("file_text_open_append", {"readme.txt"});
    Call("file_text_write_string", {append, "third"});
    Call("file_text_close", {append});
    EXPECT_EQ(ReadWholeFile(Save("readme.txt")), "first line\nsecond line\nthird");
    EXPECT_EQ(Call("file_attributes", {"readme.txt", 0}).Real(), 32);
    EXPECT_EQ(Call("file_delete", {"readme.txt"}).Real(), 1);
    EXPECT_EQ(Call("file_exists", {"readme.txt"}).Real(), 1);
    EXPECT_EQ(Call("file_delete", {"readme.txt"}).Real(), 0);
    Call("file_rename", {"readme.txt", "x"});
    Call("directory_destroy", {"data"});
    EXPECT_EQ(Call("file_copy", {"data/table.csv", (Game() / "data/table2.csv").string()}).Real(), -1);
    m_console.Take();

    EXPECT_EQ(Read("readme.txt"), "first line\nsecond line\n");
    EXPECT_EQ(Read("data/table.csv"), "a,b\n1,2\n");
    EXPECT_EQ(ReadWholeFile(Game()), before);
}

TEST_F(ArchiveBundle, FullPathsAreTheArchivesWithTheEntrys) {
    ShipGame();
    char path[1024];

    ASSERT_EQ(LoadSave::_GetBundleFileName(path, sizeof path, "data\\./table.csv"), 0);

    EXPECT_EQ(path, (Game() / "data/table.csv").string());
    EXPECT_TRUE(LoadSave::BundleFileExists(path));
    EXPECT_EQ(Read(path), "a,b\n1,2\n");
    EXPECT_EQ(Call("file_exists", {path}).Real(), 1);
    _KXFILE* file = LoadSave::fopen(path, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(LoadSave::fgetc(file), 'a');
    EXPECT_EQ(LoadSave::fclose(file), 0);
    EXPECT_EQ(KXOpenStream(path, "rb"), nullptr);
    EXPECT_EQ(KXOpenStream(path, "wb"), nullptr);
    EXPECT_NE(LoadSave::_GetBundleFileName(path, sizeof path, "../save/x"), 0);
}

TEST_F(ArchiveBundle, AnArchiveInsideIsUnpacked) {
    ASSERT_EQ(Ship({Deflated("packs/inner.zip", Build({{"a", "x"}, Deflated("d/b", "y")})), {"no.zip", "text"}}), 0);

    EXPECT_EQ(Call("zip_unzip", {"packs/inner.zip", "out"}).Real(), 2) << m_console.Take();
    EXPECT_EQ(Call("zip_unzip", {"no.zip", "none"}).Real(), -1);

    EXPECT_EQ(m_console.Take(), "Failed to unzip: " + (Game() / "no.zip").string() + " (is no zip archive)\n");
    EXPECT_EQ(ReadWholeFile(Save("out/d/b")), "y");
    EXPECT_EQ(NamesIn(Save()), Names{"out"});
    EXPECT_EQ(TakeError(), "");
}

// --- forms -----------------------------------------------------------------------------------------------------------

TEST_F(ArchiveBundle, EveryFormOfArchiveIsRead) {
    ZipFrame frame;
    frame.prefix = "MZ stub";
    frame.comment = "comment";
    frame.zip64 = true;
    ZipEntry large = Deflated("large", std::string(70000, 'l'));
    large.zip64 = true;
    ZipEntry later = Deflated("later", "after the bytes");
    later.flags = kWithDescriptor;

    ASSERT_EQ(Ship({large,
                    later,
                    {"\x81"
                     "ber",
                     "old page"},
                    {"Upper", "1"},
                    {"upper", "2"},
                    {"none", ""}},
                   frame),
              0)
        << m_console.Take();

    EXPECT_TRUE(Read("large") == large.contents);
    EXPECT_EQ(Read("later"), "after the bytes");
    EXPECT_EQ(Read("über"), "old page");
    EXPECT_EQ(Read("Upper"), "1");
    EXPECT_EQ(Read("upper"), "2");
    EXPECT_EQ(Read("none"), "");
    EXPECT_EQ(Read("stub"), "(none)");
}

TEST_F(ArchiveBundle, AnArchiveOfNothingIsAnEmptyBundle) {
    ASSERT_EQ(Ship({}), 0) << m_console.Take();

    EXPECT_EQ(Call("directory_exists", {"."}).Real(), 1);
    EXPECT_EQ(Find("*", 255), Names{});
}

TEST_F(ArchiveBundle, TheOpenArchiveStaysReadableWhenItsFileIsReplaced) {
    ShipGame();
    WriteWholeFile(Save().parent_path() / "new", "no archive at all");
    fs::rename(Save().parent_path() / "new", Game());

    EXPECT_EQ(Read("readme.txt"), "first line\nsecond line\n");
    EXPECT_TRUE(Read("levels/one/map.txt") == std::string(100000, 'm'));
}

TEST_F(ArchiveBundle, AnotherBundleLeavesNothingOfTheArchiveBehind) {
    int descriptors = OpenDescriptors();
    long long blocks = MemoryManager::Stats().blocks;
    ShipGame();
    Read("readme.txt");
    Read("levels/one/map.txt");

    ASSERT_EQ(LoadSave::SetBundleArea(Bundle().c_str()), 0);

    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    EXPECT_FALSE(LoadSave::BundleFileExists("readme.txt"));
}

// --- archives that are no bundle -------------------------------------------------------------------------------------

TEST_F(ArchiveBundle, BrokenArchivesAreRefusedAndTheBundleStaysAsItWas) {
    WriteWholeFile(Bundle("shipped"), "shipped");
    std::string good = Build({{"a", "x"}, Deflated("b", "y")});
    struct Case {
        std::string bytes, why;
    };
    for (const Case& each : {Case{"", "is no zip archive"},
                             {"text", "is no zip archive"},
                             {good.substr(0, good.size() - 1), "is no zip archive"},
                             {good + "x", "is no zip archive"},
                             {Build({{"a", "x"}, {"../b", "y"}}), "entry \"../b\" leaves its folder"},
                             {Build({{"/b", "y"}}), "entry \"/b\" is an absolute path"},
                             {Build({{"C:b", "y"}}), "entry \"C:b\" begins with a drive"},
                             {Build({{"", "y"}}), "entry \"\" has no name"},
                             {Build({{"a\nb", "y"}}), "entry \"a\\x0Ab\" holds control characters"},
                             {Build({{"a", "x"}, {"a", "y"}}), "entry \"a\" is there twice"},
                             {Build({UnixEntry("l", S_IFLNK | 0777, "a")}), "entry \"l\" is a link"},
                             {Build({UnixEntry("p", S_IFIFO | 0666)}), "entry \"p\" is a device"}}) {
        EXPECT_EQ(ShipBytes(each.bytes), EINVAL) << each.why;
        EXPECT_EQ(m_console.Take(), Refusal(each.why));
        EXPECT_EQ(Read("shipped"), "shipped");
    }
    EXPECT_EQ(Ship({{"a", "x"}, {"a/b", "y"}}), EINVAL);
    EXPECT_NE(m_console.Take().find("is a file and a directory"), std::string::npos);
}

TEST_F(ArchiveBundle, WhatCannotBeOpenedIsRefusedWithTheReason) {
    EXPECT_EQ(LoadSave::SetBundleArea((Save() / "missing.zip").c_str()), ENOENT);
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    EXPECT_NE(LoadSave::SetBundleArea(Save("fifo").c_str()), 0);
    ShipGame();
    EXPECT_NE(LoadSave::SetBundleArea((Game() / "data").c_str()), 0);
    EXPECT_EQ(Read("readme.txt"), "first line\nsecond line\n");
}

TEST_F(ArchiveBundle, WhatCannotBeUnpackedShowsWhenItIsRead) {
    ZipEntry secret{"secret", "x"};
    secret.flags = kEncrypted;
    ZipEntry odd{"odd", "x"};
    odd.method = 96;
    ZipEntry wrong = Deflated("wrong", std::string(100000, 'w'));
    wrong.crc = 1;
    ZipEntry shorter = Deflated("shorter", "x");
    shorter.size = 1000;
    ZipEntry longer = Deflated("longer", std::string(1000, 'x'));
    longer.size = 1;
    ASSERT_EQ(Ship({{"good", "x"}, secret, odd, wrong, shorter, longer}), 0) << m_console.Take();
    Call("file_text_open_read", {"secret"});  // its slot keeps a name
    m_console.Take();
    long long blocks = MemoryManager::Stats().blocks;
    struct Case {
        const char *name, *why;
    };
    for (const Case& each : {Case{"secret", "is encrypted"},
                             {"odd", "is compressed by a method that cannot be undone (method 96)"},
                             {"wrong", "has a wrong checksum"},
                             {"shorter", "is shorter than its directory says"},
                             {"longer", "is longer than its directory says"}}) {
        std::string line = "Failed to read file: " + (Game() / each.name).string() + " (" + each.why + ")\n";
        EXPECT_TRUE(LoadSave::BundleFileExists(each.name)) << each.name;
        EXPECT_EQ(Read(each.name), "(none)");
        EXPECT_EQ(m_console.Take(), line);
        EXPECT_EQ(LoadSave::fopen(each.name, "r"), nullptr) << each.name;
        EXPECT_EQ(m_console.Take(), line);
        EXPECT_EQ(Call("file_text_open_read", {each.name}).Real(), -1) << each.name;
        m_console.Take();
        EXPECT_EQ(Call("file_copy", {each.name, "copy"}).Real(), -1) << each.name;
        m_console.Take();
    }
    EXPECT_EQ(Read("good"), "x");
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    EXPECT_TRUE(fs::is_empty(Save()));
}

TEST_F(ArchiveBundle, AFileThatClaimsToBeLargeTakesNoMemoryForIt) {
    ZipEntry claims = Deflated("claims", "small");
    claims.size = 1 << 30;
    ASSERT_EQ(Ship({claims}), 0) << m_console.Take();
    struct rusage before {};
    struct rusage after {};

    ::getrusage(RUSAGE_SELF, &before);
    EXPECT_EQ(Read("claims"), "(none)");
    ::getrusage(RUSAGE_SELF, &after);

    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 100 << 10);  // KiB
    m_console.Take();
}

TEST_F(ArchiveBundle, AFileThatIsTooLargeForMemoryIsNotRead) {
    ASSERT_EQ(Ship({Zeros("huge", 3072), {"good", "x"}}), 0) << m_console.Take();

    EXPECT_EQ(LoadSave::fopen("huge", "r"), nullptr);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_NE(m_console.Take(), "");
    EXPECT_EQ(Read("good"), "x");
}

// --- threads ---------------------------------------------------------------------------------------------------------

TEST_F(ArchiveBundle, ManyThreadsReadAllOfItAtATime) {
    Entries entries;
    for (int i = 0; i < 200; ++i) {
        std::string contents;
        for (int k = 0; k < i * 100; ++k) {
            contents += static_cast<char>('a' + k * i % 23);
        }
        std::string name = "d" + std::to_string(i % 7) + "/" + std::to_string(i);
        entries.push_back(i % 2 ? Deflated(name, contents) : ZipEntry{name, contents});
    }
    ASSERT_EQ(Ship(entries), 0);
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            for (size_t i = 0; i < entries.size(); ++i) {
                const ZipEntry& entry = entries[(i * (thread + 1) + thread) % entries.size()];
                if (LoadSave::BundleFileExists(entry.name.c_str()) && Read(entry.name) == entry.contents) ++right;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(right, 8 * 200);
    EXPECT_EQ(m_console.Take(), "");
}

}  // namespace
}  // namespace kx::test
