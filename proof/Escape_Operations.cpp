// The built-ins that take names.
#include "proof/Escape_Operations.h"

#include "Files/Base/IniFile.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_Data_Structures.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"

namespace kx::proof {
namespace {

using test::Call;
using test::Value;

constexpr int kPatience = 30 * 1000;  // ms, of an answer from this machine
constexpr int kMostLines = 100;
constexpr int kMostBytes = 200;

constexpr bool kReads = true;
constexpr bool kChanges = false;

double Real(const char* name, std::vector<Value> arguments) {
    return Call(name, std::move(arguments)).Real();
}

/// The text of a result; of a result that was not set, none.
std::string Text(const Value& value) {
    return value.Kind() == VALUE_STRING ? value.Text() : "";
}

// --- files ----------------------------------------------------------------------------------------------------------

Outcome ReadText(const std::string& name) {
    double id = Real("file_text_open_read", {name});
    if (id < 0) return {};
    Outcome outcome{true, false};
    for (int i = 0; i < kMostLines && Real("file_text_eof", {id}) == 0; ++i) {
        outcome.text += Text(Call("file_text_readln", {id}));
    }
    Call("file_text_close", {id});
    return outcome;
}

Outcome WriteText(const char* opener, const std::string& name) {
    double id = Real(opener, {name});
    if (id < 0) return {};
    Call("file_text_write_string", {id, "written"});
    Call("file_text_close", {id});
    return {false, true};
}

std::string ReadBytes(double id) {
    std::string bytes;
    double size = Real("file_bin_size", {id});
    for (int i = 0; i < size && i < kMostBytes; ++i) {
        bytes += static_cast<char>(Real("file_bin_read_byte", {id}));
    }
    return bytes;
}

Outcome UseBinary(const std::string& name, int mode, bool rewrite) {
    double id = Real("file_bin_open", {name, mode});
    if (id < 0) return {};
    Outcome outcome{mode == 0, mode != 0};
    if (mode == 0 || mode == 2) outcome.text = ReadBytes(id);
    if (rewrite) Call("file_bin_rewrite", {id});
    Call("file_bin_write_byte", {id, 65});
    Call("file_bin_close", {id});
    return outcome;
}

/// A result that is 1 where something was done, 0 or not set where nothing was.
bool Done(const char* name, std::vector<Value> arguments) {
    return Real(name, std::move(arguments)) == 1;
}

Outcome FindAll(const std::string& mask) {
    Outcome outcome;
    std::string name = Text(Call("file_find_first", {mask, 2 + 16}));
    for (; !name.empty(); name = Text(Call("file_find_next"))) {
        outcome.found = true;
        outcome.text += name + "\n";
    }
    Call("file_find_close");
    return outcome;
}

// --- documents, tables, archives, downloads -------------------------------------------------------------------------

/// Its sections are told by reading only, since an empty document opens for every name.
Outcome ReadIni(const std::string& name) {
    Call("ini_open", {name});
    std::string text = Text(Call("ini_close"));
    return {!text.empty(), false, false, text};
}

Outcome WriteIni(const std::string& name) {
    Call("ini_open", {name});
    if (g_IniFile) Call("ini_write_string", {"section", "key", "written"});
    return {false, false, false, Text(Call("ini_close"))};
}

Outcome LoadTable(const std::string& name) {
    double grid = Real("load_csv", {name});
    if (grid < 0) return {};
    Outcome outcome{true, false};
    RValueOwner cell;
    bool holds = thegrids.arr[static_cast<int>(grid)]->Get(0, 0, &cell.value);
    if (holds && cell.value.kind == VALUE_STRING && cell.value.str) outcome.text = cell.value.str->m_thing;
    FreeDsGrid(static_cast<int>(grid));
    return outcome;
}

Outcome Download(const std::string& url, const std::string& name) {
    if (Real("http_get_file", {url, name}) < 0) return {};
    ASYNC_EVENT event{};
    if (!LoadSave::NextEvent(kPatience, &event)) return {false, false, true, ""};
    Outcome outcome;
    {
        DS_AutoMutex lock;
        Value key("status");
        const RValue* status = themaps.arr[event.m_map]->Find(&key.Get());
        outcome.made = status && status->real == 0;
    }
    LoadSave::ReleaseEvent(event);
    return outcome;
}

// --- the table ------------------------------------------------------------------------------------------------------

void AddFiles(std::vector<Operation>* all) {
    all->push_back({"file_text_open_read", kReads, ReadText});
    for (const char* opener : {"file_text_open_write", "file_text_open_append"}) {
        all->push_back({opener, kChanges, [opener](const std::string& name) { return WriteText(opener, name); }});
    }
    for (int mode : {0, 1, 2, 5}) {
        std::string title = "file_bin_open " + std::to_string(mode);
        all->push_back({title, mode == 0, [mode](const std::string& name) { return UseBinary(name, mode, false); }});
    }
    all->push_back({"file_bin_rewrite", kChanges, [](const std::string& name) { return UseBinary(name, 2, true); }});
    for (const char* test : {"file_exists", "directory_exists"}) {
        all->push_back({test, kReads, [test](const std::string& name) { return Outcome{Done(test, {name}), false}; }});
    }
    all->push_back({"file_attributes", kReads, [](const std::string& name) {
                        return Outcome{Real("file_attributes", {name, 0}) != 0, false};
                    }});
    all->push_back({"file_delete", kChanges, [](const std::string& name) {
                        return Outcome{false, Done("file_delete", {name})};
                    }});
    all->push_back({"file_rename from", kChanges, [](const std::string& name) {
                        return Outcome{Done("file_rename", {name, "renamed.txt"}), false};
                    }});
    all->push_back({"file_rename to", kChanges, [](const std::string& name) {
                        return Outcome{false, Done("file_rename", {"inside.txt", name})};
                    }});
    all->push_back({"file_copy from", kReads, [](const std::string& name) {
                        return Outcome{Real("file_copy", {name, "copied.txt"}) == 0, false};
                    }});
    all->push_back({"file_copy to", kChanges, [](const std::string& name) {
                        return Outcome{false, Real("file_copy", {"inside.txt", name}) == 0};
                    }});
    all->push_back({"file_copy to, from the bundle", kChanges, [](const std::string& name) {
                        return Outcome{false, Real("file_copy", {"shipped.txt", name}) == 0};
                    }});
    all->push_back({"directory_create", kChanges, [](const std::string& name) {
                        return Outcome{false, Done("directory_create", {name})};
                    }});
    all->push_back({"directory_destroy", kChanges, [](const std::string& name) {
                        Call("directory_destroy", {name});
                        return Outcome{};
                    }});
    all->push_back({"file_find_first", kReads, FindAll});
    all->push_back({"file_find_first in", kReads, [](const std::string& name) { return FindAll(name + "/*"); }});
}

void AddNames(std::vector<Operation>* all) {
    for (const char* part : {"filename_name", "filename_path", "filename_dir", "filename_drive", "filename_ext"}) {
        all->push_back({part, kReads, [part](const std::string& name) {
                            return Outcome{false, false, false, Text(Call(part, {name}))};
                        }});
    }
    all->push_back({"filename_change_ext", kReads, [](const std::string& name) {
                        return Outcome{false, false, false, Text(Call("filename_change_ext", {name, name}))};
                    }});
}

void AddDocuments(const std::string& url, std::vector<Operation>* all) {
    all->push_back({"ini_open to read", kReads, ReadIni});
    all->push_back({"ini_open to write", kChanges, WriteIni});
    all->push_back({"load_csv", kReads, LoadTable});
    all->push_back({"zip_unzip from", kReads, [](const std::string& name) {
                        return Outcome{Real("zip_unzip", {name, "unpacked"}) >= 0, false};
                    }});
    all->push_back({"zip_unzip to", kChanges, [](const std::string& name) {
                        return Outcome{false, Real("zip_unzip", {"inside.zip", name}) >= 0};
                    }});
    all->push_back({"http_get_file", kChanges, [url](const std::string& name) { return Download(url, name); }});
}

}  // namespace

std::vector<Operation> NameOperations(const std::string& url) {
    std::vector<Operation> all;
    AddFiles(&all);
    AddNames(&all);
    AddDocuments(url, &all);
    return all;
}

void ResetBuiltIns() {
    for (int id = 1; id < MAXFILE; ++id) {
        Call("file_text_close", {id});
    }
    FINALIZE_Function_File();
    InitBinFiles();
    Call("file_find_close");
    test::TakeError();
}

}  // namespace kx::proof
