// libcurl, loaded when it is needed.
#include "Platform/CurlLibrary.h"

#include "Platform/SharedLibrary.h"

namespace kx {
namespace {

constexpr char kFile[] = "libcurl.so.4";
constexpr unsigned int kOldest = 0x075700;  // 7.87.0: transfers end without waiting for the resolver

bool FindFunctions(CurlLibrary* curl, std::string* reason) {
    return SharedLibrary(kFile)
        .Find(&curl->global_init, "curl_global_init")
        .Find(&curl->version_info, "curl_version_info")
        .Find(&curl->easy_init, "curl_easy_init")
        .Find(&curl->easy_setopt, "curl_easy_setopt")
        .Find(&curl->easy_getinfo, "curl_easy_getinfo")
        .Find(&curl->easy_cleanup, "curl_easy_cleanup")
        .Find(&curl->easy_strerror, "curl_easy_strerror")
        .Find(&curl->multi_init, "curl_multi_init")
        .Find(&curl->multi_cleanup, "curl_multi_cleanup")
        .Find(&curl->multi_setopt, "curl_multi_setopt")
        .Find(&curl->multi_add_handle, "curl_multi_add_handle")
        .Find(&curl->multi_remove_handle, "curl_multi_remove_handle")
        .Find(&curl->multi_perform, "curl_multi_perform")
        .Find(&curl->multi_poll, "curl_multi_poll")
        .Find(&curl->multi_wakeup, "curl_multi_wakeup")
        .Find(&curl->multi_info_read, "curl_multi_info_read")
        .Find(&curl->slist_append, "curl_slist_append")
        .Find(&curl->slist_free_all, "curl_slist_free_all")
        .Find(&curl->url, "curl_url")
        .Find(&curl->url_cleanup, "curl_url_cleanup")
        .Find(&curl->url_set, "curl_url_set")
        .Find(&curl->url_get, "curl_url_get")
        .Find(&curl->url_strerror, "curl_url_strerror")
        .Find(&curl->free, "curl_free")
        .Load(reason);
}

}  // namespace

const CurlLibrary* CurlLibrary::Load(std::string* reason) {
    static CurlLibrary curl;
    static bool ready = false;
    if (ready) return &curl;

    if (!FindFunctions(&curl, reason)) return nullptr;
    const curl_version_info_data* version = curl.version_info(CURLVERSION_NOW);
    if (version->version_num < kOldest) {
        *reason = std::string("libcurl ") + version->version + " is too old; it has to be 7.87 or newer";
        return nullptr;
    }
    if (CURLcode fault = curl.global_init(CURL_GLOBAL_DEFAULT)) {
        *reason = std::string("libcurl: ") + curl.easy_strerror(fault);
        return nullptr;
    }
    ready = true;
    return &curl;
}

}  // namespace kx
