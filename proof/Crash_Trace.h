#pragma once

#include <functional>

namespace kx::proof {

/// Where a traced process is stopped.
struct Stop {
    int number;     ///< of its system calls since the save began, of all threads, from 1
    long call;      ///< the system call's number; it has not been made
    bool reported;  ///< the save has been reported: the last stop
};

enum class Next { goOn, kill };

/// How a traced process ended.
enum class End {
    finished,  ///< by itself, after its report
    killed,    ///< by the tracer
    failed,    ///< without a report
};

/// What the process that is traced says about its save.
class Marker {
public:
    virtual ~Marker() = default;
    virtual void Begin() = 0;

    /// The script has been told that the save has succeeded.
    virtual void Report() = 0;
};

/// Runs a body in a process of its own and stops it before every system call that any of its threads makes between the
/// save's begin and its report. The process is gone when this returns, on every way out.
/// @param body    the process ends with it, successfully where it returns true.
/// @param atStop  called while the thread that makes the call is stopped; its other threads run on.
/// @throws std::runtime_error where processes cannot be traced.
/// @thread the same for all processes; no other child may end meanwhile.
End RunTraced(const std::function<bool(Marker&)>& body, const std::function<Next(const Stop&)>& atStop);

}  // namespace kx::proof
