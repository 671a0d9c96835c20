// The ways in which a script saves.
#include "proof/Crash_Scenario.h"

#include "Files/IO/LoadSave.h"
#include "Files/Support/Support_Data_Structures.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Folder.h"
#include "tests/support/ZipBuilder.h"

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

using test::Call;
using test::Value;

constexpr size_t kMebibyte = 1024 * 1024;
constexpr int kDownloadWait = 30 * 1000;  // milliseconds

/// Text of a size, of one line, that differs from any other seed's in every block.
std::string Text(size_t size, unsigned int seed) {
    std::string text(size, ' ');
    unsigned int state = seed * 2654435761U + 1;
    for (char& c : text) {
        state = state * 1664525U + 1013904223U;
        c = static_cast<char>('0' + (state >> 26));
    }
    return text;
}

bool NoError() {
    return test::TakeError().empty();
}

bool WriteText(const char* opener, const std::string& name, const std::string& text) {
    Value file = Call(opener, {name});
    if (file.Kind() != VALUE_REAL || file.Real() < 1) return false;
    if (!text.empty()) Call("file_text_write_string", {file, text});
    Call("file_text_close", {file});
    return NoError();
}

Scenario Rewrite(const std::string& name, const std::optional<std::string>& before, const std::string& after) {
    SavedFile file{"slots/save.dat", before, after};
    if (!before) file.openedEmpty = true;
    return {name, {file}, [file] { return WriteText("file_text_open_write", file.name, file.after); }};
}

Scenario New() {
    Scenario scenario = Rewrite("new", std::nullopt, Text(3000, 1));
    scenario.files[0].name = "profiles/ada/slots/save.dat";  // with all its directories
    scenario.save = [file = scenario.files[0]] { return WriteText("file_text_open_write", file.name, file.after); };
    return scenario;
}

Scenario FirstStart() {
    Scenario scenario = New();
    scenario.name = "first start";
    scenario.firstStart = true;
    return scenario;
}

Scenario Append() {
    std::string before = Text(6000, 2);
    std::string added = Text(3000, 3);
    SavedFile file{"slots/journal.txt", before, before + added};
    return {"append", {file}, [file, added] { return WriteText("file_text_open_append", file.name, added); }};
}

Scenario Ini() {
    std::string head = "; settings\n[video]\nwidth=\"1920\"\n\n[audio]\nmusic=";
    std::string tail = "\nvoice=\"0.5\"\n" + std::string(5000, ';') + "\n";
    SavedFile file{"settings.ini", head + "0.8" + tail, head + "0.25" + tail};
    return {"INI", {file}, [file] {
                Call("ini_open", {file.name});
                Call("ini_write_string", {"audio", "music", "0.25"});
                Call("ini_close");
                return NoError();
            }};
}

/// @return the number of an event that has it; -1 where the event has not come.
double AwaitStatus() {
    ASYNC_EVENT event{};
    if (!LoadSave::NextEvent(kDownloadWait, &event)) return -1;
    double status = -1;
    {
        DS_AutoMutex lock;
        ForEachEntry(*themaps.arr[event.m_map], [&status](const MapStore& entry) {
            if (std::string("status") == KXGetString(&entry.key, 0)) status = entry.value.real;
        });
    }
    LoadSave::ReleaseEvent(event);
    return status;
}

Scenario Download(const std::string& url) {
    SavedFile file{"downloads/level.dat", Text(5000, 4), TheDownload()};
    return {"download",
            {file},
            [file, url] {
                Call("http_get_file", {url, file.name});
                return AwaitStatus() == 0 && NoError();
            },
            [url] {  // loads the library, starts the thread, connects
                Call("http_get", {url});
                AwaitStatus();
            }};
}

Scenario Archive() {
    Scenario scenario{"archive", {}, [] { return Call("zip_unzip", {"update.zip", "mods"}).Real() == 4 && NoError(); }};
    scenario.files = {{"mods/base/rules.txt", Text(9000, 5), Text(3000, 6)},
                      {"mods/base/map.txt", Text(100, 7), Text(150000, 8)},
                      {"mods/base/fresh.txt", std::nullopt, Text(2000, 9)},
                      {"mods/added/deep/notes.txt", std::nullopt, Text(5000, 10)}};
    std::vector<test::ZipEntry> entries;
    for (const SavedFile& file : scenario.files) {
        entries.push_back(test::Deflated(file.name.substr(5), file.after));
    }
    scenario.archive = test::Build(entries);
    return scenario;
}

}  // namespace

std::string TheDownload() {
    static const std::string download = Text(200000, 11);
    return download;
}

std::vector<Scenario> AllScenarios(const test::HttpServer& server) {
    return {FirstStart(),
            New(),
            Rewrite("replace", Text(5000, 12), Text(5000, 13)),
            Rewrite("grow", Text(1000, 14), Text(100000, 15)),
            Rewrite("shrink", Text(100000, 16), Text(1000, 17)),
            Rewrite("to empty", Text(5000, 18), ""),
            Rewrite("1 byte", "a", "b"),
            Rewrite("4 KiB", Text(4096, 19), Text(4096, 20)),
            Rewrite("1 MiB", Text(kMebibyte, 21), Text(kMebibyte, 22)),
            Append(),
            Ini(),
            Download(server.Url()),
            Archive()};
}

std::vector<Setting> AllSettings() {
    Setting all{"all there is"};
    Setting named{"no unnamed files"};
    named.unnamedFiles = false;
    Setting overwriting{"no exchange of names"};
    overwriting.unnamedFiles = overwriting.exchange = false;
    Setting copying{"no links"};
    copying.links = false;
    Setting loose{"no syncs"};
    loose.durable = false;
    return {all, named, overwriting, copying, loose};
}

void Prepare(const Scenario& scenario, const fs::path& folder) {
    fs::remove_all(folder / "save");
    fs::remove_all(folder / "bundle");
    if (!scenario.firstStart) fs::create_directories(folder / "save");
    fs::create_directories(folder / "bundle");
    for (const SavedFile& file : scenario.files) {
        if (file.before) test::WriteWholeFile(folder / "save" / file.name, *file.before);
    }
    if (!scenario.archive.empty()) test::WriteWholeFile(folder / "bundle" / "update.zip", scenario.archive);
}

const char* FaultOf(const SavedFile& file, const std::string* found, bool reported) {
    if (found && *found == file.after) return nullptr;
    if (reported) return found ? "is not what was reported saved" : "was reported saved and is gone";
    if (!found) return file.before ? "is lost" : nullptr;
    if (file.openedEmpty && found->empty()) return nullptr;
    return *found == file.before ? nullptr : "is neither old nor new";
}

std::string FaultBelow(const Scenario& scenario, const fs::path& folder, bool reported) {
    for (const SavedFile& file : scenario.files) {
        fs::path path = folder / "save" / file.name;
        std::optional<std::string> found;
        if (fs::exists(path)) found = test::ReadWholeFile(path);
        if (const char* fault = FaultOf(file, found ? &*found : nullptr, reported)) return file.name + " " + fault;
    }
    return "";
}

}  // namespace kx::proof
