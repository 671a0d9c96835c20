// Every system call of every kind of file work fails: nothing is lost, nothing stays behind, nothing claims success.
#include "Files/Base/Limits.h"
#include "Platform/MemoryManager.h"
#include "Platform/Platform_Replace.h"
#include "proof/Campaign.h"
#include "proof/Faults_Scenarios.h"
#include "tests/support/FaultySystemCalls.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/resource.h>
#include <unistd.h>

namespace kx::proof {
namespace {

using test::FaultySystemCalls;
using test::Snapshot;
using Extent = FaultySystemCalls::Extent;

constexpr unsigned int kLongest = 120;  // seconds of one point: one that hangs is ended by the alarm

/// What the host's system can and cannot do.
struct Machine {
    const char* name;
    void (*prepare)(FaultySystemCalls&);
};

const Machine kMachines[] = {
    {"", [](FaultySystemCalls&) {}},
    {", no unnamed files", [](FaultySystemCalls& calls) { calls.FailWithFlags("openat", O_TMPFILE, EOPNOTSUPP); }},
    {", no links", [](FaultySystemCalls& calls) { calls.FailFrom("linkat", 1, EPERM); }},
    {", no openat2", [](FaultySystemCalls& calls) { calls.FailFrom("openat2", 1, ENOSYS); }},
};

/// What goes wrong.
struct Fault {
    enum Kind { failing, shortened, eachShort, eachInterrupted };

    Kind kind;
    int number;  ///< of the call, from 1
    int reason;
    Extent extent;
    const Machine* machine;

    void Arm(FaultySystemCalls* calls) const {
        machine->prepare(*calls);
        switch (kind) {
        case failing: calls->FailAt(number, reason, extent); return;
        case shortened: calls->ShortenAt(number, 1); return;
        case eachShort: calls->FallShort(static_cast<size_t>(number)); return;
        case eachInterrupted: calls->InterruptEach(); return;
        }
    }

    [[nodiscard]] std::string Name() const {
        std::string text = "call " + std::to_string(number);
        const char* extents[] = {" once", " and all later ones that make something", " and all later ones"};
        switch (kind) {
        case failing: text += std::string(" ") + std::strerror(reason) + extents[static_cast<int>(extent)]; break;
        case shortened: text += " takes one byte"; break;
        case eachShort: text = "calls take " + std::to_string(number) + " bytes"; break;
        case eachInterrupted: text = "calls are interrupted"; break;
        }
        return text + machine->name;
    }
};

/// What came of a script.
struct Outcome {
    std::vector<std::string> results;
    std::vector<std::string> calls;
    Snapshot files;
    bool told = false;
    bool saved = false;    // nothing was open at the end
    int descriptors = 0;   // that stayed open
    long long blocks = 0;  // that stayed behind
};

bool IsTemporary(const std::string& name) {
    return name.find(kTemporaryPrefix) != std::string::npos;
}

std::string Contents(const Snapshot& files, const std::string& name) {
    auto found = files.find(name);
    return found == files.end() ? "<none>" : found->second;
}

class SystemCallCampaign {
public:
    explicit SystemCallCampaign(const Options& options) : m_options(options) {}

    int Run() {
        for (const Scenario& scenario : Scenarios()) {
            for (const Machine& machine : kMachines) {
                Try(scenario, machine);
                if (m_options.isShort) break;
            }
        }
        return m_campaign.End(m_options.isShort ? 300 : 3000);
    }

private:
    // --- one scenario ------------------------------------------------------------------------------------------------

    void Try(const Scenario& scenario, const Machine& machine) {
        Learn(scenario, machine);
        bool ordinary = &machine == &kMachines[0];
        for (int number = 1; number <= m_callCount; number += m_options.isShort ? kShortStep : 1) {
            for (int reason : ordinary && !m_options.isShort ? kReasons : kFewReasons) {
                for (Extent extent : {Extent::once, Extent::makingCalls, Extent::everything}) {
                    Break(scenario, {Fault::failing, number, reason, extent, &machine});
                }
            }
            Break(scenario, {Fault::failing, number, EINTR, Extent::once, &machine});
            if (MayBeShort(number)) Break(scenario, {Fault::shortened, number, 0, Extent::once, &machine});
        }
        for (int most : {1, 97}) {
            Break(scenario, {Fault::eachShort, most, 0, Extent::once, &machine});
        }
        Break(scenario, {Fault::eachInterrupted, 1, 0, Extent::once, &machine});
    }

    [[nodiscard]] bool MayBeShort(int number) const {
        const std::string& call = m_clean.calls[static_cast<size_t>(number) - 1];
        return call == "read" || call == "pread" || call == "write";
    }

    /// What a script comes to without a fault, and what there is where it ends after each of its steps.
    void Learn(const Scenario& scenario, const Machine& machine) {
        Fault none{Fault::failing, 0, 0, Extent::once, &machine};
        m_states.clear();
        m_saved.clear();
        m_expected.clear();
        RunScript(scenario, nullptr, none, -1);  // what it leaves behind for good
        RunScript(scenario, nullptr, none, -1);
        m_clean = m_outcome;
        m_callCount = static_cast<int>(m_outcome.calls.size());
        for (size_t steps = 0; steps < m_clean.results.size(); ++steps) {
            RunScript(scenario, nullptr, none, static_cast<int>(steps));
            m_states.push_back(m_outcome.files);
            m_saved.push_back(m_outcome.saved);
        }
        m_states.push_back(m_clean.files);
        m_expected = m_clean.results;
        m_campaign.Begin(std::string(scenario.name) + ": no fault" + machine.name);
        RunScript(scenario, &m_expected, none, -1);
        m_campaign.Check(!m_outcome.told && m_outcome.files == m_clean.files, "it comes out in another way each time");
    }

    void Break(const Scenario& scenario, const Fault& fault) {
        m_campaign.Begin(std::string(scenario.name) + ": " + fault.Name());
        RunScript(scenario, &m_expected, fault, -1);
        CheckNothingStays();
        CheckFiles(fault);
        bool invisible = fault.kind != Fault::failing || (fault.reason == EINTR && CanBeInterrupted(fault));
        if (invisible) m_campaign.Check(!m_outcome.told, std::string("it shows: ") + m_world.Said().Last());

        Fault none{Fault::failing, 0, 0, Extent::once, &kMachines[0]};
        RunScript(scenario, &m_expected, none, -1);
        CheckNothingStays();
        m_campaign.Check(!m_outcome.told, std::string("afterwards it fails: ") + m_world.Said().Last());
        m_campaign.Check(m_outcome.files == m_clean.files, "afterwards the files are others");
    }

    void RunScript(const Scenario& scenario, const std::vector<std::string>* expected, const Fault& fault, int steps) {
        ::alarm(kLongest);
        m_world.Reset();
        if (scenario.inArchive) m_world.ShipArchive();
        m_world.Said().TakeSaid();
        int descriptors = test::OpenDescriptors();
        long long blocks = MemoryManager::Stats().blocks;
        m_outcome.told = false;
        Script script(&m_world, expected, steps);
        {
            FaultySystemCalls calls;
            fault.Arm(&calls);
            try {
                scenario.run(script);
            } catch (const Script::Ended&) {
                m_outcome.told = true;
            }
            m_outcome.saved = !scenario.http && !World::HoldsFiles();
            m_world.Settle(m_outcome.told);
            if (scenario.http) World::EndHttp();
            m_outcome.calls = calls.Calls();
        }
        m_outcome.told |= m_world.Said().TakeSaid();
        m_outcome.results = script.Results();
        m_outcome.files = m_world.Files();
        m_outcome.descriptors = test::OpenDescriptors() - descriptors;
        m_outcome.blocks = MemoryManager::Stats().blocks - blocks;
    }

    // --- what is promised --------------------------------------------------------------------------------------------

    void CheckNothingStays() {
        m_campaign.Check(m_outcome.descriptors == 0, std::to_string(m_outcome.descriptors) + " descriptors leaked");
        m_campaign.Check(m_outcome.blocks == 0, std::to_string(m_outcome.blocks) + " blocks leaked");
    }

    /// Success means that all is new. Otherwise each file is as it was before some step or after it.
    void CheckFiles(const Fault& fault) {
        CheckTemporaries(fault);
        if (!m_outcome.told) {
            m_campaign.Check(m_outcome.files == m_clean.files, "success was claimed, but the files are others");
            return;
        }
        Snapshot all = m_outcome.files;
        all.insert(m_world.First().begin(), m_world.First().end());
        for (const Snapshot& state : m_states) {
            all.insert(state.begin(), state.end());
        }
        for (const auto& [name, contents] : all) {
            std::string now = Contents(m_outcome.files, name);
            bool whole = IsState(name, now) || IsLeftEmpty(fault, name, now);
            m_campaign.Check(whole,
                             name + " is neither old nor new: " + now.substr(0, kShown) + "; " + m_world.Said().Last());
        }
    }

    /// @return the last step before the one that failed after which all was saved: it cannot be lost any more.
    [[nodiscard]] size_t LastSave() const {
        size_t step = m_outcome.results.empty() ? 0 : m_outcome.results.size() - 1;
        while (step > 0 && !m_saved[step]) {
            --step;
        }
        return step;
    }

    [[nodiscard]] bool IsState(const std::string& name, const std::string& contents) const {
        size_t last = std::min(m_outcome.results.size(), m_states.size() - 1);
        for (size_t step = LastSave(); step <= last; ++step) {
            if (Contents(m_states[step], name) == contents) return true;
        }
        return false;
    }

    /// A new file that could not be taken away again, for want of a descriptor.
    [[nodiscard]] bool IsLeftEmpty(const Fault& fault, const std::string& name, const std::string& contents) const {
        return fault.extent != Extent::once && contents.empty() && !m_world.First().count(name);
    }

    /// They are left only where removing them was made to fail, until the next start.
    void CheckTemporaries(const Fault& fault) {
        if (!HasTemporaries(m_outcome.files)) return;
        bool removalFailed = fault.extent == Extent::everything || CallOf(fault) == "unlinkat";
        m_campaign.Check(removalFailed, "a temporary is left");
        m_world.Restart();
        m_outcome.files = m_world.Files();
        m_campaign.Check(!HasTemporaries(m_outcome.files), "a temporary is left after the next start");
    }

    static bool HasTemporaries(const Snapshot& files) {
        for (const auto& [name, contents] : files) {
            if (IsTemporary(name)) return true;
        }
        return false;
    }

    [[nodiscard]] std::string CallOf(const Fault& fault) const {
        auto index = static_cast<size_t>(fault.number) - 1;
        return index < m_outcome.calls.size() ? m_outcome.calls[index] : "";
    }

    [[nodiscard]] bool CanBeInterrupted(const Fault& fault) const {
        static const std::set<std::string> calls{"openat2", "openat", "read", "pread", "write", "fdatasync", "fsync"};
        return calls.count(CallOf(fault)) > 0;
    }

    static constexpr int kShortStep = 11;
    static constexpr size_t kShown = 40;
    const std::vector<int> kReasons{ENOSPC, EIO, EDQUOT, EROFS, EACCES, EMFILE};
    const std::vector<int> kFewReasons{ENOSPC};

    Options m_options;
    Campaign m_campaign{"faults: system calls"};
    World m_world;
    Outcome m_outcome;
    Outcome m_clean;
    int m_callCount = 0;
    std::vector<std::string> m_expected;
    std::vector<Snapshot> m_states;
    std::vector<bool> m_saved;  // whether all was, after as many steps
};

}  // namespace
}  // namespace kx::proof

int main(int count, char** arguments) {
    kx::proof::Options options =
        kx::proof::ReadOptions(count, arguments, "Makes every system call of every kind of file work fail in turn.");
    kx::proof::WorkInMemory();
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 128;  // few enough to be counted after each script
    ::setrlimit(RLIMIT_NOFILE, &limit);
    return kx::proof::SystemCallCampaign(options).Run();
}
