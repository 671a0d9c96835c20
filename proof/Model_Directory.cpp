// Files and directories by name, and searches, in the model.
#include "proof/Model.h"

#include <algorithm>

namespace kx::proof {
namespace {

enum Attribute : int { kReadOnly = 1, kHidden = 2, kDirectory = 16, kPlain = 32 };

std::string Leaf(const std::string& place) {
    return place.substr(place.rfind('/') + 1);
}

bool IsHidden(const std::string& leaf) {
    return leaf[0] == '.';
}

}  // namespace

Answer Model::Rename(const Meaning& from, const Meaning& to) {
    if (!Saved(from)) return Answer::Unset();
    bool possible = to.inSave && !m_save.HasDirectory(to.place) && m_save.HasDirectory(ParentPlace(to.place)) &&
                    !IsWritten(from.place);
    if (!possible) return Answer::Real(0);
    std::string contents = m_save.Contents(from.place);
    m_save.RemoveFile(from.place);
    m_save.Write(to.place, contents);
    return Answer::Real(1);
}

/// The destination's directories are made first, whatever comes of the copy.
Answer Model::Copy(const Meaning& from, const Meaning& to) {
    if (!to.inSave || to.place.empty()) return Answer::Real(-1);
    const std::string* source = Existing(from);
    std::string contents = source ? *source : "";
    bool made = m_save.MakeDirectory(ParentPlace(to.place));
    if (!source || !made || m_save.HasDirectory(to.place)) return Answer::Real(-1);
    m_save.Write(to.place, contents);
    return Answer::Real(0);
}

Answer Model::Find(const Meaning& mask, int filter) {
    m_found.clear();
    m_at = 0;
    if (mask.inSave) FindIn(m_save, mask.place, filter);
    if (mask.inBundle) FindIn(m_bundle, mask.place, filter);
    m_searching = !m_found.empty();
    return FoundName();
}

void Model::FindIn(const Tree& tree, const std::string& mask, int filter) {
    if (mask.empty()) return;
    for (const Tree::Entry& entry : tree.List(ParentPlace(mask))) {
        bool asked = (filter & kHidden || !IsHidden(entry.name)) && (filter & kDirectory || !entry.directory);
        bool isNew = std::find(m_found.begin(), m_found.end(), entry.name) == m_found.end();
        if (asked && isNew && Matches(Leaf(mask), entry.name)) m_found.push_back(entry.name);
    }
}

Answer Model::FoundName() const {
    return Answer::Text(m_searching && m_at < m_found.size() ? m_found[m_at] : "");
}

void Model::AddDirectoryHandlers(std::map<std::string, Handler>* handlers) {
    auto& all = *handlers;
    AddNameHandlers(handlers);
    all["file_exists"] = [](Model& model, const Arguments& arguments) {
        return Answer::Real(model.Existing(model.Means(arguments[0])) != nullptr);
    };
    all["file_delete"] = [](Model& model, const Arguments& arguments) {
        Meaning name = model.Means(arguments[0]);
        if (!model.Saved(name)) return Answer::Real(0);
        model.m_save.RemoveFile(name.place);
        return Answer::Real(1);
    };
    all["file_rename"] = [](Model& model, const Arguments& arguments) {
        return model.Rename(model.Means(arguments[0]), model.Means(arguments[1]));
    };
    all["file_copy"] = [](Model& model, const Arguments& arguments) {
        return model.Copy(model.Means(arguments[0]), model.Means(arguments[1]));
    };
    all["file_attributes"] = [](Model& model, const Arguments& arguments) {
        Meaning name = model.Means(arguments[0]);
        if (!model.Existing(name)) return Answer::Real(0);
        bool readOnly = model.m_archive && !model.Saved(name);
        return Answer::Real(kPlain + (IsHidden(Leaf(name.place)) ? kHidden : 0) + (readOnly ? kReadOnly : 0));
    };
    all["directory_exists"] = [](Model& model, const Arguments& arguments) {
        Meaning name = model.Means(arguments[0]);
        return Answer::Real((name.inSave && model.m_save.HasDirectory(name.place)) ||
                            (name.inBundle && model.m_bundle.HasDirectory(name.place)));
    };
    all["directory_create"] = [](Model& model, const Arguments& arguments) {
        Meaning name = model.Means(arguments[0]);
        return Answer::Real(name.inSave && model.m_save.MakeDirectory(name.place));
    };
    all["directory_destroy"] = [](Model& model, const Arguments& arguments) {
        Meaning name = model.Means(arguments[0]);
        bool there = name.inSave && !name.place.empty() && model.m_save.HasDirectory(name.place);
        if (there) model.m_save.RemoveDirectory(name.place);
        return Answer::Unset();
    };
    all["file_find_first"] = [](Model& model, const Arguments& arguments) {
        return model.Find(model.Means(arguments[0]), static_cast<int>(arguments[1].real));
    };
    all["file_find_next"] = [](Model& model, const Arguments&) {
        if (model.m_searching) ++model.m_at;
        return model.FoundName();
    };
    all["file_find_close"] = [](Model& model, const Arguments&) {
        model.m_searching = false;
        return Answer::Unset();
    };
}

}  // namespace kx::proof
