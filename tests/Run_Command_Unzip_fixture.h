#pragma once

#include "Files/IO/LoadSave.h"
#include "Files/Run/Run_Command.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"
#include "tests/support/Snapshot.h"
#include "tests/support/ZipBuilder.h"

namespace kx::test {

using Entries = std::vector<ZipEntry>;

/// Archives in the bundle, unpacked into a folder of the save area that is not there before.
class UnzipTest : public AreasTest {
protected:
    [[nodiscard]] std::filesystem::path Archive() const { return Bundle("pack.zip"); }
    [[nodiscard]] std::filesystem::path To(const std::string& name = "") const {
        return name.empty() ? Save("to") : Save("to") / name;
    }

    static int Command(const std::filesystem::path& archive, const std::filesystem::path& destination) {
        return Command_Unzip(archive.c_str(), destination.c_str(), 0, 0, nullptr);
    }

    int UnzipBytes(const std::string& bytes) {
        WriteWholeFile(Archive(), bytes);
        return Command(Archive(), To());
    }

    int Unzip(const Entries& entries, const ZipFrame& frame = {}) { return UnzipBytes(Build(entries, frame)); }

    /// Why an archive is refused: what the one line on the console says. A refusal costs nothing and changes nothing.
    std::string Refusal(const std::string& bytes, const std::filesystem::path& destination) {
        WriteWholeFile(Archive(), bytes);
        Snapshot before = ExactSnapshot(Save());
        int descriptors = OpenDescriptors();
        long long blocks = MemoryManager::Stats().blocks;

        EXPECT_EQ(Command(Archive(), destination), -1);

        EXPECT_TRUE(ExactSnapshot(Save()) == before) << "something was touched";
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
        EXPECT_EQ(TakeError(), "");
        return Why();
    }
    std::string Refusal(const std::string& bytes) { return Refusal(bytes, To()); }

    /// The same of an entry between two good ones.
    std::string RefusalOf(const ZipEntry& entry) {
        return Refusal(Build({{"first", "good"}, entry, Deflated("last", "good")}));
    }

    /// What stands in the brackets of the console's line; the whole text where it is not that one line.
    std::string Why() {
        std::string line = m_console.Take();
        std::string head = "Failed to unzip: " + Archive().string() + " (";
        std::string tail = ")\n";
        bool whole = line.rfind(head, 0) == 0 && line.size() >= head.size() + tail.size() &&
                     line.find('\n') == line.size() - 1 && line[line.size() - tail.size()] == ')';
        return whole ? line.substr(head.size(), line.size() - head.size() - tail.size()) : "no such line: " + line;
    }

    CapturingConsole m_console;
};

}  // namespace kx::test
