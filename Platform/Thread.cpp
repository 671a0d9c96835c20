// Threads of the host's own.
#include "Platform/Thread.h"

#include <csignal>
#include <exception>
#include <pthread.h>

namespace kx {
namespace {

/// A thread begins with the signals blocked that its maker has blocked.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before{};
};

}  // namespace

bool StartThread(std::thread* thread, const char* name, void (*body)(void*), void* context) {
    BlockedSignals blocked;
    try {
        *thread = std::thread(body, context);
        ::pthread_setname_np(thread->native_handle(), name);
        return true;
    } catch (const std::exception&) {  // std::system_error, std::bad_alloc
        return false;
    }
}

}  // namespace kx
