// Calls of the built-ins for files and directories.
#include "proof/Faults_Rows.h"

#include "proof/Faults_Files.h"

namespace kx::proof {

using test::Call;
using test::Value;

namespace {

/// A file opened by one built-in, its number followed by more arguments.
std::function<Values(World&)> Opened(const char* opener, const Values& arguments, const Values& more = {}) {
    return [=](World&) {
        Values all{Call(opener, arguments)};
        for (const Value& each : more) {
            all.push_back(each);
        }
        return all;
    };
}

/// The same, with something written to it.
std::function<Values(World&)> Written(const char* opener, const Values& arguments) {
    return [=](World&) {
        Value file = Call(opener, arguments);
        bool isText = std::string(opener).find("text") != std::string::npos;
        Call(isText ? "file_text_write_string" : "file_bin_write_byte", {file, isText ? Value(kLong) : Value(65)});
        return Values{file};
    };
}

/// Opens a file and goes far beyond its end.
Values FarBeyond(World&) {
    Value file = Call("file_bin_open", {"data.bin", 2});
    Call("file_bin_seek", {file, 200000});
    return {file, 65};
}

void AddBinary(std::vector<Row>* rows) {
    for (int mode : {0, 1, 2}) {
        rows->push_back({"file_bin_open", "a saved file", Plain({"data.bin", mode})});
        rows->push_back({"file_bin_open", "a shipped file", Plain({"shipped.bin", mode})});
        rows->push_back({"file_bin_open", "in an archive", Plain({"shipped.bin", mode}), Row::inArchive});
        rows->push_back({"file_bin_open", "a new file", Plain({"new/folder/data.bin", mode})});
    }
    rows->insert(rows->end(), {{"file_bin_open", "in a slot with a name",
                                [](World&) {
                                    Call("file_bin_open", {"missing/../..", 0});
                                    return Values{"data.bin", 0};
                                }},
                               {"file_bin_rewrite", "a saved file", Written("file_bin_open", {"data.bin", 2})},
                               {"file_bin_rewrite", "a new file", Written("file_bin_open", {"new/data.bin", 1})},
                               {"file_bin_rewrite", "a shipped file", Opened("file_bin_open", {"shipped.bin", 0})},
                               {"file_bin_close", "changed", Written("file_bin_open", {"data.bin", 2})},
                               {"file_bin_close", "anew", Written("file_bin_open", {"data.bin", 1})},
                               {"file_bin_close", "new", Written("file_bin_open", {"new/data.bin", 1})},
                               {"file_bin_close", "shipped", Written("file_bin_open", {"shipped.bin", 1})},
                               {"file_bin_close", "read", Opened("file_bin_open", {"data.bin", 0})},
                               {"file_bin_position", "", Opened("file_bin_open", {"data.bin", 0})},
                               {"file_bin_size", "", Opened("file_bin_open", {"data.bin", 0})},
                               {"file_bin_seek", "", Opened("file_bin_open", {"data.bin", 0}, {10})},
                               {"file_bin_read_byte", "", Opened("file_bin_open", {"data.bin", 0})},
                               {"file_bin_read_byte", "not for reading", Opened("file_bin_open", {"data.bin", 1})},
                               {"file_bin_write_byte", "at the start", Opened("file_bin_open", {"data.bin", 2}, {65})},
                               {"file_bin_write_byte", "far beyond the end", FarBeyond},
                               {"file_bin_write_byte", "not open", Plain({7, 65})}});
}

void AddText(std::vector<Row>* rows) {
    for (const char* opener : {"file_text_open_read", "file_text_open_write", "file_text_open_append"}) {
        rows->push_back({opener, "a saved file", Plain({"notes.txt"})});
        rows->push_back({opener, "a shipped file", Plain({"shipped.txt"})});
        rows->push_back({opener, "in an archive", Plain({"shipped.txt"}), Row::inArchive});
        rows->push_back({opener, "a new file", Plain({"new/folder/notes.txt"})});
        rows->push_back({opener, "a name that is refused", Plain({"../../outside"})});
        rows->push_back({"file_text_close", opener, Opened(opener, {"notes.txt"})});
    }
    for (const char* name : {"notes.txt", "new/folder/notes.txt", "shipped.txt"}) {
        rows->push_back({"file_text_close", "written", Written("file_text_open_write", {name})});
        rows->push_back({"file_text_close", "appended", Written("file_text_open_append", {name})});
    }
    rows->insert(rows->end(),
                 {{"file_text_open_from_string", "", Plain({kLong})},
                  {"file_text_read_string", "a short line", Opened("file_text_open_read", {"notes.txt"})},
                  {"file_text_read_string", "a long line", Opened("file_text_open_from_string", {kLong})},
                  {"file_text_read_real", "", Opened("file_text_open_from_string", {"  12.5 x"})},
                  {"file_text_readln", "a short line", Opened("file_text_open_read", {"notes.txt"})},
                  {"file_text_readln", "a long line", Opened("file_text_open_from_string", {kLong})},
                  {"file_text_eof", "", Opened("file_text_open_read", {"notes.txt"})},
                  {"file_text_eoln", "", Opened("file_text_open_read", {"notes.txt"})},
                  {"file_text_eoln", "not open", Plain({9})},
                  {"file_text_write_string", "a long text", Opened("file_text_open_write", {"notes.txt"}, {kLong})},
                  {"file_text_write_string", "appended", Opened("file_text_open_append", {"notes.txt"}, {kLong})},
                  {"file_text_write_real", "", Opened("file_text_open_write", {"notes.txt"}, {12.5})},
                  {"file_text_writeln", "", Opened("file_text_open_append", {"data.bin"})}});
}

void AddFiles(std::vector<Row>* rows) {
    for (const char* name : {"notes.txt", "levels/one.json", "missing/file", "folder/deep", "../../outside"}) {
        for (const char* builtIn : {"file_exists", "file_delete", "directory_exists"}) {
            rows->push_back({builtIn, name, Plain({name})});
        }
        rows->push_back({"file_attributes", name, Plain({name, 0})});
        rows->push_back({"file_copy", name, Plain({name, "new/folder/copy"})});
        rows->push_back({"file_rename", name, Plain({name, "another name"})});
        rows->push_back({"file_exists", "in an archive", Plain({name}), Row::inArchive});
        rows->push_back({"directory_exists", "in an archive", Plain({name}), Row::inArchive});
        rows->push_back({"file_attributes", "in an archive", Plain({name, 0}), Row::inArchive});
        rows->push_back({"file_copy", "in an archive", Plain({name, "data.bin"}), Row::inArchive});
    }
    rows->insert(rows->end(), {{"file_copy", "over another file", Plain({"notes.txt", "data.bin"})},
                               {"file_copy", "a large file", Plain({"shipped.bin", "notes.txt"})},
                               {"file_rename", "over another file", Plain({"notes.txt", "data.bin"})},
                               {"file_rename", "into a folder", Plain({"notes.txt", "folder/deep/notes.txt"})},
                               {"directory_create", "one", Plain({"new"})},
                               {"directory_create", "three", Plain({"new/folder/below"})},
                               {"directory_create", "there already", Plain({"folder/deep"})},
                               {"directory_destroy", "a tree", Plain({"folder"})},
                               {"directory_destroy", "missing", Plain({"missing"})}});
}

}  // namespace

std::vector<Row> FileRows() {
    std::vector<Row> rows;
    AddBinary(&rows);
    AddText(&rows);
    AddFiles(&rows);
    return rows;
}

}  // namespace kx::proof
