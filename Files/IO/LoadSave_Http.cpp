// HTTP requests as the module and the runner see them: how they are made, how they end, and their events.
#include "Files/IO/LoadSave_HttpCompletion.h"
#include "Files/IO/LoadSave_HttpTransport.h"
#include "Files/Support/Support_Data_Structures.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string_view>

HTTP_REQ_CONTEXT* g_pHttpHead = nullptr;
int g_HTTP_ID = 1;
bool g_fHttpOutput = false;

static_assert(sizeof(void*) > 4 ||
                  (offsetof(HTTP_REQ_CONTEXT, m_response) == 0 && offsetof(HTTP_REQ_CONTEXT, m_userData) == 4 &&
                   offsetof(HTTP_REQ_CONTEXT, m_url) == 8 && offsetof(HTTP_REQ_CONTEXT, m_id) == 12 &&
                   offsetof(HTTP_REQ_CONTEXT, m_status) == 16 && offsetof(HTTP_REQ_CONTEXT, m_responseHeaders) == 20 &&
                   offsetof(HTTP_REQ_CONTEXT, m_responseLength) == 24),
              "callbacks of other modules know the context by its layout");

namespace {

using kx::HttpField;
using kx::HttpFields;
using kx::HttpRequest;

timespec After(int milliseconds) {
    constexpr long kNanoseconds = 1000L * 1000 * 1000;
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += milliseconds / 1000;
    time.tv_nsec += milliseconds % 1000 * (kNanoseconds / 1000);
    if (time.tv_nsec >= kNanoseconds) {
        time.tv_nsec -= kNanoseconds;
        ++time.tv_sec;
    }
    return time;
}

kx::HttpCompletion& g_completion = *new kx::HttpCompletion;  // as long as the threads, and there when a signal comes

kx::HttpTransport* g_transport = nullptr;  // made by the first request; it may outlive all else

kx::HttpTransport& Transport() {
    if (!g_transport) g_transport = new kx::HttpTransport(&g_completion);
    return *g_transport;
}

// --- the list of requests, the script thread's ----------------------------------------------------------------------

int g_inFlight = 0;
HTTP_REQ_CONTEXT* g_newest = nullptr;  // the head that nobody else clears
HTTP_REQ_CONTEXT* g_oldest = nullptr;

void Link(HttpRequest* request) {
    request->m_next = g_newest;
    request->m_previous = nullptr;
    if (g_newest) g_newest->m_previous = request;
    if (!g_oldest) g_oldest = request;
    g_newest = request;
    g_pHttpHead = g_newest;
    ++g_inFlight;
}

void Unlink(HttpRequest* request) {
    if (request->m_previous) request->m_previous->m_next = request->m_next;
    if (request->m_next) request->m_next->m_previous = request->m_previous;
    if (g_newest == request) g_newest = request->m_next;
    if (g_oldest == request) g_oldest = request->m_previous;
    if (g_pHttpHead) g_pHttpHead = g_newest;
    --g_inFlight;
}

// --- how a request is made ------------------------------------------------------------------------------------------

kx::HttpOptions g_options;

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

/// @return null, or why a URL cannot be used.
const char* FaultOfUrl(std::string_view url) {
    if (!StartsWith(url, "http://") && !StartsWith(url, "https://")) return "the URL is neither http nor https";
    if (url.size() > kx::kMaxHttpUrl) return "the URL is too long";
    for (char c : url) {
        if (c == ' ') return "the URL holds a space: write it as %20";
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "the URL holds a control character";
    }
    return nullptr;
}

const char* FaultOfMethod(std::string_view method) {
    if (!kx::IsHttpToken(method)) return "the method is none: it has to be a word such as GET";
    if (method.size() > kx::kMaxHttpMethod) return "the method is too long";
    return method == "CONNECT" ? "CONNECT is no method for requests" : nullptr;
}

/// Takes the fields but those that frame the body.
/// @return null, or why there are none.
const char* TakeFields(std::string_view lines, HttpRequest* request) {
    if (lines.size() > kx::kMaxHttpRequestHeaderBytes) return "the header is too long";
    if (!kx::ReadHttpFields(lines, &request->fields)) return "a header line is no \"Name: value\"";
    HttpFields& fields = request->fields;
    auto frames = [](const HttpField& field) {
        return kx::IsSameHttpName(field.name, "Content-Length") || kx::IsSameHttpName(field.name, "Transfer-Encoding");
    };
    fields.erase(std::remove_if(fields.begin(), fields.end(), frames), fields.end());
    return nullptr;
}

/// @return the number in the line "Content-Length", in just that spelling; -1 where there is none.
long long SaidLength(std::string_view lines) {
    constexpr std::string_view kName = "Content-Length: ";
    size_t at = StartsWith(lines, kName) ? 0 : lines.find("\r\nContent-Length: ");
    if (at == std::string_view::npos) return -1;
    std::string_view value = lines.substr(lines.find(kName, at) + kName.size());
    value = value.substr(0, value.find('\r'));
    long long length = -1;
    auto [end, fault] = std::from_chars(value.data(), value.data() + value.size(), length);
    return fault == std::errc() && end == value.data() + value.size() ? length : -1;
}

std::string_view TextOf(const char* text) {
    return text ? text : "";
}

/// Takes what is asked for.
/// @return null, or what is wrong with it.
const char* TakeRequest(HttpRequest* request, const char* method, const char* headers, const char* body, int length) {
    request->method = TextOf(method);
    const char* fault = FaultOfUrl(request->url);
    if (!fault) fault = FaultOfMethod(request->method);
    if (!fault) fault = TakeFields(TextOf(headers), request);
    if (!fault && length < -1) fault = "the body's length is below 0";
    if (fault || !body) return fault;

    size_t size = length < 0 ? std::strlen(body) : static_cast<size_t>(length);
    long long said = SaidLength(TextOf(headers));
    if (said >= 0 && static_cast<unsigned long long>(said) < size) size = static_cast<size_t>(said);
    request->body.assign(body, size);
    return nullptr;
}

/// @throws std::bad_alloc
std::unique_ptr<HttpRequest> NewRequest(const char* url, HTTP_COMPLETION completion, HTTP_CLEANUP cleanup,
                                        void* userData) {
    auto request = std::make_unique<HttpRequest>();
    request->url = TextOf(url);
    request->target = request->url;
    request->options = g_options;
    request->completion = completion;
    request->cleanup = cleanup;
    request->m_url = request->url.c_str();
    request->m_userData = userData;
    return request;
}

/// @param fault  why it is to fail; null where nothing speaks against it.
void Start(std::unique_ptr<HttpRequest> request, const char* fault) {
    kx::HttpTransport& transport = Transport();  // first: nothing after it can fail
    if (fault) request->Fail(fault);
    request->m_id = g_HTTP_ID;
    g_HTTP_ID = g_HTTP_ID == INT_MAX ? 1 : g_HTTP_ID + 1;
    Link(request.get());
    transport.Add(std::move(request));
}

}  // namespace

// --- making requests ------------------------------------------------------------------------------------------------

void LoadSave::HTTP_Get(const char* url, int timeout, HTTP_COMPLETION completion, HTTP_CLEANUP cleanup,
                        void* userData) {
    std::unique_ptr<HttpRequest> request = NewRequest(url, completion, cleanup, userData);
    if (timeout >= 0) request->options.total = timeout;
    const char* fault = TakeRequest(request.get(), "GET", nullptr, nullptr, -1);
    Start(std::move(request), fault);
}

void LoadSave::HTTP_Post(const char* url, const char* body, HTTP_COMPLETION completion, HTTP_CLEANUP cleanup,
                         void* userData) {
    constexpr char kForm[] = "Content-Type: application/x-www-form-urlencoded";
    HTTP_Request(url, "POST", kForm, body, completion, cleanup, userData, -1);
}

void LoadSave::HTTP_Request(const char* url, const char* method, const char* headers, const char* body,
                            HTTP_COMPLETION completion, HTTP_CLEANUP cleanup, void* userData, int length) {
    std::unique_ptr<HttpRequest> request = NewRequest(url, completion, cleanup, userData);
    const char* fault = TakeRequest(request.get(), method, headers, body, length);
    Start(std::move(request), fault);
}

int LoadSave::SetHttpOptions(const kx::HttpOptions& options) {
    bool valid = options.connect >= 0 && options.stall >= 0 && options.total >= 0 && options.responseBytes >= 0 &&
                 options.responseBytes <= kx::kMaxFileBytes && options.redirects >= 0 &&
                 options.connectionsPerHost >= 1;
    if (!valid) return EINVAL;
    g_options = options;
    return 0;
}

// --- events ---------------------------------------------------------------------------------------------------------

bool LoadSave::NextEvent(int milliseconds, ASYNC_EVENT* event) {
    DS_AutoRelease release;
    timespec end = After(std::max(milliseconds, 0));
    std::unique_ptr<HttpRequest> request = g_completion.Take();
    bool waiting = g_inFlight > 0;
    while (!request && waiting) {
        waiting = g_completion.Wait(milliseconds < 0 ? nullptr : &end);
        request = g_completion.Take();
    }
    g_completion.TakeInterrupt();  // it was for this call
    if (!request) return false;
    Unlink(request.get());
    *event = request->event;
    return true;
}

void LoadSave::ReleaseEvent(const ASYNC_EVENT& event) {
    DS_AutoMutex lock;
    if (event.m_mapSerial && SerialOfDsMap(event.m_map) == event.m_mapSerial) FreeDsMap(event.m_map);
    if (event.m_headersSerial && SerialOfDsMap(event.m_headers) == event.m_headersSerial) FreeDsMap(event.m_headers);
}

void LoadSave::InterruptEvents() {
    g_completion.Interrupt();
}

int LoadSave::RequestsInFlight() {
    return g_inFlight;
}

bool LoadSave::IsInFlight(int request) {
    const HTTP_REQ_CONTEXT* older = g_newest;
    const HTTP_REQ_CONTEXT* newer = g_oldest;
    for (; older && newer; older = older->m_next, newer = newer->m_previous) {
        if (older->m_id == request || newer->m_id == request) return true;
    }
    return false;
}

kx::HttpProgress LoadSave::Progress() {
    return g_transport ? g_transport->Progress() : kx::HttpProgress{};
}

void kx::EndHttp() {
    {
        DS_AutoRelease release;
        if (g_transport) g_transport->Stop();  // a script's end takes no memory
        g_completion.Stop();
    }
    while (std::unique_ptr<HttpRequest> request = g_completion.Take()) {
        Unlink(request.get());
        LoadSave::ReleaseEvent(request->event);
    }
}
