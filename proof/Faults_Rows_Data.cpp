// Calls of the built-ins for names, searches, parameters, documents, JSON, archives and tables.
#include "Files/Support/Support_Data_Structures.h"
#include "proof/Faults_Files.h"
#include "proof/Faults_Rows.h"

namespace kx::proof {

using test::Call;
using test::Value;

namespace {

/// What has been found already when the call comes.
std::function<Values(World&)> Searched(const char* mask) {
    return [=](World&) {
        Call("file_find_first", {mask, 18});
        return Values{};
    };
}

/// A document is open when the call comes.
std::function<Values(World&)> WithDocument(const Values& arguments) {
    return [=](World&) {
        Call("ini_open", {"settings.ini"});
        return arguments;
    };
}

/// The same, and it has been changed.
std::function<Values(World&)> WithChanges(const Values& arguments) {
    return [=](World&) {
        Call("ini_open", {"settings.ini"});
        Call("ini_write_string", {"audio", "music", kLong});
        Call("ini_write_real", {"a new section", "key", 12.5});
        Call("ini_key_delete", {"video", "name"});
        return arguments;
    };
}

/// What a text stands for as JSON, as structs or as a map.
std::function<Values(World&)> Decoded(const char* decoder, const std::string& text) {
    return [=](World&) { return Values{Call(decoder, {text})}; };
}

/// A map whose one key is no text: where there are more, their order goes by their addresses.
Values OddKey(World&) {
    Value array = Call("json_parse", {"[1,[\"an element that is longer than sixteen characters\"]]"});
    Value index = Call("json_decode", {"{}"});
    themaps.arr[static_cast<int>(index.Real())]->Set(&array.Get(), &array.Get());
    return {index};
}

void AddNames(std::vector<Row>* rows) {
    constexpr char kDeep[] = "folder/with a longer name/file with a longer name.txt";
    for (const char* name :
         {"notes.txt", kDeep, "\\\\server\\a share with a longer name\\file", "C:file", "folder/", "shipped.bin", ""}) {
        for (const char* part : {"filename_name", "filename_path", "filename_dir", "filename_drive", "filename_ext"}) {
            rows->push_back({part, name, Plain({name})});
        }
        rows->push_back({"filename_change_ext", name, Plain({name, ".backup of it"})});
        rows->push_back({"filename_change_ext", name, Plain({name, "bak"})});
    }
    rows->insert(rows->end(), {{"file_find_first", "folders", Plain({"*", 18})},
                               {"file_find_first", "one folder", Plain({"folder/*", 0})},
                               {"file_find_first", "shipped", Plain({"levels/*.json", 0})},
                               {"file_find_first", "in an archive", Plain({"levels/*", 0}), Row::inArchive},
                               {"file_find_first", "nothing", Plain({"*.none", 0})},
                               {"file_find_first", "after another",
                                [](World&) {
                                    Call("file_find_first", {"*", 18});
                                    return Values{"folder/*", 0};
                                }},
                               {"file_find_next", "", Searched("*")},
                               {"file_find_close", "", Searched("*")},
                               {"parameter_count", "", Plain({})},
                               {"parameter_string", "one", Plain({1})},
                               {"parameter_string", "none", Plain({99})},
                               {"environment_get_variable", "set", Plain({"PATH"})},
                               {"environment_get_variable", "not set", Plain({"KX_NO_SUCH_VARIABLE"})}});
}

void AddIni(std::vector<Row>* rows) {
    for (const char* name : {"settings.ini", "shipped.ini", "new/folder/new.ini", "notes.txt", "../../outside"}) {
        rows->push_back({"ini_open", name, Plain({name})});
        rows->push_back({"ini_open", "after a changed one", WithChanges({name})});
    }
    rows->insert(rows->end(),
                 {{"ini_open_from_string", "", Plain({"[a]\nk=1\nl=@text@%0A$text$\n[b]\nm=2\n"})},
                  {"ini_open_from_string", "after a changed one", WithChanges({"[a]\nk=1\n"})},
                  {"ini_close", "changed", WithChanges({})},
                  {"ini_close", "as it was", WithDocument({})},
                  {"ini_close", "none", Plain({})},
                  {"ini_read_string", "there", WithDocument({"audio", "music", "none"})},
                  {"ini_read_string", "missing", WithDocument({"audio", "none", kLong})},
                  {"ini_read_string", "missing, a number", WithDocument({"none", "music", 12.5})},
                  {"ini_read_string", "no document", Plain({"audio", "music", ""})},
                  {"ini_read_real", "there", WithDocument({"audio", "music", 1})},
                  {"ini_read_real", "missing", WithDocument({"none", "none", 1})},
                  {"ini_write_string", "a longer value", WithDocument({"audio", "music", kLong})},
                  {"ini_write_string", "a new key", WithDocument({"audio", "a new key of some length", "value"})},
                  {"ini_write_string", "a new section", WithDocument({"a new section of some length", "key", "value"})},
                  {"ini_write_real", "there", WithDocument({"audio", "music", 1e15})},
                  {"ini_write_real", "a new section", WithDocument({"another section", "key", 12.5})},
                  {"ini_key_exists", "", WithDocument({"audio", "music"})},
                  {"ini_section_exists", "", WithDocument({"audio"})},
                  {"ini_key_delete", "", WithDocument({"audio", "music"})},
                  {"ini_section_delete", "", WithDocument({"audio"})},
                  {"ini_section_delete", "no document", Plain({"audio"})}});
}

void AddJson(std::vector<Row>* rows) {
    for (const std::string& text : {kJsonText, std::string("[1,{\"a\":[2,3]}]"), std::string("{\"cut\":"),
                                    std::string("[[\"a text that is longer than a short one\"],[],null]")}) {
        rows->push_back({"json_decode", "", Plain({text}), Row::noLibrary});
        rows->push_back({"json_parse", "", Plain({text}), Row::noLibrary});
        rows->push_back({"json_encode", "", Decoded("json_decode", text), Row::leaking});
    }
    rows->insert(rows->end(), {{"json_decode", "a number", Plain({12.5}), Row::noLibrary},
                               {"json_encode", "a key that is no text", OddKey},
                               {"json_encode", "no map", Plain({999})},
                               {"json_stringify", "structs", Decoded("json_parse", kJsonText), Row::leaking},
                               {"json_stringify", "an array", Decoded("json_parse", "[1,[2,[\"three\"]]]")},
                               {"json_stringify", "a number", Plain({12.5})},
                               {"json_stringify", "a text", Plain({kLong})},
                               {"zip_unzip", "shipped", Plain({"pack.zip", "unpacked"}), Row::leaking},
                               {"zip_unzip", "to a new folder", Plain({"pack.zip", "new/folder"}), Row::leaking},
                               {"zip_unzip", "no archive", Plain({"notes.txt", "unpacked"})},
                               {"zip_unzip", "in an archive", Plain({"pack.zip", "unpacked"}), Row::inArchive},
                               {"load_csv", "saved", Plain({"table.csv"})},
                               {"load_csv", "no table", Plain({"missing.csv"})},
                               {"load_csv", "in an archive", Plain({"table.csv"}), Row::inArchive}});
}

/// A map of header fields and a buffer come with the call.
std::function<Values(World&)> Request(const char* method, const Value& body) {
    return [=](World& world) {
        Value map = Call("json_decode", {R"({"X-A-Longer-Field-Name":"a value that is longer than short","X-B":"2"})"});
        return Values{world.Url("/echo"), method, map, body};
    };
}

std::function<Values(World&)> Asked(const char* path, const Values& more = {}) {
    return [=](World& world) {
        Values all{world.Url(path)};
        for (const Value& each : more) {
            all.push_back(each);
        }
        return all;
    };
}

}  // namespace

std::vector<Row> NameRows() {
    std::vector<Row> rows;
    AddNames(&rows);
    return rows;
}

std::vector<Row> DataRows() {
    std::vector<Row> rows;
    AddIni(&rows);
    AddJson(&rows);
    return rows;
}

std::vector<Row> HttpRows() {
    return {{"http_get", "an answer", Asked("/file"), Row::http},
            {"http_get", "a redirect", Asked("/moved"), Row::http},
            {"http_get", "no URL", Plain({"file:///etc/passwd"}), Row::http},
            {"http_post_string", "", Asked("/echo", {kLong}), Row::http},
            {"http_get_file", "over a saved file", Asked("/file", {"notes.txt"}), Row::http},
            {"http_get_file", "a new file", Asked("/file", {"new/folder/notes.txt"}), Row::http},
            {"http_request", "a text", Request("POST", "a body that is longer than a short text"), Row::http},
            {"http_request", "no body", Request("GET", -1), Row::http},
            {"http_get_request_crossorigin", "", Plain({}), Row::http},
            {"http_set_request_crossorigin", "", Plain({"anonymous"}), Row::http}};
}

}  // namespace kx::proof
