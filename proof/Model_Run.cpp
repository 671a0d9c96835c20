// One script, played for real and in the model.
#include "proof/Model_Run.h"

#include "Files/Function/Function_File_Internal.h"
#include "proof/Model_Play.h"
#include "tests/support/Console.h"
#include "tests/support/Folder.h"
#include "tests/support/ZipBuilder.h"

#include <cstdio>
#include <deque>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

constexpr size_t kShown = 30;
constexpr size_t kSelecting = 16;  // calls from one look at the whole save area to the next

constexpr std::pair<const char*, const char*> kShippedFiles[] = {
    {"shared.txt", "shipped line\r\n2.5 rest\n\nlast"},
    {"a.txt", "shipped a"},
    {"lib/shipped.txt", "1 2 3\n"},
    {"lib/x.bin", "\x01\x02 bytes"},
    {"d/e/ship.txt", ""},
    {"settings.ini", "[a]\nx=1\nn=2.5\n\n[Player]\nkey two=Ada\n"},
};

class Play {
public:
    Play(unsigned int seed, Campaign* campaign)
        : m_seed(seed), m_campaign(campaign), m_archive(seed % 3 == 0),
          m_bundlePath(Path(m_archive ? "bundle.zip" : "bundle")), m_player(seed, Path("save"), m_bundlePath),
          m_model(Ship(), Path("save"), m_bundlePath, m_archive,
                  [this](const std::string& place) { return OnDisk(place); }) {
        fs::create_directory(Path("save"));
        bool set =
            LoadSave::SetSaveArea(Path("save").c_str()) == 0 && LoadSave::SetBundleArea(m_bundlePath.c_str()) == 0;
        LoadSave::SetDurability(Durability::none);
        m_bundle = test::ExactSnapshot(Path("bundle"));
        m_campaign->Check(set, "the areas cannot be used");
    }
    Play(const Play&) = delete;
    Play& operator=(const Play&) = delete;

    ~Play() {
        for (int id = 1; id < MAXFILE; ++id) {
            Perform({"file_text_close", {id}});
        }
        Perform({kFinalize});
        Perform({"ini_close"});
        Perform({"file_find_close"});
        LoadSave::Shutdown();
        test::TakeError();
    }

    /// @param each  calls from one look at the save area to the next.
    bool Run(size_t calls, size_t each) {
        for (size_t i = 1; i <= calls; ++i) {
            Command command = m_player.Next();
            while (!m_model.Knows(command)) {
                command = m_player.Next();
            }
            if (!Step(command) || (i % each == 0 && !LooksTheSame())) return false;
        }
        return LooksTheSame();
    }

    /// Prints the last calls, and what was different.
    void Tell() const {
        for (const std::string& call : m_last) {
            std::fprintf(stderr, "  %s\n", call.c_str());
        }
        std::fprintf(stderr, "  %s\n", m_difference.c_str());
    }

private:
    [[nodiscard]] std::string Path(const char* area) const { return (m_folder.Path() / area).string(); }

    /// One script in three has its bundle in an archive.
    Tree Ship() {
        Tree tree;
        std::vector<test::ZipEntry> entries;
        for (const auto& [place, contents] : kShippedFiles) {
            test::WriteWholeFile(m_folder.Path() / "bundle" / place, contents);
            tree.MakeDirectory(ParentPlace(place));
            tree.Write(place, contents);
            entries.push_back(test::Deflated(place, contents));
        }
        test::WriteWholeFile(Path("bundle.zip"), test::Build(entries));
        return tree;
    }

    [[nodiscard]] std::string OnDisk(const std::string& place) const {
        fs::path path = fs::path(Path("save")) / place;
        return fs::is_regular_file(path) ? test::ReadWholeFile(path) : "<no file>";
    }

    bool Step(const Command& command) {
        m_campaign->Begin("seed " + std::to_string(m_seed));
        Answer actual = Perform(command);
        Answer expected = m_model.Apply(command, actual);
        m_player.Note(command, actual);
        m_console.Take();
        m_last.push_back(Shown(command) + " → " + Shown(actual));
        if (m_last.size() > kShown) m_last.pop_front();
        return actual == expected || Differ("expected " + Shown(expected));
    }

    bool LooksTheSame() {
        test::Snapshot save = test::ContentsBelow(Path("save"));
        test::Snapshot model = m_model.Save().Snapshot();
        if (save != model) return Differ("the save area is another: " + Difference(model, save));
        return test::ExactSnapshot(Path("bundle")) == m_bundle || Differ("the bundle has changed");
    }

    static std::string Difference(const test::Snapshot& model, const test::Snapshot& save) {
        for (const auto& [place, what] : model) {
            auto found = save.find(place);
            if (found == save.end()) return place + " is missing, expected " + what;
            if (found->second != what) return place + " is " + found->second + ", expected " + what;
        }
        for (const auto& entry : save) {
            if (model.count(entry.first) == 0) return entry.first + " is there, expected nothing";
        }
        return "";
    }

    bool Differ(const std::string& how) {
        m_difference = how;
        return false;
    }

    unsigned int m_seed;
    Campaign* m_campaign;
    test::TemporaryFolder m_folder;
    bool m_archive;
    std::string m_bundlePath;
    test::CapturingConsole m_console;
    Player m_player;
    Model m_model;
    test::Snapshot m_bundle;
    std::deque<std::string> m_last;
    std::string m_difference;
};

}  // namespace

bool PlayBesideModel(unsigned int seed, size_t calls, Campaign* campaign) {
    if (Play(seed, campaign).Run(calls, kSelecting)) return true;
    Campaign again("model: again");
    Play play(seed, &again);
    play.Run(calls, 1);  // to the very call
    play.Tell();
    return campaign->Check(false, "the areas differ from the model; --seed " + std::to_string(seed) + " repeats it");
}

}  // namespace kx::proof
