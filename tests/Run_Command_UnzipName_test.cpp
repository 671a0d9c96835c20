// Archives that are refused for the names in them, and for what stands in their destination.
#include "tests/Run_Command_Unzip_fixture.h"
#include "tests/support/Machine.h"

#include <cstring>
#include <sys/stat.h>
#include <tuple>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class UnzippedNames : public UnzipTest {};

ZipEntry Flagged(const std::string& name) {
    return Changed({name, "x"}, [](ZipEntry& entry) { entry.flags = kUtf8Name; });
}

struct Case {
    ZipEntry entry;
    std::string why;
};

// --- names by themselves ---------------------------------------------------------------------------------------------

TEST_F(UnzippedNames, ThatLeaveTheirFolderAreRefused) {
    for (const char* name : {"..", "../x", "../../../../etc/passwd", "a/../../x", "a/..", "a/../b", "a/b/../../../x",
                             "../", "a/../", "..\\x", "a\\..\\..\\x", "a/..\\x", "..\\..\\..\\x", "a\\.."}) {
        EXPECT_EQ(RefusalOf({name, "x"}), "entry \"" + std::string(name) + "\" leaves its folder");
    }
    EXPECT_EQ(RefusalOf(UnixEntry("../d/", 040755)), "entry \"../d/\" leaves its folder");
}

TEST_F(UnzippedNames, ThatAreNoPathsBelowAFolderAreRefused) {
    for (const Case& each : {Case{{"", "x"}, "has no name"},
                             {{"/", ""}, "has no name"},
                             {{"\\", ""}, "has no name"},
                             {{"//", ""}, "has no name"},
                             {{"/etc/passwd", "x"}, "is an absolute path"},
                             {{"/x", "x"}, "is an absolute path"},
                             {{"\\x", "x"}, "is an absolute path"},
                             {{"//server/share/x", "x"}, "is an absolute path"},
                             {{"\\\\server\\share\\x", "x"}, "is an absolute path"},
                             {{"/d/", ""}, "is an absolute path"},
                             {{"C:/x", "x"}, "begins with a drive"},
                             {{"c:\\x", "x"}, "begins with a drive"},
                             {{"z:x", "x"}, "begins with a drive"},
                             {{"C:", "x"}, "begins with a drive"},
                             {{"C:/", ""}, "begins with a drive"},
                             {{"a//b", "x"}, "holds an empty component"},
                             {{"a\\\\b", "x"}, "holds an empty component"},
                             {{"a/\\b", "x"}, "holds an empty component"},
                             {{"a//", ""}, "holds an empty component"},
                             {{".", "x"}, "holds a component \".\""},
                             {{"./x", "x"}, "holds a component \".\""},
                             {{"a/./b", "x"}, "holds a component \".\""},
                             {{"a\\.\\b", "x"}, "holds a component \".\""},
                             {{"a/.", "x"}, "holds a component \".\""},
                             {{"./", ""}, "holds a component \".\""},
                             {{".kxtmp-1-1", "x"}, "is reserved"},
                             {{"a/.kxtmp-x/b", "x"}, "is reserved"},
                             {{"a\\.kxtmp-", "x"}, "is reserved"}}) {
        EXPECT_EQ(RefusalOf(each.entry), "entry \"" + each.entry.name + "\" " + each.why);
    }
}

TEST_F(UnzippedNames, ThatAreNoTextsAreRefusedAndShownAsSuch) {
    for (const Case& each : {Case{Flagged("caf\xe9"), R"(entry "caf\xE9" is not UTF-8)"},
                             {Flagged("\xc0\xaf"), R"(entry "\xC0\xAF" is not UTF-8)"},
                             {Flagged("\xed\xa0\x80"), R"(entry "\xED\xA0\x80" is not UTF-8)"},
                             {Flagged("\xf5\x80\x80\x80"), R"(entry "\xF5\x80\x80\x80" is not UTF-8)"},
                             {Flagged("cut \xe6\x97"), R"(entry "cut \xE6\x97" is not UTF-8)"},
                             {{"a\nb", "x"}, R"(entry "a\x0Ab" holds control characters)"},
                             {{"\x1b[2J", "x"}, R"(entry "\x1B[2J" holds control characters)"},
                             {{"a\x7f", "x"}, R"(entry "a\x7F" holds control characters)"},
                             {{"a\r", "x"}, R"(entry "a\x0D" holds control characters)"},
                             {Flagged("a\xc2\x9b"
                                      "b"),
                              R"(entry "a\xC2\x9Bb" holds control characters)"},
                             {{std::string("a\0b", 3), "x"}, R"(entry "a\x00b" holds a zero byte)"},
                             {{std::string("good.txt\0", 9), "x"}, R"(entry "good.txt\x00" holds a zero byte)"},
                             {{std::string("\0", 1), "x"}, R"(entry "\x00" holds a zero byte)"}}) {
        EXPECT_EQ(RefusalOf(each.entry), each.why);
    }
}

TEST_F(UnzippedNames, InTheirUnicodeFieldsAreLookedAtLikewise) {
    auto with = [](const std::string& path) {
        return Changed({"fine", "x"}, [&](ZipEntry& entry) {
            entry.local.extra = entry.central.extra = UnicodePathField("fine", path);
        });
    };

    EXPECT_EQ(RefusalOf(with("../x")), "entry \"../x\" leaves its folder");
    EXPECT_EQ(RefusalOf(with("/x")), "entry \"/x\" is an absolute path");
    EXPECT_EQ(RefusalOf(with("a\nb")), "entry \"a\\x0Ab\" holds control characters");
}

TEST_F(UnzippedNames, ThatAreTooLongAreRefusedAndShownInPart) {
    std::string shown = "entry \"" + std::string(200, 'n') + "...\" is too long";
    EXPECT_EQ(RefusalOf({std::string(256, 'n'), "x"}), shown);
    EXPECT_EQ(RefusalOf({std::string(65535, 'n'), "x"}), shown);
    EXPECT_EQ(RefusalOf({std::string(256, 'n') + "/x", "x"}), shown);
    EXPECT_EQ(RefusalOf({std::string(256, 'n') + "/", ""}), shown);

    std::string room = To().string() + "/";
    std::string name;
    while (room.size() + name.size() + 201 < 1024) {
        name += std::string(200, 'd') + "/";
    }
    name += std::string(1024 - room.size() - name.size(), 'f');
    EXPECT_EQ(RefusalOf({name, "x"}), "entry \"" + name.substr(0, 200) + "...\" is too long");
}

// --- names together --------------------------------------------------------------------------------------------------

TEST_F(UnzippedNames, ThatAreThereTwiceAreRefused) {
    struct Pair {
        std::string one, other;
    };
    for (const Pair& each : {Pair{"a", "a"},
                             {"a", "A"},
                             {"readme.TXT", "README.txt"},
                             {"d/a", "d\\a"},
                             {"d/a", "D/A"},
                             {"d/", "d/"},
                             {"d/", "D\\"},
                             {"d/e/", "d/E/"},
                             {"gr\xc3\xb6\xc3\x9f", "GR\xc3\x96\xc3\x9f"},
                             {"\xce\xb1", "\xce\x91"},
                             {"\x81", "\xc3\xbc"},
                             {"\xd0\xb6", "\xd0\x96"}}) {
        ZipEntry one{each.one, ""}, other{each.other, ""};
        EXPECT_EQ(Refusal(Build({one, {"between", "x"}, other})), "entry \"" + each.other + "\" is there twice");
    }
}

TEST_F(UnzippedNames, ThatDifferByMoreThanCaseAreNotTheSame) {
    EXPECT_EQ(Unzip({{"a", "1"}, {"\xc3\xa4", "2"}, {"a ", "3"}, {"a.", "4"}, {"i", "5"}, {"\xc4\xb1", "6"}}), 6)
        << m_console.Take();

    EXPECT_EQ(NamesIn(To()).size(), 6u);
}

TEST_F(UnzippedNames, OfFilesThatAreDirectoriesTooAreRefused) {
    struct Pair {
        std::string one, other, named;
    };
    for (const Pair& each : {Pair{"a", "a/b", "a"},
                             {"a/b", "a", "a"},
                             {"a/", "a", "a"},
                             {"a", "a/", "a/"},
                             {"A", "a/b", "A"},
                             {"a/b/c/d", "A/b", "A/b"},
                             {"a\\b", "a", "a"},
                             {"a/b", "a/b/c/d/e", "a/b"}}) {
        EXPECT_EQ(Refusal(Build({{each.one, ""}, {each.other, ""}})),
                  "entry \"" + each.named + "\" is a file and a directory");
    }
}

// --- what is in the way ----------------------------------------------------------------------------------------------

TEST_F(UnzippedNames, OfFilesWhereDirectoriesStandAreRefused) {
    fs::create_directories(To("d/below"));

    EXPECT_EQ(RefusalOf({"d", "x"}), "entry \"d\" is a directory already");
    EXPECT_EQ(RefusalOf({"d/below", "x"}), "entry \"d/below\" is a directory already");
}

TEST_F(UnzippedNames, BelowWhatIsNoDirectoryAreRefused) {
    WriteWholeFile(To("f"), "old");
    ASSERT_EQ(::mkfifo(To("fifo").c_str(), 0600), 0);

    EXPECT_EQ(RefusalOf({"f/x", "x"}), "entry \"f/x\" lies below what is no directory");
    EXPECT_EQ(RefusalOf({"f/x/y/", ""}), "entry \"f/x/y/\" lies below what is no directory");
    EXPECT_EQ(RefusalOf({"fifo/x", "x"}), "entry \"fifo/x\" lies below what is no directory");
    EXPECT_NE(RefusalOf({"f/", ""}).find("entry \"f/\" "), std::string::npos);
    EXPECT_NE(RefusalOf({"fifo", "x"}).find("entry \"fifo\" "), std::string::npos);
}

TEST_F(UnzippedNames, ThatLeadThroughLinksAreRefused) {
    fs::create_directories(To("inside"));
    WriteWholeFile(To("file"), "old");
    fs::create_directory_symlink("../..", To("out"));
    fs::create_directory_symlink("inside", To("in"));
    fs::create_symlink("../../outside", To("file out"));
    fs::create_symlink("file", To("file in"));
    fs::create_symlink("nothing", To("dangling"));

    for (const char* name : {"out/x", "out/outside", "in/x", "file out", "file in", "dangling", "dangling/x", "out",
                             "out/", "in/", "in/deeper/x", "inside/../in/x"}) {
        std::string why =
            std::string(name).find("..") == std::string::npos ? "leads through a link" : "leaves its folder";
        EXPECT_EQ(RefusalOf({name, ""}), "entry \"" + std::string(name) + "\" " + why);
    }
}

TEST_F(UnzippedNames, OfTheArchiveItselfAreRefused) {
    WriteWholeFile(Save("to/game.zip"), Build({{"a", "x"}, {"to/game.zip", "y"}}));
    WriteWholeFile(Save("to/other.zip"), Build({{"a", "x"}, {"other.zip", "y"}}));
    Snapshot before = ExactSnapshot(Save());

    EXPECT_EQ(Command(Save("to/game.zip"), Save()), -1);
    EXPECT_EQ(m_console.Take(), "Failed to unzip: " + Save("to/game.zip").string() +
                                    " (entry \"to/game.zip\" would replace the archive itself)\n");
    EXPECT_EQ(Command(Save("to/other.zip"), To()), -1);
    EXPECT_EQ(m_console.Take(), "Failed to unzip: " + Save("to/other.zip").string() +
                                    " (entry \"other.zip\" would replace the archive itself)\n");

    EXPECT_TRUE(ExactSnapshot(Save()) == before);
}

TEST_F(UnzippedNames, OfTheArchiveItselfAreRefusedByAnyWayThatLeadsToIt) {
    WriteWholeFile(Save("mods/a.zip"), Build({{"a.zip", "y"}}));
    fs::create_directory_symlink("mods", Save("alias"));
    fs::create_hard_link(Save("mods/a.zip"), Save("b.zip"));
    Snapshot before = ExactSnapshot(Save());

    const std::string itself = "entry \"a.zip\" would replace the archive itself";
    const std::string throughLink = KnowsOpenat2() ? itself : "Too many levels of symbolic links";
    for (const auto& [archive, destination, why] : {std::tuple(Save("mods/a.zip"), Save("alias"), throughLink),
                                                    {Save("alias/a.zip"), Save("mods"), throughLink},
                                                    {Save("b.zip"), Save("mods"), itself}}) {
        EXPECT_EQ(Command(archive, destination), -1);
        EXPECT_NE(m_console.Take().find(why + ")\n"), std::string::npos) << archive;
    }

    EXPECT_TRUE(ExactSnapshot(Save()) == before);
}

TEST_F(UnzippedNames, ThatLieDeepMakeNoMoreDirectoriesThanThereMayBe) {
    Entries entries;
    for (int i = 0; i < 300; ++i) {
        std::string name = std::to_string(i) + "/";
        for (int depth = 0; depth < 400; ++depth) {
            name += "a/";
        }
        entries.push_back({name + "b", "x"});
    }
    EXPECT_EQ(Refusal(Build(entries)), "holds more than 100000 directories");

    entries.resize(2);
    EXPECT_EQ(Unzip(entries), 2);
}

TEST_F(UnzippedNames, ThatMayLeadThroughALinkAreRefusedWhereItCannotBeLookedAt) {
    fs::create_directories(To());
    fs::create_directory(Save("other"));
    fs::create_directory_symlink("../other", To("sub"));
    WriteWholeFile(Archive(), Build({{"sub/f", "x"}}));
    {
        FaultySystemCalls faults;
        faults.FailFrom("fstatat", 1, EIO);
        EXPECT_EQ(Command(Archive(), To()), -1);
    }
    EXPECT_EQ(Why(), std::string("entry \"sub/f\" cannot be written: ") + std::strerror(EIO));
    EXPECT_TRUE(fs::is_empty(Save("other")));
}

// --- the destination -------------------------------------------------------------------------------------------------

TEST_F(UnzippedNames, OfDestinationsOutsideTheSaveAreaAreRefused) {
    std::string bytes = Build({{"a", "x"}});
    fs::path folder = Save().parent_path();
    fs::create_directory_symlink("..", Save("link"));
    fs::create_directory_symlink("../bundle", Save("bundle link"));
    WriteWholeFile(Archive(), bytes);
    Snapshot before = ExactSnapshot(folder);

    for (const fs::path& to : {folder, folder / "elsewhere", Bundle(), Bundle("x"), Save("../elsewhere"), fs::path("/"),
                               fs::path("/tmp"), Save("link"), Save("link/elsewhere"), Save("bundle link")}) {
        EXPECT_EQ(Command(Archive(), to), -1) << to;
        EXPECT_EQ(Why().find("destination \"" + to.string() + "\" "), 0u) << to;
    }
    EXPECT_EQ(Command(Archive(), folder / "elsewhere"), -1);
    EXPECT_EQ(Why(), "destination \"" + (folder / "elsewhere").string() + "\" is not in the save area");

    EXPECT_TRUE(ExactSnapshot(folder) == before);
}

TEST_F(UnzippedNames, OfDestinationsThatAreNoneAreRefused) {
    std::string bytes = Build({{"a", "x"}});
    WriteWholeFile(Save("file"), "old");

    EXPECT_EQ(Refusal(bytes, "").find("destination \"\" "), 0u);
    EXPECT_EQ(Refusal(bytes, Save("file")).find("destination \"" + Save("file").string() + "\" "), 0u);
    std::string below = Refusal(bytes, Save("file/below"));
    EXPECT_EQ(below.find("no such line"), std::string::npos) << below;
}

}  // namespace
}  // namespace kx::test
