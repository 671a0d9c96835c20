// Archives that are refused whole for what they are made of: nothing is made or written then.
#include "tests/Run_Command_Unzip_fixture.h"

#include <algorithm>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class HostileArchives : public UnzipTest {};

constexpr char kNoArchive[] = "is no zip archive";
constexpr char kDamaged[] = "has a damaged directory";
constexpr char kTooMuch[] = "holds more than 4294967296 bytes";

// --- kinds of entries ------------------------------------------------------------------------------------------------

TEST_F(HostileArchives, WithLinksAreRefused) {
    for (const char* target : {"file", "../outside", "/etc/passwd", ""}) {
        EXPECT_EQ(RefusalOf(UnixEntry("link", S_IFLNK | 0777, target)), "entry \"link\" is a link") << target;
    }
    EXPECT_EQ(Refusal(Build({UnixEntry("l", S_IFLNK | 0777, "../.."), {"l/outside", "overwritten"}})),
              "entry \"l\" is a link");
    EXPECT_EQ(Refusal(Build({{"a", "x"}, UnixEntry("a/l", S_IFLNK | 0777, "..")})).find("entry \"a"), 0u);
}

TEST_F(HostileArchives, WithDevicesAreRefused) {
    for (uint32_t kind : {S_IFCHR, S_IFBLK, S_IFIFO, S_IFSOCK}) {
        EXPECT_EQ(RefusalOf(UnixEntry("dev", kind | 0666)), "entry \"dev\" is a device") << kind;
    }
}

TEST_F(HostileArchives, WithContentsInDirectoriesAreRefused) {
    ZipEntry dos{"d", "x"};
    dos.attributes = 16;
    EXPECT_EQ(RefusalOf({"d/", "x"}), "entry \"d/\" is a directory with contents");
    EXPECT_EQ(RefusalOf({"d\\", "x"}), "entry \"d\\\" is a directory with contents");
    EXPECT_EQ(RefusalOf(UnixEntry("d", S_IFDIR | 0755, "x")), "entry \"d\" is a directory with contents");
    EXPECT_EQ(RefusalOf(dos), "entry \"d\" is a directory with contents");
}

TEST_F(HostileArchives, ThatAreEncryptedAreRefused) {
    ZipEntry strong{"secret", "x"};
    strong.flags = kEncrypted | 1 << 6;
    EXPECT_EQ(RefusalOf(Changed({"secret", std::string(100, 'x')}, [](ZipEntry& e) { e.flags = kEncrypted; })),
              "entry \"secret\" is encrypted");
    EXPECT_EQ(RefusalOf(Changed(Deflated("secret", "x"), [](ZipEntry& e) { e.flags = kEncrypted; })),
              "entry \"secret\" is encrypted");
    EXPECT_EQ(RefusalOf(strong), "entry \"secret\" is encrypted");
}

TEST_F(HostileArchives, ForDirectoriesTheRulesOfFilesHold) {
    EXPECT_EQ(RefusalOf(Changed({"d/"}, [](ZipEntry& e) { e.flags = kEncrypted; })), "entry \"d/\" is encrypted");
    EXPECT_EQ(RefusalOf(Changed({"d/"}, [](ZipEntry& e) { e.method = 96; })),
              "entry \"d/\" is compressed by a method that cannot be undone (method 96)");
    EXPECT_EQ(RefusalOf(Changed({"d/"}, [](ZipEntry& e) { e.packed = "junk"; })),
              "entry \"d/\" contradicts the directory");
}

TEST_F(HostileArchives, OfUnknownMethodsAreRefused) {
    for (int method : {2, 6, 7, 10, 96, 1000, 65535}) {
        ZipEntry entry{"odd", "x"};
        entry.method = static_cast<uint16_t>(method);
        EXPECT_EQ(RefusalOf(entry), "entry \"odd\" is compressed by a method that cannot be undone (method " +
                                        std::to_string(method) + ")");
    }
}

// --- the two headers of an entry -------------------------------------------------------------------------------------

TEST_F(HostileArchives, WhoseHeadersDifferAreRefused) {
    struct Case {
        const char* field;
        void (*change)(ZipHeader&);
    };
    for (const Case& each : {Case{"signature", [](ZipHeader& local) { local.signature = 0x04034B51; }},
                             {"the directory's signature", [](ZipHeader& local) { local.signature = 0x02014B50; }},
                             {"name", [](ZipHeader& local) { local.name = "xntry"; }},
                             {"case of the name", [](ZipHeader& local) { local.name = "Entry"; }},
                             {"separator", [](ZipHeader& local) { local.name = "../ry"; }},
                             {"shorter name", [](ZipHeader& local) { local.name = "entr"; }},
                             {"longer name", [](ZipHeader& local) { local.name = "entry1"; }},
                             {"no name", [](ZipHeader& local) { local.name = ""; }},
                             {"method", [](ZipHeader& local) { local.method = kStored; }},
                             {"encryption", [](ZipHeader& local) { local.flags = kEncrypted; }},
                             {"checksum", [](ZipHeader& local) { local.crc = 1; }},
                             {"zero checksum", [](ZipHeader& local) { local.crc = 0; }},
                             {"packed size", [](ZipHeader& local) { local.packedSize = 1; }},
                             {"zero packed size", [](ZipHeader& local) { local.packedSize = 0; }},
                             {"size", [](ZipHeader& local) { local.size = 1000; }},
                             {"zero size", [](ZipHeader& local) { local.size = 0; }}}) {
        ZipEntry entry = Deflated("entry", "contents contents contents");
        each.change(entry.local);
        EXPECT_EQ(RefusalOf(entry), "entry \"entry\" contradicts the directory") << each.field;
    }
}

TEST_F(HostileArchives, WhoseHeadersDifferAreRefusedAlsoWhereTheSizesFollowTheBytes) {
    for (auto change : {+[](ZipHeader& local) { local.crc = 1; }, +[](ZipHeader& local) { local.packedSize = 1; },
                        +[](ZipHeader& local) { local.size = 1; }, +[](ZipHeader& local) { local.name = "eNtry"; }}) {
        ZipEntry entry = Deflated("entry", "contents contents contents");
        entry.flags = kWithDescriptor;
        change(entry.local);
        EXPECT_EQ(RefusalOf(entry), "entry \"entry\" contradicts the directory");
    }
}

TEST_F(HostileArchives, WhoseEntriesLieElsewhereAreRefused) {
    std::string outside = "entry \"entry\" lies outside the archive's data";
    std::string bytes(5000, 'b');
    for (uint64_t offset : {uint64_t{1} << 20, uint64_t{0xFFFFFFF0}, uint64_t{1} << 62, ~uint64_t{0}}) {
        ZipEntry entry{"entry", bytes};
        entry.offset = offset;
        entry.zip64 = true;
        EXPECT_EQ(RefusalOf(entry), outside) << offset;
    }
    ZipEntry middle{"entry", bytes};
    middle.offset = 3;  // in the middle of the first one
    EXPECT_EQ(RefusalOf(middle), "entry \"entry\" contradicts the directory");
    ZipEntry last{"entry", "x"};
    last.size = last.central.packedSize = last.local.packedSize = 1000;  // over the directory and the end
    EXPECT_EQ(Refusal(Build({{"first", "good"}, last})), outside);
}

TEST_F(HostileArchives, WithSizesThatNothingHasAreRefused) {
    for (uint64_t size :
         {(uint64_t{4} << 30) + 1, uint64_t{1} << 40, uint64_t{1} << 63, ~uint64_t{0} - 1, ~uint64_t{0}}) {
        ZipEntry bomb = Deflated("bomb", "x");
        bomb.zip64 = true;
        bomb.size = size;
        EXPECT_EQ(RefusalOf(bomb), kTooMuch) << size;
        bomb.central.packedSize = bomb.local.packedSize = size;
        EXPECT_EQ(RefusalOf(bomb).find("no such line"), std::string::npos) << size;
    }
}

TEST_F(HostileArchives, ThatHoldTooMuchTogetherAreRefused) {
    ZipBuilder builder;
    for (int i = 0; i < 5; ++i) {
        ZipEntry piece = Deflated(std::to_string(i), "x");
        piece.size = i < 4 ? 1 << 30 : 1;
        builder.Add(piece);
    }
    EXPECT_EQ(Refusal(builder.Finish()), kTooMuch);

    ZipBuilder wrapping;  // their sum is 0 in 64 bits
    for (int i = 0; i < 4; ++i) {
        ZipEntry piece = Deflated(std::to_string(i), "x");
        piece.zip64 = true;
        piece.size = uint64_t{1} << 62;
        wrapping.Add(piece);
    }
    EXPECT_EQ(Refusal(wrapping.Finish()), kTooMuch);
}

// --- bytes of several entries ----------------------------------------------------------------------------------------

bool Shares(const std::string& why) {
    std::string tail = "\" shares its bytes with another entry";
    return why.rfind("entry \"", 0) == 0 && why.size() > tail.size() &&
           why.compare(why.size() - tail.size(), tail.size(), tail) == 0;
}

TEST_F(HostileArchives, WithEntriesInsideOthersAreRefused) {
    ZipEntry inner = Deflated("inner", "inner contents");
    ZipEntry outer{"outer", "before " + LocalBytes(inner) + " after"};
    inner.offset = 30 + outer.name.size() + 7;
    inner.onlyInDirectory = true;

    EXPECT_TRUE(Shares(Refusal(Build({outer, inner})))) << Why();
    EXPECT_TRUE(Shares(Refusal(Build({inner, outer}))));
}

TEST_F(HostileArchives, WithEntriesThatBeginBeforeOthersEndAreRefused) {
    ZipEntry second{"second", std::string(100, 's')};
    std::string secondBytes = LocalBytes(second);
    ZipEntry first{"first", "f" + secondBytes.substr(0, secondBytes.size() - 50)};
    second.offset = 30 + first.name.size() + 1;
    second.onlyInDirectory = true;
    ZipFrame frame;
    frame.beforeDirectory = secondBytes.substr(secondBytes.size() - 50);

    EXPECT_TRUE(Shares(Refusal(Build({first, second}, frame))));
}

TEST_F(HostileArchives, WithTwoEntriesOfOneHeaderAreRefused) {
    ZipEntry copy{"copy", "bytes"};
    copy.offset = 0;
    copy.onlyInDirectory = true;
    EXPECT_EQ(Refusal(Build({{"file", "bytes"}, copy})), "entry \"copy\" contradicts the directory");

    copy.name = "file";
    EXPECT_EQ(Refusal(Build({{"file", "bytes"}, copy})), "entry \"file\" is there twice");
}

/// Thousands of files whose bytes are each other's: every one is deflated, takes the next one's header as stored text
/// and goes on with the next one's bytes, down to the last.
TEST_F(HostileArchives, WithManyEntriesOnOneBodyAreRefused) {
    constexpr size_t kCount = 300;
    std::string unpacked(100000, 'q');
    std::string tail = LocalBytes(Deflated("0", unpacked));
    Entries entries{Deflated("0", unpacked)};
    std::vector<size_t> fromEnd{tail.size()};
    for (size_t i = 1; i < kCount; ++i) {
        const ZipEntry& next = entries.back();
        std::string quoted = tail.substr(0, 30 + next.name.size());
        ZipEntry entry = Deflated(std::to_string(i), quoted + next.contents);
        std::string quote = LittleEndian(0, 1) + LittleEndian(quoted.size(), 2) + LittleEndian(~quoted.size(), 2);
        entry.packed = quote + tail;
        tail = LocalBytes(entry);
        fromEnd.push_back(tail.size());
        entries.push_back(entry);
    }
    ZipFrame frame;
    frame.prefix = tail;
    for (size_t i = 0; i < kCount; ++i) {
        entries[i].onlyInDirectory = true;
        entries[i].offset = tail.size() - fromEnd[i];
    }

    EXPECT_TRUE(Shares(Refusal(Build(entries, frame))));
}

// --- the directory ---------------------------------------------------------------------------------------------------

TEST_F(HostileArchives, OfMoreThanAHundredThousandEntriesAreRefused) {
    ZipFrame frame;
    frame.zip64 = true;
    ZipBuilder builder(frame);
    for (int i = 0; i <= 100000; ++i) {
        builder.Add({std::to_string(i)});
    }
    EXPECT_EQ(Refusal(builder.Finish()), "holds more than 100000 entries");
}

TEST_F(HostileArchives, WithAHugeDirectoryAreRefused) {
    ZipBuilder builder;
    for (int i = 0; i < 1100; ++i) {
        builder.Add(Changed({std::to_string(i)}, [](ZipEntry& entry) { entry.comment = std::string(65535, 'c'); }));
    }
    EXPECT_EQ(Refusal(builder.Finish()), "has a directory of more than 67108864 bytes");
}

TEST_F(HostileArchives, WhoseEndRecordLiesAreRefused) {
    struct Case {
        void (*change)(ZipEnd&);
        const char *why, *whyOf64;
    };
    const char* disks = "spans several disks";
    for (const Case& each : {Case{[](ZipEnd& end) { end.signature = 0x06054B51; }, kNoArchive, kDamaged},
                             {[](ZipEnd& end) { end.entries = end.entriesHere = 1; }, kDamaged, kDamaged},
                             {[](ZipEnd& end) { end.entries = end.entriesHere = 3; }, kDamaged, kDamaged},
                             {[](ZipEnd& end) { end.entries = end.entriesHere = 60000; }, kDamaged, kDamaged},
                             {[](ZipEnd& end) { end.entries = end.entriesHere = 0; }, kDamaged, kDamaged},
                             {[](ZipEnd& end) { end.directorySize = 10; }, kNoArchive, kNoArchive},
                             {[](ZipEnd& end) { end.directorySize = 100000; }, kNoArchive, kNoArchive},
                             {[](ZipEnd& end) { end.directoryOffset = 0; }, kNoArchive, kNoArchive},
                             {[](ZipEnd& end) { end.directoryOffset = 100000; }, kNoArchive, kNoArchive},
                             {[](ZipEnd& end) { end.disk = 1; }, disks, disks},
                             {[](ZipEnd& end) { end.disk = end.directoryDisk = 1; }, disks, disks},
                             {[](ZipEnd& end) { end.entriesHere = 1; }, disks, disks}}) {
        ZipFrame frame;
        each.change(frame.end);
        EXPECT_EQ(Refusal(Build({{"a", "x"}, Deflated("b", "y")}, frame)), each.why);
        ZipFrame frame64;
        frame64.zip64 = true;
        each.change(frame64.end64);
        EXPECT_EQ(Refusal(Build({{"a", "x"}, Deflated("b", "y")}, frame64)), each.whyOf64);
    }
}

TEST_F(HostileArchives, WhoseZip64RecordIsElsewhereAreRefused) {
    for (uint64_t offset : {uint64_t{0}, uint64_t{10}, uint64_t{100000}, uint64_t{1} << 63, ~uint64_t{0}}) {
        ZipFrame frame;
        frame.zip64 = true;
        frame.end64Offset = offset;
        EXPECT_EQ(Refusal(Build({{"a", "x"}}, frame)), kDamaged) << offset;
    }
}

TEST_F(HostileArchives, WhoseDirectoryIsDamagedAreRefused) {
    EXPECT_EQ(RefusalOf(Changed({"e", "x"}, [](ZipEntry& e) { e.central.signature = 0x02014B51; })), kDamaged);
    EXPECT_EQ(RefusalOf(Changed({"e", "x"}, [](ZipEntry& e) { e.disk = 1; })), "spans several disks");
}

TEST_F(HostileArchives, WithBytesBehindTheCommentAreRefused) {
    ZipFrame after;
    after.after = "x";
    EXPECT_EQ(Refusal(Build({{"a", "x"}}, after)), kNoArchive);
    after.comment = "comment";
    EXPECT_EQ(Refusal(Build({{"a", "x"}}, after)), kNoArchive);

    ZipFrame cut;
    cut.comment = "comment";
    cut.commentSize = 8;
    EXPECT_EQ(Refusal(Build({{"a", "x"}}, cut)), kNoArchive);
    ZipFrame shifted;
    shifted.prefix = "a prefix that no offset counts";
    shifted.prefixCounts = false;
    EXPECT_EQ(Refusal(Build({{"a", "x"}}, shifted)), kNoArchive);
}

TEST_F(HostileArchives, ThatAreCutAnywhereAreRefused) {
    std::string noise;
    for (unsigned int i = 0; i < 3000; ++i) {
        noise += static_cast<char>(i * i * 2654435761u >> 24);
    }
    ZipFrame frame;
    frame.comment = std::string(250, 'c');
    std::string whole = Build({{"a", noise}, Deflated("b", noise), {"c/"}, {"empty"}}, frame);
    size_t end = whole.size();

    for (size_t size = 0; size < end; size += size + 320 < end ? 100 : 1) {
        EXPECT_EQ(Refusal(whole.substr(0, size)), kNoArchive) << size;
    }
    EXPECT_EQ(UnzipBytes(whole), 3);
}

TEST_F(HostileArchives, ThatAreNoneAreRefused) {
    for (const std::string& bytes :
         {std::string(), std::string("text"), std::string(100000, '\0'), std::string("PK\3\4"), std::string("PK\5\6"),
          std::string(100000, 'P'), std::string("\x1f\x8b\x08")}) {
        EXPECT_EQ(Refusal(bytes), kNoArchive) << bytes.size();
    }
}

}  // namespace
}  // namespace kx::test
