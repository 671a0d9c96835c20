// Binary files in the model.
#include "proof/Model.h"

namespace kx::proof {
namespace {

constexpr char kNotOpened[] = "File is not opened.";
constexpr char kUnreadable[] = "Error reading byte.";

enum : int { kReading = 0, kWriting = 1, kBoth = 2 };

unsigned char LowByte(double value) {
    return static_cast<unsigned char>(static_cast<long long>(value) & 0xFF);
}

}  // namespace

Model::BinarySlot* Model::Opened(double id) {
    if (id < 1 || id >= kSlots) return nullptr;
    BinarySlot& slot = m_binaries[static_cast<size_t>(id)];
    return slot.open ? &slot : nullptr;
}

Answer Model::OpenBinary(const Meaning& name, int mode) {
    size_t id = 1;
    while (id < kSlots && m_binaries[id].open) {
        ++id;
    }
    if (id == kSlots) return Answer::Real(-1);
    bool ofBundle = !Saved(name) && Shipped(name);
    std::optional<File> file;
    if (mode == kReading) {
        if (const std::string* contents = Existing(name)) file = File{"", *contents};
    } else if (name.inSave || ofBundle) {
        file = OpenToWrite(name.place, ofBundle, mode == kWriting ? Start::anew : Start::keeping);
    }
    if (!file) return Answer::Real(-1);
    m_binaries[id] = {true, mode, name.place, ofBundle, std::move(file)};
    return Answer::Real(static_cast<double>(id));
}

Answer Model::Rewrite(BinarySlot* slot) {
    if (!slot) return Answer::Unset("Trying to rewrite unopened file.");
    if (slot->file) GiveUp(&*slot->file);
    slot->file = OpenToWrite(slot->place, slot->ofBundle, Start::anew);
    slot->mode = kWriting;
    std::string path = (slot->ofBundle ? m_bundlePath : m_savePath) + "/" + slot->place;
    return Answer::Unset(slot->file ? "" : "Error opening binary file " + path);
}

Answer Model::CloseBinary(BinarySlot* slot) {
    if (!slot) return Answer::Unset("Trying to close unopened file.");
    std::string error = slot->file ? WriteBack(&*slot->file) : "";
    *slot = {};
    return Answer::Unset(error);
}

void Model::AddBinaryHandlers(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["file_bin_open"] = [](Model& model, const Arguments& arguments) {
        return model.OpenBinary(model.Means(arguments[0]), static_cast<int>(arguments[1].real));
    };
    all["file_bin_rewrite"] = [](Model& model, const Arguments& arguments) {
        return model.Rewrite(model.Opened(arguments[0].real));
    };
    all["file_bin_close"] = [](Model& model, const Arguments& arguments) {
        return model.CloseBinary(model.Opened(arguments[0].real));
    };
    all["file_bin_position"] = [](Model& model, const Arguments& arguments) {
        BinarySlot* slot = model.Opened(arguments[0].real);
        if (!slot) return Answer::Unset(kNotOpened);
        return Answer::Real(slot->file ? static_cast<double>(slot->file->position) : -1);
    };
    all["file_bin_size"] = [](Model& model, const Arguments& arguments) {
        BinarySlot* slot = model.Opened(arguments[0].real);
        if (!slot) return Answer::Unset(kNotOpened);
        return Answer::Real(slot->file ? static_cast<double>(slot->file->contents.size()) : -1);
    };
    all["file_bin_seek"] = [](Model& model, const Arguments& arguments) {
        BinarySlot* slot = model.Opened(arguments[0].real);
        if (!slot) return Answer::Unset(kNotOpened);
        if (slot->file && arguments[1].real >= 0) slot->file->position = static_cast<size_t>(arguments[1].real);
        return Answer::Unset();
    };
    all["file_bin_read_byte"] = [](Model& model, const Arguments& arguments) {
        BinarySlot* slot = model.Opened(arguments[0].real);
        if (!slot) return Answer::Unset(kNotOpened);
        bool reads = slot->file && (slot->mode == kReading || slot->mode == kBoth);
        if (!reads || slot->file->position >= slot->file->contents.size()) return Answer::Real(0, kUnreadable);
        return Answer::Real(static_cast<unsigned char>(slot->file->contents[slot->file->position++]));
    };
    all["file_bin_write_byte"] = [](Model& model, const Arguments& arguments) {
        BinarySlot* slot = model.Opened(arguments[0].real);
        if (!slot) return Answer::Unset(kNotOpened);
        bool writes = slot->file && slot->file->writes && (slot->mode == kWriting || slot->mode == kBoth);
        if (!writes) return Answer::Unset();
        File& file = *slot->file;
        if (file.contents.size() <= file.position) file.contents.resize(file.position + 1);
        file.contents[file.position++] = static_cast<char>(LowByte(arguments[1].real));
        file.changed = true;
        return Answer::Unset();
    };
}

}  // namespace kx::proof
