// Binary files opened, read and written in any order, beside a model of what they should hold.
#include "Files/Function/Function_File.h"
#include "fuzz/Host.h"
#include "fuzz/Input.h"
#include "fuzz/SavedFiles.h"
#include "fuzz/Values.h"
#include "tests/support/Numbers.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>

namespace kx::fuzz {
namespace {

constexpr int kSlots = 32;  // 0 is none
constexpr size_t kMostSteps = 48;
constexpr int kFarthest = 600;

using test::Real;

enum Mode : int { kRead = 0, kWrite = 1, kBoth = 2 };

struct ModelFile {
    bool open = false;
    int mode = kRead;
    std::string name;
    std::string contents;
    size_t position = 0;
    bool writable = false;
    bool changed = false;
    bool created = false;
};

/// The built-ins and the model, step by step.
class Script {
public:
    explicit Script(Input* input) : m_input(*input) {}

    void Run() {
        for (size_t step = 0; step < kMostSteps && !m_input.IsOver(); ++step) {
            Step();
        }
        for (int id = 1; id < kSlots; ++id) {
            if (m_model[static_cast<size_t>(id)].open) Close(id);
        }
        FINALIZE_Function_File();  // a name that could not be opened stays in its slot
        m_files.RequireOnDisk();
    }

private:
    void Step() {
        int id = m_input.ConsumeIntegralInRange<int>(-1, 6);
        switch (m_input.Below(9)) {
        case 0: return Open(m_input.Of(SavedFiles::kNames), m_input.ConsumeIntegralInRange<int>(0, 3));
        case 1: return Rewrite(id);
        case 2: return Close(id);
        case 3: return Position(id);
        case 4: return Size(id);
        case 5: return Seek(id);
        case 6: return ReadByte(id);
        default: return WriteByte(id);
        }
    }

    ModelFile* Find(int id) {
        bool there = id >= 1 && id < kSlots && m_model[static_cast<size_t>(id)].open;
        return there ? &m_model[static_cast<size_t>(id)] : nullptr;
    }

    /// Calls a built-in with a file's id.
    /// @return the file; null, and an error was raised, where there is none.
    ModelFile* Call(BuiltIn* builtIn, int id, RValueOwner* result) {
        bool done = builtIn->Call({Real(id)}, result);
        ModelFile* file = Find(id);
        Require(done == (file != nullptr), "only what is open can be used");
        return file;
    }

    // --- opening and closing

    int NextSlot() {
        auto free = std::find_if(m_model.begin() + 1, m_model.end(), [](const ModelFile& file) { return !file.open; });
        return static_cast<int>(free - m_model.begin());
    }

    void Open(const std::string& name, int mode) {
        int slot = NextSlot();
        std::optional<ModelFile> file;
        if (slot < kSlots) file = mode == kRead ? OpenedToRead(name) : OpenedToWrite(name, mode);
        RValueOwner text(Text(name));
        RValueOwner result;
        Require(m_open.Call({text.value, Real(mode)}, &result), "opening raises no error", name);
        Require(result.value.real == (file ? slot : -1), "a file is opened in the first free slot", name);
        if (file) m_model[static_cast<size_t>(slot)] = *file;
    }

    std::optional<ModelFile> OpenedToRead(const std::string& name) {
        std::optional<std::string> contents = m_files.Read(name);
        if (!contents) return std::nullopt;
        return ModelFile{true, kRead, name, *contents, 0, false, false, false};
    }

    /// What is there stays until the close; a file that is missing is made at once.
    ModelFile OpenedToWrite(const std::string& name, int mode) {
        std::optional<std::string> before = m_files.Read(name);
        bool keeps = mode != kWrite;
        bool same = keeps ? before.has_value() : m_files.IsSaved(name) && before->empty();
        if (!before) m_files.Save(name, "");
        return {true, mode, name, keeps ? before.value_or("") : "", 0, true, !same, !before};
    }

    /// What was written since the open is given up, and with it a file that the open has made.
    void Rewrite(int id) {
        RValueOwner result;
        ModelFile* file = Call(&m_rewrite, id, &result);
        if (!file) return;
        bool madeInVain =
            file->created && file->changed && m_files.IsSaved(file->name) && m_files.Read(file->name)->empty();
        if (madeInVain) m_files.Remove(file->name);
        *file = OpenedToWrite(file->name, kWrite);
    }

    void Close(int id) {
        RValueOwner result;
        ModelFile* file = Call(&m_close, id, &result);
        if (!file) return;
        if (file->writable && file->changed) m_files.Save(file->name, file->contents);
        *file = ModelFile();
    }

    // --- reading and writing

    void Position(int id) {
        RValueOwner result;
        ModelFile* file = Call(&m_position, id, &result);
        if (!file) return;
        Require(result.value.real == static_cast<double>(file->position), "the position is told");
    }

    void Size(int id) {
        RValueOwner result;
        ModelFile* file = Call(&m_size, id, &result);
        if (!file) return;
        Require(result.value.real == static_cast<double>(file->contents.size()), "the size is told");
    }

    void Seek(int id) {
        int position = m_input.Below(16) ? m_input.ConsumeIntegralInRange<int>(-2, kFarthest) : INT_MAX;
        RValueOwner result;
        bool done = m_seek.Call({Real(id), Real(position)}, &result);
        ModelFile* file = Find(id);
        Require(done == (file != nullptr), "only what is open can be used");
        if (file && position >= 0) file->position = static_cast<size_t>(position);
    }

    void ReadByte(int id) {
        RValueOwner result;
        bool done = m_readByte.Call({Real(id)}, &result);
        ModelFile* file = Find(id);
        bool readable = file && (file->mode == kRead || file->mode == kBoth) && file->position < file->contents.size();
        Require(done == readable, "a byte is read where there is one, and nowhere else");
        if (!readable) return;
        auto expected = static_cast<unsigned char>(file->contents[file->position++]);
        Require(result.value.real == expected, "a byte is the one that was written");
    }

    void WriteByte(int id) {
        auto byte = m_input.ConsumeIntegral<uint8_t>();
        RValueOwner result;
        bool done = m_writeByte.Call({Real(id), Real(byte)}, &result);
        ModelFile* file = Find(id);
        bool writable = file && (file->mode == kWrite || file->mode == kBoth);
        bool fits = !writable || file->position < INT_MAX;
        Require(done == (file && fits), "a byte is written where it can be, and nowhere else");
        if (!writable || !fits) return;
        if (file->position >= file->contents.size()) file->contents.resize(file->position + 1);
        file->contents[file->position++] = static_cast<char>(byte);
        file->changed = true;
    }

    Input& m_input;
    SavedFiles m_files;
    std::array<ModelFile, kSlots> m_model;

    BuiltIn m_open{"file_bin_open"}, m_rewrite{"file_bin_rewrite"}, m_close{"file_bin_close"};
    BuiltIn m_position{"file_bin_position"}, m_size{"file_bin_size"}, m_seek{"file_bin_seek"};
    BuiltIn m_readByte{"file_bin_read_byte"}, m_writeByte{"file_bin_write_byte"};
};

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kx::fuzz::Round round;
    kx::fuzz::Input input(data, size);
    kx::fuzz::Script(&input).Run();
    return 0;
}
