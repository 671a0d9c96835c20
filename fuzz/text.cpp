// Text files opened, read and written in any order, beside a model of what they should hold.
#include "Files/Base/Number.h"
#include "fuzz/Host.h"
#include "fuzz/Input.h"
#include "fuzz/SavedFiles.h"
#include "fuzz/Values.h"
#include "tests/support/Numbers.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace kx::fuzz {
namespace {

constexpr int kSlots = 32;  // 0 is none
constexpr size_t kMostSteps = 48;

using test::Real;

enum class Use { closed, reading, writing };

struct ModelFile {
    Use use = Use::closed;
    std::string name;  // empty for a text
    std::string contents;
    size_t position = 0;
    bool changed = false;
};

bool IsLineEnd(char c) {
    return c == '\r' || c == '\n';
}

/// The built-ins and the model, step by step.
class Script {
public:
    explicit Script(Input* input) : m_input(*input) {}

    void Run() {
        for (size_t step = 0; step < kMostSteps && !m_input.IsOver(); ++step) {
            Step();
        }
        for (int id = 1; id < kSlots; ++id) {
            Close(id);
        }
        m_files.RequireOnDisk();
    }

private:
    void Step() {
        int id = m_input.ConsumeIntegralInRange<int>(-1, 6);
        switch (m_input.Below(14)) {
        case 0: return OpenText();
        case 1: return OpenRead(m_input.Of(SavedFiles::kNames));
        case 2: return OpenWrite(m_input.Of(SavedFiles::kNames));
        case 3: return OpenAppend(m_input.Of(SavedFiles::kNames));
        case 4: return Close(id);
        case 5: return ReadString(id);
        case 6: return ReadLine(id);
        case 7: return ReadReal(id);
        case 8: return End(id);
        case 9: return EndOfLine(id);
        case 10: return WriteReal(id);
        case 11: return Write(&m_writeLine, id, {}, "\n");
        default: return WriteString(id);
        }
    }

    // --- opening

    /// @return the slot that the next file has to get; 0 where there is none.
    int NextSlot() {
        auto free = std::find_if(m_model.begin() + 1, m_model.end(),
                                 [](const ModelFile& file) { return file.use == Use::closed; });
        return free == m_model.end() ? 0 : static_cast<int>(free - m_model.begin());
    }

    /// Opens a file where it can be opened.
    void Open(BuiltIn* open, const std::string& argument, const std::optional<ModelFile>& file) {
        int slot = NextSlot();
        RValueOwner text(Text(argument));
        RValueOwner result;
        bool done = open->Call({text.value}, &result);
        Require(done == (slot != 0), "the files that can be open are counted");
        Require(result.value.real == (slot && file ? slot : -1), "a file is opened in the first free slot", argument);
        if (slot && file) m_model[static_cast<size_t>(slot)] = *file;
    }

    void OpenText() {
        std::string text = m_input.Text(24);
        Open(&m_openText, text, ModelFile{Use::reading, "", text, 0, false});
    }

    void OpenRead(const std::string& name) {
        std::optional<std::string> contents = m_files.Read(name);
        std::optional<ModelFile> file;
        if (contents) file = ModelFile{Use::reading, name, *contents, 0, false};
        Open(&m_openRead, name, file);
    }

    /// The file is as it was until the close; one that is missing is made at once.
    void OpenWrite(const std::string& name) {
        bool same = m_files.IsSaved(name) && m_files.Read(name)->empty();
        bool fresh = NextSlot() && !m_files.Read(name);
        Open(&m_openWrite, name, ModelFile{Use::writing, name, "", 0, !same});
        if (fresh) m_files.Save(name, "");
    }

    /// A file of the bundle is copied first.
    void OpenAppend(const std::string& name) {
        std::optional<std::string> before = m_files.Read(name);
        bool open = NextSlot() != 0;
        Open(&m_openAppend, name, ModelFile{Use::writing, name, before.value_or(""), 0, !before});
        if (open) m_files.Save(name, before.value_or(""));
    }

    void Close(int id) {
        RValueOwner result;
        bool done = m_close.Call({Real(id)}, &result);
        bool isSlot = id >= 1 && id < kSlots;
        Require(done == isSlot, "any slot can be closed, and nothing else");
        if (!isSlot) return;
        ModelFile& file = m_model[static_cast<size_t>(id)];
        if (file.use == Use::writing && file.changed) m_files.Save(file.name, file.contents);
        file = ModelFile();
    }

    // --- reading and writing

    ModelFile* Find(int id, Use use) {
        bool there = id >= 1 && id < kSlots && m_model[static_cast<size_t>(id)].use == use;
        return there ? &m_model[static_cast<size_t>(id)] : nullptr;
    }

    /// Calls a reader.
    /// @return the file that it reads; null, and an error was raised, where there is none.
    ModelFile* Read(BuiltIn* reader, int id, RValueOwner* result) {
        bool done = reader->Call({Real(id)}, result);
        ModelFile* file = Find(id, Use::reading);
        Require(done == (file != nullptr), "only what is open for reading is read");
        return file;
    }

    void ReadString(int id) {
        RValueOwner result;
        ModelFile* file = Read(&m_readString, id, &result);
        if (!file) return;
        auto begin = file->contents.begin() + static_cast<std::ptrdiff_t>(file->position);
        std::string expected(begin, std::find_if(begin, file->contents.end(), IsLineEnd));
        file->position += expected.size();
        Require(TextOf(result.value) == expected, "a line is read to its end", file->contents);
    }

    void ReadLine(int id) {
        RValueOwner result;
        ModelFile* file = Read(&m_readLine, id, &result);
        if (!file) return;
        size_t lineFeed = file->contents.find('\n', file->position);
        size_t end = lineFeed == std::string::npos ? file->contents.size() : lineFeed + 1;
        std::string expected = file->contents.substr(file->position, end - file->position);
        file->position = end;
        Require(TextOf(result.value) == expected, "a line is read through its end", file->contents);
    }

    void ReadReal(int id) {
        RValueOwner result;
        ModelFile* file = Read(&m_readReal, id, &result);
        if (!file) return;
        file->position = std::min(file->contents.find_first_not_of(" \t\r\n", file->position), file->contents.size());
        double expected = 0;
        int length = ParseReal(std::string_view(file->contents).substr(file->position), &expected);
        file->position += static_cast<size_t>(length);
        Require(IsSame(result.value, Real(expected)), "a number is read after blanks", file->contents);
    }

    void End(int id) {
        RValueOwner result;
        ModelFile* file = Read(&m_end, id, &result);
        if (!file) return;
        Require(result.value.real == (file->position == file->contents.size()), "the end is told", file->contents);
    }

    void EndOfLine(int id) {
        RValueOwner result;
        ModelFile* file = Read(&m_endOfLine, id, &result);
        if (!file) return;
        bool expected = file->position == file->contents.size() || IsLineEnd(file->contents[file->position]);
        Require(result.value.real == expected, "a line's end is told", file->contents);
    }

    void Write(BuiltIn* writer, int id, const std::optional<RValue>& argument, const std::string& text) {
        std::vector<RValue> arguments{Real(id)};
        if (argument) arguments.push_back(*argument);
        RValueOwner result;
        bool done = writer->Call(arguments, &result);
        ModelFile* file = Find(id, Use::writing);
        Require(done == (file != nullptr), "only what is open for writing is written");
        if (!file || text.empty()) return;
        file->contents += text;
        file->changed = true;
    }

    void WriteString(int id) {
        std::string text = m_input.Text(24);
        RValueOwner argument(Text(text));
        Write(&m_writeString, id, argument.value, text);
    }

    void WriteReal(int id) {
        auto number = m_input.ConsumeFloatingPoint<double>();
        char text[kNumberText];
        PrintRealG(text, number);
        Write(&m_writeReal, id, Real(number), text + std::string(" "));
    }

    Input& m_input;
    SavedFiles m_files;
    std::array<ModelFile, kSlots> m_model;

    BuiltIn m_openText{"file_text_open_from_string"}, m_openRead{"file_text_open_read"};
    BuiltIn m_openWrite{"file_text_open_write"}, m_openAppend{"file_text_open_append"}, m_close{"file_text_close"};
    BuiltIn m_readString{"file_text_read_string"}, m_readLine{"file_text_readln"}, m_readReal{"file_text_read_real"};
    BuiltIn m_end{"file_text_eof"}, m_endOfLine{"file_text_eoln"}, m_writeString{"file_text_write_string"};
    BuiltIn m_writeReal{"file_text_write_real"}, m_writeLine{"file_text_writeln"};
};

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Input input(data, size);
    kx::fuzz::Script(&input).Run();
    return 0;
}
