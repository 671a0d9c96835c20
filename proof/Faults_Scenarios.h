#pragma once

#include "proof/Faults_World.h"

#include <functional>
#include <string>
#include <vector>

namespace kx::proof {

/// A script, one built-in after another. It ends at the first step that does not come out as it does without a fault:
/// as scripts that look at what they are told.
class Script {
public:
    /// Thrown by the step that ends it.
    struct Ended {};

    /// @param expected  what each step comes to without a fault; null where that is to be found out.
    /// @param steps     after so many it ends; -1 for all.
    Script(World* world, const std::vector<std::string>* expected, int steps)
        : m_world(*world), m_expected(expected), m_steps(steps) {}

    test::Value Call(const char* name, const std::vector<test::Value>& arguments = {});

    /// Waits for the events of all requests.
    void Await();

    [[nodiscard]] const World& Around() const { return m_world; }
    [[nodiscard]] const std::vector<std::string>& Results() const { return m_results; }

private:
    void Take(const std::string& result);

    World& m_world;
    const std::vector<std::string>* m_expected;
    int m_steps;
    std::vector<std::string> m_results;
};

/// One kind of file work.
struct Scenario {
    const char* name;
    std::function<void(Script&)> run;
    bool inArchive = false;  ///< the bundle is an archive
    bool http = false;
};

std::vector<Scenario> Scenarios();

}  // namespace kx::proof
