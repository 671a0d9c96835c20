// Saves while system calls fail: whatever happens, the file is wholly old or wholly new, and the script is told.
#include "Files/IO/LoadSave.h"

#include "Files/Base/IniFile.h"
#include "Files/Base/Limits.h"
#include "Files/Support/Support_File.h"
#include "Platform/MemoryManager.h"
#include "tests/support/Areas.h"
#include "tests/support/Console.h"
#include "tests/support/FaultySystemCalls.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <new>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kx::test {
namespace {

using Extent = FaultySystemCalls::Extent;

const std::string kOld(5000, 'o');
const std::string kNew(70000, 'n');
constexpr char kName[] = "folder/save.txt";

/// One way to save, and what the file holds before and after.
struct Scenario {
    const char* name;
    bool exists;
    std::string after;
    std::function<bool()> save;  // true where success was reported
};

bool SaveAnew(const char* mode) {
    _KXFILE* file = LoadSave::fopen(kName, mode);
    if (!file) return false;
    bool written = LoadSave::fputs(file, kNew.c_str()) == 0;
    return LoadSave::fclose(file) == 0 && written;
}

bool SaveAsStream() {
    char path[kMaxPath];
    if (LoadSave::_GetSaveFileName(path, kMaxPath, kName) != 0) return false;
    if (!ForceDirectories("folder")) return false;
    FILE* stream = KXOpenStream(path, "wb");
    if (!stream) return false;
    bool written = std::fwrite(kNew.data(), 1, kNew.size(), stream) == kNew.size();
    return std::fclose(stream) == 0 && written;
}

bool SaveAsIniFile() {
    std::string name = kName;
    IniFile file(name.data(), false);
    file.SetKey("section", "key", kNew.c_str());
    MemoryManager::Free(file.WriteIniFile());
    return !file.m_Changed;
}

const Scenario kScenarios[] = {
    {"replace", true, kNew, [] { return SaveAnew("w"); }},
    {"new", false, kNew, [] { return SaveAnew("w"); }},
    {"append", true, kOld + kNew, [] { return SaveAnew("a+"); }},
    {"append to nothing", false, kNew, [] { return SaveAnew("a+"); }},
    {"rewrite the start", true, kNew, [] { return SaveAnew("rw"); }},
    {"stream", true, kNew, SaveAsStream},
    {"new stream", false, kNew, SaveAsStream},
    {"whole file", true, kNew,
     [] { return LoadSave::WriteFile(kName, kNew.data(), static_cast<int>(kNew.size()), nullptr) != 0; }},
    {"whole new file", false, kNew,
     [] { return LoadSave::WriteFile(kName, kNew.data(), static_cast<int>(kNew.size()), nullptr) != 0; }},
    {"ini file", true, kOld + "\n\n[section]\nkey=" + kNew + "\n", SaveAsIniFile},
    {"new ini file", false, "[section]\nkey=" + kNew + "\n", SaveAsIniFile},
};

/// What the host's system can and cannot do.
struct Machine {
    const char* name;
    void (*prepare)(FaultySystemCalls&);
};

const Machine kMachines[] = {
    {"everything", [](FaultySystemCalls&) {}},
    {"no unnamed files", [](FaultySystemCalls& calls) { calls.FailWithFlags("openat", O_TMPFILE, EOPNOTSUPP); }},
    {"no /proc", [](FaultySystemCalls& calls) { calls.FailFrom("linkat", 1, ENOENT); }},
    {"no links", [](FaultySystemCalls& calls) { calls.FailFrom("linkat", 1, EPERM); }},
    {"no openat2", [](FaultySystemCalls& calls) { calls.FailFrom("openat2", 1, ENOSYS); }},
};

/// On an ordinary system every reason; which one it is makes no difference to the way that is gone elsewhere.
std::vector<int> Reasons(const Machine& machine) {
    if (&machine == &kMachines[0]) return {ENOSPC, EIO, EACCES, EMFILE, EROFS, EDQUOT};
    return {ENOSPC};
}

class Faults : public AreasTest {
protected:
    /// Back to what is there before a save.
    void Reset(const Scenario& scenario) {
        std::filesystem::remove_all(Save("folder"));
        if (scenario.exists) WriteWholeFile(Save(kName), kOld);
        TakeError();
        m_console.Take();
    }

    /// The file's contents, nothing where it is missing.
    std::string Contents() { return std::filesystem::exists(Save(kName)) ? ReadWholeFile(Save(kName)) : std::string(); }

    bool HasTemporary() {
        if (!std::filesystem::exists(Save("folder"))) return false;
        for (const std::string& name : NamesIn(Save("folder"))) {
            if (name.rfind(kTemporaryPrefix, 0) == 0) return true;
        }
        return false;
    }

    /// A save with its Nth call failing. True where it had that many calls.
    bool SaveWithFault(const Scenario& scenario, const Machine& machine, int number, int reason, Extent extent) {
        Reset(scenario);
        std::string old = Contents();
        int descriptors = OpenDescriptors();
        long long blocks = MemoryManager::Stats().blocks;
        bool reported = false;
        size_t calls = 0;
        {
            FaultySystemCalls faults;
            machine.prepare(faults);
            faults.FailAt(number, reason, extent);
            reported = scenario.save();
            calls = faults.Calls().size();
        }
        bool told = !TakeError().empty() || !m_console.Take().empty() || !reported;
        std::string now = Contents();
        if (reported) {
            EXPECT_EQ(now, scenario.after) << "success was reported";
        } else {
            EXPECT_TRUE(told);
            // With everything broken a step that was taken cannot be taken back: the file is whole all the same.
            bool whole = now == old || (extent == Extent::everything && now == scenario.after);
            EXPECT_TRUE(whole) << "neither old nor new: " << now.size() << " bytes";
        }
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
        if (HasTemporary()) {
            EXPECT_EQ(extent == Extent::everything || reported, true) << "a temporary is left";
            EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);  // as the next start does
            EXPECT_FALSE(HasTemporary());
        }
        return calls >= static_cast<size_t>(number);
    }

    CapturingConsole m_console;
};

class EveryFault : public Faults, public ::testing::WithParamInterface<Extent> {};

TEST_P(EveryFault, AtEveryCallKeepsTheFileWhole) {
    int points = 0;
    for (Durability durability : {Durability::full, Durability::none}) {
        LoadSave::SetDurability(durability);
        for (const Scenario& scenario : kScenarios) {
            for (const Machine& machine : kMachines) {
                for (int reason : Reasons(machine)) {
                    for (int number = 1;; ++number) {
                        SCOPED_TRACE(std::string(scenario.name) + ", with " + machine.name + ", call " +
                                     std::to_string(number) + ": " + std::strerror(reason));
                        if (!SaveWithFault(scenario, machine, number, reason, GetParam())) break;
                        ++points;
                        ASSERT_LT(number, 500);
                    }
                    if (HasFailure()) return;
                }
            }
        }
    }
    EXPECT_GT(points, 1500);
}

INSTANTIATE_TEST_SUITE_P(Extents, EveryFault, ::testing::Values(Extent::once, Extent::makingCalls, Extent::everything),
                         [](const auto& extent) {
                             if (extent.param == Extent::once) return "once";
                             return extent.param == Extent::makingCalls ? "full_from_then_on" : "dead_from_then_on";
                         });

TEST_F(Faults, ACloseWithoutMemoryIsAFailedSaveLikeAnyOther) {
    WriteWholeFile(Save(kName), kOld);
    int descriptors = OpenDescriptors();
    long long blocks = MemoryManager::Stats().blocks;
    for (const char* call : {"fstatat", "write", "fdatasync"}) {  // what follows each can throw
        SCOPED_TRACE(call);
        _KXFILE* file = LoadSave::fopen(kName, "w");
        LoadSave::fputs(file, kNew.c_str());
        FaultySystemCalls faults;
        bool thrown = false;
        faults.OnCall([&] {
            bool now = !thrown && !faults.Calls().empty() && faults.Calls().back() == call;
            if (!now) return;
            thrown = true;
            throw std::bad_alloc();
        });

        EXPECT_EQ(LoadSave::fclose(file), -1);

        EXPECT_TRUE(thrown);
        EXPECT_NE(TakeError().find(std::strerror(ENOMEM)), std::string::npos);
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(MemoryManager::Stats().blocks, blocks);
    EXPECT_FALSE(Contents().empty());
}

TEST_F(Faults, ARenamedFileIsThereUnderOneNameOrTheOther) {
    for (Extent extent : {Extent::once, Extent::makingCalls, Extent::everything}) {
        for (int number = 1;; ++number) {
            SCOPED_TRACE("call " + std::to_string(number));
            WriteWholeFile(Save("folder/from"), kNew);
            WriteWholeFile(Save("other/to"), kOld);
            FaultySystemCalls faults;
            faults.FailAt(number, EIO, extent);

            bool reported = LoadSave::RenameSaveFile("folder/from", "other/to") == 0;

            bool moved = !std::filesystem::exists(Save("folder/from"));
            EXPECT_EQ(ReadWholeFile(Save("other/to")), moved ? kNew : kOld);
            EXPECT_TRUE(moved || !reported);
            if (faults.Calls().size() < static_cast<size_t>(number)) break;
            ASSERT_LT(number, 50);
        }
    }
}

TEST_F(Faults, InterruptedAndShortCallsAreTakenUpAgain) {
    for (const Scenario& scenario : kScenarios) {
        for (const Machine& machine : kMachines) {
            SCOPED_TRACE(std::string(scenario.name) + ", with " + machine.name);
            Reset(scenario);
            FaultySystemCalls faults;
            machine.prepare(faults);
            faults.InterruptEach();
            faults.FallShort(1000);

            EXPECT_TRUE(scenario.save());

            EXPECT_EQ(Contents(), scenario.after);
        }
    }
}

TEST_F(Faults, ASystemThatCannotExchangeNamesStillReplacesWhole) {
    for (const Scenario& scenario : kScenarios) {
        SCOPED_TRACE(scenario.name);
        Reset(scenario);
        FaultySystemCalls faults;
        faults.FailWithFlags("renameat2", RENAME_EXCHANGE, EINVAL);

        EXPECT_TRUE(scenario.save());

        EXPECT_EQ(Contents(), scenario.after);
        EXPECT_FALSE(HasTemporary());
    }
}

TEST_F(Faults, ContentsReachTheDiskBeforeTheNameAndTheNameBeforeSuccess) {
    Reset(kScenarios[0]);
    FaultySystemCalls faults;

    EXPECT_TRUE(kScenarios[0].save());

    const std::vector<std::string>& calls = faults.Calls();
    auto at = [&](const char* name) { return std::find(calls.begin(), calls.end(), name) - calls.begin(); };
    EXPECT_LT(at("write"), at("fdatasync"));
    EXPECT_LT(at("fdatasync"), at("renameat2"));
    EXPECT_LT(at("renameat2"), at("fsync"));
    EXPECT_LT(at("fsync"), static_cast<ptrdiff_t>(calls.size()));
}

TEST_F(Faults, WithoutDurabilityNothingIsSynced) {
    LoadSave::SetDurability(Durability::none);
    Reset(kScenarios[0]);
    FaultySystemCalls faults;

    EXPECT_TRUE(kScenarios[0].save());

    for (const std::string& call : faults.Calls()) {
        EXPECT_TRUE(call != "fsync" && call != "fdatasync") << call;
    }
}

TEST_F(Faults, AKillAtAnyCallLeavesOldOrNewAndTheNextStartCleansUp) {
    int kills = 0;
    for (const Scenario& scenario : kScenarios) {
        for (const Machine& machine : kMachines) {
            for (int number = 1;; ++number) {
                SCOPED_TRACE(std::string(scenario.name) + ", with " + machine.name + ", killed before call " +
                             std::to_string(number));
                Reset(scenario);
                std::string old = Contents();
                pid_t child = ::fork();
                if (child == 0) {
                    FaultySystemCalls faults;
                    machine.prepare(faults);
                    int left = number;
                    faults.OnCall([&] {
                        if (--left == 0) ::raise(SIGKILL);
                    });
                    scenario.save();
                    ::_exit(0);
                }
                int status = 0;
                ASSERT_EQ(::waitpid(child, &status, 0), child);
                bool killed = WIFSIGNALED(status);
                kills += killed;

                std::string now = Contents();
                EXPECT_TRUE(now == old || now == scenario.after) << now.size() << " bytes";
                EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);
                EXPECT_FALSE(HasTemporary());
                if (!killed) {
                    EXPECT_EQ(now, scenario.after);
                    break;
                }
                ASSERT_LT(number, 500);
            }
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(kills, 300);
}

TEST_F(Faults, AWriterThatIsAliveKeepsItsTemporary) {
    WriteWholeFile(Save(kName), kOld);
    int toChild[2];
    int toParent[2];
    ASSERT_EQ(::pipe(toChild), 0);
    ASSERT_EQ(::pipe(toParent), 0);
    pid_t child = ::fork();
    if (child == 0) {
        FaultySystemCalls faults;
        faults.FailWithFlags("openat", O_TMPFILE, EOPNOTSUPP);
        bool waited = false;
        faults.OnCall([&] {  // stops once, with the temporary written and not in place yet
            bool ready = !faults.Calls().empty() && faults.Calls().back() == "fdatasync" && !waited;
            if (!ready) return;
            waited = true;
            char byte = 'w';
            if (::write(toParent[1], &byte, 1) != 1 || ::read(toChild[0], &byte, 1) != 1) ::_exit(2);
        });
        ::_exit(SaveAnew("w") ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(::read(toParent[0], &byte, 1), 1);
    EXPECT_TRUE(HasTemporary());

    EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);

    EXPECT_TRUE(HasTemporary());
    ASSERT_EQ(::write(toChild[1], &byte, 1), 1);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(Contents(), kNew);
    EXPECT_FALSE(HasTemporary());
    for (int end : {toChild[0], toChild[1], toParent[0], toParent[1]}) {
        ::close(end);
    }
}

TEST_F(Faults, LeftoversAreSweptFromEveryFolder) {
    std::string leftover = std::string(kTemporaryPrefix) + "123-4";
    WriteWholeFile(Save(leftover), "x");
    WriteWholeFile(Save("a/b/c/" + leftover), "x");
    WriteWholeFile(Save("a/kept.txt"), "kept");
    WriteWholeFile(Bundle(leftover), "the bundle is never changed");

    EXPECT_EQ(LoadSave::SetSaveArea(Save().c_str()), 0);

    EXPECT_EQ(NamesIn(Save()), std::vector<std::string>{"a"});
    EXPECT_TRUE(NamesIn(Save("a/b/c")).empty());
    EXPECT_EQ(ReadWholeFile(Save("a/kept.txt")), "kept");
    EXPECT_EQ(NamesIn(Bundle()), std::vector<std::string>{leftover});
}

TEST_F(Faults, OfTwoWritersAtATimeOneWinsWhole) {
    LoadSave::SetDurability(Durability::none);
    auto write = [](char letter) {
        std::string contents(20000, letter);
        for (int i = 0; i < 200; ++i) {
            EXPECT_EQ(LoadSave::WriteFile(kName, contents.data(), static_cast<int>(contents.size()), nullptr), 1);
        }
    };
    std::thread first(write, 'a');
    std::thread second(write, 'b');
    bool whole = true;
    for (int i = 0; i < 200; ++i) {
        _KXFILE* file = LoadSave::fopen(kName, "rb");
        if (!file) continue;  // not there yet
        const Buffer_Standard& contents = *file->pBuff;
        std::string all(contents.m_data, static_cast<size_t>(contents.m_size));
        whole = whole && (all == std::string(20000, 'a') || all == std::string(20000, 'b'));
        LoadSave::fclose(file);
    }
    first.join();
    second.join();

    EXPECT_TRUE(whole);
    EXPECT_FALSE(HasTemporary());
}

}  // namespace
}  // namespace kx::test
