// Every allocation that every built-in makes fails once: nothing is lost, nothing stays behind, nothing claims success.
#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "Platform/MemoryManager.h"
#include "proof/Campaign.h"
#include "proof/Faults_Rows.h"
#include "tests/support/FailingMalloc.h"

#include <new>
#include <set>
#include <sys/resource.h>

namespace kx::proof {
namespace {

using test::FailingMalloc;
using test::Snapshot;

/// Which allocation fails, and how.
struct Fault {
    int skipped;
    FailingMalloc::Mode mode;
    FailingMalloc::Scope scope;
    FailingMalloc::Threads threads;
};

/// What came of a call.
struct Outcome {
    std::string result;    ///< as a text
    std::string holdings;  ///< what the script holds then
    Snapshot files;        ///< once the script has ended
    int gained = 0;        ///< holdings that were not there before
    bool refused = false;  ///< it ended for want of memory, with a script error
    bool said = false;     ///< a script error or a line on the console
    bool failed = false;   ///< an allocation failed

    long long blocks = 0;  ///< that stayed behind, of the host
    long long live = 0;    ///< of malloc
    int descriptors = 0;
};

/// Files of a process, few enough to be counted after each call.
void LimitDescriptors() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 128;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

class MemoryCampaign {
public:
    explicit MemoryCampaign(const Options& options) : m_options(options) {
        m_outcome.result.reserve(kRoom);
        m_outcome.holdings.reserve(kRoom);
    }

    int Run() {
        std::set<std::string> tried;
        for (const auto& rows : {FileRows(), NameRows(), DataRows(), HttpRows()}) {
            for (const Row& row : rows) {
                tried.insert(row.name);
                Try(row);
            }
        }
        m_campaign.Begin("the table");
        m_campaign.Check(static_cast<int>(tried.size()) == Function_Count(), "a built-in has no row");
        return m_campaign.End(m_options.isShort ? 1000 : 10000);
    }

private:
    static constexpr size_t kRoom = 1 << 20;

    // --- one row -----------------------------------------------------------------------------------------------------

    void Try(const Row& row) {
        CallOnce(row, nullptr);  // what the first success and the first failure leave for good
        Fault none{0, FailingMalloc::from_then_on, FailingMalloc::ours, FailingMalloc::own};
        CallOnce(row, &none);
        CallOnce(row, nullptr);
        m_clean = m_outcome;
        m_before = FilesBefore(row);
        for (FailingMalloc::Mode mode : {FailingMalloc::once, FailingMalloc::from_then_on}) {
            FailEach(row, {0, mode, FailingMalloc::ours, FailingMalloc::own});
            bool librariesToo = row.kind != Row::noLibrary && row.kind != Row::http;
            if (librariesToo) FailEach(row, {0, mode, FailingMalloc::library, FailingMalloc::own});
            if (row.kind == Row::http) FailEach(row, {0, mode, FailingMalloc::ours, FailingMalloc::others});
        }
    }

    /// One more allocation succeeds in each round, until all do.
    void FailEach(const Row& row, Fault fault) {
        int step = m_options.isShort ? kShortStep : 1;
        bool leaks = row.kind == Row::leaking || row.kind == Row::inArchive;
        m_countsMalloc = !leaks || fault.scope == FailingMalloc::ours;
        for (bool failed = true; failed; fault.skipped += step) {
            CallOnce(row, &fault);
            failed = m_outcome.failed;
            if (failed) m_campaign.Begin(NameOf(row, fault));
            CheckFailed(row);
            CallOnce(row, nullptr);
            CheckRecovered();
        }
    }

    static std::string NameOf(const Row& row, const Fault& fault) {
        std::string name =
            std::string(row.name) + " (" + row.variant + "): allocation " + std::to_string(fault.skipped + 1);
        name += fault.mode == FailingMalloc::once ? " once" : " and all later ones";
        if (fault.scope == FailingMalloc::library) name += ", the libraries' too";
        if (fault.threads == FailingMalloc::others) name += ", on the transport's threads";
        return name;
    }

    // --- one call ----------------------------------------------------------------------------------------------------

    /// @param fault  null for none.
    void CallOnce(const Row& row, const Fault* fault) {
        m_world.Reset();
        if (row.kind == Row::inArchive) m_world.ShipArchive();
        m_world.Said().TakeSaid();
        m_outcome.files.clear();
        long long live = FailingMalloc::Live();
        long long blocks = MemoryManager::Stats().blocks;
        int descriptors = test::OpenDescriptors();
        {
            Values arguments = row.prepare(m_world);
            m_world.Said().TakeSaid();
            RunHandler(row, &arguments, fault);
        }
        m_world.Settle(m_outcome.refused || m_outcome.said);
        if (row.kind == Row::http) World::EndHttp();
        m_outcome.said |= m_world.Said().TakeSaid();
        m_outcome.live = FailingMalloc::Live() - live;
        m_outcome.blocks = MemoryManager::Stats().blocks - blocks;
        m_outcome.descriptors = test::OpenDescriptors() - descriptors;
        m_outcome.files = m_world.Files();
    }

    /// What there is when the call comes.
    Snapshot FilesBefore(const Row& row) {
        m_world.Reset();
        if (row.kind == Row::inArchive) m_world.ShipArchive();
        row.prepare(m_world);
        Snapshot files = m_world.Files();
        m_world.Settle(true);
        m_world.Said().TakeSaid();
        return files;
    }

    void RunHandler(const Row& row, Values* arguments, const Fault* fault) {
        std::vector<RValue> plain;
        for (test::Value& argument : *arguments) {
            plain.push_back(argument.Get());
        }
        const FunctionRecord* record = Function_Find(row.name);
        RValueOwner result(RValue{{test::kUnset}, 0, VALUE_REAL});
        int held = World::CountHoldings();
        if (fault) FailingMalloc::Arm(fault->skipped, fault->mode, fault->scope, fault->threads);
        m_outcome.refused = !Handle(*record, &result.value, plain.data());
        if (!fault || fault->threads == FailingMalloc::own) m_outcome.failed = FailingMalloc::Disarm();
        std::string events = World::AwaitEvents();
        if (fault && fault->threads == FailingMalloc::others) m_outcome.failed = FailingMalloc::Disarm();
        m_outcome.said = m_world.Said().TakeSaid();
        m_outcome.result = m_outcome.refused ? "refused" : DescribeResult(row, result.value);
        m_outcome.result += events;
        m_outcome.holdings = World::Holdings();
        m_outcome.gained = World::CountHoldings() - held;
    }

    /// Numbers that stand for something as what they stand for.
    static std::string DescribeResult(const Row& row, const RValue& result) {
        bool stands = result.kind == VALUE_REAL && result.real > 0;
        if (stands && row.kind == Row::http) return "a request";
        bool isMap = stands && std::string("json_decode") == row.name;
        return isMap ? Describe({{result.real}, 0, KIND_DS_MAP}) : Describe(result);
    }

    /// As the call gate does it.
    /// @return false where there was no memory for it.
    static bool Handle(const FunctionRecord& record, RValue* result, RValue* arguments) {
        try {
            record.routine(*result, nullptr, nullptr, record.argc, arguments);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    // --- what is promised --------------------------------------------------------------------------------------------

    void CheckFailed(const Row& row) {
        CheckNothingStays();
        bool told = m_outcome.refused || m_outcome.said;
        bool same = m_outcome.result == m_clean.result;
        if (!told && same) {
            m_campaign.Check(m_outcome.holdings == m_clean.holdings, "success was claimed: " + m_outcome.holdings);
            m_campaign.Check(m_outcome.files == m_clean.files, "success was claimed, but the files are others");
        }
        if (!told && !same)
            m_campaign.Check(SaysFailure(row), "not the right result, and not a word: " + m_outcome.result);
        bool failed = m_outcome.refused || (!same && SaysFailure(row));
        if (failed) m_campaign.Check(m_outcome.gained <= 0, "a failed call has left " + m_outcome.holdings);
        CheckFiles();
    }

    /// Whether a result is one that stands for a failure: where "no" and "nothing" are answers, they are none.
    [[nodiscard]] bool SaysFailure(const Row& row) const {
        static const std::set<std::string> failures{"-1.000000", "0.000000", "\"\"", "undefined"};
        bool failedAnswer = m_outcome.result.find("status=-1") != std::string::npos;
        bool noEvent = m_outcome.result == "a request";  // there was no memory for what it tells
        bool failure = failures.count(m_outcome.result) > 0 && !Answers(row.name);
        return failure || failedAnswer || noEvent;
    }

    /// Built-ins that are asked something.
    static bool Answers(const std::string& name) {
        static const std::set<std::string> asked{
            "file_exists",           "directory_exists", "file_attributes",     "file_find_first",
            "file_find_next",        "file_text_eof",    "file_text_eoln",      "file_bin_size",
            "file_text_read_string", "file_text_readln", "file_text_read_real", "file_bin_position",
            "file_bin_read_byte",    "ini_key_exists",   "ini_section_exists",  "ini_read_string",
            "ini_read_real",         "json_encode",      "json_stringify",      "json_parse"};
        return asked.count(name) > 0;
    }

    void CheckNothingStays() {
        m_campaign.Check(m_outcome.live == 0 || !m_countsMalloc, std::to_string(m_outcome.live) + " blocks leaked");
        m_campaign.Check(m_outcome.blocks == 0, std::to_string(m_outcome.blocks) + " host blocks leaked");
        m_campaign.Check(m_outcome.descriptors == 0, std::to_string(m_outcome.descriptors) + " descriptors leaked");
    }

    /// Each is wholly old or wholly new, and there is no other.
    void CheckFiles() {
        const Snapshot& first = m_world.First();
        Snapshot all = first;
        all.insert(m_before.begin(), m_before.end());
        all.insert(m_clean.files.begin(), m_clean.files.end());
        all.insert(m_outcome.files.begin(), m_outcome.files.end());
        for (const auto& [name, contents] : all) {
            bool isFirst = Contents(m_outcome.files, name) == Contents(first, name);
            bool isOld = isFirst || Contents(m_outcome.files, name) == Contents(m_before, name);
            bool isNew = Contents(m_outcome.files, name) == Contents(m_clean.files, name);
            m_campaign.Check(isOld || isNew, name + " is neither old nor new");
        }
    }

    static std::string Contents(const Snapshot& files, const std::string& name) {
        auto found = files.find(name);
        return found == files.end() ? "<none>" : found->second;
    }

    /// The same call, with memory again.
    void CheckRecovered() {
        CheckNothingStays();
        m_campaign.Check(m_outcome.result == m_clean.result, "afterwards it gives " + m_outcome.result);
        m_campaign.Check(m_outcome.holdings == m_clean.holdings, "afterwards it leaves " + m_outcome.holdings);
        m_campaign.Check(m_outcome.files == m_clean.files, "afterwards the files are others");
    }

    static constexpr int kShortStep = 61;

    Options m_options;
    Campaign m_campaign{"faults: memory"};
    World m_world;
    bool m_countsMalloc = true;  // else the host's own blocks only
    Snapshot m_before;
    Outcome m_clean;
    Outcome m_outcome;  // its texts keep their room: what is counted counts none of them
};

}  // namespace
}  // namespace kx::proof

int main(int count, char** arguments) {
    kx::proof::Options options =
        kx::proof::ReadOptions(count, arguments, "Makes every allocation of every built-in fail in turn.");
    kx::proof::WorkInMemory();
    kx::proof::LimitDescriptors();
    return kx::proof::MemoryCampaign(options).Run();
}
