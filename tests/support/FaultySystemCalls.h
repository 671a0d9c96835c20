#pragma once

#include "Platform/SystemCalls.h"

#include <functional>
#include <string>
#include <vector>

namespace kx::test {

/// Stands in the table of system calls while it lives: passes every call on, writes it down, and makes it fail where it
/// was told to. A failing close still closes, as the system's does.
class FaultySystemCalls {
public:
    FaultySystemCalls();
    FaultySystemCalls(const FaultySystemCalls&) = delete;
    FaultySystemCalls& operator=(const FaultySystemCalls&) = delete;
    ~FaultySystemCalls();

    /// What fails from a failing call on.
    enum class Extent {
        once,         ///< that call only
        makingCalls,  ///< every later call but close, closedir, fstat, unlinkat and renameat2: a full or broken disk
        everything,   ///< every later call
    };

    /// Makes the Nth call of any kind fail, counted from 1 and from now.
    void FailAt(int number, int reason, Extent extent);

    /// Makes every call of one name fail from its Nth on, counted from 1 and from now.
    void FailFrom(const std::string& name, int number, int reason);

    /// Makes a call of one name fail where a condition on its flags holds: openat with O_TMPFILE, renameat2 with
    /// RENAME_EXCHANGE.
    void FailWithFlags(const std::string& name, unsigned int flags, int reason);

    /// The Nth call, counted from 1 and from now, takes at most this many bytes where it reads or writes.
    void ShortenAt(int number, size_t most);

    /// Reads and writes take at most this many bytes.
    void FallShort(size_t most) { m_most = most; }

    /// Every read, write, open and sync is interrupted before it is let through.
    void InterruptEach() { m_interrupting = true; }

    /// Called before each call.
    void OnCall(std::function<void()> before) { m_before = std::move(before); }

    /// The names of the calls so far, in their order.
    [[nodiscard]] const std::vector<std::string>& Calls() const { return m_calls; }

    /// For the entries: what a call is to fail with, 0 to let it through.
    int Fault(const char* name, unsigned int flags);
    [[nodiscard]] size_t Shortened(size_t size) const;
    [[nodiscard]] const SystemCalls& Real() const { return m_real; }

private:
    struct NameFault {
        std::string name;
        int number;  // of the call that fails first
        int reason;
    };
    struct FlagFault {
        std::string name;
        unsigned int flags;
        int reason;
    };

    [[nodiscard]] int CountedFault(const std::string& name) const;
    [[nodiscard]] int NamedFault(const std::string& name) const;
    [[nodiscard]] int FlaggedFault(const std::string& name, unsigned int flags) const;
    [[nodiscard]] int CountOf(const std::string& name) const;

    SystemCalls m_real;
    std::vector<std::string> m_calls;
    std::vector<NameFault> m_nameFaults;
    std::vector<FlagFault> m_flagFaults;
    int m_failing = 0;  // number of the call that fails first, 0 for none
    int m_reason = 0;
    Extent m_extent = Extent::once;
    size_t m_most = 0;
    int m_shortCall = 0;  // number of the call that is cut short, 0 for none
    size_t m_shortMost = 0;
    bool m_interrupting = false;
    bool m_interrupted = false;
    std::function<void()> m_before;
};

}  // namespace kx::test
