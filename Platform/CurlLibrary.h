#pragma once

#include <curl/curl.h>
#include <string>

namespace kx {

/// libcurl, loaded at the first request; it brings some thirty libraries.
///
/// The members are the library's functions, without "curl_" before their names.
struct CurlLibrary {
    /// Loads the library, once; it stays for the life of the process.
    /// @param reason  set where it cannot be used.
    /// @return null then; the next call tries again.
    /// @thread the transport's
    static const CurlLibrary* Load(std::string* reason);

    decltype(&::curl_global_init) global_init;
    decltype(&::curl_version_info) version_info;

    decltype(&::curl_easy_init) easy_init;
    decltype(&::curl_easy_setopt) easy_setopt;
    decltype(&::curl_easy_getinfo) easy_getinfo;
    decltype(&::curl_easy_cleanup) easy_cleanup;
    decltype(&::curl_easy_strerror) easy_strerror;

    decltype(&::curl_multi_init) multi_init;
    decltype(&::curl_multi_cleanup) multi_cleanup;
    decltype(&::curl_multi_setopt) multi_setopt;
    decltype(&::curl_multi_add_handle) multi_add_handle;
    decltype(&::curl_multi_remove_handle) multi_remove_handle;
    decltype(&::curl_multi_perform) multi_perform;
    decltype(&::curl_multi_poll) multi_poll;
    decltype(&::curl_multi_wakeup) multi_wakeup;
    decltype(&::curl_multi_info_read) multi_info_read;

    decltype(&::curl_slist_append) slist_append;
    decltype(&::curl_slist_free_all) slist_free_all;

    decltype(&::curl_url) url;
    decltype(&::curl_url_cleanup) url_cleanup;
    decltype(&::curl_url_set) url_set;
    decltype(&::curl_url_get) url_get;
    decltype(&::curl_url_strerror) url_strerror;
    decltype(&::curl_free) free;
};

}  // namespace kx
