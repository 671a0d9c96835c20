// One HTTP request on the wire.
#include "Files/IO/LoadSave_HttpTransfer.h"

#include "Files/Base/Limits.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace kx {
namespace {

constexpr char kUserAgent[] = "User-Agent: kxfiles";
constexpr char kAcceptEncoding[] = "Accept-Encoding: gzip";
constexpr long kReceiveBuffer = 64 << 10;     // with the library's 16 KiB large bodies take twice as many calls
constexpr int kMaxRedirectBody = 64 << 10;    // beyond it a connection is not worth keeping
constexpr curl_off_t kMaxReserved = 1 << 20;  // what a length is believed to be, before the bytes come

constexpr long kPartialContent = 206;
constexpr std::chrono::milliseconds kTick{1};
constexpr char kSilent[] = "the server has fallen silent";
constexpr char kUnconnected[] = "no connection in time";

/// The option in milliseconds that libcurl takes; 0 there is its own default.
long Milliseconds(int limit) {
    constexpr long kNever = 1000L * 60 * 60 * 24 * 7;
    return limit > 0 ? limit : kNever;
}

const char* Environment(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? value : nullptr;
}

}  // namespace

// --- the handle -----------------------------------------------------------------------------------------------------

void HttpTransfer::Lines::Add(const std::string& line) {
    curl_slist* first = m_curl.slist_append(m_first, line.c_str());
    if (!first) throw std::bad_alloc();
    m_first = first;
}

void HttpTransfer::Lines::Clear() {
    m_curl.slist_free_all(m_first);
    m_first = nullptr;
}

HttpTransfer::HttpTransfer(const CurlLibrary& curl, HttpCounters* counters)
    : m_curl(curl), m_counters(*counters), m_lines(curl), m_usualLines(curl),
      m_handle(curl.easy_init(), curl.easy_cleanup) {
    if (!m_handle) throw std::bad_alloc();
    m_usualLines.Add(kUserAgent);
    m_usualLines.Add(kAcceptEncoding);
    SetForAll();
}

template <class Value>
void HttpTransfer::Set(CURLoption option, Value value) {
    if (m_curl.easy_setopt(Handle(), option, value)) throw std::bad_alloc();  // there is no other cause
}

void HttpTransfer::SetForAll() {
    Set(CURLOPT_PRIVATE, this);
    Set(CURLOPT_ERRORBUFFER, m_message);
    Set(CURLOPT_WRITEFUNCTION, &OnBody);
    Set(CURLOPT_WRITEDATA, this);
    Set(CURLOPT_HEADERFUNCTION, &OnHeader);
    Set(CURLOPT_HEADERDATA, this);
    Set(CURLOPT_XFERINFOFUNCTION, &OnProgress);
    Set(CURLOPT_XFERINFODATA, this);
    Set(CURLOPT_BUFFERSIZE, kReceiveBuffer);
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_QUICK_EXIT, 1L);  // nobody waits for a resolver that hangs
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    Set(CURLOPT_FOLLOWLOCATION, 0L);
    Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    SetCertificates();
}

/// One of these takes the place of the system's store.
void HttpTransfer::SetCertificates() {
    const char* bundle = Environment("CURL_CA_BUNDLE");
    const char* file = bundle ? bundle : Environment("SSL_CERT_FILE");
    const char* folder = bundle ? nullptr : Environment("SSL_CERT_DIR");
    if (!file && !folder) return;
    Set(CURLOPT_CAINFO, file);
    Set(CURLOPT_CAPATH, folder);
}

// --- a hop ----------------------------------------------------------------------------------------------------------

void HttpTransfer::Begin(HttpRequest* request) {
    m_request = request;
    m_begun = HttpClock::now();
    m_hops = 0;
    request->answer.Reset();
    SetHop();
}

void HttpTransfer::SetHop() {
    m_message[0] = 0;
    m_redirected = false;
    m_passedOver = 0;
    m_bodyBegun = false;
    m_compressed = false;
    m_decoder.Reset();
    m_request->response.clear();
    Set(CURLOPT_URL, m_request->target.c_str());
    bool secure = m_request->target.compare(0, 6, "https:") == 0;
    // Only TLS tells at the start of a connection whether it takes more transfers than one.
    Set(CURLOPT_HTTP_VERSION, static_cast<long>(secure ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1));
    Set(CURLOPT_PIPEWAIT, secure ? 1L : 0L);
    SetMethod();
    SetFields();
    SetClocks();
}

bool HttpTransfer::SendsBody() const {
    const std::string& method = m_request->method;
    if (method == "HEAD") return false;
    return !m_request->body.empty() || method == "POST" || method == "PUT" || method == "PATCH";
}

void HttpTransfer::SetMethod() {
    const std::string& method = m_request->method;
    Set(CURLOPT_NOPROGRESS, SendsBody() ? 0L : 1L);  // what comes in is seen as it comes
    if (method == "HEAD") {
        Set(CURLOPT_NOBODY, 1L);
    } else if (SendsBody()) {
        Set(CURLOPT_POST, 1L);
        Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_request->body.size()));
        Set(CURLOPT_POSTFIELDS, m_request->body.data());
    } else {
        Set(CURLOPT_HTTPGET, 1L);
    }
    bool usual = method == "HEAD" || method == (SendsBody() ? "POST" : "GET");
    Set(CURLOPT_CUSTOMREQUEST, usual ? nullptr : method.c_str());
}

void HttpTransfer::SetFields() {
    const HttpFields& fields = m_request->fields;
    m_lines.Clear();
    bool usual = fields.empty() && !SendsBody();
    if (usual) {
        Set(CURLOPT_HTTPHEADER, m_usualLines.Get());
        return;
    }
    for (const HttpField& field : fields) {
        m_lines.Add(field.value.empty() ? field.name + ";" : field.name + ": " + field.value);
    }
    if (!FindHttpField(fields, "User-Agent")) m_lines.Add(kUserAgent);
    bool whole = !FindHttpField(fields, "Range");  // a part of something compressed could not be decoded
    if (whole && !FindHttpField(fields, "Accept-Encoding")) m_lines.Add(kAcceptEncoding);
    if (SendsBody()) {
        for (const char* name : {"Content-Type", "Expect"}) {  // a name alone keeps the library from adding its own
            if (!FindHttpField(fields, name)) m_lines.Add(std::string(name) + ":");
        }
    }
    Set(CURLOPT_HTTPHEADER, m_lines.Get());
}

void HttpTransfer::SetClocks() {
    const HttpOptions& options = m_request->options;
    m_hopBegun = HttpClock::now();
    m_underWay = false;
    m_marked = m_request->answer.Bytes();  // of the hops before
    m_checkTime = ConnectTime();
    if (options.stall > 0) m_checkTime = std::min(m_checkTime, m_hopBegun + std::chrono::milliseconds(options.stall));
    Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(options.connect));
    auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(m_hopBegun - m_begun);
    bool limited = options.total > 0;
    Set(CURLOPT_TIMEOUT_MS, limited ? std::max<long>(options.total - static_cast<long>(passed.count()), 1) : 0L);
}

// --- what comes in --------------------------------------------------------------------------------------------------

size_t HttpTransfer::OnBody(char* data, size_t size, size_t count, void* transfer) noexcept {
    try {
        bool taken = static_cast<HttpTransfer*>(transfer)->TakeBody({data, size * count});
        return taken ? size * count : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

bool HttpTransfer::TakeBody(std::string_view data) {
    CountReceived(data.size());
    if (m_redirected) {
        m_passedOver += static_cast<int>(data.size());
        return m_passedOver <= kMaxRedirectBody;
    }
    if (!m_bodyBegun) PrepareBody();
    if (!m_request->fault.empty()) return false;
    if (m_received > m_request->options.responseBytes) return RefuseLength();  // compressed bytes may become nothing
    if (!m_compressed) return TakeDecoded(data);
    bool taken = m_decoder.Decode(data, [this](std::string_view part) { return TakeDecoded(part); });
    if (!taken) m_request->Fail("the compressed body is damaged");
    return taken;
}

/// With the first bytes it is known what the rest will be.
void HttpTransfer::PrepareBody() {
    m_bodyBegun = true;
    const std::string& encoding = m_request->answer.Encoding();
    bool isPart = Status() == kPartialContent;  // of something compressed, which cannot be decoded
    m_compressed = !isPart && (encoding == "gzip" || encoding == "x-gzip");
    bool asked = FindHttpField(m_request->fields, "Accept-Encoding");  // by the script, which gets what it asked for
    bool strange = !isPart && !m_compressed && !asked && !encoding.empty() && encoding != "identity";
    if (strange) m_request->Fail("the body is compressed in a way that was not asked for");

    curl_off_t length = 0;
    m_curl.easy_getinfo(Handle(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    CountExpected(length);
    m_request->response.reserve(static_cast<size_t>(std::clamp<curl_off_t>(length, 0, kMaxReserved)));
}

bool HttpTransfer::TakeDecoded(std::string_view data) {
    std::string& response = m_request->response;
    auto room = static_cast<size_t>(m_request->options.responseBytes) - response.size();
    if (data.size() > room) return RefuseLength();
    response.append(data);
    return true;
}

/// @return false
bool HttpTransfer::RefuseLength() {
    m_request->fault = "the answer is longer than " + std::to_string(m_request->options.responseBytes) + " bytes";
    return false;
}

size_t HttpTransfer::OnHeader(char* data, size_t size, size_t count, void* transfer) noexcept {
    try {
        bool taken = static_cast<HttpTransfer*>(transfer)->TakeHeaderLine({data, size * count});
        return taken ? size * count : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

bool HttpTransfer::TakeHeaderLine(std::string_view line) {
    HttpAnswer& answer = m_request->answer;
    if (const char* fault = answer.Take(line)) {
        m_request->Fail(fault);
        return false;
    }
    NoteProgress();
    if (answer.IsComplete()) m_redirected = IsHttpRedirect(Status()) && !answer.Location().empty();
    return true;
}

int HttpTransfer::OnProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) noexcept {
    auto* self = static_cast<HttpTransfer*>(transfer);
    self->m_sent = sent;
    self->NoteProgress();
    return 0;
}

void HttpTransfer::CountExpected(long long bytes) {
    if (bytes <= 0) return;
    m_expected = bytes;
    m_counters.expected += bytes;
    ++m_counters.known;
}

void HttpTransfer::CountReceived(size_t bytes) {
    auto more = static_cast<long long>(bytes);
    m_received += more;
    m_counters.received += more;
    m_counters.ever += more;
    NoteProgress();
}

/// Puts off the stall where enough bytes have moved.
void HttpTransfer::NoteProgress() {
    long long moved = m_received + m_sent + m_request->answer.Bytes();
    int limit = m_request->options.stall;
    if (limit == 0 || moved - m_marked < kMinHttpProgress) return;
    m_marked = moved;
    m_checkTime = HttpClock::now() + std::chrono::milliseconds(limit);
    m_underWay = true;
}

/// When the library's own clock for connecting should have run out, were it running: for a transfer that waits until
/// another one's connection stands it is not.
HttpClock::time_point HttpTransfer::ConnectTime() const {
    constexpr std::chrono::milliseconds kAfterTheLibrary{100};
    int limit = m_request->options.connect;
    return limit > 0 ? m_hopBegun + std::chrono::milliseconds(limit) + kAfterTheLibrary : HttpClock::time_point::max();
}

/// When silence begins to count is asked here, now and then: the library's hook for it would cost each transfer half as
/// much again.
const char* HttpTransfer::CheckClocks(HttpClock::time_point now) {
    if (now < m_checkTime) return nullptr;
    if (m_underWay) return kSilent;
    std::chrono::milliseconds stall(m_request->options.stall);
    curl_off_t connected = 0;  // microseconds that it took
    m_curl.easy_getinfo(Handle(), CURLINFO_PRETRANSFER_TIME_T, &connected);
    m_underWay = connected > 0;
    if (m_underWay) {
        m_checkTime = HttpClock::time_point::max();
        if (stall.count() > 0) m_checkTime = m_hopBegun + std::chrono::microseconds(connected) + stall;
        return now >= m_checkTime ? kSilent : nullptr;
    }
    if (now >= ConnectTime()) return kUnconnected;
    m_checkTime = ConnectTime();
    if (stall.count() > 0) m_checkTime = std::min(m_checkTime, now + stall / 4 + kTick);
    return nullptr;
}

void HttpTransfer::ForgetProgress() {
    m_counters.received -= m_received;
    m_counters.expected -= m_expected;
    if (m_expected != 0) --m_counters.known;
    m_expected = 0;
    m_received = 0;
    m_sent = 0;
    m_checkTime = HttpClock::time_point::max();
}

// --- the end of a hop -----------------------------------------------------------------------------------------------

bool HttpTransfer::Finish(CURLcode result) {
    ForgetProgress();
    TakeStatus();
    bool whole = result == CURLE_OK || m_passedOver > kMaxRedirectBody;
    if (whole && m_redirected && Redirect()) return false;
    if (!whole) m_request->Fail(Explain(result).c_str());
    if (!m_request->answer.IsComplete()) m_request->Fail("the answer breaks off in its header");
    if (!m_decoder.IsWhole()) m_request->Fail("the compressed body breaks off");
    End();
    return true;
}

void HttpTransfer::Abort(const char* fault) {
    ForgetProgress();
    TakeStatus();
    m_request->Fail(fault);
    End();
}

/// @return the status of the hop's answer; 0 before its status line.
long HttpTransfer::Status() const {
    long status = 0;
    m_curl.easy_getinfo(Handle(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

/// A hop without a status line leaves the one before.
void HttpTransfer::TakeStatus() {
    if (long status = Status()) m_request->m_status = static_cast<int>(status);
}

void HttpTransfer::End() {
    m_lines.Clear();
    m_decoder.Reset();
    m_request = nullptr;
}

std::string HttpTransfer::Explain(CURLcode result) const {
    bool inHeader = !m_request->answer.IsComplete();
    if (result == CURLE_WRITE_ERROR) return "out of memory";  // all other causes have been given
    if (result == CURLE_OUT_OF_MEMORY && inHeader) return "a header line is too long";  // the library's own limit
    int total = m_request->options.total;
    bool late = total > 0 && HttpClock::now() - m_begun >= std::chrono::milliseconds(total);
    if (result == CURLE_OPERATION_TIMEDOUT) {
        return late ? "not done within " + std::to_string(total) + " ms" : kUnconnected;  // no other clock is set
    }
    return m_message[0] ? m_message : m_curl.easy_strerror(result);
}

}  // namespace kx
