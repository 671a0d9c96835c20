// INI documents in the model.
#include "proof/Model.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace kx::proof {
namespace {

constexpr char kNothingToRead[] = "Trying to read from undefined INI file";
constexpr char kNothingToWrite[] = "Trying to write to undefined INI file";
constexpr char kNothingToChange[] = "Trying to change undefined INI file";

bool IsPlain(const std::string& text, const std::string& more) {
    bool blanks = !text.empty() && (text.front() == ' ' || text.back() == ' ');
    return !blanks && std::all_of(text.begin(), text.end(), [&more](unsigned char c) {
        bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        return letter || c == ' ' || more.find(static_cast<char>(c)) != std::string::npos;
    });
}

}  // namespace

/// Texts of sections, keys and blank lines, in the plainest form that there is.
/// @return nothing for any other.
std::optional<Model::Sections> Model::Parse(const std::string& text) {
    Sections sections;
    std::istringstream lines(text);
    std::string section;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        bool header = line.size() > 2 && line.front() == '[' && line.back() == ']';
        size_t equals = line.find('=');
        if (header && IsPlain(line.substr(1, line.size() - 2), "")) {
            section = line.substr(1, line.size() - 2);
            sections[section];
        } else if (equals != std::string::npos && equals > 0 && !section.empty()) {
            std::string key = line.substr(0, equals);
            std::string value = line.substr(equals + 1);
            if (!IsPlain(key, "") || !IsPlain(value, "+-.")) return std::nullopt;
            sections[section][key] = value;
        } else {
            return std::nullopt;
        }
    }
    return sections;
}

/// What a document of this name is read from.
std::string Model::IniText(const Meaning& name) const {
    if (!name.inSave && !name.inBundle) return "";
    if (m_save.HasFile(name.place)) return m_save.Contents(name.place);
    return m_bundle.HasFile(name.place) ? m_bundle.Contents(name.place) : "";
}

/// Something stands there that is no file: the document is never written.
bool Model::IsUnreadable(const Meaning& name) const {
    if ((!name.inSave && !name.inBundle) || name.place.empty()) return true;
    if (m_save.HasFile(name.place) || m_bundle.HasFile(name.place)) return false;
    return m_save.HasDirectory(name.place) || m_bundle.HasDirectory(name.place);
}

void Model::OpenIni(const Argument& name) {
    if (name.text.empty()) return;
    CloseIni(std::nullopt);
    Meaning meaning = Means(name);
    Document document;
    document.isFile = true;
    document.readable = !IsUnreadable(meaning);
    document.place = meaning.place;
    document.original = IniText(meaning);
    document.sections = Parse(document.original).value_or(Sections());
    m_document = std::move(document);
}

/// @param returned  the text that the script was given; nothing where the file alone tells it.
/// @return the text that is expected.
std::string Model::CloseIni(const std::optional<std::string>& returned) {
    if (!m_document) return "";
    Document document = *std::exchange(m_document, std::nullopt);
    bool asItWas = document.isFile && !document.changed;
    if (asItWas) return document.original;
    bool saved = document.isFile && document.readable && m_save.MakeDirectory(ParentPlace(document.place)) &&
                 !m_save.HasDirectory(document.place);
    if (!returned && !saved) return "";
    std::string text = returned ? *returned : m_disk(document.place);
    if (Parse(text) != document.sections) text = "a text of the document's sections and keys";
    if (saved) m_save.Write(document.place, text);
    return text;
}

Answer Model::InDocument(const char* complaint, const std::function<Answer(Document&)>& use) {
    return m_document ? use(*m_document) : Answer::Unset(complaint);
}

const std::string* Model::ValueIn(const Document& document, const Arguments& arguments) {
    auto section = document.sections.find(arguments[0].text);
    if (section == document.sections.end()) return nullptr;
    auto key = section->second.find(arguments[1].text);
    return key == section->second.end() ? nullptr : &key->second;
}

void Model::AddIniHandlers(std::map<std::string, Handler>* handlers) {
    AddIniChanges(handlers);
    AddIniQuestions(handlers);
}

void Model::AddIniChanges(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["ini_open"] = [](Model& model, const Arguments& arguments) {
        model.OpenIni(arguments[0]);
        return Answer::Unset();
    };
    all["ini_open_from_string"] = [](Model& model, const Arguments& arguments) {
        model.CloseIni(std::nullopt);
        Document document;
        document.sections = Parse(arguments[0].text).value_or(Sections());
        model.m_document = document;
        return Answer::Unset();
    };
    all["ini_close"] = [](Model& model, const Arguments&) { return Answer::Text(model.CloseIni(model.m_actualText)); };
    all["ini_write_string"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(kNothingToWrite, [&](Document& document) {
            document.sections[arguments[0].text][arguments[1].text] = arguments[2].text;
            document.changed = true;
            return Answer::Unset();
        });
    };
    all["ini_write_real"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(kNothingToWrite, [&](Document& document) {
            document.sections[arguments[0].text][arguments[1].text] = TextsOf(arguments[2].real).inIni;
            document.changed = true;
            return Answer::Unset();
        });
    };
    all["ini_key_delete"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(kNothingToChange, [&](Document& document) {
            if (!ValueIn(document, arguments)) return Answer::Unset();
            document.sections[arguments[0].text].erase(arguments[1].text);
            document.changed = true;
            return Answer::Unset();
        });
    };
    all["ini_section_delete"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(kNothingToChange, [&](Document& document) {
            if (document.sections.erase(arguments[0].text)) document.changed = true;
            return Answer::Unset();
        });
    };
}

void Model::AddIniQuestions(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["ini_read_string"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(kNothingToRead, [&](Document& document) {
            const std::string* value = ValueIn(document, arguments);
            return Answer::Text(value ? *value : arguments[2].text);
        });
    };
    all["ini_read_real"] = [](Model& model, const Arguments& arguments) {
        if (!model.m_document) return Answer::Real(arguments[2].real, kNothingToRead);
        const std::string* value = ValueIn(*model.m_document, arguments);
        double number = arguments[2].real;
        if (value) ReadNumber(*value, &number);
        return Answer::Real(number);
    };
    all["ini_key_exists"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(
            kNothingToRead, [&](Document& document) { return Answer::Real(ValueIn(document, arguments) != nullptr); });
    };
    all["ini_section_exists"] = [](Model& model, const Arguments& arguments) {
        return model.InDocument(kNothingToRead, [&](Document& document) {
            return Answer::Real(static_cast<double>(document.sections.count(arguments[0].text)));
        });
    };
}

}  // namespace kx::proof
