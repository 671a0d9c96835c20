// kill -9 before every system call of a save.
#include "proof/Crash_Campaigns.h"

#include "proof/Crash_Save.h"
#include "tests/support/Folder.h"

#include <vector>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

/// Where a save is to be killed: before each of its system calls; in the short form behind those that change names.
/// @return numbers of calls, the last that of the report; none where the save fails.
std::vector<int> PointsOf(const Scenario& scenario, const Setting& setting, const fs::path& folder, bool isShort) {
    std::vector<int> points;
    bool wanted = !isShort;
    Prepare(scenario, folder);
    End end = Save(scenario, setting, folder, [&](const Stop& stop) {
        if (wanted || stop.reported) points.push_back(stop.number);
        wanted = !isShort || ChangesNames(stop.call);
        return Next::goOn;
    });
    return end == End::finished ? points : std::vector<int>();
}

/// Kills at one call, or at the report where a save takes fewer calls than another, and looks at what is left.
void KillAt(Campaign& campaign, const Scenario& scenario, const Setting& setting, const fs::path& folder, int number) {
    Prepare(scenario, folder);
    Stop last{};
    End end = Save(scenario, setting, folder, [&](const Stop& stop) {
        last = stop;
        return stop.number == number || stop.reported ? Next::kill : Next::goOn;
    });
    campaign.Begin(scenario.name + ", " + setting.name + ", at call " + Text(last));
    campaign.Check(end == End::killed, "the save fails");
    std::string wrong = FaultBelow(scenario, folder, last.reported);
    campaign.Check(wrong.empty(), wrong);
    wrong = RestartOn(scenario, setting, folder);
    campaign.Check(wrong.empty(), wrong);
}

void KillEverywhere(Campaign& campaign, const Scenario& scenario, const Setting& setting, const fs::path& folder,
                    bool isShort) {
    std::vector<int> points = PointsOf(scenario, setting, folder, isShort);
    if (points.empty()) {
        campaign.Begin(scenario.name + ", " + setting.name);
        campaign.Check(false, "the save fails");
    }
    for (int point : points) {
        KillAt(campaign, scenario, setting, folder, point);
    }
}

}  // namespace

int RunKill(const std::vector<Scenario>& scenarios, bool isShort) {
    Campaign campaign("crash: kill -9");
    test::TemporaryFolder folder;
    for (const Setting& setting : AllSettings()) {
        for (const Scenario& scenario : scenarios) {
            KillEverywhere(campaign, scenario, setting, folder.Path(), isShort);
        }
    }
    return campaign.End(isShort ? 100 : 500);
}

}  // namespace kx::proof
