// A process that is stopped before each of its system calls.
#include "proof/Crash_Trace.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kx::proof {
namespace {

constexpr unsigned int kPatience = 120;  // seconds after which the process counts as hung
constexpr int kSyscallStop = SIGTRAP | 0x80;

enum Phase : int { before, saving, reported };
using SharedPhase = std::atomic<int>;

[[noreturn]] void Fail(const char* what) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

/// Memory that a child shares with its parent.
class SharedMemory {
public:
    SharedMemory() : m_memory(::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (m_memory == MAP_FAILED) Fail("mmap");
        m_phase = new (m_memory) SharedPhase(before);
    }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;
    ~SharedMemory() { ::munmap(m_memory, kSize); }

    [[nodiscard]] SharedPhase& Phase() const { return *m_phase; }

private:
    static constexpr size_t kSize = sizeof(SharedPhase);

    void* m_memory;
    SharedPhase* m_phase;
};

class SharedMarker : public Marker {
public:
    explicit SharedMarker(SharedPhase& phase) : m_phase(phase) {}

    void Begin() override { m_phase = saving; }

    void Report() override {
        m_phase = reported;
        ::syscall(SYS_getppid);  // a call for the tracer to stop at
    }

private:
    SharedPhase& m_phase;
};

[[noreturn]] void RunChild(const std::function<bool(Marker&)>& body, SharedPhase& phase) {
    ::alarm(kPatience);
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    std::raise(SIGSTOP);
    SharedMarker marker(phase);
    bool done = false;
    try {
        done = body(marker);
    } catch (const std::exception&) {
        done = false;
    }
    ::_exit(done ? 0 : 1);
}

class Tracer {
public:
    Tracer(pid_t process, SharedPhase& phase, const std::function<Next(const Stop&)>& atStop)
        : m_process(process), m_phase(phase), m_atStop(atStop) {}
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;

    /// A callback that throws leaves no process behind either.
    ~Tracer() {
        if (m_ended) return;
        ::kill(m_process, SIGKILL);
        Reap();
    }

    End Run() {
        TakeOver();
        while (!m_ended) {
            Wait();
        }
        if (m_killed) return End::killed;
        return WIFEXITED(m_status) && WEXITSTATUS(m_status) == 0 ? End::finished : End::failed;
    }

private:
    void TakeOver() {
        if (::waitpid(m_process, &m_status, 0) != m_process || !WIFSTOPPED(m_status)) Fail("cannot trace");
        long options = PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE;
        if (::ptrace(PTRACE_SETOPTIONS, m_process, nullptr, options) != 0) Fail("cannot trace");
        Resume(m_process, 0);
    }

    void Wait() {
        int status = 0;
        pid_t thread = ::waitpid(-1, &status, __WALL);
        if (thread < 0 && errno != EINTR) Fail("waitpid");
        if (thread < 0) return;
        if (!WIFSTOPPED(status)) {
            NoteEnd(thread, status);
            return;
        }
        int signal = WSTOPSIG(status);
        bool isEvent = status >> 16 != 0;
        if (signal == kSyscallStop) StopAtCall(thread);
        bool ours = signal == kSyscallStop || isEvent || signal == SIGSTOP;  // each new thread begins with that
        Resume(thread, ours ? 0 : signal);
    }

    void NoteEnd(pid_t thread, int status) {
        if (thread != m_process) return;
        m_status = status;
        m_ended = true;
    }

    void StopAtCall(pid_t thread) {
        if (m_over || m_phase == before) return;
        __ptrace_syscall_info info{};
        if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0) return;
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return;
        m_over = m_phase == reported;
        Next next = m_atStop({++m_calls, static_cast<long>(info.entry.nr), m_over});
        if (next == Next::goOn) return;
        ::kill(m_process, SIGKILL);
        m_killed = m_over = true;
    }

    /// Fails for a thread that has been killed.
    static void Resume(pid_t thread, int signal) {
        ::ptrace(PTRACE_SYSCALL, thread, nullptr, static_cast<long>(signal));
    }

    void Reap() {
        int status = 0;
        for (pid_t thread = 0; thread != m_process && (thread >= 0 || errno == EINTR);) {
            thread = ::waitpid(-1, &status, __WALL);
            if (thread == m_process && WIFSTOPPED(status)) thread = 0;
        }
    }

    pid_t m_process;
    SharedPhase& m_phase;
    const std::function<Next(const Stop&)>& m_atStop;
    int m_calls = 0;
    int m_status = 0;
    bool m_over = false;  // no further stop counts
    bool m_killed = false;
    bool m_ended = false;
};

}  // namespace

End RunTraced(const std::function<bool(Marker&)>& body, const std::function<Next(const Stop&)>& atStop) {
    SharedMemory memory;
    pid_t process = ::fork();
    if (process < 0) Fail("fork");
    if (process == 0) RunChild(body, memory.Phase());
    Tracer tracer(process, memory.Phase(), atStop);
    return tracer.Run();
}

}  // namespace kx::proof
