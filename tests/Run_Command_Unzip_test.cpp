// What good archives become.
#include "tests/Run_Command_Unzip_fixture.h"
#include "tests/support/Variable.h"

#include <cstring>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class Unzipping : public UnzipTest {
protected:
    static time_t ModifiedAt(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mtime;
    }

    static fs::perms Permissions(const fs::path& path) { return fs::status(path).permissions(); }
};

/// Bytes that no method makes smaller.
std::string Noise(size_t size) {
    std::string noise;
    uint32_t state = 1;
    while (noise.size() < size) {
        state = state * 1664525 + 1013904223;
        noise += static_cast<char>(state >> 24);
    }
    return noise;
}

// --- contents --------------------------------------------------------------------------------------------------------

TEST_F(Unzipping, GivesTheFilesAndDirectoriesOfTheArchiveAndCountsTheFiles) {
    int written = Unzip({{"readme.txt", "stored"},
                         Deflated("data/level 1.txt", "deflated deflated deflated"),
                         {"empty"},
                         Deflated("also empty", ""),
                         {"folder/"},
                         {"made/on the way/x", "x"}});

    EXPECT_EQ(written, 5);
    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"readme.txt", "stored"},
                                             {"data", "<directory>"},
                                             {"data/level 1.txt", "deflated deflated deflated"},
                                             {"empty", ""},
                                             {"also empty", ""},
                                             {"folder", "<directory>"},
                                             {"made", "<directory>"},
                                             {"made/on the way", "<directory>"},
                                             {"made/on the way/x", "x"}}));
    EXPECT_EQ(m_console.Take(), "");
    EXPECT_EQ(TakeError(), "");
}

TEST_F(Unzipping, FilesOfEverySizeComeOutWhole) {
    Entries entries;
    for (size_t size : {0u, 1u, 32767u, 32768u, 65535u, 65536u, 65537u, 131072u, 262143u, 262144u, 262145u, 1000003u}) {
        std::string name = std::to_string(size);
        entries.push_back({name + " stored", Noise(size)});
        entries.push_back(Deflated(name + " noise", Noise(size)));
        entries.push_back(Deflated(name + " zeros", std::string(size, '\0')));
    }

    EXPECT_EQ(Unzip(entries), static_cast<int>(entries.size()));

    for (const ZipEntry& entry : entries) {
        EXPECT_TRUE(ReadWholeFile(To(entry.name)) == entry.contents) << entry.name;
    }
}

TEST_F(Unzipping, AnArchiveOfNothingGivesNothing) {
    EXPECT_EQ(Unzip({}), 0);

    EXPECT_EQ(m_console.Take(), "");
    EXPECT_EQ(Unzip({{"only/"}, {"directories/below/"}}), 0);
    EXPECT_TRUE(fs::is_directory(To("only")));
    EXPECT_TRUE(fs::is_directory(To("directories/below")));
}

// --- names -----------------------------------------------------------------------------------------------------------

TEST_F(Unzipping, NamesAreReadAsTheirArchiverMeantThem) {
    auto flagged = [](const char* name) {
        return Changed({name, "x"}, [](ZipEntry& entry) { entry.flags = kUtf8Name; });
    };
    auto with = [](const char* name, const std::string& field) {
        return Changed({name, "x"}, [&](ZipEntry& entry) { entry.local.extra = entry.central.extra = field; });
    };
    struct Case {
        ZipEntry entry;
        const char* path;
    };
    for (const Case& each : {Case{{"a\\b\\c.txt", "x"}, "a/b/c.txt"},
                             {{"a\\b/c d", "x"}, "a/b/c d"},
                             {flagged("gr\xc3\xb6\xc3\x9f"
                                      "e/\xe6\x97\xa5"),
                              "größe/日"},
                             {{"gr\xc3\xb6\xc3\x9f"
                               "e",
                               "x"},
                              "größe"},
                             {{"\x81"
                               "ber \x80\x9c",
                               "x"},
                              "über Ç£"},
                             {{"\xb0\xdb\xe1\xfe\xff", "x"}, "░█ß■\u00a0"},
                             {with("b?se", UnicodePathField("b?se", "böse")), "böse"},
                             {with("\x94l", UnicodePathField("\x94l", "Öl")), "Öl"},
                             {with("b?se", UnicodePathField("b?se", "böse", 1)), "b?se"},
                             {{"...", "x"}, "..."},
                             {{"..x/y..", "x"}, "..x/y.."},
                             {{".hidden", "x"}, ".hidden"},
                             {{" a ", "x"}, " a "},
                             {{"one: two", "x"}, "one: two"},
                             {{"x/C:", "x"}, "x/C:"},
                             {{std::string(255, 'n'), "x"}, nullptr}}) {
        std::string path = each.path ? each.path : each.entry.name;

        EXPECT_EQ(Unzip({each.entry}), 1) << path << m_console.Take();

        EXPECT_EQ(ContentsBelow(To()).count(path), 1u) << path;
        fs::remove_all(To());
    }
}

TEST_F(Unzipping, ANameMayFillTheWholePath) {
    std::string room = To().string() + "/";
    std::string name;
    while (room.size() + name.size() + 201 < 1023) {
        name += std::string(200, 'd') + "/";
    }
    name += std::string(1023 - room.size() - name.size(), 'f');
    ASSERT_EQ((room + name).size(), 1023u);

    EXPECT_EQ(Unzip({{name, "x"}}), 1) << m_console.Take();

    EXPECT_EQ(ReadWholeFile(To(name)), "x");
}

TEST_F(Unzipping, DirectoriesAreKnownByTheirNamesModesAndAttributes) {
    ZipEntry dos{"dos"};
    dos.attributes = 16;

    EXPECT_EQ(Unzip({{"slash/"}, {"backslash\\"}, UnixEntry("unix", 040755), UnixEntry("both/", 040755), dos}), 0);

    for (const char* name : {"slash", "backslash", "unix", "both", "dos"}) {
        EXPECT_TRUE(fs::is_directory(To(name))) << name;
    }
}

TEST_F(Unzipping, ADirectoryMayComeAfterWhatIsInItAndBeThereBefore) {
    fs::create_directories(To("d"));
    WriteWholeFile(To("d/old"), "old");

    EXPECT_EQ(Unzip({{"d/e/new", "new"}, {"d/e/"}, {"d/"}}), 1);

    EXPECT_EQ(ReadWholeFile(To("d/old")), "old");
    EXPECT_EQ(ReadWholeFile(To("d/e/new")), "new");
}

// --- times and permissions -------------------------------------------------------------------------------------------

TEST_F(Unzipping, AnExtendedTimeIsThatOfTheFile) {
    Variable zone("TZ", "XXX-3");
    Entries entries;
    for (int32_t seconds : {0, 1, 981162306, 2147483647}) {
        ZipEntry entry = Deflated(std::to_string(seconds), "x");
        entry.local.extra = entry.central.extra = TimeField(seconds);
        entries.push_back(entry);
    }

    EXPECT_EQ(Unzip(entries), 4);

    for (const ZipEntry& entry : entries) {
        EXPECT_EQ(std::to_string(ModifiedAt(To(entry.name))), entry.name);
    }
}

TEST_F(Unzipping, ATimeWithoutZoneIsLocal) {
    for (const auto& [zone, seconds] :
         {std::pair("XXX-3", 981162306), {"UTC0", 981162306 + 3 * 3600}, {"XXX+8", 981162306 + 11 * 3600}}) {
        Variable local("TZ", zone);

        EXPECT_EQ(Unzip({{"file", "x"}}), 1);  // 2001-02-03 04:05:06

        EXPECT_EQ(ModifiedAt(To("file")), seconds) << zone;
    }
}

TEST_F(Unzipping, ATimeThatIsNoneDoesNotHurt) {
    ZipEntry none{"none", "x"};
    none.date = none.time = 0;
    ZipEntry wild{"wild", "y"};
    wild.date = wild.time = 0xFFFF;

    EXPECT_EQ(Unzip({none, wild}), 2);

    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"none", "x"}, {"wild", "y"}}));
}

TEST_F(Unzipping, NewFilesGetTheDefaultPermissionsWhateverTheArchiveSays) {
    WriteWholeFile(Save("ordinary"), "");
    fs::create_directory(Save("ordinary folder"));

    EXPECT_EQ(Unzip({UnixEntry("set-user-id", 0104777, "x"),
                     UnixEntry("none", 0100000, "x"),
                     UnixEntry("folder/", 040000),
                     {"plain", "x"}}),
              3);

    for (const char* name : {"set-user-id", "none", "plain"}) {
        EXPECT_EQ(Permissions(To(name)), Permissions(Save("ordinary"))) << name;
    }
    EXPECT_EQ(Permissions(To("folder")), Permissions(Save("ordinary folder")));
}

// --- forms of the format ---------------------------------------------------------------------------------------------

TEST_F(Unzipping, SizesMayBeIn64BitFields) {
    auto large = [](ZipEntry entry) { return Changed(entry, [](ZipEntry& made) { made.zip64 = true; }); };
    Entries entries = {large({"a", "stored"}), large(Deflated("b", "deflated")), {"c", "plain"}, large({"d/"})};
    Snapshot expected{{"a", "stored"}, {"b", "deflated"}, {"c", "plain"}, {"d", "<directory>"}};
    ZipFrame zip64;
    zip64.zip64 = true;
    ZipFrame commented = zip64;
    commented.comment = "a comment";
    commented.prefix = "a prefix";

    for (const ZipFrame& frame : {ZipFrame(), zip64, commented}) {
        EXPECT_EQ(Unzip(entries, frame), 3) << m_console.Take();

        EXPECT_EQ(ContentsBelow(To()), expected);
        fs::remove_all(To());
    }
}

TEST_F(Unzipping, SizesMayFollowTheBytes) {
    Entries entries;
    Snapshot expected;
    for (int form = 0; form < 8; ++form) {
        std::string name = std::to_string(form);
        ZipEntry entry = (form & 1) ? Deflated(name, Noise(1000)) : ZipEntry{name, Noise(1000)};
        entry.flags = kWithDescriptor;
        entry.descriptorSigned = (form & 2) != 0;
        entry.zip64 = (form & 4) != 0;
        entries.push_back(entry);
        expected[name] = entry.contents;
    }

    EXPECT_EQ(Unzip(entries), 8) << m_console.Take();

    EXPECT_TRUE(ContentsBelow(To()) == expected);
}

TEST_F(Unzipping, BytesBeforeTheFirstEntryAndACommentAreAllowed) {
    ZipFrame frame;
    frame.prefix = std::string("#!/bin/sh\nexit 0\n\0PK\5\6", 22) + Noise(100000);
    frame.comment = std::string(65535, 'c');

    EXPECT_EQ(Unzip({{"a", "x"}, Deflated("b", "y")}, frame), 2) << m_console.Take();

    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"a", "x"}, {"b", "y"}}));
}

TEST_F(Unzipping, EntriesMayLieInAnotherOrderAndFarApart) {
    Entries entries = {{"a", "first"}, Deflated("b", "second")};
    ZipFrame frame;
    frame.prefix = LocalBytes(entries[1]) + "between" + LocalBytes(entries[0]);
    entries[0].offset = LocalBytes(entries[1]).size() + 7;
    entries[1].offset = 0;
    for (ZipEntry& entry : entries) {
        entry.onlyInDirectory = true;
    }
    frame.beforeDirectory = "and more";

    EXPECT_EQ(Unzip(entries, frame), 2) << m_console.Take();

    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"a", "first"}, {"b", "second"}}));
}

TEST_F(Unzipping, FieldsAndCommentsThatNobodyKnowsAreSkipped) {
    ZipEntry entry{"a", "x"};
    entry.local.extra = ExtraField(0xCAFE, "only here");
    entry.central.extra = ExtraField(0xBEEF, "") + ExtraField(0xFFFF, std::string(1000, 'e'));
    entry.comment = "about a";

    EXPECT_EQ(Unzip({entry, {"b", "y"}}), 2) << m_console.Take();

    EXPECT_EQ(ContentsBelow(To()), (Snapshot{{"a", "x"}, {"b", "y"}}));
}

// --- where archives and destinations are -----------------------------------------------------------------------------

TEST_F(Unzipping, AnArchiveIsReadFromEitherArea) {
    std::string bytes = Build({{"a", "x"}});
    WriteWholeFile(Save("deep/own.zip"), bytes);
    WriteWholeFile(Bundle("deep/shipped.zip"), bytes);

    EXPECT_EQ(Command(Save("deep/own.zip"), Save("1")), 1);
    EXPECT_EQ(Command(Bundle("deep/shipped.zip"), Save("2")), 1);

    EXPECT_EQ(ReadWholeFile(Save("1/a")), "x");
    EXPECT_EQ(ReadWholeFile(Save("2/a")), "x");
    EXPECT_EQ(NamesIn(Bundle("deep")), std::vector<std::string>{"shipped.zip"});
}

TEST_F(Unzipping, TheDestinationMayBeTheSaveAreaOrDeepInIt) {
    WriteWholeFile(Archive(), Build({{"a", "x"}}));

    for (const fs::path& to : {Save(), Save("p/q/r"), Save("s/"), Save("t/./u/../v")}) {
        EXPECT_EQ(Command(Archive(), to), 1) << to << m_console.Take();
        EXPECT_EQ(ReadWholeFile(to.lexically_normal() / "a"), "x") << to;
    }
}

TEST_F(Unzipping, AnArchiveMayLieInItsDestination) {
    std::string bytes = Build({{"other.zip", "x"}, {"below/game.zip", "y"}});
    WriteWholeFile(Save("game.zip"), bytes);

    EXPECT_EQ(Command(Save("game.zip"), Save()), 2) << m_console.Take();

    EXPECT_EQ(ContentsBelow(Save()),
              (Snapshot{{"game.zip", bytes}, {"other.zip", "x"}, {"below", "<directory>"}, {"below/game.zip", "y"}}));
}

TEST_F(Unzipping, AnArchiveThatCannotBeReadIsReportedWithTheReason) {
    fs::create_directory(Archive());
    int descriptors = OpenDescriptors();
    EXPECT_EQ(Command(Archive(), To()), -1);
    EXPECT_EQ(Why(), std::strerror(EISDIR));

    fs::remove(Archive());
    EXPECT_EQ(Command(Archive(), To()), -1);
    EXPECT_EQ(Why(), std::strerror(ENOENT));

    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_TRUE(fs::is_empty(Save()));
}

TEST_F(Unzipping, ReservedParametersAreZero) {
    WriteWholeFile(Archive(), Build({{"a", "x"}}));
    char text[] = "text";

    EXPECT_EQ(Command_Unzip(Archive().c_str(), To().c_str(), 1, 0, nullptr), -1);
    EXPECT_EQ(Command_Unzip(Archive().c_str(), To().c_str(), 0, 1, nullptr), -1);
    EXPECT_EQ(Command_Unzip(Archive().c_str(), To().c_str(), 0, 0, text), -1);
    EXPECT_EQ(Command_Unzip(nullptr, To().c_str(), 0, 0, nullptr), -1);
    EXPECT_EQ(Command_Unzip(Archive().c_str(), nullptr, 0, 0, nullptr), -1);

    EXPECT_TRUE(fs::is_empty(Save()));
}

TEST_F(Unzipping, AnArchiveOutsideBothAreasIsNotRead) {
    fs::path outside = Save().parent_path() / "outside.zip";
    WriteWholeFile(outside, Build({{"a", "x"}}));

    EXPECT_EQ(Command(outside, To()), -1);

    EXPECT_NE(m_console.Take(), "");
    EXPECT_TRUE(fs::is_empty(Save()));
}

TEST_F(Unzipping, BzippedEntriesAreUnpacked) {
    const unsigned char packed[] = {0x42, 0x5a, 0x68, 0x39, 0x31, 0x41, 0x59, 0x26, 0x53, 0x59, 0x55, 0x5a, 0x44,
                                    0xf7, 0x00, 0x00, 0x02, 0x19, 0x80, 0x40, 0x00, 0x10, 0x00, 0x12, 0x64, 0xc0,
                                    0x10, 0x20, 0x00, 0x22, 0x00, 0x69, 0xea, 0x10, 0x03, 0x05, 0xd3, 0xb6, 0x21,
                                    0x83, 0xc5, 0xdc, 0x91, 0x4e, 0x14, 0x24, 0x15, 0x56, 0x91, 0x3d, 0xc0};
    ZipEntry entry{"a", "hello bzip2"};
    entry.method = 12;
    entry.packed = std::string(reinterpret_cast<const char*>(packed), sizeof packed);

    EXPECT_EQ(Unzip({entry}), 1) << m_console.Take();

    EXPECT_EQ(ReadWholeFile(To("a")), "hello bzip2");
}

TEST_F(Unzipping, FieldsThatAlignmentLeavesBehindAreNoFault) {
    ZipEntry entry{"a", "x"};
    entry.local.extra = entry.central.extra = std::string(3, '\0');
    EXPECT_EQ(Unzip({entry, {"b", "y"}}), 2) << m_console.Take();
}

}  // namespace
}  // namespace kx::test
