// A whole program around libkxfiles: what an engine does with it, without an engine.
//
//     build/release/bin/embedding SAVE_FOLDER BUNDLE_FOLDER

#include "Files/Code/Code_Error.h"
#include "Files/Code/Code_Function.h"
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

/// What an interpreter does for each call of a script. The caller releases the result.
RValue Call(const char* name, std::vector<RValue> arguments) {
    const FunctionRecord* record = Function_Find(name);
    RValue result = g_undefined;
    record->routine(result, nullptr, nullptr, record->argc, arguments.data());
    std::string error;
    if (KXTakeError(&error)) std::printf("script error: %s\n", error.c_str());
    return result;
}

RValue Text(const char* text) {
    RValue value{};
    KXCreateString(&value, text);
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: embedding SAVE_FOLDER BUNDLE_FOLDER\n");
        return 2;
    }
    int reason = LoadSave::SetSaveArea(argv[1]);
    if (reason == 0) reason = LoadSave::SetBundleArea(argv[2]);
    if (reason != 0) {
        std::fprintf(stderr, "cannot use these folders: %s\n", std::strerror(reason));
        return 1;
    }
    InitFileFunctions();

    RValue name = Text("greeting.txt");
    RValue line = Text("hello from the engine");
    RValue file = Call("file_text_open_write", {name});
    Call("file_text_write_string", {file, line});
    Call("file_text_close", {file});

    file = Call("file_text_open_read", {name});
    RValue read = Call("file_text_read_string", {file});
    std::printf("%s\n", KXGetString(&read, 0));
    Call("file_text_close", {file});
    for (RValue* value : {&name, &line, &read}) {
        FREE_RValue__Pre(value);
    }

    FINALIZE_Function_File();
    LoadSave::Shutdown();
    return 0;
}
