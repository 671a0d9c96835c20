#pragma once

#include "Files/IO/LoadSave_HttpDecoder.h"
#include "Files/IO/LoadSave_HttpRequest.h"
#include "Platform/CurlLibrary.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace kx {

using HttpClock = std::chrono::steady_clock;

/// Sums over the transfers that are running.
struct HttpCounters {
    std::atomic<long long> received = 0;
    std::atomic<long long> expected = 0;
    std::atomic<long long> ever = 0;
    std::atomic<int> known = 0;  ///< transfers whose length is known
};

/// @return true for a status whose answer may say where to ask instead.
bool IsHttpRedirect(long status);

/// One request on the wire, hop after hop where servers redirect it. It serves one after another.
/// @thread the transport's
class HttpTransfer {
public:
    /// @throws std::bad_alloc
    HttpTransfer(const CurlLibrary& curl, HttpCounters* counters);
    HttpTransfer(const HttpTransfer&) = delete;
    HttpTransfer& operator=(const HttpTransfer&) = delete;

    /// Makes the handle ready for a request, which has to stay where it is until Finish says that it has ended.
    /// @throws std::bad_alloc
    void Begin(HttpRequest* request);

    /// After a hop, with the handle out of the multi handle: takes what came of it into the request.
    /// @return true where the request has ended; false where the handle is ready for the next hop.
    /// @throws std::bad_alloc
    bool Finish(CURLcode result);

    /// Ends the request in the middle of a hop, with the handle out of the multi handle.
    /// @param fault  why, unless a cause is known already.
    void Abort(const char* fault);

    [[nodiscard]] CURL* Handle() const { return m_handle.get(); }
    [[nodiscard]] HttpRequest* Request() const { return m_request; }

    /// @return why it has to end, where it does not get on; null where it does.
    const char* CheckClocks(HttpClock::time_point now);

    /// When to ask that again.
    [[nodiscard]] HttpClock::time_point CheckTime() const { return m_checkTime; }

private:
    /// A text list of the library's, as long as it lives.
    class Lines {
    public:
        explicit Lines(const CurlLibrary& curl) : m_curl(curl) {}
        Lines(const Lines&) = delete;
        Lines& operator=(const Lines&) = delete;
        ~Lines() { Clear(); }

        void Add(const std::string& line);
        void Clear();
        [[nodiscard]] curl_slist* Get() const { return m_first; }

    private:
        const CurlLibrary& m_curl;
        curl_slist* m_first = nullptr;
    };

    static size_t OnBody(char* data, size_t size, size_t count, void* transfer) noexcept;
    static size_t OnHeader(char* data, size_t size, size_t count, void* transfer) noexcept;
    static int OnProgress(void* transfer, curl_off_t expected, curl_off_t received, curl_off_t toSend,
                          curl_off_t sent) noexcept;

    template <class Value>
    void Set(CURLoption option, Value value);

    void SetForAll();
    void SetCertificates();
    void SetHop();
    void SetMethod();
    void SetFields();
    void SetClocks();
    [[nodiscard]] HttpClock::time_point ConnectTime() const;
    bool TakeBody(std::string_view data);
    bool TakeDecoded(std::string_view data);
    bool RefuseLength();
    void PrepareBody();
    bool TakeHeaderLine(std::string_view line);
    void CountExpected(long long bytes);
    void CountReceived(size_t bytes);
    void NoteProgress();
    void ForgetProgress();
    [[nodiscard]] long Status() const;
    void TakeStatus();
    bool Redirect();
    const char* Follow(const std::string& location);
    void ChangeMethod();
    [[nodiscard]] bool SendsBody() const;
    [[nodiscard]] std::string Explain(CURLcode result) const;
    void End();

    const CurlLibrary& m_curl;
    HttpCounters& m_counters;
    char m_message[CURL_ERROR_SIZE];
    Lines m_lines;
    Lines m_usualLines;  // of a request without fields or body of its own
    std::unique_ptr<CURL, decltype(&::curl_easy_cleanup)> m_handle;

    HttpRequest* m_request = nullptr;
    HttpClock::time_point m_begun;

    // One hop.
    int m_hops = 0;
    bool m_redirected = false;  // its answer is a redirect
    int m_passedOver = 0;       // bytes of a redirect's body
    bool m_bodyBegun = false;
    bool m_compressed = false;
    GzipDecoder m_decoder;
    long long m_expected = 0;  // bytes of the body
    long long m_received = 0;
    long long m_sent = 0;
    long long m_marked = 0;  // bytes of all sorts when it had got on last
    HttpClock::time_point m_hopBegun;
    bool m_underWay = false;  // connected, and so the time below is that of a stall
    HttpClock::time_point m_checkTime = HttpClock::time_point::max();
};

}  // namespace kx
