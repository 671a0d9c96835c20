// File names as texts, in the model.
#include "proof/Model.h"

namespace kx::proof {
namespace {

constexpr char kSeparators[] = "/\\";

/// Bytes up to the last separator, it included.
size_t DirectoryLength(const std::string& name) {
    size_t separator = name.find_last_of(kSeparators);
    return separator == std::string::npos ? 0 : separator + 1;
}

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

/// "C:", or the server and its share of "\\server\share\…".
std::string DriveOf(const std::string& name) {
    auto letter = static_cast<unsigned char>(name.empty() ? '\0' : name[0]) | 0x20u;
    if (name.size() > 1 && letter >= 'a' && letter <= 'z' && name[1] == ':') return name.substr(0, 2);
    if (name.compare(0, 2, "\\\\") != 0) return "";
    size_t server = name.find_first_of(kSeparators, 2);
    if (server == std::string::npos || server == 2 || server + 1 == name.size()) return "";
    size_t share = name.find_first_of(kSeparators, server + 1);
    return share == server + 1 ? "" : name.substr(0, share);
}

std::string ChangedExtension(const std::string& name, const std::string& extension) {
    size_t dot = name.rfind('.');
    if (dot != std::string::npos) return name.substr(0, dot) + extension;
    bool complete = extension.empty() || extension[0] == '.';
    return name + (complete ? "" : ".") + extension;
}

}  // namespace

/// A bare name's directory is where its file is found.
std::string Model::DirectoryOf(const Argument& name) const {
    if (size_t length = DirectoryLength(name.text)) return name.text.substr(0, length);
    Meaning meaning = Means(name);
    std::string area = Saved(meaning) ? m_savePath : m_bundlePath;
    std::string path = area + "/" + meaning.place;
    return Existing(meaning) ? path.substr(0, DirectoryLength(path)) : "";
}

void Model::AddNameHandlers(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    all["filename_name"] = [](Model&, const Arguments& arguments) {
        return Answer::Text(arguments[0].text.substr(DirectoryLength(arguments[0].text)));
    };
    all["filename_path"] = [](Model& model, const Arguments& arguments) {
        std::string directory = model.DirectoryOf(arguments[0]);
        bool ended = directory.empty() || IsSeparator(directory.back());
        return Answer::Text(ended ? directory : directory + "/");
    };
    all["filename_dir"] = [](Model& model, const Arguments& arguments) {
        std::string directory = model.DirectoryOf(arguments[0]);
        if (directory.size() > 1 && IsSeparator(directory.back())) directory.pop_back();
        return Answer::Text(directory);
    };
    all["filename_drive"] = [](Model&, const Arguments& arguments) { return Answer::Text(DriveOf(arguments[0].text)); };
    all["filename_ext"] = [](Model&, const Arguments& arguments) {
        std::string leaf = arguments[0].text.substr(DirectoryLength(arguments[0].text));
        size_t dot = leaf.rfind('.');
        return Answer::Text(dot == std::string::npos ? "" : leaf.substr(dot));
    };
    all["filename_change_ext"] = [](Model&, const Arguments& arguments) {
        return Answer::Text(ChangedExtension(arguments[0].text, arguments[1].text));
    };
}

}  // namespace kx::proof
