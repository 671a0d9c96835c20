// Scripts that do every kind of file work.
#include "proof/Faults_Scenarios.h"

#include "proof/Faults_Files.h"

namespace kx::proof {

using test::Value;

test::Value Script::Call(const char* name, const std::vector<Value>& arguments) {
    if (m_steps >= 0 && static_cast<int>(m_results.size()) == m_steps) throw Ended{};
    Value result = test::Call(name, arguments);
    bool isRequest = std::string(name) == "http_get_file" && result.Real() > 0;
    Take(std::string(name) + ": " + (isRequest ? "a request" : Describe(result.Get())));
    return result;
}

void Script::Await() {
    if (m_steps >= 0 && static_cast<int>(m_results.size()) == m_steps) throw Ended{};
    Take(World::AwaitEvents());
}

void Script::Take(const std::string& result) {
    m_results.push_back(result);
    bool said = m_world.Said().TakeSaid();
    if (!m_expected) return;
    bool same = m_results.size() <= m_expected->size() && result == (*m_expected)[m_results.size() - 1];
    if (said || !same) throw Ended{};
}

namespace {

std::function<void(Script&)> WriteText(const char* opener, const char* name) {
    return [=](Script& script) {
        Value file = script.Call(opener, {name});
        script.Call("file_text_write_string", {file, kLong});
        script.Call("file_text_writeln", {file});
        script.Call("file_text_write_real", {file, 12.5});
        script.Call("file_text_close", {file});
    };
}

std::function<void(Script&)> ReadText(const char* name) {
    return [=](Script& script) {
        Value file = script.Call("file_text_open_read", {name});
        for (int line = 0; line < 3; ++line) {
            script.Call("file_text_read_string", {file});
            script.Call("file_text_readln", {file});
            script.Call("file_text_eof", {file});
        }
        script.Call("file_text_close", {file});
    };
}

std::function<void(Script&)> WriteBinary(const char* name, int mode) {
    return [=](Script& script) {
        Value file = script.Call("file_bin_open", {name, mode});
        script.Call("file_bin_seek", {file, 2000});
        script.Call("file_bin_write_byte", {file, 65});
        script.Call("file_bin_seek", {file, 10});
        script.Call("file_bin_write_byte", {file, 66});
        script.Call("file_bin_position", {file});
        script.Call("file_bin_size", {file});
        script.Call("file_bin_close", {file});
    };
}

void RewriteBinary(Script& script) {
    Value file = script.Call("file_bin_open", {"data.bin", 2});
    script.Call("file_bin_read_byte", {file});
    script.Call("file_bin_rewrite", {file});
    script.Call("file_bin_write_byte", {file, 65});
    script.Call("file_bin_close", {file});
}

void HandleFiles(Script& script) {
    script.Call("file_exists", {"notes.txt"});
    script.Call("file_rename", {"notes.txt", "folder/renamed.txt"});
    script.Call("file_rename", {"table.csv", "data.bin"});
    script.Call("file_attributes", {"folder/renamed.txt", 0});
    script.Call("file_delete", {"folder/renamed.txt"});
    script.Call("file_exists", {"folder/renamed.txt"});
}

void HandleDirectories(Script& script) {
    script.Call("directory_create", {"new/folder/below"});
    script.Call("directory_exists", {"new/folder"});
    script.Call("directory_destroy", {"folder"});
    script.Call("directory_exists", {"folder"});
    script.Call("directory_destroy", {"new/folder"});
}

void Search(Script& script) {
    script.Call("file_find_first", {"*", 18});
    for (int i = 0; i < 4; ++i) {
        script.Call("file_find_next");
    }
    script.Call("file_find_close");
    script.Call("file_find_first", {"levels/*.json", 0});
    script.Call("file_find_close");
}

std::function<void(Script&)> ChangeDocument(const char* name) {
    return [=](Script& script) {
        script.Call("ini_open", {name});
        script.Call("ini_read_real", {"audio", "music", 1});
        script.Call("ini_write_string", {"audio", "music", "0.5"});
        script.Call("ini_write_real", {"a new section", "key", 12.5});
        script.Call("ini_key_delete", {"video", "name"});
        script.Call("ini_close");
    };
}

/// The first one is written when the second one is opened.
void ChangeTwoDocuments(Script& script) {
    script.Call("ini_open", {"settings.ini"});
    script.Call("ini_section_delete", {"audio"});
    script.Call("ini_open", {"new/second.ini"});
    script.Call("ini_write_string", {"section", "key", kLong});
    script.Call("ini_close");
}

void SaveJson(Script& script) {
    Value file = script.Call("file_text_open_read", {"save.json"});
    Value text = script.Call("file_text_read_string", {file});
    script.Call("file_text_close", {file});
    Value tree = script.Call("json_parse", {text});
    Value again = script.Call("json_stringify", {tree});
    Value out = script.Call("file_text_open_write", {"save.json"});
    script.Call("file_text_write_string", {out, again});
    script.Call("file_text_close", {out});
}

std::function<void(Script&)> One(const char* name, const std::vector<Value>& arguments) {
    return [=](Script& script) { script.Call(name, arguments); };
}

std::function<void(Script&)> Download(const char* path, const char* name) {
    return [=](Script& script) {
        script.Call("http_get_file", {script.Around().Url(path), name});
        script.Await();
    };
}

void AddText(std::vector<Scenario>* all) {
    for (const char* opener : {"file_text_open_write", "file_text_open_append"}) {
        for (const char* name : {"notes.txt", "table.csv", "new/folder/notes.txt", "shipped.txt"}) {
            all->push_back({opener, WriteText(opener, name)});
        }
    }
    all->insert(all->end(),
                {{"append to a file in an archive", WriteText("file_text_open_append", "shipped.txt"), true},
                 {"read a saved text", ReadText("notes.txt")},
                 {"read a shipped text", ReadText("shipped.txt")},
                 {"read a text in an archive", ReadText("shipped.txt"), true},
                 {"save JSON", SaveJson}});
}

void AddBinary(std::vector<Scenario>* all) {
    all->insert(all->end(), {{"write bytes into a file", WriteBinary("data.bin", 2)},
                             {"write a file of bytes anew", WriteBinary("data.bin", 1)},
                             {"write a new file of bytes", WriteBinary("new/data.bin", 1)},
                             {"write bytes into a shipped file", WriteBinary("shipped.bin", 2)},
                             {"rewrite a file of bytes", RewriteBinary}});
}

void AddFiles(std::vector<Scenario>* all) {
    all->insert(all->end(), {{"rename and delete", HandleFiles},
                             {"directories", HandleDirectories},
                             {"search", Search},
                             {"search in an archive", Search, true},
                             {"copy a saved file", One("file_copy", {"notes.txt", "data.bin"})},
                             {"copy to a new folder", One("file_copy", {"notes.txt", "new/folder/copy"})},
                             {"copy a shipped file", One("file_copy", {"shipped.bin", "data.bin"})},
                             {"copy a file in an archive", One("file_copy", {"shipped.bin", "new/copy.bin"}), true}});
}

void AddData(std::vector<Scenario>* all) {
    all->insert(all->end(), {{"change a document", ChangeDocument("settings.ini")},
                             {"change a shipped document", ChangeDocument("shipped.ini")},
                             {"make a document", ChangeDocument("new/folder/new.ini")},
                             {"change two documents", ChangeTwoDocuments},
                             {"unzip", One("zip_unzip", {"pack.zip", "unpacked"})},
                             {"unzip to a new folder", One("zip_unzip", {"pack.zip", "new/folder"})},
                             {"unzip from an archive", One("zip_unzip", {"pack.zip", "unpacked"}), true},
                             {"load a table", One("load_csv", {"table.csv"})},
                             {"load a table in an archive", One("load_csv", {"table.csv"}), true},
                             {"download over a file", Download("/file", "notes.txt"), false, true},
                             {"download a new file", Download("/file", "new/folder/notes.txt"), false, true}});
}

}  // namespace

std::vector<Scenario> Scenarios() {
    std::vector<Scenario> all;
    AddText(&all);
    AddBinary(&all);
    AddFiles(&all);
    AddData(&all);
    return all;
}

}  // namespace kx::proof
