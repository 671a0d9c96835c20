// Text files in the model.
#include "proof/Model.h"

#include <algorithm>
#include <utility>

namespace kx::proof {
namespace {

constexpr char kTooMany[] = "Cannot open another file (maximum exceeded).";
constexpr char kNotReading[] = "File is not opened for reading.";
constexpr char kNotWriting[] = "File not opened for writing.";
constexpr char kNotOpened[] = "Trying to close text file that has not been opened.";

bool IsIn(double id) {
    return id >= 1 && id < Model::kSlots;
}

/// Scripts' texts end at the first zero byte.
Answer TextUpToZero(const std::string& text) {
    return Answer::Text(text.substr(0, text.find('\0')));
}

}  // namespace

int Model::FreeTextSlot() const {
    for (int id = 1; id < kSlots; ++id) {
        if (m_texts[static_cast<size_t>(id)].use == TextSlot::closed) return id;
    }
    return 0;
}

Answer Model::OpenText(const std::function<std::optional<File>()>& open, bool toWrite) {
    int id = FreeTextSlot();
    if (!id) return Answer::Real(-1, kTooMany);
    std::optional<File> file = open();
    if (!file) return Answer::Real(-1);
    m_texts[static_cast<size_t>(id)] = {toWrite ? TextSlot::writing : TextSlot::reading, std::move(*file)};
    return Answer::Real(id);
}

/// What only the bundle has is copied first: the script appends to a file of its own.
std::optional<Model::File> Model::OpenToAppend(const Meaning& name) {
    bool copied = !Saved(name) && Shipped(name);
    if (copied) {
        std::optional<File> copy = name.inSave ? OpenToWrite(name.place, false, Start::anew) : std::nullopt;
        if (!copy) return std::nullopt;
        copy->contents = m_bundle.Contents(name.place);
        copy->changed = true;
        WriteBack(&*copy);
    }
    if (!name.inSave) return std::nullopt;
    std::optional<File> file = OpenToWrite(name.place, false, Start::keeping);
    if (file) file->append = true;
    return file;
}

Answer Model::Read(const Arguments& arguments, const std::function<Answer(File&)>& read) {
    double id = arguments[0].real;
    bool reading = IsIn(id) && m_texts[static_cast<size_t>(id)].use == TextSlot::reading;
    return reading ? read(m_texts[static_cast<size_t>(id)].file) : Answer::Unset(kNotReading);
}

Answer Model::Write(const Arguments& arguments, const std::string& text) {
    double id = arguments[0].real;
    bool writing = IsIn(id) && m_texts[static_cast<size_t>(id)].use == TextSlot::writing;
    if (!writing) return Answer::Unset(kNotWriting);
    File& file = m_texts[static_cast<size_t>(id)].file;
    if (!file.writes || text.empty()) return Answer::Unset();
    file.contents += text;
    file.changed = true;
    return Answer::Unset();
}

Answer Model::CloseText(int id) {
    if (!IsIn(id)) return Answer::Unset(kNotOpened);
    TextSlot slot = std::exchange(m_texts[static_cast<size_t>(id)], TextSlot{});
    return Answer::Unset(slot.use == TextSlot::closed ? "" : WriteBack(&slot.file));
}

void Model::AddTextHandlers(std::map<std::string, Handler>* handlers) {
    AddTextOpeners(handlers);
    AddTextReaders(handlers);
    AddTextWriters(handlers);
}

void Model::AddTextOpeners(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["file_text_open_read"] = [](Model& model, const Arguments& arguments) {
        auto open = [&]() -> std::optional<File> {
            const std::string* contents = model.Existing(model.Means(arguments[0]));
            return contents ? std::optional<File>(File{"", *contents}) : std::nullopt;
        };
        return model.OpenText(open, false);
    };
    all["file_text_open_from_string"] = [](Model& model, const Arguments& arguments) {
        return model.OpenText([&] { return File{"", arguments[0].text}; }, false);
    };
    all["file_text_open_write"] = [](Model& model, const Arguments& arguments) {
        Meaning name = model.Means(arguments[0]);
        auto open = [&] {
            return name.inSave ? model.OpenToWrite(name.place, false, Start::anew) : std::optional<File>();
        };
        return model.OpenText(open, true);
    };
    all["file_text_open_append"] = [](Model& model, const Arguments& arguments) {
        return model.OpenText([&] { return model.OpenToAppend(model.Means(arguments[0])); }, true);
    };
    all["file_text_close"] = [](Model& model, const Arguments& arguments) {
        return model.CloseText(static_cast<int>(arguments[0].real));
    };
}

void Model::AddTextReaders(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["file_text_eof"] = [](Model& model, const Arguments& arguments) {
        return model.Read(arguments, [](File& file) { return Answer::Real(file.position >= file.contents.size()); });
    };
    all["file_text_eoln"] = [](Model& model, const Arguments& arguments) {
        return model.Read(arguments, [](File& file) {
            return Answer::Real(file.contents.find_first_of("\r\n", file.position) == file.position ||
                                file.position >= file.contents.size());
        });
    };
    all["file_text_read_string"] = [](Model& model, const Arguments& arguments) {
        return model.Read(arguments, [](File& file) {
            size_t end = std::min(file.contents.find_first_of("\r\n", file.position), file.contents.size());
            std::string line = file.contents.substr(file.position, end - file.position);
            file.position = end;
            return TextUpToZero(line);
        });
    };
    all["file_text_readln"] = [](Model& model, const Arguments& arguments) {
        return model.Read(arguments, [](File& file) {
            size_t end = file.contents.find('\n', file.position);
            end = end == std::string::npos ? file.contents.size() : end + 1;
            std::string line = file.contents.substr(file.position, end - file.position);
            file.position = end;
            return TextUpToZero(line);
        });
    };
    all["file_text_read_real"] = [](Model& model, const Arguments& arguments) {
        return model.Read(arguments, [](File& file) {
            file.position = std::min(file.contents.find_first_not_of(" \t\r\n", file.position), file.contents.size());
            double value = 0;
            file.position += ReadNumber(file.contents.substr(file.position), &value);
            return Answer::Real(value);
        });
    };
}

void Model::AddTextWriters(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["file_text_write_string"] = [](Model& model, const Arguments& arguments) {
        return model.Write(arguments, arguments[1].text);
    };
    all["file_text_write_real"] = [](Model& model, const Arguments& arguments) {
        return model.Write(arguments, TextsOf(arguments[1].real).inTextFile);
    };
    all["file_text_writeln"] = [](Model& model, const Arguments& arguments) { return model.Write(arguments, "\n"); };
}

}  // namespace kx::proof
