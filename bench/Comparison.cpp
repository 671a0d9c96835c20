// The benchmark program: runs everything several times, interleaved, and ends with a table of ratios of medians.
#include "bench/Comparison.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

namespace fs = std::filesystem;

namespace kx::bench {
namespace {

struct Bound {
    const char* work;
    const char* ours;
    double nanoseconds;
};

std::vector<Pair>& Pairs() {
    static std::vector<Pair> pairs;
    return pairs;
}

std::vector<Bound>& Bounds() {
    static std::vector<Bound> bounds;
    return bounds;
}

class Folder {
public:
    explicit Folder(const fs::path& parent) {
        std::string name = (parent / "kxbench-XXXXXX").string();
        if (!::mkdtemp(name.data())) std::abort();
        m_path = name;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }

    const fs::path& Path() const { return m_path; }

private:
    fs::path m_path;
};

/// Prints as usual and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (median) m_nanoseconds[run.run_name.str()] = run.GetAdjustedRealTime() * Scale(run.time_unit);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void PrintComparisons() const {
        std::printf("\n%-62s %12s %12s %7s %7s\n", "work (medians)", "ours", "theirs", "ratio", "bar");
        for (const Pair& pair : Pairs()) {
            if (!Has(pair.ours) || !Has(pair.theirs)) continue;
            double ours = m_nanoseconds.at(pair.ours);
            double theirs = m_nanoseconds.at(pair.theirs);
            bool small = theirs < 1e4;
            double unit = small ? 1 : 1e6;
            const char* name = small ? "ns" : "ms";
            std::printf("%-62s %9.3f %s %9.3f %s %7.2f %7.2f\n", pair.work, ours / unit, name, theirs / unit, name,
                        ours / theirs, pair.bar);
        }
        for (const Bound& bound : Bounds()) {
            if (!Has(bound.ours)) continue;
            std::string bar = bound.nanoseconds > 0 ? std::to_string(std::lround(bound.nanoseconds)) + " ns" : "-";
            std::printf("%-62s %9.1f ns %12s %7s %7s\n", bound.work, m_nanoseconds.at(bound.ours), "", "", bar.c_str());
        }
    }

private:
    static double Scale(benchmark::TimeUnit unit) { return 1e9 / benchmark::GetTimeUnitMultiplier(unit); }
    bool Has(const std::string& name) const { return m_nanoseconds.count(name) > 0; }

    std::map<std::string, double> m_nanoseconds;
};

}  // namespace

bool Compare(const Pair& pair) {
    Pairs().push_back(pair);
    return true;
}

bool Limit(const char* work, const char* ours, double nanoseconds) {
    Bounds().push_back({work, ours, nanoseconds});
    return true;
}

const fs::path& MemoryFolder() {
    static Folder folder("/dev/shm");
    return folder.Path();
}

const fs::path& DiskFolder() {
    static Folder folder(fs::current_path());
    return folder.Path();
}

int Run(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    std::string repetitions = "--benchmark_repetitions=5";
    std::string interleaved = "--benchmark_enable_random_interleaving=true";
    std::string aggregates = "--benchmark_report_aggregates_only=true";
    arguments.insert(arguments.begin() + 1, {repetitions.data(), interleaved.data(), aggregates.data()});
    auto count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());

    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintComparisons();
    return 0;
}

}  // namespace kx::bench

int main(int argc, char** argv) {
    return kx::bench::Run(argc, argv);
}
