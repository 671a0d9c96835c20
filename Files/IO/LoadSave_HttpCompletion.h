#pragma once

#include "Files/IO/LoadSave_HttpRequest.h"

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <semaphore.h>
#include <string>
#include <thread>

namespace kx {

/// The end of requests: runs their callbacks, on a thread of its own, so that neither a disk nor a script that holds a
/// lock keeps the network waiting, and hands them to the script's thread.
class HttpCompletion {
public:
    HttpCompletion();
    HttpCompletion(const HttpCompletion&) = delete;
    HttpCompletion& operator=(const HttpCompletion&) = delete;

    /// Takes finished requests over. The thread is started with the first ones; where it cannot be, they are completed
    /// here and now.
    /// @thread the transport's, or the script's where there is none
    void Add(HttpQueue* finished);

    /// @return an empty body, with the room of one that is done where there is one: a fresh megabyte costs the system
    /// more
    ///         than the network does.
    /// @thread the transport's
    std::string SpareBody();

    /// @return the next completed request; null where none is there.
    /// @thread script
    std::unique_ptr<HttpRequest> Take();

    /// Waits for a change, which need not be another request.
    /// @param end  by the monotonic clock; null for as long as it takes.
    /// @return false when the time is over, and after an interrupt.
    /// @thread script
    bool Wait(const timespec* end);

    /// Ends the Wait that there is, or the next one.
    /// @thread any, and signal handlers
    void Interrupt();

    /// @return true where there was one, which is over then.
    bool TakeInterrupt();

    /// Completes what has been added and ends the thread. Another Add starts anew.
    /// @thread script, while nothing is added
    void Stop();

private:
    void Run();
    void CompleteAll(HttpQueue* finished);
    void KeepBody(std::string* body);
    void HandOver(HttpQueue* completed);

    std::thread m_thread;
    std::mutex m_mutex;  // over these
    std::condition_variable m_change;
    HttpQueue m_finished;
    bool m_active = false;
    bool m_stopping = false;

    static constexpr size_t kSpare = 8;
    std::mutex m_spareMutex;
    std::string m_spare[kSpare];
    size_t m_spareCount = 0;

    std::mutex m_completedMutex;
    HttpQueue m_completed;
    sem_t m_completedChange;  // which a signal handler may use too
    std::atomic<bool> m_interrupted = false;
};

}  // namespace kx
