// The areas of the campaign and the world outside them.
#include "proof/Escape_World.h"

#include "Files/IO/LoadSave.h"
#include "tests/support/ZipBuilder.h"

#include <stdexcept>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kx::proof {

const char kSecret[] = "SECRET-4f1c";

namespace {

const char kSecretFile[] = "SECRET-4f1c,SECRET-4f1c\n[SECRET-4f1c]\nkey=SECRET-4f1c\n";
const char kLinkedFile[] = "[section]\nkey=of a second name\n";

bool HoldsSecret(const std::string& text) {
    return text.find(kSecret) != std::string::npos;
}

/// What has changed from one snapshot to another, for a message.
std::string Difference(const test::Snapshot& before, const test::Snapshot& now) {
    for (const auto& [name, what] : before) {
        auto found = now.find(name);
        if (found == now.end()) return "\"" + name + "\" is gone";
        if (found->second != what) return "\"" + name + "\" was " + what + " and is " + found->second;
    }
    for (const auto& entry : now) {
        if (before.count(entry.first) == 0) return "\"" + entry.first + "\" is new";
    }
    return "";
}

void Clear(const fs::path& folder) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        fs::remove_all(entry.path());
    }
}

}  // namespace

World::World() : m_before(fs::current_path()) {
    fs::create_directory(Save());
    fs::create_directory(Bundle());
    fs::create_directory(Base() + "/elsewhere");
    fs::create_directory_symlink(Save(), Base() + "/elsewhere/save");
    fs::create_directory_symlink(Base(), Base() + "/elsewhere/above");
    fs::create_directory_symlink("../bundle", Base() + "/elsewhere/bundle");
    test::WriteWholeFile(Archive(), test::Build({{"shipped.txt", "shipped"}, {"folder/shipped.txt", "shipped"}}));
    test::WriteWholeFile(Linked("save"), kLinkedFile);
    test::WriteWholeFile(Linked("bundle"), kLinkedFile);
    MakeOutside();
    fs::current_path(Outside());
    LoadSave::SetDurability(Durability::none);
    m_outside = test::ExactSnapshot(Outside());
    m_linked = test::ContentsBelow(Path("linked", ""));
    m_names = test::NamesIn(Base());
}

World::~World() {
    LoadSave::Shutdown();
    std::error_code ignored;
    fs::current_path(m_before, ignored);
}

std::string World::Path(const char* area, const std::string& place) const {
    std::string path = Base() + "/" + area;
    return place.empty() ? path : path + "/" + place;
}

/// Names that scripts try, and those that the areas have too: a directory that has become a link must not lead to them.
void World::MakeOutside() const {
    for (const char* place : {"secret.txt", "trap", "a/trap", "a/b/trap", "sub/secret.txt", "file.txt"}) {
        test::WriteWholeFile(Outside(place), kSecretFile);
    }
    test::WriteWholeFile(Outside("secret.zip"), test::Build({{"secret.txt", kSecretFile}}));
    fs::create_directory(Outside("empty"));
    for (mode_t kind : {mode_t{S_IFIFO}, mode_t{S_IFSOCK}}) {
        std::string path = Outside(kind == S_IFIFO ? "fifo" : "socket");
        if (::mknod(path.c_str(), kind | 0600, 0) != 0) throw std::runtime_error("cannot make " + path);
    }
}

void World::Refill() const {
    static const std::string archive = test::Build({{"unpacked.txt", "unpacked"}, {"secret.txt", "new"}});
    Clear(Save());
    Clear(Bundle());
    test::WriteWholeFile(Save("inside.txt"), "[section]\nkey=inside\n");
    test::WriteWholeFile(Save("inside.zip"), archive);
    test::WriteWholeFile(Save("folder/file.txt"), "inside");
    test::WriteWholeFile(Bundle("shipped.txt"), "shipped");
    test::WriteWholeFile(Bundle("folder/shipped.txt"), "shipped");
}

void World::Use(const std::string& save, const std::string& bundle) const {
    if (LoadSave::SetSaveArea(save.c_str()) != 0 || LoadSave::SetBundleArea(bundle.c_str()) != 0) {
        throw std::runtime_error("cannot use " + save + " and " + bundle);
    }
}

std::string World::Damage() const {
    std::string outside = Difference(m_outside, test::ExactSnapshot(Outside()));
    if (!outside.empty()) return outside;
    std::string linked = Difference(m_linked, test::ContentsBelow(Path("linked", "")));
    if (!linked.empty()) return linked;
    return test::NamesIn(Base()) == m_names ? "" : "names next to the areas are others";
}

std::string World::Leak() const {
    for (const std::string& area : {Save(), Bundle()}) {
        for (const auto& [name, contents] : test::ContentsBelow(area)) {
            if (HoldsSecret(contents)) return area + "/" + name;
        }
    }
    return "";
}

}  // namespace kx::proof
