// The host before, during and after a crash.
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "proof/Crash_Scenario.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Folder.h"
#include "tests/support/Snapshot.h"

#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

using test::Call;

constexpr char kFurther[] = "a further save";
constexpr unsigned int kPatience = 60;  // seconds that a start and a save may take before they count as hung

/// The first name below a folder that a script cannot say: what a save left behind.
std::string LeftoverIn(const fs::path& folder) {
    for (const auto& entry : test::ContentsBelow(folder)) {
        std::string leaf = LeafOf(entry.first);
        if (leaf.compare(0, std::strlen(kTemporaryPrefix), kTemporaryPrefix) == 0) return entry.first;
    }
    return "";
}

std::optional<std::string> ReadByHost(const std::string& name) {
    _KXFILE* file = LoadSave::fopen(name.c_str(), "rb");
    if (!file) return std::nullopt;
    std::string contents(file->pBuff->m_data, static_cast<size_t>(file->pBuff->m_size));
    LoadSave::fclose(file);
    return contents;
}

std::string SaveFurther(const std::string& name) {
    test::Value file = Call("file_text_open_write", {name});
    Call("file_text_write_string", {file, kFurther});
    Call("file_text_close", {file});
    std::string error = test::TakeError();
    if (!error.empty()) return "a further save fails: " + error;
    return ReadByHost(name) == std::string(kFurther) ? "" : "a further save of " + name + " is not what it should be";
}

std::string Restart(const Scenario& scenario, const Setting& setting, const fs::path& folder) {
    Host host(folder, setting);
    if (!host.Works()) return "the next start fails: " + host.Messages();
    if (std::string left = LeftoverIn(folder / "save"); !left.empty()) return left + " is left after the next start";
    for (const SavedFile& file : scenario.files) {
        std::optional<std::string> found = ReadByHost(file.name);
        const char* fault = FaultOf(file, found ? &*found : nullptr, false);
        if (fault) return file.name + ", read, " + fault;
    }
    for (const SavedFile& file : scenario.files) {
        if (std::string wrong = SaveFurther(file.name); !wrong.empty()) return wrong;
    }
    std::string left = LeftoverIn(folder / "save");
    return left.empty() ? "" : left + " is left after a further save";
}

void WriteText(int file, const std::string& text) {
    if (::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) ::_exit(1);
}

std::string ReadText(int file) {
    std::string text;
    char part[1024];
    for (ssize_t count = 0; (count = ::read(file, part, sizeof part)) > 0;) {
        text.append(part, static_cast<size_t>(count));
    }
    return text;
}

}  // namespace

Host::Host(const fs::path& folder, const Setting& setting) {
    if (!setting.unnamedFiles) m_calls.FailWithFlags("openat", O_TMPFILE, EOPNOTSUPP);
    if (!setting.exchange) m_calls.FailWithFlags("renameat2", RENAME_EXCHANGE, EINVAL);
    if (!setting.links) m_calls.FailFrom("linkat", 1, EPERM);
    LoadSave::SetDurability(setting.durable ? Durability::full : Durability::none);
    m_started = LoadSave::SetSaveArea((folder / "save").c_str()) == 0 &&
                LoadSave::SetBundleArea((folder / "bundle").c_str()) == 0;
    InitFileFunctions();
}

Host::~Host() {
    FINALIZE_Function_File();
    LoadSave::Shutdown();
}

bool Host::Works() {
    return m_started && test::TakeError().empty();
}

std::string RestartOn(const Scenario& scenario, const Setting& setting, const fs::path& folder) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return "no pipe";
    pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kPatience);
        WriteText(ends[1], Restart(scenario, setting, folder));
        ::_exit(0);
    }
    ::close(ends[1]);
    std::string wrong = ReadText(ends[0]);
    ::close(ends[0]);
    int status = 0;
    bool ended = child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (wrong.empty() && !ended) wrong = "the next start crashes or hangs";
    return wrong;
}

}  // namespace kx::proof
