#pragma once

#include "Files/IO/LoadSave_HttpCompletion.h"
#include "Files/IO/LoadSave_HttpTransfer.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace kx {

/// The thread that HTTP transfers run on.
///
/// Each origin gets so many connections and no more; what comes beyond waits for its turn, so that a server that says
/// nothing holds up its own requests only.
class HttpTransport {
public:
    /// @param completion  gets every request that is finished.
    explicit HttpTransport(HttpCompletion* completion) : m_completion(*completion) {}
    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;

    /// Takes a request; the thread is started with the first one.
    /// @thread script
    void Add(std::unique_ptr<HttpRequest> request);

    /// Ends every request, those that have not been answered as failed ones, and the thread. Another Add starts anew.
    /// @thread script
    void Stop();

    /// How far the transfers that are running are.
    /// @thread any
    [[nodiscard]] HttpProgress Progress() const;

private:
    /// The requests to one origin.
    struct Host {
        std::string name;
        HttpQueue waiting;
        int running = 0;
        bool isReady = false;  // in m_ready
    };
    struct Running {
        std::unique_ptr<HttpTransfer> transfer;
        std::unique_ptr<HttpRequest> request;
        Host* host;
    };

    bool StartAnew();
    void Run();
    bool OpenLibrary(std::string* reason);
    void CloseLibrary();
    void Serve();
    bool TakeNew();
    void QueueTaken();
    void Queue(std::unique_ptr<HttpRequest>* request);
    void MarkReady(Host* host);
    [[nodiscard]] bool CanStart() const;
    void StartReady();
    void Start(Host* host);
    bool MoreIsThere();
    void HandOver();
    void FinishDone();
    void Finish(HttpTransfer* transfer, CURLcode result);
    int EndStalled();
    void EndTransfer(HttpTransfer* transfer);
    void EndAll(const char* fault);
    void FailAllNew(const char* fault);
    void End(std::unique_ptr<HttpRequest> request);
    void Fail(std::unique_ptr<HttpRequest> request, const char* fault);
    void FailAll(HttpQueue* requests, const char* fault);
    Running& Find(const HttpTransfer* transfer);

    HttpCompletion& m_completion;
    HttpCounters m_counters;
    std::atomic<int> m_pending = 0;  // taken and not ended
    std::thread m_thread;

    std::mutex m_mutex;  // over these
    HttpQueue m_new;
    bool m_active = false;  // the thread takes what is new
    bool m_stopping = false;
    CURLM* m_multi = nullptr;  // changed by the thread alone, which reads both without the mutex
    const CurlLibrary* m_curl = nullptr;

    // The thread's.
    HttpQueue m_taken;
    std::unordered_map<std::string, Host> m_hosts;
    std::deque<Host*> m_ready;  // those that may start a transfer, in turn
    std::vector<Running> m_running;
    std::vector<std::unique_ptr<HttpTransfer>> m_idle;
    HttpQueue m_finished;  // and not handed over yet
    HttpClock::time_point m_finishedSince;
};

}  // namespace kx
