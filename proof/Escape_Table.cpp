// Names × layouts × built-ins.
#include "proof/Escape_Table.h"

#include "proof/Escape_Layouts.h"
#include "proof/Escape_Names.h"
#include "proof/Escape_Operations.h"
#include "proof/Escape_Watchdog.h"
#include "tests/Http_answers.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace kx::proof {
namespace {

constexpr size_t kLeastNames = 120;
constexpr size_t kLeastLayouts = 25;
constexpr size_t kLeastPoints = 10'000;  // of a sample

/// One of each way to be led astray.
bool IsInSample(const Layout& layout) {
    constexpr const char* kSample[] = {"links to a directory outside", "relative links to a file outside", "FIFOs",
                                       "hard links to a file outside"};
    return std::find(std::begin(kSample), std::end(kSample), std::string_view(layout.name)) != std::end(kSample);
}

class Table {
public:
    Table(const World& world, Opening opening, const std::string& url)
        : m_world(world), m_calls(opening), m_operations(NameOperations(url)),
          m_campaign(opening == Opening::walking ? "escape: names, without openat2" : "escape: names") {}

    void TryLayout(const Layout& layout) {
        m_layout = &layout;
        m_world.Use(layout.save, layout.bundle);
        Rebuild();
        m_bundle = test::ExactSnapshot(m_world.Bundle());
        m_save = test::ContentsBelow(m_world.Save());
        for (const HostileName& name : HostileNames(m_world, layout.save, layout.bundle)) {
            for (const Operation& operation : m_operations) {
                Try(operation, name);
            }
            ResetBuiltIns();
            CheckOutside();  // also where no change was noticed
        }
    }

    int End(Extent extent) {
        size_t all = kLeastNames * kLeastLayouts * m_operations.size();
        return m_campaign.End(extent == Extent::whole ? all : kLeastPoints);
    }

private:
    void Try(const Operation& operation, const HostileName& name) {
        std::string point = std::string(m_layout->name) + ": " + operation.name + " \"" + Shown(name.text) + "\"";
        m_campaign.Begin(point);
        Watchdog watchdog(point);
        WatchedCalls::TakeChanged();
        Outcome outcome = operation.run(name.text);
        test::TakeError();
        m_world.Forget();
        CheckOutcome(outcome, name.reach);
        CheckWorld(name.reach);
    }

    void CheckOutcome(const Outcome& outcome, Reach reach) {
        bool mayFind = reach == Reach::inside || (reach == Reach::throughTrap && !m_layout->bars);
        if (outcome.text.find(kSecret) != std::string::npos) m_campaign.Check(false, "a secret was read");
        if (outcome.found && !mayFind) m_campaign.Check(false, "something was found: " + Shown(outcome.text));
        if (outcome.late) m_campaign.Check(false, "no answer has come");
        if (outcome.made && reach == Reach::nowhere) m_campaign.Check(false, "something was made");
    }

    void CheckOutside() {
        std::string damage = m_world.Damage();
        if (!damage.empty()) m_campaign.Check(false, "the world outside has changed: " + damage);
    }

    void CheckWorld(Reach reach) {
        if (!WatchedCalls::TakeChanged()) return;
        CheckOutside();
        std::string leak = m_world.Leak();
        if (!leak.empty()) m_campaign.Check(false, "a secret was copied to " + leak);
        bool same = reach != Reach::nowhere || test::ContentsBelow(m_world.Save()) == m_save;
        if (!same) m_campaign.Check(false, "the save area has changed");
        if (test::ExactSnapshot(m_world.Bundle()) != m_bundle) m_campaign.Check(false, "the bundle has changed");
        Rebuild();
        m_bundle = test::ExactSnapshot(m_world.Bundle());
    }

    void Rebuild() {
        m_world.Refill();
        m_layout->make(m_world);
    }

    const World& m_world;
    WatchedCalls m_calls;
    std::vector<Operation> m_operations;
    Campaign m_campaign;
    const Layout* m_layout = nullptr;
    test::Snapshot m_save;
    test::Snapshot m_bundle;
};

}  // namespace

int TryEveryName(const World& world, Opening opening, Extent extent) {
    test::HttpServer server(test::Each(test::Ok("downloaded")));
    Table table(world, opening, server.Url());
    for (const Layout& layout : HostileLayouts(world)) {
        if (extent == Extent::whole || IsInSample(layout)) table.TryLayout(layout);
    }
    return table.End(extent);
}

}  // namespace kx::proof
