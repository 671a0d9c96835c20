// The end of HTTP requests: their callbacks and their events.
#include "Files/IO/LoadSave_HttpCompletion.h"

#include "Files/Base/RValue.h"
#include "Files/Code/Code_Error.h"
#include "Files/Code/Code_Function.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/Thread.h"

#include <cerrno>
#include <chrono>
#include <new>
#include <string>
#include <utility>

namespace kx {
namespace {

constexpr std::chrono::microseconds kLongestSilence{100};
constexpr int kUsualFields = 8;

/// Adds a field to a map; the texts of one name are joined.
/// @throws std::bad_alloc
void AddField(CDS_Map* map, const HttpField& field) {
    RValueOwner key;
    RValueOwner value;
    KXSetString(&key.value, field.name.c_str());
    KXCreateString(&value.value, field.value.c_str());
    if (map->Take(&key, &value)) return;
    std::string joined = std::string(map->Find(&key.value)->str->m_thing) + ", " + field.value;
    RValueOwner both;
    KXCreateString(&both.value, joined.c_str());
    map->Set(&key.value, &both.value);
}

/// @throws std::bad_alloc
int CreateHeaderMap(const HttpAnswer& answer) {
    DS_Owner<CDS_Map> map;  // nobody else has it yet
    map->Reserve(kUsualFields);
    answer.ForEachField([&](const HttpField& field) { AddField(map.Get(), field); });
    DS_AutoMutex lock;
    int index = FindFreeDsMapIndex();
    themaps.arr[index] = map.Release();
    return index;
}

/// An event comes in any case; what there was no memory for is missing in it.
template <class Step>
void IfThereIsMemory(Step step) {
    try {
        step();
    } catch (const std::bad_alloc&) {
        // see above
    }
}

/// Runs the callbacks.
void Complete(HttpRequest* request) {
    ASYNC_EVENT& event = request->event;
    event = {EVENT_OTHER_WEB_ASYNC, -1, -1, request->m_id, 0, 0};
    bool failed = !request->fault.empty();
    request->m_response = failed ? nullptr : request->response.c_str();
    request->m_responseLength = failed ? 0 : static_cast<int>(request->response.size());
    IfThereIsMemory([&] {
        if (failed) dbg_csol->Output("HTTP request %d failed: %s\n", request->m_id, request->fault.c_str());
    });
    IfThereIsMemory([&] { event.m_headers = CreateHeaderMap(request->answer); });
    request->m_responseHeaders = event.m_headers;
    IfThereIsMemory([&] { event.m_type = request->completion(request, nullptr, &event.m_map); });
    if (request->cleanup) request->cleanup(request);
    event.m_mapSerial = SerialOfDsMap(event.m_map);
    event.m_headersSerial = SerialOfDsMap(event.m_headers);

    request->m_response = nullptr;
    request->m_responseLength = 0;
    request->body = std::string();
    request->answer = HttpAnswer();
}

}  // namespace

HttpCompletion::HttpCompletion() {
    ::sem_init(&m_completedChange, 0, 0);
}

// --- completing -----------------------------------------------------------------------------------------------------

void HttpCompletion::Add(HttpQueue* finished) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_active) {
            auto run = [](void* self) { static_cast<HttpCompletion*>(self)->Run(); };
            m_active = StartThread(&m_thread, "kx-http-done", run, this);
        }
        if (m_active) {
            m_finished.TakeFrom(finished);
            m_change.notify_one();
            return;
        }
    }
    CompleteAll(finished);
}

void HttpCompletion::Run() {
    KXNames names;  // events and header fields have the same ones again and again
    for (;;) {
        HttpQueue finished;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_change.wait(lock, [this] { return !m_finished.IsEmpty() || m_stopping; });
            if (m_finished.IsEmpty()) return;
            finished.TakeFrom(&m_finished);
        }
        CompleteAll(&finished);
    }
}

/// Those that come together wake the script's thread once, unless that would keep the first of them waiting.
void HttpCompletion::CompleteAll(HttpQueue* finished) {
    HttpQueue completed;
    auto begun = std::chrono::steady_clock::now();
    while (std::unique_ptr<HttpRequest> request = finished->Pop()) {
        Complete(request.get());
        KeepBody(&request->response);
        completed.Push(std::move(request));
        auto now = std::chrono::steady_clock::now();
        if (now - begun < kLongestSilence) continue;
        HandOver(&completed);
        begun = now;
    }
    HandOver(&completed);
}

/// Small ones are not worth it, large ones not to be held on to. What is not kept is freed.
void HttpCompletion::KeepBody(std::string* body) {
    constexpr size_t kSmall = 64 << 10;
    constexpr size_t kLarge = 4 << 20;
    std::string done = std::move(*body);
    body->clear();
    if (done.capacity() < kSmall || done.capacity() > kLarge) return;
    done.clear();
    std::lock_guard<std::mutex> lock(m_spareMutex);
    if (m_spareCount < kSpare) m_spare[m_spareCount++] = std::move(done);
}

std::string HttpCompletion::SpareBody() {
    std::lock_guard<std::mutex> lock(m_spareMutex);
    return m_spareCount > 0 ? std::move(m_spare[--m_spareCount]) : std::string();
}

void HttpCompletion::HandOver(HttpQueue* completed) {
    if (completed->IsEmpty()) return;
    std::lock_guard<std::mutex> lock(m_completedMutex);
    bool isFirst = m_completed.IsEmpty();  // behind others they are seen with them
    m_completed.TakeFrom(completed);
    if (isFirst) ::sem_post(&m_completedChange);
}

void HttpCompletion::Stop() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        m_change.notify_one();
    }
    m_thread.join();
    m_stopping = false;
    m_active = false;
}

// --- handing over ---------------------------------------------------------------------------------------------------

std::unique_ptr<HttpRequest> HttpCompletion::Take() {
    std::lock_guard<std::mutex> lock(m_completedMutex);
    return m_completed.Pop();
}

bool HttpCompletion::Wait(const timespec* end) {
    int failed = end ? ::sem_clockwait(&m_completedChange, CLOCK_MONOTONIC, end) : ::sem_wait(&m_completedChange);
    return !TakeInterrupt() && !(failed && errno == ETIMEDOUT);
}

void HttpCompletion::Interrupt() {
    m_interrupted = true;
    ::sem_post(&m_completedChange);
}

bool HttpCompletion::TakeInterrupt() {
    return m_interrupted.exchange(false);
}

}  // namespace kx
