// The power goes off before every system call of a save: what is on the disk then is mounted, and looked at.
#include "proof/Crash_Campaigns.h"

#include "proof/Crash_Disk.h"
#include "proof/Crash_Save.h"
#include "tests/support/Snapshot.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

constexpr size_t kDiskBytes = 8 * 1024 * 1024;

/// What else goes on while the save does.
enum class Others {
    none,
    syncing,  // after each call that may change a file the file system's own records come to the disk, without the
              // contents of files that were not synced
};

class PowerCuts {
public:
    PowerCuts(Campaign& campaign, const Setting& setting, Others others)
        : m_campaign(campaign), m_setting(setting), m_others(others), m_image(kDiskBytes), m_disk(m_image, true) {}

    void Run(const Scenario& scenario) {
        Prepare(scenario, m_disk.Folder());
        m_disk.Sync();
        m_looked.clear();
        m_restarted.clear();
        bool changed = true;  // by the call before this one
        End end = Save(scenario, m_setting, m_disk.Folder(), [&](const Stop& stop) {
            if (m_others == Others::none || changed || stop.reported) CutAt(scenario, stop);
            changed = ChangesFiles(stop.call);
            return stop.reported ? Next::kill : Next::goOn;
        });
        m_campaign.Check(end == End::killed, "the save fails");
    }

private:
    void CutAt(const Scenario& scenario, const Stop& stop) {
        if (m_others == Others::syncing && !stop.reported) m_disk.CommitRecords();
        bool looked = !stop.reported && m_image.Holds(m_looked);  // nothing has been written since
        if (looked) return;
        m_campaign.Begin(scenario.name + ", " + m_setting.name + (m_others == Others::syncing ? ", others sync" : "") +
                         ", at call " + Text(stop));
        m_looked = m_image.Bytes();
        DiskImage copy(m_looked);
        MountedDisk after(copy, false);
        std::string wrong = FaultBelow(scenario, after.Folder(), stop.reported);
        m_campaign.Check(wrong.empty(), wrong);
        fs::path area = after.Folder() / "save";
        test::Snapshot files = fs::exists(area) ? test::ContentsBelow(area) : test::Snapshot();
        bool isNew = m_restarted.insert(std::move(files)).second;  // starts on the same files go the same way
        wrong = isNew ? RestartOn(scenario, m_setting, after.Folder()) : "";
        m_campaign.Check(wrong.empty(), wrong);
    }

    Campaign& m_campaign;
    const Setting& m_setting;
    Others m_others;
    DiskImage m_image;
    MountedDisk m_disk;
    std::string m_looked;                  // the disk when it was last looked at
    std::set<test::Snapshot> m_restarted;  // what starts of the scenario have been tried on
};

void CutEverywhere(Campaign& campaign, const Setting& setting, Others others, const std::vector<Scenario>& scenarios) {
    PowerCuts cuts(campaign, setting, others);
    for (const Scenario& scenario : scenarios) {
        cuts.Run(scenario);
    }
}

/// @return why this machine cannot do it; empty where it can.
std::string WhyNot() {
    if (int reason = KeepMountsPrivate()) return std::string("no mounts of its own: ") + std::strerror(reason);
    try {
        DiskImage image(kDiskBytes);
        MountedDisk disk(image, true);
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

}  // namespace

int RunPowerCuts(const std::vector<Scenario>& scenarios) {
    if (std::string reason = WhyNot(); !reason.empty()) {
        std::printf("crash: power cut: skipped: it takes root, loop devices and mkfs.ext4 (%s)\n", reason.c_str());
        return 0;
    }
    Campaign campaign("crash: power cut");
    for (const Setting& setting : AllSettings()) {
        bool all = setting.unnamedFiles && setting.links && setting.exchange && setting.durable;
        if (all || !setting.exchange) CutEverywhere(campaign, setting, Others::syncing, scenarios);
        if (all) CutEverywhere(campaign, setting, Others::none, scenarios);
    }
    return campaign.End(200);
}

}  // namespace kx::proof
