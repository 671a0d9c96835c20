// Files of the areas as streams of the standard library.
#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/MemoryArea.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::test {
namespace {

class Streams : public AreasTest {
protected:
    FILE* Open(const fs::path& path, const char* mode) { return KXOpenStream(path.c_str(), mode); }

    CapturingConsole m_console;
};

std::string ReadToEnd(FILE* stream) {
    std::string all;
    char chunk[1000];
    while (size_t count = std::fread(chunk, 1, sizeof chunk, stream)) {
        all.append(chunk, count);
    }
    return all;
}

TEST_F(Streams, ReadFilesOfEitherArea) {
    std::string contents;
    for (int i = 0; i < 300000; ++i) {
        contents += static_cast<char>(i % 253);
    }
    WriteWholeFile(Save("saved"), contents);
    WriteWholeFile(Bundle("shipped"), "shipped");

    for (const auto& [path, text] : {std::pair(Save("saved"), contents), {Bundle("shipped"), "shipped"}}) {
        FILE* stream = Open(path, "rb");
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(ReadToEnd(stream), text);
        EXPECT_TRUE(std::feof(stream));
        EXPECT_EQ(std::fclose(stream), 0);
    }
}

TEST_F(Streams, WhatIsWrittenTakesTheFilesPlaceAtTheClose) {
    WriteWholeFile(Save("file"), "old");
    fs::permissions(Save("file"), fs::perms(0600));
    FILE* stream = Open(Save("file"), "wb");
    ASSERT_NE(stream, nullptr);

    std::fputs("new ", stream);
    std::fputs("contents", stream);
    std::fflush(stream);
    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
    EXPECT_EQ(std::fclose(stream), 0);

    EXPECT_EQ(ReadWholeFile(Save("file")), "new contents");
    EXPECT_EQ(fs::status(Save("file")).permissions(), fs::perms(0600));
    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"file"});
}

TEST_F(Streams, AnAbandonedStreamLeavesTheFileAsItWas) {
    WriteWholeFile(Save("file"), "old");
    FILE* kept = Open(Save("kept"), "wb");
    FILE* given = Open(Save("file"), "wb");
    std::fputs("kept", kept);
    std::fputs("new", given);

    KXAbandonStream(given);
    EXPECT_EQ(std::fclose(given), 0);
    EXPECT_EQ(std::fclose(kept), 0);

    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
    EXPECT_EQ(ReadWholeFile(Save("kept")), "kept");
    KXAbandonStream(nullptr);
}

TEST_F(Streams, OnlyFilesOfTheAreasCanBeOpened) {
    fs::create_directory(Save("folder"));
    ASSERT_EQ(::mkfifo(Save("fifo").c_str(), 0600), 0);
    WriteWholeFile(Bundle("shipped"), "x");
    fs::create_symlink(Outside(), Save("link"));
    int before = OpenDescriptors();

    for (const fs::path& path : {Save("folder"), Save("fifo"), Save("link"), Save(), Outside(), fs::path("/dev/null"),
                                 fs::path(""), Save("../outside")}) {
        EXPECT_EQ(Open(path, "rb"), nullptr) << path;
        EXPECT_EQ(Open(path, "wb"), nullptr) << path;
    }
    EXPECT_EQ(Open(Save("missing"), "rb"), nullptr);
    EXPECT_EQ(Open(Save("no folder/x"), "wb"), nullptr);
    EXPECT_EQ(Open(Bundle("shipped"), "wb"), nullptr);
    EXPECT_EQ(Open(Save("x"), "ab"), nullptr);
    EXPECT_EQ(KXOpenStream(nullptr, "rb"), nullptr);
    EXPECT_EQ(KXOpenStream(nullptr, "wb"), nullptr);

    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(NamesIn(Bundle()), std::vector<std::string>{"shipped"});
}

TEST_F(Streams, AFileThatOnlyTheHostCanReadIsNoStream) {
    MemoryBundle bundle(Files{{"packed.txt", "packed"}});
    char path[1024];
    ASSERT_EQ(LoadSave::_GetBundleFileName(path, sizeof path, "packed.txt"), 0);

    EXPECT_EQ(KXOpenStream(path, "rb"), nullptr);

    int size = 0;
    char* bytes = LoadSave::ReadBundleFile("packed.txt", &size);
    EXPECT_EQ(std::string(bytes, static_cast<size_t>(size)), "packed");
    MemoryManager::Free(bytes);
}

TEST_F(Streams, AFailedWriteKeepsTheOldFileAndSaysSo) {
    WriteWholeFile(Save("file"), "old");
    FaultySystemCalls faults;
    FILE* stream = Open(Save("file"), "wb");
    ASSERT_NE(stream, nullptr);
    faults.FailFrom("write", 1, ENOSPC);

    std::string big(500000, 'n');
    EXPECT_LT(std::fwrite(big.data(), 1, big.size(), stream), big.size());
    EXPECT_NE(std::fclose(stream), 0);

    EXPECT_EQ(ReadWholeFile(Save("file")), "old");
    EXPECT_EQ(m_console.Take(),
              "Failed to write file: " + Save("file").string() + " (" + std::strerror(ENOSPC) + ")\n");
    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"file"});
}

TEST_F(Streams, AFailedReadIsAnErrorOfTheStreamAndSaysSo) {
    WriteWholeFile(Save("file"), "contents");
    FaultySystemCalls faults;
    FILE* stream = Open(Save("file"), "rb");
    faults.FailFrom("read", 1, EIO);

    EXPECT_EQ(ReadToEnd(stream), "");

    EXPECT_TRUE(std::ferror(stream));
    EXPECT_EQ(m_console.Take(), "Failed to read file: " + Save("file").string() + " (" + std::strerror(EIO) + ")\n");
    std::fclose(stream);
}

TEST_F(Streams, OfAnySizeAreRead) {
    WriteWholeFile(Save("huge"), "");
    ASSERT_EQ(::truncate(Save("huge").c_str(), 3LL << 30), 0);  // a hole: no room is taken

    FILE* stream = Open(Save("huge"), "rb");

    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(std::fgetc(stream), 0);
    std::fclose(stream);
}

}  // namespace
}  // namespace kx::test
