// The work of scripts/http_kxrun.lua with libcurl alone: GETs one URL so many times over 16 connections, and prints how
// many answers came and their bytes. Prints it, as the other side does.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <curl/curl.h>
#include <string>

namespace {

constexpr int kConnections = 16;

struct Transfer {
    CURL* handle;
    std::string body;
};

size_t Append(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

void Prepare(Transfer* transfer, const char* url) {
    transfer->handle = curl_easy_init();
    curl_easy_setopt(transfer->handle, CURLOPT_URL, url);
    curl_easy_setopt(transfer->handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(transfer->handle, CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(transfer->handle, CURLOPT_WRITEDATA, &transfer->body);
    curl_easy_setopt(transfer->handle, CURLOPT_PRIVATE, transfer);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const int requests = std::atoi(argv[2]);
    curl_global_init(CURL_GLOBAL_NOTHING);
    CURLM* multi = curl_multi_init();
    std::array<Transfer, kConnections> transfers;

    int started = 0;
    for (Transfer& transfer : transfers) {
        Prepare(&transfer, argv[1]);
        if (started == requests) continue;
        curl_multi_add_handle(multi, transfer.handle);
        ++started;
    }

    int answers = 0;
    size_t bytes = 0;
    for (int running = started; running > 0 || started < requests;) {
        curl_multi_perform(multi, &running);
        int left = 0;
        while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
            CURL* handle = message->easy_handle;
            if (message->data.result != CURLE_OK) {
                std::fprintf(stderr, "kxcurl: %s\n", curl_easy_strerror(message->data.result));
                return 1;
            }
            Transfer* transfer = nullptr;
            curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
            ++answers;
            bytes += transfer->body.size();
            transfer->body.clear();
            curl_multi_remove_handle(multi, handle);
            if (started == requests) continue;
            curl_multi_add_handle(multi, handle);
            ++started;
            running = 1;
        }
        if (running > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    std::printf("%d %zu\n", answers, bytes);
    for (Transfer& transfer : transfers) {
        curl_easy_cleanup(transfer.handle);
    }
    curl_multi_cleanup(multi);
    return 0;
}
