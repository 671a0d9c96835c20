#pragma once

#include "Files/IO/LoadSave.h"
#include "Files/IO/LoadSave_HttpField.h"

#include <memory>
#include <new>
#include <string>

namespace kx {

/// A request from the call that makes it to the end of its event. One thread at a time has it.
struct HttpRequest : HTTP_REQ_CONTEXT {
    // What is asked for; a redirect changes all but the URL.
    std::string url;
    std::string target;  ///< the URL that the transfer goes to
    std::string method;
    HttpFields fields;
    std::string body;
    HttpOptions options;
    HTTP_COMPLETION completion = nullptr;
    HTTP_CLEANUP cleanup = nullptr;

    // What came of it.
    std::string fault;  ///< why it failed; empty where it did not, and see Fail
    HttpAnswer answer;
    std::string response;
    ASYNC_EVENT event{};

    HttpRequest* next = nullptr;  ///< in the queue that has it

    /// Makes it one that has failed, unless it is one already.
    void Fail(const char* why) noexcept {
        if (!fault.empty()) return;
        try {
            fault = why;
        } catch (const std::bad_alloc&) {
            fault = "out of memory";  // short enough to need none
        }
    }
};

/// Requests in the order in which they came. It owns them; nothing here needs memory.
class HttpQueue {
public:
    HttpQueue() = default;
    HttpQueue(const HttpQueue&) = delete;
    HttpQueue& operator=(const HttpQueue&) = delete;
    ~HttpQueue() {
        while (Pop()) {
        }
    }

    [[nodiscard]] bool IsEmpty() const { return !m_first; }
    [[nodiscard]] const HttpRequest* First() const { return m_first; }

    void Push(std::unique_ptr<HttpRequest> request) {
        request->next = nullptr;
        HttpRequest*& end = m_first ? m_last->next : m_first;
        end = request.get();
        m_last = request.release();
    }

    /// @return null where there is none.
    std::unique_ptr<HttpRequest> Pop() {
        std::unique_ptr<HttpRequest> request(m_first);
        if (m_first) m_first = m_first->next;
        return request;
    }

    /// Takes over what another one has.
    void TakeFrom(HttpQueue* other) {
        if (!other->m_first) return;
        HttpRequest*& end = m_first ? m_last->next : m_first;
        end = other->m_first;
        m_last = other->m_last;
        other->m_first = nullptr;
    }

private:
    HttpRequest* m_first = nullptr;
    HttpRequest* m_last = nullptr;  // where there is a first
};

/// Ends all requests as LoadSave::Shutdown says.
/// @thread script
void EndHttp();

}  // namespace kx
