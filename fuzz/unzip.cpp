// Archives of any bytes, and archives that lie: what is unpacked is what they hold, in the directory that was asked for
// and nowhere else.
#include "fuzz/Areas.h"
#include "fuzz/Host.h"
#include "fuzz/Input.h"
#include "fuzz/Values.h"
#include "tests/support/Folder.h"
#include "tests/support/ZipBuilder.h"

#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::fuzz {
namespace {

using test::ZipEntry;
using test::ZipFrame;

constexpr char kArchive[] = "in.zip";
constexpr char kOut[] = "out";

constexpr const char* kPlainNames[] = {"a", "b.txt", "folder/c", "folder/deep/d", "\xC3\xA4"};
constexpr const char* kOtherNames[] = {"../up",    "/root", "a/../../up", "folder/", "A",   "a/b",  "..",   ".",
                                       "C:\\file", "a\\b",  "",           "a\n",     "con", "nul.", "a//b", "./a"};
constexpr uint32_t kKinds[] = {0100644, 0120777, 0040755, 0020644, 0};  // file, link, directory, device, none

/// Makes archives, honest or not.
class Author {
public:
    explicit Author(Input* input) : m_input(*input), m_lies(m_input.ConsumeBool()) {}

    std::string Write() {
        ZipFrame frame;
        if (m_lies) Lie(&frame);
        for (size_t left = m_input.Below(5); left > 0; --left) {
            m_entries.push_back(Entry());
        }
        return test::Build(m_entries, frame);
    }

    /// Entries of an archive that has to be unpacked; none where it need not be.
    [[nodiscard]] const std::vector<ZipEntry>* Honest() const { return m_lies ? nullptr : &m_entries; }

private:
    ZipEntry Entry() {
        std::string name = m_input.Of(kPlainNames);
        std::string contents = m_input.Text(16);
        if (m_lies && m_input.ConsumeBool()) name = m_input.ConsumeBool() ? m_input.Of(kOtherNames) : m_input.Text(12);
        ZipEntry entry = m_input.ConsumeBool() ? test::Deflated(name, contents) : ZipEntry{name, contents};
        if (m_input.Below(4) == 0) entry.flags = test::kWithDescriptor;
        entry.zip64 = m_input.Below(4) == 0;
        if (m_lies) Lie(&entry);
        if (!m_names.insert(name).second) m_lies = true;
        return entry;
    }

    void Lie(ZipEntry* entry) {
        auto number = m_input.ConsumeIntegral<uint32_t>();
        switch (m_input.Below(12)) {
        case 0: entry->crc = number; return;
        case 1: entry->size = number; return;
        case 2: entry->offset = number; return;
        case 3: entry->method = static_cast<uint16_t>(number); return;
        case 4: entry->flags = static_cast<uint16_t>(number); return;
        case 5: entry->local.packedSize = number; return;
        case 6: entry->central.packedSize = number; return;
        case 7: entry->local.name = m_input.Text(8); return;
        case 8: entry->central.extra = m_input.Text(24); return;
        case 9: entry->packed = m_input.Text(16); return;
        case 10: *entry = test::UnixEntry(entry->name, m_input.Of(kKinds), entry->contents); return;
        default: return;
        }
    }

    void Lie(ZipFrame* frame) {
        auto number = m_input.ConsumeIntegral<uint16_t>();
        switch (m_input.Below(12)) {
        case 0: frame->end.entries = number; return;
        case 1: frame->end.directorySize = number; return;
        case 2: frame->end.directoryOffset = number; return;
        case 3: frame->commentSize = number; return;
        case 4: frame->prefix = m_input.Text(8); return;
        case 5: frame->after = m_input.Text(8); return;
        case 6: frame->zip64 = true; return;
        case 7: frame->beforeDirectory = m_input.Text(8); return;
        default: return;
        }
    }

    Input& m_input;
    bool m_lies;
    std::vector<ZipEntry> m_entries;
    std::set<std::string> m_names;
};

void WriteArchive(const std::string& bytes) {
    int file = ::open(Areas::Get().Save(kArchive).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    bool written = ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    ::close(file);
    Require(written, "the archive is there");
}

/// What was unpacked, which is removed. Nothing but files and directories may be there.
size_t TakeFiles(const std::string& out) {
    bool nothing = ::rmdir(out.c_str()) == 0 || errno == ENOENT;
    if (nothing) return 0;
    size_t files = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(out)) {
        fs::file_status status = entry.symlink_status();
        Require(fs::is_regular_file(status) || fs::is_directory(status), "only files and directories are made",
                entry.path());
        files += fs::is_regular_file(status) ? 1 : 0;
    }
    fs::remove_all(out);
    return files;
}

void RequireContents(const std::string& out, const std::vector<ZipEntry>& entries) {
    for (const ZipEntry& entry : entries) {
        Require(test::ReadWholeFile(out + "/" + entry.name) == entry.contents, "files hold what was packed",
                entry.name);
    }
}

void RequireNothingElse() {
    for (const fs::directory_entry& entry : fs::directory_iterator(Areas::Get().Save())) {
        Require(entry.path().filename() == kArchive, "nothing is made beside the directory", entry.path());
    }
    Areas::Get().RequireOutsideUntouched();
}

/// @param honest  entries that have to be unpacked; null where anything may be refused.
void Check(const std::string& archive, const std::vector<ZipEntry>* honest) {
    static BuiltIn unzip("zip_unzip");
    WriteArchive(archive);
    RValueOwner from(Text(kArchive));
    RValueOwner to(Text(kOut));
    double written = unzip.Number({from.value, to.value});
    std::string out = Areas::Get().Save(kOut);
    if (honest) {
        Require(written == static_cast<double>(honest->size()), "a good archive is unpacked");
        RequireContents(out, *honest);
    }
    size_t files = TakeFiles(out);
    Require(written == -1 || written == static_cast<double>(files), "the files that were written are counted");
    RequireNothingElse();
}

}  // namespace
}  // namespace kx::fuzz

/// An archive's bytes, or, where it does not begin as one, what an archive is made of.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (bytes.compare(0, 1, "P") == 0) {
        kx::fuzz::Check(bytes, nullptr);
        return 0;
    }
    kx::fuzz::Input input(data, size);
    kx::fuzz::Author author(&input);
    std::string archive = author.Write();
    kx::fuzz::Check(archive, author.Honest());
    return 0;
}
