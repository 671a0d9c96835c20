#pragma once

#include "Files/Code/Code_Function.h"
#include "Files/IO/LoadSave.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"
#include "tests/Http_answers.h"
#include "tests/support/Console.h"
#include "tests/support/Folder.h"
#include "tests/support/Variable.h"

#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kx::test {

/// What became of a request.
struct HttpResult {
    int id = 0;
    std::string url;
    int status = -1;
    bool answered = false;  ///< with a response, an empty one perhaps; not with a null one
    std::string body;
    std::map<std::string, std::string> headers;
    int completions = 0;
    int cleanups = 0;
    int events = 0;
};

/// A request to make.
struct HttpAsk {
    std::string url;
    std::string method = "GET";
    const char* headers = nullptr;
    const char* body = nullptr;
    int length = -1;
};

/// Requests as the host makes them for the module, and what their callbacks are given. Nothing of them outlives a test:
/// no request, no descriptor, no memory, no map.
class HttpTest : public ::testing::Test {
protected:
    void SetUp() override {
        SetVariable("no_proxy", "*");  // whatever the machine has, these requests stay on it
        for (const char* name : {"CURL_CA_BUNDLE", "SSL_CERT_FILE", "SSL_CERT_DIR"}) {
            SetVariable(name, std::nullopt);
        }
        m_blocks = MemoryManager::Stats().blocks;
        m_descriptors = OpenDescriptors();
        m_maps = LiveMaps();
    }

    void TearDown() override {
        LoadSave::Shutdown();
        EXPECT_EQ(LoadSave::RequestsInFlight(), 0);
        EXPECT_EQ(g_pHttpHead, nullptr);
        EXPECT_EQ(OpenDescriptors(), m_descriptors);
        EXPECT_EQ(LiveMaps(), m_maps);
        EXPECT_EQ(MemoryManager::Stats().blocks, m_blocks);
        EXPECT_EQ(LoadSave::SetHttpOptions(HttpOptions()), 0);
        EXPECT_EQ(m_said + m_console.Take(), "");  // whatever was said has been asked for
    }

    /// Sets an environment variable for the rest of the test, before its first request.
    void SetVariable(const char* name, const std::optional<std::string>& value) {
        m_variables.emplace_back(name, value);
    }

    int Get(const std::string& url, int timeout = -1) {
        int id = g_HTTP_ID;
        LoadSave::HTTP_Get(url.c_str(), timeout, Complete, CleanUp, NewResult(id));
        return id;
    }

    int Post(const std::string& url, const std::string& body) {
        int id = g_HTTP_ID;
        LoadSave::HTTP_Post(url.c_str(), body.c_str(), Complete, CleanUp, NewResult(id));
        return id;
    }

    int Start(const HttpAsk& ask) {
        int id = g_HTTP_ID;
        LoadSave::HTTP_Request(ask.url.c_str(), ask.method.c_str(), ask.headers, ask.body, Complete, CleanUp,
                               NewResult(id), ask.length);
        return id;
    }

    /// Takes events until the request's has come.
    HttpResult Wait(int id) {
        while (Result(id).events == 0 && TakeEvent()) {
        }
        HttpResult result = Result(id);
        EXPECT_EQ(result.events, 1);
        EXPECT_EQ(result.completions, 1);
        EXPECT_EQ(result.cleanups, 1);
        EXPECT_TRUE(result.answered || result.body.empty());
        return result;
    }

    void WaitForAll() {
        while (LoadSave::RequestsInFlight() > 0 && TakeEvent()) {
        }
    }

    HttpResult Fetch(const std::string& url) { return Wait(Get(url)); }
    HttpResult Fetch(const HttpAsk& ask) { return Wait(Start(ask)); }

    /// Takes an event and releases it.
    /// @return false where none has come, which fails the test.
    bool TakeEvent() {
        ASYNC_EVENT event{};
        bool taken = LoadSave::NextEvent(kPatience, &event);
        EXPECT_TRUE(taken);
        if (!taken) return false;
        EXPECT_EQ(event.m_type, EVENT_OTHER_WEB_ASYNC);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto result = std::find_if(m_results.begin(), m_results.end(),
                                       [&event](const Record& each) { return each.result.id == event.m_request; });
            EXPECT_NE(result, m_results.end());
            if (result != m_results.end()) ++result->result.events;
        }
        LoadSave::ReleaseEvent(event);
        return true;
    }

    /// A copy of what is known of a request.
    HttpResult Result(int id) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const Record& each : m_results) {
            if (each.result.id == id) return each.result;
        }
        ADD_FAILURE() << "no request " << id;
        return {};
    }

    std::vector<HttpResult> Results() {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<HttpResult> results;
        for (const Record& each : m_results) {
            results.push_back(each.result);
        }
        return results;
    }

    /// Why a request failed, as the console says in one line.
    std::string Reason(int id) {
        m_said += m_console.Take();
        std::string begin = "HTTP request " + std::to_string(id) + " failed: ";
        size_t at = m_said.find(begin);
        EXPECT_NE(at, std::string::npos) << begin << "what? \"" << m_said << "\"";
        if (at == std::string::npos) return "";
        size_t end = m_said.find('\n', at);
        std::string reason = m_said.substr(at + begin.size(), end - at - begin.size());
        m_said.erase(at, end - at + 1);
        return reason;
    }

    /// Expects a request to fail for a reason that holds these words.
    void ExpectFailure(const HttpResult& result, int status, const std::string& words) {
        EXPECT_FALSE(result.answered);
        EXPECT_EQ(result.status, status);
        std::string reason = Reason(result.id);
        EXPECT_NE(reason.find(words), std::string::npos) << reason;
    }

    void ExpectAnswer(const HttpResult& result, int status, const std::string& body) {
        EXPECT_TRUE(result.answered);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.body, body);
    }

    static int LiveMaps() {
        DS_AutoMutex lock;
        int count = 0;
        for (int i = 1; i < themaps.length; ++i) {
            if (themaps.arr[i]) ++count;
        }
        return count;
    }

    CapturingConsole m_console;

private:
    /// A request's result, and whose it is.
    struct Record {
        HttpTest* test;
        HttpResult result;
    };

    static constexpr int kPatience = 30 * 1000;  // milliseconds, after which an event will not come

    void* NewResult(int id) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_results.push_back({this, {}});
        m_results.back().result.id = id;
        return &m_results.back();
    }

    static int Complete(HTTP_REQ_CONTEXT* context, void*, int* map) {
        auto& record = *static_cast<Record*>(context->m_userData);
        std::map<std::string, std::string> headers = TextsOf(context->m_responseHeaders);
        *map = CreateDsMap(1, "id", static_cast<double>(context->m_id), nullptr);
        std::lock_guard<std::mutex> lock(record.test->m_mutex);
        HttpResult& result = record.result;
        EXPECT_EQ(result.id, context->m_id);
        EXPECT_TRUE(context->m_response || context->m_responseLength == 0);
        result.url = context->m_url;
        result.status = context->m_status;
        result.answered = context->m_response != nullptr;
        if (result.answered) result.body.assign(context->m_response, static_cast<size_t>(context->m_responseLength));
        result.headers = headers;
        ++result.completions;
        return EVENT_OTHER_WEB_ASYNC;
    }

    static void CleanUp(HTTP_REQ_CONTEXT* context) {
        auto& record = *static_cast<Record*>(context->m_userData);
        std::lock_guard<std::mutex> lock(record.test->m_mutex);
        EXPECT_EQ(record.result.completions, 1);  // after the completion
        ++record.result.cleanups;
    }

    static std::map<std::string, std::string> TextsOf(int map) {
        DS_AutoMutex lock;
        std::map<std::string, std::string> texts;
        EXPECT_TRUE(map > 0 && map < themaps.length && themaps.arr[map]) << map;
        ForEachEntry(*themaps.arr[map], [&texts](const MapStore& entry) {
            EXPECT_EQ(entry.key.kind, VALUE_STRING);
            EXPECT_EQ(entry.value.kind, VALUE_STRING);
            texts[KXGetString(&entry.key, 0)] = KXGetString(&entry.value, 0);
        });
        return texts;
    }

    std::deque<Variable> m_variables;
    long long m_blocks = 0;
    int m_descriptors = 0;
    int m_maps = 0;
    std::string m_said;  // on the console, and not asked for yet
    std::mutex m_mutex;
    std::deque<Record> m_results;  // under the mutex; callbacks hold on to them
};

}  // namespace kx::test
