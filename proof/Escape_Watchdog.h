#pragma once

#include <string>

namespace kx::proof {

/// Ends the program, with the point on standard error, where its scope is not left in time: a call that waits for a
/// FIFO's other end would otherwise say nothing at all.
class Watchdog {
public:
    explicit Watchdog(const std::string& point);
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog();
};

}  // namespace kx::proof
