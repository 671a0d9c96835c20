// Every state in which a disk may be found after a save that was cut short, from what the save did to it.
#include "proof/Crash_Campaigns.h"

#include "Platform/Platform_File.h"
#include "proof/Crash_Recorder.h"
#include "tests/support/Folder.h"
#include "tests/support/Snapshot.h"

#include <algorithm>
#include <cstring>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

/// A save as it was made.
struct Recording {
    DiskModel before;
    std::vector<Event> events;
    bool saved;
    bool complete;  // what was written down makes what is there
};

/// What a folder holds, as the model says it.
test::Snapshot SnapshotOf(const Tree& tree) {
    test::Snapshot snapshot;
    for (const auto& [path, bytes] : tree) {
        snapshot[path] = bytes ? bytes->text : "<directory>";
    }
    return snapshot;
}

Recording Record(const Scenario& scenario, const Setting& setting, const fs::path& folder) {
    Recorder recorder(folder);
    Host host(folder, setting);
    if (scenario.warmUp) scenario.warmUp();
    bool saved = host.Works() && scenario.save();
    Recording recording{recorder.Before(), recorder.Events(), saved, false};
    DiskModel after = recording.before;
    for (const Event& event : recording.events) {
        after.Add(event);
    }
    recording.complete = SnapshotOf(after.Now()) == test::ContentsBelow(folder);
    return recording;
}

void Materialise(const Tree& tree, const fs::path& folder) {
    fs::remove_all(folder);
    for (const auto& [path, bytes] : tree) {
        if (bytes) {
            test::WriteWholeFile(folder / path, bytes->text);
        } else {
            fs::create_directories(folder / path);
        }
    }
}

class Replay {
public:
    Replay(Campaign& campaign, const Scenario& scenario, const Setting& setting, fs::path folder, size_t restartEach)
        : m_campaign(campaign), m_scenario(scenario), m_setting(setting), m_folder(std::move(folder)),
          m_restartEach(restartEach) {}

    void Run(const Recording& recording) {
        DiskModel disk = recording.before;
        size_t step = 0;
        CutAt(disk, step, false);
        for (const Event& event : recording.events) {
            disk.Add(event);
            ++step;
            CutAt(disk, step, step == recording.events.size());
        }
    }

private:
    void CutAt(const DiskModel& disk, size_t step, bool reported) {
        std::string point = m_scenario.name + ", " + m_setting.name + ", after step " + std::to_string(step) +
                            (reported ? ", reported" : "") + ", state ";
        size_t number = 0;
        disk.ForEachState([&](const Tree& tree) {
            m_campaign.Begin(point + std::to_string(++number));
            Look(tree, reported);
            if (m_campaign.Points() % m_restartEach == 0) Restart(tree);
        });
    }

    void Look(const Tree& tree, bool reported) {
        for (const SavedFile& file : m_scenario.files) {
            auto found = tree.find("save/" + file.name);
            bool isFile = found != tree.end() && found->second;
            const char* fault = FaultOf(file, isFile ? &found->second->text : nullptr, reported);
            m_campaign.Check(!fault, file.name + " " + (fault ? fault : ""));
        }
        for (const auto& entry : tree) {
            m_campaign.Check(!entry.second || IsKnown(entry.first), entry.first + " is left for good");
        }
    }

    /// Whether a file is one of the scenario's, or one that the next start removes.
    [[nodiscard]] bool IsKnown(const std::string& path) const {
        if (LeafOf(path).compare(0, std::strlen(kTemporaryPrefix), kTemporaryPrefix) == 0) return true;
        if (path == "bundle/update.zip") return true;
        return std::any_of(m_scenario.files.begin(), m_scenario.files.end(),
                           [&path](const SavedFile& file) { return path == "save/" + file.name; });
    }

    void Restart(const Tree& tree) {
        Materialise(tree, m_folder);
        std::string wrong = RestartOn(m_scenario, m_setting, m_folder);
        m_campaign.Check(wrong.empty(), wrong);
    }

    Campaign& m_campaign;
    const Scenario& m_scenario;
    const Setting& m_setting;
    fs::path m_folder;
    size_t m_restartEach;
};

}  // namespace

int RunReplay(const std::vector<Scenario>& scenarios, bool isShort) {
    Campaign campaign("crash: replay");
    test::TemporaryFolder folder;
    for (const Setting& setting : AllSettings()) {
        if (!setting.durable) continue;                  // nothing is promised then
        if (isShort && !setting.unnamedFiles) continue;  // the other ways write as these do, and then rename
        for (const Scenario& scenario : scenarios) {
            Prepare(scenario, folder.Path() / "recorded");
            Recording recording = Record(scenario, setting, folder.Path() / "recorded");
            campaign.Begin(scenario.name + ", " + setting.name + ", uncut");
            campaign.Check(recording.saved, "the save fails");
            campaign.Check(recording.complete, "not all that a save does goes through the table of system calls");
            Replay(campaign, scenario, setting, folder.Path() / "state", isShort ? 100 : 10).Run(recording);
        }
    }
    return campaign.End(isShort ? 1000 : 5000);
}

}  // namespace kx::proof
