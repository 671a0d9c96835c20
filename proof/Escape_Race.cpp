// Links that come and go under the built-ins' hands.
#include "proof/Escape_Race.h"

#include "proof/Campaign.h"
#include "proof/Escape_Names.h"
#include "proof/Escape_Operations.h"
#include "proof/Escape_Watchdog.h"

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kx::proof {
namespace {

constexpr size_t kRound = 5'000;  // calls from one look at the world to the next
constexpr unsigned int kSeed = 20'010'203;

/// What stands where a link is put, and the link that waits for its turn.
struct Exchange {
    std::string place;
    std::string link;
    std::string target;
    bool directory;
};

bool Missing(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) != 0;
}

bool IsLink(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Exchanges names and links on a thread of its own while it lives.
class Swapper {
public:
    Swapper(std::string fresh, std::vector<Exchange> exchanges)
        : m_fresh(std::move(fresh)), m_exchanges(std::move(exchanges)), m_thread([this] { Run(); }) {}
    Swapper(const Swapper&) = delete;
    Swapper& operator=(const Swapper&) = delete;
    ~Swapper() { Stop(); }

    /// @return exchanges so far.
    size_t Stop() {
        m_ending = true;
        if (m_thread.joinable()) m_thread.join();
        return m_swaps;
    }

private:
    static bool Swap(const std::string& a, const std::string& b) {
        return ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0;
    }

    void Run() {
        for (unsigned int i = 0; !m_ending; ++i) {
            for (const Exchange& each : m_exchanges) {
                bool swapped = Swap(each.place, each.link);
                if (swapped) ++m_swaps;
                if (!swapped || i % 64 == 0) Mend(each);
            }
        }
    }

    /// Puts back what the built-ins have removed or replaced. Nothing is written through either name: what is new is
    /// made elsewhere and moved into a name that is free.
    void Mend(const Exchange& each) {
        bool placeIsLink = IsLink(each.place);
        if (placeIsLink == IsLink(each.link)) {
            std::error_code ignored;
            fs::remove_all(each.link, ignored);
            if (!placeIsLink) fs::create_symlink(each.target, each.link, ignored);
        }
        for (const std::string& name : {each.place, each.link}) {
            if (!Missing(name)) continue;
            if (each.directory) {
                test::WriteWholeFile(m_fresh + "/file.txt", "inside");
                test::WriteWholeFile(m_fresh + "/sub/file.txt", "inside");
            } else {
                test::WriteWholeFile(m_fresh, "inside");
            }
            ::renameat2(AT_FDCWD, m_fresh.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE);
            std::error_code ignored;
            fs::remove_all(m_fresh, ignored);
        }
    }

    std::string m_fresh;
    std::vector<Exchange> m_exchanges;
    std::atomic<bool> m_ending{false};
    size_t m_swaps = 0;  // the thread's until it has ended
    std::thread m_thread;
};

std::vector<Exchange> ExchangesIn(const World& world) {
    auto save = [&](const char* place) { return world.Save(place); };
    return {
        {save("door"), save("lure"), world.Outside(), true},
        {save("leaf.txt"), save("bait.txt"), world.Outside("file.txt"), false},
        {save("hall/door"), save("hall/lure"), "../../outside", true},
        {world.Bundle("way"), world.Bundle("lure"), "../outside", true},
    };
}

/// Names that are there at times, inside; those of the second table are only outside.
const char* const kNames[] = {
    "door",
    "door/file.txt",
    "door/new.txt",
    "door/sub",
    "door/sub/file.txt",
    "door/sub/new/new.txt",
    "leaf.txt",
    "hall/door/file.txt",
    "hall/door/x.txt",
    "hall/door/sub",
    "way/file.txt",
    "way/sub/file.txt",
    "way/x.txt",
    "door\\file.txt",
    "./door/./x2.txt",
    "hall/door",
    "door/*",
    "hall/door/sub/file.txt",
};
const char* const kOutsideNames[] = {"door/a/trap",     "door/a",     "hall/door/a/trap",
                                     "hall/door/empty", "way/a/trap", "way/empty"};

template <class Random, size_t count>
const char* Any(Random& random, const char* const (&names)[count]) {
    return names[random() % count];
}

class RaceCampaign {
public:
    RaceCampaign(const World& world, Opening opening)
        : m_world(world), m_calls(opening), m_operations(FileOperations()), m_random(kSeed),
          m_campaign(opening == Opening::walking ? "escape: race, without openat2" : "escape: race") {}

    void Round(size_t calls) {
        m_world.Refill();
        m_world.Use(m_world.Save(), m_world.Bundle());
        fs::create_directory(m_world.Save("hall"));
        {
            Swapper swapper(m_world.Base() + "/elsewhere/fresh", ExchangesIn(m_world));
            for (size_t i = 0; i < calls; ++i) {
                Step();
            }
            m_swaps += swapper.Stop();
        }
        std::string damage = m_world.Damage();
        m_campaign.Check(damage.empty(), "the world outside has changed: " + damage);
        std::string leak = m_world.Leak();
        m_campaign.Check(leak.empty(), "a secret was copied to " + leak);
        m_world.Forget();
    }

    int End(size_t calls) {
        m_campaign.Begin("all rounds");
        m_campaign.Check(m_found > calls / 10000, "too few calls have met a file: " + std::to_string(m_found));
        m_campaign.Check(m_swaps > calls / 100, "too few exchanges: " + std::to_string(m_swaps));
        m_campaign.Check(m_refused > calls / 10000,
                         "too few calls have met a link, or nothing: " + std::to_string(m_refused));
        return m_campaign.End(calls);
    }

private:
    /// Those that reach the file system by a name; an answer from a server would take too long.
    static std::vector<Operation> FileOperations() {
        std::vector<Operation> all = NameOperations("");
        auto without = [](const Operation& each) {
            return each.name.rfind("filename_", 0) == 0 || each.name.rfind("http_", 0) == 0;
        };
        all.erase(std::remove_if(all.begin(), all.end(), without), all.end());
        return all;
    }

    void Step() {
        const Operation& operation = m_operations[m_random() % m_operations.size()];
        bool outside = operation.onlyReads && m_random() % 4 == 0;
        std::string name = outside ? Any(m_random, kOutsideNames) : Any(m_random, kNames);
        std::string point = operation.name + " \"" + name + "\"";
        m_campaign.Begin(point);
        Watchdog watchdog(point);
        Outcome outcome = operation.run(name);
        if (outcome.text.find(kSecret) != std::string::npos) m_campaign.Check(false, "a secret was read");
        if (outcome.text.find("secret.zip") != std::string::npos) m_campaign.Check(false, "names were read");
        if (outside && outcome.found) m_campaign.Check(false, "something outside was found");
        if (operation.name == "file_copy from") CheckCopy();
        bool stands = name == "leaf.txt" || name == "door/file.txt" || name == "way/file.txt";
        if (stands && operation.name == "file_text_open_read") ++(outcome.found ? m_found : m_refused);
        if (Missing(m_world.Save("inside.txt"))) test::WriteWholeFile(m_world.Save("inside.txt"), "inside");
        if (m_campaign.Points() % 64 == 0) ResetBuiltIns();
    }

    void CheckCopy() {
        std::string copy = m_world.Save("copied.txt");
        if (Missing(copy)) return;
        if (test::ReadWholeFile(copy).find(kSecret) != std::string::npos)
            m_campaign.Check(false, "a secret was copied");
    }

    const World& m_world;
    WatchedCalls m_calls;
    std::vector<Operation> m_operations;
    std::mt19937 m_random;
    Campaign m_campaign;
    size_t m_found = 0;
    size_t m_refused = 0;
    size_t m_swaps = 0;
};

}  // namespace

int Race(const World& world, Opening opening, size_t calls) {
    RaceCampaign campaign(world, opening);
    for (size_t done = 0; done < calls; done += kRound) {
        campaign.Round(std::min(kRound, calls - done));
    }
    return campaign.End(calls);
}

}  // namespace kx::proof
