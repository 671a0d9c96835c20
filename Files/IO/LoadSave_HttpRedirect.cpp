// Where redirects lead an HTTP request, and what goes along.
#include "Files/Base/Limits.h"
#include "Files/IO/LoadSave_HttpTransfer.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

namespace kx {
namespace {

constexpr long kMovedPermanently = 301;
constexpr long kFound = 302;
constexpr long kSeeOther = 303;
constexpr long kTemporaryRedirect = 307;
constexpr long kPermanentRedirect = 308;

/// Where a URL leads: who may see a key.
struct Origin {
    std::string scheme;
    std::string host;
    std::string port;

    [[nodiscard]] bool Is(const Origin& other) const {
        return scheme == other.scheme && IsSameHttpName(host, other.host) && port == other.port;
    }
};

/// A URL taken apart.
class Url {
public:
    explicit Url(const CurlLibrary& curl) : m_curl(curl), m_url(curl.url(), curl.url_cleanup) {
        if (!m_url) throw std::bad_alloc();
    }

    /// Sets the URL, or resolves a reference against the one that is set.
    /// @return null, or what is wrong with it.
    const char* Set(const std::string& text, unsigned int flags) {
        CURLUcode fault = m_curl.url_set(m_url.get(), CURLUPART_URL, text.c_str(), flags);
        return fault ? m_curl.url_strerror(fault) : nullptr;
    }

    [[nodiscard]] std::string Part(CURLUPart part, unsigned int flags = 0) const {
        char* text = nullptr;
        if (m_curl.url_get(m_url.get(), part, &text, flags) == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
        std::unique_ptr<char, decltype(&::curl_free)> owned(text, m_curl.free);
        return text ? text : "";
    }

    [[nodiscard]] Origin GetOrigin() const {
        return {Part(CURLUPART_SCHEME), Part(CURLUPART_HOST), Part(CURLUPART_PORT, CURLU_DEFAULT_PORT)};
    }

private:
    const CurlLibrary& m_curl;
    std::unique_ptr<CURLU, decltype(&::curl_url_cleanup)> m_url;
};

}  // namespace

bool IsHttpRedirect(long status) {
    return status == kMovedPermanently || status == kFound || status == kSeeOther || status == kTemporaryRedirect ||
           status == kPermanentRedirect;
}

/// @return true where the handle is ready for the next hop.
bool HttpTransfer::Redirect() {
    const HttpOptions& options = m_request->options;
    if (m_hops == options.redirects) {
        m_request->fault = "more than " + std::to_string(options.redirects) + " redirects";
        return false;
    }
    ++m_hops;
    const std::string& location = m_request->answer.Location();
    if (const char* fault = Follow(location)) {
        m_request->fault = std::string("redirected to ") + location.substr(0, kMaxPath) + ": " + fault;
        return false;
    }
    SetHop();
    return true;
}

/// Makes the request one to where a redirect leads.
/// @return null, or why it must not go there.
const char* HttpTransfer::Follow(const std::string& location) {
    Url url(m_curl);
    const char* fault = url.Set(m_request->target, 0);
    Origin before = url.GetOrigin();
    if (!fault) fault = url.Set(location, CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE | CURLU_ALLOW_SPACE);
    if (fault) return fault;

    Origin origin = url.GetOrigin();
    if (origin.scheme != "http" && origin.scheme != "https") return "it is neither http nor https";
    if (origin.host.empty() || origin.port.empty()) return "it names no server";
    if (before.scheme == "https" && origin.scheme == "http") return "it leads out of https";
    std::string target = url.Part(CURLUPART_URL);
    if (target.size() > static_cast<size_t>(kMaxHttpUrl)) return "the URL is too long";

    ChangeMethod();
    if (!origin.Is(before)) {
        HttpFields& fields = m_request->fields;
        fields.erase(
            std::remove_if(fields.begin(), fields.end(), [](const HttpField& f) { return !GoesToAnotherOrigin(f); }),
            fields.end());
    }
    m_request->target = std::move(target);
    return nullptr;
}

/// RFC 9110, section 15.4: what was posted is fetched elsewhere, unless the redirect says otherwise.
void HttpTransfer::ChangeMethod() {
    std::string& method = m_request->method;
    int status = m_request->m_status;
    bool moved = status == kMovedPermanently || status == kFound;
    bool becomesGet = (moved && method == "POST") || (status == kSeeOther && method != "HEAD");
    if (!becomesGet) return;
    method = "GET";
    m_request->body.clear();
    HttpFields& fields = m_request->fields;
    auto describesBody = [](const HttpField& field) {
        return IsSameHttpName(std::string_view(field.name).substr(0, 8), "Content-");
    };
    fields.erase(std::remove_if(fields.begin(), fields.end(), describesBody), fields.end());
}

}  // namespace kx
