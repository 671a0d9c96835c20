// The thread that HTTP transfers run on.
#include "Files/IO/LoadSave_HttpTransport.h"

#include "Files/Base/Limits.h"
#include "Platform/Thread.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kx {
namespace {

constexpr char kStopped[] = "the program ends";
constexpr char kNoMemory[] = "out of memory";
constexpr int kLongestWait = 60 * 1000;  // milliseconds; the library's own clocks cut it short

constexpr std::chrono::microseconds kLongestSilence{100};

/// What decides which requests share connections: scheme, host and port, as they are written.
std::string HostOf(const std::string& url) {
    size_t begin = url.find("://") + 3;
    return url.substr(0, url.find_first_of("/?#", begin));
}

}  // namespace

// --- from the script's thread ---------------------------------------------------------------------------------------

void HttpTransport::Add(std::unique_ptr<HttpRequest> request) {
    std::unique_lock<std::mutex> lock(m_mutex);
    bool isFirst = m_new.IsEmpty();  // behind another one it is seen with it
    m_new.Push(std::move(request));
    ++m_pending;
    if (m_active) {
        if (isFirst && m_multi) m_curl->multi_wakeup(m_multi);
        return;
    }
    m_active = true;
    lock.unlock();
    if (!StartAnew()) FailAllNew("cannot start a thread");
}

bool HttpTransport::StartAnew() {
    if (m_thread.joinable()) m_thread.detach();  // one that has found no library, and nothing more to do
    auto run = [](void* self) { static_cast<HttpTransport*>(self)->Run(); };
    return StartThread(&m_thread, "kx-http", run, this);
}

void HttpTransport::Stop() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        if (m_multi) m_curl->multi_wakeup(m_multi);
    }
    m_thread.join();
    m_stopping = false;
}

HttpProgress HttpTransport::Progress() const {
    int pending = m_pending;
    bool known = m_counters.known == pending;
    return {pending, m_counters.received, known ? m_counters.expected.load() : -1, m_counters.ever};
}

// --- the thread -----------------------------------------------------------------------------------------------------

void HttpTransport::Run() {
    std::string reason = kNoMemory;
    if (!OpenLibrary(&reason)) {
        FailAllNew(reason.c_str());
        return;
    }
    while (TakeNew()) {
        try {
            Serve();
        } catch (const std::bad_alloc&) {
            EndAll(kNoMemory);
        }
    }
    CloseLibrary();
}

/// @param reason  why there is none, where there is memory to say it.
bool HttpTransport::OpenLibrary(std::string* reason) {
    const CurlLibrary* curl = nullptr;
    try {
        curl = CurlLibrary::Load(reason);
    } catch (const std::bad_alloc&) {
        return false;
    }
    CURLM* multi = curl ? curl->multi_init() : nullptr;
    if (!multi) return false;
    curl->multi_setopt(multi, CURLMOPT_MAXCONNECTS, static_cast<long>(kMaxHttpTransfers));
    std::lock_guard<std::mutex> lock(m_mutex);
    m_curl = curl;
    m_multi = multi;
    return true;
}

void HttpTransport::CloseLibrary() {
    EndAll(kStopped);
    HandOver();
    m_idle.clear();
    CURLM* multi = m_multi;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_multi = nullptr;
        m_active = false;
    }
    m_curl->multi_cleanup(multi);
}

/// @return false where the thread is to end.
bool HttpTransport::TakeNew() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_taken.TakeFrom(&m_new);
    return !m_stopping;
}

/// One round: what is new is started, what is done is ended, then the network has its turn.
void HttpTransport::Serve() {
    QueueTaken();
    StartReady();
    int running = 0;
    m_curl->multi_perform(m_multi, &running);
    FinishDone();
    int wait = EndStalled();
    bool more = CanStart() || (!m_finished.IsEmpty() && MoreIsThere());
    bool overdue = !m_finished.IsEmpty() && HttpClock::now() - m_finishedSince >= kLongestSilence;
    if (!more || overdue) HandOver();
    if (!more) m_curl->multi_poll(m_multi, nullptr, 0, wait, nullptr);
}

/// @return true where a round would find something to do.
bool HttpTransport::MoreIsThere() {
    int ready = 0;
    m_curl->multi_poll(m_multi, nullptr, 0, 0, &ready);
    std::lock_guard<std::mutex> lock(m_mutex);  // the poll has used up a wake-up, and does not say so
    return ready > 0 || !m_new.IsEmpty() || m_stopping;
}

/// Requests that are finished are handed over together: one by one that would cost more than the transfers. They wait
/// as long as the network has more, but no longer than anyone would notice.
void HttpTransport::HandOver() {
    if (!m_finished.IsEmpty()) m_completion.Add(&m_finished);
}

// --- turns ----------------------------------------------------------------------------------------------------------

void HttpTransport::QueueTaken() {
    while (std::unique_ptr<HttpRequest> request = m_taken.Pop()) {
        try {
            Queue(&request);
        } catch (const std::bad_alloc&) {
            if (request) Fail(std::move(request), kNoMemory);
            throw;
        }
    }
}

/// @param request  still the caller's where this throws.
void HttpTransport::Queue(std::unique_ptr<HttpRequest>* request) {
    if (!(*request)->fault.empty()) return End(std::move(*request));
    std::string name = HostOf((*request)->target);
    Host& host = m_hosts[name];
    host.name = std::move(name);
    host.waiting.Push(std::move(*request));
    MarkReady(&host);
}

void HttpTransport::MarkReady(Host* host) {
    const HttpRequest* next = host->waiting.First();
    bool ready = next && host->running < next->options.connectionsPerHost;
    if (!ready || host->isReady) return;
    m_ready.push_back(host);
    host->isReady = true;
}

bool HttpTransport::CanStart() const {
    return !m_ready.empty() && m_running.size() < kMaxHttpTransfers;
}

void HttpTransport::StartReady() {
    while (CanStart()) {
        Host* host = m_ready.front();
        m_ready.pop_front();
        host->isReady = false;
        Start(host);
        MarkReady(host);
    }
}

void HttpTransport::Start(Host* host) {
    if (m_idle.empty()) m_idle.push_back(std::make_unique<HttpTransfer>(*m_curl, &m_counters));
    HttpTransfer* transfer = m_idle.back().get();
    m_running.push_back({nullptr, nullptr, host});
    m_running.back().transfer = std::move(m_idle.back());
    m_running.back().request = host->waiting.Pop();
    m_idle.pop_back();
    ++host->running;
    m_running.back().request->response = m_completion.SpareBody();
    transfer->Begin(m_running.back().request.get());
    m_curl->multi_add_handle(m_multi, transfer->Handle());
}

// --- ends -----------------------------------------------------------------------------------------------------------

void HttpTransport::FinishDone() {
    int left = 0;
    while (CURLMsg* message = m_curl->multi_info_read(m_multi, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        void* transfer = nullptr;
        CURL* handle = message->easy_handle;
        CURLcode result = message->data.result;
        m_curl->easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
        m_curl->multi_remove_handle(m_multi, handle);
        Finish(static_cast<HttpTransfer*>(transfer), result);
    }
}

void HttpTransport::Finish(HttpTransfer* transfer, CURLcode result) {
    if (transfer->Finish(result)) {
        EndTransfer(transfer);
    } else {
        m_curl->multi_add_handle(m_multi, transfer->Handle());
    }
}

/// @return milliseconds until the next one will have stalled.
int HttpTransport::EndStalled() {
    HttpClock::time_point now = HttpClock::now();
    HttpClock::time_point next = now + std::chrono::milliseconds(kLongestWait);
    for (size_t i = m_running.size(); i-- > 0;) {
        HttpTransfer* transfer = m_running[i].transfer.get();
        const char* fault = transfer->CheckClocks(now);
        if (!fault) {
            next = std::min(next, transfer->CheckTime());
            continue;
        }
        m_curl->multi_remove_handle(m_multi, transfer->Handle());
        transfer->Abort(fault);
        EndTransfer(transfer);
    }
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(next - now).count());
}

HttpTransport::Running& HttpTransport::Find(const HttpTransfer* transfer) {
    return *std::find_if(m_running.begin(), m_running.end(),
                         [transfer](const Running& running) { return running.transfer.get() == transfer; });
}

/// Ends the request of a transfer that is out of the multi handle, and lets the next one have its place.
void HttpTransport::EndTransfer(HttpTransfer* transfer) {
    Running& place = Find(transfer);
    Running ended = std::move(place);
    place = std::move(m_running.back());
    m_running.pop_back();

    Host* host = ended.host;
    --host->running;
    End(std::move(ended.request));
    m_idle.push_back(std::move(ended.transfer));
    MarkReady(host);
    bool unused = host->running == 0 && host->waiting.IsEmpty();
    if (unused) m_hosts.erase(host->name);
}

/// Nothing here needs memory.
void HttpTransport::EndAll(const char* fault) {
    for (Running& running : m_running) {
        m_curl->multi_remove_handle(m_multi, running.transfer->Handle());
        running.transfer->Abort(fault);
        End(std::move(running.request));
    }
    m_running.clear();
    m_ready.clear();
    for (auto& host : m_hosts) {
        FailAll(&host.second.waiting, fault);
    }
    m_hosts.clear();
    FailAll(&m_taken, fault);
}

/// Ends what is new, where there is no thread or one without a library, until nothing is: then the next request starts
/// anew, and whoever called this touches nothing any more.
void HttpTransport::FailAllNew(const char* fault) {
    for (;;) {
        HttpQueue requests;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            requests.TakeFrom(&m_new);
            m_active = !requests.IsEmpty();
            if (!m_active) return;
        }
        FailAll(&requests, fault);
        HandOver();
    }
}

void HttpTransport::FailAll(HttpQueue* requests, const char* fault) {
    while (std::unique_ptr<HttpRequest> request = requests->Pop()) {
        Fail(std::move(request), fault);
    }
}

void HttpTransport::Fail(std::unique_ptr<HttpRequest> request, const char* fault) {
    request->Fail(fault);
    End(std::move(request));
}

void HttpTransport::End(std::unique_ptr<HttpRequest> request) {
    --m_pending;
    if (m_finished.IsEmpty()) m_finishedSince = HttpClock::now();
    m_finished.Push(std::move(request));
}

}  // namespace kx
