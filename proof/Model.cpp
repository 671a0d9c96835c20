// The model's frame: names, files that are open, and the host's own steps.
#include "proof/Model.h"

#include <algorithm>
#include <charconv>

namespace kx::proof {

Model::Model(Tree bundle, std::string savePath, std::string bundlePath, bool archive, Disk disk)
    : m_bundle(std::move(bundle)), m_savePath(std::move(savePath)), m_bundlePath(std::move(bundlePath)),
      m_archive(archive), m_disk(std::move(disk)) {}

const std::map<std::string, Model::Handler>& Model::Handlers() {
    static const auto handlers = [] {
        std::map<std::string, Handler> all;
        AddTextHandlers(&all);
        AddBinaryHandlers(&all);
        AddDirectoryHandlers(&all);
        AddIniHandlers(&all);
        AddSteps(&all);
        return all;
    }();
    return handlers;
}

Answer Model::Apply(const Command& command, const Answer& actual) {
    m_actualText = actual.text;
    return Handlers().at(command.name)(*this, command.arguments);
}

bool Model::Knows(const Command& command) const {
    if (command.name == "ini_open") return Parse(IniText(Means(command.arguments[0]))).has_value();
    if (command.name != kShutdown) return true;
    std::vector<std::string> places;
    size_t failing = 0;
    ForEachFile([&](const File& file) {
        if (!file.writes || !file.changed) return;
        places.push_back(file.place);
        if (m_save.HasDirectory(file.place) || m_save.WayTo(file.place) == Way::closed) ++failing;
    });
    bool orderly = failing <= 1;
    for (const std::string& a : places) {
        orderly = orderly && std::count(places.begin(), places.end(), a) == 1;
        for (const std::string& b : places) {
            orderly = orderly && b.compare(0, a.size() + 1, a + "/") != 0;
        }
    }
    return orderly;
}

void Model::AddSteps(std::map<std::string, Handler>* handlers) {
    (*handlers)[kShutdown] = [](Model& model, const Arguments&) {
        std::string error;
        model.ForEachFile([&](const File& each) {
            auto& file = const_cast<File&>(each);
            std::string failed = model.WriteBack(&file);
            if (error.empty()) error = failed;
            file.writes = false;
        });
        return Answer::Unset(error);
    };
    (*handlers)[kFinalize] = [](Model& model, const Arguments&) {
        std::string error;
        for (BinarySlot& slot : model.m_binaries) {
            std::string failed = slot.file ? model.WriteBack(&*slot.file) : "";
            if (error.empty()) error = failed;
            slot = {};
        }
        return Answer::Unset(error);
    };
    (*handlers)[kDiscard] = [](Model& model, const Arguments&) {
        model.ForEachFile([&](const File& each) {
            auto& file = const_cast<File&>(each);
            if (file.changed && !file.append) model.GiveUp(&file);
        });
        return Answer::Unset();
    };
}

// --- names and files ------------------------------------------------------------------------------------------------

Meaning Model::Means(const Argument& name) const {
    return MeaningOf(name.text, m_savePath, m_bundlePath);
}

const std::string* Model::Existing(const Meaning& name) const {
    if (Saved(name)) return &m_save.Contents(name.place);
    return Shipped(name) ? &m_bundle.Contents(name.place) : nullptr;
}

/// @param ofBundle  the path is one of the bundle, whose file is what is kept.
std::optional<Model::File> Model::OpenToWrite(const std::string& place, bool ofBundle, Start start) {
    bool possible = !m_save.HasDirectory(place) && m_save.WayTo(place) == Way::free;
    if (!possible) return std::nullopt;
    bool exists = m_save.HasFile(place);
    bool shipped = !exists && m_bundle.HasFile(place);
    File file;
    file.place = place;
    file.writes = true;
    file.created = !exists && !shipped;
    file.changed = !exists;
    if (exists) {
        file.changed = start == Start::anew && !m_save.Contents(place).empty();
        if (start == Start::keeping) file.contents = m_save.Contents(place);
    } else if (shipped && ofBundle && start == Start::keeping) {
        file.contents = m_bundle.Contents(place);
        file.changed = false;
    }
    m_save.MakeDirectory(ParentPlace(place));
    if (file.created) m_save.Write(place, "");
    return file;
}

/// @return the error that is raised, empty for none.
std::string Model::WriteBack(File* file) {
    if (!file->writes || !file->changed) return "";
    std::string failure = "Failed to write file: " + m_savePath + "/" + file->place;
    if (!m_save.MakeDirectory(ParentPlace(file->place))) return failure + " (Not a directory)";
    if (m_save.HasDirectory(file->place)) return failure + " (Is a directory)";
    m_save.Write(file->place, file->contents);
    file->changed = false;
    return "";
}

/// What was written goes, and the file with it where it was made for that.
void Model::GiveUp(File* file) {
    if (!file->writes) return;
    file->writes = false;
    bool emptied = file->changed && file->created && m_save.HasFile(file->place);
    if (emptied && m_save.Contents(file->place).empty()) m_save.RemoveFile(file->place);
}

template <class Visit>
void Model::ForEachFile(Visit visit) const {
    for (const TextSlot& slot : m_texts) {
        if (slot.use != TextSlot::closed) visit(slot.file);
    }
    for (const BinarySlot& slot : m_binaries) {
        if (slot.file) visit(*slot.file);
    }
}

bool Model::IsWritten(const std::string& place) const {
    bool written = false;
    ForEachFile([&](const File& file) { written = written || (file.writes && file.place == place); });
    return written;
}

size_t ReadNumber(const std::string& text, double* value) {
    auto digits = [&text](size_t at) {
        size_t end = at;
        while (end < text.size() && text[end] >= '0' && text[end] <= '9') {
            ++end;
        }
        return end;
    };
    auto is = [&text](size_t at, const char* any) {
        return at < text.size() && std::string(any).find(text[at]) != std::string::npos;
    };
    *value = 0;
    size_t start = is(0, "+-") ? 1 : 0;
    size_t whole = digits(start);
    size_t end = whole;
    size_t count = whole - start;
    if (is(whole, ".")) {
        size_t fraction = digits(whole + 1);
        count += fraction - whole - 1;
        end = fraction;
    }
    if (count == 0) return 0;
    if (is(end, "eE")) {
        size_t exponent = end + (is(end + 1, "+-") ? 2u : 1u);
        if (digits(exponent) > exponent) end = digits(exponent);
    }
    size_t from = text[0] == '+' ? 1 : 0;
    std::from_chars(text.data() + from, text.data() + end, *value);
    return end;
}

}  // namespace kx::proof
